// SPDX-License-Identifier: Apache-2.0
#include "config/parse.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/json.h"

namespace quorvane {
namespace {

// A BMC that accepts this account was never configured.
constexpr const char* kDefaultPassword = "brindle";

[[noreturn]] void Reject(const std::string& reason) {
  throw std::runtime_error(reason);
}

const cJSON* RequiredObject(const cJSON* object, const char* key) {
  const cJSON* member = ObjectMember(object, key);
  if (member == nullptr) {
    Reject('"' + std::string(key) + "\" must be a JSON object");
  }
  return member;
}

std::string StringOr(const cJSON* object, const char* key,
                     const char* fallback) {
  return StringMember(object, key).value_or(fallback);
}

int PositiveSeconds(const cJSON* section, const char* key, int fallback) {
  const int seconds = IntMember(section, key).value_or(fallback);
  if (seconds < 1) {
    Reject("task_monitoring." + std::string(key) + " must be >= 1");
  }
  return seconds;
}

std::vector<std::string> UriList(const cJSON* section, const char* key,
                                 const char* fallback) {
  std::vector<std::string> uris;
  const auto add = [&uris](const cJSON* item) {
    const auto uri = StringValue(item);
    if (uri && !uri->empty()) uris.push_back(*uri);
  };
  if (const cJSON* list = ArrayMember(section, key)) {
    for (const cJSON* item : Elements(list)) add(item);
  } else {
    add(Member(section, key));
  }
  if (uris.empty()) uris.emplace_back(fallback);
  return uris;
}

// The status that strtol reads; 0 for a key without digits.
int StatusKey(const char* key) {
  constexpr int kDecimal = 10;
  return static_cast<int>(std::strtol(key, nullptr, kDecimal));
}

std::string StateKey(const char* key) { return key; }

// The first of several equal keys counts. The actions of the others must also
// be valid.
template <typename Key, typename Action>
std::unordered_map<Key, Action> RuleTable(
    const cJSON* section, const char* table, Key (*to_key)(const char*),
    Action (*to_action)(const std::string&)) {
  std::unordered_map<Key, Action> rules;
  for (const cJSON* rule : Elements(RequiredObject(section, table))) {
    const auto name = StringValue(rule);
    if (!name) continue;
    const Action action = to_action(*name);
    rules.emplace(to_key(rule->string), action);
  }
  return rules;
}

void ReadAuthentication(const cJSON* root, Config& config) {
  const cJSON* section = RequiredObject(root, "authentication");
  config.auth_type = StringOr(section, "type", "");
  if (config.auth_type.empty()) {
    Reject("authentication.type is required (non-empty string)");
  }
  if (config.auth_type != "basic" && config.auth_type != "oauth") {
    Reject(R"(authentication.type must be "basic" or "oauth")");
  }
  config.username = StringOr(section, "username", "root");
  config.password = StringOr(section, "password", kDefaultPassword);
  config.token = StringOr(section, "token", "");
}

void ReadTarget(const cJSON* root, Config& config) {
  const cJSON* section = RequiredObject(root, "target");
  config.ip = StringOr(section, "ip", "");
  config.ipv6 = StringOr(section, "ipv6", "");
  config.platform_identifier = StringOr(section, "platform_identifier", "");
  if (config.ip.empty() && config.ipv6.empty()) {
    Reject(R"(target must specify "ip" or "ipv6")");
  }
}

void ReadRetry(const cJSON* root, Config& config) {
  const cJSON* section = RequiredObject(root, "retry_config");
  config.max_retries = IntMember(section, "max_retries").value_or(3);
  config.sleep_time = IntMember(section, "sleep_time").value_or(5);
  config.backoff_strategy =
      StringOr(section, "backoff_strategy", "exponential");
  if (config.max_retries < 1 || config.sleep_time < 1) {
    Reject("retry_config: max_retries and sleep_time must be >= 1");
  }
  if (config.backoff_strategy != "fixed" &&
      config.backoff_strategy != "exponential") {
    Reject(R"(retry_config.backoff_strategy must be "fixed" or "exponential")");
  }
}

void ReadTaskMonitoring(const cJSON* firmware_update, Config& config) {
  const cJSON* section = RequiredObject(firmware_update, "task_monitoring");
  config.task_uri =
      UriList(section, "task_uri", "/redfish/v1/TaskService/Tasks");
  config.polling_interval = PositiveSeconds(section, "polling_interval", 30);
  config.max_polling_time_seconds =
      PositiveSeconds(section, "max_polling_time_seconds", 600);
  config.task_states =
      RuleTable(section, "task_states", StateKey, TaskActionFromString);
}

void ReadFirmwareUpdate(const cJSON* root, Config& config) {
  const cJSON* update = RequiredObject(root, "firmware_update");
  config.inventory_uri = UriList(update, "inventory_uri",
                                 "/redfish/v1/UpdateService/FirmwareInventory");
  config.inventory_rules =
      RuleTable(update, "inventory_rules", StatusKey, InvActionFromString);

  const cJSON* upload = RequiredObject(update, "multipart_update");
  config.upload_uri =
      UriList(upload, "upload_uri", "/redfish/v1/UpdateService");
  config.upload_rules =
      RuleTable(upload, "upload_rules", StatusKey, UploadActionFromString);

  ReadTaskMonitoring(update, config);

  const cJSON* activation = RequiredObject(update, "activation");
  config.activation_uri =
      UriList(activation, "activation_uri",
              "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate");
  config.activation_rules = RuleTable(activation, "activation_rules", StatusKey,
                                      ActivationActionFromString);

  const cJSON* reboot = RequiredObject(update, "reboot");
  config.reboot_required = BoolMember(reboot, "reboot_required", true);
  config.reboot_uri =
      UriList(reboot, "reboot_uri",
              "/redfish/v1/Systems/system/Actions/ComputerSystem.Reset");
  config.reboot_rules =
      RuleTable(reboot, "reboot_rules", StatusKey, RebootActionFromString);
}

void ReadChassisNames(const cJSON* root, Config& config) {
  for (const cJSON* item :
       Elements(ArrayMember(root, "chassis_name_mappings"))) {
    ChassisNameMapping mapping{
        .source_pattern = StringOr(item, "source_pattern", ""),
        .normalized_name = StringOr(item, "normalized_name", ""),
        .check_model = BoolMember(item, "check_model", false),
        .model_pattern = StringOr(item, "model_pattern", "")};
    if (mapping.source_pattern.empty() || mapping.normalized_name.empty()) {
      continue;
    }
    config.chassis_name_mappings.push_back(std::move(mapping));
  }
}

}  // namespace

Config ParseConfig(const cJSON* root) {
  Config config;
  ReadAuthentication(root, config);
  ReadTarget(root, config);
  ReadRetry(root, config);
  ReadFirmwareUpdate(root, config);
  ReadChassisNames(root, config);
  return config;
}

}  // namespace quorvane
