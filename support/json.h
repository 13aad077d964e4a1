// SPDX-License-Identifier: Apache-2.0
// Ownership and typed reads of cJSON trees (RFC 8259). Names of members are
// case-sensitive everywhere.
//
// cJSON answers a failed allocation like any other failure, with a null. Here
// it becomes std::bad_alloc, so that a BMC's good answer never reads as a bad
// one and no request goes out without what it should have held.
#ifndef QUORVANE_SUPPORT_JSON_H_
#define QUORVANE_SUPPORT_JSON_H_

#include <cjson/cJSON.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorvane {

struct JsonDeleter {
  void operator()(cJSON* tree) const noexcept { cJSON_Delete(tree); }
};
/// Owns a tree.
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

/// The tree of `text`, or null if it is no JSON; text behind a complete value
/// is ignored. `error_position`, if given, receives the place (in bytes) where
/// reading failed.
/// @throws std::bad_alloc
JsonPtr ParseJson(const std::string& text,
                  std::size_t* error_position = nullptr);

/// The member of that name; null if there is none or `object` is no object.
const cJSON* Member(const cJSON* object, const char* name);

/// The member if it is an object (an array); else null.
/// @{
const cJSON* ObjectMember(const cJSON* object, const char* name);
const cJSON* ArrayMember(const cJSON* object, const char* name);
/// @}

/// The elements of an array (the members of an object) for a range-based for;
/// none for null. By link: an index would make each step walk from the start.
class Elements {
 public:
  explicit Elements(const cJSON* container)
      : first_(container != nullptr ? container->child : nullptr) {}

  class Iterator {
   public:
    explicit Iterator(const cJSON* item) : item_(item) {}
    const cJSON* operator*() const { return item_; }
    Iterator& operator++() {
      item_ = item_->next;
      return *this;
    }
    bool operator!=(const Iterator& other) const {
      return item_ != other.item_;
    }

   private:
    const cJSON* item_;
  };

  [[nodiscard]] Iterator begin() const { return Iterator(first_); }
  [[nodiscard]] static Iterator end() { return Iterator(nullptr); }

 private:
  const cJSON* first_;
};

/// The value of a string, empty ones included; nothing for all else.
/// @{
std::optional<std::string> StringValue(const cJSON* item);
std::optional<std::string> StringMember(const cJSON* object, const char* name);
/// @}

/// The whole part of a number, clamped to 32 bits; nothing for all else.
std::optional<int> IntMember(const cJSON* object, const char* name);

/// The truth of a boolean, or `fallback` for all else.
bool BoolMember(const cJSON* object, const char* name, bool fallback);

/// Builders. Each adds one member to `object`, which must be an object, or
/// throws std::bad_alloc; none ever leaves a member out.
/// @{
JsonPtr NewObject();
void AddString(cJSON* object, const char* name, const std::string& value);
void AddBool(cJSON* object, const char* name, bool value);
void AddNumber(cJSON* object, const char* name, double value);
void AddNull(cJSON* object, const char* name);
void AddStrings(cJSON* object, const char* name,
                const std::vector<std::string>& values);
/// Adds an empty array and returns it; it belongs to `object`.
cJSON* AddArray(cJSON* object, const char* name);
/// Appends an empty object to `array` and returns it; it belongs to `array`.
cJSON* AppendObject(cJSON* array);
/// @}

/// Text of a tree: indented for people, or without a blank for the wire. "{}"
/// for a tree that cannot be printed.
/// @throws std::bad_alloc
/// @{
std::string PrintJson(const cJSON* tree);
std::string PrintJsonUnformatted(const cJSON* tree);
/// @}

/// `PrintJson` of at most `limit` bytes; nothing when it takes more.
/// Indentation makes a deeply nested document many times as long as it came.
std::optional<std::string> PrintJsonWithin(const cJSON* tree,
                                           std::size_t limit);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_JSON_H_
