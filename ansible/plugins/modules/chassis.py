#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0
"""Reads the manufacturer, model and name of a server."""

DOCUMENTATION = r"""
module: chassis
short_description: Identify a server through its BMC
version_added: 1.0.0
description:
  - Reads the manufacturer, model and name of the chassis. The mappings of the
    rules file apply to the name.
  - Sends only C(GET) requests.
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
- name: Identify the server
  quorvane.firmware.chassis:
    bmc: "{{ quorvane_bmc }}"
    user: "{{ quorvane_user }}"
    password: "{{ quorvane_password }}"
  delegate_to: localhost
  register: server

- name: Group the servers by model
  ansible.builtin.group_by:
    key: "model_{{ server.model }}"
"""

RETURN = r"""
manufacturer:
  description: Manufacturer, as the BMC reports it.
  returned: success
  type: str
model:
  description: Model, as the BMC reports it. It may be empty.
  returned: success
  type: str
name:
  description: Name of the chassis.
  returned: success
  type: str
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
    result = quorvane.call(module, ["chassis", "--json"], options)
    document = result.document()
    values = {"exit_code": result.exit_code, "log": module.params["log"]}
    if result.exit_code != quorvane.DONE or document is None:
        module.fail_json(msg=result.reason(), **values)
    module.exit_json(
        changed=False, **values,
        **{key: document.get(key.title(), "")
           for key in ("manufacturer", "model", "name")})


if __name__ == "__main__":
    main()
