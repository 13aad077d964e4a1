// SPDX-License-Identifier: Apache-2.0
// What the phases read from the body of a response.
#include "update/response_body.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace quorvane::test {
namespace {

TEST(ResponseBody, ErrorMessage) {
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

TEST(ResponseBody, TaskIdOrLastSegmentOfUri) {
  struct Case {
    const char *uri, *body, *id;
  };
  const std::vector<Case> cases = {
      {"/Tasks/T1", R"({"Id":"T2"})", "T2"},
      {"/Tasks/T1", R"({"Id":""})", ""},
      {"/Tasks/T1", R"({"Id":2})", "T1"},
      {"/Tasks/T1", R"({"id":"T2"})", "T1"},
      {"/Tasks/T1", "", "T1"},
      {"/Tasks/T1?token=a", "", "T1?token=a"},
      {"https://u:p@host", "", "u:p@host"},
      {"/Tasks/", "", ""},
      {"T1", "", ""},
      {"", "", ""},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(ExtractTaskId(row.uri, row.body), row.id)
        << row.uri << ' ' << row.body;
  }
}

TEST(ResponseBody, TaskUri) {
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
           // The first message that meets all conditions.
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

}  // namespace
}  // namespace quorvane::test
