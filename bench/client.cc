// SPDX-License-Identifier: Apache-2.0
// Performs one operation of the library and prints its cost: the peak of the
// resident memory (VmHWM) in MiB, and the CPU seconds of the operation without
// the start of the process. Fails if the operation fails.
//
// The rules file is in the directory of this program, which contains the
// library code.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "quorvane/quorvane.h"

namespace {

thread_local bool skips_waits = false;

using quorvane::HttpClient;

constexpr const char* kUser = "admin";
constexpr const char* kPassword = "password";

void Require(bool condition, const char* message) {
  if (!condition) throw std::runtime_error(message);
}

double CpuSeconds() {
  timespec spent{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
  return static_cast<double>(spent.tv_sec) +
         static_cast<double>(spent.tv_nsec) * 1e-9;
}

double PeakMebibytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;
  }
  throw std::runtime_error("no VmHWM in /proc/self/status");
}

void UploadMultipart(const std::string& bmc, const std::string& file) {
  const auto response = HttpClient().post_multipart(
      "https://" + bmc + "/redfish/v1/UpdateService/MultipartUpload", file,
      "UpdateFile", {}, 0, kUser, kPassword, "basic", "");
  Require(response.status_code == 202, "the multipart upload was not accepted");
}

void UploadBinary(const std::string& bmc, const std::string& file) {
  const auto response = HttpClient().post_binary_file(
      "https://" + bmc + "/redfish/v1/UpdateService/update", file, {}, 0, kUser,
      kPassword, "basic");
  Require(response.status_code == 202, "the binary upload was not accepted");
}

void Download(const std::string& bmc, const std::string& size) {
  const auto response = HttpClient().get("https://" + bmc + "/images/" + size,
                                         {}, 0, kUser, kPassword, "basic");
  Require(response.body.size() == std::stoul(size),
          "the image is not complete");
}

void ReadInventory(const std::string& bmc, const std::string& members) {
  std::vector<quorvane::InventoryItem> items;
  Require(quorvane::FetchInventory({bmc, kUser, kPassword}, items) &&
              items.size() == std::stoul(members),
          "the inventory is not complete");
}

void Update(const std::string& bmc, const std::string& image) {
  skips_waits = true;
  quorvane::UpdateRequest request;
  request.bmc_ip = bmc;
  request.username = kUser;
  request.password = kPassword;
  (image.rfind("https://", 0) == 0 ? request.image_uri : request.local_file) =
      image;
  const auto result = quorvane::PerformUpdate(request);
  Require(result.reboot_performed && result.task_state == "Completed",
          result.message.c_str());
}

// The CPU seconds of one of `count` parallel updates. A first update is not
// counted, because it includes the initialization of the process.
double UpdateInParallel(const std::string& bmc, const std::string& image,
                        int count) {
  const HttpClient keeps_libcurl_started;
  Update(bmc, image);
  const double before = CpuSeconds();
  std::vector<std::exception_ptr> failures(static_cast<std::size_t>(count));
  std::vector<std::thread> threads;
  threads.reserve(failures.size());
  for (auto& failure : failures) {
    threads.emplace_back([&] {
      try {
        Update(bmc, image);
      } catch (...) {
        failure = std::current_exception();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  return (CpuSeconds() - before) / count;
}

int Run(const std::vector<std::string>& arguments) {
  if (arguments.size() < 4) {
    std::fputs(
        "Usage: bench_client "
        "multipart|binary|download|inventory|update|updates "
        "ADDRESS FILE|BYTES|MEMBERS|IMAGE_URI LOG [COUNT]\n",
        stderr);
    return 2;
  }
  using Operation = std::function<void(const std::string&, const std::string&)>;
  static const std::map<std::string, Operation> operations = {
      {"multipart", UploadMultipart},
      {"binary", UploadBinary},
      {"download", Download},
      {"inventory", ReadInventory},
      {"update", Update}};
  quorvane::InitLogger(arguments[3], quorvane::LogLevel::INFO, false, true);
  double seconds = 0;
  if (arguments[0] == "updates") {
    seconds = UpdateInParallel(arguments[1], arguments[2],
                               std::stoi(arguments.at(4)));
  } else {
    const double before = CpuSeconds();
    operations.at(arguments[0])(arguments[1], arguments[2]);
    seconds = CpuSeconds() - before;
  }
  quorvane::ShutdownLogger();
  std::printf("%.3f %.6f\n", PeakMebibytes(), seconds);
  return 0;
}

}  // namespace

// The delays between requests cost no CPU time, so they return immediately.
extern "C" int nanosleep(const timespec* requested_time, timespec* remaining) {
  if (skips_waits) return 0;
  const int error =
      clock_nanosleep(CLOCK_REALTIME, 0, requested_time, remaining);
  errno = error;
  return error == 0 ? 0 : -1;
}

int main(int argc, char** argv) {
  try {
    return Run({argv + 1, argv + argc});
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench_client: %s\n", failure.what());
    return 1;
  }
}
