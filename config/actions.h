// SPDX-License-Identifier: Apache-2.0
// The names of the actions in the rules file: the only list of them in code.
// Everything here is in the header, so that programs that do not link the
// library's objects can use it.
#ifndef QUORVANE_CONFIG_ACTIONS_H_
#define QUORVANE_CONFIG_ACTIONS_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "quorvane/config.h"

namespace quorvane {

/// The name of an action. Empty for a number that is not an action. The
/// switches have no default, so the compiler reports an action without a name.
/// @{
constexpr std::string_view ActionName(InventoryAction action) {
  switch (action) {
    case InventoryAction::validate_firmware:
      return "validate_firmware";
    case InventoryAction::retry_inventory:
      return "retry_inventory";
    case InventoryAction::fail_or_manual_check:
      return "fail_or_manual_check";
  }
  return {};
}

constexpr std::string_view ActionName(UploadAction action) {
  switch (action) {
    case UploadAction::track_task:
      return "track_task";
    case UploadAction::retry_with_fix:
      return "retry_with_fix";
    case UploadAction::split_and_retry:
      return "split_and_retry";
    case UploadAction::retry_with_backoff:
      return "retry_with_backoff";
  }
  return {};
}

constexpr std::string_view ActionName(TaskAction action) {
  switch (action) {
    case TaskAction::continue_polling:
      return "continue_polling";
    case TaskAction::proceed_to_activation:
      return "proceed_to_activation";
    case TaskAction::retry_upload:
      return "retry_upload";
    case TaskAction::restart_upload:
      return "restart_upload";
    case TaskAction::retry_last_chunk:
      return "retry_last_chunk";
  }
  return {};
}

constexpr std::string_view ActionName(ActivationAction action) {
  switch (action) {
    case ActivationAction::check_reboot:
      return "check_reboot";
    case ActivationAction::poll_task:
      return "poll_task";
    case ActivationAction::retry_activation:
      return "retry_activation";
    case ActivationAction::retry_or_fail:
      return "retry_or_fail";
  }
  return {};
}

constexpr std::string_view ActionName(RebootAction action) {
  switch (action) {
    case RebootAction::success:
      return "success";
    case RebootAction::poll_task:
      return "poll_task";
    case RebootAction::retry_reboot:
      return "retry_reboot";
    case RebootAction::manual_intervention:
      return "manual_intervention";
  }
  return {};
}
/// @}

/// All names of a vocabulary, in the order of their numbers.
template <typename Action>
std::vector<std::string_view> ActionNames() {
  std::vector<std::string_view> names;
  for (std::int32_t number = 0;; ++number) {
    const std::string_view name = ActionName(static_cast<Action>(number));
    if (name.empty()) return names;
    names.push_back(name);
  }
}

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_ACTIONS_H_
