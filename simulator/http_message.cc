// SPDX-License-Identifier: Apache-2.0
#include "simulator/http_message.h"

#include <algorithm>
#include <optional>

#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

// The value of a parameter such as boundary=x or name="x" (RFC 9110, 5.6.6).
// In quotes, only `"` and `\` are escaped.
std::string Parameter(std::string_view field, std::string_view name) {
  std::size_t at = std::min(field.find(';'), field.size());
  while (at < field.size()) {
    ++at;  // skip the ';'
    const std::size_t equals = std::min(field.find('=', at), field.size());
    const std::string_view key = Trim(field.substr(at, equals - at));
    std::string value;
    at = std::min(equals + 1, field.size());
    const bool quoted = at < field.size() && field[at] == '"';
    if (quoted) ++at;
    while (at < field.size() && field[at] != (quoted ? '"' : ';')) {
      if (quoted && field[at] == '\\' && at + 1 < field.size()) ++at;
      value += field[at++];
    }
    at = std::min(field.find(';', at), field.size());
    if (EqualsIgnoringCase(key, name)) {
      return quoted ? value : std::string(Trim(value));
    }
  }
  return {};
}

FormPart ParsePart(std::string_view text, std::size_t head_end) {
  FormPart part;
  std::string_view head = text.substr(0, head_end);
  while (!head.empty()) {
    const std::size_t end = std::min(head.find(kLineEnd), head.size());
    const std::string_view line = head.substr(0, end);
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
      const std::string_view name = line.substr(0, colon);
      const std::string_view value = Trim(line.substr(colon + 1));
      if (EqualsIgnoringCase(name, "Content-Disposition")) {
        part.name = Parameter(value, "name");
        part.filename = Parameter(value, "filename");
      } else if (EqualsIgnoringCase(name, "Content-Type")) {
        part.content_type = value;
      }
    }
    head.remove_prefix(std::min(end + kLineEnd.size(), head.size()));
  }
  part.content = text.substr(head_end + 2 * kLineEnd.size());
  return part;
}

}  // namespace

std::string Header(const HeaderList& headers, std::string_view name) {
  const auto found = std::find_if(
      headers.begin(), headers.end(),
      [&](const auto& field) { return EqualsIgnoringCase(field.first, name); });
  return found == headers.end() ? std::string() : found->second;
}

std::string Header(const RecordedRequest& request, std::string_view name) {
  return Header(request.headers, name);
}

std::vector<FormPart> ParseMultipart(std::string_view content_type,
                                     std::string_view body) {
  const std::string_view media_type =
      Trim(content_type.substr(0, content_type.find(';')));
  const std::string boundary = Parameter(content_type, "boundary");
  if (!EqualsIgnoringCase(media_type, "multipart/form-data") ||
      boundary.empty()) {
    return {};
  }
  const std::string first = "--" + boundary;
  const std::string delimiter = "\r\n" + first;
  std::size_t at = 0;
  if (!body.starts_with(first)) {  // a preamble is allowed (RFC 2046, 5.1.1)
    at = body.find(delimiter);
    if (at == std::string_view::npos) return {};
    at += kLineEnd.size();
  }
  at += first.size();
  std::vector<FormPart> parts;
  while (!body.substr(at).starts_with("--")) {
    const std::size_t start = body.find(kLineEnd, at);
    const std::size_t end =
        start == std::string_view::npos ? start : body.find(delimiter, start);
    if (end == std::string_view::npos) return {};
    const std::size_t text_at = std::min(start + kLineEnd.size(), end);
    const std::string_view text = body.substr(text_at, end - text_at);
    const std::size_t head_end = text.find("\r\n\r\n");
    if (head_end == std::string_view::npos) return {};
    parts.push_back(ParsePart(text, head_end));
    at = end + delimiter.size();
  }
  return parts;
}

}  // namespace quorvane::simulator
