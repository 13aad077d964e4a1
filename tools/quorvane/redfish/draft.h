// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_REDFISH_DRAFT_H_
#define QUORVANE_TOOLS_QUORVANE_REDFISH_DRAFT_H_

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/quorvane/redfish/service.h"

namespace quorvane::tool {

/// Why a key of the draft has its value.
struct DraftReason {
  std::string key;     ///< E.g. "multipart_update.upload_uri".
  std::string reason;  ///< What the value rests on.
  /// The BMC did not confirm the value, so the user must.
  bool must_be_checked = false;
};

struct RulesDraft {
  nlohmann::ordered_json rules;  ///< Without a password.
  std::vector<DraftReason> reasons = {};
};

struct DraftRequest {
  std::string bmc;   ///< Address.
  std::string user;  ///< Account.
  /// A rules file that loads: the draft keeps its tables, and its URIs where
  /// the BMC advertises none.
  nlohmann::ordered_json base;
};

/// What to read for a draft.
FactsRequest FactsFor(const DraftRequest& request);

/// Rules that fit the BMC.
/// @param facts  With an UpdateService; without it, nothing fits.
RulesDraft DraftRules(const ServiceFacts& facts, const DraftRequest& request);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_REDFISH_DRAFT_H_
