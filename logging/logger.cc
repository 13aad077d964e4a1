// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "logging/location.h"
#include "quorvane/logging.h"
#include "support/file.h"

namespace quorvane {
namespace {

constexpr std::string_view kDefaultPath = "/var/log/zelk/pvo/brindle_log.txt";
constexpr mode_t kLogMode = 0640;

const char* LevelName(LogLevel level) {
  switch (level) {
    case LogLevel::DEBUG:
      return "DEBUG  ";
    case LogLevel::INFO:
      return "INFO   ";
    case LogLevel::WARNING:
      return "WARNING";
    case LogLevel::ERROR:
      return "ERROR  ";
  }
  return "UNKNOWN";
}

// "2024-05-01 13:07:09.042". Without the heap, since the closing line is
// written from a destructor, which must not run out of memory. The text of a
// second is kept: telling local time costs more than the rest of a line.
class Timestamp {
 public:
  const char* Now() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second_ || length_ == 0) TellSecond(now.tv_sec);
    const auto milliseconds = static_cast<int>(now.tv_nsec / 1'000'000);
    char* end = text_.data() + length_;
    end[0] = '.';
    end[1] = static_cast<char>('0' + milliseconds / 100);
    end[2] = static_cast<char>('0' + milliseconds / 10 % 10);
    end[3] = static_cast<char>('0' + milliseconds % 10);
    end[4] = '\0';
    return text_.data();
  }

 private:
  void TellSecond(time_t second) noexcept {
    tm local{};
    localtime_r(&second, &local);
    length_ =
        strftime(text_.data(), text_.size() - 5, "%Y-%m-%d %H:%M:%S", &local);
    second_ = second;
  }

  std::array<char, 48> text_{};
  std::size_t length_ = 0;
  time_t second_ = 0;
};

// Whether the process has a limit on the size of its files, RLIMIT_FSIZE.
// Reading it costs as much as writing a line. So only the first lines of each
// clock tick (a few milliseconds) read it; the rest of a burst reuse the value.
class FileSizeLimit {
 public:
  bool IsSet() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (now.tv_nsec != tick_.tv_nsec || now.tv_sec != tick_.tv_sec) {
      tick_ = now;
      readings_ = 0;
    }
    if (readings_ < kReadingsPerTick) {
      ++readings_;
      rlimit limit{};
      is_set_ = getrlimit(RLIMIT_FSIZE, &limit) != 0 ||
                limit.rlim_cur != RLIM_INFINITY;
    }
    return is_set_;
  }

 private:
  static constexpr int kReadingsPerTick = 8;
  timespec tick_{};
  int readings_ = 0;
  bool is_set_ = false;
};

// The file that holds the log.
class LogFile {
 public:
  // Never blocks on a FIFO that nobody reads: opening it fails instead.
  bool Open(const std::string& path);
  [[nodiscard]] bool IsOpen() const noexcept { return file_.IsOpen(); }

  // Appends whole lines: after an attempt that stopped within a line, the next
  // one starts a new line. False when the text is not on disk.
  bool Append(std::string_view lines) noexcept;

 private:
  bool Write(std::string_view text) noexcept;

  Descriptor file_;
  FileSizeLimit size_limit_;
  bool is_regular_ = false;
  bool is_cut_short_ = false;
};

bool LogFile::Open(const std::string& path) {
  file_ = Descriptor(
      open(path.c_str(),
           O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
           kLogMode));
  if (!file_.IsOpen()) return false;
  fcntl(file_.get(), F_SETFL, fcntl(file_.get(), F_GETFL) & ~O_NONBLOCK);
  struct stat found {};
  is_regular_ = fstat(file_.get(), &found) == 0 && S_ISREG(found.st_mode);
  return true;
}

bool LogFile::Append(std::string_view lines) noexcept {
  // Blocking signals costs several system calls, and a line on a regular file
  // one. Such a file raises no signal unless the process has a size limit.
  std::optional<WriteSignalBlock> no_signals;
  if (!is_regular_ || size_limit_.IsSet()) no_signals.emplace();
  if (is_cut_short_ && !Write("\n")) return false;
  return Write(lines);
}

bool LogFile::Write(std::string_view text) noexcept {
  const std::size_t written = WriteBytes(file_.get(), text);
  if (written > 0) is_cut_short_ = written < text.size();
  return written == text.size();
}

void Complain(const std::string& text) {
  static_cast<void>(WriteAll(STDERR_FILENO, text + "\n"));
}

}  // namespace

class Logger::Impl {
 public:
  Impl(const std::string& path, LogLevel level, bool console_output,
       bool skip_security_checks);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void SetLevel(LogLevel level) {
    const std::scoped_lock lock(mutex_);
    level_ = level;
  }
  std::string Path() const {
    const std::scoped_lock lock(mutex_);
    return path_;
  }
  bool IsInitialized() const {
    const std::scoped_lock lock(mutex_);
    return initialised_;
  }
  void log_write(LogLevel level, const std::string& component,
                 const std::string& message);

 private:
  void WriteBanner();

  mutable std::mutex mutex_;
  LogFile file_;
  std::string path_;
  LogLevel level_ = LogLevel::INFO;
  bool console_output_ = false;
  bool initialised_ = false;
  Timestamp clock_;
  std::string line_;  // kept for its capacity
};

Logger::Impl::Impl(const std::string& path, LogLevel level, bool console_output,
                   bool skip_security_checks)
    : path_(path.empty() ? kDefaultPath : path),
      level_(level),
      console_output_(console_output) {
  if (!skip_security_checks) {
    const std::string fault = LogLocationFault(path_);
    if (!fault.empty()) {
      Complain(fault);
      return;
    }
  }
  if (!file_.Open(path_)) {
    Complain("[logger] Failed to open log file: " + path_);
    return;
  }
  initialised_ = true;
  WriteBanner();
}

void Logger::Impl::WriteBanner() {
  std::string banner = "\n[";
  banner.append(clock_.Now())
      .append("] [INFO   ] [logger] === Logger initialised  level=")
      .append(LevelName(level_))
      .append(" path=")
      .append(path_)
      .append(" ===\n");
  file_.Append(banner);
}

Logger::Impl::~Impl() {
  if (!file_.IsOpen()) return;
  std::array<char, 128> banner{};
  const int length = std::snprintf(
      banner.data(), banner.size(),
      "[%s] [INFO   ] [logger] === Logger shutdown ===\n", clock_.Now());
  file_.Append({banner.data(), static_cast<std::size_t>(length)});
}

void Logger::Impl::log_write(LogLevel level, const std::string& component,
                             const std::string& message) {
  const std::scoped_lock lock(mutex_);
  if (level < level_) return;
  line_.clear();
  line_.append("[")
      .append(clock_.Now())
      .append("] [")
      .append(LevelName(level))
      .append("]");
  if (!component.empty()) line_.append(" [").append(component).append("]");
  line_.append(" ").append(message).append("\n");

  const bool on_disk = initialised_ && file_.Append(line_);
  // A full disk must not swallow what happened.
  if (console_output_ || !on_disk) {
    const bool plain = level == LogLevel::DEBUG || level == LogLevel::INFO;
    std::FILE* console = plain ? stdout : stderr;
    const WriteSignalBlock no_signals;  // its reader may be gone
    std::fwrite(line_.data(), 1, line_.size(), console);
    std::fflush(console);
  }
}

Logger::Logger(const std::string& path, LogLevel level, bool console_output,
               bool skip_security_checks)
    : impl_(std::make_unique<Impl>(path, level, console_output,
                                   skip_security_checks)) {}

Logger::~Logger() = default;

void Logger::SetLogLevel(LogLevel level) noexcept { impl_->SetLevel(level); }
std::string Logger::GetLogPath() const { return impl_->Path(); }
bool Logger::IsInitialized() const noexcept { return impl_->IsInitialized(); }

void Logger::LogDebug(const std::string& component,
                      const std::string& message) {
  impl_->log_write(LogLevel::DEBUG, component, message);
}
void Logger::LogInfo(const std::string& component, const std::string& message) {
  impl_->log_write(LogLevel::INFO, component, message);
}
void Logger::LogWarning(const std::string& component,
                        const std::string& message) {
  impl_->log_write(LogLevel::WARNING, component, message);
}
void Logger::LogError(const std::string& component,
                      const std::string& message) {
  impl_->log_write(LogLevel::ERROR, component, message);
}

namespace {

// Owned, but not by a smart pointer: that would end the logger at exit(3),
// where other threads may still log, and in each forked child that exits.
Logger* global_logger = nullptr;
thread_local Logger* thread_logger = nullptr;

void ReplaceGlobalLogger(std::unique_ptr<Logger> logger) noexcept {
  const std::unique_ptr<Logger> ended(
      std::exchange(global_logger, logger.release()));
}

}  // namespace

bool InitLogger(const std::string& path, LogLevel level, bool console_output,
                bool skip_security_checks) {
  auto logger = std::make_unique<Logger>(path, level, console_output,
                                         skip_security_checks);
  const bool initialised = logger->IsInitialized();
  ReplaceGlobalLogger(std::move(logger));
  return initialised;
}

void ShutdownLogger() noexcept { ReplaceGlobalLogger(nullptr); }

void SetLogLevel(LogLevel level) noexcept {
  if (global_logger != nullptr) global_logger->SetLogLevel(level);
}

std::string GetLogPath() {
  return global_logger != nullptr ? global_logger->GetLogPath() : std::string();
}

void SetThreadLogger(Logger* logger) noexcept { thread_logger = logger; }

Logger* GetThreadLogger() noexcept {
  return thread_logger != nullptr ? thread_logger : global_logger;
}

void LogDebug(const std::string& component, const std::string& message) {
  if (Logger* logger = GetThreadLogger()) logger->LogDebug(component, message);
}
void LogInfo(const std::string& component, const std::string& message) {
  if (Logger* logger = GetThreadLogger()) logger->LogInfo(component, message);
}
void LogWarning(const std::string& component, const std::string& message) {
  if (Logger* logger = GetThreadLogger()) {
    logger->LogWarning(component, message);
  }
}
void LogError(const std::string& component, const std::string& message) {
  if (Logger* logger = GetThreadLogger()) logger->LogError(component, message);
}

}  // namespace quorvane
