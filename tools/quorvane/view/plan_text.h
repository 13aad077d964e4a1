// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_PLAN_TEXT_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_PLAN_TEXT_H_

#include <cstddef>
#include <string>

#include "tools/quorvane/redfish/plan.h"
#include "tools/quorvane/redfish/tasks.h"

namespace quorvane::tool {

/// How a text is laid out.
struct Layout {
  std::size_t columns = 0;  ///< Of the terminal; 0: no limit.
  bool is_colored = false;
};

/// The plan as sections for a user.
std::string DescribePlan(const Plan& plan, const Layout& layout);

/// A line for each task.
std::string DescribeTasks(const BmcTasks& tasks, const Layout& layout);

/// A task with its messages.
std::string DescribeTask(const BmcTask& task, const Layout& layout);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_PLAN_TEXT_H_
