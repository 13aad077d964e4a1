// SPDX-License-Identifier: Apache-2.0
// HTTP requests over real TLS: the bytes that the BMC receives, the response,
// and the errors.
#include <curl/curl.h>
#include <sys/stat.h>

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

struct Arguments {
  std::string url;
  std::string username = "admin", password = "s3cret", auth_type = "basic";
  Headers headers = {};
  long timeout_ms = kTimeoutMs;
};

// An operation, its log messages, and its request.
struct Operation {
  const char *method, *log_name, *failure, *content_type, *body;
  std::string file_log;  // the file in the log
  std::function<Response(const Arguments&)> run;
};

class HttpTest : public BmcTest {
 protected:
  std::vector<Operation> Operations() const {
    const auto calling = [this](auto operation, auto... what) {
      return [=, this](const Arguments& s) {
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
         " file=" + image, [this](const Arguments& s) {
           return client.post_multipart(s.url, image, "UpdateFile", s.headers,
                                        s.timeout_ms, s.username, s.password,
                                        s.auth_type, "");
         }}};
  }
  Response Get(const std::string& path) const {
    return client.get(Url(path), {}, kTimeoutMs, "", "", "");
  }
  Response PostForm(const std::string& file, const std::string& field,
                    const std::string& parameters) const {
    return client.post_multipart(Url(kPath), file, field, {}, kTimeoutMs, "",
                                 "", "", parameters);
  }
  Response Put(const std::string& file) const {
    return client.post_binary_file(Url(kPath), file, {}, kTimeoutMs, "", "",
                                   "");
  }
  // Sets the response to all methods.
  void SetResponse(const BmcResponse& reply) {
    for (const char* method : {"GET", "POST", "PATCH", "PUT"}) {
      bmc.On(method, kPath).Respond(reply);
    }
  }
  RecordedRequest LastRequest() const { return bmc.Requests().back(); }

  const HttpClient client;
  const std::string image = directory.Write("image.blx", "firmware");
};

// The error that `run` throws; empty without one.
std::string ErrorOf(const std::function<void()>& run) {
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

TEST_F(HttpTest, SendsRequests) {
  SetResponse({.status = 202, .body = "ok"});
  const std::string url = MaskIP(Url(kPath)) + "?a=b%20c:d";
  std::vector<std::string> log;
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.log_name);
    const Response response = operation.run({.url = Url(kPath) + "?a=b%20c:d"});
    EXPECT_EQ(response.status_code, 202);
    EXPECT_EQ(response.body, "ok");
    const RecordedRequest request = LastRequest();
    EXPECT_EQ(request.method + request.path + '?' + request.query,
              operation.method + std::string(kPath) + "?a=b%20c:d");
    EXPECT_EQ(Header(request, "Expect"), "");
    EXPECT_EQ(request.alpn, "http/1.1");
    if (operation.body != nullptr) {
      EXPECT_EQ(Header(request, "Content-Type"), operation.content_type);
      EXPECT_EQ(request.body, operation.body);
    }
    const std::string line = std::string("DEBUG [http] ") + operation.log_name;
    log.push_back(line + url + operation.file_log);
    log.push_back(line + url + " -> HTTP 202");
    EXPECT_EQ(Log(), log);
  }
  EXPECT_EQ(bmc.Requests().size(), 6);
}

TEST_F(HttpTest, SendsCredentialsOnlyForBasic) {
  SetResponse({});
  struct Case {
    const char *username, *type, *of_get, *of_others;
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
      EXPECT_EQ(
          Header(LastRequest(), "Authorization"),
          std::string(operation.method) == "GET" ? row.of_get : row.of_others)
          << operation.log_name << row.username << ' ' << row.type;
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("s3cret")));
}

TEST_F(HttpTest, SendsExtraHeadersInOrder) {
  SetResponse({});
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.log_name);
    operation.run({.url = Url(kPath),
                   .headers = {{"X-A", "1"}, {"Accept", ""}, {"X-A", "2: 3"}}});
    EXPECT_THAT(Values(LastRequest(), "X-A"), ElementsAre("1", "2: 3"));
    EXPECT_THAT(Values(LastRequest(), "Accept"), IsEmpty());
    if (operation.body == nullptr || *operation.body == '\0') continue;
    operation.run({.url = Url(kPath), .headers = {{"content-TYPE", "x/y"}}});
    EXPECT_THAT(Values(LastRequest(), "content-TYPE"), ElementsAre("x/y"));
    EXPECT_THAT(Values(LastRequest(), "Content-Type"), IsEmpty());
  }
}

TEST_F(HttpTest, RejectsHeadersWithLineBreak) {
  for (const auto& [name, value] : Headers{{"X-Break", "a\r\nX-Evil: 1"},
                                           {"X-Break", "a\n"},
                                           {"X-Break", "a\r"},
                                           {"X-Break", std::string("a\0b", 3)},
                                           {"X-Break\nX-Evil", "1"}}) {
    for (const Operation& operation : Operations()) {
      EXPECT_THAT(
          ErrorOf([&, &name = name, &value = value] {
            operation.run({.url = Url(kPath), .headers = {{name, value}}});
          }),
          AllOf(HasSubstr("X-Break"), Not(HasSubstr("\n"))));
    }
  }
  EXPECT_THAT(bmc.Requests(), IsEmpty());
}

TEST_F(HttpTest, SendsBodiesAndFilesOfAnySize) {
  SetResponse({});
  for (const std::string& body : {std::string(), std::string("a\0b\r\n", 5),
                                  std::string(3'000'000, 'x')}) {
    static_cast<void>(
        client.post(Url(kPath), body, "a/b", {}, kTimeoutMs, "", "", ""));
    const RecordedRequest posted = LastRequest();
    Put(directory.Write("any", body));
    for (const RecordedRequest& request : {posted, LastRequest()}) {
      EXPECT_TRUE(request.body == body) << request.body_size;
      EXPECT_EQ(Header(request, "Content-Length"), std::to_string(body.size()));
      EXPECT_THAT(Values(request, "Transfer-Encoding"), IsEmpty());
    }
  }
}

TEST_F(HttpTest, ReturnsResponsesOfEveryStatus) {
  struct Case {
    BmcResponse reply;
    std::string content_type, location;
  };
  const std::string json = "application/json";
  for (const auto& [reply, content_type, location] : std::vector<Case>{
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
    SetResponse(reply);
    for (const Operation& operation : Operations()) {
      const Response response = operation.run({.url = Url(kPath)});
      EXPECT_EQ(response.status_code, reply.status);
      EXPECT_EQ(response.body, reply.body);
      EXPECT_EQ(response.content_type, content_type);
      EXPECT_EQ(response.location, location);
    }
  }
}

// RFC 9112, section 7.1.
TEST_F(HttpTest, ReadsChunkedResponses) {
  SetResponse({.body = "2\r\nab\r\n1;x=y\r\nc\r\n0\r\n\r\n",
               .headers = {{"Transfer-Encoding", "Chunked"}}});
  EXPECT_EQ(Get(kPath).body, "abc");
}

TEST_F(HttpTest, RejectsHarmfulHeaders) {
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
    SetResponse(reply);
    EXPECT_EQ(
        ErrorOf([&] { Get(kPath); }),
        std::string("GET failed: ") + curl_easy_strerror(CURLE_WRITE_ERROR));
    const std::vector<std::string> log = Log("http");
    ASSERT_GE(log.size(), 2);
    EXPECT_EQ(log.at(log.size() - 2), "GET response rejected: " + reason +
                                          " url=" + MaskIP(Url(kPath)));
  }
}

TEST(HeaderLine, IsCapturedByName) {
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

TEST_F(HttpTest, KeepsMethodAfterRedirect) {
  for (const char* method : {"GET", "POST", "PATCH", "PUT"}) {
    bmc.On(method, "/new").Respond(201, "final");
  }
  for (const int status : {301, 302, 303, 307, 308}) {
    SetResponse({status, "moved", {{"Location", "/new?q"}}});
    for (const Operation& operation : Operations()) {
      const std::string method = operation.method;
      if (status < 307 && method == "PUT") continue;
      const bool becomes_get = status == 303 && method != "PATCH";
      SCOPED_TRACE(operation.log_name + std::to_string(status));
      const Response response = operation.run({.url = Url(kPath)});
      EXPECT_EQ(response.status_code, 201);
      EXPECT_EQ(response.body, "final");
      EXPECT_EQ(response.location, "/new?q");
      const RecordedRequest request = LastRequest();
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

TEST_F(HttpTest, SendsNoCredentialsToOtherServers) {
  const SimulatedBmc other_host({}, {.bind_address = "127.0.0.2"});
  const SimulatedBmc other_port;
  for (const SimulatedBmc* other : {&other_host, &other_port}) {
    const std::string there = "https://" + other->Address() + "/image";
    SetResponse({307, "", {{"Location", there}}});
    for (const Operation& operation : Operations()) {
      operation.run({.url = Url(kPath),
                     .headers = {{"X-Auth-Token", "t"}, {"Cookie", "c"}}});
      EXPECT_EQ(Header(LastRequest(), "Authorization"),
                "Basic YWRtaW46czNjcmV0");
      operation.run({.url = "https://u:p@" + bmc.Address() + kPath,
                     .auth_type = "",
                     .headers = {{"X-Auth-Token", "t"}}});
      EXPECT_EQ(Header(LastRequest(), "Authorization"), "Basic dTpw");
      operation.run(
          {.url = Url(kPath),
           .auth_type = "",
           .headers = {{"X-Auth-Token", "t"}, {"authorization", "Bearer b"}}});
      EXPECT_EQ(Header(LastRequest(), "Authorization"), "Bearer b");
    }
    EXPECT_EQ(other->Requests().size(), 18);
    for (const RecordedRequest& request : other->Requests()) {
      EXPECT_EQ(Header(request, "Authorization"), "") << request.method;
      EXPECT_EQ(Header(request, "Cookie"), "") << request.method;
      EXPECT_EQ(Header(request, "X-Auth-Token"), "t") << request.method;
    }
  }
}

TEST_F(HttpTest, LimitsRedirectsToThirtyAndHttp) {
  const BmcResponse again = {.status = 302, .headers = {{"Location", kPath}}};
  auto responses = bmc.On("GET", kPath);
  responses.Respond(again);
  for (int i = 1; i < 30; ++i) responses.Then(again);
  responses.Then(200, "there");
  EXPECT_EQ(Get(kPath).body, "there");

  bmc.ClearRequests();
  responses.Respond(again);
  EXPECT_EQ(ErrorOf([&] { Get(kPath); }),
            std::string("GET failed: ") +
                curl_easy_strerror(CURLE_TOO_MANY_REDIRECTS));
  EXPECT_EQ(bmc.Requests().size(), 31);

  const std::string unsupported =
      std::string("GET failed: ") +
      curl_easy_strerror(CURLE_UNSUPPORTED_PROTOCOL);
  for (const std::string url : {"file:///etc/hostname", "ftp://127.0.0.1:1/",
                                "gopher://127.0.0.1:1/"}) {
    responses.Respond(302, "", {{"Location", url}});
    EXPECT_EQ(ErrorOf([&] { Get(kPath); }), unsupported) << url;
    EXPECT_EQ(
        ErrorOf([&] { return client.get(url, {}, kTimeoutMs, "", "", ""); }),
        unsupported);
  }
}

TEST_F(HttpTest, IgnoresProxyOfEnvironment) {
  bmc.On("GET", kPath).Respond(200);
  for (const char* variable :
       {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
    setenv(variable, "http://127.0.0.1:1", 1);
    EXPECT_EQ(ErrorOf([&] { Get(kPath); }), "") << variable;
    unsetenv(variable);
  }
}

// Each error gives one line and one exception with the same text, without the
// password, even if that is in the URL.
TEST_F(HttpTest, ThrowsAndLogsTransferErrors) {
  const std::string host = bmc.Address();
  const std::string shown =
      " url=https://admin:<REDACTED>@" + MaskIP(host) + kPath;
  for (const Fault fault : {Fault::kDrop, Fault::kCutShort, Fault::kNotHttp}) {
    SetResponse({.body = "cut short", .fault = fault});
    for (const Operation& operation : Operations()) {
      SCOPED_TRACE(operation.log_name +
                   std::to_string(static_cast<int>(fault)));
      const std::size_t before = Log("http").size();
      const std::string failure = ErrorOf([&] {
        operation.run({.url = "https://admin:s3cret@" + host + kPath});
      });
      EXPECT_THAT(failure, StartsWith(operation.failure));
      EXPECT_EQ(Log("http").size(), before + 1);
      EXPECT_EQ(Log().back(), "ERROR [http] " + failure + shown);
    }
  }
  EXPECT_THAT(LogText(), Not(HasSubstr("s3cret")));
}

TEST_F(HttpTest, LimitsTimeOfWholeTransfer) {
  const std::string timed_out = curl_easy_strerror(CURLE_OPERATION_TIMEDOUT);
  for (const BmcResponse& reply : std::vector<BmcResponse>{
           {.delay = std::chrono::seconds(2)},
           {.body = std::string(100, 'x'), .fault = Fault::kSlowDrip}}) {
    SetResponse(reply);
    for (const Operation& operation : Operations()) {
      EXPECT_EQ(ErrorOf([&] {
                  operation.run({.url = Url(kPath), .timeout_ms = 100});
                }),
                operation.failure + timed_out);
    }
  }
  bmc.On("GET", kPath).Respond({.delay = std::chrono::milliseconds(200)});
  EXPECT_EQ(client.get(Url(kPath), {}, 0, "", "", "").status_code, 200);
}

TEST_F(HttpTest, SendsParametersAndFileInForm) {
  SetResponse({.status = 202});
  const std::string large = std::string(3'000'000, '\0') + "end";
  const std::string json = R"({"Targets":["/a"]})";
  struct Case {
    std::string content, field, parameters, sent_parameters;
  };
  for (const Case& row :
       std::vector<Case>{{large, "firmware", json, json},
                         {"", "UpdateFile", json + '\0' + "x", json},
                         {"x", "UpdateFile", "", ""}}) {
    const std::string file = directory.Write("an image.blx", row.content);
    EXPECT_EQ(PostForm(file, row.field, row.parameters).status_code, 202);
    std::vector<simulator::FormPart> parts = LastRequest().parts;
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

TEST_F(HttpTest, RejectsUnreadableFiles) {
  SetResponse({});
  const std::string fifo = directory.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path :
       {directory.path() + "/none", directory.path(), fifo, std::string()}) {
    const std::size_t before = Log().size();
    EXPECT_EQ(ErrorOf([&] { Put(path); }),
              "Cannot open file for binary upload: " + path);
    EXPECT_EQ(Log().size(), before);

    const std::string failure = std::string("Multipart POST failed: ") +
                                curl_easy_strerror(CURLE_READ_ERROR);
    EXPECT_EQ(ErrorOf([&] { PostForm(path, "UpdateFile", "{}"); }), failure);
    const std::string url = MaskIP(Url(kPath));
    EXPECT_EQ(Log().back(), "ERROR [http] " + failure + " url=" + url);
    EXPECT_EQ(Log().size(), before + 2);
  }
  EXPECT_THAT(bmc.Requests(), IsEmpty());
}

// The file changes before the BMC redirects the upload.
TEST_F(HttpTest, SendsChangedFileAtOriginalLengthOrFails) {
  const std::string read_error = curl_easy_strerror(CURLE_READ_ERROR);
  for (const Operation& operation : Operations()) {
    if (operation.file_log.empty()) continue;
    SCOPED_TRACE(operation.log_name);
    for (const char* changed : {"firm", "", "firmware, longer"}) {
      std::ofstream(image) << "firmware";
      SimulatedBmc changing({}, {.observer = [&](const auto& /*exchange*/) {
                              std::ofstream(image) << changed;
                            }});
      changing.On(operation.method, kPath)
          .Respond(307, "", {{"Location", kPath}})
          .Then(202);
      const std::string failure = ErrorOf([&] {
        operation.run({.url = "https://" + changing.Address() + kPath});
      });
      const auto requests = changing.Requests();
      const bool shorter = std::string(changed).size() < 8;
      EXPECT_EQ(failure, shorter ? operation.failure + read_error : "");
      ASSERT_EQ(requests.size(), shorter ? 1 : 2);
      EXPECT_EQ(requests.front().body_size, requests.back().body_size);
    }
  }
}

}  // namespace
}  // namespace quorvane::test
