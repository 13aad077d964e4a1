// SPDX-License-Identifier: Apache-2.0
// Faults that are found in a rules file, and how long an update can take.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
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

// "LINE:COLUMN TEXT" for each finding.
std::vector<std::string> FindingsOf(const std::string& rules) {
  std::vector<std::string> lines;
  for (const Finding& finding : CheckRules(rules)) {
    lines.push_back(fmt::format("{}:{} {}", finding.position.line,
                                finding.position.column, finding.text));
  }
  return lines;
}

// A row changes one text in the installed rules, which are clean.
struct CheckCase {
  const char* name;
  std::string find, replacement;
  const char* finding;
};
class RulesCheck : public testing::TestWithParam<CheckCase> {};

TEST_P(RulesCheck, Finds) {
  std::string rules = InstalledRules();
  const std::size_t at = rules.find(GetParam().find);
  ASSERT_NE(at, std::string::npos);
  rules.replace(at, GetParam().find.size(), GetParam().replacement);
  EXPECT_THAT(FindingsOf(rules),
              testing::ElementsAre(testing::StartsWith(GetParam().finding)));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RulesCheck,
    testing::ValuesIn(std::vector<CheckCase>{
        {"unknown_key", R"("sleep_time": 5)", R"("sleeptime": 5)",
         R"(11:5 "retry_config" has no key "sleeptime". It is ignored; did )"
         R"(you mean "sleep_time"?)"},
        {"missing_key", R"("type": "basic",)", "",
         R"(2:21 "authentication" has no key "type", which is required. Add)"},
        {"wrong_type", R"("sleep_time": 5)", R"("sleep_time": "5")",
         R"(11:19 "sleep_time" must be of type integer, not string.)"},
        {"fraction", R"("sleep_time": 5)", R"("sleep_time": 5.5)",
         R"(11:19 "sleep_time" must be of type integer, not number.)"},
        {"duplicate_key", R"("200": "validate)",
         R"("404": "retry_inventory", "200": "validate)",
         R"(21:7 "404" is a duplicate key.)"},
        {"misspelled_action", R"("track_task")", R"("track_tsk")",
         R"(34:16 "200" cannot be "track_tsk", so the file does not load. Use )"
         R"(track_task, retry_with_fix, )"
         R"(split_and_retry, retry_with_backoff; did you mean "track_task"?)"},
        {"unused_rule_of_the_inventory", R"("404": "fail_or)",
         R"("401": "fail_or)",
         "21:7 The rule for 401 has no effect: a refused login"},
        {"unused_rule_of_uploads", R"("413":)", R"("405":)",
         "39:9 The rule for 405 has no effect: the library always"},
        {"partly_used_rule_of_activations", R"("400": "retry_activation")",
         R"("404": "retry_activation")",
         "74:9 The rule for 404 affects only an activation"},
        {"success_without_a_rule", R"("204": "check_reboot")",
         R"("205": "poll_task")",
         "70:27 No rule for 204. A request that the BMC accepts with such a "
         "status is sent again. Add"},
        {"not_a_status", R"("500": "retry_inventory")",
         R"("5xx": "retry_inventory")", R"(22:7 "5xx" is not an HTTP status)"},
        {"unknown_state", R"("Running")", R"("Runing")",
         R"(51:9 "Runing" is not a Redfish TaskState (DMTF DSP2046), so the )"
         R"(rule probably never applies; did you mean "Running"?)"},
        {"final_state_polled", R"("Killed": "restart_upload")",
         R"("Killed": "continue_polling")",
         "59:19 A task does not leave the state Killed"},
        {"uri_without_a_slash", R"("/FWUpdate")", R"("FWUpdate")",
         R"(31:9 The URI "FWUpdate" does not begin with "/")"},
        {"long_wait", R"("sleep_time": 5)", R"("sleep_time": 90000)",
         "11:19 sleep_time is longer than a day (1 d 1 h)"},
        {"long_exponential_wait", R"("max_retries": 3)", R"("max_retries": 20)",
         "10:20 The last of 20 exponential waits"},
        {"long_polling", R"("max_polling_time_seconds": 3600)",
         R"("max_polling_time_seconds": 100000)",
         "47:35 max_polling_time_seconds is longer than a day"},
        {"no_poll", R"("max_polling_time_seconds": 3600)",
         R"("max_polling_time_seconds": 29)",
         "44:24 max_polling_time_seconds (29) is less than"},
        {"invalid_json", R"("target": {)", R"("target" {)",
         "6:12 Not valid JSON"},
    }),
    [](const auto& row) { return row.param.name; });

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
