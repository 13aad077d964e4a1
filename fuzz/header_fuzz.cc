// SPDX-License-Identifier: Apache-2.0
// Header lines as libcurl hands them over.
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
  Demand(capture.content_type.empty() || capture.location.empty(),
         "a line is one field");
  for (const std::string& value : {capture.content_type, capture.location}) {
    Demand(value.size() < line.size() || line.empty(), "a value is shorter");
    Demand(value.empty() || (value.front() != ' ' && value.front() != '\t'),
           "no blank leads a value");
    Demand(value.empty() ||
               std::string("\r\n ").find(value.back()) == std::string::npos,
           "no line end trails a value");
  }
  return 0;
}
