// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_HTTP_MESSAGE_H_
#define QUORVANE_SIMULATOR_HTTP_MESSAGE_H_

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvane::simulator {

/// Header fields, in the order in which they are received or sent.
using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// A part of a multipart/form-data body (RFC 7578). `filename` and
/// `content_type` are empty if the part does not specify them.
struct FormPart {
  std::string name;
  std::string filename;
  std::string content_type;
  std::string content;
};

/// A received request.
struct RecordedRequest {
  std::string method;
  std::string path;    ///< The target up to the "?", not decoded.
  std::string query;   ///< The target after the "?", or empty.
  HeaderList headers;  ///< Every field, including repeated ones.
  /// Protocols that the client offered (ALPN, RFC 7301): "h2,http/1.1".
  std::string alpn = {};
  std::string body;  ///< As received, with chunks joined (RFC 9112, 7.1).
  std::size_t body_size = 0;  ///< Bytes received, even if `body` is shortened.
  std::vector<FormPart> parts;  ///< Filled for multipart/form-data.
};

/// The first value of the field `name`, in any case (RFC 9110, 5.1); empty if
/// there is none.
std::string Header(const RecordedRequest& request, std::string_view name);
std::string Header(const HeaderList& headers, std::string_view name);

/// A fault in the transmission of a response.
enum class Fault {
  kNone,
  kDrop,      ///< The connection is closed (FIN) before the first byte.
  kReset,     ///< The connection is reset (RST) before the first byte.
  kCutShort,  ///< Only half of the announced body is sent.
  kGarbage,   ///< The body is replaced by invalid JSON.
  kNotHttp,   ///< A line of another protocol is sent instead.
  kSlowDrip,  ///< The body is sent byte by byte, `drip` apart.
};

/// A response. Content-Length, "Connection: close" and, for a body, the content
/// type application/json are added unless `headers` contains them.
struct BmcResponse {
  int status = 200;
  std::string body = {};
  HeaderList headers = {};
  Fault fault = Fault::kNone;
  std::chrono::milliseconds delay{0};  ///< Before the first byte.
  std::chrono::milliseconds drip{20};  ///< Between two bytes of kSlowDrip.
};

/// Parses a multipart/form-data body whose Content-Type is `content_type`.
/// Empty if the type is another one or has no boundary, or if the body is
/// malformed. A body without the close delimiter is malformed, because it may
/// have been cut off.
std::vector<FormPart> ParseMultipart(std::string_view content_type,
                                     std::string_view body);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_HTTP_MESSAGE_H_
