// SPDX-License-Identifier: Apache-2.0
#include "simulator/tls_server.h"

#include <netinet/in.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <future>
#include <list>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulator/certificate.h"
#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

// TlsServer overrides protected members, which have no stable interface.
static_assert(std::string_view(CPPHTTPLIB_VERSION).starts_with("0.11."),
              "The simulator requires cpp-httplib 0.11. For another version, "
              "check TlsServer::process_and_close_socket and its tests first.");

constexpr std::size_t kMaxConnections = 256;
constexpr timeval kIdleTimeout = {.tv_sec = 60, .tv_usec = 0};
// Bytes of one SSL_read or SSL_write, whose size is an int.
constexpr std::size_t kMaxTransfer = 1U << 20U;

const char* ReasonPhrase(int status) {
  // RFC 9110, section 15. A client must not depend on the phrase.
  switch (status) {
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 202:
      return "Accepted";
    case 204:
      return "No Content";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 413:
      return "Content Too Large";
    case 500:
      return "Internal Server Error";
    case 503:
      return "Service Unavailable";
    default:
      return "Status";
  }
}

// RFC 9110, 6.4.1: these never have content.
bool HasNoContent(const std::string& method, int status) {
  return method == "HEAD" || status < 200 || status == 204 || status == 304;
}

std::string FormatHeader(const BmcResponse& response, bool without_content) {
  std::string head = "HTTP/1.1 " + std::to_string(response.status) + ' ' +
                     ReasonPhrase(response.status) + "\r\n";
  for (const auto& [name, value] : response.headers) {
    head += name;
    head += ": ";
    head += value;
    head += "\r\n";
  }
  const auto add_default = [&](const char* name, const std::string& value) {
    if (Header(response.headers, name).empty()) {
      head += name + (": " + value) + "\r\n";
    }
  };
  if (!response.body.empty()) add_default("Content-Type", "application/json");
  if ((!without_content || !response.body.empty()) &&
      Header(response.headers, "Transfer-Encoding").empty()) {
    add_default("Content-Length", std::to_string(response.body.size()));
  }
  add_default("Connection", "close");
  return head + "\r\n";
}

// The fields in their order and with repetitions, which the map of cpp-httplib
// loses.
HeaderList ParseHeaderFields(std::string_view head) {
  HeaderList fields;
  std::size_t line = head.find('\n');  // skip the request line
  while (line != std::string_view::npos && line + 1 < head.size()) {
    const std::size_t end = std::min(head.find('\n', line + 1), head.size());
    std::string_view text = head.substr(line + 1, end - line - 1);
    if (text.ends_with('\r')) text.remove_suffix(1);
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos) {
      fields.emplace_back(text.substr(0, colon), Trim(text.substr(colon + 1)));
    }
    line = end < head.size() ? end : std::string_view::npos;
  }
  return fields;
}

// A thread for each connection, so that an idle connection does not block the
// others. Only the accepting thread calls it.
class ConnectionThreads final : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> serve) override {
    connections_.remove_if([](const std::future<void>& connection) {
      return connection.wait_for(std::chrono::seconds(0)) ==
             std::future_status::ready;
    });
    // The destructor of a future waits for its thread.
    if (connections_.size() == kMaxConnections) connections_.pop_front();
    connections_.push_back(std::async(std::launch::async, std::move(serve)));
  }

  void shutdown() override { connections_.clear(); }

 private:
  std::list<std::future<void>> connections_;
};

}  // namespace

/// One accepted socket and its TLS session; cpp-httplib reads requests from it.
class TlsServer::Connection final : public httplib::Stream {
 public:
  Connection(TlsServer& server, int socket_fd)
      : server_(server),
        socket_(socket_fd),
        tls_(SSL_new(server.tls_.get()), &SSL_free) {
    server_.RegisterSocket(socket_);
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &kIdleTimeout,
               sizeof kIdleTimeout);
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &kIdleTimeout,
               sizeof kIdleTimeout);
  }

  ~Connection() override {
    tls_.reset();
    server_.UnregisterSocket(socket_);  // before the number is reused
    ::close(socket_);
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool Handshake() {
    if (!tls_ || SSL_set_fd(tls_.get(), socket_) != 1) return false;
    SSL_set_app_data(tls_.get(), this);
    ERR_clear_error();
    return SSL_accept(tls_.get()) == 1;
  }

  /// Records the protocols that the client offers; selects none of them.
  static int RecordAlpnOffer(SSL* tls, const unsigned char** /*selected*/,
                             unsigned char* /*selected_size*/,
                             const unsigned char* offer, unsigned int size,
                             void* /*unused*/) {
    auto& self = *static_cast<Connection*>(SSL_get_app_data(tls));
    for (unsigned int at = 0; at < size; at += 1U + offer[at]) {
      if (at > 0) self.alpn_ += ',';
      self.alpn_.append(reinterpret_cast<const char*>(offer) + at + 1,
                        offer[at]);
    }
    return SSL_TLSEXT_ERR_NOACK;
  }

  /// Called by cpp-httplib when the header is parsed.
  void PrepareRequest(httplib::Request& request) {
    is_header_complete_ = true;
    request.ssl = tls_.get();
    // Otherwise cpp-httplib decodes multipart and compressed bodies, and the
    // received bytes are lost.
    request.headers.erase("Content-Type");
    request.headers.erase("Content-Encoding");
  }

  [[nodiscard]] RecordedRequest Recorded(
      const httplib::Request& request) const {
    RecordedRequest recorded;
    recorded.method = request.method;
    const std::size_t query = request.target.find('?');
    recorded.path = request.target.substr(0, query);
    if (query != std::string::npos) {
      recorded.query = request.target.substr(query + 1);
    }
    recorded.headers = ParseHeaderFields(raw_header_);
    recorded.alpn = alpn_;
    return recorded;
  }

  void Send(const std::string& method, const BmcResponse& response) {
    has_responded_ = true;
    if (!server_.WaitUnlessStopped(response.delay)) return;
    switch (response.fault) {
      case Fault::kDrop:
        is_broken_ = true;
        return;
      case Fault::kReset:
        Reset();
        return;
      case Fault::kNotHttp:
        WriteAll("220 ready; this is not HTTP\r\n");
        return;
      case Fault::kGarbage:
        SendComplete(method, WithGarbage(response));
        return;
      case Fault::kCutShort:
        WriteAll(FormatHeader(response, HasNoContent(method, response.status)));
        WriteAll(response.body.substr(0, response.body.size() / 2));
        is_broken_ = true;
        return;
      case Fault::kSlowDrip:
        SendByteByByte(method, response);
        return;
      case Fault::kNone:
        SendComplete(method, response);
        return;
    }
  }

  /// Closes the connection properly, unless a fault has broken it.
  void Finish() {
    if (is_broken_) return;
    ERR_clear_error();
    SSL_shutdown(tls_.get());
    ::shutdown(socket_, SHUT_WR);
    // Closing a socket with unread bytes sends an RST, which can destroy the
    // response before the client reads it (RFC 9112, 9.6).
    std::array<char, 4096> rest{};
    const timeval timeout = {.tv_sec = 1, .tv_usec = 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    while (::recv(socket_, rest.data(), rest.size(), 0) > 0) {
    }
  }

  [[nodiscard]] bool is_readable() const override { return true; }
  [[nodiscard]] bool is_writable() const override { return !has_responded_; }

  ssize_t read(char* bytes, std::size_t size) override {
    ERR_clear_error();
    const int count = SSL_read(tls_.get(), bytes,
                               static_cast<int>(std::min(size, kMaxTransfer)));
    if (count > 0 && !is_header_complete_) {
      raw_header_.append(bytes, static_cast<std::size_t>(count));
    }
    return count > 0 ? count : -1;
  }

  /// Sends what cpp-httplib itself creates: "100 Continue" and the response to
  /// a malformed request. Discards what it creates after our response.
  ssize_t write(const char* bytes, std::size_t size) override {
    if (has_responded_) return static_cast<ssize_t>(size);
    return WriteAll({bytes, size}) ? static_cast<ssize_t>(size) : -1;
  }

  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    ip.clear();
    port = 0;
  }
  void get_local_ip_and_port(std::string& ip, int& port) const override {
    get_remote_ip_and_port(ip, port);
  }
  [[nodiscard]] socket_t socket() const override { return socket_; }

 private:
  static BmcResponse WithGarbage(BmcResponse response) {
    response.body = "{\"@odata.id\": \x01\x7f <not JSON";
    return response;
  }

  bool WriteAll(std::string_view bytes) {
    while (!bytes.empty()) {
      ERR_clear_error();
      const int count =
          SSL_write(tls_.get(), bytes.data(),
                    static_cast<int>(std::min(bytes.size(), kMaxTransfer)));
      if (count <= 0) {
        is_broken_ = true;
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  void SendComplete(const std::string& method, const BmcResponse& response) {
    const bool without_content = HasNoContent(method, response.status);
    std::string message = FormatHeader(response, without_content);
    if (!without_content) message += response.body;
    WriteAll(message);
  }

  void SendByteByByte(const std::string& method, const BmcResponse& response) {
    const bool without_content = HasNoContent(method, response.status);
    bool is_connected = WriteAll(FormatHeader(response, without_content));
    if (without_content) return;
    for (const char& byte : response.body) {
      is_connected = is_connected && server_.WaitUnlessStopped(response.drip) &&
                     WriteAll({&byte, 1});
    }
  }

  // With a linger time of zero, close() sends an RST (socket(7)).
  void Reset() {
    is_broken_ = true;
    const linger discard = {.l_onoff = 1, .l_linger = 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
  }

  TlsServer& server_;
  int socket_;
  std::unique_ptr<SSL, decltype(&SSL_free)> tls_;
  std::string raw_header_;
  std::string alpn_;
  bool is_header_complete_ = false;
  bool has_responded_ = false;
  bool is_broken_ = false;
};

std::shared_ptr<SSL_CTX> TlsServer::CreateTlsContext() {
  auto tls = CreateSelfSignedTlsContext();
  // Here, because other servers may already use a context that is shared.
  SSL_CTX_set_alpn_select_cb(tls.get(), &Connection::RecordAlpnOffer, nullptr);
  return tls;
}

TlsServer::TlsServer(RequestHandler& handler, const std::string& bind_address,
                     int port, std::shared_ptr<SSL_CTX> tls)
    : handler_(handler), tls_(std::move(tls)) {
  // The default of cpp-httplib, SO_REUSEPORT, lets two simulators share a port.
  set_socket_options([](socket_t socket_fd) {
    const int on = 1;
    setsockopt(socket_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  RegisterRoutes();
  if (port == 0) {
    port_ = bind_to_any_port(bind_address);
  } else if (bind_to_port(bind_address, port)) {
    port_ = port;
  }
  if (port_ <= 0) {
    throw std::runtime_error("cannot listen on " + bind_address + " port " +
                             std::to_string(port) +
                             ": the address does not belong to this host, or "
                             "the port is in use. Port 0 selects a free one.");
  }
  // stop() has no effect before the accept loop runs. The loop creates its
  // queue when it starts, so wait for that.
  auto running = std::make_shared<std::promise<void>>();
  std::future<void> started = running->get_future();
  new_task_queue = [running] {
    running->set_value();
    return new ConnectionThreads;
  };
  acceptor_ = std::thread([this] { listen_after_bind(); });
  started.wait();
}

TlsServer::~TlsServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const int socket_fd : open_sockets_) ::shutdown(socket_fd, SHUT_RDWR);
  }
  stop_requested_.notify_all();
  stop();
  acceptor_.join();
}

bool TlsServer::process_and_close_socket(socket_t socket_fd) {
  Connection connection(*this, socket_fd);
  if (connection.Handshake()) {
    bool closed = false;
    process_request(
        connection, /*close_connection=*/true, closed,
        [&](httplib::Request& request) { connection.PrepareRequest(request); });
    connection.Finish();
  }
  return true;
}

void TlsServer::RegisterRoutes() {
  const auto without_body = [this](const httplib::Request& request,
                                   httplib::Response&) {
    Respond(request, nullptr);
  };
  const auto with_body = [this](const httplib::Request& request,
                                httplib::Response&,
                                const httplib::ContentReader& read_body) {
    Respond(request, &read_body);
  };
  const std::string any = R"([\s\S]*)";
  Get(any, without_body).Options(any, without_body);
  Post(any, with_body).Put(any, with_body);
  Patch(any, with_body).Delete(any, with_body);
}

void TlsServer::Respond(const httplib::Request& request,
                        const httplib::ContentReader* read_body) {
  auto& connection = *static_cast<Connection*>(SSL_get_app_data(request.ssl));
  RecordedRequest recorded = connection.Recorded(request);
  if (const auto early = handler_.RespondBeforeBody(recorded)) {
    connection.Send(request.method, *early);
    return;
  }
  // Without either field a request has no body (RFC 9112, 6.3), but cpp-httplib
  // waits for one until the client closes the connection.
  const bool has_body = request.has_header("Content-Length") ||
                        request.has_header("Transfer-Encoding");
  if (read_body != nullptr && has_body &&
      !(*read_body)([&](const char* bytes, std::size_t size) {
        recorded.body.append(bytes, size);
        return true;
      })) {
    return;  // the connection is broken
  }
  recorded.body_size = recorded.body.size();
  recorded.parts =
      ParseMultipart(Header(recorded, "Content-Type"), recorded.body);
  connection.Send(request.method, handler_.Respond(std::move(recorded)));
}

void TlsServer::RegisterSocket(int socket_fd) {
  const std::lock_guard lock(mutex_);
  open_sockets_.insert(socket_fd);
  if (stopping_) ::shutdown(socket_fd, SHUT_RDWR);
}

void TlsServer::UnregisterSocket(int socket_fd) {
  const std::lock_guard lock(mutex_);
  open_sockets_.erase(socket_fd);
}

bool TlsServer::WaitUnlessStopped(std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex_);
  return !stop_requested_.wait_for(lock, duration, [&] { return stopping_; });
}

}  // namespace quorvane::simulator
