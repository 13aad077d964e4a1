// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/plan_text.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

constexpr const char* kUnknown = "unknown";

std::string OrUnknown(const std::string& text) {
  return text.empty() ? std::string(kUnknown) : text;
}

// "  Label      text", wrapped below the text.
std::string LabelLine(std::string_view label, const std::string& text,
                      const Layout& layout) {
  constexpr std::size_t kIndent = 18;
  return Wrapped(fmt::format("  {:<15} {}", label, Printable(text)),
                 layout.columns, kIndent) +
         "\n";
}

std::string PercentOf(const BmcTask& task) {
  return task.percent ? fmt::format(" {:.0f} %", *task.percent) : std::string();
}

std::string ServiceLine(const ServiceFacts& facts) {
  if (!facts.update_service) {
    return facts.update_service_presence == Presence::kAbsent
               ? "absent (HTTP 404)"
               : kUnknown;
  }
  const UpdateServiceFacts& service = *facts.update_service;
  const std::string enabled = !service.is_enabled   ? "not known to be enabled"
                              : *service.is_enabled ? "enabled"
                                                    : "disabled";
  return fmt::format("{}, state {}, health {}", enabled,
                     service.state.value_or(kUnknown),
                     service.health.value_or(kUnknown));
}

std::string RunningLine(const BmcTasks& tasks) {
  std::string line;
  for (const BmcTask& task : tasks.tasks) {
    if (!task.IsRunning()) continue;
    line += fmt::format("{}{} {}{}", line.empty() ? "" : ", ", task.uri,
                        task.state, PercentOf(task));
  }
  if (!line.empty()) return line;
  return tasks.is_complete ? "none" : kUnknown;
}

std::string TargetSection(const Plan& plan, const Layout& layout) {
  const ServiceFacts& facts = plan.facts;
  std::string text =
      "Target\n" + LabelLine("BMC", plan.request.bmc, layout) +
      LabelLine("Product", OrUnknown(facts.product), layout) +
      LabelLine("Redfish", OrUnknown(facts.redfish_version), layout);
  const ChassisFacts chassis = facts.chassis.value_or(ChassisFacts{});
  text += LabelLine(
      "Chassis",
      facts.chassis
          ? fmt::format("{} {} ({})", OrUnknown(chassis.manufacturer),
                        OrUnknown(chassis.model), OrUnknown(chassis.name))
          : kUnknown,
      layout);
  if (facts.systems.empty()) text += LabelLine("System", kUnknown, layout);
  for (const SystemFacts& system : facts.systems) {
    text += LabelLine("System",
                      fmt::format("{}, power {}", system.uri,
                                  system.power_state.value_or(kUnknown)),
                      layout);
  }
  return text + LabelLine("Update service", ServiceLine(facts), layout) +
         LabelLine("Running tasks", RunningLine(facts.tasks), layout);
}

std::string ImageSection(const Plan& plan, const Layout& layout) {
  const PlanImage& image = plan.request.image;
  const UpdateServiceFacts service =
      plan.facts.update_service.value_or(UpdateServiceFacts{});
  std::string text = "\nImage\n";
  if (image.IsFile()) {
    text +=
        LabelLine("File", image.path, layout) +
        LabelLine("Size",
                  fmt::format("{} bytes; limit of the BMC: {}", image.size,
                              service.max_bytes
                                  ? fmt::format("{:.0f}", *service.max_bytes)
                                  : "none reported"),
                  layout) +
        LabelLine("SHA-256", image.sha256, layout);
    return text;
  }
  std::string protocols;
  for (const std::string& one :
       service.protocols.value_or(std::vector<std::string>{})) {
    protocols += (protocols.empty() ? "" : ", ") + one;
  }
  return text + LabelLine("URI", image.uri, layout) +
         LabelLine("Protocols", OrUnknown(protocols), layout);
}

std::string Colored(std::string_view text, const char* color,
                    const Layout& layout) {
  return layout.is_colored ? fmt::format("{}{}\x1b[0m", color, text)
                           : std::string(text);
}

std::string FlowSection(const Plan& plan, const Layout& layout) {
  constexpr std::size_t kBeforeUri = 15;
  std::string text = "\nUpdate flow (>: probably accepts the request)\n";
  for (const PlannedPhase& phase : plan.phases) {
    text += fmt::format("  {}{}\n", phase.phase,
                        phase.is_fallback ? ", if the step before fails" : "");
    if (phase.uris.empty()) text += "    the rules contain no URI\n";
    for (const PlannedUri& uri : phase.uris) {
      const std::size_t width = layout.columns > 2 * kBeforeUri
                                    ? layout.columns - kBeforeUri - 1
                                    : 1000;
      const std::string line =
          fmt::format("  {} {:<10} {}", uri.is_expected ? '>' : ' ',
                      NameOf(uri.state), Elided(uri.uri, width));
      text +=
          (uri.is_expected ? Colored(line, "\x1b[1m", layout) : line) + "\n";
    }
  }
  return text;
}

std::string FirmwareSection(const Plan& plan) {
  constexpr std::size_t kMaxRows = 40;
  constexpr std::size_t kMaxName = 36;
  constexpr std::size_t kMaxVersion = 24;
  const std::vector<FirmwareFacts>& firmware = plan.facts.firmware;
  std::string text = "\nFirmware now\n";
  if (firmware.empty()) return text + "  unknown\n";
  std::size_t width = 4;
  const std::size_t rows = std::min(firmware.size(), kMaxRows);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < rows; ++i) {
    const FirmwareFacts& one = firmware[i];
    names.push_back(one.name.empty() ? Elided(one.uri, kMaxName)
                                     : Excerpt(one.name, kMaxName));
    width = std::max(width, Columns(names.back()));
  }
  text += fmt::format("  {:<{}}  {:<{}}  UPDATEABLE\n", "NAME", width,
                      "VERSION", kMaxVersion);
  for (std::size_t i = 0; i < rows; ++i) {
    const std::string version =
        Excerpt(firmware[i].version.value_or(kUnknown), kMaxVersion);
    text += fmt::format("  {}{}  {}{}  {}\n", names[i],
                        std::string(width - Columns(names[i]), ' '), version,
                        std::string(kMaxVersion - Columns(version), ' '),
                        !firmware[i].updateable   ? kUnknown
                        : *firmware[i].updateable ? "yes"
                                                  : "no");
  }
  if (rows < firmware.size()) {
    text += fmt::format("  and {} more; `quorvane inventory` lists them\n",
                        firmware.size() - rows);
  }
  return text;
}

// The wait for other versions, which --verify-timeout limits.
std::string VerificationClause(double seconds) {
  return seconds > 0 ? ", and no version changes within " + Duration(seconds) +
                           " (--verify-timeout)"
                     : std::string();
}

std::string TimeSection(const Plan& plan, const Layout& layout) {
  return "\nTime\n" +
         LabelLine("Shortest",
                   Duration(plan.shortest_seconds) +
                       ", without the transfer: one poll of the task",
                   layout) +
         LabelLine("Longest",
                   Duration(plan.longest_seconds) +
                       ", if every request and every retry of the rules takes "
                       "its time limit" +
                       VerificationClause(plan.request.verify_seconds),
                   layout);
}

std::string FindingsSection(const Plan& plan, const Layout& layout) {
  constexpr std::size_t kIndent = 11;
  std::string text = "\nFindings\n";
  for (const PlanFinding& finding : plan.findings) {
    // The color is added last, because it takes no columns.
    std::string line = Wrapped(
        fmt::format("  {} {}", finding.is_blocker ? "blocker:" : "warning:",
                    Printable(finding.message)),
        layout.columns, kIndent);
    const std::string label = line.substr(2, 8);
    line.replace(
        2, label.size(),
        Colored(label, finding.is_blocker ? "\x1b[31m" : "\x1b[33m", layout));
    text += line + "\n" +
            Wrapped(fmt::format("           Do: {}", Printable(finding.action)),
                    layout.columns, kIndent) +
            "\n";
  }
  const auto blockers = std::count_if(
      plan.findings.begin(), plan.findings.end(),
      [](const PlanFinding& finding) { return finding.is_blocker; });
  const auto warnings =
      static_cast<std::ptrdiff_t>(plan.findings.size()) - blockers;
  const auto counted = [](std::ptrdiff_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
  };
  return text +
         (blockers == 0 ? "  No blockers, "
                        : "  " + counted(blockers, "blocker") + ", ") +
         counted(warnings, "warning") + ". Nothing was changed.\n";
}

}  // namespace

std::string DescribePlan(const Plan& plan, const Layout& layout) {
  return TargetSection(plan, layout) + ImageSection(plan, layout) +
         FlowSection(plan, layout) + FirmwareSection(plan) +
         TimeSection(plan, layout) + FindingsSection(plan, layout);
}

std::string DescribeTasks(const BmcTasks& tasks, const Layout& layout) {
  std::string text;
  for (const BmcTask& task : tasks.tasks) {
    text +=
        Wrapped(fmt::format("{}  {}{}{}{}", Printable(task.uri),
                            Printable(OrUnknown(task.state)), PercentOf(task),
                            task.status.empty() ? std::string()
                                                : ", " + Printable(task.status),
                            task.name.empty() ? std::string()
                                              : ", " + Printable(task.name)),
                layout.columns, 2) +
        "\n";
  }
  if (tasks.tasks.empty() && tasks.is_complete) text = "No tasks.\n";
  return text;
}

std::string DescribeTask(const BmcTask& task, const Layout& layout) {
  std::string text = "Task\n" + LabelLine("URI", task.uri, layout);
  const auto add = [&](const char* label, const std::string& value) {
    if (!value.empty()) text += LabelLine(label, value, layout);
  };
  add("Name", task.name);
  add("State", OrUnknown(task.state) + PercentOf(task));
  add("Status", task.status);
  add("Started", task.start);
  add("Ended", task.end);
  if (!task.messages.empty()) text += "\nMessages\n";
  for (const TaskMessage& message : task.messages) {
    const std::string& content =
        message.text.empty() ? message.id : message.text;
    text += Wrapped(fmt::format("  {}{}",
                                message.severity.empty()
                                    ? std::string()
                                    : Printable(message.severity) + ": ",
                                Printable(content)),
                    layout.columns, 4) +
            "\n";
    if (message.resolution.empty()) continue;
    text += Wrapped(fmt::format("    Do: {}", Printable(message.resolution)),
                    layout.columns, 4) +
            "\n";
  }
  return text;
}

}  // namespace quorvane::tool
