#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The modules of the collection, with a stub in place of quorvane.

Usage: modules_test.py COLLECTIONS_DIRECTORY QUORVANE_PROGRAM
"""
import contextlib
import importlib
import io
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

COLLECTIONS, TOOL = sys.argv[1:3]
sys.path.insert(0, COLLECTIONS)
from ansible.module_utils import basic  # noqa: E402
from ansible.module_utils.common import warnings  # noqa: E402

PLUGINS = "ansible_collections.quorvane.firmware.plugins."
quorvane = importlib.import_module(PLUGINS + "module_utils.quorvane")
STUB = pathlib.Path(__file__).parent / "stub_tool.py"
PASSWORD = "p w=$HOME'ä"
ACCOUNT = {"bmc": "192.0.2.7", "user": "admin", "password": PASSWORD}
IMAGE = {**ACCOUNT, "file": "image.bin"}
BIOS = "/redfish/v1/UpdateService/FirmwareInventory/BIOS"
NIC = "/redfish/v1/UpdateService/FirmwareInventory/NIC"


def firmware(before, after):
    return [{"uri": BIOS, "name": "System BIOS", "before": before,
             "after": after, "targeted": False}]


def result(verdict, exit_code, members=(), cause=""):
    return {"output": json.dumps({
        "verdict": verdict, "exit_code": exit_code, "headline": "A headline.",
        "cause": cause, "next": "Do it.", "firmware": list(members),
        "record": None, "log": "/tmp/run.log", "duration_seconds": 1.5}),
        "errors": "", "exit_code": exit_code,
        **({"signal": 9} if exit_code == 128 + 9 else {})}


def plan(exit_code=0, findings=()):
    return {"output": json.dumps({
        "target": {}, "image": {}, "phases": [], "time": {},
        "findings": list(findings), "firmware": [
            {"uri": BIOS, "name": "System BIOS", "version": "1.0",
             "updateable": True},
            {"uri": NIC, "name": "Network", "version": "7",
             "updateable": False}]}),
        "errors": "", "exit_code": exit_code}


BLOCKER = {"severity": "blocker", "code": "image_too_large",
           "message": "Too large.", "action": "Use another."}
WARNING = {"severity": "warning", "code": "task_running",
           "message": "A task runs.", "action": "Wait."}
USAGE_ERROR = {"output": "", "exit_code": 2, "errors":
               "Other users can read it\nquorvane: Cannot start: busy. Wait.\n"}


class ModuleTest(unittest.TestCase):

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.home = pathlib.Path(directory.name)
        os.environ["STUB_DIR"] = directory.name

    def run_module(self, name, params, reply, check=False):
        """What the module returns; what the tool got is in self.call."""
        (self.home / "reply.json").write_text(json.dumps(reply))
        (self.home / "call.json").unlink(missing_ok=True)
        basic._ANSIBLE_ARGS = json.dumps({"ANSIBLE_MODULE_ARGS": {
            "executable": str(STUB), "_ansible_check_mode": check,
            "_ansible_tmpdir": str(self.home), **params}}).encode()
        module = importlib.import_module(PLUGINS + "modules." + name)
        warnings._global_warnings.clear()  # of the module before
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed), self.assertRaises(SystemExit):
            module.main()
        call = self.home / "call.json"
        self.call = json.loads(call.read_text()) if call.exists() else None
        return json.loads(printed.getvalue())

    def check_outcome(self, name, params, reply, expected):
        got = self.run_module(name, params, reply)
        got.setdefault("failed", False)
        self.assertEqual({key: got.get(key) for key in expected}, expected)
        return got


class Outcomes(ModuleTest):

    # Verdict, exit code, versions before and after; failed, changed.
    ROWS = [
        ("updated", 0, "1.0", "2.0", False, True),
        ("updated", 0, None, "2.0", False, True),
        ("updated", 5, "1.0", "2.0", False, True),
        ("current", 0, "2.0", "2.0", False, False),
        ("current", 0, "2.0", None, False, False),
        ("staged", 0, "1.0", "1.0", False, True),
        ("done", 0, "1.0", None, False, True),
        ("unchanged", 4, "1.0", "1.0", True, False),
        ("mismatch", 1, "1.0", "1.5", True, True),
        ("failed", 1, "1.0", "1.0", True, False),
        ("failed", 1, "1.0", "2.0", True, True),
        ("unknown", 4, "1.0", None, True, False),
        ("unreachable", 3, None, None, True, False),
        ("login_refused", 3, None, None, True, False),
        ("interrupted", 130, "1.0", None, True, False),
        ("a new verdict", 1, "1.0", None, True, False),
        # The process was killed after it printed its document.
        ("updated", 128 + 9, "1.0", "2.0", True, True),
    ]

    def test_each_verdict(self):
        watched = {**ACCOUNT, "log": "run.log"}
        for verdict, code, before, after, failed, changed in self.ROWS:
            for name, params in (("update", IMAGE), ("watch", watched)):
                with self.subTest(name=name, verdict=verdict, code=code):
                    members = firmware(before, after)
                    got = self.check_outcome(
                        name, params, result(verdict, code, members, "BMC: no."),
                        {"verdict": verdict, "exit_code": code,
                         "failed": failed, "changed": changed,
                         "firmware": members, "log": "/tmp/run.log",
                         "headline": "A headline.", "cause": "BMC: no.",
                         "next": "Do it.",
                         "msg": f"{verdict}: A headline. BMC: no."})
                    self.assertEqual(code == 5, "warnings" in got)

    def test_diff_shows_the_versions(self):
        got = self.run_module("update", IMAGE, result(
            "updated", 0, firmware("1.0", "2.0") + firmware("3", None)))
        self.assertEqual(got["diff"], {"before": "System BIOS: 1.0\n",
                                       "after": "System BIOS: 2.0\n"})

    def test_no_document(self):
        garbage = {"output": "{", "errors": "", "exit_code": 1, "signal": 11}
        rows = [(USAGE_ERROR, 2, "Cannot start: busy. Wait."),
                (garbage, 139, "quorvane exited with 139."),
                ({"output": "[]", "errors": "", "exit_code": 0}, 0,
                 "quorvane exited with 0.")]
        for reply, code, msg in rows:
            for name, params in (("update", IMAGE),
                                 ("watch", {**ACCOUNT, "log": "a"})):
                self.check_outcome(name, {**params, "log": "a"}, reply, {
                    "failed": True, "changed": False, "verdict": None,
                    "exit_code": code, "msg": msg, "log": "a",
                    "firmware": []})

    def test_reading_modules(self):
        item = {"id": BIOS, "Name": "BIOS", "Version": "1.0"}
        inventory = {"output": json.dumps({"inventory": [item]}),
                     "errors": "quorvane: One is missing.", "exit_code": 4}
        chassis = {"output": '{"Manufacturer": "A", "Model": "", "Name": "C"}',
                   "errors": "", "exit_code": 0}
        rows = [
            ("inventory", ACCOUNT, inventory,
             {"failed": True, "inventory": [item], "exit_code": 4,
              "msg": "One is missing."}),
            ("inventory", ACCOUNT, {**inventory, "exit_code": 0},
             {"failed": False, "changed": False, "inventory": [item]}),
            ("chassis", ACCOUNT, chassis,
             {"failed": False, "manufacturer": "A", "model": "", "name": "C"}),
            ("chassis", ACCOUNT, USAGE_ERROR, {"failed": True, "exit_code": 2}),
            ("plan", IMAGE, plan(0, [WARNING]),
             {"failed": False, "changed": False, "findings": [WARNING]}),
            ("plan", IMAGE, plan(1, [WARNING, BLOCKER]),
             {"failed": True, "exit_code": 1, "msg": "Too large. Use another.",
              "findings": [WARNING, BLOCKER]}),
            ("plan", IMAGE, {**USAGE_ERROR, "exit_code": 3},
             {"failed": True, "exit_code": 3,
              "msg": "Cannot start: busy. Wait."}),
        ]
        for name, params, reply, expected in rows:
            with self.subTest(name=name, expected=expected):
                self.check_outcome(name, params, reply, expected)


class CheckMode(ModuleTest):

    # Parameters, reply of the plan; failed, changed, versions after.
    ROWS = [
        ({}, plan(), False, True, "System BIOS: the version in the image\n"),
        ({"expect": {"BIOS": "2.0"}}, plan(), False, True,
         "System BIOS: 2.0\n"),
        ({"expect": {"System BIOS": "1.0"}}, plan(), False, False,
         "System BIOS: 1.0\n"),
        ({"expect": {"BIOS": "1.0", NIC: 7}}, plan(1, [BLOCKER]), False, False,
         "System BIOS: 1.0\nNetwork: 7\n"),
        ({"expect": {"BIOS": "1.0"}, "skip_if_current": False}, plan(),
         False, True, "System BIOS: 1.0\n"),
        ({"expect": {"BIOS": "1.0", "PSU": "1"}}, plan(), True, False,
         "System BIOS: 1.0\n"),
        ({"expect": {"PSU": "1"}, "force": True}, plan(), False, True, ""),
        ({"expect": {"BIOS": "1.0"}, "target": [NIC]}, plan(), False, True,
         "System BIOS: 1.0\nNetwork: the version in the image\n"),
        ({"target": [NIC]}, plan(1, [BLOCKER]), True, False,
         "Network: the version in the image\n"),
    ]

    def test_runs_the_plan(self):
        for params, reply, failed, changed, after in self.ROWS:
            with self.subTest(params=params):
                got = self.run_module(
                    "update", {**IMAGE, "log": "a", "result": "b",
                               "events": "c", "verify_timeout": 5,
                               "restart": "never", **params}, reply, check=True)
                self.assertEqual(
                    [one for one in self.call["arguments"]
                     if not one.startswith(("--target", "--force"))],
                    ["update", "--dry-run", "--json", "--bmc=192.0.2.7",
                     "--user=admin", "--password-stdin", "--file=image.bin",
                     "--restart=never", "--verify-timeout=5"])
                self.assertEqual(
                    (got.get("failed", False), got["changed"],
                     got["verdict"] == "current", got["diff"]["after"]),
                    (failed, changed, not failed and not changed, after))
                self.assertEqual("phases" in got["plan"], not failed)

    def test_watch_changes_nothing(self):
        params = {**ACCOUNT, "log": "a", "restart": True, "result": "b",
                  "events": "c"}
        for check in (False, True):
            self.run_module("watch", params, result("updated", 0), check)
            self.assertEqual(
                {"--restart", "--result=b", "--events=c"}
                & {*self.call["arguments"]},
                set() if check else {"--restart", "--result=b", "--events=c"})


class CommandLines(ModuleTest):

    def test_options_and_secrets(self):
        params = {**ACCOUNT, "image": "nfs://192.0.2.9/a", "share_user": "-me",
                  "share_password": PASSWORD, "target": [BIOS, NIC],
                  "expect": {"BIOS": "2.0", "N": 3}, "restart": "never",
                  "known_hosts": "/k", "verify_timeout": 5}
        got = self.run_module("update", params, result("updated", 0))
        call = self.call
        descriptor = [one for one in call["arguments"] if "/dev/fd/" in one]
        self.assertEqual(call["arguments"], [
            "update", "--json", "--quiet", "--bmc=192.0.2.7", "--user=admin",
            "--password-stdin", "--known-hosts=/k", "--image=nfs://192.0.2.9/a",
            "--share-user=-me", *descriptor, "--target=" + BIOS,
            "--target=" + NIC, "--restart=never", "--skip-if-current",
            "--expect=BIOS=2.0", "--expect=N=3", "--verify-timeout=5"])
        self.assertEqual(call["stdin"].encode("latin-1").decode(),
                         PASSWORD + "\n")
        self.assertEqual(call["inherited"], {"--share-password-file": {
            "text": PASSWORD + "\n", "mode": 0o600}})
        self.assertNotIn(PASSWORD, json.dumps(got["invocation"],
                                              ensure_ascii=False))

    def test_the_tool_reads_the_file_in_memory(self):
        image = {**ACCOUNT, "image": "nfs://192.0.2.9/a", "share_user": "a",
                 "log": str(self.home / "log"), "executable": TOOL,
                 "bmc": "127.0.0.1:1", "insecure": True}
        self.check_outcome("update", {**image, "share_password": PASSWORD}, {},
                           {"verdict": "unreachable", "exit_code": 3})
        # Otherwise it would have found out that the file cannot be read.
        self.check_outcome("update", {**image, "share_password_file": "/none"},
                           {}, {"verdict": None, "exit_code": 2})

    def test_skips_only_what_is_expected(self):
        for params, skips in (({"insecure": False, "pin": "a"}, False),
                              ({"expect": {"BIOS": "2"}}, True),
                              ({"expect": {"BIOS": "2"},
                                "skip_if_current": False}, False)):
            self.run_module("update", {**IMAGE, **params},
                            result("updated", 0))
            self.assertEqual("--skip-if-current" in self.call["arguments"],
                             skips)

    def test_rejected_parameters(self):
        rows = [
            ("update", {**IMAGE, "expect": {"BIOS": 2.10}}, "quotation marks"),
            ("update", {**IMAGE, "password": "a\nb"}, "line break"),
            ("update", {**IMAGE, "executable": "/no/such"}, "Cannot find"),
            ("update", {**IMAGE, "image": "nfs://a/b"}, "mutually exclusive"),
            ("update", {"bmc": "a", "user": "b", "file": "c"}, "password"),
            ("update", {**IMAGE, "known_hosts": "/a", "pin": "a"}, "mutually"),
            ("watch", ACCOUNT, "log"),
            ("watch", {**ACCOUNT, "bmc": None, "task": "/t"}, "bmc"),
            ("rules", {"command": "draft", **ACCOUNT, "bmc": None}, "bmc"),
            ("rules", {"command": "check"}, "file"),
        ]
        for name, params, text in rows:
            with self.subTest(name=name, text=text):
                params = {k: v for k, v in params.items() if v is not None}
                got = self.run_module(name, params, result("updated", 0))
                self.assertTrue(got["failed"])
                self.assertIn(text, got["msg"])
                self.assertIsNone(self.call)

    # They concern a terminal, or the module decides about them.
    NOT_IN_MODULES = {"--help", "--json", "--quiet", "--plain", "--uris",
                      "--output", "--dry-run", "--stop-on-hangup"}

    def test_the_options_are_those_of_the_tool(self):
        account = quorvane.ACCOUNT + quorvane.LOG
        rows = [("inventory", account), ("chassis", account),
                ("plan", account + quorvane.IMAGE),
                ("update", account + quorvane.IMAGE + quorvane.UPDATE),
                ("watch", account + quorvane.WATCH),
                ("rules draft", account), ("rules check", quorvane.RULES)]
        for command, options in rows:
            run = subprocess.run([TOOL, *command.split(), "--help"], text=True,
                                 stdout=subprocess.PIPE, check=False)
            known = set(re.findall(r"^ +(--[\w-]+)", run.stdout, re.M))
            self.assertEqual({one.flag for one in options
                              if one.form != quorvane.POSITION},
                             known - self.NOT_IN_MODULES, command)


class Rules(ModuleTest):

    REPLY = {"output": '{\n  "a": 1\n}\n', "exit_code": 0,
             "errors": "a: the BMC advertises it\n"}

    def test_draft(self):
        output = self.home / "rules.json"
        # Content before, check mode; changed, content after.
        rows = [(None, True, True, None),
                (None, False, True, self.REPLY["output"]),
                (self.REPLY["output"], False, False, self.REPLY["output"]),
                ("{}", True, True, "{}"),
                ("{}", False, True, self.REPLY["output"])]
        for before, check, changed, after in rows:
            with self.subTest(before=before, check=check):
                output.unlink(missing_ok=True)
                if before is not None:
                    output.write_text(before)
                got = self.run_module("rules", {
                    **ACCOUNT, "command": "draft", "output": str(output)},
                    self.REPLY, check)
                self.assertEqual(got["changed"], changed)
                self.assertEqual(got["rules"], {"a": 1})
                self.assertEqual(got["explanation"],
                                 ["a: the BMC advertises it"])
                self.assertEqual(
                    output.read_text() if output.exists() else None, after)
        got = self.run_module("rules", {**ACCOUNT, "command": "draft"},
                              {**USAGE_ERROR, "exit_code": 3})
        self.assertEqual((got["failed"], got["exit_code"]), (True, 3))

    def test_check(self):
        problem = "site.json:3:5: error: It does not load."
        rows = [("site.json: no problems found.\n", 0, False, []),
                (problem + "\n", 0, False, [problem]),
                (problem + "\n", 1, True, [problem])]
        for output, code, failed, problems in rows:
            got = self.run_module(
                "rules", {"command": "check", "file": "site.json",
                          "strict": True},
                {"output": output, "errors": "", "exit_code": code})
            self.assertEqual((got.get("failed", False), got["problems"]),
                             (failed, problems))
            self.assertEqual(self.call["arguments"],
                             ["rules", "check", "site.json", "--strict"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
