// SPDX-License-Identifier: Apache-2.0
// Rules files: what is found in them, and how long they let an update take.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/quorvane/rules/check.h"
#include "tools/quorvane/rules/explain.h"
#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

std::string InstalledRules() {
  std::ifstream file(QUORVANE_SOURCE_DIR "/config/brindle.config.json");
  return {std::istreambuf_iterator<char>(file), {}};
}

// "LINE:COLUMN TEXT" for each finding.
std::vector<std::string> LintOf(const std::string& rules) {
  std::vector<std::string> told;
  for (const Finding& finding : LintRules(rules)) {
    told.push_back(fmt::format("{}:{} {}", finding.place.line,
                               finding.place.column, finding.text));
  }
  return told;
}

// A row changes one text in the installed rules, which are clean.
struct LintCase {
  const char* name;
  std::string find, replacement;
  const char* finding;
};
class Lint : public testing::TestWithParam<LintCase> {};

TEST_P(Lint, Finds) {
  std::string rules = InstalledRules();
  const std::size_t at = rules.find(GetParam().find);
  ASSERT_NE(at, std::string::npos);
  rules.replace(at, GetParam().find.size(), GetParam().replacement);
  EXPECT_THAT(LintOf(rules),
              testing::ElementsAre(testing::StartsWith(GetParam().finding)));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Lint,
    testing::ValuesIn(std::vector<LintCase>{
        {"unknown_key", R"("sleep_time": 5)", R"("sleeptime": 5)",
         R"(11:5 "retry_config" has no key "sleeptime"; it is ignored; did )"
         R"(you mean "sleep_time"?)"},
        {"wrong_type", R"("sleep_time": 5)", R"("sleep_time": "5")",
         R"(11:19 "sleep_time" is of type string, not integer, and)"},
        {"fraction", R"("sleep_time": 5)", R"("sleep_time": 5.5)",
         R"(11:19 "sleep_time" is of type number)"},
        {"key_twice", R"("200": "validate)",
         R"("404": "retry_inventory", "200": "validate)",
         R"(21:7 "404" stands here again)"},
        {"misspelt_action", R"("track_task")", R"("track_tsk")",
         R"(34:16 "200" cannot be "track_tsk"; did you mean "track_task"?)"},
        {"refused_login_in_the_inventory", R"("404": "fail_or)",
         R"("401": "fail_or)", "21:7 The rule for 401 has no effect here"},
        {"absent_endpoint_in_uploads", R"("413":)", R"("405":)",
         "39:9 The rule for 405 has no effect here"},
        {"absent_action", R"("400": "retry_activation")",
         R"("404": "retry_activation")",
         "74:9 The rule for 404 has half its effect here"},
        {"unnamed_success", R"("204": "check_reboot")", R"("205": "poll_task")",
         "70:27 No rule names 204: a request that is granted"},
        {"no_status", R"("500": "retry_inventory")",
         R"("5xx": "retry_inventory")", R"(22:7 "5xx" is no HTTP status)"},
        {"unknown_state", R"("Running")", R"("Runing")",
         R"(51:9 "Runing" is no TaskState of Redfish; did you mean "Running"?)"},
        {"final_state_watched_on", R"("Killed": "restart_upload")",
         R"("Killed": "continue_polling")", "59:19 A task in Killed"},
        {"uri_without_a_slash", R"("/FWUpdate")", R"("FWUpdate")",
         R"(31:9 The URI "FWUpdate" does not begin with "/")"},
        {"long_wait", R"("sleep_time": 5)", R"("sleep_time": 90000)",
         "11:19 sleep_time is longer than a day (1 d 1 h)"},
        {"long_doubled_wait", R"("max_retries": 3)", R"("max_retries": 20)",
         "10:20 The last of 20 doubled waits"},
        {"long_watch", R"("max_polling_time_seconds": 3600)",
         R"("max_polling_time_seconds": 100000)",
         "47:35 max_polling_time_seconds is longer"},
        {"no_poll_at_all", R"("max_polling_time_seconds": 3600)",
         R"("max_polling_time_seconds": 29)",
         "44:24 max_polling_time_seconds (29) is less than"},
        {"no_json", R"("target": {)", R"("target" {)", "6:12 This is no JSON"},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Lint, InstalledRulesAreClean) {
  EXPECT_THAT(LintOf(InstalledRules()), testing::IsEmpty());
}

TEST(Lint, SurvivesRulesCutOffAnywhere) {
  const std::string rules = InstalledRules();
  for (std::size_t length = 0; length + 2 < rules.size(); ++length) {
    ASSERT_EQ(LintOf(rules.substr(0, length)).size(), 1U) << length;
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

TEST(LongestTimes, AddUpTriesTimeOutsWaitsAndPolls) {
  Config rules = SmallRules();
  LongestTimes longest = LongestTimesOf(rules);
  EXPECT_EQ(longest.inventory, 3 * 3 * 15 + 10 + 20);
  EXPECT_EQ(longest.upload, 2 * (3 * 600 + 30));
  EXPECT_EQ(longest.simple_update, 3 * 60 + 30);
  EXPECT_EQ(longest.activation, 3 * 60 + 30);
  EXPECT_EQ(longest.task, 5 * (20 + 30));
  EXPECT_EQ(longest.restart, 2 * 60);  // no rule asks again
  EXPECT_EQ(longest.LocalRoad(), 165 + 2 * 3660 + 250 + 210 + 120);
  EXPECT_EQ(longest.ShareRoad(), longest.LocalRoad() + 210 + 600);

  rules.backoff_strategy = "fixed";
  rules.reboot_rules = {{503, RebootAction::retry_reboot},
                        {202, RebootAction::poll_task}};
  rules.activation_rules = {{202, ActivationAction::poll_task}};
  longest = LongestTimesOf(rules);
  EXPECT_EQ(longest.upload, 2 * (3 * 600 + 20));
  EXPECT_EQ(longest.restart, 2 * (3 * 60 + 20) + 250);
  EXPECT_EQ(longest.activation, 3 * 60 + 20 + 250);

  rules.reboot_required = false;
  EXPECT_EQ(LongestTimesOf(rules).restart, 0);
}

TEST(LongestTimes, SaturateLikeTheWaits) {
  Config rules = SmallRules();
  rules.max_retries = 40;
  rules.sleep_time = 1;
  const double waits = 2147483647.0 + 9 * 2147483647.0;  // 2^0 + ... + 2^30
  EXPECT_EQ(LongestTimesOf(rules).simple_update, 41 * 60 + waits);
}

TEST(Explanation, SaysWhatFollowsFromEachAnswer) {
  Config rules = SmallRules();
  rules.upload_rules = {{202, UploadAction::track_task},
                        {0, UploadAction::retry_with_backoff},
                        {503, UploadAction::retry_with_backoff}};
  const std::string told = ExplainRules(rules);
  for (const char* words :
       {"up to 3 times, with waits of 10 s, 20 s between",
        "Asks  /c\n  then  /d\n", "202: the image is taken",
        "no answer, 503: the image is sent again",
        "Polled up to 5 times, 20 s before each",
        "2 h 14 min with --file, 2 h 27 min with --image"}) {
    EXPECT_THAT(told, testing::HasSubstr(words));
  }
}

// Every spelling that the schema allows is one that the library takes.
TEST(Schema, NamesTheLibrarysActions) {
  const auto& update =
      RulesSchema().at("properties").at("firmware_update").at("properties");
  const auto each = [](const auto& table, auto parse) {
    for (const auto& name : table.at("additionalProperties").at("enum")) {
      EXPECT_NO_THROW(parse(name.template get<std::string>())) << name;
    }
  };
  const auto inside = [&](const char* section, const char* table) -> auto& {
    return update.at(section).at("properties").at(table);
  };
  each(update.at("inventory_rules"), InvActionFromString);
  each(inside("multipart_update", "upload_rules"), UploadActionFromString);
  each(inside("task_monitoring", "task_states"), TaskActionFromString);
  each(inside("activation", "activation_rules"), ActivationActionFromString);
  each(inside("reboot", "reboot_rules"), RebootActionFromString);
}

}  // namespace
}  // namespace quorvane::tool
