// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "config/parse.h"
#include "logging/secret_names.h"
#include "quorvane/config.h"
#include "quorvane/logging.h"
#include "support/file.h"
#include "support/json.h"

namespace quorvane {
namespace {

constexpr const char* kConfig = "config";

std::string Quoted(const std::string& path) { return '"' + path + '"'; }

// Nothing if it is not a regular file or cannot be read.
std::optional<std::string> ReadContent(const Descriptor& file) {
  struct stat found {};
  if (fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return {};
  std::string text;
  std::array<char, 4096> chunk{};
  while (const ssize_t count = read(file.get(), chunk.data(), chunk.size())) {
    if (count > 0) {
      text.append(chunk.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return {};
    }
  }
  return text;
}

std::string ReadFile(const std::string& path) {
  // O_NONBLOCK: opening a FIFO must not wait for a writer.
  const Descriptor file(
      open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file.IsOpen()) {
    const std::string reason = std::generic_category().message(errno);
    throw std::runtime_error("Cannot open config file: " + Quoted(path) + " (" +
                             reason + ")");
  }
  std::optional<std::string> text = ReadContent(file);
  if (!text) {
    throw std::runtime_error("Read error on config file: " + Quoted(path));
  }
  return *std::move(text);
}

// Up to a hundred bytes of the text, from the position of the parse error on.
// Nothing if the file may contain a secret: the error may be within the secret
// or its name, so no part of such a file is safe to show. An escape may hide a
// name: "pass\u0077ord".
std::string Excerpt(std::string_view text, std::size_t position) {
  constexpr std::size_t kMaxLength = 100;
  if (text.find('\\') != std::string_view::npos || MentionsSecret(text)) {
    return {};
  }
  const std::string_view excerpt = text.substr(position, kMaxLength);
  return std::string(
      excerpt.substr(0, excerpt.find('\0')));  // cJSON stops there
}

Config ParseAndLog(const cJSON* root, const std::string& path) {
  try {
    return ParseConfig(root);
  } catch (const std::exception&) {
    LogError(kConfig, "Config validation failed for: " + path);
    throw;
  }
}

}  // namespace

Config LoadConfig(const std::string& path) {
  LogInfo(kConfig, "Loading config from: " + path);
  if (path.empty()) throw std::runtime_error("Config path is empty");
  const std::string text = ReadFile(path);
  std::size_t error_position = 0;
  const JsonPtr root = ParseJson(text, &error_position);
  if (!root) {
    std::string message = "JSON parse error in " + Quoted(path) + ": ";
    message += Excerpt(text, error_position);
    LogError(kConfig, message);
    throw std::runtime_error(message);
  }
  Config config = ParseAndLog(root.get(), path);
  LogInfo(kConfig, "Config loaded successfully");
  return config;
}

}  // namespace quorvane
