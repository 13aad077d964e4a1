// SPDX-License-Identifier: Apache-2.0
// What the simulated BMC promises to those who test against it. It is asked
// with libcurl, which tells broken connections apart.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "simulator/run_simulator.h"
#include "simulator/scenario.h"
#include "simulator/simulated_bmc.h"

namespace quorvane::simulator {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string kUpload = "/redfish/v1/UpdateService/update";
const std::string kForm = "/redfish/v1/UpdateService/update-multipart";
const std::string kAction =
    "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate";
const std::string kReset =
    "/redfish/v1/Systems/system/Actions/ComputerSystem.Reset";
const std::string kInventory = "/redfish/v1/UpdateService/FirmwareInventory";
const std::string kTask = "/redfish/v1/TaskService/Tasks/1";
const std::string kMonitor = "/redfish/v1/TaskService/TaskMonitors/1";
const std::string kRestart = R"({"ResetType":"ForceRestart"})";

struct Received {
  CURLcode code = CURLE_OK;
  long status = 0;
  std::string head = {};
  std::string body = {};
  milliseconds took{0};
};

std::size_t Append(char* bytes, std::size_t, std::size_t size, void* text) {
  static_cast<std::string*>(text)->append(bytes, size);
  return size;
}

struct Ask {
  std::string method = "GET";
  std::string path;
  std::string body = {};
  std::vector<std::string> fields = {};
  std::string login = "admin:password";
  long timeout_ms = 10000;

  [[nodiscard]] Received Of(const SimulatedBmc& bmc) const {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(
        curl_easy_init(), &curl_easy_cleanup);
    CURL* curl = handle.get();
    curl_slist* list = nullptr;
    for (const auto& field : fields)
      list = curl_slist_append(list, field.c_str());
    Received received;
    const std::string url = "https://" + bmc.Address() + path;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeout_ms);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &received.body);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Append);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &received.head);
    if (!login.empty()) curl_easy_setopt(curl, CURLOPT_USERPWD, login.c_str());
    if (method == "HEAD") curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    if (method != "GET" && method != "HEAD") {
      curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE,
                       static_cast<long>(body.size()));
      curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
      curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    const auto start = steady_clock::now();
    received.code = curl_easy_perform(curl);
    received.took =
        std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &received.status);
    curl_slist_free_all(list);
    return received;
  }
};

Received Get(const SimulatedBmc& bmc, const std::string& path) {
  return Ask{.path = path}.Of(bmc);
}
Received Post(const SimulatedBmc& bmc, const std::string& path,
              const std::string& body) {
  return Ask{.method = "POST", .path = path, .body = body}.Of(bmc);
}

// The value of a string or number in a document of the machine; or nothing.
std::string Member(const std::string& document, const std::string& key) {
  const std::string start = '"' + key + "\": ";
  std::size_t at = document.find(start);
  if (at == std::string::npos) return {};
  at += start.size();
  if (document[at] == '"') ++at;
  return document.substr(at, document.find_first_of("\",\n", at) - at);
}

// "202 Running 25" of a task's answer, "404" of one without a task.
std::string Poll(const SimulatedBmc& bmc, const std::string& path) {
  const Received got = Get(bmc, path);
  if (got.code != CURLE_OK) return "no answer";
  std::string shown = std::to_string(got.status);
  for (const char* key : {"TaskState", "PercentComplete"}) {
    const std::string value = Member(got.body, key);
    if (!value.empty()) shown += ' ' + value;
  }
  return shown;
}

std::string VersionOf(const SimulatedBmc& bmc, const std::string& id) {
  return Member(Get(bmc, kInventory + '/' + id).body, "Version");
}

struct WireCase {
  std::string name;
  Reply reply;
  CURLcode code;
  std::string body;
  milliseconds at_least{0};
};
class Wire : public testing::TestWithParam<WireCase> {};
TEST_P(Wire, CarriesTheAnswer) {
  SimulatedBmc bmc;
  bmc.On("GET", "/x").Answer(GetParam().reply);
  const Received got = Get(bmc, "/x");
  EXPECT_EQ(got.code, GetParam().code) << curl_easy_strerror(got.code);
  EXPECT_EQ(got.body, GetParam().body);
  EXPECT_GE(got.took, GetParam().at_least);
  EXPECT_EQ(bmc.Requests().size(), 1U);
}
INSTANTIATE_TEST_SUITE_P(
    Faults, Wire,
    testing::ValuesIn(std::vector<WireCase>{
        {"none", {.body = "{}"}, CURLE_OK, "{}"},
        {"drop", {.fault = Fault::kDrop}, CURLE_GOT_NOTHING, ""},
        {"reset", {.fault = Fault::kReset}, CURLE_RECV_ERROR, ""},
        {"cut_short",
         {.body = "12345678", .fault = Fault::kCutShort},
         CURLE_PARTIAL_FILE,
         "1234"},
        {"garbage",
         {.body = "{}", .fault = Fault::kGarbage},
         CURLE_OK,
         "{\"@odata.id\": \x01\x7f <not JSON"},
        {"not_http",
         {.fault = Fault::kNotHttp},
         CURLE_UNSUPPORTED_PROTOCOL,
         ""},
        {"slow_drip",
         {.body = "123456",
          .fault = Fault::kSlowDrip,
          .drip = milliseconds(20)},
         CURLE_OK,
         "123456",
         milliseconds(120)},
        {"delay",
         {.body = "{}", .delay = milliseconds(80)},
         CURLE_OK,
         "{}",
         milliseconds(80)},
        {"no_content", {.status = 204}, CURLE_OK, ""},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Script, AnswersInTurnAndRecordsWhatArrived) {
  SimulatedBmc bmc;
  bmc.On("POST", "/a")
      .Answer(405, "one", {{"X-Twice", "1"}, {"X-Twice", "2"}})
      .Then(202, "two");
  const Received first = Ask{
      .method = "POST",
      .path = "/a?b=c%20d",
      .body = "text",
      .fields = {"X-Z: last", "X-A: ", "X-Z: again",
                 "Expect:"}}.Of(bmc);
  EXPECT_EQ(first.status, 405);
  EXPECT_EQ(first.body, "one");
  EXPECT_THAT(first.head, HasSubstr("X-Twice: 1\r\nX-Twice: 2\r\n"));
  EXPECT_EQ(Post(bmc, "/a", "").body, "two");
  EXPECT_EQ(Post(bmc, "/a", "").body, "two") << "the last one repeats";
  EXPECT_EQ(Get(bmc, "/a").status, 404) << "scripts hold for one method";

  const auto requests = bmc.Requests();
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_EQ(requests[0].path, "/a");
  EXPECT_EQ(requests[0].query, "b=c%20d");
  EXPECT_EQ(requests[0].body, "text");
  EXPECT_EQ(Header(requests[0], "x-z"), "last");
  std::string order;
  for (const auto& [name, value] : requests[0].headers) {
    if (name.starts_with("X-")) order += name + '=' + value + ' ';
  }
  EXPECT_EQ(order, "X-Z=last X-Z=again ");  // libcurl leaves out an empty one
  bmc.ClearRequests();
  EXPECT_TRUE(bmc.Requests().empty());
}

struct FormCase {
  std::string name, content_type, body;
  std::string parts;  // "name/filename/type=content;" each
};
class Form : public testing::TestWithParam<FormCase> {};
TEST_P(Form, IsParsed) {
  std::string parts;
  for (const FormPart& part :
       ParseForm(GetParam().content_type, GetParam().body)) {
    parts += part.name + '/' + part.filename + '/' + part.content_type + '=' +
             part.content + ';';
  }
  EXPECT_EQ(parts, GetParam().parts);
}
const std::string kTyped = "multipart/form-data; boundary=b";
INSTANTIATE_TEST_SUITE_P(
    Bodies, Form,
    testing::ValuesIn(std::vector<FormCase>{
        {"two_parts", kTyped,
         "--b\r\nContent-Disposition: form-data; name=\"UpdateParameters\"\r\n"
         "content-type: application/json\r\n\r\n{}\r\n"
         "--b\r\nContent-Disposition: form-data; name=\"UpdateFile\"; "
         "filename=\"a\\\"b;.bin\"\r\n\r\n\r\n--c\r\n\r\n--b--\r\n",
         "UpdateParameters//application/json={};UpdateFile/a\"b;.bin/=\r\n"
         "--c\r\n;"},
        {"quoted_boundary", "Multipart/Form-Data; charset=x; boundary=\"b c\"",
         "--b c\r\nContent-Disposition: form-data; name=n\r\n\r\nv\r\n--b c--",
         "n//=v;"},
        {"preamble", kTyped,
         "hello\r\n--b\r\nContent-Disposition: form-data; "
         "name=n\r\n\r\n\r\n--b--",
         "n//=;"},
        {"cut_off", kTyped,
         "--b\r\nContent-Disposition: form-data; name=n\r\n\r\nv\r\n", ""},
        {"part_without_head_end", kTyped, "--b\r\nv\r\n--b--", ""},
        {"no_boundary", "multipart/form-data", "--b--", ""},
        {"other_type", "application/json", "{}", ""},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Machine, StoresTheImageOfAFormAndShowsItOnlyAfterARestart) {
  SimulatedBmc bmc;
  // An image that holds what looks like a delimiter, and zero bytes.
  const std::string image = std::string("ab\0c\r\n--x\r\n", 11) + "--y--";
  const auto upload = [&](const std::string& parameters) {
    return Ask{.method = "POST",
               .path = kForm,
               .body =
                   "--y-y\r\nContent-Disposition: form-data; "
                   "name=\"UpdateParameters\"\r\n\r\n" +
                   parameters +
                   "\r\n--y-y\r\nContent-Disposition: form-data; "
                   "name=\"UpdateFile\"; filename=\"i\"\r\n\r\n" +
                   image + "\r\n--y-y--\r\n",
               .fields = {"Content-Type: multipart/form-data; boundary=y-y"}}
        .Of(bmc);
  };
  EXPECT_EQ(upload("[not JSON").status, 400);
  EXPECT_EQ(bmc.StoredImageSize(), 0U);
  const Received accepted =
      upload(R"({"Targets":[")" + kInventory + R"(/BIOS"]})");
  EXPECT_EQ(accepted.status, 202);
  EXPECT_THAT(accepted.head, HasSubstr("\r\nLocation: " + kMonitor + "\r\n"));
  EXPECT_THAT(accepted.head, HasSubstr("\r\nRetry-After: 30\r\n"));
  EXPECT_THAT(accepted.body, HasSubstr("\"@odata.id\": \"" + kTask + '"'));
  EXPECT_EQ(bmc.StoredImageSize(), image.size());
  // printf 'ab\0c\r\n--x\r\n--y--' | sha256sum
  EXPECT_EQ(bmc.StoredImageSha256(),
            "9ae8cf130b4385af874b031f5ac708837cd6da1a922faafe7bdbbd2e7b208cd4");
  ASSERT_EQ(bmc.Requests().back().parts.size(), 2U);
  EXPECT_EQ(bmc.Requests().back().parts[1].content, image);

  const Received second = Post(bmc, kUpload, "image");
  EXPECT_EQ(second.status, 503);
  EXPECT_THAT(second.head, HasSubstr("\r\nRetry-After: 30\r\n"));

  while (Poll(bmc, kTask) != "200 Completed 100") {
    ASSERT_LT(bmc.Requests().size(), 20U);
  }
  EXPECT_EQ(VersionOf(bmc, "BIOS"), "2.4.1");
  EXPECT_EQ(Post(bmc, kReset, R"({"ResetType":"Sideways"})").status, 400);
  EXPECT_EQ(bmc.Restarts(), 0);
  EXPECT_EQ(Post(bmc, kReset, kRestart).status, 204);
  EXPECT_EQ(bmc.Restarts(), 1);
  EXPECT_EQ(VersionOf(bmc, "BIOS"), "2.5.0");
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.0.0") << "was no target";
}

struct LifeCase {
  std::string name, scenario, path;
  std::vector<std::string> steps;  // a poll's answer, or "reset"
  std::string version_after;
};
class TaskLifeOf : public testing::TestWithParam<LifeCase> {};
TEST_P(TaskLifeOf, AnUpload) {
  SimulatedBmc bmc(ParseScenario(GetParam().scenario, "test"));
  ASSERT_EQ(Post(bmc, kUpload, "image").status, 202);
  std::vector<std::string> seen;
  for (const std::string& step : GetParam().steps) {
    seen.push_back(step == "reset" ? (Post(bmc, kReset, kRestart), "reset")
                                   : Poll(bmc, GetParam().path));
  }
  EXPECT_EQ(seen, GetParam().steps);
  EXPECT_EQ(VersionOf(bmc, "BMC"), GetParam().version_after);
}
INSTANTIATE_TEST_SUITE_P(
    Scenarios, TaskLifeOf,
    testing::ValuesIn(std::vector<LifeCase>{
        {"default",
         R"({"versions_change_at":"completion"})",
         kTask,
         {"200 New 0", "200 Running 25", "200 Running 75", "200 Completed 100",
          "200 Completed 100"},
         "1.1.0"},
        {"monitor_goes_after_its_last_answer",
         R"({"task":{"steps":[{"percent":-1,"polls":2},{"state":"Exception"}]}})",
         kMonitor,
         {"202 Running", "202 Running", "200 Exception 0", "404"},
         "1.0.0"},
        {"monitor_ends_without_content",
         R"({"task":{"steps":[{"state":"Completed"}],
                     "monitor_final_status":204}})",
         kMonitor,
         {"204", "404"},
         "1.0.0"},
        {"staged_until_a_reset",
         R"({"task":{"steps":[{"state":"Starting","until_restart":true},
             {"state":"Completed","percent":100}]},
             "restart":{"requests":1,"answers_503":true}})",
         kTask,
         {"200 Starting 0", "200 Starting 0", "reset", "503",
          "200 Completed 100"},
         "1.1.0"},
        {"restarts_by_itself_and_forgets",
         R"({"restart":{"by_itself_at":75,"requests":2,"keeps_tasks":false}})",
         kTask,
         {"200 New 0", "200 Running 25", "200 Running 75", "no answer",
          "no answer", "404"},
         "1.1.0"},
        {"torn_apart_by_a_reset",
         "{}",
         kTask,
         {"200 New 0", "reset", "200 Exception 25"},
         "1.0.0"},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Machine, CountsSecondsByItsClock) {
  std::atomic<int> seconds = 0;
  const auto start = steady_clock::now();
  SimulatedBmc bmc(
      ParseScenario(R"({"task":{"steps":[{"seconds":10},{"seconds":5,
          "percent":50},{"state":"Completed","percent":100}]},
          "restart":{"seconds":60}})",
                    "test"),
      {.now = [&] { return start + std::chrono::seconds(seconds); }});
  Post(bmc, kUpload, "image");
  EXPECT_EQ(Poll(bmc, kTask), "200 Running 0");
  EXPECT_EQ(Poll(bmc, kTask), "200 Running 0");
  seconds = 14;
  EXPECT_EQ(Poll(bmc, kTask), "200 Running 50");
  seconds = 15;
  EXPECT_EQ(Poll(bmc, kTask), "200 Completed 100");
  Post(bmc, kReset, kRestart);
  seconds = 74;
  EXPECT_EQ(Poll(bmc, kTask), "no answer");
  seconds = 75;
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.1.0");
}

struct AnswerCase {
  std::string name;
  Ask ask;
  long status;
  std::string holds;  // in head or body
  std::string scenario = "{}";
};
class Answers : public testing::TestWithParam<AnswerCase> {};
TEST_P(Answers, AreThoseOfABmc) {
  const SimulatedBmc bmc(ParseScenario(GetParam().scenario, "test"));
  const Received got = GetParam().ask.Of(bmc);
  EXPECT_EQ(got.status, GetParam().status);
  EXPECT_THAT(got.head + got.body, HasSubstr(GetParam().holds));
}
const std::string kImageUri = R"({"ImageURI":"nfs://share/i"})";
INSTANTIATE_TEST_SUITE_P(
    Requests, Answers,
    testing::ValuesIn(std::vector<AnswerCase>{
        {"root_is_open", {.path = "/redfish/v1/", .login = ""}, 200, "Systems"},
        {"the_rest_is_not",
         {.path = "/redfish/v1/Chassis", .login = "admin:x"},
         401,
         "WWW-Authenticate: Basic"},
        {"image_is_open",
         {.path = "/images/firmware.bin", .login = ""},
         200,
         "Content-Length: 65536"},
        {"unknown", {.path = "/redfish/v1/Nothing"}, 404, "ExtendedInfo"},
        {"trailing_slash",
         {.path = "/redfish/v1/Chassis/chassis/"},
         200,
         "\"SerialNumber\""},
        {"head",
         {.method = "HEAD", .path = "/redfish/v1/Chassis"},
         200,
         "Content-Length: "},
        {"update_service_takes_no_post",
         {.method = "POST", .path = "/redfish/v1/UpdateService"},
         405,
         "Allow: GET, HEAD"},
        {"form_at_the_binary_path",
         {.method = "POST",
          .path = kUpload,
          .body = "x",
          .fields = {"Content-Type: multipart/form-data; boundary=b"}},
         415,
         "error"},
        {"put_of_the_bare_image",
         {.method = "PUT", .path = kUpload, .body = "x"},
         202,
         "TaskState"},
        {"no_multipart",
         {.method = "POST", .path = kForm, .body = "x"},
         404,
         "error",
         R"({"upload":{"multipart_paths":[]}})"},
        {"too_large",
         {.method = "POST", .path = kUpload, .body = "12345"},
         413,
         "at most 4",
         R"({"upload":{"max_bytes":4}})"},
        {"done_at_once",
         {.method = "POST", .path = kUpload, .body = "x"},
         204,
         "",
         R"({"upload":{"status":204}})"},
        {"simple_update",
         {.method = "POST", .path = kAction, .body = kImageUri},
         202,
         "Location: " + kTask,
         R"({"task":{"location":"task"}})"},
        {"simple_update_other_protocol",
         {.method = "POST", .path = kAction, .body = kImageUri},
         400,
         "protocol",
         R"({"simple_update":{"protocols":["HTTPS"]}})"},
        {"simple_update_without_targets",
         {.method = "POST", .path = kAction, .body = kImageUri},
         400,
         "Targets",
         R"({"simple_update":{"requires_targets":true}})"},
        {"simple_update_refused",
         {.method = "POST", .path = kAction, .body = kImageUri},
         405,
         "error",
         R"({"simple_update":{"status":405}})"},
        {"activation_without_an_image",
         {.method = "POST", .path = kAction, .body = "{}"},
         400,
         "ImageURI"},
        {"second_page",
         {.path = kInventory + "?$skip=2"},
         200,
         "\"Members@odata.nextLink\": \"" + kInventory + "?$skip=4\"",
         R"({"firmware":{"generated":3,"page_size":2}})"},
        {"false_count",
         {.path = kInventory},
         200,
         "\"Members@odata.count\": 9",
         R"({"firmware":{"reported_count":9}})"},
        {"merged_properties",
         {.path = kInventory + "/B"},
         200,
         "\"Oem\": {",
         R"({"firmware":{"members":[{"id":"B",
             "properties":{"Manufacturer":null,"Oem":{"a":1}}}]}})"},
        {"redirect",
         {.path = "/redfish/v1/Chassis"},
         307,
         "Location: /x",
         R"({"faults":[{"status":307,"headers":{"Location":"/x"}}]})"},
    }),
    [](const auto& row) { return row.param.name; });

TEST(Machine, ActivatesAnUploadThatInstallsNothingByItself) {
  SimulatedBmc bmc(ParseScenario(
      R"({"activation":{"required":true},"versions_change_at":"completion",
          "task":{"steps":[{"state":"Completed","percent":100}]}})",
      "test"));
  EXPECT_EQ(Post(bmc, kUpload, "image").status, 202);
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.0.0");
  EXPECT_EQ(Post(bmc, kAction, "{}").status, 202);
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.1.0");
}

TEST(FaultRules, StrikeWhenTheyCountTo) {
  SimulatedBmc bmc(ParseScenario(
      R"({"faults":[{"phase":"chassis","after":1,"every":2,"first":2,
                     "status":500},
                    {"path":"/redfish/v1/Sys*","method":"GET","first":1,
                     "fault":"drop"},
                    {"phase":"upload","first":1,"before_body":true,
                     "fault":"reset"},
                    {"phase":"upload","first":1,"fault":"drop",
                     "machine_acts":true}]})",
      "test"));
  std::vector<long> chassis;
  for (int i = 0; i < 6; ++i) {
    chassis.push_back(Get(bmc, "/redfish/v1/Chassis").status);
  }
  EXPECT_THAT(chassis, ElementsAre(200, 500, 200, 500, 200, 200));
  EXPECT_EQ(Get(bmc, "/redfish/v1/Systems").code, CURLE_GOT_NOTHING);
  EXPECT_EQ(Get(bmc, "/redfish/v1/Systems").status, 200);
  // More than the socket buffers hold, so the client is still sending.
  EXPECT_NE(Post(bmc, kUpload, std::string(1U << 24U, 'x')).code, CURLE_OK);
  EXPECT_EQ(bmc.Requests().back().body_size, 0U);
  EXPECT_EQ(bmc.StoredImageSize(), 0U);
  EXPECT_EQ(Post(bmc, kUpload, "image").code, CURLE_GOT_NOTHING);
  EXPECT_EQ(bmc.StoredImageSize(), 5U) << "only the answer was lost";
}

struct ErrorCase {
  std::string name, json, message;
};
class ScenarioFile : public testing::TestWithParam<ErrorCase> {};
TEST_P(ScenarioFile, IsRefusedWithAReason) {
  try {
    ParseScenario(GetParam().json, "f.json");
    FAIL() << "accepted";
  } catch (const ScenarioError& error) {
    EXPECT_THAT(error.what(), HasSubstr(GetParam().message));
    EXPECT_THAT(error.what(), testing::StartsWith("f.json: "));
  }
}
INSTANTIATE_TEST_SUITE_P(
    Errors, ScenarioFile,
    testing::ValuesIn(std::vector<ErrorCase>{
        {"syntax", "{\"a\":\n,}", "no valid JSON: parse error at line 2"},
        {"no_object", "[]", "$: must be an object, not []"},
        {"unknown_key", R"({"tasks":{}})",
         R"($.tasks: unknown key; did you mean "task"? Allowed here: ")"},
        {"far_key", R"({"zzzzzzzz":1})", "$.zzzzzzzz: unknown key Allowed"},
        {"nested", R"({"task":{"steps":[{},{"stat":"x"}]}})",
         R"($.task.steps[1].stat: unknown key; did you mean "state"?)"},
        {"type", R"({"upload":{"status":"202"}})",
         R"($.upload.status: must be an integer from 200 to 299, not "202")"},
        {"range", R"({"task":{"steps":[{"percent":101}]}})",
         "must be an integer from -1 to 100, not 101"},
        {"beyond_64_bits", R"({"upload":{"status":1e30}})", "not 1e+30"},
        {"choice", R"({"faults":[{"phase":"uplaod","status":500}]})",
         R"($.faults[0].phase: must be one of "inventory", "chassis")"},
        {"list", R"({"upload":{"binary_paths":"/x"}})", "array of strings"},
        {"path", R"({"upload":{"binary_paths":["x"]}})", R"(begin with "/")"},
        {"required", R"({"chassis":[{"model":"m"}]})",
         "$.chassis[0].id: is required here"},
        {"polls_and_seconds", R"({"task":{"steps":[{"polls":1,"seconds":1}]}})",
         "not both"},
        {"no_steps", R"({"task":{"steps":[]}})", "at least one step"},
        {"no_fault", R"({"faults":[{"phase":"task"}]})", "fault: is required"},
        {"header_of_two_lines",
         R"({"faults":[{"status":500,"headers":{"A":"b\r\nC: d"}}]})",
         "$.faults[0].headers.A: must be a string of one line"},
        {"control_character", R"({"\u001b[2J":1})", R"(\x1b[2J: unknown)"},
    }),
    [](const auto& row) { return row.param.name; });

TEST(ReadyScenarios, LoadAndTellTheirStory) {
  const auto directory =
      std::filesystem::path(FindScenario("clean")).parent_path();
  int count = 0;
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    if (file.path().filename() == "scenario.schema.json") continue;
    const Scenario scenario = LoadScenario(FindScenario(file.path().stem()));
    EXPECT_THAT(scenario.description, Not(testing::IsEmpty())) << file;
    const SimulatedBmc bmc(scenario);
    EXPECT_EQ(Ask{.path = "/redfish/v1"}.Of(bmc).status, 200) << file;
    ++count;
  }
  EXPECT_EQ(count, 13);
  EXPECT_THROW(FindScenario("no-such-story"), ScenarioError);
}

TEST(Lifetime, EndsAtOnceWhateverIsUnderWay) {
  auto bmc = std::make_unique<SimulatedBmc>();
  bmc->On("GET", "/slow").Answer({.delay = std::chrono::hours(1)});
  const Ask slow{.path = "/slow"};
  auto asked = std::async(std::launch::async, [&] { return slow.Of(*bmc); });
  while (bmc->Requests().empty()) std::this_thread::yield();
  // A connection that never says a word.
  const int idle = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(bmc->Port()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(idle, reinterpret_cast<const sockaddr*>(&address),
                    sizeof address),
            0);
  const auto start = steady_clock::now();
  bmc.reset();
  EXPECT_LT(steady_clock::now() - start, milliseconds(1500));
  EXPECT_NE(asked.get().code, CURLE_OK);
  close(idle);
}

TEST(Lifetime, TakesAFixedPortOnceAndServesIpv6) {
  const SimulatedBmc bmc({}, {.bind_address = "::1"});
  EXPECT_EQ(bmc.Address(), "[::1]:" + std::to_string(bmc.Port()));
  EXPECT_EQ(Get(bmc, "/redfish/v1").status, 200);
  EXPECT_THROW(SimulatedBmc({}, {.bind_address = "::1", .port = bmc.Port()}),
               std::runtime_error);
}

TEST(Program, WritesItsAddressAndEndsOnASignal) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("simulator-test-" + std::to_string(getpid()));
  testing::internal::CaptureStdout();
  int code = -1;
  std::thread program(
      [&] { code = RunSimulator({.address_file = file.string()}); });
  std::string address;
  while (address.empty()) std::ifstream(file) >> address;
  pthread_kill(program.native_handle(), SIGTERM);
  program.join();
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(std::filesystem::exists(file));
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_THAT(output, HasSubstr("--bmc " + address + " --user admin"));
}

}  // namespace
}  // namespace quorvane::simulator
