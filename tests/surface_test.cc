// SPDX-License-Identifier: Apache-2.0
// The shipped library from outside: where it looks for its rules, and that its
// functions work through the shared object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <quorvane/quorvane.h>

#include <string>
#include <vector>

namespace quorvane {
namespace {

using testing::EndsWith;
using testing::StartsWith;

TEST(ShippedLibrary, FindsTheRulesFileBesideItself) {
  EXPECT_THAT(ResolveConfigPath(), StartsWith("/"));
  EXPECT_THAT(ResolveConfigPath(), EndsWith("/brindle.config.json"));
  const Config config = LoadConfigAuto();
  EXPECT_EQ(config.ip, "192.0.2.1");
  EXPECT_EQ(config.task_states.size(), 13);
}

TEST(ShippedLibrary, ThrowsAcrossItsBorder) {
  std::vector<InventoryItem> items;
  EXPECT_THROW(static_cast<void>(FetchInventory({}, items)),
               std::runtime_error);
  EXPECT_THROW(static_cast<void>(PerformUpdate({})), std::runtime_error);
  EXPECT_THROW(RebootActionFromString(""), std::runtime_error);
}

}  // namespace
}  // namespace quorvane
