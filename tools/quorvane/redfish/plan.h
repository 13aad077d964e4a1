// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_REDFISH_PLAN_H_
#define QUORVANE_TOOLS_QUORVANE_REDFISH_PLAN_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/redfish/service.h"

namespace quorvane::tool {

/// The image of a planned update: a file, or a URI for the BMC.
struct PlanImage {
  std::string path = {};
  std::uint64_t size = 0;   ///< Bytes of the file.
  std::string sha256 = {};  ///< Of the file.
  std::string uri = {};     ///< Without secrets; empty for a file.

  [[nodiscard]] bool IsFile() const { return uri.empty(); }
};

struct PlanRequest {
  std::string bmc;  ///< Address.
  Config rules;
  PlanImage image = {};
  std::vector<std::string> targets = {};
  bool may_download = true;  ///< This host may download the image of a URI.
  /// Longest time of the comparison of the versions after the update.
  double verify_seconds = 0;

  /// Whether this host can download the image and upload it, as the library
  /// does if SimpleUpdate fails. It knows only these two schemes.
  [[nodiscard]] bool CanDownload() const;
};

enum class UriState {
  kAdvertised,  ///< A property of the BMC names it for this phase.
  kPresent,     ///< The BMC has a resource or action there.
  kAbsent,      ///< HTTP 404.
  kUnknown,
};

struct PlannedUri {
  std::string uri;
  UriState state = UriState::kUnknown;
  bool is_expected = false;  ///< Probably the one that accepts the request.
};

/// A phase that requests the URIs of the rules, in the order of the requests.
struct PlannedPhase {
  std::string phase;  ///< As in the JSON report, e.g. "Binary upload".
  std::vector<PlannedUri> uris = {};
  /// The phase takes place only if an earlier one fails.
  bool is_fallback = false;
};

/// A reason why the update cannot work (blocker), or may not do what the user
/// expects (warning).
struct PlanFinding {
  bool is_blocker = false;
  std::string code;     ///< For programs; never changes.
  std::string message;  ///< What is wrong, and what it leads to.
  std::string action;   ///< What to do.
};

struct Plan {
  ServiceFacts facts;
  PlanRequest request;
  std::vector<PlannedPhase> phases = {};
  /// If the task has completed at its first poll, and every other request is
  /// answered at once.
  double shortest_seconds = 0;
  /// If every request takes its time limit, and every attempt is needed; with
  /// the comparison of the versions.
  double longest_seconds = 0;
  std::vector<PlanFinding> findings = {};  ///< Blockers first.

  [[nodiscard]] bool HasBlocker() const;
};

/// What to read for a plan.
FactsRequest FactsFor(const PlanRequest& request);

/// What an update would do. An unknown fact causes at most a warning.
Plan MakePlan(ServiceFacts facts, PlanRequest request);

/// The findings of a plan whose other members are set.
std::vector<PlanFinding> FindingsOf(const Plan& plan);

/// The name of a state in the JSON document.
const char* NameOf(UriState state);

/// The JSON document of `quorvane plan --json`, see plan.schema.json.
nlohmann::json ToJson(const Plan& plan);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_REDFISH_PLAN_H_
