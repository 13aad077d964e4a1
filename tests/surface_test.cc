// SPDX-License-Identifier: Apache-2.0
// The shipped library: the path of its rules file, and calls and exceptions
// across the shared object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <quorvane/quorvane.h>

#include <string>
#include <vector>

namespace quorvane {
namespace {

using testing::EndsWith;
using testing::StartsWith;

TEST(ShippedLibrary, FindsRulesFileInItsDirectory) {
  EXPECT_THAT(ResolveConfigPath(), StartsWith("/"));
  EXPECT_THAT(ResolveConfigPath(), EndsWith("/brindle.config.json"));
  const Config config = LoadConfigAuto();
  EXPECT_EQ(config.ip, "192.0.2.1");
  EXPECT_EQ(config.task_states.size(), 13);
}

TEST(ShippedLibrary, ThrowsToItsCaller) {
  std::vector<InventoryItem> items;
  EXPECT_THROW(static_cast<void>(FetchInventory({}, items)),
               std::runtime_error);
  EXPECT_THROW(static_cast<void>(PerformUpdate({})), std::runtime_error);
  EXPECT_THROW(RebootActionFromString(""), std::runtime_error);
}

}  // namespace
}  // namespace quorvane
