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

bool WaitFor(int descriptor, short events, int milliseconds) {
  pollfd entry{descriptor, events, 0};
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

int ListenOnLoopback(unsigned short& port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) {
    return -1;
  }
  if (!BindToLoopback(descriptor, port)) {
    const int error = errno;
    close(descriptor);
    errno = error;
    return -1;
  }
  return descriptor;
}

int AcceptWithin(int listener, int milliseconds) {
  if (!WaitFor(listener, POLLIN, milliseconds)) {
    return -1;
  }
  return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

int ReceiveWithin(int connection, char* buffer, std::size_t size, int milliseconds) {
  if (!WaitFor(connection, POLLIN, milliseconds)) {
    return -1;
  }
  return static_cast<int>(recv(connection, buffer, size, 0));
}

bool SendAll(int connection, const char* data, std::size_t size, int milliseconds) {
  while (size > 0) {
    if (!WaitFor(connection, POLLOUT, milliseconds)) {
      return false;
    }
    const ssize_t sent = send(connection, data, size, MSG_NOSIGNAL);
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

void CloseDescriptor(int descriptor) {
  if (descriptor >= 0) {
    close(descriptor);
  }
}

}  // namespace qs
