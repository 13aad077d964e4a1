#!/usr/bin/python
# SPDX-License-Identifier: Apache-2.0
"""Drafts a rules file from a BMC, or checks one."""

DOCUMENTATION = r"""
module: rules
short_description: Draft or check a rules file
version_added: 1.0.0
description:
  - C(draft) reads a BMC and writes a rules file that fits it. It sends only
    C(GET) requests. The file contains the address and the account, but no
    password.
  - C(check) reports the errors and warnings of a rules file.
author: Quorvane (@quorvane)
extends_documentation_fragment: quorvane.firmware.bmc
attributes:
  check_mode:
    support: full
    description: C(draft) then reads the BMC, but writes no file.
  diff_mode:
    support: full
    description: Shows what C(draft) changes in I(output).
options:
  command:
    description: What to do.
    type: str
    choices: [draft, check]
    required: true
  bmc:
    description: Address or host name of the BMC, with C(:PORT) if needed.
      Required with C(draft).
  user:
    description: Account on the BMC. Required with C(draft).
  password_file:
    description:
      - Read the password from the first line of this file.
      - With C(draft), either this or I(password) is required.
  rules:
    description: With C(draft), take the tables and times from this file instead
      of the installed one.
  output:
    description: With C(draft), write the rules to this file.
    type: path
  file:
    description: The rules file. Required with C(check).
    type: path
  strict:
    description: With C(check), fail also if there are only warnings.
    type: bool
    default: false
"""

EXAMPLES = r"""
- name: Draft a rules file for a new model
  quorvane.firmware.rules:
    command: draft
    bmc: "{{ quorvane_bmc }}"
    user: "{{ quorvane_user }}"
    password: "{{ quorvane_password }}"
    output: site.json
  delegate_to: localhost

- name: Check the rules file
  quorvane.firmware.rules:
    command: check
    file: site.json
    strict: true
  delegate_to: localhost
  run_once: true
"""

RETURN = r"""
rules:
  description: The rules.
  returned: with C(draft), if successful
  type: dict
explanation:
  description: The reason for each choice.
  returned: with C(draft)
  type: list
  elements: str
problems:
  description: File, line, column, severity and text of each problem.
  returned: with C(check)
  type: list
  elements: str
exit_code:
  description: Exit code of C(quorvane).
  returned: always
  type: int
  sample: 0
"""

import os
import tempfile

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quorvane.firmware.plugins.module_utils import quorvane


def content_of(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def write(module, path, text):
    """Replaces the file at once: a reader never sees an incomplete one."""
    descriptor, temporary = tempfile.mkstemp(dir=module.tmpdir)
    with os.fdopen(descriptor, "w", encoding="utf-8") as file:
        file.write(text)
    module.atomic_move(temporary, path)


def draft(module):
    result = quorvane.call(module, ["rules", "draft"],
                           quorvane.ACCOUNT + quorvane.LOG)
    values = {"exit_code": result.exit_code, "explanation": result.messages}
    document = result.document()
    if result.exit_code != quorvane.DONE or document is None:
        module.fail_json(msg=result.reason(), **values)
    output = module.params["output"]
    before = content_of(output) if output else result.output
    changed = before != result.output
    if changed and not module.check_mode:
        write(module, output, result.output)
    module.exit_json(
        changed=changed, rules=document, **values,
        diff={"before": before, "after": result.output,
              "before_header": output, "after_header": output})


def check(module):
    result = quorvane.call(module, ["rules", "check"], quorvane.RULES)
    values = {"exit_code": result.exit_code,
              "problems": [line for line in result.output.splitlines()
                           if not line.endswith(": no problems found.")]}
    if result.exit_code != quorvane.DONE:
        module.fail_json(
            msg=" ".join(values["problems"]) or result.reason(), **values)
    module.exit_json(changed=False, **values)


def main():
    spec = quorvane.argument_spec(
        quorvane.ACCOUNT + quorvane.LOG + quorvane.RULES)
    spec["command"] = {"type": "str", "choices": ["draft", "check"],
                       "required": True}
    spec["output"] = {"type": "path"}
    module = AnsibleModule(
        spec, supports_check_mode=True,
        required_if=[
            ("command", "check", ("file",)),
            ("command", "draft", ("bmc", "user")),
            ("command", "draft", ("password", "password_file"), True)],
        mutually_exclusive=quorvane.ACCOUNT_RULES["mutually_exclusive"])
    {"draft": draft, "check": check}[module.params["command"]](module)


if __name__ == "__main__":
    main()
