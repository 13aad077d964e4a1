// SPDX-License-Identifier: Apache-2.0
// Exported JSON: parsing it must return the exported values.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/property.h"
#include "quorvane/inventory.h"
#include "quorvane/update.h"
#include "support/json.h"

namespace {

// The lines of the input, up to the first NUL, which JSON cannot contain.
std::vector<std::string> Lines(const std::uint8_t* bytes, std::size_t size) {
  std::vector<std::string> lines(1);
  for (std::size_t i = 0; i < size && bytes[i] != 0; ++i) {
    if (bytes[i] == '\n' && lines.size() < 5) {
      lines.emplace_back();
    } else {
      lines.back() += static_cast<char>(bytes[i]);
    }
  }
  lines.resize(5);
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  using quorvane::StringMember;
  const std::vector<std::string> text = Lines(bytes, size);
  const quorvane::InventoryItem item{text[0], text[1], text[2], text[3],
                                     text[4]};
  const auto inventory =
      quorvane::ParseJson(quorvane::InventoryToJson({item, item}));
  const cJSON* list = quorvane::ArrayMember(inventory.get(), "inventory");
  CheckProperty(list != nullptr, "an inventory is an array");
  for (const cJSON* entry : quorvane::Elements(list)) {
    CheckProperty(StringMember(entry, "id") == item.uri &&
                      StringMember(entry, "Name") == item.Name &&
                      StringMember(entry, "SoftwareId") == item.SoftwareId &&
                      StringMember(entry, "Version") == item.Version &&
                      StringMember(entry, "target_id") == item.target_id,
                  "an item is unchanged");
  }

  quorvane::UpdateResponse response;
  response.message = text[0];
  response.task_uri = text[1];
  response.http_status = static_cast<long>(size);
  response.percent_complete = static_cast<int>(size) - 1;
  const auto record =
      quorvane::ParseJson(quorvane::UpdateResponseToJson(response));
  CheckProperty(StringMember(record.get(), "message") == text[0] &&
                    StringMember(record.get(), "task_uri") == text[1],
                "a record is unchanged");
  CheckProperty(
      quorvane::IntMember(record.get(), "percent_complete").has_value() ==
          (size > 0),
      "an unknown percentage is null");
  return 0;
}
