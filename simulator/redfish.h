// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_REDFISH_H_
#define QUORVANE_SIMULATOR_REDFISH_H_

#include <string>
#include <string_view>
#include <vector>

#include "simulator/http_message.h"
#include "simulator/json.h"

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

/// Removes a trailing slash, which DSP0266 lets a client add.
std::string NormalizePath(const std::string& path);

/// The id of the member `path` of `collection`; empty if it is not a member.
std::string MemberId(const std::string& path, std::string_view collection);

std::string MemberPath(std::string_view collection, std::string_view id);

BmcResponse JsonResponse(int status, const Json& body, HeaderList headers = {});

/// An error object (DSP0266, "Error responses") with one message of the Base
/// registry, such as "ResourceMissingAtURI".
BmcResponse ErrorResponse(int status, const std::string& message_key,
                          const std::string& message,
                          const std::string& resolution,
                          HeaderList headers = {});

/// The strings in the array `key`; empty if there is no such array.
std::vector<std::string> StringArray(const Json& object, const char* key);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_REDFISH_H_
