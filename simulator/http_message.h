// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_HTTP_MESSAGE_H_
#define QUORVANE_SIMULATOR_HTTP_MESSAGE_H_

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvane::simulator {

/// Header fields in the order in which they stood or shall stand on the wire.
using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// One part of a multipart/form-data body (RFC 7578). `filename` and
/// `content_type` are empty where the part did not state them.
struct FormPart {
  std::string name;
  std::string filename;
  std::string content_type;
  std::string content;
};

/// A request as it arrived.
struct RecordedRequest {
  std::string method;
  std::string path;    ///< The target up to its "?", percent signs untouched.
  std::string query;   ///< The rest after the "?", or empty.
  HeaderList headers;  ///< Every field, repeated ones included.
  /// Protocols that the TLS handshake offered (RFC 7301): "h2,http/1.1".
  std::string alpn = {};
  std::string body;  ///< The very bytes, chunks joined (RFC 9112, 7.1).
  std::size_t body_size = 0;    ///< Bytes received, though `body` was cut.
  std::vector<FormPart> parts;  ///< Filled for multipart/form-data.
};

/// The first value of the field `name`, whatever its case (RFC 9110, 5.1);
/// empty when the request has none.
std::string Header(const RecordedRequest& request, std::string_view name);
std::string Header(const HeaderList& headers, std::string_view name);

/// What goes wrong with an answer on the wire.
enum class Fault {
  kNone,
  kDrop,      ///< The connection ends (FIN) before the first byte.
  kReset,     ///< The connection is reset (RST) before the first byte.
  kCutShort,  ///< The length of the whole body is promised, half is sent.
  kGarbage,   ///< The body is replaced by bytes that are no JSON.
  kNotHttp,   ///< A line of another protocol instead of an answer.
  kSlowDrip,  ///< The body comes byte by byte, `drip` apart.
};

/// An answer. Content-Length, "Connection: close" and, for a body, the content
/// type application/json are added unless `headers` names them.
struct BmcResponse {
  int status = 200;
  std::string body = {};
  HeaderList headers = {};
  Fault fault = Fault::kNone;
  std::chrono::milliseconds delay{0};  ///< Before the first byte.
  std::chrono::milliseconds drip{20};  ///< Between two bytes of a slow drip.
};

/// Parses a multipart/form-data body whose Content-Type is `content_type`.
/// Empty when the type is another one, has no boundary, or the body is
/// malformed: a missing close delimiter counts as malformed, as a BMC could not
/// tell such a form from one that was cut off.
std::vector<FormPart> ParseMultipart(std::string_view content_type,
                                     std::string_view body);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_HTTP_MESSAGE_H_
