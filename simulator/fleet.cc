// SPDX-License-Identifier: Apache-2.0
#include "simulator/fleet.h"

#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/account.h"
#include "simulator/json.h"
#include "simulator/scenario.h"
#include "simulator/simulated_bmc.h"
#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

namespace fs = std::filesystem;

// The first line of an inventory, by which a stale one is recognized.
constexpr std::string_view kInventoryTitle =
    "# Simulated BMCs of quorvane simulate --fleet";

struct NamedScenario {
  std::string name;  ///< As it was named.
  std::string file;
  Scenario scenario = {};
  int weight = 1;
};

NamedScenario Load(const std::string& name, const std::string& file_or_name,
                   int weight) {
  NamedScenario loaded{
      .name = name, .file = FindScenario(file_or_name), .weight = weight};
  loaded.scenario = LoadScenario(loaded.file);
  return loaded;
}

std::vector<NamedScenario> LoadScenarios(const SimulatorOptions& options) {
  std::vector<NamedScenario> scenarios;
  if (options.scenarios.empty()) {
    scenarios.push_back(Load(options.scenario, options.scenario, 1));
    return scenarios;
  }
  const fs::path directory = fs::path(options.scenarios).parent_path();
  for (const auto& [name, weight] : LoadScenarioWeights(options.scenarios)) {
    if (weight == 0) continue;
    const bool is_file = name.ends_with(".json");
    scenarios.push_back(
        Load(name, is_file ? (directory / name).string() : name, weight));
  }
  return scenarios;
}

std::string HostName(int number, int count) {
  const std::size_t width =
      std::max<std::size_t>(3, std::to_string(count).size());
  std::string digits = std::to_string(number);
  digits.insert(0, width - digits.size(), '0');
  return "bmc" + digits;
}

// A JSON string is a double-quoted scalar of YAML and a string of Python, which
// Ansible expects in an INI file.
std::string Quoted(const std::string& text) {
  return Json(text).dump(-1, ' ', /*ensure_ascii=*/true,
                         Json::error_handler_t::replace);
}

// A host variable in an INI file: a word of a shell that contains a literal of
// Python. A plain word is a string, unless it looks like a number or a name
// such as True.
std::string IniValue(const std::string& text) {
  const bool is_plain =
      !text.empty() && std::islower(static_cast<unsigned char>(text[0])) != 0 &&
      std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
      });
  if (is_plain) return text;
  std::string word = "'";
  for (const char c : Quoted(text)) {
    word += c == '\'' ? std::string(R"('"'"')") : std::string(1, c);
  }
  return word + '\'';
}

bool IsYaml(const std::string& path) {
  return path.ends_with(".yml") || path.ends_with(".yaml");
}

// The file is removed at the end, so a real inventory must not be replaced.
void RequireReplaceableInventory(const std::string& path) {
  std::string title;
  if (std::ifstream file(path); !file || !std::getline(file, title)) return;
  if (title != kInventoryTitle) {
    throw std::runtime_error("cannot replace " + path +
                             ": it is not an inventory of simulated BMCs. "
                             "Choose another inventory file.");
  }
}

void CreateAccountDirectory(const std::string& path) {
  if (path.empty()) return;
  std::error_code error;
  fs::create_directory(path, error);
  if (!error && fs::is_directory(path, error)) return;
  throw std::runtime_error("cannot create the directory " + path + ": " +
                           error.message() +
                           ". Choose another account directory.");
}

// Each BMC uses a socket and a file, and each connection another socket.
void RaiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void PrintPrefixed(const std::string& name, const std::string& lines) {
  std::string text;
  for (std::size_t begin = 0; begin < lines.size();) {
    const std::size_t end = lines.find('\n', begin) + 1;
    text += name + ' ' + lines.substr(begin, end - begin);
    begin = end;
  }
  static std::mutex mutex;  // the BMCs have a thread each
  const std::lock_guard lock(mutex);
  std::cout << text << std::flush;
}

}  // namespace

struct Fleet::Member {
  std::string name;
  std::string scenario_name;
  std::string user;
  std::optional<AccountFile> account;
  std::optional<SimulatedBmc> bmc;  // last, because its threads use the account

  void Report(const Exchange& exchange) {
    if (account) {
      account->Append(AccountOf(exchange));
    } else {
      PrintPrefixed(name, AccountOf(exchange));
    }
  }
};

std::string AnsibleInventory(const std::vector<InventoryHost>& hosts,
                             bool as_yaml) {
  std::string text(kInventoryTitle);
  text += as_yaml ? "\nbmcs:\n  hosts:\n" : "\n[bmcs]\n";
  for (const InventoryHost& host : hosts) {
    if (as_yaml) {
      text += "    " + host.name +
              ":\n      quorvane_bmc: " + Quoted(host.address) +
              "\n      quorvane_user: " + Quoted(host.user) +
              "\n      simulated_scenario: " + Quoted(host.scenario) + '\n';
    } else {
      text += host.name + " quorvane_bmc=" + IniValue(host.address) +
              " quorvane_user=" + IniValue(host.user) +
              " simulated_scenario=" + IniValue(host.scenario) + '\n';
    }
  }
  return text;
}

// Each round, every weight is added to a credit, and the highest credit pays
// for the place.
std::vector<std::size_t> SpreadByWeight(const std::vector<int>& weights,
                                        int count) {
  const auto total =
      std::accumulate(weights.begin(), weights.end(), std::int64_t{0});
  std::vector<std::int64_t> credits(weights.size(), 0);
  std::vector<std::size_t> places;
  for (int i = 0; i < count; ++i) {
    for (std::size_t k = 0; k < weights.size(); ++k) credits[k] += weights[k];
    const auto highest = std::max_element(credits.begin(), credits.end());
    *highest -= total;
    places.push_back(static_cast<std::size_t>(highest - credits.begin()));
  }
  return places;
}

Fleet::Fleet(SimulatorOptions options) : options_(std::move(options)) {
  const std::vector<NamedScenario> scenarios = LoadScenarios(options_);
  RequireReplaceableInventory(options_.inventory_file);
  CreateAccountDirectory(options_.account_directory);
  RaiseFileLimit();
  std::vector<int> weights;
  weights.reserve(scenarios.size());
  for (const NamedScenario& one : scenarios) weights.push_back(one.weight);
  const auto tls = CreateTlsContext();
  for (const std::size_t index : SpreadByWeight(weights, options_.fleet)) {
    const NamedScenario& chosen = scenarios.at(index);
    auto member = std::make_unique<Member>();
    member->name =
        HostName(static_cast<int>(members_.size()) + 1, options_.fleet);
    member->scenario_name = chosen.name;
    member->user = chosen.scenario.user;
    if (!options_.account_directory.empty()) {
      member->account.emplace(options_.account_directory + '/' + member->name +
                              ".txt");
    }
    BmcOptions bmc_options{.bind_address = options_.bind_address,
                           .max_recorded_body = 0,
                           .max_recorded_requests = 0,
                           .tls = tls};
    if (member->account || !options_.quiet) {
      bmc_options.observer = [target = member.get()](const Exchange& exchange) {
        target->Report(exchange);
      };
    }
    member->bmc.emplace(chosen.scenario, std::move(bmc_options));
    if (member->account) {
      member->account->Append(
          AccountHeading(member->bmc->Address(), chosen.file, chosen.scenario));
    }
    members_.push_back(std::move(member));
  }
  inventory_.emplace(options_.inventory_file,
                     AnsibleInventory(Hosts(), IsYaml(options_.inventory_file)),
                     "inventory file");
}

Fleet::~Fleet() = default;

std::vector<InventoryHost> Fleet::Hosts() const {
  std::vector<InventoryHost> hosts;
  for (const auto& member : members_) {
    hosts.push_back({member->name, member->bmc->Address(), member->user,
                     member->scenario_name});
  }
  return hosts;
}

std::string Fleet::Summary() const {
  std::map<std::string, int> counts;
  for (const auto& member : members_) ++counts[member->scenario_name];
  std::string text = std::to_string(members_.size()) +
                     " simulated BMCs: " + members_.front()->name +
                     " at https://" + members_.front()->bmc->Address() +
                     " to " + members_.back()->name + " at https://" +
                     members_.back()->bmc->Address() + '\n';
  for (const auto& [name, count] : counts) {
    text += "  " + std::to_string(count) + ' ' + Printable(name) + '\n';
  }
  if (!options_.inventory_file.empty()) {
    text += "Inventory: " + Printable(options_.inventory_file) + '\n';
  }
  if (!options_.account_directory.empty()) {
    text += "Accounts: " + Printable(options_.account_directory) + '/' +
            members_.front()->name + ".txt and so on\n";
  }
  return text +
         "The password of a BMC is that of its scenario (default: "
         "\"password\").\nPress Ctrl-C to stop.\n";
}

}  // namespace quorvane::simulator
