// Servers whose certificate is not to be trusted, and peers that break off or garble TLS: what is refused when the
// checks are on, and what is taken when they are off.
#include <QSbase/net/http.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <QSbase/text/qsstring.h>

#include <common/noise.h>
#include <common/tempdir.h>
#include <integration/common/scriptedserver.h>
#include <integration/common/server.h>
#include <integration/common/transfer.h>
#include <reliability/common/peers.h>

using namespace qsbase::testing;
using ::testing::AnyOf;
using ::testing::HasSubstr;

namespace {

/// nginx with a TLS port for each certificate, by its name. It announces no length of what lies below /endless.
class TlsServers {
 public:
  TlsServers(const TempDir& dir, std::vector<std::string> names)
      : _names(std::move(names)),
        _log(dir / "access.log"),
        _server((dir.Write("www/file", kContent), dir), "nginx", _names.size(), [&](const Server::Ports& ports) {
          dir.Write("nginx.conf", Configuration(dir, ports));
          return std::vector<std::string>{"nginx", "-e", "stderr", "-p", dir.Path(), "-c", dir / "nginx.conf"};
        }) {}

  int Port(const std::string& name) const {
    const auto found = std::find(_names.begin(), _names.end(), name);
    return _server.Port(static_cast<std::size_t>(found - _names.begin()));
  }

  /// The ports at which requests came, one for each. Waits until there are that many: nginx answers before it notes.
  std::vector<std::string> Requests(std::size_t count) const {
    std::vector<std::string> ports;
    const Clock::time_point end = Clock::now() + kPatience;
    do {
      SplitString(TempDir::Read(_log), "\n", ports, false);
    } while (ports.size() < count && Clock::now() < end);
    return ports;
  }

  static constexpr const char* kContent = "the content\n";

 private:
  std::string Configuration(const TempDir& dir, const Server::Ports& ports) const {
    std::string text = geteuid() == 0 ? "user root;\n" : "";
    text += "daemon off;\nmaster_process off;\nerror_log stderr notice;\npid " + dir / "nginx.pid" +
            ";\nevents { worker_connections 256; }\nhttp {\nlog_format ports '$server_port';\naccess_log " + _log +
            " ports;\nroot " + dir / "www" + ";\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
      text += std::string(kind) + "_temp_path " + dir / kind + ";\n";
    }
    for (std::size_t i = 0; i < ports.size(); ++i) {
      text += "server {\nlisten 127.0.0.1:" + std::to_string(ports[i]) + " ssl;\nssl_certificate " +
              dir / (_names[i] + ".pem") + ";\nssl_certificate_key " + dir / (_names[i] + ".key") +
              ";\nlocation /endless { ssi on; chunked_transfer_encoding off; default_type text/html; }\n}\n";
    }
    return text + "}\n";
  }

  std::vector<std::string> _names;
  const std::string _log;
  Server _server;
};

class PeersTls : public PeerTest {
 protected:
  PeersTls() : _ca(_dir) {}

  QsInetHttpRequest Ask(int port, bool verifyPeer, bool verifyHost, const std::string& host = "localhost") const {
    QsInetHttpRequest request = Get("https://" + host + ":" + std::to_string(port) + "/file");
    request.verifyPeer = verifyPeer;
    request.verifyHost = verifyHost;
    request.caInfoFile = _ca.CertificateFile();
    return request;
  }

  // `name`.pem and `name`.key for localhost, valid between two days and with further extensions.
  void SignFor(const std::string& name, const std::string& from, const std::string& to,
               const std::string& extensions) const {
    _dir.Write("issued/index.txt", "");
    _dir.Write("issued/serial", "01\n");
    _dir.Write(name + ".cnf", "[ca]\ndefault_ca=all\n[all]\nnew_certs_dir=" + _dir / "issued" +
                                  "\ndatabase=" + _dir / "issued/index.txt" + "\nserial=" + _dir / "issued/serial" +
                                  "\ndefault_md=sha256\npolicy=any\nunique_subject=no\nx509_extensions=ext\n"
                                  "[any]\ncommonName=supplied\n[ext]\nsubjectAltName=DNS:localhost\n" +
                                  extensions);
    RunTool(_dir, {"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
                   "/CN=" + name, "-keyout", _dir / (name + ".key"), "-out", _dir / (name + ".csr")});
    RunTool(_dir, {"openssl", "ca", "-batch", "-notext", "-config", _dir / (name + ".cnf"), "-cert",
                   _ca.CertificateFile(), "-keyfile", _dir / "ca.key", "-startdate", from, "-enddate", to, "-in",
                   _dir / (name + ".csr"), "-out", _dir / (name + ".pem")});
  }

  void SelfSigned(const std::string& name) const {
    RunTool(_dir, {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                   "-days", "2", "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout",
                   _dir / (name + ".key"), "-out", _dir / (name + ".pem")});
  }

  // Signed by the certificate `signer`, which is no authority, and sent together with it.
  void SignedByNoAuthority(const std::string& name, const std::string& signer) const {
    _dir.Write(name + ".ext", "subjectAltName=DNS:localhost\nbasicConstraints=CA:FALSE\n");
    RunTool(_dir, {"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
                   "/CN=" + name, "-keyout", _dir / (name + ".key"), "-out", _dir / (name + ".csr")});
    RunTool(_dir, {"openssl", "x509", "-req", "-in", _dir / (name + ".csr"), "-CA", _dir / (signer + ".pem"), "-CAkey",
                   _dir / (signer + ".key"), "-CAcreateserial", "-days", "2", "-extfile", _dir / (name + ".ext"),
                   "-out", _dir / (name + ".pem")});
    _dir.Write(name + ".pem", TempDir::Read(_dir / (name + ".pem")) + TempDir::Read(_dir / (signer + ".pem")));
  }

  const TempDir _dir;
  const ThrowAwayCa _ca;
};

constexpr const char* kLongAgo = "20200101000000Z";
constexpr const char* kSoonAfter = "20200201000000Z";
constexpr const char* kFarAway = "20980101000000Z";
constexpr const char* kAfterThat = "20990101000000Z";

}  // namespace

TEST_F(PeersTls, CertificatesAreRefusedWhenTheChecksAreOn) {
  _ca.Sign("good", "DNS:localhost");
  _ca.Sign("elsewhere", "DNS:localhost.example,DNS:*.localhost,IP:127.0.0.1");
  _ca.Sign("suffix", "DNS:calhost,DNS:host,DNS:*");
  SignFor("expired", kLongAgo, kSoonAfter, "");
  SignFor("tooearly", kFarAway, kAfterThat, "");
  SignFor("client", kLongAgo, kAfterThat, "extendedKeyUsage=clientAuth\n");
  SelfSigned("selfsigned");
  SignedByNoAuthority("bynoauthority", "good");
  ThrowAwayCa(_dir, "other").Sign("unknown", "DNS:localhost");
  const struct {
    const char* name;
    bool peerIsRefused;
    bool hostIsRefused;
  } rows[] = {
      {"good", false, false},      {"elsewhere", false, true},     {"suffix", false, true},
      {"expired", true, false},    {"tooearly", true, false},      {"client", true, false},
      {"selfsigned", true, false}, {"bynoauthority", true, false}, {"unknown", true, false},
  };
  std::vector<std::string> names;
  for (const auto& row : rows) {
    names.emplace_back(row.name);
  }
  const TlsServers servers(_dir, names);
  std::vector<std::string> asked;
  for (const auto& row : rows) {
    for (const bool verifyPeer : {false, true}) {
      for (const bool verifyHost : {false, true}) {
        Outcome outcome;
        const Cost cost = CostOf([&] { outcome = Fetch(Ask(servers.Port(row.name), verifyPeer, verifyHost)); });
        const std::string checks = std::string(verifyPeer ? ", peer" : "") + (verifyHost ? ", host" : "");
        const bool isRefused = (verifyPeer && row.peerIsRefused) || (verifyHost && row.hostIsRefused);
        SCOPED_TRACE(row.name + checks + ": " + outcome.response.errorText);
        Tell("certificate " + (row.name + checks), cost, std::to_string(outcome.response.curlCode));
        ExpectBounded(row.name, cost);
        EXPECT_EQ(outcome.result, !isRefused);
        EXPECT_EQ(outcome.response.curlCode, isRefused ? 60 : 0);
        EXPECT_EQ(outcome.response.body, isRefused ? "" : TlsServers::kContent);
        EXPECT_EQ(outcome.response.headers.empty(), isRefused);
        EXPECT_FALSE(outcome.response.retryable);
        if (!isRefused) {
          asked.push_back(std::to_string(servers.Port(row.name)));
        }
      }
    }
  }
  ASSERT_TRUE(Fetch(Ask(servers.Port("good"), true, true)).result);  // what came before is noted before this
  asked.push_back(std::to_string(servers.Port("good")));
  EXPECT_EQ(servers.Requests(asked.size()), asked) << "where a certificate was refused, nothing was asked for";
}

TEST_F(PeersTls, ANumberIsNoName) {
  _ca.Sign("named", "DNS:localhost,DNS:127.0.0.1");
  _ca.Sign("numbered", "IP:127.0.0.1");
  const TlsServers servers(_dir, {"named", "numbered"});
  EXPECT_EQ(Fetch(Ask(servers.Port("named"), true, true, "127.0.0.1")).response.curlCode, 60);
  EXPECT_EQ(Fetch(Ask(servers.Port("numbered"), true, true, "127.0.0.1")).response.curlCode, 0);
}

// The list of authorities that was given stands for that of the system: it is not added to it.
TEST_F(PeersTls, NoAuthoritiesOfTheSystemStandBesideThoseOfAFile) {
  SelfSigned("selfsigned");
  const TlsServers servers(_dir, {"selfsigned"});
  const Outcome outcome = Fetch(Ask(servers.Port("selfsigned"), true, true));
  EXPECT_EQ(outcome.response.curlCode, 60);
  EXPECT_THAT(outcome.response.errorText, HasSubstr("CAfile: " + _ca.CertificateFile() + ";"));
  EXPECT_THAT(outcome.response.errorText, HasSubstr("CApath: none;"));
}

// ---- an end in every place ----

namespace {

Socket ConnectTo(int port) {
  Socket socket = NewSocket();
  const sockaddr_in address = LoopbackAddress(port);
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot connect on loopback");
  }
  return socket;
}

/// Hands on what either side says, until one of them ends. `handedOn` counts what went to the client.
void Relay(Connection& client, int serverPort, std::size_t& handedOn) {
  const Socket socket = ConnectTo(serverPort);
  Connection server{Socket(dup(socket.Get()))};
  pollfd ends[2] = {{client.Descriptor(), POLLIN, 0}, {socket.Get(), POLLIN, 0}};
  for (;;) {
    if (poll(ends, 2, -1) < 0) {
      return;
    }
    std::string bytes;
    if (ends[1].revents != 0) {
      if (!server.Receive(bytes) || !client.Send(bytes)) {
        return;
      }
      handedOn += bytes.size();
    } else if (ends[0].revents != 0 && (!client.Receive(bytes) || !server.Send(bytes))) {
      return;
    }
  }
}

}  // namespace

// The peer's bytes stop anywhere in the handshake, in the answer or behind it.
TEST_F(PeersTls, AnEndAtEveryByte) {
  _ca.Sign("good", "DNS:localhost");
  const TlsServers servers(_dir, {"good"});
  const int port = servers.Port("good");
  std::size_t all = 0;
  {
    const ScriptedServer relay([&](Connection& client) { Relay(client, port, all); }, false);
    ASSERT_TRUE(Fetch(Ask(relay.Port(), true, true)).result);
  }
  ASSERT_GT(all, 500u);
  int whole = 0;
  const Cost cost = CostOf([&] {
    for (const bool reset : {false, true}) {
      for (std::size_t size = 0; size < all && !HasFailure(); ++size) {
        SCOPED_TRACE(std::to_string(size) + " of " + std::to_string(all) + (reset ? " and a reset" : ""));
        std::size_t handedOn = 0;
        const ScriptedServer relay(
            [&](Connection& client) {
              client.EndAfter(size, reset);
              Relay(client, port, handedOn);
            },
            false);
        const Outcome outcome = Fetch(Ask(relay.Port(), true, true));
        const bool isWhole = outcome.response.body == TlsServers::kContent;
        whole += isWhole ? 1 : 0;
        const int code = outcome.response.curlCode;
        EXPECT_EQ(code == 0, isWhole) << code;
        EXPECT_THAT(code, AnyOf(0, 18, 35, 52, 56)) << outcome.response.errorText;
        EXPECT_EQ(outcome.result, code == 0 || code == 18);
        EXPECT_EQ(outcome.response.retryable, code == 35 || code == 56);
      }
    }
  });
  Tell("TLS, an end at each of " + std::to_string(all) + " bytes", cost, std::to_string(whole) + " whole");
  EXPECT_LT(whole, 20) << "only where a signature happens to be shorter than in the first handshake";
}

// A body without a length ends where the connection does. That TLS's farewell (close_notify) is missing then, libcurl
// 7.88 does not tell; other versions may.
TEST_F(PeersTls, AnEndWithoutAFarewellPassesForWholeWhereNoLengthIsKnown) {
  _ca.Sign("good", "DNS:localhost");
  const std::string content = Noise(100000);
  _dir.Write("www/endless/file", content);
  const TlsServers servers(_dir, {"good"});
  const int port = servers.Port("good");
  const auto fetch = [&](std::size_t size, bool reset) {
    std::size_t handedOn = 0;
    Outcome outcome;
    {
      const ScriptedServer relay(
          [&](Connection& client) {
            client.EndAfter(size, reset);
            Relay(client, port, handedOn);
          },
          false);
      QsInetHttpRequest request = Ask(relay.Port(), true, true);
      request.url = "https://localhost:" + std::to_string(relay.Port()) + "/endless/file";
      outcome = Fetch(request);
    }
    return std::make_pair(outcome, handedOn);
  };
  const auto [whole, all] = fetch(std::string::npos, false);
  ASSERT_TRUE(whole.result && whole.response.body == content) << whole.response.errorText;
  ASSERT_THAT(whole.response.headers, ::testing::Not(AnyOf(HasSubstr("Length"), HasSubstr("chunked"))));
  const std::size_t within = all - 10;  // the 24 bytes of the farewell, whose place differs with the signature's length
  for (const std::size_t size : {all / 3, all / 2, within}) {
    for (const bool reset : {false, true}) {
      SCOPED_TRACE(std::to_string(size) + " of " + std::to_string(all) + (reset ? " and a reset" : ""));
      const Outcome cut = fetch(size, reset).first;
      const int code = cut.response.curlCode;
      EXPECT_THAT(code, reset ? ::testing::Matcher<int>(56) : AnyOf(0, 56)) << cut.response.errorText;
      EXPECT_EQ(cut.result, code == 0);
      EXPECT_TRUE(content.starts_with(cut.response.body));
      EXPECT_LE(cut.response.body.size(), size);
      EXPECT_TRUE(reset || (cut.response.body.size() == content.size()) == (size == within));
    }
  }
}

// ---- no TLS at all ----

TEST_F(PeersTls, PeersThatGarbleTheHandshake) {
  const std::string record("\x16\x03\x03\x40\x00", 5);
  const struct {
    const char* name;
    std::string begin;
    std::string piece;
  } rows[] = {
      {"TLS: plain HTTP", "", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"},
      {"TLS: endless zeros", "", std::string(16, '\0')},
      {"TLS: endless garbage", "", "\x16\x03\x03 garbage"},
      {"TLS: endless hello of one record", record + "\x02\xFF\xFF\xFF\x03\x03", "x"},
      {"TLS: endless warnings", "", std::string("\x15\x03\x03\0\2\1\0", 7)},
      {"TLS: endless empty records", "", std::string("\x16\x03\x03\0\0", 5)},
  };
  for (const auto& row : rows) {
    const ScriptedServer server(
        [&](Connection& connection) {
          std::string hello;
          connection.Receive(hello);
          if (connection.Send(row.begin)) {
            connection.SendForEver(row.piece);
          }
        },
        false);
    Outcome outcome;
    const Cost cost = CostOf([&] { outcome = Fetch(Ask(server.Port(), true, true)); });
    Tell(row.name, cost, std::to_string(outcome.response.curlCode));
    ExpectBounded(row.name, cost);
    EXPECT_FALSE(outcome.result) << row.name;
    EXPECT_EQ(outcome.response.curlCode, 35) << row.name << outcome.response.errorText;
    EXPECT_TRUE(outcome.response.retryable) << row.name;
    EXPECT_EQ(outcome.response.headers, "") << row.name;
  }
}

// The handshake is part of connecting.
TEST_F(PeersTls, SilenceInTheHandshakeEndsByTheTimeOutOfConnecting) {
  const std::string record("\x16\x03\x03\x40\x00\x02\x00\x3F\xFC\x03\x03", 11);
  for (const bool slow : {false, true}) {
    const ScriptedServer server(
        [&](Connection& connection) {
          if (slow && connection.Send(record)) {
            while (connection.SendSlowly("x", milliseconds(20))) {
            }
          }
          connection.WaitForClose();
        },
        false);
    QsInetHttpRequest request = Ask(server.Port(), true, true);
    request.connectTimeout = 1;
    Outcome outcome;
    const Cost cost = CostOf([&] { outcome = Fetch(request); });
    Tell(slow ? "TLS: a slow hello" : "TLS: says nothing", cost, std::to_string(outcome.response.curlCode));
    ExpectBounded("TLS", cost);
    EXPECT_EQ(outcome.response.curlCode, 28) << outcome.response.errorText;
    EXPECT_TRUE(outcome.response.retryable);
  }
}
