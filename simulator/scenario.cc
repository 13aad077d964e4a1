// SPDX-License-Identifier: Apache-2.0
#include "simulator/scenario.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/object_reader.h"
#include "simulator/parse_json.h"
#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

namespace fs = std::filesystem;
constexpr int kMaxCount = 1'000'000;
constexpr int kTenMinutesMs = 600'000;

struct NamedFault {
  const char* name;
  Fault fault;
};
constexpr std::array<NamedFault, 6> kFaults = {
    {{"drop", Fault::kDrop},
     {"reset", Fault::kReset},
     {"cut_short", Fault::kCutShort},
     {"garbage", Fault::kGarbage},
     {"not_http", Fault::kNotHttp},
     {"slow_drip", Fault::kSlowDrip}}};

const std::vector<std::string> kMethods = {"GET", "HEAD",  "POST",
                                           "PUT", "PATCH", "DELETE"};
const std::vector<std::string> kPhases = {
    "inventory",  "chassis", "upload", "simple_update",
    "activation", "task",    "reboot", "download"};

void CheckPath(const ObjectReader& in, const std::string& key,
               const std::string& path) {
  if (!path.starts_with('/')) {
    in.Fail(key, R"(must begin with "/", not ")" + Printable(path) + '"');
  }
}

void ReadPaths(ObjectReader& in, const char* key,
               std::vector<std::string>& out) {
  in.Read(key, out);
  for (const std::string& path : out) CheckPath(in, key, path);
}

void ReadInventory(ObjectReader& in, Inventory& inventory) {
  in.ReadList("members", inventory.members, [](ObjectReader& entry) {
    entry.Require("id");
    InventoryMember member;
    entry.Read("id", member.id);
    member.name = member.id;
    entry.Read("name", member.name);
    entry.Read("version", member.version);
    entry.Read("updated_version", member.updated_version);
    entry.Read("manufacturer", member.manufacturer);
    entry.Read("updateable", member.updateable);
    entry.ReadObjectText("properties", member.properties);
    return member;
  });
  in.Read("generated", inventory.generated, 0, kMaxCount);
  in.Read("page_size", inventory.page_size, 0, kMaxCount);
  in.Read("reported_count", inventory.reported_count, 0, kMaxCount);
}

Chassis ReadChassis(ObjectReader& in) {
  Chassis chassis;
  in.Require("id");
  in.Read("id", chassis.id);
  in.Read("manufacturer", chassis.manufacturer);
  in.Read("model", chassis.model);
  in.Read("serial_number", chassis.serial_number);
  in.Read("part_number", chassis.part_number);
  in.Read("chassis_type", chassis.chassis_type);
  in.ReadObjectText("properties", chassis.properties);
  return chassis;
}

void ReadUpload(ObjectReader& in, UploadEndpoints& upload) {
  ReadPaths(in, "multipart_paths", upload.multipart_paths);
  ReadPaths(in, "binary_paths", upload.binary_paths);
  in.Read("max_bytes", upload.max_bytes);
  in.Read("status", upload.status, 200, 299);
  in.Read("busy_retry_after", upload.busy_retry_after, 0, kMaxCount);
}

void ReadSimpleUpdate(ObjectReader& in, SimpleUpdateAction& action) {
  in.Read("path", action.path);
  CheckPath(in, "path", action.path);
  in.Read("status", action.status, 200, 599);
  in.Read("protocols", action.protocols);
  in.Read("requires_targets", action.requires_targets);
}

TaskStep ReadStep(ObjectReader& in) {
  TaskStep step;
  in.Read("state", step.state);
  in.Read("percent", step.percent, -1, 100);
  if (in.Has("polls") && in.Has("seconds")) {
    in.Fail("seconds", "set either polls or seconds, not both");
  }
  if (in.Has("seconds")) step.polls = 0;
  in.Read("polls", step.polls, 1, kMaxCount);
  in.Read("seconds", step.seconds);
  in.Read("until_restart", step.until_reboot);
  in.Read("health", step.health, {"OK", "Warning", "Critical"});
  in.Read("message_id", step.message_id);
  in.Read("message", step.message);
  return step;
}

void ReadTask(ObjectReader& in, TaskScript& task) {
  in.ReadList("steps", task.steps, ReadStep);
  if (task.steps.empty()) in.Fail("steps", "must contain at least one step");
  in.Read("location", task.location, {"monitor", "task", "none"});
  in.Read("task_in_body", task.task_in_body);
  in.Read("monitor_final_status", task.monitor_final_status, 200, 204);
  if (task.monitor_final_status != 200 && task.monitor_final_status != 204) {
    in.Fail("monitor_final_status", "must be 200 or 204");
  }
  in.Read("retry_after", task.retry_after, 0, kMaxCount);
  in.Read("disappears_at", task.disappears_at, 0, 100);
}

void ReadReboot(ObjectReader& in, RebootBehavior& reboot) {
  in.Read("by_itself_at", reboot.by_itself_at, 0, 100);
  if (in.Has("requests") && in.Has("seconds")) {
    in.Fail("seconds", "set either requests or seconds, not both");
  }
  in.Read("requests", reboot.requests, 0, kMaxCount);
  in.Read("seconds", reboot.seconds);
  in.Read("answers_503", reboot.returns_503);
  in.Read("keeps_tasks", reboot.keeps_tasks);
}

void ReadVersionChange(ObjectReader& in, VersionChange& change) {
  in.Read("versions_change_at", change.at, {"restart", "completion", "never"});
  if (in.Has("versions_change_after_reads") &&
      in.Has("versions_change_after_seconds")) {
    in.Fail("versions_change_after_seconds",
            "set either versions_change_after_reads or "
            "versions_change_after_seconds, not both");
  }
  in.Read("versions_change_after_reads", change.after_reads, 0, kMaxCount);
  in.Read("versions_change_after_seconds", change.after_seconds);
}

Image ReadImage(ObjectReader& in) {
  constexpr std::uint64_t kGibibyte = 1ULL << 30U;
  Image image;
  in.Read("path", image.path);
  CheckPath(in, "path", image.path);
  in.Read("size", image.size);
  if (image.size > kGibibyte) in.Fail("size", "must be at most 1073741824");
  in.Read("text", image.text);
  return image;
}

void ReadResponse(ObjectReader& in, BmcResponse& response) {
  in.Read("status", response.status, 200, 599);
  if (const Json* body = in.Find("body")) {
    response.body = body->is_string() ? body->get<std::string>() : body->dump();
  }
  if (const Json* headers = in.Find("headers")) {
    if (!headers->is_object()) in.Fail("headers", "must be an object");
    for (const auto& [name, value] : headers->items()) {
      const std::string text =
          value.is_string() ? value.get<std::string>() : std::string("\n");
      // A line break would add header fields.
      if ((name + text).find_first_of("\r\n") != std::string::npos) {
        in.Fail("headers." + name, "must be a string without line breaks");
      }
      response.headers.emplace_back(name, text);
    }
  }
  int delay = 0;
  in.Read("delay_ms", delay, 0, kTenMinutesMs);
  response.delay = std::chrono::milliseconds(delay);
  int drip = static_cast<int>(response.drip.count());
  in.Read("drip_ms", drip, 0, kTenMinutesMs);
  response.drip = std::chrono::milliseconds(drip);
}

FaultRule ReadFault(ObjectReader& in) {
  FaultRule rule;
  in.Read("method", rule.method, kMethods);
  in.Read("path", rule.path);
  in.Read("phase", rule.phase, kPhases);
  in.Read("after", rule.after, 0, kMaxCount);
  in.Read("every", rule.every, 1, kMaxCount);
  in.Read("first", rule.first, 1, kMaxCount);
  in.Read("after_restart", rule.after_reboot);
  in.Read("before_body", rule.before_body);
  std::vector<std::string> names;
  names.reserve(kFaults.size());
  for (const NamedFault& each : kFaults) names.emplace_back(each.name);
  std::string name;
  in.Read("fault", name, names);
  for (const NamedFault& each : kFaults) {
    if (name == each.name) rule.response.fault = each.fault;
  }
  ReadResponse(in, rule.response);
  if (name.empty() && !in.Has("status") && !in.Has("delay_ms")) {
    in.Fail("fault", "is required unless status or delay_ms is set");
  }
  // Without a status, the fault distorts the normal response. If no response
  // arrives at all, the default is to lose the request, not the response.
  const bool loses_response = rule.response.fault == Fault::kDrop ||
                              rule.response.fault == Fault::kReset ||
                              rule.response.fault == Fault::kNotHttp;
  rule.executes_request =
      !in.Has("status") && !loses_response && !rule.before_body;
  in.Read("machine_acts", rule.executes_request);
  if (rule.executes_request && rule.before_body) {
    in.Fail("machine_acts",
            "cannot be true together with before_body, which skips the body");
  }
  return rule;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const int error = errno;
  if (!file.is_open()) {
    throw ScenarioError(path + ": cannot read the scenario file: " +
                        std::generic_category().message(error) +
                        ". Check the path and the permissions.");
  }
  // A read error throws std::ios_base::failure.
  return {std::istreambuf_iterator<char>(file),
          std::istreambuf_iterator<char>()};
}

Json ParseTree(const std::string& json, const std::string& origin) {
  try {
    return ParseJson(json);
  } catch (const std::runtime_error& error) {
    throw ScenarioError(origin + ": invalid JSON: " + error.what());
  }
}

// Directories of built-in scenarios: the data directory of the installation or
// of the build tree. The search walks up from the program, so that an
// installation can be moved.
std::vector<fs::path> ScenarioDirectories() {
  constexpr int kMaxLevels = 4;
  std::vector<fs::path> directories;
  std::error_code error;
  fs::path parent = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (int level = 0; level < kMaxLevels && !parent.empty(); ++level) {
    const fs::path candidate = parent / QUORVANE_SCENARIO_DIR;
    if (fs::is_directory(candidate, error)) directories.push_back(candidate);
    parent = parent.parent_path();
  }
  return directories;
}

}  // namespace

Scenario ParseScenario(const std::string& json, const std::string& origin) {
  const Json tree = ParseTree(json, origin);
  Scenario scenario;
  ObjectReader in(tree, origin + ": $");
  in.Find("$schema");  // for editors
  in.Read("description", scenario.description);
  in.ReadObject("credentials", [&](ObjectReader& credentials) {
    credentials.Read("user", scenario.user);
    credentials.Read("password", scenario.password);
  });
  in.Read("system_id", scenario.system_id);
  in.ReadObjectText("system_properties", scenario.system_properties);
  in.Read("service_enabled", scenario.service_enabled);
  in.ReadObjectText("update_service_properties",
                    scenario.update_service_properties);
  in.Read("power_state", scenario.power_state, {"On", "Off"});
  in.Read("reset_types", scenario.reset_types);
  in.ReadObject("firmware", [&](ObjectReader& firmware) {
    ReadInventory(firmware, scenario.firmware);
  });
  in.ReadObject("software", [&](ObjectReader& software) {
    ReadInventory(software, scenario.software);
  });
  in.ReadList("chassis", scenario.chassis, ReadChassis);
  in.ReadObject("upload", [&](ObjectReader& upload) {
    ReadUpload(upload, scenario.upload);
  });
  in.ReadObject("simple_update", [&](ObjectReader& action) {
    ReadSimpleUpdate(action, scenario.simple_update);
  });
  in.ReadObject("activation", [&](ObjectReader& activation) {
    activation.Read("status", scenario.activation.status, 200, 599);
    activation.Read("required", scenario.activation.required);
  });
  in.ReadObject("task",
                [&](ObjectReader& task) { ReadTask(task, scenario.task); });
  ReadVersionChange(in, scenario.version_change);
  in.ReadObject("restart", [&](ObjectReader& restart) {
    ReadReboot(restart, scenario.reboot);
  });
  in.ReadList("images", scenario.images, ReadImage);
  in.ReadList("faults", scenario.faults, ReadFault);
  in.RejectUnknownKeys();
  return scenario;
}

Scenario LoadScenario(const std::string& path) {
  return ParseScenario(ReadFile(path), path);
}

std::vector<std::pair<std::string, int>> LoadScenarioWeights(
    const std::string& path) {
  const Json tree = ParseTree(ReadFile(path), path);
  ObjectReader in(tree, path + ": $");
  std::vector<std::pair<std::string, int>> weights;
  bool is_usable = false;
  for (const auto& entry : tree.items()) {
    auto& [name, weight] = weights.emplace_back(entry.key(), 0);
    in.Read(name.c_str(), weight, 0, kMaxCount);
    is_usable = is_usable || weight > 0;
  }
  if (!is_usable) {
    throw ScenarioError(path +
                        ": no scenario has a positive weight. Write a JSON "
                        "object such as {\"clean\": 9, \"task-fails\": 1}.");
  }
  return weights;
}

std::string FindScenario(const std::string& file_or_name) {
  std::error_code error;
  if (fs::is_regular_file(file_or_name, error)) return file_or_name;
  std::set<std::string> built_in;
  for (const fs::path& directory : ScenarioDirectories()) {
    for (const auto& entry : fs::directory_iterator(directory, error)) {
      const fs::path& path = entry.path();
      if (path.filename() == "scenario.schema.json") continue;
      if (path.stem() == file_or_name) return path;
      built_in.insert(path.stem());
    }
  }
  std::string names;
  for (const std::string& name : built_in) {
    names += (names.empty() ? "" : ", ") + name;
  }
  throw ScenarioError(
      "no scenario file or built-in scenario \"" + Printable(file_or_name) +
      "\". Built-in scenarios: " + (names.empty() ? "none found" : names));
}

}  // namespace quorvane::simulator
