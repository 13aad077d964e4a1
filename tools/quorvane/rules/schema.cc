// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

constexpr const char* kSchema = R"json({
  "$schema": "https://json-schema.org/draft/2020-12/schema",
  "title": "Rules of firmware updates (brindle.config.json)",
  "type": "object",
  "required": ["authentication", "target", "retry_config", "firmware_update"],
  "additionalProperties": false,
  "properties": {
    "$schema": {"type": "string"},
    "authentication": {
      "description": "How to log in. Commands that name an account go before it.",
      "type": "object",
      "required": ["type"],
      "additionalProperties": false,
      "properties": {
        "type": {"description": "oauth sends no credentials.", "type": "string", "enum": ["basic", "oauth"]},
        "username": {"description": "Account on the BMC.", "type": "string", "default": "root"},
        "password": {"description": "Its password.", "type": "string"},
        "token": {"description": "Kept for oauth; no request sends it.", "type": "string"}
      }
    },
    "target": {
      "description": "Which BMC. Commands that name one go before it.",
      "type": "object",
      "anyOf": [{"required": ["ip"]}, {"required": ["ipv6"]}],
      "additionalProperties": false,
      "properties": {
        "ip": {"description": "IPv4 address or host name, with :port if needed.", "type": "string"},
        "ipv6": {"description": "IPv6 address without brackets; used if ip is empty.", "type": "string"},
        "platform_identifier": {"description": "Free text.", "type": "string"}
      }
    },
    "retry_config": {
      "description": "How often, and after what wait, one URI is tried again.",
      "type": "object",
      "additionalProperties": false,
      "properties": {
        "max_retries": {"description": "Tries after the first.", "type": "integer", "minimum": 1, "default": 3},
        "sleep_time": {"description": "Wait before the first retry, seconds.", "type": "integer", "minimum": 1, "default": 5},
        "backoff_strategy": {"description": "fixed keeps the wait, exponential doubles it each time.", "type": "string", "enum": ["fixed", "exponential"], "default": "exponential"}
      }
    },
    "firmware_update": {
      "description": "The phases of an update: what to ask, and what follows from each answer.",
      "type": "object",
      "required": ["inventory_rules", "multipart_update", "task_monitoring", "activation", "reboot"],
      "additionalProperties": false,
      "properties": {
        "inventory_uri": {"$ref": "#/$defs/uris", "default": "/redfish/v1/UpdateService/FirmwareInventory"},
        "inventory_rules": {
          "description": "What the status of the inventory means. 401 and 403 always end it.",
          "type": "object",
          "propertyNames": {"$ref": "#/$defs/status"},
          "additionalProperties": {"type": "string", "enum": ["validate_firmware", "retry_inventory", "fail_or_manual_check"]}
        },
        "multipart_update": {
          "description": "The upload of an image, as a form and then bare.",
          "type": "object",
          "required": ["upload_rules"],
          "additionalProperties": false,
          "properties": {
            "upload_uri": {"$ref": "#/$defs/uris", "default": "/redfish/v1/UpdateService"},
            "upload_rules": {
              "description": "What the status of an upload means. 404 and 405 always mean the next URI.",
              "type": "object",
              "propertyNames": {"$ref": "#/$defs/status"},
              "additionalProperties": {"type": "string", "enum": ["track_task", "retry_with_fix", "split_and_retry", "retry_with_backoff"]}
            }
          }
        },
        "task_monitoring": {
          "description": "How a task is watched.",
          "type": "object",
          "required": ["task_states"],
          "additionalProperties": false,
          "properties": {
            "task_uri": {"$ref": "#/$defs/uris", "default": "/redfish/v1/TaskService/Tasks"},
            "polling_interval": {"description": "Wait before each poll, seconds.", "type": "integer", "minimum": 1, "default": 30},
            "max_polling_time_seconds": {"description": "Divided by polling_interval it gives the number of polls.", "type": "integer", "minimum": 1, "default": 600},
            "task_states": {
              "description": "What a TaskState means (DMTF DSP2046, Task). States that are not named are watched on.",
              "type": "object",
              "additionalProperties": {"type": "string", "enum": ["continue_polling", "proceed_to_activation", "retry_upload", "restart_upload", "retry_last_chunk"]}
            }
          }
        },
        "activation": {
          "description": "SimpleUpdate, and the activation of an uploaded image.",
          "type": "object",
          "required": ["activation_rules"],
          "additionalProperties": false,
          "properties": {
            "activation_uri": {"$ref": "#/$defs/uris", "default": "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate"},
            "activation_rules": {
              "description": "What the status of the request means.",
              "type": "object",
              "propertyNames": {"$ref": "#/$defs/status"},
              "additionalProperties": {"type": "string", "enum": ["check_reboot", "poll_task", "retry_activation", "retry_or_fail"]}
            }
          }
        },
        "reboot": {
          "description": "The restart of the system at the end.",
          "type": "object",
          "required": ["reboot_rules"],
          "additionalProperties": false,
          "properties": {
            "reboot_required": {"description": "Restart the system at all?", "type": "boolean", "default": true},
            "reboot_uri": {"$ref": "#/$defs/uris", "default": "/redfish/v1/Systems/system/Actions/ComputerSystem.Reset"},
            "reboot_rules": {
              "description": "What the status of the request means.",
              "type": "object",
              "propertyNames": {"$ref": "#/$defs/status"},
              "additionalProperties": {"type": "string", "enum": ["success", "poll_task", "retry_reboot", "manual_intervention"]}
            }
          }
        }
      }
    },
    "chassis_name_mappings": {
      "description": "Names for chassis; the first that matches counts.",
      "type": "array",
      "items": {
        "type": "object",
        "required": ["source_pattern", "normalized_name"],
        "additionalProperties": false,
        "properties": {
          "source_pattern": {"description": "Part of the chassis' Name, letter case ignored.", "type": "string", "minLength": 1},
          "normalized_name": {"description": "The name instead.", "type": "string", "minLength": 1},
          "check_model": {"description": "Must model_pattern match as well?", "type": "boolean", "default": false},
          "model_pattern": {"description": "Part of the chassis' Model, letter case ignored.", "type": "string"}
        }
      }
    }
  },
  "$defs": {
    "uris": {
      "description": "One URI, or several in the order in which they are tried.",
      "type": ["string", "array"],
      "pattern": "^/",
      "items": {"type": "string", "pattern": "^/"}
    },
    "status": {"description": "An HTTP status (RFC 9110); 0: no answer came.", "pattern": "^(0|[1-5][0-9][0-9])$"}
  }
}
)json";

}  // namespace

const nlohmann::ordered_json& RulesSchema() {
  static const nlohmann::ordered_json schema =
      nlohmann::ordered_json::parse(kSchema);
  return schema;
}

}  // namespace quorvane::tool
