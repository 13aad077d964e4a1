// SPDX-License-Identifier: Apache-2.0
// The child's side of library_process.h.
//
// It reads one object in CBOR from standard input: "call" ("update",
// "inventory" or "chassis"), "bmc", "user", "password", and what the call needs
// besides; "rules_folder" when the library must have been loaded from there. It
// answers with one JSON object on standard output: "ok" with what came back, or
// "error" with the words of the exception. Texts that are no UTF-8 arrive with
// U+FFFD.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_WORKER_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_WORKER_H_

#include "tools/quorvane/base/exit_code.h"

namespace quorvane::tool {

/// The one argument that makes the tool a worker; no command for people.
constexpr const char* kWorkerArgument = "library-worker";

/// The descriptor on which a worker is given the log's pipe.
constexpr int kWorkerLogDescriptor = 3;

/// Answers one request.
ExitCode RunWorker();

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_WORKER_H_
