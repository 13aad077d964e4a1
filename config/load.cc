// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

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

// "line 3, column 7", counted in bytes from 1.
std::string LineAndColumn(std::string_view text) {
  const auto line = std::count(text.begin(), text.end(), '\n') + 1;
  const std::size_t line_start = text.rfind('\n') + 1;  // 0 in the first line
  return "line " + std::to_string(line) + ", column " +
         std::to_string(text.size() - line_start + 1);
}

// Where parsing failed, for the user to find the place: up to a hundred bytes
// from there on, or the position if the file may contain a secret. The fault
// may lie within the secret or its name, so no part of such a file is safe to
// show. An escape may hide a name: "pass\u0077ord".
std::string Excerpt(std::string_view text, std::size_t position) {
  constexpr std::size_t kMost = 100;
  if (text.find('\\') == std::string_view::npos && !MentionsSecret(text)) {
    const std::string excerpt(text.substr(position, kMost));
    return excerpt.substr(0, excerpt.find('\0'));  // where cJSON stops
  }
  return LineAndColumn(text.substr(0, position)) +
         " (the text is not shown because the file may contain a secret)";
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
    message += Excerpt(text, error_position);
    LogError(kConfig, message);
    throw std::runtime_error(message);
  }
  Config config = Validated(root.get(), path);
  LogInfo(kConfig, "Config loaded successfully");
  return config;
}

}  // namespace quorvane
