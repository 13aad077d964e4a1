// SPDX-License-Identifier: Apache-2.0
// Shared by the tests of the library: a temporary directory, the log of the
// thread under test, a rules file, recorded waits, a simulated BMC.
#ifndef QUORVANE_TESTS_SUPPORT_FIXTURE_H_
#define QUORVANE_TESTS_SUPPORT_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "quorvane/quorvane.h"
#include "simulator/simulated_bmc.h"
#include "tests/support/interpose.h"

namespace quorvane::test {

/// A new directory. The destructor removes it with its content.
class TempDirectory {
 public:
  TempDirectory();
  ~TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Writes a file and returns its path.
  [[nodiscard]] std::string Write(const std::string& name,
                                  const std::string& text) const;

 private:
  std::string path_;
};

std::string ReadAll(const std::string& path);

/// The smallest rules file as JSON, with `patch` merged into it (RFC 7396).
std::string RulesJson(const std::string& patch = "{}");

/// A test of the library. Logs all levels. Waits return at once. The library
/// reads its rules file in `directory`.
class LibraryTest : public testing::Test {
 protected:
  LibraryTest();
  ~LibraryTest() override;

  /// Writes `RulesJson(patch)` as the rules file of the library.
  void WriteRules(const std::string& patch);

  /// The log lines without their times: "WARNING [update] Upload returned 405 -
  /// ...". A message of several lines gives several entries.
  [[nodiscard]] std::vector<std::string> Log() const;
  /// The messages of one component at INFO and above.
  [[nodiscard]] std::vector<std::string> Log(
      const std::string& component) const;
  [[nodiscard]] std::string LogText() const;
  [[nodiscard]] const std::vector<long>& Waits() const {
    return waits_.seconds();
  }

  TempDirectory directory;
  RecordedWaits waits_;

 private:
  std::unique_ptr<Logger> logger_;
};

/// A test with a simulated BMC.
class BmcTest : public LibraryTest {
 protected:
  /// Method and path of each request, in order: "GET /redfish/v1/...".
  [[nodiscard]] std::vector<std::string> RequestLines() const;
  /// "https://127.0.0.1:PORT", followed by the path.
  [[nodiscard]] std::string Url(const std::string& path) const;

  simulator::SimulatedBmc bmc;
};

/// Redfish documents.
std::string TaskLink(const std::string& uri);
std::string Task(const std::string& state, int percent = -1);
std::string Error(const std::string& message);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_FIXTURE_H_
