#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0
"""Follows an update that was interrupted to its end."""

DOCUMENTATION = r"""
module: watch
short_description: Follow an interrupted firmware update to its end
version_added: 1.0.0
description:
  - Finds the BMC, the task and the versions before the update in the log of a
    run that ended early, polls the task to its end, and compares the versions.
  - Never uploads an image. Sends only C(GET) requests unless I(restart) is set.
author: Quorvane (@quorvane)
extends_documentation_fragment:
  - quorvane.firmware.bmc
  - quorvane.firmware.bmc.outcome
attributes:
  check_mode:
    support: full
    description: The module then never requests the reboot, and writes neither
      I(result) nor I(events). It still appends to I(log), from which it reads
      what was sent.
  diff_mode:
    support: full
    description: Shows the versions before and after.
  async:
    support: full
    description: The module needs no terminal.
options:
  bmc:
    description: Address or host name of the BMC. Required without I(log).
  log:
    description: The log of the interrupted run.
  before:
    description: File with the versions before the update, as
      C(quorvane inventory --json) prints them, instead of those in the log.
    type: path
  task:
    description: URI of the task. Required without I(log).
    type: str
  restart:
    description: Request the reboot of the system if it is still due.
    type: bool
    default: false
"""

EXAMPLES = r"""
- name: Follow the update that the power cut interrupted
  quorvane.firmware.watch:
    log: "logs/{{ inventory_hostname }}.log"
    user: "{{ quorvane_user }}"
    password: "{{ quorvane_password }}"
  delegate_to: localhost
"""

RETURN = r"""
verdict:
  description: As in M(quorvane.firmware.update).
  returned: always
  type: str
  sample: updated
exit_code:
  description: Exit code of C(quorvane). The module fails if it is neither 0 nor
    5. With 5, the log or the result is incomplete.
  returned: always
  type: int
  sample: 0
firmware:
  description: URI, name, version before and after, and whether the update named
    it as a target, for each component.
  returned: always
  type: list
  elements: dict
headline:
  description: The verdict in one sentence.
  returned: always
  type: str
cause:
  description: What the BMC states, such as why the task failed.
  returned: always
  type: str
next:
  description: What to do.
  returned: always
  type: str
log:
  description: Name of the log.
  returned: always
  type: str
record:
  description: The result of the library; null if it returned none.
  returned: if there is a verdict
  type: dict
duration_seconds:
  description: Duration of the run.
  returned: if there is a verdict
  type: float
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quorvane.firmware.plugins.module_utils import quorvane


def main():
    options = quorvane.ACCOUNT + quorvane.LOG + quorvane.WATCH
    module = AnsibleModule(
        quorvane.argument_spec(options), supports_check_mode=True,
        required_by={"task": ("bmc", "user")},
        required_one_of=quorvane.ACCOUNT_RULES["required_one_of"]
        + [("log", "task")],
        mutually_exclusive=quorvane.ACCOUNT_RULES["mutually_exclusive"])
    quorvane.check_expect(module)
    params = dict(module.params)
    if module.check_mode:
        params.update(restart=False, result=None, events=None)
    quorvane.exit_with_outcome(
        module, quorvane.call(module, ["watch", "--json", "--quiet"], options,
                              params))


if __name__ == "__main__":
    main()
