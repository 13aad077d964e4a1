// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_PRIVATE_RULES_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_PRIVATE_RULES_H_

#include <string>

#include "tools/quorvane/base/safe_file.h"

namespace quorvane::tool {

/// Temporary directory that makes the library load another rules file.
///
/// The library reads the rules file in the directory from which it was loaded,
/// as the loader names it: symbolic links are not resolved. So a private
/// directory (mode 0700) contains a link to the library and a link to the rules
/// file, or a changed copy of it. A new process with this directory first on
/// the loader's search path uses these rules. The installed ones stay
/// unchanged, and no password is copied.
class PrivateRules {
 public:
  enum class Content {
    kSame,      ///< The rules as they are.
    kNoReboot,  ///< The same rules, with `reboot_required` false.
  };

  /// @throws ToolError when the directory cannot be created, or when a copy
  /// would not mean the same to the library.
  PrivateRules(const std::string& rules_file, Content content);

  [[nodiscard]] const std::string& directory() const {
    return directory_.path();
  }
  /// Value of LD_LIBRARY_PATH for the new process: this directory, then the
  /// current value.
  [[nodiscard]] std::string LoaderPath() const;

 private:
  PrivateDirectory directory_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_PRIVATE_RULES_H_
