// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_TLS_SERVER_H_
#define QUORVANE_SIMULATOR_TLS_SERVER_H_

#include <httplib.h>
#include <openssl/ssl.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "simulator/http_message.h"

namespace quorvane::simulator {

/// Decides what to answer. Called on the server's threads, several at once.
class RequestHandler {
 public:
  virtual ~RequestHandler() = default;

  /// Asked before the body is read; a response here ends the exchange.
  /// `request` has no body yet.
  virtual std::optional<BmcResponse> RespondBeforeBody(
      const RecordedRequest& request) = 0;

  virtual BmcResponse Respond(RecordedRequest request) = 0;
};

/// An HTTPS server with a certificate of its own making, one request per
/// connection. cpp-httplib accepts and parses; sockets, TLS and the answer's
/// bytes are handled here, as only the owner of a connection can break it in
/// the ways of `Fault`.
class TlsServer : private httplib::Server {
 public:
  /// Listens as soon as it is made. `port` 0 takes a free one. `handler` must
  /// outlive the server.
  /// @throws std::runtime_error when the address cannot be bound.
  TlsServer(RequestHandler& handler, const std::string& bind_address, int port);

  /// Ends every connection and joins every thread; takes no time-out's length.
  ~TlsServer() override;

  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  [[nodiscard]] int BoundPort() const { return port_; }

 private:
  class Connection;

  // Protected in cpp-httplib; tls_server.cc checks the version.
  bool process_and_close_socket(socket_t socket_fd) override;

  void RegisterRoutes();
  void Respond(const httplib::Request& request,
               const httplib::ContentReader* read_body);

  void RegisterSocket(int socket_fd);
  void UnregisterSocket(int socket_fd);
  /// False when the server was stopped meanwhile.
  bool WaitUnlessStopped(std::chrono::milliseconds duration);

  RequestHandler& handler_;
  std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> tls_;
  int port_ = 0;

  std::mutex mutex_;
  std::condition_variable stop_requested_;
  bool stopping_ = false;
  std::set<int> open_sockets_;

  std::thread acceptor_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_TLS_SERVER_H_
