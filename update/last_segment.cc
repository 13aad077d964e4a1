// SPDX-License-Identifier: Apache-2.0
#include "update/last_segment.h"

#include <cstddef>

#include "logging/redact.h"

namespace quorvane {

std::string LastSegment(const std::string& uri) {
  const std::size_t slash = uri.rfind('/');
  return slash == std::string::npos ? "" : uri.substr(slash + 1);
}

std::string LastSegmentForLog(const std::string& uri) {
  const std::string segment = LastSegment(uri);
  std::string redacted = LastSegment(RedactUri(uri));
  const bool is_secret_within_segment =
      redacted == segment || redacted == RedactUri(segment);
  return is_secret_within_segment ? redacted : std::string(kRedacted);
}

}  // namespace quorvane
