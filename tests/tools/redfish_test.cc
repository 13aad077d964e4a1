// SPDX-License-Identifier: Apache-2.0
// What the tool reads from a BMC before an update, and what it makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/redfish/draft.h"
#include "tools/quorvane/redfish/plan.h"
#include "tools/quorvane/redfish/service.h"
#include "tools/quorvane/rules/check.h"
#include "tools/quorvane/view/plan_text.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

constexpr const char* kService = "/redfish/v1/UpdateService";
constexpr const char* kInventory =
    "/redfish/v1/UpdateService/FirmwareInventory";
constexpr const char* kUpload = "/redfish/v1/UpdateService/update-multipart";
constexpr const char* kSystem = "/redfish/v1/Systems/1";
constexpr const char* kReset =
    "/redfish/v1/Systems/1/Actions/ComputerSystem.Reset";

// A BMC in memory. A resource that is a number is only a status.
class FakeBmc : public ResourceReader {
 public:
  FakeBmc() {
    at[kServiceRootUri] = {{"RedfishVersion", "1.11.0"}};
    at[kService] = {{"ServiceEnabled", true},
                    {"MultipartHttpPushUri", kUpload},
                    {"FirmwareInventory", {{"@odata.id", kInventory}}}};
    SetMembers(kInventory, {"/redfish/v1/BIOS"});
    at["/redfish/v1/BIOS"] = {
        {"Name", "BIOS"}, {"Version", "1"}, {"Updateable", true}};
    SetMembers("/redfish/v1/Systems", {kSystem});
    at[kSystem] = {
        {"PowerState", "On"},
        {"Actions", {{"#ComputerSystem.Reset", {{"target", kReset}}}}}};
    SetMembers("/redfish/v1/TaskService/Tasks", {});
    at["/redfish/v1/TaskService"] = {
        {"Tasks", {{"@odata.id", "/redfish/v1/TaskService/Tasks"}}}};
  }

  std::vector<Resource> Read(const std::vector<std::string>& uris) override {
    std::vector<Resource> resources;
    for (const std::string& uri : uris) {
      ++requests[uri];
      const auto found = at.find(uri);
      Resource resource{.uri = uri, .status = 404};
      if (found != at.end() && found->second.is_number()) {
        resource.status = found->second.get<long>();
      } else if (found != at.end()) {
        resource.status = 200;
        resource.body = found->second.dump();
      }
      resources.push_back(std::move(resource));
    }
    return resources;
  }

  void SetMembers(const std::string& uri,
                  const std::vector<std::string>& members) {
    Json list = Json::array();
    for (const std::string& member : members) {
      list.push_back({{"@odata.id", member}});
    }
    at[uri] = {{"Members", list}};
  }

  std::map<std::string, Json> at = {};
  std::map<std::string, int> requests = {};
};

std::vector<std::string> UrisOf(const ServiceFacts& facts) {
  std::vector<std::string> uris;
  for (const FirmwareFacts& one : facts.firmware) uris.push_back(one.uri);
  return uris;
}

TEST(Facts, FollowThePagesOfACollectionOnceEach) {
  FakeBmc bmc;
  bmc.at[kInventory]["Members@odata.nextLink"] = "/page2";
  bmc.SetMembers("/page2", {"/second"});
  bmc.at["/second"] = {{"Name", "NIC"}};
  ServiceFacts facts = ReadFacts(bmc, {});
  EXPECT_THAT(UrisOf(facts),
              testing::ElementsAre("/redfish/v1/BIOS", "/second"));
  EXPECT_TRUE(facts.is_firmware_complete);
  EXPECT_FALSE(facts.firmware[1].version.has_value());

  bmc.at["/page2"]["Members@odata.nextLink"] = kInventory;  // a loop
  EXPECT_FALSE(ReadFacts(bmc, {}).is_firmware_complete);
  bmc.at["/page2"] = 500;
  facts = ReadFacts(bmc, {});
  EXPECT_THAT(UrisOf(facts), testing::ElementsAre("/redfish/v1/BIOS"));
  EXPECT_FALSE(facts.is_firmware_complete);
}

TEST(Facts, FindAllowableValuesInTheActionInfo) {
  FakeBmc bmc;
  bmc.at[kService]["Actions"]["#UpdateService.SimpleUpdate"] = {
      {"target", "/simple"}, {"@Redfish.ActionInfo", "/info"}};
  bmc.at["/info"] = {
      {"Parameters",
       {{{"Name", "ImageURI"}, {"AllowableValues", {"x"}}},
        {{"Name", "TransferProtocol"}, {"AllowableValues", {"NFS"}}}}}};
  const auto service = ReadFacts(bmc, {}).update_service;
  ASSERT_TRUE(service);
  EXPECT_EQ(service->simple_update_uri, "/simple");
  EXPECT_THAT(service->protocols.value_or(std::vector<std::string>{}),
              testing::ElementsAre("NFS"));
  bmc.at["/info"] = {{"Parameters", 7}};
  EXPECT_FALSE(ReadFacts(bmc, {}).update_service->protocols.has_value());
}

TEST(Facts, OnlyA404MeansAbsent) {
  FakeBmc bmc;
  bmc.at["/405"] = 405;
  bmc.at["/400"] = 400;
  bmc.at["/503"] = 503;
  bmc.at["/0"] = 0;
  bmc.at["/html"] = "<html>";  // JSON, but no object
  const ServiceFacts facts =
      ReadFacts(bmc, {.inventory_uris = {},
                      .probed_uris = {"/405", "/400", "/503", "/0", "/html",
                                      "/none", std::string(kUpload) + "/"},
                      .targets = {}});
  EXPECT_EQ(facts.PresenceAt("/405"), Presence::kPresent);
  for (const char* uri : {"/400", "/503", "/0", "/html", "/not requested"}) {
    EXPECT_EQ(facts.PresenceAt(uri), Presence::kUnknown) << uri;
  }
  EXPECT_EQ(facts.PresenceAt("/none"), Presence::kAbsent);
  // What the BMC advertises is not requested.
  EXPECT_EQ(facts.PresenceAt(std::string(kUpload) + "/"), Presence::kPresent);
  EXPECT_EQ(bmc.requests.count(std::string(kUpload) + "/"), 0U);
  EXPECT_EQ(bmc.requests["/503"], 2);
  EXPECT_EQ(bmc.requests["/0"], 2);
  EXPECT_EQ(bmc.requests["/none"], 1);
  EXPECT_EQ(bmc.requests[kService], 1);
}

TEST(Facts, SurviveAnyTypeOfEveryProperty) {
  const std::vector<Json> values = {nullptr, 7,
                                    "text",  Json::array({nullptr, 1, "x"}),
                                    true,    Json::object({{"@odata.id", 7}})};
  const std::map<std::string, Json> resources = FakeBmc().at;
  for (const auto& [uri, resource] : resources) {
    for (const auto& property : resource.items()) {
      for (const Json& value : values) {
        FakeBmc bmc;
        bmc.at[uri][property.key()] = value;
        const Plan plan =
            MakePlan(ReadFacts(bmc, {}), {.bmc = "b", .rules = {}});
        EXPECT_FALSE(DescribePlan(plan, {}).empty());
        EXPECT_FALSE(ToJson(plan).empty());
      }
    }
  }
}

Config Rules() {
  Config rules;
  rules.inventory_uri = {kInventory};
  rules.upload_uri = {"/FWUpdate", kUpload};
  rules.activation_uri = {"/simple"};
  rules.reboot_uri = {kReset};
  return rules;
}

// "phase: state, state>" for each phase; ">" marks the expected URI.
std::vector<std::string> PhasesOf(const Plan& plan) {
  std::vector<std::string> lines;
  for (const PlannedPhase& phase : plan.phases) {
    std::string line = phase.phase + ":";
    for (const PlannedUri& uri : phase.uris) {
      line +=
          std::string(" ") + NameOf(uri.state) + (uri.is_expected ? ">" : "");
    }
    lines.push_back(line);
  }
  return lines;
}

Plan PlanOf(FakeBmc& bmc, PlanRequest request) {
  ServiceFacts facts = ReadFacts(bmc, FactsFor(request));
  return MakePlan(std::move(facts), std::move(request));
}

TEST(Planning, ListsTheUrisInTheOrderOfTheRequests) {
  FakeBmc bmc;
  bmc.at["/FWUpdate"] = 405;
  EXPECT_THAT(PhasesOf(PlanOf(bmc, {.bmc = "b",
                                    .rules = Rules(),
                                    .image = {},
                                    .targets = {"/redfish/v1/BIOS"}})),
              testing::ElementsAre(
                  "Inventory: advertised>", "Upload: present advertised>",
                  "Binary upload: present present", "Activation: absent",
                  "Reboot: advertised>"));
  // Nothing is advertised: the first one that is present.
  bmc.at[kService].erase("MultipartHttpPushUri");
  EXPECT_EQ(PhasesOf(PlanOf(bmc, {.bmc = "b", .rules = Rules()}))[1],
            "Upload: present> absent");
  bmc.at[kService]["HttpPushUri"] = std::string("https://bmc") + kUpload;
  EXPECT_EQ(PhasesOf(PlanOf(bmc, {.bmc = "b", .rules = Rules()}))[2],
            "Binary upload: present advertised>");
  EXPECT_THAT(
      PhasesOf(PlanOf(
          bmc,
          {.bmc = "b", .rules = Rules(), .image = {.uri = "nfs://host/fw"}})),
      testing::ElementsAre("Inventory: advertised>", "SimpleUpdate: absent",
                           "Reboot: advertised>"));
}

TEST(Planning, CountsOnlyThePhasesThatTakePlace) {
  FakeBmc bmc;
  Config rules = Rules();
  const double file = PlanOf(bmc, {.bmc = "b", .rules = rules}).longest_seconds;
  const double target = PlanOf(bmc, {.bmc = "b",
                                     .rules = rules,
                                     .image = {},
                                     .targets = {"/redfish/v1/BIOS"}})
                            .longest_seconds;
  const double share =
      PlanOf(bmc,
             {.bmc = "b", .rules = rules, .image = {.uri = "nfs://host/fw"}})
          .longest_seconds;
  EXPECT_GT(target, file);
  EXPECT_LT(share, file);
  EXPECT_EQ(PlanOf(bmc, {.bmc = "b", .rules = rules, .verify_seconds = 9})
                .longest_seconds,
            file + 9);
  rules.reboot_required = false;
  EXPECT_LT(PlanOf(bmc, {.bmc = "b", .rules = rules}).longest_seconds, file);
}

TEST(PlanFindings, ABlockerNeedsAFactOfTheBmc) {
  struct Row {
    const char* uri;
    Json value;
    std::string blocker;
  };
  const std::vector<Row> rows = {
      {kService, {{"ServiceEnabled", false}}, "update_service_disabled"},
      {kService, {{"MaxImageSizeBytes", 4}}, "image_too_large"},
      {kService, {{"MaxImageSizeBytes", 5}}, ""},
      {kService, {{"MaxImageSizeBytes", 0}}, ""},
      {kService, {{"MultipartHttpPushUri", "/other"}}, "upload_uri_absent"},
      {kSystem,
       {{"Actions",
         {{"#ComputerSystem.Reset",
           {{"ResetType@Redfish.AllowableValues", {"On"}}}}}}},
       "graceful_restart_not_allowed"},
      {kSystem,
       {{"Actions",
         {{"#ComputerSystem.Reset",
           {{"ResetType@Redfish.AllowableValues", Json::array()}}}}}},
       ""},
      {kSystem,
       {{"Actions", {{"#ComputerSystem.Reset", {{"target", "/other"}}}}}},
       "reset_uri_absent"},
  };
  for (const Row& row : rows) {
    FakeBmc bmc;
    bmc.at[row.uri].merge_patch(row.value);
    const PlanRequest request{
        .bmc = "b", .rules = Rules(), .image = {.path = "fw", .size = 5}};
    const Plan plan = PlanOf(bmc, request);
    EXPECT_EQ(plan.HasBlocker(), !row.blocker.empty()) << row.value;
    if (plan.HasBlocker()) {
      EXPECT_EQ(plan.findings[0].code, row.blocker);
    }
    // The same fact, but its resource cannot be read.
    bmc.at[row.uri] = 500;
    EXPECT_FALSE(PlanOf(bmc, request).HasBlocker()) << row.value;
  }
}

// Some BMCs return 404 for a GET of an action.
TEST(PlanFindings, A404OfAnActionIsFinalOnlyIfEverySystemWasRead) {
  FakeBmc bmc;
  bmc.SetMembers("/redfish/v1/Systems", {kSystem, "/redfish/v1/Systems/2"});
  bmc.at["/redfish/v1/Systems/2"] = {{"PowerState", "On"}};
  Config rules = Rules();
  rules.reboot_uri = {"/redfish/v1/Systems/2/Reset"};
  EXPECT_TRUE(PlanOf(bmc, {.bmc = "b", .rules = rules}).HasBlocker());
  bmc.at["/redfish/v1/Systems/2"] = 500;
  const Plan plan = PlanOf(bmc, {.bmc = "b", .rules = rules});
  EXPECT_FALSE(plan.HasBlocker());
  EXPECT_EQ(PhasesOf(plan).back(), "Reboot: unknown");
}

TEST(PlanFindings, AResourceThatTheAccountMayNotReadIsAWarning) {
  FakeBmc bmc;
  bmc.at["/redfish/v1/TaskService"] = 401;
  const Plan plan = PlanOf(bmc, {.bmc = "b", .rules = Rules()});
  ASSERT_EQ(plan.findings.size(), 1U);
  EXPECT_EQ(plan.findings[0].code, "resources_refused");
  EXPECT_THAT(plan.findings[0].message,
              testing::HasSubstr("read /redfish/v1/TaskService (HTTP 401"));
}

// DSP2046, TaskState.
TEST(BmcTasks, RunUntilAFinalState) {
  for (const char* state :
       {"New", "Starting", "Running", "Suspended", "Interrupted", "Pending",
        "Stopping", "Service", "Cancelling"}) {
    EXPECT_TRUE(TaskFrom("/t", {{"TaskState", state}}).IsRunning()) << state;
  }
  for (const char* state : {"Completed", "Killed", "Exception", "Cancelled"}) {
    EXPECT_FALSE(TaskFrom("/t", {{"TaskState", state}}).IsRunning()) << state;
  }
}

TEST(PlanFindings, ATaskThatRunsIsAWarning) {
  FakeBmc bmc;
  bmc.SetMembers("/redfish/v1/TaskService/Tasks", {"/old", "/new"});
  bmc.at["/old"] = {{"TaskState", "Completed"}};
  bmc.at["/new"] = {{"TaskState", "Running"}, {"PercentComplete", 40}};
  const Plan plan = PlanOf(bmc, {.bmc = "b", .rules = Rules()});
  ASSERT_EQ(plan.findings.size(), 1U);
  EXPECT_EQ(plan.findings[0].code, "task_running");
  EXPECT_THAT(plan.findings[0].message, testing::HasSubstr("/new (Running)"));
  EXPECT_THAT(plan.findings[0].message,
              testing::Not(testing::HasSubstr("/old")));
}

TEST(PlanTexts, FitTheTerminalAndEscapeWhatTheBmcReports) {
  FakeBmc bmc;
  bmc.at["/redfish/v1/BIOS"]["Name"] = std::string(200, 'n') + "\x1b[2J";
  bmc.at[kServiceRootUri]["Product"] = "A\x1b[31m" + std::string(200, 'p');
  bmc.at[kService]["ServiceEnabled"] = false;
  Config rules = Rules();
  rules.upload_uri.push_back("/" + std::string(200, 'u'));
  const Plan plan = PlanOf(bmc, {.bmc = "b", .rules = rules});
  for (const std::size_t columns : {std::size_t{80}, std::size_t{120}}) {
    const std::string text = DescribePlan(plan, {.columns = columns});
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("\x1b")));
    std::size_t begin = 0;
    while (begin < text.size()) {
      const std::size_t end = text.find('\n', begin);
      EXPECT_LE(end - begin, columns) << text.substr(begin, end - begin);
      begin = end + 1;
    }
    for (const char* title :
         {"Target\n", "\nImage\n", "\nUpdate flow", "\nFirmware now\n",
          "\nTime\n", "\nFindings\n", "blocker: The update service"}) {
      EXPECT_THAT(text, testing::HasSubstr(title));
    }
  }
}

nlohmann::ordered_json InstalledRulesJson() {
  std::ifstream file(QUORVANE_SOURCE_DIR "/config/brindle.config.json");
  return nlohmann::ordered_json::parse(file);
}

RulesDraft DraftOf(FakeBmc& bmc, nlohmann::ordered_json base) {
  const DraftRequest request{
      .bmc = "192.0.2.7", .user = "admin", .base = std::move(base)};
  return DraftRules(ReadFacts(bmc, FactsFor(request)), request);
}

TEST(Drafting, PutsOnlyWhatTheBmcAdvertisesInTheLists) {
  FakeBmc bmc;
  bmc.at[kService]["HttpPushUri"] = "/binary";
  nlohmann::ordered_json base = InstalledRulesJson();
  base["authentication"]["password"] = "secret";
  base["authentication"]["token"] = "secret";
  const RulesDraft draft = DraftOf(bmc, base);
  const auto& update = draft.rules["firmware_update"];
  EXPECT_EQ(Json(update["multipart_update"]["upload_uri"]),
            Json::array({kUpload, "/binary"}));
  EXPECT_EQ(Json(update["inventory_uri"]), Json::array({kInventory}));
  EXPECT_EQ(Json(update["reboot"]["reboot_uri"]), Json::array({kReset}));
  EXPECT_EQ(update["reboot"]["reboot_required"], true);
  EXPECT_EQ(draft.rules["target"]["ip"], "192.0.2.7");
  EXPECT_EQ(draft.rules.dump().find("secret"), std::string::npos);
  EXPECT_THAT(CheckRules(draft.rules.dump()), testing::IsEmpty());
  // No SimpleUpdate action is advertised, and none of the base is present.
  for (const DraftReason& reason : draft.reasons) {
    EXPECT_EQ(reason.must_be_checked, reason.key == "activation.activation_uri")
        << reason.key;
  }
}

// The reason for a key of the draft.
std::string ReasonFor(const RulesDraft& draft, const std::string& key) {
  std::string text;
  for (const DraftReason& one : draft.reasons) {
    if (one.key == key) text += one.reason;
  }
  return text;
}

TEST(Drafting, CallsNothingAbsentThatCouldNotBeRead) {
  FakeBmc bmc;
  bmc.at[kService].erase("MultipartHttpPushUri");
  bmc.at[kSystem] = 500;
  bmc.at["/FWUpdate"] = 503;
  nlohmann::ordered_json base = InstalledRulesJson();
  base["firmware_update"]["multipart_update"]["upload_uri"] = {"/none",
                                                               "/FWUpdate"};
  base["firmware_update"]["reboot"]["reboot_uri"] = {kReset};  // 404 to a GET
  const RulesDraft draft = DraftOf(bmc, base);
  const auto& update = draft.rules["firmware_update"];
  EXPECT_EQ(Json(update["multipart_update"]["upload_uri"]),
            Json::array({"/FWUpdate"}));
  EXPECT_EQ(Json(update["reboot"]["reboot_uri"]), Json::array({kReset}));
  for (const char* key : {"multipart_update.upload_uri", "reboot.reboot_uri"}) {
    EXPECT_THAT(ReasonFor(draft, key), testing::HasSubstr("is not known"));
  }
  EXPECT_THAT(ReasonFor(draft, "reboot.reboot_uri"),
              testing::HasSubstr("not all systems"));
  EXPECT_THAT(ReasonFor(draft, "task_monitoring.task_states"),
              testing::HasSubstr("has no task"));
}

TEST(Drafting, KeepsWhatIsPresentAndRebootsOnlyAsTheSystemAllows) {
  FakeBmc bmc;
  bmc.at[kService].erase("MultipartHttpPushUri");
  bmc.at["/FWUpdate"] = 405;
  bmc.at[kSystem]["Actions"]["#ComputerSystem.Reset"]
        ["ResetType@Redfish.AllowableValues"] = {"ForceRestart"};
  const RulesDraft draft = DraftOf(bmc, InstalledRulesJson());
  const auto& update = draft.rules["firmware_update"];
  EXPECT_EQ(Json(update["multipart_update"]["upload_uri"]),
            Json::array({"/FWUpdate"}));
  EXPECT_EQ(update["reboot"]["reboot_required"], false);
  EXPECT_THAT(CheckRules(draft.rules.dump()), testing::IsEmpty());
}

}  // namespace
}  // namespace quorvane::tool
