// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_ACCOUNT_H_
#define QUORVANE_SIMULATOR_ACCOUNT_H_

#include <string>

#include "simulator/scenario.h"
#include "simulator/simulated_bmc.h"

namespace quorvane::simulator {

/// Complete lines about an exchange: the request, the status and what the BMC
/// did, and a line for each version that changed. Printable.
std::string AccountOf(const Exchange& exchange);

/// The lines before that: the address and the scenario.
std::string AccountHeading(const std::string& address,
                           const std::string& scenario_file,
                           const Scenario& scenario);

/// The account of one BMC in a file.
class AccountFile {
 public:
  /// Replaces a regular file at `path`.
  /// @throws std::runtime_error, also for a symbolic link, which another user
  ///     may have placed there.
  explicit AccountFile(std::string path);
  ~AccountFile();
  AccountFile(const AccountFile&) = delete;
  AccountFile& operator=(const AccountFile&) = delete;

  /// Appends `lines`. A failure is reported once on standard error.
  void Append(const std::string& lines);

 private:
  std::string path_;
  int fd_;
  bool has_failed_ = false;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_ACCOUNT_H_
