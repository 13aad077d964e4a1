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

/// Frees the header list that CURLOPT_PRIVATE of the handle points to. libcurl
/// does not copy the list, so it must live as long as the handle.
void FreeRequestHeaders(CURL* handle);

/// The value after the colon of a header line, without leading spaces and tabs,
/// and without trailing CR, LF and spaces. Keeps trailing tabs.
std::string TrimHeaderValue(const std::string& line,
                            std::string::size_type colon_position);

/// The header fields that a `Response` contains.
struct HeaderCapture {
  std::string content_type;
  std::string location;
};

/// Stores the value of one header line, if it is one of the fields. `line` may
/// end with CR LF.
void CaptureHeaderLine(const std::string& line, HeaderCapture& capture);

/// The arguments that all operations have in common.
struct Call {
  const std::string& url;
  Headers headers;
  long timeout_ms;
  const std::string& username;
  const std::string& password;
  const std::string& auth_type;
};

/// The names of an operation in the log and in its exception.
struct ExchangeNames {
  const char* request;  ///< "POST"
  const char* failure;  ///< "POST failed: "
};

/// When "basic" credentials are sent.
enum class Credentials { kAlways, kOnlyWithUser };

/// One request and its response, with its own easy handle. The constructor does
/// the setup that all operations share. An operation then sets its own options
/// and calls `Perform` once. An option that libcurl rejects throws, so that no
/// request is sent without it.
class Exchange {
 public:
  Exchange(const ExchangeNames& names, const Call& call,
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
  /// @param details  The text after the URL in the first log line.
  /// @param image    The uploaded file, if any.
  /// @throws std::runtime_error `ExchangeNames::failure` and libcurl's reason.
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
  /// Null if `line` is acceptable. `header_bytes_` already includes it.
  [[nodiscard]] const char* ReasonToReject(const std::string& line) const;
  [[noreturn]] void Fail(CURLcode code) const;

  static std::size_t AppendBody(char* bytes, std::size_t size,
                                std::size_t count, void* exchange) noexcept;
  static std::size_t CaptureHeader(char* bytes, std::size_t size,
                                   std::size_t count, void* exchange) noexcept;

  std::unique_ptr<CURL, HandleCloser> handle_;
  ExchangeNames names_;
  std::string url_for_log_;
  std::string body_;
  HeaderCapture header_capture_;
  std::size_t header_bytes_ = 0;  // of all responses, trailers included
  // Exception of a callback. It must not cross libcurl, which is C.
  std::exception_ptr failure_;
};

}  // namespace quorvane

#endif  // QUORVANE_HTTP_EXCHANGE_H_
