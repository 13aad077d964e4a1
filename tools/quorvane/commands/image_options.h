// SPDX-License-Identifier: Apache-2.0
// The options that name the firmware to install.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_IMAGE_OPTIONS_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_IMAGE_OPTIONS_H_

#include <string>
#include <vector>

#include "tools/quorvane/base/cli_fwd.h"

namespace quorvane::tool {

struct ImageOptions {
  std::string file = {};        ///< Image to upload.
  std::string image = {};       ///< URI from which the BMC downloads it.
  std::string image_file = {};  ///< File that contains the URI.
  std::string share_user = {};
  std::string share_password_file = {};
  bool verify_share_certificate = false;
  std::vector<std::string> targets = {};
};

/// Adds the options to `command`, with --target. `options` must outlive it.
void AddImageOptions(CLI::App& command, ImageOptions& options);

/// The URI of the image; empty for --file.
/// @throws ToolError if it contains a secret, or if its file cannot be used.
std::string ImageUriOf(const ImageOptions& options);

/// Checks that there is an image: a URI, or a file that is not empty.
/// @throws ToolError
void CheckImage(const ImageOptions& options);

/// The file with its size and hash, or the URI without secrets.
std::string ImageText(const ImageOptions& options);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_IMAGE_OPTIONS_H_
