// SPDX-License-Identifier: Apache-2.0
// What the tests of the library share: a private folder, the log of the thread
// under test, rules beside the "library", recorded waits, a simulated BMC.
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

/// A new folder, removed with all that is in it.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Writes a file and gives its path.
  [[nodiscard]] std::string Write(const std::string& name,
                                  const std::string& text) const;

 private:
  std::string path_;
};

std::string ReadAll(const std::string& path);

/// The smallest rules file, as JSON; `patch` is merged over it (RFC 7396).
std::string RulesJson(const std::string& patch = "{}");

/// A test of the library. Everything is logged, from DEBUG on; waits return at
/// once; the rules file lies in `folder`.
class LibraryTest : public testing::Test {
 protected:
  LibraryTest();
  ~LibraryTest() override;

  /// Puts `RulesJson(patch)` beside the library.
  void Rules(const std::string& patch);

  /// The lines of this test without their times: "WARNING [update] Upload
  /// returned 405 - ...". Further lines of a message are lines of their own.
  [[nodiscard]] std::vector<std::string> Log() const;
  /// The lines of one component at INFO and above, without its tag.
  [[nodiscard]] std::vector<std::string> Log(
      const std::string& component) const;
  [[nodiscard]] std::string LogText() const;
  [[nodiscard]] const std::vector<long>& Waits() const {
    return waits_.seconds();
  }

  TempFolder folder;
  RecordedWaits waits_;

 private:
  std::unique_ptr<Logger> logger_;
};

/// A test against a BMC.
class BmcTest : public LibraryTest {
 protected:
  /// "GET /redfish/v1/..." of each request, in order.
  [[nodiscard]] std::vector<std::string> Asked() const;
  /// "https://127.0.0.1:PORT" and the path.
  [[nodiscard]] std::string Url(const std::string& path) const;

  simulator::SimulatedBmc bmc;
};

/// Redfish documents.
std::string TaskLink(const std::string& uri);
std::string Task(const std::string& state, int percent = -1);
std::string Error(const std::string& message);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_FIXTURE_H_
