// SPDX-License-Identifier: Apache-2.0
// What the way onto the network promises: the bytes that the BMC receives, what
// is made of its answer, and what a failure says. Over real TLS.
#include <curl/curl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "http/exchange.h"
#include "tests/support/fixture.h"

namespace quorvane::test {
namespace {

using simulator::Fault;
using simulator::Header;
using simulator::RecordedRequest;
using simulator::Reply;
using simulator::SimulatedBmc;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr long kTimeoutMs = 10'000;
constexpr const char* kPath = "/redfish/v1/x";

struct Sent {
  std::string url;
  std::string username = "admin", password = "s3cret", auth_type = "basic";
  Headers headers = {};
  long timeout_ms = kTimeoutMs;
};

// One operation, its words in the log, and what it puts on the wire.
struct Operation {
  const char *method, *words, *details, *failed, *content_type, *body;
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
        {"GET", "GET ", "", "GET failed: ", "", "", calling(&HttpClient::get)},
        {"POST", "POST ", "", "POST failed: ", "text/plain", "body",
         calling(&HttpClient::post, "body", "text/plain")},
        {"POST", "POST ", "", "POST failed: ", json, "{}",
         calling(&HttpClient::post_json, "{}")},
        {"PATCH", "PATCH ", "", "PATCH failed: ", json, "[]",
         calling(&HttpClient::patch_json, "[]")},
        {"PUT", "BINARY FILE UPLOAD ", " file=FILE size=8",
         "Binary file upload failed: ", "application/octet-stream", "firmware",
         calling(&HttpClient::post_binary_file, image)},
        {"POST", "MULTIPART POST ", " file=FILE",
         "Multipart POST failed: ", nullptr, nullptr, [this](const Sent& s) {
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
  Response Put(const std::string& file, const Headers& headers = {}) const {
    return client.post_binary_file(Url(kPath), file, headers, kTimeoutMs, "",
                                   "", "");
  }
  // All methods answer alike.
  void AlwaysAnswer(const Reply& reply) {
    for (const char* method : {"GET", "POST", "PATCH", "PUT"}) {
      bmc.On(method, kPath).Answer(reply);
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
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.words);
    const Response response = operation.run({.url = Url(kPath) + "?a=b%20c:d"});
    EXPECT_EQ(response.status_code, 202);
    EXPECT_EQ(response.body, "ok");
    const RecordedRequest request = Received();
    EXPECT_EQ(request.method, operation.method);
    EXPECT_EQ(request.path, kPath);
    EXPECT_EQ(request.query, "a=b%20c:d");
    EXPECT_EQ(Header(request, "Expect"), "");
    if (operation.body != nullptr) {
      EXPECT_EQ(Header(request, "Content-Type"), operation.content_type);
      EXPECT_EQ(request.body, operation.body);
    }
    std::string details = operation.details;
    if (const auto at = details.find("FILE"); at != std::string::npos) {
      details.replace(at, 4, image);
    }
    const std::vector<std::string> log = Log();
    ASSERT_GE(log.size(), 2);
    EXPECT_EQ(log[log.size() - 2],
              std::string("DEBUG [http] ") + operation.words + url + details);
    EXPECT_EQ(log.back(), std::string("DEBUG [http] ") + operation.words + url +
                              " -> HTTP 202");
  }
  EXPECT_EQ(bmc.Requests().size(), 6);
  EXPECT_EQ(Log().size(), 12);
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

TEST_F(HttpTest, BodiesOfAnySizeAndContentArrive) {
  AlwaysAnswer({});
  for (const std::string& body :
       {std::string(), std::string("a\0b\r\n", 5), std::string(300'000, 'x')}) {
    client.post(Url(kPath), body, "a/b", {}, kTimeoutMs, "", "", "");
    EXPECT_EQ(Received().body, body);
    EXPECT_EQ(Header(Received(), "Content-Length"),
              std::to_string(body.size()));
  }
}

TEST_F(HttpTest, AnswersAreReturnedWhateverTheirStatus) {
  const std::vector<Reply> answers = {
      {.status = 200, .body = std::string("a\0b", 3)},
      {.status = 201, .headers = {{"location", " /t/1 "}}},
      {.status = 204},
      {.status = 400, .body = "{}"},
      {.status = 401},
      {.status = 404,
       .body = "<html>",
       .headers = {{"CONTENT-TYPE", "text/html; charset=x"}}},
      {.status = 500, .body = std::string(2'000'000, 'x')},
      {.status = 503, .headers = {{"Location", "/a"}, {"Location", "/b"}}},
  };
  for (const Reply& answer : answers) {
    AlwaysAnswer(answer);
    for (const Operation& operation : Operations()) {
      const Response response = operation.run({.url = Url(kPath)});
      EXPECT_EQ(response.status_code, answer.status);
      EXPECT_EQ(response.body, answer.body);
      EXPECT_EQ(response.content_type, answer.body.empty() ? ""
                                       : answer.status == 404
                                           ? "text/html; charset=x"
                                           : "application/json");
      EXPECT_EQ(response.location, answer.status == 201   ? "/t/1"
                                   : answer.status == 503 ? "/b"
                                                          : "");
    }
  }
}

TEST(HeaderLine, IsCapturedByItsName) {
  struct Case {
    const char *line, *content_type, *location;
  };
  for (const Case& row : std::vector<Case>{
           {"content-type:application/json\r\n", "application/json", "old"},
           {"CONTENT-TYPE: a; b=\":\" \r \n", "a; b=\":\"", "old"},
           {"Content-Type:   \r\n", "", "old"},
           {"Content-Type:", "", "old"},
           {"Content-Type\r\n", "old", "old"},
           {"Content-Type-Options: x\r\n", "old", "old"},
           {"Location: \t/x\t\r\n", "old", "/x\t"},
           {"LOCATION:https://h/a:b  \r\n", "old", "https://h/a:b"},
           {"Location:\r\n /z\r\n", "old", "\r\n /z"},
           {"Location: \t \r\n", "old", ""},
           {"Location", "old", "old"},
           {" Location: /x\r\n", "old", "old"},
           {"X-Location: /x\r\n", "old", "old"},
           {"HTTP/1.1 200 Location:\r\n", "old", "old"},
           {"\r\n", "old", "old"},
           {"", "old", "old"}}) {
    HeaderCapture capture{.content_type = "old", .location = "old"};
    CaptureHeaderLine(row.line, capture);
    EXPECT_EQ(capture.content_type, row.content_type) << row.line;
    EXPECT_EQ(capture.location, row.location) << row.line;
  }
}

TEST_F(HttpTest, RedirectsKeepThePost) {
  for (const int status : {301, 302, 303, 307, 308}) {
    AlwaysAnswer({.status = status,
                  .body = "moved",
                  .headers = {{"Location", "/new?q"}}});
    for (const char* method : {"GET", "POST", "PATCH", "PUT"}) {
      bmc.On(method, "/new").Answer(201, "final");
    }
    for (const Operation& operation : Operations()) {
      const std::string method = operation.method;
      if (status < 307 && (method == "PUT" || method == "PATCH")) continue;
      SCOPED_TRACE(operation.words + std::to_string(status));
      bmc.ClearRequests();
      const Response response = operation.run({.url = Url(kPath)});
      EXPECT_EQ(response.status_code, 201);
      EXPECT_EQ(response.body, "final");
      EXPECT_EQ(response.location, "/new?q");
      ASSERT_EQ(bmc.Requests().size(), 2);
      EXPECT_EQ(Received().path + '?' + Received().query, "/new?q");
      EXPECT_EQ(Received().method, status == 303 ? "GET" : method);
      EXPECT_NE(Header(Received(), "Authorization"), "");
      if (status == 303) {
        EXPECT_EQ(Received().body, "");
      } else if (operation.body != nullptr) {
        EXPECT_EQ(Received().body, operation.body);
      } else {
        ASSERT_EQ(Received().parts.size(), 1);
        EXPECT_EQ(Received().parts[0].content, "firmware");
      }
    }
  }
}

TEST_F(HttpTest, RedirectsElsewhereCarryNoCredentials) {
  const SimulatedBmc other_host({}, {.bind_address = "127.0.0.2"});
  const SimulatedBmc other_port;
  for (const SimulatedBmc* other : {&other_host, &other_port}) {
    AlwaysAnswer({.status = 307,
                  .headers = {{"Location", "https://" + other->Address() +
                                               "/images/firmware.bin"}}});
    for (const Operation& operation : Operations()) {
      operation.run({.url = Url(kPath)});
      EXPECT_EQ(Header(Received(), "Authorization"), "Basic YWRtaW46czNjcmV0");
    }
    EXPECT_EQ(other->Requests().size(), 6);
    for (const RecordedRequest& request : other->Requests()) {
      EXPECT_EQ(Header(request, "Authorization"), "") << request.method;
    }
  }
}

TEST_F(HttpTest, RedirectsEndAfterThirtyAndStayWithHttp) {
  const Reply again = {.status = 302, .headers = {{"Location", kPath}}};
  auto answers = bmc.On("GET", kPath);
  answers.Answer(again);
  for (int i = 1; i < 30; ++i) answers.Then(again);
  answers.Then(200, "there");
  EXPECT_EQ(Get(kPath).body, "there");

  bmc.ClearRequests();
  answers.Answer(again);
  EXPECT_EQ(FailureOf([&] { Get(kPath); }),
            std::string("GET failed: ") +
                curl_easy_strerror(CURLE_TOO_MANY_REDIRECTS));
  EXPECT_EQ(bmc.Requests().size(), 31);

  const std::string refused = std::string("GET failed: ") +
                              curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL);
  for (const std::string url : {"file:///etc/hostname", "ftp://127.0.0.1:1/",
                                "gopher://127.0.0.1:1/"}) {
    answers.Answer(302, "", {{"Location", url}});
    EXPECT_EQ(FailureOf([&] { Get(kPath); }), refused) << url;
    EXPECT_EQ(FailureOf([&] { client.get(url, {}, kTimeoutMs, "", "", ""); }),
              refused);
  }
}

TEST_F(HttpTest, TheEnvironmentNamesNoProxy) {
  bmc.On("GET", kPath).Answer(200);
  for (const char* variable :
       {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
    setenv(variable, "http://127.0.0.1:1", 1);
    EXPECT_EQ(FailureOf([&] { Get(kPath); }), "") << variable;
    unsetenv(variable);
  }
}

// One line and one exception per failure, of the same words, and neither tells
// the password.
TEST_F(HttpTest, FailuresOfTheTransferAreThrownAndLogged) {
  const std::string url = MaskIP(Url(kPath));
  for (const Fault fault :
       {Fault::kDrop, Fault::kReset, Fault::kCutShort, Fault::kNotHttp}) {
    AlwaysAnswer({.body = std::string(100, 'x'), .fault = fault});
    for (const Operation& operation : Operations()) {
      SCOPED_TRACE(operation.words + std::to_string(static_cast<int>(fault)));
      const std::size_t before = Log("http").size();
      const std::string failure =
          FailureOf([&] { operation.run({.url = Url(kPath)}); });
      EXPECT_THAT(failure, AllOf(StartsWith(operation.failed),
                                 Not(HasSubstr("127.0.0.1"))));
      EXPECT_GT(failure.size(), std::string(operation.failed).size());
      ASSERT_EQ(Log("http").size(), before + 1);
      EXPECT_EQ(Log().back(), "ERROR [http] " + failure + " url=" + url);
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("s3cret")));
}

TEST_F(HttpTest, TheTimeLimitIsOneOfTheWholeTransfer) {
  const std::string timed_out = curl_easy_strerror(CURLE_OPERATION_TIMEDOUT);
  const std::vector<Reply> slow = {
      {.delay = std::chrono::seconds(2)},
      {.body = std::string(100, 'x'), .fault = Fault::kSlowDrip}};
  for (const Reply& reply : slow) {
    AlwaysAnswer(reply);
    for (const Operation& operation : Operations()) {
      EXPECT_EQ(FailureOf([&] {
                  operation.run({.url = Url(kPath), .timeout_ms = 100});
                }),
                operation.failed + timed_out);
    }
  }
  bmc.On("GET", kPath).Answer({.delay = std::chrono::milliseconds(200)});
  EXPECT_EQ(client.get(Url(kPath), {}, 0, "", "", "").status_code, 200);
}

TEST_F(HttpTest, UnreachableHostsAndOddUrlsAreFailures) {
  const std::string gone = "https://" + SimulatedBmc().Address();
  EXPECT_EQ(
      FailureOf([&] { client.get(gone, {}, kTimeoutMs, "", "", ""); }),
      std::string("GET failed: ") + curl_easy_strerror(CURLE_COULDNT_CONNECT));
  for (const char* url : {"", "https://", "https://[::1/", "https://a b/"}) {
    EXPECT_THAT(FailureOf([&] { client.get(url, {}, 1000, "", "", ""); }),
                StartsWith("GET failed: "))
        << url;
  }
}

TEST_F(HttpTest, APasswordInTheUrlIsNotLogged) {
  const std::string host = Url("").substr(std::string("https://").size());
  const std::string url = "https://admin:s3cret@" + host + kPath;
  for (const Fault fault : {Fault::kNone, Fault::kDrop}) {
    AlwaysAnswer({.fault = fault});
    for (const Operation& operation : Operations()) {
      FailureOf([&] { operation.run({.url = url}); });
      EXPECT_THAT(Log().back(), HasSubstr("https://admin:<REDACTED>@" +
                                          MaskIP(host) + kPath));
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("s3cret")));
}

TEST_F(HttpTest, AFormHoldsTheParametersAndTheFile) {
  AlwaysAnswer({.status = 202});
  const std::string large =
      folder.Write("large image.blx", std::string(3'000'000, '\0') + "end");
  struct Case {
    std::string file, name, field, parameters, sent_parameters;
  };
  const std::string json = R"({"Targets":["/a"]})";
  for (const Case& row : std::vector<Case>{
           {image, "image.blx", "UpdateFile", json, json},
           {large, "large image.blx", "firmware", json, json},
           {folder.Write("empty", ""), "empty", "UpdateFile", json, json},
           {image, "image.blx", "UpdateFile", json + '\0' + "x", json},
           {image, "image.blx", "UpdateFile", "", ""}}) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Form(row.file, row.field, row.parameters).status_code, 202);
    const RecordedRequest request = Received();
    EXPECT_THAT(Header(request, "Content-Type"),
                StartsWith("multipart/form-data; boundary="));
    ASSERT_EQ(request.parts.size(), row.sent_parameters.empty() ? 1 : 2);
    const auto& file = request.parts.back();
    EXPECT_EQ(file.name, row.field);
    EXPECT_EQ(file.filename, row.name);
    EXPECT_EQ(file.content_type, "application/octet-stream");
    EXPECT_TRUE(file.content == ReadAll(row.file)) << file.content.size();
    if (request.parts.size() == 1) continue;
    EXPECT_EQ(request.parts[0].name, "UpdateParameters");
    EXPECT_EQ(request.parts[0].filename, "");
    EXPECT_EQ(request.parts[0].content_type, "application/json");
    EXPECT_EQ(request.parts[0].content, row.sent_parameters);
  }
}

TEST_F(HttpTest, ABinaryUploadIsTheBareFile) {
  AlwaysAnswer({.status = 202});
  for (const std::string& content :
       {std::string(), std::string(3'000'000, '\0') + "end"}) {
    const std::string file = folder.Write("any", content);
    EXPECT_EQ(Put(file).status_code, 202);
    EXPECT_TRUE(Received().body == content) << Received().body_size;
    EXPECT_EQ(Header(Received(), "Content-Length"),
              std::to_string(content.size()));
    EXPECT_THAT(Values(Received(), "Transfer-Encoding"), IsEmpty());
    EXPECT_THAT(Log()[Log().size() - 2],
                testing::EndsWith(" file=" + file +
                                  " size=" + std::to_string(content.size())));
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
    if (*operation.details == '\0') continue;
    SCOPED_TRACE(operation.words);
    for (const char* changed : {"firm", "", "firmware, longer"}) {
      std::ofstream(image) << "firmware";
      SimulatedBmc changing({}, {.observer = [&](const auto& /*exchange*/) {
                              std::ofstream(image) << changed;
                            }});
      changing.On(operation.method, kPath)
          .Answer(307, "", {{"Location", kPath}})
          .Then(202);
      const std::string failure = FailureOf([&] {
        operation.run({.url = "https://" + changing.Address() + kPath});
      });
      const auto requests = changing.Requests();
      if (std::string(changed).size() < 8) {
        EXPECT_EQ(failure, operation.failed + read_error);
        EXPECT_EQ(requests.size(), 1);
      } else {
        EXPECT_EQ(failure, "");
        ASSERT_EQ(requests.size(), 2);
        EXPECT_EQ(requests[0].body_size, requests[1].body_size);
      }
    }
  }
}

TEST_F(HttpTest, OneClientServesSeveralThreads) {
  constexpr int kThreads = 4;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    const std::string path = "/thread" + std::to_string(i);
    bmc.On("POST", path).Answer(200, path);
    threads.emplace_back([this, path] {
      for (int n = 0; n < 5; ++n) {
        EXPECT_EQ(
            client.post_json(Url(path), path, {}, kTimeoutMs, "", "", "").body,
            path);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const RecordedRequest& request : bmc.Requests()) {
    EXPECT_EQ(request.body, request.path);
  }
  EXPECT_EQ(bmc.Requests().size(), 20);
}

}  // namespace
}  // namespace quorvane::test
