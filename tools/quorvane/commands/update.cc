// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "logging/redact.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/password.h"
#include "tools/quorvane/run/run.h"
#include "tools/quorvane/run/run_log.h"
#include "tools/quorvane/run/verdict.h"
#include "tools/quorvane/view/progress.h"
#include "tools/quorvane/worker/library_process.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

struct UpdateOptions {
  BmcOptions bmc;
  std::string file;
  std::string image;
  std::string image_file;
  std::string share_user;
  std::string share_password_file;
  bool verify_share_certificate = false;
  std::vector<std::string> targets;
  std::string result;
  bool quiet = false;
};

// Sends each log record to the log file, the run and the progress display.
class RunMonitor : public CallListener {
 public:
  RunMonitor(RunLog& log, Progress& progress)
      : log_(log), progress_(progress) {}

  void OnTick() override { progress_.OnTick(run()); }
  void OnRecord(const Record& record) override {
    log_.Keep(record);
    const Event event = EventFrom(record);
    builder_.Add(event);
    progress_.OnEvent(event, run());
  }
  void AddEnd() {
    builder_.Add({.kind = EventKind::kRunEnds, .time = run().end});
  }
  void AddInterruption() {
    builder_.Add({.kind = EventKind::kInterrupted,
                  .time = run().end,
                  .text = "Interrupted"});
    log_.Note("Interrupted by a signal");
  }
  [[nodiscard]] const Run& run() const { return builder_.run(); }

 private:
  RunLog& log_;
  Progress& progress_;
  RunBuilder builder_;
};

std::string ImageFault(const std::string& uri) {
  return uri.find("://") != std::string::npos
             ? std::string()
             : "give a URI such as nfs://HOST/PATH; for a local file, use "
               "--file";
}

// The URI of the image; empty for --file.
std::string ImageUriOf(const UpdateOptions& options) {
  if (options.image_file.empty()) {
    if (RedactUri(options.image) == options.image) return options.image;
    throw ToolError(ExitCode::kUsage,
                    "Cannot use --image: the URI contains a secret, and every "
                    "process list shows it. Write the URI to a file and use "
                    "--image-file FILE, or use --share-user and "
                    "--share-password-file.");
  }
  std::string uri = FirstLineOf(options.image_file, "image");
  if (!uri.empty() && uri.back() == '\r') uri.pop_back();
  if (const std::string fault = ImageFault(uri); !fault.empty()) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot use the first line of " + options.image_file +
                        " (--image-file)" + ": " + fault + ".");
  }
  return uri;
}

UpdateRequest RequestFrom(const UpdateOptions& options) {
  const std::string share_password =
      options.share_password_file.empty()
          ? std::string()
          : PasswordFromFile(options.share_password_file);
  return {.bmc_ip = options.bmc.bmc,
          .username = options.bmc.user,
          .password = ReadPassword(options.bmc),
          .image_uri = options.image,
          .local_file = options.file,
          .share_username = options.share_user,
          .share_password = share_password,
          .targets = options.targets,
          .verify_remote_server_certificate = options.verify_share_certificate,
          .prefetched_inventory = {}};
}

void PrintResponse(const UpdateResponse& response) {
  const auto yes_or_no = [](bool value) { return value ? "yes" : "no"; };
  const auto or_none = [](const std::string& text) {
    return text.empty() ? std::string("none") : Excerpt(text, 400);
  };
  const std::string percent =
      response.percent_complete < 0
          ? std::string()
          : fmt::format(" {} %", response.percent_complete);
  const std::string line = fmt::format(
      "Library: accepted {}, HTTP {}, task {}, state {}{}, reboot {}: {}",
      yes_or_no(response.accepted), response.http_status,
      RedactUri(or_none(response.task_uri)), or_none(response.task_state),
      percent, yes_or_no(response.reboot_performed), or_none(response.message));
  constexpr std::size_t kIndent = 9;
  fmt::print("{}\n", Wrapped(line, TerminalColumns(), kIndent));
}

// The update is over, so an error is printed and changes nothing else.
void SaveResponse(const std::string& path, const UpdateResponse& response) {
  try {
    WriteDocument(path, EscapedJson(UpdateResponseToJson(response)) + "\n");
  } catch (const ToolError& error) {
    fmt::print(stderr, "quorvane: {}\n", Printable(error.what()));
  }
}

// The verdict on an update for which the library returned no result.
Verdict JudgeAborted(const RunMonitor& monitor, std::string headline) {
  Verdict verdict = JudgeRun(monitor.run(), std::nullopt);
  verdict.outcome = Verdict::Outcome::kUnknown;
  verdict.headline = std::move(headline);
  return verdict;
}

Verdict JudgeCall(const CallResult& result, RunMonitor& monitor) {
  switch (result.end) {
    case CallResult::End::kInterrupted:
      monitor.AddInterruption();
      return JudgeRun(monitor.run(), std::nullopt);
    case CallResult::End::kDied:
      return JudgeAborted(monitor, fmt::format("The worker process failed: {}.",
                                               result.reason));
    case CallResult::End::kResponded:
      break;
  }
  monitor.AddEnd();
  if (const auto* error = std::get_if<WorkerError>(&*result.response)) {
    if (!monitor.run().phases.empty()) {
      return JudgeAborted(monitor, error->message);
    }
    throw ToolError(ExitCode::kUsage,
                    "Cannot start the update: " + error->message);
  }
  const auto& response = std::get<UpdateResponse>(*result.response);
  return JudgeRun(monitor.run(),
                  LibraryRecord{.accepted = response.accepted,
                                .reboot_accepted = response.reboot_performed});
}

// The library opens the package itself, in another process.
void RequirePackage(const std::string& path) {
  static_cast<void>(OpenRegular(path, "package"));
  if (!IsOwnStream(path)) return;
  throw ToolError(ExitCode::kUsage,
                  "Cannot use " + path +
                      " as the package: it names an open file of this "
                      "process. Use the name of a file.");
}

void CheckImage(const UpdateOptions& options) {
  if (options.file.empty() == options.image.empty()) {
    throw ToolError(ExitCode::kUsage,
                    "Nothing to install. Use --file FILE, --image URI or "
                    "--image-file FILE.");
  }
  if (options.file.empty()) return;
  RequirePackage(options.file);
  std::error_code error;
  if (fs::file_size(options.file, error) == 0) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot install " + options.file +
                        ": the file is empty. Download it again.");
  }
}

ExitCode RunUpdate(UpdateOptions options) {
  RequireDistinctFiles(options.bmc,
                       {{"--file", options.file},
                        {"--image-file", options.image_file},
                        {"--share-password-file", options.share_password_file},
                        {"--result", options.result, /*is_written=*/true}});
  options.image = ImageUriOf(options);
  CheckImage(options);
  const Config rules = LoadRules(options.bmc);
  if (!options.result.empty()) CheckDocumentPath(options.result);
  UpdateRequest request = RequestFrom(options);
  RunLog log(options.bmc.log, options.bmc.log_level);
  log.Note(fmt::format(
      "Run: update of {} with {}", options.bmc.bmc,
      options.file.empty() ? RedactUri(options.image) : options.file));
  const auto progress =
      MakeProgress(ChooseStyle(options.quiet), rules.max_retries + 1);
  RunMonitor monitor(log, *progress);
  const CallResult result =
      CallLibrary(std::move(request), options.bmc.rules, monitor);
  progress->Finish();
  const Verdict verdict = JudgeCall(result, monitor);
  log.Note(fmt::format("Outcome: {}. {}", NameOf(verdict.outcome),
                       verdict.headline));
  fmt::print("{}", TextOf(verdict, TerminalColumns()));
  if (result.response) {
    if (const auto* response = std::get_if<UpdateResponse>(&*result.response)) {
      PrintResponse(*response);
      if (!options.result.empty()) SaveResponse(options.result, *response);
    }
  }
  fmt::print("Log:     {}\n", Printable(log.path()));
  return ExitCodeOf(verdict.outcome);
}

void AddImageOptions(CLI::App& command, UpdateOptions& options) {
  auto* file =
      command.add_option("--file", options.file, "Firmware image to upload");
  file->type_name("FILE");
  auto* image = command.add_option(
      "--image", options.image, "URI from which the BMC downloads the image");
  image->excludes(file)->type_name("URI")->check(
      CLI::Validator(ImageFault, ""));
  command
      .add_option("--image-file", options.image_file,
                  "File that contains the URI of the image, if it has a secret")
      ->excludes(file)
      ->excludes(image)
      ->type_name("FILE");
  command
      .add_option("--share-user", options.share_user,
                  "Account on the server of the image")
      ->excludes(file)
      ->check(CLI::Validator(UserFault, ""))
      ->type_name("NAME");
  command
      .add_option("--share-password-file", options.share_password_file,
                  "File that contains the password of --share-user")
      ->excludes(file)
      ->type_name("FILE");
  RejectPasswordArgument(command, "--share-password");
  command
      .add_flag("--verify-share-certificate", options.verify_share_certificate,
                "Let the BMC check the certificate of the image server")
      ->excludes(file);
}

}  // namespace

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("update", "Update the firmware of one server");
  const auto options = std::make_shared<UpdateOptions>();
  AddBmcOptions(*command, options->bmc);
  AddImageOptions(*command, *options);
  command
      ->add_option("--target", options->targets,
                   "URI of a target to update; may be given more than once")
      ->type_name("URI");
  command
      ->add_option("--result", options->result,
                   "Write the result to this file, as JSON")
      ->type_name("FILE");
  command->add_flag("--quiet", options->quiet,
                    "Show only warnings and the outcome");
  command->callback([options, &exit_code] { exit_code = RunUpdate(*options); });
}

}  // namespace quorvane::tool
