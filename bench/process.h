// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_BENCH_PROCESS_H_
#define QUORVANE_BENCH_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/file.h"

namespace quorvane::bench {

using Command = std::vector<std::string>;

/// A process that has ended well.
struct Ended {
  double cpu_seconds;  ///< User and system time, as the kernel counted it.
  std::string output;  ///< What it wrote to standard output.
};

/// Runs a command, found as a shell would find it, and waits for it.
/// @throws std::runtime_error unless it ended with status 0.
Ended Run(const Command& command);

/// How many system calls a command makes, its threads' included.
double SystemCalls(const Command& command, const std::string& folder);

/// A new folder, removed with all that is in it.
class WorkFolder {
 public:
  WorkFolder();
  ~WorkFolder();
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// A BMC that answers at once (instant_bmc.cc), in its own process.
class InstantBmc {
 public:
  explicit InstantBmc(int members);
  ~InstantBmc();
  InstantBmc(const InstantBmc&) = delete;
  InstantBmc& operator=(const InstantBmc&) = delete;

  [[nodiscard]] const std::string& address() const { return address_; }

 private:
  Descriptor input_;  // its end is the BMC's
  pid_t pid_ = -1;
  std::string address_;
};

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_PROCESS_H_
