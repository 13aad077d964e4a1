// SPDX-License-Identifier: Apache-2.0
// The live display and the reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/tools/log_text.h"
#include "tools/quorvane/view/progress.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

std::string WholeLog() {
  return LogOf(
      kStart + kUploading +
      Messages{"D [http] MULTIPART POST https://192.0.2.7/up1 file=/tmp/f",
               "D [http] MULTIPART POST https://192.0.2.7/up1 -> HTTP 503",
               "Upload HTTP status: 503",
               "Upload response body: <b>busy\x1b[2J",
               "W Upload returned 503, retrying with backoff",
               "Retrying in 5s (attempt 1/3)"} +
      kPolling + kCompletion + kRebooting +
      Messages{"Reboot HTTP status: 204"} + kEnd);
}

TEST(Report, OfAnIncompleteLogNeverReportsSuccess) {
  const std::string log = WholeLog();
  const std::size_t summary = log.find("========== FIRMWARE UPDATE SUMMARY");
  for (std::size_t length = 0; length < log.size(); ++length) {
    const Report report = ReadReport(log.substr(0, length));
    const bool is_done = report.verdict.outcome == Verdict::Outcome::kDone;
    ASSERT_TRUE(!is_done || length > summary) << length;
    ASSERT_THAT(report.verdict.next, Not(HasSubstr("[2024"))) << length;
    ASSERT_THAT(TextReport(report, length % 90), HasSubstr("Outcome: "))
        << length;
    ASSERT_THAT(HtmlReport(report), testing::EndsWith("</html>\n")) << length;
    ASSERT_TRUE(nlohmann::json::accept(JsonReport(report))) << length;
  }
  EXPECT_EQ(ReadReport(log).verdict.outcome, Verdict::Outcome::kDone);
}

TEST(Report, ShowsPhasesWaitsAndResponses) {
  const Report report = ReadReport(WholeLog());
  ASSERT_EQ(report.run.phases.size(), 4U);
  const PhaseRow upload = RowOf(report.run.phases[1]);
  EXPECT_EQ(upload.name, "Upload");
  EXPECT_EQ(upload.requests, "2 requests, URI 1 of 2");
  EXPECT_EQ(upload.responses, "503, 202");
  EXPECT_EQ(upload.waited, 1);  // the log states 5, but its clock advances by 1
  EXPECT_EQ(upload.result, "accepted");
  EXPECT_THAT(RowOf(report.run.phases[2]).responses,
              HasSubstr("Completed 100 %"));
  EXPECT_EQ(report.run.phases[1].attempt, 2);
}

TEST(Report, ShowsTheLastOfSeveralRuns) {
  const std::string once = LogOf(kStart + kUploading + kEnd);
  const Report report = ReadReport(once + once + WholeLog());
  EXPECT_EQ(report.run.earlier_runs, 2);
  EXPECT_EQ(report.verdict.outcome, Verdict::Outcome::kDone);
}

TEST(Report, PageLoadsNothingAndEscapesMarkup) {
  const std::string page = HtmlReport(ReadReport(
      LogOf(kStart + kUploading +
            Messages{"Upload HTTP status: 400",
                     "Upload response body: <script>alert('1')</script>\x1b[2J",
                     "W <img src=x onerror=y>"} +
            kEnd)));
  EXPECT_THAT(page, HasSubstr("default-src 'none'"));
  EXPECT_THAT(page, HasSubstr("base-uri 'none'; form-action 'none'"));
  EXPECT_THAT(page, HasSubstr("prefers-color-scheme: dark"));
  EXPECT_THAT(page, HasSubstr("&lt;script&gt;"));
  for (const char* absent : {"<script", "<img", "\x1b", "src=\"", "href="}) {
    EXPECT_THAT(page, Not(HasSubstr(absent)));
  }
}

// A row: the log so far, and the live block 12 seconds later.
TEST(LiveView, ShowsPhaseBarWaitAndElapsedTime) {
  const auto block = [](const Messages& messages, std::size_t columns) {
    const Report report = ReadReport(LogOf(messages));
    return LiveBlock(report.run, 4, report.run.end + 12, columns);
  };
  const Messages retrying =
      kStart + kUploading +
      Messages{"Upload HTTP status: 503", "Retrying in 20s (attempt 2/3)"};
  EXPECT_THAT(block(retrying, 80),
              ElementsAre("Upload       URI 1 of 2, attempt 3 of 4  /up1",
                          "next attempt in 8 s of 20 s", "elapsed 23 s"));
  EXPECT_THAT(
      block(kStart + kUploading + kPolling, 80),
      ElementsAre("Task         poll 2 of 2  /redfish/v1/TaskService/Tasks/1",
                  "[################------------------------]  40 %  Running",
                  "next poll in 18 s of 30 s", "elapsed 29 s"));
  // Half of an image in the 13 s since the request.
  const auto sent = [](const char* bytes) {
    return kStart + Messages{"Multipart upload -- 1 URI(s) to try",
                             "Trying upload URI: https://h/up1 (1/1)",
                             "D [http] MULTIPART POST https://h/up1 file=/fw",
                             bytes};
  };
  EXPECT_THAT(
      block(sent("D [progress] Sent 52428800 of 104857600 bytes"), 80),
      ElementsAre("Upload       URI 1 of 1, attempt 1 of 4  /up1",
                  "[####################--------------------]  50 %  50.0 of "
                  "100.0 MiB",
                  "sending, 3.8 MiB/s, 13 s left", HasSubstr("elapsed ")));
  EXPECT_THAT(block(sent("[tool] The request was sent completely."), 80),
              testing::Contains("image sent, the BMC processes it, 13 s"));
  const Messages far = {"Multipart upload -- 1 URI(s) to try",
                        "Trying upload URI: https://192.0.2.7/redfish/v1/"
                        "UpdateService/update-multipart (1/1)"};
  EXPECT_EQ(block(kStart + far, 60).front(),
            "Upload       URI 1 of 1, attempt 1 of 4  /redfish...ltipart");
  const Report begun = ReadReport(LogOf(kStart));
  EXPECT_EQ(LiveBlock(begun.run, 4, begun.run.begin + 1e12, 80).back(),
            "elapsed 11574074 d 1 h");
  for (const std::string& line : block(retrying, 20)) {
    EXPECT_LT(line.size(), 20U) << line;
  }
}

// What the display shows of a log, with the second of each line.
std::vector<std::string> LinesOf(const Messages& messages) {
  std::vector<std::string> lines;
  RunBuilder builder;
  StepLines steps;
  const auto add = [&lines](const std::vector<StepLine>& more) {
    for (const StepLine& line : more) lines.push_back(TextOf(line).substr(6));
  };
  ReadRecords(LogOf(messages), [&](const Record& record) {
    const Event event = EventFrom(record);
    builder.Add(event);
    add(steps.Add(event, builder.run()));
  });
  add(steps.Flush());
  return lines;
}

struct FailureCase {
  const char* name;
  Messages messages;
  std::vector<std::string> lines;
};
class FailureLines : public testing::TestWithParam<FailureCase> {};
TEST_P(FailureLines, ReportEachFailureOnce) {
  EXPECT_EQ(LinesOf(kUploading + GetParam().messages),
            (Messages{"01   Upload: /up1 (1 of 2)"} + GetParam().lines));
}
INSTANTIATE_TEST_SUITE_P(
    Rows, FailureLines,
    testing::ValuesIn(std::vector<FailureCase>{
        {"status_and_retry",
         {"Upload HTTP status: 503", "Upload response body: busy",
          "W Upload returned 503, retrying with backoff",
          "Retrying in 5s (attempt 1/3)"},
         {"04 ! Upload returned 503",
          "05   Waiting 5 s before retry (1 of 3)"}},
        {"last_attempt",
         {"Upload HTTP status: 413",
          "W Upload returned 413 (too large), retrying",
          "W Upload URI exhausted retries: /up1"},
         {"03 ! Upload returned 413 (too large)",
          "04 ! Upload URI exhausted retries: /up1"}},
        {"warning_that_explains_the_status",
         {"Upload HTTP status: 405",
          "W Upload returned 405 - endpoint not available, trying next URI"},
         {"03 ! Upload returned 405 - endpoint not available, trying next "
          "URI"}},
        {"warning_with_another_status",
         {"Upload HTTP status: 409", "W Upload returned 400, retrying"},
         {"02 ! Upload: HTTP 409"}},
        {"warning_without_a_reason",
         {"Upload HTTP status: 404",
          "W Reboot URI failed: /r, trying next URI"},
         {"02 ! Upload: HTTP 404"}},
        {"status_without_a_warning",
         {"Upload HTTP status: 405"},
         {"02   Upload: HTTP 405"}},
        {"no_response",
         {"E [http] POST failed: Timeout url=https://192.0.2.7/up1",
          "Upload HTTP status: 0",
          "W Upload returned 0, retrying with backoff"},
         {"02 ! Upload: POST failed: Timeout"}},
        {"no_response_with_a_reason",
         {"E [http] GET failed: Timeout url=https://192.0.2.7/x",
          "W [inventory] URI failed: /x (exception: GET failed: Timeout), "
          "trying next URI"},
         {"03 ! Upload: URI failed: /x (exception: GET failed: Timeout), "
          "trying next URI"}},
        {"no_response_to_a_poll",
         {"E [http] GET failed: Timeout url=https://192.0.2.7/t",
          "W Task poll returned HTTP 0"},
         {"02 ! Upload: GET failed: Timeout"}},
        {"retry_without_a_failure",
         {"W [inventory] 200 but empty body, retrying"},
         {"02 ! Upload: 200 but empty body"}},
        {"another_failure",
         {"E [http] GET failed: Timeout url=https://192.0.2.7/x",
          "Upload HTTP status: 503", "Upload HTTP status: 202"},
         {"02 ! Upload: GET failed: Timeout", "03   Upload: HTTP 503",
          "04   Upload: HTTP 202"}},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Outcome, HasAColorAndAWord) {
  const Report report = ReadReport(WholeLog());
  EXPECT_EQ(OutcomeText(report.verdict, "b", 0, false),
            TextOf(report.verdict, "b", 0));
  const std::string colored = OutcomeText(report.verdict, "b", 30, true);
  EXPECT_THAT(colored, testing::StartsWith("\x1b[32mOutcome: done (b)."));
  EXPECT_EQ(colored.find("\x1b[0m\n"), colored.find('\n') - 4);
}

}  // namespace
}  // namespace quorvane::tool
