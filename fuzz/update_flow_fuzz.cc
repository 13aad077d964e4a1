// SPDX-License-Identifier: Apache-2.0
// Complete calls of the library with arbitrary responses, so that everything
// that parses a Redfish body runs, in any order. This file replaces the
// HttpClient, so that no network is involved.
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

// The input after its first byte: responses, separated by RS as in RFC 7464.
// Each consists of a line "STATUS LOCATION" and a body.
std::string_view remaining_input;
int request_count = 0;
bool has_targets = false;

quorvane::Response NextResponse() {
  // The default rules poll a task at most 600 times.
  CheckProperty(++request_count < 5'000, "a call ends");
  if (remaining_input.empty()) throw std::runtime_error("connection refused");
  const std::string_view text =
      remaining_input.substr(0, remaining_input.find('\x1e'));
  remaining_input.remove_prefix(text.size() +
                                (text.size() < remaining_input.size() ? 1 : 0));

  const std::string header(text.substr(0, text.find('\n')));
  quorvane::Response response;
  char* end = nullptr;
  response.status_code = std::strtol(header.c_str(), &end, 10) % 1'000;
  if (*end == ' ') response.location = end + 1;
  if (header.size() < text.size()) {
    response.body = text.substr(header.size() + 1);
  }
  return response;
}

void CheckAccount(const std::string& username, const std::string& password,
                  const std::string& auth_type) {
  CheckProperty(username == "root" && password == "s" && auth_type == "basic",
                "a login uses the given account");
}

void UpdateAndCheck(const quorvane::UpdateRequest& request) {
  const quorvane::UpdateResponse result = quorvane::PerformUpdate(request);
  CheckProperty(result.accepted || !result.message.empty(),
                "a rejection has a reason");
  CheckProperty(result.accepted || !result.reboot_performed,
                "no reboot without an accepted update");
  CheckProperty(result.percent_complete >= -1, "a percentage is -1 or more");
  CheckProperty(
      quorvane::ParseJson(quorvane::UpdateResponseToJson(result)) != nullptr,
      "a record is valid JSON");
}

void Run(char call) {
  const quorvane::InventoryRequest server{"192.0.2.1", "root", "s"};
  if (call == 'i') {
    std::vector<quorvane::InventoryItem> items;
    try {
      const bool succeeded = quorvane::FetchInventory(server, items);
      CheckProperty(succeeded || items.empty(),
                    "a failed inventory has no items");
    } catch (const std::runtime_error&) {
      CheckProperty(remaining_input.empty(), "a response causes no exception");
    }
    return;
  }
  if (call == 'c') {
    quorvane::ChassisInfo info;
    const bool succeeded = quorvane::FetchChassisInfo(server, info);
    CheckProperty(succeeded != info.Manufacturer.empty(),
                  "a chassis has a manufacturer");
    CheckProperty(succeeded != info.Name.empty(), "a chassis has a name");
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
  return NextResponse();
}

Response HttpClient::post_json(const std::string& /*url*/,
                               const std::string& body,
                               const Headers& /*headers*/, long /*timeout_ms*/,
                               const std::string& /*username*/,
                               const std::string& /*password*/,
                               const std::string& /*auth_type*/) const {
  CheckProperty(ParseJson(body) != nullptr, "action parameters are valid JSON");
  return NextResponse();
}

Response HttpClient::post_multipart(
    const std::string& /*url*/, const std::string& /*file_path*/,
    const std::string& /*file_part_name*/, const Headers& /*headers*/,
    long /*timeout_ms*/, const std::string& username,
    const std::string& password, const std::string& auth_type,
    const std::string& update_parameters) const {
  CheckAccount(username, password, auth_type);
  CheckProperty(
      has_targets == (update_parameters.find("FirmwareInventory/BMC") !=
                      std::string::npos),
      "an upload contains its targets");
  return NextResponse();
}

Response HttpClient::post_binary_file(const std::string& /*url*/,
                                      const std::string& /*file_path*/,
                                      const Headers& /*headers*/,
                                      long /*timeout_ms*/,
                                      const std::string& /*username*/,
                                      const std::string& /*password*/,
                                      const std::string& /*auth_type*/) const {
  return NextResponse();
}
// NOLINTEND(readability-convert-member-functions-to-static)

}  // namespace quorvane

extern "C" int nanosleep(const timespec* /*duration*/,
                         timespec* /*remaining*/) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  if (size == 0) return 0;
  remaining_input = {reinterpret_cast<const char*>(bytes) + 1, size - 1};
  request_count = 0;
  Run(static_cast<char>(bytes[0]));
  return 0;
}
