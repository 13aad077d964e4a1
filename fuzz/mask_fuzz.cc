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
  CheckProperty(masked.size() == text.size(), "the length is unchanged");
  for (std::size_t i = 0; i < size; ++i) {
    CheckProperty(masked[i] == text[i] || masked[i] == 'X' || masked[i] == '_',
                  "a character is unchanged or masked");
  }
  const std::string redacted = quorvane::RedactUri(text);
  CheckProperty(redacted == text ||
                    redacted.find(quorvane::kRedacted) != std::string::npos,
                "a URI is unchanged or redacted");
  CheckProperty(
      text.find_first_of("@?#&;%\\") != std::string::npos || redacted == text,
      "a URI without a user or a query is unchanged");

  std::string plain = text;
  std::replace_if(
      plain.begin(), plain.end(), [](char c) { return c == '@' || c == '&'; },
      '-');
  for (const std::string& uri :
       {"https://" + plain + ":s3cret@host", "https://u:" + text + "s3cret@h",
        "/a?token=" + plain + "s3cret&b=c"}) {
    const std::string shown = quorvane::RedactUri(uri);
    CheckProperty(shown.find("s3cret@") == std::string::npos &&
                      shown.find("s3cret&") == std::string::npos,
                  "a secret is redacted");
  }
  return 0;
}
