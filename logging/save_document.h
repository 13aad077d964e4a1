// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_SAVE_DOCUMENT_H_
#define QUORVANE_LOGGING_SAVE_DOCUMENT_H_

#include <string>
#include <string_view>

namespace quorvane {

/// Replaces the content of `path` by `text`, with `OpenDocument`. Logs an error
/// under `component` if the file cannot be opened.
/// @return Whether all of the text was written.
bool SaveDocument(const std::string& component, const std::string& path,
                  std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_SAVE_DOCUMENT_H_
