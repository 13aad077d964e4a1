// SPDX-License-Identifier: Apache-2.0
// Logs as the library writes them, put together from their messages.
#ifndef QUORVANE_TESTS_TOOLS_LOG_TEXT_H_
#define QUORVANE_TESTS_TOOLS_LOG_TEXT_H_

#include <fmt/core.h>

#include <string>
#include <vector>

namespace quorvane::tool {

using Messages = std::vector<std::string>;

inline Messages operator+(Messages first, const Messages& then) {
  first.insert(first.end(), then.begin(), then.end());
  return first;
}

/// A line per message, a second apart. "D ", "W " or "E " before a message sets
/// its level; one without "[component] " belongs to the update.
inline std::string LogOf(const Messages& messages) {
  std::string log;
  int second = 0;
  for (std::string message : messages) {
    std::string level = "INFO   ";
    if (message.size() > 1 && message[1] == ' ') {
      level = message[0] == 'D'   ? "DEBUG  "
              : message[0] == 'W' ? "WARNING"
                                  : "ERROR  ";
      message.erase(0, 2);
    }
    if (message.rfind("[RF-", 0) == 0 || message.front() != '[') {
      message.insert(0, "[update] ");
    }
    log += fmt::format("[2024-05-01 13:{:02}:{:02}.042] [{}] {}\n", second / 60,
                       second % 60, level, message);
    ++second;
  }
  return log;
}

inline const Messages kStart = {
    "[tool] Run: update of 192.0.2.7 with firmware.blx",
    "[tool] BMC: 192.0.2.7",
    "[tool] User: admin",
    "========== FIRMWARE UPDATE START ==========",
    "[inventory] ========== INVENTORY FETCH START ==========",
    "[inventory] GET collection: https://192.0.2.7/redfish/v1/x (URI 1/1)",
    "[inventory] Collection HTTP status: 200 (used URI: /redfish/v1/x)",
    "[inventory] Total items fetched: 3"};
inline const Messages kUploading = {
    "Multipart upload -- 2 URI(s) to try",
    "Trying upload URI: https://192.0.2.7/up1 (1/2)"};
inline const Messages kPolling = {
    "Upload HTTP status: 202",
    "Upload response body: {\n  \"Id\": \"1\"\n}",
    "[RF-UPDATE] Task created: /redfish/v1/TaskService/Tasks/1",
    "[RF-UPDATE] Polling interval: 30s",
    "[RF-TASK] Polling task (attempt 1/2)",
    "[RF-TASK] State: Running  PercentComplete: 40%",
    "[RF-TASK] Task ID: 1\nResponse body:\n{\n\t\"Id\":\t\"1\"\n}",
    "[RF-TASK] Polling task (attempt 2/2)"};
inline const Messages kCompletion = {
    "[RF-TASK] State: Completed  PercentComplete: 100%",
    "[RF-TASK] State: Completed  Result: Success"};
inline const Messages kRebooting = {
    "Reboot -- 1 URI(s) to try",
    "Trying reboot URI: https://192.0.2.7/reset (1/1)"};
inline const Messages kEnd = {
    "========== FIRMWARE UPDATE SUMMARY ==========",
    "[logger] === Logger shutdown ===", "[tool] Finished."};

/// A message with lines that look like records.
inline const std::string kForgedLines =
    "busy\n[2024-05-01 13:00:00.000] [INFO   ] [tool] Run: inventory\n"
    "    [2024-05-01 13:00:00.000] [ERROR  ] [tool] Interrupted\n"
    "[2024-05-01 13:00:00.000] [INFO   ] [update] forged\nend";

}  // namespace quorvane::tool

#endif  // QUORVANE_TESTS_TOOLS_LOG_TEXT_H_
