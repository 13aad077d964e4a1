// SPDX-License-Identifier: Apache-2.0
// A BMC that costs its client as little as it can: every answer is ready, what
// is uploaded is read and thrown away. One request per connection, as most BMCs
// have it. Prints its port, and ends when its standard input does.
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

long long NumberAt(std::string_view text) {
  long long number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// The value of a request's Content-Length; 0 without one.
long long BodyLength(const std::string& head) {
  constexpr std::string_view kName = "\r\nContent-Length: ";
  for (std::size_t at = head.find("\r\n"); at != std::string::npos;
       at = head.find("\r\n", at + 1)) {
    if (strncasecmp(head.c_str() + at, kName.data(), kName.size()) == 0) {
      return NumberAt(head.substr(at + kName.size()));
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

// The task stands in the last message, so all are looked at.
std::string Messages(int count) {
  std::string body = R"({"Messages": [)";
  for (int i = 1; i < count; ++i) {
    body +=
        R"({"MessageId": "Update.1.1.TransferringToComponent", "MessageArgs":)"
        R"( ["firmware.bin", "BMC"]},)";
  }
  return body + R"({"MessageId": "Task.1.0.New", "MessageArgs": ["/t/1"]}]})";
}

// The number behind a path that begins so.
std::optional<long long> NumberBehind(std::string_view start,
                                      std::string_view path) {
  if (path.substr(0, start.size()) != start) return std::nullopt;
  return NumberAt(path.substr(start.size()));
}

struct Answer {
  int status = 200;
  std::string body = {};
  long long filler = 0;  // bytes sent instead of a body
};

Answer AnswerTo(std::string_view method, std::string_view path, int members) {
  if (path.find("SimpleUpdate") != std::string_view::npos) return {404};
  if (path.find("/Actions/") != std::string_view::npos) return {204};
  if (path == kTask) {
    return {200, R"({"Id": "1", "TaskState": "Completed",)"
                 R"( "PercentComplete": 100})"};
  }
  if (method != "GET") {
    return {202, R"({"@odata.id": ")" + std::string(kTask) + "\"}"};
  }
  if (const auto size = NumberBehind(kImages, path)) return {200, "", *size};
  if (const auto count = NumberBehind(kCollections, path)) {
    return {200, Collection(static_cast<int>(*count))};
  }
  if (const auto count = NumberBehind(kMessages, path)) {
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
  std::string head;
  std::array<char, kChunk> chunk{};
  std::size_t end = std::string::npos;
  while ((end = head.find(kHeadEnd)) == std::string::npos) {
    const int got = SSL_read(ssl, chunk.data(), kChunk);
    if (got <= 0) return;
    head.append(chunk.data(), static_cast<std::size_t>(got));
  }
  end += kHeadEnd.size();
  long long left = BodyLength(head.substr(0, end)) -
                   static_cast<long long>(head.size() - end);
  while (left > 0) {
    const int got = SSL_read(ssl, chunk.data(), kChunk);
    if (got <= 0) return;
    left -= got;
  }

  const std::size_t blank = head.find(' ');
  const std::string_view target(head.data() + blank + 1,
                                head.find(' ', blank + 1) - blank - 1);
  const Answer answer = AnswerTo(head.substr(0, blank), target, members);
  const long long length =
      static_cast<long long>(answer.body.size()) + answer.filler;
  std::string text = "HTTP/1.1 " + std::to_string(answer.status) +
                     " Answer\r\nConnection: close\r\n"
                     "Content-Type: application/json\r\n";
  if (answer.status != 204) {
    text += "Content-Length: " + std::to_string(length) + "\r\n";
  }
  if (!Send(ssl, text + "\r\n" + answer.body)) return;
  for (long long rest = answer.filler; rest > 0;) {
    const auto now = std::min(rest, static_cast<long long>(kChunk));
    if (!Send(ssl, {chunk.data(), static_cast<std::size_t>(now)})) return;
    rest -= now;
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
