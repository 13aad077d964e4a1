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

/// Creates the responses. Called on several server threads at the same time.
class RequestHandler {
 public:
  virtual ~RequestHandler() = default;

  /// Called before the body is read, so `request` has none. A response ends the
  /// exchange.
  virtual std::optional<BmcResponse> RespondBeforeBody(
      const RecordedRequest& request) = 0;

  virtual BmcResponse Respond(RecordedRequest request) = 0;
};

/// An HTTPS server with a self-signed certificate and one request per
/// connection. cpp-httplib accepts connections and parses requests. This class
/// handles sockets, TLS and the bytes of a response, because a `Fault` breaks
/// these.
class TlsServer : private httplib::Server {
 public:
  /// A new key and certificate, which several servers may share.
  static std::shared_ptr<SSL_CTX> CreateTlsContext();

  /// Starts to listen. Port 0 selects a free port. `handler` must outlive the
  /// server. `tls` is from CreateTlsContext.
  /// @throws std::runtime_error if the address cannot be bound.
  TlsServer(RequestHandler& handler, const std::string& bind_address, int port,
            std::shared_ptr<SSL_CTX> tls);

  /// Closes all connections and joins all threads, without waiting for
  /// timeouts.
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
  /// Returns false if the server is stopped in the meantime.
  bool WaitUnlessStopped(std::chrono::milliseconds duration);

  RequestHandler& handler_;
  const std::shared_ptr<SSL_CTX> tls_;
  int port_ = 0;

  std::mutex mutex_;
  std::condition_variable stop_requested_;
  bool stopping_ = false;
  std::set<int> open_sockets_;

  std::thread acceptor_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_TLS_SERVER_H_
