// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/request_guard.h"

// The macros that check the types of arguments would rename the function below.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>
#include <dlfcn.h>
#include <fmt/core.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <array>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "quorvane/http.h"
#include "quorvane/logging.h"
#include "simulator/simulated_bmc.h"
#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {
namespace {

using Perform = CURLcode (*)(CURL*);

Perform RealPerform() {
  static const auto real =
      reinterpret_cast<Perform>(dlsym(RTLD_NEXT, "curl_easy_perform"));
  return real;
}

struct GuardState {
  RequestPolicy policy = {};
  bool is_active = false;
  std::atomic<bool> has_changed = false;
  std::atomic<bool> login_refused = false;
  std::atomic<CURLcode> last_code = CURLE_OK;
};

GuardState& Guard() {
  static GuardState state;
  return state;
}

template <typename Value>
CURLcode Set(CURL* handle, CURLoption option, Value value) {
  return curl_easy_setopt(handle, option, value);
}

std::string Text(CURL* handle, CURLINFO info) {
  const char* text = nullptr;
  return curl_easy_getinfo(handle, info, &text) == CURLE_OK && text != nullptr
             ? text
             : std::string();
}

long Number(CURL* handle, CURLINFO info) {
  long number = 0;
  return curl_easy_getinfo(handle, info, &number) == CURLE_OK ? number : 0;
}

bool IsForBmc(CURL* handle) {
  const std::string base = "https://" + Guard().policy.bmc;
  const std::string url = Text(handle, CURLINFO_EFFECTIVE_URL);
  return url == base || url.rfind(base + "/", 0) == 0;
}

// Before the transfer, the effective URL is that of the request.
bool IsImageDownload(CURL* handle) {
  const std::string& image = Guard().policy.image_uri;
  return !image.empty() && Text(handle, CURLINFO_EFFECTIVE_URL) == image;
}

// Whatever cannot be set must end the request, because it would be unchecked.
CURLcode ApplyTrust(CURL* handle, const Trust& trust) {
  CURLcode code = CURLE_OK;  // the first failure
  const auto set = [&](CURLoption option, auto value) {
    if (code == CURLE_OK) code = Set(handle, option, value);
  };
  set(CURLOPT_PROTOCOLS_STR, "https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
  if (IsImageDownload(handle)) return code;
  if (!trust.pinned_key.empty()) {
    set(CURLOPT_PINNEDPUBLICKEY, trust.pinned_key.c_str());
  }
  if (!trust.ca_file.empty()) {
    set(CURLOPT_CAINFO, trust.ca_file.c_str());
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
  }
  return code;
}

// What was logged about the body of a request.
struct SendLog {
  bool is_complete = false;
  double reported_at = 0;  // see MonotonicSeconds
};

// libcurl counts what it has handed to the connection.
int OnProgress(void* send_log, curl_off_t /*to_receive*/,
               curl_off_t /*received*/, curl_off_t to_send, curl_off_t sent) {
  constexpr double kReportSeconds = 0.25;
  auto& log = *static_cast<SendLog*>(send_log);
  if (log.is_complete || to_send <= 0) return 0;
  const double now = MonotonicSeconds();
  if (now - log.reported_at >= kReportSeconds) {
    log.reported_at = now;
    LogDebug(kProgressComponent,
             fmt::format("Sent {} of {} bytes", sent, to_send));
  }
  if (sent >= to_send) {
    log.is_complete = true;
    LogInfo(kToolComponent, "The request was sent completely.");
  }
  return 0;
}

void Note(CURL* handle, CURLcode code) {
  GuardState& guard = Guard();
  const bool is_read = Text(handle, CURLINFO_EFFECTIVE_METHOD) == "GET";
  const bool was_sent = Number(handle, CURLINFO_REQUEST_SIZE) > 0;
  const long status = Number(handle, CURLINFO_RESPONSE_CODE);
  if (code != CURLE_OK) {
    if (!is_read && was_sent) guard.has_changed = true;
    if (!is_read && !was_sent) {
      LogInfo(kToolComponent, "The request was not sent.");
    }
    return;
  }
  if (!is_read && status >= 200 && status < 300) guard.has_changed = true;
  if (status == kHttpUnauthorized && IsForBmc(handle)) {
    guard.login_refused = true;
  }
}

CURLcode GuardedPerform(CURL* handle) {
  GuardState& guard = Guard();
  const RequestPolicy& policy = guard.policy;
  if (guard.login_refused && !guard.has_changed && policy.on_refused_login) {
    policy.on_refused_login();
  }
  if (policy.trust.forbids_download && IsImageDownload(handle)) {
    LogWarning(kToolComponent,
               "The download was not started: --no-download forbids it.");
    return CURLE_UNSUPPORTED_PROTOCOL;
  }
  if (policy.trust.IsChecked()) {
    const CURLcode code = ApplyTrust(handle, policy.trust);
    if (code != CURLE_OK) return code;
  }
  SendLog send_log;
  Set(handle, CURLOPT_XFERINFOFUNCTION, &OnProgress);
  Set(handle, CURLOPT_XFERINFODATA, &send_log);
  Set(handle, CURLOPT_NOPROGRESS, 0L);
  const CURLcode code = RealPerform()(handle);
  guard.last_code = code;
  Note(handle, code);
  return code;
}

// "sha256//" and the Base64 form of the hash of the public key in a
// certificate.
std::string KeyOf(const char* certificate_pem) {
  const std::unique_ptr<BIO, int (*)(BIO*)> text(
      BIO_new_mem_buf(certificate_pem, -1), BIO_free);
  const std::unique_ptr<X509, void (*)(X509*)> certificate(
      PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr), X509_free);
  unsigned char* key = nullptr;
  const int length =
      certificate
          ? i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate.get()), &key)
          : -1;
  if (length <= 0) throw std::runtime_error("its certificate is not readable");
  std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
  unsigned int size = 0;
  EVP_Digest(key, static_cast<std::size_t>(length), hash.data(), &size,
             EVP_sha256(), nullptr);
  OPENSSL_free(key);
  std::array<unsigned char, std::size_t{2} * EVP_MAX_MD_SIZE> base64{};
  EVP_EncodeBlock(base64.data(), hash.data(), static_cast<int>(size));
  return "sha256//" + std::string(reinterpret_cast<char*>(base64.data()));
}

std::size_t Discard(char* /*bytes*/, std::size_t size, std::size_t count,
                    void* /*unused*/) {
  return size * count;
}

}  // namespace

void GuardRequests(RequestPolicy policy) {
  Guard().policy = std::move(policy);
  Guard().is_active = true;
}

void RequireEffectiveGuard(const Trust& trust) {
  if (!trust.IsChecked()) return;
  const simulator::SimulatedBmc stranger;
  const HttpClient client;
  const RequestPolicy before = Guard().policy;
  constexpr long kTimeoutMs = 10'000;
  const auto reaches = [&] {
    try {
      static_cast<void>(client.get("https://" + stranger.Address() + "/redfish",
                                   {}, kTimeoutMs, {}, {}, "none"));
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  };
  // Unless the first request succeeds, the second one proves nothing.
  GuardRequests({});
  const bool is_reachable = reaches();
  GuardRequests({.trust = trust, .bmc = stranger.Address()});
  Guard().last_code = CURLE_OK;
  const bool is_rejected = is_reachable && !reaches();
  // Other failures, such as a timeout, prove nothing.
  const CURLcode reason = Guard().last_code;
  const bool is_guarded =
      is_rejected && (reason == CURLE_SSL_PINNEDPUBKEYNOTMATCH ||
                      reason == CURLE_PEER_FAILED_VERIFICATION);
  GuardRequests(before);
  if (!is_guarded) {
    throw std::runtime_error(
        "Cannot check the certificate of the BMC: the library does not use the "
        "check of this program. Start the tool without LD_PRELOAD");
  }
}

std::string ServerKey(const std::string& address) {
  const std::unique_ptr<CURL, void (*)(CURL*)> handle(curl_easy_init(),
                                                      curl_easy_cleanup);
  if (!handle) throw std::bad_alloc();
  constexpr long kTimeoutMs = 15'000;
  const std::string url = "https://" + address + "/redfish/v1/";
  Set(handle.get(), CURLOPT_URL, url.c_str());
  Set(handle.get(), CURLOPT_PROTOCOLS_STR, "https");
  Set(handle.get(), CURLOPT_PROXY, "");
  Set(handle.get(), CURLOPT_TIMEOUT_MS, kTimeoutMs);
  // The key is what the operator decides on, not who signed it.
  Set(handle.get(), CURLOPT_SSL_VERIFYPEER, 0L);
  Set(handle.get(), CURLOPT_SSL_VERIFYHOST, 0L);
  Set(handle.get(), CURLOPT_CERTINFO, 1L);
  Set(handle.get(), CURLOPT_WRITEFUNCTION, &Discard);
  const CURLcode code = RealPerform()(handle.get());
  const curl_certinfo* chain = nullptr;
  if (curl_easy_getinfo(handle.get(), CURLINFO_CERTINFO, &chain) == CURLE_OK &&
      chain != nullptr && chain->num_of_certs > 0) {
    constexpr std::string_view kPem = "Cert:";
    for (const curl_slist* field = chain->certinfo[0]; field != nullptr;
         field = field->next) {
      const std::string_view line = field->data;
      if (line.rfind(kPem, 0) == 0) return KeyOf(field->data + kPem.size());
    }
  }
  throw std::runtime_error(curl_easy_strerror(code));
}

}  // namespace quorvane::tool

// NOLINTNEXTLINE(readability-identifier-naming): the function of libcurl.
extern "C" __attribute__((visibility("default"))) CURLcode curl_easy_perform(
    CURL* curl) {
  using quorvane::tool::Guard;
  if (!Guard().is_active) return quorvane::tool::RealPerform()(curl);
  return quorvane::tool::GuardedPerform(curl);
}
