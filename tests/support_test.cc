// SPDX-License-Identifier: Apache-2.0
// What the readers of the rules and of a BMC's answers share: the base URL, the
// wait before a retry, what an answer's body says, a document written to disk.
#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/derived.h"
#include "support/file.h"
#include "support/wait.h"
#include "tests/support/fixture.h"
#include "update/helpers.h"

namespace quorvane::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(BaseUrl, TakesTheIpBeforeTheIpv6) {
  Config config;
  config.ip = "192.0.2.1";
  EXPECT_EQ(BuildBaseUrl(config), "https://192.0.2.1");
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

TEST_F(RetryWait, IsFixedOrDoublesUpToTheLimit) {
  struct Case {
    const char* strategy;
    int sleep_time, attempt;
    long waited;
    const char* logged;
  };
  const std::vector<Case> cases = {
      {"exponential", 5, 0, 5, "Retrying in 5s (attempt 1/3)"},
      {"exponential", 5, 1, 10, "Retrying in 10s (attempt 2/3)"},
      {"exponential", 5, 2, 20, "Retrying in 20s (attempt 3/3)"},
      {"exponential", 1, 30, 1073741824,
       "Retrying in 1073741824s (attempt 31/3)"},
      {"exponential", 1, 31, INT_MAX, "Retrying in 2147483647s (attempt 32/3)"},
      {"exponential", INT_MAX, 0, INT_MAX,
       "Retrying in 2147483647s (attempt 1/3)"},
      {"exponential", 5, 100'000, INT_MAX,
       "Retrying in 2147483647s (attempt 100001/3)"},
      {"exponential", INT_MAX, INT_MAX, INT_MAX,
       "Retrying in 2147483647s (attempt 2147483648/3)"},
      {"fixed", 5, 2, 5, "Retrying in 5s (attempt 3/3)"},
      {"Exponential", 5, 2, 5, "Retrying in 5s (attempt 3/3)"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.logged);
    Config config;
    config.backoff_strategy = row.strategy;
    config.sleep_time = row.sleep_time;
    SleepBeforeRetry("update", config, row.attempt);
    EXPECT_EQ(Waits().back(), row.waited);
    EXPECT_EQ(Log("update").back(), row.logged);
  }
  EXPECT_EQ(Waits().size(), cases.size());
}

TEST_F(RetryWait, OfNothingIsToldButNotSlept) {
  Config config;
  config.sleep_time = 0;
  SleepBeforeRetry("inventory", config, 0);
  EXPECT_THAT(Log("inventory"), ElementsAre("Retrying in 0s (attempt 1/3)"));
  EXPECT_THAT(Waits(), IsEmpty());
}

TEST_F(RetryWait, GoesOnForTheRemainingTimeAfterASignal) {
  waits_.InterruptNext(2);
  SleepSeconds(5);
  EXPECT_THAT(Waits(), ElementsAre(5, 4, 3));
}

TEST(ErrorMessage, IsTheBmcsOwnWords) {
  struct Case {
    const char* name;
    std::string body;
    const char* message;
  };
  const std::vector<Case> cases = {
      {"inner before outer", R"({"error":{"message":"X"},"Message":"Y"})", "X"},
      {"outer alone", R"({"error":{"code":"c"},"Message":"Y"})", "Y"},
      {"inner is no text", R"({"error":{"message":5},"Message":"Y"})", "Y"},
      {"error is no object", R"({"error":"X","Message":"Y"})", "Y"},
      {"inner empty text counts", R"({"error":{"message":""},"Message":"Y"})",
       ""},
      {"letter case counts", R"({"error":{"Message":"X"},"message":"Y"})", ""},
      {"extended information is not read",
       R"({"error":{"@Message.ExtendedInfo":[{"Message":"X"}]}})", ""},
      {"an array", R"([{"Message":"Y"}])", ""},
      {"no JSON", "<html>Bad Request</html>", ""},
      {"cut short", R"({"Message":"Y")", ""},
      {"nested without end", std::string(100'000, '['), ""},
      {"empty", "", ""},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(ExtractErrorMessage(row.body), row.message) << row.name;
  }
}

TEST(TaskId, IsTheBodysIdElseTheLastSegment) {
  struct Case {
    const char *uri, *body, *id;
  };
  const std::vector<Case> cases = {
      {"/Tasks/T1", R"({"Id":"T2"})", "T2"},
      {"/Tasks/T1", R"({"Id":""})", ""},
      {"/Tasks/T1", R"({"Id":2})", "T1"},
      {"/Tasks/T1", R"({"id":"T2"})", "T1"},
      {"/Tasks/T1", "no JSON", "T1"},
      {"/Tasks/T1", "", "T1"},
      {"/T1", "", "T1"},
      {"/Tasks/", "", ""},
      {"T1", "", ""},
      {"", "", ""},
      {"", R"({"Id":"T2"})", "T2"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(ExtractTaskId(row.uri, row.body), row.id)
        << row.uri << ' ' << row.body;
  }
}

TEST(TaskUri, IsLookedForInTheBody) {
  struct Case {
    const char* name;
    std::vector<std::string> prefixes;
    std::string body, uri;
  };
  const auto messages = [](const std::string& list) {
    return R"({"Messages":)" + list + "}";
  };
  const std::vector<Case> cases = {
      {"link before Id", {"/p"}, R"({"@odata.id":"/t","Id":"T2"})", "/t"},
      {"empty link counts", {"/p"}, R"({"@odata.id":"","Id":"T2"})", ""},
      {"Id below the first prefix", {"/p", "/q"}, R"({"Id":"T2"})", "/p/T2"},
      {"Id without a prefix",
       {},
       R"({"@odata.id":7,"Id":"T2"})",
       "/redfish/v1/TaskService/Tasks/T2"},
      {"Id before messages",
       {"/p"},
       R"({"Messages":[{"MessageId":"Task.1","MessageArgs":["/m"]}],"Id":"3"})",
       "/p/3"},
      {"Task. anywhere in the MessageId",
       {},
       messages(R"([{"MessageId":"My.Task.1.0.New","MessageArgs":["/m"]}])"),
       "/m"},
      {"the first message that passes every test",
       {},
       messages(R"([5, {"MessageId":5,"MessageArgs":["/a"]},
                    {"MessageId":"Base.1","MessageArgs":["/b"]},
                    {"MessageId":"TaskEvent.1","MessageArgs":["/c"]},
                    {"MessageId":"Task.1"},
                    {"MessageId":"Task.1","MessageArgs":"/d"},
                    {"MessageId":"Task.1","MessageArgs":[]},
                    {"MessageId":"Task.1","MessageArgs":[1,"/e"]},
                    {"MessageId":"Task.1","MessageArgs":["/f","/g"]},
                    {"MessageId":"Task.2","MessageArgs":["/h"]}])"),
       "/f"},
      {"messages are no array", {}, messages(R"({"MessageId":"Task.1"})"), ""},
      {"nothing of use", {"/p"}, R"({"Name":"Task"})", ""},
      {"no JSON", {"/p"}, "accepted", ""},
      {"empty", {"/p"}, "", ""},
  };
  for (const Case& row : cases) {
    Config config;
    config.task_uri = row.prefixes;
    EXPECT_EQ(ExtractTaskUri(row.body, config), row.uri) << row.name;
  }
}

class Document : public LibraryTest {};

TEST_F(Document, ReplacesWhatWasThereAndTellsWhatFailed) {
  const std::string file = folder.Write("report.json", "something longer");
  EXPECT_TRUE(SaveDocument("update", file, "{}"));
  EXPECT_EQ(ReadAll(file), "{}");

  const std::string nowhere = folder.path() + "/none/report.json";
  EXPECT_FALSE(SaveDocument("inventory", nowhere, "{}"));
  EXPECT_FALSE(SaveDocument("update", "/dev/full", "{}"));
  EXPECT_THAT(Log(), ElementsAre("ERROR [inventory] Cannot open output file: " +
                                 nowhere));
}

}  // namespace
}  // namespace quorvane::test
