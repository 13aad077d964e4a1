#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Validates rules files and scenarios with their JSON Schemas. Every file in the
source tree must be valid, and every file with a mistake must be invalid.

Usage: schema_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import copy
import json
import pathlib
import re
import subprocess
import sys

import jsonschema

TOOL, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
RULES = json.loads(subprocess.check_output([TOOL, "rules", "schema"]))
SCENARIO = json.loads((SOURCE / "simulator/scenario.schema.json").read_text())
DOCUMENTS = [json.loads((SOURCE / "tools/quorvane" / path).read_text())
             for path in ("redfish/plan.schema.json",
                          "redfish/tasks.schema.json",
                          "commands/result.schema.json")]
INSTALLED = json.loads((SOURCE / "config/brindle.config.json").read_text())

# Mistakes in the installed rules: path and value. None removes the key.
RULES_MISTAKES = [
    ("authentication/type", "digest"),
    ("authentication", None),
    ("retry_config/max_retries", 0),
    ("retry_config/sleep_time", "5"),
    ("retry_config/sleeptime", 5),
    ("retry_config/backoff_strategy", "linear"),
    ("firmware_update/inventory_uri", ["redfish/v1"]),
    ("firmware_update/multipart_update/upload_rules/202", "track_tsk"),
    ("firmware_update/multipart_update/upload_rules/2xx", "track_task"),
    ("firmware_update/task_monitoring/task_states/Completed", "success"),
    ("firmware_update/task_monitoring/polling_interval", 0),
    ("firmware_update/reboot/reboot_required", "false"),
    ("firmware_update/reboot/reboot_rules", None),
]
INVALID_SCENARIOS = [
    {"tasks": {}}, {"task": {"steps": [{"percent": "40"}]}},
    {"faults": [{"fault": "explode"}]}, {"upload": {"max_bytes": -1}}, [],
    {"versions_change_after_reads": 1, "versions_change_after_seconds": 1}]


def complete_rules(page):
    blocks = re.findall(r"```json\n(.*?)```", (SOURCE / page).read_text(), re.S)
    found = [json.loads(block) for block in blocks if '"authentication"' in block]
    assert found, f"{page} contains no complete rules file"
    return found


def with_mistake(path, value):
    rules = copy.deepcopy(INSTALLED)
    *sections, key = path.split("/")
    section = rules
    for name in sections:
        section = section[name]
    section[key] = value
    if value is None:
        del section[key]
    return rules


faults = []


def check(schema, what, instance, must_be_valid):
    errors = [error.message for error in
              jsonschema.Draft202012Validator(schema).iter_errors(instance)]
    if must_be_valid == bool(errors):
        faults.append(f"{what}: {errors or 'must be invalid'}")


for one in (RULES, SCENARIO, *DOCUMENTS):
    assert one["$schema"].endswith("/2020-12/schema"), one["$schema"]
    jsonschema.Draft202012Validator.check_schema(one)
check(RULES, "config", INSTALLED, True)
check(RULES, "demo", json.loads(
    (SOURCE / "scripts/demo.rules.json").read_text()), True)
for page in ("docs/guides/write-a-rules-file.md", "docs/rules.md"):
    for rules in complete_rules(page):
        check(RULES, page, rules, True)
for path, value in RULES_MISTAKES:
    check(RULES, f"{path}: {value!r}", with_mistake(path, value), False)
for path in (SOURCE / "simulator/scenarios").iterdir():
    check(SCENARIO, path.name, json.loads(path.read_text()), True)
for scenario in INVALID_SCENARIOS:
    check(SCENARIO, scenario, scenario, False)
print("\n".join(faults))
sys.exit(1 if faults else 0)
