// SPDX-License-Identifier: Apache-2.0
// The names of the actions, in the order of their numbers.
#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "quorvane/config.h"

namespace quorvane {
namespace {

constexpr std::array<std::string_view, 3> kInventoryActions = {
    "validate_firmware", "retry_inventory", "fail_or_manual_check"};
constexpr std::array<std::string_view, 4> kUploadActions = {
    "track_task", "retry_with_fix", "split_and_retry", "retry_with_backoff"};
constexpr std::array<std::string_view, 5> kTaskActions = {
    "continue_polling", "proceed_to_activation", "retry_upload",
    "restart_upload", "retry_last_chunk"};
constexpr std::array<std::string_view, 4> kActivationActions = {
    "check_reboot", "poll_task", "retry_activation", "retry_or_fail"};
constexpr std::array<std::string_view, 4> kRebootActions = {
    "success", "poll_task", "retry_reboot", "manual_intervention"};

template <typename Action, std::size_t kCount>
Action FromString(const std::array<std::string_view, kCount>& names,
                  const std::string& name, const char* vocabulary) {
  for (std::size_t number = 0; number < kCount; ++number) {
    if (name == names[number]) return static_cast<Action>(number);
  }
  throw std::runtime_error(std::string("Unknown ") + vocabulary + ": \"" +
                           name + "\"");
}

}  // namespace

InventoryAction InvActionFromString(const std::string& name) {
  return FromString<InventoryAction>(kInventoryActions, name,
                                     "inventory_action");
}

UploadAction UploadActionFromString(const std::string& name) {
  return FromString<UploadAction>(kUploadActions, name, "upload_action");
}

TaskAction TaskActionFromString(const std::string& name) {
  return FromString<TaskAction>(kTaskActions, name, "task_action");
}

ActivationAction ActivationActionFromString(const std::string& name) {
  return FromString<ActivationAction>(kActivationActions, name,
                                      "activation_action");
}

RebootAction RebootActionFromString(const std::string& name) {
  return FromString<RebootAction>(kRebootActions, name, "reboot_action");
}

}  // namespace quorvane
