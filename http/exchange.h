// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_HTTP_EXCHANGE_H_
#define QUORVANE_HTTP_EXCHANGE_H_

#include <curl/curl.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string>

#include "http/image_file.h"
#include "quorvane/http.h"

namespace quorvane {

/// Fetches the header list back from a handle and frees it.
void FreeRequestHeaders(CURL* handle);

/// The value behind the colon of a header line, without leading blanks and tabs
/// and without trailing CR, LF and blanks. Trailing tabs stay.
std::string TrimHeaderValue(const std::string& line,
                            std::string::size_type colon_position);

/// The answer's header fields that a caller may want.
struct HeaderCapture {
  std::string content_type;
  std::string location;
};

/// Takes over what one header line says; `line` may end in CR LF.
void CaptureHeaderLine(const std::string& line, HeaderCapture& capture);

/// What every operation is given, whatever it sends.
struct Call {
  const std::string& url;
  Headers headers;
  long timeout_ms;
  const std::string& username;
  const std::string& password;
  const std::string& auth_type;
};

/// How an operation is named in the log and in its exception.
struct ExchangeWords {
  const char* sent;    ///< "POST"
  const char* failed;  ///< "POST failed: "
};

/// When "basic" credentials are sent.
enum class Credentials { kAlways, kOnlyWithUser };

/// One request and its answer, on one easy handle of its own. The constructor
/// does all that the operations share; an operation then sets what differs and
/// calls `Perform` once. An option that libcurl does not take throws, so that
/// no request goes out without what it should have carried.
class Exchange {
 public:
  Exchange(const ExchangeWords& words, const Call& call,
           Credentials credentials);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  [[nodiscard]] CURL* handle() const { return handle_.get(); }

  template <typename Value>
  void Set(CURLoption option, Value value) {
    CheckSetUp(curl_easy_setopt(handle_.get(), option, value));
  }

  /// @throws std::bad_alloc or, as `Perform`, std::runtime_error unless `code`
  ///   is CURLE_OK.
  void CheckSetUp(CURLcode code) const;

  /// Sends the request, logging before and after.
  /// @param details  What the first line says behind the URL.
  /// @param image    The file that is sent, if one is.
  /// @throws std::runtime_error The words' `failed` and libcurl's reason.
  Response Perform(const std::string& details = std::string(),
                   const ImageFile* image = nullptr);

 private:
  struct HandleCloser {
    void operator()(CURL* handle) const noexcept {
      FreeRequestHeaders(handle);
      curl_easy_cleanup(handle);
    }
  };

  void ApplyCommonOptions(const std::string& url, long timeout_ms,
                          const Headers& headers);
  void SetHeaders(const Headers& headers);
  void Authenticate(const Call& call, Credentials credentials);
  void ReserveBody();
  /// Null when `line`, which `header_bytes_` already counts, is acceptable.
  [[nodiscard]] const char* ReasonToReject(const std::string& line) const;
  [[noreturn]] void Fail(CURLcode code) const;

  static std::size_t AppendBody(char* bytes, std::size_t size,
                                std::size_t count, void* exchange) noexcept;
  static std::size_t CaptureHeader(char* bytes, std::size_t size,
                                   std::size_t count, void* exchange) noexcept;

  std::unique_ptr<CURL, HandleCloser> handle_;
  ExchangeWords words_;
  std::string url_for_log_;
  std::string body_;
  HeaderCapture header_capture_;
  std::size_t header_bytes_ = 0;  // of all responses, trailers included
  // What a callback threw: it must not cross libcurl, which is C.
  std::exception_ptr failure_;
};

}  // namespace quorvane

#endif  // QUORVANE_HTTP_EXCHANGE_H_
