// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/explain.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "config/limits.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/rules/longest_times.h"

namespace quorvane::tool {
namespace {

// What the library does after a response with this action.
// @{
const char* Meaning(InventoryAction action) {
  switch (action) {
    case InventoryAction::validate_firmware:
      return "reads the members";
    case InventoryAction::retry_inventory:
      return "requests all URIs again after a wait";
    case InventoryAction::fail_or_manual_check:
      return "ends the inventory; an update continues without it";
  }
  return "";
}

const char* Meaning(UploadAction action) {
  switch (action) {
    case UploadAction::track_task:
      return "the image is accepted; polls its task";
    case UploadAction::retry_with_fix:
      return "sends the image again after a wait";
    case UploadAction::split_and_retry:
      return "sends the whole image again after a wait";
    case UploadAction::retry_with_backoff:
      return "sends the image again after a wait";
  }
  return "";
}

const char* Meaning(TaskAction action) {
  switch (action) {
    case TaskAction::continue_polling:
      return "continues polling";
    case TaskAction::proceed_to_activation:
      return "the task succeeded; continues the update";
    case TaskAction::retry_upload:
    case TaskAction::restart_upload:
    case TaskAction::retry_last_chunk:
      return "the task failed; ends polling";
  }
  return "";
}

const char* Meaning(ActivationAction action) {
  switch (action) {
    case ActivationAction::check_reboot:
      return "accepted; continues with the reboot";
    case ActivationAction::poll_task:
      return "accepted; polls its task";
    case ActivationAction::retry_activation:
    case ActivationAction::retry_or_fail:
      return "sends the request again after a wait";
  }
  return "";
}

const char* Meaning(RebootAction action) {
  switch (action) {
    case RebootAction::success:
      return "the system reboots";
    case RebootAction::poll_task:
      return "the system reboots; polls the task of the reboot";
    case RebootAction::retry_reboot:
      return "sends the request again after a wait";
    case RebootAction::manual_intervention:
      return "tries the next URI; after the last one, you must reboot the "
             "system yourself";
  }
  return "";
}
// @}

std::string Title(const char* title) { return fmt::format("\n{}\n", title); }

std::string Uris(const std::vector<std::string>& uris) {
  std::string text;
  for (const std::string& uri : uris) {
    text += fmt::format("  {} {}\n", text.empty() ? "URI     " : "then URI",
                        Printable(uri));
  }
  return text;
}

std::string NameOf(int status) {
  return status == 0 ? "no response" : std::to_string(status);
}
std::string NameOf(const std::string& state) { return Printable(state); }

// A line for each meaning in a table of rules, and one for all other keys.
template <typename Key, typename Action>
std::string Rules(const std::unordered_map<Key, Action>& rules,
                  const std::string& others) {
  std::map<std::string, std::vector<Key>> keys_by_meaning;
  for (const auto& [key, action] : rules) {
    keys_by_meaning[Meaning(action)].push_back(key);
  }
  std::map<Key, std::string> lines;
  for (auto& [meaning, keys] : keys_by_meaning) {
    std::sort(keys.begin(), keys.end());
    std::string names;
    for (const Key& key : keys) {
      names += (names.empty() ? "" : ", ") + NameOf(key);
    }
    lines[keys.front()] = fmt::format("  {}: {}\n", names, meaning);
  }
  std::string text;
  for (const auto& [key, line] : lines) text += line;
  return text + "  " + others + "\n";
}

std::string AtMost(double seconds, const char* more = "") {
  return fmt::format("  Takes at most {}{}.\n", Duration(seconds), more);
}

std::string RetriesSection(const Config& rules,
                           const LongestTimes& /*unused*/) {
  constexpr int kShown = 6;
  std::string waits;
  for (int retry = 0; retry < std::min(rules.max_retries, kShown); ++retry) {
    waits +=
        (retry == 0 ? "" : ", ") + Duration(RetryDelaySeconds(rules, retry));
  }
  if (rules.max_retries > kShown) waits += ", ...";
  return fmt::format(
      "Each URI gets up to {:.0f} attempts, with waits of {} between them. "
      "There is no wait before another URI.\n",
      1.0 + rules.max_retries, waits);
}

std::string InventorySection(const Config& rules, const LongestTimes& longest) {
  const std::string others = "any other: requests all URIs again after a wait";
  return Title("Inventory") + Uris(rules.inventory_uri) +
         "  The first response with 200 decides. Without one, the last URI is "
         "requested once more, and that response decides; if there is no "
         "response, the inventory fails.\n"
         "  401, 403: the login is refused; ends the inventory, whatever the "
         "rules are\n" +
         Rules(rules.inventory_rules,
               rules.inventory_rules.contains(200)
                   ? others
                   : "200: reads the members; " + others) +
         AtMost(longest.inventory,
                fmt::format(", and {} s more for each member",
                            kCollectionTimeoutMs / 1000)
                    .c_str());
}

std::string UploadSection(const Config& rules, const LongestTimes& longest) {
  return Title("Upload, with --file or if SimpleUpdate fails") +
         Uris(rules.upload_uri) +
         "  404, 405: tries the next URI, whatever the rules are\n" +
         Rules(rules.upload_rules,
               "any other: sends the image again after a wait") +
         "  If the multipart upload fails at all URIs, the same URIs get "
         "a binary upload. It ends at the first failed transfer.\n" +
         AtMost(longest.upload, ", and as long for the binary upload");
}

std::string SimpleUpdateSection(const Config& rules,
                                const LongestTimes& longest) {
  return Title("SimpleUpdate, with --image") + Uris(rules.activation_uri) +
         "  404 or no response: tries the next URI, whatever the rules are\n" +
         Rules(rules.activation_rules,
               "any other: sends the request again after a wait") +
         fmt::format(
             "  If it fails at all URIs, this host downloads the image "
             "(at most {}) and uploads it as above.\n",
             Duration(longest.download)) +
         AtMost(longest.simple_update);
}

std::string TaskSection(const Config& rules, const LongestTimes& longest) {
  return Title("Task") +
         fmt::format("  Up to {} polls, with a wait of {} before each.\n",
                     rules.max_polling_time_seconds / rules.polling_interval,
                     Duration(rules.polling_interval)) +
         Rules(rules.task_states, "any other: continues polling") +
         fmt::format(
             "  Scheduled, Starting: after {0} consecutive polls in these "
             "states, the "
             "firmware counts as staged\n"
             "  404: below {1} %, the task failed; from {1} % on, it counts as "
             "a reboot of the BMC that applies the firmware\n"
             "  After an upload, activation and reboot follow a failed task "
             "anyway, except in the states Exception, Cancelled and "
             "Interrupted.\n",
             kStagedPolls, kAppliedPercent) +
         AtMost(longest.task);
}

std::string ActivationSection(const Config& rules,
                              const LongestTimes& longest) {
  return Title("Activation, after an upload with --target") +
         Uris(rules.activation_uri) +
         Rules(rules.activation_rules,
               "any other: sends the request again after a wait") +
         AtMost(longest.activation);
}

std::string RebootSection(const Config& rules, const LongestTimes& longest) {
  if (!rules.reboot_required) {
    return Title("Reboot") + "  None. You decide when to reboot the system.\n";
  }
  return Title("Reboot") + Uris(rules.reboot_uri) +
         Rules(rules.reboot_rules,
               std::string("any other: ") +
                   Meaning(RebootAction::manual_intervention)) +
         AtMost(longest.reboot);
}

std::string TotalSection(const Config& /*rules*/, const LongestTimes& longest) {
  return Title("The whole update") +
         fmt::format(
             "  Takes at most {} with --file, {} with --image: if each request "
             "takes its time limit and each attempt is needed. The members of "
             "the inventory are not included.\n",
             Duration(longest.LocalUpdate()), Duration(longest.ShareUpdate()));
}

constexpr std::array kSections = {
    RetriesSection, InventorySection,  UploadSection, SimpleUpdateSection,
    TaskSection,    ActivationSection, RebootSection, TotalSection};

}  // namespace

std::string ExplainRules(const Config& rules) {
  const LongestTimes longest = LongestTimesOf(rules);
  std::string text;
  for (const auto& section : kSections) text += section(rules, longest);
  return text;
}

}  // namespace quorvane::tool
