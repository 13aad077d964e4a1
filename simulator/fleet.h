// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_FLEET_H_
#define QUORVANE_SIMULATOR_FLEET_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/options.h"
#include "simulator/published_file.h"

namespace quorvane::simulator {

/// A host of an Ansible inventory.
struct InventoryHost {
  std::string name;      ///< "bmc001".
  std::string address;   ///< "127.0.0.1:PORT".
  std::string user;      ///< The account of the scenario.
  std::string scenario;  ///< As it was named.
};

/// An Ansible inventory with the group "bmcs" and, for each host, the variables
/// quorvane_bmc, quorvane_user and simulated_scenario. It contains no password.
/// @param as_yaml  YAML, otherwise INI.
std::string AnsibleInventory(const std::vector<InventoryHost>& hosts,
                             bool as_yaml);

/// For each of `count` places, the index of a weight. Every index gets a share
/// in proportion to its weight, spread evenly, and always the same.
std::vector<std::size_t> SpreadByWeight(const std::vector<int>& weights,
                                        int count);

/// Simulated BMCs that run in this process, each at a free port of one address.
/// They share a key and a certificate.
class Fleet {
 public:
  /// Starts the BMCs and writes the inventory and the accounts, as the options
  /// of --fleet specify.
  /// @throws std::runtime_error if a scenario, a file or the address cannot be
  ///     used.
  explicit Fleet(SimulatorOptions options);
  ~Fleet();
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  /// Lines for the operator: addresses, scenarios and files.
  [[nodiscard]] std::string Summary() const;

 private:
  struct Member;

  [[nodiscard]] std::vector<InventoryHost> Hosts() const;

  SimulatorOptions options_;
  std::vector<std::unique_ptr<Member>> members_;
  std::optional<PublishedFile> inventory_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_FLEET_H_
