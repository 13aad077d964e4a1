// SPDX-License-Identifier: Apache-2.0
#include "simulator/certificate.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <ctime>
#include <stdexcept>
#include <string>

namespace quorvane::simulator {
namespace {

using KeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertificatePtr = std::unique_ptr<X509, decltype(&X509_free)>;
using ExtensionPtr =
    std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)>;

constexpr auto kX509Version3 = 2L;  // counted from 0 (RFC 5280, 4.1.2.1)
constexpr auto kDay = 24L * 60 * 60;

void Require(bool is_done, const char* step) {
  if (!is_done) {
    throw std::runtime_error(
        std::string("cannot create the TLS certificate: OpenSSL "
                    "reports an error at this step: ") +
        step);
  }
}

CertificatePtr SelfSigned(EVP_PKEY* key) {
  CertificatePtr certificate(X509_new(), &X509_free);
  X509* x509 = certificate.get();
  Require(x509 != nullptr && X509_set_version(x509, kX509Version3) == 1,
          "allocation");
  // Browsers reject two certificates of one issuer with the same serial number.
  Require(ASN1_INTEGER_set_int64(X509_get_serialNumber(x509),
                                 std::time(nullptr)) == 1,
          "serial number");
  X509_gmtime_adj(X509_getm_notBefore(x509), -kDay);
  X509_gmtime_adj(X509_getm_notAfter(x509), kDay);
  Require(X509_set_pubkey(x509, key) == 1, "public key");

  constexpr std::array<unsigned char, 9> kCommonName = {'1', '2', '7', '.', '0',
                                                        '.', '0', '.', '1'};
  X509_NAME* name = X509_get_subject_name(x509);
  Require(X509_NAME_add_entry_by_txt(
              name, "CN", MBSTRING_ASC, kCommonName.data(),
              static_cast<int>(kCommonName.size()), -1, 0) == 1,
          "subject");
  Require(X509_set_issuer_name(x509, name) == 1, "issuer");

  X509V3_CTX context;
  X509V3_set_ctx(&context, x509, x509, nullptr, nullptr, 0);
  const ExtensionPtr names(
      X509V3_EXT_conf_nid(nullptr, &context, NID_subject_alt_name,
                          "IP:127.0.0.1,IP:::1,DNS:localhost"),
      &X509_EXTENSION_free);
  Require(names != nullptr && X509_add_ext(x509, names.get(), -1) == 1,
          "alternative names");
  Require(X509_sign(x509, key, EVP_sha256()) > 0, "signature");
  return certificate;
}

}  // namespace

std::shared_ptr<SSL_CTX> CreateSelfSignedTlsContext() {
  const KeyPtr key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
  Require(key != nullptr, "EC key");
  const CertificatePtr certificate = SelfSigned(key.get());
  std::shared_ptr<SSL_CTX> tls(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  Require(tls != nullptr &&
              SSL_CTX_set_min_proto_version(tls.get(), TLS1_2_VERSION) == 1 &&
              SSL_CTX_use_certificate(tls.get(), certificate.get()) == 1 &&
              SSL_CTX_use_PrivateKey(tls.get(), key.get()) == 1,
          "TLS context");
  return tls;
}

}  // namespace quorvane::simulator
