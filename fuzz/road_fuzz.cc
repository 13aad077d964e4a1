// SPDX-License-Identifier: Apache-2.0
// Whole calls against a BMC that answers anything: every reader of a Redfish
// body, in every order. The wire is left out: this file is the HttpClient.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/property.h"
#include "quorvane/http.h"
#include "quorvane/inventory.h"
#include "quorvane/update.h"
#include "support/json.h"

namespace {

// The input behind its first byte: answers apart by RS, as JSON texts in
// RFC 7464. Each is a line "STATUS LOCATION" and a body.
std::string_view answers_left;
int requests = 0;
bool has_targets = false;

quorvane::Response NextAnswer() {
  // The shipped rules poll a task 600 times at most.
  Demand(++requests < 5'000, "a call comes to an end");
  if (answers_left.empty()) throw std::runtime_error("connection refused");
  const std::string_view answer =
      answers_left.substr(0, answers_left.find('\x1e'));
  answers_left.remove_prefix(answer.size() +
                             (answer.size() < answers_left.size() ? 1 : 0));

  const std::string head(answer.substr(0, answer.find('\n')));
  quorvane::Response response;
  char* end = nullptr;
  response.status_code = std::strtol(head.c_str(), &end, 10) % 1'000;
  if (*end == ' ') response.location = end + 1;
  if (head.size() < answer.size()) {
    response.body = answer.substr(head.size() + 1);
  }
  return response;
}

void CheckAccount(const std::string& username, const std::string& password,
                  const std::string& auth_type) {
  Demand(username == "root" && password == "s" && auth_type == "basic",
         "a login has its account");
}

void UpdateAndCheck(const quorvane::UpdateRequest& request) {
  const quorvane::UpdateResponse result = quorvane::PerformUpdate(request);
  Demand(result.accepted || !result.message.empty(), "a refusal has a reason");
  Demand(result.accepted || !result.reboot_performed,
         "no restart without an accepted update");
  Demand(result.percent_complete >= -1, "a percentage is known or not");
  Demand(quorvane::ParseJson(quorvane::UpdateResponseToJson(result)) != nullptr,
         "a record is JSON");
}

void Run(char call) {
  const quorvane::InventoryRequest server{"192.0.2.1", "root", "s"};
  if (call == 'i') {
    std::vector<quorvane::InventoryItem> items;
    try {
      const bool good = quorvane::FetchInventory(server, items);
      Demand(good || items.empty(), "no inventory, no items");
    } catch (const std::runtime_error&) {
      Demand(answers_left.empty(), "an answer is no exception");
    }
    return;
  }
  if (call == 'c') {
    quorvane::ChassisInfo info;
    const bool good = quorvane::FetchChassisInfo(server, info);
    Demand(good != info.Manufacturer.empty(), "a chassis has a maker");
    Demand(good != info.Name.empty(), "a chassis has a name");
    return;
  }
  quorvane::UpdateRequest request;
  request.bmc_ip = "192.0.2.1";
  request.username = "root";
  request.password = "s";
  has_targets = call != 'n';
  if (has_targets) {
    request.targets = {"/redfish/v1/UpdateService/FirmwareInventory/BMC"};
    request.prefetched_inventory.resize(1);
  }
  if (call == 's') {
    request.image_uri = "https://192.0.2.2/fw.bin";
  } else {
    request.local_file = "/dev/null";
  }
  UpdateAndCheck(request);
}

}  // namespace

namespace quorvane {

Response::~Response() = default;
HttpClient::HttpClient() = default;
HttpClient::~HttpClient() = default;

// NOLINTBEGIN(readability-convert-member-functions-to-static)
Response HttpClient::get(const std::string& /*url*/, const Headers& /*headers*/,
                         long /*timeout_ms*/, const std::string& /*username*/,
                         const std::string& /*password*/,
                         const std::string& /*auth_type*/) const {
  return NextAnswer();
}

Response HttpClient::post_json(const std::string& /*url*/,
                               const std::string& body,
                               const Headers& /*headers*/, long /*timeout_ms*/,
                               const std::string& /*username*/,
                               const std::string& /*password*/,
                               const std::string& /*auth_type*/) const {
  Demand(ParseJson(body) != nullptr, "the parameters of an action are JSON");
  return NextAnswer();
}

Response HttpClient::post_multipart(
    const std::string& /*url*/, const std::string& /*file_path*/,
    const std::string& /*file_part_name*/, const Headers& /*headers*/,
    long /*timeout_ms*/, const std::string& username,
    const std::string& password, const std::string& auth_type,
    const std::string& update_parameters) const {
  CheckAccount(username, password, auth_type);
  Demand(has_targets == (update_parameters.find("FirmwareInventory/BMC") !=
                         std::string::npos),
         "an upload has its targets");
  return NextAnswer();
}

Response HttpClient::post_binary_file(const std::string& /*url*/,
                                      const std::string& /*file_path*/,
                                      const Headers& /*headers*/,
                                      long /*timeout_ms*/,
                                      const std::string& /*username*/,
                                      const std::string& /*password*/,
                                      const std::string& /*auth_type*/) const {
  return NextAnswer();
}
// NOLINTEND(readability-convert-member-functions-to-static)

}  // namespace quorvane

extern "C" int nanosleep(const timespec* /*wanted*/, timespec* /*left*/) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  if (size == 0) return 0;
  answers_left = {reinterpret_cast<const char*>(bytes) + 1, size - 1};
  requests = 0;
  Run(static_cast<char>(bytes[0]));
  return 0;
}
