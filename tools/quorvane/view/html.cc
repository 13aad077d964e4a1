// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/html.h"

#include <fmt/core.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <stdexcept>

#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : Printable(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string Cell(const char* name, const std::string& text,
                 const char* css_class) {
  return fmt::format(R"(<td data-name="{}" class="{}">{}</td>)", name,
                     css_class, Escaped(text));
}

const char* OutcomeClass(Verdict::Outcome outcome) {
  switch (ExitCodeOf(outcome)) {
    case ExitCode::kDone:
      return "good";
    case ExitCode::kFailed:
    case ExitCode::kUnreachable:
      return "bad";
    case ExitCode::kUsage:
    case ExitCode::kUnknown:
    case ExitCode::kNotRecorded:
    case ExitCode::kInterrupted:
      break;
  }
  return "";
}

double TickStep(double length, int at_most) {
  constexpr std::array<double, 17> kSteps = {0.001, 0.01, 0.1,  0.5,  1,    2,
                                             5,     10,   30,   60,   120,  300,
                                             600,   1800, 3600, 7200, 21600};
  for (const double step : kSteps) {
    if (length / step <= at_most) return step;
  }
  constexpr double kDay = 86400;
  return std::ceil(length / (kDay * at_most)) * kDay;
}

std::string FilledPage(
    std::string_view page,
    const std::vector<std::pair<std::string_view, std::string>>& parts) {
  std::string html;
  for (const auto& [placeholder, part] : parts) {
    const std::size_t at = page.find(placeholder);
    if (at == std::string_view::npos) {
      throw std::logic_error("the page lacks " + std::string(placeholder));
    }
    html.append(page.substr(0, at)).append(part);
    page.remove_prefix(at + placeholder.size());
  }
  return html.append(page);
}

}  // namespace quorvane::tool
