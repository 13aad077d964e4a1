// SPDX-License-Identifier: Apache-2.0
// How the tool identifies a BMC: options, environment, or the file of the site.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_TRUST_OPTIONS_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_TRUST_OPTIONS_H_

#include <optional>
#include <string>

#include "tools/quorvane/base/cli_fwd.h"
#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {

struct BmcOptions;

struct TrustOptions {
  std::string pin = {};          ///< "sha256//BASE64"
  std::string cacert = {};       ///< File of certificates (PEM).
  std::string known_hosts = {};  ///< File of keys, see `StoredKey`.
  bool insecure = false;         ///< No check, and no warning.

  [[nodiscard]] bool IsSet() const {
    return insecure || !pin.empty() || !cacert.empty() || !known_hosts.empty();
  }
};

void AddTrustOptions(CLI::App& command, TrustOptions& options);

/// The options if there are any; else QUORVANE_PIN, QUORVANE_CACERT,
/// QUORVANE_KNOWN_HOSTS and QUORVANE_INSECURE; else /etc/quorvane/tool.json.
/// @throws ToolError if that file cannot be used.
TrustOptions EffectiveTrustOptions(const TrustOptions& options);

/// What the worker has to check. Prints a warning if that is nothing, unless
/// the operator accepted it.
/// @throws ToolError for a wrong pin, an unreadable file, or an address that
/// the known hosts do not contain.
Trust ResolveTrust(const BmcOptions& options);

/// The key of `address` in a file of known hosts; nothing if there is none. A
/// line contains an address and its key; lines that begin with "#" are
/// comments.
/// @throws ToolError if the file exists, but cannot be used.
std::optional<std::string> StoredKey(const std::string& file,
                                     const std::string& address);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_TRUST_OPTIONS_H_
