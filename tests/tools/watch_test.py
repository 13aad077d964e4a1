#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Kills `update` in each phase, then follows the run with `watch`. The
simulated BMC counts what it received: `watch` uploads nothing, and reboots only
with --restart.

Usage: watch_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import concurrent.futures
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

import jsonschema

from simulated import Machine, finish, wait_for, write_rules

TOOL, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
WORK = tempfile.TemporaryDirectory(prefix="watch-")
HOME = pathlib.Path(WORK.name)
RESULT = jsonschema.Draft202012Validator(json.loads(
    (SOURCE / "tools/quorvane/commands/result.schema.json").read_text()))
BIOS = "/redfish/v1/UpdateService/FirmwareInventory/BIOS"
TASK = "/redfish/v1/TaskService/Tasks/1"
faults = []


def task(*states, **more):
    """A task that returns each state ("Running 40") twice, the last for ever."""
    made = []
    for state in states:
        name, percent = state.split()
        made.append({"state": name, "percent": int(percent), "polls": 2})
    made[-1]["polls"] = 1000
    return {"task": {"steps": made, **more}}


def slow(phase, **more):
    """The BMC acts on the request, and responds after the tool was killed."""
    return {"phase": phase, "delay_ms": 30000, "first": 1, **more}


RUNNING = task("Running 40", "Running 60", "Completed 100")
AT_COMPLETION = {**RUNNING, "versions_change_at": "completion"}

# Name, scenario, options of `update`, the pattern in the log at which it is
# killed, options of `watch`, verdict, a text of the result, and how many images
# the BMC received and how many resets it executed in all.
ROWS = [
    ("inventory", {"faults": [slow("inventory")]}, "", "GET collection", "",
     "failed", "Run the update again.", 0, 0),
    ("upload", {**AT_COMPLETION, "faults": [slow("upload")]}, "",
     "sent completely", "", "updated", "a response was lost", 1, 0),
    ("lost_upload", {"faults": [slow("upload", fault="drop")]}, "",
     "sent completely", "", "unknown", "a response was lost", 0, 0),
    ("task", RUNNING, "", "State: Running", "--restart", "updated", "", 1, 1),
    ("logged_from_error_on", RUNNING, "--log-level error", "State: Running",
     "--restart --log-level error", "updated", "", 1, 1),
    ("restart_not_needed", AT_COMPLETION, "", "State: Running", "--restart",
     "updated", "", 1, 0),
    ("task_without_restart", RUNNING, "", "State: Running", "", "unchanged",
     "quorvane restart", 1, 0),
    ("task_never_ends", task("Running 40"), "", "State: Running", "", "unknown",
     "time limit of the rules", 1, 0),
    ("task_fails", task("Running 40", "Exception 40"), "", "State: Running",
     "--restart", "failed", "(state Exception)", 1, 0),
    ("task_gone", {**AT_COMPLETION, **task("Running 40", "Running 60",
                                           "Completed 100",
                                           disappears_at=60)}, "",
     "State: Running", "", "updated", "disappeared", 1, 0),
    ("staged", task("Running 40", "Scheduled 90"), "", "State: Running", "",
     "staged", "quorvane restart", 1, 0),
    ("activation", {**AT_COMPLETION, "faults": [slow("activation")]},
     f"--target {BIOS}", "Trying activation.*sent completely", "", "updated",
     "the response to its activation was lost", 1, 0),
    ("reset", {"faults": [slow("reboot")]}, "", "Trying reboot URI.*sent completely",
     "--restart", "updated", "a reboot request got no response", 1, 1),
    ("restart", {"restart": {"requests": 3}}, "", "Reboot HTTP status", "",
     "updated", "", 1, 1),
    ("verification", {"versions_change_after_reads": 6}, "",
     "Verification begins", "--restart", "updated", "", 1, 1),
    ("mismatch", {"versions_change_after_reads": 6}, "",
     "Verification begins", "--expect BIOS=9", "mismatch", "", 1, 1),
    ("login_refused", {**RUNNING, "faults": [
        {"phase": "task", "after": 1, "status": 401}]}, "", "State: Running",
     "", "login_refused", "user and the password", 1, 0),
]


def expect(holds, what, *more):
    if not holds:
        faults.append("\n".join(map(str, (what, *more))))


def arguments(name, command, options):
    return [TOOL, *f"{command} --password-file {HOME}/pw --insecure --log "
            f"{HOME}/{name}.log {options}".split()]


def run_watch(name, options):
    """The result of `watch`, which --json and the exit code agree with."""
    done = subprocess.run(arguments(name, "watch --json", options),
                          capture_output=True, text=True, timeout=100)
    expect(done.stdout, f"{name}: exit {done.returncode}", done.stderr)
    result = json.loads(done.stdout)
    RESULT.validate(result)
    expect(result["exit_code"] == done.returncode, name, result)
    return result


def kill_update(name, bmc, rules, options, sign):
    """Leaves no process that could go on, like a host that loses power."""
    update = subprocess.Popen(
        arguments(name, f"update --bmc {bmc.address} --user admin",
                  f"--rules {rules} --file {HOME}/fw {options}"),
        stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT,
        start_new_session=True)
    log = HOME / f"{name}.log"
    wait_for(lambda: log.exists()
             and re.search(sign, log.read_text(), re.S))
    os.killpg(update.pid, signal.SIGKILL)
    update.wait()
    return log


def run_row(name, scenario, options, sign, more, verdict, text, images, resets):
    rules = write_rules(SOURCE, HOME / f"{name}.json", {})
    with Machine(TOOL, HOME, name, scenario) as bmc:
        log = kill_update(name, bmc, rules, options, sign)
        limit = 4 if verdict in ("unchanged", "unknown") else 30
        result = run_watch(name, f"--verify-timeout {limit} {more}")
    expect(result["verdict"] == verdict and text in json.dumps(result),
           f"{name}: {result}", log.read_text()[-3000:])
    expect((bmc.images(), bmc.resets()) == (images, resets), name, bmc.account)
    expect(result["image_sent"] == (verdict != "failed" or images > 0), name,
           result)
    if not result["image_sent"]:
        return
    reported = json.loads(subprocess.run(
        [TOOL, "report", log, "--json"], capture_output=True,
        text=True).stdout)
    for key in ("verdict", "headline", "cause", "next", "firmware"):
        expect(reported[key] == result[key], f"{name}: {key} differs",
               reported[key], result[key])
    if verdict == "updated":  # a second time, without a BMC
        expect(run_watch(name, "")["headline"] == result["headline"], name)


def watch_twice():
    """A run that `watch` did not finish can be followed again."""
    name = "twice"
    rules = write_rules(SOURCE, HOME / f"{name}.json", {})
    with Machine(TOOL, HOME, name, AT_COMPLETION) as bmc:
        log = kill_update(name, bmc, rules, "", "State: Running")
        watch = subprocess.Popen(arguments(name, "watch", ""),
                                 stdout=subprocess.PIPE, text=True)
        wait_for(lambda: "Continued" in log.read_text() and
                 "State: Running" in log.read_text().split("Continued")[1])
        watch.send_signal(signal.SIGINT)
        printed = watch.communicate(timeout=60)[0]
        expect(watch.returncode == 130 and "quorvane watch" in printed, printed)
        result = run_watch(name, "")
    expect((result["verdict"], bmc.images()) == ("updated", 1), name, result)


def watch_too_early():
    """An update that still runs, or whose log ends with another command."""
    name = "running"
    rules = write_rules(SOURCE, HOME / f"{name}.json", {})
    account = f"--user admin --password-file {HOME}/pw --insecure"
    with Machine(TOOL, HOME, name, {"faults": [slow("inventory")]}) as bmc:
        update = subprocess.Popen(
            arguments(name, f"update --bmc {bmc.address} --user admin",
                      f"--rules {rules} --file {HOME}/fw"),
            stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
        log = HOME / f"{name}.log"
        wait_for(lambda: log.exists() and "GET collection" in log.read_text())
        for text in ("changes the firmware of", "its last run is \"inventory of"):
            watch = subprocess.run(arguments(name, "watch", ""), text=True,
                                   capture_output=True)
            expect(watch.returncode == 2 and text in watch.stderr, text,
                   watch.stdout, watch.stderr)
            update.kill()
            update.wait()
            subprocess.run([TOOL, *f"inventory --bmc {bmc.address} {account} "
                            f"--log {log}".split()], capture_output=True)


def watch_a_task():
    """Without a log: the task and the versions before are named."""
    name = "named_task"
    rules = write_rules(SOURCE, HOME / f"{name}.json", {})
    account = f"--user admin --password-file {HOME}/pw --insecure"
    with Machine(TOOL, HOME, name, AT_COMPLETION) as bmc:
        before = HOME / "before.json"
        before.write_text(subprocess.run(
            [TOOL, *f"inventory --bmc {bmc.address} {account} --json".split()],
            capture_output=True, text=True).stdout)
        kill_update("other", bmc, rules, "", "State: Running")
        result = run_watch(
            name, f"--bmc {bmc.address} --user admin --rules {rules} "
            f"--task {TASK} --before {before}")
    expect((result["verdict"], bmc.images()) == ("updated", 1), name, result)


def reject():
    """Logs that cannot be followed, and what is no log."""
    (HOME / "text.log").write_text("This is no log.\n")
    for options, text in (
            ("", "Name the run to follow"),
            (f"--log {HOME}/text.log", "it is not the log of"),
            (f"--log {HOME}/none.log", "No such file"),
            (f"--task {TASK}", "--task requires --bmc"),
            (f"--log {HOME}/task.log --bmc 192.0.2.9", "Leave out --bmc")):
        done = subprocess.run([TOOL, "watch", *options.split()],
                              capture_output=True, text=True)
        expect(done.returncode == 2 and text in done.stderr, options,
               done.stderr)


(HOME / "fw").write_text("x" * 5000)
(HOME / "pw").write_text("password\n")
(HOME / "pw").chmod(0o600)
with concurrent.futures.ThreadPoolExecutor(max_workers=8) as pool:
    futures = [pool.submit(run_row, *row) for row in ROWS]
    futures += [pool.submit(watch_twice), pool.submit(watch_too_early),
                pool.submit(watch_a_task)]
    concurrent.futures.wait(futures)
    futures.append(pool.submit(reject))
finish(futures, faults)
