// SPDX-License-Identifier: Apache-2.0
// Address masking, and the redaction of URIs.
#include <cctype>
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
  Demand(text.find_first_of("@?#") != std::string::npos || redacted == text,
         "a URI without a user and a query stays");

  std::string secret;
  for (const char c : text) {
    secret += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '-';
  }
  secret += "-s3cret";
  for (const std::string& uri :
       {"https://user:" + secret + "@host/a", "/a?token=" + secret + "&b=c"}) {
    Demand(quorvane::RedactUri(uri).find(secret) == std::string::npos,
           "no secret is shown");
  }
  return 0;
}
