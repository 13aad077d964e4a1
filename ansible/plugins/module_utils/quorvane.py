# SPDX-License-Identifier: Apache-2.0
"""Runs the quorvane tool for the modules of this collection."""

import json
import os
import shutil
import subprocess
from collections import namedtuple

# How the value of a parameter reaches the tool.
TEXT = "text"  # --option VALUE
FLAG = "flag"  # --option
EACH = "each"  # --option VALUE, for each element of a list
PAIRS = "pairs"  # --option KEY=VALUE, for each item of a dictionary
FILE = "file"  # --option FILE, which exists only in memory
STDIN = "stdin"  # --option, and a line on standard input
POSITION = "position"  # VALUE

# A parameter of a module, the option of the tool, and Ansible's specification.
Option = namedtuple("Option", "name flag form spec")


def _option(name, form=TEXT, flag=None, **spec):
    kinds = {FLAG: {"type": "bool", "default": False},
             EACH: {"type": "list", "elements": "str", "default": []},
             PAIRS: {"type": "dict", "default": {}},
             FILE: {"type": "str", "no_log": True},
             STDIN: {"type": "str", "no_log": True}}
    return Option(name, flag or "--" + name.replace("_", "-"), form,
                  {**kinds.get(form, {"type": "str"}), **spec})


TRUST = (
    _option("pin", no_log=False),
    _option("known_hosts", type="path"),
    _option("cacert", type="path"),
    _option("insecure", FLAG),
)
LOG = (
    _option("log", type="path"),
    _option("log_level", choices=["debug", "info", "warning", "error"]),
)
ACCOUNT = (
    _option("bmc"),
    _option("user"),
    _option("password", STDIN, "--password-stdin"),
    _option("password_file", type="path", no_log=False),
    _option("rules", type="path"),
    _option("force", FLAG),
) + TRUST
IMAGE = (
    _option("file", type="path"),
    _option("image"),
    _option("image_file", type="path"),
    _option("share_user"),
    _option("share_password", FILE, "--share-password-file"),
    _option("share_password_file", type="path", no_log=False),
    _option("verify_share_certificate", FLAG),
    _option("no_download", FLAG),
    _option("target", EACH),
)
# Of an update, and of a watch that follows it.
OUTCOME = (
    _option("expect", PAIRS),
    _option("verify_timeout", type="int"),
    _option("no_verify", FLAG),
    _option("result", type="path"),
    _option("events", type="path"),
)
REBOOT = _option("restart", choices=["safe", "rules", "never"])
UPDATE = (
    REBOOT,
    _option("skip_if_current", FLAG, default=True),
) + OUTCOME
# What an update that changes nothing needs to know.
DRY_RUN = (REBOOT,) + tuple(one for one in OUTCOME
                            if one.name in ("verify_timeout", "no_verify"))
WATCH = (
    _option("before", type="path"),
    _option("task"),
    _option("restart", FLAG),
) + OUTCOME
RULES = (
    _option("file", POSITION, type="path"),
    _option("strict", FLAG),
)

EXECUTABLE = {"type": "str", "default": "quorvane"}
# Without a password, the tool would wait for one on the terminal.
ACCOUNT_RULES = {
    "required_one_of": [("password", "password_file")],
    "mutually_exclusive": [("password", "password_file"),
                           ("pin", "known_hosts")],
}
IMAGE_RULES = {
    "required_one_of": ACCOUNT_RULES["required_one_of"]
    + [("file", "image", "image_file")],
    "mutually_exclusive": ACCOUNT_RULES["mutually_exclusive"]
    + [("file", "image", "image_file"),
       ("share_password", "share_password_file")],
}

# Exit codes of the tool; docs/exit-codes.md describes them.
DONE = 0
NOT_RECORDED = 5
# Verdicts that change the server even if no version shows it yet.
CHANGING = ("updated", "staged", "done")


def argument_spec(options, required=()):
    """Ansible's specification of `options` and `executable`."""
    spec = {one.name: dict(one.spec) for one in options}
    spec["executable"] = dict(EXECUTABLE)
    for name in required:
        spec[name]["required"] = True
    return spec


class ToolResult:
    """What a command of the tool printed, and its exit code."""

    def __init__(self, exit_code, output, errors):
        self.exit_code = exit_code
        self.output = output
        self.messages = [line.strip() for line in errors.splitlines()
                         if line.strip()]

    def document(self):
        """The JSON object on standard output; None if there is none."""
        try:
            document = json.loads(self.output)
        except ValueError:
            return None
        return document if isinstance(document, dict) else None

    def reason(self):
        """The last message of the tool, which states why it failed."""
        own = [line[len("quorvane: "):] for line in self.messages
               if line.startswith("quorvane: ")]
        text = (own or self.messages or [""])[-1]
        return text or f"quorvane exited with {self.exit_code}."


class UsageError(Exception):
    """A parameter that the tool cannot get."""


class Inputs:
    """The arguments, standard input and files in memory of one command."""

    def __init__(self, words, options, params):
        self.arguments = list(words)
        self.stdin = None
        self.descriptors = []
        for one in options:
            value = params.get(one.name)
            # An empty password reaches the tool, which otherwise prompts.
            if one.form in (STDIN, FILE) and value is not None:
                self._add(one, value)
            elif value not in (None, False, "", [], {}):
                self._add(one, value)

    def _add(self, one, value):
        if one.form == FLAG:
            self.arguments.append(one.flag)
        elif one.form == POSITION:
            self.arguments.append(value)
        elif one.form == STDIN:
            self.stdin = _line(one.name, value)
            self.arguments.append(one.flag)
        elif one.form == FILE:
            # Only the tool, which inherits the descriptor, can open the file.
            descriptor = os.memfd_create(one.name)
            self.descriptors.append(descriptor)
            os.fchmod(descriptor, 0o600)
            os.write(descriptor, _line(one.name, value))
            self.arguments.append(f"{one.flag}=/dev/fd/{descriptor}")
        else:
            values = {EACH: lambda: value,
                      PAIRS: lambda: [f"{k}={v}" for k, v in value.items()],
                      TEXT: lambda: [value]}[one.form]()
            for text in values:
                # One word, so that a value that begins with "-" is no option.
                self.arguments.append(f"{one.flag}={text}")

    def close(self):
        for descriptor in self.descriptors:
            os.close(descriptor)


def _line(name, value):
    if "\n" in value:
        raise UsageError(f"Cannot use {name}: it contains a line break. "
                         "Remove it.")
    return value.encode("utf-8", "surrogateescape") + b"\n"


def run(words, options, params):
    """Runs the command `words` of the tool with the `options` that have a value
    in `params`. Secrets go through a pipe or memory, never through arguments.
    """
    program = shutil.which(params["executable"])
    if program is None:
        raise UsageError(f"Cannot find the program {params['executable']}. "
                         "Install quorvane, or set executable.")
    inputs = Inputs(words, options, params)
    try:
        done = subprocess.run(
            [program, *inputs.arguments], input=inputs.stdin or b"",
            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            pass_fds=inputs.descriptors, check=False)
    finally:
        inputs.close()
    # As in a shell: 128 and the number of the signal that ended the process.
    code = done.returncode if done.returncode >= 0 else 128 - done.returncode
    return ToolResult(code, done.stdout.decode("utf-8", "replace"),
                      done.stderr.decode("utf-8", "replace"))


def call(module, words, options, params=None):
    """`run`, with errors as failures of the module."""
    try:
        return run(words, options, params or module.params)
    except UsageError as error:
        module.fail_json(msg=str(error), **no_outcome(None, None))
    except OSError as error:
        module.fail_json(msg="Cannot run {}: {}. Check executable.".format(
            module.params["executable"], error.strerror),
            **no_outcome(None, None))


def check_expect(module):
    """YAML reads 2.10 as the number 2.1, which would be another version."""
    for name, version in module.params["expect"].items():
        if isinstance(version, (float, bool)) or version is None:
            module.fail_json(
                msg=f"Cannot use expect: the version of {name} is not a text, "
                    f"but {version}. Write it in quotation marks.",
                **no_outcome(None, module.params["log"]))


def no_outcome(exit_code, log):
    """The return values of an update that ended without a verdict."""
    return {"verdict": None, "exit_code": exit_code, "firmware": [],
            "headline": "", "cause": "", "next": "", "log": log,
            "changed": False}


def outcome(result, log):
    """The return values of a command that prints the result of an update."""
    document = result.document()
    if document is None or "verdict" not in document:
        return {**no_outcome(result.exit_code, log), "failed": True,
                "msg": result.reason()}
    firmware = document.get("firmware") or []
    values = {name: document.get(name)
              for name in ("verdict", "headline", "cause", "next", "record",
                           "duration_seconds")}
    text = " ".join(part for part in (values["headline"], values["cause"])
                    if part)
    return {
        **values,
        "exit_code": result.exit_code,
        "firmware": firmware,
        "log": document.get("log") or log,
        "changed": values["verdict"] in CHANGING
        or any(is_new(member) for member in firmware),
        "failed": result.exit_code not in (DONE, NOT_RECORDED),
        "msg": f"{values['verdict']}: {text}",
        "diff": version_diff(firmware),
    }


def is_new(member):
    """Whether the versions show that a component changed."""
    before, after = member.get("before"), member.get("after")
    return before is not None and after is not None and before != after


def version_diff(firmware):
    """The versions before and after, for --diff."""
    def lines(key):
        return "".join(f"{m['name'] or m['uri']}: {m[key]}\n" for m in firmware
                       if m.get("before") is not None
                       and m.get("after") is not None)
    return {"before": lines("before"), "after": lines("after")}


def exit_with_outcome(module, result):
    """Ends a module whose command prints the result of an update."""
    values = outcome(result, module.params.get("log"))
    if result.exit_code == NOT_RECORDED:
        module.warn("The log or the result of {} is incomplete: {}".format(
            module.params.get("bmc") or values["log"], result.reason()))
    if values.pop("failed"):
        module.fail_json(**values)
    module.exit_json(**values)


def members_named(firmware, name):
    """The members whose URI, Id (last segment of the URI) or name is `name`."""
    return [m for m in firmware
            if name in (m["uri"], m["uri"].rsplit("/", 1)[-1], m["name"])]


def blockers(plan):
    return [one for one in plan.get("findings", [])
            if one.get("severity") == "blocker"]


def plan_failure(result):
    """Why the update cannot work."""
    found = blockers(result.document() or {})
    return " ".join(f"{one['message']} {one['action']}" for one in found
                    ) or result.reason()


def is_current(firmware, expect, targets):
    """Whether all components of `expect` have the expected version, and all
    targets are among them."""
    named = [(members_named(firmware, name), str(version))
             for name, version in expect.items()]
    uris = {m["uri"] for members, _ in named for m in members}
    return bool(named) and uris.issuperset(targets) and all(
        members and all(m["version"] == version for m in members)
        for members, version in named)


def planned_diff(firmware, expect, targets):
    """The versions now, and those that an update must result in."""
    wanted = {m["uri"]: str(version) for name, version in expect.items()
              for m in members_named(firmware, name)}
    before, after = "", ""
    for member in firmware:
        is_updated = (member["uri"] in targets if targets
                      else not expect and member["updateable"] is not False)
        if not is_updated and member["uri"] not in wanted:
            continue
        name = member["name"] or member["uri"]
        before += f"{name}: {member['version']}\n"
        after += "{}: {}\n".format(
            name, wanted.get(member["uri"], "the version in the image"))
    return {"before": before, "after": after}
