// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace quorvane::test {
namespace {

using nlohmann::json;

constexpr std::size_t kTimestampLength =
    sizeof("[2024-05-01 13:07:09.042] ") - 1;

// "[...] [WARNING] [update] text" becomes "WARNING [update] text".
std::string WithoutTime(const std::string& line) {
  if (line.size() < kTimestampLength || line[0] != '[') return line;
  const std::string level = line.substr(kTimestampLength + 1, 7);
  return level.substr(0, level.find(' ')) + line.substr(kTimestampLength + 9);
}

}  // namespace

TempDirectory::TempDirectory() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "quorvane-test-XXXXXX")
          .string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot create a temporary directory");
  }
  path_ = pattern;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::Write(const std::string& name,
                                 const std::string& text) const {
  std::string file = path_ + "/" + name;
  std::ofstream(file, std::ios::binary) << text;
  return file;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string RulesJson(const std::string& patch) {
  json rules = json::parse(R"({
    "authentication": {"type": "basic"},
    "target": {"ip": "192.0.2.1"},
    "retry_config": {},
    "firmware_update": {
      "inventory_rules": {},
      "multipart_update": {"upload_rules": {}},
      "task_monitoring": {"task_states": {}},
      "activation": {"activation_rules": {}},
      "reboot": {"reboot_rules": {}}
    }
  })");
  rules.merge_patch(json::parse(patch));
  return rules.dump(2);
}

LibraryTest::LibraryTest()
    : logger_(std::make_unique<Logger>(directory.path() + "/log",
                                       LogLevel::DEBUG, false, true)) {
  SetThreadLogger(logger_.get());
  OverrideLibraryPath(directory.path() + "/libQuorvaneLib.so.1");
}

LibraryTest::~LibraryTest() {
  SetThreadLogger(nullptr);
  OverrideLibraryPath("");
}

void LibraryTest::WriteRules(const std::string& patch) {
  static_cast<void>(directory.Write("brindle.config.json", RulesJson(patch)));
}

std::string LibraryTest::LogText() const {
  return ReadAll(directory.path() + "/log");
}

std::vector<std::string> LibraryTest::Log() const {
  std::istringstream text(LogText());
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    if (line.empty() || line.find("[logger]") != std::string::npos) continue;
    lines.push_back(WithoutTime(line));
  }
  return lines;
}

std::vector<std::string> LibraryTest::Log(const std::string& component) const {
  const std::string tag = " [" + component + "] ";
  std::vector<std::string> lines;
  for (const std::string& line : Log()) {
    const std::size_t at = line.find(tag);
    if (at > 7 || line.rfind("DEBUG", 0) == 0) continue;
    lines.push_back(line.substr(at + tag.size()));
  }
  return lines;
}

std::vector<std::string> BmcTest::RequestLines() const {
  std::vector<std::string> lines;
  for (const auto& request : bmc.Requests()) {
    lines.push_back(request.method + " " + request.path);
  }
  return lines;
}

std::string BmcTest::Url(const std::string& path) const {
  return "https://" + bmc.Address() + path;
}

std::string TaskLink(const std::string& uri) {
  return json{{"@odata.id", uri}, {"Id", "other Id"}}.dump();
}

std::string Task(const std::string& state, int percent) {
  json task = {{"Id", "T1"}, {"TaskState", state}};
  if (percent >= 0) task["PercentComplete"] = percent;
  return task.dump();
}

std::string Error(const std::string& message) {
  return json{
      {"error", {{"code", "Base.1.8.GeneralError"}, {"message", message}}}}
      .dump();
}

}  // namespace quorvane::test
