// SPDX-License-Identifier: Apache-2.0
// The behavior of the simulated BMC that tests rely on. The client is libcurl,
// which distinguishes the kinds of broken connections.
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "simulator/fleet.h"
#include "simulator/run_simulator.h"
#include "simulator/scenario.h"
#include "simulator/simulated_bmc.h"

namespace quorvane::simulator {
namespace {

using std::chrono::steady_clock;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kBinary = "/redfish/v1/UpdateService/update";
const std::string kMultipart = "/redfish/v1/UpdateService/update-multipart";
const std::string kAction =
    "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate";
const std::string kReset =
    "/redfish/v1/Systems/system/Actions/ComputerSystem.Reset";
const std::string kInventory = "/redfish/v1/UpdateService/FirmwareInventory";
const std::string kTask = "/redfish/v1/TaskService/Tasks/1";
const std::string kMonitor = "/redfish/v1/TaskService/TaskMonitors/1";
const std::string kForceRestart = R"({"ResetType":"ForceRestart"})";

// Nested so deeply that a recursive parser would overflow the stack.
const std::string kDeep = R"({"description": )" + std::string(200'000, '[') +
                          std::string(200'000, ']') + "}";

struct Result {
  CURLcode code = CURLE_OK;
  long status = 0;
  std::string header = {};
  std::string body = {};
};

std::size_t Append(char* bytes, std::size_t, std::size_t size, void* text) {
  static_cast<std::string*>(text)->append(bytes, size);
  return size;
}

using Handle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

struct Request {
  std::string method;
  std::string path;
  std::string body = {};
  std::string content_type = "application/json";
  std::string credentials = "admin:password";

  [[nodiscard]] Result Send(const SimulatedBmc& bmc) const {
    return Send(bmc.Address());
  }
  [[nodiscard]] Result Send(const std::string& address) const {
    const Handle handle(curl_easy_init(), &curl_easy_cleanup);
    CURL* curl = handle.get();
    const std::string field = "Content-Type: " + content_type;
    curl_slist* list = curl_slist_append(nullptr, field.c_str());
    Result result;
    const std::string url = "https://" + address + path;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.body);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Append);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &result.header);
    if (!credentials.empty())
      curl_easy_setopt(curl, CURLOPT_USERPWD, credentials.c_str());
    if (method[0] == 'P') {
      curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE,
                       static_cast<long>(body.size()));
      curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
    }
    if (method == "HEAD") curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    result.code = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &result.status);
    curl_slist_free_all(list);
    return result;
  }
};

Result Get(const SimulatedBmc& bmc, const std::string& path) {
  return Request{"GET", path}.Send(bmc);
}
Result Post(const SimulatedBmc& bmc, const std::string& path,
            const std::string& body) {
  return Request{"POST", path, body}.Send(bmc);
}

// A string or number in a resource; empty if there is none.
std::string ValueOf(const std::string& document, const char* key) {
  const auto tree = nlohmann::json::parse(document, nullptr, false);
  if (!tree.contains(key)) return {};
  const auto& value = tree[key];
  return value.is_string() ? value.get<std::string>() : value.dump();
}

// "202 Running 25" if the response is a task, otherwise "404".
std::string Poll(const SimulatedBmc& bmc, const std::string& path) {
  const Result got = Get(bmc, path);
  if (got.code != CURLE_OK) return "no response";
  std::string shown = std::to_string(got.status);
  for (const char* key : {"TaskState", "PercentComplete"}) {
    const std::string value = ValueOf(got.body, key);
    if (!value.empty()) shown += ' ' + value;
  }
  return shown;
}

std::string VersionOf(const SimulatedBmc& bmc, const std::string& id) {
  return ValueOf(Get(bmc, kInventory + '/' + id).body, "Version");
}

TEST(ParseMultipart, ReadsPartsAndRejectsMalformedBodies) {
  struct Case {
    std::string content_type, body;
    std::string parts;  // "name/filename/type=content;" each
  };
  const std::string typed = "multipart/form-data; boundary=b";
  for (const Case& row : std::vector<Case>{
           {typed,
            "--b\r\nContent-Disposition: form-data; name=\"Parameters\"\r\n"
            "content-type: application/json\r\n\r\n{}\r\n"
            "--b\r\nContent-Disposition: form-data; name=\"UpdateFile\"; "
            "filename=\"a\\\"b;.bin\"\r\n\r\n\r\n--c\r\n\r\n--b--\r\n",
            "Parameters//application/json={};UpdateFile/a\"b;.bin/"
            "=\r\n--c\r\n;"},
           {"Multipart/Form-Data; charset=x; boundary=\"b c\"",
            "preamble\r\n--b c\r\nContent-Disposition: form-data; "
            "name=n\r\n\r\nv\r\n--b c--",
            "n//=v;"},
           {typed,
            "--b\r\nContent-Disposition: form-data; name=n\r\n\r\ncut off\r\n",
            ""},
           {typed, "--b\r\nheader without end\r\n--b--", ""},
           {"multipart/form-data", "--b--", ""},
           {"application/json", "{}", ""}}) {
    std::string parts;
    for (const FormPart& part : ParseMultipart(row.content_type, row.body)) {
      parts += part.name + '/' + part.filename + '/' + part.content_type + '=' +
               part.content + ';';
    }
    EXPECT_EQ(parts, row.parts) << row.body;
  }
}

TEST(RedfishService, InstallsAMultipartUploadAtTheNextReboot) {
  SimulatedBmc bmc;
  // The image contains a NUL and text that looks like a delimiter.
  const std::string image = std::string("ab\0c\r\n--x\r\n", 11) + "--y--";
  const auto upload = [&](const std::string& parameters) {
    const std::string part =
        "\r\n--y-y\r\nContent-Disposition: form-data; name=";
    return Request{"POST", kMultipart,
                   part + "UpdateParameters\r\n\r\n" + parameters + part +
                       "UpdateFile\r\n\r\n" + image + "\r\n--y-y--\r\n",
                   "multipart/form-data; boundary=y-y"}
        .Send(bmc);
  };
  EXPECT_EQ(upload("[not JSON").status, 400);
  EXPECT_EQ(bmc.StoredImageSize(), 0U);
  const Result accepted =
      upload(R"({"Targets":[")" + kInventory + R"(/BIOS"]})");
  EXPECT_EQ(accepted.status, 202);
  EXPECT_THAT(accepted.header, HasSubstr("\r\nLocation: " + kMonitor + "\r\n"));
  EXPECT_THAT(accepted.header, HasSubstr("\r\nRetry-After: 30\r\n"));
  EXPECT_THAT(accepted.body, HasSubstr("\"@odata.id\": \"" + kTask + '"'));
  EXPECT_EQ(bmc.StoredImageSize(), image.size());
  // printf 'ab\0c\r\n--x\r\n--y--' | sha256sum
  EXPECT_EQ(bmc.StoredImageSha256(),
            "9ae8cf130b4385af874b031f5ac708837cd6da1a922faafe7bdbbd2e7b208cd4");
  EXPECT_EQ(bmc.Requests().back().parts.at(1).content, image);

  EXPECT_EQ(Post(bmc, kBinary, "image").status, 503);
  while (Poll(bmc, kTask) != "200 Completed 100") {
    ASSERT_LT(bmc.Requests().size(), 20U);
  }
  EXPECT_EQ(VersionOf(bmc, "BIOS"), "2.4.1");
  EXPECT_EQ(Post(bmc, kReset, R"({"ResetType":"Sideways"})").status, 400);
  EXPECT_EQ(Post(bmc, kReset, kForceRestart).status, 204);
  EXPECT_EQ(bmc.Reboots(), 1);
  EXPECT_THAT(Get(bmc, "/redfish/v1/TaskService/Tasks").body,
              HasSubstr("\"@odata.id\": \"" + kTask + '"'));
  EXPECT_EQ(VersionOf(bmc, "BIOS"), "2.5.0");
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.0.0") << "not a target";
}

TEST(RedfishService, AdvancesTheTaskOfAnUpload) {
  constexpr const char* kActivationRequired =
      R"({"activation":{"required":true},"versions_change_at":"completion",
          "task":{"steps":[{"state":"Completed","percent":100}]}})";
  struct Case {
    const char* scenario;
    std::string path;
    // Each is the result of a poll, "reset", "activation" or "read" with the
    // status of the firmware inventory.
    std::string steps;
    const char* version_after;
  };
  for (
      const Case& row : std::vector<Case>{
          {R"({"versions_change_at":"completion"})", kTask,
           "200 New 0, 200 Running 25, 200 Running 75, 200 Completed 100, "
           "200 Completed 100",
           "1.1.0"},
          // A task monitor disappears after its last response.
          {R"({"task":{"steps":[{"percent":-1,"polls":2},
                {"state":"Exception"}]}})",
           kMonitor, "202 Running, 202 Running, 200 Exception 0, 404", "1.0.0"},
          {R"({"task":{"steps":[{"state":"Completed"}],
                "monitor_final_status":204}})",
           kMonitor, "204, 404", "1.0.0"},
          {R"({"task":{"steps":[{"state":"Starting","until_restart":true},
                {"state":"Completed","percent":100}]},
                "restart":{"requests":1,"answers_503":true}})",
           kTask,
           "200 Starting 0, 200 Starting 0, reset, 503, 200 Completed 100",
           "1.1.0"},
          // The BMC reboots by itself and deletes its tasks.
          {R"({"restart":{"by_itself_at":75,"requests":2,
                "keeps_tasks":false}})",
           kTask,
           "200 New 0, 200 Running 25, 200 Running 75, no response, no "
           "response, "
           "404",
           "1.1.0"},
          {"{}", kTask, "200 New 0, reset, 200 Exception 25", "1.0.0"},
          {R"({"versions_change_at":"never"})", kTask,
           "200 New 0, 200 Running 25, 200 Running 75, 200 Completed 100, "
           "reset",
           "1.0.0"},
          {R"({"versions_change_after_reads":1,"restart":{"requests":1},
                "task":{"steps":[{"state":"Completed"}]}})",
           kTask, "read 200, read 200, reset, read 0, read 200", "1.0.0"},
          {R"({"versions_change_after_reads":1,
                "task":{"steps":[{"state":"Completed"}]}})",
           kTask, "reset, read 200, reset, read 200", "1.1.0"},
          {R"({"task":{"disappears_at":25},"versions_change_at":"completion"})",
           kTask, "200 New 0, 200 Running 25, 404", "1.1.0"},
          {R"({"faults":[{"phase":"inventory","after_restart":true,"first":1,
                           "status":503}]})",
           kTask, "read 200, reset, read 503, read 200", "1.0.0"},
          // An upload alone installs nothing.
          {kActivationRequired, kTask, "200 Completed 100", "1.0.0"},
          {kActivationRequired, kTask, "activation, 200 Completed 100",
           "1.1.0"}}) {
    SimulatedBmc bmc(ParseScenario(row.scenario, "test"));
    ASSERT_EQ(Post(bmc, kBinary, "image").status, 202);
    std::string seen;
    while (seen.size() < row.steps.size()) {
      if (!seen.empty()) seen += ", ";
      const auto next = [&](const char* step) {
        return row.steps.find(step, seen.size()) == seen.size();
      };
      seen += next("reset")        ? (Post(bmc, kReset, kForceRestart), "reset")
              : next("activation") ? (Post(bmc, kAction, "{}"), "activation")
              : next("read")
                  ? "read " + std::to_string(Get(bmc, kInventory).status)
                  : Poll(bmc, row.path);
    }
    EXPECT_EQ(seen, row.steps);
    EXPECT_EQ(bmc.FirmwareVersion("BMC"), row.version_after) << row.scenario;
  }
}

TEST(RedfishService, MeasuresSecondsWithItsClock) {
  std::atomic<int> seconds = 0;
  const auto start = steady_clock::now();
  SimulatedBmc bmc(
      ParseScenario(R"({"task":{"steps":[{"seconds":10},{"seconds":5,
          "percent":50},{"state":"Completed","percent":100}]},
          "restart":{"seconds":60},"versions_change_after_seconds":30})",
                    "test"),
      {.now = [&] { return start + std::chrono::seconds(seconds); }});
  Post(bmc, kBinary, "image");
  EXPECT_EQ(Poll(bmc, kTask), "200 Running 0");
  seconds = 14;
  EXPECT_EQ(Poll(bmc, kTask), "200 Running 50");
  seconds = 15;
  EXPECT_EQ(Poll(bmc, kTask), "200 Completed 100");
  Post(bmc, kReset, kForceRestart);
  seconds = 74;
  EXPECT_EQ(Poll(bmc, kTask), "no response");
  // The delay begins when the BMC responds, not when it could have.
  seconds = 80;
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.0.0");
  seconds = 109;
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.0.0");
  seconds = 110;
  EXPECT_EQ(VersionOf(bmc, "BMC"), "1.1.0");
}

TEST(RedfishService, RespondsLikeABmc) {
  const std::string image_uri = R"({"ImageURI":"nfs://share/i"})";
  struct Case {
    Request request;
    long status;
    std::string text;  // in the header or the body
    const char* scenario = "{}";
  };
  const auto get = [](const std::string& path,
                      const char* credentials = "admin:password") {
    return Request{.method = "GET", .path = path, .credentials = credentials};
  };
  const Request upload{"POST", kBinary, "12345"};
  const Request action{"POST", kAction, image_uri};
  for (const Case& row : std::vector<Case>{
           {get("/redfish/v1/", ""), 200, "Systems"},
           {get("/redfish/v1/Chassis", "admin:x"), 401, "e: Basic"},
           {get("/images/firmware.bin", ""), 200, "Content-Length: 65536"},
           {get("/redfish/v1/Nothing"), 404, "ExtendedInfo"},
           {get("/redfish/v1/Chassis/chassis/"), 200, "SerialNumber"},
           {{"HEAD", "/redfish/v1/Chassis"}, 200, "Content-Length: "},
           {{"POST", "/redfish/v1/UpdateService"}, 405, "Allow: GET, HEAD"},
           {{"POST", kBinary, "x", "multipart/form-data; boundary=b"},
            415,
            "error"},
           {{"PUT", kBinary, "x"}, 202, "TaskState"},
           {{"POST", kMultipart, "x"},
            404,
            "error",
            R"({"upload":{"multipart_paths":[]}})"},
           {upload, 413, "at most 4", R"({"upload":{"max_bytes":4}})"},
           {upload, 204, "", R"({"upload":{"status":204}})"},
           {upload, 503, "is disabled", R"({"service_enabled":false})"},
           {action, 503, "is disabled", R"({"service_enabled":false})"},
           {get("/redfish/v1/UpdateService"), 200, R"("State": "Disabled")",
            R"({"service_enabled":false})"},
           {get("/redfish/v1/UpdateService"), 200, R"("HttpPushUri": "/x")",
            R"({"update_service_properties":{"HttpPushUri":"/x"}})"},
           {get("/redfish/v1/Systems/system"), 200, R"("Actions": {})",
            R"({"system_properties":{"Actions":
                {"#ComputerSystem.Reset":null}}})"},
           {action, 202, "Location: " + kTask,
            R"({"task":{"location":"task"}})"},
           {action, 400, "protocol",
            R"({"simple_update":{"protocols":["HTTPS"]}})"},
           {action, 400, "Targets",
            R"({"simple_update":{"requires_targets":true}})"},
           {action, 405, "error", R"({"simple_update":{"status":405}})"},
           {{"POST", kAction, "{}"}, 400, "ImageURI"},
           {{"POST", kAction, kDeep}, 400, "MalformedJSON"},
           {get(kInventory + "?$skip=2"), 200,
            "\"Members@odata.nextLink\": \"" + kInventory + "?$skip=4\"",
            R"({"firmware":{"generated":3,"page_size":2}})"},
           {get(kInventory), 200, "\"Members@odata.count\": 9",
            R"({"firmware":{"reported_count":9}})"},
           {get(kInventory + "/B"), 200, "\"Oem\": {",
            R"({"firmware":{"members":[{"id":"B",
                "properties":{"Manufacturer":null,"Oem":{"a":1}}}]}})"},
           {get("/redfish/v1/Chassis"), 307, "Location: /x",
            R"({"faults":[{"status":307,"headers":{"Location":"/x"}}]})"}}) {
    const SimulatedBmc bmc(ParseScenario(row.scenario, "test"));
    const Result got = row.request.Send(bmc);
    EXPECT_EQ(got.status, row.status) << row.request.path << row.scenario;
    EXPECT_THAT(got.header + got.body, HasSubstr(row.text));
  }
}

TEST(FaultRules, ApplyToTheSelectedRequests) {
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
  // Larger than the socket buffers, so that the client is still sending.
  EXPECT_NE(Post(bmc, kBinary, std::string(1U << 24U, 'x')).code, CURLE_OK);
  EXPECT_EQ(bmc.Requests().back().body_size, 0U);
  EXPECT_EQ(bmc.StoredImageSize(), 0U);
  EXPECT_EQ(Post(bmc, kBinary, "image").code, CURLE_GOT_NOTHING);
  EXPECT_EQ(bmc.StoredImageSize(), 5U) << "only the response is lost";
}

TEST(ScenarioFile, IsRejectedWithAReason) {
  const std::vector<std::pair<std::string, const char*>> cases = {
      {kDeep, "invalid JSON: nested deeper than 100 levels"},
      {"{\"a\":\n,}", "invalid JSON: parse error at line 2"},
      {"[]", "$: must be an object, not []"},
      {R"({"tasks":{}})",
       R"($.tasks: unknown key. Did you mean "task"? Allowed keys: ")"},
      {R"({"zzzzzzzz":1})", "$.zzzzzzzz: unknown key. Allowed"},
      {R"({"task":{"steps":[{},{"stat":"x"}]}})",
       R"($.task.steps[1].stat: unknown key. Did you mean "state"?)"},
      {R"({"upload":{"status":"202"}})",
       R"($.upload.status: must be an integer from 200 to 299, not "202")"},
      {R"({"task":{"steps":[{"percent":101}]}})",
       "must be an integer from -1 to 100, not 101"},
      {R"({"upload":{"status":1e30}})", "not 1e+30"},
      {R"({"faults":[{"phase":"uplaod","status":500}]})",
       R"($.faults[0].phase: must be one of "inventory", "chassis")"},
      {R"({"upload":{"binary_paths":"/x"}})", "array of strings"},
      {R"({"upload":{"binary_paths":["x"]}})", R"(begin with "/")"},
      {R"({"chassis":[{"model":"m"}]})", "$.chassis[0].id: is required"},
      {R"({"task":{"steps":[{"polls":1,"seconds":1}]}})", "not both"},
      {R"({"versions_change_after_reads":1,"versions_change_after_seconds":1})",
       "not both"},
      {R"({"task":{"steps":[]}})", "at least one step"},
      {R"({"faults":[{"phase":"task"}]})", "fault: is required"},
      {R"({"faults":[{"status":500,"headers":{"A":"b\r\nC: d"}}]})",
       "$.faults[0].headers.A: must be a string without line breaks"},
      {R"({"\u001b[2J":1})", R"(\x1b[2J: unknown)"}};
  for (const auto& [json, message] : cases) {
    try {
      ParseScenario(json, "f.json");
      ADD_FAILURE() << "accepted: " << json;
    } catch (const ScenarioError& error) {
      EXPECT_THAT(error.what(),
                  AllOf(StartsWith("f.json: "), HasSubstr(message)));
    }
  }
}

TEST(BuiltInScenarios, LoadAndHaveADescription) {
  const auto directory =
      std::filesystem::path(FindScenario("clean")).parent_path();
  int count = 0;
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    if (file.path().filename() == "scenario.schema.json") continue;
    const Scenario scenario = LoadScenario(FindScenario(file.path().stem()));
    EXPECT_THAT(scenario.description, Not(testing::IsEmpty())) << file;
    const SimulatedBmc bmc(scenario);
    EXPECT_EQ(Get(bmc, "/redfish/v1").status, 200) << file;
    ++count;
  }
  EXPECT_EQ(count, 21);
  EXPECT_THROW(FindScenario("no-such-scenario"), ScenarioError);
  EXPECT_THAT([] { LoadScenario("/nonexistent"); },
              testing::ThrowsMessage<ScenarioError>(
                  HasSubstr("No such file or directory. Check the path")));
}

// Uploads an image, polls its task, reboots, and reads the inventory three
// times, as a client does that looks for evidence.
TEST(BuiltInScenarios, DifferInWhatAnUpdateChanges) {
  struct Case {
    const char* name;
    const char* last_poll;
    const char* reads;     // the status and the BIOS version of each read
    const char* bios_now;  // what the BMC really has at the end
  };
  const std::string installed = "200 2.5.0, 200 2.5.0, 200 2.5.0";
  const std::string unchanged = "200 2.4.1, 200 2.4.1, 200 2.4.1";
  for (const Case& row : std::vector<Case>{
           {"clean", "200 Completed 100", installed.c_str(), "2.5.0"},
           {"no-new-version", "200 Completed 100", unchanged.c_str(), "2.4.1"},
           {"late-new-version", "200 Completed 100", unchanged.c_str(),
            "2.4.1"},
           {"wrong-version", "200 Completed 100",
            "200 2.3.0, 200 2.3.0, 200 2.3.0", "2.3.0"},
           {"half-way-back", "200 Completed 100", "503 , 503 , 503 ", "2.5.0"},
           {"critical-completion", "200 Completed 100", unchanged.c_str(),
            "2.4.1"},
           {"task-gone", "404", installed.c_str(), "2.5.0"},
           {"lost-after-upload", "200 Completed 100", installed.c_str(),
            "2.5.0"},
           {"lost-upload", "404", unchanged.c_str(), "2.4.1"}}) {
    std::atomic<int> seconds = 0;
    const auto start = steady_clock::now();
    SimulatedBmc bmc(LoadScenario(FindScenario(row.name)), {.now = [&] {
                       return start + std::chrono::seconds(seconds);
                     }});
    const bool is_lost = std::string(row.name).starts_with("lost-");
    EXPECT_EQ(Post(bmc, kBinary, "image").code,
              is_lost ? CURLE_GOT_NOTHING : CURLE_OK);
    EXPECT_EQ(bmc.StoredImageSize(),
              row.name == std::string("lost-upload") ? 0U : 5U);
    std::string last_poll;
    for (; last_poll != row.last_poll && seconds < 10; ++seconds) {
      last_poll = Poll(bmc, kTask);
    }
    EXPECT_EQ(last_poll, row.last_poll) << row.name;
    Post(bmc, kReset, kForceRestart);
    while (Get(bmc, "/redfish/v1").status != 200) {
      ASSERT_LT(bmc.Requests().size(), 50U);
    }
    std::string reads;
    for (int i = 0; i < 3; ++i) {
      const long status = Get(bmc, kInventory).status;
      reads += (reads.empty() ? "" : ", ") + std::to_string(status) + ' ' +
               VersionOf(bmc, "BIOS");
    }
    EXPECT_EQ(reads, row.reads) << row.name;
    EXPECT_EQ(bmc.FirmwareVersion("BIOS"), row.bios_now) << row.name;
  }
}

TEST(Lifetime, DestructorDoesNotWaitForConnections) {
  auto bmc = std::make_unique<SimulatedBmc>();
  bmc->On("GET", "/slow").Respond({.delay = std::chrono::hours(1)});
  auto slow =
      std::async(std::launch::async, [&] { return Get(*bmc, "/slow"); });
  while (bmc->Requests().empty()) std::this_thread::yield();
  // Idle connections do not block the others.
  std::vector<Handle> idle;
  for (int i = 0; i < 20; ++i) {
    idle.emplace_back(curl_easy_init(), &curl_easy_cleanup);
    CURL* curl = idle.back().get();
    curl_easy_setopt(curl, CURLOPT_URL, bmc->Address().c_str());
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    ASSERT_EQ(curl_easy_perform(curl), CURLE_OK);
  }
  EXPECT_EQ(Get(*bmc, "/redfish/v1").status, 200);
  bmc.reset();
  EXPECT_EQ(slow.get().code, CURLE_GOT_NOTHING);
}

TEST(Lifetime, UsesAPortOnceAndSupportsIpv6) {
  const SimulatedBmc bmc({}, {.bind_address = "::1"});
  EXPECT_EQ(bmc.Address(), "[::1]:" + std::to_string(bmc.Port()));
  EXPECT_EQ(Get(bmc, "/redfish/v1").status, 200);
  EXPECT_THROW(SimulatedBmc({}, {.bind_address = "::1", .port = bmc.Port()}),
               std::runtime_error);
}

TEST(Program, WritesItsAddressAndStopsOnASignal) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("simulator-test-" + std::to_string(getpid()));
  const std::string scenario = file.string() + "\x1b[2J";
  std::ofstream(scenario) << R"({"credentials": {"user": "o'b; \\ \u0007"},
      "upload": {"status": 200}, "versions_change_at": "completion"})";
  testing::internal::CaptureStdout();
  int code = -1;
  std::thread program([&] {
    code = RunSimulator({.scenario = scenario,
                         .bind_address = "::1",
                         .address_file = file.string()});
  });
  std::string address;
  while (address.empty()) std::ifstream(file) >> address;
  Request login{"POST", kBinary, "image"};
  login.credentials = "o'b; \\ \a:password";
  EXPECT_EQ(login.Send(address).status, 200);
  pthread_kill(program.native_handle(), SIGTERM);
  program.join();
  EXPECT_EQ(code, 0);
  EXPECT_FALSE(std::filesystem::exists(file));
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_THAT(output,
              HasSubstr("--bmc '" + address + R"(' --user $'o\'b; \\ \x07' )"));
  EXPECT_THAT(output, HasSubstr("\nBIOS is now 2.5.0\n"));
  EXPECT_THAT(output, HasSubstr("\\x1b[2J"));
  EXPECT_THAT(output, Not(HasSubstr("\x1b")));
  std::filesystem::remove(scenario);

  // In a shared directory, another user may have created a link.
  const std::string temporary = file.string() + '.' + std::to_string(getpid());
  for (const std::string& link : {file.string(), temporary}) {
    std::filesystem::create_symlink(file.string() + ".target", link);
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunSimulator({.address_file = file.string(), .quiet = true}),
              kUnusable);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Choose another address file."));
    EXPECT_FALSE(std::filesystem::exists(file.string() + ".target")) << link;
    std::filesystem::remove(link);
  }

  testing::internal::CaptureStderr();
  EXPECT_EQ(RunSimulator({.scenario = "clean", .bind_address = "\x1b[2J"}),
            kUnusable);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), Not(HasSubstr("\x1b")));
}

TEST(Fleet, SpreadsScenariosByWeight) {
  EXPECT_THAT(SpreadByWeight({3, 1}, 8), ElementsAre(0, 0, 1, 0, 0, 0, 1, 0));
  EXPECT_THAT(SpreadByWeight({1000000, 1000000}, 3), ElementsAre(0, 1, 0));
  const auto places = SpreadByWeight({90, 5, 3}, 200);
  std::vector<int> counts(3);
  for (const std::size_t place : places) ++counts[place];
  EXPECT_THAT(counts, ElementsAre(184, 10, 6));
}

TEST(Fleet, WritesHostsThatAnsibleReads) {
  const std::vector<InventoryHost> hosts = {
      {"bmc001", "[::1]:1", "admin", "clean"},
      {"bmc002", "127.0.0.1:2", "o'b\x1b#", "./a b.json"}};
  EXPECT_THAT(AnsibleInventory(hosts, /*as_yaml=*/true), HasSubstr(R"(
bmcs:
  hosts:
    bmc001:
      quorvane_bmc: "[::1]:1"
      quorvane_user: "admin"
      simulated_scenario: "clean"
    bmc002:
      quorvane_bmc: "127.0.0.1:2"
      quorvane_user: "o'b\u001b#"
      simulated_scenario: "./a b.json"
)"));
  // A value is a word of a shell; if it is quoted, a string of Python.
  EXPECT_THAT(AnsibleInventory(hosts, /*as_yaml=*/false), HasSubstr(R"(
[bmcs]
bmc001 quorvane_bmc='"[::1]:1"' quorvane_user=admin simulated_scenario=clean
bmc002 quorvane_bmc='"127.0.0.1:2"' quorvane_user='"o'"'"'b\u001b#"' )"));
}

class FleetProgram : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all(directory);
    std::filesystem::create_directory(directory);
    Write("busy.json", R"({"faults":[{"phase":"upload","status":503}]})");
    Write("weights", R"({"clean":2,"busy.json":1,"task-fails":0})");
  }
  void TearDown() override { std::filesystem::remove_all(directory); }

  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(directory / name) << text;
  }
  [[nodiscard]] std::string Read(const std::string& name) const {
    std::ifstream file(directory / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] SimulatorOptions Options() const {
    return {.fleet = 3,
            .scenarios = (directory / "weights").string(),
            .inventory_file = (directory / "hosts").string(),
            .account_directory = (directory / "accounts").string()};
  }
  // The message of a fleet that does not start.
  static std::string Rejection(const SimulatorOptions& options) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunSimulator(options), kUnusable);
    return testing::internal::GetCapturedStderr();
  }

  const std::filesystem::path directory =
      std::filesystem::temp_directory_path() /
      ("simulator-fleet-" + std::to_string(getpid()));
};

TEST_F(FleetProgram, GivesEachBmcItsScenarioAndAccount) {
  testing::internal::CaptureStdout();
  std::thread program([&] { EXPECT_EQ(RunSimulator(Options()), 0); });
  while (Read("hosts").empty()) std::this_thread::yield();
  const std::string inventory = Read("hosts");
  std::vector<std::string> addresses;
  for (std::size_t at = 0;
       (at = inventory.find("127.0.0.1", at)) != std::string::npos; ++at) {
    addresses.push_back(inventory.substr(at, inventory.find('"', at) - at));
  }
  std::vector<long> statuses;
  for (const std::string& address : addresses) {
    statuses.push_back(Request{"POST", kBinary, "image"}.Send(address).status);
  }
  pthread_kill(program.native_handle(), SIGTERM);
  program.join();
  EXPECT_THAT(statuses, ElementsAre(202, 503, 202));
  EXPECT_THAT(Read("accounts/bmc002.txt"),
              AllOf(StartsWith("Simulated BMC at https://" + addresses.at(1)),
                    HasSubstr("busy.json: "),
                    HasSubstr("\nPOST " + kBinary + " 503  fault\n")));
  EXPECT_THAT(Read("accounts/bmc003.txt"), HasSubstr("image of 5 bytes"));
  EXPECT_EQ(Read("hosts"), "") << "removed at the end";
  EXPECT_THAT(
      testing::internal::GetCapturedStdout(),
      AllOf(HasSubstr("  1 busy.json\n  2 clean\n"), Not(HasSubstr("POST"))));
}

TEST_F(FleetProgram, RejectsWeightsAndFilesOfOthers) {
  for (const auto& [weights, message] :
       std::vector<std::pair<const char*, const char*>>{
           {R"({"clean":0})", "no scenario has a positive weight"},
           {R"({"clean":-1})", "$.clean: must be an integer from 0"},
           {R"(["clean"])", "must be an object"},
           {R"({"none":1})", "built-in scenario \"none\""},
           {R"({"none.json":1})", "none.json\". Built-in scenarios"}}) {
    Write("weights", weights);
    EXPECT_THAT(Rejection(Options()), HasSubstr(message));
  }
  Write("weights", R"({"clean":1})");
  Write("hosts", "[production]\nserver1\n");
  EXPECT_THAT(Rejection(Options()), HasSubstr("Choose another inventory file"));
  EXPECT_EQ(Read("hosts"), "[production]\nserver1\n");
  std::filesystem::remove(directory / "hosts");
  std::filesystem::create_directory(directory / "accounts");
  std::filesystem::create_symlink(directory / "weights",
                                  directory / "accounts/bmc002.txt");
  EXPECT_THAT(Rejection(Options()), HasSubstr("another account directory"));
  EXPECT_EQ(Read("weights"), R"({"clean":1})");
}

}  // namespace
}  // namespace quorvane::simulator
