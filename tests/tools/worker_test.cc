// SPDX-License-Identifier: Apache-2.0
// Log records on their way from the worker to the tool.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "quorvane/logging.h"
#include "tests/tools/log_text.h"
#include "tools/quorvane/run/records.h"
#include "tools/quorvane/worker/record_stream.h"

namespace quorvane::tool {
namespace {

// The frames that a child process sends while the library logs.
std::string FramesOf(const std::vector<std::string>& messages) {
  std::FILE* const file = std::tmpfile();
  const pid_t child = fork();
  if (child == 0) {
    SendConsoleAsFrames(fileno(file));
    Logger logger("/dev/null", LogLevel::DEBUG, true, true);
    for (const std::string& message : messages) {
      static_cast<void>(MaskIP("1.2.3.4444 " + message));
      logger.LogError("update", message);
      logger.LogDebug("http", message);
    }
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  std::rewind(file);
  std::string frames;
  for (int c = 0; (c = std::fgetc(file)) != EOF;) {
    frames += static_cast<char>(c);
  }
  std::fclose(file);
  return frames;
}

TEST(Frames, ContainOneRecordEachWhateverTheReadSize) {
  const std::string huge(kMaxRecordBytes + 5, 'x');
  const std::string frames = FramesOf({kForgedLines, huge});
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{7}, frames.size()}) {
    std::vector<std::string> records;
    FrameReader reader([&](std::string_view frame) {
      const auto record = RecordFrom(frame);
      records.push_back(record ? record->component + "|" + record->message
                               : "no record");
    });
    for (std::size_t at = 0; at < frames.size(); at += piece) {
      reader.Feed(std::string_view(frames).substr(at, piece));
    }
    ASSERT_EQ(records.size(), 4U) << piece;
    EXPECT_EQ(records[0], "update|" + kForgedLines);
    EXPECT_EQ(records[1], "http|" + kForgedLines);
    EXPECT_THAT(records[2], testing::EndsWith("xxx... (51 bytes left out)"));
  }
  EXPECT_THROW(FrameReader([](auto) {}).Feed("\xff\xff\xff\x7f...."),
               std::runtime_error);
}

}  // namespace
}  // namespace quorvane::tool
