// SPDX-License-Identifier: Apache-2.0
// The worker process: makes one library call. See library_process.h for the
// process that starts it, and protocol.h for the request that it reads from
// standard input and the response that it writes to standard output.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_WORKER_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_WORKER_H_

#include <string>

#include "tools/quorvane/base/exit_code.h"

namespace quorvane::tool {

/// The first argument of a process that is a worker; the second one is the
/// process that started it. Not a user command.
constexpr const char* kWorkerArgument = "library-worker";

/// The descriptor of the pipe to which a worker writes log records, see
/// record_stream.h.
constexpr int kWorkerLogDescriptor = 3;

/// Reads one request, makes the call and writes the response. Ends with the
/// process `parent`.
ExitCode RunWorker(const std::string& parent);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_WORKER_H_
