# SPDX-License-Identifier: Apache-2.0
"""What the hosts of a rolling update have in common."""

import os
from collections import Counter

from jinja2 import Undefined

VERIFIED = ("updated", "current", "staged", "done")


def _get(variables, name):
    """A variable of a host; an empty dictionary if it is not set."""
    return variables[name] if name in variables else {}


def absolute(path):
    """A path relative to the directory in which Ansible was started. Modules
    run elsewhere. A variable that is not set stays so."""
    if isinstance(path, Undefined):
        return path
    return os.path.abspath(os.path.expanduser(path))


def program(name):
    """A program in PATH, or an absolute path."""
    return absolute(name) if "/" in name else name


def blocked(hostvars, hosts):
    """The hosts that cannot be updated, each with the reason."""
    reasons, names = {}, {}
    for host in hosts:
        state = _get(hostvars[host], "quorvane_state")
        plan = _get(hostvars[host], "quorvane_preflight")
        if not state:
            reasons[host] = "The preflight failed."
        elif state["differs"]:
            reasons[host] = (
                "The run directory contains another update of this host: {} "
                "changed. Use another quorvane_run_dir.".format(
                    ", ".join(state["differs"])))
        elif names.setdefault(state["request"]["bmc"].lower(), host) != host:
            reasons[host] = "It has the same BMC as {}: {}. Remove one.".format(
                names[state["request"]["bmc"].lower()], state["request"]["bmc"])
        elif plan.get("failed"):
            reasons[host] = plan.get("msg") or "The plan failed."
        elif state["is_repeated"] and _runs_task(plan):
            reasons[host] = ("The BMC runs a task, perhaps that of the "
                             "interrupted run. Wait until it ends.")
    return reasons


def _runs_task(plan):
    findings = plan.get("plan", {}).get("findings", [])
    return any(one["code"] == "task_running" for one in findings)


def waves(hostvars, hosts, blocked_hosts):
    """The hosts to work on, in order. The first one shows whether the update
    works, so those that need no update come last. A host that an earlier run
    did not update successfully comes after the others, unless no other host was
    updated either. Of these, the ones that are only looked at come first."""
    states = {h: hostvars[h]["quorvane_state"] for h in hosts
              if h not in blocked_hosts}
    is_proven = any(one["state"] == "verified" for one in states.values())

    def rank(host):
        plan = _get(hostvars[host], "quorvane_preflight")
        is_late = is_proven and states[host]["result"] is not None
        return (plan.get("verdict") == "current",
                is_late, is_late and states[host]["state"] == "fresh")
    return sorted((h for h, one in states.items()
                   if one["state"] != "verified"), key=rank)


def failures(hostvars, hosts):
    """The hosts whose update did not succeed."""
    return [h for h in hosts if not is_verified(
        _get(hostvars[h], "quorvane_outcome"))]


def is_verified(outcome):
    return bool(outcome) and not outcome.get("failed")


def reason_to_stop(failed, hosts, is_canary, max_percentage):
    """Why the run ends after a wave; empty if it goes on."""
    if not failed:
        return ""
    if is_canary:
        return f"the update of the first host, {failed[0]}, failed"
    percentage = 100 * len(failed) / len(hosts)
    if percentage <= float(max_percentage):
        return ""
    return ("{} of the {} hosts of a wave failed ({:.0f} %, more than "
            "quorvane_max_fail_percentage, {} %)".format(
                len(failed), len(hosts), percentage, max_percentage))


def _recorded(state):
    """The outcome of a host that this run did not reach."""
    result = state.get("result") or {}
    if state.get("state") == "running":
        return {"verdict": "running", "failed": True,
                "msg": "running: A process still updates the host. This run did "
                       "not wait for it.", "next": "Run the playbook again."}
    if "verdict" in result:
        return {**result, "failed": True, "msg":
                "{verdict}: {headline} This run did not reach it.".format(
                    headline=result.get("headline", ""),
                    verdict=result["verdict"])}
    if state.get("state") == "interrupted":
        return {"verdict": "interrupted", "failed": True,
                "msg": "interrupted: The BMC may still work on the update. "
                       "This run did not reach it.", "next":
                "Run the playbook again."}
    return {"verdict": "not started"}


def outcomes(hostvars, hosts, blocked_hosts):
    """The outcome of each host."""
    found = {}
    for host in hosts:
        outcome = _get(hostvars[host], "quorvane_outcome")
        state = _get(hostvars[host], "quorvane_state")
        if host in blocked_hosts:
            outcome = {"verdict": "blocked", "msg": blocked_hosts[host],
                       "failed": True}
        elif not outcome and state.get("state") == "verified":
            outcome = dict(state["result"])
        elif not outcome:
            outcome = _recorded(state)
        # In check mode, a good plan has no verdict.
        open_verdict = "error" if outcome.get("failed") else "would be updated"
        found[host] = {key: outcome[key] for key in
                       ("failed", "msg", "next", "log") if key in outcome}
        found[host]["verdict"] = outcome.get("verdict") or open_verdict
    return found


def summary(found, stopped):
    """The lines of the summary."""
    counts = Counter(one["verdict"] for one in found.values())
    lines = ["{} hosts: {}".format(len(found), ", ".join(
        f"{count} {verdict.replace('_', ' ')}"
        for verdict, count in counts.most_common()))]
    if stopped:
        lines.append(f"Stopped: {stopped}.")
    for host, one in found.items():
        if not one.get("failed"):
            continue
        lines.append("{}: {}".format(host, one.get("msg") or one["verdict"]))
        lines += [f"    {name}: {one[key]}" for name, key in
                  (("Next", "next"), ("Log", "log")) if one.get(key)]
    waiting = [h for h, one in found.items()
               if one["verdict"] == "not started"]
    if waiting:
        lines.append("Not started: " + ", ".join(waiting))
    return lines


class FilterModule:

    def filters(self):
        return {one.__name__: one for one in (
            absolute, program, blocked, waves, failures, reason_to_stop,
            outcomes, summary)}
