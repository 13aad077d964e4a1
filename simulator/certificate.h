// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_CERTIFICATE_H_
#define QUORVANE_SIMULATOR_CERTIFICATE_H_

#include <openssl/ssl.h>

#include <memory>

namespace quorvane::simulator {

/// Creates a server context for TLS 1.2 and later, with a new EC P-256 key and
/// a self-signed certificate for 127.0.0.1, ::1 and localhost. It is valid for
/// a day and never written to disk.
/// @throws std::runtime_error if OpenSSL fails.
std::shared_ptr<SSL_CTX> CreateSelfSignedTlsContext();

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_CERTIFICATE_H_
