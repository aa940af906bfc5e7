/// \file
/// Sockets on 127.0.0.1 for the tests' peers.
#ifndef QSBASE_TESTS_INTEGRATION_COMMON_LOOPBACK_H
#define QSBASE_TESTS_INTEGRATION_COMMON_LOOPBACK_H

#include <cstdint>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qsbase::testing {

class Socket {
 public:
  explicit Socket(int descriptor = -1) : _descriptor(descriptor) {}
  ~Socket() { Close(); }
  Socket(Socket&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }

  int Get() const { return _descriptor; }
  void Close() {
    if (_descriptor != -1) {
      close(std::exchange(_descriptor, -1));
    }
  }

 private:
  int _descriptor;
};

inline sockaddr_in LoopbackAddress(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

inline Socket NewSocket() { return Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

/// Bound to a port that the system chose; not listening yet.
inline Socket BoundSocket() {
  Socket bound = NewSocket();
  const sockaddr_in address = LoopbackAddress(0);
  if (bind(bound.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot bind on loopback");
  }
  return bound;
}

inline int PortOf(const Socket& bound) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(bound.Get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// A port that was free a moment ago.
inline int FreePort() { return PortOf(BoundSocket()); }

inline bool Accepts(int port) {
  const Socket client = NewSocket();
  const sockaddr_in address = LoopbackAddress(port);
  return connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace qsbase::testing

#endif
