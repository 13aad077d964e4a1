// SPDX-License-Identifier: Apache-2.0
// Does one thing with the library and prints what it cost: the peak of its
// resident memory (VmHWM) in MiB, and the CPU seconds of the thing alone,
// without the start of the process. Fails when the thing did.
//
// The rules file lies beside this program, which holds the library's code.
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

thread_local bool waits_end_at_once = false;

using quorvane::HttpClient;

constexpr const char* kUser = "admin";
constexpr const char* kPassword = "password";

void Require(bool held, const char* what) {
  if (!held) throw std::runtime_error(what);
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
  throw std::runtime_error("no VmHWM");
}

void UploadForm(const std::string& bmc, const std::string& file) {
  const auto answer = HttpClient().post_multipart(
      "https://" + bmc + "/redfish/v1/UpdateService/MultipartUpload", file,
      "UpdateFile", {}, 0, kUser, kPassword, "basic", "");
  Require(answer.status_code == 202, "the form was not accepted");
}

void UploadBinary(const std::string& bmc, const std::string& file) {
  const auto answer = HttpClient().post_binary_file(
      "https://" + bmc + "/redfish/v1/UpdateService/update", file, {}, 0, kUser,
      kPassword, "basic");
  Require(answer.status_code == 202, "the image was not accepted");
}

void Download(const std::string& bmc, const std::string& size) {
  const auto answer = HttpClient().get("https://" + bmc + "/images/" + size, {},
                                       0, kUser, kPassword, "basic");
  Require(answer.body.size() == std::stoul(size), "the image is not complete");
}

void ReadInventory(const std::string& bmc, const std::string& members) {
  std::vector<quorvane::InventoryItem> items;
  Require(quorvane::FetchInventory({bmc, kUser, kPassword}, items) &&
              items.size() == std::stoul(members),
          "the inventory is not whole");
}

void Update(const std::string& bmc, const std::string& image) {
  waits_end_at_once = true;
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

// Like the others, but for a first update that is not counted: it pays for
// what the process does once.
double UpdateSideBySide(const std::string& bmc, const std::string& image,
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

int Run(const std::vector<std::string>& words) {
  if (words.size() < 4) {
    std::fputs(
        "Usage: bench_client form|binary|download|inventory|update|updates "
        "ADDRESS FILE|BYTES|MEMBERS|IMAGE_URI LOG [COUNT]\n",
        stderr);
    return 2;
  }
  using Deed = std::function<void(const std::string&, const std::string&)>;
  static const std::map<std::string, Deed> deeds = {
      {"form", UploadForm},
      {"binary", UploadBinary},
      {"download", Download},
      {"inventory", ReadInventory},
      {"update", Update}};
  quorvane::InitLogger(words[3], quorvane::LogLevel::INFO, false, true);
  double seconds = 0;
  if (words[0] == "updates") {
    seconds = UpdateSideBySide(words[1], words[2], std::stoi(words.at(4)));
  } else {
    const double before = CpuSeconds();
    deeds.at(words[0])(words[1], words[2]);
    seconds = CpuSeconds() - before;
  }
  quorvane::ShutdownLogger();
  std::printf("%.3f %.6f\n", PeakMebibytes(), seconds);
  return 0;
}

}  // namespace

// The waits of an update are no cost: they end at once on its thread.
extern "C" int nanosleep(const timespec* requested_time, timespec* remaining) {
  if (waits_end_at_once) return 0;
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
