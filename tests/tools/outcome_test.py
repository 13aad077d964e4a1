#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs updates against a simulated BMC and compares the verdict with what the
BMC itself received and did. Each row is judged three times: by `update`, by
`report` of its log, and by `report` of the log without the tool's own verdict.

Usage: outcome_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import base64
import concurrent.futures
import datetime
import json
import os
import pathlib
import re
import signal
import ssl
import subprocess
import sys
import tempfile
import urllib.request

import jsonschema
from simulated import Machine, finish, wait_for, write_rules

TOOL, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
WORK = tempfile.TemporaryDirectory(prefix="outcome-")
HOME = pathlib.Path(WORK.name)
SCHEMA = json.loads(
    (SOURCE / "tools/quorvane/commands/result.schema.json").read_text())
FIRMWARE = "/redfish/v1/UpdateService/FirmwareInventory"
BIOS = FIRMWARE + "/BIOS"
SHARE = f"--image nfs://192.0.2.9/fw --target {BIOS} --no-download"
faults = []


def steps(*states):
    """A task that returns each state ("Running 40") once, the last for ever."""
    made = []
    for state in states:
        name, _, percent = state.partition(" ")
        made.append({"state": name, "percent": int(percent or -1), "polls": 1})
    made[-1]["polls"] = 1000
    return {"task": {"steps": made}}


def built_in(name):
    scenario = json.loads(
        (SOURCE / f"simulator/scenarios/{name}.json").read_text())
    del scenario["$schema"]
    return scenario


def fault(phase, **more):
    return {"phase": phase, **more}


def lost(phase, **more):
    """The BMC acts on the request, but its response is lost."""
    return fault(phase, fault="drop", machine_acts=True, **more)


NIC = FIRMWARE + "/NIC0"
OLD_VERSIONS = {"firmware": {"members": [{"id": "BIOS", "version": "2.4.1"}]}}
COMPLETED = [{"state": "Running", "percent": 40, "polls": 1},
             {"state": "Completed", "percent": 100}]
CRITICAL = {"task": {"steps": [COMPLETED[0], {
    **COMPLETED[1], "health": "Critical", "message_id": "Update.1.0.Bad",
    "message": "The new image does not start."}]}}
REASON = {"error": {"message": "This image is for another model."}}
UPLOAD, TASK = "firmware_update/multipart_update/upload_rules/", \
    "firmware_update/task_monitoring/task_states/"

# Name, scenario, changed rules, options, exit code, text of the output, and how
# many images the BMC received completely and how many resets it executed.
ROWS = [
    ("completed", {}, {}, "", 0, "updated (", 1, 1),
    ("completed_by_rules", {}, {}, "--restart rules", 0, "updated (", 1, 1),
    ("not_verified", {}, {}, "--no-verify", 0, "done (", 1, 1),
    ("completed_never_rebooted", {}, {}, "--restart never", 4,
     "not rebooted", 1, 0),
    ("no_reboot_by_rules", {}, {"firmware_update/reboot/reboot_required": False},
     "", 4, "the rules require no reboot", 1, 0),
    ("changes_without_a_reboot", {"versions_change_at": "completion",
                                  "versions_change_after_seconds": 6}, {},
     "--restart never --verify-timeout 30", 0, "updated (", 1, 0),
    ("unreadable_member", {"faults": [{"path": NIC, "status": 500}]}, {}, "", 0,
     "updated (", 1, 1),
    ("member_unreadable_afterwards", {"faults": [
        {"path": NIC, "status": 500, "after": 1}]}, {},
     f"--target {BIOS}", 0, "updated (", 1, 1),
    ("target_unreadable_afterwards", {"faults": [
        {"path": NIC, "status": 500, "after": 1}]}, {},
     f"--target {BIOS} --target {NIC}", 4, "not every target could be read", 1,
     1),
    ("only_a_backup_changed", {"firmware": {"members": [
        {"id": "BIOS", "version": "1"},
        {"id": "BIOS-Backup", "version": "1", "updated_version": "2"}]}}, {}, "",
     4, "BIOS-Backup 1 -> 2", 1, 1),
    ("expected", {}, {}, "--expect BIOS=2.5.0 --expect BMC=1.1.0", 0,
     "updated (", 1, 1),
    ("not_as_expected", {}, {}, "--expect BIOS=9", 1, "mismatch (", 1, 1),
    ("current", {}, {}, "--expect BIOS=2.4.1 --restart never", 0, "current (",
     1, 0),
    ("skipped", {}, {}, "--expect BIOS=2.4.1 --skip-if-current", 0,
     "nothing was uploaded", 0, 0),
    ("not_skipped", {}, {}, "--expect BIOS=2.5.0 --skip-if-current", 0,
     "updated (", 1, 1),
    ("unknown_expectation", {}, {}, "--expect BIOSS=2.5.0", 2,
     "did you mean BIOS?", 0, 0),
    ("no_new_version", OLD_VERSIONS, {}, "", 4, "unchanged (", 1, 1),
    ("one_target_of_two", {}, {}, f"--target {BIOS} --target {NIC}", 4,
     "not every target has another version", 1, 1),
    ("target", {}, {}, f"--target {BIOS}", 0, "updated (", 1, 1),
    ("changed_at_completion", {"versions_change_at": "completion"}, {},
     "--restart never", 0, "updated (", 1, 0),
    ("half_way_back", {"faults": [fault("inventory", after=4, first=4,
                                        status=503)]}, {}, "", 0, "updated (",
     1, 1),
    ("not_back", {"faults": [fault("inventory", after=4, status=503)]}, {}, "",
     4, "the inventory returned HTTP 503", 1, 1),
    ("refused_afterwards", {"faults": [fault("inventory", after=4,
                                             status=401)]}, {}, "", 4,
     "refused the account (HTTP 401)", 1, 1),
    ("built_in_no_version", built_in("no-new-version"), {}, "", 4,
     "unchanged (", 1, 1),
    ("built_in_wrong_version", built_in("wrong-version"), {},
     "--expect BIOS=2.5.0", 1, "mismatch (", 1, 1),
    ("built_in_late_version", built_in("late-new-version"), {},
     "--verify-timeout 30", 0, "updated (", 1, 1),
    ("built_in_half_way", built_in("half-way-back"), {},
     "--verify-timeout 30", 0, "updated (", 1, 1),
    ("built_in_critical", built_in("critical-completion"), {}, "", 1,
     "its verification failed", 1, 0),
    ("built_in_task_gone", built_in("task-gone"), {}, "", 0,
     "updated (", 1, 1),
    ("built_in_lost_response", built_in("lost-after-upload"), {},
     "--verify-timeout 30", 0, "a response was lost", 1, 0),
    ("built_in_lost_upload", built_in("lost-upload"), {}, "", 4,
     "a response was lost", 0, 0),
    ("scheduled", steps("Scheduled 90"), {}, "", 4, "unchanged (", 1, 1),
    ("scheduled_never_rebooted", steps("Scheduled 90"), {}, "--restart never", 0,
     "staged (", 1, 0),
    ("starting", steps("Starting 5"), {}, "", 4, "quorvane restart", 1, 0),
    ("starting_by_rules", steps("Starting 5"), {}, "--restart rules", 4,
     "in the state Starting; the BMC accepted a reboot", 1, 1),
    ("critical", CRITICAL, {}, "", 1, "The new image does not start.", 1, 0),
    ("critical_by_rules", CRITICAL, {}, "--restart rules", 1,
     "the BMC accepted a reboot", 1, 1),
    ("accepted_at_once", {"upload": {"status": 200}}, {}, "", 4,
     "(HTTP 200) but named no task", 1, 0),
    ("rule_for_no_response", {"faults": [lost("upload")]},
     {UPLOAD + "0": "track_task"}, "--restart rules --force", 4,
     "a response was lost", 1, 1),
    ("rule_for_500", {"faults": [fault("upload", status=500)]},
     {UPLOAD + "500": "track_task"}, "--restart rules --force", 1,
     "returned HTTP 500", 0, 1),
    ("rule_for_exception", steps("Exception 40"),
     {TASK + "Exception": "proceed_to_activation"}, "--restart rules --force", 1,
     "The task failed (state Exception); the BMC accepted a reboot", 1, 1),
    ("upload_lost_then_busy", {"faults": [
        lost("upload", first=1), fault("upload", status=503)]},
     {}, "", 4, "Upload at /redfish/v1/UpdateService/update-multipart: sent, no "
     "response", 1, 0),
    ("share_lost_then_missing", {"faults": [
        lost("simple_update", first=1),
        fault("simple_update", status=404)]}, {}, SHARE, 4,
     "SimpleUpdate at /redfish/v1/UpdateService/Actions/UpdateService."
     "SimpleUpdate: sent, no response", 0, 0),
    ("activation_lost", {"faults": [lost("activation")]}, {},
     f"--target {BIOS}", 4, "the response to its activation was lost", 1, 0),
    ("activation_rejected", {"faults": [
        fault("activation", status=400, body=REASON)]}, {},
     f"--target {BIOS}", 1, "returned HTTP 400", 1, 0),
    ("killed_by_rules", steps("Killed 40"), {}, "--restart rules", 1,
     "(state Killed); the BMC accepted a reboot", 1, 1),
    ("killed", steps("Killed 40"), {}, "", 1, "quorvane restart", 1, 0),
    ("killed_reset_rejected", {**steps("Killed 40"), "faults": [
        fault("reboot", status=409)]}, {}, "--restart rules", 1,
     "the BMC rejected the reboot (HTTP 409)", 1, 0),
    ("killed_reset_lost", {**steps("Killed 40"), "faults": [
        lost("reboot")]}, {}, "--restart rules", 1,
     "; a reboot request got no response", 1, 1),
    ("busy_then_rejected", {"faults": [
        fault("upload", first=1, status=503),
        fault("upload", status=400, body=REASON)]}, {}, "", 1,
     "returned HTTP 400, 3 times: This image is for another model.", 0, 0),
    ("inventory_forbidden", {"faults": [fault("inventory", status=403)]}, {},
     "", 3, "login refused (", 0, 0),
    ("inventory_unanswered", {"faults": [fault("inventory", fault="drop")]}, {},
     "", 3, "unreachable (", 0, 0),
    ("inventory_missing", {"faults": [fault("inventory", status=404)]}, {}, "",
     4, "was not read before the update", 1, 1),
    ("upload_forbidden", {"faults": [fault("upload", status=403)]}, {}, "", 1,
     "privilege to update firmware", 0, 0),
    ("login_refused_by_upload", {"faults": [fault("upload", status=401)]}, {},
     "", 3, "login refused (", 0, 0),
    ("polls_refused", {"faults": [fault("task", after=1, status=401)]}, {}, "",
     4, "returned HTTP 401 (login refused)", 1, 0),
    ("task_missing", {"faults": [fault("task", status=404)]}, {}, "", 4,
     "returned HTTP 404 for it", 1, 0),
    ("stalls", steps("Running 40"), {}, "", 4, "Last state: Running.", 1, 0),
    ("reset_rejected", {"faults": [fault("reboot", status=400, body=REASON)]},
     {}, "", 1, "but the BMC rejected the reboot", 1, 0),
    ("reset_lost", {"faults": [lost("reboot")]}, {}, "", 0,
     "a reboot request got no response", 1, 1),
    ("inventory_unreadable", {"faults": [fault("inventory", fault="garbage")]},
     {}, "", 4, "was not read before the update", 1, 1),
    ("unknown_target", {}, {}, "--target /redfish/v1/Bios", 2,
     "does not contain it", 0, 0),
]


def expect(holds, what, *more):
    if not holds:
        faults.append("\n".join(map(str, (what, *more))))


def start(name, bmc, rules, options, **more):
    if "verify" not in options:
        options += " --verify-timeout 5"
    image = "" if "--image" in options else f"--file {HOME}/fw"
    return subprocess.Popen(
        [TOOL, *f"update --bmc {bmc} --user admin --password-file {HOME}/pw "
         f"--insecure --rules {rules} --log {HOME}/{name}.log --events "
         f"{HOME}/{name}.events --result "
         f"{HOME}/{name}.result {image} {options.format(bmc=bmc)}".split()],
        **{"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True,
           **more})


def report(log):
    done = subprocess.run([TOOL, "report", log, "--json"], capture_output=True,
                          text=True)
    return json.loads(done.stdout)


def expect_valid(name, document):
    errors = list(jsonschema.Draft202012Validator(SCHEMA).iter_errors(document))
    expect(not errors, name, errors)


def judge_thrice(name, printed):
    """The verdict is the same however it is judged."""
    result = json.loads((HOME / f"{name}.result").read_text())
    expect_valid(name, result)
    log = HOME / f"{name}.log"
    without = HOME / f"{name}.without"
    without.write_text("".join(
        line for line in log.read_text().splitlines(True)
        if not re.search(r"\[tool\] (Outcome|Cause|Next): ", line)))
    for judged in (report(log), report(without)):
        for key in ("verdict", "exit_code", "headline", "cause", "next"):
            expect(judged[key] == result[key], f"{name}: {key} differs",
                   judged[key], result[key])
        expect(judged["duration_seconds"] >= 0, name, judged)
    expect(f"Outcome: {result['verdict'].replace('_', ' ')} (" in printed, name,
           printed)
    expect_same_events(name, report(log)["events"])
    return result


def expect_same_events(name, reported):
    """A program that follows the run gets what the report shows."""
    events = [json.loads(line) for line in
              (HOME / f"{name}.events").read_text().splitlines()]
    for event in events:
        expect(datetime.datetime.fromisoformat(event["time"]).tzinfo, name, event)
        expect(event["kind"] and event["phase"], name, event)
    kinds = [event["kind"] for event in events if event["kind"] != "bytes_sent"]
    expect(kinds == [event["kind"] for event in reported
                     if event["kind"] != "elapsed"], name, kinds)


def version_of(bmc):
    """The BIOS that the BMC itself has installed; None if it does not say."""
    request = urllib.request.Request(f"https://{bmc.address}" + FIRMWARE + "/BIOS")
    request.add_header("Authorization", "Basic " + base64.b64encode(
        b"admin:password").decode())
    try:
        with urllib.request.urlopen(
                request, timeout=10,
                context=ssl._create_unverified_context()) as response:
            return json.load(response)["Version"]
    except (OSError, ValueError):
        return None


def compare_with_bmc(name, result, installed):
    """No verdict claims more than the versions of the BMC show."""
    bios = [one for one in result["firmware"] if one["uri"].endswith("/BIOS")]
    if not bios:
        return
    changed = any(one["after"] not in (None, one["before"])
                  for one in result["firmware"] if "Backup" not in one["uri"])
    expect(result["verdict"] != "updated" or changed, name, result)
    expect(result["verdict"] != "unchanged" or not changed, name, result)
    if installed is not None and bios[0]["after"] is not None:
        expect(bios[0]["after"] == installed, f"{name}: BMC has {installed}",
               result)


def run_row(name, scenario, changes, options, code, text, images, resets):
    rules = write_rules(SOURCE, HOME / f"{name}.json", changes)
    with Machine(TOOL, HOME, name, scenario) as bmc:
        update = start(name, bmc.address, rules, options)
        printed = update.communicate(timeout=100)[0]
        installed = None if "refused" in name else version_of(bmc)
    expect(update.returncode == code and text in printed,
           f"{name}: exit {update.returncode}", printed)
    expect((bmc.images(), bmc.resets()) == (images, resets), name, bmc.images(),
           bmc.resets(), bmc.account)
    expect(bmc.refused_logins() <= 1 or name == "polls_refused",
           f"{name}: refused logins", bmc.account)
    if code != 2:
        compare_with_bmc(name, judge_thrice(name, printed), installed)


def break_off(name, scenario, sign, text, code, options="", victim="tool"):
    """Ends the tool, its worker or both when the log contains `sign`."""
    rules = write_rules(SOURCE, HOME / f"{name}.json", {})
    with Machine(TOOL, HOME, name, scenario) as bmc:
        update = start(name, bmc.address, rules, options,
                       start_new_session=True)
        log = HOME / f"{name}.log"
        wait_for(lambda: log.exists() and sign in log.read_text())
        if victim == "tool":
            update.send_signal(signal.SIGINT)
        elif victim == "worker":
            os.kill(int(pathlib.Path(
                f"/proc/{update.pid}/task/{update.pid}/children").read_text()),
                signal.SIGKILL)
        else:  # as a service manager does it
            os.killpg(update.pid, signal.SIGTERM)
        printed = update.communicate(timeout=100)[0]
    expect(update.returncode == code and text in printed, name, printed)
    result = judge_thrice(name, printed)
    expect(result["record"] is None, name, result)


def print_json():
    """--json: one document on standard output, the same as that of --result."""
    rules = write_rules(SOURCE, HOME / "json.json", {})
    for name, options, code in (("json", "--json", 0),
                                ("json_target", "--json --target /x", 2)):
        with Machine(TOOL, HOME, name, {}) as bmc:
            update = start(name, bmc.address, rules, options,
                           stderr=subprocess.PIPE)
            printed, progress = update.communicate(timeout=100)
        document = json.loads(printed)
        expect_valid(name, document)
        expect(update.returncode == code == document["exit_code"], name, document)
        expect(document == json.loads((HOME / f"{name}.result").read_text()),
               name, document)
        expect("Inventory: 3 items" in progress, name, progress)


SLOW_UPLOAD = {"faults": [fault("upload", delay_ms=60000)]}
BROKEN_OFF = [
    ("int_in_upload", SLOW_UPLOAD, "sent completely",
     "The BMC may act on the Upload request.", 130),
    ("kill_in_upload", SLOW_UPLOAD, "sent completely",
     "(signal 9). The BMC may act on the Upload request.", 4, "",
     "worker"),
    ("int_in_task", steps("Running 40"), "State: Running",
     "may still run its task /redfish/v1/TaskService/Tasks/1", 130),
    ("term_in_task", steps("Running 40"), "State: Running",
     "may still run its task /redfish/v1/TaskService/Tasks/1", 130, "", "group"),
    ("int_in_download", {"images": [{"path": "/images/fw", "size": 5000}],
                         "faults": [lost("simple_update"),
                                    fault("download", delay_ms=60000)]},
     "Downloading from", "SimpleUpdate: sent, no response", 130,
     f"--image https://{{bmc}}/images/fw --target {BIOS}"),
    ("int_in_inventory", {"faults": [fault("inventory", delay_ms=60000)]},
     "GET collection", "No request that changes anything", 130),
]

(HOME / "fw").write_text("x" * 5000)
(HOME / "pw").write_text("password\n")
(HOME / "pw").chmod(0o600)
with concurrent.futures.ThreadPoolExecutor(max_workers=8) as pool:
    futures = [pool.submit(run_row, *row) for row in ROWS]
    futures += [pool.submit(break_off, *row) for row in BROKEN_OFF]
    futures.append(pool.submit(print_json))
finish(futures, faults)
