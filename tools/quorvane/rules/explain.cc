// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/explain.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

// How long the library lets one request take, seconds.
constexpr double kInventoryLimit = 15;
constexpr double kPollLimit = 30;
constexpr double kActionLimit = 60;
constexpr double kTransferLimit = 600;

double WaitBefore(const Config& rules, int retry) {
  constexpr double kMost = 2147483647;
  return rules.backoff_strategy == "exponential"
             ? std::min(std::ldexp(rules.sleep_time, retry), kMost)
             : rules.sleep_time;
}

double WaitsOf(const Config& rules) {
  // From the 32nd on, doubled waits are all the longest there is.
  constexpr int kDoublings = 32;
  const int alone = std::min(rules.max_retries, kDoublings);
  double waits = 0;
  for (int retry = 0; retry < alone; ++retry) waits += WaitBefore(rules, retry);
  return waits + (static_cast<double>(rules.max_retries) - alone) *
                     WaitBefore(rules, kDoublings);
}

double TriesOf(const Config& rules) { return 1.0 + rules.max_retries; }

// A walk over all URIs, every try of each used.
double WalkOf(const Config& rules, const std::vector<std::string>& uris,
              double limit) {
  return static_cast<double>(uris.size()) *
         (TriesOf(rules) * limit + WaitsOf(rules));
}

template <typename Key, typename Action>
bool Says(const std::unordered_map<Key, Action>& rules, Action action) {
  return std::any_of(rules.begin(), rules.end(), [action](const auto& rule) {
    return rule.second == action;
  });
}

double TaskOf(const Config& rules) {
  const int polls = rules.max_polling_time_seconds / rules.polling_interval;
  return polls * (rules.polling_interval + kPollLimit);
}

double RestartOf(const Config& rules) {
  if (!rules.reboot_required) return 0;
  // Without a rule that asks again, each URI is tried once.
  const double walk =
      Says(rules.reboot_rules, RebootAction::retry_reboot)
          ? WalkOf(rules, rules.reboot_uri, kActionLimit)
          : static_cast<double>(rules.reboot_uri.size()) * kActionLimit;
  return walk + (Says(rules.reboot_rules, RebootAction::poll_task)
                     ? TaskOf(rules)
                     : 0);
}

const char* Meaning(InventoryAction action) {
  switch (action) {
    case InventoryAction::validate_firmware:
      return "the members are read";
    case InventoryAction::retry_inventory:
      return "all is asked again after a wait";
    case InventoryAction::fail_or_manual_check:
      return "the inventory is given up; an update goes on without it";
  }
  return "";
}

const char* Meaning(UploadAction action) {
  switch (action) {
    case UploadAction::track_task:
      return "the image is taken; its task is followed";
    case UploadAction::retry_with_fix:
      return "the image is sent again after a wait, the BMC's reason kept";
    case UploadAction::split_and_retry:
      return "the image is sent again after a wait, as a whole";
    case UploadAction::retry_with_backoff:
      return "the image is sent again after a wait";
  }
  return "";
}

const char* Meaning(TaskAction action) {
  switch (action) {
    case TaskAction::continue_polling:
      return "watched on";
    case TaskAction::proceed_to_activation:
      return "it ended well; the update goes on";
    case TaskAction::retry_upload:
    case TaskAction::restart_upload:
    case TaskAction::retry_last_chunk:
      return "it failed; the watch ends";
  }
  return "";
}

const char* Meaning(ActivationAction action) {
  switch (action) {
    case ActivationAction::check_reboot:
      return "granted; the restart follows";
    case ActivationAction::poll_task:
      return "granted; its task is followed";
    case ActivationAction::retry_activation:
    case ActivationAction::retry_or_fail:
      return "asked again after a wait";
  }
  return "";
}

const char* Meaning(RebootAction action) {
  switch (action) {
    case RebootAction::success:
      return "the system restarts";
    case RebootAction::poll_task:
      return "the system restarts; its task is followed";
    case RebootAction::retry_reboot:
      return "asked again after a wait";
    case RebootAction::manual_intervention:
      return "the next URI; after the last, a person must restart the system";
  }
  return "";
}

class Explanation {
 public:
  explicit Explanation(const Config& rules)
      : rules_(rules), longest_(LongestTimesOf(rules)) {}

  std::string Write() {
    WriteRetries();
    WriteInventory();
    WriteUpload();
    WriteSimpleUpdate();
    WriteTask();
    WriteActivation();
    WriteRestart();
    Line("The whole update takes at most");
    Line(fmt::format("  {} with --file, {} with --image;",
                     Duration(longest_.LocalRoad()),
                     Duration(longest_.ShareRoad())));
    Line(
        "  every request answered at the last moment, every try used, and "
        "the inventory's members not counted.");
    return text_;
  }

 private:
  void Line(const std::string& line) { text_ += line + "\n"; }

  void Title(const char* title) { Line(fmt::format("\n{}", title)); }

  void Uris(const std::vector<std::string>& uris) {
    for (std::size_t i = 0; i < uris.size(); ++i) {
      Line(fmt::format("  {} {}", i == 0 ? "Asks " : "then ",
                       Printable(uris[i])));
    }
  }

  // The rows of a rule table, those with one meaning together.
  template <typename Key, typename Action>
  void Rules(const std::unordered_map<Key, Action>& rules,
             const std::string& others) {
    std::map<std::string, std::vector<Key>> by_meaning;
    for (const auto& [key, action] : rules) {
      by_meaning[Meaning(action)].push_back(key);
    }
    std::map<Key, std::string> rows;
    for (auto& [meaning, keys] : by_meaning) {
      std::sort(keys.begin(), keys.end());
      rows[keys.front()] = fmt::format("  {}: {}", Joined(keys), meaning);
    }
    for (const auto& [key, row] : rows) Line(row);
    Line("  " + others);
  }

  static std::string Joined(const std::vector<int>& statuses) {
    std::string joined;
    for (const int status : statuses) {
      joined += joined.empty() ? "" : ", ";
      joined += status == 0 ? "no answer" : std::to_string(status);
    }
    return joined;
  }

  static std::string Joined(const std::vector<std::string>& states) {
    std::string joined;
    for (const std::string& state : states) {
      joined += (joined.empty() ? "" : ", ") + Printable(state);
    }
    return joined;
  }

  void AtMost(double seconds, const char* more = "") {
    Line(fmt::format("  Takes at most {}{}.", Duration(seconds), more));
  }

  void WriteRetries() {
    constexpr int kShown = 6;
    std::string waits;
    for (int retry = 0; retry < std::min(rules_.max_retries, kShown); ++retry) {
      waits += (retry == 0 ? "" : ", ") + Duration(WaitBefore(rules_, retry));
    }
    if (rules_.max_retries > kShown) waits += ", ...";
    Line(
        fmt::format("Each URI is tried up to {:.0f} times, with waits of {} "
                    "between; no wait goes before another URI.",
                    TriesOf(rules_), waits));
  }

  void WriteInventory() {
    Title("Inventory");
    Uris(rules_.inventory_uri);
    Line(
        "  The first that answers 200 counts; if none does, the last is asked "
        "once more and its answer counts.");
    Line(
        "  401, 403: the login is refused and the inventory ends, whatever "
        "the rules say");
    const bool names_success = rules_.inventory_rules.contains(200);
    Rules(rules_.inventory_rules,
          names_success ? "any other: all is asked again after a wait"
                        : "200: the members are read; any other: all is asked "
                          "again after a wait");
    AtMost(longest_.inventory, ", and 15 s more for each member");
  }

  void WriteUpload() {
    Title("Upload, with --file (or after a refused --image)");
    Uris(rules_.upload_uri);
    Line("  404, 405: the next URI, whatever the rules say");
    Rules(rules_.upload_rules,
          "any other: the image is sent again after a wait");
    Line(
        "  All in vain, the same URIs are asked to take the bare image; that "
        "ends at the first transfer that fails.");
    AtMost(longest_.upload, ", and as long again for the bare image");
  }

  void WriteSimpleUpdate() {
    Title("SimpleUpdate, with --image");
    Uris(rules_.activation_uri);
    Line("  404 or no answer: the next URI, whatever the rules say");
    Rules(rules_.activation_rules, "any other: asked again after a wait");
    Line(
        fmt::format("  All in vain, the image is downloaded here (at most {}) "
                    "and uploaded as above.",
                    Duration(longest_.download)));
    AtMost(longest_.simple_update);
  }

  void WriteTask() {
    const int polls = rules_.max_polling_time_seconds / rules_.polling_interval;
    Title("Task");
    Line(fmt::format("  Polled up to {} times, {} before each.", polls,
                     Duration(rules_.polling_interval)));
    Rules(rules_.task_states, "any other: watched on");
    Line(
        "  Scheduled, Starting: if watched on, three polls in a row mean that "
        "the firmware is staged");
    Line(
        "  404: below 50 % the watch fails; from there on it is taken for a "
        "restart that applies the firmware");
    Line(
        "  After a failure the system is restarted all the same, unless the "
        "state is Exception, Cancelled or Interrupted.");
    AtMost(longest_.task);
  }

  void WriteActivation() {
    Title("Activation, after an upload with --target");
    Uris(rules_.activation_uri);
    Rules(rules_.activation_rules, "any other: asked again after a wait");
    AtMost(longest_.activation);
  }

  void WriteRestart() {
    Title("Restart");
    if (!rules_.reboot_required) {
      Line("  None; the rules leave it to you.\n");
      return;
    }
    Uris(rules_.reboot_uri);
    Rules(rules_.reboot_rules, std::string("any other: ") +
                                   Meaning(RebootAction::manual_intervention));
    AtMost(longest_.restart);
    Line("");
  }

  const Config& rules_;
  LongestTimes longest_;
  std::string text_;
};

}  // namespace

double LongestTimes::LocalRoad() const {
  return inventory + 2 * upload + task + activation + restart;
}

double LongestTimes::ShareRoad() const {
  return simple_update + download + LocalRoad();
}

LongestTimes LongestTimesOf(const Config& rules) {
  LongestTimes longest;
  // A round asks each URI, and the last once more.
  longest.inventory =
      TriesOf(rules) * (1.0 + static_cast<double>(rules.inventory_uri.size())) *
          kInventoryLimit +
      WaitsOf(rules);
  longest.simple_update = WalkOf(rules, rules.activation_uri, kActionLimit);
  longest.download = kTransferLimit;
  longest.upload = WalkOf(rules, rules.upload_uri, kTransferLimit);
  longest.task = TaskOf(rules);
  longest.activation =
      longest.simple_update +
      (Says(rules.activation_rules, ActivationAction::poll_task) ? longest.task
                                                                 : 0);
  longest.restart = RestartOf(rules);
  return longest;
}

std::string ExplainRules(const Config& rules) {
  return Explanation(rules).Write();
}

}  // namespace quorvane::tool
