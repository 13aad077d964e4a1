// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "logging/save_document.h"
#include "quorvane/inventory.h"
#include "support/json.h"

namespace quorvane {

std::string InventoryToJson(const std::vector<InventoryItem>& items) {
  const JsonPtr root = NewObject();
  cJSON* inventory = AddArray(root.get(), "inventory");
  for (const InventoryItem& item : items) {
    cJSON* entry = AppendObject(inventory);
    AddString(entry, "id", item.uri);
    AddString(entry, "Name", item.Name);
    AddString(entry, "SoftwareId", item.SoftwareId);
    AddString(entry, "Version", item.Version);
    AddString(entry, "target_id", item.target_id);
  }
  return PrintJson(root.get());
}

bool SaveInventoryJson(const std::string& path,
                       const std::vector<InventoryItem>& items) {
  return SaveDocument("inventory", path, InventoryToJson(items));
}

}  // namespace quorvane
