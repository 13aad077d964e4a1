// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/fleet.h"

namespace quorvane::tool {
namespace {

// What a spreadsheet takes for the start of a formula, also in the width of
// East Asian characters.
constexpr std::array<std::string_view, 8> kFormulaStarts = {
    "=", "+", "-", "@", "\uff1d", "\uff0b", "\uff0d", "\uff20"};

bool IsFormula(std::string_view text) {
  return std::any_of(kFormulaStarts.begin(), kFormulaStarts.end(),
                     [text](std::string_view start) {
                       return text.substr(0, start.size()) == start;
                     });
}

// A field in quotes. An apostrophe makes a formula text, also behind what some
// spreadsheets take for the end of a field.
std::string Field(std::string_view text) {
  const std::string printable = Printable(text);
  std::string field = "\"";
  bool is_start = true;
  for (std::string_view rest = printable; !rest.empty();
       rest.remove_prefix(1)) {
    const char c = rest.front();
    if (is_start && IsFormula(rest)) field += '\'';
    if (c == '"') field += '"';
    field += c;
    is_start = c == ';' || c == ',' || (is_start && (c == ' ' || c == '"'));
  }
  return field + '"';
}

std::string Line(std::initializer_list<std::string_view> fields) {
  std::string line;
  for (const std::string_view field : fields) {
    line += (line.empty() ? "" : ",") + Field(field);
  }
  return line + "\r\n";
}

std::string VersionsField(const Firmware& firmware) {
  std::string text;
  for (const FirmwareMember& member : firmware.members) {
    text += fmt::format("{}{}: {} -> {}", text.empty() ? "" : "; ",
                        member.name.empty() ? member.uri : member.name,
                        member.before.value_or("unknown"),
                        member.after.value_or("unknown"));
  }
  return text;
}

}  // namespace

std::string FleetCsv(const Fleet& fleet) {
  std::string csv = Line({"bmc", "verdict", "exit_code", "start", "end",
                          "duration_seconds", "firmware", "headline", "cause",
                          "next", "title", "log", "is_last"});
  for (const FleetRow& row : fleet.rows) {
    const nlohmann::json json = RunJson(row.run, row.verdict);
    const auto text = [&json](const char* name) {
      return json[name].get<std::string>();
    };
    csv += Line(
        {text("bmc"), text("verdict"), json["exit_code"].dump(), text("start"),
         text("end"), fmt::format("{:.3f}", row.run.end - row.run.begin),
         VersionsField(row.run.firmware), text("headline"), text("cause"),
         text("next"), row.run.title, row.log, row.is_last ? "true" : "false"});
  }
  for (const UnusableLog& unusable : fleet.unusable) {
    csv += Line({"", "unusable_log", "", "", "", "", "", "", unusable.reason,
                 "", "", unusable.log, ""});
  }
  return csv;
}

}  // namespace quorvane::tool
