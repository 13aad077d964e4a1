// SPDX-License-Identifier: Apache-2.0
/// @file
/// The rules file: what to ask of a BMC, and what to do with its answers.
#ifndef QUORVANE_CONFIG_H_
#define QUORVANE_CONFIG_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "quorvane/export.h"

namespace quorvane {

// The action vocabularies. An enumerator is spelled as in the rules file and
// keeps its number for good: callers in other languages store it.

/// What the status of the firmware inventory collection means.
enum class InventoryAction : std::int32_t {
  validate_firmware = 0,     ///< Read the members.
  retry_inventory = 1,       ///< Wait and read the collection again.
  fail_or_manual_check = 2,  ///< Give up; someone must look at the machine.
};

/// What the status of an image upload means.
enum class UploadAction : std::int32_t {
  track_task = 0,          ///< Accepted; follow the task it names.
  retry_with_fix = 1,      ///< Wait and send it again; keep the BMC's reason.
  split_and_retry = 2,     ///< As above, told as "too large"; nothing is split.
  retry_with_backoff = 3,  ///< Wait and send it again; so do unnamed statuses.
};

/// What the TaskState of a watched task means (DSP0266, "Tasks").
enum class TaskAction : std::int32_t {
  continue_polling = 0,       ///< Still at work; so do unnamed states.
  proceed_to_activation = 1,  ///< It ended well.
  retry_upload = 2,           ///< It failed.
  restart_upload = 3,         ///< It was cancelled.
  retry_last_chunk = 4,       ///< It was interrupted.
};

/// What the status of a SimpleUpdate or an activation request means.
enum class ActivationAction : std::int32_t {
  check_reboot = 0,      ///< Done; no task to follow.
  poll_task = 1,         ///< Accepted; follow the task it names.
  retry_activation = 2,  ///< Wait and ask again.
  retry_or_fail = 3,     ///< Wait and ask again; so do unnamed statuses.
};

/// What the status of a reset request means.
enum class RebootAction : std::int32_t {
  success = 0,              ///< The system restarts.
  poll_task = 1,            ///< It restarts as a task; follow that.
  retry_reboot = 2,         ///< Wait and ask again.
  manual_intervention = 3,  ///< Leave this URI; so do unnamed statuses.
};

/// The action of that exact name (letter case and blanks count).
/// @throws std::runtime_error e.g. `Unknown inventory_action: "retry"`.
/// @{
QUORVANE_EXPORT InventoryAction InvActionFromString(const std::string& name);
QUORVANE_EXPORT UploadAction UploadActionFromString(const std::string& name);
QUORVANE_EXPORT TaskAction TaskActionFromString(const std::string& name);
QUORVANE_EXPORT ActivationAction
ActivationActionFromString(const std::string& name);
QUORVANE_EXPORT RebootAction RebootActionFromString(const std::string& name);
/// @}

/// How one chassis name, as a BMC reports it, becomes the name that reports
/// and rules use. Patterns are plain parts of a text, ASCII case ignored.
struct ChassisNameMapping {
  std::string source_pattern;   ///< Part of the chassis' Name; never empty.
  std::string normalized_name;  ///< What replaces the Name; never empty.
  bool check_model = false;     ///< Must `model_pattern` match as well?
  std::string model_pattern;    ///< Part of the chassis' Model.
};

/// A rules file in memory; each field is named after its key. A plain value
/// that owns all it holds. The initial values are those that the file's
/// defaults do not replace; `LoadConfig` gives the rest.
///
/// A rule table maps what was met (an HTTP status, RFC 9110 section 15; or a
/// TaskState, case-sensitive) to what follows. In an upload as a form, an
/// activation and a reset, key 0 stands for a transfer without any answer.
struct Config {
  std::string auth_type;  ///< "basic" or "oauth"; "oauth" sends no credentials.
  std::string username;   ///< BMC account (RFC 7617); file's default: "root".
  std::string password;   ///< Never logged; file's default: "brindle".
  std::string token;      ///< Kept for "oauth"; no request sends it.
  std::string ip;    ///< IPv4 address or host name, with ":port" if needed.
  std::string ipv6;  ///< IPv6 address without brackets; used if `ip` is empty.
  std::string platform_identifier;  ///< Free text for the caller.
  int max_retries = 3;              ///< Tries after the first; >= 1.
  int sleep_time = 5;               ///< Base wait, seconds; >= 1.
  std::string backoff_strategy = "exponential";  ///< Or "fixed".
  std::vector<std::string> inventory_uri;  ///< Collections, in order of trial.
  std::unordered_map<int, InventoryAction> inventory_rules;
  std::vector<std::string> upload_uri;  ///< Upload endpoints, in order.
  std::unordered_map<int, UploadAction> upload_rules;
  std::vector<std::string>
      task_uri;               ///< The first one prefixes a bare task Id.
  int polling_interval = 30;  ///< Wait before each poll, seconds; >= 1.
  int max_polling_time_seconds = 600;  ///< Polls = this / interval, truncated.
  std::unordered_map<std::string, TaskAction> task_states;
  std::vector<std::string> activation_uri;  ///< SimpleUpdate and activation.
  std::unordered_map<int, ActivationAction> activation_rules;
  bool reboot_required = true;          ///< Restart the system at the end?
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
///   - `JSON parse error in "PATH": ` and up to 100 bytes of what could not be
///     read, cut short where a password or token would show;
///   - the first violation found, e.g. `"reboot" must be a JSON object`.
/// Logs where it reads from and how that ended.
QUORVANE_EXPORT Config LoadConfig(const std::string& path);

/// `LoadConfig(ResolveConfigPath())`, afresh at each call.
/// @throws as `LoadConfig`.
QUORVANE_EXPORT Config LoadConfigAuto();

/// Where the rules file belongs: "brindle.config.json" in the folder from which
/// this library was loaded, as the loader names it (symbolic links are kept).
/// Does not look whether the file exists.
QUORVANE_EXPORT std::string ResolveConfigPath();

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_H_
