// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_CERTIFICATE_H_
#define QUORVANE_SIMULATOR_CERTIFICATE_H_

#include <openssl/ssl.h>

#include <memory>

namespace quorvane::simulator {

/// A TLS 1.2+ server context with a fresh EC P-256 key and a self-signed
/// certificate for 127.0.0.1, ::1 and localhost, valid for a day. Nothing is
/// written to disk.
/// @throws std::runtime_error when OpenSSL refuses a step.
std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> CreateSelfSignedTlsContext();

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_CERTIFICATE_H_
