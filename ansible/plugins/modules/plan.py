#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0
"""Shows what an update would do, without changing anything."""

DOCUMENTATION = r"""
module: plan
short_description: Show what a firmware update would do
version_added: 1.0.0
description:
  - Reads the server, the image, each URI that the update would request, the
    firmware, and the reasons why the update cannot work.
  - Sends only C(GET) requests.
  - Fails if there is a blocker, which is a reason why the update cannot work.
author: Quorvane (@quorvane)
extends_documentation_fragment:
  - quorvane.firmware.bmc
  - quorvane.firmware.bmc.image
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
- name: Find out whether the update can work
  quorvane.firmware.plan:
    bmc: "{{ quorvane_bmc }}"
    user: "{{ quorvane_user }}"
    password: "{{ quorvane_password }}"
    file: firmware.blx
    rules: site.json
  delegate_to: localhost
  register: plan
"""

RETURN = r"""
target:
  description: The server, its systems, its UpdateService and its tasks.
  returned: if the BMC could be read
  type: dict
image:
  description: Path, size and SHA-256 of the file, or the URI.
  returned: if the BMC could be read
  type: dict
phases:
  description: The phases in order, each with the URIs and their states.
  returned: if the BMC could be read
  type: list
  elements: dict
firmware:
  description: URI, name, version and updateable of each component.
  returned: if the BMC could be read
  type: list
  elements: dict
time:
  description: The shortest and longest time by the rules, in seconds.
  returned: if the BMC could be read
  type: dict
findings:
  description: Severity (C(blocker) or C(warning)), code, message and action of
    each finding.
  returned: if the BMC could be read
  type: list
  elements: dict
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
    options = quorvane.ACCOUNT + quorvane.LOG + quorvane.IMAGE
    module = AnsibleModule(
        quorvane.argument_spec(options, required=("bmc", "user")),
        supports_check_mode=True, **quorvane.IMAGE_RULES)
    result = quorvane.call(module, ["plan", "--json"], options)
    plan = result.document()
    values = {**(plan or {}), "exit_code": result.exit_code,
              "log": module.params["log"], "changed": False}
    if result.exit_code != quorvane.DONE or plan is None:
        module.fail_json(msg=quorvane.plan_failure(result), **values)
    module.exit_json(**values)


if __name__ == "__main__":
    main()
