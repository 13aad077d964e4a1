// SPDX-License-Identifier: Apache-2.0
#include "logging/save_document.h"

#include "quorvane/logging.h"
#include "support/file.h"

namespace quorvane {

bool SaveDocument(const std::string& component, const std::string& path,
                  std::string_view text) {
  Descriptor file = OpenDocument(path);
  if (!file.IsOpen()) {
    LogError(component, "Cannot open output file: " + path);
    return false;
  }
  const bool is_written = WriteAll(file.get(), text);
  return file.Close() && is_written;
}

}  // namespace quorvane
