// SPDX-License-Identifier: Apache-2.0
// A JSON document with the position of every value, so that a finding can name
// its line and column.
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_POSITIONED_JSON_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_POSITIONED_JSON_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::tool {

/// Both count from 1; columns count bytes.
struct Position {
  std::size_t line = 1;
  std::size_t column = 1;
};

/// One value of a document.
struct JsonNode {
  enum class Type {
    kNull,
    kBoolean,
    kInteger,
    kNumber,
    kString,
    kArray,
    kObject
  };
  Type type = Type::kNull;
  Position position = {};
  std::string key = {};  ///< Only for a member of an object.
  Position key_position = {};
  std::string text = {};  ///< The value of a string; "true" or "false".
  double number = 0;      ///< The value of an integer or number.
  /// Members of an object or elements of an array, in document order.
  std::vector<JsonNode> children = {};

  /// The first member with that key, or null. The library also uses the first
  /// of duplicate keys.
  [[nodiscard]] const JsonNode* Find(std::string_view member_key) const;

  /// The value at keys separated by "/", e.g. "firmware_update/reboot".
  [[nodiscard]] const JsonNode* FindPath(std::string_view path) const;
};

struct ParsedJson {
  JsonNode root = {};
  bool is_valid = true;  ///< By RFC 8259; the library is less strict.
  Position error = {};   ///< Position of the first syntax error.
};

ParsedJson ParseJson(std::string_view text);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_POSITIONED_JSON_H_
