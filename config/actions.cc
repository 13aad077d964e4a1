// SPDX-License-Identifier: Apache-2.0
#include "config/actions.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quorvane/config.h"

namespace quorvane {
namespace {

template <typename Action>
Action FromString(const std::string& name, const char* vocabulary) {
  for (std::int32_t number = 0;; ++number) {
    const auto action = static_cast<Action>(number);
    const std::string_view known = ActionName(action);
    if (known.empty()) break;
    if (known == name) return action;
  }
  throw std::runtime_error(std::string("Unknown ") + vocabulary + ": \"" +
                           name + "\"");
}

}  // namespace

InventoryAction InvActionFromString(const std::string& name) {
  return FromString<InventoryAction>(name, "inventory_action");
}

UploadAction UploadActionFromString(const std::string& name) {
  return FromString<UploadAction>(name, "upload_action");
}

TaskAction TaskActionFromString(const std::string& name) {
  return FromString<TaskAction>(name, "task_action");
}

ActivationAction ActivationActionFromString(const std::string& name) {
  return FromString<ActivationAction>(name, "activation_action");
}

RebootAction RebootActionFromString(const std::string& name) {
  return FromString<RebootAction>(name, "reboot_action");
}

}  // namespace quorvane
