// SPDX-License-Identifier: Apache-2.0
// Guards the requests of the library in the worker process.
//
// The library checks no certificate, and its HttpClient has no option for one.
// So this program defines curl_easy_perform itself, which the library then
// calls instead of libcurl's: it sets what the operator requires on the handle,
// calls the real function, and logs what the library cannot know: whether a
// failed request left the host.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_REQUEST_GUARD_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_REQUEST_GUARD_H_

#include <functional>
#include <string>

#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {

/// What a guard requires of the requests of this process.
struct RequestPolicy {
  Trust trust = {};
  std::string bmc = {};        ///< Address, with ":port" if needed.
  std::string image_uri = {};  ///< Download that `trust` does not identify.
  /// Called instead of the request that follows a refused login (HTTP 401) of a
  /// run that changed nothing; does not return. More attempts could lock the
  /// account. Empty: the caller decides.
  std::function<void()> on_refused_login = {};
};

/// Applies `policy` to all requests from now on.
void GuardRequests(RequestPolicy policy);

/// Proves that the library's requests pass through the guard: one to a server
/// of this process, whose key `trust` cannot know, must fail. Does nothing if
/// `trust` requires no check.
/// @throws std::runtime_error if it succeeds; no password may be sent then.
void RequireEffectiveGuard(const Trust& trust);

/// The public key of the server at `address`, as "sha256//BASE64"
/// (CURLOPT_PINNEDPUBLICKEY). Sends no credentials.
/// @throws std::runtime_error if there is no response.
std::string ServerKey(const std::string& address);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_REQUEST_GUARD_H_
