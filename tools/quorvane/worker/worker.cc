// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/worker.h"

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

#include "quorvane/quorvane.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/worker/protocol.h"
#include "tools/quorvane/worker/record_stream.h"

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
    // The tool takes the records from the console stream and writes the log.
    InitLogger("/dev/null", LogLevel::DEBUG, true, true);
    const std::string bytes(std::istreambuf_iterator<char>(std::cin), {});
    const WorkerRequest request = DecodeRequest(bytes);
    RequireRulesFrom(request.rules_directory);
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

ExitCode RunWorker() {
  // If the tool ends, nothing receives the log; an update must not go on
  // unseen.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const WorkerResponse response = Respond();
  ShutdownLogger();
  return WriteAll(STDOUT_FILENO, Encode(response)) ? ExitCode::kDone
                                                   : ExitCode::kFailed;
}

}  // namespace quorvane::tool
