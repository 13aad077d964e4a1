// SPDX-License-Identifier: Apache-2.0
// Resource collections and their members (DSP0266, "Collection resource").
#ifndef QUORVANE_INVENTORY_COLLECTION_H_
#define QUORVANE_INVENTORY_COLLECTION_H_

#include <string>
#include <vector>

#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/inventory.h"

namespace quorvane {

/// The rules file next to the library, with the address and account of
/// `request`.
/// @throws as `LoadConfigAuto`.
Config LoadConfigFor(const InventoryRequest& request);

/// GET with the account of `config` and the time limit `kCollectionTimeoutMs`.
/// @throws as `HttpClient::get`.
Response GetResource(const HttpClient& client, const std::string& url,
                     const Config& config);

/// The "@odata.id" of each member, in order. Skips members without one. Empty,
/// with a warning in the log, if the body is not JSON.
std::vector<std::string> ParseMemberPaths(const std::string& body);

}  // namespace quorvane

#endif  // QUORVANE_INVENTORY_COLLECTION_H_
