// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/version_verdict.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <vector>

#include "tools/quorvane/run/advice.h"
#include "tools/quorvane/run/request_text.h"

namespace quorvane::tool {
namespace {

using Outcome = Verdict::Outcome;

std::string Joined(const std::string& first, const std::string& then) {
  return first.empty() || then.empty() ? first + then : first + " " + then;
}

// Why the verification ended, and what it saw last.
std::string SeenBy(const Verification& seen) {
  return Joined(seen.end, seen.state.empty()
                              ? std::string()
                              : Sentence("Last check: " + seen.state));
}

// What led to the versions, after a headline that states the success.
std::string AfterSuccess(const Facts& facts, const Verdict& said) {
  if (said.outcome != Outcome::kDone) return said.headline;
  if (!facts.run.reboot_withheld.empty()) {
    return Sentence(facts.run.was_continued
                        ? "No reboot was requested, because " +
                              facts.run.reboot_withheld
                        : "The system was not rebooted, because " +
                              facts.run.reboot_withheld);
  }
  return facts.reboot == Answer::kAccepted
             ? "The BMC accepted a reboot of the system."
             : "No reboot was requested.";
}

// Changes that prove nothing.
std::string NotCounted(const Firmware& firmware) {
  const std::string changes = OtherChangesText(firmware);
  return changes.empty()
             ? changes
             : fmt::format(
                   "Not counted, because it is an image that does not run, or "
                   "is for another component: {}.",
                   changes);
}

std::string NotCompared(const std::vector<std::string>& unread) {
  constexpr std::size_t kMaxListed = 4;
  std::string list;
  for (std::size_t i = 0; i < std::min(unread.size(), kMaxListed); ++i) {
    list += (i == 0 ? "" : ", ") + unread[i];
  }
  if (unread.size() > kMaxListed) {
    list += fmt::format(" and {} more", unread.size() - kMaxListed);
  }
  return list.empty() ? list
                      : fmt::format(
                            "Not compared, because the BMC did not return it: "
                            "{}.",
                            list);
}

std::string ByVersions(const Facts& facts) {
  const std::string changes = ChangesText(facts.run.firmware);
  if (!changes.empty()) {
    return fmt::format("The firmware was updated: {}.", changes);
  }
  return "The firmware has the expected versions; those before the update are "
         "not known.";
}

// The BMC reports success, and the versions confirm it.
Verdict Updated(const Facts& facts, const Verdict& /*said*/) {
  return {Outcome::kUpdated, ByVersions(facts), {}, {}};
}

// The versions decide; the cause keeps what the BMC reports.
Verdict UpdatedAnyway(const Facts& facts, const Verdict& said) {
  return {Outcome::kUpdated, ByVersions(facts),
          Joined(said.headline, said.cause),
          "The versions decide the outcome, because the BMC did not confirm "
          "the update. Check the event log of the BMC."};
}

// Pending firmware that counts is no change of a version.
bool IsNothingElseChanged(const Firmware& firmware) {
  return EvidenceOf(firmware) == Evidence::kPending ||
         OtherChangesText(firmware).empty();
}

// The verdict on what the BMC answered, with what the versions show.
Verdict WithChanges(const Facts& facts, const Verdict& said) {
  const Firmware& firmware = facts.run.firmware;
  const std::string changes = ChangesText(firmware);
  Verdict verdict = said;
  if (EvidenceOf(firmware) == Evidence::kNone) {
    verdict.cause = Joined(said.cause, SeenBy(facts.run.verification));
  } else {
    verdict.headline +=
        !changes.empty() ? fmt::format(" Changed: {}.", changes)
        : IsNothingElseChanged(firmware)
            ? std::string(" No version has changed.")
            : std::string(" No version that counts has changed.");
  }
  return verdict;
}

// The critical problem can concern one of several components.
Verdict UpdatedDespiteCritical(const Facts& facts, const Verdict& said) {
  return NamesComponents(facts.run.firmware) ? UpdatedAnyway(facts, said)
                                             : WithChanges(facts, said);
}

Verdict Current(const Facts& /*facts*/, const Verdict& said) {
  return {Outcome::kCurrent,
          "The firmware had the expected versions before the update, and has "
          "them now.",
          {},
          said.next};
}

Verdict Mismatch(const Facts& facts, const Verdict& said) {
  return {Outcome::kMismatch,
          fmt::format("Versions have changed, but not all are the expected "
                      "ones. Changed: {}.",
                      ChangesText(facts.run.firmware)),
          Joined(said.headline, said.cause),
          "Check that the image contains the versions of --expect. " +
              CompareVersions(facts.run)};
}

const char* NotEveryTarget(const Firmware& firmware) {
  return IsNamedUnread(firmware)
             ? "not every target could be read"
             : "not every target has another version than before";
}

Verdict PartlyUpdated(const Facts& facts, const Verdict& said) {
  return {Outcome::kUnknown,
          fmt::format("The BMC reports success, but {}. Changed: {}.",
                      NotEveryTarget(facts.run.firmware),
                      ChangesText(facts.run.firmware)),
          Joined(AfterSuccess(facts, said), SeenBy(facts.run.verification)),
          CompareVersions(facts.run)};
}

Verdict Unchanged(const Facts& facts, const Verdict& said) {
  const std::string reason =
      "If the image contains other versions than the installed ones, look up "
      "in the event log of the BMC why they were not installed.";
  return {Outcome::kUnchanged,
          IsNothingElseChanged(facts.run.firmware)
              ? "The BMC reports success, but no version has changed."
              : "The BMC reports success, but no version that counts has "
                "changed.",
          Joined(AfterSuccess(facts, said), SeenBy(facts.run.verification)),
          said.outcome == Outcome::kDone ? Joined(said.next, reason) : reason};
}

Verdict Pending(const Facts& facts, const Verdict& said) {
  return {Outcome::kStaged,
          "The inventory lists firmware that the next reboot of the system "
          "applies.",
          said.headline,
          fmt::format("Reboot the system when convenient, e.g. with {}.",
                      RebootCommand(facts.run))};
}

Verdict NoEvidence(const Facts& facts, const Verdict& said) {
  const std::string& reboot = said.outcome == Outcome::kDone ? said.next : "";
  return {Outcome::kUnknown,
          "The BMC reports success, but the versions could not be compared.",
          Joined(AfterSuccess(facts, said), SeenBy(facts.run.verification)),
          Joined(reboot, CompareVersions(facts.run))};
}

// The BMC itself says that the firmware waits, but not that nothing failed.
Verdict StagedWithoutEvidence(const Facts& facts, const Verdict& said) {
  return {Outcome::kUnknown,
          "The task waits for a reboot of the system, but the versions could "
          "not be compared.",
          Joined(said.cause, SeenBy(facts.run.verification)),
          Joined(said.next, CompareVersions(facts.run))};
}

Verdict PartlyStaged(const Facts& facts, const Verdict& said) {
  return {Outcome::kUnknown,
          fmt::format("The task waits for a reboot of the system, but some "
                      "versions have changed already, and {}. Changed: {}.",
                      NotEveryTarget(facts.run.firmware),
                      ChangesText(facts.run.firmware)),
          Joined(said.cause, SeenBy(facts.run.verification)),
          Joined(said.next, CompareVersions(facts.run))};
}

// A pair without a row keeps the verdict on what the BMC answered, see
// `WithChanges`.
struct VersionRow {
  Claim claim;
  Evidence evidence;
  Verdict (*judge)(const Facts& facts, const Verdict& said);
};

constexpr std::array kVersionRows = {
    VersionRow{Claim::kSuccess, Evidence::kUpdated, Updated},
    VersionRow{Claim::kSuccess, Evidence::kCurrent, Current},
    VersionRow{Claim::kSuccess, Evidence::kMismatch, Mismatch},
    VersionRow{Claim::kSuccess, Evidence::kPartly, PartlyUpdated},
    VersionRow{Claim::kSuccess, Evidence::kPending, Pending},
    VersionRow{Claim::kSuccess, Evidence::kUnchanged, Unchanged},
    VersionRow{Claim::kSuccess, Evidence::kNone, NoEvidence},
    VersionRow{Claim::kStaged, Evidence::kUpdated, Updated},
    VersionRow{Claim::kStaged, Evidence::kMismatch, Mismatch},
    VersionRow{Claim::kStaged, Evidence::kPartly, PartlyStaged},
    VersionRow{Claim::kStaged, Evidence::kNone, StagedWithoutEvidence},
    VersionRow{Claim::kOpen, Evidence::kUpdated, UpdatedAnyway},
    VersionRow{Claim::kOpen, Evidence::kMismatch, Mismatch},
    VersionRow{Claim::kCritical, Evidence::kUpdated, UpdatedDespiteCritical},
    VersionRow{Claim::kFailed, Evidence::kUpdated, UpdatedAnyway},
};

}  // namespace

Verdict JudgeByVersions(const Facts& facts, Claim claim, const Verdict& said) {
  const Verification& seen = facts.run.verification;
  if (claim == Claim::kNone || !seen.has_begun) return said;
  const Evidence evidence = EvidenceOf(facts.run.firmware);
  const auto* const row = std::find_if(
      kVersionRows.begin(), kVersionRows.end(), [&](const VersionRow& one) {
        return one.claim == claim && one.evidence == evidence;
      });
  Verdict verdict = row != kVersionRows.end() ? row->judge(facts, said)
                                              : WithChanges(facts, said);
  if (evidence != Evidence::kUpdated && evidence != Evidence::kPending) {
    verdict.cause = Joined(verdict.cause, NotCounted(facts.run.firmware));
  }
  verdict.cause = Joined(verdict.cause, NotCompared(seen.unread));
  return verdict;
}

}  // namespace quorvane::tool
