// SPDX-License-Identifier: Apache-2.0
// Ownership and typed reading of cJSON trees (RFC 8259). Names of members are
// case-sensitive.
//
// cJSON returns null for a failed allocation, as for any other error. Here it
// becomes std::bad_alloc, so that a valid response never looks invalid, and no
// request is sent incomplete.
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

/// The tree of `text`, or null if it is not JSON. Ignores text after a complete
/// value. `error_position`, if given, receives the position of the parse error,
/// in bytes.
/// @throws std::bad_alloc
JsonPtr ParseJson(const std::string& text,
                  std::size_t* error_position = nullptr);

/// The member of that name; null without one, or if `object` is not an object.
const cJSON* Member(const cJSON* object, const char* name);

/// The member if it is an object (an array); else null.
/// @{
const cJSON* ObjectMember(const cJSON* object, const char* name);
const cJSON* ArrayMember(const cJSON* object, const char* name);
/// @}

/// The elements of an array (the members of an object) for a range-based for;
/// none for null. Follows the links of cJSON: access by index would start from
/// the first element each time.
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

/// The value of a string, which may be empty; nothing for any other type.
/// @{
std::optional<std::string> StringValue(const cJSON* item);
std::optional<std::string> StringMember(const cJSON* object, const char* name);
/// @}

/// The integer part of a number, clamped to 32 bits; nothing for any other
/// type.
std::optional<int> IntMember(const cJSON* object, const char* name);

/// The value of a boolean, or `fallback` for any other type.
bool BoolMember(const cJSON* object, const char* name, bool fallback);

/// Builders. Each adds one member to `object`, which must be an object, or
/// throws std::bad_alloc.
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

/// The text of a tree: indented, or unformatted for a request. "{}" for a tree
/// that cannot be printed.
/// @throws std::bad_alloc
/// @{
std::string PrintJson(const cJSON* tree);
std::string PrintJsonUnformatted(const cJSON* tree);
/// @}

/// `PrintJson` with at most `limit` bytes; nothing if the text is longer.
/// Indentation makes a deeply nested document many times as long.
std::optional<std::string> PrintJsonWithin(const cJSON* tree,
                                           std::size_t limit);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_JSON_H_
