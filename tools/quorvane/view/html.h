// SPDX-License-Identifier: Apache-2.0
// What the pages share. Text of a log gets into a page only through `Escaped`.
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_HTML_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_HTML_H_

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/quorvane/run/verdict.h"

namespace quorvane::tool {

extern const std::string_view kPageStyle;  // page.css

/// `Printable`, as text or as the value of a quoted attribute.
std::string Escaped(const std::string& text);

/// A cell of a table. A narrow page shows `name` before the text.
std::string Cell(const char* name, const std::string& text,
                 const char* css_class = "");

/// "good", "bad", or "" if the outcome is neither.
const char* OutcomeClass(Verdict::Outcome outcome);

/// The distance of round ticks on an axis of `length` seconds, so that there
/// are `at_most` of them after the first.
double TickStep(double length, int at_most);

/// `page` with its placeholders replaced; `parts` has them in order.
std::string FilledPage(
    std::string_view page,
    const std::vector<std::pair<std::string_view, std::string>>& parts);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_HTML_H_
