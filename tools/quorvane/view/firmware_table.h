// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_FIRMWARE_TABLE_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_FIRMWARE_TABLE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/quorvane/run/versions.h"

namespace quorvane::tool {

/// A component and its versions, as text.
struct FirmwareRow {
  std::string name, before, after, note;
};

/// The components that changed, are targeted or expected. None if the versions
/// after the update were not read.
std::vector<FirmwareRow> FirmwareRows(const Firmware& firmware);

/// "2 others as before"; empty if there are none.
std::string OtherFirmware(const Firmware& firmware);

/// The rows and the others, in lines shorter than `columns`; 0: no limit.
std::string FirmwareText(const Firmware& firmware, std::size_t columns);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_FIRMWARE_TABLE_H_
