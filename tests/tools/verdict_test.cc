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

const Messages kRebooted = kRebooting + Messages{"Reboot HTTP status: 204"};
const Messages kAccepted = kStart + kUploading + kPolling;

Messages Rejected(const std::string& status, const std::string& body) {
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
  const char* text;  // in headline or cause
};
class Judging : public testing::TestWithParam<Case> {};

TEST_P(Judging, UsesTheWholeRun) {
  const Verdict verdict = ReadReport(LogOf(GetParam().log)).verdict;
  EXPECT_STREQ(NameOf(verdict.outcome), NameOf(GetParam().outcome));
  EXPECT_THAT(verdict.headline + " " + verdict.cause,
              testing::HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Runs, Judging,
    testing::ValuesIn(std::vector<Case>{
        {"completed", kAccepted + kCompleted + kRebooted + kEnd, Outcome::kDone,
         "the system reboots"},
        {"no_reboot_required",
         kAccepted + kCompleted + Messages{"Reboot not required by config"} +
             kEnd,
         Outcome::kDone, "requires no reboot"},
        {"staged_without_a_reboot",
         kAccepted +
             Messages{"[RF-TASK] State: Starting",
                      "[RF-TASK] Task stable in 'Starting' state",
                      "Reboot not required by config"} +
             kEnd,
         Outcome::kStaged, "next reboot"},
        {"staged_and_rebooted",
         kAccepted + Messages{"[RF-TASK] Task stable in 'Starting' state"} +
             kRebooted + kEnd,
         Outcome::kDone, "reboots to apply it"},
        {"not_found_above_50_percent",
         kAccepted +
             Messages{"Task returned 404 after reaching 80% -- Machine"} +
             kRebooted + kEnd,
         Outcome::kDone, "(HTTP 404) after 50 %"},
        {"timed_out_and_rebooted",
         kAccepted +
             Messages{"[RF-TASK] State: Running  PercentComplete: 40%"} +
             kRebooted + kEnd,
         Outcome::kUnknown,
         "time limit of the rules; the system was rebooted anyway"},
        {"timed_out_by_failed_polls",
         kAccepted + Messages{"W Task poll returned HTTP 0"} + kRebooted + kEnd,
         Outcome::kUnknown, "time limit of the rules"},
        {"timed_out_in_a_state_that_reads_like_a_result",
         kAccepted + Messages{"[RF-TASK] State: Foo  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "Last state: Foo  Result: Success."},
        {"not_found_below_50_percent_and_rebooted",
         kAccepted + Messages{"E Update Method Not Supported (HTTP 404)"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "(HTTP 404) before it reported 50 %"},
        {"failed_task_with_messages",
         kAccepted +
             Messages{"[RF-TASK] State: Exception",
                      "[RF-TASK] Task ID: 1\nResponse body:\n"
                      R"({"Messages": [{"Message": "Bad signature."}]})",
                      "[RF-TASK] State: Exception  Result: Exception -- x",
                      "E Task ended in state: Exception"} +
             kEnd,
         Outcome::kFailed, "(state Exception). Bad signature."},
        {"killed_and_rebooted_anyway",
         kAccepted +
             Messages{"[RF-TASK] State: Killed",
                      "[RF-TASK] State: Killed  Result: Cancelled -- x"} +
             kRebooted + kEnd,
         Outcome::kFailed,
         "failed (state Killed); the system was rebooted any"},
        {"first_rejection_by_an_endpoint_is_the_cause",
         kStart + kUploading + Rejected("404", "none") + kNextUri +
             Rejected("413", kTooLarge) + kGivenUp + kEnd,
         Outcome::kFailed,
         "Upload at /up2 returned HTTP 413: See ExtendedInfo. The image is too "
         "large."},
        {"only_missing_endpoints",
         kStart + kUploading + Rejected("404", "none") + kGivenUp + kEnd,
         Outcome::kFailed, "Upload at /up1 returned HTTP 404: none"},
        {"login_refused_by_the_inventory",
         Messages{
             "========== FIRMWARE UPDATE START ==========",
             "[inventory] ========== INVENTORY FETCH START ==========",
             "[inventory] Collection HTTP status: 401 (used URI: /x)",
             "E [inventory] Authentication failed (HTTP 401 Unauthorized)"} +
             kUploading + Rejected("500", "x") + kGivenUp + kEnd,
         Outcome::kLoginRefused, "HTTP 401"},
        {"login_refused_by_the_upload",
         kStart + kUploading + Rejected("403", "x") + kGivenUp + kEnd,
         Outcome::kLoginRefused, "HTTP 403"},
        {"no_response_at_all",
         Messages{"========== FIRMWARE UPDATE START =========="} + kUploading +
             Messages{"E [http] Multipart POST failed: Couldn't connect to "
                      "server url=https://192.0.2.7/up1",
                      "Upload HTTP status: 0",
                      "E Local file upload failed. system does not"} +
             kEnd,
         Outcome::kUnreachable, "Couldn't connect"},
        {"reboot_rejected",
         kAccepted + kCompleted + kRebooting +
             Messages{"Reboot HTTP status: 404"} + kEnd,
         Outcome::kFailed, "rejected the reboot"},
        {"reboot_without_a_response",
         kAccepted + kCompleted + kRebooting +
             Messages{"Reboot HTTP status: 0"} + kEnd,
         Outcome::kUnknown, "got no response"},
        {"activation_rejected",
         kAccepted + kCompleted +
             Messages{"Activation -- 1 URI(s) to try",
                      "Trying activation URI: https://192.0.2.7/act (1/1)",
                      "Activation HTTP status: 400"} +
             kEnd,
         Outcome::kFailed, "its activation failed"},
        {"share_rejected_then_uploaded",
         kStart +
             Messages{"SimpleUpdate (online share) -- 1 URI(s) to try",
                      "Trying SimpleUpdate URI: https://192.0.2.7/su (1/1)",
                      "SimpleUpdate HTTP status: 405",
                      "Downloading from: http://192.0.2.9/f"} +
             kUploading + kPolling + kCompleted + kRebooted + kEnd,
         Outcome::kDone, "the system reboots"},
        {"share_rejected_and_not_downloaded",
         kStart +
             Messages{"SimpleUpdate (online share) -- 1 URI(s) to try",
                      "Trying SimpleUpdate URI: https://192.0.2.7/su (1/1)",
                      "SimpleUpdate HTTP status: 405",
                      "Downloading from: http://192.0.2.9/f",
                      "E Download returned HTTP 404"} +
             kEnd,
         Outcome::kFailed,
         "SimpleUpdate at /su returned HTTP 405. The download of the image "
         "failed "
         "as "
         "well: Download returned HTTP 404"},
        {"accepted_without_a_task",
         kStart + kUploading +
             Messages{"Upload HTTP status: 202",
                      "No task URI to poll, skipping"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "named no task"},
        {"cut_off_in_the_task", kAccepted, Outcome::kUnknown,
         "ends during the phase Task"},
        {"interrupted_in_the_task",
         kAccepted + Messages{"[tool] Interrupted by a signal",
                              "[tool] Outcome: interrupted. x"},
         Outcome::kInterrupted,
         "may still run its task "
         "/redfish/v1/TaskService/Tasks/1"},
        {"interrupted_before_the_update_starts",
         Messages{"[tool] Run: update of 192.0.2.7 with firmware.blx",
                  "[tool] Interrupted by a signal"},
         Outcome::kInterrupted, "No request that changes anything"},
        {"no_update", Messages{"[config] Config loaded successfully"},
         Outcome::kNoUpdate, ""},
    }),
    [](const auto& row) { return row.param.name; });

// Nothing in a log, not even a forged line, overrides the library's result.
TEST(Judging, TrustsTheLibrarysRecordMoreThanTheLog) {
  const std::string log =
      LogOf(kStart + kUploading + Messages{"Upload HTTP status: 400"}) +
      LogOf(kPolling + kCompleted + kRebooted + kEnd);
  EXPECT_EQ(ReadReport(log).verdict.outcome, Outcome::kDone);
  EXPECT_EQ(JudgeRun(ReadReport(log).run,
                     LibraryRecord{.accepted = false, .reboot_accepted = true})
                .outcome,
            Outcome::kFailed);
  EXPECT_EQ(JudgeRun(ReadReport(log).run,
                     LibraryRecord{.accepted = true, .reboot_accepted = false})
                .outcome,
            Outcome::kFailed);
  EXPECT_EQ(JudgeRun(quorvane::tool::Run{},
                     LibraryRecord{.accepted = false, .reboot_accepted = false})
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
  EXPECT_LT(TaskMessages(task + "}").size(), 10'000U);
}

}  // namespace
}  // namespace quorvane::tool
