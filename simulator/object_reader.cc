// SPDX-License-Identifier: Apache-2.0
#include "simulator/object_reader.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

// Levenshtein distance, computed row by row.
std::size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t substituted = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, substituted});
    }
  }
  return row.back();
}

std::string Quoted(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) {
    list += (list.empty() ? "\"" : ", \"") + name + '"';
  }
  return list;
}

// The value as JSON, shortened for a message.
std::string ShortText(const Json& value) {
  constexpr std::size_t kMaxLength = 40;
  std::string text =
      Printable(value.dump(-1, ' ', false, Json::error_handler_t::replace));
  if (text.size() > kMaxLength) text = text.substr(0, kMaxLength) + "...";
  return text;
}

}  // namespace

ObjectReader::ObjectReader(const Json& json, std::string path)
    : json_(json), path_(std::move(path)) {
  if (!json_.is_object()) {
    throw ScenarioError(path_ + ": must be an object, not " + ShortText(json_));
  }
}

const Json* ObjectReader::Find(const char* key) {
  known_.emplace_back(key);
  const auto found = json_.find(key);
  return found == json_.end() ? nullptr : &*found;
}

void ObjectReader::Read(const char* key, std::string& out) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  if (!value->is_string()) {
    Fail(key, "must be a string, not " + ShortText(*value));
  }
  out = value->get<std::string>();
}

void ObjectReader::Read(const char* key, std::string& out,
                        const std::vector<std::string>& allowed) {
  Read(key, out);
  if (Has(key) &&
      std::find(allowed.begin(), allowed.end(), out) == allowed.end()) {
    Fail(key, "must be one of " + Quoted(allowed) + ", not \"" +
                  Printable(out) + '"');
  }
}

void ObjectReader::Read(const char* key, bool& out) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  if (!value->is_boolean()) {
    Fail(key, "must be true or false, not " + ShortText(*value));
  }
  out = value->get<bool>();
}

void ObjectReader::Read(const char* key, int& out, int min, int max) {
  std::optional<int> value;
  Read(key, value, min, max);
  out = value.value_or(out);
}

void ObjectReader::Read(const char* key, std::optional<int>& out, int min,
                        int max) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  // An integer that does not fit into 64 bits is parsed as a double.
  const double number = value->is_number() ? value->get<double>() : min - 1.0;
  if (!value->is_number_integer() || number < min || number > max) {
    Fail(key, "must be an integer from " + std::to_string(min) + " to " +
                  std::to_string(max) + ", not " + ShortText(*value));
  }
  out = value->get<int>();
}

void ObjectReader::Read(const char* key, std::uint64_t& out) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  if (!value->is_number_unsigned()) {
    Fail(key, "must be an integer, 0 or more, not " + ShortText(*value));
  }
  out = value->get<std::uint64_t>();
}

void ObjectReader::Read(const char* key, double& out) {
  constexpr double kYear = 365.0 * 24 * 60 * 60;
  const Json* value = Find(key);
  if (value == nullptr) return;
  const double number = value->is_number() ? value->get<double>() : -1.0;
  if (!(number >= 0 && number <= kYear)) {
    Fail(key, "must be a number of seconds from 0 to 31536000, not " +
                  ShortText(*value));
  }
  out = number;
}

void ObjectReader::Read(const char* key, std::vector<std::string>& out) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  const bool is_list = value->is_array() &&
                       std::all_of(value->begin(), value->end(),
                                   [](const Json& e) { return e.is_string(); });
  if (!is_list) {
    Fail(key, "must be an array of strings, not " + ShortText(*value));
  }
  out = value->get<std::vector<std::string>>();
}

void ObjectReader::ReadObjectText(const char* key, std::string& out) {
  const Json* value = Find(key);
  if (value == nullptr) return;
  if (!value->is_object()) {
    Fail(key, "must be an object, not " + ShortText(*value));
  }
  out = value->dump();
}

void ObjectReader::Require(const char* key) const {
  if (!Has(key)) Fail(key, "is required");
}

void ObjectReader::RejectUnknownKeys() const {
  for (const auto& [key, value] : json_.items()) {
    if (std::find(known_.begin(), known_.end(), key) != known_.end()) continue;
    std::string problem = "unknown key.";
    const auto nearest =
        std::min_element(known_.begin(), known_.end(),
                         [&, name = key](const auto& a, const auto& b) {
                           return EditDistance(name, a) < EditDistance(name, b);
                         });
    constexpr std::size_t kMaxDistance = 3;
    if (nearest != known_.end() &&
        EditDistance(key, *nearest) <= kMaxDistance) {
      problem += " Did you mean \"" + *nearest + "\"?";
    }
    Fail(key, problem + " Allowed keys: " + Quoted(known_));
  }
}

void ObjectReader::Fail(const std::string& key,
                        const std::string& problem) const {
  throw ScenarioError(PathOf(key) + ": " + problem);
}

std::string ObjectReader::PathOf(const std::string& key) const {
  return path_ + '.' + Printable(key);
}

}  // namespace quorvane::simulator
