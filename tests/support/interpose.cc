// SPDX-License-Identifier: Apache-2.0
#include "tests/support/interpose.h"

#include <dlfcn.h>

#include <cerrno>
#include <ctime>
#include <utility>

namespace quorvane::test {
namespace {

thread_local RecordedWaits* recorder = nullptr;
std::optional<std::string> library_file = "";

}  // namespace

RecordedWaits::RecordedWaits() { recorder = this; }
RecordedWaits::~RecordedWaits() { recorder = nullptr; }
void RecordedWaits::InterruptNext(int times) { interruptions_ = times; }

int Sleep(RecordedWaits& waits, const timespec* requested,
          timespec* remaining) {
  waits.seconds_.push_back(requested->tv_sec);
  if (waits.interruptions_ == 0) return 0;
  --waits.interruptions_;
  *remaining = {.tv_sec = requested->tv_sec - 1, .tv_nsec = 0};
  errno = EINTR;
  return -1;
}

void OverrideLibraryPath(std::optional<std::string> file) {
  library_file = std::move(file);
}

}  // namespace quorvane::test

extern "C" int nanosleep(const timespec* requested, timespec* remaining) {
  using quorvane::test::recorder;
  if (recorder != nullptr) {
    return quorvane::test::Sleep(*recorder, requested, remaining);
  }
  const int error = clock_nanosleep(CLOCK_REALTIME, 0, requested, remaining);
  errno = error;
  return error == 0 ? 0 : -1;
}

extern "C" int dladdr(const void* address, Dl_info* info) {
  using Dladdr = int (*)(const void*, Dl_info*);
  static const auto real = reinterpret_cast<Dladdr>(dlsym(RTLD_NEXT, "dladdr"));
  Dl_info self{};
  const int found = real(address, info);
  if (found == 0 ||
      real(reinterpret_cast<const void*>(&nanosleep), &self) == 0 ||
      info->dli_fbase != self.dli_fbase) {
    return found;  // code of another library
  }
  const auto& file = quorvane::test::library_file;
  if (!file) return 0;
  if (!file->empty()) info->dli_fname = file->c_str();
  return found;
}

#ifdef __SANITIZE_THREAD__
// The library of the simulated BMC is not built with ThreadSanitizer, which so
// does not see how that library protects its static variables. The code under
// test does not run on its threads.
extern "C" const char* __tsan_default_suppressions() {
  return "race:libcpp-httplib.so\n";
}
#endif
