// SPDX-License-Identifier: Apache-2.0
// How a run is judged, whatever its last message says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/log_text.h"
#include "tools/quorvane/run/facts.h"
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
const Messages kScheduled = {"[RF-TASK] State: Scheduled",
                             "[RF-TASK] Task stable in 'Scheduled' state"};
const Messages kActivating = {
    "Activation -- 1 URI(s) to try",
    "Trying activation URI: https://192.0.2.7/act (1/1)"};
const Messages kPolledAgain = {
    "[RF-UPDATE] Task created: /redfish/v1/TaskService/Tasks/1",
    "[RF-UPDATE] Polling interval: 30s",
    "[RF-TASK] Polling task (attempt 2/2)"};
const Messages kContinued = {"[tool] Continued: 2026-05-01T13:07:09+0200"};
const Messages kShare = {"SimpleUpdate (online share) -- 1 URI(s) to try",
                         "Trying SimpleUpdate URI: https://192.0.2.7/su (1/1)"};
const Messages kLost = {
    "E [http] Multipart POST failed: Timeout was reached "
    "url=https://192.0.2.7/up1",
    "Upload HTTP status: 0"};
const Messages kInventoryLost = {
    "[tool] Run: update of 192.0.2.7 with firmware.blx",
    "[tool] BMC: 192.0.2.7",
    "D [http] GET https://192.0.2.7/redfish/v1/",
    "D [http] GET https://192.0.2.7/redfish/v1/ -> HTTP 200",
    "[inventory] ========== INVENTORY FETCH START ==========",
    "[inventory] GET collection: https://192.0.2.7/x (URI 1/1)",
    "E [http] GET failed: Server returned nothing url=https://192.0.2.7/x"};
const std::string kTask = "[RF-TASK] Task ID: 1\nResponse body:\n";
const std::string kTooLarge =
    R"({"error": {"message": "See ExtendedInfo.", "@Message.ExtendedInfo": )"
    R"([{"Message": "The image is too large."}]}})";

struct Case {
  const char* name;
  Messages log;
  Outcome outcome;
  const char* text;                   // in headline or cause
  const char* next = "";              // in the next step
  const char* reboot_harm = nullptr;  // in the reason against a reboot
};
class Judging : public testing::TestWithParam<Case> {};

TEST_P(Judging, UsesTheWholeRun) {
  const Report report = ReadReport(LogOf(GetParam().log));
  const Verdict& verdict = report.verdict;
  EXPECT_STREQ(NameOf(verdict.outcome), NameOf(GetParam().outcome));
  EXPECT_THAT(verdict.headline + " " + verdict.cause,
              testing::HasSubstr(GetParam().text));
  EXPECT_THAT(verdict.next, testing::HasSubstr(GetParam().next));
  if (GetParam().reboot_harm != nullptr) {
    EXPECT_EQ(ReasonAgainstReboot(report.run), GetParam().reboot_harm);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Runs, Judging,
    testing::ValuesIn(std::vector<Case>{
        {"completed", kAccepted + kCompletion + kRebooted + kEnd,
         Outcome::kDone, "the system reboots", "", ""},
        {"completed_with_a_critical_status",
         kAccepted +
             Messages{"[RF-TASK] State: Completed",
                      kTask + R"({"TaskStatus": "Critical"})",
                      "[RF-TASK] State: Completed  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kFailed, "TaskStatus: Critical.", "",
         "the task reports a critical problem"},
        {"scheduled_with_a_critical_status",
         kAccepted +
             Messages{"[RF-TASK] State: Scheduled",
                      kTask + R"({"TaskStatus": "Critical"})",
                      "[RF-TASK] Task stable in 'Scheduled' state"} +
             kEnd,
         Outcome::kFailed, "waits for a reboot, but reports a critical", "",
         "the task reports a critical problem"},
        {"completed_with_a_critical_message",
         kAccepted +
             Messages{"[RF-TASK] State: Completed",
                      kTask + R"({"Messages": [{"Message": "Fine."}, )"
                              R"({"Message": "Bad CRC.", "Severity": )"
                              R"("Critical"}]})",
                      "[RF-TASK] State: Completed  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kFailed,
         "a critical problem; the BMC accepted a reboot of the system. Bad "
         "CRC."},
        {"completed_with_a_critical_message_that_is_not_utf8",
         kAccepted +
             Messages{"[RF-TASK] State: Completed",
                      kTask + "{\"Messages\": [{\"Message\": \"Bad \xff.\", "
                              "\"Severity\": \"Critical\"}]}",
                      "[RF-TASK] State: Completed  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kFailed, "a critical problem", "",
         "the task reports a critical problem"},
        {"completed_with_an_unreadable_body",
         kAccepted +
             Messages{"[RF-TASK] State: Completed", kTask + "{\"Messages\": [",
                      "[RF-TASK] State: Completed  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "cannot be read", "",
         "the status of the task cannot be read"},
        {"activated_at_once",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 204"} + kRebooted + kEnd,
         Outcome::kDone, "", "", ""},
        {"activation_that_polls_the_task_of_the_upload",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 202"} +
             Messages(kPolling.begin() + 2, kPolling.end()) + kCompletion +
             kRebooted + kEnd,
         Outcome::kUnknown, "accepted the activation (HTTP 202) but named no",
         "", "no task shows that the firmware was installed"},
        {"gateway_timeout",
         kStart + kUploading + Rejected("504", "x") + kGivenUp + kEnd,
         Outcome::kUnknown,
         "The BMC may install the image. Requests: Upload at /up1: "
         "HTTP 504"},
        {"completed_and_reboot_withheld",
         kAccepted + kCompletion +
             Messages{"[tool] No reboot: --restart is never"} + kEnd,
         Outcome::kDone, "--restart is never.",
         "`quorvane restart --bmc 192.0.2.7 --user admin`"},
        {"command_to_paste",
         Messages{"[tool] Run: update of bmc", "[tool] BMC: bmc",
                  "[tool] User: it's me",
                  "[tool] Rules: my rules (1).json (SHA-256 0f)",
                  "[tool] Forced: errors in the rules accepted"} +
             Messages(kStart.begin() + 3, kStart.end()) + kUploading +
             kPolling + kCompletion +
             Messages{"[tool] No reboot: --restart is never"} + kEnd,
         Outcome::kDone, "",
         "`quorvane restart --bmc bmc --user 'it'\\''s me' --rules 'my rules "
         "(1).json' --force`"},
        {"completed_by_a_rule_for_exception",
         kAccepted +
             Messages{"[RF-TASK] State: Exception",
                      "[RF-TASK] State: Exception  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kFailed, "failed (state Exception)", "", "the task failed"},
        {"completed_by_a_rule_for_running",
         kAccepted +
             Messages{"[RF-TASK] State: Running",
                      "[RF-TASK] State: Running  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "in the state Running", "",
         "the task may still run"},
        {"no_reboot_required",
         kAccepted + kCompletion + Messages{"Reboot not required by config"} +
             kEnd,
         Outcome::kDone, "requires no reboot"},
        {"scheduled_without_a_reboot",
         kAccepted + kScheduled + Messages{"Reboot not required by config"} +
             kEnd,
         Outcome::kStaged, "next reboot", "quorvane restart", ""},
        {"scheduled_and_rebooted", kAccepted + kScheduled + kRebooted + kEnd,
         Outcome::kUnknown, "The outcome is not known yet",
         "`quorvane inventory --bmc 192.0.2.7 --user admin`"},
        {"starting_and_rebooted",
         kAccepted +
             Messages{"[RF-TASK] State: Starting  PercentComplete: 5%",
                      "[RF-TASK] Task stable in 'Starting' state"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "in the state Starting; the BMC accepted a reboot",
         "`quorvane task /redfish/v1/TaskService/Tasks/1 --bmc 192.0.2.7",
         "the task may still run"},
        {"not_found_above_50_percent",
         kAccepted +
             Messages{"Task returned 404 after reaching 80% -- Machine"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "(HTTP 404) after 50 %", "compare the versions",
         ""},
        {"timed_out_and_rebooted",
         kAccepted +
             Messages{"[RF-TASK] State: Running  PercentComplete: 40%"} +
             kRebooted + kEnd,
         Outcome::kUnknown,
         "time limit of the rules; the BMC accepted a reboot"},
        {"timed_out_without_a_reboot",
         kAccepted +
             Messages{"[RF-TASK] State: Running  PercentComplete: 40%",
                      "[tool] No reboot: the task may still run"} +
             kEnd,
         Outcome::kUnknown,
         "rules; the system was not rebooted, because the task may still run.",
         "to reboot the system anyway, run `quorvane restart"},
        {"timed_out_by_refused_polls",
         kAccepted + Messages{"W Task poll returned HTTP 401"} + kRebooted +
             kEnd,
         Outcome::kUnknown,
         "Last state: Running. The last poll returned HTTP 401 (login "
         "refused)."},
        {"timed_out_by_polls_without_a_response",
         kAccepted +
             Messages{"E [http] GET failed: Timeout was reached url=https://x",
                      "W Task poll returned HTTP 0"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "no response: GET failed: Timeout was reached."},
        {"timed_out_in_a_state_that_reads_like_a_result",
         kAccepted + Messages{"[RF-TASK] State: Foo  Result: Success"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "Last state: Foo  Result: Success."},
        {"not_found_below_50_percent_and_rebooted",
         kAccepted + Messages{"E Update Method Not Supported (HTTP 404)"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "(HTTP 404) before it reported 50 %",
         "compare the versions",
         "the task disappeared before it reported 50 %"},
        {"failed_task_with_messages",
         kAccepted +
             Messages{
                 "[RF-TASK] State: Exception",
                 kTask + R"({"Messages": [{"Message": "Bad signature."}]})",
                 "[RF-TASK] State: Exception  Result: Exception -- x",
                 "E Task ended in state: Exception"} +
             kEnd,
         Outcome::kFailed, "(state Exception). Bad signature."},
        {"killed_and_rebooted",
         kAccepted +
             Messages{"[RF-TASK] State: Killed",
                      "[RF-TASK] State: Killed  Result: Cancelled -- x"} +
             kRebooted + kEnd,
         Outcome::kFailed,
         "failed (state Killed); the BMC accepted a reboot of the system"},
        {"killed_and_reboot_rejected",
         kAccepted +
             Messages{"[RF-TASK] State: Killed",
                      "[RF-TASK] State: Killed  Result: Cancelled -- x"} +
             kRebooting + Messages{"Reboot HTTP status: 409"} + kEnd,
         Outcome::kFailed, "the BMC rejected the reboot (HTTP 409)"},
        {"busy_once_then_rejected",
         kStart + kUploading + Rejected("503", "busy") +
             Messages{"Retrying in 1s (attempt 1/2)"} +
             Rejected("400", "Wrong model.") + kNextUri +
             Rejected("404", "none") + kGivenUp + kEnd,
         Outcome::kFailed,
         "Upload at /up1 returned HTTP 400: Wrong model. Other requests: "
         "Upload "
         "at /up1: HTTP 503 (busy); Upload at /up2: HTTP 404; Binary upload "
         "at /up1: HTTP 404."},
        {"busy_each_time",
         kStart + kUploading + Rejected("503", "busy") +
             Messages{"Retrying in 1s (attempt 1/2)"} +
             Rejected("503", "busy") + kGivenUp + kEnd,
         Outcome::kFailed,
         "Upload at /up1 returned HTTP 503, 2 times: busy. Other requests: "
         "Binary upload at /up1: HTTP 404."},
        {"rejection_by_an_endpoint_is_the_cause",
         kStart + kUploading + Rejected("404", "none") + kNextUri +
             Rejected("413", kTooLarge) + kGivenUp + kEnd,
         Outcome::kFailed,
         "Upload at /up2 returned HTTP 413: See ExtendedInfo. The image is too "
         "large."},
        {"only_missing_endpoints",
         kStart + kUploading + Rejected("404", "none") + kGivenUp + kEnd,
         Outcome::kFailed, "Binary upload at /up1 returned HTTP 404: gone",
         "No URI of the rules file accepts an image"},
        {"no_response_then_busy",
         kStart + kUploading + kLost + kNextUri + Rejected("503", "busy") +
             kGivenUp + kEnd,
         Outcome::kUnknown,
         "The BMC may install the image. Requests: Upload at /up1: sent, no "
         "response "
         "(Multipart POST failed: Timeout was reached); Upload at /up2: HTTP "
         "503",
         "Look for a new task"},
        {"no_response_accepted_by_a_rule",
         kStart + kUploading + kLost +
             Messages{"No task URI to poll, skipping"} + kRebooted + kEnd,
         Outcome::kUnknown, "; the BMC accepted a reboot"},
        {"not_sent_then_rejected",
         kStart + kUploading + Messages{"[tool] The request was not sent."} +
             kLost + kNextUri + Rejected("413", "x") + kGivenUp + kEnd,
         Outcome::kFailed, "Upload at /up1: not sent"},
        {"server_error_accepted_by_a_rule",
         kStart + kUploading +
             Messages{"Upload HTTP status: 500",
                      "No task URI to poll, skipping"} +
             kRebooted + kEnd,
         Outcome::kFailed, "Upload at /up1 returned HTTP 500"},
        {"server_error_with_a_task",
         kStart + kUploading + Messages{"Upload HTTP status: 500"} +
             Messages(kPolling.begin() + 2, kPolling.end()) + kCompletion +
             kRebooted + kEnd,
         Outcome::kUnknown, "HTTP 500, but the rules count that as accepted"},
        {"login_refused_by_the_inventory",
         Messages{
             "[tool] Run: update of 192.0.2.7 with firmware.blx",
             "[inventory] ========== INVENTORY FETCH START ==========",
             "[inventory] Collection HTTP status: 401 (used URI: /x)",
             "E [inventory] Authentication failed (HTTP 401 Unauthorized)"} +
             kEnd,
         Outcome::kLoginRefused, "HTTP 401", "can lock the account"},
        {"inventory_forbidden",
         Messages{"[tool] Run: update of 192.0.2.7 with firmware.blx",
                  "[inventory] ========== INVENTORY FETCH START ==========",
                  "[inventory] Collection HTTP status: 403 (used URI: /x)",
                  "E [inventory] Access denied (HTTP 403 Forbidden)"} +
             kEnd,
         Outcome::kLoginRefused, "so nothing was uploaded",
         "privileges to read the inventory"},
        {"inventory_unanswered", kInventoryLost + kEnd, Outcome::kUnreachable,
         "inventory, so nothing was uploaded. GET failed: Server returned"},
        {"inventory_answered_once",
         kInventoryLost +
             Messages{
                 "[inventory] GET collection: https://192.0.2.7/x (URI 1/1)",
                 "[inventory] Collection HTTP status: 503 (used URI: "
                 "/x)"} +
             kEnd,
         Outcome::kFailed, "ended before it sent a request"},
        {"inventory_forbidden_upload_too_large",
         Messages{"========== FIRMWARE UPDATE START ==========",
                  "[inventory] ========== INVENTORY FETCH START ==========",
                  "[inventory] Collection HTTP status: 403 (used URI: /x)",
                  "E [inventory] Access denied (HTTP 403 Forbidden)"} +
             kUploading + Rejected("413", "x") + kGivenUp + kEnd,
         Outcome::kFailed, "HTTP 413"},
        {"login_refused_by_the_upload",
         kStart + kUploading + Rejected("401", "x") + kEnd,
         Outcome::kLoginRefused,
         "accepted the account for the inventory, then refused the login (HTTP "
         "401)",
         "whether the account has the right for the refused request"},
        {"upload_forbidden",
         kStart + kUploading + Rejected("403", "x") + kGivenUp + kEnd,
         Outcome::kFailed, "HTTP 403", "privilege to update firmware"},
        {"no_response_at_all",
         Messages{"========== FIRMWARE UPDATE START =========="} + kUploading +
             Messages{"E [http] Multipart POST failed: Couldn't connect to "
                      "server url=https://192.0.2.7/up1",
                      "Upload HTTP status: 0",
                      "E Local file upload failed. system does not"} +
             kEnd,
         Outcome::kUnreachable, "Couldn't connect"},
        {"no_connection_for_the_image",
         kStart + kUploading +
             Messages{"[tool] The request was not sent.",
                      "E [http] Multipart POST failed: Couldn't connect to "
                      "server url=https://192.0.2.7/up1",
                      "Upload HTTP status: 0"} +
             kEnd,
         Outcome::kUnreachable, "No image reached it"},
        {"another_key",
         Messages{"[tool] Run: update of 192.0.2.7 with fw",
                  "[tool] BMC: 192.0.2.7",
                  "E [http] GET failed: SSL public key does not match pinned "
                  "public key url=https://192.0.2.7/redfish/v1/",
                  "[tool] Finished."},
         Outcome::kUnreachable, "is not the expected one", "`quorvane trust`"},
        {"reboot_rejected",
         kAccepted + kCompletion + kRebooting +
             Messages{"Reboot HTTP status: 404"} + kEnd,
         Outcome::kFailed,
         "but the BMC rejected the reboot. Reboot at /reset returned"},
        {"reboot_without_a_response_then_rejected",
         kAccepted + kCompletion + kRebooting +
             Messages{"Reboot HTTP status: 0", "Retrying in 1s (attempt 1/1)",
                      "Reboot HTTP status: 503"} +
             kEnd,
         Outcome::kUnknown, "got no response"},
        {"reboot_not_sent",
         kAccepted + kCompletion + kRebooting +
             Messages{"[tool] The request was not sent.",
                      "E [http] POST failed: Timeout was reached "
                      "url=https://192.0.2.7/reset",
                      "Reboot HTTP status: 0"} +
             kEnd,
         Outcome::kFailed, "reboot request did not reach", "quorvane restart"},
        {"only_a_reboot",
         Messages{"[tool] Run: restart of 192.0.2.7", "[tool] BMC: 192.0.2.7"} +
             kRebooted + kEnd,
         Outcome::kDone, "accepted the reboot"},
        {"only_a_reboot_with_a_wrong_password",
         Messages{"[tool] Run: restart of 192.0.2.7", "[tool] BMC: 192.0.2.7"} +
             kRebooting + Messages{"Reboot HTTP status: 401"} + kEnd,
         Outcome::kLoginRefused, "HTTP 401"},
        {"only_a_rejected_reboot",
         Messages{"[tool] Run: restart of 192.0.2.7", "[tool] BMC: 192.0.2.7"} +
             kRebooting + Messages{"Reboot HTTP status: 404"} + kEnd,
         Outcome::kFailed, "rejected the reboot. Reboot at /reset returned"},
        {"activation_rejected",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 400"} + kEnd,
         Outcome::kFailed, "its activation failed. Activation at /act returned",
         "", "the BMC did not accept the activation"},
        {"activation_without_a_response",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 0"} + kEnd,
         Outcome::kUnknown, "the response to its activation was lost"},
        {"activation_continues_the_task_which_fails",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 200"} + kPolledAgain +
             Messages{"[RF-TASK] State: Exception",
                      "[RF-TASK] State: Exception  Result: Exception -- x"} +
             kEnd,
         Outcome::kFailed, "The task failed (state Exception)"},
        {"activation_continues_the_task_which_does_not_end",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 200"} + kPolledAgain +
             Messages{"[RF-TASK] State: Running"} + kEnd,
         Outcome::kUnknown, "The task did not end within the time limit"},
        {"activation_after_which_the_finished_task_is_deleted",
         kAccepted + kCompletion + kActivating +
             Messages{"Activation HTTP status: 200"} + kPolledAgain +
             Messages{"Task returned 404 after reaching 100% -- Machine"} +
             kRebooted + kEnd,
         Outcome::kDone, "the system reboots"},
        {"continued_and_completed",
         kAccepted + kContinued + kPolledAgain + kCompletion + kRebooted + kEnd,
         Outcome::kDone, "the system reboots"},
        {"continued_after_an_interruption",
         kAccepted + Messages{"[tool] Interrupted by a signal."} + kEnd +
             kContinued + kPolledAgain + kCompletion + kEnd,
         Outcome::kDone, "no reboot was requested"},
        {"continued_without_the_activation",
         kStart + Messages{"[tool] Target: /redfish/v1/Bios"} + kUploading +
             kPolling + kCompletion + kContinued + kEnd,
         Outcome::kUnknown, "before it requested the activation",
         "quorvane tasks", "the activation was not requested"},
        {"continued_with_a_request_that_is_not_sent",
         kStart + kUploading + kContinued +
             Messages{"[tool] The request was not sent",
                      "E [http] GET failed: Couldn't connect to server "
                      "url=https://192.0.2.7/t"} +
             kEnd,
         Outcome::kUnknown, "a response was lost"},
        {"share_rejected_then_uploaded",
         kStart + kShare +
             Messages{"SimpleUpdate HTTP status: 405",
                      "Downloading from: http://192.0.2.9/f"} +
             kUploading + kPolling + kCompletion + kRebooted + kEnd,
         Outcome::kDone, "the system reboots"},
        {"share_rejected_and_not_downloaded",
         kStart + kShare +
             Messages{"SimpleUpdate HTTP status: 405",
                      "Downloading from: http://192.0.2.9/f",
                      "E Download returned HTTP 404"} +
             kEnd,
         Outcome::kFailed,
         "SimpleUpdate at /su returned HTTP 405. The download of the image "
         "failed as well: Download returned HTTP 404"},
        {"share_without_a_response_then_rejected",
         kStart + kShare +
             Messages{"E [http] POST failed: Timeout was reached url=https://x",
                      "Trying SimpleUpdate URI: https://192.0.2.7/s2 (2/2)",
                      "SimpleUpdate HTTP status: 404",
                      "Downloading from: http://192.0.2.9/f",
                      "E Download returned HTTP 404"} +
             kEnd,
         Outcome::kUnknown, "SimpleUpdate at /su: sent, no response"},
        {"interrupted_in_the_download_after_a_lost_response",
         kStart + kShare +
             Messages{"E [http] POST failed: Timeout was reached url=https://x",
                      "Downloading from: http://192.0.2.9/f",
                      "[tool] Interrupted by a signal."},
         Outcome::kInterrupted,
         "during the phase Download. The BMC may act on the SimpleUpdate "
         "request"},
        {"accepted_without_a_promised_task",
         kStart + kUploading +
             Messages{"Upload HTTP status: 202",
                      "No task URI to poll, skipping"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "(HTTP 202) but named no task", "",
         "no task shows that the firmware was installed"},
        {"accepted_at_once_without_a_task",
         kStart + kUploading +
             Messages{"Upload HTTP status: 200",
                      "No task URI to poll, skipping"} +
             kRebooted + kEnd,
         Outcome::kUnknown, "(HTTP 200) but named no task"},
        {"cut_off_in_the_task", kAccepted, Outcome::kUnknown,
         "ends during the phase Task. The BMC may still run its task"},
        {"worker_died_in_the_upload",
         kStart + kUploading +
             Messages{"D [http] MULTIPART POST https://192.0.2.7/up1 file=x",
                      "[tool] Worker process failed: signal 9"},
         Outcome::kUnknown,
         "failed (signal 9). The BMC may act on the Upload request. Requests: "
         "Upload at /up1: no response yet."},
        {"worker_died_before_any_request",
         kStart + Messages{"[tool] Worker process failed: signal 9"},
         Outcome::kFailed, "No request that changes anything"},
        {"interrupted_in_the_task",
         kAccepted + Messages{"[tool] Interrupted by a signal."},
         Outcome::kInterrupted,
         "may still run its task /redfish/v1/TaskService/Tasks/1"},
        {"interrupted_in_a_wait",
         kStart + kUploading +
             Messages{"D [http] MULTIPART POST https://192.0.2.7/up1 file=x",
                      "D [http] MULTIPART POST https://192.0.2.7/up1 -> HTTP "
                      "503"} +
             Rejected("503", "busy") +
             Messages{"Retrying in 1s (attempt 1/2)",
                      "[tool] Interrupted by a signal."},
         Outcome::kInterrupted, "The BMC rejected all requests so far."},
        {"interrupted_before_the_update_starts",
         Messages{"[tool] Run: update of 192.0.2.7 with firmware.blx",
                  "[tool] Interrupted by a signal."},
         Outcome::kInterrupted, "No request that changes anything"},
        {"logged_by_the_tool",
         kStart + Messages{"[tool] Finished.",
                           "[tool] Outcome: failed. The BMC is on fire.",
                           "[tool] Cause: Heat.", "[tool] Next: Run."},
         Outcome::kFailed, "The BMC is on fire. Heat.", "Run."},
        {"no_update", Messages{"[config] Config loaded successfully"},
         Outcome::kNoUpdate, ""},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Judging, ReadsATaskOfManyMessagesInLinearTime) {
  std::string task = R"({"Messages": [)";
  for (int i = 0; i < 20'000; ++i) {
    task +=
        R"({"Message": ")" + std::string(40, 'm') + std::to_string(i) + "\"},";
  }
  task.back() = ']';
  EXPECT_LT(ReadTask(task + "}").messages.size(), 10'000U);
}

}  // namespace
}  // namespace quorvane::tool
