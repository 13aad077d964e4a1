// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/positioned_json.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;
using Type = JsonNode::Type;

// Counts the bytes that the parser has read, because it reports no positions.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, std::size_t* consumed)
      : at_(at), consumed_(consumed) {}
  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    ++at_;
    ++*consumed_;
    return *this;
  }
  bool operator==(const CountingIterator& other) const {
    return at_ == other.at_;
  }
  bool operator!=(const CountingIterator& other) const {
    return at_ != other.at_;
  }

 private:
  const char* at_;
  std::size_t* consumed_;
};

class TreeBuilder : public nlohmann::json_sax<Json> {
 public:
  TreeBuilder(std::string_view text, const std::size_t* consumed)
      : text_(text), consumed_(consumed) {}

  bool null() override { return Scalar(Type::kNull); }
  bool boolean(bool value) override {
    return Scalar(Type::kBoolean, value ? "true" : "false");
  }
  bool number_integer(std::int64_t value) override {
    return Scalar(Type::kInteger, {}, static_cast<double>(value));
  }
  bool number_unsigned(std::uint64_t value) override {
    return Scalar(Type::kInteger, {}, static_cast<double>(value));
  }
  bool number_float(double value, const std::string& /*text*/) override {
    const bool is_whole = std::floor(value) == value;
    return Scalar(is_whole ? Type::kInteger : Type::kNumber, {}, value);
  }
  bool string(std::string& value) override {
    return Scalar(Type::kString, value);
  }
  bool binary(Json::binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*size*/) override {
    return Begin(Type::kObject);
  }
  bool start_array(std::size_t /*size*/) override {
    return Begin(Type::kArray);
  }
  bool end_object() override { return End(); }
  bool end_array() override { return End(); }
  bool key(std::string& name) override {
    key_ = name;
    key_position_ = TokenPosition();
    return true;
  }
  bool parse_error(std::size_t byte, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    result_.is_valid = false;
    result_.error = PositionAt(byte == 0 ? 0 : byte - 1);
    return false;
  }

  ParsedJson Take() { return std::move(result_); }

 private:
  // Offsets only grow, so each line is counted once.
  Position PositionAt(std::size_t offset) {
    offset = std::min(offset, text_.size());
    for (; counted_ < offset; ++counted_) {
      if (text_[counted_] != '\n') continue;
      ++line_;
      line_begin_ = counted_ + 1;
    }
    return {line_, offset - std::min(offset, line_begin_) + 1};
  }

  // Start of the token that was just read: after the previous token and the
  // separators.
  Position TokenPosition() {
    const std::size_t begin =
        std::min(text_.find_first_not_of(" \t\r\n,:", last_end_), text_.size());
    last_end_ = *consumed_;
    return PositionAt(begin);
  }

  JsonNode& Add(JsonNode node) {
    if (open_.empty()) return result_.root = std::move(node);
    JsonNode& parent = *open_.back();
    if (parent.type == Type::kObject) {
      node.key = key_;
      node.key_position = key_position_;
    }
    return parent.children.emplace_back(std::move(node));
  }

  bool Scalar(Type type, std::string value = {}, double number = 0) {
    Add({.type = type,
         .position = TokenPosition(),
         .text = std::move(value),
         .number = number});
    return true;
  }

  // The pointers stay valid: a vector of children only grows while none of
  // these children is open.
  bool Begin(Type type) {
    open_.push_back(&Add({.type = type, .position = TokenPosition()}));
    return open_.size() < kMaxDepth;
  }

  bool End() {
    open_.pop_back();
    last_end_ = *consumed_;
    return true;
  }

  static constexpr std::size_t kMaxDepth = 1000;  // The same as in cJSON.

  std::string_view text_;
  const std::size_t* consumed_;
  ParsedJson result_;
  std::vector<JsonNode*> open_;
  std::string key_;
  Position key_position_;
  std::size_t last_end_ = 0;
  std::size_t counted_ = 0;
  std::size_t line_ = 1;
  std::size_t line_begin_ = 0;
};

}  // namespace

const JsonNode* JsonNode::Find(std::string_view member_key) const {
  if (type != Type::kObject) return nullptr;
  const auto found = std::find_if(
      children.begin(), children.end(),
      [member_key](const JsonNode& one) { return one.key == member_key; });
  return found == children.end() ? nullptr : &*found;
}

const JsonNode* JsonNode::FindPath(std::string_view path) const {
  const std::size_t slash = path.find('/');
  const JsonNode* member = Find(path.substr(0, slash));
  return member == nullptr || slash == std::string_view::npos
             ? member
             : member->FindPath(path.substr(slash + 1));
}

ParsedJson ParseJson(std::string_view text) {
  std::size_t consumed = 0;
  TreeBuilder builder(text, &consumed);
  const char* end = text.data() + text.size();
  const bool is_complete =
      Json::sax_parse(CountingIterator(text.data(), &consumed),
                      CountingIterator(end, &consumed), &builder);
  ParsedJson result = builder.Take();
  result.is_valid = result.is_valid && is_complete;
  return result;
}

}  // namespace quorvane::tool
