// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_LOCATION_H_
#define QUORVANE_LOGGING_LOCATION_H_

#include <string>

namespace quorvane {

/// Makes sure that nobody but root can redirect or tamper with a log at `path`:
/// its folder (made with its ancestors, mode 0750, if it is missing) is a real
/// folder of root's that not everybody may write to, and the file is no
/// symbolic link to anything that exists.
///
/// @return Empty when the location is safe; else what is wrong, with the path.
std::string LogLocationFault(const std::string& path);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_LOCATION_H_
