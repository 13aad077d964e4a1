// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "logging/redact.h"
#include "tools/quorvane/base/error.h"
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
using Json = nlohmann::json;

struct Options {
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

// Passes the library's records on: to the log, into the run, to the screen.
class Follower : public CallListener {
 public:
  Follower(RunLog& log, Progress& progress) : log_(log), progress_(progress) {}

  void OnTick() override { progress_.OnTick(run()); }
  void OnRecord(const Record& record) override {
    log_.Keep(record);
    const Event event = EventFrom(record);
    builder_.Take(event);
    progress_.OnEvent(event, run());
  }
  void TakeEnd() {
    builder_.Take({.kind = EventKind::kRunEnds, .time = run().end});
  }
  void TakeInterruption() {
    builder_.Take({.kind = EventKind::kInterrupted,
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
             : "give a URI such as nfs://HOST/PATH; a file of this machine "
               "goes to --file";
}

// The URI of the image; empty with --file.
std::string ImageUriOf(const Options& options) {
  if (options.image_file.empty()) {
    if (RedactUri(options.image) == options.image) return options.image;
    throw ToolError(ExitCode::kUsage,
                    "The image URI contains a secret, which a process list "
                    "shows. Write the URI to a file of your own and give "
                    "--image-file FILE, or give --share-user and "
                    "--share-password-file.");
  }
  std::string uri = FirstLineOf(options.image_file, "image");
  if (!uri.empty() && uri.back() == '\r') uri.pop_back();
  if (const std::string fault = ImageFault(uri); !fault.empty()) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot use the first line of the image file " +
                        options.image_file + ": " + fault + ".");
  }
  return uri;
}

Json RequestFrom(const Options& options) {
  Json request = {{"call", "update"},
                  {"bmc", options.bmc.bmc},
                  {"user", options.bmc.user},
                  {"local_file", options.file},
                  {"image_uri", options.image},
                  {"share_user", options.share_user},
                  {"verify", options.verify_share_certificate},
                  {"targets", options.targets}};
  if (!options.share_password_file.empty()) {
    request["share_password"] = PasswordFromFile(options.share_password_file);
  }
  request["password"] = ReadPassword(options.bmc);
  return request;
}

void PrintRecord(const Json& record) {
  const auto text = [&record](const char* name) {
    const std::string value = record.at(name);
    return value.empty() ? std::string("none") : Excerpt(value, 400);
  };
  const int percent = record.at("percent_complete");
  const std::string told = fmt::format(
      "Library: accepted {}, HTTP {}, task {}, state {}{}, restart {}: {}",
      record.at("accepted").get<bool>() ? "yes" : "no",
      record.at("http_status").get<long>(), RedactUri(text("task_uri")),
      text("task_state"), percent < 0 ? "" : fmt::format(" {} %", percent),
      record.at("reboot_performed").get<bool>() ? "yes" : "no",
      text("message"));
  constexpr std::size_t kIndent = 9;
  fmt::print("{}\n", Wrapped(told, TerminalColumns(), kIndent));
}

// The verdict on an update whose end the library did not report.
Verdict JudgeAborted(const Follower& follower, std::string headline) {
  Verdict verdict = JudgeRun(follower.run(), std::nullopt);
  verdict.outcome = Verdict::Outcome::kUnknown;
  verdict.headline = std::move(headline);
  return verdict;
}

// Where the library saves its record, for this process to put in its place: the
// library would follow a link and leave half a file after an error.
class ResultFile {
 public:
  explicit ResultFile(std::string path) : path_(std::move(path)) {
    if (!path_.empty()) folder_.emplace();
  }
  [[nodiscard]] std::string draft() const {
    return folder_ ? folder_->path() + "/result.json" : std::string();
  }
  /// The update is over, so an error is printed and changes nothing else.
  void PutInPlace(const Json& record) const {
    if (!folder_) return;
    try {
      const auto text = FileText(draft());
      if (!text || record.contains("unsaved")) {
        throw ToolError(ExitCode::kFailed,
                        "Cannot write " + path_ +
                            ": the record could not be saved in " +
                            folder_->path() + ". Free some space there.");
      }
      WriteDocument(path_, *text);
    } catch (const ToolError& error) {
      fmt::print(stderr, "quorvane: {}\n", Printable(error.what()));
    }
  }

 private:
  std::string path_;
  std::optional<PrivateFolder> folder_;
};

// The verdict on a call that ended in this way.
Verdict JudgeCall(const CallResult& result, Follower& follower) {
  switch (result.end) {
    case CallResult::End::kInterrupted:
      follower.TakeInterruption();
      return JudgeRun(follower.run(), std::nullopt);
    case CallResult::End::kDied:
      return JudgeAborted(
          follower,
          fmt::format("The library's process ended early ({}).", result.how));
    case CallResult::End::kAnswered:
      follower.TakeEnd();
      break;
  }
  if (const auto error = result.answer.find("error");
      error != result.answer.end()) {
    if (!follower.run().phases.empty()) {
      return JudgeAborted(follower, error->get<std::string>());
    }
    throw ToolError(ExitCode::kUsage,
                    "The update did not start: " + error->get<std::string>());
  }
  const Json& record = result.answer.at("ok");
  return JudgeRun(follower.run(),
                  LibraryRecord{.accepted = record.at("accepted").get<bool>(),
                                .restart_accepted =
                                    record.at("reboot_performed").get<bool>()});
}

ExitCode RunUpdate(Options options) {
  options.image = ImageUriOf(options);
  if (options.file.empty() == options.image.empty()) {
    throw ToolError(ExitCode::kUsage,
                    "Give --file FILE, --image URI or --image-file FILE: what "
                    "to install.");
  }
  std::error_code error;
  if (!options.file.empty() && fs::file_size(options.file, error) == 0) {
    throw ToolError(ExitCode::kUsage,
                    options.file + " is empty; fetch the package again.");
  }
  const Config rules = CheckRules(options.bmc);
  if (!options.result.empty()) CheckDocumentPath(options.result);
  Json request = RequestFrom(options);
  const ResultFile result_file(options.result);
  request["result"] = result_file.draft();
  RunLog log(options.bmc.log, options.bmc.log_level);
  log.Note(fmt::format(
      "Run: update of {} with {}", options.bmc.bmc,
      options.file.empty() ? RedactUri(options.image) : options.file));
  const auto progress =
      MakeProgress(ChooseStyle(options.quiet), rules.max_retries + 1);
  Follower follower(log, *progress);
  const CallResult result = CallLibrary(request, options.bmc.rules, follower);
  progress->Finish();
  const Verdict verdict = JudgeCall(result, follower);
  log.Note(fmt::format("Outcome: {}. {}", NameOf(verdict.outcome),
                       verdict.headline));
  fmt::print("{}", TextOf(verdict, TerminalColumns()));
  if (result.answer.contains("ok")) {
    const Json& record = result.answer.at("ok");
    PrintRecord(record);
    result_file.PutInPlace(record);
  }
  fmt::print("Log:     {}\n", Printable(log.path()));
  return ExitCodeOf(verdict.outcome);
}

void AddImageOptions(CLI::App& command, Options& options) {
  auto* file = command.add_option("--file", options.file,
                                  "The update package to upload");
  file->check(CLI::Validator(
                  [](std::string& path) {
                    // Of the two, this error does not repeat a secret.
                    return CLI::ExistingFile(path).empty()
                               ? std::string()
                               : "there is no file " + RedactUri(path);
                  },
                  ""))
      ->type_name("FILE");
  auto* image = command.add_option("--image", options.image,
                                   "URI of the package, for the BMC to fetch");
  image->excludes(file)->type_name("URI")->check(
      CLI::Validator(ImageFault, ""));
  command
      .add_option("--image-file", options.image_file,
                  "File with that URI, for one that contains a secret")
      ->excludes(file)
      ->excludes(image)
      ->type_name("FILE");
  command
      .add_option("--share-user", options.share_user, "Account on the share")
      ->excludes(file)
      ->check(CLI::Validator(UserFault, ""))
      ->type_name("NAME");
  command
      .add_option("--share-password-file", options.share_password_file,
                  "File with the password of the share")
      ->excludes(file)
      ->type_name("FILE");
  RefusePasswordArgument(command, "--share-password");
  command
      .add_flag("--verify-share-certificate", options.verify_share_certificate,
                "Let the BMC check the share's certificate")
      ->excludes(file);
}

}  // namespace

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("update", "Update the firmware of one server");
  const auto options = std::make_shared<Options>();
  AddBmcOptions(*command, options->bmc);
  AddImageOptions(*command, *options);
  command
      ->add_option("--target", options->targets,
                   "URI of what to update; may be given again")
      ->type_name("URI");
  command
      ->add_option("--result", options->result,
                   "Write the library's record here, as JSON")
      ->type_name("FILE");
  command->add_flag("--quiet", options->quiet,
                    "Show warnings and the outcome only");
  command->callback([options, &exit_code] { exit_code = RunUpdate(*options); });
}

}  // namespace quorvane::tool
