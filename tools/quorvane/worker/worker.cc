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
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "quorvane/quorvane.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/worker/record_stream.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

// The file that a person named is written here, where the library's own record
// is, byte for byte.
void NoteIfUnsaved(bool saved, const std::string& path, Json& answer) {
  if (!saved) answer["unsaved"] = path;
}

Json Update(const Json& call) {
  const UpdateRequest request{
      .bmc_ip = call.at("bmc"),
      .username = call.at("user"),
      .password = call.at("password"),
      .image_uri = call.value("image_uri", ""),
      .local_file = call.value("local_file", ""),
      .share_username = call.value("share_user", ""),
      .share_password = call.value("share_password", ""),
      .targets = call.value("targets", std::vector<std::string>()),
      .verify_remote_server_certificate = call.value("verify", false),
      .prefetched_inventory = {}};
  const UpdateResponse response = PerformUpdate(request);
  Json answer = {{"accepted", response.accepted},
                 {"http_status", response.http_status},
                 {"task_uri", response.task_uri},
                 {"task_id", response.task_id},
                 {"task_state", response.task_state},
                 {"percent_complete", response.percent_complete},
                 {"message", response.message},
                 {"reboot_performed", response.reboot_performed}};
  if (const std::string path = call.value("result", ""); !path.empty()) {
    NoteIfUnsaved(SaveUpdateResponseJson(path, response), path, answer);
  }
  return answer;
}

Json Inventory(const Json& call) {
  std::vector<InventoryItem> items;
  const bool read = FetchInventory({.ip = call.at("bmc"),
                                    .username = call.at("user"),
                                    .password = call.at("password")},
                                   items);
  Json list = Json::array();
  for (const InventoryItem& item : items) {
    list.push_back({{"uri", item.uri},
                    {"name", item.Name},
                    {"software_id", item.SoftwareId},
                    {"version", item.Version},
                    {"target_id", item.target_id}});
  }
  return {{"read", read},
          {"items", std::move(list)},
          {"document", InventoryToJson(items)}};
}

Json Chassis(const Json& call) {
  ChassisInfo info;
  const bool read = FetchChassisInfo({.ip = call.at("bmc"),
                                      .username = call.at("user"),
                                      .password = call.at("password")},
                                     info);
  return {{"read", read},
          {"Manufacturer", info.Manufacturer},
          {"Model", info.Model},
          {"Name", info.Name}};
}

// The loader's search path must have had its effect, or the wrong rules would
// go to work in silence.
void CheckRulesFolder(const Json& call) {
  const std::string folder = call.value("rules_folder", "");
  const std::string loaded = ResolveConfigPath();
  if (!folder.empty() && loaded.rfind(folder + "/", 0) != 0) {
    throw std::runtime_error(
        "The library was loaded from " + loaded +
        " and not from the private folder; the rules given were not used");
  }
}

constexpr const char* kOutOfMemory =
    "A response of the BMC needs more memory than the tool gives one call.";

// Sanitizers map far more address space than they use.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kCanLimitMemory = false;
#else
constexpr bool kCanLimitMemory = true;
#endif

// A BMC decides how large its responses are, and JSON takes many times its
// length in memory. An image that is downloaded is held in memory as well, and
// its size is not known before.
void LimitMemory(const Json& call) {
  constexpr rlim_t kForResponses = rlim_t{2} << 30;
  constexpr rlim_t kForImage = rlim_t{2} << 30;
  const bool may_download = !call.value("image_uri", "").empty();
  rlimit limit{};
  if (!kCanLimitMemory || getrlimit(RLIMIT_AS, &limit) != 0) return;
  limit.rlim_cur = std::min(
      limit.rlim_max, kForResponses + (may_download ? kForImage : rlim_t{0}));
  // Without the limit the call works as well.
  static_cast<void>(setrlimit(RLIMIT_AS, &limit));
}

Json Answer(const Json& call) {
  CheckRulesFolder(call);
  const std::string name = call.at("call");
  if (name == "update") return Update(call);
  if (name == "inventory") return Inventory(call);
  if (name == "chassis") return Chassis(call);
  throw std::runtime_error("Unknown call: " + name);
}

}  // namespace

ExitCode RunWorker() {
  // Never outlives the process that shows what it does.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  Json answer;
  try {
    SendConsoleAsFrames(kWorkerLogDescriptor);
    // The console is the log; the file would have no frames.
    InitLogger("/dev/null", LogLevel::DEBUG, true, true);
    const std::string request(std::istreambuf_iterator<char>(std::cin), {});
    const Json call = Json::from_cbor(request);
    LimitMemory(call);
    answer["ok"] = Answer(call);
  } catch (const std::bad_alloc&) {
    answer = {{"error", kOutOfMemory}, {"out_of_memory", true}};
  } catch (const std::exception& error) {
    answer = {{"error", error.what()}};
  }
  ShutdownLogger();
  const std::string text =
      answer.dump(-1, ' ', false, Json::error_handler_t::replace);
  return WriteAll(STDOUT_FILENO, text) ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace quorvane::tool
