// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_OBJECT_READER_H_
#define QUORVANE_SIMULATOR_OBJECT_READER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/json.h"
#include "simulator/scenario.h"

namespace quorvane::simulator {

/// Reads a JSON object strictly. Each Read sets its output if the key exists,
/// leaves it unchanged if not, and throws ScenarioError if the type is wrong.
/// The keys that are read are the allowed keys, so that a new key takes one
/// line.
class ObjectReader {
 public:
  /// @param path  Names the object in errors: "file.json: $.task.steps[0]".
  /// @throws ScenarioError if `json` is not an object.
  ObjectReader(const Json& json, std::string path);

  void Read(const char* key, std::string& out);
  /// One of `allowed`.
  void Read(const char* key, std::string& out,
            const std::vector<std::string>& allowed);
  void Read(const char* key, bool& out);
  void Read(const char* key, int& out, int min, int max);
  void Read(const char* key, std::optional<int>& out, int min, int max);
  void Read(const char* key, std::uint64_t& out);
  void Read(const char* key, double& out);  ///< Zero or more.
  void Read(const char* key, std::vector<std::string>& out);
  /// A JSON object, as text.
  void ReadObjectText(const char* key, std::string& out);

  /// An array. Each entry is read by `read(ObjectReader&) -> T`.
  template <typename T, typename ReadEntry>
  void ReadList(const char* key, std::vector<T>& out, ReadEntry read) {
    const auto* list = Find(key);
    if (list == nullptr) return;
    if (!list->is_array()) Fail(key, "must be an array of objects");
    out.clear();
    for (const auto& entry : *list) {
      ObjectReader reader(entry,
                          PathOf(key) + '[' + std::to_string(out.size()) + ']');
      out.push_back(read(reader));
      reader.RejectUnknownKeys();
    }
  }

  /// An object. It is read by `read(ObjectReader&)`.
  template <typename ReadMembers>
  void ReadObject(const char* key, ReadMembers read) {
    const auto* object = Find(key);
    if (object == nullptr) return;
    ObjectReader reader(*object, PathOf(key));
    read(reader);
    reader.RejectUnknownKeys();
  }

  [[nodiscard]] bool Has(const char* key) const { return json_.contains(key); }

  /// Marks `key` as known. Returns null if the object lacks it.
  const Json* Find(const char* key);

  /// @throws ScenarioError if the object lacks `key`.
  void Require(const char* key) const;

  /// @throws ScenarioError for a key that is not known; suggests the closest.
  void RejectUnknownKeys() const;

  [[noreturn]] void Fail(const std::string& key,
                         const std::string& problem) const;

 private:
  [[nodiscard]] std::string PathOf(const std::string& key) const;

  const Json& json_;
  std::string path_;
  std::vector<std::string> known_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_OBJECT_READER_H_
