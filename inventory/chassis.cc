// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "config/target.h"
#include "inventory/collection.h"
#include "logging/redact.h"
#include "quorvane/inventory.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr const char* kChassis = "chassis";

struct ChassisRecord {
  std::string path;
  ChassisInfo info;
};

bool ContainsIgnoreCase(std::string_view text, std::string_view pattern) {
  if (text.empty() || pattern.empty()) return false;
  return std::search(text.begin(), text.end(), pattern.begin(), pattern.end(),
                     [](char a, char b) {
                       return AsciiLower(a) == AsciiLower(b);
                     }) != text.end();
}

// The log messages of a GET.
struct GetMessages {
  const char* sending;
  const char* failed;
  const char* bad_status;
};

constexpr GetMessages kCollection{
    .sending = "GET chassis collection: ",
    .failed = "Chassis collection request failed: ",
    .bad_status = "Chassis collection returned HTTP "};
constexpr GetMessages kMember{.sending = "GET chassis member: ",
                              .failed = "Chassis member request failed: ",
                              .bad_status = "Chassis member returned HTTP "};

// The body of a resource; nothing, with a warning in the log, without one.
std::optional<std::string> GetBody(const HttpClient& client,
                                   const std::string& url, const Config& config,
                                   const GetMessages& messages) {
  LogInfo(kChassis, messages.sending + UriForLog(url));
  try {
    Response response = GetResource(client, url, config);
    if (response.status_code == 200 && !response.body.empty()) {
      return std::move(response.body);
    }
    LogWarning(kChassis,
               messages.bad_status + std::to_string(response.status_code));
  } catch (const std::runtime_error& failure) {
    LogWarning(kChassis, std::string(messages.failed) + failure.what());
  }
  return std::nullopt;
}

std::vector<ChassisRecord> FetchRecords(const HttpClient& client,
                                        const std::vector<std::string>& paths,
                                        const std::string& base,
                                        const Config& config) {
  std::vector<ChassisRecord> records;
  for (const std::string& path : paths) {
    const auto body = GetBody(client, base + path, config, kMember);
    if (!body) continue;
    LogDebug(kChassis,
             "Chassis member response body: " + RedactResponse(*body));
    const JsonPtr member = ParseJson(*body);
    if (!member) {
      LogWarning(kChassis,
                 "Failed to parse chassis member JSON for " + RedactUri(path));
      continue;
    }
    records.push_back(
        {.path = path,
         .info = {.Manufacturer =
                      StringMember(member.get(), "Manufacturer").value_or(""),
                  .Model = StringMember(member.get(), "Model").value_or(""),
                  .Name = StringMember(member.get(), "Name").value_or("")}});
  }
  return records;
}

void LogFound(const char* message, const ChassisRecord& record) {
  LogInfo(kChassis, message + RedactUri(record.path) +
                        " (Manufacturer: " + record.info.Manufacturer +
                        ", Model: " + record.info.Model +
                        ", Name: " + record.info.Name + ")");
}

// The first record with all fields, else the first with the required fields.
const ChassisRecord* Select(const std::vector<ChassisRecord>& records) {
  const auto has_required = [](const ChassisRecord& record) {
    return !record.info.Manufacturer.empty() && !record.info.Name.empty();
  };
  const auto has_all = [&](const ChassisRecord& record) {
    return has_required(record) && !record.info.Model.empty();
  };
  auto found = std::find_if(records.begin(), records.end(), has_all);
  if (found != records.end()) {
    LogFound("Found perfect chassis info in member: ", *found);
    return &*found;
  }
  found = std::find_if(records.begin(), records.end(), has_required);
  if (found != records.end()) {
    LogFound("Found fallback chassis info in member: ", *found);
    return &*found;
  }
  LogWarning(kChassis,
             "No chassis member has required Manufacturer and Name fields");
  return nullptr;
}

void NormalizeName(const std::vector<ChassisNameMapping>& mappings,
                   ChassisInfo& info) {
  const auto applies = [&info](const ChassisNameMapping& mapping) {
    return ContainsIgnoreCase(info.Name, mapping.source_pattern) &&
           (!mapping.check_model ||
            ContainsIgnoreCase(info.Model, mapping.model_pattern));
  };
  const auto mapping = std::find_if(mappings.begin(), mappings.end(), applies);
  if (mapping == mappings.end()) return;
  info.Name = mapping->normalized_name;
  std::string line = "Normalized chassis name to: " + info.Name +
                     " (name pattern: " + mapping->source_pattern;
  if (mapping->check_model) {
    line += ", model pattern: " + mapping->model_pattern;
  }
  LogInfo(kChassis, line + ")");
}

}  // namespace

bool FetchChassisInfo(const InventoryRequest& request, ChassisInfo& info) {
  if (request.ip.empty()) return false;
  const Config config = LoadConfigFor(request);
  const HttpClient client;
  const std::string base = BuildBaseUrl(config);
  const auto collection =
      GetBody(client, base + "/redfish/v1/Chassis", config, kCollection);
  if (!collection) return false;
  const std::vector<std::string> paths = ParseMemberPaths(*collection);
  LogInfo(kChassis, "Chassis members found: " + std::to_string(paths.size()));
  if (paths.empty()) {
    LogWarning(kChassis, "Chassis collection has no members");
    return false;
  }
  const std::vector<ChassisRecord> records =
      FetchRecords(client, paths, base, config);
  const ChassisRecord* chosen = Select(records);
  if (chosen == nullptr) return false;
  info = chosen->info;
  NormalizeName(config.chassis_name_mappings, info);
  LogInfo(kChassis, "Chassis Manufacturer: " + info.Manufacturer +
                        ", Model: " + info.Model);
  return true;
}

}  // namespace quorvane
