// SPDX-License-Identifier: Apache-2.0
// The program itself against a simulated BMC.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "simulator/simulated_bmc.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;
using simulator::Scenario;
using simulator::SimulatedBmc;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kPassword = "p4ss w0rd";

struct Outcome {
  int status = -1;
  std::string printed;
};

class Tool : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "tool-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    // Where the program makes what it must remove again.
    fs::create_directory(folder_ / "tmp");
    Write("password", std::string(kPassword) + "\n");
    Write("firmware.blx", std::string(5000, 'x'));
    Write("rules.json", R"({"authentication": {"type": "basic"},
      "target": {"ip": "192.0.2.1"},
      "retry_config": {"max_retries": 1, "sleep_time": 1},
      "firmware_update": {"inventory_rules": {},
        "multipart_update": {
          "upload_uri": "/redfish/v1/UpdateService/update-multipart",
          "upload_rules": {"202": "track_task"}},
        "task_monitoring": {"polling_interval": 1,
          "max_polling_time_seconds": 1,
          "task_states": {"Completed": "proceed_to_activation"}},
        "activation": {"activation_rules": {"202": "poll_task"}},
        "reboot": {"reboot_rules": {"204": "success"}}}})");
  }
  void TearDown() override { fs::remove_all(folder_); }

  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
    fs::permissions(folder_ / name,
                    fs::perms::owner_read | fs::perms::owner_write);
  }
  std::string Read(const std::string& name) const {
    std::ifstream file(folder_ / name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // @param options  May name files of the folder.
  [[nodiscard]] Outcome Run(const std::string& options) const {
    return Shell(QUORVANE_TOOL " " + options);
  }
  [[nodiscard]] Outcome Shell(const std::string& script) const {
    const std::string command = "exec 2>&1 </dev/null; cd " + folder_.string() +
                                " && export TMPDIR=$PWD/tmp && { " + script +
                                "; }";
    FILE* pipe = popen(command.c_str(), "r");
    Outcome outcome;
    std::array<char, 4096> chunk{};
    while (const std::size_t count =
               fread(chunk.data(), 1, chunk.size(), pipe)) {
      outcome.printed.append(chunk.data(), count);
    }
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
  }
  Outcome Update(const SimulatedBmc& bmc, const std::string& options) const {
    return Run("update --bmc " + bmc.Address() +
               " --user admin --password-file password --rules rules.json "
               "--log log --file firmware.blx " +
               options);
  }

  static Scenario Machine() {
    Scenario scenario;
    scenario.password = kPassword;
    scenario.task.steps = {{.state = "Completed", .percent = 100}};
    return scenario;
  }

  fs::path folder_;
};

TEST_F(Tool, UpdatesByTheRulesGivenAndLeavesNothingBehind) {
  const SimulatedBmc bmc(Machine());
  const Outcome outcome = Update(bmc, "--result result.json");
  EXPECT_EQ(outcome.status, 0) << outcome.printed;
  EXPECT_THAT(outcome.printed, HasSubstr("Outcome: done."));
  EXPECT_EQ(bmc.StoredImageSize(), 5000U);
  EXPECT_EQ(bmc.Restarts(), 1);
  EXPECT_THAT(Read("result.json"), HasSubstr("\"Reboot successful\""));
  EXPECT_TRUE(fs::is_empty(folder_ / "tmp"));
  for (const std::string& text : {outcome.printed, Read("log")}) {
    EXPECT_THAT(text, Not(HasSubstr(kPassword)));
  }
  const Outcome report = Run("report log");
  EXPECT_EQ(report.status, 0);
  EXPECT_THAT(report.printed, HasSubstr("Outcome: done."));
}

TEST_F(Tool, TellsARefusalByItsFirstCause) {
  Scenario machine = Machine();
  machine.upload.max_bytes = 1024;
  const SimulatedBmc bmc(machine);
  const Outcome outcome = Update(bmc, "--quiet --log-level error");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.printed, HasSubstr("was answered 413: The image has"));
  EXPECT_THAT(Read("log"), Not(HasSubstr("[WARNING]")));
}

TEST_F(Tool, CallsARestartUnderAStalledTaskUnknown) {
  Scenario machine = Machine();
  machine.task.steps = {{.state = "Running", .percent = 10}};
  const SimulatedBmc bmc(machine);
  const Outcome outcome = Update(bmc, "");
  EXPECT_EQ(outcome.status, 4);
  EXPECT_THAT(outcome.printed, HasSubstr("was restarted all the same"));
}

TEST_F(Tool, ReadsInventoryAndChassis) {
  const SimulatedBmc bmc(Machine());
  const std::string login =
      " --bmc " + bmc.Address() + " --user admin --password-file password ";
  Outcome outcome = Run("inventory" + login);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.printed, HasSubstr("System BIOS      2.4.1"));
  outcome = Run("inventory --json --output items.json" + login);
  EXPECT_THAT(Read("items.json"), HasSubstr("\"BMC firmware\""));
  outcome = Run("chassis" + login);
  EXPECT_EQ(outcome.status, 0) << outcome.printed;
  EXPECT_THAT(outcome.printed, HasSubstr("Manufacturer  "));
}

// An own row for each way in which nothing can be read.
TEST_F(Tool, TellsHowToMendWhatIsWrong) {
  const SimulatedBmc bmc(Machine());
  const std::string to = " --bmc " + bmc.Address() + " --user admin ";
  Write("wrong", "no\n");
  Write("bad.json", R"({"authentication": 1})");
  const std::string inventory = "inventory --password-file ";
  struct Row {
    std::string command;
    int status;
    const char* told;
  };
  for (const Row& row : std::initializer_list<Row>{
           {inventory + "wrong" + to, 3, "refused the login of admin"},
           {inventory + "password --rules rules.json --user a --bmc "
                        "127.0.0.1:1",
            3, "Check the address"},
           {inventory + "none" + to, 2, "Cannot read the password file none"},
           {inventory + "password --log no/log" + to, 2,
            "Cannot write the log"},
           {"inventory --password s3cret" + to, 2, "--password-file FILE"},
           {"inventory" + to, 2, "--password-stdin"},
           {inventory + "password --rules bad.json" + to, 2,
            "\"authentication\" must be a JSON object"},
           {"update --password-file password" + to, 2,
            "--file FILE or --image"},
           {"update --image http://u:s3cret@h/f --password-file password" + to,
            2, "--share-password-file"},
           {"report password", 2, "holds no log"},
           {"rules check bad.json", 2, "does not load"},
           {"rules check rules.json", 1, "rules.json:"},
           {"rules check " QUORVANE_SOURCE_DIR "/config/brindle.config.json", 0,
            "nothing in it looks wrong"},
           {"nonsense", 2, "--help"}}) {
    const Outcome outcome = Run(row.command);
    EXPECT_EQ(outcome.status, row.status) << row.command << outcome.printed;
    EXPECT_THAT(outcome.printed, HasSubstr(row.told)) << row.command;
    EXPECT_THAT(outcome.printed, Not(HasSubstr("s3cret")));
  }
}

TEST_F(Tool, SaysWhatGoesOnWhenItIsInterrupted) {
  Scenario machine = Machine();
  machine.task.steps = {{.state = "Running", .percent = 10}};
  Write("rules.json", [this] {
    std::string rules = Read("rules.json");
    const std::string once = "\"max_polling_time_seconds\": 1";
    return rules.replace(rules.find(once), once.size(), once + "000");
  }());
  const SimulatedBmc bmc(machine);
  const Outcome outcome = Shell(
      QUORVANE_TOOL " update --bmc " + bmc.Address() +
      " --user admin --password-file password --rules rules.json --log log "
      "--file firmware.blx & tool=$!; for try in $(seq 400); do "
      "grep -qs 'State: Running' log && break; sleep 0.05; done; "
      "kill -TERM $tool; wait $tool");
  EXPECT_EQ(outcome.status, 130) << outcome.printed;
  EXPECT_THAT(
      outcome.printed,
      HasSubstr("goes on with its task /redfish/v1/TaskService/Tasks/"));
  EXPECT_TRUE(fs::is_empty(folder_ / "tmp"));
  EXPECT_THAT(Run("report log").printed, HasSubstr("Outcome: interrupted."));
}

}  // namespace
}  // namespace quorvane::tool
