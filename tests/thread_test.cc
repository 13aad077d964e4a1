// SPDX-License-Identifier: Apache-2.0
// Use of the library on several threads; also run with ThreadSanitizer.
#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using testing::ElementsAre;

constexpr int kThreads = 4;

// Runs `work(0)`, `work(1)` ... at the same time.
template <typename Work>
void RunOnThreads(const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

std::vector<std::string> MessagesOf(const std::string& log) {
  std::vector<std::string> messages;
  std::istringstream text(log);
  for (std::string line; std::getline(text, line);) {
    if (line.empty() || line.find("[logger]") != std::string::npos) continue;
    messages.push_back(line.substr(line.find("[t] ") + 4));
  }
  return messages;
}

// Every line is complete, none is lost, and those of a thread are in order.
TEST(Threads, ShareOneLogger) {
  constexpr int kLines = 300;
  const TempDirectory directory;
  const std::string path = directory.path() + "/log";
  Logger logger(path, LogLevel::DEBUG, false, true);
  RunOnThreads([&](int thread) {
    SetThreadLogger(&logger);
    for (int line = 0; line < kLines; ++line) {
      // Changes the level during logging, but never drops errors.
      logger.SetLogLevel(line % 2 == 0 ? LogLevel::ERROR : LogLevel::DEBUG);
      LogError("t", std::to_string(thread) + " " + std::to_string(line) + " " +
                        std::string(static_cast<std::size_t>(line), 'x'));
      LogDebug("t", "-");
      EXPECT_EQ(logger.GetLogPath(), path);
    }
  });
  std::vector<int> next(kThreads, 0);
  for (const std::string& message : MessagesOf(ReadAll(path))) {
    if (message == "-") continue;
    std::istringstream words(message);
    int thread = -1;
    int line = -1;
    std::string rest;
    words >> thread >> line >> rest;
    ASSERT_TRUE(thread >= 0 && thread < kThreads) << message;
    EXPECT_EQ(line, next[static_cast<std::size_t>(thread)]++) << message;
    EXPECT_EQ(rest, std::string(static_cast<std::size_t>(line), 'x'));
  }
  EXPECT_THAT(next, testing::Each(kLines));
}

// Each thread has its own logger; the process-wide logger gets the other lines.
TEST(Threads, UseSeparateLoggers) {
  const TempDirectory directory;
  const auto path = [&](int thread) {
    return directory.path() + "/" + std::to_string(thread);
  };
  InitLogger(directory.path() + "/global", LogLevel::DEBUG, false, true);
  RunOnThreads([&](int thread) {
    LogInfo("t", "before");
    {
      Logger own(path(thread), LogLevel::INFO, false, true);
      SetThreadLogger(&own);
      EXPECT_EQ(GetThreadLogger(), &own);
      SetLogLevel(LogLevel::DEBUG);  // of the process-wide one
      LogInfo("t", std::to_string(thread));
      LogDebug("t", "below this logger's level");
      SetThreadLogger(nullptr);
    }
    LogInfo("t", "after");
  });
  ShutdownLogger();
  for (int thread = 0; thread < kThreads; ++thread) {
    EXPECT_THAT(MessagesOf(ReadAll(path(thread))),
                ElementsAre(std::to_string(thread)));
  }
  const auto global = MessagesOf(ReadAll(directory.path() + "/global"));
  EXPECT_EQ(std::count(global.begin(), global.end(), "before"), kThreads);
  EXPECT_EQ(std::count(global.begin(), global.end(), "after"), kThreads);
  EXPECT_EQ(global.size(), 2 * kThreads);
}

// Each thread gets the response to its own request, and a failure on one thread
// does not affect the others.
TEST(Threads, ShareOneClient) {
  const TempDirectory directory;
  const std::string image = directory.Write("image", std::string(100'000, 'i'));
  Logger logger(directory.path() + "/log", LogLevel::DEBUG, false, true);
  simulator::SimulatedBmc bmc;
  for (int i = 0; i < kThreads; ++i) {
    const std::string path = "/" + std::to_string(i);
    bmc.On("GET", path).Respond(200, "got " + path);
    bmc.On("POST", path).Respond(400, "posted " + path);
    bmc.On("PUT", path).Respond(202, "", {{"Location", "put " + path}});
  }
  bmc.On("GET", "/dropped").Respond({.fault = simulator::Fault::kDrop});
  const HttpClient client;
  RunOnThreads([&](int thread) {
    SetThreadLogger(&logger);
    const std::string path = "/" + std::to_string(thread);
    const std::string url = "https://" + bmc.Address();
    for (int turn = 0; turn < 10; ++turn) {
      EXPECT_EQ(client.get(url + path, {}, 0, "u", "p", "basic").body,
                "got " + path);
      EXPECT_EQ(client
                    .post_multipart(url + path, image, "UpdateFile", {}, 0, "",
                                    "", "", "{}")
                    .body,
                "posted " + path);
      EXPECT_EQ(client.post_binary_file(url + path, image, {}, 0, "", "", "")
                    .location,
                "put " + path);
      EXPECT_THROW(
          static_cast<void>(client.get(url + "/dropped", {}, 0, "", "", "")),
          std::runtime_error);
    }
  });
  for (const auto& request : bmc.Requests()) {
    EXPECT_TRUE(request.method != "PUT" || request.body_size == 100'000);
  }
}

// Four servers at once, as documented at `PerformUpdate`.
TEST(Threads, UpdateSeveralServersAtOnce) {
  const TempDirectory directory;
  static_cast<void>(directory.Write("brindle.config.json", RulesJson(R"({
    "firmware_update": {
      "multipart_update": {
        "upload_uri": "/redfish/v1/UpdateService/update-multipart",
        "upload_rules": {"202": "track_task"}},
      "task_monitoring": {
        "task_states": {"Completed": "proceed_to_activation"}},
      "reboot": {"reboot_rules": {"204": "success"}}}})")));
  OverrideLibraryPath(directory.path() + "/libQuorvaneLib.so.1");
  const std::string image = directory.Write("image", std::string(100'000, 'i'));
  std::vector<simulator::SimulatedBmc> bmcs(kThreads);
  const HttpClient keeps_libcurl_initialized;
  RunOnThreads([&](int thread) {
    const RecordedWaits waits;
    Logger logger(directory.path() + "/" + std::to_string(thread),
                  LogLevel::INFO, false, true);
    SetThreadLogger(&logger);
    const auto& bmc = bmcs[static_cast<std::size_t>(thread)];
    UpdateRequest request;
    request.bmc_ip = bmc.Address();
    request.username = "admin";
    request.password = "password";
    request.local_file = image;
    const UpdateResponse result = PerformUpdate(request);
    EXPECT_EQ(result.task_state, "Completed");
    EXPECT_TRUE(result.reboot_performed);
    EXPECT_EQ(bmc.StoredImageSize(), 100'000);
    SetThreadLogger(nullptr);
  });
  OverrideLibraryPath("");
}

}  // namespace
}  // namespace quorvane::test
