// SPDX-License-Identifier: Apache-2.0
#include "http/exchange.h"

#include <strings.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "logging/redact.h"
#include "quorvane/logging.h"

namespace quorvane {
namespace {

constexpr const char* kHttp = "http";
constexpr long kMaxRedirects = 30;
constexpr std::size_t kMaxHeaderBytes = 1U << 20U;

struct HeaderListDeleter {
  void operator()(curl_slist* list) const noexcept {
    curl_slist_free_all(list);
  }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

// A line break would start another header (RFC 9112, section 11.1).
void RejectLineBreaks(const Headers& headers) {
  constexpr std::string_view kForbidden("\r\n\0", 3);
  for (const auto& [name, value] : headers) {
    if (name.find_first_of(kForbidden) == std::string::npos &&
        value.find_first_of(kForbidden) == std::string::npos) {
      continue;
    }
    std::string shown = name;
    std::replace_if(
        shown.begin(), shown.end(),
        [kForbidden](char c) {
          return kForbidden.find(c) != std::string_view::npos;
        },
        '?');
    throw std::runtime_error("Request header holds a line break or NUL: " +
                             shown);
  }
}

HeaderList MakeHeaderList(const Headers& headers) {
  HeaderList list;
  for (const auto& [name, value] : headers) {
    std::string line = name;
    line.append(": ").append(value);
    curl_slist* longer = curl_slist_append(list.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
  }
  return list;
}

// Child processes inherit the sockets that libcurl 7.88 opens itself.
curl_socket_t OpenSocket(void* /*unused*/, curlsocktype /*purpose*/,
                         curl_sockaddr* address) noexcept {
  return socket(address->family, address->socktype | SOCK_CLOEXEC,
                address->protocol);
}

// The page faults of a large new string take more CPU time than the transfer.
void AdviseHugePages(std::string& text) {
  constexpr std::size_t kHugePage = 2U << 20U;
  if (text.capacity() < kHugePage) return;
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* start = text.data();
  std::size_t size = text.capacity();
  if (std::align(page, page, start, size) == nullptr) return;
  // Only a hint: the string also works without huge pages.
  static_cast<void>(madvise(start, size / page * page, MADV_HUGEPAGE));
}

bool StartsWithIgnoringCase(const std::string& line, std::string_view name) {
  return line.size() >= name.size() &&
         strncasecmp(line.c_str(), name.data(), name.size()) == 0;
}

}  // namespace

void FreeRequestHeaders(CURL* handle) {
  char* list = nullptr;
  if (curl_easy_getinfo(handle, CURLINFO_PRIVATE, &list) == CURLE_OK) {
    curl_slist_free_all(reinterpret_cast<curl_slist*>(list));
  }
}

std::string TrimHeaderValue(const std::string& line,
                            std::string::size_type colon_position) {
  const std::size_t first = line.find_first_not_of("\t ", colon_position + 1);
  if (first == std::string::npos) return {};
  const std::size_t last = line.find_last_not_of("\r\n ");
  return last < first || last == std::string::npos
             ? std::string()
             : line.substr(first, last - first + 1);
}

void CaptureHeaderLine(const std::string& line, HeaderCapture& capture) {
  if (StartsWithIgnoringCase(line, "Content-Type:")) {
    capture.content_type = TrimHeaderValue(line, line.find(':'));
  } else if (StartsWithIgnoringCase(line, "Location:")) {
    capture.location = TrimHeaderValue(line, line.find(':'));
  }
}

Exchange::Exchange(const ExchangeNames& names, const Call& call,
                   Credentials credentials)
    : names_(names), url_for_log_(UriForLog(call.url)) {
  RejectLineBreaks(call.headers);
  handle_.reset(curl_easy_init());
  if (!handle_) throw std::runtime_error("curl_easy_init failed");
  ApplyCommonOptions(call.url, call.timeout_ms, call.headers);
  // Almost all BMCs have self-signed certificates, so verification is off. The
  // common options turn it on, so that this is the only place that decides it.
  // Not reading the list of certificate authorities saves most of the cost of a
  // small request.
  Set(CURLOPT_SSL_VERIFYPEER, 0L);
  Set(CURLOPT_SSL_VERIFYHOST, 0L);
  Set(CURLOPT_CAINFO, nullptr);
  Set(CURLOPT_CAPATH, nullptr);
  Authenticate(call, credentials);
}

void Exchange::CheckSetUp(CURLcode code) const {
  if (code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLE_OK) Fail(code);
}

void Exchange::Fail(CURLcode code) const {
  const std::string failed =
      std::string(names_.failure) + curl_easy_strerror(code);
  LogError(kHttp, failed + " url=" + url_for_log_);
  throw std::runtime_error(failed);
}

void Exchange::ApplyCommonOptions(const std::string& url, long timeout_ms,
                                  const Headers& headers) {
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_FOLLOWLOCATION, 1L);
  Set(CURLOPT_NOPROGRESS, 1L);
  Set(CURLOPT_TIMEOUT_MS, timeout_ms);
  Set(CURLOPT_WRITEFUNCTION, &Exchange::AppendBody);
  Set(CURLOPT_WRITEDATA, this);
  Set(CURLOPT_HEADERFUNCTION, &Exchange::CaptureHeader);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_SSL_VERIFYPEER, 1L);
  Set(CURLOPT_SSL_VERIFYHOST, 2L);
  SetHeaders(headers);

  // A redirect must not lead to a local file or repeat endlessly. A redirected
  // action must not become a GET, whose page would look like success.
  Set(CURLOPT_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_MAXREDIRS, kMaxRedirects);
  Set(CURLOPT_POSTREDIR,
      static_cast<long>(CURL_REDIR_POST_301 | CURL_REDIR_POST_302));
  // In libcurl 7.88, frames without data keep an HTTP/2 transfer alive after
  // its time limit.
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  // An empty proxy overrides the proxy of the environment.
  Set(CURLOPT_PROXY, "");
  Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket);
}

void Exchange::SetHeaders(const Headers& headers) {
  HeaderList list = MakeHeaderList(headers);
  Set(CURLOPT_PRIVATE, list.get());
  const curl_slist* owned_by_handle = list.release();
  Set(CURLOPT_HTTPHEADER, owned_by_handle);
}

void Exchange::Authenticate(const Call& call, Credentials credentials) {
  if (call.auth_type != "basic") return;
  if (credentials == Credentials::kOnlyWithUser && call.username.empty()) {
    return;
  }
  Set(CURLOPT_HTTPAUTH, CURLAUTH_BASIC);
  Set(CURLOPT_USERNAME, call.username.c_str());
  Set(CURLOPT_PASSWORD, call.password.c_str());
}

Response Exchange::Perform(const std::string& details, const ImageFile* image) {
  const std::string request = std::string(names_.request) + " " + url_for_log_;
  LogDebug(kHttp, request + details);
  CURLcode code = CURLE_READ_ERROR;
  if (image == nullptr || image->IsReadable()) {
    code = curl_easy_perform(handle_.get());
  }
  if (failure_) std::rethrow_exception(failure_);
  if (code != CURLE_OK) {
    if (image != nullptr && !image->IsReadable()) code = CURLE_READ_ERROR;
    Fail(code);
  }
  Response response;
  CheckSetUp(curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE,
                               &response.status_code));
  // The body was shorter than announced: release the spare capacity.
  if (body_.capacity() / 2 > body_.size()) body_.shrink_to_fit();
  response.body = std::move(body_);
  response.content_type = std::move(header_capture_.content_type);
  response.location = std::move(header_capture_.location);
  LogDebug(kHttp, request + " -> HTTP " + std::to_string(response.status_code));
  return response;
}

// Reserves a body of known size, because growing it by copies would need twice
// the memory of a firmware image. The announced size is only a hint.
void Exchange::ReserveBody() {
  constexpr curl_off_t kMaxReserved = 8LL << 30;
  curl_off_t length = 0;
  if (curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T,
                        &length) != CURLE_OK ||
      length <= 0 || length > kMaxReserved) {
    return;
  }
  try {
    body_.reserve(static_cast<std::size_t>(length));
    AdviseHugePages(body_);
  } catch (const std::bad_alloc&) {
    // The body may be smaller than announced. Growing reports the real error.
  }
}

std::size_t Exchange::AppendBody(char* bytes, std::size_t size,
                                 std::size_t count, void* exchange) noexcept {
  auto& self = *static_cast<Exchange*>(exchange);
  try {
    if (self.body_.empty()) self.ReserveBody();
    self.body_.append(bytes, size * count);
    return size * count;
  } catch (...) {
    self.failure_ = std::current_exception();
    return CURL_WRITEFUNC_ERROR;
  }
}

const char* Exchange::ReasonToReject(const std::string& line) const {
  // libcurl 7.88 limits header fields, but not trailer fields.
  if (header_bytes_ > kMaxHeaderBytes) return "its header exceeds 1 MiB";
  // libcurl always decompresses other encodings, and does not check the time
  // limit meanwhile: a few bytes become gigabytes.
  constexpr std::string_view kTransferEncoding = "Transfer-Encoding:";
  if (!StartsWithIgnoringCase(line, kTransferEncoding)) return nullptr;
  const std::string value = TrimHeaderValue(line, kTransferEncoding.size() - 1);
  return strcasecmp(value.c_str(), "chunked") == 0
             ? nullptr
             : "its Transfer-Encoding is not \"chunked\"";
}

std::size_t Exchange::CaptureHeader(char* bytes, std::size_t size,
                                    std::size_t count,
                                    void* exchange) noexcept {
  auto& self = *static_cast<Exchange*>(exchange);
  try {
    const std::string line(bytes, size * count);
    self.header_bytes_ += line.size();
    if (const char* reason = self.ReasonToReject(line)) {
      LogError(kHttp, std::string(self.names_.request) +
                          " response rejected: " + reason +
                          " url=" + self.url_for_log_);
      return CURL_WRITEFUNC_ERROR;
    }
    CaptureHeaderLine(line, self.header_capture_);
    return size * count;
  } catch (...) {
    self.failure_ = std::current_exception();
    return CURL_WRITEFUNC_ERROR;
  }
}

}  // namespace quorvane
