#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Validates rules files, scenarios and the JSON of the documentation with their
JSON Schemas. Every file in the source tree must be valid, and every file with a
mistake must be invalid.

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
RESULT = DOCUMENTS[-1]
# The word after `json` in a block of a page, and the schema of the block.
PAGE_SCHEMAS = {"rules": RULES, "scenario": SCENARIO, "result": RESULT,
                "record": RESULT["$defs"]["record"]}
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


faults, kinds = [], []


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
for page in [*SOURCE.glob("*.md"), *SOURCE.glob("*/README.md"),
             *(SOURCE / "docs").rglob("*.md")]:
    for mark, text in re.findall(r"^```json ?([^\n]*)\n(.*?)^```",
                                 page.read_text(), re.M | re.S):
        kinds.append(mark.split()[0] if mark else "none")
        if kinds[-1] in PAGE_SCHEMAS:
            check(PAGE_SCHEMAS[kinds[-1]], page, json.loads(text), True)
        else:
            faults.append(f"{page}: no schema for the kind {kinds[-1]} of a "
                          "JSON block")
if set(kinds) != PAGE_SCHEMAS.keys():
    faults.append(f"the pages contain only the kinds {sorted(set(kinds))}")
for path, value in RULES_MISTAKES:
    check(RULES, f"{path}: {value!r}", with_mistake(path, value), False)
for path in (SOURCE / "simulator/scenarios").iterdir():
    check(SCENARIO, path.name, json.loads(path.read_text()), True)
for scenario in INVALID_SCENARIOS:
    check(SCENARIO, scenario, scenario, False)
print("\n".join(faults))
sys.exit(1 if faults else 0)
