#include <QSbase/net/http.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <QSbase/net/httptransfer.h>
#include <QSbase/net/sigpipeguard.h>
#include <QSbase/text/qsstring.h>
#include <common/tempdir.h>

#ifndef _WIN32
#include <unistd.h>
#endif

using namespace qsbase::detail;
using qsbase::testing::TempDir;

namespace {

// A request that gets past every local check reaches libcurl, which refuses an empty URL without any network activity.
constexpr int malformedUrl = 3;

bool Transfer(const QsInetHttpRequest& request, QsInetHttpResponse& response) {
  return QsInetHttp(request, response, nullptr, nullptr, nullptr, nullptr, 0);
}

void Collect(const char* text, void* user) { static_cast<std::vector<std::string>*>(user)->push_back(text); }

void Throw(const char*, void*) { throw std::runtime_error("from the callback"); }

void* NoMemory(void*, std::size_t) { return nullptr; }

bool failBodyCopy = false;

std::size_t Body(TransferSink& sink, std::string bytes) { return ReceiveBody(bytes.data(), 1, bytes.size(), &sink); }

std::size_t Header(TransferSink& sink, std::string bytes) {
  return ReceiveHeader(bytes.data(), 1, bytes.size(), &sink);
}

}  // namespace

// The copy of the request's body is the one array that the library asks for in this way.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (failBodyCopy) {
    return nullptr;
  }
  try {
    return ::operator new[](size);
  } catch (...) {
    return nullptr;
  }
}

TEST(HttpRequest, StartsEmpty) {
  const QsInetHttpRequest request;
  for (const std::string& text :
       {request.url, request.postData, request.extraHeaders, request.userAgent, request.httpUser, request.httpPassword,
        request.proxyServer, request.proxyUser, request.proxyPassword, request.caInfoFile}) {
    EXPECT_EQ(text, "");
  }
  EXPECT_EQ(request.connectTimeout, 0);
  EXPECT_EQ(request.outputFile, nullptr);
  EXPECT_EQ(request.resumeFrom, 0u);
  EXPECT_FALSE(request.resume);
  EXPECT_FALSE(request.verifyPeer);
  EXPECT_FALSE(request.verifyHost);
  EXPECT_EQ(request.tcpNoDelay, 0);
}

TEST(HttpRequest, HasFieldsOfTheDeclaredTypes) {
  static_assert(std::is_same_v<decltype(QsInetHttpRequest::connectTimeout), std::int32_t>);
  static_assert(std::is_same_v<decltype(QsInetHttpRequest::resumeFrom), std::uint32_t>);
  static_assert(std::is_same_v<decltype(QsInetHttpRequest::tcpNoDelay), std::uint8_t>);
  static_assert(std::is_same_v<decltype(QsInetHttpResponse::httpCode), std::int32_t>);
  static_assert(std::is_same_v<decltype(QsInetHttpResponse::curlCode), std::int32_t>);
  static_assert(std::is_same_v<decltype(QsInetHttpResponse::contentLength), std::uint32_t>);
}

TEST(HttpRequest, CopiesEveryField) {
  const TempDir dir;
  QsInetHttpRequest request;
  request.url = "u";
  request.postData = std::string("a\0b", 3);
  request.extraHeaders = "e";
  request.userAgent = "ua";
  request.httpUser = "hu";
  request.httpPassword = "hp";
  request.proxyServer = "p";
  request.proxyUser = "pu";
  request.proxyPassword = "pp";
  request.connectTimeout = -7;
  request.caInfoFile = "ca";
  request.outputFile = stderr;
  request.resumeFrom = 0xFFFFFFFFu;
  request.resume = true;
  request.verifyPeer = true;
  request.verifyHost = true;
  request.tcpNoDelay = 255;
  QsInetHttpRequest assigned;
  assigned = request;
  for (const QsInetHttpRequest& copy : {QsInetHttpRequest(request), assigned}) {
    EXPECT_EQ(copy.url, "u");
    EXPECT_EQ(copy.postData, std::string("a\0b", 3));
    EXPECT_EQ(copy.extraHeaders, "e");
    EXPECT_EQ(copy.userAgent, "ua");
    EXPECT_EQ(copy.httpUser, "hu");
    EXPECT_EQ(copy.httpPassword, "hp");
    EXPECT_EQ(copy.proxyServer, "p");
    EXPECT_EQ(copy.proxyUser, "pu");
    EXPECT_EQ(copy.proxyPassword, "pp");
    EXPECT_EQ(copy.connectTimeout, -7);
    EXPECT_EQ(copy.caInfoFile, "ca");
    EXPECT_EQ(copy.outputFile, stderr);
    EXPECT_EQ(copy.resumeFrom, 0xFFFFFFFFu);
    EXPECT_TRUE(copy.resume);
    EXPECT_TRUE(copy.verifyPeer);
    EXPECT_TRUE(copy.verifyHost);
    EXPECT_EQ(copy.tcpNoDelay, 255);
  }
}

TEST(HttpResponse, StartsEmptyAndCopiesEveryField) {
  QsInetHttpResponse response;
  EXPECT_EQ(response.httpCode, 0);
  EXPECT_EQ(response.curlCode, 0);
  EXPECT_EQ(response.headers + response.body + response.errorText, "");
  EXPECT_EQ(response.contentLength, 0u);
  EXPECT_FALSE(response.retryable);
  EXPECT_FALSE(response.hostNotFound);
  response.httpCode = 404;
  response.curlCode = -2;
  response.headers = "h";
  response.contentLength = 0x80000000u;
  response.body = std::string("\0b", 2);
  response.errorText = "e";
  response.retryable = true;
  response.hostNotFound = true;
  QsInetHttpResponse assigned;
  assigned = response;
  for (const QsInetHttpResponse& copy : {QsInetHttpResponse(response), assigned}) {
    EXPECT_EQ(copy.httpCode, 404);
    EXPECT_EQ(copy.curlCode, -2);
    EXPECT_EQ(copy.headers, "h");
    EXPECT_EQ(copy.contentLength, 0x80000000u);
    EXPECT_EQ(copy.body, std::string("\0b", 2));
    EXPECT_EQ(copy.errorText, "e");
    EXPECT_TRUE(copy.retryable);
    EXPECT_TRUE(copy.hostNotFound);
  }
}

TEST(HttpLimits, ProxyOf256CharactersIsTooLong) {
  QsInetHttpRequest request;
  request.proxyServer = std::string(256, 'p');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, -3);
  EXPECT_EQ(response.errorText, "Proxyserver too long.");
  EXPECT_FALSE(response.retryable);
}

TEST(HttpLimits, ProxyOf255CharactersPasses) {
  QsInetHttpRequest request;
  request.proxyServer = std::string(255, 'p');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, malformedUrl);
  EXPECT_TRUE(ProxyFits(std::string(255, 'p')));
  EXPECT_FALSE(ProxyFits(std::string(256, 'p')));
}

TEST(HttpLimits, ProxyCredentials) {
  QsInetHttpRequest request;
  request.proxyUser = std::string(100, 'u');
  request.proxyPassword = std::string(155, 'p');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, -2);
  EXPECT_EQ(response.errorText, "Proxyuser & password too long.");
  request.proxyPassword.pop_back();
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, malformedUrl);
}

TEST(HttpLimits, ServerCredentials) {
  QsInetHttpRequest request;
  request.httpUser = std::string(255, 'u');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, -4);
  EXPECT_EQ(response.errorText, "httpuser & httppassword too long.");
  request.httpUser.pop_back();
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, malformedUrl);
}

TEST(HttpLimits, PasswordWithoutUserIsIgnored) {
  QsInetHttpRequest request;
  request.httpPassword = std::string(1000, 'p');
  request.proxyPassword = std::string(1000, 'p');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, malformedUrl);
}

TEST(HttpLimits, ProxyComesBeforeItsUserAndBothBeforeTheServersUser) {
  QsInetHttpRequest request;
  request.httpUser = request.proxyUser = request.proxyServer = std::string(300, 'x');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, -3);
  request.proxyServer.resize(255);
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, -2);
  request.proxyUser.resize(254);
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, -4);
}

TEST(HttpLimits, LocalFailuresCallNoTextCallback) {
  QsInetHttpRequest request;
  request.proxyServer = std::string(256, 'p');
  QsInetHttpResponse response;
  std::vector<std::string> texts;
  EXPECT_FALSE(QsInetHttp(request, response, &Collect, &texts, nullptr, nullptr, 0));
  EXPECT_TRUE(texts.empty());
}

TEST(HttpCredentials, PasswordFollowsAColonWhenThereIsOne) {
  EXPECT_EQ(Credentials("u", ""), "u");
  EXPECT_EQ(Credentials("u", "p"), "u:p");
  EXPECT_EQ(Credentials("u", ":"), "u::");
  EXPECT_EQ(Credentials(std::string(254, 'u'), ""), std::string(254, 'u'));
  EXPECT_EQ(Credentials(std::string(255, 'u'), ""), std::nullopt);
  EXPECT_EQ(Credentials("u", std::string(253, 'p')), "u:" + std::string(253, 'p'));
  EXPECT_EQ(Credentials("u", std::string(254, 'p')), std::nullopt);
}

TEST(HttpFailure, ResetsTheResponseAndTellsTheCallbackOnce) {
  QsInetHttpRequest request;
  request.url = "gone://x";  // refused for its scheme, without any network activity
  QsInetHttpResponse response;
  response.httpCode = 200;
  response.headers = response.body = "old";
  response.contentLength = 3;
  response.hostNotFound = response.retryable = true;
  std::vector<std::string> texts;
  EXPECT_FALSE(QsInetHttp(request, response, &Collect, &texts, nullptr, nullptr, 0));
  EXPECT_EQ(response.httpCode, 0);
  EXPECT_EQ(response.curlCode, 1);
  EXPECT_EQ(response.headers + response.body, "");
  EXPECT_EQ(response.contentLength, 0u);
  EXPECT_FALSE(response.hostNotFound);
  EXPECT_FALSE(response.retryable);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_NE(texts[0].find("gone"), std::string::npos) << texts[0];
}

TEST(HttpFailure, NoMemoryForTheBodysCopy) {
  QsInetHttpRequest request;
  request.proxyUser = request.httpUser = "u";
  request.postData = "a=1";
  QsInetHttpResponse response;
  std::vector<std::string> texts;
  failBodyCopy = true;
  EXPECT_FALSE(QsInetHttp(request, response, &Collect, &texts, nullptr, nullptr, 0));
  failBodyCopy = false;
  EXPECT_EQ(response.curlCode, 0);
  EXPECT_EQ(response.errorText, "could not allocate memory for readptr.");
  EXPECT_FALSE(response.retryable);
  EXPECT_TRUE(texts.empty());
}

TEST(HttpFailure, AnOptionThatLibcurlRefusesEndsTheCall) {
  QsInetHttpRequest request;
  request.url = "gone://x";
  request.userAgent = std::string(8000001, 'a');
  QsInetHttpResponse response;
  EXPECT_FALSE(Transfer(request, response));
  EXPECT_EQ(response.curlCode, 43);
  EXPECT_NE(response.errorText, "");
}

TEST(HttpFailure, ExceptionOfTheCallbackReachesTheCaller) {
  QsInetHttpResponse response;
  EXPECT_THROW(QsInetHttp(QsInetHttpRequest(), response, &Throw, nullptr, nullptr, nullptr, 0), std::runtime_error);
  EXPECT_EQ(response.curlCode, malformedUrl);
}

TEST(HttpFailure, BothFormsTakeNoCallbacks) {
  QsInetHttpResponse response;
  EXPECT_FALSE(QsInetHttp(QsInetHttpRequest(), response, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(response.curlCode, malformedUrl);
}

TEST(HttpFailure, ExtremeNumbersAreTaken) {
  QsInetHttpRequest request;
  request.resume = true;
  request.resumeFrom = 0xFFFFFFFFu;
  request.tcpNoDelay = 255;
  for (const std::int32_t timeout : {INT32_MIN, -1, 0, 1, INT32_MAX}) {
    request.connectTimeout = timeout;
    QsInetHttpResponse response;
    EXPECT_FALSE(QsInetHttp(request, response, nullptr, nullptr, nullptr, nullptr, UINT_MAX));
    EXPECT_EQ(response.curlCode, malformedUrl) << timeout;
  }
}

TEST(HttpStatus, Parsed) {
  const struct {
    const char* headers;
    std::int32_t status;
    const char* reason;
  } rows[] = {
      {"", 0, "nothing"},
      {"HTTP/1.1 200 OK\r\n\r\n", 200, "plain"},
      {"HTTP/2 404 \r\nserver: x\r\n\r\n", 404, "no reason text"},
      {"HTTP/1.1 204\r\n\r\n", 204, "no further blank"},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", 200, "after a 100 the next one"},
      {"HTTP/1.1 100\r\n\r\nHTTP/1.1 500 No\r\n\r\n", 500, "a 100 without reason text"},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", 100, "once only"},
      {"HTTP/1.1 100 Continue\r\n\r\n", 100, "nothing after the 100"},
      {"HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", 103, "only a 100 is passed over"},
      {"HTTP/1.1 301 Moved\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", 301, "the first one"},
      {"HTTP/1.1", 0, "no blank"},
      {"HTTP/1.1 ", 0, "no status"},
      {"HTTP/1.1  200 OK", 0, "two blanks: nothing between them"},
      {"HTTP/1.1 abc OK", 0, "no number"},
      {"HTTP/1.1 20x OK", 20, "digits as far as they go"},
      {"HTTP/1.1 99999999999999999999 OK", 2147483647, "saturates"},
      {"http/1.1 200 OK", 0, "the name is upper case"},
      {"X: 1\r\nHTTP/1.1 200 OK", 200, "found anywhere"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(HttpStatus(row.headers), row.status) << row.reason;
  }
}

TEST(HttpContentLength, Parsed) {
  const struct {
    const char* headers;
    std::int32_t length;
    const char* reason;
  } rows[] = {
      {"", 0, "nothing"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 17\r\n\r\n", 17, "plain"},
      {"content-LENGTH: 17\r\n", 17, "any case"},
      {"Content-Length: 1\r\nContent-Length: 2\r\n", 1, "the first one"},
      {"Content-Length:17\r\n", 0, "the blank is part of the name"},
      {"Content-Length: \r\n", 0, "empty"},
      {"Content-Length:   42\r\n", 42, "more blanks"},
      {"Content-Length: +5", 5, "a sign"},
      {"Content-Length: -5", 0, "a negative length announces nothing"},
      {"Content-Length: 12abc", 12, "digits as far as they go"},
      {"Content-Length: 2147483647", 2147483647, "largest"},
      {"Content-Length: 2147483648", 2147483647, "saturates"},
      {"Content-Length: 4294967296", 2147483647, "saturates instead of wrapping to 0"},
      {"Content-Length: 99999999999999999999999999", 2147483647, "saturates beyond 64 bits"},
      {"X-Content-Length: 9\r\n", 9, "found anywhere"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(AnnouncedLength(row.headers), row.length) << row.reason;
  }
}

TEST(HttpContentLength, ReadFromAGrowingTextAsFromTheWhole) {
  const std::string nul(1, '\0');
  const std::string texts[] = {
      "HTTP/1.1 200 OK\r\nX: y\r\ncontent-length: 123\r\nContent-Length: 4\r\n\r\n",
      "Content-Length: Content-Length: 7\r\n",
      "CCContent-Length:\r\nContent-Length: \r\n \t 42\r\n43",
      "Content-Length: -5\r\n6",
      "Content-Length: +5 6",
      "Content-Length: +-5",
      "Content-Length: 99999999999 1",
      "Content-Length: " + nul + "5",
      "Content-Length: 5" + nul + "6",
      "a" + nul + "Content-Length: 5\r\n",
      "Content-Len" + nul + "gth: 5\r\nContent-Length: 5\r\n",
  };
  for (const std::string& text : texts) {
    for (std::size_t step = 1; step <= text.size(); ++step) {
      LengthReader reader;
      for (std::size_t size = std::min(step, text.size()); size <= text.size(); size += step) {
        const std::string part = text.substr(0, size);
        const char* found = stristr(part.c_str(), "Content-Length: ");
        const std::int32_t expected = found == nullptr ? 0 : std::max(0, SaturatingInt(found + 16));
        ASSERT_EQ(reader.Read(part), expected) << part << " in steps of " << step;
        ASSERT_EQ(AnnouncedLength(part), expected) << part;
      }
    }
  }
}

// A server may send header lines without end: looking at the whole text again for each would take minutes here.
TEST(HttpContentLength, ManyShortLinesTakeLinearTime) {
  for (const std::string& start :
       {std::string(), std::string("Content-Length: "), std::string("Content-Length: 5\r\n")}) {
    std::string text = start;
    LengthReader reader;
    const auto begin = std::chrono::steady_clock::now();
    for (int line = 0; line < 300000; ++line) {
      text += start.size() == 16 ? " \r\n" : "c:\r\n";
      reader.Read(text);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    text += start.size() == 16 ? "7\r\n" : "Content-Length: 7\r\n";
    EXPECT_EQ(reader.Read(text), start.size() == 19 ? 5 : 7);
  }
}

TEST(HttpSaturatingInt, AgreesWithTheCLibrary) {
  for (int value = -70000; value <= 70000; ++value) {
    const std::string text = std::to_string(value);
    ASSERT_EQ(SaturatingInt(text), std::atoi(text.c_str()));
  }
  for (const char* text : {"", "-", "+", " 7", "\t\n\v\f\r7", "+-7", "--7", "7 8", "0x10", "007", "a"}) {
    EXPECT_EQ(SaturatingInt(text), std::atoi(text)) << text;
  }
}

TEST(HttpSaturatingInt, StopsAtTheEndsOfTheRange) {
  EXPECT_EQ(SaturatingInt("2147483647"), INT32_MAX);
  EXPECT_EQ(SaturatingInt("2147483648"), INT32_MAX);
  EXPECT_EQ(SaturatingInt("-2147483648"), INT32_MIN);
  EXPECT_EQ(SaturatingInt("-2147483649"), INT32_MIN);
  EXPECT_EQ(SaturatingInt(std::string(1000, '9')), INT32_MAX);
  EXPECT_EQ(SaturatingInt("-" + std::string(1000, '9')), INT32_MIN);
}

TEST(HttpStatusLine, NoneInTheFirstSecond) {
  TransferSink header;
  header.contentLength = 100;
  TransferSink body;
  body.headerSink = &header;
  body.held = 100;
  EXPECT_EQ(DueStatusLine(body, 1000), std::nullopt);
  EXPECT_EQ(DueStatusLine(body, 1000), std::nullopt);
  EXPECT_EQ(DueStatusLine(body, 999), std::nullopt) << "the clock was set back";
}

TEST(HttpStatusLine, AtMostOneEveryTwoSeconds) {
  TransferSink header;
  header.contentLength = 4096;
  TransferSink body;
  body.headerSink = &header;
  EXPECT_EQ(DueStatusLine(body, 1000), std::nullopt);
  body.held = 1024;
  EXPECT_EQ(DueStatusLine(body, 1001), std::nullopt);
  EXPECT_EQ(DueStatusLine(body, 1002),
            "D Downloaded: 1024\tTotal size: 4096\tDownload Speed: 0.500\tDownload finished: 25");
  EXPECT_EQ(DueStatusLine(body, 1003), std::nullopt);
  body.held = 3072;
  EXPECT_EQ(DueStatusLine(body, 1004),
            "D Downloaded: 3072\tTotal size: 4096\tDownload Speed: 0.750\tDownload finished: 75");
}

TEST(HttpStatusLine, FinalLineOnce) {
  TransferSink header;
  header.contentLength = 2048;
  TransferSink body;
  body.headerSink = &header;
  DueStatusLine(body, 1000);
  body.held = 2048;
  EXPECT_EQ(DueStatusLine(body, 1001),
            "D Downloaded: 2048\tTotal size: 2048\tDownload Speed: 2.000\tDownload finished: 100");
  EXPECT_EQ(DueStatusLine(body, 1001), std::nullopt);
}

TEST(HttpStatusLine, UnknownTotalCountsAsOne) {
  TransferSink header;
  TransferSink body;
  body.headerSink = &header;
  DueStatusLine(body, 1000);
  body.held = 5;
  EXPECT_EQ(DueStatusLine(body, 1001), std::nullopt) << "no final line without a total";
  EXPECT_EQ(DueStatusLine(body, 1002), "D Downloaded: 5\tTotal size: 1\tDownload Speed: 0.002\tDownload finished: 500");
  EXPECT_EQ(DueStatusLine(body, 1003), std::nullopt);
}

TEST(HttpStatusLine, SizesBeyond32Bits) {
  TransferSink header;
  header.contentLength = INT32_MAX;
  TransferSink body;
  body.headerSink = &header;
  DueStatusLine(body, 1000);
  body.held = 8589934592u;  // 8 GiB in 1024 s are 8 MiB a second
  EXPECT_EQ(DueStatusLine(body, 2024),
            "D Downloaded: 8589934592\tTotal size: 2147483647\tDownload Speed: 8192.000\tDownload finished: 400");
}

TEST(HttpStatusLine, NoneCutAtTheLargestValues) {
  TransferSink body;
  DueStatusLine(body, 1);
  body.held = std::numeric_limits<std::uint64_t>::max();
  const auto line = DueStatusLine(body, 3);
  ASSERT_TRUE(line);
  EXPECT_EQ(line->find("D Downloaded: 18446744073709551615\tTotal size: 1\tDownload Speed: 9007199254740992.000\t"), 0u)
      << *line;  // 2^64 bytes in two seconds are 2^53 KiB a second
  const std::string end = "\tDownload finished: 1.84467e+21";
  EXPECT_EQ(line->substr(line->size() - end.size()), end);
}

TEST(HttpBodyReceiver, GrowsByTheStepOrByWhatArrives) {
  TransferSink body;
  body.growthStep = 10;
  EXPECT_EQ(Body(body, ""), 0u);
  EXPECT_EQ(body.data, nullptr);
  EXPECT_EQ(Body(body, "abc"), 3u);
  EXPECT_EQ(body.capacity, 10u);
  EXPECT_EQ(Body(body, "defghij"), 7u);
  EXPECT_EQ(body.capacity, 10u) << "exactly full";
  EXPECT_EQ(Body(body, "k"), 1u);
  EXPECT_EQ(body.capacity, 20u);
  EXPECT_EQ(Body(body, std::string(25, 'x')), 25u);
  EXPECT_EQ(body.capacity, 45u) << "more than a step arrived";
  EXPECT_EQ(body.Bytes(), "abcdefghijk" + std::string(25, 'x'));
  EXPECT_EQ(body.data.get()[body.held], '\0');
}

TEST(HttpBodyReceiver, KeepsAnyBytes) {
  TransferSink body;
  const std::string bytes("\0\xFF\r\n\0", 5);
  EXPECT_EQ(Body(body, bytes), 5u);
  EXPECT_EQ(body.Bytes(), bytes);
}

TEST(HttpBodyReceiver, CountsInUnitsOfSize) {
  TransferSink body;
  std::string bytes = "abcdef";
  EXPECT_EQ(ReceiveBody(bytes.data(), 2, 3, &body), 6u);
  EXPECT_EQ(body.Bytes(), "abcdef");
}

TEST(HttpBodyReceiver, WithoutMemoryDropsAndGoesOn) {
  TransferSink body;
  body.growthStep = 4;
  EXPECT_EQ(Body(body, "abcd"), 4u);
  body.reallocate = &NoMemory;
  EXPECT_EQ(Body(body, "efgh"), 4u) << "the transfer goes on";
  EXPECT_EQ(body.Bytes(), "");
  body.reallocate = &std::realloc;
  EXPECT_EQ(Body(body, "ijkl"), 4u);
  EXPECT_EQ(body.Bytes(), "ijkl");
}

TEST(HttpBodyReceiver, AStepThatOverflowsIsAFailedAllocation) {
  TransferSink body;
  body.growthStep = std::numeric_limits<std::size_t>::max();
  EXPECT_EQ(Body(body, "abc"), 3u);
  EXPECT_EQ(body.Bytes(), "");
}

TEST(HttpBodyReceiver, WritesToTheStreamAndFlushes) {
  const TempDir dir;
  TransferSink body;
  body.output = std::fopen((dir / "out").c_str(), "wb");
  ASSERT_NE(body.output, nullptr);
  const std::string bytes("a\0b", 3);
  EXPECT_EQ(Body(body, bytes), 3u);
  EXPECT_EQ(TempDir::Read(dir / "out"), bytes) << "flushed before the stream is closed";
  EXPECT_EQ(body.data, nullptr);
  EXPECT_EQ(body.held, 3u);
  std::fclose(body.output);
}

TEST(HttpBodyReceiver, ReportsWhatTheStreamTook) {
  const TempDir dir;
  TransferSink body;
  body.output = std::fopen(dir.Write("in", "x").c_str(), "rb");
  ASSERT_NE(body.output, nullptr);
  EXPECT_EQ(Body(body, "abc"), 0u) << "a stream for reading takes nothing";
  std::fclose(body.output);
}

TEST(HttpBodyReceiver, SendsDueLinesToTheCallback) {
  std::vector<std::string> texts;
  TransferSink header;
  header.contentLength = 3;
  TransferSink body;
  body.headerSink = &header;
  body.textCallback = &Collect;
  body.textUser = &texts;
  EXPECT_EQ(Body(body, "a"), 1u);
  EXPECT_TRUE(texts.empty());
  body.firstData -= 100;
  body.lastLine -= 100;
  EXPECT_EQ(Body(body, "b"), 1u);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].find("D Downloaded: 2\tTotal size: 3\tDownload Speed: 0.000\tDownload finished: 66.6667"), 0u)
      << texts[0];
}

TEST(HttpBodyReceiver, HoldsAnExceptionAndAborts) {
  TransferSink body;
  body.textCallback = &Throw;
  EXPECT_EQ(Body(body, "a"), 1u);
  body.firstData -= 100;
  body.lastLine -= 100;
  EXPECT_EQ(Body(body, "b"), 0u);
  ASSERT_NE(body.error, nullptr);
  EXPECT_THROW(std::rethrow_exception(body.error), std::runtime_error);
}

TEST(HttpHeaderReceiver, GathersAndTellsTheWholeText) {
  std::vector<std::string> texts;
  TransferSink header;
  header.growthStep = headerGrowth;
  header.textCallback = &Collect;
  header.textUser = &texts;
  EXPECT_EQ(Header(header, "HTTP/1.1 200 OK\r\n"), 17u);
  EXPECT_EQ(header.contentLength, 0);
  EXPECT_EQ(header.capacity, 17u) << "exactly what arrived";
  EXPECT_EQ(Header(header, "content-length: 12\r\n"), 20u);
  EXPECT_EQ(header.contentLength, 12);
  EXPECT_EQ(Header(header, "Content-Length: 13\r\n"), 20u);
  EXPECT_EQ(header.contentLength, 12) << "the first one holds";
  EXPECT_EQ(texts, (std::vector<std::string>{"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\ncontent-length: 12\r\n",
                                             "HTTP/1.1 200 OK\r\ncontent-length: 12\r\nContent-Length: 13\r\n"}));
}

TEST(HttpHeaderReceiver, GoesOnWithoutMemory) {
  TransferSink header;
  EXPECT_EQ(Header(header, "Content-Length: 5\r\n"), 19u);
  header.reallocate = &NoMemory;
  EXPECT_EQ(Header(header, "b\r\n"), 3u);
  EXPECT_EQ(header.Bytes(), "");
  EXPECT_EQ(Header(header, ""), 0u);
  header.reallocate = &std::realloc;
  EXPECT_EQ(Header(header, "Content-Length: 6\r\n"), 19u);
  EXPECT_EQ(header.Bytes(), "Content-Length: 6\r\n");
  EXPECT_EQ(header.contentLength, 6) << "of the text that is held";
}

TEST(HttpHeaderReceiver, TakesManyLinesInFewAllocations) {
  static int allocations = 0;
  TransferSink header;
  header.reallocate = [](void* memory, std::size_t size) {
    ++allocations;
    return std::realloc(memory, size);
  };
  std::string expected;
  for (int i = 0; i < 10000; ++i) {
    Header(header, "a:\n");
    expected += "a:\n";
  }
  EXPECT_EQ(header.Bytes(), expected);
  EXPECT_LT(allocations, 30);
}

TEST(HttpHeaderReceiver, HoldsAnExceptionAndAborts) {
  TransferSink header;
  header.textCallback = &Throw;
  EXPECT_EQ(Header(header, "a\r\n"), 0u);
  ASSERT_NE(header.error, nullptr);
  EXPECT_THROW(std::rethrow_exception(header.error), std::runtime_error);
}

TEST(HttpHeaderReceiver, KeepsHalfAMebibyteAndTakesWhatIsBeyond) {
  TransferSink header;
  static int calls = 0;
  header.textCallback = [](const char*, void*) { ++calls; };
  const std::string line = "X: " + std::string(100000 - 5, 'x') + "\r\n";
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(Header(header, line), line.size());
  }
  EXPECT_EQ(calls, 6);
  std::string expected;
  for (int i = 0; i < 6; ++i) {
    expected += line;
  }
  expected.resize(std::size_t{512} << 10);
  EXPECT_EQ(header.Bytes(), expected);
  EXPECT_EQ(Header(header, "\n"), 1u);
  EXPECT_EQ(Header(header, "Content-Length: 5\r\n"), 19u);
  EXPECT_EQ(header.Bytes(), expected) << "what came before stays";
  EXPECT_EQ(header.contentLength, 0);
  EXPECT_EQ(calls, 6) << "nothing new is told";
  EXPECT_LE(header.capacity, std::size_t{1} << 20);
}

TEST(HttpDiagnostics, JoinsTrimmedLines) {
  Diagnostics diagnostics;
  EXPECT_EQ(diagnostics.Text(), "");
  diagnostics.Add("  Trying 127.0.0.1:1...\n");
  EXPECT_EQ(diagnostics.Text(), "Trying 127.0.0.1:1...");
  diagnostics.Add("refused\n closed \n");
  diagnostics.Add("bye");
  EXPECT_EQ(diagnostics.Text(), "Trying 127.0.0.1:1...; refused; closed; bye");
}

TEST(HttpDiagnostics, OnlyTheVeryFirstPieceHasNoSeparator) {
  Diagnostics diagnostics;
  diagnostics.Add("");
  diagnostics.Add("\n");
  EXPECT_EQ(diagnostics.Text(), "");
  diagnostics.Add("   \n");
  diagnostics.Add("a\n");
  EXPECT_EQ(diagnostics.Text(), "; a") << "a blank piece came first";
}

TEST(HttpVersions, SslTextAfterItsFirstSlash) {
  EXPECT_EQ(AfterSlash("OpenSSL/3.0.15"), "3.0.15");
  EXPECT_EQ(AfterSlash("A/1 B/2"), "1 B/2");
  EXPECT_EQ(AfterSlash("Schannel"), "Schannel");
  EXPECT_EQ(AfterSlash("x/"), "");
  EXPECT_EQ(AfterSlash(""), "");
}

TEST(HttpVersions, BothNamesTellTheSame) {
  std::string curl = "old";
  std::string ssl = "old";
  QsGetCurlOpenSSLVersions(curl, ssl);
  for (const std::string& version : {curl, ssl}) {
    unsigned int major = 0;
    unsigned int minor = 0;
    EXPECT_EQ(std::sscanf(version.c_str(), "%u.%u", &major, &minor), 2) << version;
  }
  std::string secondCurl = "old";
  std::string secondSsl = "old";
  QsGetCUrlOpenSSLVersions(secondCurl, secondSsl);
  EXPECT_EQ(secondCurl, curl);
  EXPECT_EQ(secondSsl, ssl);
}

TEST(HttpInit, StartsAndStopsAgainAndIgnoresOtherPhases) {
  for (const int phase : {0, 3, -1, INT_MAX, INT_MIN}) {
    InitQsInetHttp(phase);
  }
  for (int round = 0; round < 3; ++round) {
    InitQsInetHttp(1);
    QsInetHttpResponse response;
    EXPECT_FALSE(Transfer(QsInetHttpRequest(), response));
    EXPECT_EQ(response.curlCode, malformedUrl);
    InitQsInetHttp(2);
  }
}

TEST(OpenSSLSynchronization, InstallsOnceAndTakesOut) {
  EXPECT_EQ(OpenSSLLockCount(), 0u);
  EXPECT_TRUE(QsDeinitOpenSSLSynchronization()) << "nothing installed";
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(QsInitOpenSSLSynchronization());
    const std::size_t count = OpenSSLLockCount();
    EXPECT_GE(count, 1u);
    EXPECT_TRUE(QsInitOpenSSLSynchronization()) << "a second call changes nothing";
    EXPECT_EQ(OpenSSLLockCount(), count);
    EXPECT_TRUE(QsDeinitOpenSSLSynchronization());
    EXPECT_EQ(OpenSSLLockCount(), 0u);
  }
}

TEST(OpenSSLSynchronization, IgnoresWhatIsNotInTheTable) {
  LockOpenSSL(1, 0, nullptr, 0);
  LockOpenSSL(0, 0, nullptr, 0);
  ASSERT_TRUE(QsInitOpenSSLSynchronization());
  const int count = static_cast<int>(OpenSSLLockCount());
  for (const int index : {-1, count, INT_MAX, INT_MIN}) {
    LockOpenSSL(1, index, nullptr, 0);
    LockOpenSSL(2, index, nullptr, 0);
  }
  EXPECT_TRUE(QsDeinitOpenSSLSynchronization());
}

TEST(OpenSSLSynchronization, LocksExclude) {
  ASSERT_TRUE(QsInitOpenSSLSynchronization());
  constexpr int rounds = 20000;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&counter] {
      for (int round = 0; round < rounds; ++round) {
        LockOpenSSL(1 | 4, 0, __FILE__, __LINE__);
        ++counter;
        LockOpenSSL(2 | 4, 0, __FILE__, __LINE__);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 4 * rounds);
  EXPECT_TRUE(QsDeinitOpenSSLSynchronization());
}

#ifndef _WIN32

namespace {

// A pipe that nobody reads: a write to it raises SIGPIPE.
class BrokenPipe {
 public:
  BrokenPipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    close(ends[0]);
    _end = ends[1];
  }
  ~BrokenPipe() { close(_end); }
  BrokenPipe(const BrokenPipe&) = delete;
  BrokenPipe& operator=(const BrokenPipe&) = delete;

  ssize_t Write() const { return write(_end, "x", 1); }

 private:
  int _end = -1;
};

sigset_t ThreadMask() {
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return mask;
}

void BlockSigpipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool SigpipePending() {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

TEST(SigpipeGuard, ProcessSurvivesAndTheMaskComesBack) {
  std::signal(SIGPIPE, SIG_DFL);
  const BrokenPipe broken;
  {
    const SigpipeGuard guard;
    EXPECT_EQ(broken.Write(), -1);
    EXPECT_EQ(errno, EPIPE);
    errno = 77;
  }
  EXPECT_EQ(errno, 77);
  const sigset_t mask = ThreadMask();
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
  EXPECT_FALSE(SigpipePending());
}

TEST(SigpipeGuard, WithoutItTheProcessDies) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        std::signal(SIGPIPE, SIG_DFL);
        BrokenPipe().Write();
      },
      testing::KilledBySignal(SIGPIPE), "");
}

TEST(SigpipeGuard, HostsOwnBlockStays) {
  BlockSigpipe();
  const BrokenPipe broken;
  {
    const SigpipeGuard guard;
    EXPECT_EQ(broken.Write(), -1);
  }
  EXPECT_FALSE(SigpipePending()) << "the transfer's own signal is dropped";
  const sigset_t mask = ThreadMask();
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 1);
}

TEST(SigpipeGuard, SignalThatWasPendingStaysPending) {
  BlockSigpipe();
  const BrokenPipe broken;
  EXPECT_EQ(broken.Write(), -1);
  ASSERT_TRUE(SigpipePending());
  {
    const SigpipeGuard guard;
    EXPECT_EQ(broken.Write(), -1);
  }
  EXPECT_TRUE(SigpipePending());
}

#endif
