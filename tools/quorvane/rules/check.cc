// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/check.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>
#include <utility>

#include "tools/quorvane/base/closest.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

using Schema = nlohmann::ordered_json;
using Type = RulesNode::Type;

// DMTF DSP2046, Task, TaskState.
const std::vector<std::string>& TaskStates() {
  static const std::vector<std::string> states = {
      "New",     "Starting",   "Running",   "Suspended", "Interrupted",
      "Pending", "Stopping",   "Completed", "Killed",    "Exception",
      "Service", "Cancelling", "Cancelled"};
  return states;
}

constexpr double kDay = 24 * 60 * 60;

std::string DidYouMean(const std::vector<std::string>& known,
                       const std::string& word) {
  const std::string closest = ClosestOf(known, word);
  return closest.empty() ? std::string()
                         : fmt::format("; did you mean \"{}\"?", closest);
}

const char* NameOf(Type type) {
  constexpr std::array<const char*, 7> kNames = {
      "null", "boolean", "integer", "number", "string", "array", "object"};
  return kNames.at(static_cast<std::size_t>(type));
}

class Lint {
 public:
  std::vector<Finding> Run(const RulesNode& root) {
    CheckAgainst(RulesSchema(), root, "The file");
    CheckRetries(root);
    if (const RulesNode* update = root.Find("firmware_update")) {
      CheckUpdate(*update);
    }
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const Finding& a, const Finding& b) {
                       return std::tie(a.place.line, a.place.column) <
                              std::tie(b.place.line, b.place.column);
                     });
    return std::move(findings_);
  }

 private:
  void Find(Place place, std::string text) {
    findings_.push_back({place, std::move(text)});
  }

  // Keys, types and spellings, as the schema has them. What the library does
  // with the rest is the same everywhere: it takes the default.
  void CheckAgainst(const Schema& schema, const RulesNode& node,
                    const std::string& name) {
    if (const auto ref = schema.find("$ref"); ref != schema.end()) {
      const std::string pointer = ref->get<std::string>().substr(1);
      CheckAgainst(RulesSchema().at(Schema::json_pointer(pointer)), node, name);
      return;
    }
    if (!HasType(schema, node)) {
      Find(node.place, fmt::format("{} is of type {}, not {}, and is ignored",
                                   name, NameOf(node.type), TypesOf(schema)));
      return;
    }
    if (node.type == Type::kObject) CheckMembers(schema, node, name);
    if (node.type == Type::kArray && schema.contains("items")) {
      for (const RulesNode& element : node.children) {
        CheckAgainst(schema.at("items"), element, "An entry of " + name);
      }
    }
    if (node.type == Type::kString) CheckSpelling(schema, node, name);
  }

  static std::string TypesOf(const Schema& schema) {
    const Schema& type = schema.at("type");
    if (type.is_string()) return type.get<std::string>();
    std::string types;
    for (const Schema& one : type) {
      types += (types.empty() ? "" : " or ") + one.get<std::string>();
    }
    return types;
  }

  static bool HasType(const Schema& schema, const RulesNode& node) {
    if (!schema.contains("type")) return true;
    const Schema& type = schema.at("type");
    if (type.is_string()) return type == NameOf(node.type);
    return std::find(type.begin(), type.end(), NameOf(node.type)) != type.end();
  }

  void CheckMembers(const Schema& schema, const RulesNode& node,
                    const std::string& name) {
    std::set<std::string> seen;
    const auto properties = schema.find("properties");
    const auto others = schema.find("additionalProperties");
    for (const RulesNode& member : node.children) {
      const std::string quoted = fmt::format("\"{}\"", member.name);
      if (!seen.insert(member.name).second) {
        Find(member.name_place,
             quoted + " stands here again; only the first counts");
      }
      if (properties != schema.end() && properties->contains(member.name)) {
        CheckAgainst(properties->at(member.name), member, quoted);
      } else if (others != schema.end() && others->is_object()) {
        CheckAgainst(*others, member, quoted);
      } else if (properties != schema.end()) {
        std::vector<std::string> known;
        for (const auto& [key, value] : properties->items()) {
          known.push_back(key);
        }
        Find(member.name_place,
             fmt::format("{} has no key {}; it is ignored{}", name, quoted,
                         DidYouMean(known, member.name)));
      }
    }
  }

  void CheckSpelling(const Schema& schema, const RulesNode& node,
                     const std::string& name) {
    if (const auto words = schema.find("enum"); words != schema.end()) {
      const auto known = words->get<std::vector<std::string>>();
      if (std::find(known.begin(), known.end(), node.text) == known.end()) {
        Find(node.place, fmt::format("{} cannot be \"{}\"{}", name, node.text,
                                     DidYouMean(known, node.text)));
      }
    }
    if (schema.value("minLength", 0) > 0 && node.text.empty()) {
      Find(node.place, name + " is empty, so the whole entry is ignored");
    }
    // The only pattern that a value has is that of a URI.
    if (schema.contains("pattern") && node.text.rfind('/', 0) != 0) {
      Find(node.place,
           fmt::format("The URI \"{}\" does not begin with \"/\", so it runs "
                       "into the address of the BMC",
                       node.text));
    }
  }

  void CheckRetries(const RulesNode& root) {
    const RulesNode* section = root.Find("retry_config");
    if (section == nullptr) return;
    const double wait = NumberOf(section, "sleep_time", 5);
    const double retries = NumberOf(section, "max_retries", 3);
    const RulesNode* backoff = section->Find("backoff_strategy");
    const bool is_fixed = backoff != nullptr && backoff->text == "fixed";
    const double longest =
        is_fixed
            ? wait
            : std::ldexp(
                  wait, static_cast<int>(std::clamp(retries - 1, 0.0, 1000.0)));
    if (wait > kDay) {
      FindLong(*section->Find("sleep_time"), "sleep_time", wait);
    } else if (longest > kDay) {
      const RulesNode* told = section->Find("max_retries");
      Find(told == nullptr ? section->place : told->place,
           fmt::format("The last of {:.0f} doubled waits is longer than a day "
                       "({}); use fewer retries or \"fixed\"",
                       retries, Duration(std::min(longest, 2147483647.0))));
    }
  }

  static double NumberOf(const RulesNode* section, const char* key,
                         double fallback) {
    const RulesNode* value = section->Find(key);
    const bool is_number = value != nullptr && (value->type == Type::kInteger ||
                                                value->type == Type::kNumber);
    return is_number ? value->number : fallback;
  }

  void FindLong(const RulesNode& value, const char* key, double seconds) {
    Find(value.place,
         fmt::format("{} is longer than a day ({})", key, Duration(seconds)));
  }

  void CheckUpdate(const RulesNode& update) {
    if (const RulesNode* rules = update.Find("inventory_rules")) {
      CheckStatuses(*rules);
      for (const char* status : {"401", "403"}) {
        FindIdle(*rules, status,
                 "a refused login always ends the inventory, whatever the "
                 "rules say");
      }
      FindIdle(*rules, "0", "an inventory without an answer asks no rule");
    }
    if (const RulesNode* rules =
            Inside(update, "multipart_update", "upload_rules")) {
      CheckStatuses(*rules);
      for (const char* status : {"404", "405"}) {
        FindIdle(*rules, status,
                 "an upload answered so always goes on to the next URI");
      }
      FindUnnamed(*rules, "an image that is taken would be sent again");
    }
    if (const RulesNode* rules =
            Inside(update, "activation", "activation_rules")) {
      CheckStatuses(*rules);
      FindIdle(*rules, "404",
               "it counts for an activation only; a SimpleUpdate answered so "
               "always goes on to the next URI",
               "half its effect");
      FindUnnamed(*rules, "a request that is granted would be sent again");
    }
    if (const RulesNode* rules = Inside(update, "reboot", "reboot_rules")) {
      CheckStatuses(*rules);
      FindUnnamed(*rules,
                  "a restart that is granted would be taken for refused");
    }
    if (const RulesNode* monitoring = update.Find("task_monitoring")) {
      CheckPolling(*monitoring);
    }
  }

  static const RulesNode* Inside(const RulesNode& update, const char* section,
                                 const char* key) {
    const RulesNode* found = update.Find(section);
    return found == nullptr ? nullptr : found->Find(key);
  }

  void FindIdle(const RulesNode& rules, const char* status, const char* why,
                const char* effect = "no effect") {
    for (const RulesNode& rule : rules.children) {
      if (rule.name == status) {
        Find(rule.name_place, fmt::format("The rule for {} has {} here: {}",
                                          status, effect, why));
        return;
      }
    }
  }

  // With these the service says yes (DSP0266, "Status codes").
  void FindUnnamed(const RulesNode& rules, const char* consequence) {
    std::string unnamed;
    for (const char* status : {"200", "202", "204"}) {
      if (rules.Find(status) == nullptr) Append(unnamed, status);
    }
    if (!unnamed.empty()) {
      Find(rules.place,
           fmt::format("No rule names {}: {}", unnamed, consequence));
    }
  }

  static void Append(std::string& list, const char* word) {
    list += list.empty() ? "" : ", ";
    list += word;
  }

  void CheckStatuses(const RulesNode& rules) {
    for (const RulesNode& rule : rules.children) {
      const std::string& name = rule.name;
      const bool is_status =
          name == "0" ||
          (name.size() == 3 && name[0] >= '1' && name[0] <= '5' &&
           name.find_first_not_of("0123456789") == std::string::npos);
      if (!is_status) {
        Find(rule.name_place,
             fmt::format("\"{}\" is no HTTP status; write three digits, or 0 "
                         "for a request that gets no answer",
                         name));
      }
    }
  }

  void CheckPolling(const RulesNode& monitoring) {
    const double interval = NumberOf(&monitoring, "polling_interval", 30);
    const double most = NumberOf(&monitoring, "max_polling_time_seconds", 600);
    if (most < interval) {
      Find(monitoring.place,
           fmt::format("max_polling_time_seconds ({:.0f}) is less than "
                       "polling_interval ({:.0f}): no task is ever polled",
                       most, interval));
    }
    if (interval > kDay) {
      FindLong(*monitoring.Find("polling_interval"), "polling_interval",
               interval);
    }
    if (most > kDay) {
      FindLong(*monitoring.Find("max_polling_time_seconds"),
               "max_polling_time_seconds", most);
    }
    if (const RulesNode* states = monitoring.Find("task_states")) {
      CheckStates(*states);
    }
  }

  void CheckStates(const RulesNode& states) {
    for (const RulesNode& rule : states.children) {
      if (std::find(TaskStates().begin(), TaskStates().end(), rule.name) ==
          TaskStates().end()) {
        Find(rule.name_place,
             fmt::format("\"{}\" is no TaskState of Redfish{}", rule.name,
                         DidYouMean(TaskStates(), rule.name)));
      }
    }
    std::string unnamed;
    for (const char* state :
         {"Completed", "Exception", "Killed", "Cancelled"}) {
      const RulesNode* rule = states.Find(state);
      if (rule == nullptr) {
        Append(unnamed, state);
      } else if (rule->text == "continue_polling") {
        Find(rule->place, fmt::format("A task in {} {}", state, kStandsStill));
      }
    }
    if (!unnamed.empty()) {
      Find(states.place,
           fmt::format("No rule names {}: a task in such a state {}", unnamed,
                       kStandsStill));
    }
  }

  static constexpr const char* kStandsStill =
      "does not move any more, but is watched until the time is up";
  std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> LintRules(std::string_view text) {
  const RulesText rules = ParseRulesText(text);
  if (!rules.is_json) {
    return {{rules.error,
             "This is no JSON (RFC 8259); the rest could not be checked"}};
  }
  return Lint().Run(rules.root);
}

}  // namespace quorvane::tool
