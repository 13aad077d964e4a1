// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_BENCH_PROCESS_H_
#define QUORVANE_BENCH_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/file.h"

namespace quorvane::bench {

using Command = std::vector<std::string>;

/// The result of a process that exited with 0.
struct ProcessResult {
  double cpu_seconds;  ///< User and system time, as counted by the kernel.
  std::string output;  ///< Standard output.
};

/// Runs a command, searched in PATH, and waits for it.
/// @throws std::runtime_error unless it exits with 0.
ProcessResult Run(const Command& command);

/// The number of system calls that a command makes, on all threads.
double SystemCalls(const Command& command, const std::string& directory);

/// A new temporary directory. The destructor removes it with its contents.
class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

/// A BMC that responds immediately (instant_bmc.cc), in its own process.
class InstantBmc {
 public:
  explicit InstantBmc(int members);
  ~InstantBmc();
  InstantBmc(const InstantBmc&) = delete;
  InstantBmc& operator=(const InstantBmc&) = delete;

  [[nodiscard]] const std::string& Address() const { return address_; }

 private:
  Descriptor input_;  // the BMC exits when this is closed
  pid_t pid_ = -1;
  std::string address_;
};

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_PROCESS_H_
