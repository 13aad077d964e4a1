// SPDX-License-Identifier: Apache-2.0
#include "support/json.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace quorvane {
namespace {

struct FreeDeleter {
  void operator()(char* text) const noexcept { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, FreeDeleter>;

// cJSON does not report why it returned null, but malloc(3) sets ENOMEM.
template <typename Call>
auto CheckMemory(Call call) {
  errno = 0;
  auto result = call();
  if (!result && errno == ENOMEM) throw std::bad_alloc();
  return result;
}

template <typename T>
T* Checked(T* created) {
  if (created == nullptr) throw std::bad_alloc();
  return created;
}

// Takes ownership of `item`. If cJSON cannot add it, it does not free it.
cJSON* Append(cJSON* array, cJSON* item) {
  JsonPtr owned(Checked(item));
  if (cJSON_AddItemToArray(array, owned.get()) == 0) throw std::bad_alloc();
  return owned.release();
}

std::string Text(char* printed) {
  const JsonText text(printed);
  return text ? std::string(text.get()) : std::string("{}");
}

}  // namespace

JsonPtr ParseJson(const std::string& text, std::size_t* error_position) {
  // Not cJSON_GetErrorPtr, whose value all threads share. The end pointer is
  // the same position.
  const char* end = text.c_str();
  JsonPtr tree = CheckMemory(
      [&] { return JsonPtr(cJSON_ParseWithOpts(text.c_str(), &end, 0)); });
  if (error_position != nullptr) {
    *error_position = static_cast<std::size_t>(end - text.c_str());
  }
  return tree;
}

const cJSON* Member(const cJSON* object, const char* name) {
  if (cJSON_IsObject(object) == 0) return nullptr;
  return cJSON_GetObjectItemCaseSensitive(object, name);
}

const cJSON* ObjectMember(const cJSON* object, const char* name) {
  const cJSON* member = Member(object, name);
  return cJSON_IsObject(member) != 0 ? member : nullptr;
}

const cJSON* ArrayMember(const cJSON* object, const char* name) {
  const cJSON* member = Member(object, name);
  return cJSON_IsArray(member) != 0 ? member : nullptr;
}

std::optional<std::string> StringValue(const cJSON* item) {
  if (cJSON_IsString(item) == 0) return std::nullopt;
  return item->valuestring;
}

std::optional<std::string> StringMember(const cJSON* object, const char* name) {
  return StringValue(Member(object, name));
}

std::optional<int> IntMember(const cJSON* object, const char* name) {
  const cJSON* member = Member(object, name);
  if (cJSON_IsNumber(member) == 0) return std::nullopt;
  return member->valueint;
}

bool BoolMember(const cJSON* object, const char* name, bool fallback) {
  const cJSON* member = Member(object, name);
  return cJSON_IsBool(member) != 0 ? cJSON_IsTrue(member) != 0 : fallback;
}

JsonPtr NewObject() { return JsonPtr(Checked(cJSON_CreateObject())); }

void AddString(cJSON* object, const char* name, const std::string& value) {
  Checked(cJSON_AddStringToObject(object, name, value.c_str()));
}

void AddBool(cJSON* object, const char* name, bool value) {
  Checked(cJSON_AddBoolToObject(object, name, value ? 1 : 0));
}

void AddNumber(cJSON* object, const char* name, double value) {
  Checked(cJSON_AddNumberToObject(object, name, value));
}

void AddNull(cJSON* object, const char* name) {
  Checked(cJSON_AddNullToObject(object, name));
}

void AddStrings(cJSON* object, const char* name,
                const std::vector<std::string>& values) {
  cJSON* array = AddArray(object, name);
  for (const std::string& value : values) {
    Append(array, cJSON_CreateString(value.c_str()));
  }
}

cJSON* AddArray(cJSON* object, const char* name) {
  return Checked(cJSON_AddArrayToObject(object, name));
}

cJSON* AppendObject(cJSON* array) {
  return Append(array, cJSON_CreateObject());
}

std::string PrintJson(const cJSON* tree) {
  return Text(CheckMemory([&] { return cJSON_Print(tree); }));
}

std::optional<std::string> PrintJsonWithin(const cJSON* tree,
                                           std::size_t limit) {
  std::string text(limit, '\0');
  const bool printed =
      cJSON_PrintPreallocated(const_cast<cJSON*>(tree), text.data(),
                              static_cast<int>(limit), 1) != 0;
  if (!printed) return std::nullopt;
  text.resize(std::strlen(text.c_str()));
  return text;
}

std::string PrintJsonUnformatted(const cJSON* tree) {
  return Text(CheckMemory([&] { return cJSON_PrintUnformatted(tree); }));
}

}  // namespace quorvane
