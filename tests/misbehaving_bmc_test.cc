// SPDX-License-Identifier: Apache-2.0
// A BMC that misbehaves in every way at every stage. Each run ends, its result
// shows the failure, and the log contains the cause.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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

// Responds in plain text instead of TLS.
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
      ADD_FAILURE() << "cannot start the plain server";
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
      while (true) {
        const int client = accept(listener_, nullptr, nullptr);
        if (client < 0) return;
        std::array<char, 4096> hello{};
        static_cast<void>(recv(client, hello.data(), hello.size(), 0));
        constexpr std::string_view kResponse = "HTTP/1.1 200 OK\r\n\r\n{}";
        static_cast<void>(
            send(client, kResponse.data(), kResponse.size(), MSG_NOSIGNAL));
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

// The effect of a fault on a stage.
enum class Effect { kNoResponse, kUnreadable, kErrorStatus };

struct FaultCase {
  const char* name;
  Effect effect;
  BmcResponse reply;        // status 0: the success status of the stage
  const char* reason = "";  // the reason of libcurl, without a response
};

struct Stage {
  const char* name;
  const char* method = "GET";
  std::string path;
  int success_status = 200;
  const char* flow;  // "inventory", "chassis", "local", "binary", "share" ...
  const char* failure = "GET failed: ";  // of libcurl, without a response
  std::array<const char*, 3> outcomes;   // by Effect
  const char* log_line;                  // for an unreadable response
};

// A unique name, because other programs also use /tmp.
std::string ImageName() {
  return "quorvane-misbehaving-" + std::to_string(getpid()) + ".blx";
}

std::vector<Stage> Stages() {
  const std::string image = "/share/" + ImageName();
  const char* rebooted = "accepted, rebooted: Reboot successful";
  const char* no_activation =
      "accepted: Activation failed after trying all 1 URI(s)";
  const char* no_reboot =
      "accepted: Reboot failed -- manual intervention required";
  const char* no_download =
      "rejected: SimpleUpdate not supported and image download failed";
  return {{.name = "inventory",
           .path = kInventory,
           .flow = "inventory",
           .outcomes = {"threw: GET failed: ", "0 named", "no inventory"},
           .log_line = "Members[] is empty or missing"},
          {.name = "member",
           .path = "/m/1",
           .flow = "inventory",
           .outcomes = {"threw: GET failed: ", "0 named", "0 named"},
           .log_line = "Total items fetched: "},
          {.name = "chassis",
           .path = kChassis,
           .flow = "chassis",
           .outcomes = {"no chassis", "no chassis", "no chassis"},
           .log_line = "Chassis collection has no members"},
          {.name = "chassis_member",
           .path = "/c/1",
           .flow = "chassis",
           .outcomes = {"no chassis", "no chassis", "no chassis"},
           .log_line = "No chassis member has required Manufacturer and Name "
                       "fields"},
          // A binary upload follows.
          {.name = "multipart",
           .method = "POST",
           .path = kUpload,
           .success_status = 202,
           .flow = "local",
           .failure = "Multipart POST failed: ",
           .outcomes = {rebooted, rebooted, rebooted},
           .log_line = "Upload HTTP status: 202"},
          {.name = "binary",
           .method = "PUT",
           .path = kUpload,
           .success_status = 202,
           .flow = "binary",
           .failure = "Binary file upload failed: ",
           .outcomes = {"rejected: Binary upload failed: Binary file upload "
                        "failed: ",
                        rebooted, "rejected: Not now"},
           .log_line = "Binary upload HTTP status: 202"},
          // A download and an upload follow.
          {.name = "simple_update",
           .method = "POST",
           .path = kSimple,
           .success_status = 202,
           .flow = "share",
           .failure = "POST failed: ",
           .outcomes = {rebooted, rebooted, rebooted},
           .log_line = "SimpleUpdate HTTP status: 202"},
          {.name = "download",
           .path = image,
           .flow = "download",
           .outcomes = {no_download, rebooted, no_download},
           .log_line = "Download complete: /tmp/"},
          // A task that cannot be polled does not prevent the reboot.
          {.name = "task",
           .path = kTask,
           .flow = "local",
           .outcomes = {rebooted, rebooted, rebooted},
           .log_line = "Could not parse TaskState from response"},
          {.name = "activation",
           .method = "POST",
           .path = kSimple,
           .success_status = 202,
           .flow = "local",
           .failure = "POST failed: ",
           .outcomes = {no_activation, rebooted, no_activation},
           .log_line = "Activation HTTP status: 202"},
          {.name = "reboot",
           .method = "POST",
           .path = kReset,
           .success_status = 202,
           .flow = "local",
           .failure = "POST failed: ",
           .outcomes = {no_reboot,
                        "accepted, rebooted: Task completed successfully",
                        no_reboot},
           .log_line = "Reboot HTTP status: 202"}};
}

class MisbehavingBmc : public BmcTest {
 protected:
  MisbehavingBmc() : image(directory.Write("image.blx", "firmware")) {
    WriteRules(kRules);
  }

  void SetResponses(const std::string& flow);
  UpdateRequest Request(const std::string& flow) const;
  /// Runs the flow and returns its outcome.
  std::string Run(const std::string& flow);
  void ClearLog() const {
    std::filesystem::resize_file(directory.path() + "/log", 0);
  }

  std::string image;
  std::string address = bmc.Address();
  std::string image_uri = Url("/share/" + ImageName());
  std::vector<std::string> share_targets;
  PlainServer plain;
};

void MisbehavingBmc::SetResponses(const std::string& flow) {
  bmc.On("GET", kInventory)
      .Respond(200, R"({"Members":[{"@odata.id":"/m/1"}]})");
  bmc.On("GET", "/m/1").Respond(200, R"({"Name": "BMC"})");
  bmc.On("GET", kChassis).Respond(200, R"({"Members":[{"@odata.id":"/c/1"}]})");
  bmc.On("GET", "/c/1").Respond(200, R"({"Manufacturer":"M","Name":"N"})");
  bmc.On("POST", kUpload)
      .Respond(flow == "binary" ? 405 : 202, TaskLink(kTask));
  bmc.On("PUT", kUpload).Respond(202, TaskLink(kTask));
  bmc.On("POST", kSimple).Respond(flow == "download" ? 404 : 200);
  bmc.On("GET", "/share/" + ImageName()).Respond(200, "firmware");
  bmc.On("GET", kTask).Respond(200, Task("Completed", 100));
  bmc.On("POST", kReset).Respond(204);
}

UpdateRequest MisbehavingBmc::Request(const std::string& flow) const {
  UpdateRequest request;
  request.bmc_ip = address;
  request.username = "admin";
  request.password = "s3cret";
  request.prefetched_inventory.resize(1);
  if (flow == "share" || flow == "download") {
    request.image_uri = image_uri;
    request.targets = share_targets;
  } else {
    request.local_file = image;
    request.targets = {"/a"};
  }
  return request;
}

std::string MisbehavingBmc::Run(const std::string& flow) {
  const InventoryRequest request{
      .ip = address, .username = "admin", .password = "s3cret"};
  try {
    if (flow == "inventory") {
      std::vector<InventoryItem> items;
      if (!FetchInventory(request, items)) return "no inventory";
      const auto named = std::count_if(
          items.begin(), items.end(),
          [](const InventoryItem& item) { return !item.Name.empty(); });
      return std::to_string(named) + " named";
    }
    if (flow == "chassis") {
      ChassisInfo info;
      return FetchChassisInfo(request, info) ? "chassis" : "no chassis";
    }
    const UpdateResponse result = PerformUpdate(Request(flow));
    return std::string(result.accepted ? "accepted" : "rejected") +
           (result.reboot_performed ? ", rebooted: " : ": ") + result.message;
  } catch (const std::runtime_error& failure) {
    return std::string("threw: ") + failure.what();
  }
}

std::vector<FaultCase> FaultCases() {
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
       Effect::kNoResponse,
       {.fault = Fault::kDrop},
       "Server returned nothing"},
      {"reset",
       Effect::kNoResponse,
       {.fault = Fault::kReset},
       "Failure when receiving data"},
      {"cut_short",
       Effect::kNoResponse,
       {.body = wrong_types, .fault = Fault::kCutShort},
       "Transferred a partial file"},
      {"not_http",
       Effect::kNoResponse,
       {.fault = Fault::kNotHttp},
       "Unsupported protocol"},
      {"bad_chunks",
       Effect::kNoResponse,
       {.body = "zz\r\nno length\r\n",
        .headers = {{"Transfer-Encoding", "chunked"}}},
       "Failure when receiving data"},
      {"endless_header_line",
       Effect::kNoResponse,
       {.headers = {{"X-Filler", std::string(400'000, 'x')}}},
       "Out of memory"},  // the line limit of libcurl
      {"endless_header",
       Effect::kNoResponse,
       {.headers = many},
       "Failure when receiving data"},
      {"compressed_transfer",
       Effect::kNoResponse,
       {.headers = {{"Transfer-Encoding", "gzip, chunked"}}},
       "Failed writing received data"},
      {"redirect_loop",
       Effect::kNoResponse,
       {.status = 307, .headers = {{"Location", "?again"}}},
       "Number of redirects hit maximum amount"},
      {"plain_text_for_tls",
       Effect::kNoResponse,
       {.status = 307},
       "SSL connect error"},
      {"always_503",
       Effect::kErrorStatus,
       {.status = 503, .body = R"({"error": {"message": "Not now"}})"}},
      {"garbage",
       Effect::kUnreadable,
       {.status = 0, .body = "x", .fault = Fault::kGarbage}},
      {"too_deep", Effect::kUnreadable, {.status = 0, .body = deep}},
      {"nested", Effect::kUnreadable, {.status = 0, .body = nested}},
      {"wrong_types", Effect::kUnreadable, {.status = 0, .body = wrong_types}},
      {"20_MiB",
       Effect::kUnreadable,
       {.status = 0,
        .body = "{\"x\": \"" + std::string(20U << 20U, 'y') + "\"}"}},
  };
}

void PrintTo(const FaultCase& fault, std::ostream* out) { *out << fault.name; }

class EveryStage : public MisbehavingBmc,
                   public testing::WithParamInterface<FaultCase> {};

TEST_P(EveryStage, EndsAndLogsCause) {
  const FaultCase& fault = GetParam();
  for (const Stage& stage : Stages()) {
    SCOPED_TRACE(stage.name);
    SetResponses(stage.flow);
    BmcResponse reply = fault.reply;
    if (reply.status == 0) reply.status = stage.success_status;
    if (std::string(fault.name) == "plain_text_for_tls") {
      reply.headers = {{"Location", "https://" + plain.Address() + "/"}};
    }
    bmc.On(stage.method, stage.path).Respond(reply);
    ClearLog();
    const std::string outcome = Run(stage.flow);
    EXPECT_THAT(
        outcome,
        StartsWith(stage.outcomes.at(static_cast<std::size_t>(fault.effect))));
    const std::string log = LogText();
    if (fault.effect == Effect::kNoResponse) {
      EXPECT_THAT(log, HasSubstr(std::string("[ERROR  ] [http] ") +
                                 stage.failure + fault.reason));
    } else if (fault.effect == Effect::kUnreadable) {
      EXPECT_THAT(log, HasSubstr(stage.log_line));
    } else {
      EXPECT_THAT(log, HasSubstr("-> HTTP 503"));
    }
    EXPECT_FALSE(log.find("s3cret") != std::string::npos);
    EXPECT_FALSE(std::filesystem::exists("/tmp/" + ImageName()));
  }
  EXPECT_THAT(Waits(), SizeIs(Lt(60)));
}

INSTANTIATE_TEST_SUITE_P(Faults, EveryStage, testing::ValuesIn(FaultCases()),
                         [](const auto& row) {
                           return "by_" + std::string(row.param.name);
                         });

// Line breaks and control characters in all texts of a BMC. None of them is
// sent, and the result escapes them (RFC 8259, section 7).
TEST_F(MisbehavingBmc, SendsControlCharacters) {
  constexpr const char* kEvil = R"(\r\nX-Evil: 1\r\n\r\n\u001b[2J\u0007)";
  const auto link = [&](const std::string& path) {
    return R"({"@odata.id": ")" + path + kEvil + R"(", "Id": ")" + kEvil +
           R"(", "TaskState": "Run)" + kEvil + R"(", "error": {"message": ")" +
           kEvil + R"("}, "Manufacturer": "M)" + kEvil + R"(", "Name": "N)" +
           kEvil + R"(", "Members": [{"@odata.id": ")" + path + kEvil +
           R"("}]})";
  };
  struct Row {
    const char *flow, *method, *path;
    int status;
    const char* outcome;
  };
  const std::vector<Row> rows = {
      {"inventory", "GET", kInventory, 200,
       "threw: GET failed: URL using bad/illegal format or missing URL"},
      {"inventory", "GET", "/m/1", 200, "1 named"},
      {"chassis", "GET", kChassis, 200, "no chassis"},
      {"chassis", "GET", "/c/1", 200, "chassis"},
      {"local", "POST", kUpload, 202, "accepted, rebooted: Reboot"},
      {"binary", "PUT", kUpload, 503, "rejected: \r\nX-Evil: 1"},
      {"share", "POST", kSimple, 202, "accepted: Task polling timed out"},
      {"local", "GET", kTask, 200, "accepted, rebooted: Reboot"},
      {"local", "POST", kSimple, 202, "accepted: Task polling timed out"},
      {"local", "POST", kReset, 202,
       "accepted, rebooted: Task polling timed out"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.method << ' ' << row.path);
    SetResponses(row.flow);
    bmc.On(row.method, row.path).Respond(row.status, link("/x"));
    bmc.ClearRequests();
    EXPECT_THAT(Run(row.flow), StartsWith(row.outcome));
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

// The text before a URI, or before a part of one, in the log.
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
    WriteRules(kRulesWithSecrets);
    address = "admin:h1dden@" + address;
    image_uri = WithSecrets("/share/" + ImageName());
    share_targets = {"/target?sig=h1dden"};
  }

  std::string WithSecrets(const std::string& path) const {
    return "https://u:h1dden@" + bmc.Address() + path + "?sig=h1dden";
  }

  void SetResponsesWithSecrets(const std::string& flow) {
    SetResponses(flow);
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
    if (flow != "binary") bmc.On("POST", kUpload).Respond(202, "", location);
    bmc.On("PUT", kUpload).Respond(202, "", location);
    if (flow != "download") bmc.On("POST", kSimple).Respond(202, link);
    bmc.On("POST", kReset).Respond(202, link);
  }
};

// Secrets in the rules, in the request, and in links of the BMC.
TEST_F(SecretsInUris, AreRedactedInEveryLine) {
  for (const BmcResponse& bad : std::vector<BmcResponse>{
           {.status = 404}, {.status = 503}, {.fault = Fault::kDrop}}) {
    for (const char* method : {"GET", "POST", "PUT"}) {
      bmc.On(method, "/bad").Respond(bad);
    }
    for (const char* flow :
         {"inventory", "chassis", "local", "binary", "share", "download"}) {
      SetResponsesWithSecrets(flow);
      EXPECT_THAT(Run(flow), Not(StartsWith("threw")));
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("h1dden")));
  for (const char* line : kLinesWithUris) {
    EXPECT_THAT(Log(), testing::Contains(testing::AllOf(
                           HasSubstr(line), HasSubstr("<REDACTED>"))));
  }
}

struct DisconnectCase {
  const char* name;
  BmcResponse reply;
  long http_status;  // of the result
  const char* message;
};

void PrintTo(const DisconnectCase& row, std::ostream* out) { *out << row.name; }

// The BMC closes the connection during the upload: each time, or once. Then the
// library sends the file again from its start.
class MisbehavingUpload : public LibraryTest,
                          public testing::WithParamInterface<DisconnectCase> {};

TEST_P(MisbehavingUpload, RecoversFromOneDisconnect) {
  constexpr std::size_t kSize = 4U << 20U;
  WriteRules(R"({"retry_config": {"max_retries": 1}, "firmware_update": {
    "multipart_update": {
      "upload_uri": "/redfish/v1/UpdateService/update-multipart",
      "upload_rules": {"202": "track_task", "413": "split_and_retry"}},
    "task_monitoring": {"task_states": {"Completed": "proceed_to_activation"}},
    "reboot": {"reboot_required": false}}})");
  UpdateRequest request;
  request.username = "admin";
  request.password = "password";
  request.local_file = directory.Write("image.blx", std::string(kSize, 'i'));
  request.prefetched_inventory.resize(1);
  for (const int fault_count : {0, 1}) {
    const simulator::SimulatedBmc bmc(
        {.faults = {{.phase = "upload",
                     .first = fault_count,
                     .before_body = true,
                     .response = GetParam().reply}}});
    request.bmc_ip = bmc.Address();
    const UpdateResponse result = PerformUpdate(request);
    EXPECT_EQ(result.accepted, fault_count == 1) << LogText();
    EXPECT_EQ(bmc.StoredImageSize(), fault_count == 1 ? kSize : 0);
    if (fault_count == 1) continue;
    EXPECT_EQ(result.http_status, GetParam().http_status);
    EXPECT_THAT(result.message, StartsWith(GetParam().message));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Disconnects, MisbehavingUpload,
    testing::Values(
        DisconnectCase{
            "dropped", {.fault = Fault::kDrop}, 0, "Binary upload f"},
        DisconnectCase{
            "reset", {.fault = Fault::kReset}, 0, "Binary upload failed: "},
        DisconnectCase{
            "too_large", {.status = 413, .body = "{}"}, 413, "Payload too"},
        DisconnectCase{
            "busy", {.status = 503, .body = Error("Busy")}, 503, "Busy"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace quorvane::test
