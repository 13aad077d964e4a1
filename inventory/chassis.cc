// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "config/derived.h"
#include "inventory/collection.h"
#include "logging/redact.h"
#include "quorvane/inventory.h"
#include "quorvane/logging.h"
#include "support/json.h"

namespace quorvane {
namespace {

constexpr const char* kChassis = "chassis";

struct ChassisRecord {
  std::string path;
  ChassisInfo info;
};

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool ContainsIgnoreCase(std::string_view text, std::string_view pattern) {
  if (text.empty() || pattern.empty()) return false;
  return std::search(text.begin(), text.end(), pattern.begin(), pattern.end(),
                     [](char a, char b) { return ToLower(a) == ToLower(b); }) !=
         text.end();
}

// What is asked, in the words of its log lines.
struct ResourceWords {
  const char* asking;
  const char* failed;
  const char* refused;
};

constexpr ResourceWords kCollection{
    .asking = "GET chassis collection: ",
    .failed = "Chassis collection request failed: ",
    .refused = "Chassis collection returned HTTP "};
constexpr ResourceWords kMember{.asking = "GET chassis member: ",
                                .failed = "Chassis member request failed: ",
                                .refused = "Chassis member returned HTTP "};

// The body of a resource; nothing, with a warning, when there is none.
std::optional<std::string> GetBody(const HttpClient& client,
                                   const std::string& url, const Config& config,
                                   const ResourceWords& words) {
  LogInfo(kChassis, words.asking + UriForLog(url));
  try {
    Response answer = GetResource(client, url, config);
    if (answer.status_code == 200 && !answer.body.empty()) {
      return std::move(answer.body);
    }
    LogWarning(kChassis, words.refused + std::to_string(answer.status_code));
  } catch (const std::runtime_error& failure) {
    LogWarning(kChassis, std::string(words.failed) + failure.what());
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
    LogDebug(kChassis, "Chassis member response body: " + RedactAnswer(*body));
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

// The first record that tells all, else the first that tells enough.
const ChassisRecord* Select(const std::vector<ChassisRecord>& records) {
  const auto tells_enough = [](const ChassisRecord& record) {
    return !record.info.Manufacturer.empty() && !record.info.Name.empty();
  };
  const auto tells_all = [&](const ChassisRecord& record) {
    return tells_enough(record) && !record.info.Model.empty();
  };
  const char* told = "perfect";
  auto found = std::find_if(records.begin(), records.end(), tells_all);
  if (found == records.end()) {
    told = "fallback";
    found = std::find_if(records.begin(), records.end(), tells_enough);
  }
  if (found == records.end()) {
    LogWarning(kChassis,
               "No chassis member has required Manufacturer and Name fields");
    return nullptr;
  }
  LogInfo(kChassis, std::string("Found ") + told +
                        " chassis info in member: " + RedactUri(found->path) +
                        " (Manufacturer: " + found->info.Manufacturer +
                        ", Model: " + found->info.Model +
                        ", Name: " + found->info.Name + ")");
  return &*found;
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
  std::string told = "Normalized chassis name to: " + info.Name +
                     " (name pattern: " + mapping->source_pattern;
  if (mapping->check_model) {
    told += ", model pattern: " + mapping->model_pattern;
  }
  LogInfo(kChassis, told + ")");
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
