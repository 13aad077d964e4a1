// SPDX-License-Identifier: Apache-2.0
// What the way onto the network promises: the bytes that the BMC receives, what
// is made of its answer, and what a failure says. Over real TLS.
#include <curl/curl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "http/exchange.h"
#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using simulator::BmcResponse;
using simulator::Fault;
using simulator::Header;
using simulator::RecordedRequest;
using simulator::SimulatedBmc;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr long kTimeoutMs = 10'000;
constexpr const char* kPath = "/redfish/v1/x";

// A request for huge pages.
struct HugePages {
  const char* start;
  std::size_t size;
};
std::vector<HugePages> huge_pages;
bool has_huge_pages = true;

struct Sent {
  std::string url;
  std::string username = "admin", password = "s3cret", auth_type = "basic";
  Headers headers = {};
  long timeout_ms = kTimeoutMs;
};

// One operation, its words in the log, and what it puts on the wire.
struct Operation {
  const char *method, *words, *failed, *content_type, *body;
  std::string file;  // what the log says of it
  std::function<Response(const Sent&)> run;
};

class HttpTest : public BmcTest {
 protected:
  std::vector<Operation> Operations() const {
    const auto calling = [this](auto operation, auto... what) {
      return [=, this](const Sent& s) {
        return (client.*operation)(s.url, what..., s.headers, s.timeout_ms,
                                   s.username, s.password, s.auth_type);
      };
    };
    const char* const json = "application/json";
    return {
        {"GET", "GET ", "GET failed: ", "", "", "", calling(&HttpClient::get)},
        {"POST", "POST ", "POST failed: ", "text/plain", "body", "",
         calling(&HttpClient::post, "body", "text/plain")},
        {"POST", "POST ", "POST failed: ", json, "{}", "",
         calling(&HttpClient::post_json, "{}")},
        {"PATCH", "PATCH ", "PATCH failed: ", json, "[]", "",
         calling(&HttpClient::patch_json, "[]")},
        {"PUT", "BINARY FILE UPLOAD ", "Binary file upload failed: ",
         "application/octet-stream", "firmware", " file=" + image + " size=8",
         calling(&HttpClient::post_binary_file, image)},
        {"POST", "MULTIPART POST ", "Multipart POST failed: ", nullptr, nullptr,
         " file=" + image, [this](const Sent& s) {
           return client.post_multipart(s.url, image, "UpdateFile", s.headers,
                                        s.timeout_ms, s.username, s.password,
                                        s.auth_type, "");
         }}};
  }
  Response Get(const std::string& path) const {
    return client.get(Url(path), {}, kTimeoutMs, "", "", "");
  }
  Response Form(const std::string& file, const std::string& field,
                const std::string& parameters) const {
    return client.post_multipart(Url(kPath), file, field, {}, kTimeoutMs, "",
                                 "", "", parameters);
  }
  Response Put(const std::string& file) const {
    return client.post_binary_file(Url(kPath), file, {}, kTimeoutMs, "", "",
                                   "");
  }
  // All methods answer alike.
  void AlwaysAnswer(const BmcResponse& reply) {
    for (const char* method : {"GET", "POST", "PATCH", "PUT"}) {
      bmc.On(method, kPath).Respond(reply);
    }
  }
  RecordedRequest Received() const { return bmc.Requests().back(); }

  const HttpClient client;
  const std::string image = folder.Write("image.blx", "firmware");
};

// What `run` throws; empty when it does not.
std::string FailureOf(const std::function<void()>& run) {
  try {
    run();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return {};
}

std::vector<std::string> Values(const RecordedRequest& request,
                                const std::string& name) {
  std::vector<std::string> values;
  for (const auto& [field, value] : request.headers) {
    if (field == name) values.push_back(value);
  }
  return values;
}

TEST_F(HttpTest, OperationsArriveAsTheyWereMeant) {
  AlwaysAnswer({.status = 202, .body = "ok"});
  const std::string url = MaskIP(Url(kPath)) + "?a=b%20c:d";
  std::vector<std::string> log;
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.words);
    const Response response = operation.run({.url = Url(kPath) + "?a=b%20c:d"});
    EXPECT_EQ(response.status_code, 202);
    EXPECT_EQ(response.body, "ok");
    const RecordedRequest request = Received();
    EXPECT_EQ(request.method + request.path + '?' + request.query,
              operation.method + std::string(kPath) + "?a=b%20c:d");
    EXPECT_EQ(Header(request, "Expect"), "");
    EXPECT_EQ(request.alpn, "http/1.1");
    if (operation.body != nullptr) {
      EXPECT_EQ(Header(request, "Content-Type"), operation.content_type);
      EXPECT_EQ(request.body, operation.body);
    }
    const std::string said = std::string("DEBUG [http] ") + operation.words;
    log.push_back(said + url + operation.file);
    log.push_back(said + url + " -> HTTP 202");
    EXPECT_EQ(Log(), log);
  }
  EXPECT_EQ(bmc.Requests().size(), 6);
}

TEST_F(HttpTest, CredentialsAreSentForBasicOnly) {
  AlwaysAnswer({});
  struct Case {
    const char *username, *type, *from_get, *from_others;
  };
  for (const Case& row :
       std::vector<Case>{{"admin", "basic", "Basic YWRtaW46czNjcmV0",
                          "Basic YWRtaW46czNjcmV0"},
                         {"", "basic", "Basic OnMzY3JldA==", ""},
                         {"admin", "Basic", "", ""},
                         {"admin", "oauth", "", ""},
                         {"admin", "", "", ""}}) {
    for (const Operation& operation : Operations()) {
      operation.run(
          {.url = Url(kPath), .username = row.username, .auth_type = row.type});
      EXPECT_EQ(Header(Received(), "Authorization"),
                std::string(operation.method) == "GET" ? row.from_get
                                                       : row.from_others)
          << operation.words << row.username << ' ' << row.type;
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("s3cret")));
}

TEST_F(HttpTest, ExtraHeadersAreSentInOrder) {
  AlwaysAnswer({});
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.words);
    operation.run({.url = Url(kPath),
                   .headers = {{"X-A", "1"}, {"Accept", ""}, {"X-A", "2: 3"}}});
    EXPECT_THAT(Values(Received(), "X-A"), ElementsAre("1", "2: 3"));
    EXPECT_THAT(Values(Received(), "Accept"), IsEmpty());
    if (operation.body == nullptr || *operation.body == '\0') continue;
    operation.run({.url = Url(kPath), .headers = {{"content-TYPE", "x/y"}}});
    EXPECT_THAT(Values(Received(), "content-TYPE"), ElementsAre("x/y"));
    EXPECT_THAT(Values(Received(), "Content-Type"), IsEmpty());
  }
}

TEST_F(HttpTest, HeadersWithALineBreakAreRefusedUnsent) {
  for (const auto& [name, value] : Headers{{"X-Break", "a\r\nX-Evil: 1"},
                                           {"X-Break", "a\n"},
                                           {"X-Break", "a\r"},
                                           {"X-Break", std::string("a\0b", 3)},
                                           {"X-Break\nX-Evil", "1"}}) {
    for (const Operation& operation : Operations()) {
      EXPECT_THAT(
          FailureOf([&, &name = name, &value = value] {
            operation.run({.url = Url(kPath), .headers = {{name, value}}});
          }),
          AllOf(HasSubstr("X-Break"), Not(HasSubstr("\n"))));
    }
  }
  EXPECT_THAT(bmc.Requests(), IsEmpty());
}

TEST_F(HttpTest, BodiesAndFilesOfAnySizeArriveBare) {
  AlwaysAnswer({});
  for (const std::string& body : {std::string(), std::string("a\0b\r\n", 5),
                                  std::string(3'000'000, 'x')}) {
    static_cast<void>(
        client.post(Url(kPath), body, "a/b", {}, kTimeoutMs, "", "", ""));
    const RecordedRequest posted = Received();
    Put(folder.Write("any", body));
    for (const RecordedRequest& request : {posted, Received()}) {
      EXPECT_TRUE(request.body == body) << request.body_size;
      EXPECT_EQ(Header(request, "Content-Length"), std::to_string(body.size()));
      EXPECT_THAT(Values(request, "Transfer-Encoding"), IsEmpty());
    }
  }
}

TEST_F(HttpTest, AnswersAreReturnedWhateverTheirStatus) {
  struct Case {
    BmcResponse answer;
    std::string content_type, location;
  };
  const std::string json = "application/json";
  for (const auto& [answer, content_type, location] : std::vector<Case>{
           {{200, std::string("a\0b", 3)}, json, ""},
           {{201, "", {{"location", " /t/1 "}}}, "", "/t/1"},
           {{204}, "", ""},
           {{200, "as sent", {{"Content-Encoding", "gzip"}}}, json, ""},
           {{401, "{}"}, json, ""},
           {{404, "<>", {{"CONTENT-TYPE", "text/html; a=b"}}},
            "text/html; a=b",
            ""},
           {{500, std::string(2'000'000, 'x')}, json, ""},
           {{503, "", {{"Location", "/a"}, {"Location", "/b"}}}, "", "/b"}}) {
    AlwaysAnswer(answer);
    for (const Operation& operation : Operations()) {
      const Response response = operation.run({.url = Url(kPath)});
      EXPECT_EQ(response.status_code, answer.status);
      EXPECT_EQ(response.body, answer.body);
      EXPECT_EQ(response.content_type, content_type);
      EXPECT_EQ(response.location, location);
    }
  }
}

// RFC 9112, section 7.1.
TEST_F(HttpTest, AnswersOfUnknownLengthAreWhole) {
  AlwaysAnswer({.body = "2\r\nab\r\n1;x=y\r\nc\r\n0\r\n\r\n",
                .headers = {{"Transfer-Encoding", "Chunked"}}});
  EXPECT_EQ(Get(kPath).body, "abc");
}

TEST_F(HttpTest, ResponsesWithHarmfulHeadersAreRejected) {
  const std::string encoding = "its Transfer-Encoding is not \"chunked\"";
  const std::string size = "its header exceeds 1 MiB";
  const simulator::HeaderList chunked = {{"Transfer-Encoding", "chunked"}};
  std::string trailers;
  for (int i = 0; i < 300; ++i) {
    trailers += "X-T: " + std::string(4000, 'x') + "\r\n";
  }
  struct Case {
    std::string reason;
    BmcResponse reply;
  };
  for (const auto& [reason, reply] : std::vector<Case>{
           {encoding, {.headers = {{"Transfer-Encoding", "gzip"}}}},
           {encoding, {.headers = {{"TRANSFER-encoding", "GZIP, chunked"}}}},
           {encoding, {.headers = {{"Transfer-Encoding", ""}}}},
           {encoding,
            {.headers = {chunked[0], {"transfer-encoding", "deflate"}}}},
           {encoding,
            {.body = "0\r\nTransfer-Encoding: br\r\n\r\n", .headers = chunked}},
           {size, {.body = "0\r\n" + trailers + "\r\n", .headers = chunked}}}) {
    AlwaysAnswer(reply);
    EXPECT_EQ(
        FailureOf([&] { Get(kPath); }),
        std::string("GET failed: ") + curl_easy_strerror(CURLE_WRITE_ERROR));
    const std::vector<std::string> log = Log("http");
    ASSERT_GE(log.size(), 2);
    EXPECT_EQ(log.at(log.size() - 2), "GET response rejected: " + reason +
                                          " url=" + MaskIP(Url(kPath)));
  }
}

TEST(HeaderLine, IsCapturedByItsName) {
  struct Case {
    const char *line, *content_type, *location;
  };
  for (const Case& row : std::vector<Case>{
           {"content-type:application/json\r\n", "application/json", "old"},
           {"CONTENT-TYPE: a; b=\":\" \r \n", "a; b=\":\"", "old"},
           {"Content-Type:", "", "old"},
           {"Content-Type\r\n", "old", "old"},
           {"Content-Type-Options: x\r\n", "old", "old"},
           {"Location: \t/x\t\r\n", "old", "/x\t"},
           {"Location:\r\n /z\r\n", "old", "\r\n /z"},
           {"Location: \t \r\n", "old", ""},
           {" Location: /x\r\n", "old", "old"},
           {"X-Location: /x\r\n", "old", "old"},
           {"HTTP/1.1 200 Location:\r\n", "old", "old"},
           {"", "old", "old"}}) {
    HeaderCapture capture{.content_type = "old", .location = "old"};
    CaptureHeaderLine(row.line, capture);
    EXPECT_EQ(capture.content_type, row.content_type) << row.line;
    EXPECT_EQ(capture.location, row.location) << row.line;
  }
}

TEST_F(HttpTest, RedirectsKeepThePost) {
  for (const char* method : {"GET", "POST", "PATCH", "PUT"}) {
    bmc.On(method, "/new").Respond(201, "final");
  }
  for (const int status : {301, 302, 303, 307, 308}) {
    AlwaysAnswer({status, "moved", {{"Location", "/new?q"}}});
    for (const Operation& operation : Operations()) {
      const std::string method = operation.method;
      if (status < 307 && method == "PUT") continue;
      const bool becomes_get = status == 303 && method != "PATCH";
      SCOPED_TRACE(operation.words + std::to_string(status));
      const Response response = operation.run({.url = Url(kPath)});
      EXPECT_EQ(response.status_code, 201);
      EXPECT_EQ(response.body, "final");
      EXPECT_EQ(response.location, "/new?q");
      const RecordedRequest request = Received();
      EXPECT_EQ(request.path + '?' + request.query, "/new?q");
      EXPECT_EQ(request.method, becomes_get ? "GET" : method);
      EXPECT_NE(Header(request, "Authorization"), "");
      if (!becomes_get && operation.body == nullptr) {
        EXPECT_EQ(request.parts.at(0).content, "firmware");
      } else {
        EXPECT_EQ(request.body, becomes_get ? "" : operation.body);
      }
    }
  }
}

TEST_F(HttpTest, RedirectsElsewhereCarryCallerHeadersButNoCredentials) {
  const SimulatedBmc other_host({}, {.bind_address = "127.0.0.2"});
  const SimulatedBmc other_port;
  for (const SimulatedBmc* other : {&other_host, &other_port}) {
    const std::string there = "https://" + other->Address() + "/image";
    AlwaysAnswer({307, "", {{"Location", there}}});
    for (const Operation& operation : Operations()) {
      operation.run({.url = Url(kPath),
                     .headers = {{"X-Auth-Token", "t"}, {"Cookie", "c"}}});
      EXPECT_EQ(Header(Received(), "Authorization"), "Basic YWRtaW46czNjcmV0");
      operation.run({.url = "https://u:p@" + bmc.Address() + kPath,
                     .auth_type = "",
                     .headers = {{"X-Auth-Token", "t"}}});
      EXPECT_EQ(Header(Received(), "Authorization"), "Basic dTpw");
      operation.run(
          {.url = Url(kPath),
           .auth_type = "",
           .headers = {{"X-Auth-Token", "t"}, {"authorization", "Bearer b"}}});
      EXPECT_EQ(Header(Received(), "Authorization"), "Bearer b");
    }
    EXPECT_EQ(other->Requests().size(), 18);
    for (const RecordedRequest& request : other->Requests()) {
      EXPECT_EQ(Header(request, "Authorization"), "") << request.method;
      EXPECT_EQ(Header(request, "Cookie"), "") << request.method;
      EXPECT_EQ(Header(request, "X-Auth-Token"), "t") << request.method;
    }
  }
}

TEST_F(HttpTest, RedirectsEndAfterThirtyAndStayWithHttp) {
  const BmcResponse again = {.status = 302, .headers = {{"Location", kPath}}};
  auto answers = bmc.On("GET", kPath);
  answers.Respond(again);
  for (int i = 1; i < 30; ++i) answers.Then(again);
  answers.Then(200, "there");
  EXPECT_EQ(Get(kPath).body, "there");

  bmc.ClearRequests();
  answers.Respond(again);
  EXPECT_EQ(FailureOf([&] { Get(kPath); }),
            std::string("GET failed: ") +
                curl_easy_strerror(CURLE_TOO_MANY_REDIRECTS));
  EXPECT_EQ(bmc.Requests().size(), 31);

  const std::string refused = std::string("GET failed: ") +
                              curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL);
  for (const std::string url : {"file:///etc/hostname", "ftp://127.0.0.1:1/",
                                "gopher://127.0.0.1:1/"}) {
    answers.Respond(302, "", {{"Location", url}});
    EXPECT_EQ(FailureOf([&] { Get(kPath); }), refused) << url;
    EXPECT_EQ(
        FailureOf([&] { return client.get(url, {}, kTimeoutMs, "", "", ""); }),
        refused);
  }
}

TEST_F(HttpTest, LargeBodiesUseHugePagesIfThereAreAny) {
  constexpr std::size_t kHugePage = 2U << 20U;
  for (const bool available : {true, false}) {
    has_huge_pages = available;
    for (const std::size_t size : {kHugePage - 1, kHugePage, 3 * kHugePage}) {
      huge_pages.clear();
      AlwaysAnswer({.body = std::string(size, 'x')});
      const std::string body = Get(kPath).body;
      EXPECT_TRUE(body == std::string(size, 'x'));
      ASSERT_EQ(huge_pages.size(), size < kHugePage ? 0 : 1);
      if (huge_pages.empty()) continue;
      const auto [start, advised] = huge_pages.front();
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(start) % 4096, 0);
      EXPECT_GE(start, body.data());
      EXPECT_LE(start + advised, body.data() + body.capacity());
      EXPECT_GT(advised, size - 2 * 4096);
    }
  }
  has_huge_pages = true;
}

TEST_F(HttpTest, TheEnvironmentNamesNoProxy) {
  bmc.On("GET", kPath).Respond(200);
  for (const char* variable :
       {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
    setenv(variable, "http://127.0.0.1:1", 1);
    EXPECT_EQ(FailureOf([&] { Get(kPath); }), "") << variable;
    unsetenv(variable);
  }
}

// One line and one exception per failure, of the same words, and neither tells
// the password, be it in the URL.
TEST_F(HttpTest, FailuresOfTheTransferAreThrownAndLogged) {
  const std::string host = bmc.Address();
  const std::string shown =
      " url=https://admin:<REDACTED>@" + MaskIP(host) + kPath;
  for (const Fault fault : {Fault::kDrop, Fault::kCutShort, Fault::kNotHttp}) {
    AlwaysAnswer({.body = "cut short", .fault = fault});
    for (const Operation& operation : Operations()) {
      SCOPED_TRACE(operation.words + std::to_string(static_cast<int>(fault)));
      const std::size_t before = Log("http").size();
      const std::string failure = FailureOf([&] {
        operation.run({.url = "https://admin:s3cret@" + host + kPath});
      });
      EXPECT_THAT(failure, StartsWith(operation.failed));
      EXPECT_EQ(Log("http").size(), before + 1);
      EXPECT_EQ(Log().back(), "ERROR [http] " + failure + shown);
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("s3cret")));
}

TEST_F(HttpTest, TheTimeLimitIsOneOfTheWholeTransfer) {
  const std::string timed_out = curl_easy_strerror(CURLE_OPERATION_TIMEDOUT);
  for (const BmcResponse& reply : std::vector<BmcResponse>{
           {.delay = std::chrono::seconds(2)},
           {.body = std::string(100, 'x'), .fault = Fault::kSlowDrip}}) {
    AlwaysAnswer(reply);
    for (const Operation& operation : Operations()) {
      EXPECT_EQ(FailureOf([&] {
                  operation.run({.url = Url(kPath), .timeout_ms = 100});
                }),
                operation.failed + timed_out);
    }
  }
  bmc.On("GET", kPath).Respond({.delay = std::chrono::milliseconds(200)});
  EXPECT_EQ(client.get(Url(kPath), {}, 0, "", "", "").status_code, 200);
}

TEST_F(HttpTest, UnreachableHostsAndOddUrlsAreFailures) {
  const std::string gone = "https://" + SimulatedBmc().Address();
  EXPECT_EQ(
      FailureOf([&] { return client.get(gone, {}, kTimeoutMs, "", "", ""); }),
      std::string("GET failed: ") + curl_easy_strerror(CURLE_COULDNT_CONNECT));
  for (const char* url : {"", "https://", "https://[::1/", "https://a b/"}) {
    EXPECT_THAT(FailureOf([&] { return client.get(url, {}, 0, "", "", ""); }),
                StartsWith("GET failed: "))
        << url;
  }
}

TEST_F(HttpTest, AFormHoldsTheParametersAndTheFile) {
  AlwaysAnswer({.status = 202});
  const std::string large = std::string(3'000'000, '\0') + "end";
  const std::string json = R"({"Targets":["/a"]})";
  struct Case {
    std::string content, field, parameters, sent_parameters;
  };
  for (const Case& row :
       std::vector<Case>{{large, "firmware", json, json},
                         {"", "UpdateFile", json + '\0' + "x", json},
                         {"x", "UpdateFile", "", ""}}) {
    const std::string file = folder.Write("an image.blx", row.content);
    EXPECT_EQ(Form(file, row.field, row.parameters).status_code, 202);
    std::vector<simulator::FormPart> parts = Received().parts;
    ASSERT_EQ(parts.size(), row.sent_parameters.empty() ? 1 : 2);
    EXPECT_EQ(parts.back().name, row.field);
    EXPECT_EQ(parts.back().filename, "an image.blx");
    EXPECT_EQ(parts.back().content_type, "application/octet-stream");
    EXPECT_TRUE(parts.back().content == row.content);
    if (parts.size() == 1) continue;
    EXPECT_EQ(parts[0].name + parts[0].filename, "UpdateParameters");
    EXPECT_EQ(parts[0].content_type, "application/json");
    EXPECT_EQ(parts[0].content, row.sent_parameters);
  }
}

TEST_F(HttpTest, WhatIsNoReadableFileIsNotSent) {
  AlwaysAnswer({});
  const std::string fifo = folder.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path :
       {folder.path() + "/none", folder.path(), fifo, std::string()}) {
    const std::size_t before = Log().size();
    EXPECT_EQ(FailureOf([&] { Put(path); }),
              "Cannot open file for binary upload: " + path);
    EXPECT_EQ(Log().size(), before);

    const std::string failure = std::string("Multipart POST failed: ") +
                                curl_easy_strerror(CURLE_READ_ERROR);
    EXPECT_EQ(FailureOf([&] { Form(path, "UpdateFile", "{}"); }), failure);
    const std::string url = MaskIP(Url(kPath));
    EXPECT_EQ(Log().back(), "ERROR [http] " + failure + " url=" + url);
    EXPECT_EQ(Log().size(), before + 2);
  }
  EXPECT_THAT(bmc.Requests(), IsEmpty());
}

// The BMC asks for the file once more and changes it before it says so.
TEST_F(HttpTest, AFileThatChangesIsSentAtItsFirstLengthOrNotAtAll) {
  const std::string read_error = curl_easy_strerror(CURLE_READ_ERROR);
  for (const Operation& operation : Operations()) {
    if (operation.file.empty()) continue;
    SCOPED_TRACE(operation.words);
    for (const char* changed : {"firm", "", "firmware, longer"}) {
      std::ofstream(image) << "firmware";
      SimulatedBmc changing({}, {.observer = [&](const auto& /*exchange*/) {
                              std::ofstream(image) << changed;
                            }});
      changing.On(operation.method, kPath)
          .Respond(307, "", {{"Location", kPath}})
          .Then(202);
      const std::string failure = FailureOf([&] {
        operation.run({.url = "https://" + changing.Address() + kPath});
      });
      const auto requests = changing.Requests();
      const bool shorter = std::string(changed).size() < 8;
      EXPECT_EQ(failure, shorter ? operation.failed + read_error : "");
      ASSERT_EQ(requests.size(), shorter ? 1 : 2);
      EXPECT_EQ(requests.front().body_size, requests.back().body_size);
    }
  }
}

}  // namespace
}  // namespace quorvane::test

extern "C" int madvise(void* start, std::size_t size, int advice) noexcept {
  using quorvane::test::has_huge_pages;
  if (advice == MADV_HUGEPAGE) {
    quorvane::test::huge_pages.push_back(
        {static_cast<const char*>(start), size});
    if (!has_huge_pages) {
      errno = EINVAL;
      return -1;
    }
  }
  return static_cast<int>(syscall(SYS_madvise, start, size, advice));
}
