// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/versions.h"

#include <fmt/core.h>

#include <algorithm>
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

// A member that lists firmware for the next reboot, as some BMCs have one.
bool IsForReboot(const FirmwareMember& member) {
  std::string text = std::string(MemberId(member)) + " " + member.name;
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
    return static_cast<char>(std::tolower(c));
  });
  return text.find("pending") != std::string::npos;
}

bool IsPending(const FirmwareMember& member) {
  return IsForReboot(member) && member.after && member.before != member.after;
}

bool HasChanged(const FirmwareMember& member) {
  return member.HasChanged() && !IsForReboot(member);
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

// Only asked if all expectations are met.
bool IsEveryTargetUpdated(const Firmware& firmware) {
  const auto expected = ExpectedMembers(firmware);
  return firmware.unlisted_targets.empty() &&
         std::all_of(firmware.members.begin(), firmware.members.end(),
                     [&](const FirmwareMember& member) {
                       return !member.is_targeted || HasChanged(member) ||
                              expected.contains(&member);
                     });
}

bool HasTargets(const Firmware& firmware) {
  return !firmware.unlisted_targets.empty() ||
         std::any_of(firmware.members.begin(), firmware.members.end(),
                     [](const auto& member) { return member.is_targeted; });
}

bool IsAnyChanged(const Firmware& firmware) {
  return std::any_of(firmware.members.begin(), firmware.members.end(),
                     HasChanged);
}

Evidence EvidenceWithoutChange(const Firmware& firmware) {
  return std::any_of(firmware.members.begin(), firmware.members.end(),
                     IsPending)
             ? Evidence::kPending
             : Evidence::kUnchanged;
}

Evidence EvidenceOfExpected(const Firmware& firmware) {
  const bool is_changed = IsAnyChanged(firmware);
  if (!AreAllMet(firmware, &FirmwareMember::after)) {
    if (is_changed) return Evidence::kMismatch;
    return firmware.WasReadBefore() ? EvidenceWithoutChange(firmware)
                                    : Evidence::kNone;
  }
  if (!is_changed && AreAllMet(firmware, &FirmwareMember::before)) {
    return Evidence::kCurrent;
  }
  return IsEveryTargetUpdated(firmware) ? Evidence::kUpdated
                                        : Evidence::kPartly;
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
  if (!IsAnyChanged(firmware)) return EvidenceWithoutChange(firmware);
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
  return AreAllMet(firmware, &FirmwareMember::before);
}

std::vector<const FirmwareMember*> RelevantMembers(const Firmware& firmware) {
  const auto expected = ExpectedMembers(firmware);
  std::vector<const FirmwareMember*> relevant;
  for (const FirmwareMember& member : firmware.members) {
    if (member.HasChanged() || IsPending(member) || member.is_targeted ||
        expected.contains(&member)) {
      relevant.push_back(&member);
    }
  }
  return relevant;
}

std::string ChangesText(const Firmware& firmware) {
  constexpr std::size_t kMaxListed = 4;
  std::string text;
  std::size_t count = 0;
  for (const FirmwareMember& member : firmware.members) {
    if (!HasChanged(member) || ++count > kMaxListed) continue;
    text += fmt::format(
        "{}{} {} -> {}", count == 1 ? "" : ", ",
        member.name.empty() ? std::string(MemberId(member)) : member.name,
        *member.before, *member.after);
  }
  return count > kMaxListed
             ? fmt::format("{} and {} more", text, count - kMaxListed)
             : text;
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
