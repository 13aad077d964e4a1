// SPDX-License-Identifier: Apache-2.0
// All functions that parse or redact the response of a BMC.
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
    CheckProperty(quorvane::ParseMemberPaths(body).empty(),
                  "invalid JSON has no members");
    CheckProperty(quorvane::ExtractTaskUri(body, config).empty(),
                  "invalid JSON has no task");
  }
  static_cast<void>(quorvane::ExtractErrorMessage(body));

  quorvane::Response response;
  response.body = body;
  response.location = "/redfish/v1/TaskService/Tasks/9";
  const quorvane::HttpClient client;
  const quorvane::UpdateRequest request;
  quorvane::UpdateRun run{
      .client = client, .request = request, .config = config};
  quorvane::TrackTask(response, quorvane::LogTask::kNo, run);
  CheckProperty(!run.result.task_uri.empty() ||
                    quorvane::StringMember(tree.get(), "@odata.id") == "" ||
                    !tree,
                "Location is used if the body has no task");

  const std::string logged = quorvane::RedactResponse(body);
  CheckProperty(
      logged == body || logged.find(quorvane::kRedacted) != std::string::npos,
      "a response is unchanged or redacted");
  const quorvane::JsonPtr account(cJSON_CreateObject());
  quorvane::AddString(account.get(), "Password",
                      (body.c_str() + std::string("s3cret")).c_str());
  const quorvane::JsonPtr nested(cJSON_CreateObject());
  quorvane::AddString(nested.get(), "JsonBody",
                      quorvane::PrintJson(account.get()).c_str());
  for (const cJSON* document : {account.get(), nested.get()}) {
    CheckProperty(quorvane::RedactResponse(quorvane::PrintJson(document))
                          .find("s3cret") == std::string::npos,
                  "a password is redacted");
  }
  constexpr std::size_t kLimit = 4096;
  if (const auto text = quorvane::PrintJsonWithin(tree.get(), kLimit)) {
    CheckProperty(text->size() < kLimit,
                  "a document is shorter than its limit");
  }
  return 0;
}
