// SPDX-License-Identifier: Apache-2.0
// The manual describes every option, command and key of the rules file.
#include "tools/quorvane/app.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <array>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

std::string Source(const std::string& path) {
  std::ifstream file(QUORVANE_SOURCE_DIR "/" + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Whether `word` stands in `text` with one of `after` behind it.
bool Holds(const std::string& text, const std::string& word,
           const std::string& after) {
  for (std::size_t at = text.find(word); at != std::string::npos;
       at = text.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    if (end < text.size() && after.find(text[end]) != std::string::npos) {
      return true;
    }
  }
  return false;
}

// The long options, hidden ones aside, and the commands ("rules check").
void Collect(const CLI::App& app, const std::string& prefix,
             std::set<std::string>& options, std::set<std::string>& commands) {
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    for (const std::string& name : option->get_lnames()) options.insert(name);
  }
  for (const CLI::App* command : app.get_subcommands({})) {
    const std::string name = prefix + command->get_name();
    if (command->get_subcommands({}).empty()) commands.insert(name);
    Collect(*command, name + " ", options, commands);
  }
}

TEST(Documents, NameEveryOptionAndCommand) {
  ExitCode exit_code = ExitCode::kDone;
  std::set<std::string> options;
  std::set<std::string> commands;
  Collect(*MakeApp(exit_code), "", options, commands);
  EXPECT_GT(options.size(), 20U);
  EXPECT_GE(commands.size(), 8U);
  const std::string manual = Source("docs/man/quorvane.1.md");
  for (const std::string& option : options) {
    EXPECT_TRUE(Holds(manual, "\n**\\-\\-" + option, "*")) << option;
  }
  for (const std::string& command : commands) {
    EXPECT_TRUE(Holds(manual, "\n**" + command, "*")) << command;
  }
}

void CollectKeys(const nlohmann::ordered_json& schema,
                 std::set<std::string>& keys) {
  if (!schema.is_structured()) return;
  if (schema.contains("properties")) {
    for (const auto& [key, value] : schema.at("properties").items()) {
      if (key != "$schema") keys.insert(key);
    }
  }
  for (const auto& value : schema) CollectKeys(value, keys);
}

TEST(Documents, NameEveryKeyOfTheRules) {
  std::set<std::string> keys;
  CollectKeys(nlohmann::ordered_json::parse(kRulesSchema), keys);
  EXPECT_GT(keys.size(), 30U);
  const std::string manual = Source("docs/man/brindle.config.json.5.md");
  for (const std::string& key : keys) {
    EXPECT_TRUE(Holds(manual, key, "* \n")) << key;
  }
}

TEST(Tool, DeniesOtherProcessesItsMemory) {
  prctl(PR_SET_DUMPABLE, 1);
  std::string name = "quorvane";
  std::string option = "--version";
  std::array<char*, 3> arguments = {name.data(), option.data(), nullptr};
  EXPECT_EQ(RunTool(2, arguments.data()), ExitCode::kDone);
  EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
}

}  // namespace
}  // namespace quorvane::tool
