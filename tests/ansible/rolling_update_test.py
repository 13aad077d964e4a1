#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the playbook of the collection against fleets of simulated BMCs, and
compares what it reports with what each BMC received.

Usage: rolling_update_test.py COLLECTIONS_DIRECTORY QUORVANE_PROGRAM SOURCE
"""
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

COLLECTIONS, TOOL = sys.argv[1:3]
SOURCE = pathlib.Path(sys.argv[3])
sys.path.insert(0, str(SOURCE / "tests/tools"))
from simulated import finish, wait_for, write_rules  # noqa: E402

PASSWORD = "password"
QUICK = {"task": {"steps": [{"state": "Running", "percent": 50},
                            {"state": "Completed", "percent": 100}]},
         "restart": {"requests": 2}}
BIOS = {"id": "BIOS", "name": "System BIOS", "version": "2.4.1",
        "updated_version": "2.5.0"}
SCENARIOS = {
    "good": QUICK,
    "current": {**QUICK, "firmware": {
        "members": [{**BIOS, "version": "2.5.0"}]}},
    "fails": {"task": {"steps": [{"state": "Exception", "percent": 50}]}},
    "disabled": {"service_enabled": False},
    # Long enough to be interrupted.
    "slow": {**QUICK, "task": {"steps": [
        {"state": "Running", "percent": 50, "seconds": 8},
        {"state": "Completed", "percent": 100}]}},
}
faults = []


def expect(name, what, actual, expected):
    if actual != expected:
        faults.append(f"{name}: {what}: {actual!r}, expected {expected!r}")


class Fleet:
    """Simulated BMCs, and the playbook."""

    def __init__(self, home, name, weights):
        self.home = home / name
        self.home.mkdir()
        for scenario, text in SCENARIOS.items():
            (self.home / f"{scenario}.json").write_text(json.dumps(
                {"description": scenario, **text}))
        write_rules(SOURCE, self.home / "rules.json",
                    {"firmware_update/task_monitoring/"
                     "max_polling_time_seconds": 60})
        (self.home / "image.bin").write_text("x" * 5000)
        (self.home / "weights").write_text(json.dumps(
            {f"{key}.json": weight for key, weight in weights.items()}))
        (self.home / "vars.json").write_text(json.dumps({
            "quorvane_password": PASSWORD, "quorvane_image": "image.bin",
            "quorvane_rules": "rules.json", "quorvane_insecure": True,
            "quorvane_executable": TOOL, "quorvane_expect": {"BIOS": "2.5.0"},
            "quorvane_run_dir": "run", "quorvane_serial": [1, 3]}))
        self.simulator = subprocess.Popen(
            [TOOL, "simulate", "--fleet", str(sum(weights.values())),
             "--scenarios", self.home / "weights", "--inventory-file",
             self.home / "hosts.yml", "--account-dir", self.home / "accounts"],
            stdout=subprocess.DEVNULL)

    def __enter__(self):
        wait_for((self.home / "hosts.yml").exists)
        hosts = (self.home / "hosts.yml").read_text()
        self.scenarios = {
            host: pathlib.Path(scenario).stem for host, scenario in re.findall(
                r'(bmc\d+):.*?simulated_scenario: "(.*?)"', hosts, re.S)}
        return self

    def __exit__(self, *_):
        self.simulator.send_signal(signal.SIGINT)
        self.simulator.wait(20)

    def trust(self):
        hosts = (self.home / "hosts.yml").read_text()
        for address in re.findall('quorvane_bmc: "(.*)"', hosts):
            subprocess.run(
                [TOOL, "trust", "--yes", "--bmc", address, "--known-hosts",
                 self.home / "known_hosts"], stdout=subprocess.DEVNULL,
                check=True)

    def start(self, name, *options, **variables):
        # Not a pipe: updates that go on without Ansible would keep it open.
        with (self.home / f"{name}.txt").open("w") as output:
            return subprocess.Popen(
                ["ansible-playbook", *options, "--forks", "8",
                 "-i", "hosts.yml", "-e", "@vars.json",
                 "-e", json.dumps(variables),
                 "quorvane.firmware.rolling_update"],
                cwd=self.home, start_new_session=True,
                stdin=subprocess.DEVNULL, stdout=output,
                stderr=subprocess.STDOUT, env={
                    **os.environ, "ANSIBLE_COLLECTIONS_PATH": COLLECTIONS,
                    "ANSIBLE_LOCAL_TEMP": str(self.home / "local"),
                    "ANSIBLE_REMOTE_TEMP": str(self.home / "remote")})

    def run(self, name, exit_code, *options, **variables):
        """What the playbook prints."""
        code = self.start(name, *options, **variables).wait(200)
        printed = (self.home / f"{name}.txt").read_text()
        if code != exit_code:
            faults.append(f"{name}: exit code {code}, expected {exit_code}:\n"
                          f"{printed}")
        expect(name, "the password is printed",
               f'"{PASSWORD}"' in printed, False)
        return printed

    def account(self, host):
        return (self.home / f"accounts/{host}.txt").read_text()

    def uploads(self):
        return {host: len(re.findall("image of 5000 bytes", self.account(host)))
                for host in self.scenarios}

    def changes(self):
        """The requests that can change something."""
        return [line for host in self.scenarios
                for line in self.account(host).splitlines()
                if re.match("(POST|PUT|PATCH|DELETE) ", line)]

    def versions(self):
        return {host: "BIOS is now 2.5.0" in self.account(host)
                for host in self.scenarios}

    def verdicts(self):
        return {file.stem: json.loads(file.read_text())["verdict"]
                for file in (self.home / "run/results").glob("*.json")}

    def times(self, host):
        """When the run of a host began and ended."""
        events = [json.loads(line) for line in
                  (self.home / f"run/events/{host}.jsonl").open()]
        return events[0]["time"], events[-1]["time"]


def each(hosts, value):
    return {host: value for host in hosts}


def check_waves(home):
    """Good hosts, one that fails, and one that needs no update."""
    with Fleet(home, "waves", {"good": 6, "fails": 1, "current": 1}) as fleet:
        of = {scenario: host for host, scenario in fleet.scenarios.items()}
        good = [h for h, one in fleet.scenarios.items() if one == "good"]
        printed = fleet.run("waves", 2, quorvane_max_fail_percentage=40)
        expect("waves", "uploads", fleet.uploads(), {
            **each(good, 1), of["fails"]: 1, of["current"]: 0})
        expect("waves", "verdicts", fleet.verdicts(), {
            **each(good, "updated"), of["fails"]: "failed",
            of["current"]: "current"})
        expect("waves", "versions", fleet.versions(), {
            **each(good, True), of["fails"]: False, of["current"]: False})
        for text in ("8 hosts: 6 updated, 1 failed, 1 current",
                     f"{of['fails']}: failed: "):
            expect("waves", text, text in printed, True)
        expect("waves", "page", (home / "waves/run/fleet.html").exists(), True)
        # The canary, three hosts, three hosts, the one that needs no update.
        order = [h for h in fleet.scenarios if h != of["current"]]
        waves = [order[:1], order[1:4], order[4:], [of["current"]]]
        for before, after in zip(waves, waves[1:]):
            ended = max(fleet.times(host)[1] for host in before)
            began = min(fleet.times(host)[0] for host in after)
            expect("waves", f"{after} after {before}", ended < began, True)
        # Verified hosts get no request.
        accounts = {h: fleet.account(h) for h in good}
        printed = fleet.run("again", 2)
        expect("again", "accounts", {h: fleet.account(h) for h in good},
               accounts)
        expect("again", "uploads", fleet.uploads()[of["fails"]], 2)
        # Another image in the same directory is no continuation.
        requests = fleet.changes()
        (fleet.home / "image.bin").write_text("y" * 5000)
        printed = fleet.run("other image", 2)
        expect("other image", "reason", "image changed" in printed, True)
        expect("other image", "changes", fleet.changes(), requests)


def check_stops(home):
    """A wave with too many failures, then a canary that fails."""
    with Fleet(home, "stops", {"fails": 3, "good": 3}) as fleet:
        # fails, good, fails, good, fails, good
        expect("stops", "order", fleet.scenarios["bmc001"], "fails")
        printed = fleet.run("canary", 2, quorvane_max_fail_percentage=100)
        expect("canary", "uploads", fleet.uploads(), {
            **each(fleet.scenarios, 0), "bmc001": 1})
        for text in ("6 hosts: 5 not started, 1 failed", "Stopped: ",
                     "Not started: bmc002, bmc003"):
            expect("canary", text, text in printed, True)
        # The others, from a good one on.
        printed = fleet.run("wave", 2, quorvane_hosts="bmcs:!bmc001",
                            quorvane_serial=[2], quorvane_run_dir="other")
        expect("wave", "uploads", fleet.uploads(), {
            **each(fleet.scenarios, 1), "bmc005": 0, "bmc006": 0})
        for text in ("(50 %", "Not started: bmc005, bmc006"):
            expect("wave", text, text in printed, True)


def check_blocked(home):
    with Fleet(home, "blocked", {"good": 2, "disabled": 1}) as fleet:
        fleet.trust()
        printed = fleet.run("blocked", 2, quorvane_insecure=False,
                            quorvane_known_hosts="known_hosts")
        expect("blocked", "changes", fleet.changes(), [])
        expect("blocked", "reason", "Nothing was changed" in printed, True)
        expect("blocked", "summary", "3 hosts: 2 not started, 1 blocked"
               in printed, True)
        printed = fleet.run("check", 2, "--check", "--diff",
                            quorvane_max_blocked=1)
        expect("check", "changes", fleet.changes(), [])
        expect("check", "logs", list((fleet.home / "run/logs").iterdir()), [])
        for text in ("3 hosts: 2 would be updated, 1 blocked",
                     "-System BIOS: 2.4.1\n+System BIOS: 2.5.0\n"):
            expect("check", text, text in printed, True)
        printed = fleet.run("no hosts", 2, quorvane_hosts="absent")
        expect("no hosts", "reason", "No host of the inventory" in printed,
               True)
        printed = fleet.run("one may be", 2, quorvane_max_blocked=1,
                            quorvane_insecure=False,
                            quorvane_known_hosts="known_hosts")
        expect("one may be", "uploads", sorted(fleet.uploads().values()),
               [0, 1, 1])
        expect("one may be", "summary",
               "3 hosts: 2 updated, 1 blocked" in printed, True)


def check_interruption(home, name, kill):
    """The playbook is killed while a wave is updated, and runs again."""
    with Fleet(home, name, {"good": 2, "slow": 3}) as fleet:
        process = fleet.start("killed", quorvane_expect={})
        wave = list(fleet.scenarios)[1:4]
        wait_for(lambda: process.poll() is not None
                 or all("task 1: Running" in fleet.account(host)
                        for host in wave if fleet.scenarios[host] == "slow"),
                 100)
        kill(process.pid)
        process.wait(20)
        expect(name, "uploads before", set(fleet.uploads().values()), {0, 1})
        fleet.run(name, 0, quorvane_expect={})
        expect(name, "uploads", fleet.uploads(), each(fleet.scenarios, 1))
        expect(name, "versions", fleet.versions(), each(fleet.scenarios, True))
        expect(name, "verdicts", fleet.verdicts(),
               each(fleet.scenarios, "updated"))


def check_two_playbooks(home):
    """Two playbooks with the same directory at the same time."""
    with Fleet(home, "two", {"good": 4}) as fleet:
        for playbook in [fleet.start(name, quorvane_expect={})
                         for name in ("one", "other")]:
            playbook.wait(200)
        expect("two", "uploads", fleet.uploads(), each(fleet.scenarios, 1))


def main():
    with tempfile.TemporaryDirectory() as directory, \
            ThreadPoolExecutor(2) as pool:
        home = pathlib.Path(directory)
        finish([
            pool.submit(check_waves, home),
            # Everything ends, as with a power cut.
            pool.submit(check_interruption, home, "power cut",
                        lambda pid: os.killpg(pid, signal.SIGKILL)),
            # The updates go on without Ansible.
            pool.submit(check_interruption, home, "lost playbook",
                        lambda pid: os.kill(pid, signal.SIGKILL)),
            pool.submit(check_stops, home),
            pool.submit(check_blocked, home),
            pool.submit(check_two_playbooks, home),
        ], faults)


main()
