// SPDX-License-Identifier: Apache-2.0
#include "bench/process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace quorvane::bench {
namespace {

struct Pipe {
  Descriptor read_end, write_end;

  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("cannot create a pipe");
    }
    read_end = Descriptor(ends[0]);
    write_end = Descriptor(ends[1]);
  }
};

// `input` and `output` become its standard input and output. -1: inherited.
pid_t Start(const Command& command, int input, int output) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid == 0) {
    if (input >= 0) dup2(input, STDIN_FILENO);
    if (output >= 0) dup2(output, STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  return pid;
}

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) +
         static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

ProcessResult Run(const Command& command) {
  Pipe pipe;
  const pid_t pid = Start(command, -1, pipe.write_end.get());
  pipe.write_end.Close();
  ProcessResult result{};
  std::array<char, 4096> chunk{};
  ssize_t count = 0;
  while ((count = read(pipe.read_end.get(), chunk.data(), chunk.size())) > 0) {
    result.output.append(chunk.data(), static_cast<std::size_t>(count));
  }
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid || status != 0) {
    std::string message = "command failed:";
    for (const std::string& argument : command) message += " " + argument;
    throw std::runtime_error(message);
  }
  result.cpu_seconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  return result;
}

double SystemCalls(const Command& command, const std::string& directory) {
  const std::string summary = directory + "/calls";
  Command traced = {"strace", "-f", "-c", "-U", "calls,name", "-o", summary};
  traced.insert(traced.end(), command.begin(), command.end());
  static_cast<void>(Run(traced));
  std::ifstream lines(summary);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" total") != std::string::npos) return std::stod(line);
  }
  throw std::runtime_error("strace printed no total");
}

TempDirectory::TempDirectory() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "quorvane-bench-XXXXXX")
          .string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot create a temporary directory");
  }
  path_ = pattern;
}

TempDirectory::~TempDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

InstantBmc::InstantBmc(int members) {
  Pipe to_bmc;
  Pipe from_bmc;
  pid_ = Start({QUORVANE_BENCH_BMC, std::to_string(members)},
               to_bmc.read_end.get(), from_bmc.write_end.get());
  input_ = std::move(to_bmc.write_end);
  std::array<char, 16> port{};
  if (read(from_bmc.read_end.get(), port.data(), port.size() - 1) <= 0) {
    throw std::runtime_error("cannot start the BMC");
  }
  address_ = "127.0.0.1:" + std::to_string(std::atoi(port.data()));
}

InstantBmc::~InstantBmc() {
  input_.Close();
  waitpid(pid_, nullptr, 0);
}

}  // namespace quorvane::bench
