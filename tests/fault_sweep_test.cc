// SPDX-License-Identifier: Apache-2.0
// Every allocation and every call that can fail fails once, and then for good:
// the n-th, n = 1, 2, 3 ..., until a run meets no fault. Whatever fails, the
// library throws or tells; it never crashes, hangs, leaks, loses a task, sends
// half a request or gives a password away.
//
// By default a sample is run: of each sweep the first few, and some fifty more
// spread over the rest. QUORVANE_SWEEP_ALL=1 in the environment runs every one,
// which takes a minute or two.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/fault_injection.h"
#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr std::size_t kFirst = 12;    // of which each is run
constexpr std::size_t kSamples = 48;  // of the rest

constexpr const char* kUpload = "/redfish/v1/upload";
constexpr const char* kSimple = "/redfish/v1/simple";
constexpr const char* kReset = "/redfish/v1/reset";
constexpr const char* kTask = "/redfish/v1/TaskService/Tasks/7";
constexpr const char* kInventory =
    "/redfish/v1/UpdateService/FirmwareInventory";

constexpr const char* kRules = R"({
  "retry_config": {"max_retries": 1, "backoff_strategy": "fixed"},
  "firmware_update": {
    "multipart_update": {"upload_uri": ["/redfish/v1/upload"],
                         "upload_rules": {"202": "track_task"}},
    "task_monitoring": {"max_polling_time_seconds": 120,
                        "task_states": {"Completed": "proceed_to_activation"}},
    "activation": {"activation_uri": ["/redfish/v1/simple"],
                   "activation_rules": {"200": "check_reboot",
                                        "202": "poll_task"}},
    "reboot": {"reboot_uri": ["/redfish/v1/reset"],
               "reboot_rules": {"204": "success"}}},
  "chassis_name_mappings": [{"source_pattern": "chassis",
                             "normalized_name": "Rack", "check_model": true,
                             "model_pattern": "example"}]
})";

// "s3cret" of the BMC, also as it travels, and what opens the share.
constexpr std::array<const char*, 4> kSecrets = {"s3cret", "YWRtaW46czNjcmV0",
                                                 "sh4re", "h1dden"};

// Told when a fault kills the program, or hangs it, which no assertion could.
std::array<char, 128> current_run;

constexpr std::array<int, 5> kFatal = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE,
                                       SIGALRM};
constexpr unsigned kHangSeconds = 90;  // longer than the BMC's own patience

void TellCurrentRun(int signal_number) {
  static_cast<void>(
      !::write(STDOUT_FILENO, current_run.data(),
               std::char_traits<char>::length(current_run.data())));
  std::signal(signal_number, SIG_DFL);
  std::raise(signal_number);
}

const char* Name(CallKind kind) {
  switch (kind) {
    case CallKind::kMemory:
      return "memory";
    case CallKind::kFiles:
      return "files";
    case CallKind::kNetwork:
      return "network";
  }
  return "";
}

// A request as it can be compared with another one: all but the boundary of a
// form, which libcurl draws by lot.
std::string Told(const simulator::RecordedRequest& request) {
  std::string told =
      request.method + " " + request.path + "?" + request.query + "\n";
  for (const auto& [name, value] : request.headers) {
    told += name + ": " + value.substr(0, value.find("boundary=")) + "\n";
  }
  for (const auto& part : request.parts) {
    told += part.name + "|" + part.filename + "|" + part.content_type + "|" +
            part.content + "\n";
  }
  return told + (request.parts.empty() ? request.body : "");
}

std::ptrdiff_t OpenDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"),
                       fs::directory_iterator());
}

// How the BMC behaves.
struct Manner {
  bool takes_simple_update = true;
  bool takes_forms = true;
};

// What a run leaves in the caller's hands.
struct Record {
  std::optional<UpdateResponse> update;
  std::optional<std::vector<InventoryItem>> items;
  bool saved = false;
};

class LoggerOfThread {
 public:
  LoggerOfThread(const std::string& path, bool skip_checks)
      : logger_(path, LogLevel::DEBUG, false, skip_checks) {
    SetThreadLogger(&logger_);
  }
  ~LoggerOfThread() { SetThreadLogger(nullptr); }
  LoggerOfThread(const LoggerOfThread&) = delete;
  LoggerOfThread& operator=(const LoggerOfThread&) = delete;

 private:
  Logger logger_;
};

constexpr std::array<const char*, 8> kOperationNames = {
    "rules",     "logging", "inventory",     "chassis",
    "multipart", "binary",  "simple_update", "download"};

struct Operation {
  Manner manner;
  std::function<Record()> run;
};

class FaultSweep
    : public testing::TestWithParam<std::tuple<int, CallKind, bool>> {
 protected:
  FaultSweep();
  ~FaultSweep() override;

  void Behave(const Manner& manner);
  UpdateRequest LocalRequest() const;
  UpdateRequest ShareRequest() const;
  Record Update(const UpdateRequest& request) const;
  Record ReadInventory() const;
  Record UseLoggers() const;
  std::vector<Operation> Operations() const;  ///< As named.

  /// What a run met: calls of the kind, and the first one that failed.
  struct Met {
    std::size_t calls;
    std::string struck_call;
  };

  /// Runs once under `fault` and checks all promises.
  Met RunOnce(std::size_t operation, const Fault& fault);
  static bool CanRemove(const Fault& fault, const Met& met);
  static void CheckBlocks(const std::vector<std::string>& live, const Met& met);
  void CheckPromises(const std::optional<Record>& record,
                     const std::string& thrown, const Fault& fault,
                     const Met& met, const std::string& console);

  TempFolder folder;
  simulator::SimulatedBmc bmc;
  const std::string log = folder.path() + "/log";
  const std::string out = folder.path() + "/record.json";
  const std::string image_name =
      "quorvane-sweep-" + std::to_string(getpid()) + ".blx";
  const std::string temp_image = "/tmp/" + image_name;
  const std::vector<Operation> operations = Operations();
  std::set<std::string> allowed_requests;
  bool undisturbed = true;  // what is asked now is allowed later
  std::map<std::string, int> endings;
};

FaultSweep::FaultSweep() {
  static_cast<void>(folder.Write("brindle.config.json", RulesJson(kRules)));
  static_cast<void>(folder.Write("image.blx", std::string(40'000, 'i')));
  PretendLibraryFile(folder.path() + "/libQuorvaneLib.so.1");
  for (const int fatal : kFatal) {
    std::signal(fatal, TellCurrentRun);
  }
}

FaultSweep::~FaultSweep() {
  PretendLibraryFile("");
  for (const int fatal : kFatal) {
    std::signal(fatal, SIG_DFL);
  }
}

void FaultSweep::Behave(const Manner& manner) {
  const std::string link =
      R"({"@odata.id": ")" + std::string(kTask) +
      R"(", "Id": "7", "Payload": {"JsonBody": "{\"Password\":\"sh4re\"}"},)"
      R"( "Oem": {"Password": "sh4re"}, "TaskState": )";
  const simulator::HeaderList location = {{"Location", kTask}};
  bmc.On("POST", kUpload).Respond(manner.takes_forms ? 202 : 405, link + "0}");
  bmc.On("PUT", kUpload).Respond(202, "", location);
  if (manner.takes_simple_update) {
    bmc.On("POST", kSimple).Respond(202, "", location);
  } else {
    bmc.On("POST", kSimple).Respond(404).Then(200);
  }
  bmc.On("GET", kTask)
      .Respond(200, link + R"("Running", "PercentComplete": 40})")
      .Then(200, link + R"("Completed", "PercentComplete": 100})");
  bmc.On("POST", kReset).Respond(204);
  bmc.On("GET", "/share/" + image_name).Respond(200, std::string(40'000, 'd'));
  bmc.On("GET", kInventory)
      .Respond(200, R"({"Members": [{"@odata.id": "/m/1"}]})");
  bmc.On("GET", "/m/1")
      .Respond(200, R"({"Name": "N", "Version": "1", "RelatedItem":
               [{"@odata.id": "/redfish/v1/Systems/system"}]})");
  bmc.On("GET", "/redfish/v1/Chassis")
      .Respond(200, R"({"Members": [{"@odata.id": "/c/1"}]})");
  bmc.On("GET", "/c/1")
      .Respond(
          200,
          R"({"Manufacturer": "M", "Model": "Example", "Name": "chassis"})");
}

UpdateRequest FaultSweep::LocalRequest() const {
  UpdateRequest request;
  request.bmc_ip = bmc.Address();
  request.username = "admin";
  request.password = "s3cret";
  request.local_file = folder.path() + "/image.blx";
  request.targets = {"/redfish/v1/target"};
  request.prefetched_inventory.resize(1);
  return request;
}

UpdateRequest FaultSweep::ShareRequest() const {
  UpdateRequest request = LocalRequest();
  request.local_file.clear();
  request.image_uri =
      "https://reader:h1dden@" + bmc.Address() + "/share/" + image_name;
  request.share_username = "reader";
  request.share_password = "sh4re";
  return request;
}

Record FaultSweep::Update(const UpdateRequest& request) const {
  const RecordedWaits waits;
  const LoggerOfThread logger(log, true);
  Record record;
  record.update = PerformUpdate(request);
  record.saved = SaveUpdateResponseJson(out, *record.update);
  return record;
}

Record FaultSweep::ReadInventory() const {
  const RecordedWaits waits;
  const LoggerOfThread logger(log, true);
  Record record;
  std::vector<InventoryItem> items;
  if (FetchInventory(
          {.ip = bmc.Address(), .username = "admin", .password = "s3cret"},
          items)) {
    record.items = std::move(items);
    record.saved = SaveInventoryJson(out, *record.items);
  }
  return record;
}

Record FaultSweep::UseLoggers() const {
  struct GlobalLogger {
    ~GlobalLogger() { ShutdownLogger(); }
  };
  const GlobalLogger ended_even_if_something_throws;
  InitLogger(log, LogLevel::DEBUG, true, true);
  LogWarning("update", MaskIP("https://10.1.2.3/ [2001:db8:1:2:3:4:5:6]"));
  SetLogLevel(LogLevel::INFO);
  {
    const LoggerOfThread logger(folder.path() + "/new/deep/log", false);
    LogInfo("update", std::string(300, 'x'));
    LogError("", GetLogPath());
  }
  LogDebug("", "below the level");
  return {};
}

std::vector<Operation> FaultSweep::Operations() const {
  const auto local = [this] { return Update(LocalRequest()); };
  const auto share = [this] { return Update(ShareRequest()); };
  return {
      {{},
       [this] {
         const LoggerOfThread logger(log, true);
         static_cast<void>(LoadConfigAuto());
         return Record();
       }},
      {{}, [this] { return UseLoggers(); }},
      {{}, [this] { return ReadInventory(); }},
      {{},
       [this] {
         const LoggerOfThread logger(log, true);
         ChassisInfo info;
         static_cast<void>(FetchChassisInfo(
             {.ip = bmc.Address(), .username = "admin", .password = "s3cret"},
             info));
         return Record();
       }},
      {{}, local},
      {{.takes_forms = false}, local},
      {{}, share},
      {{.takes_simple_update = false}, share}};
}

FaultSweep::Met FaultSweep::RunOnce(std::size_t operation, const Fault& fault) {
  Behave(operations[operation].manner);
  for (const std::string& old : {log, out, folder.path() + "/new"}) {
    fs::remove_all(old);
  }
  std::snprintf(current_run.data(), current_run.size(),
                "\nDied: %s, %s call %zu%s\n", kOperationNames[operation],
                Name(fault.kind), fault.nth,
                fault.for_good ? " and all that follow" : "");
  const std::ptrdiff_t descriptors = OpenDescriptors();
  const auto start = steady_clock::now();
  std::optional<Record> record;
  std::exception_ptr failure;
  std::string thrown;
  alarm(kHangSeconds);
  FaultInjection injection(fault);
  try {
    record = operations[operation].run();
  } catch (...) {
    failure = std::current_exception();
  }
  injection.End();
  alarm(0);
  const Met met{.calls = injection.calls(),
                .struck_call = injection.struck_call()};
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5));
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const std::bad_alloc& out_of_memory) {
    thrown = "bad_alloc";
  } catch (const std::runtime_error& told) {
    thrown = told.what();
  } catch (...) {
    ADD_FAILURE() << "threw what is not promised";
  }
  failure = nullptr;
  SCOPED_TRACE(met.struck_call);
  CheckPromises(record, thrown, fault, met, injection.console());
  record.reset();
  CheckBlocks(injection.LiveBlocks(), met);
  // The BMC's side of a connection may begin and end a moment after the
  // library's.
  std::ptrdiff_t left = OpenDescriptors();
  while (left > descriptors &&
         steady_clock::now() - start < std::chrono::seconds(8)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    left = OpenDescriptors();
  }
  EXPECT_LE(left, descriptors) << "leaked";
  return met;
}

// Whether the temporary image could be removed: a file that the system does not
// confirm to be the run's own stays.
bool FaultSweep::CanRemove(const Fault& fault, const Met& met) {
  return fault.kind != CallKind::kFiles ||
         (!fault.for_good && met.struck_call != "unlink" &&
          met.struck_call != "lstat" && met.struck_call != "fstat");
}

// libcurl 7.88 itself loses a block in two places when it runs out of memory; a
// handle that the library forgot would be a great many.
void FaultSweep::CheckBlocks(const std::vector<std::string>& live,
                             const Met& met) {
  const bool is_libcurls = met.struck_call.find("libcurl") != std::string::npos;
  if (is_libcurls && live.size() == 1 && live[0].starts_with("libcurl")) return;
  EXPECT_THAT(live, testing::IsEmpty());
}

void FaultSweep::CheckPromises(const std::optional<Record>& record,
                               const std::string& thrown, const Fault& fault,
                               const Met& met, const std::string& console) {
  std::string told = console + thrown + ReadAll(log) + ReadAll(out);
  const auto requests = bmc.Requests();
  bmc.ClearRequests();
  const auto sent = [&](const char* path) {
    return std::any_of(requests.begin(), requests.end(),
                       [&](const auto& r) { return r.path == path; });
  };
  for (const auto& request : requests) {
    if (undisturbed) allowed_requests.insert(Told(request));
    EXPECT_TRUE(allowed_requests.contains(Told(request))) << Told(request);
  }
  std::string ending = thrown.empty() ? "came through" : "threw";
  if (record && record->update) {
    const UpdateResponse& update = *record->update;
    const std::string json = UpdateResponseToJson(update);
    told += json;
    EXPECT_EQ(update.accepted, update.task_uri == kTask) << json;
    EXPECT_TRUE(!update.accepted || sent(kUpload) || sent(kSimple)) << json;
    EXPECT_TRUE(!update.reboot_performed || sent(kReset)) << json;
    EXPECT_FALSE(update.message.empty()) << json;
    EXPECT_TRUE(!record->saved || ReadAll(out) == json);
    if (!update.reboot_performed) ending = "told a failure";
  }
  if (record && record->items && record->saved) {
    EXPECT_EQ(ReadAll(out), InventoryToJson(*record->items));
  }
  ++endings[ending];
  for (const char* secret : kSecrets) {
    EXPECT_THAT(told, testing::Not(testing::HasSubstr(secret)));
  }
  EXPECT_TRUE(!fs::exists(temp_image) || !CanRemove(fault, met)) << "left";
  fs::remove(temp_image);
}

TEST_P(FaultSweep, BreaksNoPromise) {
  const auto& [index, kind, for_good] = GetParam();
  const auto operation = static_cast<std::size_t>(index);
  // What may be asked is what undisturbed runs ask, be the BMC as it may.
  for (std::size_t other = 0; other < operations.size(); ++other) {
    RunOnce(other, {});
  }
  undisturbed = false;
  endings.clear();
  const std::size_t total = RunOnce(operation, {.kind = kind}).calls;
  const bool everything = std::getenv("QUORVANE_SWEEP_ALL") != nullptr;
  const std::size_t stride = everything ? 1 : total / kSamples + 1;
  std::size_t runs = 0;
  for (std::size_t nth = 1;; nth += nth < kFirst ? 1 : stride) {
    SCOPED_TRACE(testing::Message() << Name(kind) << " call " << nth
                                    << (for_good ? " and on" : ""));
    const Met met =
        RunOnce(operation, {.kind = kind, .nth = nth, .for_good = for_good});
    if (met.struck_call.empty()) break;
    ++runs;
    ASSERT_LT(nth, 20 * total + 100) << "no end of it";
    if (HasFailure()) break;
  }
  std::cout << kOperationNames[operation] << ", " << Name(kind)
            << (for_good ? " for good: " : " once: ") << total << " calls, "
            << runs << " runs:";
  for (const auto& [ending, count] : endings) {
    std::cout << ' ' << count << ' ' << ending << ';';
  }
  std::cout << '\n';
}

INSTANTIATE_TEST_SUITE_P(
    Every, FaultSweep,
    testing::Combine(testing::Range(0, 8),
                     testing::Values(CallKind::kMemory, CallKind::kFiles,
                                     CallKind::kNetwork),
                     testing::Bool()),
    [](const auto& row) {
      return std::string(kOperationNames[static_cast<std::size_t>(
                 std::get<0>(row.param))]) +
             "_" + Name(std::get<1>(row.param)) +
             (std::get<2>(row.param) ? "_for_good" : "_once");
    });

}  // namespace
}  // namespace quorvane::test
