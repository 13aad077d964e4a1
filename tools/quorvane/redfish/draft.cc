// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/draft.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace quorvane::tool {
namespace {

using RulesJson = nlohmann::ordered_json;

// A URI, and the property of the BMC that names it.
struct NamedUri {
  std::string uri;
  const char* property;
};

RulesJson& SectionAt(RulesJson& rules, const char* name) {
  RulesJson& section = rules["firmware_update"][name];
  if (!section.is_object()) section = RulesJson::object();
  return section;
}

// The rules allow one string in place of a list.
std::vector<std::string> UrisIn(const RulesJson& value) {
  if (value.is_string()) return {value.get<std::string>()};
  std::vector<std::string> uris;
  if (!value.is_array()) return uris;
  for (const RulesJson& one : value) {
    if (one.is_string()) uris.push_back(one.get<std::string>());
  }
  return uris;
}

struct UriKey {
  const char* section;  // "" for firmware_update itself
  const char* key;
};
constexpr std::array kUriKeys = {
    UriKey{"", "inventory_uri"}, UriKey{"multipart_update", "upload_uri"},
    UriKey{"activation", "activation_uri"}, UriKey{"reboot", "reboot_uri"}};

class Drafter {
 public:
  Drafter(const ServiceFacts& facts, const DraftRequest& request)
      : facts_(facts),
        request_(request),
        service_(facts.update_service.value_or(UpdateServiceFacts{})) {
    draft_.rules = request.base;
  }

  RulesDraft Draft() {
    SetLogin();
    SetInventory();
    SetUpload();
    SetActivation();
    SetTasks();
    SetRetries();
    SetReboot();
    return std::move(draft_);
  }

 private:
  void Explain(const char* key, std::string reason,
               bool must_be_checked = false) {
    draft_.reasons.push_back({key, std::move(reason), must_be_checked});
  }

  void SetLogin() {
    RulesJson& login = draft_.rules["authentication"];
    login["type"] = "basic";
    login["username"] = request_.user;
    login.erase("password");
    login.erase("token");
    Explain("authentication.username",
            "from --user. The file contains no password; each command asks "
            "for it.");
    RulesJson& target = draft_.rules["target"];
    target = {{"ip", request_.bmc}};
    Explain("target.ip", "from --bmc.");
  }

  // Writes the advertised URIs; without one, those of the base that exist or
  // may exist, or else all of them.
  // @param is_absence_final  Whether a URI that returns 404 does not exist:
  //     some BMCs return it for a GET of a URI that accepts only POST.
  void SetUris(const char* key, RulesJson& value,
               const std::vector<NamedUri>& advertised,
               bool is_absence_final = true) {
    RulesJson uris = RulesJson::array();
    std::string reason;
    for (const NamedUri& one : advertised) {
      const bool is_path = one.uri.rfind('/', 0) == 0;
      if (!is_path ||
          std::find(uris.begin(), uris.end(), one.uri) != uris.end()) {
        continue;
      }
      uris.push_back(one.uri);
      reason += fmt::format("{}{} is {} of the BMC", reason.empty() ? "" : "; ",
                            one.uri, one.property);
    }
    if (!uris.empty()) {
      value = std::move(uris);
      Explain(key, reason + ".");
      return;
    }
    std::string unknown;
    for (const std::string& uri : UrisIn(value)) {
      const Presence presence = facts_.PresenceAt(uri);
      if (presence == Presence::kAbsent && is_absence_final) continue;
      uris.push_back(uri);
      if (presence == Presence::kPresent) continue;
      unknown += (unknown.empty() ? "" : ", ") + uri;
    }
    if (!uris.empty()) {
      value = std::move(uris);
      Explain(key,
              unknown.empty()
                  ? std::string("the BMC advertises none; it has these of the "
                                "base rules. Compare them with its manual.")
                  : "no resource that could be read advertises one, and it is "
                    "not known whether the BMC has " +
                        unknown +
                        ", as in the base rules. Compare them with its manual.",
              /*must_be_checked=*/true);
      return;
    }
    Explain(key,
            "the BMC advertises none, and has none of the base rules, which "
            "stay unchanged. An update cannot use this step.",
            /*must_be_checked=*/true);
  }

  void SetInventory() {
    std::vector<NamedUri> uris;
    for (const std::string& uri : service_.inventory_uris) {
      if (facts_.PresenceAt(uri) == Presence::kAbsent) continue;
      uris.push_back({uri, uris.empty() ? "the firmware inventory"
                                        : "the software inventory"});
    }
    SetUris("inventory_uri", draft_.rules["firmware_update"]["inventory_uri"],
            uris);
  }

  void SetUpload() {
    std::vector<NamedUri> uris;
    if (service_.multipart_uri) {
      uris.push_back({*service_.multipart_uri, "MultipartHttpPushUri"});
    }
    if (service_.binary_uri) {
      uris.push_back({*service_.binary_uri, "HttpPushUri"});
    }
    SetUris("multipart_update.upload_uri",
            SectionAt(draft_.rules, "multipart_update")["upload_uri"], uris);
  }

  void SetActivation() {
    std::vector<NamedUri> uris;
    if (service_.simple_update_uri) {
      uris.push_back({*service_.simple_update_uri, "the SimpleUpdate action"});
    }
    SetUris("activation.activation_uri",
            SectionAt(draft_.rules, "activation")["activation_uri"], uris);
  }

  void SetTasks() {
    RulesJson& section = SectionAt(draft_.rules, "task_monitoring");
    section["task_uri"] = facts_.tasks.collection;
    Explain("task_monitoring.task_uri",
            facts_.tasks.is_complete
                ? "the task collection of the BMC."
                : "the usual task collection; it could not be read.",
            !facts_.tasks.is_complete);
    std::vector<std::string> states;
    for (const BmcTask& task : facts_.tasks.tasks) {
      const bool is_new =
          !task.state.empty() &&
          std::find(states.begin(), states.end(), task.state) == states.end();
      if (is_new) states.push_back(task.state);
    }
    ExplainStates(states, section["task_states"]);
    Explain("task_monitoring.polling_interval",
            fmt::format("{} s, as in the base rules: a BMC reports no interval "
                        "before an update.",
                        section.value("polling_interval", 30)));
    Explain("task_monitoring.max_polling_time_seconds",
            fmt::format("{} s, as in the base rules. Increase it if updates of "
                        "this BMC take longer.",
                        section.value("max_polling_time_seconds", 600)));
  }

  void ExplainStates(const std::vector<std::string>& states,
                     const RulesJson& rules) {
    std::string unruled;
    for (const std::string& state : states) {
      if (rules.contains(state)) continue;
      unruled += (unruled.empty() ? "" : ", ") + state;
    }
    if (!unruled.empty()) {
      Explain("task_monitoring.task_states",
              "the tasks of the BMC have states without a rule, in which "
              "polling continues: " +
                  unruled + ".",
              /*must_be_checked=*/true);
      return;
    }
    const std::string what =
        states.empty() ? "The BMC has no task to compare them with."
                       : "Every state that the tasks of the BMC have now has a "
                         "rule.";
    Explain("task_monitoring.task_states",
            "as in the base rules. " +
                (facts_.tasks.is_complete
                     ? what
                     : "Not all tasks of the BMC could be read."));
  }

  void SetRetries() {
    const RulesJson& section = draft_.rules["retry_config"];
    if (!section.is_object()) return;
    Explain("retry_config.max_retries",
            fmt::format("{}, as in the base rules: a BMC does not report how "
                        "long it rejects requests when it is busy.",
                        section.value("max_retries", 3)));
  }

  void SetReboot() {
    RulesJson& section = SectionAt(draft_.rules, "reboot");
    const SystemFacts* system =
        facts_.systems.empty() ? nullptr : &facts_.systems.front();
    std::vector<NamedUri> uris;
    if (system != nullptr && system->reset_uri) {
      uris.push_back({*system->reset_uri, "the Reset action"});
    }
    SetUris("reboot.reboot_uri", section["reboot_uri"], uris,
            facts_.are_systems_complete);
    if (!facts_.are_systems_complete) {
      Explain("reboot.reboot_uri", "not all systems of the BMC could be read.",
              /*must_be_checked=*/true);
    }
    if (facts_.systems.size() > 1) {
      Explain("reboot.reboot_uri",
              "the BMC has several systems, and an update reboots only the "
              "first.",
              /*must_be_checked=*/true);
    }
    const bool is_forbidden =
        system != nullptr && system->reset_types &&
        std::find(system->reset_types->begin(), system->reset_types->end(),
                  "GracefulRestart") == system->reset_types->end();
    if (is_forbidden) {
      section["reboot_required"] = false;
      Explain("reboot.reboot_required",
              "false: the system does not allow GracefulRestart, the only "
              "reset that an update requests. Reboot it yourself.",
              /*must_be_checked=*/true);
      return;
    }
    Explain(
        "reboot.reboot_required",
        std::string(section.value("reboot_required", true) ? "true" : "false") +
            ", as in the base rules.");
  }

  const ServiceFacts& facts_;
  const DraftRequest& request_;
  UpdateServiceFacts service_;
  RulesDraft draft_ = {};
};

}  // namespace

FactsRequest FactsFor(const DraftRequest& request) {
  FactsRequest facts;
  RulesJson rules = request.base;
  for (const UriKey& one : kUriKeys) {
    RulesJson& section = *one.section == '\0' ? rules["firmware_update"]
                                              : SectionAt(rules, one.section);
    for (const std::string& uri : UrisIn(section[one.key])) {
      facts.probed_uris.push_back(uri);
    }
  }
  return facts;
}

RulesDraft DraftRules(const ServiceFacts& facts, const DraftRequest& request) {
  return Drafter(facts, request).Draft();
}

}  // namespace quorvane::tool
