// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_CONFIG_PARSE_H_
#define QUORVANE_CONFIG_PARSE_H_

#include <cjson/cJSON.h>

#include "quorvane/config.h"

namespace quorvane {

/// The rules in a parsed document. Ignores unknown keys. An optional scalar of
/// the wrong type gives its default.
/// @throws std::runtime_error with the first violation, in the order of the
///   sections in the file.
Config ParseConfig(const cJSON* root);

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_PARSE_H_
