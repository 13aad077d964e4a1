// SPDX-License-Identifier: Apache-2.0
// How a run is judged, whatever its last message says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/log_text.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

using Outcome = Verdict::Outcome;

const Messages kRestarted = kRestarting + Messages{"Reboot HTTP status: 204"};
const Messages kTaken = kStart + kUploading + kWatching;

Messages Refused(const std::string& status, const std::string& body) {
  return {"Upload HTTP status: " + status, "Upload response body: " + body};
}
const Messages kNextUri = {"Trying upload URI: https://192.0.2.7/up2 (2/2)"};
const Messages kGivenUp = {
    "Binary upload fallback -- 2 URI(s) to try",
    "Trying binary upload URI: https://192.0.2.7/up1 (1/2)",
    "Binary upload HTTP status: 404", "Binary upload response body: gone",
    "E Local file upload failed. system does not support local file upload"};
const std::string kTooLarge =
    R"({"error": {"message": "See ExtendedInfo.", "@Message.ExtendedInfo": )"
    R"([{"Message": "The image is too large."}]}})";

struct Case {
  const char* name;
  Messages log;
  Outcome outcome;
  const char* told;  // in headline or cause
};
class Judging : public testing::TestWithParam<Case> {};

TEST_P(Judging, FromTheWholeRun) {
  const Verdict verdict = ReadReport(LogOf(GetParam().log)).verdict;
  EXPECT_STREQ(NameOf(verdict.outcome), NameOf(GetParam().outcome));
  EXPECT_THAT(verdict.headline + " " + verdict.cause,
              testing::HasSubstr(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(
    Roads, Judging,
    testing::ValuesIn(std::vector<Case>{
        {"completed", kTaken + kCompleted + kRestarted + kEnd, Outcome::kDone,
         "the system restarts"},
        {"no_restart_wanted",
         kTaken + kCompleted + Messages{"Reboot not required by config"} + kEnd,
         Outcome::kDone, "want no restart"},
        {"staged_without_a_restart",
         kTaken +
             Messages{"[RF-TASK] State: Starting",
                      "[RF-TASK] Task stable in 'Starting' state",
                      "Reboot not required by config"} +
             kEnd,
         Outcome::kStaged, "next restart"},
        {"staged_and_restarted",
         kTaken + Messages{"[RF-TASK] Task stable in 'Starting' state"} +
             kRestarted + kEnd,
         Outcome::kDone, "under way"},
        {"gone_past_half_way",
         kTaken + Messages{"Task returned 404 after reaching 80% -- Machine"} +
             kRestarted + kEnd,
         Outcome::kDone, "as far as the BMC lets see"},
        {"timed_out_and_restarted",
         kTaken + Messages{"[RF-TASK] State: Running  PercentComplete: 40%"} +
             kRestarted + kEnd,
         Outcome::kUnknown,
         "in the time that the rules give it; the system "
         "was restarted all the same"},
        {"timed_out_by_failed_polls",
         kTaken + Messages{"W Task poll returned HTTP 0"} + kRestarted + kEnd,
         Outcome::kUnknown, "in the time"},
        {"timed_out_in_a_state_that_reads_like_a_result",
         kTaken + Messages{"[RF-TASK] State: Foo  Result: Success"} +
             kRestarted + kEnd,
         Outcome::kUnknown, "Last state: Foo  Result: Success."},
        {"vanished_early_and_restarted",
         kTaken + Messages{"E Update Method Not Supported (HTTP 404)"} +
             kRestarted + kEnd,
         Outcome::kUnknown, "vanished before half way"},
        {"failed_task_tells_its_messages",
         kTaken +
             Messages{"[RF-TASK] State: Exception",
                      "[RF-TASK] Task ID: 1\nResponse body:\n"
                      R"({"Messages": [{"Message": "Bad signature."}]})",
                      "[RF-TASK] State: Exception  Result: Exception -- x",
                      "E Task ended in state: Exception"} +
             kEnd,
         Outcome::kFailed, "Exception. Bad signature."},
        {"killed_and_restarted_all_the_same",
         kTaken +
             Messages{"[RF-TASK] State: Killed",
                      "[RF-TASK] State: Killed  Result: Cancelled -- x"} +
             kRestarted + kEnd,
         Outcome::kFailed, "ended in Killed; the system was restarted all the"},
        {"first_real_refusal_is_the_cause",
         kStart + kUploading + Refused("404", "none") + kNextUri +
             Refused("413", kTooLarge) + kGivenUp + kEnd,
         Outcome::kFailed,
         "Upload at /up2 was answered 413: See ExtendedInfo. The image is too "
         "large."},
        {"absent_endpoints_alone",
         kStart + kUploading + Refused("404", "none") + kGivenUp + kEnd,
         Outcome::kFailed, "Upload at /up1 was answered 404: none"},
        {"login_refused_by_the_inventory",
         Messages{
             "========== FIRMWARE UPDATE START ==========",
             "[inventory] ========== INVENTORY FETCH START ==========",
             "[inventory] Collection HTTP status: 401 (used URI: /x)",
             "E [inventory] Authentication failed (HTTP 401 Unauthorized)"} +
             kUploading + Refused("500", "x") + kGivenUp + kEnd,
         Outcome::kLoginRefused, "HTTP 401"},
        {"login_refused_by_the_upload",
         kStart + kUploading + Refused("403", "x") + kGivenUp + kEnd,
         Outcome::kLoginRefused, "HTTP 403"},
        {"no_answer_at_all",
         Messages{"========== FIRMWARE UPDATE START =========="} + kUploading +
             Messages{"E [http] Multipart POST failed: Couldn't connect to "
                      "server url=https://192.0.2.7/up1",
                      "Upload HTTP status: 0",
                      "E Local file upload failed. system does not"} +
             kEnd,
         Outcome::kUnreachable, "Couldn't connect"},
        {"restart_refused",
         kTaken + kCompleted + kRestarting +
             Messages{"Reboot HTTP status: 404"} + kEnd,
         Outcome::kFailed, "refused to restart"},
        {"restart_without_an_answer",
         kTaken + kCompleted + kRestarting + Messages{"Reboot HTTP status: 0"} +
             kEnd,
         Outcome::kUnknown, "got no answer"},
        {"activation_refused",
         kTaken + kCompleted +
             Messages{"Activation -- 1 URI(s) to try",
                      "Trying activation URI: https://192.0.2.7/act (1/1)",
                      "Activation HTTP status: 400"} +
             kEnd,
         Outcome::kFailed, "refused to activate"},
        {"share_refused_then_uploaded",
         kStart +
             Messages{"SimpleUpdate (online share) -- 1 URI(s) to try",
                      "Trying SimpleUpdate URI: https://192.0.2.7/su (1/1)",
                      "SimpleUpdate HTTP status: 405",
                      "Downloading from: http://192.0.2.9/f"} +
             kUploading + kWatching + kCompleted + kRestarted + kEnd,
         Outcome::kDone, "the system restarts"},
        {"share_refused_and_not_downloaded",
         kStart +
             Messages{"SimpleUpdate (online share) -- 1 URI(s) to try",
                      "Trying SimpleUpdate URI: https://192.0.2.7/su (1/1)",
                      "SimpleUpdate HTTP status: 405",
                      "Downloading from: http://192.0.2.9/f",
                      "E Download returned HTTP 404"} +
             kEnd,
         Outcome::kFailed,
         "SimpleUpdate at /su was answered 405. The image could not be "
         "downloaded here either: Download returned HTTP 404"},
        {"taken_for_later_without_a_task",
         kStart + kUploading +
             Messages{"Upload HTTP status: 202",
                      "No task URI to poll, skipping"} +
             kRestarted + kEnd,
         Outcome::kUnknown, "named no task"},
        {"cut_off_in_the_task", kTaken, Outcome::kUnknown,
         "breaks off in the "
         "phase Task"},
        {"interrupted_in_the_task",
         kTaken + Messages{"[tool] Interrupted by a signal",
                           "[tool] Outcome: interrupted. x"},
         Outcome::kInterrupted,
         "goes on with its task "
         "/redfish/v1/TaskService/Tasks/1"},
        {"interrupted_before_the_update_starts",
         Messages{"[tool] Run: update of 192.0.2.7 with firmware.blx",
                  "[tool] Interrupted by a signal"},
         Outcome::kInterrupted, "not yet asked"},
        {"no_update", Messages{"[config] Config loaded successfully"},
         Outcome::kNoUpdate, ""},
    }),
    [](const auto& row) { return row.param.name; });

// Nothing in a log, forged lines included, outweighs the library's record.
TEST(Judging, TrustsTheLibrarysRecordMoreThanTheLog) {
  const std::string log =
      LogOf(kStart + kUploading + Messages{"Upload HTTP status: 400"}) +
      LogOf(kWatching + kCompleted + kRestarted + kEnd);
  EXPECT_EQ(ReadReport(log).verdict.outcome, Outcome::kDone);
  EXPECT_EQ(JudgeRun(ReadReport(log).run,
                     LibraryRecord{.accepted = false, .restart_accepted = true})
                .outcome,
            Outcome::kFailed);
  EXPECT_EQ(JudgeRun(ReadReport(log).run,
                     LibraryRecord{.accepted = true, .restart_accepted = false})
                .outcome,
            Outcome::kFailed);
  EXPECT_EQ(
      JudgeRun(quorvane::tool::Run{},
               LibraryRecord{.accepted = false, .restart_accepted = false})
          .outcome,
      Outcome::kUnreachable);
}

TEST(Judging, ReadsATaskOfManyMessagesInLinearTime) {
  std::string task = R"({"Messages": [)";
  for (int i = 0; i < 20'000; ++i) {
    task +=
        R"({"Message": ")" + std::string(40, 'm') + std::to_string(i) + "\"},";
  }
  task.back() = ']';
  EXPECT_LT(TaskWords(task + "}").size(), 10'000U);
}

}  // namespace
}  // namespace quorvane::tool
