// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_URI_WALK_H_
#define QUORVANE_UPDATE_URI_WALK_H_

#include <functional>
#include <string>
#include <vector>

#include "quorvane/config.h"

namespace quorvane {

/// The step after one attempt.
enum class Step {
  kRetry,    ///< Another attempt at this URI, unless this was the last one.
  kNextUri,  ///< The next URI, without another attempt at this one.
  kDone,     ///< None: the phase has ended, with or without success.
};

/// The URI of an attempt.
struct UriAttempt {
  const std::string& uri;  ///< From the rules file.
  std::string url;         ///< The base URL and `uri`.
  bool is_last_uri;
};

/// The log messages of a walk.
struct WalkMessages {
  const char* trying;     ///< Before the first attempt at a URI, plus the URL.
  const char* exhausted;  ///< After the last attempt at a URI, plus the URI.
  const char* next;       ///< After `exhausted`, if there is another URI.
};

/// The retry rules of all phases: each URI in order, `max_retries` + 1 attempts
/// at each, a wait between attempts at one URI, and no wait between URIs.
/// @param attempt  Sends one request and returns the next step.
/// @return True if an attempt ended the phase; false if no URI is left.
bool WalkUris(const Config& config, const std::vector<std::string>& uris,
              const WalkMessages& messages,
              const std::function<Step(const UriAttempt&)>& attempt);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_URI_WALK_H_
