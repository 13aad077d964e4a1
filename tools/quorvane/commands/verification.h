// SPDX-License-Identifier: Apache-2.0
// Compares the versions of the firmware with those before the update.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_VERIFICATION_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_VERIFICATION_H_

#include <string>
#include <vector>

#include "quorvane/inventory.h"
#include "tools/quorvane/base/cli_fwd.h"
#include "tools/quorvane/commands/run_session.h"

namespace quorvane::tool {

/// --no-verify, --verify-timeout and --expect.
struct VerifyOptions {
  bool is_off = false;
  int timeout_seconds = 1200;
  int interval_seconds = 10;                   ///< Between two checks.
  std::vector<std::string> expectations = {};  ///< "NAME=VERSION"
};

/// Adds the options to `command`. `options` must outlive it.
void AddVerifyOptions(CLI::App& command, VerifyOptions& options);

/// `options` with checks at least that often.
VerifyOptions AtMostEvery(int seconds, VerifyOptions options);

/// Checks that each of `expectations` names one of `members`: a name that
/// identifies no member, or several, would decide nothing.
/// @param bmc  Address, for messages.
/// @throws ToolError
void RequireMembersNamed(const std::vector<std::string>& expectations,
                         const std::vector<FirmwareMember>& members,
                         const std::string& bmc);

/// Whether the versions show the update now, by one reading of the inventory.
bool IsUpdatedNow(RunSession& session, const InventoryRequest& bmc);

/// Logs the versions before the update, so that the log alone shows what
/// changed.
/// @param items    Empty if the inventory could not be read.
/// @param targets  URIs of --target: of members, or of what they belong to.
void NoteVersionsBefore(RunSession& session,
                        const std::vector<InventoryItem>& items,
                        const std::vector<std::string>& targets);

/// Reads the inventory until the result is decided, or nothing more can change,
/// or the time is over. Sends only GET requests, and none if nothing was
/// accepted. What it finds becomes part of the run, and of its verdict.
///
/// A BMC that restarts can respond and disappear again, so only three
/// inventories in a row count. They must be complete, unless a member was not
/// readable before the update either, or is not until the end of the time.
void VerifyVersions(RunSession& session, const InventoryRequest& bmc,
                    const VerifyOptions& options);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_VERIFICATION_H_
