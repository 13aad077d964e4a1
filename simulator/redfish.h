// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_REDFISH_H_
#define QUORVANE_SIMULATOR_REDFISH_H_

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/http_message.h"

namespace quorvane::simulator {

inline constexpr std::string_view kServiceRoot = "/redfish/v1";
inline constexpr std::string_view kUpdateService = "/redfish/v1/UpdateService";
inline constexpr std::string_view kFirmwareInventory =
    "/redfish/v1/UpdateService/FirmwareInventory";
inline constexpr std::string_view kSoftwareInventory =
    "/redfish/v1/UpdateService/SoftwareInventory";
inline constexpr std::string_view kChassisCollection = "/redfish/v1/Chassis";
inline constexpr std::string_view kSystems = "/redfish/v1/Systems";
inline constexpr std::string_view kTaskService = "/redfish/v1/TaskService";
inline constexpr std::string_view kTasks = "/redfish/v1/TaskService/Tasks";
inline constexpr std::string_view kTaskMonitors =
    "/redfish/v1/TaskService/TaskMonitors";

/// The path without a slash at its end, as DSP0266 lets a client write it.
std::string NormalizePath(const std::string& path);

/// What stands behind `collection` and a slash; empty when `path` is no member.
std::string MemberId(const std::string& path, std::string_view collection);

std::string MemberPath(std::string_view collection, std::string_view id);

BmcResponse JsonResponse(int status, const nlohmann::ordered_json& body,
                         HeaderList headers = {});

/// An error object (DSP0266, "Error responses") with one message of the Base
/// registry, e.g. "ResourceMissingAtURI".
BmcResponse ErrorResponse(int status, const std::string& message_key,
                          const std::string& message,
                          const std::string& resolution,
                          HeaderList headers = {});

/// The strings of the array `key`; empty when there is none.
std::vector<std::string> StringArray(const nlohmann::ordered_json& object,
                                     const char* key);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_REDFISH_H_
