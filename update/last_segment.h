// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_LAST_SEGMENT_H_
#define QUORVANE_UPDATE_LAST_SEGMENT_H_

#include <string>

namespace quorvane {

/// The text after the last '/' of a URI; empty without one.
std::string LastSegment(const std::string& uri);

/// `LastSegment`, redacted. A secret can contain a slash, so the whole URI
/// decides which part of the segment is secret.
std::string LastSegmentForLog(const std::string& uri);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_LAST_SEGMENT_H_
