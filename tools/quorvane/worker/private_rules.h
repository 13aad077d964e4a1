// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_PRIVATE_RULES_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_PRIVATE_RULES_H_

#include <string>

#include "tools/quorvane/base/safe_file.h"

namespace quorvane::tool {

/// A folder in which other rules lie beside the library.
///
/// The library reads the rules file in the folder from which it was loaded, and
/// takes that folder as the loader names it, symbolic links kept. So a private
/// folder (mode 0700) with a link to the library and a link to the rules, put
/// first on the loader's search path of a new process, makes these rules count
/// there and leaves the installed ones alone. The links copy no password.
class PrivateRules {
 public:
  /// @throws ToolError when the folder cannot be made.
  explicit PrivateRules(const std::string& rules_file);

  [[nodiscard]] const std::string& folder() const { return folder_.path(); }
  /// Value of LD_LIBRARY_PATH for the new process: this folder, then whatever
  /// the variable holds now.
  [[nodiscard]] std::string LoaderPath() const;

 private:
  PrivateFolder folder_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_PRIVATE_RULES_H_
