// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fault_injection.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

// The functions of glibc whose names are replaced here.
extern "C" {
void* __libc_malloc(std::size_t size);                     // NOLINT
void* __libc_calloc(std::size_t count, std::size_t size);  // NOLINT
void* __libc_realloc(void* block, std::size_t size);       // NOLINT
void __libc_free(void* block);                             // NOLINT
}

namespace quorvane::test {
namespace {

// All state is static, because this code must not allocate memory.
thread_local bool injecting = false;  // counts calls, and lets them fail
thread_local bool tracking = false;   // records freed blocks

Fault injected_fault;
std::size_t call_count = 0;
const char* first_failed = nullptr;
const void* first_failed_caller = nullptr;  // only for allocations
std::array<char, 1U << 18> console_text;
std::size_t console_size = 0;

struct Range {
  std::uintptr_t start, end;
};
std::array<Range, 16> counted_code;
std::size_t counted_code_size = 0;

int AddCountedCode(dl_phdr_info* object, std::size_t /*size*/, void* /*all*/) {
  constexpr std::array<std::string_view, 3> kCounted = {"libcurl", "libcjson",
                                                        "libstdc++"};
  const std::string_view name = object->dlpi_name;
  const bool is_counted =
      name.empty() ||  // the program itself
      std::any_of(kCounted.begin(), kCounted.end(), [name](auto library) {
        return name.find(library) != std::string_view::npos;
      });
  for (int i = 0; is_counted && i < object->dlpi_phnum; ++i) {
    const auto& header = object->dlpi_phdr[i];
    if (header.p_type != PT_LOAD || (header.p_flags & PF_X) == 0) continue;
    const std::uintptr_t start = object->dlpi_addr + header.p_vaddr;
    counted_code.at(counted_code_size++) = {start, start + header.p_memsz};
  }
  return 0;
}

bool IsCounted(const void* caller) {
  const auto address = reinterpret_cast<std::uintptr_t>(caller);
  return std::any_of(
      counted_code.begin(), counted_code.begin() + counted_code_size,
      [address](auto r) { return r.start <= address && address < r.end; });
}

bool MustFail(CallKind kind, const char* name, int error) {
  if (!injecting || injected_fault.kind != kind) return false;
  ++call_count;
  const bool must_fail =
      injected_fault.nth != 0 &&
      (injected_fault.is_lasting ? call_count >= injected_fault.nth
                                 : call_count == injected_fault.nth);
  if (!must_fail) return false;
  if (first_failed == nullptr) first_failed = name;
  errno = error;
  return true;
}

// A hash table with open addressing. kFreed replaces a freed block, so that
// later entries of a chain are still found.
struct Block {
  void* address;
  const void* caller;
};
std::array<Block, 1U << 16> blocks;
void* const kFreed = &blocks;

std::size_t SlotOf(const void* block) {
  return (reinterpret_cast<std::uintptr_t>(block) >> 4U) % blocks.size();
}

void Track(void* block, const void* caller) {
  std::size_t slot = SlotOf(block);
  while (blocks[slot].address != nullptr && blocks[slot].address != kFreed) {
    slot = (slot + 1) % blocks.size();
  }
  blocks[slot] = {block, caller};
}

void Untrack(const void* block) {
  std::size_t slot = SlotOf(block);
  while (blocks[slot].address != nullptr) {
    if (blocks[slot].address == block) {
      blocks[slot].address = kFreed;
      return;
    }
    slot = (slot + 1) % blocks.size();
  }
}

// Makes the call unless it must fail. `replaced` is the old block of a realloc.
template <typename Allocator>
void* Allocate(const char* name, const void* caller, void* replaced,
               Allocator allocate) {
  const bool counted = injecting && IsCounted(caller);
  if (counted && MustFail(CallKind::kMemory, name, ENOMEM)) {
    if (first_failed_caller == nullptr) first_failed_caller = caller;
    return nullptr;
  }
  void* block = allocate();
  if (tracking && replaced != nullptr && block != nullptr) Untrack(replaced);
  if (counted && block != nullptr) Track(block, caller);
  return block;
}

template <auto* kSelf>
auto Next(const char* name) {
  static const auto next =
      reinterpret_cast<decltype(kSelf)>(dlsym(RTLD_NEXT, name));
  return next;
}

// Makes the call unless it must fail.
template <auto* kSelf, typename... Arguments>
auto Call(CallKind kind, int error, const char* name, Arguments... arguments) {
  const auto next = Next<kSelf>(name);
  using Result = decltype(next(arguments...));
  if (!MustFail(kind, name, error)) return next(arguments...);
  if constexpr (std::is_pointer_v<Result>) {
    return Result{nullptr};
  } else {
    return Result{-1};
  }
}

// "libcurl.so.4"
std::string ObjectOf(const void* code) {
  Dl_info place{};
  const bool known = dladdr(code, &place) != 0 && place.dli_fname != nullptr;
  const std::string_view path = known ? place.dli_fname : "?";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::size_t AppendToConsole(const void* bytes, std::size_t size) {
  const std::size_t captured =
      std::min(size, console_text.size() - console_size);
  std::memcpy(console_text.data() + console_size, bytes, captured);
  console_size += captured;
  return size;
}

int Print(FILE* file, const char* format, va_list rest) {
  if (!injecting || file != stderr) return std::vfprintf(file, format, rest);
  std::array<char, 256> text{};
  const int size = std::vsnprintf(text.data(), text.size(), format, rest);
  AppendToConsole(text.data(), std::strlen(text.data()));
  return size;
}

}  // namespace

FaultInjection::FaultInjection(const Fault& fault) {
  if (counted_code_size == 0) dl_iterate_phdr(AddCountedCode, nullptr);
  injected_fault = fault;
  call_count = 0;
  first_failed = nullptr;
  first_failed_caller = nullptr;
  console_size = 0;
  blocks.fill({});
  injecting = tracking = true;
}

FaultInjection::~FaultInjection() { injecting = tracking = false; }

void FaultInjection::End() { injecting = false; }
std::size_t FaultInjection::CallCount() const { return call_count; }
std::string FaultInjection::FailedCall() const {
  std::string call = first_failed != nullptr ? first_failed : "";
  if (first_failed_caller != nullptr) {
    call += " of " + ObjectOf(first_failed_caller);
  }
  return call;
}
std::string FaultInjection::ConsoleText() const {
  return {console_text.data(), console_size};
}

std::vector<std::string> FaultInjection::LiveBlocks() const {
  std::vector<std::string> owners;
  for (const Block& block : blocks) {
    if (block.address != nullptr && block.address != kFreed) {
      owners.push_back(ObjectOf(block.caller));
    }
  }
  return owners;
}

}  // namespace quorvane::test

using quorvane::test::Call;
using quorvane::test::CallKind;

extern "C" {

void* malloc(std::size_t size) noexcept {
  return quorvane::test::Allocate("malloc", __builtin_return_address(0),
                                  nullptr, [&] { return __libc_malloc(size); });
}
void* calloc(std::size_t count, std::size_t size) noexcept {
  return quorvane::test::Allocate("calloc", __builtin_return_address(0),
                                  nullptr,
                                  [&] { return __libc_calloc(count, size); });
}
void* realloc(void* block, std::size_t size) noexcept {
  return quorvane::test::Allocate("realloc", __builtin_return_address(0), block,
                                  [&] { return __libc_realloc(block, size); });
}
char* strdup(const char* text) noexcept {
  return static_cast<char*>(quorvane::test::Allocate(
      "strdup", __builtin_return_address(0), nullptr, [&] {
        const std::size_t size = std::strlen(text) + 1;
        void* copy = __libc_malloc(size);
        return copy == nullptr ? copy : std::memcpy(copy, text, size);
      }));
}
void free(void* block) noexcept {
  if (quorvane::test::tracking && block != nullptr) {
    quorvane::test::Untrack(block);
  }
  __libc_free(block);
}

// --- files ---------------------------------------------------------------

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Call<&open>(CallKind::kFiles, EMFILE, "open", path, flags, mode);
}
FILE* fopen(const char* path, const char* mode) {
  return Call<&fopen>(CallKind::kFiles, EMFILE, "fopen", path, mode);
}
std::size_t fread(void* buffer, std::size_t size, std::size_t count,
                  FILE* file) {
  constexpr int kErrorFlag = 0x20;  // ferror(3) of glibc tests it
  if (quorvane::test::MustFail(CallKind::kFiles, "fread", EIO)) {
    file->_flags |= kErrorFlag;
    return 0;
  }
  return quorvane::test::Next<&fread>("fread")(buffer, size, count, file);
}
std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count,
                   FILE* file) {
  if (quorvane::test::injecting && (file == stdout || file == stderr)) {
    if (quorvane::test::MustFail(CallKind::kFiles, "fwrite", EIO)) return 0;
    return quorvane::test::AppendToConsole(bytes, size * count) / size;
  }
  return quorvane::test::Next<&fwrite>("fwrite")(bytes, size, count, file);
}
int fprintf(FILE* file, const char* format, ...) {
  va_list rest;
  va_start(rest, format);
  const int size = quorvane::test::Print(file, format, rest);
  va_end(rest);
  return size;
}
// fprintf in code that is built with _FORTIFY_SOURCE.
int __fprintf_chk(FILE* file, int /*flag*/, const char* format, ...) {
  va_list rest;
  va_start(rest, format);
  const int size = quorvane::test::Print(file, format, rest);
  va_end(rest);
  return size;
}
ssize_t read(int fd, void* buffer, std::size_t size) {
  return Call<&read>(CallKind::kFiles, EIO, "read", fd, buffer, size);
}
ssize_t write(int fd, const void* bytes, std::size_t size) {
  if (quorvane::test::injecting && fd == STDERR_FILENO) {
    return static_cast<ssize_t>(quorvane::test::AppendToConsole(bytes, size));
  }
  return Call<&write>(CallKind::kFiles, ENOSPC, "write", fd, bytes, size);
}
off_t lseek(int fd, off_t offset, int origin) noexcept {
  return Call<&lseek>(CallKind::kFiles, EIO, "lseek", fd, offset, origin);
}
int fstat(int fd, struct stat* found) noexcept {
  return Call<&fstat>(CallKind::kFiles, EIO, "fstat", fd, found);
}
int stat(const char* path, struct stat* found) noexcept {
  return Call<&stat>(CallKind::kFiles, EIO, "stat", path, found);
}
int lstat(const char* path, struct stat* found) noexcept {
  return Call<&lstat>(CallKind::kFiles, EIO, "lstat", path, found);
}
int flock(int fd, int operation) noexcept {
  return Call<&flock>(CallKind::kFiles, ENOLCK, "flock", fd, operation);
}
// Only commands that create a descriptor can fail for an open one.
int fcntl(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  if (command != F_DUPFD_CLOEXEC) {
    return quorvane::test::Next<&fcntl>("fcntl")(fd, command, argument);
  }
  return Call<&fcntl>(CallKind::kFiles, EMFILE, "fcntl", fd, command, argument);
}
int unlink(const char* path) noexcept {
  return Call<&unlink>(CallKind::kFiles, EROFS, "unlink", path);
}
int mkdir(const char* path, mode_t mode) noexcept {
  return Call<&mkdir>(CallKind::kFiles, EROFS, "mkdir", path, mode);
}
char* realpath(const char* path, char* resolved) noexcept {
  return Call<&realpath>(CallKind::kFiles, EACCES, "realpath", path, resolved);
}
char* __realpath_chk(const char* path, char* resolved,
                     std::size_t /*size*/) noexcept {
  return realpath(path, resolved);
}
int ftruncate(int fd, off_t size) noexcept {
  return Call<&ftruncate>(CallKind::kFiles, EIO, "ftruncate", fd, size);
}
// Closes the descriptor even if it fails, as on Linux (close(2), "Dealing with
// error returns").
int close(int fd) {
  const int closed = quorvane::test::Next<&close>("close")(fd);
  return quorvane::test::MustFail(CallKind::kFiles, "close", EIO) ? -1 : closed;
}

// --- network -------------------------------------------------------------

int socket(int family, int type, int protocol) noexcept {
  return Call<&socket>(CallKind::kNetwork, EMFILE, "socket", family, type,
                       protocol);
}
int socketpair(int family, int type, int protocol, int fds[2]) noexcept {
  return Call<&socketpair>(CallKind::kNetwork, EMFILE, "socketpair", family,
                           type, protocol, fds);
}
int connect(int fd, const sockaddr* address, socklen_t size) {
  return Call<&connect>(CallKind::kNetwork, ECONNREFUSED, "connect", fd,
                        address, size);
}
ssize_t send(int fd, const void* bytes, std::size_t size, int flags) {
  return Call<&send>(CallKind::kNetwork, EPIPE, "send", fd, bytes, size, flags);
}
ssize_t recv(int fd, void* buffer, std::size_t size, int flags) {
  return Call<&recv>(CallKind::kNetwork, ECONNRESET, "recv", fd, buffer, size,
                     flags);
}
int poll(pollfd* fds, nfds_t count, int timeout) {
  return Call<&poll>(CallKind::kNetwork, ENOMEM, "poll", fds, count, timeout);
}
int setsockopt(int fd, int level, int option, const void* value,
               socklen_t size) noexcept {
  return Call<&setsockopt>(CallKind::kNetwork, ENOBUFS, "setsockopt", fd, level,
                           option, value, size);
}
int getsockopt(int fd, int level, int option, void* value,
               socklen_t* size) noexcept {
  return Call<&getsockopt>(CallKind::kNetwork, ENOBUFS, "getsockopt", fd, level,
                           option, value, size);
}
int getsockname(int fd, sockaddr* address, socklen_t* size) noexcept {
  return Call<&getsockname>(CallKind::kNetwork, ENOBUFS, "getsockname", fd,
                            address, size);
}

}  // extern "C"
