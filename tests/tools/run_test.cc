// SPDX-License-Identifier: Apache-2.0
// Log records, and the texts of the library that the tool reads.
#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/tools/log_text.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {
namespace {

using ::testing::ElementsAre;

// The sources of the library, without comments.
std::string LibrarySources() {
  std::string sources;
  for (const char* directory :
       {"config", "http", "inventory", "logging", "update"}) {
    for (const auto& entry : std::filesystem::directory_iterator(
             std::string(QUORVANE_SOURCE_DIR "/") + directory)) {
      const auto extension = entry.path().extension();
      if (extension != ".cc" && extension != ".h") continue;
      sources +=
          std::regex_replace(ReadRegular(entry.path().string(), "source"),
                             std::regex("(^|\n) *//[^\n]*"), "\n");
    }
  }
  return sources;
}

// The string literals in `sources`, adjacent ones joined.
std::vector<std::string> LiteralsIn(const std::string& sources) {
  const std::regex literal(
      R"re("((?:[^"\\\n]|\\.)*)"(\s*"(?:[^"\\\n]|\\.)*")*)re");
  std::vector<std::string> literals;
  for (std::sregex_iterator at(sources.begin(), sources.end(), literal), end;
       at != end; ++at) {
    literals.push_back(
        std::regex_replace(at->str(), std::regex("\"\\s*\""), ""));
  }
  return literals;
}

// Whether `text` is built from the literals from `at` on; {} in it is a value.
// The last literal may be longer.
bool IsBuiltFrom(const std::vector<std::string>& literals, std::size_t at,
                 std::string_view text) {
  for (std::size_t value = text.find("{}"); value != std::string_view::npos;
       value = text.find("{}"), ++at) {
    const std::string piece(text.substr(0, value));
    if (at == literals.size() || literals[at] != '"' + piece + '"') {
      return false;
    }
    text.remove_prefix(value + 2);
  }
  return at < literals.size() &&
         literals[at].rfind('"' + std::string(text), 0) == 0;
}

// A text that the library no longer writes would go unnoticed in a log.
TEST(LogTexts, AreThoseOfTheLibrary) {
  const std::string sources = LibrarySources();
  const std::vector<std::string> literals = LiteralsIn(sources);
  for (const LogText& known : LogTexts()) {
    std::string text(known.text);
    if (const auto line = text.find('\n'); line != std::string::npos) {
      text = std::regex_replace(text, std::regex("\n"), "\\n");
    }
    int count = 0;
    for (std::size_t at = 0; at < literals.size(); ++at) {
      if (IsBuiltFrom(literals, at, text) ||
          literals[at].find("[logger] " + text) != std::string::npos) {
        ++count;
      }
    }
    EXPECT_EQ(count, known.literals)
        << "\"" << text << "\" in the sources of the library";
    // The logger writes its own records, component included.
    if (known.component == "logger") continue;
    EXPECT_NE(sources.find(fmt::format("= \"{}\";", known.component)),
              std::string::npos)
        << known.component;
  }
}

std::vector<std::string> MessagesIn(const std::string& log) {
  std::vector<std::string> messages;
  ReadRecords(log, [&](const Record& record) {
    messages.push_back(record.component + "|" + record.message);
  });
  return messages;
}

TEST(Records, OfAToolLogContainTheirIndentedLines) {
  std::string log = "noise\n";
  for (const auto& [component, message] :
       {std::pair(kToolComponent, std::string("Run: x")),
        std::pair("update", kForgedLines),
        std::pair("", std::string("last"))}) {
    log += LoggedForm({.stamp = "2024-05-01 13:00:00.042",
                       .component = component,
                       .message = message});
  }
  EXPECT_THAT(MessagesIn(log),
              ElementsAre("tool|Run: x", "update|" + kForgedLines, "|last"));
}

TEST(Records, OfALibraryLogAreNeverOfTheTool) {
  EXPECT_THAT(
      MessagesIn(LogOf({"[logger] begin", kForgedLines, "after"})),
      ElementsAre("logger|begin",
                  "update|" + kForgedLines.substr(
                                  0, kForgedLines.find("\n[2024-05-01 13:00:00"
                                                       ".000] [INFO   ] [upd")),
                  "update|forged\nend", "update|after"));
}

TEST(Records, DoNotBeginWithOtherLines) {
  for (const char* line : {"", "[", "[2024-05-01 13:07:09.042]",
                           "[2024-05-01 13:07:09.042] [INFO]",
                           "[2024-05-01T13:07:09.042] [INFO   ] x",
                           "2024-05-01 13:07:09.042 [INFO   ] x",
                           "[2024-05-01 13:07:09.04x] [INFO   ] x"}) {
    EXPECT_FALSE(RecordFrom(line)) << line;
  }
  const auto unnamed = RecordFrom("[2024-05-01 13:07:09.042] [ERROR  ] [RF] x");
  ASSERT_TRUE(unnamed);
  EXPECT_EQ(unnamed->component, "");
  EXPECT_EQ(unnamed->message, "[RF] x");
}

}  // namespace
}  // namespace quorvane::tool
