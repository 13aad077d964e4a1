// SPDX-License-Identifier: Apache-2.0
#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>

#include "http/exchange.h"
#include "http/image_file.h"
#include "logging/redact.h"
#include "quorvane/http.h"

namespace quorvane {
namespace {

constexpr ExchangeNames kGet{.request = "GET", .failure = "GET failed: "};
constexpr ExchangeNames kPost{.request = "POST", .failure = "POST failed: "};
constexpr ExchangeNames kPatch{.request = "PATCH", .failure = "PATCH failed: "};
constexpr ExchangeNames kMultipart{.request = "MULTIPART POST",
                                   .failure = "Multipart POST failed: "};
constexpr ExchangeNames kBinary{.request = "BINARY FILE UPLOAD",
                                .failure = "Binary file upload failed: "};

constexpr const char* kJson = "application/json";
constexpr const char* kOctetStream = "application/octet-stream";

Headers WithContentType(Headers headers, const std::string& content_type) {
  const bool has_content_type =
      std::any_of(headers.begin(), headers.end(), [](const auto& header) {
        return strcasecmp(header.first.c_str(), "Content-Type") == 0;
      });
  if (!has_content_type) headers.emplace_back("Content-Type", content_type);
  return headers;
}

// libcurl would expect "100 Continue" before it sends a file, and wait a second
// for it (RFC 9110, section 10.1.1). An empty value prevents that.
Headers WithoutExpect(Headers headers) {
  headers.emplace_back("Expect", "");
  return headers;
}

void SetBody(Exchange& exchange, const std::string& body) {
  exchange.Set(CURLOPT_POSTFIELDS, body.c_str());
  exchange.Set(CURLOPT_POSTFIELDSIZE_LARGE,
               static_cast<curl_off_t>(body.size()));
}

// The multipart form of an upload. Must be destroyed before its exchange.
class Form {
 public:
  explicit Form(const Exchange& exchange)
      : exchange_(exchange), mime_(curl_mime_init(exchange.handle())) {
    if (!mime_) throw std::bad_alloc();
  }

  void AddJson(const char* name, const std::string& json) {
    curl_mimepart* part = AddPart(name, kJson);
    exchange_.CheckSetUp(
        curl_mime_data(part, json.c_str(), CURL_ZERO_TERMINATED));
  }

  void AddFile(const std::string& name, const std::string& path,
               ImageFile& image) {
    curl_mimepart* part = AddPart(name.c_str(), kOctetStream);
    const std::string base_name = path.substr(path.rfind('/') + 1);
    exchange_.CheckSetUp(curl_mime_filename(part, base_name.c_str()));
    exchange_.CheckSetUp(curl_mime_data_cb(part, image.size(), ImageFile::Read,
                                           ImageFile::Seek, nullptr, &image));
  }

  [[nodiscard]] curl_mime* get() const { return mime_.get(); }

 private:
  struct Deleter {
    void operator()(curl_mime* mime) const noexcept { curl_mime_free(mime); }
  };

  curl_mimepart* AddPart(const char* name, const char* type) {
    curl_mimepart* part = curl_mime_addpart(mime_.get());
    if (part == nullptr) throw std::bad_alloc();
    exchange_.CheckSetUp(curl_mime_name(part, name));
    exchange_.CheckSetUp(curl_mime_type(part, type));
    return part;
  }

  const Exchange& exchange_;
  std::unique_ptr<curl_mime, Deleter> mime_;
};

}  // namespace

Response::~Response() = default;

HttpClient::HttpClient() {
  static_cast<void>(curl_global_init(CURL_GLOBAL_ALL));
}

HttpClient::~HttpClient() { curl_global_cleanup(); }

Response HttpClient::get(const std::string& url, const Headers& headers,
                         long timeout_ms, const std::string& username,
                         const std::string& password,
                         const std::string& auth_type) const {
  Exchange exchange(kGet,
                    {url, headers, timeout_ms, username, password, auth_type},
                    Credentials::kAlways);
  exchange.Set(CURLOPT_HTTPGET, 1L);
  return exchange.Perform();
}

Response HttpClient::post(const std::string& url, const std::string& body,
                          const std::string& content_type,
                          const Headers& headers, long timeout_ms,
                          const std::string& username,
                          const std::string& password,
                          const std::string& auth_type) const {
  Exchange exchange(kPost,
                    {url, WithContentType(headers, content_type), timeout_ms,
                     username, password, auth_type},
                    Credentials::kOnlyWithUser);
  exchange.Set(CURLOPT_POST, 1L);
  SetBody(exchange, body);
  return exchange.Perform();
}

Response HttpClient::post_json(const std::string& url, const std::string& body,
                               const Headers& headers, long timeout_ms,
                               const std::string& username,
                               const std::string& password,
                               const std::string& auth_type) const {
  return post(url, body, kJson, headers, timeout_ms, username, password,
              auth_type);
}

Response HttpClient::patch_json(const std::string& url, const std::string& body,
                                const Headers& headers, long timeout_ms,
                                const std::string& username,
                                const std::string& password,
                                const std::string& auth_type) const {
  Exchange exchange(kPatch,
                    {url, WithContentType(headers, kJson), timeout_ms, username,
                     password, auth_type},
                    Credentials::kOnlyWithUser);
  exchange.Set(CURLOPT_CUSTOMREQUEST, "PATCH");
  // Every redirect repeats the PATCH, so it must also repeat the body.
  exchange.Set(CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
  SetBody(exchange, body);
  return exchange.Perform();
}

Response HttpClient::post_multipart(
    const std::string& url, const std::string& file_path,
    const std::string& file_part_name, const Headers& headers, long timeout_ms,
    const std::string& username, const std::string& password,
    const std::string& auth_type, const std::string& update_parameters) const {
  ImageFile image(file_path);
  Exchange exchange(
      kMultipart,
      {url, WithoutExpect(headers), timeout_ms, username, password, auth_type},
      Credentials::kOnlyWithUser);
  Form form(exchange);
  if (!update_parameters.empty()) {
    form.AddJson("UpdateParameters", update_parameters);
  }
  form.AddFile(file_part_name, file_path, image);
  exchange.Set(CURLOPT_MIMEPOST, form.get());
  return exchange.Perform(" file=" + RedactUri(file_path), &image);
}

Response HttpClient::post_binary_file(const std::string& url,
                                      const std::string& file_path,
                                      const Headers& headers, long timeout_ms,
                                      const std::string& username,
                                      const std::string& password,
                                      const std::string& auth_type) const {
  ImageFile image(file_path);
  if (!image.IsReadable()) {
    throw std::runtime_error("Cannot open file for binary upload: " +
                             file_path);
  }
  Exchange exchange(kBinary,
                    {url, WithoutExpect(WithContentType(headers, kOctetStream)),
                     timeout_ms, username, password, auth_type},
                    Credentials::kOnlyWithUser);
  exchange.Set(CURLOPT_UPLOAD, 1L);
  exchange.Set(CURLOPT_READFUNCTION, &ImageFile::Read);
  exchange.Set(CURLOPT_READDATA, &image);
  exchange.Set(CURLOPT_SEEKFUNCTION, &ImageFile::Seek);
  exchange.Set(CURLOPT_SEEKDATA, &image);
  exchange.Set(CURLOPT_INFILESIZE_LARGE, image.size());
  return exchange.Perform(
      " file=" + RedactUri(file_path) + " size=" + std::to_string(image.size()),
      &image);
}

}  // namespace quorvane
