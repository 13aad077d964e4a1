# SPDX-License-Identifier: Apache-2.0
"""Documentation that the modules share."""


class ModuleDocFragment:

    # Options of every module that connects to a BMC.
    DOCUMENTATION = r"""
requirements:
  - The program C(quorvane) on the host that runs the module.
  - Linux. Secrets go to the program through a pipe or a file in memory.
notes:
  - The module runs on the control node, with C(connection=local) or
    C(delegate_to=localhost). It talks to the BMC through the program
    C(quorvane), and needs nothing on the server.
  - The options have the names and meanings of the options of C(quorvane); see
    quorvane(1). Relative paths start at the directory of the playbook.
  - Without pipelining, and with C(async), Ansible writes the parameters to a
    temporary file that only the account can read. I(password_file) avoids this
    for the password.
  - Without I(pin), I(known_hosts) or I(cacert), and without their environment
    variables and C(/etc/quorvane/tool.json), no certificate is checked.
options:
  bmc:
    description: Address or host name of the BMC, with C(:PORT) if needed.
    type: str
  user:
    description: Account on the BMC.
    type: str
  password:
    description:
      - Password of the account.
      - The module passes it through a pipe, so that no process list shows it.
    type: str
  password_file:
    description:
      - Read the password from the first line of this file.
      - Either this or I(password) is required.
    type: path
  rules:
    description: Rules file to use instead of the installed one.
    type: path
  force:
    description: Accept a rules file in which C(quorvane rules check) finds
      errors. An update also accepts targets and components that the inventory
      does not contain.
    type: bool
    default: false
  pin:
    description: Public key that the BMC must have, as C(quorvane trust) shows
      it.
    type: str
  known_hosts:
    description: File of keys that C(quorvane trust) wrote.
    type: path
  cacert:
    description: Certificates (PEM) that must have signed the certificate of the
      BMC.
    type: path
  insecure:
    description: Check no certificate, and print no warning.
    type: bool
    default: false
  log:
    description:
      - Append the log to this file.
      - Without it, an update creates a private file in the directory for
        temporary files, and the other commands keep no log.
    type: path
  log_level:
    description: Lowest level that is logged. The default is C(debug).
    type: str
    choices: [debug, info, warning, error]
  executable:
    description: Name or path of the program C(quorvane).
    type: str
    default: quorvane
"""

    # Options of an update and a plan.
    IMAGE = r"""
options:
  file:
    description:
      - The update package to upload.
      - One of I(file), I(image) and I(image_file) is required.
    type: path
  image:
    description:
      - URI of the package on a share or web server, from where the BMC fetches
        it.
      - A URI that contains a secret is rejected; use I(image_file).
    type: str
  image_file:
    description: Read the URI of the package from the first line of this file.
    type: path
  share_user:
    description: Account on the share.
    type: str
  share_password:
    description:
      - Password of the account on the share.
      - The module passes it in a file that exists only in memory.
    type: str
  share_password_file:
    description: Read the password of the share from the first line of this
      file.
    type: path
  verify_share_certificate:
    description: Let the BMC verify the certificate of the share.
    type: bool
    default: false
  no_download:
    description: Never download the package of I(image) to upload it.
    type: bool
    default: false
  target:
    description: URIs of the components to update, as the module
      M(quorvane.firmware.inventory) returns them.
    type: list
    elements: str
    default: []
"""

    # What an update and a watch return.
    OUTCOME = r"""
options:
  expect:
    description:
      - Versions that components must have after the update, by the URI, Id or
        name of a member of the inventory.
      - Quote each version. YAML reads C(2.10) as the number 2.1, so numbers
        with a point are rejected.
    type: dict
    default: {}
  verify_timeout:
    description: Seconds to wait for other versions after the update. The
      default is 1200.
    type: int
  no_verify:
    description: Do not compare the versions after the update. If the BMC
      reports success, the verdict is C(done), and the task is changed.
    type: bool
    default: false
  result:
    description: Write the result to this file, as JSON.
    type: path
  events:
    description: Write the events of the run to this file while it goes on, one
      JSON object a line.
    type: path
"""
