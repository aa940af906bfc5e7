// Transfers against nginx, plain and over TLS, and against peers that misbehave on purpose.
#include <QSbase/net/http.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <common/curlmemory.h>
#include <common/tempdir.h>
#include <integration/common/scriptedserver.h>
#include <integration/common/server.h>
#include <integration/common/transfer.h>

using namespace qsbase::testing;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

using Clock = std::chrono::steady_clock;

class Libcurl : public ::testing::Environment {
 public:
  void SetUp() override {
    InitQsInetHttp(1);
    QsInitOpenSSLSynchronization();
  }
  void TearDown() override {
    QsDeinitOpenSSLSynchronization();
    InitQsInetHttp(2);
  }
};
const ::testing::Environment* const libcurl = ::testing::AddGlobalTestEnvironment(new Libcurl);

void Collect(const char* text, void* user) { static_cast<std::vector<std::string>*>(user)->push_back(text); }

const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

// What the only request of a scripted peer looked like.
std::string Sent(const QsInetHttpRequest& request, const std::string& path = "/") {
  ScriptedServer server(ok);
  QsInetHttpRequest copy = request;
  copy.url = server.Url(path);
  const Outcome outcome = Fetch(copy);
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "ok");
  const std::vector<std::string> requests = server.Requests();
  EXPECT_EQ(requests.size(), 1u);
  std::string sent = requests.empty() ? "" : requests[0];
  const std::size_t host = sent.find(server.Host());
  return host == std::string::npos ? sent : sent.replace(host, server.Host().size(), "HOST");
}

Outcome Answered(const std::string& answer) {
  ScriptedServer server(answer);
  return Fetch(server.Url());
}

}  // namespace

// ---- on the wire ----

TEST(HttpWire, PlainGetIsExactlyThis) {
  EXPECT_EQ(Sent({}, "/p?q"), "GET /p?q HTTP/1.1\r\nHost: HOST\r\nAccept: */*\r\n\r\n");
}

TEST(HttpWire, GetSendsNoExtraHeaders) {
  QsInetHttpRequest request;
  request.extraHeaders = "X-One: 1\r\nX-Two: 2";
  EXPECT_EQ(Sent(request), "GET / HTTP/1.1\r\nHost: HOST\r\nAccept: */*\r\n\r\n");
}

TEST(HttpWire, UserAgentOnlyWhenGiven) {
  QsInetHttpRequest request;
  request.userAgent = "agent/1.0";
  EXPECT_THAT(Sent(request), HasSubstr("\r\nUser-Agent: agent/1.0\r\n"));
}

TEST(HttpWire, PostSendsExtraHeaders) {
  QsInetHttpRequest request;
  request.postData = "a=1";
  request.extraHeaders = "X-One: 1\r\nContent-Type: text/plain\r\n\r\nX-Two: 2\r\n";
  const std::string sent = Sent(request);
  EXPECT_THAT(sent, StartsWith("POST / HTTP/1.1\r\n"));
  EXPECT_THAT(sent, HasSubstr("\r\nX-One: 1\r\nContent-Type: text/plain\r\nX-Two: 2\r\n"));
  EXPECT_THAT(sent, HasSubstr("\r\nContent-Length: 3\r\n"));
  EXPECT_THAT(sent, HasSubstr("\r\n\r\na=1"));
  EXPECT_THAT(sent, Not(HasSubstr("Expect")));
  EXPECT_THAT(sent, Not(HasSubstr("Pragma")));
}

TEST(HttpWire, PostDropsContentLengthInExactlyThisCase) {
  QsInetHttpRequest request;
  request.postData = "abc";
  request.extraHeaders = "Content-Length: 1\r\nX-Content-Length: 2\r\nX-One: 1";
  const std::string sent = Sent(request);
  EXPECT_THAT(sent, Not(HasSubstr("Content-Length: 1")));
  EXPECT_THAT(sent, Not(HasSubstr("X-Content-Length")));
  EXPECT_THAT(sent, HasSubstr("\r\nContent-Length: 3\r\n"));
  EXPECT_THAT(sent, HasSubstr("\r\nX-One: 1\r\n"));
}

TEST(HttpWire, PostKeepsLowerCaseContentLength) {
  QsInetHttpRequest request;
  request.postData = "abc";
  request.extraHeaders = "content-length: 3";
  EXPECT_THAT(Sent(request), HasSubstr("\r\ncontent-length: 3\r\n"));
}

TEST(HttpWire, PostBodyHoldsAnyBytes) {
  QsInetHttpRequest request;
  request.postData = std::string("\0a\r\n\0\xFF", 6);
  EXPECT_THAT(Sent(request), HasSubstr("\r\n\r\n" + request.postData));
}

TEST(HttpWire, LargePostArrivesWhole) {
  QsInetHttpRequest request;
  request.postData = Noise(5 * 1024 * 1024);
  const std::string sent = [&] {
    ScriptedServer server(ok);
    request.url = server.Url();
    EXPECT_TRUE(Fetch(request).result);
    return server.Requests().at(0);
  }();
  const std::size_t end = sent.find("\r\n\r\n");
  ASSERT_NE(end, std::string::npos);
  EXPECT_TRUE(sent.substr(end + 4) == request.postData);
  EXPECT_THAT(sent.substr(0, end), Not(HasSubstr("Expect")));
}

TEST(HttpWire, UserAloneAndUserWithPassword) {
  QsInetHttpRequest request;
  request.httpUser = "u";
  EXPECT_THAT(Sent(request), HasSubstr("\r\nAuthorization: Basic dTo=\r\n"));  // "u:"
  request.httpPassword = "p";
  EXPECT_THAT(Sent(request), HasSubstr("\r\nAuthorization: Basic dTpw\r\n"));  // "u:p"
  request.httpUser.clear();
  EXPECT_THAT(Sent(request), Not(HasSubstr("Authorization")));
}

TEST(HttpWire, ResumeAsksForTheRest) {
  QsInetHttpRequest request;
  request.resume = true;
  EXPECT_THAT(Sent(request), Not(HasSubstr("Range")));
  ScriptedServer server(
      "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 4294967295-4294967295/4294967296\r\n"
      "Content-Length: 1\r\n\r\nx");
  request.url = server.Url();
  request.resumeFrom = 0xFFFFFFFFu;
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 206);
  EXPECT_EQ(outcome.response.body, "x");
  EXPECT_THAT(server.Requests(), ElementsAre(HasSubstr("\r\nRange: bytes=4294967295-\r\n")));
  request.resume = false;
  EXPECT_THAT(Sent(request), Not(HasSubstr("Range")));
}

// libcurl would take the bytes before the offset from the standard input, and wait for them.
TEST(HttpWire, PostWithAnOffsetLeavesTheStandardInputAlone) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "abcdefgh", 8), 8);
  ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  ScriptedServer server(ok);
  QsInetHttpRequest request = Get(server.Url());
  request.postData = "0123456789";
  request.resume = true;
  request.resumeFrom = 3;
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 26);
  EXPECT_EQ(std::getchar(), 'a');
  request.resumeFrom = 0;
  EXPECT_TRUE(Fetch(request).result);
  EXPECT_THAT(server.Requests().back(), ::testing::EndsWith("\r\n\r\n0123456789"));
}

TEST(HttpWire, ProxyOf255CharactersIsTried) {
  ScriptedServer proxy(ok);
  QsInetHttpRequest request = Get("http://origin.invalid/x");
  request.proxyServer = "http://" + proxy.Host() + "/";
  request.proxyServer.append(255 - request.proxyServer.size(), 'a');
  request.proxyUser = "u";
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "ok");
  ASSERT_EQ(proxy.Requests().size(), 1u);
  EXPECT_THAT(proxy.Requests()[0], StartsWith("GET http://origin.invalid/x HTTP/1.1\r\n"));
  EXPECT_THAT(proxy.Requests()[0], HasSubstr("\r\nProxy-Authorization: Basic dTo=\r\n"));
  request.proxyServer += 'a';
  EXPECT_EQ(Fetch(request).response.curlCode, -3);
  EXPECT_EQ(proxy.Requests().size(), 1u);
}

TEST(HttpWire, EnvironmentNamesNoProxy) {
  const Socket closed = BoundSocket();
  const std::string proxy = "http://127.0.0.1:" + std::to_string(PortOf(closed));
  for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "all_proxy", "ALL_PROXY"}) {
    setenv(name, proxy.c_str(), 1);
  }
  EXPECT_THAT(Sent({}), StartsWith("GET / HTTP/1.1\r\n"));
}

TEST(HttpWire, EnvironmentExemptsNoHostFromTheProxy) {
  setenv("no_proxy", "*", 1);
  setenv("NO_PROXY", "*", 1);
  ScriptedServer proxy(ok);
  QsInetHttpRequest request = Get("http://127.0.0.1:1/");
  request.proxyServer = proxy.Host();
  EXPECT_TRUE(Fetch(request).result);
  EXPECT_THAT(proxy.Requests(), ElementsAre(StartsWith("GET http://127.0.0.1:1/ HTTP/1.1\r\n")));
}

TEST(HttpWire, TcpNoDelayIsTaken) {
  QsInetHttpRequest request;
  request.tcpNoDelay = 2;
  EXPECT_THAT(Sent(request), StartsWith("GET / "));
}

// ---- the status ----

TEST(HttpAnswer, StatusAfterA100IsReadOnceMore) {
  EXPECT_EQ(Answered("HTTP/1.1 100 Continue\r\n\r\n" + ok).response.httpCode, 200);
  const Outcome twice = Answered("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 100 Continue\r\n\r\n" + ok);
  EXPECT_TRUE(twice.result);
  EXPECT_EQ(twice.response.httpCode, 100);
  EXPECT_EQ(twice.response.body, "ok");
}

TEST(HttpAnswer, HeadersHoldEveryBlockAsReceived) {
  const Outcome outcome = Answered("HTTP/1.1 100 Continue\r\nX: 1\r\n\r\nHTTP/1.1 200 Fine\r\nY:2\r\n\r\nbody");
  EXPECT_EQ(outcome.response.headers, "HTTP/1.1 100 Continue\r\nX: 1\r\n\r\nHTTP/1.1 200 Fine\r\nY:2\r\n\r\n");
  EXPECT_EQ(outcome.response.body, "body");
  EXPECT_EQ(outcome.response.contentLength, 4u);
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.curlCode, 0);
  EXPECT_EQ(outcome.response.errorText, "");
}

TEST(HttpAnswer, Status500IsWorthARetry) {
  const Outcome outcome = Answered("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 500);
  EXPECT_TRUE(outcome.response.retryable);
}

TEST(HttpAnswer, OtherStatusesAreNot) {
  for (const int status : {400, 401, 404, 416, 501, 503}) {
    const Outcome outcome = Answered("HTTP/1.1 " + std::to_string(status) + " No\r\nContent-Length: 2\r\n\r\nno");
    EXPECT_TRUE(outcome.result) << status;
    EXPECT_EQ(outcome.response.httpCode, status);
    EXPECT_EQ(outcome.response.body, "no");
    EXPECT_FALSE(outcome.response.retryable) << status;
  }
}

TEST(HttpAnswer, RedirectionIsNotFollowed) {
  ScriptedServer server("HTTP/1.1 302 Found\r\nLocation: /other\r\nContent-Length: 0\r\n\r\n");
  const Outcome outcome = Fetch(server.Url());
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 302);
  EXPECT_EQ(server.Requests().size(), 1u);
}

TEST(HttpAnswer, ChunkedBodyIsJoined) {
  const std::string nul(1, '\0');
  const Outcome outcome = Answered("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n1;x=y\r\n" + nul +
                                   "\r\n2\r\nde\r\n0\r\n\r\n");
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "abc" + nul + "de");
  EXPECT_EQ(outcome.response.contentLength, 6u);
}

TEST(HttpAnswer, EmptyBody) {
  const Outcome outcome = Answered("HTTP/1.1 204 No Content\r\nContent-Length: 0\r\n\r\n");
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 204);
  EXPECT_EQ(outcome.response.body, "");
  EXPECT_EQ(outcome.response.contentLength, 0u);
}

TEST(HttpAnswer, ContentLengthOfTheHeaderDoesNotCountForABodyInMemory) {
  const Outcome outcome = Answered("HTTP/1.1 404 No\r\nX-Content-Length: 99\r\nContent-Length: 2\r\n\r\nno");
  EXPECT_EQ(outcome.response.contentLength, 2u);
}

TEST(HttpAnswer, OddLengthsDoNotMislead) {
  for (const char* length : {"+2", "    2", "2abc", "999999999999999999999999999999", "0x2"}) {
    const Outcome outcome = Answered(std::string("HTTP/1.1 200 OK\r\nX-Content-Length: ") + length + "\r\n\r\nok");
    EXPECT_TRUE(outcome.result) << length;
    EXPECT_EQ(outcome.response.contentLength, 2u) << length;
    EXPECT_EQ(outcome.response.body, "ok") << length;
  }
  const Outcome negative = Answered("HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nok");
  EXPECT_FALSE(negative.result);
  EXPECT_EQ(negative.response.httpCode, 0);
}

TEST(HttpAnswer, NulInAHeaderCutsNothingOff) {
  const Outcome outcome =
      Answered("HTTP/1.1 200 OK\r\nX: a" + std::string(1, '\0') + "b\r\nContent-Length: 2\r\n\r\nok");
  EXPECT_EQ(outcome.result, outcome.response.body == "ok") << "libcurl's versions refuse it or pass it on";
}

// ---- into a stream ----

TEST(HttpOutputFile, GetsTheBody) {
  const TempDir dir;
  const std::string body = Noise(300000);
  ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 300000\r\n\r\n" + body);
  QsInetHttpRequest request = Get(server.Url());
  const FilePtr file = OpenFile(dir / "out", "wb");
  request.outputFile = file.get();
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.body, "");
  EXPECT_EQ(outcome.response.contentLength, 300000u);
  EXPECT_TRUE(TempDir::Read(dir / "out") == body) << "flushed while the stream is still open";
}

TEST(HttpOutputFile, AnnouncedLengthsAreTheFirstAndSaturate) {
  const struct {
    const char* lines;
    std::uint32_t length;
  } rows[] = {
      {"X: y\r\n", 0},
      {"X-Content-Length: 99\r\nContent-Length: 2\r\n", 99},
      {"content-length: 2\r\n", 2},
      {"X-Content-Length: 4294967297\r\n", 2147483647},
      {"X-Content-Length: -1\r\n", 0},
  };
  for (const auto& row : rows) {
    const TempDir dir;
    ScriptedServer server(std::string("HTTP/1.1 200 OK\r\n") + row.lines + "\r\nab");
    QsInetHttpRequest request = Get(server.Url());
    const FilePtr file = OpenFile(dir / "out", "wb");
    request.outputFile = file.get();
    const Outcome outcome = Fetch(request);
    EXPECT_TRUE(outcome.result) << row.lines;
    EXPECT_EQ(outcome.response.contentLength, row.length) << row.lines;
    EXPECT_EQ(TempDir::Read(dir / "out"), "ab");
  }
}

TEST(HttpOutputFile, FailedWriteEndsTheTransfer) {
  const TempDir dir;
  ScriptedServer server(ok);
  QsInetHttpRequest request = Get(server.Url());
  const FilePtr file = OpenFile(dir.Write("in", "x"), "rb");
  request.outputFile = file.get();
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 23);
  EXPECT_FALSE(outcome.response.retryable);
  EXPECT_EQ(outcome.response.contentLength, 2u) << "the header counts after a failure too";
}

// The stream keeps few bytes in its buffer, where the write does not fail but the flush.
TEST(HttpOutputFile, FullDisk) {
  for (const std::size_t size : {std::size_t{2}, std::size_t{100000}}) {
    ScriptedServer server("HTTP/1.1 200 OK\r\n\r\n" + std::string(size, 'x'));
    QsInetHttpRequest request = Get(server.Url());
    const FilePtr file = OpenFile("/dev/full", "wb");
    request.outputFile = file.get();
    const Outcome outcome = Fetch(request);
    EXPECT_EQ(outcome.response.curlCode, size == 2 ? 0 : 23);
    EXPECT_NE(std::ferror(file.get()), 0);
  }
}

// ---- broken peers ----

TEST(HttpBroken, BodyCutShortIsATrueResult) {
  const Outcome outcome = Answered("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 18);
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.body, "0123456789");
  EXPECT_EQ(outcome.response.contentLength, 10u);
  EXPECT_FALSE(outcome.response.retryable);
}

// libcurl gives 0 where no length has been announced yet; only the missing empty line tells.
TEST(HttpBroken, HeadersCutShortAreATrueResult) {
  for (const char* answer : {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nX: y\r\nContent-Le"}) {
    const Outcome outcome = Answered(answer);
    EXPECT_TRUE(outcome.result) << answer;
    EXPECT_EQ(outcome.response.curlCode, 0) << answer;
    EXPECT_EQ(outcome.response.httpCode, 200) << answer;
    EXPECT_EQ(outcome.response.headers.find("\r\n\r\n"), std::string::npos) << answer;
    EXPECT_EQ(outcome.response.body, "") << answer;
  }
}

TEST(HttpBroken, MoreLinesBehindTheBodyThanAreKept) {
  const std::string begin = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  std::string lines;
  for (int i = 0; i < 1000; ++i) {
    lines += "X: " + std::string(1000, 'y') + "\r\n";
  }
  const Outcome outcome = Answered(begin + "2\r\nok\r\n0\r\n" + lines + "\r\n");
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 0);
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.body, "ok");
  EXPECT_EQ(outcome.response.headers, (begin + lines).substr(0, std::size_t{512} << 10));
}

// These are the 17 bytes of a gzip stream of "ok" without its end; libcurl would hand over "ok", if not much more.
TEST(HttpBroken, NoCodingIsUndoneThatNobodyAskedFor) {
  const std::string coded("\x1F\x8B\x08\0\0\0\0\0\0\x03\xCB\xCF\x06\0\x47\xDD\xDC", 17);
  for (const char* header : {"Content-Encoding: gzip", "Transfer-Encoding: gzip", "Transfer-Encoding: gzip, chunked"}) {
    const bool chunked = std::string(header).find("chunked") != std::string::npos;
    const Outcome outcome = Answered("HTTP/1.1 200 OK\r\n" + std::string(header) + "\r\n\r\n" +
                                     (chunked ? "11\r\n" : "") + coded + (chunked ? "\r\n0\r\n\r\n" : ""));
    EXPECT_TRUE(outcome.result) << header << outcome.response.errorText;
    EXPECT_EQ(outcome.response.body, coded) << header;
  }
}

TEST(HttpBroken, ResetInTheBodyKeepsWhatArrived) {
  std::atomic<bool> arrived{false};
  ScriptedServer server([&arrived](Connection& connection) {
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123456789");
    for (int tries = 0; tries < 2000 && !arrived; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    connection.Reset();
  });
  // The headers and the body came in one piece: when the last header line has been seen, the client holds all of it.
  const auto seen = [](const char* text, void* user) {
    if (std::string(text).find("\r\n\r\n") != std::string::npos) {
      *static_cast<std::atomic<bool>*>(user) = true;
    }
  };
  Outcome outcome;
  outcome.result = QsInetHttp(Get(server.Url()), outcome.response, seen, &arrived, nullptr, nullptr, 0);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 56);
  EXPECT_TRUE(outcome.response.retryable);
  EXPECT_FALSE(outcome.response.hostNotFound);
  EXPECT_EQ(outcome.response.httpCode, 0);
  EXPECT_THAT(outcome.response.headers, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_EQ(outcome.response.body, "0123456789");
  EXPECT_EQ(outcome.response.contentLength, 10u);
  EXPECT_NE(outcome.response.errorText, "");
}

TEST(HttpBroken, NoAnswerAtAll) {
  const Outcome outcome = Answered("");
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 52);
  EXPECT_FALSE(outcome.response.retryable);
  EXPECT_EQ(outcome.response.headers, "");
}

TEST(HttpBroken, GarbageInsteadOfAStatusLine) {
  for (const std::string& answer :
       {std::string("garbage\r\n\r\n"), std::string("\0\0\0\0\0\0\0\0", 8), std::string(100000, 'x')}) {
    const Outcome outcome = Answered(answer);
    EXPECT_FALSE(outcome.result);
    EXPECT_THAT(outcome.response.curlCode, AnyOf(1, 8)) << "depends on libcurl's version";
    EXPECT_EQ(outcome.response.httpCode, 0);
    EXPECT_EQ(outcome.response.body, "");
  }
}

TEST(HttpBroken, HeaderLineOfAMegabyteFails) {
  const Outcome outcome = Answered("HTTP/1.1 200 OK\r\nX: " + std::string(1 << 20, 'x') + "\r\n\r\n");
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 0);
}

TEST(HttpBroken, ManyHeaderLinesAreGathered) {
  std::string lines;
  for (int line = 0; line < 1000; ++line) {
    lines += "X-" + std::to_string(line) + ": " + std::string(100, 'x') + "\r\n";
  }
  const Outcome outcome = Answered("HTTP/1.1 200 OK\r\n" + lines + "\r\n");
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.headers, "HTTP/1.1 200 OK\r\n" + lines + "\r\n");
}

TEST(HttpBroken, ShortHeaderLinesAreReadAtOnce) {
  std::string lines;
  for (int line = 0; line < 30000; ++line) {
    lines += "a:\r\n";
  }
  ScriptedServer server("HTTP/1.1 200 OK\r\n" + lines + "Content-Length: 2\r\n\r\nok");
  const auto start = Clock::now();
  const Outcome outcome = Fetch(server.Url());
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "ok");
}

TEST(HttpBroken, BrokenChunkSizeFails) {
  const Outcome outcome = Answered("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n0\r\n\r\n");
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.body, "");
}

TEST(HttpBroken, ConnectionRefused) {
  const Socket closed = BoundSocket();
  const Outcome outcome = Fetch("http://127.0.0.1:" + std::to_string(PortOf(closed)) + "/");
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 7);
  EXPECT_TRUE(outcome.response.retryable);
  EXPECT_FALSE(outcome.response.hostNotFound);
  EXPECT_EQ(outcome.response.httpCode, 0);
  EXPECT_THAT(outcome.response.errorText, HasSubstr("127.0.0.1"));
  EXPECT_THAT(outcome.response.errorText, HasSubstr("; "));
  EXPECT_THAT(outcome.response.errorText, Not(HasSubstr("\n")));
}

// A label of more than 63 characters is no host name: the lookup fails without asking anybody.
TEST(HttpBroken, HostNotFound) {
  const Outcome outcome = Fetch("http://" + std::string(64, 'x') + ".invalid/");
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 6);
  EXPECT_TRUE(outcome.response.hostNotFound);
  EXPECT_TRUE(outcome.response.retryable);
}

TEST(HttpBroken, ProxyNotFound) {
  QsInetHttpRequest request = Get("http://127.0.0.1:1/");
  request.proxyServer = std::string(64, 'x') + ".invalid:3128";
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 5);
  EXPECT_TRUE(outcome.response.hostNotFound);
  EXPECT_TRUE(outcome.response.retryable);
}

TEST(HttpBroken, PlainPeerAtAnHttpsUrl) {
  ScriptedServer server([](Connection& connection) { connection.Send("HTTP/1.1 400 Bad\r\n\r\n"); }, false);
  const Outcome outcome = Fetch("https://" + server.Host() + "/");
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 35);
  EXPECT_TRUE(outcome.response.retryable);
}

// A listener whose queue is full lets further connections hang.
TEST(HttpBroken, ConnectTimeout) {
  const Socket listener = BoundSocket();
  ASSERT_EQ(listen(listener.Get(), 0), 0);
  std::vector<Socket> waiting;
  for (int count = 0; count < 8; ++count) {
    waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in address = LoopbackAddress(PortOf(listener));
    static_cast<void>(connect(waiting.back().Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }
  QsInetHttpRequest request = Get("http://127.0.0.1:" + std::to_string(PortOf(listener)) + "/");
  request.connectTimeout = 1;
  const auto start = Clock::now();
  const Outcome outcome = Fetch(request);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(15));
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 28);
  EXPECT_TRUE(outcome.response.retryable);
}

// ---- callbacks ----

namespace {

ScriptedServer::Script EndlessTrickle() {
  return [](Connection& connection) {
    connection.Send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.Send("x")) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  };
}

std::atomic<int> plainChecks{0};
bool PlainCheckThatStops() { return ++plainChecks > 3; }
bool PlainCheckThatGoesOn() {
  ++plainChecks;
  return false;
}

}  // namespace

TEST(HttpCallbacks, AbortEndsAnEndlessTransfer) {
  ScriptedServer server(EndlessTrickle());
  int asked = 0;
  const auto check = [](void* user) { return ++*static_cast<int*>(user) > 20; };
  QsInetHttpResponse response;
  EXPECT_FALSE(QsInetHttp(Get(server.Url()), response, nullptr, nullptr, check, &asked, 0));
  EXPECT_EQ(response.curlCode, 42);
  EXPECT_EQ(asked, 21);
  EXPECT_FALSE(response.retryable);
  EXPECT_EQ(response.httpCode, 0);
}

TEST(HttpCallbacks, AbortEndsTheWaitForAnAnswer) {
  ScriptedServer server([](Connection& connection) { connection.WaitForClose(); });
  int asked = 0;
  const auto check = [](void* user) { return ++*static_cast<int*>(user) > 5; };
  QsInetHttpResponse response;
  const auto start = Clock::now();
  EXPECT_FALSE(QsInetHttp(Get(server.Url()), response, nullptr, nullptr, check, &asked, 0));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(response.curlCode, 42);
  EXPECT_EQ(response.headers, "");
}

TEST(HttpCallbacks, PlainAbortCheck) {
  ScriptedServer server(EndlessTrickle());
  QsInetHttpResponse response;
  EXPECT_FALSE(QsInetHttp(Get(server.Url()), response, nullptr, nullptr, &PlainCheckThatStops, 0));
  EXPECT_EQ(response.curlCode, 42);
  EXPECT_EQ(plainChecks, 4);
  ScriptedServer answering(ok);
  plainChecks = 0;
  EXPECT_TRUE(QsInetHttp(Get(answering.Url()), response, nullptr, nullptr, &PlainCheckThatGoesOn, 0));
  EXPECT_GT(plainChecks, 0);
  EXPECT_EQ(response.body, "ok");
}

TEST(HttpCallbacks, ExceptionOfTheAbortCheckReachesTheCaller) {
  ScriptedServer server(EndlessTrickle());
  QsInetHttpResponse response;
  const auto check = [](void*) -> bool { throw std::runtime_error("stop"); };
  EXPECT_THROW(QsInetHttp(Get(server.Url()), response, nullptr, nullptr, check, nullptr, 0), std::runtime_error);
  EXPECT_EQ(response.curlCode, 42);
}

TEST(HttpCallbacks, ExceptionOfTheTextCallbackReachesTheCaller) {
  ScriptedServer server(EndlessTrickle());
  QsInetHttpResponse response;
  const auto text = [](const char*, void*) { throw std::runtime_error("stop"); };
  EXPECT_THROW(QsInetHttp(Get(server.Url()), response, text, nullptr, nullptr, nullptr, 0), std::runtime_error);
  EXPECT_EQ(response.curlCode, 23);
  EXPECT_EQ(response.headers, "HTTP/1.1 200 OK\r\n");
  EXPECT_TRUE(Answered(ok).result) << "nothing is left behind";
}

TEST(HttpCallbacks, TextCallbackFollowsTheHeaders) {
  ScriptedServer server(ok);
  std::vector<std::string> texts;
  QsInetHttpResponse response;
  EXPECT_TRUE(QsInetHttp(Get(server.Url()), response, &Collect, &texts, nullptr, nullptr, 0));
  const std::string first = "HTTP/1.1 200 OK\r\n";
  const std::string second = first + "Content-Length: 2\r\n";
  EXPECT_THAT(texts, ElementsAre(first, second, second + "\r\n"));
}

TEST(HttpCallbacks, TextCallbackGetsTheErrorTextLast) {
  std::vector<std::string> texts;
  QsInetHttpResponse response;
  const Socket closed = BoundSocket();
  const std::string url = "http://127.0.0.1:" + std::to_string(PortOf(closed)) + "/";
  EXPECT_FALSE(QsInetHttp(Get(url), response, &Collect, &texts, nullptr, nullptr, 0));
  EXPECT_THAT(texts, ElementsAre(HasSubstr("127.0.0.1")));
}

TEST(HttpCallbacks, StatusLinesOfASlowBody) {
  ScriptedServer server([](Connection& connection) {
    connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n");
    for (int byte = 0; byte < 50; ++byte) {
      connection.Send("x");
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  });
  std::vector<std::string> texts;
  QsInetHttpResponse response;
  const auto start = Clock::now();
  EXPECT_TRUE(QsInetHttp(Get(server.Url()), response, &Collect, &texts, nullptr, nullptr, 1));
  const auto passed = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
  EXPECT_EQ(response.body, std::string(50, 'x'));
  int lines = 0;
  for (const std::string& text : texts) {
    if (text[0] != 'D') {
      continue;
    }
    ++lines;
    int held = 0;
    double speed = 0;
    double percent = 0;
    const char* format = "D Downloaded: %d\tTotal size: 50\tDownload Speed: %lf\tDownload finished: %lf";
    ASSERT_EQ(std::sscanf(text.c_str(), format, &held, &speed, &percent), 3) << text;
    EXPECT_EQ(percent, 2.0 * held) << text;
    EXPECT_LT(speed, 0.02) << text;
  }
  EXPECT_GE(lines, 2);
  EXPECT_LE(lines, passed / 2 + 2) << "one every two seconds and the last one";
}

// ---- nginx ----

namespace {

class HttpNginx : public ::testing::Test {
 protected:
  HttpNginx()
      : _big(Noise(3 * 1024 * 1024 + 17)),
        _nginx((Prepare(_dir, _big), _dir), "location /private/ { auth_basic closed; auth_basic_user_file " +
                                                (_dir / "users") + "; }\nlocation /whole/ { alias " + _dir.Path() +
                                                "/www/; max_ranges 0; }\nlocation /broken { return 500; }\n"
                                                "location /closing/ { client_max_body_size 0; lingering_close off; "
                                                "return 444; }\n"
                                                "location /slow/ { alias " +
                                                _dir.Path() + "/www/; limit_rate 600k; }\n") {}

  static void Prepare(const TempDir& dir, const std::string& big) {
    dir.Write("www/big.bin", big);
    dir.Write("www/private/file", "secret");
    RunTool(dir, {"htpasswd", "-bc", dir / "users", "user", "pass word"});
  }

  QsInetHttpRequest Verified(const std::string& url) const {
    QsInetHttpRequest request = Get(url);
    request.verifyPeer = true;
    request.verifyHost = true;
    request.caInfoFile = _nginx.CaFile();
    return request;
  }

  const TempDir _dir;
  const std::string _big;
  const Nginx _nginx;
};

}  // namespace

TEST_F(HttpNginx, ServesAFile) {
  const Outcome outcome = Fetch(_nginx.Url("/index.html"));
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.body, "index\n");
  EXPECT_THAT(outcome.response.headers, HasSubstr("\r\nContent-Length: 6\r\n"));
}

TEST_F(HttpNginx, BodyGrowsInAnyStep) {
  for (const unsigned int step : {0u, 1u, 1000u, 16u * 1024 * 1024}) {
    QsInetHttpResponse response;
    EXPECT_TRUE(QsInetHttp(Get(_nginx.Url("/big.bin")), response, nullptr, nullptr, nullptr, nullptr, step));
    EXPECT_TRUE(response.body == _big) << step;
    EXPECT_EQ(response.contentLength, _big.size());
  }
}

TEST_F(HttpNginx, MissingFileAndServerError) {
  const Outcome missing = Fetch(_nginx.Url("/missing"));
  EXPECT_TRUE(missing.result);
  EXPECT_EQ(missing.response.httpCode, 404);
  EXPECT_FALSE(missing.response.retryable);
  const Outcome broken = Fetch(_nginx.Url("/broken"));
  EXPECT_TRUE(broken.result);
  EXPECT_EQ(broken.response.httpCode, 500);
  EXPECT_TRUE(broken.response.retryable);
}

TEST_F(HttpNginx, BasicAuthentication) {
  QsInetHttpRequest request = Get(_nginx.Url("/private/file"));
  EXPECT_EQ(Fetch(request).response.httpCode, 401);
  request.httpUser = "user";
  request.httpPassword = "wrong";
  EXPECT_EQ(Fetch(request).response.httpCode, 401);
  request.httpPassword = "pass word";
  const Outcome outcome = Fetch(request);
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.body, "secret");
}

TEST_F(HttpNginx, ResumesIntoAnExistingFile) {
  const std::string path = _dir.Write("half", _big.substr(0, 1000001));
  QsInetHttpRequest request = Get(_nginx.Url("/big.bin"));
  request.resume = true;
  request.resumeFrom = 1000001;
  const FilePtr file = OpenFile(path, "ab");
  request.outputFile = file.get();
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.httpCode, 206);
  EXPECT_EQ(outcome.response.contentLength, _big.size() - 1000001);
  EXPECT_TRUE(TempDir::Read(path) == _big);
}

TEST_F(HttpNginx, ResumeOfAWholeFileAddsNothing) {
  const std::string path = _dir.Write("whole", _big);
  QsInetHttpRequest request = Get(_nginx.Url("/big.bin"));
  request.resume = true;
  request.resumeFrom = static_cast<std::uint32_t>(_big.size());
  const FilePtr file = OpenFile(path, "ab");
  request.outputFile = file.get();
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 416);
  EXPECT_TRUE(TempDir::Read(path) == _big);
}

TEST_F(HttpNginx, ResumeWithoutRangesAddsNothing) {
  const std::string path = _dir.Write("half", _big.substr(0, 1000));
  QsInetHttpRequest request = Get(_nginx.Url("/whole/big.bin"));
  request.resume = true;
  request.resumeFrom = 1000;
  const FilePtr file = OpenFile(path, "ab");
  request.outputFile = file.get();
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 33);
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(TempDir::Read(path), _big.substr(0, 1000));
}

TEST_F(HttpNginx, SlowBodyArrivesWhole) {
  std::vector<std::string> texts;
  QsInetHttpResponse response;
  EXPECT_TRUE(QsInetHttp(Get(_nginx.Url("/slow/big.bin")), response, &Collect, &texts, nullptr, nullptr, 0));
  EXPECT_TRUE(response.body == _big);
  const std::string size = std::to_string(_big.size());
  EXPECT_THAT(texts, ::testing::Contains(StartsWith("D Downloaded: ")));
  EXPECT_THAT(texts.back(), HasSubstr("\tTotal size: " + size + "\t"));
  EXPECT_THAT(texts.back(), ::testing::EndsWith("\tDownload finished: 100"));
}

TEST_F(HttpNginx, TlsWithTheRightAuthority) {
  const Outcome outcome = Fetch(Verified(_nginx.TlsUrl("/big.bin")));
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_TRUE(outcome.response.body == _big);
}

TEST_F(HttpNginx, AuthorityFileTakesBothSeparators) {
  QsInetHttpRequest request = Verified(_nginx.TlsUrl("/index.html"));
  std::replace(request.caInfoFile.begin(), request.caInfoFile.end(), '/', '\\');
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "index\n");
}

TEST_F(HttpNginx, TlsWithAnotherAuthority) {
  const ThrowAwayCa other(_dir, "other");
  QsInetHttpRequest request = Verified(_nginx.TlsUrl("/index.html"));
  request.caInfoFile = other.CertificateFile();
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 60);
  EXPECT_FALSE(outcome.response.retryable);
  EXPECT_EQ(outcome.response.headers + outcome.response.body, "");
}

TEST_F(HttpNginx, TlsWithTheSystemsAuthorities) {
  QsInetHttpRequest request = Verified(_nginx.TlsUrl("/index.html"));
  request.caInfoFile.clear();
  EXPECT_EQ(Fetch(request).response.curlCode, 60);
}

TEST_F(HttpNginx, TlsWithAMissingAuthorityFile) {
  QsInetHttpRequest request = Verified(_nginx.TlsUrl("/index.html"));
  request.caInfoFile = _dir / "missing.pem";
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 77);
  request.verifyPeer = false;
  EXPECT_TRUE(Fetch(request).result) << "the file counts with verification only";
}

TEST_F(HttpNginx, TlsForAnotherHost) {
  QsInetHttpRequest request = Verified(_nginx.TlsUrl("/index.html", "127.0.0.1"));
  EXPECT_EQ(Fetch(request).response.curlCode, 60);
  request.verifyHost = false;
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "index\n");
}

TEST_F(HttpNginx, TlsWithoutVerification) {
  const Outcome outcome = Fetch(_nginx.TlsUrl("/index.html", "127.0.0.1"));
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.body, "index\n");
}

TEST_F(HttpNginx, ManyThreadsAtOnce) {
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 16; ++thread) {
    threads.emplace_back([&, thread] {
      for (int round = 0; round < 20; ++round) {
        const bool tls = (thread + round) % 2 == 0;
        const bool big = round % 5 == 0;
        const std::string path = big ? "/big.bin" : "/index.html";
        const Outcome outcome = Fetch(Verified(tls ? _nginx.TlsUrl(path) : _nginx.Url(path)));
        const bool right = outcome.response.body == (big ? _big : "index\n");
        good += outcome.result && outcome.response.httpCode == 200 && right ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(good, 16 * 20);
}

// nginx reads nothing of the body: the connection breaks in the middle of a write. The process would end with SIGPIPE.
TEST_F(HttpNginx, TlsPeerThatClosesDuringAPost) {
  std::signal(SIGPIPE, SIG_DFL);
  QsInetHttpRequest request = Verified(_nginx.TlsUrl("/closing/"));
  request.postData = std::string(16 << 20, 'x');
  for (int round = 0; round < 10; ++round) {
    const Outcome outcome = Fetch(request);
    EXPECT_FALSE(outcome.result);
    EXPECT_THAT(outcome.response.curlCode, AnyOf(52, 55, 56)) << outcome.response.errorText;
  }
}

// ---- allocations ----

namespace {

class HttpMemory : public ::testing::Test {
 protected:
  HttpMemory() {
    InitQsInetHttp(2);
    StartCurlOfCountedAllocations();
  }
  ~HttpMemory() override {
    curlAllocationsLeft = INT_MAX;
    InitQsInetHttp(2);
    InitQsInetHttp(1);
  }
};

}  // namespace

TEST_F(HttpMemory, NoHandleLeavesAnEmptyResponse) {
  QsInetHttpRequest request = Get("http://127.0.0.1:1/");
  request.proxyServer = std::string(256, 'p');
  curlAllocationsLeft = 0;
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 0) << "the limits are not looked at";
  EXPECT_EQ(outcome.response.errorText, "");
}

// Whatever allocation of libcurl fails, all later ones too: the transfer fails or is whole.
TEST_F(HttpMemory, EveryFailedAllocationEndsInAResult) {
  ScriptedServer server(ok);
  QsInetHttpRequest request = Get(server.Url());
  request.userAgent = "agent";
  request.httpUser = request.proxyUser = "user";
  request.postData = "abc";
  request.extraHeaders = "X-One: 1\r\nX-Two: 2";
  Outcome outcome{};
  int allocations = 0;
  for (; allocations < 2000 && !outcome.result; ++allocations) {
    curlAllocationsLeft = allocations;
    outcome = Fetch(request);
    EXPECT_EQ(outcome.response.httpCode, outcome.result ? 200 : 0) << allocations;
  }
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.body, "ok");
  EXPECT_GT(allocations, 20);
}

// ---- SIGPIPE ----

namespace {

// Ends the process with 0 when every transfer failed; a SIGPIPE that comes through ends it otherwise.
[[noreturn]] void SurviveBrokenPeer(bool tls) {
  std::signal(SIGPIPE, SIG_DFL);
  ScriptedServer server(
      [](Connection& connection) {
        std::string some;
        connection.Receive(some);
        connection.Reset();
      },
      false);
  QsInetHttpRequest request = Get((tls ? "https://" : "http://") + server.Host() + "/");
  request.postData = std::string(16 << 20, 'x');
  for (int round = 0; round < 20; ++round) {
    if (Fetch(request).result) {
      _exit(1);
    }
  }
  _exit(0);
}

[[noreturn]] void SurviveBrokenOutput() {
  std::signal(SIGPIPE, SIG_DFL);
  ScriptedServer server(ok);
  int ends[2] = {-1, -1};
  if (pipe(ends) != 0 || close(ends[0]) != 0) {
    _exit(2);
  }
  QsInetHttpRequest request = Get(server.Url());
  request.outputFile = fdopen(ends[1], "wb");
  Fetch(request);
  _exit(std::ferror(request.outputFile) != 0 ? 0 : 1);
}

}  // namespace

TEST(HttpSigpipe, ResetConnectionDoesNotEndTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(SurviveBrokenPeer(false), ::testing::ExitedWithCode(0), "");
}

TEST(HttpSigpipe, ResetTlsHandshakeDoesNotEndTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(SurviveBrokenPeer(true), ::testing::ExitedWithCode(0), "");
}

TEST(HttpSigpipe, OutputThatNobodyReadsDoesNotEndTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(SurviveBrokenOutput(), ::testing::ExitedWithCode(0), "");
}
