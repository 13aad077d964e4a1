# SPDX-License-Identifier: Apache-2.0
"""What tests of the tool share: a simulated BMC, and rules for it."""
import json
import re
import signal
import subprocess
import sys
import time
import traceback


class Machine:
    """A simulated BMC; `account` is what it received and did."""

    def __init__(self, tool, home, name, scenario, port=0):
        (home / f"{name}.scenario").write_text(
            json.dumps({"description": name, **scenario}))
        self.file, self.printed = home / f"{name}.at", home / f"{name}.bmc"
        self.process = subprocess.Popen(
            [tool, "simulate", "--scenario", home / f"{name}.scenario",
             "--address-file", self.file, "--port", str(port)],
            stdout=self.printed.open("w"))

    def __enter__(self):
        wait_for(self.file.exists)
        self.address = self.file.read_text().strip()
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGINT)
        self.process.wait(20)
        self.account = self.printed.read_text()

    def images(self):
        return len(re.findall("image of 5000 bytes", self.account))

    def resets(self):
        return len(re.findall("reset: GracefulRestart", self.account))

    def refused_logins(self):
        return len(re.findall(r"(?m)^[A-Z]+ \S+ 401\b", self.account))


def finish(futures, faults):
    """Prints the faults and exits; a row that raised an exception is one."""
    for future in futures:
        try:
            future.result()
        except Exception:  # the other rows matter as well
            faults.append(traceback.format_exc())
    print("\n\n".join(faults))
    sys.exit(1 if faults else 0)


def wait_for(condition, seconds=30):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"waited for {seconds} s")
        time.sleep(0.02)


def write_rules(source, file, changes):
    """Rules for a quick update, with one URI for each phase."""
    rules = json.loads((source / "scripts/demo.rules.json").read_text())
    update = rules["firmware_update"]
    update["multipart_update"]["upload_uri"] = [
        "/redfish/v1/UpdateService/update-multipart"]
    update["task_monitoring"]["max_polling_time_seconds"] = 5
    for section, uri in (("activation", "activation_uri"),
                         ("reboot", "reboot_uri")):
        del update[section][uri][1:]
    for path, value in changes.items():
        *sections, key = path.split("/")
        section = rules
        for one in sections:
            section = section[one]
        section[key] = value
    file.write_text(json.dumps(rules))
    return file
