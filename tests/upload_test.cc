// SPDX-License-Identifier: Apache-2.0
// Multipart and binary upload: order of the URIs, attempts, waits, the meaning
// of each status, and the parameters of a multipart upload.
#include <string>
#include <vector>

#include "tests/support/local_update.h"

namespace quorvane::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class UploadTest : public LocalUpdateTest {};

TEST_F(UploadTest, SkipsMissingEndpointWithoutWait) {
  for (const int status : {404, 405}) {
    bmc.On("POST", kFirst).Respond(status);
    bmc.On("POST", kSecond).Respond(202, TaskLink(kTask));
    EXPECT_TRUE(Update().accepted);
    EXPECT_THAT(Log("update"),
                AllOf(Contains("Upload returned " + std::to_string(status) +
                               " - endpoint not available, trying next URI"),
                      Not(Contains(HasSubstr("exhausted")))));
  }
  EXPECT_THAT(Waits(), ElementsAre(30, 30));  // the polls
}

TEST_F(UploadTest, FallsBackToBinaryUpload) {
  bmc.On("POST", kFirst).Respond(503);
  bmc.On("POST", kSecond).Respond(405);
  bmc.On("PUT", kFirst).Respond(405);
  bmc.On("PUT", kSecond).Respond(202, "", {{"Location", kTask}});
  const UpdateResponse result = Update({"/target"});
  EXPECT_TRUE(result.accepted) << LogText();
  EXPECT_EQ(result.task_uri, kTask);
  EXPECT_EQ(result.task_id, "7");
  EXPECT_THAT(
      Log("update"),
      AllOf(Contains("Multipart upload failed, falling back to binary POST "
                     "upload"),
            Contains("Binary upload fallback -- 2 URI(s) to try"),
            Contains("Binary upload returned 405 - endpoint not available, "
                     "trying next URI"),
            Contains("Binary upload HTTP status: 202"),
            Contains("Binary upload response body: "),
            Contains(std::string("Task URI from Location header: ") + kTask)));
  EXPECT_EQ(bmc.Requests()[5].body, "firmware");
}

TEST_F(UploadTest, SucceedsWithoutTask) {
  bmc.On("POST", kFirst).Respond(202);
  EXPECT_EQ(Update().task_uri, "");
  EXPECT_THAT(Log("update"),
              AllOf(Contains("No task URI to poll, skipping task monitoring"),
                    Contains("Message         : Reboot successful")));
}

struct RejectionCase {
  int multipart_status, binary_status;
  std::string body = {};
  const char* message;  // of the binary upload
  std::vector<const char*> log_lines = {};
  bool has_retries = true;
};

// Both uploads get the same status at every URI and attempt.
TEST_F(UploadTest, ReportsRejections) {
  const std::vector<RejectionCase> cases = {
      {.multipart_status = 404,
       .binary_status = 404,
       .message = "Binary upload failed: HTTP method not supported - no "
                  "more URIs to try",
       .has_retries = false},
      {.multipart_status = 400,
       .binary_status = 400,
       .body = Error("Bad image"),
       .message = "Bad image",
       .log_lines = {"Upload returned 400, retrying",
                     "Binary upload returned 400, retrying",
                     "Upload URI exhausted retries: /redfish/v1/first",
                     "Trying next upload URI",
                     "Binary upload URI exhausted retries: /redfish/v1/second",
                     "Trying next binary upload URI"}},
      {.multipart_status = 413,
       .binary_status = 413,
       .body = Error("unused"),
       .message = "Payload too large",
       .log_lines = {"Upload returned 413 (too large), retrying",
                     "Binary upload returned 413 (too large), retrying"}},
      {.multipart_status = 503,
       .binary_status = 503,
       .body = "not JSON",
       .message = "Binary upload failed after trying all 2 URI(s)",
       .log_lines = {"Upload returned 503, retrying with backoff",
                     "Binary upload returned 503, retrying with backoff"}},
      // Success statuses without a rule.
      {.multipart_status = 200,
       .binary_status = 201,
       .body = R"({"Message": "Thanks"})",
       .message = "Thanks",
       .log_lines = {"Upload returned 200, retrying with backoff",
                     "Binary upload returned 201, retrying with backoff"}}};
  for (const RejectionCase& row : cases) {
    SCOPED_TRACE(row.multipart_status);
    bmc.ClearRequests();
    for (const char* uri : {kFirst, kSecond}) {
      bmc.On("POST", uri).Respond(row.multipart_status, row.body);
      bmc.On("PUT", uri).Respond(row.binary_status, row.body);
    }
    const std::size_t waits_before = Waits().size();
    const UpdateResponse result = Update();
    EXPECT_FALSE(result.accepted);
    EXPECT_EQ(result.http_status, row.binary_status);
    EXPECT_EQ(result.message, row.message);
    EXPECT_FALSE(result.reboot_performed);
    // Three attempts at each URI, with two waits, and none between URIs.
    EXPECT_EQ(RequestLines().size(), row.has_retries ? 12 : 4);
    EXPECT_EQ(Waits().size() - waits_before, row.has_retries ? 8 : 0);
    for (const char* line : row.log_lines) {
      EXPECT_THAT(Log("update"), Contains(line));
    }
  }
  EXPECT_THAT(
      Log("update"),
      AllOf(Contains("Local file upload failed. system does not support local "
                     "file upload via Redfish."),
            Contains("Please use a share repository to perform the update "
                     "instead"),
            Not(Contains(HasSubstr("SUMMARY")))));
}

// A missing response is status 0 for the multipart rules, and ends the binary
// upload.
TEST_F(UploadTest, HandlesMissingResponses) {
  for (const char* uri : {kFirst, kSecond}) {
    bmc.On("POST", uri).Respond({.fault = simulator::Fault::kDrop});
    bmc.On("PUT", uri).Respond({.fault = simulator::Fault::kReset});
  }
  const UpdateResponse result = Update();
  EXPECT_EQ(result.http_status, 0);
  EXPECT_THAT(result.message,
              StartsWith("Binary upload failed: Binary file upload failed: "));
  EXPECT_EQ(RequestLines().size(), 7);  // six multipart uploads, one binary
  EXPECT_THAT(Log("update"),
              AllOf(Contains("Upload HTTP status: 0"),
                    Contains("Upload returned 0, retrying with backoff"),
                    Not(Contains("Binary upload HTTP status: 0"))));
}

TEST_F(UploadTest, DoublesWaitsWithEachAttempt) {
  PatchRules(R"({"retry_config": {"max_retries": 3,
                                  "backoff_strategy": "exponential"}})");
  SetResponses("POST", kFirst,
               {{.status = 503},
                {.status = 503},
                {.status = 503},
                {.status = 202, .body = TaskLink(kTask)}});
  EXPECT_TRUE(Update().accepted);
  EXPECT_THAT(Waits(), ElementsAre(5, 10, 20, 30));
  EXPECT_THAT(Log("update"), AllOf(Contains("Retrying in 5s (attempt 1/3)"),
                                   Contains("Retrying in 20s (attempt 3/3)")));
}

TEST_F(UploadTest, SendsParametersWithTargetsOrToMultipartUploadEndpoint) {
  const std::string endpoint = "/redfish/v1/MultipartUpload";
  PatchRules(R"({"firmware_update": {"multipart_update": {"upload_uri":
                ["/redfish/v1/first", "/redfish/v1/MultipartUpload"]}}})");
  bmc.On("POST", kFirst).Respond(404);
  bmc.On("POST", endpoint).Respond(202, TaskLink(kTask));
  bmc.On("POST", kActivate).Respond(200);
  Update();
  Update({"/a", "/b"});
  std::vector<std::string> parameters;
  for (const auto& request : bmc.Requests()) {
    for (const auto& part : request.parts) {
      if (part.name != "UpdateParameters") continue;
      EXPECT_EQ(part.content_type, "application/json");
      parameters.push_back(request.path + " " + part.content);
    }
  }
  EXPECT_THAT(
      parameters,
      ElementsAre(
          endpoint +
              R"( {"Targets":[],"@Redfish.OperationApplyTime":"OnReset"})",
          std::string(kFirst) + R"( {"Targets":["/a","/b"]})",
          endpoint +
              R"( {"Targets":["/a","/b"],"@Redfish.OperationApplyTime":"OnReset"})"));
  EXPECT_THAT(
      Log("update"),
      AllOf(Contains("Including UpdateParameters for Korvo MultipartUpload"),
            Contains("Including UpdateParameters with targets for upload "
                     "endpoint")));
}

}  // namespace
}  // namespace quorvane::test
