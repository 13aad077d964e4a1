// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/read_resources.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/quorvane/base/http_status.h"

namespace quorvane::tool {
namespace {

using SteadyClock = std::chrono::steady_clock;

class BoundedReader {
 public:
  BoundedReader(const ReadCall& call, const GetResource& get)
      : get_(get),
        limit_ms_(1000 * call.limit_seconds),
        begin_(SteadyClock::now()),
        login_(call.login) {}

  ReadResource Read(const std::string& uri) {
    ReadResource resource{.uri = uri};
    resource.reason = ReasonAgainst(uri);
    if (!resource.reason.empty()) return resource;
    try {
      Add(get_(uri, static_cast<long>(std::clamp<double>(
                        limit_ms_ - ElapsedMs(), 1, kReadTimeoutMs))),
          resource);
      failures_ = 0;
    } catch (const std::runtime_error& error) {
      resource.reason = error.what();
      ++failures_;
    }
    return resource;
  }

 private:
  [[nodiscard]] double ElapsedMs() const {
    return std::chrono::duration<double, std::milli>(SteadyClock::now() -
                                                     begin_)
        .count();
  }

  [[nodiscard]] std::string ReasonAgainst(const std::string& uri) const {
    if (!IsPathOnBmc(uri)) return "not requested: it is not a path on the BMC";
    if (login_.IsRefused()) return "not requested: the BMC refused the login";
    if (failures_ >= kMaxFailuresInARow) {
      return "not requested: the BMC stopped responding";
    }
    return ElapsedMs() >= limit_ms_ ? "not requested: the time limit is reached"
                                    : std::string();
  }

  void Add(Response response, ReadResource& resource) {
    resource.status = response.status_code;
    login_.Note(resource.uri, resource.status);
    if (response.body.size() > kMaxReadBodyBytes ||
        response.body.size() > kMaxReadBytes - bytes_) {
      resource.reason = "the response is too long";
      return;
    }
    bytes_ += response.body.size();
    resource.body = std::move(response.body);
  }

  const GetResource& get_;
  double limit_ms_;
  SteadyClock::time_point begin_;
  LoginState login_;
  std::size_t bytes_ = 0;
  int failures_ = 0;
};

// DSP0266: these need no login.
bool IsPublic(const std::string& uri) {
  constexpr std::array<std::string_view, 6> kPublic = {
      "/redfish",     "/redfish/",         "/redfish/v1",
      "/redfish/v1/", "/redfish/v1/odata", "/redfish/v1/$metadata"};
  return std::find(kPublic.begin(), kPublic.end(), uri) != kPublic.end();
}

}  // namespace

void LoginState::Note(const std::string& uri, long status) {
  if (status == kHttpUnauthorized) ++refusals;
  if (status >= 200 && status < 300 && !IsPublic(uri)) was_accepted = true;
}

bool LoginState::IsRefused() const {
  return refusals > 1 || (refusals > 0 && !was_accepted);
}

bool IsPathOnBmc(const std::string& uri) {
  return uri.rfind('/', 0) == 0 &&
         std::all_of(uri.begin(), uri.end(),
                     [](const char c) { return c > ' ' && c != '\x7f'; });
}

ReadResult ReadResources(const ReadCall& call, const GetResource& get) {
  BoundedReader reader(call, get);
  ReadResult result;
  result.resources.reserve(call.uris.size());
  for (const std::string& uri : call.uris) {
    result.resources.push_back(reader.Read(uri));
  }
  return result;
}

}  // namespace quorvane::tool
