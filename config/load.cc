// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
#include "quorvane/config.h"
#include "quorvane/logging.h"
#include "support/file.h"
#include "support/json.h"

namespace quorvane {
namespace {

constexpr const char* kConfig = "config";

std::string Quoted(const std::string& path) { return '"' + path + '"'; }

// Nothing when it is not a regular file or cannot be read.
std::optional<std::string> ContentOf(const Descriptor& file) {
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
  std::optional<std::string> text = ContentOf(file);
  if (!text) {
    throw std::runtime_error("Read error on config file: " + Quoted(path));
  }
  return *std::move(text);
}

constexpr auto kNone = std::string_view::npos;
constexpr const char* kBlanks = " \t\r\n";

std::string Lowered(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered;
}

// The name of a secret: [start, end), or kNone twice.
struct Name {
  std::size_t start = kNone;
  std::size_t end = kNone;
};

// The first one in lower-case `text` from `from` on.
Name FindSecret(std::string_view text, std::size_t from) {
  Name found;
  for (const std::string_view key : {"password", "token"}) {
    const std::size_t at = text.find(key, from);
    if (at < found.start) found = {.start = at, .end = at + key.size()};
  }
  return found;
}

// Whether a member whose name ends at `at` is over and done with: its value is
// one whole string, and something else has begun behind it.
bool IsWholeMember(std::string_view text, std::size_t at) {
  if (text.substr(at, 1) != "\"") return false;
  at = text.find_first_not_of(kBlanks, at + 1);
  if (at == kNone || text[at] != ':') return false;
  at = text.find_first_not_of(kBlanks, at + 1);
  if (at == kNone || text[at] != '"') return false;
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\') ++at;
  }
  at = text.find_first_not_of(kBlanks, at + 1);
  return at != kNone && (text[at] == ',' || text[at] == '}');
}

// What could not be read, for a person to find the place: a hundred bytes, none
// of them a password or a token. Its name may stand in them, or before them.
std::string_view Excerpt(std::string_view text, std::size_t position) {
  constexpr std::size_t kMost = 100;
  const std::string before = Lowered(text.substr(0, position));
  for (Name name = FindSecret(before, 0); name.end != kNone;
       name = FindSecret(before, name.end)) {
    if (!IsWholeMember(before, name.end)) return {};
  }
  const std::string_view excerpt = text.substr(position, kMost);
  return excerpt.substr(0, FindSecret(Lowered(excerpt), 0).start);
}

Config Validated(const cJSON* root, const std::string& path) {
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
    message += Excerpt(text.c_str(), error_position);
    LogError(kConfig, message);
    throw std::runtime_error(message);
  }
  Config config = Validated(root.get(), path);
  LogInfo(kConfig, "Config loaded successfully");
  return config;
}

}  // namespace quorvane
