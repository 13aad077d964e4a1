// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/image_options.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <system_error>

#include "logging/redact.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/sha256.h"
#include "tools/quorvane/commands/bmc_options.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

std::string ImageFault(const std::string& uri) {
  return uri.find("://") != std::string::npos
             ? std::string()
             : "give a URI such as nfs://HOST/PATH; for a local file, use "
               "--file";
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

}  // namespace

void AddImageOptions(CLI::App& command, ImageOptions& options) {
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
  command
      .add_option("--target", options.targets,
                  "URI of a target to update; may be given more than once")
      ->type_name("URI");
}

std::string ImageUriOf(const ImageOptions& options) {
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

void CheckImage(const ImageOptions& options) {
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

std::string ImageText(const ImageOptions& options) {
  if (options.file.empty()) return RedactUri(options.image);
  std::error_code unknown;
  return fmt::format("{} ({} bytes, SHA-256 {})", options.file,
                     fs::file_size(options.file, unknown),
                     Sha256Of(options.file));
}

}  // namespace quorvane::tool
