// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_LOCATION_H_
#define QUORVANE_LOGGING_LOCATION_H_

#include <string>

namespace quorvane {

/// Checks that only root can redirect or change a log at `path`. The directory
/// must belong to root, must not be a symbolic link, and must not be writable
/// by all users. It is created, with its parents and mode 0750, if it is
/// missing. The file must not be a symbolic link to an existing file.
///
/// @return Empty if the location is safe; else the error message.
std::string CheckLogLocation(const std::string& path);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_LOCATION_H_
