// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/library_process.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/records.h"
#include "tools/quorvane/worker/private_rules.h"
#include "tools/quorvane/worker/record_stream.h"
#include "tools/quorvane/worker/worker.h"

namespace quorvane::tool {
namespace {

[[noreturn]] void CannotStart(int error) {
  throw ToolError(ExitCode::kFailed,
                  "Cannot start a process for the library call: " +
                      std::generic_category().message(error) +
                      ". Free some memory or processes, then try again.");
}

struct Pipe {
  Descriptor read_end, write_end;
  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) CannotStart(errno);
    read_end = Descriptor(ends[0]);
    write_end = Descriptor(ends[1]);
  }
};

// A child process. The destructor ends and reaps it.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}
  ~Child() { Kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    Wait();
  }

  /// @return The status that waitpid(2) reports.
  int Wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = 0;
    return status;
  }

 private:
  pid_t pid_;
};

std::vector<std::string> Environment(const std::optional<PrivateRules>& rules) {
  constexpr std::string_view kPath = "LD_LIBRARY_PATH=";
  // libcurl would write the keys of every connection to the file it names.
  constexpr std::string_view kKeyLog = "SSLKEYLOGFILE=";
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view one = *variable;
    if (one.rfind(kKeyLog, 0) != 0 && (!rules || one.rfind(kPath, 0) != 0)) {
      variables.emplace_back(one);
    }
  }
  if (rules) variables.push_back(std::string(kPath) + rules->LoaderPath());
  return variables;
}

struct WorkerPipes {
  Pipe request, response, errors, log;
};

pid_t Spawn(const WorkerPipes& pipes, Signals& signals,
            const std::optional<PrivateRules>& rules) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const auto pass = [&actions](const Descriptor& end, int number) {
    posix_spawn_file_actions_adddup2(&actions, end.get(), number);
  };
  // All pipe ends have higher numbers than the standard streams. Only the last
  // dup2 may overwrite another pipe end, which is no longer needed by then.
  pass(pipes.request.read_end, STDIN_FILENO);
  pass(pipes.response.write_end, STDOUT_FILENO);
  pass(pipes.errors.write_end, STDERR_FILENO);
  pass(pipes.log.write_end, kWorkerLogDescriptor);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  const sigset_t mask = signals.ChildMask();
  posix_spawnattr_setsigmask(&attributes, &mask);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

  std::vector<std::string> variables = Environment(rules);
  std::vector<char*> environment;
  environment.reserve(variables.size() + 1);
  for (std::string& variable : variables) {
    environment.push_back(variable.data());
  }
  environment.push_back(nullptr);
  std::string name = "quorvane";
  std::string role = kWorkerArgument;
  std::string parent = std::to_string(getpid());
  std::array<char*, 4> arguments = {name.data(), role.data(), parent.data(),
                                    nullptr};

  pid_t pid = 0;
  const int error = posix_spawn(&pid, "/proc/self/exe", &actions, &attributes,
                                arguments.data(), environment.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) CannotStart(error);
  return pid;
}

// Why the process failed; empty if it succeeded.
std::string FailureReason(int status) {
  if (WIFSIGNALED(status)) return fmt::format("signal {}", WTERMSIG(status));
  return WEXITSTATUS(status) == 0
             ? std::string()
             : fmt::format("exit status {}", WEXITSTATUS(status));
}

// Prints what the child writes to standard error, such as the report of a
// sanitizer or an error of the loader. The first lines matter most.
class ErrorPrinter {
 public:
  void Feed(std::string_view bytes) {
    for (const char c : bytes) {
      if (c == '\n') {
        Print();
      } else if (line_.size() < kMaxLineBytes) {
        line_ += c;
      }
    }
  }
  void Print() {
    if (!line_.empty() && printed_++ < kMaxLines) {
      fmt::print(stderr, "{}\n", Printable(line_));
    }
    line_.clear();
  }

 private:
  static constexpr std::size_t kMaxLineBytes = 1000;
  static constexpr int kMaxLines = 100;

  std::string line_;
  int printed_ = 0;
};

// Reads the child's pipes until all of them are closed.
class PipeReader {
 public:
  PipeReader(WorkerPipes& pipes, Signals& signals, CallListener& listener)
      : signals_(signals),
        listener_(listener),
        frames_([this](std::string_view frame) { ForwardRecord(frame); }),
        polled_{{{pipes.log.read_end.get(), POLLIN, 0},
                 {pipes.response.read_end.get(), POLLIN, 0},
                 {pipes.errors.read_end.get(), POLLIN, 0},
                 {signals.descriptor(), POLLIN, 0}}} {}

  /// @return Whether all was read; else why not.
  CallResult::End ReadAll(double limit_seconds) {
    constexpr int kTickMs = 100;
    const double end = MonotonicSeconds() + limit_seconds;
    while (polled_[kLog].fd >= 0 || polled_[kResponse].fd >= 0 ||
           polled_[kErrors].fd >= 0) {
      const int ready = poll(polled_.data(), polled_.size(), kTickMs);
      if (limit_seconds > 0 && MonotonicSeconds() >= end) {
        return CallResult::End::kTimedOut;
      }
      if (ready == 0) listener_.OnTick();
      if (ready <= 0) continue;
      if (polled_[kSignals].revents != 0 && signals_.MustStop()) {
        return CallResult::End::kInterrupted;
      }
      for (const Source source : {kLog, kResponse, kErrors}) {
        if (polled_.at(source).revents != 0) ReadAvailable(source);
      }
    }
    return CallResult::End::kResponded;
  }

  /// Reads what the child logged before it was killed.
  void ReadRemainingLog() {
    while (polled_[kLog].fd >= 0) ReadAvailable(kLog);
  }

  [[nodiscard]] const std::string& response() const { return response_; }
  [[nodiscard]] bool IsResponseTooLong() const {
    return response_.size() > kMaxResponseBytes;
  }

 private:
  enum Source : std::size_t { kLog, kResponse, kErrors, kSignals };
  // An inventory of a hundred thousand items takes about a third of it.
  static constexpr std::size_t kMaxResponseBytes = 64U << 20;

  void ForwardRecord(std::string_view frame) {
    const std::optional<Record> record = RecordFrom(frame);
    if (record) listener_.OnRecord(*record);
  }

  void ReadAvailable(Source source) {
    pollfd& from = polled_.at(source);
    std::array<char, 65536> chunk{};
    const ssize_t count = read(from.fd, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) return;
    if (count <= 0) {
      from.fd = -1;  // poll ignores it from now on
      if (source == kErrors) errors_.Print();
      return;
    }
    const std::string_view bytes(chunk.data(), static_cast<std::size_t>(count));
    if (source == kLog) {
      frames_.Feed(bytes);
    } else if (source == kErrors) {
      errors_.Feed(bytes);
    } else if (!IsResponseTooLong()) {
      response_.append(bytes);
    }
  }

  Signals& signals_;
  CallListener& listener_;
  FrameReader frames_;
  std::array<pollfd, 4> polled_;
  std::string response_;
  ErrorPrinter errors_;
};

// The worker's result after it ended with `status`.
CallResult ResultOf(const PipeReader& reader, int status) {
  CallResult result;
  result.reason = FailureReason(status);
  if (!result.reason.empty()) return result;
  if (reader.IsResponseTooLong()) {
    result.reason = "its response is longer than 64 MiB";
    return result;
  }
  try {
    result.response = DecodeResponse(reader.response());
    result.end = CallResult::End::kResponded;
  } catch (const std::exception& error) {
    result.reason = fmt::format("its response is broken: {}", error.what());
  }
  return result;
}

}  // namespace

CallResult CallLibrary(LibraryCall call, const CallOptions& options,
                       Signals& signals, CallListener& listener) {
  WorkerRequest request{.call = std::move(call), .trust = options.trust};
  std::optional<PrivateRules> private_rules;
  if (!options.rules.empty() || options.reboot_by == RebootBy::kTool) {
    private_rules.emplace(
        options.rules.empty() ? ResolveConfigPath() : options.rules,
        options.reboot_by == RebootBy::kTool ? PrivateRules::Content::kNoReboot
                                             : PrivateRules::Content::kSame);
    request.rules_directory = private_rules->directory();
  }
  WorkerPipes pipes;
  // A worker that ends before it has read its request is reported below.
  std::signal(SIGPIPE, SIG_IGN);
  if (signals.MustStop()) return {.end = CallResult::End::kInterrupted};
  Child child(Spawn(pipes, signals, private_rules));
  pipes.response.write_end.Close();
  pipes.errors.write_end.Close();
  pipes.log.write_end.Close();
  WriteAll(pipes.request.write_end.get(), Encode(request));
  pipes.request.write_end.Close();

  PipeReader reader(pipes, signals, listener);
  const CallResult::End end = reader.ReadAll(options.limit_seconds);
  if (end != CallResult::End::kResponded) {
    // The child could send a request until now; its log contains that.
    child.Kill();
    reader.ReadRemainingLog();
    return {.end = end};
  }
  listener.OnTick();
  return ResultOf(reader, child.Wait());
}

}  // namespace quorvane::tool
