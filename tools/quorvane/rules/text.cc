// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/text.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;
using Type = RulesNode::Type;

// Tells how far the parser has read; it gives no places of its own.
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
  bool boolean(bool /*value*/) override { return Scalar(Type::kBoolean); }
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
    key_place_ = TokenPlace();
    return true;
  }
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    result_.is_json = false;
    result_.error = PlaceAt(position == 0 ? 0 : position - 1);
    return false;
  }

  RulesText Take() { return std::move(result_); }

 private:
  // Positions only grow, so lines are counted once.
  Place PlaceAt(std::size_t position) {
    position = std::min(position, text_.size());
    for (; counted_ < position; ++counted_) {
      if (text_[counted_] != '\n') continue;
      ++line_;
      line_begin_ = counted_ + 1;
    }
    return {line_, position - std::min(position, line_begin_) + 1};
  }

  // Where the token that was just read begins: behind the last one, and behind
  // what may stand between two.
  Place TokenPlace() {
    const std::size_t begin =
        std::min(text_.find_first_not_of(" \t\r\n,:", last_end_), text_.size());
    last_end_ = *consumed_;
    return PlaceAt(begin);
  }

  RulesNode& Add(RulesNode node) {
    if (open_.empty()) return result_.root = std::move(node);
    RulesNode& parent = *open_.back();
    if (parent.type == Type::kObject) {
      node.name = key_;
      node.name_place = key_place_;
    }
    return parent.children.emplace_back(std::move(node));
  }

  bool Scalar(Type type, std::string value = {}, double number = 0) {
    Add({.type = type,
         .place = TokenPlace(),
         .text = std::move(value),
         .number = number});
    return true;
  }

  // A parent's vector only grows while none of its children is open, so the
  // pointers hold.
  bool Begin(Type type) {
    open_.push_back(&Add({.type = type, .place = TokenPlace()}));
    return open_.size() < kMostDepth;
  }

  bool End() {
    open_.pop_back();
    last_end_ = *consumed_;
    return true;
  }

  static constexpr std::size_t kMostDepth = 1000;  // as cJSON

  std::string_view text_;
  const std::size_t* consumed_;
  RulesText result_;
  std::vector<RulesNode*> open_;
  std::string key_;
  Place key_place_;
  std::size_t last_end_ = 0;
  std::size_t counted_ = 0;
  std::size_t line_ = 1;
  std::size_t line_begin_ = 0;
};

}  // namespace

const RulesNode* RulesNode::Find(std::string_view member_name) const {
  if (type != Type::kObject) return nullptr;
  const auto found = std::find_if(
      children.begin(), children.end(),
      [member_name](const RulesNode& one) { return one.name == member_name; });
  return found == children.end() ? nullptr : &*found;
}

RulesText ParseRulesText(std::string_view text) {
  std::size_t consumed = 0;
  TreeBuilder builder(text, &consumed);
  const char* end = text.data() + text.size();
  const bool whole =
      Json::sax_parse(CountingIterator(text.data(), &consumed),
                      CountingIterator(end, &consumed), &builder);
  RulesText result = builder.Take();
  result.is_json = result.is_json && whole;
  return result;
}

}  // namespace quorvane::tool
