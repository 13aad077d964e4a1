// SPDX-License-Identifier: Apache-2.0
// The requests and polls of a run as text.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_REQUEST_TEXT_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_REQUEST_TEXT_H_

#include <string>

#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// `text` with a period at its end, unless it is empty or has one.
std::string Sentence(std::string text);

/// All requests that can change the BMC, the same request once with its count:
/// "Requests: Upload at /a: HTTP 503, 2 times; Upload at /b: HTTP 404."
std::string ListOf(const Run& run);

/// "Upload at /a returned HTTP 413: Too large.", then the other requests.
std::string CauseAndList(const Run& run, const ChangeRequest& rejection);

/// What happened to the reboot, to append to a verdict on a task: "; the BMC
/// rejected the reboot (HTTP 409)". Empty if there was none.
std::string RebootClause(const Facts& facts);

/// "Last state: Running. The last poll returned HTTP 401 (login refused)."
std::string LastPoll(const Run& run, const PhaseRun& task);

/// Why the download failed that follows a rejected SimpleUpdate; empty if the
/// run did not end there.
std::string FailedDownload(const Run& run);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_REQUEST_TEXT_H_
