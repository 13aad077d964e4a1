// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_PARSE_JSON_H_
#define QUORVANE_SIMULATOR_PARSE_JSON_H_

#include <nlohmann/json.hpp>
#include <string>

namespace quorvane::simulator {

/// Parses text that comes from a file or a client. Printing and copying a
/// document are recursive, so deep nesting would overflow the stack.
/// @throws std::runtime_error when `text` is not valid JSON or nests deeper
///     than 100 levels. The message is printable.
nlohmann::ordered_json ParseJson(const std::string& text);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_PARSE_JSON_H_
