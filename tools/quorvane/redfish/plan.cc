// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/plan.h"

#include <algorithm>
#include <utility>

#include "config/limits.h"
#include "tools/quorvane/rules/longest_times.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

// The URIs that the BMC advertises for a phase.
using Advertised = std::vector<std::string>;

Advertised OneOf(const std::optional<std::string>& uri) {
  return uri ? Advertised{*uri} : Advertised{};
}

// Some BMCs return 404 for a GET of a URI that accepts only POST. So a 404 is
// final only if the resources that would advertise the URI are known.
enum class Advertiser { kKnown, kUnknown };

PlannedPhase PhaseWith(const char* name, const std::vector<std::string>& uris,
                       const Advertised& advertised, Advertiser advertiser,
                       const ServiceFacts& facts) {
  PlannedPhase phase{.phase = name};
  for (const std::string& uri : uris) {
    const bool is_advertised =
        std::any_of(advertised.begin(), advertised.end(),
                    [&](const auto& one) { return IsSamePath(one, uri); });
    const Presence presence = facts.PresenceAt(uri);
    phase.uris.push_back({.uri = uri,
                          .state = is_advertised ? UriState::kAdvertised
                                   : presence == Presence::kPresent
                                       ? UriState::kPresent
                                   : presence == Presence::kAbsent &&
                                           advertiser == Advertiser::kKnown
                                       ? UriState::kAbsent
                                       : UriState::kUnknown});
  }
  return phase;
}

// Marks the first URI in the best of `states`.
// @return False if there is none.
bool Expect(PlannedPhase& phase, const std::vector<UriState>& states) {
  for (const UriState state : states) {
    for (PlannedUri& uri : phase.uris) {
      if (uri.state != state) continue;
      uri.is_expected = true;
      return true;
    }
  }
  return false;
}

const std::vector<UriState>& AdvertisedOrPresent() {
  static const std::vector<UriState> states = {UriState::kAdvertised,
                                               UriState::kPresent};
  return states;
}

class Planner {
 public:
  Planner(const ServiceFacts& facts, const PlanRequest& request)
      : facts_(facts), request_(request), rules_(request.rules) {
    if (facts.update_service) service_ = *facts.update_service;
  }

  std::vector<PlannedPhase> Phases() {
    PlannedPhase inventory =
        PhaseWith("Inventory", rules_.inventory_uri, service_.inventory_uris,
                  Advertiser::kKnown, facts_);
    for (PlannedUri& uri : inventory.uris) {
      uri.is_expected = uri.uri == facts_.inventory_uri;
    }
    phases_.push_back(std::move(inventory));
    bool is_fallback = false;
    if (!request_.image.IsFile()) {
      AddExpecting("SimpleUpdate", rules_.activation_uri,
                   OneOf(service_.simple_update_uri), UpdateService());
      is_fallback = true;
    }
    if (!is_fallback || request_.CanDownload()) AddUploads(is_fallback);
    if (request_.image.IsFile() && !request_.targets.empty()) {
      AddExpecting("Activation", rules_.activation_uri,
                   OneOf(service_.simple_update_uri), UpdateService());
    }
    if (rules_.reboot_required) AddReboot();
    return std::move(phases_);
  }

 private:
  [[nodiscard]] Advertiser UpdateService() const {
    return facts_.update_service ||
                   facts_.update_service_presence == Presence::kAbsent
               ? Advertiser::kKnown
               : Advertiser::kUnknown;
  }

  void AddExpecting(const char* name, const std::vector<std::string>& uris,
                    const Advertised& advertised, Advertiser advertiser) {
    phases_.push_back(PhaseWith(name, uris, advertised, advertiser, facts_));
    Expect(phases_.back(), AdvertisedOrPresent());
  }

  // The binary upload follows if the multipart upload fails at all URIs.
  void AddUploads(bool is_fallback) {
    PlannedPhase multipart =
        PhaseWith("Upload", rules_.upload_uri, OneOf(service_.multipart_uri),
                  UpdateService(), facts_);
    PlannedPhase binary =
        PhaseWith("Binary upload", rules_.upload_uri,
                  OneOf(service_.binary_uri), UpdateService(), facts_);
    multipart.is_fallback = is_fallback;
    binary.is_fallback = true;
    const bool is_multipart = Expect(multipart, {UriState::kAdvertised});
    if (!is_multipart && !Expect(binary, {UriState::kAdvertised})) {
      Expect(multipart, {UriState::kPresent});
    }
    phases_.push_back(std::move(multipart));
    phases_.push_back(std::move(binary));
  }

  void AddReboot() {
    Advertised resets;
    for (const SystemFacts& system : facts_.systems) {
      if (system.reset_uri) resets.push_back(*system.reset_uri);
    }
    AddExpecting("Reboot", rules_.reboot_uri, resets,
                 facts_.are_systems_complete ? Advertiser::kKnown
                                             : Advertiser::kUnknown);
  }

  const ServiceFacts& facts_;
  const PlanRequest& request_;
  const Config& rules_;
  UpdateServiceFacts service_ = {};
  std::vector<PlannedPhase> phases_ = {};
};

double LongestSeconds(const ServiceFacts& facts, const PlanRequest& request) {
  const LongestTimes longest = LongestTimesOf(request.rules);
  constexpr double kMsPerSecond = 1000;
  double seconds = request.verify_seconds + longest.inventory + longest.task +
                   longest.reboot +
                   static_cast<double>(facts.firmware.size()) *
                       kCollectionTimeoutMs / kMsPerSecond;
  if (!request.image.IsFile()) {
    seconds += longest.simple_update;
    if (!request.CanDownload()) return seconds;
    seconds += longest.download;
  }
  if (!request.targets.empty()) seconds += longest.activation;
  return seconds + 2 * longest.upload;
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}
Json OrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

Json TargetJson(const Plan& plan) {
  const ServiceFacts& facts = plan.facts;
  Json systems = Json::array();
  for (const SystemFacts& system : facts.systems) {
    systems.push_back(
        {{"uri", system.uri}, {"power_state", OrNull(system.power_state)}});
  }
  Json running = Json::array();
  for (const BmcTask& task : facts.tasks.tasks) {
    if (!task.IsRunning()) continue;
    running.push_back({{"uri", task.uri},
                       {"name", task.name},
                       {"state", task.state},
                       {"percent", NumberJson(task.percent)}});
  }
  Json chassis;
  if (facts.chassis) {
    chassis = {{"name", facts.chassis->name},
               {"manufacturer", facts.chassis->manufacturer},
               {"model", facts.chassis->model}};
  }
  Json service;
  if (facts.update_service) {
    const UpdateServiceFacts& known = *facts.update_service;
    service = {{"service_enabled", OrNull(known.is_enabled)},
               {"state", OrNull(known.state)},
               {"health", OrNull(known.health)},
               {"max_image_size_bytes", NumberJson(known.max_bytes)}};
  }
  return {{"bmc", plan.request.bmc},
          {"product", OrNull(facts.product)},
          {"redfish_version", OrNull(facts.redfish_version)},
          {"chassis", chassis},
          {"systems", systems},
          {"update_service", service},
          {"running_tasks",
           facts.tasks.is_complete || !running.empty() ? running : Json()}};
}

Json ImageJson(const PlanImage& image) {
  if (!image.IsFile()) return {{"uri", image.uri}};
  return {{"path", image.path}, {"size", image.size}, {"sha256", image.sha256}};
}

Json PhasesJson(const Plan& plan) {
  Json phases = Json::array();
  for (const PlannedPhase& phase : plan.phases) {
    Json uris = Json::array();
    for (const PlannedUri& uri : phase.uris) {
      uris.push_back({{"uri", uri.uri},
                      {"state", NameOf(uri.state)},
                      {"expected", uri.is_expected}});
    }
    phases.push_back({{"phase", phase.phase},
                      {"fallback", phase.is_fallback},
                      {"uris", uris}});
  }
  return phases;
}

}  // namespace

bool PlanRequest::CanDownload() const {
  return may_download && (image.uri.rfind("http://", 0) == 0 ||
                          image.uri.rfind("https://", 0) == 0);
}

bool Plan::HasBlocker() const {
  return std::any_of(findings.begin(), findings.end(),
                     [](const PlanFinding& one) { return one.is_blocker; });
}

FactsRequest FactsFor(const PlanRequest& request) {
  const Config& rules = request.rules;
  FactsRequest facts{.inventory_uris = rules.inventory_uri,
                     .targets = request.targets};
  const auto probe = [&](const std::vector<std::string>& uris) {
    facts.probed_uris.insert(facts.probed_uris.end(), uris.begin(), uris.end());
  };
  const bool is_file = request.image.IsFile();
  if (is_file || request.CanDownload()) probe(rules.upload_uri);
  if (!is_file || !request.targets.empty()) probe(rules.activation_uri);
  if (rules.reboot_required) probe(rules.reboot_uri);
  return facts;
}

Plan MakePlan(ServiceFacts facts, PlanRequest request) {
  Plan plan{.facts = std::move(facts), .request = std::move(request)};
  plan.phases = Planner(plan.facts, plan.request).Phases();
  plan.shortest_seconds = plan.request.rules.polling_interval;
  plan.longest_seconds = LongestSeconds(plan.facts, plan.request);
  plan.findings = FindingsOf(plan);
  return plan;
}

const char* NameOf(UriState state) {
  switch (state) {
    case UriState::kAdvertised:
      return "advertised";
    case UriState::kPresent:
      return "present";
    case UriState::kAbsent:
      return "absent";
    case UriState::kUnknown:
      return "unknown";
  }
  return "";
}

Json ToJson(const Plan& plan) {
  Json firmware = Json::array();
  for (const FirmwareFacts& one : plan.facts.firmware) {
    firmware.push_back({{"uri", one.uri},
                        {"name", one.name},
                        {"version", OrNull(one.version)},
                        {"updateable", OrNull(one.updateable)}});
  }
  Json findings = Json::array();
  for (const PlanFinding& finding : plan.findings) {
    findings.push_back(
        {{"severity", finding.is_blocker ? "blocker" : "warning"},
         {"code", finding.code},
         {"message", finding.message},
         {"action", finding.action}});
  }
  return {{"target", TargetJson(plan)},
          {"image", ImageJson(plan.request.image)},
          {"phases", PhasesJson(plan)},
          {"firmware", firmware},
          {"time",
           {{"shortest_seconds", NumberJson(plan.shortest_seconds)},
            {"longest_seconds", NumberJson(plan.longest_seconds)}}},
          {"findings", findings}};
}

}  // namespace quorvane::tool
