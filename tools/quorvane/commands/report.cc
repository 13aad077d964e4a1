// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/report.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tools/quorvane/base/distinct_files.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/log_files.h"
#include "tools/quorvane/view/fleet.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

struct ReportOptions {
  std::vector<std::string> logs;
  std::string html;
  std::string csv;
  std::string metrics;
  bool json = false;
};

bool IsStandardOutput(const std::string& path) {
  return path == "-" || path == "/dev/stdout";
}

bool HasOutput(const ReportOptions& options) {
  return options.json || !options.html.empty() || !options.csv.empty() ||
         !options.metrics.empty();
}

void CheckOptions(const ReportOptions& options,
                  const std::vector<LogFile>& files) {
  if (options.json && IsStandardOutput(options.csv)) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot print both --json and --csv on standard output. "
                    "Use a file for --csv.");
  }
  std::vector<NamedFile> named = {
      {"--html", options.html, /*is_written=*/true},
      {"--csv", IsStandardOutput(options.csv) ? "" : options.csv, true},
      {"--metrics", options.metrics, true}};
  for (const NamedFile& file : named) {
    if (!file.path.empty()) CheckDocumentPath(file.path);
  }
  for (const LogFile& file : files) named.push_back({"LOG", file.path});
  RequireDistinct(named);
}

// Writes a page for each run in a directory beside the page of the fleet.
class RunPages {
 public:
  explicit RunPages(const std::string& fleet_page,
                    const std::vector<LogFile>& logs) {
    if (fleet_page.rfind("/dev/", 0) == 0 || fleet_page.empty()) return;
    const fs::path page(fleet_page);
    name_ = page.stem().string() + "-runs";
    directory_ = (page.parent_path() / name_).string();
    for (const LogFile& log : logs) logs_.insert(Resolved(log.path));
  }

  /// @return The link to the page; empty if no pages are written.
  std::string Add(const FleetRow& row, const Report& report) {
    if (directory_.empty()) return {};
    if (names_.empty()) MakeDocumentDirectory(directory_);
    std::string file = PageName(row);
    const int count = ++names_[file];
    if (count > 1) file += fmt::format("-{}", count);
    file += ".html";
    const std::string path = directory_ + '/' + file;
    if (logs_.contains(Resolved(path))) {
      throw ToolError(ExitCode::kUsage,
                      "Cannot write the page of a run to " + path +
                          ": it is a log. Use another name for --html.");
    }
    WriteDocument(path, HtmlReport(report), {.is_synced = false});
    return LinkTo(file);
  }

 private:
  static std::string Resolved(const std::string& path) {
    std::error_code unused;
    return fs::weakly_canonical(path, unused).string();
  }

  // The name of the directory can contain any character.
  [[nodiscard]] std::string LinkTo(const std::string& file) const {
    std::string link = "./";
    for (const char c : name_) {
      const bool is_plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                            (c >= 'A' && c <= 'Z') || c == '.' || c == '-';
      link += is_plain ? std::string(1, c)
                       : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return link + '/' + file;
  }

  std::string name_;
  std::string directory_;
  std::set<std::string> logs_;
  std::map<std::string, int> names_;
};

// Reads the logs one after the other, so that only one is in memory.
class FleetReader {
 public:
  explicit FleetReader(RunPages& pages) : pages_(pages) {}

  void Add(const LogFile& file) {
    std::string text;
    try {
      text = TextOfLog(file);
    } catch (const ToolError& failure) {
      fleet_.unusable.push_back({file.path, failure.what()});
      return;
    }
    if (!AddRuns(text, file.path)) {
      if (file.is_expected) {
        fleet_.unusable.push_back({file.path, NoLogText(file.path)});
      } else {
        ++skipped_[file.directory];
      }
    }
  }

  bool AddRuns(const std::string& text, const std::string& path) {
    const std::size_t before = fleet_.rows.size();
    ReadRuns(text, [this, &path](const Report& report) {
      FleetRow& row = fleet_.rows.emplace_back(FleetRowFrom(report, path));
      row.page = pages_.Add(row, report);
    });
    return fleet_.rows.size() > before;
  }

  const Fleet& Sorted() {
    SortFleet(fleet_);
    return fleet_;
  }

  void PrintSkipped() const {
    for (const auto& [directory, count] : skipped_) {
      PrintMessage(
          fmt::format("Skipped {} in {} that {}.",
                      count == 1 ? "1 file" : fmt::format("{} files", count),
                      directory, count == 1 ? "is not a log" : "are not logs"));
    }
  }

 private:
  RunPages& pages_;
  Fleet fleet_;
  std::map<std::string, int> skipped_;
};

// The documents that exist for one log as well.
void WriteTables(const ReportOptions& options, const Fleet& fleet) {
  if (IsStandardOutput(options.csv)) {
    PrintText(FleetCsv(fleet));
  } else if (!options.csv.empty()) {
    WriteDocument(options.csv, FleetCsv(fleet));
  }
  if (!options.metrics.empty()) {
    WriteDocument(options.metrics, FleetMetrics(fleet),
                  {.is_for_services = true});
  }
}

// Not if a program reads standard output.
void PrintWritten(const ReportOptions& options) {
  if (options.json || IsStandardOutput(options.csv)) return;
  for (const auto& [name, path] :
       {std::pair("Report", options.html), std::pair("Table", options.csv),
        std::pair("Metrics", options.metrics)}) {
    if (!path.empty()) fmt::print("{}: {}\n", name, Printable(path));
  }
}

ExitCode ReportLog(const ReportOptions& options) {
  const std::string& log = options.logs.front();
  CheckOptions(options, {{.path = log}});
  const std::string text = ReadRegularOrStdin(log, "log");
  const Report report = ReadReport(text);
  if (report.events.empty()) {
    throw ToolError(ExitCode::kUsage, NoLogText(log));
  }
  if (!options.html.empty()) WriteDocument(options.html, HtmlReport(report));
  if (!options.csv.empty() || !options.metrics.empty()) {
    RunPages no_pages("", {});
    FleetReader reader(no_pages);
    reader.AddRuns(text, log);
    WriteTables(options, reader.Sorted());
  }
  if (options.json) {
    fmt::print("{}\n", EscapedJson(JsonReport(report)));
  } else if (!HasOutput(options)) {
    fmt::print("{}", TextReport(report, TerminalColumns(),
                                ShowsColors(STDOUT_FILENO)));
  }
  PrintWritten(options);
  return ExitCode::kDone;
}

ExitCode ReportFleet(const ReportOptions& options) {
  const std::vector<LogFile> files = LogFilesOf(options.logs);
  CheckOptions(options, files);
  RunPages pages(options.html, files);
  FleetReader reader(pages);
  for (const LogFile& file : files) reader.Add(file);
  const Fleet& fleet = reader.Sorted();
  for (const UnusableLog& unusable : fleet.unusable) {
    PrintMessage(unusable.reason);
  }
  reader.PrintSkipped();
  if (fleet.rows.empty()) {
    throw ToolError(
        ExitCode::kUsage,
        "Cannot report on " + options.logs.front() +
            ": no run was found. Name the logs, or the directory that "
            "contains them; subdirectories are not read.");
  }
  if (!options.html.empty()) WriteDocument(options.html, FleetHtml(fleet));
  WriteTables(options, fleet);
  if (options.json) {
    fmt::print("{}\n", EscapedJson(FleetJson(fleet)));
  } else if (!HasOutput(options)) {
    fmt::print("{}",
               FleetText(fleet, TerminalColumns(), ShowsColors(STDOUT_FILENO)));
  }
  PrintWritten(options);
  return fleet.unusable.empty() ? ExitCode::kDone : ExitCode::kUnknown;
}

}  // namespace

void AddReportCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "report", "Summarize a finished or unfinished run from its log, or many");
  const auto options = std::make_shared<ReportOptions>();
  command
      ->add_option(
          "LOG", options->logs,
          "The log of the run; several logs or a directory: an overview")
      ->required()
      ->type_name("");
  command
      ->add_option("--html", options->html,
                   "Write an HTML page with a timeline; for many logs, a table "
                   "of the runs, with a page for each in a directory beside it")
      ->type_name("FILE");
  command->add_flag("--json", options->json, "Print the report as JSON");
  command
      ->add_option("--csv", options->csv,
                   "Write a table of the runs; - prints it")
      ->type_name("FILE");
  command
      ->add_option("--metrics", options->metrics,
                   "Write the last run of each BMC for the textfile collector "
                   "of node_exporter")
      ->type_name("FILE");
  command->callback([options, &exit_code] {
    const bool is_one =
        options->logs.size() == 1 && !IsDirectory(options->logs.front());
    exit_code = is_one ? ReportLog(*options) : ReportFleet(*options);
  });
}

}  // namespace quorvane::tool
