// Transfers through a real proxy that asks for a user name and a password.
#include <QSbase/net/http.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <common/tempdir.h>
#include <integration/common/loopback.h>
#include <integration/common/server.h>
#include <integration/common/transfer.h>

using namespace qsbase::testing;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class HttpProxy : public ::testing::Test {
 protected:
  HttpProxy()
      : _nginx(_dir, ""),
        _proxy(_dir, "tinyproxy", 1, [this](const Server::Ports& ports) { return Configure(ports.front()); }) {}

  std::vector<std::string> Configure(int port) const {
    return {"tinyproxy", "-d", "-c",
            _dir.Write("tinyproxy.conf", "Port " + std::to_string(port) +
                                             "\nListen 127.0.0.1\nTimeout 60\nMaxClients 50\nLogLevel Info\n"
                                             "BasicAuth user secret\nViaProxyName \"tests\"\n")};
  }

  QsInetHttpRequest Through(const std::string& url) const {
    QsInetHttpRequest request = Get(url);
    request.proxyServer = "127.0.0.1:" + std::to_string(_proxy.Port());
    request.proxyUser = "user";
    request.proxyPassword = "secret";
    return request;
  }

  QsInetHttpRequest TlsThrough(const std::string& path) const {
    QsInetHttpRequest request = Through(_nginx.TlsUrl(path));
    request.verifyPeer = request.verifyHost = true;
    request.caInfoFile = _nginx.CaFile();
    return request;
  }

  const TempDir _dir;
  const Nginx _nginx;
  const Server _proxy;
};

}  // namespace

TEST_F(HttpProxy, PlainTransferGoesThroughIt) {
  const Outcome direct = Fetch(_nginx.Url("/index.html"));
  EXPECT_THAT(direct.response.headers, Not(HasSubstr("Via:")));
  const Outcome outcome = Fetch(Through(_nginx.Url("/index.html")));
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.body, "index\n");
  EXPECT_THAT(outcome.response.headers, HasSubstr("Via: 1.1 tests"));
}

// The proxy in use answers 407 to no credentials and 401 to wrong ones.
TEST_F(HttpProxy, WrongOrMissingCredentialsAreRefused) {
  QsInetHttpRequest request = Through(_nginx.Url("/index.html"));
  for (const char* password : {"wrong", ""}) {
    request.proxyPassword = password;
    const Outcome outcome = Fetch(request);
    EXPECT_TRUE(outcome.result);
    EXPECT_THAT(outcome.response.httpCode, AnyOf(401, 407));
    EXPECT_THAT(outcome.response.body, Not(HasSubstr("index\n")));
  }
  request.proxyUser.clear();
  request.proxyPassword = "secret";
  EXPECT_EQ(Fetch(request).response.httpCode, 407) << "a password without a user is not sent";
}

TEST_F(HttpProxy, TlsGoesThroughATunnel) {
  const Outcome outcome = Fetch(TlsThrough("/index.html"));
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_EQ(outcome.response.body, "index\n");
  EXPECT_THAT(outcome.response.headers, StartsWith("HTTP/1.0 200 Connection established\r\n"));
  EXPECT_THAT(outcome.response.headers, HasSubstr("\r\n\r\nHTTP/1.1 200 OK\r\n"));
}

TEST_F(HttpProxy, StatusOfATunnelledTransferIsThatOfTheTunnel) {
  const Outcome outcome = Fetch(TlsThrough("/missing"));
  EXPECT_TRUE(outcome.result);
  EXPECT_EQ(outcome.response.httpCode, 200);
  EXPECT_THAT(outcome.response.headers, HasSubstr("\r\n\r\nHTTP/1.1 404 Not Found\r\n"));
}

TEST_F(HttpProxy, TunnelWithWrongCredentialsFails) {
  QsInetHttpRequest request = TlsThrough("/index.html");
  request.proxyPassword = "wrong";
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 56);
  EXPECT_TRUE(outcome.response.retryable);
  EXPECT_THAT(outcome.response.headers, AnyOf(StartsWith("HTTP/1.0 401 "), StartsWith("HTTP/1.0 407 ")));
  EXPECT_EQ(outcome.response.httpCode, 0);
}

TEST_F(HttpProxy, TunnelStillVerifiesTheOrigin) {
  QsInetHttpRequest request = TlsThrough("/index.html");
  request.caInfoFile = ThrowAwayCa(_dir, "other").CertificateFile();
  EXPECT_EQ(Fetch(request).response.curlCode, 60);
}

TEST_F(HttpProxy, EnvironmentNamesNoExceptions) {
  setenv("no_proxy", "127.0.0.1,localhost", 1);
  const Outcome outcome = Fetch(Through(_nginx.Url("/index.html")));
  EXPECT_THAT(outcome.response.headers, HasSubstr("Via: 1.1 tests"));
}

TEST_F(HttpProxy, PostGoesThroughIt) {
  QsInetHttpRequest request = Through(_nginx.Url("/index.html"));
  request.postData = Noise(100000);
  const Outcome outcome = Fetch(request);
  EXPECT_TRUE(outcome.result) << outcome.response.errorText;
  EXPECT_EQ(outcome.response.httpCode, 405) << "nginx takes no POST for a file";
}

TEST_F(HttpProxy, ProxyThatIsNotThere) {
  QsInetHttpRequest request = Through(_nginx.Url("/index.html"));
  const Socket closed = BoundSocket();
  request.proxyServer = "127.0.0.1:" + std::to_string(PortOf(closed));
  const Outcome outcome = Fetch(request);
  EXPECT_FALSE(outcome.result);
  EXPECT_EQ(outcome.response.curlCode, 7);
  EXPECT_TRUE(outcome.response.retryable);
  EXPECT_FALSE(outcome.response.hostNotFound);
}
