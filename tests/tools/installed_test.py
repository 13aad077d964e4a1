#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Installs a build and uses the tool as a user would: an update against each
built-in scenario, every other command, and the error messages.

Usage: installed_test.py BUILD_FOLDER SOURCE_FOLDER
"""
import concurrent.futures
import contextlib
import fcntl
import json
import os
import pathlib
import pty
import re
import resource
import shlex
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import threading

from simulated import wait_for

BUILD, SOURCE = map(pathlib.Path, sys.argv[1:])
WORK = tempfile.TemporaryDirectory(prefix="installed-")
HOME = pathlib.Path(WORK.name)
TOOL = HOME / "prefix/bin/quorvane"
FIRMWARE = "/redfish/v1/UpdateService/FirmwareInventory"
SOFTWARE = "/redfish/v1/UpdateService/SoftwareInventory"
BIOS, NIC = FIRMWARE + "/BIOS", FIRMWARE + "/NIC0"
SHARE = "--image nfs://192.0.2.9/fw.bin"
SANITIZED = "-fsanitize" in (BUILD / "CMakeCache.txt").read_text()
MODES = {"shared": 0o666, "kept": 0o640}
ODD_LOG = "[2024-05-01 13:00:00.000] [INFO   ] [tool] Run: \u202eOutcome: done.\n"
faults = []

# Scenario, options of the update, exit code, part of the output. Without an
# image, the options extend the command that the simulated BMC prints.
SCENARIOS = [
    ("clean", "", 0, "). The firmware was updated: BMC firmware 1.0.0 -> "),
    ("clean", f"--file fw --target {BIOS}", 0, "  Activation: HTTP 202"),
    ("clean", "--image http://192.0.2.9/fw", 0, "  SimpleUpdate: HTTP 202"),
    ("multipart-absent", "", 0, "  Binary upload: HTTP 202"),
    ("busy-then-fine", "", 0, "Waiting 1 s before retry (2 of 2)"),
    ("too-large", "--quiet --log-level error", 1,
     "/update returned HTTP 413, 3 times: The image has 5000 bytes"),
    ("staged-until-reboot", "", 4, "while the task was in the state Starting"),
    ("reboots-by-itself", "", 0, "Cause:   The task disappeared (HTTP 404) after 50 %"),
    ("./forging.json", "", 1, "Cause:   Binary upload at /redfish/v1/"),
    ("task-fails", "", 1, "Cause:   The image could not be applied"),
    ("task-stalls", "", 4, "may still run. No version has changed.\nCause:   Last"),
    ("no-new-version", "", 4, "Outcome: unchanged ("),
    ("late-new-version", "--verify-timeout 30", 0, "Outcome: updated ("),
    ("wrong-version", "--expect BIOS=2.5.0", 1, "System BIOS 2.4.1 -> 2.3.0"),
    ("half-way-back", "--verify-timeout 30", 0, "Outcome: updated ("),
    ("critical-completion", "", 1, "Cause:   The image was written, but its "),
    ("task-gone", "", 0, "Cause:   The task disappeared (HTTP 404) after 50 %"),
    ("lost-after-upload", "--verify-timeout 30", 0, "The image was sent, at least in part, but"),
    ("lost-upload", "", 4, "The image was sent, at least in part, but"),
    ("share-only", "--file fw", 1, "add the URI, or use --image."),
    ("share-only", SHARE, 1, "400, 3 times: The action requires the parameter Targets."),
    ("share-only", "--share-user me --share-password-file secret", 0,
     "Outcome: updated ("),
    ("simple-update-refused", "", 0, "  Download: https://"),
    ("simple-update-refused", "--image-file {link}", 0,
     "  Download: https://"),
    ("flaky-network", "", 4, "a reboot request got no response."),
    ("wrong-password", "", 3,
     "). The BMC refused the login (HTTP 401)."),
    ("wrong-password", "--password-file secret --file fw", 3,
     "). The BMC refused the login (HTTP 401)."),
    ("huge-inventory", "--verify-timeout 200", 0, "  Inventory: 1003 items"),
]

# Command, exit code, part of the output; {to} is a machine and its account.
COMMANDS = [
    ("inventory {to} --password-file pw", 0, "System BIOS      2.4.1"),
    ("inventory {to} --password-file pw", 0, f"-       {BIOS}\n"),
    ("inventory {to} --password-file pw --json", 0, '"BMC firmware"'),
    ("inventory {to} --password-file pw --uris", 0, f"{BIOS}\n{NIC}\n"),
    ("inventory {to} --password-file pw --uris --json", 2, "--json excludes"),
    ("inventory {to} --password-file pw --rules gaps.json", 4,
     "2 of 3 members could not be read, so they are missing from the inventory:"
     f"\n  {SOFTWARE}/B: HTTP 404\n  {SOFTWARE}/C: the response is not JSON\n"),
    ("inventory {to} --password-file pw --rules list.json", 4,
     "the response is an empty collection, or none at all"),
    ("inventory {to} --password-file pw --rules absent.json", 1, "The library "
     "reported:\n  URI failed: /absent (HTTP 404), trying next URI\n  Coll"),
    ("chassis {to} --password-file pw --json", 0, r'"Contoso\u009b\u007f"'),
    ("report c1.log --json", 0, r"\u202eOutcome"),
    ("inventory {to} --password-stdin", 3, "refused the login of admin"),
    ("inventory {to} --password-file none", 2, "the password file none"),
    ("inventory {to} --password-file pw --log no/log", 2, "Cannot write the"),
    ("inventory {to} --password-file pw --log-level x", 2, "debug, info, warn"),
    ("inventory {to} --password-file pw --log link", 2, "a symbolic link"),
    ("inventory {to} --password-file pw --log fifo", 2, "not a regular file"),
    ("inventory {to} --password-file pw --log shared", 2, "chmod go-w shared"),
    ("inventory {to} --password-file pw --log /dev/null", 0, "System BIOS"),
    ("inventory {to} --password-file pw --output kept", 0, ""),
    ("inventory {to} --output link", 2, "Cannot write link: it is a symbolic"),
    ("inventory {to} --output fifo", 2, "not a regular file"),
    ("inventory {to} --output open/new", 2, "in the directory open. Use another"),
    ("inventory {to} --password-file pw --output /dev/null", 0, ""),
    ("update {to} --password-file pw --file fw --result link", 2, "symbolic"),
    ("report c1.log --html link", 2, "symbolic"),
    ("report c1.log --html /dev/stdout", 0, "</html>"),
    ("inventory {to} --password-file latin1", 3, "refused the login of admin"),
    ("inventory {to} --password-file nul", 2, "a NUL byte"),
    ("inventory {to} --password-file mark", 2, "byte order mark"),
    ("inventory {to} --password-file blank", 3, "ends with a space, which"),
    ("inventory {to} --password-file dos", 0, "System BIOS"),
    ("inventory {to} --password-file fifo", 2, "not a regular file"),
    ("inventory {to} --password-file shared", 2, "chmod go-w shared"),
    ("inventory {to} --password s3cret", 2, "--password-file FILE"),
    ("inventory {to} --pasword-file=s3cret", 2, "did you mean \"--password-file\"?"),
    ("inventory {to} s3cret", 2, "`quorvane inventory --help`"),
    ("inventory {to}", 2, "--password-stdin"),
    ("inventory {to} --password-file pw --rules bad.json", 2,
     'bad.json:1:20: error: "authentication" must be of type object'),
    ("inventory {to} --rules bad.json --force", 2,
     'must be a JSON object. For details, run `quorvane rules check bad.json`'),
    ("inventory {to} --rules small.json", 2,
     "it has errors, and nothing was sent. Correct them"),
    ("chassis {to} --rules small.json --force --password-file pw", 0, "small.json:1:"),
    ("update {to} --file fw --rules small.json", 2, "error: No rule for 200."),
    ("chassis {to} --rules warned.json --password-file pw", 0, "Manufacturer  "),
    ("inventory {to} --rules fifo", 2, "not a regular file"),
    ("inventory {to} --password-file pw --rules none", 2, "Check its name and mode"),
    ("inventory {to} --rules away.json", 2, '"@h/steal" does not begin with'),
    ("inventory {to} --rules away.json --force --password-file pw", 0, "BIOS"),
    ("inventory {to} --rules shared", 2, "chmod go-w shared"),
    ("inventory {to} --rules open/rules.json", 2, "files in the directory /"),
    ("inventory --bmc https://h --user a", 2, "give only the address"),
    ("inventory --bmc a:s3cret@h --user a", 2, "give only the address"),
    ("inventory --bmc h --user a:s3cret", 2, "without a colon"),
    ("inventory --bmc ::1 --user a", 2, "brackets around an IPv6 address"),
    ("inventory --bmc [::1 --user a", 2, "brackets around an IPv6 address"),
    ("inventory --bmc :443 --user a", 2, "give only the address"),
    ("inventory --bmc h:s3cret --user a", 2, "a number from 1 to 65535"),
    ("inventory --bmc h:65536 --user a", 2, "a number from 1 to 65535"),
    ("inventory --bmc [::1]:0 --user a", 2, "a number from 1 to 65535"),
    ("inventory --bmc [::1]443 --user a", 2, "a number from 1 to 65535"),
    ("inventory --bmc [::1]:1 --user a --password-file pw", 3, "powered on"),
    ("inventory {to} --rules ''", 2, "--rules: the value is empty."),
    ("inventory {to} --log= --json", 2, "--log: the value is empty."),
    ("update {to} --file ''", 2, "--file: the value is empty."),
    ("update {to} --result ''", 2, "--result: the value is empty."),
    ("update {to} --target ''", 2, "--target: the value is empty."),
    ("report ''", 2, "LOG: the value is empty."),
    ("simulate --address-file ''", 2, "--address-file: the value is empty."),
    ("inventory --bmc 127.0.0.1:1 --user a --password-file pw --rules "
     "rules.json", 3, "Check the address"),
    ("chassis {to} --password-file pw", 0, "Manufacturer  "),
    ("update {to} --file fw --expect BIOS", 2, "use NAME=VERSION"),
    ("update {to} --file fw --skip-if-current", 2, "--expect"),
    ("update {to} --file fw --no-verify --verify-timeout 5", 2, "excludes"),
    ("update {to} --password-file pw", 2, "Nothing to install. Use --file FILE"),
    ("update {to} --password-file pw --file empty", 2, "the file is empty"),
    ("update {to} --image http://u:s3cret@h/f", 2, "--share-password-file"),
    ("update {to} --image http://h/f?sig=s3cret", 2, "--image-file FILE"),
    ("update {to} --file http://h/f?sig=s3cret", 2, "sig=<REDACTED>"),
    ("update {to} --image-file secret", 2, "first line of secret (--image-file)"),
    ("update {to} --file none", 2, "package none: No such file or directory."),
    ("update {to} --file fifo", 2, "Cannot read the package fifo: it is a FIFO."),
    ("update {to} --file /dev/zero", 2, "it is a device. Use a regular file."),
    ("update {to} --file .", 2, "it is a directory"),
    ("update {to} --file fw --log ./fw", 2,
     "Cannot use fw for --file: --log would write to the same file. Use another"),
    ("update {to} --file fw --result hard", 2, "for --file: --result would"),
    ("update {to} --file fw --result new --log tmp/../new", 2,
     "Cannot use new for --result: --log would write"),
    ("update {to} --image-file secret --log secret", 2, "for --image-file: --log"),
    ("inventory {to} --password-file pw --output pw", 2, "for --password-file"),
    ("inventory {to} --output rules.json --rules rules.json", 2, "for --rules:"),
    ("inventory {to} --log {rules}", 2, "for the installed rules file: --log"),
    ("chassis {to} --password-file pw --log pw", 2, "for --password-file: --log"),
    ("inventory {to} --password-file pw --log /dev/null --output /dev/null", 0,
     ""),
    ("update {to} --image fw", 2, "for a local file, use --file"),
    ("report pw", 2, "it is not a Quorvane log"),
    ("report open", 2, "Cannot report on open: no run was found."),
    ("report fifo", 2, "it is a FIFO"),
    ("report /dev/zero", 2, "it is a device"),
    ("report /dev/stdin", 2, "it is not a Quorvane log"),
    ("report c1.log --html c1.log", 2, "for LOG: --html would write"),
    ("simulate --scenario odd.json --address-file odd.json", 2, "for --scenario"),
    ("simulate --fleet 2 --scenarios odd.json --inventory-file odd.json", 2,
     "for --scenarios"),
    ("simulate --scenarios odd.json", 2, "--scenarios requires --fleet"),
    ("simulate --fleet 2 --port 8443", 2, "excludes"),
    ("rules check bad.json", 1, "bad.json:1:20: error: "),
    ("rules check .", 2, "Cannot read the rules file .: it is a directory."),
    ("rules check fifo", 2, "it is a FIFO"),
    ("rules check small.json", 1, "error: No rule for 200."),
    ("rules check warned.json", 0, "warned.json:1:2: warning: "),
    ("rules check warned.json --strict", 1, "warned.json:1:2: warning: "),
    ("rules check rules.json --strict", 0, "no problems found"),
    ("rules check /dev/stdin", 1, "/dev/stdin:1:2: error: Not valid JSON"),
    ("rules explain /dev/stdin", 2, "JSON parse error in \"/dev/stdin\""),
    ("rules explain rules.json", 0, "Up to 7 polls, with a wait of 1 s before"),
    ("simulate --scenario nonsense", 2, "Built-in scenarios: busy-then-fine, "),
    ("nonsense", 2, 'Unknown command "nonsense".'),
    ("udpate", 2, 'did you mean "update"?'),
    ("--version", 0, "quorvane "),
]


def expect(holds, what, *more):
    if not holds:
        faults.append("\n".join(map(str, (what, *more))))


def run(arguments, **more):
    return subprocess.run(
        [TOOL, *arguments], cwd=HOME, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, text=True, **{"input": "no\n", **more})


class Machine:
    """`quorvane simulate` for the time of a with."""

    def __init__(self, scenario, name):
        self.address = HOME / f"{name}.address"
        self.output = HOME / f"{name}.output"
        with self.output.open("w") as output:
            self.process = subprocess.Popen(
                [TOOL, "simulate", "--scenario", scenario, "--address-file",
                 self.address], cwd=HOME, stdout=output)

    def __enter__(self):
        wait_for(lambda: "\nPress " in self.output.read_text())
        return self.address.read_text().strip()

    def update(self):
        """The arguments of the command that it prints."""
        command = re.search(r"^  quorvane (update(?:.*\\\n)*.*)",
                            self.output.read_text(), re.M)[1]
        command = command.replace("\\\n", "")
        for word, file in (("PASSWORD_FILE", "pw"), ("IMAGE", "fw"),
                           ("RULES_FILE", "rules.json")):
            command = command.replace(word, file)
        return shlex.split(command)

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGINT)
        expect(self.process.wait(20) == 0, "simulate ends in order")
        expect(not self.address.exists(), "the address file is removed")


# The library downloads into /tmp, and rejects a name that is in use.
downloads = threading.Lock()


def meet(number, scenario, options, code, output):
    log, result = HOME / f"{number}.log", HOME / f"{number}.json"
    machine = Machine(scenario, number)
    with machine as bmc, (downloads if "refused" in scenario
                          else contextlib.nullcontext()):
        # A signed link, as a file since it is a secret.
        link = HOME / f"{number}.link"
        link.write_text(f"https://{bmc}/images/firmware.bin?sig=s3cret\n")
        link.chmod(0o600)
        account = "" if "--password-file" in options.split() else \
            "--password-file pw"
        command = f"update --bmc {bmc} --user admin --rules rules.json {account}"
        command = command.split() if "--file" in options or "--image" in options \
            else machine.update()
        if "verify" not in options:
            command += ["--verify-timeout", "5"]
        done = run([*command, "--log", log, "--result", result,
                    *options.format(link=link).split()])
    name = f"{scenario} {options}: exit {done.returncode}, printed:"
    written = log.read_text()
    expect(done.returncode == code and output in done.stdout, name, done.stdout)
    expect("s3cret" not in done.stdout + written, name, "a password is printed")
    record = json.loads(result.read_text())["record"]
    accepted = record is not None and record["accepted"]
    expect(accepted == (scenario in ("task-fails", "critical-completion",
                                     "wrong-version") or
                        code in (0, 4) and not scenario.startswith("lost-")),
           name, "accepted", record)
    report = json.loads(run(["report", log, "--json"]).stdout)
    if "error" in options:
        expect("[WARNING]" not in written and report["verdict"] == "failed",
               name, "the log of errors", report)
        return
    expect(f"Outcome: {report['verdict'].replace('_', ' ')} (" in done.stdout, name, report)
    expect({"run_title", "phase_begins", "finished"} <=
           {event["kind"] for event in report["events"]}, name, report)


def be_interrupted():
    log = HOME / "interrupted.log"
    with Machine("task-stalls", "interrupted") as bmc:
        update = subprocess.Popen(
            [TOOL, *f"update --bmc {bmc} --user admin --password-file pw --file "
             f"fw --rules patient.json --log {log}".split()], cwd=HOME,
            stdout=subprocess.PIPE, text=True)
        wait_for(lambda: log.exists() and "State: Running" in log.read_text())
        worker = pathlib.Path(
            f"/proc/{update.pid}/task/{update.pid}/children").read_text()
        limits = pathlib.Path(f"/proc/{worker.strip()}/limits").read_text()
        expect(SANITIZED or " 2147483648 " in limits, "no limit", limits)
        update.send_signal(signal.SIGINT)
        printed = update.communicate()[0]
    expect(update.returncode == 130 and "may still run its task /redfish/v1/"
           in printed, "interrupted", update.returncode, printed)
    expect("Outcome: interrupted (" in run(["report", log]).stdout, "its report")


def run_out_of_memory():
    """A response that needs more than a call may use is an error of its own."""
    with Machine("./hungry.json", "hungry") as bmc:
        done = run(f"inventory --bmc {bmc} --user admin --password-file pw "
                   "--rules rules.json".split(), preexec_fn=lambda:
                   resource.setrlimit(resource.RLIMIT_AS, (1 << 29, 1 << 29)))
    expect(SANITIZED or done.returncode == 1 and
           "needs more memory than" in done.stdout, "hungry", done.stdout)


def on_terminal(command, columns=80, typed=None, **environment):
    """The exit code and the output, which includes cursor movement."""
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(HOME)
        os.execve(TOOL, ["quorvane", *command.split()], {
            "TERM": "xterm", "TMPDIR": os.environ["TMPDIR"], **environment})
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("4H", 25, columns, 0, 0))
    shown = ""
    try:
        while more := os.read(terminal, 65536):
            shown += more.decode()
            if typed and "Password for admin on " in shown:
                os.write(terminal, typed)
                typed = None
    except OSError:  # EIO: the other side is closed
        pass
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), shown


def use_a_terminal():
    """The password is asked for, what is typed not shown, and the block drawn."""
    with Machine("clean", "terminal") as bmc:
        to = f"--bmc {bmc} --user admin --insecure"
        code, shown = on_terminal(f"update {to} --file fw --rules rules.json",
                                  typed=b"password\n")
        for words in ("\x1b[J", "poll 1 of 7", " 100 %", "\x1b[32mOutcome: updated ("):
            expect(words in shown and code == 0, words, code, shown)
        expect("password" not in shown, "the password is shown", shown)
        for columns in (80, 200):
            code, shown = on_terminal(
                f"inventory {to} --password-file pw", columns)
            expect(code == 0 and "BIOS  -" in shown and
                   (BIOS in shown) == (columns == 200), columns, code, shown)
    update = ("update --bmc 127.0.0.1:1 --user admin --password-file pw --file fw "
              "--rules once.json --log /dev/null ")
    block, yellow, red = "\x1b[J", "\x1b[33m", "\x1b[31mOutcome: unreachable"
    for options, environment, absent in (
            ("", {}, []), ("", {"NO_COLOR": "1"}, [yellow, red]),
            ("--plain", {}, [block, yellow])):
        code, shown = on_terminal(update + options, **environment)
        for part in (block, yellow, red):
            expect((part in shown) == (part not in absent) and code == 3 and
                   "Outcome: unreachable" in shown, options, environment, shown)


def try_commands():
    installed = next((HOME / "prefix").rglob("brindle.config.json"))
    unchanged = {path: path.read_bytes() for path in (
        installed, *(HOME / name for name in
                     ("fw", "pw", "secret", "rules.json", "c1.log", "odd.json")))}
    with Machine("odd.json", "commands") as bmc:
        for command, code, output in COMMANDS:
            done = run(shlex.split(command.format(
                to=f"--bmc {bmc} --user admin", rules=installed)))
            expect(done.returncode == code and output in done.stdout and
                   "s3cret" not in done.stdout,
                   f"{command}: exit {done.returncode}", done.stdout)
    for command, output in (("check", "no problems found"),
                            ("explain", "Up to 7 polls")):
        done = run(["rules", command, "/dev/stdin"],
                   input=(HOME / "rules.json").read_text())
        expect(done.returncode == 0 and output in done.stdout,
               f"rules {command} of a pipe", done.stdout)
    for arguments, code in ((["--help"], 0), (["--port", "x"], 2),
                            (["--scenario", "nonsense"], 2),
                            (["--address-file", ""], 2)):
        for program in ([TOOL, "simulate"], [TOOL.with_name(
                "quorvane-bmc-simulator")]):
            done = subprocess.run([*program, *arguments], cwd=HOME, check=False,
                                  capture_output=True, timeout=20)
            expect(done.returncode == code, program, arguments, done)
    for name in ("target", "shared"):
        expect((HOME / name).read_text() == name, f"{name} was written to")
    for path, content in unchanged.items():
        expect(path.read_bytes() == content, f"{path} was written to")
    kept = HOME / "kept"
    expect("BIOS" in kept.read_text() and kept.stat().st_mode & 0o777 == 0o640,
           "the document keeps its mode", kept.read_text(), kept.stat())
    expect(not list(HOME.glob("kept.*")), "a draft is left behind")
    unsafe = run("chassis --bmc h --user a --password-file pw --rules "
                 "rules.json".split(), env={**os.environ, "TMPDIR": "open"})
    expect(unsafe.returncode == 2 and "for temporary files" in unsafe.stdout,
           "unsafe TMPDIR", unsafe.stdout)
    for words, expected in (("simulate --scenario st", "staged-until-reboot"),
                            ("inven", "inventory"), ("report --js", "--json"),
                            ("report --sc", ""), ("rules check sma", "small.json"),
                            ("update --log-level w", "warning")):
        completed = subprocess.run(
            ["bash", "-c", 'source "$1"; shift; COMP_WORDS=(quorvane "$@"); '
             'COMP_CWORD=$#; _quorvane; echo "${COMPREPLY[*]}"', "bash",
             HOME / "prefix/share/bash-completion/completions/quorvane",
             *words.split()], cwd=HOME, capture_output=True, text=True).stdout
        expect(completed == expected + "\n", f"completion of {words}", completed)


def find_manual():
    """The manual that the help names is installed."""
    named = re.search(r"^See (\S+)(?: in the installation)? for details",
                      run(["--help"]).stdout, re.M)[1]
    path = re.sub(r"^(.*)\((\d)\)$", r"share/man/man\2/\1.\2", named)
    expect((HOME / "prefix" / path).exists(), "no manual", path)


def prepare():
    subprocess.run(["cmake", "--install", BUILD, "--prefix", HOME / "prefix"],
                   check=True, stdout=subprocess.DEVNULL)
    rules = json.loads((SOURCE / "scripts/demo.rules.json").read_text())
    update = rules["firmware_update"]
    update["multipart_update"]["upload_uri"] = [
        f"/redfish/v1/UpdateService/{name}"
        for name in ("update-multipart", "update")]
    for section, uri in (("activation", "activation_uri"),
                         ("reboot", "reboot_uri")):
        del update[section][uri][1:]
    for name, seconds in (("patient", 1000), ("rules", 7)):
        update["task_monitoring"]["max_polling_time_seconds"] = seconds
        (HOME / f"{name}.json").write_text(json.dumps(rules))
    for name, uri in (("gaps", SOFTWARE), ("absent", "/absent"),
                      ("list", "/redfish/v1/UpdateService")):
        other = json.loads(json.dumps(rules))
        other["firmware_update"]["inventory_uri"] = [uri]
        (HOME / f"{name}.json").write_text(json.dumps(other))
    once = json.loads(json.dumps(rules))
    once["retry_config"]["max_retries"] = 1
    (HOME / "once.json").write_text(json.dumps(once))
    update["multipart_update"]["upload_rules"] = {"202": "track_task"}
    warned = {"Target": {}, **json.loads((HOME / "rules.json").read_text())}
    away = json.loads(json.dumps(rules))
    away["firmware_update"]["multipart_update"]["upload_uri"] = ["@h/steal"]
    machine = {"description": "Odd text.", "chassis":
               [{"id": "1", "manufacturer": "Contoso\x9b\x7f"}],
               "software": {"members": [{"id": name} for name in "ABC"]},
               "faults": [{"path": SOFTWARE + "/B", "status": 404},
                          {"path": SOFTWARE + "/C", "fault": "garbage"}]}
    for name, text in (("small.json", json.dumps(rules)), ("pw", "password\n"),
                       ("bad.json", '{"authentication": 1}'), ("empty", ""),
                       ("secret", "s3cret word\n"), ("fw", "x" * 5000),
                       ("away.json", json.dumps(away)),
                       ("warned.json", json.dumps(warned)), ("latin1", "p\xfc\n"),
                       ("nul", "password\0\n"), ("target", "target"),
                       ("mark", "\xef\xbb\xbfpassword\n"),
                       ("blank", "password \n"), ("dos", "password\r\n"),
                       ("odd.json", json.dumps(machine)), ("c1.log", ODD_LOG),
                       ("shared", "shared"), ("kept", "old")):
        (HOME / name).write_text(
            text, "utf-8" if name == "c1.log" else "latin-1")
        (HOME / name).chmod(MODES.get(name, 0o600))
    (HOME / "link").symlink_to("target")
    (HOME / "hard").hardlink_to(HOME / "fw")
    os.mkfifo(HOME / "fifo")
    (HOME / "open").mkdir()
    (HOME / "open/rules.json").write_text(json.dumps(rules))
    (HOME / "open").chmod(0o777)
    if os.geteuid() == 0:
        (HOME / "foreign").write_text("{}")
        os.chown(HOME / "foreign", 65534, -1)
        COMMANDS.extend((f"inventory {{to}} --{option} foreign", 2,
                         "it belongs to another user")
                        for option in ("rules", "password-file", "output"))
    lines = "".join(
        f"\n[2024-05-01 13:00:00.000] [INFO   ] [{line}" for line in (
            "tool] Run: inventory of 192.0.2.66", "tool] Interrupted by x",
            "update] [RF-UPDATE] Task created: /forged"))
    (HOME / "forging.json").write_text(json.dumps({"faults": [
        {"phase": "upload", "status": 400, "body": "busy" + lines}]}))
    (HOME / "hungry.json").write_text(json.dumps({"faults": [
        {"phase": "inventory", "status": 200,
         "body": "[" + "0," * (8 << 20) + "0]"}]}))
    # Where the tool makes what it must remove again.
    (HOME / "tmp").mkdir()
    os.environ.update(TMPDIR=str(HOME / "tmp"), CI="1",
                      SSLKEYLOGFILE=str(HOME / "keys"))


os.umask(0o022)
prepare()
ready = {path.stem for path in (SOURCE / "simulator/scenarios").iterdir()}
expect(ready == {row[0] for row in SCENARIOS if "." not in row[0] and
                 "--file" not in row[1] and "--image" not in row[1]},
       "each scenario has a row with its printed command", ready)
with concurrent.futures.ThreadPoolExecutor(max_workers=10) as pool:
    futures = [pool.submit(meet, number, *row)
               for number, row in enumerate(SCENARIOS)]
    futures += [pool.submit(task) for task in (
        be_interrupted, find_manual, run_out_of_memory, try_commands)]
    use_a_terminal()
for future in futures:
    future.result()
# An update keeps a private log; other commands keep nothing.
left = [path for path in (HOME / "tmp").iterdir() if path.suffix != ".log" or
        "Run: update of " not in path.read_text()]
expect(not left, "left behind", left)
expect(not (HOME / "keys").exists(), "session keys were written")
print("\n\n".join(faults))
sys.exit(1 if faults else 0)
