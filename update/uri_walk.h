// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_URI_WALK_H_
#define QUORVANE_UPDATE_URI_WALK_H_

#include <functional>
#include <string>
#include <vector>

#include "quorvane/config.h"

namespace quorvane {

/// What follows one attempt.
enum class Step {
  kRetry,    ///< Try this URI again, while it has tries left.
  kNextUri,  ///< Leave this URI at once.
  kDone,     ///< The phase has ended, well or not.
};

/// One attempt's place in the walk.
struct UriAttempt {
  const std::string& uri;  ///< As the rules file has it.
  std::string url;         ///< With the base URL before it.
  bool is_last_uri;
};

/// What a phase logs on the way.
struct WalkMessages {
  const char* trying;     ///< Before a URI's first try: then the URL.
  const char* exhausted;  ///< After its last try: then the URI.
  const char* next;       ///< Behind that, if more URIs follow.
};

/// The retry discipline of all phases: each URI in order, `max_retries` + 1
/// tries for each, a wait between tries of one URI and none between URIs.
/// @param attempt  Makes one try and tells what follows.
/// @return True when an attempt ended the phase; false when all were in vain.
bool WalkUris(const Config& config, const std::vector<std::string>& uris,
              const WalkMessages& messages,
              const std::function<Step(const UriAttempt&)>& attempt);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_URI_WALK_H_
