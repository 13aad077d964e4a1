// SPDX-License-Identifier: Apache-2.0
// The firmware inventory: the order of the URIs, the rules for each status, the
// members that become items, and the log.
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using nlohmann::json;
using simulator::Fault;
using simulator::Header;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
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

auto Throws(const char* start) {
  return testing::ThrowsMessage<std::runtime_error>(StartsWith(start));
}

class InventoryTest : public BmcTest {
 protected:
  InventoryTest() { bmc.On("GET", kMember).Respond(200, R"({"Name":"BMC"})"); }

  bool Fetch() {
    return FetchInventory(
        {.ip = bmc.Address(), .username = "admin", .password = "s3cret"},
        items);
  }
  auto Fetching() {
    return [this] { static_cast<void>(Fetch()); };
  }
  static std::string GetLine(const std::string& url, const char* which) {
    return "GET collection: " + MaskIP(url) + " (URI " + which + ")";
  }

  // Not empty, so that each test shows whether the list is cleared.
  std::vector<InventoryItem> items = std::vector<InventoryItem>(1);
};

TEST_F(InventoryTest, RequiresAddressAndRules) {
  EXPECT_THAT([&] { static_cast<void>(FetchInventory({}, items)); },
              Throws("FetchInventory: InventoryRequest.ip must not be empty"));
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_THAT(Fetching(), Throws("Cannot open config file: "));
  EXPECT_THAT(items, IsEmpty());
  EXPECT_THAT(RequestLines(), IsEmpty());
  EXPECT_THAT(Log("inventory"), IsEmpty());
}

TEST_F(InventoryTest, ReadsMembersWithAccountOfRequest) {
  WriteRules(R"({
    "authentication": {"type": "oauth", "username": "file", "token": "t"},
    "target": {"ip": "192.0.2.9", "ipv6": "2001:db8::9"},
    "firmware_update": {
      "inventory_uri": ["/redfish/v1/first", "/redfish/v1/second"]}})");
  const std::string elsewhere =
      "https://u:hidden@" + bmc.Address() + "/elsewhere/NIC";
  bmc.On("GET", kFirst).Respond(200, Collection({kMember, elsewhere}));
  bmc.On("GET", kMember).Respond(200, R"({
    "@odata.id": "/another", "Name": "BMC firmware", "SoftwareId": "id-1",
    "Version": "1.2.3",
    "RelatedItem": [{"@odata.id": "/m/1"}, {"@odata.id": "/m/2"}]})");
  bmc.On("GET", "/elsewhere/NIC").Respond(200, R"({"Version": "2"})");
  EXPECT_TRUE(Fetch()) << LogText();

  ASSERT_EQ(items.size(), 2);
  EXPECT_EQ(items[0].uri, kMember);
  EXPECT_EQ(items[0].Name, "BMC firmware");
  EXPECT_EQ(items[0].SoftwareId, "id-1");
  EXPECT_EQ(items[0].Version, "1.2.3");
  EXPECT_EQ(items[0].target_id, "/m/1");
  EXPECT_EQ(items[1].uri, elsewhere);
  EXPECT_THAT(RequestLines(),
              ElementsAre("GET /redfish/v1/first", "GET /redfish/v1/first/BMC",
                          "GET /elsewhere/NIC"));
  EXPECT_EQ(Header(bmc.Requests()[0], "Authorization"),
            "Basic YWRtaW46czNjcmV0");
  EXPECT_THAT(
      Log("inventory"),
      ElementsAre("========== INVENTORY FETCH START ==========", "Config mode",
                  "Target IP  : " + MaskIP(bmc.Address()), "Username   : admin",
                  "Inv URIs   : [/redfish/v1/first, /redfish/v1/second]",
                  GetLine(Url(kFirst), "1/2"),
                  "Collection HTTP status: 200 (used URI: /redfish/v1/first)",
                  "Members found: 2",
                  "========== INVENTORY FETCH COMPLETE ==========",
                  "Total items fetched: 2",
                  "Item [1]:", "  URI         : /redfish/v1/first/BMC",
                  "  Name        : BMC firmware", "  SoftwareId  : id-1",
                  "  Version     : 1.2.3", "  TargetId    : /m/1", "Item [2]:",
                  "  URI         : https://u:<REDACTED>@" + bmc.Address() +
                      "/elsewhere/NIC",
                  "  Name        : ", "  SoftwareId  : ", "  Version     : 2",
                  "  TargetId    : ",
                  "================================================"));
  EXPECT_THAT(LogText(), testing::AllOf(Not(testing::HasSubstr("s3cret")),
                                        Not(testing::HasSubstr("hidden"))));
}

TEST_F(InventoryTest, SkipsUnreadableMembers) {
  WriteRules(kOneUri);
  bmc.On("GET", kFirst).Respond(200, Collection({kMember}));
  const std::string failed = "GET member failed: /redfish/v1/first/BMC (HTTP ";
  const std::vector<std::tuple<int, const char*, std::string>> cases = {
      {404, "{}", failed + "404)"},
      {201, "{}", failed + "201)"},
      {200, "", failed + "200)"},
      {200, "<html>", "Failed to parse member JSON for /redfish/v1/first/BMC"}};
  for (const auto& [status, body, skipped] : cases) {
    bmc.On("GET", kMember).Respond(status, body);
    EXPECT_TRUE(Fetch());
    EXPECT_THAT(items, IsEmpty());
    EXPECT_EQ(*(Log().end() - 4), "WARNING [inventory] " + skipped);
    EXPECT_EQ(*(Log().end() - 2), "INFO [inventory] Total items fetched: 0");
  }
}

TEST_F(InventoryTest, LeavesMissingPropertiesEmpty) {
  WriteRules(kOneUri);
  bmc.On("GET", kFirst).Respond(200, Collection({kMember}));
  for (const char* body :
       {"[]", R"({"Name": 5, "SoftwareId": null, "Version": {}})",
        R"({"name": "a", "RelatedItem": {"@odata.id": "/a"}})",
        R"({"RelatedItem": [{}, {"@odata.id": "/b"}]})",
        R"({"RelatedItem": ["/a", {"@odata.id": "/b"}]})"}) {
    bmc.On("GET", kMember).Respond(200, body);
    EXPECT_TRUE(Fetch());
    const InventoryItem& item = items.at(0);
    EXPECT_EQ(item.Name + item.SoftwareId + item.Version + item.target_id, "")
        << body;
  }
}

TEST_F(InventoryTest, AcceptsCollectionWithoutMembers) {
  WriteRules(kOneUri);
  for (const char* body :
       {"{}", "[]", R"({"Members": []})", R"({"Members": {"@odata.id": "/a"}})",
        R"({"members": [{"@odata.id": "/a"}]})",
        R"({"Members": ["/a", 5, {}, {"@odata.id": 5}, {"@odata.ID": "/a"}]})",
        "<html>"}) {
    bmc.On("GET", kFirst).Respond(200, body);
    EXPECT_TRUE(Fetch()) << body;
    EXPECT_THAT(items, IsEmpty());
    EXPECT_EQ(*(Log().end() - 2), "INFO [inventory] Members found: 0");
    EXPECT_EQ(Log().back(),
              "WARNING [inventory] Members[] is empty or missing");
  }
  EXPECT_EQ(*(Log().end() - 3),
            "WARNING [inventory] Failed to parse collection JSON");
  EXPECT_EQ(bmc.Requests().size(), 7);
}

TEST_F(InventoryTest, TriesNextUriWithoutWait) {
  WriteRules(kThreeUris);
  bmc.On("GET", kFirst).Respond(404);
  bmc.On("GET", kSecond).Respond({.fault = Fault::kDrop});
  bmc.On("GET", kThird).Respond(200, Collection({kMember}));
  EXPECT_TRUE(Fetch());
  EXPECT_EQ(items.size(), 1);
  EXPECT_THAT(Waits(), IsEmpty());
  const auto uri_failed = [](const char* uri, const char* why) {
    return StartsWith(std::string("URI failed: ") + uri + why);
  };
  EXPECT_THAT(Log("inventory"),
              IsSupersetOf({uri_failed(kFirst, " (HTTP 404), trying next URI"),
                            uri_failed(kSecond, " (exception: GET failed: "),
                            StartsWith(GetLine(Url(kThird), "3/3"))}));
}

// If no URI returns 200, the response to a second request to the last URI
// counts.
TEST_F(InventoryTest, UsesSecondResponseOfLastUri) {
  WriteRules(kThreeUris);
  bmc.On("GET", kFirst).Respond(404);
  bmc.On("GET", kSecond).Respond(500);
  bmc.On("GET", kThird).Respond(503).Then(401);
  EXPECT_FALSE(Fetch());
  EXPECT_THAT(RequestLines(),
              ElementsAre("GET /redfish/v1/first", "GET /redfish/v1/second",
                          "GET /redfish/v1/third", "GET /redfish/v1/third"));
  EXPECT_EQ(*(Log("inventory").end() - 2),
            "Collection HTTP status: 401 (used URI: /redfish/v1/third)");

  bmc.On("GET", kThird).Respond(503).Then({.fault = Fault::kReset});
  items.resize(1);
  EXPECT_THAT(Fetching(), Throws("GET failed: "));
  EXPECT_THAT(items, IsEmpty());

  bmc.On("GET", kThird).Respond({.fault = Fault::kDrop}).Then(200, "{}");
  EXPECT_TRUE(Fetch());
  EXPECT_THAT(Waits(), IsEmpty());
}

// The effect of each status and rule, with one retry. Checks all lines at
// WARNING and above, except those for a URI that did not return 200.
TEST_F(InventoryTest, AppliesRules) {
  const std::string one = Collection({kMember});
  const std::string empty = "WARNING [inventory] 200 but empty body, retrying";
  const std::string returned = "[inventory] Collection returned HTTP ";
  const std::string manual = " \u2014 fail / manual check required";
  struct Case {
    std::string rule;
    int status;
    std::string body, log_line;
    std::size_t attempts, items;
  };
  for (const Case& row : std::vector<Case>{
           {"", 200, one, "", 1, 1},
           {"validate_firmware", 200, one, "", 1, 1},
           {"", 200, "", empty, 2, 0},
           {"retry_inventory", 200, one,
            "WARNING " + returned + "200, retrying", 2, 0},
           {"validate_firmware", 404, one, "", 1, 1},
           {"validate_firmware", 404, "", empty, 2, 0},
           {"", 500, one, "WARNING " + returned + "500, retrying", 2, 0},
           {"fail_or_manual_check", 500, one,
            "ERROR " + returned + "500" + manual, 1, 0},
           {"validate_firmware", 401, one,
            "ERROR [inventory] Authentication failed (HTTP 401 Unauthorized)",
            1, 0},
           {"retry_inventory", 403, one,
            "ERROR [inventory] Access denied (HTTP 403 Forbidden)", 1, 0}}) {
    SCOPED_TRACE(row.rule + std::to_string(row.status) + row.body);
    json rules = json::parse(kOneUri);
    if (!row.rule.empty()) {
      rules["firmware_update"]["inventory_rules"] = {
          {std::to_string(row.status), row.rule}};
    }
    WriteRules(rules.dump());
    bmc.On("GET", kFirst).Respond(row.status, row.body);
    std::vector<std::string> expected;
    if (!row.log_line.empty()) expected.assign(row.attempts, row.log_line);
    if (row.attempts == 2) {
      expected.emplace_back(
          "ERROR [inventory] Inventory fetch failed after 1 retries");
    }
    const long lines_before = std::ssize(Log());
    const std::size_t waits_before = Waits().size();
    EXPECT_EQ(Fetch(), row.items == 1);
    EXPECT_EQ(items.size(), row.items);
    std::vector<std::string> lines = Log();
    lines.erase(lines.begin(), lines.begin() + lines_before);
    std::erase_if(lines, [](const std::string& line) {
      return line[0] == 'I' || line[0] == 'D' ||
             line.find("URI failed") != std::string::npos;
    });
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(Waits().size() - waits_before, row.attempts - 1);
  }
}

TEST_F(InventoryTest, DoublesWaitsBetweenAttempts) {
  WriteRules(R"({"firmware_update": {"inventory_uri": "/redfish/v1/first"}})");
  auto collection = bmc.On("GET", kFirst);
  collection.Respond(500);
  EXPECT_FALSE(Fetch());
  EXPECT_EQ(bmc.Requests().size(), 8);  // four attempts with two requests each
  EXPECT_THAT(Waits(), ElementsAre(5, 10, 20));
  EXPECT_EQ(Log("inventory").back(), "Inventory fetch failed after 3 retries");

  collection.Respond(500).Then(500).Then(200, Collection({kMember}));
  EXPECT_TRUE(Fetch());
  EXPECT_EQ(items.size(), 1);
  EXPECT_THAT(Waits(), ElementsAre(5, 10, 20, 5));
}

}  // namespace
}  // namespace quorvane::test
