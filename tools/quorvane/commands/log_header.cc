// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/log_header.h"

#include <fmt/core.h>

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

}  // namespace

std::vector<std::string> LogHeader(const BmcOptions& bmc,
                                   const std::string& title,
                                   const std::string& image,
                                   const Trust& trust) {
  const std::string rules = RulesFileOf(bmc);
  std::vector<std::string> messages = {
      "Run: " + title,
      "Tool: quorvane " QUORVANE_VERSION_STRING,
      "Started: " + ZonedStampNow(),
      "BMC: " + bmc.bmc,
      "User: " + bmc.user,
      fmt::format("Rules: {} (SHA-256 {})", rules, Sha256Of(rules))};
  if (bmc.force) messages.emplace_back("Forced: errors in the rules accepted");
  if (!image.empty()) messages.push_back("Image: " + image);
  messages.push_back("Certificate check: " + TextOf(trust));
  return messages;
}

}  // namespace quorvane::tool
