// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_READ_RESOURCES_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_READ_RESOURCES_H_

#include <cstddef>
#include <functional>
#include <string>

#include "quorvane/http.h"
#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {

/// Time limit of each request of a `ReadCall`, in milliseconds.
constexpr long kReadTimeoutMs = 15'000;
/// A longer body is left out.
constexpr std::size_t kMaxReadBodyBytes = std::size_t{16} << 20;
/// So are bodies that would make the result longer than a worker may send.
constexpr std::size_t kMaxReadBytes = std::size_t{48} << 20;
/// After so many requests in a row without a response, the rest is not
/// requested: a BMC that stopped responding must not cost a time limit each.
constexpr int kMaxFailuresInARow = 3;

/// Sends a GET to `uri` on the BMC.
/// @throws std::runtime_error if there is no response.
using GetResource =
    std::function<Response(const std::string& uri, long timeout_ms)>;

/// Whether `uri` is a path on the BMC. Any other link could lead to another
/// host, which must not receive the credentials.
bool IsPathOnBmc(const std::string& uri);

/// Reads each URI of `call` with `get`, within the limits above, until the BMC
/// refuses the login.
ReadResult ReadResources(const ReadCall& call, const GetResource& get);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_READ_RESOURCES_H_
