/// \file
/// Real servers as children: nginx and a proxy, on free ports of 127.0.0.1, in a folder of the test's own.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_SERVER_H
#define QSBASE_TESTS_INTEGRATION_COMMON_SERVER_H

#include <algorithm>
#include <cctype>
#include <chrono>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include <common/tempdir.h>
#include <integration/common/childprocess.h>
#include <integration/common/loopback.h>

namespace qsbase::testing {

/// A server that accepts connections when the constructor returns; a missing or failing one throws with its output.
class Server {
 public:
  using Ports = std::vector<int>;
  /// Writes the configuration for these ports and gives the command.
  using Configure = std::function<std::vector<std::string>(const Ports&)>;

  Server(const TempDir& dir, const std::string& name, std::size_t portCount, const Configure& configure)
      : _output(dir / (name + ".out")) {
    // Between choosing a port and binding it another process may take it: only then with other ports.
    do {
      _ports.clear();
      std::generate_n(std::back_inserter(_ports), portCount, &FreePort);
      _process = std::make_unique<ChildProcess>(configure(_ports), _output);
    } while (!WaitUntilReady());
  }

  ~Server() {
    _process->Stop();
    if (::testing::Test::HasFailure()) {
      std::cerr << "output of the server:\n" << _process->Output() << '\n';
    }
  }

  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  int Port(std::size_t index = 0) const { return _ports.at(index); }

 private:
  // True when all ports accept, false when one was taken by another process.
  bool WaitUntilReady() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end) {
      if (!_process->Running()) {
        if (AddressInUse()) {
          return false;
        }
        throw std::runtime_error("the server ended: " + _process->Output());
      }
      if (std::all_of(_ports.begin(), _ports.end(), &Accepts)) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("the server does not accept connections: " + _process->Output());
  }

  bool AddressInUse() {
    std::string text = _process->Output();
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    const bool inUse = text.find("address already in use") != std::string::npos;
    static_cast<void>(inUse && unlink(_output.c_str()));
    return inUse;
  }

  std::string _output;
  Ports _ports;
  std::unique_ptr<ChildProcess> _process;
};

/// A certificate authority made for this test, and certificates that it signed.
class ThrowAwayCa {
 public:
  explicit ThrowAwayCa(const TempDir& dir, std::string name = "ca") : _dir(dir), _name(std::move(name)) {
    _dir.Write("ca.cnf",
               "[req]\ndistinguished_name=dn\nx509_extensions=v3\nprompt=no\n[dn]\nCN=Throw-away authority\n"
               "[v3]\nbasicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\nsubjectKeyIdentifier=hash\n");
    RunTool(_dir, {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                   "-days", "2", "-config", _dir / "ca.cnf", "-keyout", File(".key"), "-out", File(".pem")});
  }

  std::string CertificateFile() const { return File(".pem"); }

  /// Writes `name`.pem and `name`.key for the subject alternative names, such as "DNS:localhost".
  void Sign(const std::string& name, const std::string& alternativeNames) const {
    _dir.Write(name + ".ext", "subjectAltName=" + alternativeNames + "\nbasicConstraints=CA:FALSE\n");
    RunTool(_dir, {"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
                   "/CN=" + name, "-keyout", _dir / (name + ".key"), "-out", _dir / (name + ".csr")});
    RunTool(_dir,
            {"openssl", "x509", "-req", "-in", _dir / (name + ".csr"), "-CA", File(".pem"), "-CAkey", File(".key"),
             "-CAcreateserial", "-days", "2", "-extfile", _dir / (name + ".ext"), "-out", _dir / (name + ".pem")});
  }

 private:
  std::string File(const std::string& ending) const { return _dir / (_name + ending); }

  const TempDir& _dir;
  std::string _name;
};

/// nginx with a plain port and a TLS port whose certificate is for "localhost" (not for 127.0.0.1). It serves the
/// folder www of `dir`; `locations` are further location blocks.
class Nginx {
 public:
  Nginx(const TempDir& dir, const std::string& locations)
      : _ca(Prepare(dir)), _server(dir, "nginx", 2, [&](const Server::Ports& ports) {
          dir.Write("nginx.conf", Configuration(dir.Path(), ports, locations));
          return std::vector<std::string>{"nginx", "-e", "stderr", "-p", dir.Path(), "-c", dir / "nginx.conf"};
        }) {}

  std::string Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(_server.Port(0)) + path;
  }
  std::string TlsUrl(const std::string& path, const std::string& host = "localhost") const {
    return "https://" + host + ":" + std::to_string(_server.Port(1)) + path;
  }
  int TlsPort() const { return _server.Port(1); }
  std::string CaFile() const { return _ca.CertificateFile(); }

 private:
  static ThrowAwayCa Prepare(const TempDir& dir) {
    dir.Write("www/index.html", "index\n");
    ThrowAwayCa ca(dir);
    ca.Sign("server", "DNS:localhost");
    return ca;
  }

  static std::string Configuration(const std::string& dir, const Server::Ports& ports, const std::string& locations) {
    std::string text = geteuid() == 0 ? "user root;\n" : "";
    text += "daemon off;\nmaster_process off;\nerror_log stderr notice;\npid " + dir + "/nginx.pid;\n";
    text += "events { worker_connections 256; }\nhttp {\naccess_log " + dir + "/access.log;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
      text += std::string(kind) + "_temp_path " + dir + "/" + kind + ";\n";
    }
    text += "server {\nlisten 127.0.0.1:" + std::to_string(ports[0]) + ";\n";
    text += "listen 127.0.0.1:" + std::to_string(ports[1]) + " ssl;\nssl_certificate " + dir + "/server.pem;\n";
    text += "ssl_certificate_key " + dir + "/server.key;\nroot " + dir + "/www;\n" + locations + "}\n}\n";
    return text;
  }

  ThrowAwayCa _ca;
  Server _server;
};

}  // namespace qsbase::testing

#endif
