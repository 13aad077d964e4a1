#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0
"""Updates the firmware of a server through its BMC."""

DOCUMENTATION = r"""
module: update
short_description: Update the firmware of a server
version_added: 1.0.0
description:
  - Uploads a firmware image to the BMC, or lets the BMC fetch it, polls the
    task, reboots the system, and compares the versions with those before.
  - Uploads nothing if the components have all versions of I(expect) already.
  - The task can take long. Use C(async) and C(poll), or enough C(forks).
author: Quorvane (@quorvane)
extends_documentation_fragment:
  - quorvane.firmware.bmc
  - quorvane.firmware.bmc.image
  - quorvane.firmware.bmc.outcome
attributes:
  check_mode:
    support: full
    description: Runs C(quorvane update --dry-run), which sends only C(GET) requests, and
      writes no file. The module fails if there is a blocker.
  diff_mode:
    support: full
    description: Shows the versions before and after. In check mode, the
      versions after are those of I(expect).
  async:
    support: full
    description: The module needs no terminal.
notes:
  - If the verdict is C(unknown), C(unchanged) or C(interrupted), the BMC may
    still work on the update. Use M(quorvane.firmware.watch) before another
    update.
options:
  bmc:
    required: true
  user:
    required: true
  skip_if_current:
    description: Upload nothing if the components have all versions of I(expect)
      already. Without I(expect), it has no effect.
    type: bool
    default: true
  restart:
    description:
      - Who requests the reboot of the system after the update.
      - With C(safe), the default, the system is rebooted only if the task shows
        that it does no harm. C(rules) follows the rules file alone, and
        C(never) leaves the reboot out.
    type: str
    choices: [safe, rules, never]
"""

EXAMPLES = r"""
- name: Update the BIOS
  quorvane.firmware.update:
    bmc: "{{ quorvane_bmc }}"
    user: "{{ quorvane_user }}"
    password: "{{ quorvane_password }}"
    known_hosts: /etc/quorvane/known_hosts
    file: bios-2.5.0.blx
    rules: site.json
    expect:
      BIOS: "2.5.0"
    log: "logs/{{ inventory_hostname }}.log"
  delegate_to: localhost
"""

RETURN = r"""
verdict:
  description: C(updated), C(current), C(staged), C(done), C(unchanged),
    C(mismatch), C(failed), C(unknown), C(unreachable), C(login_refused) or
    C(interrupted). Null if the update did not start. In check mode,
    C(current) if every expected version is installed, else null.
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
  description: URI, name, version before and after, and whether I(target) names
    it, for each component.
  returned: always
  type: list
  elements: dict
  sample:
    - uri: /redfish/v1/UpdateService/FirmwareInventory/BIOS
      name: System BIOS
      before: 2.4.1
      after: 2.5.0
      targeted: false
headline:
  description: The verdict in one sentence.
  returned: always
  type: str
cause:
  description: What the BMC states, such as why it rejected the image.
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
plan:
  description: What the module M(quorvane.firmware.plan) returns; if this
    module fails, only C(findings).
  returned: in check mode
  type: dict
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quorvane.firmware.plugins.module_utils import quorvane


def plan(module):
    """What the update would do: the check mode, which writes no log either."""
    params = module.params
    result = quorvane.call(
        module, ["update", "--dry-run", "--json"],
        quorvane.ACCOUNT + quorvane.IMAGE + quorvane.DRY_RUN)
    document = result.document()
    values = quorvane.no_outcome(result.exit_code, None)
    if document is None:
        module.fail_json(msg=result.reason(), **values)
    firmware = document.get("firmware") or []
    values.update(
        plan=document,
        diff=quorvane.planned_diff(firmware, params["expect"],
                                   params["target"]))
    if params["skip_if_current"] and quorvane.is_current(
            firmware, params["expect"], params["target"]):
        values["verdict"] = "current"
        module.exit_json(msg="Every expected version is installed.", **values)
    unknown = [] if params["force"] else [
        name for name in params["expect"]
        if len(quorvane.members_named(firmware, name)) != 1]
    fault = ""
    if result.exit_code != quorvane.DONE:
        fault = quorvane.plan_failure(result)
    elif unknown:
        fault = ("Cannot use expect: the inventory of {} does not have exactly "
                 "one member with the URI, Id or name {}.".format(
                     params["bmc"], " or ".join(unknown)))
    if fault:
        # Ansible prints all that a failed module returns.
        values["plan"] = {"findings": document.get("findings", [])}
        module.fail_json(msg=fault, **values)
    values["changed"] = True
    module.exit_json(msg="The update can start.", **values)


def main():
    options = (quorvane.ACCOUNT + quorvane.LOG + quorvane.IMAGE
               + quorvane.UPDATE)
    module = AnsibleModule(
        quorvane.argument_spec(options, required=("bmc", "user")),
        supports_check_mode=True, **quorvane.IMAGE_RULES)
    quorvane.check_expect(module)
    if module.check_mode:
        plan(module)
    params = dict(module.params)
    # The tool rejects the option without an expected version.
    params["skip_if_current"] &= bool(params["expect"])
    quorvane.exit_with_outcome(
        module, quorvane.call(module, ["update", "--json", "--quiet"], options,
                              params))


if __name__ == "__main__":
    main()
