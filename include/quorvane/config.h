// SPDX-License-Identifier: Apache-2.0
/// @file
/// The rules file: the URIs of a BMC, and the actions for its responses.
#ifndef QUORVANE_CONFIG_H_
#define QUORVANE_CONFIG_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "quorvane/export.h"

namespace quorvane {

// The actions. The name of an enumerator is that of the rules file. Numbers
// never change, because callers in other languages store them.

/// The action for the HTTP status of the firmware inventory collection.
enum class InventoryAction : std::int32_t {
  validate_firmware = 0,     ///< Read the members.
  retry_inventory = 1,       ///< Wait, then read the collection again.
  fail_or_manual_check = 2,  ///< Fail; check the server manually.
};

/// The action for the HTTP status of an upload.
enum class UploadAction : std::int32_t {
  track_task = 0,          ///< Accepted; monitor the task of the response.
  retry_with_fix = 1,      ///< Retry; keep the error message of the BMC.
  split_and_retry = 2,     ///< Retry; report "too large". Splits nothing.
  retry_with_backoff = 3,  ///< Retry. The action without a rule.
};

/// The action for the TaskState of a monitored task (DSP0266, "Tasks").
enum class TaskAction : std::int32_t {
  continue_polling = 0,       ///< In progress. The action without a rule.
  proceed_to_activation = 1,  ///< The task succeeded.
  retry_upload = 2,           ///< The task failed.
  restart_upload = 3,         ///< The task was cancelled.
  retry_last_chunk = 4,       ///< The task was interrupted.
};

/// The action for the HTTP status of a SimpleUpdate or an activation.
enum class ActivationAction : std::int32_t {
  check_reboot = 0,      ///< Done, without a task.
  poll_task = 1,         ///< Accepted; monitor the task of the response.
  retry_activation = 2,  ///< Retry.
  retry_or_fail = 3,     ///< Retry. The action without a rule.
};

/// The action for the HTTP status of a reboot request.
enum class RebootAction : std::int32_t {
  success = 0,              ///< The system reboots.
  poll_task = 1,            ///< The reboot is a task; monitor it.
  retry_reboot = 2,         ///< Retry.
  manual_intervention = 3,  ///< Next URI. The action without a rule.
};

/// The action with exactly that name (letter case and spaces matter).
/// @throws std::runtime_error e.g. `Unknown inventory_action: "retry"`.
/// @{
QUORVANE_EXPORT InventoryAction InvActionFromString(const std::string& name);
QUORVANE_EXPORT UploadAction UploadActionFromString(const std::string& name);
QUORVANE_EXPORT TaskAction TaskActionFromString(const std::string& name);
QUORVANE_EXPORT ActivationAction
ActivationActionFromString(const std::string& name);
QUORVANE_EXPORT RebootAction RebootActionFromString(const std::string& name);
/// @}

/// Replaces a chassis name that a BMC reports. Patterns are plain substrings;
/// ASCII letter case does not matter.
struct ChassisNameMapping {
  std::string source_pattern;   ///< Substring of Name; never empty.
  std::string normalized_name;  ///< Replacement of Name; never empty.
  bool check_model = false;     ///< Whether the model must match, too.
  std::string model_pattern;    ///< Substring of Model.
};

/// The content of a rules file; each field has the name of its key. Defaults of
/// the file that differ from the initial values here come from `LoadConfig`.
///
/// A rule table maps an HTTP status (RFC 9110, section 15) or a TaskState
/// (case-sensitive) to an action. For a multipart upload, an activation and a
/// reboot, the key 0 is a request without a response.
struct Config {
  std::string auth_type;  ///< "basic" or "oauth"; "oauth" sends no credentials.
  std::string username;   ///< BMC account; default of the file: "root".
  std::string password;   ///< Never logged; default of the file: "brindle".
  std::string token;      ///< For "oauth"; no request sends it.
  std::string ip;    ///< IPv4 address or host name, with ":port" if needed.
  std::string ipv6;  ///< IPv6 address without brackets; used if `ip` is empty.
  std::string platform_identifier;  ///< Any text, for the caller.
  int max_retries = 3;              ///< Attempts after the first; >= 1.
  int sleep_time = 5;               ///< First wait, seconds; >= 1.
  std::string backoff_strategy = "exponential";  ///< Or "fixed".
  std::vector<std::string> inventory_uri;        ///< Collections, in order.
  std::unordered_map<int, InventoryAction> inventory_rules;
  std::vector<std::string> upload_uri;  ///< Upload endpoints, in order.
  std::unordered_map<int, UploadAction> upload_rules;
  std::vector<std::string>
      task_uri;               ///< The first one is the prefix of a task Id.
  int polling_interval = 30;  ///< Wait before each poll, seconds; >= 1.
  int max_polling_time_seconds = 600;  ///< Polls: this / interval.
  std::unordered_map<std::string, TaskAction> task_states;
  std::vector<std::string> activation_uri;  ///< SimpleUpdate and activation.
  std::unordered_map<int, ActivationAction> activation_rules;
  bool reboot_required = true;          ///< Whether to reboot the system.
  std::vector<std::string> reboot_uri;  ///< ComputerSystem.Reset actions.
  std::unordered_map<int, RebootAction> reboot_rules;
  std::vector<ChassisNameMapping> chassis_name_mappings;  ///< First match wins.
};

/// Reads and validates the rules file at `path`.
///
/// @throws std::runtime_error
///   - "Config path is empty";
///   - `Cannot open config file: "PATH" (REASON)`, `Read error on config file:
///     "PATH"`;
///   - `JSON parse error in "PATH": ` and up to 100 bytes of the text at the
///     error, or none if the file may contain a password or a token;
///   - the first violation, e.g. `"reboot" must be a JSON object`.
/// Logs the path and the outcome.
QUORVANE_EXPORT Config LoadConfig(const std::string& path);

/// `LoadConfig(ResolveConfigPath())`. Reads the file at each call.
/// @throws as `LoadConfig`.
QUORVANE_EXPORT Config LoadConfigAuto();

/// The default path of the rules file: "brindle.config.json" in the directory
/// from which this library was loaded, as the loader names it (symbolic links
/// are not resolved). Does not check whether the file exists.
QUORVANE_EXPORT std::string ResolveConfigPath();

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_H_
