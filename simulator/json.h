// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_JSON_H_
#define QUORVANE_SIMULATOR_JSON_H_

#include <nlohmann/json.hpp>

namespace quorvane::simulator {

/// JSON whose objects keep the order of their keys, as a reader expects it.
using Json = nlohmann::ordered_json;

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_JSON_H_
