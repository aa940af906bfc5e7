/// \file
/// A peer on 127.0.0.1 that records what it is sent and answers as the test says, byte for byte.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_SCRIPTEDSERVER_H
#define QSBASE_TESTS_INTEGRATION_COMMON_SCRIPTEDSERVER_H

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <integration/common/loopback.h>

namespace qsbase::testing {

/// One accepted connection, used by the script.
class Connection {
 public:
  explicit Connection(Socket socket) : _socket(std::move(socket)) {}

  /// False when the client is gone, or the limit is reached.
  bool Send(std::string_view bytes) {
    const bool whole = bytes.size() <= _left;
    bytes = bytes.substr(0, _left);
    _left -= bytes.size();
    while (!bytes.empty()) {
      const ssize_t sent = send(_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) {
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    if (!whole) {
      _reset ? Reset() : _socket.Close();
    }
    return whole;
  }

  /// The connection ends in the place of what is sent beyond this many bytes, in good order or with a reset.
  void EndAfter(std::size_t bytes, bool reset) {
    _left = bytes;
    _reset = reset;
  }

  /// One byte after the other, each of them followed by a pause; false when the client is gone.
  bool SendSlowly(std::string_view bytes, std::chrono::milliseconds pause) {
    for (const char& byte : bytes) {
      if (!Send(std::string_view(&byte, 1))) {
        return false;
      }
      std::this_thread::sleep_for(pause);
    }
    return true;
  }

  /// Again and again, in pieces of some size, until the client is gone.
  void SendForEver(std::string_view bytes) {
    std::string piece;
    while (piece.size() < 65536) {
      piece += bytes;
    }
    while (Send(piece)) {
    }
  }

  /// Reads what is there; false at the end.
  bool Receive(std::string& bytes) {
    char buffer[16384];
    const ssize_t received = recv(_socket.Get(), buffer, sizeof buffer, 0);
    if (received <= 0) {
      return false;
    }
    bytes.append(buffer, static_cast<std::size_t>(received));
    return true;
  }

  /// Header lines, blank line and the body that Content-Length announces.
  std::string ReceiveRequest() {
    std::string request;
    std::size_t end = std::string::npos;
    while ((end = request.find("\r\n\r\n")) == std::string::npos) {
      if (!Receive(request)) {
        return request;
      }
    }
    const std::size_t whole = end + 4 + BodySize(request.substr(0, end));
    while (request.size() < whole && Receive(request)) {
    }
    return request;
  }

  int Descriptor() const { return _socket.Get(); }

  void WaitForClose() {
    std::string ignored;
    while (Receive(ignored)) {
      ignored.clear();
    }
  }

  /// Ends the connection with a reset. What fits into the client's window has been sent before.
  void Reset() {
    const linger atOnce{1, 0};
    setsockopt(_socket.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    _socket.Close();
  }

 private:
  static std::size_t BodySize(std::string headers) {
    std::transform(headers.begin(), headers.end(), headers.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::string name = "\r\ncontent-length:";
    const std::size_t found = headers.find(name);
    return found == std::string::npos ? 0 : std::strtoull(headers.c_str() + found + name.size(), nullptr, 10);
  }

  Socket _socket;
  std::size_t _left = std::numeric_limits<std::size_t>::max();
  bool _reset = false;
};

/// Serves one connection after the other on a thread of its own: reads a request (unless told not to), records it, runs
/// the script.
class ScriptedServer {
 public:
  using Script = std::function<void(Connection&)>;

  explicit ScriptedServer(Script script, bool readRequest = true)
      : _script(std::move(script)), _readRequest(readRequest), _listener(BoundSocket()) {
    if (listen(_listener.Get(), 64) != 0) {
      throw std::runtime_error("cannot listen on loopback");
    }
    _port = PortOf(_listener);
    _thread = std::thread([this] { Serve(); });
  }
  explicit ScriptedServer(const std::string& answer)
      : ScriptedServer([answer](Connection& connection) { connection.Send(answer); }) {}

  ~ScriptedServer() {
    shutdown(_listener.Get(), SHUT_RDWR);
    _thread.join();
  }

  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  int Port() const { return _port; }
  std::string Host() const { return "127.0.0.1:" + std::to_string(_port); }
  std::string Url(const std::string& path = "/") const { return "http://" + Host() + path; }

  std::vector<std::string> Requests() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _requests;
  }

 private:
  void Serve() {
    for (;;) {
      Socket accepted(accept4(_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (accepted.Get() == -1) {
        return;
      }
      Connection connection(std::move(accepted));
      if (_readRequest) {
        Record(connection.ReceiveRequest());
      }
      _script(connection);
    }
  }

  void Record(const std::string& request) {
    std::lock_guard<std::mutex> lock(_mutex);
    _requests.push_back(request);
  }

  const Script _script;
  const bool _readRequest;
  Socket _listener;
  int _port = 0;
  mutable std::mutex _mutex;
  std::vector<std::string> _requests;
  std::thread _thread;
};

}  // namespace qsbase::testing

#endif
