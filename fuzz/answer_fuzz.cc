// SPDX-License-Identifier: Apache-2.0
// Every reader of what a BMC answers.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/property.h"
#include "inventory/collection.h"
#include "logging/redact.h"
#include "quorvane/config.h"
#include "support/json.h"
#include "update/response_body.h"
#include "update/tracked_task.h"
#include "update/update_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(bytes), size);
  const quorvane::Config config;
  const quorvane::JsonPtr tree = quorvane::ParseJson(body);
  if (!tree) {
    Demand(quorvane::ParseMemberPaths(body).empty(), "no JSON, no members");
    Demand(quorvane::ExtractTaskUri(body, config).empty(), "no JSON, no task");
  }
  static_cast<void>(quorvane::ExtractErrorMessage(body));

  quorvane::Response answer;
  answer.body = body;
  answer.location = "/redfish/v1/TaskService/Tasks/9";
  const quorvane::HttpClient client;
  const quorvane::UpdateRequest request;
  quorvane::UpdateRun run{
      .client = client, .request = request, .config = config};
  quorvane::TrackTask(answer, quorvane::LogTask::kNo, run);
  Demand(!run.result.task_uri.empty() ||
             quorvane::StringMember(tree.get(), "@odata.id") == "" || !tree,
         "the Location stands in for a body without a task");

  const std::string logged = quorvane::RedactResponse(body);
  Demand(
      logged == body || logged.find(quorvane::kRedacted) != std::string::npos,
      "an answer stays or is redacted");
  const quorvane::JsonPtr account(cJSON_CreateObject());
  quorvane::AddString(account.get(), "Password",
                      (body.c_str() + std::string("s3cret")).c_str());
  const quorvane::JsonPtr quoting(cJSON_CreateObject());
  quorvane::AddString(quoting.get(), "JsonBody",
                      quorvane::PrintJson(account.get()).c_str());
  for (const cJSON* document : {account.get(), quoting.get()}) {
    Demand(quorvane::RedactResponse(quorvane::PrintJson(document))
                   .find("s3cret") == std::string::npos,
           "no password is shown");
  }
  constexpr std::size_t kLimit = 4096;
  if (const auto text = quorvane::PrintJsonWithin(tree.get(), kLimit)) {
    Demand(text->size() < kLimit, "a document keeps its limit");
  }
  return 0;
}
