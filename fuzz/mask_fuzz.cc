// SPDX-License-Identifier: Apache-2.0
// Address masking, and the redaction of URIs.
#include <algorithm>
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
  Demand(redacted == text ||
             redacted.find(quorvane::kRedacted) != std::string::npos,
         "a URI stays or is redacted");
  Demand(
      text.find_first_of("@?#&;%\\") != std::string::npos || redacted == text,
      "a URI without a user and a query stays");

  std::string plain = text;
  std::replace_if(
      plain.begin(), plain.end(), [](char c) { return c == '@' || c == '&'; },
      '-');
  for (const std::string& uri :
       {"https://" + plain + ":s3cret@host", "https://u:" + text + "s3cret@h",
        "/a?token=" + plain + "s3cret&b=c"}) {
    const std::string shown = quorvane::RedactUri(uri);
    Demand(shown.find("s3cret@") == std::string::npos &&
               shown.find("s3cret&") == std::string::npos,
           "no secret is shown");
  }
  return 0;
}
