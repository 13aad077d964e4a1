// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/worker.h"

#include <fmt/core.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "config/target.h"
#include "quorvane/quorvane.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/run/records.h"
#include "tools/quorvane/worker/protocol.h"
#include "tools/quorvane/worker/read_resources.h"
#include "tools/quorvane/worker/record_stream.h"
#include "tools/quorvane/worker/request_guard.h"
#include "update/phases.h"
#include "update/update_run.h"

namespace quorvane::tool {
namespace {

WorkerResponse Call(const UpdateRequest& request) {
  return PerformUpdate(request);
}

WorkerResponse Call(const InventoryCall& call) {
  InventoryResult result;
  result.was_read = FetchInventory(call.request, result.items);
  return result;
}

WorkerResponse Call(const ChassisCall& call) {
  ChassisResult result;
  result.was_read = FetchChassisInfo(call.request, result.info);
  return result;
}

// The response to a call that takes too long, for a signal handler.
std::string& LateResponse() {
  static std::string bytes;
  return bytes;
}

// Only the lookup of a host name can outlast the time limit of a request.
void RespondAtAlarm(const ProbeResult& result) {
  LateResponse() = Encode(WorkerResponse(result));
  std::signal(SIGALRM, [](int /*signal*/) {
    const bool is_sent = WriteAll(STDOUT_FILENO, LateResponse());
    _exit(static_cast<int>(is_sent ? ExitCode::kDone : ExitCode::kFailed));
  });
  alarm(kProbeSeconds);
}

WorkerResponse Call(const ProbeCall& call) {
  RespondAtAlarm(
      {.reason = fmt::format("the lookup of {} took longer than {} s",
                             call.address, kProbeSeconds)});
  constexpr long kTimeoutMs = 1000L * kProbeSeconds - 500;
  ProbeResult result;
  try {
    const HttpClient client;
    result.status = client
                        .get("https://" + call.address + "/redfish/v1/", {},
                             kTimeoutMs, {}, {}, "none")
                        .status_code;
  } catch (const std::runtime_error& error) {
    result.reason = error.what();
  }
  alarm(0);
  return result;
}

// Runs one phase of an update alone. `phase` takes the run and the rules.
template <typename Phase>
UpdateResponse RunAlone(const InventoryRequest& account, Phase phase) {
  const auto& [address, username, password] = account;
  Config config = LoadConfigAuto();
  OverrideTarget(config, address, username, password);
  const HttpClient client;
  UpdateRequest request;
  request.bmc_ip = address;
  request.username = username;
  request.password = password;
  UpdateRun run{.client = client, .request = request, .config = config};
  phase(run, config);
  return std::move(run.result);
}

WorkerResponse Call(const RestartCall& call) {
  return RunAlone(call.request, [](UpdateRun& run, Config& config) {
    config.reboot_required = true;
    static_cast<void>(RunRebootPhase(run));
  });
}

WorkerResponse Call(const WatchCall& call) {
  return RunAlone(call.request, [&call](UpdateRun& run, Config& /*config*/) {
    run.result.task_uri = call.task_uri;
    run.result.percent_complete = call.percent_complete;
    static_cast<void>(MonitorTask(run));
  });
}

WorkerResponse Call(const KeyCall& call) {
  const HttpClient initializes_libcurl;
  return KeyResult{ServerKey(call.address)};
}

WorkerResponse Call(const ReadCall& call) {
  const HttpClient client;
  return ReadResources(call, [&](const std::string& uri, long timeout_ms) {
    return client.get("https://" + call.request.ip + uri, {}, timeout_ms,
                      call.request.username, call.request.password, "basic");
  });
}

const std::string& AddressIn(const UpdateRequest& call) { return call.bmc_ip; }
const std::string& AddressIn(const ProbeCall& call) { return call.address; }
const std::string& AddressIn(const KeyCall& call) { return call.address; }
template <typename Call>
const std::string& AddressIn(const Call& call) {
  return call.request.ip;
}

// Does not return.
void EndAfterRefusedLogin() {
  LogError(kToolComponent,
           "Login refused (HTTP 401). The tool sends no more requests, because "
           "they could lock the account.");
  ShutdownLogger();
  const WorkerResponse response =
      WorkerError{.message = "The BMC refused the login (HTTP 401)",
                  .is_login_refused = true};
  static_cast<void>(WriteAll(STDOUT_FILENO, Encode(response)));
  _exit(static_cast<int>(ExitCode::kDone));
}

// Reading decides itself when a refused resource is a refused login.
std::function<void()> OnRefusedLogin(const WorkerRequest& request) {
  if (std::holds_alternative<ReadCall>(request.call)) return {};
  return EndAfterRefusedLogin;
}

void Guard(const WorkerRequest& request) {
  const auto* update = std::get_if<UpdateRequest>(&request.call);
  GuardRequests(
      {.trust = request.trust,
       .bmc = std::visit([](const auto& call) { return AddressIn(call); },
                         request.call),
       .image_uri = update == nullptr ? std::string() : update->image_uri,
       .on_refused_login = OnRefusedLogin(request)});
}

// If the loader ignored its search path, the library would silently use the
// installed rules.
void RequireRulesFrom(const std::string& directory) {
  const std::string loaded = ResolveConfigPath();
  if (!directory.empty() && loaded.rfind(directory + "/", 0) != 0) {
    throw std::runtime_error(
        "Cannot use the file of --rules: the loader took the library that "
        "reads " +
        loaded + ". Start the tool without LD_PRELOAD");
  }
}

// Sanitizers map far more address space than they use.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kCanLimitMemory = false;
#else
constexpr bool kCanLimitMemory = true;
#endif

// A BMC decides how large its responses are, and JSON takes many times its
// length in memory. The library also holds an image that it downloads in
// memory, and does not know its size before.
void LimitMemory(const LibraryCall& call) {
  constexpr rlim_t kForResponses = rlim_t{2} << 30;
  constexpr rlim_t kForImage = rlim_t{2} << 30;
  const auto* update = std::get_if<UpdateRequest>(&call);
  const bool may_download = update != nullptr && !update->image_uri.empty();
  rlimit limit{};
  if (!kCanLimitMemory || getrlimit(RLIMIT_AS, &limit) != 0) return;
  limit.rlim_cur = std::min(
      limit.rlim_max, kForResponses + (may_download ? kForImage : rlim_t{0}));
  // The call also works without the limit.
  static_cast<void>(setrlimit(RLIMIT_AS, &limit));
}

WorkerResponse Respond() {
  try {
    SendConsoleAsFrames(kWorkerLogDescriptor);
    const std::string bytes(std::istreambuf_iterator<char>(std::cin), {});
    const WorkerRequest request = DecodeRequest(bytes);
    RequireRulesFrom(request.rules_directory);
    // Its requests are not those of the run.
    InitLogger("/dev/null", LogLevel::ERROR, false, false);
    RequireEffectiveGuard(request.trust);
    ShutdownLogger();
    // The tool takes the records from the console stream and writes the log.
    InitLogger("/dev/null", LogLevel::DEBUG, true, true);
    Guard(request);
    LimitMemory(request.call);
    return std::visit([](const auto& call) { return Call(call); },
                      request.call);
  } catch (const std::bad_alloc&) {
    return WorkerError{.message =
                           "A response of the BMC needs more memory "
                           "than the tool gives one call.",
                       .is_out_of_memory = true};
  } catch (const std::exception& error) {
    return WorkerError{.message = error.what()};
  }
}

}  // namespace

ExitCode RunWorker(const std::string& parent) {
  // If the tool ends, nothing receives the log; an update must not go on
  // unseen.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const bool has_parent = std::to_string(getppid()) == parent;
  if (!has_parent) return ExitCode::kFailed;  // it ended before the prctl
  const WorkerResponse response = Respond();
  ShutdownLogger();
  return WriteAll(STDOUT_FILENO, Encode(response)) ? ExitCode::kDone
                                                   : ExitCode::kFailed;
}

}  // namespace quorvane::tool
