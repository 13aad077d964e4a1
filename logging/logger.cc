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

// "2024-05-01 13:07:09.042". Uses no heap: the destructor of the logger writes
// the closing line, and must not run out of memory. Caches the text of a
// second, because the conversion to local time costs more than the rest of a
// line.
class Timestamp {
 public:
  const char* Now() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second_ || length_ == 0) FormatSecond(now.tv_sec);
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
  void FormatSecond(time_t second) noexcept {
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

bool HasFileSizeLimit() noexcept {
  rlimit limit{};
  return getrlimit(RLIMIT_FSIZE, &limit) != 0 ||
         limit.rlim_cur != RLIM_INFINITY;
}

// The clock tick, of a few milliseconds, at this moment. Needs no system call.
long long CurrentTick() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

// A cache of `HasFileSizeLimit`, which costs as much as writing a line. Only
// the first lines of each clock tick read the limit.
class FileSizeLimit {
 public:
  bool IsSet() noexcept {
    const long long tick = CurrentTick();
    lines_in_tick_ = tick == tick_ ? lines_in_tick_ + 1 : 1;
    tick_ = tick;
    if (lines_in_tick_ <= kCheckedLinesPerTick) is_set_ = HasFileSizeLimit();
    return is_set_;
  }

 private:
  static constexpr long kCheckedLinesPerTick = 8;
  long long tick_ = 0;
  long lines_in_tick_ = 0;
  bool is_set_ = false;
};

// The file that holds the log.
class LogFile {
 public:
  // Does not block on a FIFO without a reader: opening it fails.
  bool Open(const std::string& path);
  [[nodiscard]] bool IsOpen() const noexcept { return file_.IsOpen(); }

  // Appends whole lines. After a partly written line, starts a new line first.
  // False if the text could not be written.
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
  // Blocking signals takes several system calls, and writing a line takes one.
  // A regular file raises no signal unless the process has a size limit.
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

void PrintError(const std::string& text) {
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
    return is_initialized_;
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
  bool is_initialized_ = false;
  Timestamp clock_;
  std::string line_;  // reused for its capacity
};

Logger::Impl::Impl(const std::string& path, LogLevel level, bool console_output,
                   bool skip_security_checks)
    : path_(path.empty() ? kDefaultPath : path),
      level_(level),
      console_output_(console_output) {
  if (!skip_security_checks) {
    const std::string error = CheckLogLocation(path_);
    if (!error.empty()) {
      PrintError(error);
      return;
    }
  }
  if (!file_.Open(path_)) {
    PrintError("[logger] Failed to open log file: " + path_);
    return;
  }
  is_initialized_ = true;
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

  const bool is_on_disk = is_initialized_ && file_.Append(line_);
  // With a full disk, the line must not be lost.
  if (console_output_ || !is_on_disk) {
    const bool is_informative =
        level == LogLevel::DEBUG || level == LogLevel::INFO;
    std::FILE* console = is_informative ? stdout : stderr;
    const WriteSignalBlock no_signals;  // the console may be a closed pipe
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

// An owning pointer, but not a smart pointer: its destructor would end the
// logger at exit(3), while other threads may still log, and in each forked
// child process that exits.
Logger* global_logger = nullptr;
thread_local Logger* thread_logger = nullptr;

void ReplaceGlobalLogger(std::unique_ptr<Logger> logger) noexcept {
  const std::unique_ptr<Logger> previous(
      std::exchange(global_logger, logger.release()));
}

}  // namespace

bool InitLogger(const std::string& path, LogLevel level, bool console_output,
                bool skip_security_checks) {
  auto logger = std::make_unique<Logger>(path, level, console_output,
                                         skip_security_checks);
  const bool is_initialized = logger->IsInitialized();
  ReplaceGlobalLogger(std::move(logger));
  return is_initialized;
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
