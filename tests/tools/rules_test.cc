// SPDX-License-Identifier: Apache-2.0
// Faults that are found in a rules file, and how long an update can take.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/actions.h"
#include "tools/quorvane/rules/check.h"
#include "tools/quorvane/rules/explain.h"
#include "tools/quorvane/rules/longest_times.h"
#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

std::string InstalledRules() {
  std::ifstream file(QUORVANE_SOURCE_DIR "/config/brindle.config.json");
  return {std::istreambuf_iterator<char>(file), {}};
}

// "LINE:COLUMN: SEVERITY: TEXT" for each finding.
std::vector<std::string> FindingsOf(const std::string& rules) {
  std::vector<std::string> lines;
  for (const Finding& finding : CheckRules(rules)) {
    lines.push_back(LineOf(finding, "", false).substr(1));
  }
  return lines;
}

bool Loads(const std::string& rules) {
  // The tests run at the same time, each in its own process.
  const std::string path =
      fmt::format("{}rules_check.{}.json", testing::TempDir(), getpid());
  std::ofstream(path) << rules;
  bool is_loaded = true;
  try {
    static_cast<void>(LoadConfig(path));
  } catch (const std::runtime_error&) {
    is_loaded = false;
  }
  std::filesystem::remove(path);
  return is_loaded;
}

std::string WithChange(const std::string& find,
                       const std::string& replacement) {
  std::string rules = InstalledRules();
  const std::size_t at = rules.find(find);
  EXPECT_NE(at, std::string::npos) << find;
  return at == std::string::npos ? rules
                                 : rules.replace(at, find.size(), replacement);
}

// A row changes one text in the installed rules, which are clean.
struct CheckCase {
  const char* name;
  std::string find, replacement;
  const char* finding;
};
class RulesCheck : public testing::TestWithParam<CheckCase> {};

TEST_P(RulesCheck, Finds) {
  const std::string rules = WithChange(GetParam().find, GetParam().replacement);
  EXPECT_THAT(FindingsOf(rules),
              testing::ElementsAre(testing::StartsWith(GetParam().finding)));
  EXPECT_TRUE(Loads(rules));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RulesCheck,
    testing::ValuesIn(std::vector<CheckCase>{
        {"unknown_key", R"("sleep_time": 5)", R"("sleeptime": 5)",
         R"(11:5: warning: "retry_config" has no key "sleeptime". It is ignored; did )"
         R"(you mean "sleep_time"?)"},
        {"wrong_type", R"("sleep_time": 5)", R"("sleep_time": "5")",
         R"(11:19: warning: "sleep_time" must be of type integer, not string, )"
         R"(so the library uses 5. Write a whole number without quotes)"},
        {"fraction", R"("sleep_time": 5)", R"("sleep_time": 6.5)",
         R"(11:19: warning: "sleep_time" must be of type integer, not number, )"
         R"(so the library uses 6. Write)"},
        {"wrong_type_of_uris", R"("task_uri": "/redfish/v1/TaskService/Tasks")",
         R"("task_uri": 1)",
         R"(45:19: warning: "task_uri" must be of type string or array, not )"
         R"(integer, so the library uses "/redfish/v1/TaskService/Tasks". )"
         R"(Write a text in quotes or a list in [ ])"},
        {"wrong_type_of_an_action", R"("500": "retry_inventory")",
         R"("500": 1)",
         R"(22:14: warning: "500" must be of type string, not integer, so )"
         R"(the library ignores the rule. Write a text in quotes)"},
        {"wrong_type_of_a_boolean", R"("reboot_required": true)",
         R"("reboot_required": "false")",
         R"(80:26: error: "reboot_required" must be of type boolean, not )"
         R"(string, so the library uses true and reboots the system. Write )"
         R"(true or false without quotes)"},
        {"incomplete_chassis", R"(  "target")",
         R"(  "chassis_name_mappings": [{"source_pattern": "x"}], "target")",
         R"(6:29: warning: An entry of "chassis_name_mappings" has no key )"
         R"("normalized_name", so the library ignores the entry. Add)"},
        {"duplicate_key", R"("200": "validate)",
         R"("404": "retry_inventory", "200": "validate)",
         R"(21:7: warning: "404" is a duplicate key.)"},
        {"second_value_that_the_library_does_not_read",
         R"("reboot_required": true)",
         R"("reboot_required": true, "reboot_required": "false")",
         R"(80:32: warning: "reboot_required" is a duplicate key.)"},
        {"unused_rule_of_the_inventory", R"("404": "fail_or)",
         R"("401": "fail_or)",
         "21:7: warning: The rule for 401 has no effect: a refused login"},
        {"unused_rule_of_uploads", R"("413": "split_and_retry")",
         R"("405": "track_task")",
         "39:9: warning: The rule for 405 has no effect: the library always"},
        {"partly_used_rule_of_activations", R"("400": "retry_activation")",
         R"("404": "retry_activation")",
         "74:9: warning: The rule for 404 affects only an activation"},
        {"success_without_a_rule", R"("204": "check_reboot")",
         R"("205": "poll_task")",
         "70:27: warning: No rule for 204. A request that the BMC accepts with "
         "such a "
         "status is sent again. Add"},
        {"not_a_status", R"("500": "retry_inventory")",
         R"("5xx": "retry_inventory")",
         R"(22:7: warning: "5xx" is not an HTTP status)"},
        {"unknown_state", R"("Running")", R"("Runing")",
         R"(51:9: warning: "Runing" is not a Redfish TaskState (DMTF DSP2046), so the )"
         R"(rule probably never applies; did you mean "Running"?)"},
        {"final_state_polled", R"("Killed": "restart_upload")",
         R"("Killed": "continue_polling")",
         "59:19: warning: A task does not leave the state Killed"},
        {"uri_without_a_slash", R"("/FWUpdate")", R"("FWUpdate")",
         R"(31:9: error: The URI "FWUpdate" does not begin with "/", so it )"
         R"(becomes part of the address)"},
        {"empty_uri", R"("/FWUpdate")", R"("")",
         "31:9: warning: An empty URI is ignored"},
        {"long_wait", R"("sleep_time": 5)", R"("sleep_time": 90000)",
         "11:19: warning: sleep_time is longer than a day (1 d 1 h)"},
        {"long_exponential_wait", R"("max_retries": 3)", R"("max_retries": 20)",
         "10:20: warning: The last of 20 exponential waits"},
        {"long_polling", R"("max_polling_time_seconds": 3600)",
         R"("max_polling_time_seconds": 100000)",
         "47:35: warning: max_polling_time_seconds is longer than a day"},
        {"no_poll", R"("max_polling_time_seconds": 3600)",
         R"("max_polling_time_seconds": 29)",
         "44:24: error: max_polling_time_seconds (29) is less than"},
        {"no_response_as_an_upload", R"("400": "retry_with_fix")",
         R"("0": "track_task")",
         R"(38:14: error: "0": "track_task" counts a request without a )"
         R"(response as successful. The reboot and other steps follow )"
         R"(although the BMC has not accepted the image. Use )"
         R"("retry_with_backoff")"},
        {"rejected_upload_as_success", R"("503": "retry_with_backoff")",
         R"("503": "track_task")",
         R"(41:16: error: "503": "track_task" counts a request that the BMC )"
         R"(answers with HTTP 503 as successful.)"},
        {"error_as_the_inventory", R"("500": "retry_inventory")",
         R"("500": "validate_firmware")",
         R"(22:14: error: "500": "validate_firmware" counts)"},
        {"rejected_activation_as_success", R"("400": "retry_activation")",
         R"("400": "check_reboot")",
         R"(74:16: error: "400": "check_reboot" counts)"},
        {"rejected_activation_as_a_task", R"("503": "retry_or_fail")",
         R"("101": "poll_task")", R"(76:16: error: "101": "poll_task" counts)"},
        {"no_response_as_a_reboot", R"("400": "manual_intervention")",
         R"("0": "success")",
         R"(90:14: error: "0": "success" counts a request without a)"},
        {"rejected_reboot_as_a_task", R"("503": "retry_reboot")",
         R"("599": "poll_task")", R"(92:16: error: "599": "poll_task" counts)"},
        {"redirect_as_success", R"("503": "retry_with_backoff")",
         R"("0303": "track_task")",
         R"(41:9: warning: "0303" is not an HTTP status)"},
        {"upload_that_no_200_accepts", R"("200": "track_task")",
         R"("200": "retry_with_backoff")",
         R"(34:16: error: "200": "retry_with_backoff" does not accept the )"
         R"(upload. The library sends an image again that the BMC has )"
         R"(accepted with this status, and in the end counts the upload as )"
         R"(failed. Use "track_task")"},
        {"upload_without_200", R"("200": "track_task")",
         R"("203": "track_task")",
         R"(33:23: error: No rule for 200. The library sends an image again)"},
        {"exception_as_success", R"("Exception": "retry_upload")",
         R"("Exception": "proceed_to_activation")",
         "58:22: error: A task in the state Exception has not installed the "
         "firmware, but counts as successful, and the update continues. Use "
         "\"retry_upload\""},
        {"kill_as_success", R"("Killed": "restart_upload")",
         R"("Killed": "proceed_to_activation")", "59:19: error: A task in the"},
        {"cancellation_as_success", R"("Cancelled": "restart_upload")",
         R"("Cancelled": "proceed_to_activation")",
         "60:22: error: A task in the"},
        {"interruption_as_success", R"("Interrupted": "retry_last_chunk")",
         R"("Interrupted": "proceed_to_activation")",
         "61:24: error: A task in the"},
        {"text_after_the_value", "  }\n}\n", "  }\n}\nx",
         "97:1: error: Not valid JSON"},
    }),
    [](const auto& row) { return row.param.name; });

// The library reads a key of a table as a number, and uses the first of equal
// numbers.
TEST(RulesCheckOf, ReadsStatusesLikeTheLibrary) {
  const auto errors_with = [](const std::string& rule) {
    std::vector<std::string> errors;
    for (const std::string& line :
         FindingsOf(WithChange(R"("413": "split_and_retry")", rule))) {
      if (line.find(" error: ") != std::string::npos) errors.push_back(line);
    }
    return errors;
  };
  using testing::ElementsAre;
  using testing::HasSubstr;
  EXPECT_THAT(errors_with(R"("default": "track_task")"),
              ElementsAre(HasSubstr(
                  R"("default": "track_task" counts a request without a )"
                  "response (the library reads this key as 0) as")));
  EXPECT_THAT(errors_with(R"(" 502 busy": "track_task")"),
              ElementsAre(HasSubstr("with HTTP 502")));
  EXPECT_THAT(errors_with(R"("4xx": "track_task")"), testing::IsEmpty());
  EXPECT_THAT(errors_with(R"("502": "retry_with_fix", "502 ": "track_task")"),
              testing::IsEmpty());
  EXPECT_THAT(errors_with(R"("502": 1, "502 ": "track_task")"),
              ElementsAre(HasSubstr("with HTTP 502")));
}

// A file that the library rejects has an error with its position.
class RulesThatDoNotLoad : public testing::TestWithParam<CheckCase> {};

TEST_P(RulesThatDoNotLoad, HaveAnError) {
  const std::string rules = WithChange(GetParam().find, GetParam().replacement);
  EXPECT_THAT(FindingsOf(rules),
              testing::Contains(testing::StartsWith(GetParam().finding)));
  EXPECT_FALSE(Loads(rules));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RulesThatDoNotLoad,
    testing::ValuesIn(std::vector<CheckCase>{
        {"misspelled_action", R"("track_task")", R"("track_tsk")",
         R"(34:16: error: "200" cannot be "track_tsk", so the file does not )"
         R"(load. Use track_task, retry_with_fix, )"
         R"(split_and_retry, retry_with_backoff; did you mean "track_task"?)"},
        {"misspelled_action_of_a_second_rule", R"("404": "fail_or)",
         R"("200": "x", "404": "fail_or)", R"(21:14: error: "200" cannot be)"},
        {"missing_section", R"("target": {)", R"("targe": {)",
         R"(1:1: error: The file has no key "target", so the file does not )"
         R"(load. Add the key)"},
        {"section_of_another_type", R"("inventory_rules": {)",
         R"("inventory_rules": [], "x": {)",
         R"(19:24: error: "inventory_rules" must be of type object, not )"
         R"(array, so the file does not load. Write an object in { })"},
        {"missing_table", R"("task_states": {)", R"("task_state": {)",
         R"(44:24: error: "task_monitoring" has no key "task_states")"},
        {"no_address", R"("ip": "192.0.2.1")", R"("ip": "", "ipv6": 1)",
         R"(6:13: error: "target" has no address, so the file does not load)"},
        {"unknown_login", R"("type": "basic")", R"("type": "digest")",
         R"(3:13: error: "type" cannot be "digest", so the file does not)"},
        {"login_of_another_type", R"("type": "basic")", R"("type": 1)",
         R"(3:13: error: "type" must be of type string, not integer, so the )"
         R"(file does not load)"},
        {"unknown_backoff", R"("exponential")", R"("")",
         R"(12:25: error: "backoff_strategy" cannot be "")"},
        {"no_retry", R"("max_retries": 3)", R"("max_retries": 0)",
         R"(10:20: error: "max_retries" must be at least 1, so the file does )"
         R"(not load. Use a larger number)"},
        {"less_than_one", R"("polling_interval": 30)",
         R"("polling_interval": 0.9)",
         R"(46:27: error: "polling_interval" must be at least 1)"},
        {"invalid_json", R"("target": {)", R"("target" {)",
         "6:12: error: Not valid JSON"},
    }),
    [](const auto& row) { return row.param.name; });

TEST(RulesCheckOf, ColorsOnlyTheSeverity) {
  const Finding finding{Severity::kError, {2, 3}, "bad \x1b"};
  EXPECT_EQ(LineOf(finding, "a\x1b", true),
            "a\\x1b:2:3: \x1b[31merror\x1b[0m: bad \\x1b");
}

TEST(RulesCheckOf, InstalledRulesAreClean) {
  EXPECT_THAT(FindingsOf(InstalledRules()), testing::IsEmpty());
}

TEST(RulesCheckOf, SurvivesRulesCutOffAnywhere) {
  const std::string rules = InstalledRules();
  for (std::size_t length = 0; length + 2 < rules.size(); ++length) {
    ASSERT_EQ(FindingsOf(rules.substr(0, length)).size(), 1U) << length;
  }
}

Config SmallRules() {
  Config rules;
  rules.max_retries = 2;
  rules.sleep_time = 10;
  rules.inventory_uri = {"/a", "/b"};
  rules.upload_uri = {"/c", "/d"};
  rules.activation_uri = {"/e"};
  rules.reboot_uri = {"/f", "/g"};
  rules.polling_interval = 20;
  rules.max_polling_time_seconds = 119;
  return rules;
}

TEST(LongestTimes, AddUpAttemptsTimeLimitsWaitsAndPolls) {
  Config rules = SmallRules();
  LongestTimes longest = LongestTimesOf(rules);
  EXPECT_EQ(longest.inventory, 3 * 3 * 15 + 10 + 20);
  EXPECT_EQ(longest.upload, 2 * (3 * 600 + 30));
  EXPECT_EQ(longest.simple_update, 3 * 60 + 30);
  EXPECT_EQ(longest.activation, 3 * 60 + 30);
  EXPECT_EQ(longest.task, 5 * (20 + 30));
  EXPECT_EQ(longest.reboot, 2 * 60);  // no retry rule
  EXPECT_EQ(longest.LocalUpdate(), 165 + 2 * 3660 + 250 + 210 + 120);
  EXPECT_EQ(longest.ShareUpdate(), longest.LocalUpdate() + 210 + 600);

  rules.backoff_strategy = "fixed";
  rules.reboot_rules = {{503, RebootAction::retry_reboot},
                        {202, RebootAction::poll_task}};
  rules.activation_rules = {{202, ActivationAction::poll_task}};
  longest = LongestTimesOf(rules);
  EXPECT_EQ(longest.upload, 2 * (3 * 600 + 20));
  EXPECT_EQ(longest.reboot, 2 * (3 * 60 + 20) + 250);
  EXPECT_EQ(longest.activation, 3 * 60 + 20 + 250);

  rules.reboot_required = false;
  EXPECT_EQ(LongestTimesOf(rules).reboot, 0);
}

TEST(LongestTimes, SaturateLikeTheWaits) {
  Config rules = SmallRules();
  rules.max_retries = 40;
  rules.sleep_time = 1;
  const double waits = 2147483647.0 + 9 * 2147483647.0;  // 2^0 + ... + 2^30
  EXPECT_EQ(LongestTimesOf(rules).simple_update, 41 * 60 + waits);
}

TEST(Explanation, DescribesEachPhase) {
  Config rules = SmallRules();
  rules.upload_rules = {{202, UploadAction::track_task},
                        {0, UploadAction::retry_with_backoff},
                        {503, UploadAction::retry_with_backoff}};
  const std::string text = ExplainRules(rules);
  for (const char* part :
       {"up to 3 attempts, with waits of 10 s, 20 s between",
        "URI      /c\n  then URI /d\n", "202: the image is accepted",
        "no response, 503: sends the image again",
        "Up to 5 polls, with a wait of 20 s before each",
        "After an upload, activation and reboot follow a failed task anyway",
        "if there is no response, the inventory fails",
        "2 h 14 min with --file, 2 h 27 min with --image"}) {
    EXPECT_THAT(text, testing::HasSubstr(part));
  }
}

// In both directions: the library accepts what the schema allows, and no more.
TEST(Schema, NamesTheLibrarysActions) {
  const auto schema = nlohmann::json::parse(kRulesSchema);
  const auto names = [&schema](const std::string& table) {
    const auto& update = schema.at("properties").at("firmware_update");
    return update
        .at(nlohmann::json::json_pointer(table + "/additionalProperties/enum"))
        .get<std::vector<std::string_view>>();
  };
  EXPECT_EQ(names("/properties/inventory_rules"),
            ActionNames<InventoryAction>());
  EXPECT_EQ(names("/properties/multipart_update/properties/upload_rules"),
            ActionNames<UploadAction>());
  EXPECT_EQ(names("/properties/task_monitoring/properties/task_states"),
            ActionNames<TaskAction>());
  EXPECT_EQ(names("/properties/activation/properties/activation_rules"),
            ActionNames<ActivationAction>());
  EXPECT_EQ(names("/properties/reboot/properties/reboot_rules"),
            ActionNames<RebootAction>());
}

}  // namespace
}  // namespace quorvane::tool
