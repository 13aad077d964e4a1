// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/bmc_options.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "quorvane/config.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/commands/password.h"
#include "tools/quorvane/rules/check.h"

namespace quorvane::tool {
namespace {

bool IsPort(std::string_view port) {
  constexpr int kMaxPort = 65535;
  int number = 0;
  const char* end = port.data() + port.size();
  const auto [stop, error] = std::from_chars(port.data(), end, number);
  return error == std::errc() && stop == end && number > 0 &&
         number <= kMaxPort;
}

// Like `UserFault`, it does not repeat the argument, which may contain a
// password.
std::string AddressFault(const std::string& address) {
  const bool is_plain =
      !address.empty() &&
      std::all_of(address.begin(), address.end(), [](const char c) {
        return c > ' ' && c != '\x7f' &&
               std::string_view("@?#\\/").find(c) == std::string_view::npos;
      });
  // Without a closing bracket, the host is empty.
  const std::size_t host = address.rfind('[', 0) == 0
                               ? address.find(']') + 1
                               : std::min(address.find(':'), address.size());
  const std::string_view text = address;
  const std::string_view rest = text.substr(host);
  if (is_plain && std::count(rest.begin(), rest.end(), ':') > 1) {
    return "put brackets around an IPv6 address, such as [2001:db8::7] or "
           "[2001:db8::7]:8443";
  }
  if (!is_plain || host == 0) {
    return "give only the address, such as 192.0.2.7 or [2001:db8::7]:8443";
  }
  const bool is_port_valid =
      rest.empty() || (rest.front() == ':' && IsPort(rest.substr(1)));
  return is_port_valid ? std::string()
                       : "the port is a number from 1 to 65535, such as "
                         "192.0.2.7:8443";
}

// Prints the errors. Warnings would hide them; `rules check` prints both.
void RequireNoErrors(const std::string& file, bool force) {
  const std::vector<Finding> findings =
      CheckRules(ReadRegular(file, "rules file"));
  for (const Finding& finding : findings) {
    if (finding.severity == Severity::kWarning) continue;
    fmt::print(stderr, "{}\n",
               LineOf(finding, file, ShowsColors(STDERR_FILENO)));
  }
  if (force || !HasErrors(findings)) return;
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot use the rules file {}: it has errors, and nothing "
                  "was sent. Correct them (for warnings too, run `quorvane "
                  "rules check {}`), or use --force to accept them.",
                  file, file));
}

}  // namespace

std::string RulesFileOf(const BmcOptions& options) {
  return options.rules.empty() ? ResolveConfigPath() : options.rules;
}

// The text of CLI::CheckedTransformer would list the numbers too, and accept
// them.
std::function<std::string(std::string&)> ChoiceNumber(
    std::vector<std::string> names) {
  return [names = std::move(names)](std::string& name) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found != names.end()) {
      name = std::to_string(found - names.begin());
      return std::string();
    }
    std::string known = names.front();
    for (std::size_t i = 1; i < names.size(); ++i) {
      known += (i + 1 == names.size() ? " or " : ", ") + names[i];
    }
    return "use " + known + ", not " + name;
  };
}

std::string UserFault(const std::string& user) {
  return user.find(':') == std::string::npos
             ? std::string()
             : "give only the name, without a colon; the password has its own "
               "option";
}

// A URI of another host would not be requested; the error must come before the
// password prompt.
std::string TaskUriFault(const std::string& uri) {
  return uri.rfind('/', 0) == 0 ? std::string()
                                : "give the path of the task, such as "
                                  "/redfish/v1/TaskService/Tasks/1";
}

void RejectPasswordArgument(CLI::App& command, const std::string& option) {
  command
      .add_option_function<std::string>(
          option,
          [option](const std::string& /*password*/) {
            throw ToolError(
                ExitCode::kUsage,
                "Cannot use " + option +
                    ": arguments are visible in every process list. "
                    "Use " +
                    option + "-file FILE instead.");
          })
      ->group("");
}

void AddAddressOption(CLI::App& command, std::string& address) {
  command
      .add_option("--bmc", address,
                  "Address or host name of the BMC, with :PORT if needed")
      ->required()
      ->check(CLI::Validator(AddressFault, ""))
      ->type_name("ADDRESS");
}

void AddBmcOptions(CLI::App& command, BmcOptions& options) {
  AddAddressOption(command, options.bmc);
  command.add_option("--user", options.user, "Account on the BMC")
      ->required()
      ->check(CLI::Validator(UserFault, ""))
      ->type_name("NAME");
  auto* file = command.add_option("--password-file", options.password_file,
                                  "File whose first line is the password "
                                  "(default: prompt)");
  file->type_name("FILE");
  command
      .add_flag("--password-stdin", options.password_stdin,
                "Read the password from standard input")
      ->excludes(file);
  command
      .add_option("--rules", options.rules,
                  "Rules file to use instead of the installed one")
      ->type_name("FILE");
  command.add_flag("--force", options.force,
                   "Accept a rules file that `rules check` finds errors in");
  command
      .add_option("--log", options.log,
                  "Append the log to this file (default: a new private file "
                  "for update and restart, else no log)")
      ->type_name("FILE");
  RejectPasswordArgument(command, "--password");
  AddTrustOptions(command, options.trust_options);
  command
      .add_option("--log-level", options.log_level,
                  "Least severe level to log: debug (default), info, warning "
                  "or error")
      ->transform(CLI::Validator(
          ChoiceNumber({"debug", "info", "warning", "error"}), ""))
      ->type_name("LEVEL");
}

void RequireDistinctFiles(const BmcOptions& options,
                          std::vector<NamedFile> others) {
  others.push_back({"--password-file", options.password_file});
  others.push_back(
      {options.rules.empty() ? "the installed rules file" : "--rules",
       RulesFileOf(options)});
  const TrustOptions trust = EffectiveTrustOptions(options.trust_options);
  others.push_back({"--cacert", trust.cacert});
  others.push_back({"--known-hosts", trust.known_hosts});
  others.push_back({"--log", options.log, /*is_written=*/true});
  RequireDistinct(others);
}

std::string ReadPassword(const BmcOptions& options) {
  if (!options.password_file.empty()) {
    return PasswordFromFile(options.password_file);
  }
  if (options.password_stdin) return PasswordFromStdin();
  return PasswordFromTerminal(options.user + " on " + options.bmc);
}

std::string RulesError(const std::string& file, const std::string& reason) {
  return fmt::format(
      "Cannot use the rules: {}. {}", reason,
      access(file.c_str(), R_OK) == 0
          ? "For details, run `quorvane rules check " + file + "`."
          : "Check its name and mode.");
}

Config LoadRules(const BmcOptions& options) {
  if (!options.rules.empty()) RequireTrusted(options.rules, "rules");
  const std::string file = RulesFileOf(options);
  RequireNoErrors(file, options.force);
  try {
    return LoadConfig(file);
  } catch (const std::runtime_error& error) {
    throw ToolError(ExitCode::kUsage, RulesError(file, error.what()));
  }
}

}  // namespace quorvane::tool
