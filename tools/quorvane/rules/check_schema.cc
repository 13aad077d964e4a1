// SPDX-License-Identifier: Apache-2.0
// Keys, types and values, as the schema has them.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
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

// How a value of each type looks, for what to write instead.
std::string Looks(const std::string& type) {
  constexpr std::array<std::pair<std::string_view, const char*>, 5> kLooks = {{
      {"boolean", "true or false without quotes"},
      {"integer", "a whole number without quotes"},
      {"string", "a text in quotes"},
      {"array", "a list in [ ]"},
      {"object", "an object in { }"},
  }};
  for (const auto& [name, looks] : kLooks) {
    if (name == type) return looks;
  }
  return type;
}

// What the library does with a value that it cannot use.
struct Effect {
  Severity severity;
  std::string text;
};

Effect DoesNotLoad() { return {Severity::kError, "the file does not load"}; }
Effect Ignored(const char* what) {
  return {Severity::kWarning, fmt::format("the library ignores {}", what)};
}

// What the library does without the optional `key`, whose value cannot be used.
Effect UsesDefault(const Schema& schema, const std::string& key) {
  // Defaults that do harm to a server if another value was meant.
  constexpr std::array<std::pair<std::string_view, const char*>, 1> kHarmful = {
      {{"reboot_required", " and reboots the system"}}};
  const auto value = schema.find("default");
  if (value == schema.end()) return Ignored("it");
  Effect effect{Severity::kWarning, "the library uses " + value->dump()};
  for (const auto& [harmful_key, harm] : kHarmful) {
    if (harmful_key == key) effect = {Severity::kError, effect.text + harm};
  }
  return effect;
}

bool IsNumber(const JsonNode& node) {
  return node.type == Type::kInteger || node.type == Type::kNumber;
}

class SchemaCheck {
 public:
  SchemaCheck(const Schema& root, std::vector<Finding>& findings)
      : root_(root), findings_(findings) {}

  /// @param name    How a finding names the value.
  /// @param effect  Of a value with the wrong type, or of an object without a
  ///                required key.
  void Check(const Schema& schema, const JsonNode& node,
             const std::string& name, const Effect& effect) {
    if (schema.contains("$ref")) {
      return Check(Referenced(schema), node, name, effect);
    }
    CheckMinimum(schema, node, name);
    const std::vector<std::string> types = TypesOf(schema);
    if (!types.empty() && std::find(types.begin(), types.end(),
                                    NameOf(node.type)) == types.end()) {
      return AddWrongType(types, node, name, effect);
    }
    if (node.type == Type::kObject) CheckMembers(schema, node, name, effect);
    if (node.type == Type::kString) CheckText(schema, node, name);
    if (node.type == Type::kArray && schema.contains("items")) {
      for (const JsonNode& element : node.children) {
        Check(schema.at("items"), element, "An entry of " + name,
              Ignored("the entry"));
      }
    }
  }

 private:
  void Add(Severity severity, Position position, std::string text) {
    findings_.push_back({severity, position, std::move(text)});
  }

  const Schema& Referenced(const Schema& schema) const {
    const std::string pointer = schema.at("$ref").get<std::string>().substr(1);
    return root_.at(Schema::json_pointer(pointer));
  }

  // The library takes the integer part of a number.
  void CheckMinimum(const Schema& schema, const JsonNode& node,
                    const std::string& name) {
    const auto minimum = schema.find("minimum");
    if (minimum == schema.end() || !IsNumber(node) ||
        std::trunc(node.number) >= minimum->get<double>()) {
      return;
    }
    Add(Severity::kError, node.position,
        fmt::format("{} must be at least {}, so the file does not load. Use a "
                    "larger number",
                    name, minimum->dump()));
  }

  void AddWrongType(const std::vector<std::string>& types, const JsonNode& node,
                    const std::string& name, const Effect& effect) {
    std::string instead;
    for (const std::string& type : types) {
      instead += (instead.empty() ? "" : " or ") + Looks(type);
    }
    Add(effect.severity, node.position,
        fmt::format("{} must be of type {}, not {}, so {}. Write {}", name,
                    Joined(types, " or "), NameOf(node.type),
                    IsNumber(node) && types.front() == "integer"
                        ? fmt::format("the library uses {:.0f}",
                                      std::trunc(node.number))
                        : effect.text,
                    instead));
  }

  void CheckMembers(const Schema& schema, const JsonNode& node,
                    const std::string& name, const Effect& effect) {
    const auto required = schema.value("required", std::vector<std::string>());
    for (const std::string& key : required) {
      if (node.Find(key) != nullptr) continue;
      Add(effect.severity, node.position,
          fmt::format("{} has no key \"{}\", so {}. Add the key", name, key,
                      effect.text));
    }
    std::set<std::string> seen;
    for (const JsonNode& member : node.children) {
      const bool is_required = std::find(required.begin(), required.end(),
                                         member.key) != required.end();
      CheckMember(schema, member, name, is_required ? &effect : nullptr,
                  seen.insert(member.key).second);
    }
  }

  /// @param if_wrong  The effect of a required member with the wrong type.
  void CheckMember(const Schema& schema, const JsonNode& member,
                   const std::string& name, const Effect* if_wrong,
                   bool is_first) {
    const std::string quoted = fmt::format("\"{}\"", member.key);
    const auto properties = schema.find("properties");
    const auto others = schema.find("additionalProperties");
    if (!is_first) {
      Add(Severity::kWarning, member.key_position,
          fmt::format("{} is a duplicate key. Only the first one counts. "
                      "Remove the other one",
                      quoted));
    }
    if (properties != schema.end() && properties->contains(member.key)) {
      const Schema& value = properties->at(member.key);
      // The library does not read a second value.
      if (!is_first) return;
      Check(value, member, quoted,
            if_wrong != nullptr ? *if_wrong : UsesDefault(value, member.key));
    } else if (others != schema.end() && others->is_object()) {
      Check(*others, member, quoted, Ignored("the rule"));
    } else if (properties != schema.end()) {
      std::vector<std::string> known;
      for (const auto& [key, value] : properties->items()) known.push_back(key);
      Add(Severity::kWarning, member.key_position,
          fmt::format("{} has no key {}. It is ignored{}", name, quoted,
                      Suggestion(known, member.key)));
    }
  }

  void CheckText(const Schema& schema, const JsonNode& node,
                 const std::string& name) {
    if (const auto values = schema.find("enum"); values != schema.end()) {
      const auto known = values->get<std::vector<std::string>>();
      if (std::find(known.begin(), known.end(), node.text) == known.end()) {
        Add(Severity::kError, node.position,
            fmt::format(
                "{} cannot be \"{}\", so the file does not load. Use {}{}",
                name, node.text, Joined(known, ", "),
                Suggestion(known, node.text)));
      }
    }
    if (schema.value("minLength", 0) > 0 && node.text.empty()) {
      Add(Severity::kWarning, node.position,
          name +
              " is empty, so the entry is ignored. Enter a text, or remove the "
              "entry");
    }
    // Only URIs have a pattern.
    if (schema.contains("pattern")) CheckUri(node);
  }

  void CheckUri(const JsonNode& node) {
    if (node.text.empty()) {
      Add(Severity::kWarning, node.position,
          "An empty URI is ignored. Enter a URI, or remove it");
    } else if (node.text.front() != '/') {
      Add(Severity::kError, node.position,
          fmt::format("The URI \"{}\" does not begin with \"/\", so it becomes "
                      "part of the address, and could send the password and "
                      "the image to another host. Add the slash",
                      node.text));
    }
  }

  const Schema& root_;
  std::vector<Finding>& findings_;
};

}  // namespace

void CheckSchema(const JsonNode& root, std::vector<Finding>& findings) {
  const Schema schema = Schema::parse(kRulesSchema);
  SchemaCheck(schema, findings).Check(schema, root, "The file", DoesNotLoad());
}

}  // namespace quorvane::tool
