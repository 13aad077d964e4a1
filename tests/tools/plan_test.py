#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plans updates of simulated BMCs and drafts rules for them. A plan must send
nothing but GET, and a blocker must be true: the update fails. A draft must pass
the check, and update the BMC that it was drafted for.

Usage: plan_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import concurrent.futures
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema
from simulated import Machine, finish, write_rules

TOOL, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
WORK = tempfile.TemporaryDirectory(prefix="plan-")
HOME = pathlib.Path(WORK.name)
SCENARIOS = {path.stem: {key: value for key, value in
                         json.loads(path.read_text()).items()
                         if key not in ("$schema", "description")}
             for path in (SOURCE / "simulator/scenarios").glob("*.json")}
SCHEMA = json.loads(
    (SOURCE / "tools/quorvane/redfish/plan.schema.json").read_text())
TASKS_SCHEMA = json.loads(
    (SOURCE / "tools/quorvane/redfish/tasks.schema.json").read_text())
INVENTORY = "/redfish/v1/UpdateService/FirmwareInventory"
BIOS = INVENTORY + "/BIOS"
ACTION = "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate"
FILE = f"--file {HOME}/fw"
NFS = "--image nfs://192.0.2.9/fw"
WEB = "--image https://{bmc}/images/firmware.bin"
REQUEST = re.compile(r"(?m)^([A-Z]+) (/\S*) (\d+|-|\S+)")
faults = []


def every(**fault):
    """A BMC that treats every request like this."""
    return {"faults": [{"path": "*", **fault}]}


def at(path, **fault):
    return {"faults": [{"path": path, **fault}]}


# Name, scenario, options, changed rules, exit code, blockers, and some of the
# warnings.
ROWS = [
    ("nothing", every(fault="drop"), FILE, {}, 3, [], []),
    ("unauthorized", every(status=401), FILE, {}, 3, [], []),
    ("forbidden", at("/redfish/v1/*", status=403), FILE, {}, 0, [],
     ["update_service_unknown", "upload_uri_unknown", "inventory_incomplete",
      "reset_uri_unknown"]),
    ("missing", every(status=404), FILE, {}, 1, ["upload_uri_absent"],
     ["update_service_unknown", "inventory_incomplete"]),
    ("broken", every(status=500), FILE, {}, 0, [], ["upload_uri_unknown"]),
    ("garbage", every(fault="garbage"), FILE, {}, 0, [],
     ["service_root_unknown", "inventory_incomplete"]),
    ("no_json", every(status=200, body="<html>"), FILE, {}, 0, [],
     ["service_root_unknown", "upload_uri_unknown"]),
    ("wrong_types", every(status=200, body={"Members": 7, "Actions": [],
                                            "Status": "OK", "Tasks": 1}),
     FILE, {}, 0, [], ["inventory_incomplete"]),
    ("update_service_lost", at("/redfish/v1/UpdateService", fault="cut_short"),
     FILE, {}, 0, [], ["update_service_unknown"]),
    ("inventory_lost", {"faults": [{"phase": "inventory", "status": 503}]},
     FILE, {}, 0, [], ["inventory_incomplete"]),
    ("member_lost", at(BIOS, status=500), FILE, {}, 0, [],
     ["inventory_incomplete"]),
    ("systems_lost", at("/redfish/v1/Systems", status=500), FILE,
     {"firmware_update/reboot/reboot_uri": ["/redfish/v1/Other"]}, 0, [], []),
    ("tasks_refused", at("/redfish/v1/TaskService", status=401), FILE, {}, 0,
     [], ["resources_refused"]),
    ("two_refused", {"faults": [
        {"path": "/redfish/v1/TaskService", "status": 401},
        {"path": "/redfish/v1/Chassis", "status": 401}]}, FILE, {}, 3, [], []),
    ("system_off", {"power_state": "Off"}, FILE, {}, 0, [], ["system_off"]),
    ("no_graceful_restart", {"reset_types": ["ForceRestart"]}, FILE, {}, 1,
     ["graceful_restart_not_allowed"], []),
    ("no_reboot_needed", {"reset_types": ["ForceRestart"]}, FILE,
     {"firmware_update/reboot/reboot_required": False}, 0, [], []),
    ("other_reset", {}, FILE,
     {"firmware_update/reboot/reboot_uri": ["/redfish/v1/Other"]}, 1,
     ["reset_uri_absent"], []),
    ("other_upload", {}, FILE,
     {"firmware_update/multipart_update/upload_uri": ["/other"]}, 1,
     ["upload_uri_absent"], []),
    ("binary_only", {"upload": {"multipart_paths": []}}, FILE,
     {"firmware_update/multipart_update/upload_uri": [
         "/redfish/v1/UpdateService/update"]}, 0, [],
     ["multipart_not_advertised"]),
    ("other_activation", {}, FILE + f" --target {BIOS}",
     {"firmware_update/activation/activation_uri": ["/other"]}, 1,
     ["activation_uri_absent"], []),
    ("target", {}, FILE + f" --target {BIOS}", {}, 0, [], []),
    ("unknown_target", {}, FILE + f" --target {BIOS}2", {}, 1,
     ["target_absent"], []),
    ("lost_target", at(BIOS + "2", status=500), FILE + f" --target {BIOS}2",
     {}, 0, [], ["target_not_in_inventory"]),
    ("fixed_target", {"firmware": {"members": [
        {"id": "BIOS", "name": "BIOS", "version": "1",
         "updateable": False}]}}, FILE + f" --target {BIOS}", {}, 1,
     ["target_not_updateable"], []),
    ("protocol", {"simple_update": {"protocols": ["CIFS"]}}, NFS, {}, 1,
     ["protocol_not_allowed"], []),
    ("protocol_oem", {"simple_update": {"protocols": ["OEM"]}}, NFS, {}, 0, [],
     []),
    ("protocol_fallback", {"simple_update": {"protocols": ["NFS"]}}, WEB, {}, 0,
     [], ["protocol_not_allowed"]),
    ("protocol_no_fallback", {"simple_update": {"protocols": ["NFS"]}},
     WEB + " --no-download", {}, 1, ["protocol_not_allowed"], []),
    ("share_elsewhere", {}, NFS,
     {"firmware_update/activation/activation_uri": ["/other"]}, 1,
     ["simple_update_uri_absent"], []),
]
# The built-in scenarios: options and blockers of the plan, and what the BMC
# reports of an update with drafted rules.
# The simulated BMC ignores Updateable.
UNPROVEN = {"fixed_target"}
STORED = "image of 5000 bytes stored"
BUILT_IN = {
    "share-only": (f"{NFS} --target {BIOS}", [], "SimpleUpdate started"),
    "simple-update-refused": (WEB, [], "image of 65536 bytes stored"),
    "too-large": (FILE, ["image_too_large"], "image too large"),
    "lost-upload": (FILE, [], "update-multipart dropped"),
}


def expect(holds, what, *more):
    if not holds:
        faults.append("\n".join(map(str, (what, *more))))


def run(*command):
    done = subprocess.run([TOOL, *command], capture_output=True, text=True,
                          timeout=100)
    expect(done.returncode >= 0, command, done)  # no signal
    return done


def with_login(command, bmc, options):
    return run(*(f"{command} --bmc {bmc.address} --user admin --password-file "
                 f"{HOME}/pw --insecure "
                 + options.format(bmc=bmc.address)).split())


def reads_only(name, bmc):
    requests = REQUEST.findall(bmc.account)
    expect(requests and all(method == "GET" for method, *_ in requests),
           f"{name}: requests other than GET", bmc.account)
    expect(len(requests) < 2100, f"{name}: {len(requests)} requests")


def plan(name, scenario, options, rules, code, blockers, warnings):
    with Machine(TOOL, HOME, name, scenario) as bmc:
        done = with_login("plan", bmc, f"{options} --rules {rules} --json")
        text = with_login("plan", bmc, f"{options} --rules {rules}")
    reads_only(name, bmc)
    expect(done.returncode == text.returncode == code,
           f"{name}: exit {done.returncode}, {text.returncode}", done, text)
    if code == 3:
        # Each command: one without credentials, one with them.
        expect(bmc.refused_logins() <= 4, name, bmc.account)
        return
    document = json.loads(done.stdout)
    errors = list(jsonschema.Draft202012Validator(SCHEMA).iter_errors(document))
    expect(not errors, name, errors)
    codes = {severity: [one["code"] for one in document["findings"]
                        if one["severity"] == severity]
             for severity in ("blocker", "warning")}
    expect(codes["blocker"] == blockers, f"{name}: blockers", codes)
    expect(set(warnings) <= set(codes["warning"]), f"{name}: warnings", codes)
    for one in document["findings"]:
        expect(one["message"] in re.sub(r"\s+", " ", text.stdout), name,
               one, text.stdout)
    if not blockers or name in UNPROVEN:
        return
    with Machine(TOOL, HOME, name + ".update", scenario) as bmc:
        update = with_login("update --no-verify", bmc, f"{options} --rules {rules}")
    expect(update.returncode != 0, f"{name}: a false blocker", update)


def plan_row(name, scenario, options, changes, *expected):
    rules = write_rules(SOURCE, HOME / f"{name}.json", changes)
    plan(name, scenario, options, rules, *expected)


def plan_scenario(name):
    options, blockers, _ = BUILT_IN.get(name, (FILE, [], STORED))
    code = 3 if name == "wrong-password" else int(bool(blockers))
    plan("built-in-" + name, SCENARIOS[name], options,
         SOURCE / "scripts/demo.rules.json", code, blockers, [])


def quicken(file):
    """Changes only the times of a drafted file."""
    rules = json.loads(file.read_text())
    rules["retry_config"] = {"max_retries": 2, "sleep_time": 1,
                             "backoff_strategy": "fixed"}
    rules["firmware_update"]["task_monitoring"].update(
        polling_interval=1, max_polling_time_seconds=6)
    file.write_text(json.dumps(rules))


def draft(name):
    options, _, sign = BUILT_IN.get(name, (FILE, [], STORED))
    rules = HOME / f"draft-{name}.json"
    with Machine(TOOL, HOME, "draft-" + name, SCENARIOS[name]) as bmc:
        drafted = with_login("rules draft", bmc, f"--output {rules}")
    reads_only(name, bmc)
    if name == "wrong-password":
        expect(drafted.returncode == 3 and not rules.exists(), drafted)
        return
    expect(drafted.returncode == 0, name, drafted)
    checked = run("rules", "check", "--strict", rules)
    expect(checked.returncode == 0, name, checked)
    text = rules.read_text()
    expect("password" not in text and '"username": "admin"' in text, name, text)
    for key in ("upload_uri", "reboot_uri", "polling_interval"):
        expect(key in drafted.stderr, f"{name}: no reason for {key}", drafted)
    quicken(rules)
    with Machine(TOOL, HOME, "updated-" + name, SCENARIOS[name]) as bmc:
        update = with_login("update --no-verify", bmc, f"{options} --rules {rules}")
    expect(sign in bmc.account, f"{name}: update with the draft", update.stdout,
           bmc.account)
    missing = [path for method, path, status in REQUEST.findall(bmc.account)
               if method != "GET" and status == "404"]
    expect(not missing, f"{name}: the draft contains absent URIs", missing)


def tasks():
    script = {"task": {"steps": [{
        "state": "Exception", "percent": 40, "polls": 1000,
        "health": "Critical", "message_id": "Update.1.0.Bad",
        "message": "The image\x1b[31m is broken."}]}}
    rules = write_rules(SOURCE, HOME / "tasks.json", {})
    uri = "/redfish/v1/TaskService/Tasks/1"
    with Machine(TOOL, HOME, "tasks", script) as bmc:
        none = with_login("tasks", bmc, "")
        with_login("update --no-verify", bmc, f"{FILE} --rules {rules}")
        listed = with_login("tasks", bmc, "")
        shown = with_login(f"task {uri}", bmc, "")
        absent = with_login(f"task {uri}2", bmc, "")
        foreign = with_login("task https://192.0.2.9/Tasks/1", bmc, "")
        document = json.loads(with_login("tasks", bmc, "--json").stdout)
        one = json.loads(with_login(f"task {uri}", bmc, "--json").stdout)
    for schema, instance in ((TASKS_SCHEMA, document),
                             (TASKS_SCHEMA["properties"]["tasks"]["items"],
                              one)):
        jsonschema.Draft202012Validator(schema).validate(instance)
    expect((none.returncode, none.stdout) == (0, "No tasks.\n"), none)
    expect(uri in listed.stdout and "Exception" in listed.stdout, listed)
    expect("Critical" in shown.stdout and "\\x1b[31m is broken" in shown.stdout,
           shown)
    expect(absent.returncode == 1 and "HTTP 404" in absent.stderr, absent)
    expect(foreign.returncode == 2, foreign)
    expect(document["is_complete"] and document["tasks"] == [one], document)
    expect(one["state"] == "Exception" and not one["is_running"]
           and one["messages"][0]["message_id"] == "Update.1.0.Bad", one)


def dry_run():
    """The plan of an update covers its options."""
    rules = write_rules(SOURCE, HOME / "dry.json", {
        "firmware_update/reboot/reboot_uri": ["/redfish/v1/Other"]})
    with Machine(TOOL, HOME, "dry", {}) as bmc:
        never, other, quick = (
            json.loads(with_login(
                "update --dry-run --json", bmc,
                f"{FILE} --rules {rules} {options}").stdout)
            for options in ("--restart never", "", "--verify-timeout 1"))
    reads_only("dry", bmc)
    expect(not never["findings"] and "Reboot" not in
           [one["phase"] for one in never["phases"]], never)
    expect([one["code"] for one in other["findings"]] == ["reset_uri_absent"],
           other)
    expect(other["time"]["longest_seconds"] ==
           quick["time"]["longest_seconds"] + 1199, other, quick)


def draft_with_errors():
    rules = write_rules(SOURCE, HOME / "harmful.json", {
        "firmware_update/multipart_update/upload_rules/500": "track_task"})
    output = HOME / "harmful.draft.json"
    with Machine(TOOL, HOME, "harmful", {}) as bmc:
        done = with_login("rules draft", bmc,
                          f"--rules {rules} --force --output {output}")
    expect(done.returncode == 1 and not output.exists()
           and "was not written" in done.stderr, done)


def draft_without_update_service():
    scenario = at("/redfish/v1/UpdateService", status=500)
    with Machine(TOOL, HOME, "undrafted", scenario) as bmc:
        done = with_login("rules draft", bmc, f"--output {HOME}/undrafted.json")
    expect(done.returncode == 1 and not (HOME / "undrafted.json").exists(), done)


(HOME / "fw").write_text("x" * 5000)
(HOME / "pw").write_text("password\n")
(HOME / "pw").chmod(0o600)
with concurrent.futures.ThreadPoolExecutor(max_workers=8) as pool:
    futures = [pool.submit(plan_row, *row) for row in ROWS]
    futures += [pool.submit(plan_scenario, name) for name in SCENARIOS]
    futures += [pool.submit(draft, name) for name in SCENARIOS]
    futures += [pool.submit(one) for one in (
        tasks, dry_run, draft_with_errors, draft_without_update_service)]
finish(futures, faults)
