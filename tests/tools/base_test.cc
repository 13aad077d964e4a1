// SPDX-License-Identifier: Apache-2.0
// Text that is safe to show on a terminal.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

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
                             {"other_spaces_and_invisible",
                              "\xc2\xa0\xe2\x80\x8b\xe3\x80\x80\xe3\x85\xa4"
                              "\xc2\xad\xf3\xa0\x81\x81",
                              "\\xa0\\u200b\\u3000\\u3164\\xad\\U000e0041"},
                             {"unassigned", "\xcd\xb8", "\\u0378"},
                             {"not_utf8", "\xff\xc0\x80\xed\xa0\x80\xe2\x82",
                              "\\xff\\xc0\\x80\\xed\\xa0\\x80\\xe2\\x82"},
                         }),
                         [](const auto& row) { return row.param.name; });

TEST(Excerpts, AreCutBetweenCharacters) {
  EXPECT_EQ(Excerpt("abc", 3), "abc");
  EXPECT_EQ(Excerpt("ab\xc3\xbc", 3), "ab\xc3\xbc");
  EXPECT_EQ(Excerpt("a\xe4\xb8\xad\xe4\xb8\xad", 3), "a\xe4\xb8\xad...");
  EXPECT_EQ(Excerpt("a\x1b", 3), "a...");
  EXPECT_EQ(Elided("abcdefg", 7), "abcdefg");
  EXPECT_EQ(Elided("abcdefgh", 7), "ab...gh");
  EXPECT_EQ(Elided("a\xe4\xb8\xad-\x1b\xe4\xb8\xadz", 8), "a\xe4\xb8\xad...z");
  EXPECT_EQ(Elided("abcd", 2), "...");
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

}  // namespace
}  // namespace quorvane::tool
