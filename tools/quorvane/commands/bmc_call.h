// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "quorvane/inventory.h"
#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/run/events.h"
#include "tools/quorvane/worker/library_process.h"
#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {

/// A library call that only reads from a BMC: makes the call, writes the log of
/// --log and finds in the log records why the call failed.
class BmcCall {
 public:
  /// @param subject  What the call reads, e.g. "inventory", for messages.
  BmcCall(const BmcOptions& options, std::string subject)
      : options_(options), subject_(std::move(subject)) {}

  /// @tparam Call  Type of the call, e.g. `InventoryCall`.
  /// @return What the library returned.
  /// @throws ToolError if it threw or was interrupted.
  template <typename Result, typename Call>
  Result Make() {
    return std::get<Result>(MakeCall(Call{PrepareRequest()}));
  }

  /// Prints why the library could not read the data.
  ExitCode PrintFailure() const;

  /// What the library logged, without `EventKind::kOther`.
  [[nodiscard]] const std::vector<Event>& events() const { return events_; }

 private:
  InventoryRequest PrepareRequest() const;
  WorkerResponse MakeCall(LibraryCall call);
  WorkerResponse ResponseTo(CallResult result) const;

  const BmcOptions& options_;
  std::string subject_;
  std::vector<Event> events_ = {};
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_
