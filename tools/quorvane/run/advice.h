// SPDX-License-Identifier: Apache-2.0
// What the operator can do next: sentences and commands that can be pasted.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_ADVICE_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_ADVICE_H_

#include <string>

#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// How a run connected to its BMC, as far as its log states it; the rest is
/// empty.
struct LoggedAccess {
  std::string bmc = {};
  std::string user = {};
  std::string pin = {};     ///< "sha256//BASE64"
  std::string cacert = {};  ///< File of certificates.
  std::string rules = {};   ///< Rules file; empty: the installed one.
  bool is_forced = false;   ///< Errors in the rules were accepted.
};
LoggedAccess AccessIn(const Run& run);

/// "`quorvane restart --bmc 192.0.2.7 --user admin`"
std::string RebootCommand(const Run& run);

/// How to compare the versions of the firmware with those before.
std::string CompareVersions(const Run& run);

/// How to find a task whose URI is not known.
std::string LookForTask(const Run& run);

/// How to check the last task, then the versions.
std::string CheckTask(const Run& run);

/// What an HTTP 403 at the inventory means, and what to do about it.
std::string AfterForbiddenInventory(const Run& run);

/// What an HTTP 401 means, and what to do about it.
std::string AfterRefusedLogin(const Run& run);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_ADVICE_H_
