// SPDX-License-Identifier: Apache-2.0
// The rules file: actions, defaults, validation and its messages, and the path.
// The base URL, and the waits before a retry.
#include <sys/stat.h>

#include <climits>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/retry.h"
#include "config/target.h"
#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::StartsWith;

class RulesFile : public LibraryTest {
 protected:
  Config Load(const std::string& text) const {
    return LoadConfig(directory.Write("rules.json", text));
  }
  // The error of loading `text`; empty if it loads.
  std::string LoadError(const std::string& text) const {
    try {
      static_cast<void>(Load(text));
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return {};
  }
};

// The smallest rules with `text` as one table, which can repeat keys.
std::string WithTable(const std::string& table, const std::string& text) {
  std::string rules = RulesJson();
  const std::string empty = '"' + table + "\": {}";
  return rules.replace(rules.find(empty), empty.size(),
                       '"' + table + "\": " + text);
}

struct Vocabulary {
  const char *name, *table;
  std::function<int(const std::string&)> number;
  std::vector<std::string> names;
};

template <typename Action>
Vocabulary Actions(const char* name, const char* table,
                   Action (*from_string)(const std::string&),
                   std::vector<std::string> names) {
  const auto number = [from_string](const std::string& action) {
    return static_cast<int>(from_string(action));
  };
  return {name, table, number, std::move(names)};
}

std::vector<Vocabulary> Vocabularies() {
  return {
      Actions("inventory_action", "inventory_rules", InvActionFromString,
              {"validate_firmware", "retry_inventory", "fail_or_manual_check"}),
      Actions("upload_action", "upload_rules", UploadActionFromString,
              {"track_task", "retry_with_fix", "split_and_retry",
               "retry_with_backoff"}),
      Actions("task_action", "task_states", TaskActionFromString,
              {"continue_polling", "proceed_to_activation", "retry_upload",
               "restart_upload", "retry_last_chunk"}),
      Actions(
          "activation_action", "activation_rules", ActivationActionFromString,
          {"check_reboot", "poll_task", "retry_activation", "retry_or_fail"}),
      Actions("reboot_action", "reboot_rules", RebootActionFromString,
              {"success", "poll_task", "retry_reboot", "manual_intervention"})};
}

TEST_F(RulesFile, NumbersActionsInOrderAndRejectsOthers) {
  for (const Vocabulary& actions : Vocabularies()) {
    SCOPED_TRACE(actions.name);
    int number = 0;
    for (const std::string& action : actions.names) {
      EXPECT_EQ(actions.number(action), number++) << action;
    }
    const std::string& first = actions.names.front();
    for (const std::string& action :
         {"X" + first.substr(1), " " + first, first + " ", std::string()}) {
      const std::string error =
          std::string("Unknown ") + actions.name + ": \"" + action + '"';
      EXPECT_THAT([&] { actions.number(action); },
                  testing::ThrowsMessage<std::runtime_error>(error));
      // An invalid action makes the file invalid, even for a repeated key.
      EXPECT_EQ(LoadError(WithTable(actions.table,
                                    R"({"1": 5, "200": ")" + first +
                                        R"(", "200": ")" + action + R"("})")),
                error);
    }
  }
}

// All fields except the rule tables, and only the length of the password.
std::string Summary(const Config& c) {
  return json({c.auth_type, c.username, c.password.size(), c.token, c.ip,
               c.ipv6, c.platform_identifier, c.max_retries, c.sleep_time,
               c.backoff_strategy, c.polling_interval,
               c.max_polling_time_seconds, c.reboot_required, c.inventory_uri,
               c.upload_uri, c.task_uri, c.activation_uri, c.reboot_uri,
               c.chassis_name_mappings.size()})
      .dump();
}

// `scalars`, followed by the default URIs and no chassis names.
std::string WithDefaultUris(const std::string& scalars) {
  return scalars +
         R"(,["/redfish/v1/UpdateService/FirmwareInventory"],)"
         R"(["/redfish/v1/UpdateService"],["/redfish/v1/TaskService/Tasks"],)"
         R"(["/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate"],)"
         R"(["/redfish/v1/Systems/system/Actions/ComputerSystem.Reset"],0])";
}

TEST_F(RulesFile, HasDefaults) {
  EXPECT_EQ(Summary(Load(RulesJson())),
            WithDefaultUris(R"(["basic","root",7,"","192.0.2.1","","",3,5,)"
                            R"("exponential",30,600,true)"));
}

TEST_F(RulesFile, UsesScalarsOfTheRightType) {
  EXPECT_EQ(
      Summary(Load(RulesJson(R"({
    "authentication": {"type": "oauth", "username": "", "password": "",
                       "token": "t", "Username": "other"},
    "target": {"ip": "", "ipv6": "2001:db8::1", "platform_identifier": "p"},
    "retry_config": {"max_retries": 2.9, "sleep_time": 1e12,
                     "backoff_strategy": "fixed"},
    "firmware_update": {
      "task_monitoring": {"polling_interval": 1,
                          "max_polling_time_seconds": 1e300},
      "reboot": {"reboot_required": false}},
    "unknown": [1]})"))),
      WithDefaultUris(R"(["oauth","",0,"t","","2001:db8::1","p",2,2147483647,)"
                      R"("fixed",1,2147483647,false)"));
  EXPECT_EQ(Summary(Load(RulesJson(R"({
    "authentication": {"username": 5, "password": {}, "token": true},
    "target": {"ipv6": 6, "platform_identifier": []},
    "retry_config": {"max_retries": "0", "sleep_time": true,
                     "backoff_strategy": 5},
    "firmware_update": {
      "task_monitoring": {"polling_interval": "0",
                          "max_polling_time_seconds": "0"},
      "reboot": {"reboot_required": "false"}},
    "chassis_name_mappings": {"source_pattern": "a", "normalized_name": "b"}
  })"))),
            Summary(Load(RulesJson())));
}

TEST_F(RulesFile, AcceptsOneUriOrSeveral) {
  struct List {
    const char *section, *key;
    std::vector<std::string> Config::*uris;
  };
  const Config defaults = Load(RulesJson());
  for (const List& list : std::vector<List>{
           {"", "inventory_uri", &Config::inventory_uri},
           {"/multipart_update", "upload_uri", &Config::upload_uri},
           {"/task_monitoring", "task_uri", &Config::task_uri},
           {"/activation", "activation_uri", &Config::activation_uri},
           {"/reboot", "reboot_uri", &Config::reboot_uri}}) {
    SCOPED_TRACE(list.key);
    const auto load = [&](const char* value) {
      json rules = json::parse(RulesJson());
      const std::string section =
          std::string("/firmware_update") + list.section;
      rules[json::json_pointer(section)][list.key] = json::parse(value);
      return Load(rules.dump()).*list.uris;
    };
    EXPECT_THAT(load(R"("/one")"), ElementsAre("/one"));
    EXPECT_THAT(load(R"(["/b", "", 5, null, ["/c"], "/a"])"),
                ElementsAre("/b", "/a"));
    for (const char* none : {"[]", R"("")", R"(["", 5])", "{}", "5", "null"}) {
      EXPECT_EQ(load(none), defaults.*list.uris) << none;
    }
  }
}

TEST_F(RulesFile, ReadsStatusKeysAsNumbers) {
  using enum UploadAction;
  const Config config = Load(WithTable("upload_rules", R"({
    "202": "track_task", "202": "retry_with_fix",
    "400": 5, "4O4": null, " +413": "split_and_retry",
    "503 busy": "retry_with_backoff", "-1": "retry_with_fix",
    "abc": "retry_with_fix", "": "track_task",
    "4294967797": "split_and_retry"})"));
  const std::unordered_map<int, UploadAction> expected = {
      {202, track_task},    {413, split_and_retry}, {503, retry_with_backoff},
      {-1, retry_with_fix}, {0, retry_with_fix},    {501, split_and_retry}};
  EXPECT_EQ(config.upload_rules, expected);
}

TEST_F(RulesFile, KeepsSpellingOfTaskStates) {
  using enum TaskAction;
  const Config config = Load(WithTable("task_states", R"({
    "Completed": "proceed_to_activation", "completed": "continue_polling",
    "Completed": "retry_upload", " 7": "retry_last_chunk", "Stopping": 1})"));
  const std::unordered_map<std::string, TaskAction> expected = {
      {"Completed", proceed_to_activation},
      {"completed", continue_polling},
      {" 7", retry_last_chunk}};
  EXPECT_EQ(config.task_states, expected);
}

TEST_F(RulesFile, KeepsOrderOfChassisNamesAndSkipsIncompleteOnes) {
  const Config config = Load(RulesJson(R"({"chassis_name_mappings": [
    {"source_pattern": "b", "normalized_name": "B", "check_model": true,
     "model_pattern": "m"},
    5, ["a"], {}, {"source_pattern": "x"}, {"normalized_name": "X"},
    {"source_pattern": "", "normalized_name": "X"},
    {"source_pattern": "a", "normalized_name": "A", "check_model": "true",
     "model_pattern": 1}]})"));
  std::vector<std::string> shown;
  for (const ChassisNameMapping& m : config.chassis_name_mappings) {
    shown.push_back(m.source_pattern + '>' + m.normalized_name + '>' +
                    (m.check_model ? "model " : "") + m.model_pattern);
  }
  EXPECT_THAT(shown, ElementsAre("b>B>model m", "a>A>"));
}

TEST_F(RulesFile, RequiresObjectsAsSections) {
  for (const char* place :
       {"/authentication", "/target", "/retry_config", "/firmware_update",
        "/firmware_update/inventory_rules", "/firmware_update/multipart_update",
        "/firmware_update/multipart_update/upload_rules",
        "/firmware_update/task_monitoring",
        "/firmware_update/task_monitoring/task_states",
        "/firmware_update/activation",
        "/firmware_update/activation/activation_rules",
        "/firmware_update/reboot", "/firmware_update/reboot/reboot_rules"}) {
    const json::json_pointer at(place);
    const std::string error = '"' + at.back() + "\" must be a JSON object";
    json rules = json::parse(RulesJson());
    for (const char* other : {"[]", R"("text")", "null", "5"}) {
      rules[at] = json::parse(other);
      EXPECT_EQ(LoadError(rules.dump()), error) << other;
    }
    rules[at.parent_pointer()].erase(at.back());
    EXPECT_EQ(LoadError(rules.dump()), error);
  }
  for (const char* root : {"[]", "null", "5", R"("text")"}) {
    EXPECT_EQ(LoadError(root), R"("authentication" must be a JSON object)");
  }
}

TEST_F(RulesFile, ReportsOnlyFirstViolation) {
  const char* const no_type =
      "authentication.type is required (non-empty string)";
  const char* const type = R"(authentication.type must be "basic" or "oauth")";
  const char* const target = R"(target must specify "ip" or "ipv6")";
  const char* const retry =
      "retry_config: max_retries and sleep_time must be >= 1";
  const char* const strategy =
      R"(retry_config.backoff_strategy must be "fixed" or "exponential")";
  const std::vector<std::pair<const char*, const char*>> cases = {
      {R"({"authentication": {"type": null}})", no_type},
      {R"({"authentication": {"type": 5}, "target": 5})", no_type},
      {R"({"authentication": {"type": "Basic"}, "target": 5})", type},
      {R"({"target": {"ip": "", "ipv6": null}, "retry_config": 5})", target},
      {R"({"retry_config": {"max_retries": 0, "backoff_strategy": 1}})", retry},
      {R"({"retry_config": {"max_retries": -1e12}})", retry},
      {R"({"retry_config": {"sleep_time": 0.9}})", retry},
      {R"({"retry_config": {"backoff_strategy": "Fixed"},
           "firmware_update": 5})",
       strategy},
      {R"({"retry_config": {"backoff_strategy": ""}})", strategy},
      {R"({"firmware_update": {"inventory_rules": {"200": "no"},
                               "multipart_update": 5}})",
       R"(Unknown inventory_action: "no")"},
      {R"({"firmware_update": {"task_monitoring": {
           "polling_interval": 0, "max_polling_time_seconds": 0}}})",
       "task_monitoring.polling_interval must be >= 1"},
      {R"({"firmware_update": {"task_monitoring": {
           "max_polling_time_seconds": -5, "task_states": 5}}})",
       "task_monitoring.max_polling_time_seconds must be >= 1"},
  };
  for (const auto& [patch, error] : cases) {
    EXPECT_EQ(LoadError(RulesJson(patch)), error) << patch;
    EXPECT_EQ(Log().back(), "ERROR [config] Config validation failed for: " +
                                directory.path() + "/rules.json");
  }
  EXPECT_EQ(Log().size(), 2 * cases.size());
}

TEST_F(RulesFile, ReportsWhyItCannotBeRead) {
  const std::string none = directory.path() + "/none";
  const std::string fifo = directory.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "Config path is empty"},
      {none,
       "Cannot open config file: \"" + none + "\" (No such file or directory)"},
      {directory.path(),
       "Read error on config file: \"" + directory.path() + '"'},
      {fifo, "Read error on config file: \"" + fifo + '"'},
  };
  for (const auto& [path, error] : cases) {
    EXPECT_THAT([&file = path] { LoadConfig(file); },
                testing::ThrowsMessage<std::runtime_error>(error));
    EXPECT_EQ(Log().back(), "INFO [config] Loading config from: " + path);
  }
}

// The message shows the position of the error, but never a secret.
TEST_F(RulesFile, ReportsPositionOfJsonError) {
  const std::string long_line(150, 'x');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {R"({"a": tru})", "tru}"},
      {long_line, long_line.substr(0, 100)},
      {std::string("{\"a\": x\0y", 9), "x"},
      {R"({"a" 1, "password": "s3"})", ""},
      {R"({"password": "s3", "a": x})", ""},
      {"{\"password\":\n  s3}", ""},
      {R"({"TOKEN": "s"3"})", ""},
      {R"({"passw"ord": "s3"})", ""},
      {R"({"p\u0061ssword": "s"3"})", ""},
      {R"({"p\qassword": "s3"})", ""},
  };
  for (const auto& [text, shown] : cases) {
    const std::string message =
        "JSON parse error in \"" + directory.path() + "/rules.json\": " + shown;
    EXPECT_EQ(LoadError(text), message);
    EXPECT_EQ(LogText().substr(LogText().rfind("[ERROR  ]")),
              "[ERROR  ] [config] " + message + '\n');
  }
}

class RulesPath : public LibraryTest {};

TEST_F(RulesPath, IsInDirectoryOfLibrary) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"/opt/x/lib/libQuorvaneLib.so.1", "/opt/x/lib/brindle.config.json"},
      {"./a/../b/lib.so", "./a/../b/brindle.config.json"},
      {"lib.so", "lib.so/brindle.config.json"},
      {"/lib.so", "brindle.config.json"},
  };
  for (const auto& [library, rules] : cases) {
    OverrideLibraryPath(library);
    EXPECT_EQ(ResolveConfigPath(), rules) << library;
    EXPECT_EQ(Log().back(),
              std::string("DEBUG [config] Resolved config path: ") + rules);
  }
  OverrideLibraryPath(std::nullopt);  // the directory of the program
  EXPECT_EQ(ResolveConfigPath(),
            std::filesystem::read_symlink("/proc/self/exe").parent_path() /
                "brindle.config.json");
}

TEST_F(RulesPath, IsReadAtEachCall) {
  const std::string path = directory.path() + "/brindle.config.json";
  EXPECT_THAT([] { LoadConfigAuto(); },
              testing::ThrowsMessage<std::runtime_error>(
                  StartsWith("Cannot open config file: \"" + path)));
  WriteRules(R"({"target": {"ip": "192.0.2.7"}})");
  EXPECT_EQ(LoadConfigAuto().ip, "192.0.2.7");
  WriteRules(R"({"target": {"ip": "192.0.2.8"}})");
  EXPECT_EQ(LoadConfigAuto().ip, "192.0.2.8");
  EXPECT_EQ(*(Log().end() - 4),
            "DEBUG [config] LoadConfigAuto: resolving path automatically");
  EXPECT_EQ(Log().back(), "INFO [config] Config loaded successfully");
}

TEST(BaseUrl, PrefersIpToIpv6) {
  Config config;
  config.ip = "192.0.2.1";
  config.ipv6 = "2001:db8::1";
  EXPECT_EQ(BuildBaseUrl(config), "https://192.0.2.1");
  config.ip.clear();
  EXPECT_EQ(BuildBaseUrl(config), "https://[2001:db8::1]");
  config.ipv6.clear();
  EXPECT_THAT([&] { BuildBaseUrl(config); },
              testing::ThrowsMessage<std::runtime_error>(
                  "Config has no target ip or ipv6"));
}

class RetryWait : public LibraryTest {};

TEST_F(RetryWait, IsFixedOrDoublesUpToLimit) {
  struct Case {
    const char* strategy;
    int sleep_time, attempt, wait;
    const char* attempt_text;
  };
  for (const Case& row : std::vector<Case>{
           {"exponential", 5, 0, 5, "1"},
           {"exponential", 5, 2, 20, "3"},
           {"exponential", 1, 30, 1 << 30, "31"},
           {"exponential", 1, 31, INT_MAX, "32"},
           {"exponential", INT_MAX, INT_MAX, INT_MAX, "2147483648"},
           {"fixed", 5, 2, 5, "3"}}) {
    Config config;
    config.backoff_strategy = row.strategy;
    config.sleep_time = row.sleep_time;
    SleepBeforeRetry("update", config, row.attempt);
    EXPECT_EQ(Waits().back(), row.wait);
    EXPECT_EQ(Log("update").back(), "Retrying in " + std::to_string(row.wait) +
                                        "s (attempt " + row.attempt_text +
                                        "/3)");
  }
  EXPECT_EQ(Waits().size(), 6);
}

}  // namespace
}  // namespace quorvane::test
