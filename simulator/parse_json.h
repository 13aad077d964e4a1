// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_PARSE_JSON_H_
#define QUORVANE_SIMULATOR_PARSE_JSON_H_

#include <string>

#include "simulator/json.h"

namespace quorvane::simulator {

/// Parses JSON from a file or a client. Limits the nesting, because printing
/// and copying a document are recursive and could overflow the stack.
/// @throws std::runtime_error with a printable message if `text` is not valid
///     JSON or is nested deeper than 100 levels.
Json ParseJson(const std::string& text);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_PARSE_JSON_H_
