// SPDX-License-Identifier: Apache-2.0
// A BMC that misbehaves in every way at every stage. Each run ends, says so in
// its record, and the log tells why.
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using simulator::BmcResponse;
using simulator::Fault;
using testing::HasSubstr;
using testing::Lt;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* kInventory =
    "/redfish/v1/UpdateService/FirmwareInventory";
constexpr const char* kChassis = "/redfish/v1/Chassis";
constexpr const char* kUpload = "/redfish/v1/upload";
constexpr const char* kSimple = "/redfish/v1/simple";
constexpr const char* kTask = "/redfish/v1/TaskService/Tasks/7";
constexpr const char* kReset = "/redfish/v1/reset";

constexpr const char* kRules = R"({
  "retry_config": {"max_retries": 1, "backoff_strategy": "fixed"},
  "firmware_update": {
    "multipart_update": {"upload_uri": ["/redfish/v1/upload"],
                         "upload_rules": {"202": "track_task"}},
    "task_monitoring": {"max_polling_time_seconds": 60,
                        "task_states": {"Completed": "proceed_to_activation"}},
    "activation": {"activation_uri": ["/redfish/v1/simple"],
                   "activation_rules": {"200": "check_reboot",
                                        "202": "poll_task"}},
    "reboot": {"reboot_uri": ["/redfish/v1/reset"],
               "reboot_rules": {"202": "poll_task", "204": "success"}}}
})";

// Answers in plain text where TLS is expected.
class PlainServer {
 public:
  PlainServer() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, size) != 0 || listen(listener_, 64) != 0 ||
        getsockname(listener_, generic, &size) != 0) {
      ADD_FAILURE() << "no port for the plain server";
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
      while (true) {
        const int client = accept(listener_, nullptr, nullptr);
        if (client < 0) return;
        std::array<char, 4096> hello{};
        static_cast<void>(recv(client, hello.data(), hello.size(), 0));
        constexpr std::string_view kAnswer = "HTTP/1.1 200 OK\r\n\r\n{}";
        static_cast<void>(
            send(client, kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL));
        close(client);
      }
    });
  }
  ~PlainServer() {
    shutdown(listener_, SHUT_RDWR);  // wakes the accept
    thread_.join();
    close(listener_);
  }
  PlainServer(const PlainServer&) = delete;
  PlainServer& operator=(const PlainServer&) = delete;

  [[nodiscard]] std::string Address() const {
    return "127.0.0.1:" + std::to_string(port_);
  }

 private:
  int listener_;
  int port_ = 0;
  std::thread thread_;
};

// What an answer is worth to a stage.
enum class Worth { kNoAnswer, kUnreadable, kRefused };

struct Misdeed {
  const char* name;
  Worth worth;
  BmcResponse reply;        // status 0: the one that the stage hopes for
  const char* reason = "";  // libcurl's words, if there was no answer
};

struct Stage {
  const char* name;
  const char* method;
  std::string path;
  int good_status;
  const char* road;    // "inventory", "chassis", "local", "binary", "share" ...
  const char* failed;  // how a transfer's failure begins
  // How the run ends by the answer's worth, and what the log says of an
  // unreadable one.
  std::array<const char*, 3> ends;
  const char* told;
};

// Of its own, since /tmp is shared by all that runs here.
std::string ImageName() {
  return "quorvane-misdeeds-" + std::to_string(getpid()) + ".blx";
}

std::vector<Stage> Stages() {
  const std::string image = "/share/" + ImageName();
  const char* restarted = "accepted, restarted: Reboot successful";
  return {{"inventory",
           "GET",
           kInventory,
           200,
           "inventory",
           "GET failed: ",
           {"threw: GET failed: ", "0 named", "no inventory"},
           "Members[] is empty or missing"},
          {"member",
           "GET",
           "/m/1",
           200,
           "inventory",
           "GET failed: ",
           {"threw: GET failed: ", "0 named", "0 named"},
           "Total items fetched: "},
          {"chassis",
           "GET",
           kChassis,
           200,
           "chassis",
           "GET failed: ",
           {"no chassis", "no chassis", "no chassis"},
           "Chassis collection has no members"},
          {"chassis_member",
           "GET",
           "/c/1",
           200,
           "chassis",
           "GET failed: ",
           {"no chassis", "no chassis", "no chassis"},
           "No chassis member has required Manufacturer and Name fields"},
          // The binary upload stands in.
          {"multipart",
           "POST",
           kUpload,
           202,
           "local",
           "Multipart POST failed: ",
           {restarted, restarted, restarted},
           "Upload HTTP status: 202"},
          {"binary",
           "PUT",
           kUpload,
           202,
           "binary",
           "Binary file upload failed: ",
           {"refused: Binary upload failed: Binary file upload failed: ",
            restarted, "refused: Not now"},
           "Binary upload HTTP status: 202"},
          // Downloaded and uploaded instead.
          {"simple_update",
           "POST",
           kSimple,
           202,
           "share",
           "POST failed: ",
           {restarted, restarted, restarted},
           "SimpleUpdate HTTP status: 202"},
          {"download",
           "GET",
           image,
           200,
           "download",
           "GET failed: ",
           {"refused: SimpleUpdate not supported and image download failed",
            restarted,
            "refused: SimpleUpdate not supported and image download failed"},
           "Download complete: /tmp/"},
          // A task that cannot be watched does not keep the restart back.
          {"task",
           "GET",
           kTask,
           200,
           "local",
           "GET failed: ",
           {restarted, restarted, restarted},
           "Could not parse TaskState from response"},
          {"activation",
           "POST",
           kSimple,
           202,
           "local",
           "POST failed: ",
           {"accepted: Activation failed after trying all 1 URI(s)", restarted,
            "accepted: Activation failed after trying all 1 URI(s)"},
           "Activation HTTP status: 202"},
          {"reboot",
           "POST",
           kReset,
           202,
           "local",
           "POST failed: ",
           {"accepted: Reboot failed -- manual intervention required",
            "accepted, restarted: Task completed successfully",
            "accepted: Reboot failed -- manual intervention required"},
           "Reboot HTTP status: 202"}};
}

class MisbehavingBmc : public BmcTest {
 protected:
  MisbehavingBmc() : image(folder.Write("image.blx", "firmware")) {
    Rules(kRules);
  }

  void Behave(const std::string& road);
  UpdateRequest Request(const std::string& road) const;
  /// Goes the road and tells how it ended.
  std::string Go(const std::string& road);
  void ForgetLog() const {
    std::filesystem::resize_file(folder.path() + "/log", 0);
  }

  std::string image;
  std::string address = bmc.Address();
  std::string image_uri = Url("/share/" + ImageName());
  std::vector<std::string> share_targets;
  PlainServer plain;
};

void MisbehavingBmc::Behave(const std::string& road) {
  bmc.On("GET", kInventory)
      .Respond(200, R"({"Members":[{"@odata.id":"/m/1"}]})");
  bmc.On("GET", "/m/1").Respond(200, R"({"Name": "BMC"})");
  bmc.On("GET", kChassis).Respond(200, R"({"Members":[{"@odata.id":"/c/1"}]})");
  bmc.On("GET", "/c/1").Respond(200, R"({"Manufacturer":"M","Name":"N"})");
  bmc.On("POST", kUpload)
      .Respond(road == "binary" ? 405 : 202, TaskLink(kTask));
  bmc.On("PUT", kUpload).Respond(202, TaskLink(kTask));
  bmc.On("POST", kSimple).Respond(road == "download" ? 404 : 200);
  bmc.On("GET", "/share/" + ImageName()).Respond(200, "firmware");
  bmc.On("GET", kTask).Respond(200, Task("Completed", 100));
  bmc.On("POST", kReset).Respond(204);
}

UpdateRequest MisbehavingBmc::Request(const std::string& road) const {
  UpdateRequest request;
  request.bmc_ip = address;
  request.username = "admin";
  request.password = "s3cret";
  request.prefetched_inventory.resize(1);
  if (road == "share" || road == "download") {
    request.image_uri = image_uri;
    request.targets = share_targets;
  } else {
    request.local_file = image;
    request.targets = {"/a"};
  }
  return request;
}

std::string MisbehavingBmc::Go(const std::string& road) {
  const InventoryRequest whom{
      .ip = address, .username = "admin", .password = "s3cret"};
  try {
    if (road == "inventory") {
      std::vector<InventoryItem> items;
      if (!FetchInventory(whom, items)) return "no inventory";
      const auto named = std::count_if(
          items.begin(), items.end(),
          [](const InventoryItem& item) { return !item.Name.empty(); });
      return std::to_string(named) + " named";
    }
    if (road == "chassis") {
      ChassisInfo info;
      return FetchChassisInfo(whom, info) ? "chassis" : "no chassis";
    }
    const UpdateResponse result = PerformUpdate(Request(road));
    return std::string(result.accepted ? "accepted" : "refused") +
           (result.reboot_performed ? ", restarted: " : ": ") + result.message;
  } catch (const std::runtime_error& failure) {
    return std::string("threw: ") + failure.what();
  }
}

std::vector<Misdeed> Misdeeds() {
  const std::string wrong_types = R"({"@odata.id": 1, "Id": [], "Members":
    [5, {"@odata.id": {}}], "TaskState": 5, "PercentComplete": "many",
    "Messages": [{"MessageId": "Task.1", "MessageArgs": [7]}, null],
    "error": {"message": 3}, "Message": {}, "Name": 4, "Manufacturer": true,
    "Model": null, "RelatedItem": [[]]})";
  const std::string deep = std::string(200'000, '[');
  const std::string nested =
      R"({"Members": )" + std::string(900, '[') + std::string(900, ']') + "}";
  const simulator::HeaderList many(4000, {"X-Filler", std::string(100, 'x')});
  return {
      {"dropped",
       Worth::kNoAnswer,
       {.fault = Fault::kDrop},
       "Server returned nothing"},
      {"reset",
       Worth::kNoAnswer,
       {.fault = Fault::kReset},
       "Failure when receiving data"},
      {"cut_short",
       Worth::kNoAnswer,
       {.body = wrong_types, .fault = Fault::kCutShort},
       "Transferred a partial file"},
      {"no_http",
       Worth::kNoAnswer,
       {.fault = Fault::kNotHttp},
       "Unsupported protocol"},
      {"bad_chunks",
       Worth::kNoAnswer,
       {.body = "zz\r\nno length\r\n",
        .headers = {{"Transfer-Encoding", "chunked"}}},
       "Failure when receiving data"},
      {"endless_header_line",
       Worth::kNoAnswer,
       {.headers = {{"X-Filler", std::string(400'000, 'x')}}},
       "Out of memory"},  // of the room that libcurl gives to one line
      {"endless_header",
       Worth::kNoAnswer,
       {.headers = many},
       "Failure when receiving data"},
      {"compressed_transfer",
       Worth::kNoAnswer,
       {.headers = {{"Transfer-Encoding", "gzip, chunked"}}},
       "Failed writing received data"},
      {"redirect_circle",
       Worth::kNoAnswer,
       {.status = 307, .headers = {{"Location", "?again"}}},
       "Number of redirects hit maximum amount"},
      {"plain_text_for_tls",
       Worth::kNoAnswer,
       {.status = 307},
       "SSL connect error"},
      {"storm_of_503",
       Worth::kRefused,
       {.status = 503, .body = R"({"error": {"message": "Not now"}})"}},
      {"garbage",
       Worth::kUnreadable,
       {.status = 0, .body = "x", .fault = Fault::kGarbage}},
      {"too_deep", Worth::kUnreadable, {.status = 0, .body = deep}},
      {"nested", Worth::kUnreadable, {.status = 0, .body = nested}},
      {"wrong_types", Worth::kUnreadable, {.status = 0, .body = wrong_types}},
      {"20_MiB",
       Worth::kUnreadable,
       {.status = 0,
        .body = "{\"x\": \"" + std::string(20U << 20U, 'y') + "\"}"}},
  };
}

void PrintTo(const Misdeed& misdeed, std::ostream* out) {
  *out << misdeed.name;
}

class EveryStage : public MisbehavingBmc,
                   public testing::WithParamInterface<Misdeed> {};

TEST_P(EveryStage, EndsAndIsTold) {
  const Misdeed& misdeed = GetParam();
  for (const Stage& stage : Stages()) {
    SCOPED_TRACE(stage.name);
    Behave(stage.road);
    BmcResponse reply = misdeed.reply;
    if (reply.status == 0) reply.status = stage.good_status;
    if (std::string(misdeed.name) == "plain_text_for_tls") {
      reply.headers = {{"Location", "https://" + plain.Address() + "/"}};
    }
    bmc.On(stage.method, stage.path).Respond(reply);
    ForgetLog();
    const std::string end = Go(stage.road);
    EXPECT_THAT(
        end,
        StartsWith(stage.ends.at(static_cast<std::size_t>(misdeed.worth))));
    const std::string log = LogText();
    if (misdeed.worth == Worth::kNoAnswer) {
      EXPECT_THAT(log, HasSubstr(std::string("[ERROR  ] [http] ") +
                                 stage.failed + misdeed.reason));
    } else if (misdeed.worth == Worth::kUnreadable) {
      EXPECT_THAT(log, HasSubstr(stage.told));
    } else {
      EXPECT_THAT(log, HasSubstr("-> HTTP 503"));
    }
    EXPECT_FALSE(log.find("s3cret") != std::string::npos);
    EXPECT_FALSE(std::filesystem::exists("/tmp/" + ImageName()));
  }
  EXPECT_THAT(Waits(), SizeIs(Lt(60)));
}

INSTANTIATE_TEST_SUITE_P(Misdeeds, EveryStage, testing::ValuesIn(Misdeeds()),
                         [](const auto& row) {
                           return "by_" + std::string(row.param.name);
                         });

// Line breaks and control characters in whatever text a BMC may send. None of
// them reaches the wire, and the record escapes them (RFC 8259, section 7).
TEST_F(MisbehavingBmc, HostileTexts) {
  constexpr const char* kEvil = R"(\r\nX-Evil: 1\r\n\r\n\u001b[2J\u0007)";
  const auto link = [&](const std::string& path) {
    return R"({"@odata.id": ")" + path + kEvil + R"(", "Id": ")" + kEvil +
           R"(", "TaskState": "Run)" + kEvil + R"(", "error": {"message": ")" +
           kEvil + R"("}, "Manufacturer": "M)" + kEvil + R"(", "Name": "N)" +
           kEvil + R"(", "Members": [{"@odata.id": ")" + path + kEvil +
           R"("}]})";
  };
  struct Row {
    const char *road, *method, *path;
    int status;
    const char* end;
  };
  const std::vector<Row> rows = {
      {"inventory", "GET", kInventory, 200,
       "threw: GET failed: URL using bad/illegal format or missing URL"},
      {"inventory", "GET", "/m/1", 200, "1 named"},
      {"chassis", "GET", kChassis, 200, "no chassis"},
      {"chassis", "GET", "/c/1", 200, "chassis"},
      {"local", "POST", kUpload, 202, "accepted, restarted: Reboot"},
      {"binary", "PUT", kUpload, 503, "refused: \r\nX-Evil: 1"},
      {"share", "POST", kSimple, 202, "accepted: Task polling timed out"},
      {"local", "GET", kTask, 200, "accepted, restarted: Reboot"},
      {"local", "POST", kSimple, 202, "accepted: Task polling timed out"},
      {"local", "POST", kReset, 202,
       "accepted, restarted: Task polling timed out"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.method << ' ' << row.path);
    Behave(row.road);
    bmc.On(row.method, row.path).Respond(row.status, link("/x"));
    bmc.ClearRequests();
    EXPECT_THAT(Go(row.road), StartsWith(row.end));
    for (const auto& request : bmc.Requests()) {
      EXPECT_EQ(Header(request, "X-Evil"), "");
      EXPECT_THAT(request.path, Not(HasSubstr("vil")));
    }
  }
  UpdateResponse record;
  record.message = "a\r\n\x1b";
  EXPECT_THAT(UpdateResponseToJson(record), HasSubstr(R"("a\r\n\u001b")"));
}

constexpr const char* kRulesWithSecrets =
    R"({"retry_config": {"max_retries": 1}, "firmware_update": {
  "inventory_uri": ["/bad?sig=h1dden", "/inventory?sig=h1dden"],
  "multipart_update": {
    "upload_uri": ["/bad?sig=h1dden", "/redfish/v1/upload?sig=h1dden"],
    "upload_rules": {"202": "track_task"}},
  "task_monitoring": {"task_states": {"Completed": "proceed_to_activation"}},
  "activation": {
    "activation_uri": ["/bad?sig=h1dden", "/redfish/v1/simple?sig=h1dden"],
    "activation_rules": {"202": "poll_task"}},
  "reboot": {
    "reboot_uri": ["/bad?sig=h1dden", "/redfish/v1/reset?sig=h1dden"],
    "reboot_rules": {"202": "poll_task", "503": "retry_reboot"}}}})";

// What the lines hold in front of a URI, or of a part of one.
const std::vector<const char*> kLinesWithUris = {
    "Target IP  : ",
    "Inv URIs   : [",
    "GET collection: ",
    "URI failed: ",
    "(used URI: ",
    "GET member failed: ",
    "Failed to parse member JSON for ",
    "  URI         : ",
    "  TargetId    : ",
    "GET chassis collection: ",
    "GET chassis member: ",
    "Failed to parse chassis member JSON for ",
    "chassis info in member: ",
    "Trying upload URI: ",
    "Upload URI exhausted retries: ",
    "Trying binary upload URI: ",
    "Binary upload URI exhausted retries: ",
    "Trying SimpleUpdate URI: ",
    "\"ImageURI\":",
    "\"Targets\":",
    "SimpleUpdate URI failed: ",
    "SimpleUpdate URI exhausted retries: ",
    "Downloading from: ",
    "Task URI from Location header: ",
    "Task URI: ",
    "Task ID : ",
    "[RF-UPDATE] Task created: ",
    "Polling task: ",
    "[RF-TASK] Task ID: ",
    "Trying activation URI: ",
    "Activation URI exhausted retries: ",
    "Activation task: ",
    "Trying reboot URI: ",
    "Reboot URI exhausted retries: ",
    "Reboot URI failed: ",
    "Reboot task: ",
    "Task URI        : ",
    "Task ID         : ",
    " url=",
    "[http] GET ",
    "[http] POST ",
    "[http] MULTIPART POST ",
    "[http] BINARY FILE UPLOAD "};

std::string LinkTo(const std::string& uri) {
  return R"({"@odata.id": ")" + uri + R"("})";
}

class SecretsInUris : public MisbehavingBmc {
 protected:
  SecretsInUris() {
    Rules(kRulesWithSecrets);
    address = "admin:h1dden@" + address;
    image_uri = WithSecrets("/share/" + ImageName());
    share_targets = {"/target?sig=h1dden"};
  }

  std::string WithSecrets(const std::string& path) const {
    return "https://u:h1dden@" + bmc.Address() + path + "?sig=h1dden";
  }

  void BehaveWithSecrets(const std::string& road) {
    Behave(road);
    bmc.On("GET", "/inventory")
        .Respond(200, R"({"Members": [)" + LinkTo(WithSecrets("/m/1")) + "," +
                          LinkTo("/m/2?sig=h1dden") + "," +
                          LinkTo("/m/3?sig=h1dden") + "]}");
    bmc.On("GET", "/m/1")
        .Respond(200,
                 R"({"RelatedItem": [)" + LinkTo(WithSecrets("/r")) + "]}");
    bmc.On("GET", "/m/2").Respond(404);
    bmc.On("GET", "/m/3").Respond(200, "<html>");
    bmc.On("GET", kChassis)
        .Respond(200, R"({"Members": [)" + LinkTo("/c/2?sig=h1dden") + "," +
                          LinkTo("/c/1?sig=h1dden") + "]}");
    bmc.On("GET", "/c/2").Respond(200, "<html>");
    const simulator::HeaderList location = {{"Location", WithSecrets(kTask)}};
    const std::string link = LinkTo(WithSecrets(kTask));
    if (road != "binary") bmc.On("POST", kUpload).Respond(202, "", location);
    bmc.On("PUT", kUpload).Respond(202, "", location);
    if (road != "download") bmc.On("POST", kSimple).Respond(202, link);
    bmc.On("POST", kReset).Respond(202, link);
  }
};

// Of the rules, of the request, of the BMC's links.
TEST_F(SecretsInUris, StayOutOfEveryLine) {
  for (const BmcResponse& bad : std::vector<BmcResponse>{
           {.status = 404}, {.status = 503}, {.fault = Fault::kDrop}}) {
    for (const char* method : {"GET", "POST", "PUT"}) {
      bmc.On(method, "/bad").Respond(bad);
    }
    for (const char* road :
         {"inventory", "chassis", "local", "binary", "share", "download"}) {
      BehaveWithSecrets(road);
      EXPECT_THAT(Go(road), Not(StartsWith("threw")));
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("h1dden")));
  for (const char* line : kLinesWithUris) {
    EXPECT_THAT(Log(), testing::Contains(testing::AllOf(
                           HasSubstr(line), HasSubstr("<REDACTED>"))));
  }
}

struct HangUp {
  const char* name;
  BmcResponse reply;
  long http_status;  // of the record
  const char* message;
};

void PrintTo(const HangUp& row, std::ostream* out) { *out << row.name; }

// The BMC ends the connection while the image is on its way: each time, or
// once, after which the file is sent again from its start.
class MisbehavingUpload : public LibraryTest,
                          public testing::WithParamInterface<HangUp> {};

TEST_P(MisbehavingUpload, HangsUpInTheMiddle) {
  constexpr std::size_t kSize = 4U << 20U;
  Rules(R"({"retry_config": {"max_retries": 1}, "firmware_update": {
    "multipart_update": {
      "upload_uri": "/redfish/v1/UpdateService/update-multipart",
      "upload_rules": {"202": "track_task", "413": "split_and_retry"}},
    "task_monitoring": {"task_states": {"Completed": "proceed_to_activation"}},
    "reboot": {"reboot_required": false}}})");
  UpdateRequest request;
  request.username = "admin";
  request.password = "password";
  request.local_file = folder.Write("image.blx", std::string(kSize, 'i'));
  request.prefetched_inventory.resize(1);
  for (const int strikes : {0, 1}) {
    const simulator::SimulatedBmc bmc(
        {.faults = {{.phase = "upload",
                     .first = strikes,
                     .before_body = true,
                     .response = GetParam().reply}}});
    request.bmc_ip = bmc.Address();
    const UpdateResponse result = PerformUpdate(request);
    EXPECT_EQ(result.accepted, strikes == 1) << LogText();
    EXPECT_EQ(bmc.StoredImageSize(), strikes == 1 ? kSize : 0);
    if (strikes == 1) continue;
    EXPECT_EQ(result.http_status, GetParam().http_status);
    EXPECT_THAT(result.message, StartsWith(GetParam().message));
  }
}

INSTANTIATE_TEST_SUITE_P(
    HangUps, MisbehavingUpload,
    testing::Values(
        HangUp{"without_a_word", {.fault = Fault::kDrop}, 0, "Binary upload f"},
        HangUp{"reset", {.fault = Fault::kReset}, 0, "Binary upload failed: "},
        HangUp{"too_large", {.status = 413, .body = "{}"}, 413, "Payload too"},
        HangUp{"busy", {.status = 503, .body = Error("Busy")}, 503, "Busy"}),
    [](const auto& row) { return row.param.name; });

thread_local bool clock_jumps = false;

// The task never ends, and the clock of the host is set to and fro meanwhile:
// polls are counted, not timed.
TEST_F(MisbehavingBmc, EndlessTaskWhileTheClockJumps) {
  Behave("local");
  bmc.On("GET", kTask).Respond(200, Task("Running", 40));
  for (const bool jumps : {false, true}) {
    ForgetLog();
    bmc.ClearRequests();
    clock_jumps = jumps;
    const std::string end = Go("local");
    clock_jumps = false;
    EXPECT_EQ(end, "accepted, restarted: Reboot successful");
    EXPECT_THAT(Log("update"), testing::Contains("[RF-TASK] Polling task "
                                                 "(attempt 2/2)"));
    EXPECT_THAT(bmc.Requests(), SizeIs(5));
  }
  EXPECT_THAT(Waits(), testing::ElementsAre(30, 30, 30, 30));
}

}  // namespace
}  // namespace quorvane::test

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  using ClockGettime = int (*)(clockid_t, timespec*);
  static const auto real =
      reinterpret_cast<ClockGettime>(dlsym(RTLD_NEXT, "clock_gettime"));
  constexpr time_t kDay = 24 * 60 * 60;
  static time_t jump = kDay;
  const int result = real(clock, now);
  if (quorvane::test::clock_jumps && clock == CLOCK_REALTIME) {
    now->tv_sec += jump;
    jump = -jump;
  }
  return result;
}
