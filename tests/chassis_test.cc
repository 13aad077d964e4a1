// SPDX-License-Identifier: Apache-2.0
// The chassis: selection, normalized name, log, and errors.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using nlohmann::json;
using simulator::BmcResponse;
using simulator::Fault;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

struct Member {
  json resource;           // the body of the response
  BmcResponse reply = {};  // the response if `resource` is null
};

class ChassisTest : public BmcTest {
 protected:
  void SetMembers(const std::vector<Member>& members) {
    json collection = {{"Members", json::array()}};
    for (std::size_t i = 0; i < members.size(); ++i) {
      const std::string path = "/c/" + std::to_string(i);
      collection["Members"].push_back({{"@odata.id", path}});
      bmc.On("GET", path)
          .Respond(members[i].resource.is_null()
                       ? members[i].reply
                       : BmcResponse{.body = members[i].resource.dump()});
    }
    bmc.On("GET", "/redfish/v1/Chassis").Respond(200, collection.dump());
  }

  bool Fetch() {
    return FetchChassisInfo(
        {.ip = bmc.Address(), .username = "admin", .password = "password"},
        info);
  }

  ChassisInfo info{"old", "old", "old"};
};

struct SelectionCase {
  const char* name;
  std::vector<Member> members;
  std::vector<std::string> expected;  // Manufacturer, Model, Name; or empty
  std::string log_line;
};

TEST_F(ChassisTest, SelectsMostCompleteChassis) {
  WriteRules("{}");
  const json all = {{"Manufacturer", "M"}, {"Model", "X"}, {"Name", "N"}};
  const json required = {{"Manufacturer", "M2"}, {"Name", "N2"}};
  const json wrong = {{"Manufacturer", 5}, {"Model", "X"}, {"Name", "N"}};
  const std::vector<SelectionCase> cases = {
      {"perfect before an earlier fallback",
       {{required}, {all}},
       {"M", "X", "N"},
       "Found perfect chassis info in member: /c/1 (Manufacturer: M, Model: X, "
       "Name: N)"},
      {"fallback",
       {{wrong}, {required}},
       {"M2", "", "N2"},
       "Found fallback chassis info in member: /c/1 (Manufacturer: M2, Model: "
       ", Name: N2)"},
      {"none has the required fields",
       {{wrong}},
       {},
       "No chassis member has required Manufacturer and Name fields"},
      {"unreadable members are skipped",
       {{nullptr, {.fault = Fault::kDrop}},
        {nullptr, {.status = 500, .body = "x"}},
        {nullptr, {.status = 200}},
        {nullptr, {.body = "{"}},
        {all}},
       {"M", "X", "N"},
       "Failed to parse chassis member JSON for /c/3"},
      {"no members", {}, {}, "Chassis collection has no members"}};
  for (const SelectionCase& row : cases) {
    SCOPED_TRACE(row.name);
    SetMembers(row.members);
    info = {"old", "old", "old"};
    const bool found = Fetch();
    EXPECT_EQ(found, !row.expected.empty());
    const std::vector<std::string> expected =
        row.expected.empty() ? std::vector<std::string>{"old", "old", "old"}
                             : row.expected;
    EXPECT_EQ((std::vector{info.Manufacturer, info.Model, info.Name}),
              expected);
    EXPECT_THAT(Log("chassis"), Contains(row.log_line));
  }
  EXPECT_THAT(
      Log("chassis"),
      AllOf(Contains(StartsWith("Chassis member request failed: GET failed: ")),
            Contains("Chassis member returned HTTP 500"),
            Contains("Chassis member returned HTTP 200")));
}

TEST_F(ChassisTest, LogsEveryStep) {
  WriteRules("{}");
  const json all = {{"Manufacturer", "M"}, {"Model", "X"}, {"Name", "N"}};
  SetMembers({{all}});
  EXPECT_TRUE(Fetch());
  const std::string base = MaskIP(Url(""));
  EXPECT_THAT(
      Log("chassis"),
      ElementsAre("GET chassis collection: " + base + "/redfish/v1/Chassis",
                  "Chassis members found: 1",
                  "GET chassis member: " + base + "/c/0",
                  "Found perfect chassis info in member: /c/0 "
                  "(Manufacturer: M, Model: X, Name: N)",
                  "Chassis Manufacturer: M, Model: X"));
  EXPECT_THAT(Log(), Contains("DEBUG [chassis] Chassis member response body: " +
                              all.dump()));
}

TEST_F(ChassisTest, FailsIfCollectionCannotBeRead) {
  WriteRules("{}");
  bmc.On("GET", "/redfish/v1/Chassis").Respond({.fault = Fault::kReset});
  EXPECT_FALSE(Fetch());
  bmc.On("GET", "/redfish/v1/Chassis").Respond(403, "x");
  EXPECT_FALSE(Fetch());
  bmc.On("GET", "/redfish/v1/Chassis").Respond(200, "<html>");
  EXPECT_FALSE(Fetch());
  EXPECT_THAT(Log("chassis"),
              AllOf(Contains(StartsWith("Chassis collection request failed: ")),
                    Contains("Chassis collection returned HTTP 403"),
                    Contains("Chassis collection has no members")));
  EXPECT_THAT(Log("inventory"), ElementsAre("Failed to parse collection JSON"));
  bmc.ClearRequests();
  EXPECT_FALSE(FetchChassisInfo({}, info));
  EXPECT_THAT(RequestLines(), IsEmpty());
}

TEST_F(ChassisTest, NormalizesName) {
  WriteRules(R"({"chassis_name_mappings": [
    {"source_pattern": "RACK server", "normalized_name": "by model",
     "check_model": true, "model_pattern": "x9"},
    {"source_pattern": "rack server", "normalized_name": "no model pattern",
     "check_model": true},
    {"source_pattern": "rack", "normalized_name": "by name"},
    {"source_pattern": "rack", "normalized_name": "unused"}]})");
  struct Row {
    const char* name;
    const char* model;
    const char* normalized;
    const char* log_line;
  };
  for (const Row& row :
       {Row{"Rack Server 2U-A", "model X9", "by model",
            "Normalized chassis name to: by model (name pattern: RACK server, "
            "model pattern: x9)"},
        Row{"Rack Server 2U-A", "", "by name",
            "Normalized chassis name to: by name (name pattern: rack)"},
        Row{"Tower", "X9", "Tower", "Chassis Manufacturer: M, Model: X9"}}) {
    SCOPED_TRACE(row.normalized);
    SetMembers(
        {{{{"Manufacturer", "M"}, {"Model", row.model}, {"Name", row.name}}}});
    EXPECT_TRUE(Fetch());
    EXPECT_EQ(info.Name, row.normalized);
    EXPECT_THAT(Log("chassis"), Contains(row.log_line));
  }
}

}  // namespace
}  // namespace quorvane::test
