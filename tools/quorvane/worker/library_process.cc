// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/library_process.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/worker/private_rules.h"
#include "tools/quorvane/worker/record_stream.h"
#include "tools/quorvane/worker/worker.h"

namespace quorvane::tool {
namespace {

[[noreturn]] void CannotStart(int error) {
  throw ToolError(ExitCode::kFailed,
                  "Cannot start a process for the update (" +
                      std::generic_category().message(error) +
                      "); free some memory or processes and try again.");
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

// The signals that end the tool arrive on a descriptor while this lives.
class SignalInbox {
 public:
  SignalInbox() {
    sigset_t awaited;
    sigemptyset(&awaited);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      sigaddset(&awaited, signal);
    }
    sigprocmask(SIG_BLOCK, &awaited, &before_);
    inbox_ = Descriptor(signalfd(-1, &awaited, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!inbox_.IsOpen()) CannotStart(errno);
  }
  ~SignalInbox() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalInbox(const SignalInbox&) = delete;
  SignalInbox& operator=(const SignalInbox&) = delete;

  [[nodiscard]] int get() const { return inbox_.get(); }
  /// What was taken does not strike once the signals are let through again.
  void TakeAll() const {
    signalfd_siginfo taken{};
    while (read(inbox_.get(), &taken, sizeof taken) > 0) {
    }
  }
  [[nodiscard]] const sigset_t& mask_before() const { return before_; }

 private:
  sigset_t before_{};
  Descriptor inbox_;
};

// A child process; ended and reaped when this goes.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      Wait();
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Its status as of waitpid(2).
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
  Pipe request, answer, errors, log;
};

pid_t Spawn(const WorkerPipes& pipes, const SignalInbox& signals,
            const std::optional<PrivateRules>& rules) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const auto give = [&actions](const Descriptor& end, int number) {
    posix_spawn_file_actions_adddup2(&actions, end.get(), number);
  };
  // The pipe ends lie above the standard streams, so the last of these is the
  // only one that may land on another's number, and no one needs that then.
  give(pipes.request.read_end, STDIN_FILENO);
  give(pipes.answer.write_end, STDOUT_FILENO);
  give(pipes.errors.write_end, STDERR_FILENO);
  give(pipes.log.write_end, kWorkerLogDescriptor);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigmask(&attributes, &signals.mask_before());
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
  std::array<char*, 3> arguments = {name.data(), role.data(), nullptr};

  pid_t pid = 0;
  const int error = posix_spawn(&pid, "/proc/self/exe", &actions, &attributes,
                                arguments.data(), environment.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) CannotStart(error);
  return pid;
}

// Empty when it ended well.
std::string HowItEnded(int status) {
  if (WIFSIGNALED(status)) return fmt::format("signal {}", WTERMSIG(status));
  return WEXITSTATUS(status) == 0
             ? std::string()
             : fmt::format("exit status {}", WEXITSTATUS(status));
}

// Ctrl-C reaches the child as well, and its end may be seen first.
bool WasInterrupted(int status) {
  return WIFSIGNALED(status) &&
         (WTERMSIG(status) == SIGINT || WTERMSIG(status) == SIGHUP);
}

// What the child says outside its log, line by line: a sanitizer's report, a
// loader's complaint. The first lines matter.
class ErrorLines {
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

// Reads the child's three pipes until the last is closed.
class Listening {
 public:
  Listening(WorkerPipes& pipes, const SignalInbox& signals,
            CallListener& listener)
      : signals_(signals),
        listener_(listener),
        frames_([this](std::string_view frame) { TakeFrame(frame); }),
        watched_{{{pipes.log.read_end.get(), POLLIN, 0},
                  {pipes.answer.read_end.get(), POLLIN, 0},
                  {pipes.errors.read_end.get(), POLLIN, 0},
                  {signals.get(), POLLIN, 0}}} {}

  /// @return False when a signal ended it.
  bool UntilClosed() {
    constexpr int kQuietMs = 100;
    while (watched_[kLog].fd >= 0 || watched_[kAnswer].fd >= 0 ||
           watched_[kErrors].fd >= 0) {
      const int ready = poll(watched_.data(), watched_.size(), kQuietMs);
      if (ready == 0) listener_.OnTick();
      if (ready <= 0) continue;
      if (watched_[kSignals].revents != 0) {
        signals_.TakeAll();
        if (watched_[kLog].revents != 0) ReadAvailable(kLog);
        return false;
      }
      for (const Source source : {kLog, kAnswer, kErrors}) {
        if (watched_.at(source).revents != 0) ReadAvailable(source);
      }
    }
    return true;
  }

  [[nodiscard]] const std::string& answer() const { return answer_; }
  [[nodiscard]] bool IsAnswerTooLong() const {
    return answer_.size() > kMaxAnswerBytes;
  }

 private:
  enum Source : std::size_t { kLog, kAnswer, kErrors, kSignals };
  // An inventory of a hundred thousand items takes about a third of it.
  static constexpr std::size_t kMaxAnswerBytes = 64U << 20;

  // The library never speaks as the tool.
  void TakeFrame(std::string_view frame) {
    const std::optional<Record> record = RecordFrom(frame);
    if (record && record->component != kToolComponent) {
      listener_.OnRecord(*record);
    }
  }

  void ReadAvailable(Source source) {
    pollfd& from = watched_.at(source);
    std::array<char, 65536> chunk{};
    const ssize_t count = read(from.fd, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) return;
    if (count <= 0) {
      from.fd = -1;  // poll passes over it
      if (source == kErrors) errors_.Print();
      return;
    }
    const std::string_view bytes(chunk.data(), static_cast<std::size_t>(count));
    if (source == kLog) {
      frames_.Feed(bytes);
    } else if (source == kErrors) {
      errors_.Feed(bytes);
    } else if (!IsAnswerTooLong()) {
      answer_.append(bytes);
    }
  }

  const SignalInbox& signals_;
  CallListener& listener_;
  FrameReader frames_;
  std::array<pollfd, 4> watched_;
  std::string answer_;
  ErrorLines errors_;
};

}  // namespace

CallResult CallLibrary(const nlohmann::json& request, const std::string& rules,
                       CallListener& listener) {
  // First, so that no signal can leave the private folder behind.
  const SignalInbox signals;
  std::optional<PrivateRules> private_rules;
  nlohmann::json call = request;
  if (!rules.empty()) {
    private_rules.emplace(rules);
    call["rules_folder"] = private_rules->folder();
  }
  WorkerPipes pipes;
  // A worker that is gone before it has read its request is told below.
  std::signal(SIGPIPE, SIG_IGN);
  Child child(Spawn(pipes, signals, private_rules));
  pipes.answer.write_end.Close();
  pipes.errors.write_end.Close();
  pipes.log.write_end.Close();
  // CBOR, since a JSON text cannot hold a password that is not UTF-8.
  std::string bytes;
  nlohmann::json::to_cbor(call, bytes);
  WriteAll(pipes.request.write_end.get(), bytes);
  pipes.request.write_end.Close();

  Listening listening(pipes, signals, listener);
  CallResult result;
  if (!listening.UntilClosed()) {
    result.end = CallResult::End::kInterrupted;
    return result;
  }
  listener.OnTick();
  const int status = child.Wait();
  if (WasInterrupted(status)) {
    signals.TakeAll();
    result.end = CallResult::End::kInterrupted;
    return result;
  }
  result.how = HowItEnded(status);
  if (listening.IsAnswerTooLong()) {
    result.how = "it answered with more than 64 MiB";
    return result;
  }
  result.answer = nlohmann::json::parse(listening.answer(), nullptr, false);
  if (result.how.empty() && result.answer.is_object()) {
    result.end = CallResult::End::kAnswered;
  }
  return result;
}

}  // namespace quorvane::tool
