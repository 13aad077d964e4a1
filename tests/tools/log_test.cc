// SPDX-License-Identifier: Apache-2.0
// What is read from a log, and what is shown of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quorvane/logging.h"
#include "tests/tools/log_text.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/progress.h"
#include "tools/quorvane/view/report.h"
#include "tools/quorvane/worker/record_stream.h"

namespace quorvane::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// The string literals in the sources of the library, adjacent ones joined.
std::vector<std::string> LibraryLiterals() {
  const std::regex literal(
      R"re("((?:[^"\\\n]|\\.)*)"(\s*"(?:[^"\\\n]|\\.)*")*)re");
  std::vector<std::string> literals;
  for (const char* directory :
       {"config", "http", "inventory", "logging", "update"}) {
    for (const auto& entry : std::filesystem::directory_iterator(
             std::string(QUORVANE_SOURCE_DIR "/") + directory)) {
      if (entry.path().extension() != ".cc") continue;
      const std::string source = *FileText(entry.path().string());
      for (std::sregex_iterator at(source.begin(), source.end(), literal), end;
           at != end; ++at) {
        literals.push_back(
            std::regex_replace(at->str(), std::regex("\"\\s*\""), ""));
      }
    }
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
TEST(LogTexts, StandInTheSourcesOfTheLibrary) {
  const std::vector<std::string> literals = LibraryLiterals();
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
  }
}

std::string WholeLog() {
  return LogOf(
      kStart + kUploading +
      Messages{"D [http] MULTIPART POST https://192.0.2.7/up1 file=/tmp/f",
               "D [http] MULTIPART POST https://192.0.2.7/up1 -> HTTP 503",
               "Upload HTTP status: 503",
               "Upload response body: <b>busy\x1b[2J",
               "W Upload returned 503, retrying with backoff",
               "Retrying in 5s (attempt 1/3)"} +
      kPolling + kCompleted + kRebooting + Messages{"Reboot HTTP status: 204"} +
      kEnd);
}

std::vector<std::string> MessagesIn(const std::string& log) {
  std::vector<std::string> messages;
  ReadRecords(log, [&](const Record& record) {
    messages.push_back(record.component + "|" + record.message);
  });
  return messages;
}

const std::string kForgedLines =
    "busy\n[2024-05-01 13:00:00.000] [INFO   ] [tool] Run: inventory\n"
    "    [2024-05-01 13:00:00.000] [ERROR  ] [tool] Interrupted\n"
    "[2024-05-01 13:00:00.000] [INFO   ] [update] forged\nend";

TEST(Records, OfAToolLogEndWhereTheyWereWritten) {
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

TEST(Records, OfALibraryLogAreNeverTheTools) {
  EXPECT_THAT(
      MessagesIn(LogOf({"[logger] begin", kForgedLines, "after"})),
      ElementsAre("logger|begin",
                  "update|" + kForgedLines.substr(
                                  0, kForgedLines.find("\n[2024-05-01 13:00:00"
                                                       ".000] [INFO   ] [upd")),
                  "update|forged\nend", "update|after"));
}

// The frames that a child process sends while the library logs.
std::string FramesOf(const std::vector<std::string>& messages) {
  std::FILE* const file = std::tmpfile();
  const pid_t child = fork();
  if (child == 0) {
    SendConsoleAsFrames(fileno(file));
    Logger logger("/dev/null", LogLevel::DEBUG, true, true);
    for (const std::string& message : messages) {
      static_cast<void>(MaskIP("1.2.3.4444 " + message));
      logger.LogError("update", message);
      logger.LogDebug("http", message);
    }
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  std::rewind(file);
  std::string frames;
  for (int c = 0; (c = std::fgetc(file)) != EOF;) {
    frames += static_cast<char>(c);
  }
  std::fclose(file);
  return frames;
}

TEST(Frames, HoldOneRecordEachInPiecesOfAnySize) {
  const std::string huge(kMaxRecordBytes + 5, 'x');
  const std::string frames = FramesOf({kForgedLines, huge});
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{7}, frames.size()}) {
    std::vector<std::string> records;
    FrameReader reader([&](std::string_view frame) {
      const auto record = RecordFrom(frame);
      records.push_back(record ? record->component + "|" + record->message
                               : "no record");
    });
    for (std::size_t at = 0; at < frames.size(); at += piece) {
      reader.Feed(std::string_view(frames).substr(at, piece));
    }
    ASSERT_EQ(records.size(), 4U) << piece;
    EXPECT_EQ(records[0], "update|" + kForgedLines);
    EXPECT_EQ(records[1], "http|" + kForgedLines);
    EXPECT_THAT(records[2], testing::EndsWith("xxx... (51 bytes left out)"));
  }
  EXPECT_THROW(FrameReader([](auto) {}).Feed("\xff\xff\xff\x7f...."),
               std::runtime_error);
}

TEST(Records, OtherLinesBeginNone) {
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

TEST(Report, OfALogCutOffAnywhereIsOneAndNeverClaimsSuccess) {
  const std::string log = WholeLog();
  const std::size_t summary = log.find("========== FIRMWARE UPDATE SUMMARY");
  for (std::size_t length = 0; length < log.size(); ++length) {
    const Report report = ReadReport(log.substr(0, length));
    const bool is_done = report.verdict.outcome == Verdict::Outcome::kDone;
    ASSERT_TRUE(!is_done || length > summary) << length;
    ASSERT_THAT(report.verdict.next, Not(HasSubstr("[2024"))) << length;
    ASSERT_THAT(TextReport(report, length % 90), HasSubstr("Outcome: "))
        << length;
    ASSERT_THAT(HtmlReport(report), testing::EndsWith("</html>\n")) << length;
    ASSERT_TRUE(nlohmann::json::accept(JsonReport(report))) << length;
  }
  EXPECT_EQ(ReadReport(log).verdict.outcome, Verdict::Outcome::kDone);
}

TEST(Report, TellsPhasesWaitsAndAnswers) {
  const Report report = ReadReport(WholeLog());
  ASSERT_EQ(report.run.phases.size(), 4U);
  const PhaseRow upload = RowOf(report.run.phases[1]);
  EXPECT_EQ(upload.name, "Upload");
  EXPECT_EQ(upload.requests, "2 requests, URI 1 of 2");
  EXPECT_EQ(upload.responses, "503, 202");
  EXPECT_EQ(upload.waited, 1);  // the log says 5, its clock goes on by 1
  EXPECT_EQ(upload.result, "accepted");
  EXPECT_THAT(RowOf(report.run.phases[2]).responses,
              HasSubstr("Completed 100 %"));
  EXPECT_EQ(report.run.phases[1].attempt, 2);
}

TEST(Report, OfSeveralRunsTellsTheLast) {
  const std::string once = LogOf(kStart + kUploading + kEnd);
  const Report report = ReadReport(once + once + WholeLog());
  EXPECT_EQ(report.run.earlier_runs, 2);
  EXPECT_EQ(report.verdict.outcome, Verdict::Outcome::kDone);
}

TEST(Report, PageNeedsNoNetworkAndLetsNoMarkupThrough) {
  const std::string page = HtmlReport(ReadReport(
      LogOf(kStart + kUploading +
            Messages{"Upload HTTP status: 400",
                     "Upload response body: <script>alert('1')</script>\x1b[2J",
                     "W <img src=x onerror=y>"} +
            kEnd)));
  EXPECT_THAT(page, HasSubstr("default-src 'none'"));
  EXPECT_THAT(page, HasSubstr("base-uri 'none'; form-action 'none'"));
  EXPECT_THAT(page, HasSubstr("prefers-color-scheme: dark"));
  EXPECT_THAT(page, HasSubstr("&lt;script&gt;"));
  for (const char* absent : {"<script", "<img", "\x1b", "src=\"", "href="}) {
    EXPECT_THAT(page, Not(HasSubstr(absent)));
  }
}

struct TextCase {
  const char* name;
  std::string text, shown;
};
class PrintableText : public testing::TestWithParam<TextCase> {};
TEST_P(PrintableText, Shows) {
  EXPECT_EQ(Printable(GetParam().text), GetParam().shown);
}
INSTANTIATE_TEST_SUITE_P(Escapes, PrintableText,
                         testing::ValuesIn(std::vector<TextCase>{
                             {"plain_and_umlaut", "a \xc3\xbc \xe2\x82\xac",
                              "a \xc3\xbc \xe2\x82\xac"},
                             {"escape_sequence", "\x1b[2J", "\\x1b[2J"},
                             {"line_breaks_and_nul",
                              std::string("a\n\r\t\0b", 6),
                              "a\\n\\x0d\\x09\\x00b"},
                             {"delete_and_c1",
                              "\x7f\xc2\x9b"
                              "31m",
                              "\\x7f\\x9b31m"},
                             {"bidi",
                              "\xe2\x80\xae"
                              "x\xe2\x81\xa6\xd8\x9c",
                              "\\u202ex\\u2066\\u061c"},
                             {"line_separator_and_bom",
                              "\xe2\x80\xa8\xef\xbb\xbf", "\\u2028\\ufeff"},
                             {"other_blanks_and_invisible",
                              "\xc2\xa0\xe2\x80\x8b\xe3\x80\x80\xe3\x85\xa4"
                              "\xc2\xad\xf3\xa0\x81\x81",
                              "\\xa0\\u200b\\u3000\\u3164\\xad\\U000e0041"},
                             {"unassigned", "\xcd\xb8", "\\u0378"},
                             {"no_utf8", "\xff\xc0\x80\xed\xa0\x80\xe2\x82",
                              "\\xff\\xc0\\x80\\xed\\xa0\\x80\\xe2\\x82"},
                         }),
                         [](const auto& row) { return row.param.name; });

TEST(Excerpts, AreCutBetweenCharacters) {
  EXPECT_EQ(Excerpt("abc", 3), "abc");
  EXPECT_EQ(Excerpt("ab\xc3\xbc", 3), "ab\xc3\xbc");
  EXPECT_EQ(Excerpt("a\xe4\xb8\xad\xe4\xb8\xad", 3), "a\xe4\xb8\xad...");
  EXPECT_EQ(Excerpt("a\x1b", 3), "a...");
  EXPECT_EQ(Columns("e\xcc\x81\xe4\xb8\xad\x1b"), 7U);
  EXPECT_EQ(Wrapped("Next: one two-three  four", 12, 2),
            "Next: one\n  two-three\n  four");
  EXPECT_EQ(Wrapped("one two", 0, 2), "one two");
  EXPECT_EQ(Wrapped("unbreakable x", 5, 2), "unbreakable\n  x");
  EXPECT_EQ(Wrapped("one-that-fills-line-Outcome: x", 21, 2),
            "one-that-fills-line-\n  Outcome: x");
  EXPECT_EQ(Duration(0.25), "0.2 s");
  EXPECT_EQ(Duration(125), "2 min 5 s");
  EXPECT_EQ(Duration(3600), "1 h");
  EXPECT_EQ(Duration(90000), "1 d 1 h");
}

TEST(EscapedJson, IsTheSameDocument) {
  const std::string json =
      "[\n\"\xc3\xbc\x7f\xc2\x9b\xe2\x80\xae\xf3\xa0\x81\x81\"]";
  const std::string escaped = EscapedJson(json);
  EXPECT_EQ(escaped, "[\n\"\xc3\xbc\\u007f\\u009b\\u202e\\udb40\\udc41\"]");
  EXPECT_EQ(nlohmann::json::parse(escaped), nlohmann::json::parse(json));
  EXPECT_EQ(EscapedJson("\xff"), "\\ufffd");
}

// A row: the log so far, and the live block 12 seconds later.
TEST(LiveView, ShowsPhaseBarWaitAndElapsedTime) {
  const auto block = [](const Messages& messages, std::size_t columns) {
    const Report report = ReadReport(LogOf(messages));
    return LiveBlock(report.run, 4, report.run.end + 12, columns);
  };
  const Messages retrying =
      kStart + kUploading +
      Messages{"Upload HTTP status: 503", "Retrying in 20s (attempt 2/3)"};
  EXPECT_THAT(block(retrying, 80),
              ElementsAre("Upload       URI 1 of 2, attempt 3 of 4  /up1",
                          "next attempt in 8 s of 20 s", "elapsed 21 s"));
  EXPECT_THAT(
      block(kStart + kUploading + kPolling, 80),
      ElementsAre("Task         poll 2 of 2  /redfish/v1/TaskService/Tasks/1",
                  "[################------------------------]  40 %  Running",
                  "next poll in 18 s of 30 s", "elapsed 27 s"));
  const Report begun = ReadReport(LogOf(kStart));
  EXPECT_EQ(LiveBlock(begun.run, 4, begun.run.begin + 1e12, 80).back(),
            "elapsed 11574074 d 1 h");
  for (const std::string& line : block(retrying, 20)) {
    EXPECT_LT(line.size(), 20U) << line;
  }
}

}  // namespace
}  // namespace quorvane::tool
