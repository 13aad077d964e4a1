// SPDX-License-Identifier: Apache-2.0
// The versions of the firmware before and after an update, and what they show.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_VERSIONS_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_VERSIONS_H_

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::tool {

/// A member of the firmware inventory. Its URI identifies it.
struct FirmwareMember {
  std::string uri = {};
  std::string name = {};
  std::optional<std::string> before = {};  ///< Nothing: not known.
  std::optional<std::string> after = {};   ///< Nothing: not known.
  bool is_targeted = false;                ///< By --target.

  [[nodiscard]] bool HasChanged() const {
    return before && after && *before != *after;
  }
};

/// A version that --expect names.
struct Expectation {
  std::string name = {};  ///< URI, Id or Name of a member.
  std::string version = {};
};

/// "NAME=VERSION", both not empty.
std::optional<Expectation> ExpectationFrom(std::string_view text);

/// What a run knows about the firmware.
struct Firmware {
  std::vector<FirmwareMember> members = {};
  std::vector<Expectation> expectations = {};
  std::vector<std::string> unlisted_targets = {};  ///< Not in the inventory.
  /// URIs of members that the inventory listed before the update, but that
  /// could not be read.
  std::vector<std::string> unread_before = {};

  [[nodiscard]] bool WasReadBefore() const;
  [[nodiscard]] bool WasReadAfter() const;
};

/// What the versions show. A pending or spare image (see `IsActive`) is no
/// evidence for an update, unless --target or --expect names a spare one.
enum class Evidence {
  kNone,       ///< Nothing: the versions before or after are not known.
  kUpdated,    ///< Every targeted member has another version, or the expected
               ///< one; without targets: at least one.
  kPartly,     ///< Some versions changed, but not of every target.
  kUnchanged,  ///< No version changed.
  kPending,    ///< The same, and a member holds firmware for a reboot, which
               ///< can belong to what --target or --expect names.
  kMismatch,   ///< Versions changed, but not to the expected ones.
  kCurrent,    ///< No version changed, all are the expected ones, and every
               ///< target is expected.
};

Evidence EvidenceOf(const Firmware& firmware);

/// Whether no later reading can change what the versions show.
bool IsDecided(const Firmware& firmware);

/// Whether --target or --expect names a component.
bool NamesComponents(const Firmware& firmware);

/// Whether there are expectations for every target, and the versions before
/// meet all of them.
bool IsCurrentBefore(const Firmware& firmware);

/// Whether --target or --expect names a member whose version after the update
/// is not known.
bool IsNamedUnread(const Firmware& firmware);

/// Whether the member `uri` could not be read before the update, and neither
/// --target nor --expect names it.
bool WasUnreadBefore(const Firmware& firmware, const std::string& uri);

/// Whether the member is a running component: its Id and Name contain no word
/// for another image, such as "Backup" or "Pending".
bool IsActive(const FirmwareMember& member);

/// The members that `name` identifies: by the URI, else the Id (the last
/// segment of the URI), else the Name.
std::vector<const FirmwareMember*> MembersNamed(
    const std::vector<FirmwareMember>& members, std::string_view name);

/// The members that a user needs to see: those that changed, are targeted or
/// expected.
std::vector<const FirmwareMember*> RelevantMembers(const Firmware& firmware);

/// "BIOS 1.2.0 -> 1.3.0, NIC 4 -> 5 and 2 more": the members whose change
/// counts.
std::string ChangesText(const Firmware& firmware);

/// The same for the other changes: of pending and spare images.
std::string OtherChangesText(const Firmware& firmware);

/// {"uri", "name", "before", "after", "targeted"} of each member; the versions
/// are null if they are not known.
nlohmann::json FirmwareJson(const Firmware& firmware);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_VERSIONS_H_
