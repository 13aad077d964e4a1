// SPDX-License-Identifier: Apache-2.0
// Keys, types and values, as the schema has them. The library uses the default
// for what it cannot use.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/quorvane/rules/check.h"
#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

using Schema = nlohmann::ordered_json;
using Type = JsonNode::Type;

const char* NameOf(Type type) {
  constexpr std::array<const char*, 7> kNames = {
      "null", "boolean", "integer", "number", "string", "array", "object"};
  return kNames.at(static_cast<std::size_t>(type));
}

// The types that `schema` allows; empty: all.
std::vector<std::string> TypesOf(const Schema& schema) {
  if (!schema.contains("type")) return {};
  const Schema& type = schema.at("type");
  if (type.is_string()) return {type.get<std::string>()};
  return type.get<std::vector<std::string>>();
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string joined;
  for (const std::string& word : words) {
    joined += (joined.empty() ? "" : between) + word;
  }
  return joined;
}

class SchemaCheck {
 public:
  SchemaCheck(const Schema& root, std::vector<Finding>& findings)
      : root_(root), findings_(findings) {}

  /// @param name  How a finding names the value.
  void Check(const Schema& schema, const JsonNode& node,
             const std::string& name) {
    if (const auto ref = schema.find("$ref"); ref != schema.end()) {
      const std::string pointer = ref->get<std::string>().substr(1);
      return Check(root_.at(Schema::json_pointer(pointer)), node, name);
    }
    const std::vector<std::string> types = TypesOf(schema);
    if (!types.empty() && std::find(types.begin(), types.end(),
                                    NameOf(node.type)) == types.end()) {
      return Add(
          node.position,
          fmt::format(
              "{} must be of type {}, not {}. The library does not use it",
              name, Joined(types, " or "), NameOf(node.type)));
    }
    if (node.type == Type::kObject) CheckMembers(schema, node, name);
    if (node.type == Type::kString) CheckText(schema, node, name);
    if (node.type == Type::kArray && schema.contains("items")) {
      for (const JsonNode& element : node.children) {
        Check(schema.at("items"), element, "An entry of " + name);
      }
    }
  }

 private:
  void Add(Position position, std::string text) {
    findings_.push_back({position, std::move(text)});
  }

  void CheckMembers(const Schema& schema, const JsonNode& node,
                    const std::string& name) {
    std::set<std::string> seen;
    for (const JsonNode& member : node.children) {
      if (!seen.insert(member.key).second) {
        Add(member.key_position,
            fmt::format("\"{}\" is a duplicate key. Only the first one counts. "
                        "Remove the other one",
                        member.key));
      }
      CheckMember(schema, member, name);
    }
    for (const Schema& key : schema.value("required", Schema::array())) {
      if (seen.count(key.get<std::string>()) > 0) continue;
      Add(node.position,
          fmt::format("{} has no key {}, which is required. Add it", name,
                      key.dump()));
    }
  }

  void CheckMember(const Schema& schema, const JsonNode& member,
                   const std::string& name) {
    const std::string quoted = fmt::format("\"{}\"", member.key);
    const auto properties = schema.find("properties");
    const auto others = schema.find("additionalProperties");
    if (properties != schema.end() && properties->contains(member.key)) {
      Check(properties->at(member.key), member, quoted);
    } else if (others != schema.end() && others->is_object()) {
      Check(*others, member, quoted);
    } else if (properties != schema.end()) {
      std::vector<std::string> known;
      for (const auto& [key, value] : properties->items()) known.push_back(key);
      Add(member.key_position,
          fmt::format("{} has no key {}. It is ignored{}", name, quoted,
                      Suggestion(known, member.key)));
    }
  }

  void CheckText(const Schema& schema, const JsonNode& node,
                 const std::string& name) {
    if (const auto values = schema.find("enum"); values != schema.end()) {
      const auto known = values->get<std::vector<std::string>>();
      if (std::find(known.begin(), known.end(), node.text) == known.end()) {
        Add(node.position,
            fmt::format(
                "{} cannot be \"{}\", so the file does not load. Use {}{}",
                name, node.text, Joined(known, ", "),
                Suggestion(known, node.text)));
      }
    }
    if (schema.value("minLength", 0) > 0 && node.text.empty()) {
      Add(node.position, name +
                             " is empty, so the entry is ignored. Enter a "
                             "text, or remove the entry");
    }
    // Only URIs have a pattern.
    if (schema.contains("pattern") && node.text.rfind('/', 0) != 0) {
      Add(node.position,
          fmt::format("The URI \"{}\" does not begin with \"/\", so it changes "
                      "the address of the BMC. Add the slash",
                      node.text));
    }
  }

  const Schema& root_;
  std::vector<Finding>& findings_;
};

}  // namespace

void CheckSchema(const JsonNode& root, std::vector<Finding>& findings) {
  const Schema schema = Schema::parse(kRulesSchema);
  SchemaCheck(schema, findings).Check(schema, root, "The file");
}

}  // namespace quorvane::tool
