// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/trust_options.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/quorvane/base/address.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/commands/bmc_options.h"

namespace quorvane::tool {
namespace {

constexpr const char* kSiteFile = "/etc/quorvane/tool.json";

std::string PinFault(const std::string& pin) {
  constexpr std::string_view kPrefix = "sha256//";
  constexpr std::size_t kBase64Length = 44;  // of 32 bytes
  const bool is_pin = pin.rfind(kPrefix, 0) == 0 &&
                      pin.size() == kPrefix.size() + kBase64Length &&
                      pin.find_first_not_of(
                          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvw"
                          "xyz0123456789+/=",
                          kPrefix.size()) == std::string::npos;
  return is_pin ? std::string()
                : "give the key as `quorvane trust` shows it: sha256// and 44 "
                  "characters";
}

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// As on the command line: no check and a check exclude each other.
TrustOptions RequireConsistent(TrustOptions options, const char* source) {
  const bool is_checked = !options.pin.empty() || !options.cacert.empty() ||
                          !options.known_hosts.empty();
  if (options.insecure && is_checked) {
    throw ToolError(ExitCode::kUsage,
                    fmt::format("Cannot use the certificate check of {}: it "
                                "contains insecure and a check. Remove one.",
                                source));
  }
  return options;
}

// A misspelled key must not turn the check off.
nlohmann::json CheckedSiteFile(const std::string& text) {
  auto json = nlohmann::json::parse(text);
  for (const auto& [key, value] : json.items()) {
    if (key == "pin" || key == "cacert" || key == "known_hosts" ||
        key == "insecure") {
      continue;
    }
    throw ToolError(ExitCode::kUsage,
                    fmt::format("Cannot use {}: the key \"{}\" is unknown. Use "
                                "pin, cacert, known_hosts or insecure.",
                                kSiteFile, key));
  }
  return json;
}

TrustOptions FromEnvironment() {
  return RequireConsistent({.pin = Variable("QUORVANE_PIN"),
                            .cacert = Variable("QUORVANE_CACERT"),
                            .known_hosts = Variable("QUORVANE_KNOWN_HOSTS"),
                            .insecure = Variable("QUORVANE_INSECURE") == "1"},
                           "the environment");
}

TrustOptions FromSiteFile() {
  if (!std::filesystem::exists(kSiteFile)) return {};
  try {
    RequireTrusted(kSiteFile, "site");
    const auto json = CheckedSiteFile(ReadRegular(kSiteFile, "site file"));
    return RequireConsistent({.pin = json.value("pin", ""),
                              .cacert = json.value("cacert", ""),
                              .known_hosts = json.value("known_hosts", ""),
                              .insecure = json.value("insecure", false)},
                             kSiteFile);
  } catch (const nlohmann::json::exception& error) {
    throw ToolError(ExitCode::kUsage,
                    fmt::format("Cannot use {}: {}. Correct the file; see "
                                "quorvane(1).",
                                kSiteFile, error.what()));
  }
}

std::string KeyFromKnownHosts(const std::string& file,
                              const std::string& address) {
  if (auto key = StoredKey(file, address)) return *std::move(key);
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot identify {}: {} does not contain its key. Run "
                  "`quorvane trust --bmc {} --known-hosts {}`, and compare the "
                  "key with that of the server.",
                  address, file, address, file));
}

std::string CheckedFile(const std::string& file) {
  // libcurl would report another file as a BMC that does not respond.
  if (ReadRegular(file, "certificates").find("-----BEGIN ") ==
      std::string::npos) {
    throw ToolError(ExitCode::kUsage,
                    fmt::format("Cannot use the certificates {}: the file "
                                "contains none in PEM form. Convert it, e.g. "
                                "with `openssl x509 -inform DER`.",
                                file));
  }
  return std::filesystem::absolute(file).string();
}

}  // namespace

void AddTrustOptions(CLI::App& command, TrustOptions& options) {
  auto* pin =
      command.add_option("--pin", options.pin,
                         "Public key that the BMC must have: sha256//BASE64");
  pin->check(CLI::Validator(PinFault, ""))->type_name("KEY");
  auto* cacert =
      command
          .add_option(
              "--cacert", options.cacert,
              "File of certificates that must have signed that of the BMC")
          ->type_name("FILE");
  auto* known_hosts =
      command
          .add_option("--known-hosts", options.known_hosts,
                      "File of keys that `quorvane trust` wrote")
          ->excludes(pin)
          ->type_name("FILE");
  auto* insecure = command.add_flag(
      "--insecure", options.insecure,
      "Check no certificate: another computer can pose as the BMC "
      "and get the password");
  for (CLI::Option* check : {pin, cacert, known_hosts}) {
    insecure->excludes(check);
  }
}

TrustOptions EffectiveTrustOptions(const TrustOptions& options) {
  if (options.IsSet()) return options;
  const TrustOptions environment = FromEnvironment();
  return environment.IsSet() ? environment : FromSiteFile();
}

Trust ResolveTrust(const BmcOptions& options) {
  const TrustOptions chosen = EffectiveTrustOptions(options.trust_options);
  Trust trust = options.trust;
  if (chosen.insecure) return trust;
  if (!chosen.pin.empty()) {
    if (const std::string fault = PinFault(chosen.pin); !fault.empty()) {
      throw ToolError(ExitCode::kUsage,
                      "Cannot use the pin " + chosen.pin + ": " + fault + ".");
    }
    trust.pinned_key = chosen.pin;
  } else if (!chosen.known_hosts.empty()) {
    trust.pinned_key = KeyFromKnownHosts(chosen.known_hosts, options.bmc);
  }
  if (!chosen.cacert.empty()) trust.ca_file = CheckedFile(chosen.cacert);
  if (!trust.IsChecked()) {
    PrintMessage(fmt::format(
        "The certificate of {} is not checked: another computer can pose as "
        "the BMC and get the password. Use --pin, --cacert or --known-hosts, "
        "or --insecure to accept this.",
        options.bmc));
  }
  return trust;
}

std::optional<std::string> StoredKey(const std::string& file,
                                     const std::string& address) {
  if (!std::filesystem::exists(file)) return std::nullopt;
  RequireTrusted(file, "known hosts");
  std::istringstream lines(ReadRegular(file, "known hosts"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    std::string key;
    words >> name >> key;
    if (NormalizedAddress(name) != NormalizedAddress(address)) continue;
    if (const std::string fault = PinFault(key); !fault.empty()) {
      throw ToolError(ExitCode::kUsage,
                      fmt::format("Cannot use the key of {} in {}: {}.",
                                  address, file, fault));
    }
    return key;
  }
  return std::nullopt;
}

}  // namespace quorvane::tool
