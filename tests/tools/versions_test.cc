// SPDX-License-Identifier: Apache-2.0
// What versions show, and what they add to a verdict.
#include "tools/quorvane/run/versions.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/tools/log_text.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

using ::testing::HasSubstr;
using Outcome = Verdict::Outcome;

FirmwareMember Member(const std::string& id, const char* before,
                      const char* after, bool is_targeted = false) {
  FirmwareMember member{
      .uri = "/f/" + id, .name = "The " + id, .is_targeted = is_targeted};
  if (before != nullptr) member.before = before;
  if (after != nullptr) member.after = after;
  return member;
}

FirmwareMember Named(const std::string& id, const char* name,
                     const char* before, const char* after,
                     bool is_targeted = false) {
  FirmwareMember member = Member(id, before, after, is_targeted);
  member.name = name;
  return member;
}

struct EvidenceCase {
  const char* name;
  Firmware firmware;
  Evidence evidence;
  bool is_decided = false;
};
class Versions : public testing::TestWithParam<EvidenceCase> {};
TEST_P(Versions, Show) {
  EXPECT_EQ(EvidenceOf(GetParam().firmware), GetParam().evidence);
  EXPECT_EQ(IsDecided(GetParam().firmware), GetParam().is_decided);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, Versions,
    testing::ValuesIn(std::vector<EvidenceCase>{
        {"nothing", {}, Evidence::kNone},
        {"not_read_again", {{Member("A", "1", nullptr)}}, Evidence::kNone},
        {"not_read_before", {{Member("A", nullptr, "2")}}, Evidence::kNone},
        {"one_changed",
         {{Member("A", "1", "2"), Member("B", "1", "1")}},
         Evidence::kUpdated,
         true},
        {"none_changed", {{Member("A", "1", "1")}}, Evidence::kUnchanged},
        {"appeared_and_disappeared",
         {{Member("A", "1", "1"), Member("B", nullptr, "2"),
           Member("C", "1", nullptr)}},
         Evidence::kUnchanged},
        {"pending_appeared",
         {{Member("A", "1", "1"), Member("A-Pending", nullptr, "2")}},
         Evidence::kPending,
         true},
        {"pending_is_no_component",
         {{Member("A", "1", "1"), Member("A-Pending", "1", "2")}},
         Evidence::kPending,
         true},
        {"pending_as_before",
         {{Member("A", "1", "1"), Member("A-Pending", "2", "2")}},
         Evidence::kUnchanged},
        {"every_target_changed",
         {{Member("A", "1", "2", true), Member("B", "1", "2", true)}},
         Evidence::kUpdated,
         true},
        {"one_of_two_targets_changed",
         {{Member("A", "1", "2", true), Member("B", "1", "1", true)}},
         Evidence::kPartly},
        {"another_than_the_target_changed",
         {{Member("A", "1", "1", true), Member("B", "1", "2")}},
         Evidence::kPartly},
        {"target_that_is_not_listed",
         {{Member("A", "1", "2")}, {}, {"/system"}},
         Evidence::kPartly},
        {"expected_by_id",
         {{Member("A", "1", "2"), Member("B", "1", "1")}, {{"A", "2"}}},
         Evidence::kUpdated,
         true},
        {"expected_by_name_and_uri",
         {{Member("A", "1", "2"), Member("B", "1", "3")},
          {{"The A", "2"}, {"/f/B", "3"}}},
         Evidence::kUpdated,
         true},
        {"expected_without_a_version_before",
         {{Member("A", nullptr, "2")}, {{"A", "2"}}},
         Evidence::kUpdated,
         true},
        {"unexpected_without_a_version_before",
         {{Member("A", nullptr, "1")}, {{"A", "2"}}},
         Evidence::kNone},
        {"another_than_expected",
         {{Member("A", "1", "3")}, {{"A", "2"}}},
         Evidence::kMismatch,
         true},
        {"another_component_than_expected",
         {{Member("A", "1", "1"), Member("B", "1", "2")}, {{"A", "2"}}},
         Evidence::kMismatch},
        {"one_of_two_expected",
         {{Member("A", "1", "2"), Member("B", "1", "1")},
          {{"A", "2"}, {"B", "2"}}},
         Evidence::kMismatch},
        {"expected_and_unchanged",
         {{Member("A", "1", "1")}, {{"A", "2"}}},
         Evidence::kUnchanged},
        {"expected_before_and_after",
         {{Member("A", "2", "2", true), Member("B", "1", "1")}, {{"A", "2"}}},
         Evidence::kCurrent,
         true},
        {"expected_before_and_another_changed",
         {{Member("A", "2", "2"), Member("B", "1", "2")}, {{"A", "2"}}},
         Evidence::kUpdated,
         true},
        {"expected_but_another_target_unchanged",
         {{Member("A", "1", "2"), Member("B", "1", "1", true)}, {{"A", "2"}}},
         Evidence::kPartly},
        {"only_a_backup_changed",
         {{Member("A", "1", "1"), Member("A-Backup", "0", "1")}},
         Evidence::kUnchanged},
        {"a_backup_by_its_name_changed",
         {{Named("B", "Golden BIOS image", "1", "2"),
           Named("C", "BMC (RollBack)", "1", "2"),
           Named("Previous-159-1.2", "BIOS", "1", "2")}},
         Evidence::kUnchanged},
        {"names_that_only_look_like_a_backup",
         {{Member("Backplane_1", "1", "2")}},
         Evidence::kUpdated,
         true},
        {"targeted_backup_changed",
         {{Member("A", "1", "1"), Member("BackupBIOS", "1", "2", true)}},
         Evidence::kUpdated,
         true},
        {"expected_backup_changed",
         {{Member("BIOSBackup", "1", "2")}, {{"BIOSBackup", "2"}}},
         Evidence::kUpdated,
         true},
        {"expected_pending",
         {{Member("A", "1", "1"), Member("A-Pending", "1", "2")},
          {{"A-Pending", "2"}}},
         Evidence::kPending,
         true},
        {"pending_of_the_target",
         {{Member("A", "1", "1", true), Member("PendingA", nullptr, "2")}},
         Evidence::kPending,
         true},
        {"pending_of_the_target_by_its_name",
         {{Named("Installed-7-1", "BIOS", "1", "1", true),
           Named("Staged-7-2", "BIOS", nullptr, "2")}},
         Evidence::kPending,
         true},
        {"pending_of_another_component",
         {{Member("A", "1", "1", true), Member("B-Pending", nullptr, "2")}},
         Evidence::kUnchanged},
        {"pending_of_any_component",
         {{Member("A", "1", "1", true), Member("Pending", nullptr, "2")}},
         Evidence::kPending,
         true},
        {"pending_that_could_not_be_read_before",
         {{Member("A", "1", "1"), Member("A-Pending", nullptr, "2")},
          {},
          {},
          {"/f/A-Pending"}},
         Evidence::kUnchanged},
        {"target_not_read_again",
         {{Member("A", "1", nullptr, true), Member("B", "1", "1")}},
         Evidence::kNone},
        {"target_not_read_again_and_another_changed",
         {{Member("A", "1", nullptr, true), Member("B", "1", "2")}},
         Evidence::kPartly},
        {"expected_not_read_again_and_another_changed",
         {{Member("A", "1", nullptr), Member("B", "1", "2")}, {{"A", "2"}}},
         Evidence::kPartly},
        {"expected_before_but_not_every_target_is_expected",
         {{Member("A", "2", "2"), Member("B", "1", "1", true)}, {{"A", "2"}}},
         Evidence::kUnchanged},
        {"expected_target_without_an_inventory_before",
         {{Member("A", nullptr, "2")}, {{"A", "2"}}, {"/f/A"}},
         Evidence::kUpdated,
         true},
        {"another_target_without_an_inventory_before",
         {{Member("A", nullptr, "2")}, {{"A", "2"}}, {"/f/B"}},
         Evidence::kPartly},
        {"expected_member_that_does_not_exist",
         {{Member("A", "1", "1")}, {{"Z", "2"}}},
         Evidence::kUnchanged},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Expectations, AreMetBeforeOnlyIfTheyCoverEveryTarget) {
  const FirmwareMember met = Member("A", "2", nullptr);
  EXPECT_TRUE(IsCurrentBefore({{met}, {{"A", "2"}}}));
  EXPECT_TRUE(
      IsCurrentBefore({{Member("A", "2", nullptr, true)}, {{"A", "2"}}}));
  EXPECT_FALSE(
      IsCurrentBefore({{met, Member("B", "1", nullptr, true)}, {{"A", "2"}}}));
  EXPECT_FALSE(IsCurrentBefore({{met}, {{"A", "2"}}, {"/f/B"}}));
}

TEST(Expectations, NeedANameAndAVersion) {
  for (const char* wrong : {"", "A", "A=", "=1"}) {
    EXPECT_FALSE(ExpectationFrom(wrong)) << wrong;
  }
  EXPECT_EQ(ExpectationFrom("The A=1=2")->version, "1=2");
}

Messages VersionLines(const char* when, const char* bios, const char* nic,
                      bool is_targeted = false) {
  Messages lines;
  for (const auto& [id, version] : {std::pair("BIOS", bios), {"NIC", nic}}) {
    nlohmann::json member = {
        {"uri", std::string("/f/") + id}, {"name", id}, {"version", version}};
    if (is_targeted) member["targeted"] = true;
    lines.push_back(fmt::format("[tool] Firmware {}: {}", when, member.dump()));
  }
  return lines;
}

Messages MemberLine(const char* when, const char* id, const char* version) {
  return {fmt::format(R"([tool] Firmware {}: {{"uri": "/f/{}", )"
                      R"("version": "{}"}})",
                      when, id, version)};
}

const Messages kBefore = kStart + VersionLines("before", "1", "5");
const Messages kTargeted = kStart + VersionLines("before", "1", "5", true);
const Messages kBegins = {"[tool] Verification begins, at most 9 s"};
// Reading the inventory again must not change what the update itself shows.
const Messages kUnreadable = {
    "[inventory] ========== INVENTORY FETCH START ==========",
    "W [inventory] Collection returned HTTP 503, retrying",
    "[tool] Verification: the inventory returned HTTP 503"};
const Messages kOver = {"[tool] Verification ends: The time limit is over."};
const Messages kUpdated = kBegins + VersionLines("after", "2", "5") + kOver;
const Messages kBothUpdated = kBegins + VersionLines("after", "2", "6") + kOver;
const Messages kSame = kBegins + VersionLines("after", "1", "5") + kOver;
const Messages kNoAnswer = kBegins + kUnreadable + kOver;
const Messages kDone = kUploading + kPolling + kCompletion + kRebooting +
                       Messages{"Reboot HTTP status: 204"};
const Messages kNever = {"[tool] No reboot: --restart never was given"};
const Messages kScheduledTask = kUploading + kPolling +
                                Messages{"[RF-TASK] State: Scheduled",
                                         "[RF-TASK] Task stable in 'Scheduled' "
                                         "state"};
const Messages kCriticalTask =
    kUploading + kPolling +
    Messages{"[RF-TASK] State: Completed",
             "[RF-TASK] Task ID: 1\nResponse body:\n{\"TaskStatus\": "
             "\"Critical\"}",
             "[RF-TASK] State: Completed  Result: Success"};
const Messages kFailedTask =
    kUploading + kPolling +
    Messages{"[RF-TASK] State: Exception",
             "[RF-TASK] State: Exception  Result: Exception -- x"};
const Messages kGone =
    kUploading + kPolling +
    Messages{"Task returned 404 after reaching 80% -- Machine"};
const Messages kRebootRefused = kUploading + kPolling + kCompletion +
                                kRebooting +
                                Messages{"Reboot HTTP status: 409"};

struct VerdictCase {
  const char* name;
  Messages log;
  Outcome outcome;
  const char* text;  // in headline or cause
};
class VersionVerdict : public testing::TestWithParam<VerdictCase> {};
TEST_P(VersionVerdict, RestsOnEvidence) {
  const Verdict verdict = ReadReport(LogOf(GetParam().log + kEnd)).verdict;
  EXPECT_STREQ(NameOf(verdict.outcome), NameOf(GetParam().outcome));
  EXPECT_THAT(verdict.headline + " " + verdict.cause,
              HasSubstr(GetParam().text));
}
INSTANTIATE_TEST_SUITE_P(
    Rows, VersionVerdict,
    testing::ValuesIn(std::vector<VerdictCase>{
        {"success_updated", kBefore + kDone + kUpdated, Outcome::kUpdated,
         "The firmware was updated: BIOS 1 -> 2."},
        {"success_current",
         kBefore + Messages{"[tool] Expect: BIOS=1"} + kDone + kSame,
         Outcome::kCurrent, "had the expected versions before"},
        {"success_mismatch",
         kBefore + Messages{"[tool] Expect: BIOS=3"} + kDone + kUpdated,
         Outcome::kMismatch, "Changed: BIOS 1 -> 2."},
        {"success_partly", kTargeted + kDone + kUpdated, Outcome::kUnknown,
         "not every target has another version than before. Changed: BIOS"},
        {"success_every_target", kTargeted + kDone + kBothUpdated,
         Outcome::kUpdated, "BIOS 1 -> 2, NIC 5 -> 6"},
        {"success_pending",
         kBefore + kDone + kBegins + VersionLines("after", "1", "5") +
             MemberLine("after", "BIOS-pending", "2") + kOver,
         Outcome::kStaged, "lists firmware that the next reboot"},
        {"success_unchanged", kBefore + kDone + kSame, Outcome::kUnchanged,
         "no version has changed. The BMC accepted a reboot of the system. "
         "The time limit is over."},
        {"success_unchanged_except_a_backup",
         kBefore + MemberLine("before", "BIOS-backup", "0") + kDone + kBegins +
             VersionLines("after", "1", "5") +
             MemberLine("after", "BIOS-backup", "1") + kOver,
         Outcome::kUnchanged,
         "Not counted, because it is an image that does "
         "not run, or is for another component: BIOS-backup 0 -> 1."},
        {"success_unchanged_as_far_as_readable",
         kBefore + kDone + kBegins +
             Messages{"W [inventory] GET member failed: /f/X (HTTP 500)"} +
             VersionLines("after", "1", "5") + kOver,
         Outcome::kUnchanged,
         "Not compared, because the BMC did not return it: /f/X."},
        {"success_target_not_readable",
         kTargeted + kDone + kBegins +
             Messages{"W [inventory] GET member failed: /f/NIC (HTTP 500)"} +
             MemberLine("after", "BIOS", "2") + kOver,
         Outcome::kUnknown, "not every target could be read. Changed: BIOS"},
        {"success_without_evidence", kBefore + kDone + kNoAnswer,
         Outcome::kUnknown,
         "The time limit is over. Last check: the inventory returned HTTP 503"},
        {"success_not_verified",
         kBefore + kDone +
             Messages{"[tool] No verification: --no-verify was given"},
         Outcome::kDone, "reports success"},
        {"staged_and_rebooted_unchanged",
         kBefore + kScheduledTask + kRebooting +
             Messages{"Reboot HTTP status: 204"} + kSame,
         Outcome::kUnchanged, "The firmware was staged"},
        {"staged_updated", kBefore + kScheduledTask + kNever + kUpdated,
         Outcome::kUpdated, "BIOS 1 -> 2"},
        {"staged_unchanged", kBefore + kScheduledTask + kNever + kSame,
         Outcome::kStaged, "next reboot of the system applies it. No version"},
        {"staged_with_another_backup",
         kBefore + MemberLine("before", "BIOS-backup", "0") + kScheduledTask +
             kNever + kBegins + VersionLines("after", "1", "5") +
             MemberLine("after", "BIOS-backup", "1") + kOver,
         Outcome::kStaged, "No version that counts has changed."},
        {"staged_without_evidence",
         kBefore + kScheduledTask + kNever + kNoAnswer, Outcome::kUnknown,
         "waits for a reboot of the system, but the versions could not"},
        {"staged_and_partly_updated",
         kTargeted + kScheduledTask + kNever + kUpdated, Outcome::kUnknown,
         "some versions have changed already, and not every target has "
         "another version than before. Changed: BIOS 1 -> 2."},
        {"gone_updated", kBefore + kGone + kUpdated, Outcome::kUpdated,
         "BIOS 1 -> 2. The task disappeared"},
        {"gone_unchanged", kBefore + kGone + kSame, Outcome::kUnknown,
         "No version has changed."},
        {"gone_without_evidence", kBefore + kGone + kNoAnswer,
         Outcome::kUnknown, "HTTP 503"},
        {"critical_updated_without_targets", kBefore + kCriticalTask + kUpdated,
         Outcome::kFailed, "Changed: BIOS 1 -> 2. TaskStatus: Critical."},
        {"critical_with_every_target", kTargeted + kCriticalTask + kBothUpdated,
         Outcome::kUpdated,
         "reports a critical problem. TaskStatus: Critical."},
        {"critical_with_one_target", kTargeted + kCriticalTask + kUpdated,
         Outcome::kFailed, "Changed: BIOS 1 -> 2."},
        {"failed_task_updated", kTargeted + kFailedTask + kBothUpdated,
         Outcome::kFailed, "Changed: BIOS 1 -> 2, NIC 5 -> 6."},
        {"failed_task_unchanged", kBefore + kFailedTask + kSame,
         Outcome::kFailed, "No version has changed."},
        {"reboot_rejected_updated", kBefore + kRebootRefused + kUpdated,
         Outcome::kUpdated, "the BMC rejected the reboot"},
        {"reboot_rejected_unchanged", kBefore + kRebootRefused + kSame,
         Outcome::kFailed, "but the BMC rejected the reboot. No version"},
        {"rejected_image_is_not_verified",
         kBefore + kUploading + Messages{"Upload HTTP status: 413"} + kUpdated,
         Outcome::kFailed, "rejected the update"},
        {"interrupted",
         kBefore + kDone + kBegins +
             Messages{"[tool] Interrupted by a signal."},
         Outcome::kInterrupted, "during the phase Verification"},
        {"login_refused_in_the_verification",
         kBefore + kDone + kBegins +
             Messages{"E [inventory] Authentication failed (HTTP 401 x)",
                      "[tool] Verification ends: The BMC refused the account "
                      "(HTTP 401)."},
         Outcome::kUnknown, "could not be compared. The BMC accepted a reboot"},
        {"not_needed",
         kBefore + Messages{"[tool] Not needed: every expected version"},
         Outcome::kCurrent, "nothing was uploaded"},
    }),
    [](const auto& row) { return row.param.name; });

TEST(VersionVerdict, OfALogThatEndsIsUnknown) {
  const Report report =
      ReadReport(LogOf(kBefore + kDone + kBegins + kUnreadable));
  EXPECT_EQ(report.verdict.outcome, Outcome::kUnknown);
  EXPECT_THAT(report.verdict.headline, HasSubstr("phase Verification"));
}

TEST(VersionTable, ShowsWhatAUserNeeds) {
  const Report report =
      ReadReport(LogOf(kTargeted + kDone + kUpdated + Messages{} + kEnd));
  const std::string text = TextReport(report, 0);
  EXPECT_THAT(text, HasSubstr("Versions:\n  BIOS  1 -> 2\n  NIC   5 (as before)"
                              "\n"));
  EXPECT_THAT(HtmlReport(report), HasSubstr("<h2>Versions</h2>"));
  const auto json = nlohmann::json::parse(JsonReport(report));
  EXPECT_EQ(json["firmware"][0],
            nlohmann::json::parse(R"({"uri": "/f/BIOS", "name": "BIOS", )"
                                  R"("before": "1", "after": "2", )"
                                  R"("targeted": true})"));
  const std::string others =
      TextReport(ReadReport(LogOf(kBefore + kDone + kUpdated + kEnd)), 0);
  EXPECT_THAT(others, HasSubstr("  BIOS  1 -> 2\n  1 other as before\n"));
}

}  // namespace
}  // namespace quorvane::tool
