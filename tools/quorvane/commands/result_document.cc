// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/result_document.h"

#include <nlohmann/json.hpp>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/run/versions.h"

namespace quorvane::tool {
namespace {

nlohmann::json RecordOf(const std::optional<UpdateResponse>& response) {
  return response ? nlohmann::json::parse(
                        EscapedJson(UpdateResponseToJson(*response)))
                  : nlohmann::json();
}

}  // namespace

std::string ResultDocument(const Run& run, const std::string& log,
                           const Verdict& verdict, ExitCode code,
                           const Responses& responses) {
  const nlohmann::json json = {{"bmc", run.Detail("BMC")},
                               {"verdict", IdOf(verdict.outcome)},
                               {"exit_code", static_cast<int>(code)},
                               {"headline", verdict.headline},
                               {"cause", verdict.cause},
                               {"next", verdict.next},
                               {"image_sent", HasSentImage(run)},
                               {"firmware", FirmwareJson(run.firmware)},
                               {"record", RecordOf(responses.update)},
                               {"reboot", RecordOf(responses.reboot)},
                               {"log", log},
                               {"duration_seconds", run.end - run.begin}};
  return EscapedJson(json.dump(2, ' ', false,
                               nlohmann::json::error_handler_t::replace)) +
         "\n";
}

}  // namespace quorvane::tool
