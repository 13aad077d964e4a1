// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/versions.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <nlohmann/json.hpp>
#include <set>

namespace quorvane::tool {
namespace {

using Version = std::optional<std::string> FirmwareMember::*;

std::string_view MemberId(const FirmwareMember& member) {
  const std::string_view uri = member.uri;
  return uri.substr(uri.rfind('/') + 1);
}

// What the firmware of a member is for. Redfish has no property for it, so BMCs
// put it in the Id or the Name.
enum class Use {
  kActive,   // It runs.
  kPending,  // The next reboot applies it.
  kSpare,    // Another image: the one before, a backup, one to install.
};

constexpr std::array<std::string_view, 2> kPendingWords = {"pending", "staged"};
constexpr std::array<std::string_view, 10> kSpareWords = {
    "alternate", "available", "backup",   "fallback", "golden",
    "inactive",  "previous",  "recovery", "rollback", "secondary"};
// Words that a name has besides that of the component.
constexpr std::array<std::string_view, 3> kActiveWords = {"active", "current",
                                                          "installed"};

template <typename Words>
bool Contains(const Words& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// A new word begins after a sign, at a number, and at a capital letter: the
// words of "BIOSBackup_1" are bios, backup and 1.
bool BeginsWord(std::string_view text, std::size_t at) {
  const auto is = [&](std::size_t index, int (*kind)(int)) {
    return index < text.size() &&
           kind(static_cast<unsigned char>(text[index])) != 0;
  };
  if (at == 0 || !is(at - 1, std::isalnum)) return true;
  if (is(at - 1, std::isdigit) != is(at, std::isdigit)) return true;
  return is(at, std::isupper) &&
         (!is(at - 1, std::isupper) || is(at + 1, std::islower));
}

std::vector<std::string> WordsOf(std::string_view text) {
  std::vector<std::string> words;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto sign = static_cast<unsigned char>(text[i]);
    if (std::isalnum(sign) == 0) continue;
    if (BeginsWord(text, i)) words.emplace_back();
    words.back() += static_cast<char>(std::tolower(sign));
  }
  return words;
}

Use UseIn(std::string_view text) {
  Use use = Use::kActive;
  std::string previous;
  for (const std::string& word : WordsOf(text)) {
    const std::string pair = previous + word;  // "Roll-Back"
    if (Contains(kPendingWords, word)) return Use::kPending;
    if (Contains(kSpareWords, word) || Contains(kSpareWords, pair)) {
      use = Use::kSpare;
    }
    previous = word;
  }
  return use;
}

Use UseOf(const FirmwareMember& member) {
  const Use use = UseIn(MemberId(member));
  return use == Use::kActive ? UseIn(member.name) : use;
}

// The name of a component, without the words for its use.
std::string ComponentIn(std::string_view text) {
  std::string component;
  for (const std::string& word : WordsOf(text)) {
    if (Contains(kPendingWords, word) || Contains(kActiveWords, word)) continue;
    component += word + " ";
  }
  return component;
}

bool IsPending(const Firmware& firmware, const FirmwareMember& member) {
  return member.after && member.before != member.after &&
         UseOf(member) == Use::kPending &&
         !Contains(firmware.unread_before, member.uri);
}

bool IsMet(const Expectation& expectation, const Firmware& firmware,
           Version version) {
  const auto named = MembersNamed(firmware.members, expectation.name);
  return !named.empty() &&
         std::all_of(named.begin(), named.end(), [&](const auto* member) {
           return member->*version == expectation.version;
         });
}

bool AreAllMet(const Firmware& firmware, Version version) {
  return !firmware.expectations.empty() &&
         std::all_of(firmware.expectations.begin(), firmware.expectations.end(),
                     [&](const Expectation& one) {
                       return IsMet(one, firmware, version);
                     });
}

std::set<const FirmwareMember*> ExpectedMembers(const Firmware& firmware) {
  std::set<const FirmwareMember*> expected;
  for (const Expectation& one : firmware.expectations) {
    const auto named = MembersNamed(firmware.members, one.name);
    expected.insert(named.begin(), named.end());
  }
  return expected;
}

// The members that --target or --expect names.
std::set<const FirmwareMember*> NamedMembers(const Firmware& firmware) {
  std::set<const FirmwareMember*> named = ExpectedMembers(firmware);
  for (const FirmwareMember& member : firmware.members) {
    if (member.is_targeted) named.insert(&member);
  }
  return named;
}

// The members whose change proves an update.
std::vector<const FirmwareMember*> ChangedMembers(const Firmware& firmware) {
  const auto named = NamedMembers(firmware);
  std::vector<const FirmwareMember*> changed;
  for (const FirmwareMember& member : firmware.members) {
    if (!member.HasChanged()) continue;
    const Use use = UseOf(member);
    if (use == Use::kActive ||
        (use == Use::kSpare && named.contains(&member))) {
      changed.push_back(&member);
    }
  }
  return changed;
}

// Whether the expectations cover every target.
bool IsEveryTargetExpected(const Firmware& firmware) {
  const auto expected = ExpectedMembers(firmware);
  const auto is_expected = [&](const std::string& target) {
    return std::any_of(expected.begin(), expected.end(),
                       [&](const auto* one) { return one->uri == target; });
  };
  return std::all_of(firmware.unlisted_targets.begin(),
                     firmware.unlisted_targets.end(), is_expected) &&
         std::all_of(firmware.members.begin(), firmware.members.end(),
                     [&](const FirmwareMember& member) {
                       return !member.is_targeted || expected.contains(&member);
                     });
}

// Only asked if all expectations are met.
bool IsEveryTargetUpdated(const Firmware& firmware) {
  Firmware rest = firmware;
  for (FirmwareMember& member : rest.members) {
    const bool is_updated =
        member.HasChanged() && UseOf(member) != Use::kPending;
    member.is_targeted = member.is_targeted && !is_updated;
  }
  return IsEveryTargetExpected(rest);
}

bool HasTargets(const Firmware& firmware) {
  return !firmware.unlisted_targets.empty() ||
         std::any_of(firmware.members.begin(), firmware.members.end(),
                     [](const auto& member) { return member.is_targeted; });
}

// Whether the firmware that `pending` holds can belong to a component that
// --target or --expect names.
bool CanBelongToNamed(const Firmware& firmware, const FirmwareMember& pending) {
  const auto named = NamedMembers(firmware);
  if (named.contains(&pending) || !firmware.unlisted_targets.empty()) {
    return true;
  }
  const std::string id = ComponentIn(MemberId(pending));
  const std::string name = ComponentIn(pending.name);
  return id.empty() ||
         std::any_of(named.begin(), named.end(), [&](const auto* member) {
           return id == ComponentIn(MemberId(*member)) ||
                  (!name.empty() && name == ComponentIn(member->name));
         });
}

Evidence EvidenceWithoutChange(const Firmware& firmware) {
  if (!firmware.WasReadBefore()) return Evidence::kNone;
  const bool names_components = NamesComponents(firmware);
  const bool is_pending = std::any_of(
      firmware.members.begin(), firmware.members.end(),
      [&](const FirmwareMember& member) {
        return IsPending(firmware, member) &&
               (!names_components || CanBelongToNamed(firmware, member));
      });
  if (is_pending) return Evidence::kPending;
  return IsNamedUnread(firmware) ? Evidence::kNone : Evidence::kUnchanged;
}

// Whether an expected member has another version; one that could not be read
// has none.
bool IsAnyExpectedOther(const Firmware& firmware) {
  return std::any_of(
      firmware.expectations.begin(), firmware.expectations.end(),
      [&](const Expectation& one) {
        const auto named = MembersNamed(firmware.members, one.name);
        return std::any_of(named.begin(), named.end(), [&](const auto* member) {
          return member->after && *member->after != one.version;
        });
      });
}

Evidence EvidenceOfExpected(const Firmware& firmware) {
  const bool is_changed = !ChangedMembers(firmware).empty();
  if (!AreAllMet(firmware, &FirmwareMember::after)) {
    if (!is_changed) return EvidenceWithoutChange(firmware);
    return IsAnyExpectedOther(firmware) ? Evidence::kMismatch
                                        : Evidence::kPartly;
  }
  const auto expected = ExpectedMembers(firmware);
  const bool is_only_pending = std::all_of(
      expected.begin(), expected.end(),
      [](const auto* member) { return UseOf(*member) == Use::kPending; });
  if (!is_changed && is_only_pending) return EvidenceWithoutChange(firmware);
  const bool were_met = AreAllMet(firmware, &FirmwareMember::before);
  if (is_changed || !were_met) {
    return IsEveryTargetUpdated(firmware) ? Evidence::kUpdated
                                          : Evidence::kPartly;
  }
  return IsEveryTargetExpected(firmware) ? Evidence::kCurrent
                                         : EvidenceWithoutChange(firmware);
}

std::string ListOfChanges(const std::vector<const FirmwareMember*>& changed) {
  constexpr std::size_t kMaxListed = 4;
  std::string text;
  for (std::size_t i = 0; i < std::min(changed.size(), kMaxListed); ++i) {
    const FirmwareMember& member = *changed[i];
    text += fmt::format(
        "{}{} {} -> {}", i == 0 ? "" : ", ",
        member.name.empty() ? std::string(MemberId(member)) : member.name,
        member.before.value_or("(none)"), *member.after);
  }
  return changed.size() > kMaxListed
             ? fmt::format("{} and {} more", text, changed.size() - kMaxListed)
             : text;
}

}  // namespace

std::optional<Expectation> ExpectationFrom(std::string_view text) {
  const std::size_t sign = text.find('=');
  if (sign == std::string_view::npos || sign == 0 || sign + 1 == text.size()) {
    return std::nullopt;
  }
  return Expectation{std::string(text.substr(0, sign)),
                     std::string(text.substr(sign + 1))};
}

bool Firmware::WasReadBefore() const {
  return std::any_of(members.begin(), members.end(), [](const auto& member) {
    return member.before.has_value();
  });
}

bool Firmware::WasReadAfter() const {
  return std::any_of(members.begin(), members.end(), [](const auto& member) {
    return member.after.has_value();
  });
}

std::vector<const FirmwareMember*> MembersNamed(
    const std::vector<FirmwareMember>& members, std::string_view name) {
  std::vector<const FirmwareMember*> found;
  const auto find = [&](auto text_of) {
    for (const FirmwareMember& member : members) {
      if (text_of(member) == name) found.push_back(&member);
    }
  };
  find([](const FirmwareMember& member) { return member.uri; });
  if (found.empty()) find(MemberId);
  if (found.empty()) find([](const FirmwareMember& one) { return one.name; });
  return found;
}

Evidence EvidenceOf(const Firmware& firmware) {
  if (!firmware.WasReadAfter()) return Evidence::kNone;
  if (!firmware.expectations.empty()) return EvidenceOfExpected(firmware);
  if (!firmware.WasReadBefore()) return Evidence::kNone;
  if (ChangedMembers(firmware).empty()) return EvidenceWithoutChange(firmware);
  return IsEveryTargetUpdated(firmware) || !HasTargets(firmware)
             ? Evidence::kUpdated
             : Evidence::kPartly;
}

bool IsDecided(const Firmware& firmware) {
  switch (EvidenceOf(firmware)) {
    case Evidence::kUpdated:
    case Evidence::kCurrent:
    case Evidence::kPending:
      return true;
    case Evidence::kMismatch:
      // Another member may change later.
      return std::all_of(
          firmware.expectations.begin(), firmware.expectations.end(),
          [&](const Expectation& one) {
            const auto named = MembersNamed(firmware.members, one.name);
            return IsMet(one, firmware, &FirmwareMember::after) ||
                   std::any_of(named.begin(), named.end(),
                               [](const auto* m) { return m->HasChanged(); });
          });
    case Evidence::kNone:
    case Evidence::kPartly:
    case Evidence::kUnchanged:
      break;
  }
  return false;
}

bool NamesComponents(const Firmware& firmware) {
  return HasTargets(firmware) || !firmware.expectations.empty();
}

bool IsCurrentBefore(const Firmware& firmware) {
  return AreAllMet(firmware, &FirmwareMember::before) &&
         IsEveryTargetExpected(firmware);
}

bool IsNamedUnread(const Firmware& firmware) {
  const auto named = NamedMembers(firmware);
  return std::any_of(named.begin(), named.end(),
                     [](const auto* member) { return !member->after; });
}

bool WasUnreadBefore(const Firmware& firmware, const std::string& uri) {
  const FirmwareMember member{.uri = uri};
  const bool is_expected =
      std::any_of(firmware.expectations.begin(), firmware.expectations.end(),
                  [&](const Expectation& one) {
                    return one.name == uri || one.name == MemberId(member);
                  });
  return Contains(firmware.unread_before, uri) && !is_expected &&
         !Contains(firmware.unlisted_targets, uri);
}

bool IsActive(const FirmwareMember& member) {
  return UseOf(member) == Use::kActive;
}

std::vector<const FirmwareMember*> RelevantMembers(const Firmware& firmware) {
  const auto expected = ExpectedMembers(firmware);
  std::vector<const FirmwareMember*> relevant;
  for (const FirmwareMember& member : firmware.members) {
    if (member.HasChanged() || IsPending(firmware, member) ||
        member.is_targeted || expected.contains(&member)) {
      relevant.push_back(&member);
    }
  }
  return relevant;
}

std::string ChangesText(const Firmware& firmware) {
  return ListOfChanges(ChangedMembers(firmware));
}

std::string OtherChangesText(const Firmware& firmware) {
  const auto counted = ChangedMembers(firmware);
  std::vector<const FirmwareMember*> others;
  for (const FirmwareMember& member : firmware.members) {
    const bool is_other =
        IsPending(firmware, member) ||
        (member.HasChanged() && UseOf(member) != Use::kPending);
    if (is_other &&
        std::find(counted.begin(), counted.end(), &member) == counted.end()) {
      others.push_back(&member);
    }
  }
  return ListOfChanges(others);
}

nlohmann::json FirmwareJson(const Firmware& firmware) {
  const auto json_of = [](const std::optional<std::string>& version) {
    return version ? nlohmann::json(*version) : nlohmann::json();
  };
  nlohmann::json json = nlohmann::json::array();
  for (const FirmwareMember& member : firmware.members) {
    json.push_back({{"uri", member.uri},
                    {"name", member.name},
                    {"before", json_of(member.before)},
                    {"after", json_of(member.after)},
                    {"targeted", member.is_targeted}});
  }
  return json;
}

}  // namespace quorvane::tool
