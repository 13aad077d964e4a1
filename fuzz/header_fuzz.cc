// SPDX-License-Identifier: Apache-2.0
// Header lines, as libcurl passes them.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/property.h"
#include "http/exchange.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes,
                                      std::size_t size) {
  const std::string line(reinterpret_cast<const char*>(bytes), size);
  quorvane::HeaderCapture capture;
  quorvane::CaptureHeaderLine(line, capture);
  CheckProperty(capture.content_type.empty() || capture.location.empty(),
                "a line contains one field");
  for (const std::string& value : {capture.content_type, capture.location}) {
    CheckProperty(value.size() < line.size() || line.empty(),
                  "a value is shorter than its line");
    CheckProperty(
        value.empty() || (value.front() != ' ' && value.front() != '\t'),
        "a value does not begin with whitespace");
    CheckProperty(value.empty() || std::string("\r\n ").find(value.back()) ==
                                       std::string::npos,
                  "a value does not end with whitespace");
  }
  return 0;
}
