// The origin of `qs demo` on the wire: by the library's own transfers, and by bytes of our own where those cannot ask.

#include <QSbase/net/http.h>
#include <QSbase/net/socket.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <winsock2.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <array>
#include <map>
#include <string>

#include <common/tempdir.h>

#include "origin.h"

namespace {

using qsbase::testing::TempDir;

// The two systems call the same things by other names.
#ifdef _WIN32
using Socket = SOCKET;
constexpr int kNoMoreSending = SD_SEND;
void Close(Socket socket) { closesocket(socket); }
#else
using Socket = int;
constexpr int kNoMoreSending = SHUT_WR;
void Close(Socket socket) { close(socket); }
#endif

struct NetworkSession {
  NetworkSession() {
    InitQsSocket(1);
    InitQsInetHttp(1);
  }
  ~NetworkSession() {
    InitQsInetHttp(2);
    InitQsSocket(2);
  }
};

class OriginTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(_origin.Start(), ""); }

  QsInetHttpResponse Get(const std::string& url, unsigned int from = 0) {
    QsInetHttpRequest request;
    request.url = url;
    request.resume = from > 0;
    request.resumeFrom = from;
    QsInetHttpResponse response;
    EXPECT_TRUE(QsInetHttp(request, response, nullptr, nullptr, nullptr, nullptr, 0)) << response.errorText;
    return response;
  }

  // Sends the text as it stands and reads to the end.
  std::string Ask(const std::string& text) const {
    const std::string url = _origin.UrlOf("");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<unsigned short>(std::stoi(url.substr(url.rfind(':') + 1))));
    const Socket peer = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(connect(peer, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const int size = static_cast<int>(text.size());
    EXPECT_EQ(send(peer, text.data(), static_cast<unsigned int>(size), 0), size);
    shutdown(peer, kNoMoreSending);
    std::string answer;
    std::array<char, 4096> block{};
    for (int count; (count = static_cast<int>(recv(peer, block.data(), block.size(), 0))) > 0;) {
      answer.append(block.data(), static_cast<std::size_t>(count));
    }
    Close(peer);
    return answer;
  }

  static bool Has(const std::string& text, const std::string& what) { return text.find(what) != std::string::npos; }

  const NetworkSession _session;
  const TempDir _dir;
  qs::Origin _origin{{{"a.txt", _dir.Write("a.txt", "0123456789")},
                      {"Übersicht 100%.txt", _dir.Write("b", std::string("\0\r\n\x1a", 4))},
                      {"empty", _dir.Write("empty", "")}}};
};

TEST_F(OriginTest, WholeFiles) {
  EXPECT_EQ(Get(_origin.UrlOf("a.txt")).body, "0123456789");
  EXPECT_EQ(Get(_origin.UrlOf("Übersicht 100%.txt")).body, std::string("\0\r\n\x1a", 4));
  EXPECT_EQ(Get(_origin.UrlOf("empty")).httpCode, 200);
}

TEST_F(OriginTest, UnknownNames) {
  EXPECT_EQ(Get(_origin.UrlOf("b")).httpCode, 404) << "the name that it is served under counts, not the file's";
  EXPECT_EQ(Get(_origin.UrlOf("../a.txt")).httpCode, 404);
  EXPECT_EQ(Get(_origin.UrlOf("")).httpCode, 404);
}

TEST_F(OriginTest, Ranges) {
  const QsInetHttpResponse rest = Get(_origin.UrlOf("a.txt"), 4);
  EXPECT_EQ(rest.httpCode, 206);
  EXPECT_EQ(rest.body, "456789");
  EXPECT_EQ(Get(_origin.UrlOf("a.txt"), 10).httpCode, 416);
  struct Case {
    const char* range;
    const char* status;
    const char* body;
  };
  const Case cases[] = {{"bytes=2-4", "206", "234"},
                        {"bytes=-3", "206", "789"},
                        {"bytes=8-99", "206", "89"},
                        {"bytes=-99", "206", "0123456789"},
                        {"bytes=-0", "416", ""},
                        {"bytes=10-", "416", ""},
                        {"bytes=4-2", "200", "0123456789"},
                        {"bytes=x-", "200", "0123456789"},
                        {"lines=1-2", "200", "0123456789"},
                        {"bytes=", "200", "0123456789"},
                        {"bytes=0-1,3-4", "200", "0123456789"},
                        {"bytes=99999999999999999999-", "200", "0123456789"}};
  for (const Case& test : cases) {
    const std::string answer = Ask("GET /a.txt HTTP/1.1\r\nHost: x\r\nRange: " + std::string(test.range) + "\r\n\r\n");
    EXPECT_EQ(answer.substr(0, 12), "HTTP/1.1 " + std::string(test.status)) << test.range;
    EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), test.body) << test.range;
  }
}

TEST_F(OriginTest, HeadHasTheHeadersOnly) {
  const std::string answer = Ask("HEAD /a.txt HTTP/1.1\r\nHost: x\r\n\r\n");
  EXPECT_TRUE(Has(answer, "HTTP/1.1 200 OK\r\n")) << answer;
  EXPECT_TRUE(Has(answer, "Content-Length: 10\r\n")) << answer;
  EXPECT_EQ(answer.substr(answer.size() - 4), "\r\n\r\n");
}

TEST_F(OriginTest, BadRequests) {
  EXPECT_TRUE(Has(Ask("POST /a.txt HTTP/1.1\r\n\r\n"), " 405 "));
  EXPECT_TRUE(Has(Ask("nonsense\r\n\r\n"), " 400 "));
  EXPECT_TRUE(Has(Ask("GET  HTTP/1.1\r\n\r\n"), " 404 "));
  EXPECT_EQ(Ask("GET /a.txt"), "") << "an unfinished request is not answered";
  EXPECT_FALSE(Has(Ask("GET /a.txt HTTP/1.1\r\n" + std::string(100000, 'a')), " 200 "));
  EXPECT_EQ(Get(_origin.UrlOf("a.txt")).body, "0123456789") << "and the next client is served";
}

}  // namespace
