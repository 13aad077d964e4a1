#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What must not harm a run, or a BMC: closed terminals, signals, two runs at
once, a full disk, and another computer in the place of the BMC.

Usage: safety_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import concurrent.futures
import json
import os
import pathlib
import pty
import resource
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import time

from simulated import Machine, finish, wait_for, write_rules

TOOL, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
WORK = tempfile.TemporaryDirectory(prefix="safety-")
HOME = pathlib.Path(WORK.name)
STALLS = {"task": {"steps": [{"state": "Running", "percent": 40}]}}
faults = []


def expect(holds, what, *more):
    if not holds:
        faults.append("\n".join(map(str, (what, *more))))


def machine(name, scenario=None, port=0):
    return Machine(TOOL, HOME, name, scenario or {}, port)


def command(name, bmc, options="--insecure", changes=()):
    rules = write_rules(SOURCE, HOME / f"{name}.json", dict(changes))
    return [TOOL, *f"update --bmc {bmc} --user admin --password-file {HOME}/pw "
            f"--rules {rules} --log {HOME}/{name}.log --result "
            f"{HOME}/{name}.result --file {HOME}/fw --verify-timeout 5 {options}".split()]


def run(arguments, **more):
    return subprocess.run(arguments, stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.STDOUT, timeout=100, **more)


def result_of(name):
    return json.loads((HOME / f"{name}.result").read_text())


def reaches(name, text):
    log = HOME / f"{name}.log"
    wait_for(lambda: log.exists() and text in log.read_text())


def lose_terminals():
    """The terminal is closed while the task runs. One after the other, because
    a process that is forked meanwhile would keep the terminal open."""
    for options, verdict in (("", "unknown"), ("--stop-on-hangup", "interrupted")):
        name = f"terminal{len(options)}"
        with machine(name, STALLS) as bmc:
            child, terminal = pty.fork()
            if child == 0:
                os.execv(TOOL, command(name, bmc.address, "--insecure " + options))
            reaches(name, "State: Running")
            os.close(terminal)
            code = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
        result = result_of(name)
        expect((result["verdict"], result["exit_code"]) == (verdict, code), name,
               result, code)


def ignore_hangup():
    """As nohup does it, even for a tool that stops on a hang-up."""
    with machine("nohup", STALLS) as bmc:
        update = subprocess.Popen(
            command("nohup", bmc.address, "--insecure --stop-on-hangup"),
            stdout=subprocess.DEVNULL,
            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        reaches("nohup", "State: Running")
        os.kill(update.pid, signal.SIGHUP)
        expect(update.wait(100) == 4, "nohup", result_of("nohup"))


def run_twice():
    """One update of a BMC, and one run for each log."""
    with machine("twice", STALLS) as bmc, machine("idle") as other:
        update = subprocess.Popen(command("twice", bmc.address),
                                  stdout=subprocess.DEVNULL)
        reaches("twice", "State: Running")
        second = run(command("second", bmc.address))
        expect(second.returncode == 2 and f"process {update.pid} " in
               second.stdout, "a second update", second.stdout)
        same_log = [word.replace("second.log", "twice.log")
                    for word in command("second", other.address)]
        second = run(same_log)
        expect(second.returncode == 2 and "another run writes" in second.stdout,
               "a second log", second.stdout)
        expect(update.wait(100) == 4, "the first update")
    expect("POST" not in other.account, "the second run sent", other.account)


def fill_disk():
    """The log does not fit on the disk; the update is done anyway."""
    def limit():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (6000, 6000))
    with machine("full") as bmc:
        done = run(command("full", bmc.address), preexec_fn=limit)
    expect(done.returncode == 5 and "File too large" in done.stdout and
           result_of("full")["verdict"] == "updated", "full disk",
           done.returncode, done.stdout)


def remove_leftovers():
    """Private directories of runs that were killed."""
    dead, young = HOME / "quorvane-run-dead", HOME / "quorvane-run-young"
    for directory in (dead, young):
        directory.mkdir()
        (directory / "file").write_text("x")
    os.utime(dead, (1, 1))
    with machine("leftovers") as bmc:
        run(command("leftovers", bmc.address),
            env={**os.environ, "TMPDIR": str(HOME)})
    expect(not dead.exists() and young.exists(), "leftovers")


def be_silent():
    """A BMC that accepts connections and says nothing."""
    with socket.create_server(("127.0.0.1", 0)) as server:
        address = f"127.0.0.1:{server.getsockname()[1]}"
        for arguments in (command("silent", address),
                          [TOOL, *f"inventory --bmc {address} --user a --insecure "
                           f"--password-file {HOME}/pw".split()]):
            begin = time.monotonic()
            done = run(arguments)
            took = time.monotonic() - begin
            expect(done.returncode == 3 and took < 25, "silent", took,
                   done.stdout)


def key_of(bmc):
    shown = run([TOOL, "trust", "--bmc", bmc.address]).stdout
    return shown.split("has the key ")[1].split()[0]


def check_identity():
    """Pins, certificates and known hosts, against a BMC and another one."""
    with machine("real") as real, machine("false") as false:
        pins = {bmc: key_of(bmc) for bmc in (real, false)}
        expect(pins[real] != pins[false], "two keys", pins)
        for bmc in (real, false):
            port = int(bmc.address.rsplit(":", 1)[1])
            (HOME / f"{port}.pem").write_text(
                ssl.get_server_certificate(("127.0.0.1", port)))
        known = HOME / "known"
        stored = run([TOOL, "trust", "--bmc", real.address, "--known-hosts",
                      known, "--yes"])
        expect(stored.returncode == 0 and pins[real] in known.read_text(),
               "trust", stored.stdout)
        port = {bmc: bmc.address.rsplit(":", 1)[1] for bmc in (real, false)}
        (HOME / "der").write_bytes(b"\x30\x82\x01\x0a")
        for name, options, code in (
                ("pin", f"--pin {pins[real]}", 0),
                ("wrong_pin", f"--pin {pins[false]}", 3),
                ("ca", f"--cacert {HOME}/{port[real]}.pem", 0),
                ("wrong_ca", f"--cacert {HOME}/{port[false]}.pem", 3),
                ("not_pem", f"--cacert {HOME}/der", 2),
                ("known", f"--known-hosts {known}", 0)):
            # After the first update, the versions are current.
            done = run(command(name, real.address,
                               f"{options} --expect BIOS=2.5.0"))
            text = {0: "", 2: "PEM", 3: "is not the expected one"}[code]
            expect(done.returncode == code and text in done.stdout, name,
                   done.stdout)
        done = run(command("unknown", false.address, f"--known-hosts {known}"))
        expect(done.returncode == 2 and "does not contain its key" in
               done.stdout, "unknown host", done.stdout)
        known.write_text(f"{real.address} {pins[false]}\n")
        changed = run([TOOL, "trust", "--bmc", real.address, "--known-hosts",
                       known, "--yes"])
        expect(changed.returncode == 1 and "has changed" in changed.stdout and
               pins[real] not in known.read_text(), "changed", changed.stdout)
        warned = run(command("warned", real.address, ""))
        expect("is not checked" in warned.stdout, "warning", warned.stdout)
    expect(real.images() == 4 and false.images() == 0, "images", real.account)


def lead_away():
    """Redirects and absolute links to another computer, under a pin."""
    with machine("other") as other, \
            socket.create_server(("127.0.0.1", 0)) as plain:
        plain.settimeout(0)
        targets = {"to_https": f"https://{other.address}/redfish/v1/Tasks/1",
                   "to_http": f"http://127.0.0.1:{plain.getsockname()[1]}/x"}
        for name, target in targets.items():
            for kind, code, fault in (
                    # No request for the inventory gets a response.
                    ("redirect", 3, {"phase": "inventory", "status": 302}),
                    # No task shows the update.
                    ("link", 4, {"phase": "upload", "status": 202, "body": ""})):
                run_name = f"{name}_{kind}"
                with machine(run_name, {"faults": [
                        {**fault, "headers": {"Location": target}}]}) as bmc:
                    done = run(command(run_name, bmc.address,
                                       f"--pin {key_of(bmc)}"))
                expect(done.returncode == code, run_name, done.stdout)
        try:
            plain.accept()
            expect(False, "a request without TLS arrived")
        except BlockingIOError:
            pass
    expect("GET" not in other.account, "the other computer", other.account)


def change_key(name, scenario, changes, sign, code, text):
    """A BMC that makes a new certificate when it restarts."""
    with machine(name, scenario) as bmc:
        port = int(bmc.address.rsplit(":", 1)[1])
        update = subprocess.Popen(
            command(name, bmc.address, f"--pin {key_of(bmc)}", changes),
            stdout=subprocess.PIPE, text=True)
        reaches(name, sign)
    with machine(name + "_restarted", scenario, port) as bmc:
        printed = update.communicate(timeout=100)[0]
    expect(update.returncode == code and text in printed, name, printed)
    expect("GET" not in bmc.account, name, bmc.account)


signal.signal(signal.SIGHUP, signal.SIG_DFL)  # the caller may ignore it
(HOME / "fw").write_text("x" * 5000)
(HOME / "pw").write_text("password\n")
(HOME / "pw").chmod(0o600)
TASKS = [(lose_terminals,), (ignore_hangup,),
         (run_twice,), (fill_disk,), (remove_leftovers,), (be_silent,),
         (check_identity,), (lead_away,),
         (change_key, "key_in_task", STALLS, {}, "State: Running", 4,
          "does not match pinned public key"),
         (change_key, "key_in_retry",
          {"faults": [{"phase": "upload", "first": 1, "status": 503}]},
          {"retry_config/sleep_time": 4}, "Retrying in", 1, "not sent (")]
with concurrent.futures.ThreadPoolExecutor(max_workers=8) as pool:
    futures = [pool.submit(*task) for task in TASKS]
finish(futures, faults)
