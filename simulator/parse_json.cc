// SPDX-License-Identifier: Apache-2.0
#include "simulator/parse_json.h"

#include <stdexcept>

#include "simulator/text.h"

namespace quorvane::simulator {

Json ParseJson(const std::string& text) {
  constexpr int kMaxDepth = 100;
  try {
    return Json::parse(text, [](int depth, Json::parse_event_t, const Json&) {
      if (depth > kMaxDepth) {
        throw std::runtime_error("nested deeper than 100 levels");
      }
      return true;
    });
  } catch (const Json::parse_error& error) {
    // Remove the exception id in brackets before "parse error at line ...".
    const std::string reason = error.what();
    throw std::runtime_error(Printable(reason.substr(reason.find("] ") + 2)));
  }
}

}  // namespace quorvane::simulator
