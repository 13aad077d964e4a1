// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/firmware_table.h"

#include <fmt/core.h>

#include <algorithm>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

std::string Shown(const std::optional<std::string>& version) {
  return version ? Excerpt(*version, 60) : "unknown";
}

}  // namespace

std::vector<FirmwareRow> FirmwareRows(const Firmware& firmware) {
  std::vector<FirmwareRow> rows;
  if (!firmware.WasReadAfter()) return rows;
  for (const FirmwareMember* member : RelevantMembers(firmware)) {
    const std::string name = member->name.empty() ? member->uri : member->name;
    const bool is_same = member->before && member->before == member->after;
    rows.push_back({.name = Excerpt(name, 60),
                    .before = Shown(member->before),
                    .after = Shown(member->after),
                    .note = is_same ? "as before" : ""});
  }
  return rows;
}

std::string OtherFirmware(const Firmware& firmware) {
  if (!firmware.WasReadAfter() || !firmware.WasReadBefore()) return {};
  const auto others = std::count_if(
      firmware.members.begin(), firmware.members.end(),
      [](const FirmwareMember& member) {
        return !member.is_targeted && member.before == member.after;
      });
  const auto shown = RelevantMembers(firmware);
  const auto expected = std::count_if(
      shown.begin(), shown.end(), [](const FirmwareMember* member) {
        return !member->is_targeted && member->before == member->after;
      });
  const auto count = others - expected;
  return count == 0 ? std::string()
                    : fmt::format("{} other{} as before", count,
                                  count == 1 ? "" : "s");
}

std::string FirmwareText(const Firmware& firmware, std::size_t columns) {
  constexpr std::size_t kIndent = 4;
  const std::vector<FirmwareRow> rows = FirmwareRows(firmware);
  std::size_t width = 0;
  for (const FirmwareRow& row : rows) {
    width = std::max(width, Columns(row.name));
  }
  std::string text;
  for (const FirmwareRow& row : rows) {
    const std::string versions =
        row.note.empty() ? row.before + " -> " + row.after
                         : fmt::format("{} ({})", row.after, row.note);
    text += Wrapped(fmt::format("  {}{}  {}", row.name,
                                std::string(width - Columns(row.name), ' '),
                                versions),
                    columns, kIndent) +
            '\n';
  }
  const std::string others = OtherFirmware(firmware);
  if (!others.empty()) text += "  " + others + '\n';
  return text.empty() ? text : "Versions:\n" + text;
}

}  // namespace quorvane::tool
