// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/request_text.h"

#include <fmt/core.h>

#include <algorithm>
#include <vector>

#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Fate = ChangeRequest::Fate;

// "Upload at /a: HTTP 413 (The image is too large.)"
std::string TextOf(const ChangeRequest& request) {
  std::string text =
      fmt::format("{} at {}: ", NameOf(request.phase), PathOf(request.uri));
  switch (request.fate) {
    case Fate::kPlanned:
      return text + "not sent";
    case Fate::kNotSent:
      text += "not sent";
      break;
    case Fate::kSending:
      text += request.is_complete ? "sent completely, no response yet"
                                  : "no response yet";
      break;
    case Fate::kNoResponse:
      text += "sent, no response";
      break;
    case Fate::kAnswered:
      text += fmt::format("HTTP {}", request.status);
      break;
  }
  // The text about a missing endpoint only repeats the status.
  const bool is_needed = !request.text.empty() && !IsMissing(request);
  return is_needed ? fmt::format("{} ({})", text, Excerpt(request.text, 100))
                   : text;
}

// ", 2 times"
std::string Times(std::ptrdiff_t count) {
  return count < 2 ? std::string() : fmt::format(", {} times", count);
}

// "Upload at /a: HTTP 503, 2 times; Upload at /b: HTTP 404", without the
// requests that read like `omitted`.
std::string ListWithout(const Run& run, const std::string& omitted) {
  std::string list;
  for (auto one = run.requests.begin(); one != run.requests.end();) {
    const std::string text = TextOf(*one);
    const auto next = std::find_if(
        one, run.requests.end(),
        [&text](const auto& other) { return TextOf(other) != text; });
    if (one->fate != Fate::kPlanned && text != omitted) {
      list += (list.empty() ? "" : "; ") + text + Times(next - one);
    }
    one = next;
  }
  return list;
}

// "Upload at /a returned HTTP 413: Too large."
std::string CauseOf(const ChangeRequest& rejection, std::ptrdiff_t times) {
  std::string cause =
      fmt::format("{} at {} returned HTTP {}{}", NameOf(rejection.phase),
                  PathOf(rejection.uri), rejection.status, Times(times));
  if (!rejection.text.empty()) cause += ": " + rejection.text;
  return Sentence(cause);
}

}  // namespace

std::string Sentence(std::string text) {
  // The text of a BMC may end without a period.
  if (!text.empty() && text.back() != '.') text += '.';
  return text;
}

std::string ListOf(const Run& run) {
  const std::string list = ListWithout(run, {});
  return list.empty() ? list : Sentence("Requests: " + list);
}

std::string CauseAndList(const Run& run, const ChangeRequest& rejection) {
  const std::string text = TextOf(rejection);
  const auto times =
      std::count_if(run.requests.begin(), run.requests.end(),
                    [&text](const auto& one) { return TextOf(one) == text; });
  const std::string others = ListWithout(run, text);
  return CauseOf(rejection, times) +
         (others.empty() ? "" : Sentence(" Other requests: " + others));
}

std::string RebootClause(const Facts& facts) {
  switch (facts.reboot) {
    case Answer::kAccepted:
      return "; the BMC accepted a reboot of the system";
    case Answer::kRejected:
      return fmt::format("; the BMC rejected the reboot (HTTP {})",
                         LastRejection(facts.run, IsReboot)->status);
    case Answer::kInDoubt:
      return "; a reboot request got no response";
    case Answer::kNotSent:
      return "; the reboot request did not reach the BMC";
    case Answer::kNone:
      break;
  }
  if (facts.run.reboot_withheld.empty()) return {};
  // Whether the operator rebooted it in between is not known.
  return (facts.run.was_continued ? "; no reboot was requested, because "
                                  : "; the system was not rebooted, because ") +
         facts.run.reboot_withheld;
}

std::string LastPoll(const Run& run, const PhaseRun& task) {
  std::string text = task.task.empty() ? "No poll returned a state."
                                       : fmt::format("Last state: {}.",
                                                     task.task.back().state);
  if (task.failed_poll == 0) {
    text += " The last poll got no response: " + Sentence(run.transfer_failure);
  }
  if (task.failed_poll > 0) {
    text += fmt::format(
        " The last poll returned HTTP {}{}.", task.failed_poll,
        task.failed_poll == kHttpUnauthorized ? " (login refused)" : "");
  }
  return text;
}

std::string FailedDownload(const Run& run) {
  if (run.phases.empty() || run.phases.back().phase != Phase::kDownload) {
    return {};
  }
  const std::vector<Remark>& remarks = run.phases.back().remarks;
  return " The download of the image failed as well" +
         (remarks.empty() ? "." : ": " + Sentence(remarks.back().text));
}

}  // namespace quorvane::tool
