// SPDX-License-Identifier: Apache-2.0
// Declares the command-line parser without its header, which takes seconds to
// compile.
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_CLI_FWD_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_CLI_FWD_H_

namespace CLI {  // NOLINT(readability-identifier-naming)
class App;
}  // namespace CLI

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_CLI_FWD_H_
