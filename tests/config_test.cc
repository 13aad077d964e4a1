// SPDX-License-Identifier: Apache-2.0
// What the rules file promises: its words, its defaults, what it refuses and in
// which words, where it is looked for.
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class RulesFile : public LibraryTest {
 protected:
  std::string Write(const std::string& text) const {
    return folder.Write("rules.json", text);
  }
  Config Load(const std::string& text) const { return LoadConfig(Write(text)); }
  // What loading `text` throws; empty when it loads.
  std::string Refusal(const std::string& text) const {
    try {
      static_cast<void>(Load(text));
    } catch (const std::runtime_error& refusal) {
      return refusal.what();
    }
    return {};
  }
};

// The smallest rules with one table as it is written, order and repeats kept.
std::string WithTable(const std::string& table, const std::string& text) {
  std::string rules = RulesJson();
  const std::string empty = '"' + table + "\": {}";
  return rules.replace(rules.find(empty), empty.size(),
                       '"' + table + "\": " + text);
}

struct Vocabulary {
  const char* name;
  std::function<int(const std::string&)> number;
  const char* table;
  std::vector<std::string> words;
};

template <typename Action>
std::function<int(const std::string&)> Numbers(
    Action (*from_string)(const std::string&)) {
  return [from_string](const std::string& word) {
    return static_cast<int>(from_string(word));
  };
}

std::vector<Vocabulary> Vocabularies() {
  return {{"inventory_action",
           Numbers(InvActionFromString),
           "inventory_rules",
           {"validate_firmware", "retry_inventory", "fail_or_manual_check"}},
          {"upload_action",
           Numbers(UploadActionFromString),
           "upload_rules",
           {"track_task", "retry_with_fix", "split_and_retry",
            "retry_with_backoff"}},
          {"task_action",
           Numbers(TaskActionFromString),
           "task_states",
           {"continue_polling", "proceed_to_activation", "retry_upload",
            "restart_upload", "retry_last_chunk"}},
          {"activation_action",
           Numbers(ActivationActionFromString),
           "activation_rules",
           {"check_reboot", "poll_task", "retry_activation", "retry_or_fail"}},
          {"reboot_action",
           Numbers(RebootActionFromString),
           "reboot_rules",
           {"success", "poll_task", "retry_reboot", "manual_intervention"}}};
}

TEST_F(RulesFile, ActionsAreNumberedInOrderAndOthersRefused) {
  for (const Vocabulary& vocabulary : Vocabularies()) {
    SCOPED_TRACE(vocabulary.name);
    int number = 0;
    for (const std::string& word : vocabulary.words) {
      EXPECT_EQ(vocabulary.number(word), number++) << word;
    }
    std::string capital = vocabulary.words.front();
    capital[0] = static_cast<char>(capital[0] - 'a' + 'A');
    for (const std::string& word :
         {capital, " " + vocabulary.words[0], vocabulary.words[0] + " ",
          std::string("track"), std::string()}) {
      const std::string refusal =
          std::string("Unknown ") + vocabulary.name + ": \"" + word + '"';
      EXPECT_THAT([&] { vocabulary.number(word); },
                  testing::ThrowsMessage<std::runtime_error>(refusal));
      // One bad word fails the file, even where its key came before.
      EXPECT_EQ(Refusal(WithTable(vocabulary.table,
                                  R"({"1": 5, "2": ")" + word + R"("})")),
                refusal);
      EXPECT_EQ(Refusal(WithTable(vocabulary.table,
                                  R"({"200": ")" + vocabulary.words[0] +
                                      R"(", "200": ")" + word + R"("})")),
                refusal);
    }
  }
}

// All of it but the rule tables; of the password its length.
std::string Shown(const Config& c) {
  return json({c.auth_type, c.username, c.password.size(), c.token, c.ip,
               c.ipv6, c.platform_identifier, c.max_retries, c.sleep_time,
               c.backoff_strategy, c.polling_interval,
               c.max_polling_time_seconds, c.reboot_required, c.inventory_uri,
               c.upload_uri, c.task_uri, c.activation_uri, c.reboot_uri,
               c.chassis_name_mappings.size()})
      .dump();
}

// Behind `scalars`: the default URIs and no chassis names.
std::string WithDefaultUris(const std::string& scalars) {
  return scalars +
         R"(,["/redfish/v1/UpdateService/FirmwareInventory"],)"
         R"(["/redfish/v1/UpdateService"],["/redfish/v1/TaskService/Tasks"],)"
         R"(["/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate"],)"
         R"(["/redfish/v1/Systems/system/Actions/ComputerSystem.Reset"],0])";
}

TEST_F(RulesFile, SmallestOneGivesTheDefaults) {
  const Config config = Load(RulesJson());
  EXPECT_EQ(Shown(config),
            WithDefaultUris(R"(["basic","root",7,"","192.0.2.1","","",3,5,)"
                            R"("exponential",30,600,true)"));
  EXPECT_EQ(config.inventory_rules.size() + config.upload_rules.size() +
                config.task_states.size() + config.activation_rules.size() +
                config.reboot_rules.size(),
            0);
  const std::string path = folder.path() + "/rules.json";
  EXPECT_THAT(Log(), ElementsAre("INFO [config] Loading config from: " + path,
                                 "INFO [config] Config loaded successfully"));
}

TEST_F(RulesFile, ScalarsAreTakenWhenTheirTypeFits) {
  EXPECT_EQ(
      Shown(Load(RulesJson(R"({
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
  EXPECT_EQ(Shown(Load(RulesJson(R"({
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
            Shown(Load(RulesJson())));
}

TEST_F(RulesFile, UriListsTakeOneOrSeveral) {
  struct List {
    const char *section, *key;
    std::vector<std::string> Config::*uris;
  };
  const std::vector<List> lists = {
      {"", "inventory_uri", &Config::inventory_uri},
      {"/multipart_update", "upload_uri", &Config::upload_uri},
      {"/task_monitoring", "task_uri", &Config::task_uri},
      {"/activation", "activation_uri", &Config::activation_uri},
      {"/reboot", "reboot_uri", &Config::reboot_uri}};
  const Config defaults = Load(RulesJson());
  for (const List& list : lists) {
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

TEST_F(RulesFile, StatusKeysAreReadAsNumbers) {
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

TEST_F(RulesFile, TaskStatesKeepTheirSpelling) {
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

TEST_F(RulesFile, ChassisNamesKeepTheirOrderAndDropIncompleteOnes) {
  const Config config = Load(RulesJson(R"({"chassis_name_mappings": [
    {"source_pattern": "b", "normalized_name": "B", "check_model": true,
     "model_pattern": "m"},
    5, ["a"], {}, {"source_pattern": "x"}, {"normalized_name": "X"},
    {"source_pattern": "", "normalized_name": "X"},
    {"source_pattern": "a", "normalized_name": "A", "check_model": "true",
     "model_pattern": 1}]})"));
  ASSERT_EQ(config.chassis_name_mappings.size(), 2);
  const auto& [first, second] = std::tie(config.chassis_name_mappings[0],
                                         config.chassis_name_mappings[1]);
  EXPECT_EQ(first.source_pattern + first.normalized_name, "bB");
  EXPECT_TRUE(first.check_model);
  EXPECT_EQ(first.model_pattern, "m");
  EXPECT_EQ(second.source_pattern + second.normalized_name, "aA");
  EXPECT_FALSE(second.check_model);
  EXPECT_EQ(second.model_pattern, "");
}

TEST_F(RulesFile, SectionsMustBeObjects) {
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
    const std::string refusal = '"' + at.back() + "\" must be a JSON object";
    json rules = json::parse(RulesJson());
    for (const char* other : {"[]", R"("text")", "null", "5"}) {
      rules[at] = json::parse(other);
      EXPECT_EQ(Refusal(rules.dump()), refusal) << other;
    }
    rules[at.parent_pointer()].erase(at.back());
    EXPECT_EQ(Refusal(rules.dump()), refusal);
  }
  for (const char* root : {"[]", "null", "5", R"("text")"}) {
    EXPECT_EQ(Refusal(root), R"("authentication" must be a JSON object)");
  }
}

TEST_F(RulesFile, TellsTheFirstViolationOnly) {
  const char* const type_required =
      "authentication.type is required (non-empty string)";
  const char* const type_wrong =
      R"(authentication.type must be "basic" or "oauth")";
  const char* const no_target = R"(target must specify "ip" or "ipv6")";
  const char* const retry_too_small =
      "retry_config: max_retries and sleep_time must be >= 1";
  const char* const strategy_wrong =
      R"(retry_config.backoff_strategy must be "fixed" or "exponential")";
  const char* const interval_too_small =
      "task_monitoring.polling_interval must be >= 1";
  const char* const time_too_small =
      "task_monitoring.max_polling_time_seconds must be >= 1";
  const std::vector<std::pair<const char*, const char*>> cases = {
      {R"({"authentication": {"type": null}})", type_required},
      {R"({"authentication": {"type": ""}})", type_required},
      {R"({"authentication": {"type": 5}, "target": 5})", type_required},
      {R"({"authentication": {"type": "Basic"}, "target": 5})", type_wrong},
      {R"({"target": {"ip": ""}, "retry_config": 5})", no_target},
      {R"({"target": {"ip": 5, "ipv6": null}})", no_target},
      {R"({"retry_config": {"max_retries": 0, "backoff_strategy": "no"}})",
       retry_too_small},
      {R"({"retry_config": {"max_retries": -1e12}})", retry_too_small},
      {R"({"retry_config": {"sleep_time": 0.9}})", retry_too_small},
      {R"({"retry_config": {"backoff_strategy": "Fixed"},
           "firmware_update": 5})",
       strategy_wrong},
      {R"({"retry_config": {"backoff_strategy": ""}})", strategy_wrong},
      {R"({"firmware_update": {"inventory_rules": {"200": "no"},
                               "multipart_update": 5}})",
       R"(Unknown inventory_action: "no")"},
      {R"({"firmware_update": {"task_monitoring": {
           "polling_interval": 0, "max_polling_time_seconds": 0}}})",
       interval_too_small},
      {R"({"firmware_update": {"task_monitoring": {
           "max_polling_time_seconds": -5, "task_states": 5}}})",
       time_too_small},
      {R"({"firmware_update": {"reboot": {"reboot_rules": {"200": ""}}}})",
       R"(Unknown reboot_action: "")"},
  };
  for (const auto& [patch, refusal] : cases) {
    EXPECT_EQ(Refusal(RulesJson(patch)), refusal) << patch;
    EXPECT_EQ(Log().back(), "ERROR [config] Config validation failed for: " +
                                folder.path() + "/rules.json");
  }
  EXPECT_EQ(Log().size(), 2 * cases.size());
}

TEST_F(RulesFile, ThatCannotBeReadIsRefusedWithTheReason) {
  const std::string none = folder.path() + "/none";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "Config path is empty"},
      {none,
       "Cannot open config file: \"" + none + "\" (No such file or directory)"},
      {folder.path(), "Read error on config file: \"" + folder.path() + '"'},
  };
  std::vector<std::string> lines;
  for (const auto& [path, refusal] : cases) {
    EXPECT_THAT([&file = path] { LoadConfig(file); },
                testing::ThrowsMessage<std::runtime_error>(refusal));
    lines.push_back("INFO [config] Loading config from: " + path);
  }
  EXPECT_EQ(Log(), lines);
}

struct Broken {
  const char* name;
  std::string text, shown;
};
class BrokenRulesFile : public RulesFile,
                        public testing::WithParamInterface<Broken> {};

// The message shows where reading failed, and never a secret.
TEST_P(BrokenRulesFile, IsShownFromThePlaceOn) {
  const auto& [name, text, shown] = GetParam();
  const std::string message =
      "JSON parse error in \"" + folder.path() + "/rules.json\": " + shown;
  EXPECT_EQ(Refusal(text), message);
  EXPECT_THAT(LogText(), HasSubstr("[ERROR  ] [config] " + message + '\n'));
}

const std::string kLong(150, 'x');

INSTANTIATE_TEST_SUITE_P(
    Places, BrokenRulesFile,
    testing::ValuesIn(std::vector<Broken>{
        {"empty", "", ""},
        {"word", R"({"a": tru})", "tru}"},
        {"hundred_bytes_at_most", kLong, kLong.substr(0, 100)},
        {"password_behind", R"({"a" 1, "password": "s3"})", R"(1, ")"},
        {"token_behind", R"({"a": x, "token": "s3"})", R"(x, ")"},
        {"secret_unquoted", R"({"a": 1, "password": s3})", ""},
        {"secret_on_the_next_line", "{\"password\":\n  s3}", ""},
        {"token_list", R"({"token": ["a", s3]})", ""},
        {"secret_without_end", R"({"password": "s3)", ""},
        {"bad_escape_in_a_secret", R"({"password": "a\xs3"})", ""},
        {"bad_escape_behind_a_comma", R"({"password": "a,b\xs3"})", ""},
        {"bad_escape_behind_a_brace", R"({"token": "a{b\xs3"})", ""},
    }),
    [](const auto& row) { return row.param.name; });

class RulesPlace : public LibraryTest {};

TEST_F(RulesPlace, IsTheFolderOfTheLibraryAsTheLoaderNamesIt) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"/opt/x/lib/libQuorvaneLib.so.1", "/opt/x/lib/brindle.config.json"},
      {"./a/../b/lib.so", "./a/../b/brindle.config.json"},
      {"lib.so", "lib.so/brindle.config.json"},
      {"/lib.so", "brindle.config.json"},
  };
  for (const auto& [library, rules] : cases) {
    PretendLibraryFile(library);
    EXPECT_EQ(ResolveConfigPath(), rules) << library;
    EXPECT_EQ(Log().back(),
              std::string("DEBUG [config] Resolved config path: ") + rules);
  }
  PretendLibraryFile(std::nullopt);  // the loader does not know: the program's
  EXPECT_EQ(ResolveConfigPath(),
            std::filesystem::read_symlink("/proc/self/exe").parent_path() /
                "brindle.config.json");
}

TEST_F(RulesPlace, IsReadAfreshEachTime) {
  const std::string path = folder.path() + "/brindle.config.json";
  EXPECT_THAT([] { LoadConfigAuto(); },
              testing::ThrowsMessage<std::runtime_error>(
                  StartsWith("Cannot open config file: \"" + path)));
  Rules(R"({"target": {"ip": "192.0.2.7"}})");
  EXPECT_EQ(LoadConfigAuto().ip, "192.0.2.7");
  Rules(R"({"target": {"ip": "192.0.2.8"}})");
  EXPECT_EQ(LoadConfigAuto().ip, "192.0.2.8");
  const std::string resolving =
      "DEBUG [config] LoadConfigAuto: resolving path automatically";
  const std::string resolved = "DEBUG [config] Resolved config path: " + path;
  const std::string loading = "INFO [config] Loading config from: " + path;
  const std::string loaded = "INFO [config] Config loaded successfully";
  EXPECT_THAT(Log(), ElementsAre(resolving, resolved, loading, resolving,
                                 resolved, loading, loaded, resolving, resolved,
                                 loading, loaded));
}

}  // namespace
}  // namespace quorvane::test
