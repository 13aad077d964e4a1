// SPDX-License-Identifier: Apache-2.0
// Address masking, and the redaction of URIs.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/property.h"
#include "logging/redact.h"
#include "quorvane/logging.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  const std::string masked = quorvane::MaskIP(text);
  Demand(masked.size() == text.size(), "the length stays");
  for (std::size_t i = 0; i < size; ++i) {
    Demand(masked[i] == text[i] || masked[i] == 'X' || masked[i] == '_',
           "a character stays or is hidden");
  }
  const std::string redacted = quorvane::RedactUri(text);
  Demand(redacted == text || redacted.find("<REDACTED>") != std::string::npos,
         "a URI stays or is redacted");
  Demand(text.find('@') != std::string::npos || redacted == text,
         "a URI without a user stays");
  return 0;
}
