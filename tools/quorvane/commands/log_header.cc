// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/log_header.h"

#include <fmt/core.h>

#include <utility>

#include "quorvane/version.h"
#include "tools/quorvane/base/sha256.h"
#include "tools/quorvane/run/run_log.h"

namespace quorvane::tool {
namespace {

std::string TextOf(const Trust& trust) {
  if (!trust.IsChecked()) return "none";
  std::string text;
  if (!trust.pinned_key.empty()) text = "key " + trust.pinned_key;
  if (!trust.ca_file.empty()) {
    text += (text.empty() ? "" : ", ") + ("certificates in " + trust.ca_file);
  }
  return text;
}

std::vector<std::string> Access(const BmcOptions& bmc, const Trust& trust) {
  const std::string rules = RulesFileOf(bmc);
  std::vector<std::string> messages = {
      "BMC: " + bmc.bmc, "User: " + bmc.user,
      fmt::format("Rules: {} (SHA-256 {})", rules, Sha256Of(rules)),
      "Certificate check: " + TextOf(trust)};
  if (bmc.force) messages.emplace_back("Forced: errors in the rules accepted");
  return messages;
}

constexpr const char* kTool = "Tool: quorvane " QUORVANE_VERSION_STRING;

}  // namespace

std::vector<std::string> LogHeader(const BmcOptions& bmc,
                                   const std::string& title,
                                   const std::string& image,
                                   const Trust& trust) {
  std::vector<std::string> messages = {"Run: " + title, kTool,
                                       "Started: " + ZonedStampNow()};
  for (std::string& one : Access(bmc, trust)) {
    messages.push_back(std::move(one));
  }
  if (!image.empty()) messages.push_back("Image: " + image);
  return messages;
}

std::vector<std::string> ContinuedHeader(const BmcOptions& bmc,
                                         const Trust& trust) {
  std::vector<std::string> messages = {"Continued: " + ZonedStampNow(), kTool};
  for (std::string& one : Access(bmc, trust)) {
    messages.push_back(std::move(one));
  }
  return messages;
}

}  // namespace quorvane::tool
