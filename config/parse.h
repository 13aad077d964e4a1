// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_CONFIG_PARSE_H_
#define QUORVANE_CONFIG_PARSE_H_

#include <cjson/cJSON.h>

#include "quorvane/config.h"

namespace quorvane {

/// The rules in a parsed document. Unknown keys are ignored; an optional scalar
/// of the wrong type gives its default.
/// @throws std::runtime_error that names the first violation, in file order of
///   the sections.
Config ParseConfig(const cJSON* root);

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_PARSE_H_
