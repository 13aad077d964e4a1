// SPDX-License-Identifier: Apache-2.0
// A rules file as it is written: what LoadConfig leaves out, and where it is.
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_TEXT_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::tool {

/// Line and column, both from 1; a column is a byte.
struct Place {
  std::size_t line = 1;
  std::size_t column = 1;
};

/// One value of the file and where it begins.
struct RulesNode {
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
  Place place = {};
  std::string name = {};  ///< Of a member: its key, and
  Place name_place = {};  ///< where that is.
  std::string text = {};  ///< Of a string.
  double number = 0;      ///< Of a number.
  /// Of an object its members, of an array its elements, as the file has them.
  std::vector<RulesNode> children = {};

  /// The first member of that name, which is the one that counts; or null.
  [[nodiscard]] const RulesNode* Find(std::string_view member_name) const;
};

struct RulesText {
  RulesNode root = {};
  bool is_json = true;  ///< By RFC 8259; the library is less strict.
  Place error = {};     ///< Where it is none.
};

RulesText ParseRulesText(std::string_view text);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_TEXT_H_
