// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_BMC_LOCK_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_BMC_LOCK_H_

#include <string>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {

/// While it exists, no other process of this host can lock the same BMC, also
/// not one of another user. The system releases it when the process ends.
///
/// Two names of one BMC are two locks. A container with a network of its own
/// has its own locks.
class BmcLock {
 public:
  /// @param address  Letter case and the default port make no difference.
  /// @throws ToolError that names the process that holds the lock.
  explicit BmcLock(const std::string& address);

 private:
  Descriptor socket_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_BMC_LOCK_H_
