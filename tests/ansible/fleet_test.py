#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""What decides about hosts in a rolling update, without Ansible's engine.

Usage: fleet_test.py COLLECTIONS_DIRECTORY
"""
import fcntl
import hashlib
import importlib
import itertools
import json
import os
import pathlib
import sys
import tempfile
import unittest

os.environ["ANSIBLE_COLLECTIONS_PATH"] = sys.argv[1]
from ansible.errors import AnsibleLookupError  # noqa: E402
from ansible.plugins.loader import lookup_loader  # noqa: E402

fleet = importlib.import_module(
    "ansible_collections.quorvane.firmware.plugins.filter.fleet")

numbers = itertools.count(1)
NOTHING_SENT = [{"kind": "run_title"}, {"kind": "phase_begins",
                                        "phase": "Inventory"}]
SENT = NOTHING_SENT + [{"kind": "phase_begins", "phase": "Upload"}]
FETCHED = [{"kind": "phase_begins", "phase": "SimpleUpdate"}]


class RunState(unittest.TestCase):

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.run_dir = pathlib.Path(directory.name)
        for name in ("logs", "results", "events"):
            (self.run_dir / name).mkdir()

    def look_up(self, host="a", **options):
        plugin = lookup_loader.get("quorvane.firmware.run_state")
        return plugin.run([host], {}, run_dir=str(self.run_dir), **options)[0]

    def write(self, name, text):
        file = self.run_dir / name
        file.unlink(missing_ok=True)
        if text is not None:
            file.write_text(text)

    def test_states(self):
        # Is there a log, the verdict in the result, the events; the state.
        rows = [
            (False, None, None, "fresh"),
            (True, "updated", SENT, "verified"),
            (True, "current", NOTHING_SENT, "verified"),
            (True, "staged", SENT, "verified"),
            (True, "done", SENT, "verified"),
            (True, "failed", SENT, "fresh"),
            (True, "mismatch", SENT, "interrupted"),
            (True, "unreachable", NOTHING_SENT, "fresh"),
            (True, "login_refused", NOTHING_SENT, "fresh"),
            # A watch has no record.
            (True, "unreachable", SENT, "interrupted"),
            (True, "login_refused", SENT, "interrupted"),
            (True, "unknown", SENT, "interrupted"),
            (True, "unchanged", SENT, "interrupted"),
            (True, "interrupted", SENT, "interrupted"),
            (True, "interrupted", NOTHING_SENT, "fresh"),
            # The process was killed.
            (True, None, SENT, "interrupted"),
            (True, None, FETCHED, "interrupted"),
            (True, None, NOTHING_SENT, "fresh"),
            # What was sent is not known.
            (True, None, None, "interrupted"),
            (True, None, [], "interrupted"),
        ]
        for has_log, verdict, events, state in rows:
            with self.subTest(verdict=verdict, events=events):
                self.write("logs/a.log", "x" if has_log else None)
                self.write("results/a.json",
                           verdict and json.dumps({"verdict": verdict}))
                self.write("events/a.jsonl", None if events is None else
                           "".join(json.dumps(e) + "\n" for e in events))
                found = self.look_up()
                self.assertEqual((found["state"], found["is_repeated"]),
                                 (state, has_log))
        self.write("results/a.json",
                   '{"verdict": "unreachable", "record": {"accepted": false}}')
        self.write("events/a.jsonl", json.dumps(SENT[-1]))
        self.assertEqual(self.look_up()["state"], "fresh")
        self.write("results/a.json", '{"verdict": "upd')  # cut off
        self.write("events/a.jsonl", json.dumps(SENT[-1]) + '\n{"ki')
        self.assertEqual(self.look_up()["state"], "interrupted")

    def test_a_process_writes_the_log(self):
        self.write("results/a.json", '{"verdict": "updated"}')
        with open(self.run_dir / "logs/a.log", "w") as log:
            fcntl.flock(log, fcntl.LOCK_EX)
            self.assertEqual(self.look_up()["state"], "running")
        self.assertEqual(self.look_up()["state"], "verified")

    def test_another_update_in_the_same_directory(self):
        image = self.run_dir / "image.bin"
        image.write_bytes(b"new")
        request = {"image": str(image), "expect": {"BIOS": "2"}}
        found = self.look_up(request=request)
        self.assertEqual(found["differs"], [])
        self.assertEqual(found["request"], {
            **request, "image": hashlib.sha256(b"new").hexdigest()})
        self.write("run.json", json.dumps({"a": found["request"]}))
        found = self.look_up(request=request)
        self.assertEqual((found["differs"], found["is_repeated"]), ([], True))
        self.assertEqual(self.look_up("b", request=request)["differs"], [])
        image.write_bytes(b"other")
        self.assertEqual(
            self.look_up(request={**request, "expect": {}})["differs"],
            ["expect", "image"])

    def test_errors(self):
        for host, request in (("../a", {}), (".a", {}),
                              ("a", {"image": "/no/such"})):
            with self.assertRaises(AnsibleLookupError):
                self.look_up(host, request=request)


def host(state="fresh", is_repeated=False, plan=None, outcome=None, bmc=None,
         **more):
    bmc = bmc or f"192.0.2.{next(numbers)}"
    known = {"quorvane_state": {
        "state": state, "is_repeated": is_repeated, "differs": [],
        "request": {"bmc": bmc},
        "result": {"verdict": "updated"} if state == "verified" else None,
        **more}}
    if plan is not None:
        known["quorvane_preflight"] = plan
    if outcome is not None:
        known["quorvane_outcome"] = outcome
    return known


RUNNING = {"plan": {"findings": [{"code": "task_running"}]}}
FAILED = {"verdict": "failed", "failed": True, "msg": "No.", "next": "Do.",
          "log": "a.log"}
UPDATED = {"verdict": "updated", "failed": False}


class Decisions(unittest.TestCase):

    def test_blocked(self):
        hosts = {
            "good": host(plan={}),
            "skipped": host("interrupted", plan={"skipped": True}),
            "busy": host(plan=RUNNING),
            "busy_again": host(plan=RUNNING, is_repeated=True),
            "plan": host(plan={"failed": True, "msg": "Too large."}),
            "other": host("verified", differs=["image"]),
            "broken": {},
            "twin": host(bmc="BMC1"),
            "twin_again": host(bmc="bmc1"),
        }
        reasons = fleet.blocked(hosts, list(hosts))
        self.assertEqual(list(reasons), ["busy_again", "plan", "other",
                                         "broken", "twin_again"])
        self.assertEqual(reasons["plan"], "Too large.")
        self.assertIn("image changed", reasons["other"])

    def test_waves(self):
        hosts = {
            "current": host(plan={"verdict": "current"}),
            "failed": host(result=FAILED, plan={"verdict": None}),
            "blocked": host(plan={}),
            "interrupted": host("interrupted", True, plan={"skipped": True}),
            "unknown": host("interrupted", True, result={"verdict": "unknown"}),
            "fresh": host(plan={"verdict": None}),
        }
        self.assertEqual(fleet.waves(hosts, list(hosts), {"blocked": ""}),
                         ["failed", "interrupted", "unknown", "fresh",
                          "current"])
        hosts["verified"] = host("verified")
        self.assertEqual(fleet.waves(hosts, list(hosts), {"blocked": ""}),
                         ["interrupted", "fresh", "unknown", "failed",
                          "current"])

    def test_stop(self):
        hosts = {"a": host(outcome=UPDATED), "b": host(outcome=FAILED),
                 "c": host()}
        self.assertEqual(fleet.failures(hosts, list(hosts)), ["b", "c"])
        wave = list("abcdefghij")
        rows = [([], 1, True, 0, False), (["a"], 1, True, 100, True),
                ([], 10, False, 0, False), (["a"], 10, False, 10, False),
                (["a"], 10, False, "9.9", True), (["a"], 10, False, 0, True),
                (["a", "b"], 10, False, 10, True),
                (["a"], 1, False, "100", False)]
        for failed, size, is_canary, limit, stops in rows:
            reason = fleet.reason_to_stop(failed, wave[:size], is_canary, limit)
            self.assertEqual(bool(reason), stops, (failed, is_canary, limit))

    def test_summary(self):
        hosts = {"a": host(outcome=UPDATED), "b": host(outcome=FAILED),
                 "c": host(), "d": host("verified"), "e": {},
                 "i": host("interrupted"), "k": host("running"),
                 "j": host("interrupted", result={
                     "verdict": "unchanged", "headline": "As before.",
                     "next": "Look."}),
                 "f": host(outcome={"failed": True, "verdict": None,
                                    "msg": "No program."}),
                 "h": host(outcome={"verdict": None, "failed": False}),
                 "g": host(outcome={"verdict": "login_refused",
                                    "failed": True, "msg": "401."})}
        found = fleet.outcomes(hosts, list(hosts), {"e": "Off."})
        self.assertEqual(
            {name: one["verdict"] for name, one in found.items()},
            {"a": "updated", "b": "failed", "c": "not started", "d": "updated",
             "e": "blocked", "f": "error", "g": "login_refused",
             "h": "would be updated", "i": "interrupted", "j": "unchanged",
             "k": "running"})
        self.assertEqual(fleet.summary(found, "why"), [
            "11 hosts: 2 updated, 1 failed, 1 not started, 1 blocked, "
            "1 interrupted, 1 running, 1 unchanged, 1 error, 1 would be updated, "
            "1 login refused", "Stopped: why.", "b: No.", "    Next: Do.",
            "    Log: a.log", "e: Off.",
            "i: interrupted: The BMC may still work on the update. This run did "
            "not reach it.", "    Next: Run the playbook again.",
            "k: running: A process still updates the host. This run did not "
            "wait for it.", "    Next: Run the playbook again.",
            "j: unchanged: As before. This run did not reach it.",
            "    Next: Look.", "f: No program.", "g: 401.",
            "Not started: c"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
