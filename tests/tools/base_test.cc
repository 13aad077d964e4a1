// SPDX-License-Identifier: Apache-2.0
// Text that is safe to show on a terminal, and files that the user names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/quorvane/base/distinct_files.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

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

// A directory with the files a and b, a link to a, and names of other types.
class NamedFiles : public testing::Test {
 protected:
  NamedFiles() {
    for (const char* name : {"a", "b"}) std::ofstream(Path(name)) << name;
    fs::create_symlink("a", Path("symlink"));
    fs::create_hard_link(Path("a"), Path("hardlink"));
    EXPECT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Path("socket").copy(&address.sun_path[0], sizeof address.sun_path - 1);
    const Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address),
                   sizeof address),
              0);
  }
  [[nodiscard]] std::string Path(const std::string& name) const {
    return directory_.path() + "/" + name;
  }

 private:
  PrivateDirectory directory_;
};

// "" without an error.
std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ToolError& error) {
    EXPECT_EQ(error.code(), ExitCode::kUsage);
    return error.what();
  }
  return {};
}

TEST_F(NamedFiles, OnlyRegularOnesAreRead) {
  EXPECT_EQ(ReadRegular(Path("symlink"), "log"), "a");
  EXPECT_EQ(ReadRegularOrStdin(Path("b"), "log"), "b");
  struct Row {
    std::string path, reason;
  };
  for (const Row& row : std::vector<Row>{
           {Path("fifo"), "it is a FIFO. Use a regular file."},
           {Path("socket"), "it is a socket. Use a regular file."},
           {Path(""), "it is a directory. Use a regular file."},
           {"/dev/zero", "it is a device. Use a regular file."},
           {Path("none"),
            "No such file or directory. Check its name and mode."},
           {Path("a/b"), "Not a directory. Check its name and mode."}}) {
    EXPECT_EQ(ErrorOf([&row] { ReadRegular(row.path, "log"); }),
              "Cannot read the log " + row.path + ": " + row.reason);
  }
  EXPECT_THAT(ErrorOf([] { OpenRegular("x://h/f?sig=s3cret", "package"); }),
              testing::Not(testing::HasSubstr("s3cret")));
}

TEST_F(NamedFiles, CollideUnderAnyName) {
  struct Row {
    const char* name;
    std::string read, written;
    bool collide;
  };
  for (const Row& row : std::vector<Row>{
           {"same name", Path("a"), Path("a"), true},
           {"other spelling", Path("a"), Path("./a"), true},
           {"symbolic link", Path("symlink"), Path("a"), true},
           {"hard link", Path("hardlink"), Path("a"), true},
           {"new file", Path("new"), Path("none/../new"), true},
           {"two files", Path("a"), Path("b"), false},
           {"two new files", Path("new"), Path("newer"), false},
           {"option not given", "", "", false},
           {"device", "/dev/null", "/dev/null", false},
           {"standard stream", "/dev/stdout", "/dev/stdout", false},
           {"FIFO", Path("fifo"), Path("fifo"), false}}) {
    const std::string error = ErrorOf([&row] {
      RequireDistinct({{"--file", row.read}, {"--log", row.written, true}});
    });
    const std::string expected =
        "Cannot use " + row.read +
        " for --file: --log would write to the same file. Use another file "
        "for --log.";
    EXPECT_EQ(error, row.collide ? expected : "") << row.name;
  }
}

TEST_F(NamedFiles, CollideOnlyIfOneIsWritten) {
  const std::string a = Path("a");
  EXPECT_EQ(ErrorOf([&a] { RequireDistinct({{"--x", a}, {"--y", a}}); }), "");
  EXPECT_THAT(ErrorOf([&a] {
                RequireDistinct({{"--x", a, true}, {"--y", a}});
              }),
              testing::HasSubstr("for --y: --x would write"));
  EXPECT_THAT(ErrorOf([&a] {
                RequireDistinct({{"--x", a, true}, {"--y", a, true}});
              }),
              testing::HasSubstr("for --x: --y would write"));
}

}  // namespace
}  // namespace quorvane::tool
