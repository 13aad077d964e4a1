// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/verification.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "logging/redact.h"
#include "tools/quorvane/base/closest.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/verdict.h"
#include "tools/quorvane/run/versions.h"

namespace quorvane::tool {
namespace {

constexpr int kGoodChecks = 3;

// A line of the log: {"name": ..., "uri": ..., "version": ...}.
std::string MemberLine(const char* prefix, const InventoryItem& item,
                       bool is_targeted) {
  nlohmann::json json = {{"uri", RedactUri(item.uri)}, {"name", item.Name}};
  if (!item.Version.empty()) json["version"] = item.Version;
  if (is_targeted) json["targeted"] = true;
  return prefix +
         EscapedJson(json.dump(-1, ' ', false,
                               nlohmann::json::error_handler_t::replace));
}

// What `firmware` becomes when `items` are read after the update.
Firmware WithVersions(Firmware firmware,
                      const std::vector<InventoryItem>& items) {
  RunBuilder builder;
  for (const FirmwareMember& member : firmware.members) {
    builder.Add({.kind = EventKind::kFirmwareBefore,
                 .name = member.name,
                 .version = member.before,
                 .is_targeted = member.is_targeted,
                 .uri = member.uri});
  }
  for (const InventoryItem& item : items) {
    builder.Add(EventFrom({.component = kToolComponent,
                           .message = MemberLine("Firmware after: ", item,
                                                 /*is_targeted=*/false)}));
  }
  firmware.members = builder.run().firmware.members;
  return firmware;
}

std::string ExpectFault(const std::string& text) {
  return ExpectationFrom(text) ? std::string()
                               : "use NAME=VERSION, e.g. BIOS=1.3.0";
}

class Verifier {
 public:
  Verifier(RunSession& session, const InventoryRequest& bmc,
           const VerifyOptions& options)
      : session_(session),
        bmc_(bmc),
        options_(options),
        end_(MonotonicSeconds() + options.timeout_seconds),
        can_change_(CanStillChange(session.EndedRun())),
        can_apply_pending_(CanApplyPending(session.EndedRun())) {}

  void Run() {
    do {
      const auto items = ReadInventory();
      if (session_.MustStop()) return;
      if (session_.run().verification.refused != 0) return EndAsRefused();
      CountCheck(items.has_value());
      const std::string reason = ReasonToEnd(items);
      if (!reason.empty()) {
        const bool is_settled = items && equal_checks_ >= kGoodChecks;
        return End(is_settled ? *items : Items{}, reason);
      }
    } while (session_.Wait(options_.interval_seconds));
  }

 private:
  using Items = std::vector<InventoryItem>;

  [[nodiscard]] bool IsTimeOver() const { return MonotonicSeconds() >= end_; }

  // Counts the inventories in a row that lack the same members.
  void CountCheck(bool was_read) {
    const std::vector<std::string> lacking =
        was_read ? LackingMembers() : lacking_;
    const bool is_equal = equal_checks_ == 0 || lacking == lacking_;
    equal_checks_ = !was_read ? 0 : is_equal ? equal_checks_ + 1 : 1;
    lacking_ = lacking;
    if (IsTimeOver()) ++late_checks_;
  }

  // Empty while a further check can still change the result.
  [[nodiscard]] std::string ReasonToEnd(
      const std::optional<Items>& items) const {
    if (equal_checks_ < kGoodChecks) {
      // The last checks may still become three good ones.
      const bool can_settle = equal_checks_ > 0 && late_checks_ < kGoodChecks;
      return IsTimeOver() && !can_settle ? TimeOver() : "";
    }
    const Firmware now = WithVersions(session_.run().firmware, *items);
    const Evidence evidence = EvidenceOf(now);
    const bool is_complete = lacking_.empty();
    // What is missing cannot refute that versions changed.
    if (!is_complete && evidence != Evidence::kUpdated) {
      const bool is_settled = !can_change_ && evidence != Evidence::kNone;
      return is_settled ? NothingLeft() : IsTimeOver() ? TimeOver() : "";
    }
    // The BMC may still apply what is pending, or another version than the one
    // that it had before.
    const bool is_waiting =
        (can_apply_pending_ && evidence == Evidence::kPending) ||
        (can_change_ && evidence == Evidence::kCurrent);
    if (IsDecided(now) && !is_waiting) return "The versions are compared.";
    if (!can_change_) return NothingLeft();
    return IsTimeOver() ? TimeOver() : "";
  }

  static std::string NothingLeft() {
    return "The BMC has nothing left to apply.";
  }

  // The members that could not be read now, without those that could not be
  // read before the update either, unless their versions matter.
  [[nodiscard]] std::vector<std::string> LackingMembers() const {
    const Firmware& firmware = session_.run().firmware;
    std::vector<std::string> lacking = session_.run().verification.unread;
    lacking.erase(std::remove_if(lacking.begin(), lacking.end(),
                                 [&](const std::string& uri) {
                                   return WasUnreadBefore(firmware, uri);
                                 }),
                  lacking.end());
    return lacking;
  }

  [[nodiscard]] std::string TimeOver() const {
    return fmt::format("The time limit of {} s (--verify-timeout) is over.",
                       options_.timeout_seconds);
  }

  // The inventory, as far as it can be read; else nothing. What is missing is
  // logged.
  std::optional<Items> ReadInventory() {
    // A BMC that restarts makes the library wait much longer.
    const auto probed = session_.Read(ProbeCall{bmc_.ip}, kProbeSeconds + 5);
    if (session_.MustStop()) return std::nullopt;
    const auto* probe = probed ? std::get_if<ProbeResult>(&*probed) : nullptr;
    if (probe == nullptr || probe->status == 0) {
      return Nothing("the BMC does not respond");
    }
    constexpr double kMinSeconds = 30;
    const double limit = std::max(kMinSeconds, end_ - MonotonicSeconds());
    const auto response = session_.Read(InventoryCall{bmc_}, limit);
    if (session_.MustStop()) return std::nullopt;
    const auto* read =
        response ? std::get_if<InventoryResult>(&*response) : nullptr;
    if (read == nullptr) {
      return Nothing(fmt::format(
          "the BMC responds, but did not send its whole inventory in {:.0f} s",
          limit));
    }
    const Verification& seen = session_.run().verification;
    constexpr long kFirstRedirect = 300;  // RFC 9110, section 15.4
    if (!read->was_read) {
      return Nothing(
          seen.status >= kFirstRedirect
              ? fmt::format("the inventory returned HTTP {}", seen.status)
              : std::string("the BMC responds, but not with an "
                            "inventory"));
    }
    if (seen.is_empty || (read->items.empty() && seen.unread.empty())) {
      return Nothing("the inventory lists no firmware");
    }
    if (const std::size_t lacking = LackingMembers().size(); lacking > 0) {
      NoteState(
          fmt::format("{} members of the inventory cannot be read", lacking));
      return read->items;
    }
    NoteState(IsAnyChanged(read->items)
                  ? "the BMC responds, and versions have changed"
                  : "the BMC responds, the versions are as before");
    return read->items;
  }

  [[nodiscard]] bool IsAnyChanged(const Items& items) const {
    const Firmware now = WithVersions(session_.run().firmware, items);
    return !ChangesText(now).empty();
  }

  std::nullopt_t Nothing(const std::string& reason) {
    NoteState(reason);
    return std::nullopt;
  }

  // A check every few seconds would fill the log.
  void NoteState(const std::string& state) {
    if (state == session_.run().verification.state) return;
    session_.Report("Verification: " + state);
  }

  void EndAsRefused() {
    session_.Report(
        fmt::format("Verification ends: The BMC refused the account (HTTP {}).",
                    session_.run().verification.refused));
  }

  void End(const std::vector<InventoryItem>& items, const std::string& reason) {
    for (const InventoryItem& item : items) {
      session_.Report(
          MemberLine("Firmware after: ", item, /*is_targeted=*/false));
    }
    session_.Report("Verification ends: " + reason);
  }

  RunSession& session_;
  const InventoryRequest& bmc_;
  const VerifyOptions& options_;
  double end_;
  bool can_change_;
  bool can_apply_pending_;
  int equal_checks_ = 0;  // inventories in a row that lack `lacking_`
  int late_checks_ = 0;   // after the end of the time
  std::vector<std::string> lacking_ = {};
};

}  // namespace

void AddVerifyOptions(CLI::App& command, VerifyOptions& options) {
  constexpr int kMaxSeconds = 86400;
  auto* off = command.add_flag("--no-verify", options.is_off,
                               "Do not compare the versions after the update");
  command
      .add_option("--verify-timeout", options.timeout_seconds,
                  "How long to wait for other versions, in seconds (1200)")
      ->excludes(off)
      ->check(CLI::Range(1, kMaxSeconds))
      ->type_name("SECONDS");
  command
      .add_option("--expect", options.expectations,
                  "Version that a component must have after the update; "
                  "NAME is its Id, Name or URI; may be given more than "
                  "once")
      ->type_name("NAME=VERSION")
      ->check(CLI::Validator(ExpectFault, ""));
}

VerifyOptions AtMostEvery(int seconds, VerifyOptions options) {
  options.interval_seconds = std::min(options.interval_seconds, seconds);
  return options;
}

void RequireMembersNamed(const std::vector<std::string>& expectations,
                         const std::vector<FirmwareMember>& members,
                         const std::string& bmc) {
  std::vector<std::string> names;
  for (const FirmwareMember& member : members) {
    names.push_back(member.uri.substr(member.uri.rfind('/') + 1));
    names.push_back(member.name);
  }
  for (const std::string& text : expectations) {
    const std::string name = ExpectationFrom(text)->name;
    const std::size_t count = MembersNamed(members, name).size();
    if (count == 1) continue;
    const std::string closest = count == 0 ? ClosestOf(names, name) : "";
    throw ToolError(
        ExitCode::kUsage,
        fmt::format("Cannot use --expect {}: the inventory of {} has {} with "
                    "the URI, Id or Name {}{}. Nothing was changed. Use a URI "
                    "of `quorvane inventory --uris`.",
                    text, bmc, count == 0 ? "no member" : "several members",
                    name,
                    closest.empty() ? std::string()
                                    : "; did you mean " + closest + "?"));
  }
}

bool IsUpdatedNow(RunSession& session, const InventoryRequest& bmc) {
  constexpr double kLimitSeconds = 120;
  const auto response = session.Read(InventoryCall{bmc}, kLimitSeconds);
  const auto* read =
      response ? std::get_if<InventoryResult>(&*response) : nullptr;
  return read != nullptr && read->was_read &&
         EvidenceOf(WithVersions(session.run().firmware, read->items)) ==
             Evidence::kUpdated;
}

void NoteVersionsBefore(RunSession& session,
                        const std::vector<InventoryItem>& items,
                        const std::vector<std::string>& targets) {
  std::vector<std::string> unlisted = targets;
  for (const InventoryItem& item : items) {
    // A backup image belongs to the same component as the active one.
    const bool is_active = IsActive({.uri = item.uri, .name = item.Name});
    const auto is_item = [&](const std::string& target) {
      return target == item.uri || (is_active && target == item.target_id);
    };
    const bool is_targeted =
        std::any_of(targets.begin(), targets.end(), is_item);
    unlisted.erase(std::remove_if(unlisted.begin(), unlisted.end(), is_item),
                   unlisted.end());
    session.Report(MemberLine("Firmware before: ", item, is_targeted));
  }
  for (const std::string& target : unlisted) {
    session.Report("Unlisted target: " + RedactUri(target));
  }
}

void VerifyVersions(RunSession& session, const InventoryRequest& bmc,
                    const VerifyOptions& options) {
  const Run ended = session.EndedRun();
  if (ClaimOf(ended) == Claim::kNone) return;
  if (options.is_off) {
    session.Report("No verification: --no-verify was given");
    return;
  }
  session.Report(fmt::format("Verification begins, at most {} s",
                             options.timeout_seconds));
  if (!ended.firmware.WasReadBefore() && ended.firmware.expectations.empty()) {
    session.Report(
        "Verification ends: The inventory was not read before the update.");
    return;
  }
  Verifier(session, bmc, options).Run();
}

}  // namespace quorvane::tool
