// SPDX-License-Identifier: Apache-2.0
#include "simulator/redfish.h"

#include <utility>

namespace quorvane::simulator {

std::string NormalizePath(const std::string& path) {
  return path.size() > 1 && path.ends_with('/')
             ? path.substr(0, path.size() - 1)
             : path;
}

std::string MemberId(const std::string& path, std::string_view collection) {
  if (path.size() <= collection.size() + 1 || !path.starts_with(collection) ||
      path[collection.size()] != '/') {
    return {};
  }
  return path.substr(collection.size() + 1);
}

std::string MemberPath(std::string_view collection, std::string_view id) {
  return std::string(collection) + '/' + std::string(id);
}

BmcResponse JsonResponse(int status, const Json& body, HeaderList headers) {
  headers.emplace_back("OData-Version", "4.0");
  // A scenario may contain invalid UTF-8, as a real BMC may send it.
  return {.status = status,
          .body = body.dump(2, ' ', false, Json::error_handler_t::replace),
          .headers = std::move(headers)};
}

BmcResponse ErrorResponse(int status, const std::string& message_key,
                          const std::string& message,
                          const std::string& resolution, HeaderList headers) {
  const Json details = {{"@odata.type", "#Message.v1_1_2.Message"},
                        {"MessageId", "Base.1.8." + message_key},
                        {"Message", message},
                        {"MessageArgs", Json::array()},
                        {"Severity", "Critical"},
                        {"Resolution", resolution}};
  return JsonResponse(status,
                      {{"error",
                        {{"code", "Base.1.8.GeneralError"},
                         {"message", message},
                         {"@Message.ExtendedInfo", Json::array({details})}}}},
                      std::move(headers));
}

std::vector<std::string> StringArray(const Json& object, const char* key) {
  std::vector<std::string> strings;
  if (!object.is_object() || !object.contains(key)) return strings;
  for (const Json& entry : object[key]) {
    if (entry.is_string()) strings.push_back(entry.get<std::string>());
  }
  return strings;
}

}  // namespace quorvane::simulator
