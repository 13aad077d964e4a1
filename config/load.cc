// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "config/parse.h"
#include "quorvane/config.h"
#include "quorvane/logging.h"
#include "support/file.h"
#include "support/json.h"

namespace quorvane {
namespace {

constexpr const char* kConfig = "config";

std::string Quoted(const std::string& path) { return '"' + path + '"'; }

std::string ReadFile(const std::string& path) {
  const FilePtr file(std::fopen(path.c_str(), "rbe"));
  if (!file) {
    const std::string reason = std::generic_category().message(errno);
    throw std::runtime_error("Cannot open config file: " + Quoted(path) + " (" +
                             reason + ")");
  }
  std::string text;
  std::array<char, 4096> chunk{};
  while (const std::size_t count =
             std::fread(chunk.data(), 1, chunk.size(), file.get())) {
    text.append(chunk.data(), count);
  }
  if (std::ferror(file.get()) != 0) {
    throw std::runtime_error("Read error on config file: " + Quoted(path));
  }
  return text;
}

// Where a secret is named in `text`, or npos.
std::size_t FindSecretKey(std::string_view text) {
  std::size_t found = std::string_view::npos;
  for (const std::string_view key : {"password", "token"}) {
    found = std::min(found, text.find(key));
  }
  return found;
}

// What could not be read, for a person to find the place: a hundred bytes, and
// none from where a password or token is named, be it just before the place.
std::string_view Excerpt(std::string_view text, std::size_t position) {
  constexpr std::size_t kMost = 100;
  const std::string_view before = text.substr(0, position);
  const std::size_t member = before.find_last_of("\n,{");
  const std::string_view broken_member =
      member == std::string_view::npos ? before : before.substr(member);
  if (FindSecretKey(broken_member) != std::string_view::npos) return {};
  const std::string_view excerpt = text.substr(position, kMost);
  return excerpt.substr(0, FindSecretKey(excerpt));
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
