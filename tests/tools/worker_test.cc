// SPDX-License-Identifier: Apache-2.0
// Messages between the worker and the tool, and what the worker reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "quorvane/logging.h"
#include "tests/tools/log_text.h"
#include "tools/quorvane/run/records.h"
#include "tools/quorvane/worker/protocol.h"
#include "tools/quorvane/worker/read_resources.h"
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

TEST(Protocol, CarriesAReadCallAndItsResultUnchanged) {
  const std::string bytes("\xff\0\n\x1b", 4);
  const ReadCall call{
      .request = {.ip = "192.0.2.7", .username = "a", .password = bytes},
      .uris = {"/redfish/v1/", bytes},
      .limit_seconds = 7.5};
  const auto read =
      std::get<ReadCall>(DecodeRequest(Encode(WorkerRequest{call})).call);
  EXPECT_EQ(read.request.password, bytes);
  EXPECT_EQ(read.uris, call.uris);
  EXPECT_EQ(read.limit_seconds, 7.5);
  const WorkerResponse response =
      ReadResult{{{.uri = "/a", .status = 200, .body = bytes},
                  {.uri = "/b", .reason = "no response"}}};
  const auto result = std::get<ReadResult>(DecodeResponse(Encode(response)));
  ASSERT_EQ(result.resources.size(), 2U);
  EXPECT_EQ(result.resources[0].status, 200);
  EXPECT_EQ(result.resources[0].body, bytes);
  EXPECT_EQ(result.resources[1].reason, "no response");
}

// A response of `body`, or none if it is "-".
ReadResult ReadFrom(const std::vector<std::string>& uris,
                    std::vector<std::string>& requested,
                    double limit_seconds = 300) {
  return ReadResources(
      {.request = {}, .uris = uris, .limit_seconds = limit_seconds},
      [&](const std::string& uri, long timeout_ms) {
        EXPECT_GT(timeout_ms, 0);
        EXPECT_LE(timeout_ms, kReadTimeoutMs);
        requested.push_back(uri);
        if (uri.rfind("/down", 0) == 0) {
          throw std::runtime_error("GET failed: lost");
        }
        Response response;
        response.status_code = uri.rfind("/401", 0) == 0 ? 401 : 200;
        response.body = uri == "/large"
                            ? std::string(kMaxReadBodyBytes + 1, 'x')
                        : uri == "/medium" ? std::string(kMaxReadBodyBytes, 'x')
                                           : "{}";
        return response;
      });
}

TEST(Reading, RequestsOnlyPathsOnTheBmc) {
  const std::vector<std::string> foreign = {"https://192.0.2.9/redfish/v1",
                                            "",
                                            "redfish/v1",
                                            "@192.0.2.9/",
                                            ":8443/",
                                            ".example.com/",
                                            "/a b",
                                            "/a\nb",
                                            "/a\x7f"};
  std::vector<std::string> requested;
  const ReadResult result = ReadFrom(foreign, requested);
  EXPECT_THAT(requested, testing::IsEmpty());
  ASSERT_EQ(result.resources.size(), foreign.size());
  for (const ReadResource& resource : result.resources) {
    EXPECT_EQ(resource.status, 0);
    EXPECT_THAT(resource.reason, testing::HasSubstr("not a path"));
  }
}

TEST(Reading, LeavesOutALongBodyAndWhatExceedsTheResult) {
  std::vector<std::string> requested;
  const ReadResult result =
      ReadFrom({"/large", "/medium", "/medium", "/medium", "/b"}, requested);
  EXPECT_EQ(requested.size(), 5U);
  EXPECT_EQ(result.resources[0].status, 200);
  EXPECT_EQ(result.resources[0].reason, "the response is too long");
  EXPECT_EQ(result.resources[0].body, "");
  EXPECT_EQ(result.resources[3].body.size(), kMaxReadBodyBytes);
  EXPECT_EQ(result.resources[4].reason, "the response is too long");
}

TEST(Reading, StopsWhenTheBmcRefusesTheLoginAndNotOnlyAResource) {
  const std::string root = "/redfish/v1/";
  std::vector<std::string> requested;
  ReadResult result = ReadFrom({root, "/401", "/a"}, requested);
  EXPECT_THAT(requested, testing::ElementsAre(root, "/401"));
  EXPECT_EQ(result.resources[2].reason,
            "not requested: the BMC refused the login");
  requested.clear();
  result = ReadFrom({"/a", "/401", "/b", "/401b", "/c"}, requested);
  EXPECT_THAT(requested, testing::ElementsAre("/a", "/401", "/b", "/401b"));
  EXPECT_EQ(result.resources[1].status, 401);
}

TEST(Reading, StopsWhenTheBmcStopsRespondingOrTheTimeIsUp) {
  std::vector<std::string> requested;
  ReadResult result = ReadFrom(
      {"/down1", "/down2", "/a", "/down3", "/down4", "/down5", "/b", "/c"},
      requested);
  EXPECT_THAT(requested, testing::ElementsAre("/down1", "/down2", "/a",
                                              "/down3", "/down4", "/down5"));
  EXPECT_EQ(result.resources[0].reason, "GET failed: lost");
  EXPECT_EQ(result.resources[2].status, 200);
  EXPECT_EQ(result.resources[7].reason,
            "not requested: the BMC stopped responding");
  requested.clear();
  result = ReadFrom({"/a"}, requested, 0);
  EXPECT_THAT(requested, testing::IsEmpty());
  EXPECT_EQ(result.resources[0].reason,
            "not requested: the time limit is reached");
}

}  // namespace
}  // namespace quorvane::tool
