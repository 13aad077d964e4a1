# SPDX-License-Identifier: Apache-2.0
"""What a run directory contains about a host."""

DOCUMENTATION = r"""
name: run_state
short_description: Read the state of the update of a host
version_added: 1.0.0
description:
  - Reads what the role C(quorvane.firmware.rolling_update) wrote about a host
    in an earlier run with the same directory.
author: Quorvane (@quorvane)
options:
  _terms:
    description: Names of hosts.
    required: true
  run_dir:
    description: The directory of the run.
    type: path
    required: true
  request:
    description: What the update is, such as the image and the targets.
    type: dict
    default: {}
"""

EXAMPLES = r"""
- name: Show the state of the update
  ansible.builtin.debug:
    msg: "{{ lookup('quorvane.firmware.run_state', inventory_hostname, run_dir='night') }}"
"""

RETURN = r"""
_raw:
  description:
    - For each host, a dictionary.
    - C(state) is C(fresh) (nothing was sent, or the update is over and failed),
      C(running) (a process still updates the host), C(interrupted) (the BMC may
      still work on the update) or C(verified).
    - C(result) is the result of the last run; null if it has none.
    - C(is_repeated) is true if there may have been a run before.
    - C(request) is I(request) with the SHA-256 of the image.
    - C(differs) lists the keys of the request that the directory has with other
      values.
  type: list
  elements: dict
"""

import fcntl
import hashlib
import json
import os

from ansible.errors import AnsibleLookupError
from ansible.plugins.lookup import LookupBase

VERIFIED = ("updated", "current", "staged", "done")
# The BMC may still work on the update, or has yet to show other versions.
OPEN = ("unknown", "unchanged", "mismatch", "interrupted")
# What a watch reports if the BMC gives it no access.
NO_ACCESS = ("unreachable", "login_refused")
# Phases whose requests transfer the image, or let the BMC fetch it.
SENDING = ("SimpleUpdate", "Upload", "Binary upload")


def read_json(path):
    """The JSON object in a file; None if there is none."""
    try:
        with open(path, encoding="utf-8") as file:
            document = json.load(file)
    except (FileNotFoundError, ValueError):
        return None
    return document if isinstance(document, dict) else None


def is_locked(log):
    """Whether a process of quorvane writes the log."""
    try:
        with open(log, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
    except FileNotFoundError:
        return False
    except BlockingIOError:
        return True
    return False


def was_image_sent(events):
    """Whether the last run may have sent the image."""
    try:
        with open(events, encoding="utf-8", errors="replace") as file:
            lines = file.readlines()
    except FileNotFoundError:
        return True
    for line in lines:
        try:
            event = json.loads(line)
        except ValueError:
            continue  # the last line may be incomplete
        if event.get("phase") in SENDING:
            return True
    return not lines


def state_of(log, result, events):
    if is_locked(log):
        return "running"
    verdict = (result or {}).get("verdict")
    if verdict in VERIFIED:
        return "verified"
    is_open = (verdict in OPEN
               or (verdict is None and os.path.exists(log))
               or (verdict in NO_ACCESS and result.get("record") is None))
    return "interrupted" if is_open and was_image_sent(events) else "fresh"


def sha256(path):
    digest = hashlib.sha256()
    try:
        with open(path, "rb") as file:
            while chunk := file.read(1 << 20):
                digest.update(chunk)
    except OSError as error:
        raise AnsibleLookupError(
            f"Cannot read the image {path}: {error.strerror}. Check "
            "quorvane_image.") from error
    return digest.hexdigest()


class LookupModule(LookupBase):

    def run(self, terms, variables=None, **kwargs):
        self.set_options(var_options=variables, direct=kwargs)
        return [self.state(host) for host in terms]

    def state(self, host):
        if os.path.basename(host) != host or host.startswith("."):
            raise AnsibleLookupError(
                f"Cannot use the host name {host}: it cannot be the name of a "
                "file. Give the host another name in the inventory.")
        run_dir = self.get_option("run_dir")
        log = os.path.join(run_dir, "logs", host + ".log")
        result = read_json(os.path.join(run_dir, "results", host + ".json"))
        request = dict(self.get_option("request"))
        if request.get("image"):
            request["image"] = sha256(os.path.expanduser(request["image"]))
        hosts = read_json(os.path.join(run_dir, "run.json")) or {}
        known = hosts.get(host, request)
        return {
            "state": state_of(log, result, os.path.join(
                run_dir, "events", host + ".jsonl")),
            "result": result,
            "is_repeated": os.path.exists(log) or host in hosts,
            "request": request,
            "differs": sorted(key for key in {*known, *request}
                              if known.get(key) != request.get(key)),
        }
