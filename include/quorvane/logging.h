// SPDX-License-Identifier: Apache-2.0
/// @file
/// The log of a run: one line per event, on disk as soon as it is written.
#ifndef QUORVANE_LOGGING_H_
#define QUORVANE_LOGGING_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "quorvane/export.h"

// Names that build systems and other headers like to define as macros. They
// are macros again after this header. A program that defines one of them can
// write `static_cast<quorvane::LogLevel>(0)` instead of the enumerator.
#pragma push_macro("DEBUG")
#pragma push_macro("INFO")
#pragma push_macro("WARNING")
#pragma push_macro("ERROR")
#undef DEBUG
#undef INFO
#undef WARNING
#undef ERROR

namespace quorvane {

/// How much a line matters; a logger drops what lies below its minimum.
enum class LogLevel : std::int32_t {
  DEBUG = 0,    ///< Requests and where the rules file was found.
  INFO = 1,     ///< What the run does, step by step.
  WARNING = 2,  ///< Something failed and the run goes on another way.
  ERROR = 3,    ///< Something failed for good.
};

/// Writes lines to a file, and to the console on request, when there is no file
/// and when the disk does not take a line. A line reads
///
///     [2024-05-01 13:07:09.042] [WARNING] [update] Upload returned 503, ...
///
/// in local time. A message is written as it is: line breaks in it are kept and
/// nothing is masked or escaped. All members may be called from several threads
/// at once; lines never interleave.
class QUORVANE_EXPORT Logger {
 public:
  /// Opens the log file for appending; a new one gets mode 0640.
  ///
  /// Never throws for a path that cannot be used: the reason goes to standard
  /// error and every line to the console.
  ///
  /// @param path                  The file; empty: the default,
  ///                              /var/log/zelk/pvo/brindle_log.txt.
  /// @param level                 The minimum level.
  /// @param console_output        Also write to the console: DEBUG and INFO to
  ///                              standard output, the rest to standard error.
  /// @param skip_security_checks  False: the file's folder is made if it is
  ///                              missing (mode 0750), and must be a real
  ///                              folder of root that not everybody may write
  ///                              to; the file must not be a symbolic link.
  Logger(const std::string& path, LogLevel level, bool console_output,
         bool skip_security_checks);
  ~Logger();  ///< Writes a closing line.
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  void SetLogLevel(LogLevel level) noexcept;  ///< Changes the minimum level.
  std::string GetLogPath() const;       ///< The path in use, default resolved.
  bool IsInitialized() const noexcept;  ///< Is the file open?

  /// Write one line. An empty `component` leaves its brackets out.
  /// @{
  void LogDebug(const std::string& component, const std::string& message);
  void LogInfo(const std::string& component, const std::string& message);
  void LogWarning(const std::string& component, const std::string& message);
  void LogError(const std::string& component, const std::string& message);
  /// @}

 private:
  class QUORVANE_HIDDEN Impl;
  std::unique_ptr<Impl> impl_;
};

/// Starts the process-wide logger, or replaces it: the new one is opened
/// before the old one writes its closing line. Arguments as of `Logger`.
/// Must not race with logging or with `ShutdownLogger`.
/// @return Whether the file is open; false: lines go to the console instead.
QUORVANE_EXPORT bool InitLogger(const std::string& path = std::string(),
                                LogLevel level = LogLevel::INFO,
                                bool console_output = false,
                                bool skip_security_checks = false);

/// Ends the process-wide logger, if there is one, with its closing line; later
/// lines are dropped. The end of the process does not do this: a process that
/// exits without this call leaves no closing line, and its threads may log
/// until they end. Call it before unloading the library with dlclose(3). Must
/// not race with logging or with `InitLogger`.
QUORVANE_EXPORT void ShutdownLogger() noexcept;

/// Changes the minimum level of the process-wide logger, if there is one.
QUORVANE_EXPORT void SetLogLevel(LogLevel level) noexcept;

/// The path of the process-wide logger; empty without one.
QUORVANE_EXPORT std::string GetLogPath();

/// Makes the calling thread log to `logger` instead of the process-wide one;
/// null ends that. The caller owns it and keeps it alive while it is set.
QUORVANE_EXPORT void SetThreadLogger(Logger* logger) noexcept;

/// The calling thread's logger, else the process-wide one, else null. Owned by
/// whoever made it.
QUORVANE_EXPORT Logger* GetThreadLogger() noexcept;

/// Write one line to `GetThreadLogger()`; dropped when that is null.
/// @{
QUORVANE_EXPORT void LogDebug(const std::string& component,
                              const std::string& message);
QUORVANE_EXPORT void LogInfo(const std::string& component,
                             const std::string& message);
QUORVANE_EXPORT void LogWarning(const std::string& component,
                                const std::string& message);
QUORVANE_EXPORT void LogError(const std::string& component,
                              const std::string& message);
/// @}

/// Hides the leading part of every address in a text: the first two octets of
/// an IPv4 address become 'X' ("https://XX.X.0.5/"), the first four groups of
/// an IPv6 address '_'. The length never changes. What looks like an address
/// and is none (2.10.0.1234) stays, and is told on standard error. Takes time
/// in proportion to the length of the text.
QUORVANE_EXPORT std::string MaskIP(std::string_view text);

}  // namespace quorvane

#pragma pop_macro("ERROR")
#pragma pop_macro("WARNING")
#pragma pop_macro("INFO")
#pragma pop_macro("DEBUG")

#endif  // QUORVANE_LOGGING_H_
