// SPDX-License-Identifier: Apache-2.0
/// @file
/// The log of a run: one line per event, written to disk at once.
#ifndef QUORVANE_LOGGING_H_
#define QUORVANE_LOGGING_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "quorvane/export.h"

// Build systems and other headers often define these names as macros. This
// header restores the macros at its end. A program that defines one of them can
// use `static_cast<quorvane::LogLevel>(0)` instead of the enumerator.
#pragma push_macro("DEBUG")
#pragma push_macro("INFO")
#pragma push_macro("WARNING")
#pragma push_macro("ERROR")
#undef DEBUG
#undef INFO
#undef WARNING
#undef ERROR

namespace quorvane {

/// The level of a line. A logger drops lines below its minimum level.
enum class LogLevel : std::int32_t {
  DEBUG = 0,    ///< Requests, and the path of the rules file.
  INFO = 1,     ///< The steps of the run.
  WARNING = 2,  ///< Something failed, and the run continues.
  ERROR = 3,    ///< Something failed, without another attempt.
};

/// Writes lines to a file. Also writes them to the console: on request, if
/// there is no file, and if a line cannot be written to disk. The format of a
/// line is
///
///     [2024-05-01 13:07:09.042] [WARNING] [update] Upload returned 503, ...
///
/// in local time. A message is not changed: line breaks remain, and nothing is
/// masked or escaped. Several threads can call all members at once; lines never
/// interleave.
class QUORVANE_EXPORT Logger {
 public:
  /// Opens the log file for appending; a new one gets mode 0640.
  ///
  /// Does not throw if the file cannot be used: the reason goes to standard
  /// error, and every line to the console.
  ///
  /// @param path                  The file; empty: the default,
  ///                              /var/log/zelk/pvo/brindle_log.txt.
  /// @param level                 The minimum level.
  /// @param console_output        Also write to the console: DEBUG and INFO to
  ///                              standard output, the rest to standard error.
  /// @param skip_security_checks  False: a missing directory of the file is
  ///                              created (mode 0750). The directory must
  ///                              belong to root, and must not be a symbolic
  ///                              link or writable by all users. The file must
  ///                              not be a symbolic link.
  Logger(const std::string& path, LogLevel level, bool console_output,
         bool skip_security_checks);
  ~Logger();  ///< Writes a closing line.
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  void SetLogLevel(LogLevel level) noexcept;  ///< Changes the minimum level.
  std::string GetLogPath() const;  ///< The path, also if it is the default.
  bool IsInitialized() const noexcept;  ///< Whether the file is open.

  /// Write one line, without brackets if `component` is empty.
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

/// Starts the process-wide logger, or replaces it: the new one opens its file
/// before the old one writes its closing line. The arguments are those of
/// `Logger`. Do not call it while another thread logs or calls
/// `ShutdownLogger`.
/// @return Whether the file is open; false: lines go to the console.
QUORVANE_EXPORT bool InitLogger(const std::string& path = std::string(),
                                LogLevel level = LogLevel::INFO,
                                bool console_output = false,
                                bool skip_security_checks = false);

/// Ends the process-wide logger, if there is one, with its closing line. Later
/// lines are dropped. A process that exits without this call writes no closing
/// line, and its threads can log until they end. Call it before you unload the
/// library with dlclose(3). Do not call it while another thread logs or calls
/// `InitLogger`.
QUORVANE_EXPORT void ShutdownLogger() noexcept;

/// Changes the minimum level of the process-wide logger, if there is one.
QUORVANE_EXPORT void SetLogLevel(LogLevel level) noexcept;

/// The path of the process-wide logger; empty without one.
QUORVANE_EXPORT std::string GetLogPath();

/// Makes the calling thread log to `logger` instead of the process-wide logger;
/// null restores that. The caller owns `logger`, which must exist while it is
/// set.
QUORVANE_EXPORT void SetThreadLogger(Logger* logger) noexcept;

/// The logger of the calling thread, else the process-wide one, else null. The
/// caller does not own it.
QUORVANE_EXPORT Logger* GetThreadLogger() noexcept;

/// Write one line to `GetThreadLogger()`, if that is not null.
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

/// Masks the start of every address in a text: 'X' replaces the first two
/// octets of an IPv4 address ("https://XX.X.0.5/"), '_' the first four groups
/// of an IPv6 address. The length does not change. Text that looks like an
/// address but is not one (2.10.0.1234) remains, and is reported on standard
/// error. The time is linear in the length of the text.
QUORVANE_EXPORT std::string MaskIP(std::string_view text);

}  // namespace quorvane

#pragma pop_macro("ERROR")
#pragma pop_macro("WARNING")
#pragma pop_macro("INFO")
#pragma pop_macro("DEBUG")

#endif  // QUORVANE_LOGGING_H_
