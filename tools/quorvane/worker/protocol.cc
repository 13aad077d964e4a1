// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/protocol.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

// The library's JSON documents have their own form, see quorvane/update.h; the
// two processes exchange plain members.
namespace quorvane {

// NOLINTBEGIN(readability-identifier-naming): names that nlohmann/json expects.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(InventoryRequest, ip, username, password)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(InventoryItem, uri, Name, SoftwareId,
                                   Version, target_id)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ChassisInfo, Manufacturer, Model, Name)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(UpdateRequest, bmc_ip, username, password,
                                   image_uri, local_file, share_username,
                                   share_password, targets,
                                   verify_remote_server_certificate,
                                   prefetched_inventory)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(UpdateResponse, accepted, http_status,
                                   task_uri, task_id, task_state,
                                   percent_complete, message, reboot_performed)

namespace tool {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(InventoryCall, request)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ChassisCall, request)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(InventoryResult, was_read, items)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ChassisResult, was_read, info)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ProbeCall, address)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(RestartCall, request)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(WatchCall, request, task_uri,
                                   percent_complete)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(KeyCall, address)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LoginState, was_accepted, refusals)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ReadCall, request, uris, limit_seconds,
                                   login)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ReadResource, uri, status, body, reason)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ReadResult, resources)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Trust, pinned_key, ca_file, forbids_download)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ProbeResult, status, reason)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(KeyResult, key)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(WorkerError, message, is_out_of_memory,
                                   is_login_refused)
// NOLINTEND(readability-identifier-naming)

namespace {

using Json = nlohmann::json;

// Does not compile if a member is added, until the lists above have it too.
[[maybe_unused]] void CheckMembers(const UpdateRequest& request,
                                   const UpdateResponse& response,
                                   const InventoryItem& item,
                                   const ChassisInfo& info) {
  [[maybe_unused]] const auto& [q1, q2, q3, q4, q5, q6, q7, q8, q9, q10] =
      request;
  [[maybe_unused]] const auto& [s1, s2, s3, s4, s5, s6, s7, s8] = response;
  [[maybe_unused]] const auto& [i1, i2, i3, i4, i5] = item;
  [[maybe_unused]] const auto& [c1, c2, c3] = info;
}

// A variant is [index of the alternative, value].
template <typename... Types>
Json VariantToJson(const std::variant<Types...>& value) {
  return {value.index(),
          std::visit([](const auto& one) { return Json(one); }, value)};
}

template <typename Variant, std::size_t index = 0>
Variant VariantFromJson(const Json& json) {
  if constexpr (index == std::variant_size_v<Variant>) {
    throw std::runtime_error("unknown message type");
  } else {
    if (json.at(0) != index) return VariantFromJson<Variant, index + 1>(json);
    return json.at(1).get<std::variant_alternative_t<index, Variant>>();
  }
}

std::string Bytes(const Json& json) {
  std::string bytes;
  Json::to_cbor(json, bytes);
  return bytes;
}

}  // namespace

std::string Encode(const WorkerRequest& request) {
  return Bytes(
      {VariantToJson(request.call), request.trust, request.rules_directory});
}

std::string Encode(const WorkerResponse& response) {
  return Bytes(VariantToJson(response));
}

WorkerRequest DecodeRequest(std::string_view bytes) {
  const Json json = Json::from_cbor(bytes);
  return {.call = VariantFromJson<LibraryCall>(json.at(0)),
          .trust = json.at(1).get<Trust>(),
          .rules_directory = json.at(2)};
}

WorkerResponse DecodeResponse(std::string_view bytes) {
  return VariantFromJson<WorkerResponse>(Json::from_cbor(bytes));
}

}  // namespace tool
}  // namespace quorvane
