// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "quorvane/config.h"
#include "quorvane/logging.h"

namespace quorvane {
namespace {

constexpr const char* kComponent = "config";
constexpr const char* kFileName = "brindle.config.json";

// Everything before the last slash; a name without a slash unchanged.
std::string DirectoryOf(std::string_view file) {
  return std::string(file.substr(0, file.rfind('/')));
}

std::string LibraryDirectory() {
  // A private object. The address of an exported function may be that of a stub
  // in the calling program.
  static const char here = 0;
  Dl_info info{};
  if (dladdr(&here, &info) != 0 && info.dli_fname != nullptr) {
    return DirectoryOf(info.dli_fname);
  }
  std::array<char, 4096> name{};
  const ssize_t length =
      readlink("/proc/self/exe", name.data(), name.size() - 1);
  return length > 0
             ? DirectoryOf({name.data(), static_cast<std::size_t>(length)})
             : std::string();
}

}  // namespace

std::string ResolveConfigPath() {
  const std::string directory = LibraryDirectory();
  std::string path =
      directory.empty() ? std::string(kFileName) : directory + "/" + kFileName;
  LogDebug(kComponent, "Resolved config path: " + path);
  return path;
}

Config LoadConfigAuto() {
  LogDebug(kComponent, "LoadConfigAuto: resolving path automatically");
  return LoadConfig(ResolveConfigPath());
}

}  // namespace quorvane
