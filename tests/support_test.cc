// SPDX-License-Identifier: Apache-2.0
// Waits, and files for documents.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>

#include "support/file.h"
#include "support/wait.h"
#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

TEST(SleepSeconds, ContinuesAfterSignal) {
  RecordedWaits waits;
  waits.InterruptNext(2);
  SleepSeconds(5);
  SleepSeconds(0);
  EXPECT_THAT(waits.seconds(), testing::ElementsAre(5, 4, 3));
}

TEST(WriteAll, FailsOnFullDisk) {
  EXPECT_FALSE(WriteAll(OpenDocument("/dev/full").get(), "{}"));
}

TEST(OpenDocument, RejectsPipeWithoutReader) {
  const TempDirectory directory;
  const std::string path = directory.path() + "/fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(OpenDocument(path).IsOpen());
  const Descriptor reader(
      open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_TRUE(WriteAll(OpenDocument(path).get(), "{}"));
  std::array<char, 3> text{};
  EXPECT_EQ(read(reader.get(), text.data(), text.size()), 2);
  EXPECT_STREQ(text.data(), "{}");
}

}  // namespace
}  // namespace quorvane::test
