#include "../loopbackos.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace qs {
namespace {

int Descriptor(SocketHandle socket) { return static_cast<int>(socket); }

bool WaitFor(SocketHandle socket, short events, int milliseconds) {
  pollfd entry{Descriptor(socket), events, 0};
  int result = 0;
  do {
    result = poll(&entry, 1, milliseconds);
  } while (result < 0 && errno == EINTR);
  return result > 0;
}

bool BindToLoopback(int descriptor, unsigned short& port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(descriptor, generic, length) != 0 || listen(descriptor, 16) != 0 ||
      getsockname(descriptor, generic, &length) != 0) {
    return false;
  }
  port = ntohs(address.sin_port);
  return true;
}

}  // namespace

SocketHandle ListenOnLoopback(unsigned short& port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) {
    return kNoSocket;
  }
  if (!BindToLoopback(descriptor, port)) {
    const int error = errno;
    close(descriptor);
    errno = error;
    return kNoSocket;
  }
  return descriptor;
}

SocketHandle AcceptWithin(SocketHandle listener, int milliseconds) {
  if (!WaitFor(listener, POLLIN, milliseconds)) {
    return kNoSocket;
  }
  return accept4(Descriptor(listener), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

int ReceiveWithin(SocketHandle connection, char* buffer, std::size_t size, int milliseconds) {
  if (!WaitFor(connection, POLLIN, milliseconds)) {
    return -1;
  }
  return static_cast<int>(recv(Descriptor(connection), buffer, size, 0));
}

bool SendAll(SocketHandle connection, const char* data, std::size_t size, int milliseconds) {
  while (size > 0) {
    if (!WaitFor(connection, POLLOUT, milliseconds)) {
      return false;
    }
    const ssize_t sent = send(Descriptor(connection), data, size, MSG_NOSIGNAL);
    if (sent < 0 && (errno == EINTR || errno == EAGAIN)) {
      continue;
    }
    if (sent <= 0) {
      return false;
    }
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

void CloseSocket(SocketHandle socket) {
  if (socket != kNoSocket) {
    close(Descriptor(socket));
  }
}

}  // namespace qs
