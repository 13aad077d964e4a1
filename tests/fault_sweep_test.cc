// SPDX-License-Identifier: Apache-2.0
// Lets every allocation and every call that can fail do so: once, and then also
// all calls after it. It is the n-th call, n = 1, 2, 3 ..., until a run has no
// fault. Whatever fails, the library throws or reports it. It never crashes,
// hangs, leaks, loses a task, sends an incomplete request, or exposes a
// password.
//
// By default, each sweep runs a sample: the first calls, and some fifty of the
// others. QUORVANE_SWEEP_ALL=1 in the environment runs all of them, which takes
// a minute or two.
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

constexpr std::size_t kFirstCalls = 12;  // all of them fail in turn
constexpr std::size_t kSamples = 48;     // of the later calls

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

// The password of the BMC, also as it is sent, and those of the share.
constexpr std::array<const char*, 4> kSecrets = {"s3cret", "YWRtaW46czNjcmV0",
                                                 "sh4re", "h1dden"};

// Printed if a fault crashes or hangs the program.
std::array<char, 128> current_run;

constexpr std::array<int, 5> kFatal = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE,
                                       SIGALRM};
constexpr unsigned kHangSeconds =
    90;  // longer than the time limits of the simulated BMC

void PrintCurrentRun(int signal_number) {
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

// A request as text, without the boundary of a form, which libcurl picks at
// random.
std::string RequestText(const simulator::RecordedRequest& request) {
  std::string text =
      request.method + " " + request.path + "?" + request.query + "\n";
  for (const auto& [name, value] : request.headers) {
    text += name + ": " + value.substr(0, value.find("boundary=")) + "\n";
  }
  for (const auto& part : request.parts) {
    text += part.name + "|" + part.filename + "|" + part.content_type + "|" +
            part.content + "\n";
  }
  return text + (request.parts.empty() ? request.body : "");
}

std::ptrdiff_t OpenDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"),
                       fs::directory_iterator());
}

struct BmcBehavior {
  bool accepts_simple_update = true;
  bool accepts_multipart = true;
};

// The results of an operation.
struct Record {
  std::optional<UpdateResponse> update;
  std::optional<std::vector<InventoryItem>> items;
  bool saved = false;
};

class ScopedThreadLogger {
 public:
  ScopedThreadLogger(const std::string& path, bool skip_checks)
      : logger_(path, LogLevel::DEBUG, false, skip_checks) {
    SetThreadLogger(&logger_);
  }
  ~ScopedThreadLogger() { SetThreadLogger(nullptr); }
  ScopedThreadLogger(const ScopedThreadLogger&) = delete;
  ScopedThreadLogger& operator=(const ScopedThreadLogger&) = delete;

 private:
  Logger logger_;
};

constexpr std::array<const char*, 8> kOperationNames = {
    "rules",     "logging", "inventory",     "chassis",
    "multipart", "binary",  "simple_update", "download"};

struct Operation {
  BmcBehavior behavior;
  std::function<Record()> run;
};

class FaultSweep
    : public testing::TestWithParam<std::tuple<int, CallKind, bool>> {
 protected:
  FaultSweep();
  ~FaultSweep() override;

  void SetResponses(const BmcBehavior& behavior);
  UpdateRequest LocalRequest() const;
  UpdateRequest ShareRequest() const;
  Record Update(const UpdateRequest& request) const;
  Record ReadInventory() const;
  Record UseLoggers() const;
  std::vector<Operation> Operations() const;  ///< As named.

  struct RunCalls {
    std::size_t count;        ///< Of the kind.
    std::string failed_call;  ///< The first one; or empty.
  };

  /// Runs an operation once with `fault`, and checks everything.
  RunCalls RunOnce(std::size_t operation, const Fault& fault);
  static bool CanRemove(const Fault& fault, const RunCalls& calls);
  static void CheckBlocks(const std::vector<std::string>& live,
                          const RunCalls& calls);
  void CheckResults(const std::optional<Record>& record,
                    const std::string& thrown, const Fault& fault,
                    const RunCalls& calls, const std::string& console);

  TempDirectory directory;
  simulator::SimulatedBmc bmc;
  const std::string log = directory.path() + "/log";
  const std::string out = directory.path() + "/record.json";
  const std::string image_name =
      "quorvane-sweep-" + std::to_string(getpid()) + ".blx";
  const std::string temp_image = "/tmp/" + image_name;
  const std::vector<Operation> operations = Operations();
  std::set<std::string> allowed_requests;
  bool records_requests = true;  // of runs without a fault
  std::map<std::string, int> outcomes;
};

FaultSweep::FaultSweep() {
  static_cast<void>(directory.Write("brindle.config.json", RulesJson(kRules)));
  static_cast<void>(directory.Write("image.blx", std::string(40'000, 'i')));
  OverrideLibraryPath(directory.path() + "/libQuorvaneLib.so.1");
  for (const int fatal : kFatal) {
    std::signal(fatal, PrintCurrentRun);
  }
}

FaultSweep::~FaultSweep() {
  OverrideLibraryPath("");
  for (const int fatal : kFatal) {
    std::signal(fatal, SIG_DFL);
  }
}

void FaultSweep::SetResponses(const BmcBehavior& behavior) {
  const std::string link =
      R"({"@odata.id": ")" + std::string(kTask) +
      R"(", "Id": "7", "Payload": {"JsonBody": "{\"Password\":\"sh4re\"}"},)"
      R"( "Oem": {"Password": "sh4re"}, "TaskState": )";
  const simulator::HeaderList location = {{"Location", kTask}};
  bmc.On("POST", kUpload)
      .Respond(behavior.accepts_multipart ? 202 : 405, link + "0}");
  bmc.On("PUT", kUpload).Respond(202, "", location);
  if (behavior.accepts_simple_update) {
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
  request.local_file = directory.path() + "/image.blx";
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
  const ScopedThreadLogger logger(log, true);
  Record record;
  record.update = PerformUpdate(request);
  record.saved = SaveUpdateResponseJson(out, *record.update);
  return record;
}

Record FaultSweep::ReadInventory() const {
  const RecordedWaits waits;
  const ScopedThreadLogger logger(log, true);
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
  const GlobalLogger shutdown;
  InitLogger(log, LogLevel::DEBUG, true, true);
  LogWarning("update", MaskIP("https://10.1.2.3/ [2001:db8:1:2:3:4:5:6]"));
  SetLogLevel(LogLevel::INFO);
  {
    const ScopedThreadLogger logger(directory.path() + "/new/deep/log", false);
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
         const ScopedThreadLogger logger(log, true);
         static_cast<void>(LoadConfigAuto());
         return Record();
       }},
      {{}, [this] { return UseLoggers(); }},
      {{}, [this] { return ReadInventory(); }},
      {{},
       [this] {
         const ScopedThreadLogger logger(log, true);
         ChassisInfo info;
         static_cast<void>(FetchChassisInfo(
             {.ip = bmc.Address(), .username = "admin", .password = "s3cret"},
             info));
         return Record();
       }},
      {{}, local},
      {{.accepts_multipart = false}, local},
      {{}, share},
      {{.accepts_simple_update = false}, share}};
}

FaultSweep::RunCalls FaultSweep::RunOnce(std::size_t operation,
                                         const Fault& fault) {
  SetResponses(operations[operation].behavior);
  for (const std::string& old : {log, out, directory.path() + "/new"}) {
    fs::remove_all(old);
  }
  std::snprintf(current_run.data(), current_run.size(),
                "\nDied: %s, %s call %zu%s\n", kOperationNames[operation],
                Name(fault.kind), fault.nth,
                fault.is_lasting ? " and all later calls" : "");
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
  const RunCalls calls{.count = injection.CallCount(),
                       .failed_call = injection.FailedCall()};
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5));
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const std::bad_alloc& out_of_memory) {
    thrown = "bad_alloc";
  } catch (const std::runtime_error& error) {
    thrown = error.what();
  } catch (...) {
    ADD_FAILURE() << "threw an undocumented exception";
  }
  failure = nullptr;
  SCOPED_TRACE(calls.failed_call);
  CheckResults(record, thrown, fault, calls, injection.ConsoleText());
  record.reset();
  CheckBlocks(injection.LiveBlocks(), calls);
  // The BMC may open and close its side of a connection later than the library.
  std::ptrdiff_t remaining = OpenDescriptors();
  while (remaining > descriptors &&
         steady_clock::now() - start < std::chrono::seconds(8)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    remaining = OpenDescriptors();
  }
  EXPECT_LE(remaining, descriptors) << "leaked";
  return calls;
}

// Whether the library can remove the temporary image: it keeps a file that may
// belong to another run.
bool FaultSweep::CanRemove(const Fault& fault, const RunCalls& calls) {
  return fault.kind != CallKind::kFiles ||
         (!fault.is_lasting && calls.failed_call != "unlink" &&
          calls.failed_call != "lstat" && calls.failed_call != "fstat");
}

// libcurl 7.88 itself leaks one block in two places if memory runs out. A
// leaked handle would be many blocks.
void FaultSweep::CheckBlocks(const std::vector<std::string>& live,
                             const RunCalls& calls) {
  const bool is_leak_of_libcurl =
      calls.failed_call.find("libcurl") != std::string::npos;
  if (is_leak_of_libcurl && live.size() == 1 && live[0].starts_with("libcurl"))
    return;
  EXPECT_THAT(live, testing::IsEmpty());
}

void FaultSweep::CheckResults(const std::optional<Record>& record,
                              const std::string& thrown, const Fault& fault,
                              const RunCalls& calls,
                              const std::string& console) {
  std::string output = console + thrown + ReadAll(log) + ReadAll(out);
  const auto requests = bmc.Requests();
  bmc.ClearRequests();
  const auto sent = [&](const char* path) {
    return std::any_of(requests.begin(), requests.end(),
                       [&](const auto& r) { return r.path == path; });
  };
  for (const auto& request : requests) {
    if (records_requests) allowed_requests.insert(RequestText(request));
    EXPECT_TRUE(allowed_requests.contains(RequestText(request)))
        << RequestText(request);
  }
  std::string outcome = thrown.empty() ? "succeeded" : "threw";
  if (record && record->update) {
    const UpdateResponse& update = *record->update;
    const std::string json = UpdateResponseToJson(update);
    output += json;
    EXPECT_EQ(update.accepted, update.task_uri == kTask) << json;
    EXPECT_TRUE(!update.accepted || sent(kUpload) || sent(kSimple)) << json;
    EXPECT_TRUE(!update.reboot_performed || sent(kReset)) << json;
    EXPECT_FALSE(update.message.empty()) << json;
    EXPECT_TRUE(!record->saved || ReadAll(out) == json);
    if (!update.reboot_performed) outcome = "reported a failure";
  }
  if (record && record->items && record->saved) {
    EXPECT_EQ(ReadAll(out), InventoryToJson(*record->items));
  }
  ++outcomes[outcome];
  for (const char* secret : kSecrets) {
    EXPECT_THAT(output, testing::Not(testing::HasSubstr(secret)));
  }
  EXPECT_TRUE(!fs::exists(temp_image) || !CanRemove(fault, calls))
      << "not removed";
  fs::remove(temp_image);
}

TEST_P(FaultSweep, KeepsAllGuarantees) {
  const auto& [index, kind, is_lasting] = GetParam();
  const auto operation = static_cast<std::size_t>(index);
  // Only requests of runs without a fault are allowed.
  for (std::size_t other = 0; other < operations.size(); ++other) {
    RunOnce(other, {});
  }
  records_requests = false;
  outcomes.clear();
  const std::size_t total = RunOnce(operation, {.kind = kind}).count;
  const bool everything = std::getenv("QUORVANE_SWEEP_ALL") != nullptr;
  const std::size_t stride = everything ? 1 : total / kSamples + 1;
  std::size_t runs = 0;
  for (std::size_t nth = 1;; nth += nth < kFirstCalls ? 1 : stride) {
    SCOPED_TRACE(testing::Message() << Name(kind) << " call " << nth
                                    << (is_lasting ? " and later" : ""));
    const RunCalls calls = RunOnce(
        operation, {.kind = kind, .nth = nth, .is_lasting = is_lasting});
    if (calls.failed_call.empty()) break;
    ++runs;
    ASSERT_LT(nth, 20 * total + 100) << "endless";
    if (HasFailure()) break;
  }
  std::cout << kOperationNames[operation] << ", " << Name(kind)
            << (is_lasting ? " lasting: " : " once: ") << total << " calls, "
            << runs << " runs:";
  for (const auto& [outcome, count] : outcomes) {
    std::cout << ' ' << count << ' ' << outcome << ';';
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
             (std::get<2>(row.param) ? "_lasting" : "_once");
    });

}  // namespace
}  // namespace quorvane::test
