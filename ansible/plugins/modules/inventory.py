#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0
"""Reads the firmware inventory of a BMC."""

DOCUMENTATION = r"""
module: inventory
short_description: Read the firmware inventory of a BMC
version_added: 1.0.0
description:
  - Reads the name, version and URI of each firmware component.
  - Sends only C(GET) requests.
  - Fails if members of the inventory could not be read. The return value
    C(inventory) then contains the others.
author: Quorvane (@quorvane)
extends_documentation_fragment: quorvane.firmware.bmc
attributes:
  check_mode:
    support: full
    description: The module never changes anything.
options:
  bmc:
    required: true
  user:
    required: true
"""

EXAMPLES = r"""
- name: Read the firmware of the server
  quorvane.firmware.inventory:
    bmc: "{{ quorvane_bmc }}"
    user: "{{ quorvane_user }}"
    password: "{{ quorvane_password }}"
    known_hosts: /etc/quorvane/known_hosts
  delegate_to: localhost
  register: firmware

- name: Show the versions
  ansible.builtin.debug:
    msg: "{{ firmware.inventory | items2dict(key_name='Name', value_name='Version') }}"
"""

RETURN = r"""
inventory:
  description: The members of the inventory that could be read.
  returned: always
  type: list
  elements: dict
  sample:
    - id: /redfish/v1/UpdateService/FirmwareInventory/BIOS
      Name: System BIOS
      SoftwareId: BIOS-1
      Version: 2.4.1
      target_id: /redfish/v1/Systems/system
exit_code:
  description: Exit code of C(quorvane).
  returned: always
  type: int
  sample: 0
log:
  description: Name of the log; null if none was requested.
  returned: always
  type: str
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quorvane.firmware.plugins.module_utils import quorvane


def main():
    options = quorvane.ACCOUNT + quorvane.LOG
    module = AnsibleModule(
        quorvane.argument_spec(options, required=("bmc", "user")),
        supports_check_mode=True, **quorvane.ACCOUNT_RULES)
    result = quorvane.call(module, ["inventory", "--json"], options)
    document = result.document() or {}
    values = {"inventory": document.get("inventory", []),
              "exit_code": result.exit_code, "log": module.params["log"]}
    if result.exit_code != quorvane.DONE:
        module.fail_json(msg=result.reason(), **values)
    module.exit_json(changed=False, **values)


if __name__ == "__main__":
    main()
