// SPDX-License-Identifier: Apache-2.0
// What the readers of the rules and of a BMC's answers share: the base URL, the
// wait before a retry, what an answer's body says, a document written to disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
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

TEST(BaseUrl, TakesTheIpBeforeTheIpv6) {
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

TEST_F(RetryWait, IsFixedOrDoublesUpToTheLimit) {
  struct Case {
    const char* strategy;
    int sleep_time, attempt, waited;
    const char* try_number;
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
    EXPECT_EQ(Waits().back(), row.waited);
    EXPECT_EQ(Log("update").back(), "Retrying in " +
                                        std::to_string(row.waited) +
                                        "s (attempt " + row.try_number + "/3)");
  }
  EXPECT_EQ(Waits().size(), 6);
  SleepSeconds(0);
  EXPECT_EQ(Waits().size(), 6);
}

TEST_F(RetryWait, GoesOnForTheRemainingTimeAfterASignal) {
  waits_.InterruptNext(2);
  SleepSeconds(5);
  EXPECT_THAT(Waits(), ElementsAre(5, 4, 3));
}

TEST(ErrorMessage, IsTheBmcsOwnWords) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"error":{"message":"X"},"Message":"Y"})", "X"},
      {R"({"error":{"code":"c"},"Message":"Y"})", "Y"},
      {R"({"error":{"message":5},"Message":"Y"})", "Y"},
      {R"({"error":"X","Message":"Y"})", "Y"},
      {R"({"error":{"message":""},"Message":"Y"})", ""},
      {R"({"error":{"Message":"X"},"message":"Y"})", ""},
      {R"({"error":{"@Message.ExtendedInfo":[{"Message":"X"}]}})", ""},
      {R"([{"Message":"Y"}])", ""},
      {R"({"Message":"Y")", ""},
      {std::string(100'000, '['), ""},
      {"", ""},
  };
  for (const auto& [body, message] : cases) {
    EXPECT_EQ(ExtractErrorMessage(body), message) << body;
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
      {"/Tasks/T1", "", "T1"},
      {"/Tasks/", "", ""},
      {"T1", "", ""},
      {"", "", ""},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(ExtractTaskId(row.uri, row.body), row.id)
        << row.uri << ' ' << row.body;
  }
}

TEST(TaskUri, IsLookedForInTheBody) {
  struct Case {
    std::vector<std::string> prefixes;
    std::string body, uri;
  };
  for (const Case& row : std::vector<Case>{
           {{"/p"}, R"({"@odata.id":"/t","Id":"T2"})", "/t"},
           {{"/p"}, R"({"@odata.id":"","Id":"T2"})", ""},
           {{"/p", "/q"}, R"({"Id":"T2"})", "/p/T2"},
           {{},
            R"({"@odata.id":7,"Id":"T2"})",
            "/redfish/v1/TaskService/Tasks/T2"},
           {{"/p"},
            R"({"Messages":[{"MessageId":"Task.1","MessageArgs":["/m"]}],
                "Id":"3"})",
            "/p/3"},
           // The first message that passes every test.
           {{},
            R"({"Messages":[5, {"MessageId":5,"MessageArgs":["/a"]},
                {"MessageId":"Base.1","MessageArgs":["/b"]},
                {"MessageId":"TaskEvent.1","MessageArgs":["/c"]},
                {"MessageId":"Task.1"},
                {"MessageId":"Task.1","MessageArgs":"/d"},
                {"MessageId":"Task.1","MessageArgs":[]},
                {"MessageId":"Task.1","MessageArgs":[1,"/e"]},
                {"MessageId":"My.Task.1.New","MessageArgs":["/f","/g"]},
                {"MessageId":"Task.2","MessageArgs":["/h"]}]})",
            "/f"},
           {{}, R"({"Messages":{"MessageId":"Task.1"}})", ""},
           {{"/p"}, "accepted", ""}}) {
    Config config;
    config.task_uri = row.prefixes;
    EXPECT_EQ(ExtractTaskUri(row.body, config), row.uri) << row.body;
  }
}

TEST(Document, ThatTheDiskDoesNotTakeIsNotSaved) {
  EXPECT_FALSE(SaveDocument("update", "/dev/full", "{}"));
}

TEST(Document, GoesToAPipeOnlyWhenItHasAReader) {
  const TempFolder folder;
  const std::string path = folder.path() + "/fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(SaveDocument("update", path, "{}"));
  const Descriptor reader(
      open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_TRUE(SaveDocument("update", path, "{}"));
  std::array<char, 3> text{};
  EXPECT_EQ(read(reader.get(), text.data(), text.size()), 2);
  EXPECT_STREQ(text.data(), "{}");
}

}  // namespace
}  // namespace quorvane::test
