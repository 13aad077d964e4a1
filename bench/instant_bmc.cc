// SPDX-License-Identifier: Apache-2.0
// A BMC that adds as little as possible to the measured time: it responds
// immediately and discards uploads. Like most BMCs, it serves one request per
// connection. Prints its port, and exits when its standard input is closed.
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "simulator/certificate.h"

namespace {

constexpr std::string_view kCollection =
    "/redfish/v1/UpdateService/FirmwareInventory";
constexpr std::string_view kTask = "/redfish/v1/TaskService/Tasks/1";
constexpr std::string_view kCollections = "/collections/";
constexpr std::string_view kMessages = "/messages/";
constexpr std::string_view kImages = "/images/";
constexpr std::string_view kHeadEnd = "\r\n\r\n";
constexpr std::size_t kChunk = 65536;

struct SslDeleter {
  void operator()(SSL* ssl) const noexcept { SSL_free(ssl); }
};
using SslPtr = std::unique_ptr<SSL, SslDeleter>;

long long ParseNumber(std::string_view text) {
  long long number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// The value of Content-Length; 0 if there is none.
long long BodyLength(const std::string& header) {
  constexpr std::string_view kName = "\r\nContent-Length: ";
  for (std::size_t at = header.find("\r\n"); at != std::string::npos;
       at = header.find("\r\n", at + 1)) {
    if (strncasecmp(header.c_str() + at, kName.data(), kName.size()) == 0) {
      return ParseNumber(header.substr(at + kName.size()));
    }
  }
  return 0;
}

std::string Collection(int members) {
  std::string body = R"({"Members": [)";
  for (int i = 0; i < members; ++i) {
    body.append(i == 0 ? "" : ", ")
        .append(R"({"@odata.id": ")")
        .append(kCollection)
        .append("/")
        .append(std::to_string(i))
        .append("\"}");
  }
  return body + "]}";
}

// Only the last message names a task, so a client must read all messages.
std::string Messages(int count) {
  std::string body = R"({"Messages": [)";
  for (int i = 1; i < count; ++i) {
    body +=
        R"({"MessageId": "Update.1.1.TransferringToComponent", "MessageArgs":)"
        R"( ["firmware.bin", "BMC"]},)";
  }
  return body + R"({"MessageId": "Task.1.0.New", "MessageArgs": ["/t/1"]}]})";
}

// The number after `start`, if the path begins with `start`.
std::optional<long long> NumberAfter(std::string_view start,
                                     std::string_view path) {
  if (path.substr(0, start.size()) != start) return std::nullopt;
  return ParseNumber(path.substr(start.size()));
}

struct Response {
  int status = 200;
  std::string body = {};
  long long filler_size = 0;  // bytes that are sent instead of a body
};

Response RespondTo(std::string_view method, std::string_view path,
                   int members) {
  if (path.find("SimpleUpdate") != std::string_view::npos) return {404};
  if (path.find("/Actions/") != std::string_view::npos) return {204};
  if (path == kTask) {
    return {200, R"({"Id": "1", "TaskState": "Completed",)"
                 R"( "PercentComplete": 100})"};
  }
  if (method != "GET") {
    return {202, R"({"@odata.id": ")" + std::string(kTask) + "\"}"};
  }
  if (const auto size = NumberAfter(kImages, path)) return {200, "", *size};
  if (const auto count = NumberAfter(kCollections, path)) {
    return {200, Collection(static_cast<int>(*count))};
  }
  if (const auto count = NumberAfter(kMessages, path)) {
    return {200, Messages(static_cast<int>(*count))};
  }
  if (path == kCollection) return {200, Collection(members)};
  return {200,
          R"({"@odata.id": ")" + std::string(path) +
              R"(", "Id": "1", "Name": "Component", "SoftwareId": "contoso-1",)"
              R"( "Version": "1.0.0", "Updateable": true, "RelatedItem":)"
              R"( [{"@odata.id": "/redfish/v1/Chassis/1"}]})"};
}

bool Send(SSL* ssl, std::string_view text) {
  return text.empty() ||
         SSL_write(ssl, text.data(), static_cast<int>(text.size())) > 0;
}

void Serve(SSL* ssl, int members) {
  std::string header;
  std::array<char, kChunk> chunk{};
  std::size_t end = std::string::npos;
  while ((end = header.find(kHeadEnd)) == std::string::npos) {
    const int count = SSL_read(ssl, chunk.data(), kChunk);
    if (count <= 0) return;
    header.append(chunk.data(), static_cast<std::size_t>(count));
  }
  end += kHeadEnd.size();
  long long left = BodyLength(header.substr(0, end)) -
                   static_cast<long long>(header.size() - end);
  while (left > 0) {
    const int count = SSL_read(ssl, chunk.data(), kChunk);
    if (count <= 0) return;
    left -= count;
  }

  const std::size_t blank = header.find(' ');
  const std::string_view target(header.data() + blank + 1,
                                header.find(' ', blank + 1) - blank - 1);
  const Response response = RespondTo(header.substr(0, blank), target, members);
  const long long length =
      static_cast<long long>(response.body.size()) + response.filler_size;
  std::string text = "HTTP/1.1 " + std::to_string(response.status) +
                     " Response\r\nConnection: close\r\n"
                     "Content-Type: application/json\r\n";
  if (response.status != 204) {
    text += "Content-Length: " + std::to_string(length) + "\r\n";
  }
  if (!Send(ssl, text + "\r\n" + response.body)) return;
  for (long long rest = response.filler_size; rest > 0;) {
    const auto size = std::min(rest, static_cast<long long>(kChunk));
    if (!Send(ssl, {chunk.data(), static_cast<std::size_t>(size)})) return;
    rest -= size;
  }
  SSL_shutdown(ssl);
}

int Listen() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (listener < 0 ||
      bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener, SOMAXCONN) != 0 ||
      getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) !=
          0) {
    std::perror("bench_bmc: cannot listen on 127.0.0.1");
    std::exit(1);
  }
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  return listener;
}

}  // namespace

// Usage: bench_bmc MEMBERS
int main(int argc, char** argv) {
  const int members = argc > 1 ? std::atoi(argv[1]) : 0;
  std::signal(SIGPIPE, SIG_IGN);
  const auto tls = quorvane::simulator::CreateSelfSignedTlsContext();
  SSL_CTX_set_read_ahead(tls.get(), 1);
  const int listener = Listen();
  std::thread([] {
    while (std::getchar() != EOF) {
    }
    std::_Exit(0);
  }).detach();
  while (true) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    std::thread([connection, members, &tls] {
      const SslPtr ssl(SSL_new(tls.get()));
      if (SSL_set_fd(ssl.get(), connection) == 1 &&
          SSL_accept(ssl.get()) == 1) {
        Serve(ssl.get(), members);
      }
      close(connection);
    }).detach();
  }
}
