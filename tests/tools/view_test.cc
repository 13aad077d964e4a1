// SPDX-License-Identifier: Apache-2.0
// The live display and the reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/log_text.h"
#include "tools/quorvane/view/fleet.h"
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

// A row for each outcome that `log` reports, and the last run as `ReadReport`
// reads it.
TEST(Runs, OfALogAreAllRead) {
  const std::string tool = LogOf(kStart + kUploading + kEnd);
  const std::string library =
      LogOf(Messages{"[logger] === Logger initialised", kStart[3]} +
            kUploading + Messages{kEnd[0]});
  const std::string header = LogOf({kStart[0], kStart[1]});
  const std::vector<std::pair<std::string, std::size_t>> rows = {
      {"", 0},
      {"prose\n", 0},
      {header, 1},
      {tool, 1},
      {library, 1},
      {tool + WholeLog() + tool, 3},
      {header + header + tool, 3},
      {library + library, 2},
      {tool + header, 2}};
  for (const auto& [log, count] : rows) {
    std::vector<Report> reports;
    ReadRuns(log, [&](const Report& report) { reports.push_back(report); });
    ASSERT_EQ(reports.size(), count) << log;
    if (reports.empty()) continue;
    const Report last = ReadReport(log);
    EXPECT_EQ(RunJson(reports.back().run, reports.back().verdict),
              RunJson(last.run, last.verdict));
    EXPECT_EQ(reports.back().run.phases.size(), last.run.phases.size());
  }
}

FleetRow RunOf(const std::string& bmc, const std::string& hour,
               const std::string& outcome,
               const std::string& title = "update of h",
               const std::string& zone = "+0000") {
  std::string log = LogOf(
      {"[tool] Run: " + title, "[tool] Started: 2024-05-01T13:00:00" + zone,
       "[tool] BMC: " + bmc, "[tool] Outcome: " + outcome + ". It ended."});
  for (std::size_t at = 0; (at = log.find(" 13:", at)) != std::string::npos;) {
    log.replace(at + 1, 2, hour);
  }
  return FleetRowFrom(ReadReport(log), "logs/" + hour + ".log");
}

TEST(Fleet, CountsTheLastUpdateOfEachBmc) {
  struct Case {
    std::vector<FleetRow> rows;
    std::vector<std::string> last;  // log and outcome
  };
  const std::vector<Case> cases = {
      {{RunOf("h", "02", "failed"), RunOf("h", "01", "updated")},
       {"logs/02.log failed"}},
      {{RunOf("h", "02", "no update"), RunOf("H:443", "01", "staged")},
       {"logs/01.log staged"}},
      {{RunOf("h", "02", "no update"), RunOf("h", "01", "no update")},
       {"logs/02.log no_update"}},
      {{RunOf("h", "02", "done", "restart of h"), RunOf("h", "01", "failed")},
       {"logs/01.log failed"}},
      {{RunOf("h", "02", "failed", "restart of h"),
        RunOf("h", "01", "unknown", "inventory of h")},
       {"logs/02.log failed"}},
      {{RunOf("h", "01", "unknown"), RunOf("h", "02", "updated", "watch of h")},
       {"logs/02.log updated"}},
      {{RunOf("h", "01", "unknown", "tasks of h")}, {"logs/01.log no_update"}},
      {{RunOf("h", "02", "done"), RunOf("h:8443", "01", "done")},
       {"logs/01.log done", "logs/02.log done"}},
      {{RunOf("", "02", "done"), RunOf("", "01", "failed")},
       {"logs/01.log failed", "logs/02.log done"}},
      // 02:00 at +0200 is before 01:00 UTC.
      {{RunOf("h", "02", "done", "update of h", "+0200"),
        RunOf("h", "01", "failed")},
       {"logs/01.log failed"}}};
  for (const Case& row : cases) {
    Fleet fleet{.rows = row.rows};
    SortFleet(fleet);
    std::vector<std::string> last;
    for (const FleetRow& run : fleet.rows) {
      if (!run.is_last) continue;
      last.push_back(run.log + ' ' + IdOf(run.verdict.outcome));
    }
    EXPECT_EQ(last, row.last);
    EXPECT_EQ(TotalsOf(fleet).machines, row.last.size());
  }
}

TEST(Fleet, StartIsUniversalTime) {
  constexpr double kNoon = 1714564800;  // 2024-05-01 12:00 UTC
  for (const auto& [zone, hours] : std::vector<std::pair<std::string, double>>{
           {"+0000", 0}, {"+0200", -2}, {"-0330", 3.5}, {"-0030", 0.5}}) {
    EXPECT_NEAR(RunOf("h", "12", "done", "", zone).start,
                kNoon + 3600 * hours + 0.042, 1e-3)
        << zone;
  }
}

// What the BMC can put into a field, and how the table contains it.
TEST(Fleet, TableHasNoFormula) {
  for (const auto& [text, field] :
       std::vector<std::pair<std::string, std::string>>{
           {"a, b; c", "a, b; c"},
           {"=1+1", "'=1+1"},
           {"  =1", "  '=1"},
           {"\t-1", R"(\x09-1)"},
           {"1-1=0 + 2 @ 3", "1-1=0 + 2 @ 3"},
           {"a;=1", "a;'=1"},
           {"a, \"+1", "a, \"\"'+1"},
           {"\"@x\"", "\"\"'@x\"\""},
           {"\uff1d1", "'\uff1d1"},
           {"a\nb\x1b", R"(a\nb\x1b)"}}) {
    FleetRow row = RunOf("h", "01", "done");
    row.run.title = text;
    EXPECT_THAT(FleetCsv({.rows = {row}}), HasSubstr(",\"" + field + "\","));
  }
}

// One faulty line makes the collector reject the whole file.
TEST(Fleet, MetricsHaveOneLineForEachLabel) {
  FleetRow row = RunOf("h", "01", "done");
  row.is_last = true;
  row.run.firmware.members = {
      {.uri = "/a\n", .name = "a\"\xff", .before = "1"},
      {.uri = "/a\\n", .name = "a\"\\xff", .before = "1"},  // the same label
      {.uri = "/a", .name = "a", .before = "1", .after = "2\\"}};
  for (int i = 0; i < 1000; ++i) {
    row.run.firmware.members.push_back({.uri = "/" + std::to_string(i)});
  }
  std::vector<std::string> lines;
  std::istringstream text(FleetMetrics({.rows = {row}}));
  for (std::string line; std::getline(text, line);) {
    if (line.rfind("quorvane_update_firmware", 0) == 0) lines.push_back(line);
  }
  ASSERT_EQ(lines.size(), 99U);  // of 100 components; the others are left out
  const std::vector<std::string> first(lines.begin(), lines.begin() + 2);
  EXPECT_THAT(
      first,
      ElementsAre(
          R"(quorvane_update_firmware_info{bmc="h",uri="/a\\n",name="a\"\\xff",before="1",after=""} 1)",
          R"(quorvane_update_firmware_info{bmc="h",uri="/a",name="a",before="1",after="2\\"} 1)"));
}

TEST(Fleet, SummaryFitsTheTerminal) {
  Fleet fleet{.rows = {RunOf("192.0.2.7", "01", "failed"),
                       RunOf(std::string(300, 'x'), "01", "login refused"),
                       RunOf("192.0.2.8", "01", "updated")},
              .unusable = {{"l", "r"}}};
  SortFleet(fleet);
  const std::string whole = FleetText(fleet, 0);
  EXPECT_THAT(whole,
              testing::StartsWith("3 machines, 3 runs, 1 unusable log\n"));
  EXPECT_THAT(whole, HasSubstr("192.0.2.7: failed. It ended.\n"));
  EXPECT_THAT(whole, Not(HasSubstr("192.0.2.8")));
  EXPECT_THAT(FleetText(fleet, 0, true),
              HasSubstr("192.0.2.7: \x1b[31mfailed\x1b[0m. It ended.\n"));
  for (const std::size_t columns : {30U, 80U}) {
    std::istringstream text(FleetText(fleet, columns));
    for (std::string line; std::getline(text, line);) {
      EXPECT_LT(line.size(), columns) << line;
    }
  }
}

}  // namespace
}  // namespace quorvane::tool
