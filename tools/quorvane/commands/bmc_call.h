// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "quorvane/inventory.h"
#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/redfish/resource.h"
#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/run_log.h"
#include "tools/quorvane/worker/library_process.h"
#include "tools/quorvane/worker/protocol.h"
#include "tools/quorvane/worker/signals.h"

namespace quorvane::tool {

/// Library calls that only read from a BMC: makes the calls, writes the log of
/// --log and finds in the log records why a call failed.
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
    static_cast<void>(LoadRules(options_));
    const InventoryRequest& request = Connect();
    return std::get<Result>(MakeCall(Call{request}));
  }

  /// Checks that the BMC responds at all. The first call does it, too.
  /// @return What every call needs.
  /// @throws ToolError if it does not, or if the options are wrong.
  const InventoryRequest& Connect();

  /// Reads resources.
  /// @param limit_seconds  See `ReadCall`.
  /// @throws ToolError also if the BMC refuses the login: the first HTTP 401,
  ///     or the second one if it accepted the account for a resource before.
  std::vector<Resource> Read(const std::vector<std::string>& uris,
                             double limit_seconds);

  /// Prints why the library could not read the data.
  ExitCode PrintFailure() const;

  /// What the library logged, without `EventKind::kOther`.
  [[nodiscard]] const std::vector<Event>& events() const { return events_; }

 private:
  WorkerResponse MakeCall(LibraryCall call);
  WorkerResponse ResponseTo(CallResult result) const;

  const BmcOptions& options_;
  std::string subject_;
  std::vector<Event> events_ = {};
  Trust trust_ = {};
  std::optional<RunLog> log_ = {};
  std::unique_ptr<Signals> signals_ = {};
  std::optional<InventoryRequest> request_ = {};
  LoginState login_ = {};
};

/// Reads the resources of a BMC, for all of them together within a time limit.
class BmcReader : public ResourceReader {
 public:
  /// @param subject  What is read, for messages.
  BmcReader(const BmcOptions& options, std::string subject);

  /// @throws ToolError if there is no access to the BMC.
  std::vector<Resource> Read(const std::vector<std::string>& uris) override;

 private:
  BmcCall call_;
  double seconds_left_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_
