// SPDX-License-Identifier: Apache-2.0
// What reading the firmware inventory promises: which URIs are asked, what the
// rules make of an answer, which members become items, and what is told.
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using nlohmann::json;
using simulator::Fault;
using simulator::Header;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kFirst = "/redfish/v1/first";
constexpr const char* kSecond = "/redfish/v1/second";
constexpr const char* kThird = "/redfish/v1/third";
constexpr const char* kMember = "/redfish/v1/first/BMC";

constexpr const char* kOneUri = R"({
  "retry_config": {"max_retries": 1},
  "firmware_update": {"inventory_uri": "/redfish/v1/first"}})";
constexpr const char* kThreeUris = R"({
  "retry_config": {"max_retries": 1},
  "firmware_update": {"inventory_uri": [
    "/redfish/v1/first", "/redfish/v1/second", "/redfish/v1/third"]}})";

std::string Collection(const std::vector<std::string>& members) {
  json collection = {{"Name", "Inventory"}, {"Members", json::array()}};
  for (const std::string& member : members) {
    collection["Members"].push_back({{"@odata.id", member}});
  }
  return collection.dump();
}

class InventoryTest : public BmcTest {
 protected:
  InventoryTest() { bmc.On("GET", kMember).Answer(200, R"({"Name":"BMC"})"); }

  bool Fetch() {
    return FetchInventory(
        {.ip = bmc.Address(), .username = "admin", .password = "s3cret"},
        items);
  }
  // What it throws; empty when it does not.
  std::string Failure() {
    try {
      static_cast<void>(Fetch());
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
    return {};
  }
  static std::string Asking(const std::string& url, const char* which) {
    return "GET collection: " + MaskIP(url) + " (URI " + which + ")";
  }

  // Not empty, so that every road shows whether it clears the list.
  std::vector<InventoryItem> items = std::vector<InventoryItem>(1);
};

TEST_F(InventoryTest, NeedsAnAddress) {
  EXPECT_THAT([&] { FetchInventory({}, items); },
              testing::ThrowsMessage<std::runtime_error>(
                  "FetchInventory: InventoryRequest.ip must not be empty"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InventoryTest, NeedsRules) {
  EXPECT_THAT(Failure(), StartsWith("Cannot open config file: "));
  Rules(R"({"retry_config": {"max_retries": 0}})");
  EXPECT_THAT(Failure(), StartsWith("retry_config: "));
  EXPECT_THAT(Asked(), IsEmpty());
  EXPECT_THAT(Log("inventory"), IsEmpty());
}

TEST_F(InventoryTest, IsReadMemberByMemberWithTheRequestsAccount) {
  Rules(R"({
    "authentication": {"type": "oauth", "username": "file", "token": "t"},
    "target": {"ip": "192.0.2.9", "ipv6": "2001:db8::9"},
    "firmware_update": {
      "inventory_uri": ["/redfish/v1/first", "/redfish/v1/second"]}})");
  const std::string elsewhere = Url("/elsewhere/NIC");
  bmc.On("GET", kFirst).Answer(200, Collection({kMember, elsewhere}));
  bmc.On("GET", kMember).Answer(200, R"({
    "@odata.id": "/another", "Name": "BMC firmware", "SoftwareId": "id-1",
    "Version": "1.2.3",
    "RelatedItem": [{"@odata.id": "/m/1"}, {"@odata.id": "/m/2"}]})");
  bmc.On("GET", "/elsewhere/NIC").Answer(200, R"({"Version": "2"})");
  EXPECT_TRUE(Fetch()) << LogText();

  ASSERT_EQ(items.size(), 2);
  EXPECT_EQ(items[0].uri, kMember);
  EXPECT_EQ(items[0].Name, "BMC firmware");
  EXPECT_EQ(items[0].SoftwareId, "id-1");
  EXPECT_EQ(items[0].Version, "1.2.3");
  EXPECT_EQ(items[0].target_id, "/m/1");
  EXPECT_EQ(items[1].uri, elsewhere);
  EXPECT_THAT(Asked(),
              ElementsAre("GET /redfish/v1/first", "GET /redfish/v1/first/BMC",
                          "GET /elsewhere/NIC"));
  for (const auto& request : bmc.Requests()) {
    EXPECT_EQ(Header(request, "Authorization"), "Basic YWRtaW46czNjcmV0");
  }
  EXPECT_THAT(
      Log("inventory"),
      ElementsAre("========== INVENTORY FETCH START ==========", "Config mode",
                  "Target IP  : " + MaskIP(bmc.Address()), "Username   : admin",
                  "Inv URIs   : [/redfish/v1/first, /redfish/v1/second]",
                  Asking(Url(kFirst), "1/2"),
                  "Collection HTTP status: 200 (used URI: /redfish/v1/first)",
                  "Members found: 2",
                  "========== INVENTORY FETCH COMPLETE ==========",
                  "Total items fetched: 2",
                  "Item [1]:", "  URI         : /redfish/v1/first/BMC",
                  "  Name        : BMC firmware", "  SoftwareId  : id-1",
                  "  Version     : 1.2.3", "  TargetId    : /m/1",
                  "Item [2]:", "  URI         : " + elsewhere,
                  "  Name        : ", "  SoftwareId  : ", "  Version     : 2",
                  "  TargetId    : ",
                  "================================================"));
  EXPECT_THAT(LogText(), Not(testing::HasSubstr("s3cret")));
}

TEST_F(InventoryTest, MembersThatCannotBeReadAreLeftOut) {
  Rules(kOneUri);
  bmc.On("GET", kFirst).Answer(200, Collection({kMember}));
  struct Case {
    int status;
    const char *body, *skipped;
  };
  for (const Case& row : std::vector<Case>{
           {404, "{}", "GET member failed: /redfish/v1/first/BMC (HTTP 404)"},
           {201, "{}", "GET member failed: /redfish/v1/first/BMC (HTTP 201)"},
           {200, "", "GET member failed: /redfish/v1/first/BMC (HTTP 200)"},
           {200, "<html>",
            "Failed to parse member JSON for /redfish/v1/first/BMC"}}) {
    bmc.On("GET", kMember).Answer(row.status, row.body);
    EXPECT_TRUE(Fetch());
    EXPECT_THAT(items, IsEmpty());
    EXPECT_EQ(*(Log().end() - 4),
              std::string("WARNING [inventory] ") + row.skipped);
    EXPECT_EQ(*(Log().end() - 2), "INFO [inventory] Total items fetched: 0");
  }
}

TEST_F(InventoryTest, WhatAMemberDoesNotTellIsEmpty) {
  Rules(kOneUri);
  bmc.On("GET", kFirst).Answer(200, Collection({kMember}));
  for (const char* body :
       {"[]", R"({"Name": 5, "SoftwareId": null, "Version": {}})",
        R"({"name": "a", "relateditem": [{"@odata.id": "/a"}]})",
        R"({"RelatedItem": {"@odata.id": "/a"}})", R"({"RelatedItem": []})",
        R"({"RelatedItem": [{}, {"@odata.id": "/b"}]})",
        R"({"RelatedItem": ["/a", {"@odata.id": "/b"}]})"}) {
    bmc.On("GET", kMember).Answer(200, body);
    EXPECT_TRUE(Fetch());
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0].uri, kMember);
    EXPECT_EQ(items[0].Name + items[0].SoftwareId + items[0].Version +
                  items[0].target_id,
              "")
        << body;
  }
}

TEST_F(InventoryTest, CollectionsMayHoldNothingOfUse) {
  Rules(kOneUri);
  for (const char* body :
       {"{}", "[]", R"({"Members": []})", R"({"Members": {"@odata.id": "/a"}})",
        R"({"members": [{"@odata.id": "/a"}]})",
        R"({"Members": ["/a", 5, {}, {"@odata.id": 5}, {"@odata.ID": "/a"}]})",
        "<html>"}) {
    bmc.On("GET", kFirst).Answer(200, body);
    EXPECT_TRUE(Fetch()) << body;
    EXPECT_THAT(items, IsEmpty());
    std::vector<std::string> told = Log();
    if (std::string(body) == "<html>") {
      EXPECT_EQ(*(told.end() - 3),
                "WARNING [inventory] Failed to parse collection JSON");
    }
    EXPECT_EQ(*(told.end() - 2), "INFO [inventory] Members found: 0");
    EXPECT_EQ(told.back(), "WARNING [inventory] Members[] is empty or missing");
  }
  EXPECT_EQ(bmc.Requests().size(), 7);
}

TEST_F(InventoryTest, TheNextUriIsAskedWithoutAWait) {
  Rules(kThreeUris);
  bmc.On("GET", kFirst).Answer(404);
  bmc.On("GET", kSecond).Answer({.fault = Fault::kDrop});
  bmc.On("GET", kThird).Answer(200, Collection({kMember}));
  EXPECT_TRUE(Fetch());
  EXPECT_EQ(items.size(), 1);
  EXPECT_THAT(Waits(), IsEmpty());
  std::vector<std::string> told = Log("inventory");
  ASSERT_GT(told.size(), 11);
  told.assign(told.begin() + 5, told.begin() + 11);
  EXPECT_THAT(
      told,
      ElementsAre(
          Asking(Url(kFirst), "1/3"),
          "URI failed: /redfish/v1/first (HTTP 404), trying next URI",
          Asking(Url(kSecond), "2/3"),
          AllOf(StartsWith("URI failed: /redfish/v1/second (exception: GET "
                           "failed: "),
                testing::EndsWith("), trying next URI")),
          Asking(Url(kThird), "3/3"),
          "Collection HTTP status: 200 (used URI: /redfish/v1/third)"));
}

// When no URI answers 200, what the last one answers to one more try counts.
TEST_F(InventoryTest, TheLastUriHasTheLastWord) {
  Rules(kThreeUris);
  bmc.On("GET", kFirst).Answer(404);
  bmc.On("GET", kSecond).Answer(500);
  bmc.On("GET", kThird).Answer(503).Then(401);
  EXPECT_FALSE(Fetch());
  EXPECT_THAT(Asked(),
              ElementsAre("GET /redfish/v1/first", "GET /redfish/v1/second",
                          "GET /redfish/v1/third", "GET /redfish/v1/third"));
  EXPECT_THAT(Log("inventory"),
              Contains("Collection HTTP status: 401 (used URI: "
                       "/redfish/v1/third)"));

  bmc.On("GET", kThird).Answer(503).Then({.fault = Fault::kReset});
  items.resize(1);
  EXPECT_THAT(Failure(), StartsWith("GET failed: "));
  EXPECT_THAT(items, IsEmpty());
  EXPECT_EQ(Log().back().rfind("ERROR [http] GET failed: ", 0), 0);

  bmc.On("GET", kThird).Answer({.fault = Fault::kDrop}).Then(200, "{}");
  EXPECT_TRUE(Fetch());
  EXPECT_THAT(Waits(), IsEmpty());
}

TEST_F(InventoryTest, AMemberThatBringsNoAnswerEndsIt) {
  Rules(kOneUri);
  bmc.On("GET", kFirst).Answer(200, Collection({kMember, "/gone", kMember}));
  bmc.On("GET", "/gone").Answer({.fault = Fault::kDrop});
  EXPECT_THAT(Failure(), StartsWith("GET failed: "));
  EXPECT_THAT(items, IsEmpty());
  EXPECT_EQ(bmc.Requests().size(), 3);
}

// What each status does by the rules, with one retry. Lines at WARNING and
// above are told; a URI that did not answer 200 is told besides.
TEST_F(InventoryTest, TheRulesDecide) {
  const std::string one = Collection({kMember});
  const std::string failed =
      "ERROR [inventory] Inventory fetch failed after 1 retries";
  const std::string empty = "WARNING [inventory] 200 but empty body, retrying";
  const std::string returned = "[inventory] Collection returned HTTP ";
  const std::string manual = " \u2014 fail / manual check required";
  struct Case {
    const char* rule;
    int status;
    std::string body, last;
    std::size_t tries, items;
  };
  for (const Case& row : std::vector<Case>{
           {"{}", 200, one, "", 1, 1},
           {R"({"200":"validate_firmware"})", 200, one, "", 1, 1},
           {"{}", 200, "", empty, 2, 0},
           {R"({"200":"retry_inventory"})", 200, one,
            "WARNING " + returned + "200, retrying", 2, 0},
           {R"({"200":"fail_or_manual_check"})", 200, one,
            "ERROR " + returned + "200" + manual, 1, 0},
           {R"({"404":"validate_firmware"})", 404, one, "", 1, 1},
           {R"({"404":"validate_firmware"})", 404, "", empty, 2, 0},
           {"{}", 500, one, "WARNING " + returned + "500, retrying", 2, 0},
           {R"({"500":"retry_inventory"})", 500, "",
            "WARNING " + returned + "500, retrying", 2, 0},
           {R"({"500":"fail_or_manual_check"})", 500, "",
            "ERROR " + returned + "500" + manual, 1, 0},
           {R"({"401":"validate_firmware"})", 401, one,
            "ERROR [inventory] Authentication failed (HTTP 401 Unauthorized)",
            1, 0},
           {R"({"403":"retry_inventory"})", 403, one,
            "ERROR [inventory] Access denied (HTTP 403 Forbidden)", 1, 0}}) {
    SCOPED_TRACE(row.rule + std::to_string(row.status) + row.body);
    json rules = json::parse(kOneUri);
    rules["firmware_update"]["inventory_rules"] = json::parse(row.rule);
    Rules(rules.dump());
    bmc.On("GET", kFirst).Answer(row.status, row.body);
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < row.tries; ++i) {
      if (row.status != 200) {
        expected.push_back(
            "WARNING [inventory] URI failed: " + std::string(kFirst) +
            " (HTTP " + std::to_string(row.status) + "), trying next URI");
      }
      if (!row.last.empty()) expected.push_back(row.last);
    }
    if (row.tries == 2) expected.push_back(failed);
    const long logged = std::ssize(Log());
    const std::size_t waited = Waits().size();
    EXPECT_EQ(Fetch(), row.items == 1);
    EXPECT_EQ(items.size(), row.items);
    std::vector<std::string> told = Log();
    told.erase(told.begin(), told.begin() + logged);
    std::erase_if(told, [](const std::string& line) {
      return line[0] != 'W' && line[0] != 'E';
    });
    EXPECT_EQ(told, expected);
    EXPECT_EQ(Waits().size() - waited, row.tries - 1);
  }
}

TEST_F(InventoryTest, WaitsAreFixedOrDouble) {
  for (const char* strategy : {"exponential", "fixed"}) {
    Rules(R"({"retry_config": {"sleep_time": 5, "backoff_strategy": ")" +
          std::string(strategy) + R"("},
        "firmware_update": {"inventory_uri": "/redfish/v1/first"}})");
    bmc.On("GET", kFirst).Answer(500);
    bmc.ClearRequests();
    EXPECT_FALSE(Fetch());
    EXPECT_EQ(bmc.Requests().size(), 8);  // four tries, each asks twice
    EXPECT_EQ(Log("inventory").back(),
              "Inventory fetch failed after 3 retries");
  }
  EXPECT_THAT(Waits(), ElementsAre(5, 10, 20, 5, 5, 5));
  EXPECT_THAT(Log("inventory"),
              AllOf(Contains("Retrying in 5s (attempt 1/3)").Times(2),
                    Contains("Retrying in 10s (attempt 2/3)").Times(1),
                    Contains("Retrying in 20s (attempt 3/3)").Times(1),
                    Contains("Retrying in 5s (attempt 3/3)").Times(1)));
}

TEST_F(InventoryTest, ALaterTrySucceeds) {
  Rules(kOneUri);
  bmc.On("GET", kFirst).Answer(500).Then(500).Then(200, Collection({kMember}));
  EXPECT_TRUE(Fetch());
  EXPECT_EQ(items.size(), 1);
  EXPECT_THAT(Waits(), ElementsAre(5));
}

}  // namespace
}  // namespace quorvane::test
