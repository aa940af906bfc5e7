#include <QSbase/net/socketos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/posix/uninterrupted.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace qsbase::detail {

static_assert(kStreamSocket == SOCK_STREAM);

namespace {

int Descriptor(SocketHandle socket) { return static_cast<int>(socket); }

sockaddr_in Native(const SocketAddress& address) {
  sockaddr_in native{};
  native.sin_family = address.family;
  native.sin_port = address.port;
  native.sin_addr.s_addr = address.address;
  return native;
}

const sockaddr* Generic(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }
sockaddr* Generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

void SwitchOn(SocketHandle socket, int level, int option) {
  const int on = 1;
  setsockopt(Descriptor(socket), level, option, &on, sizeof on);
}

SocketEvent Poll(SocketHandle socket, short events, int milliseconds) {
  pollfd entry{Descriptor(socket), events, 0};
  const int count = poll(&entry, 1, milliseconds);
  if (count == 0 || (count < 0 && errno == EINTR)) {
    return SocketEvent::None;
  }
  if (count < 0 || (entry.revents & POLLNVAL) != 0) {
    return SocketEvent::Failed;
  }
  return (entry.revents & POLLPRI) != 0 ? SocketEvent::Exceptional : SocketEvent::Ready;
}

}  // namespace

SocketAddress OsSocketAddress(std::uint32_t networkAddress, std::uint16_t port) {
  return {AF_INET, htons(port), networkAddress};
}

SocketHandle OsOpenSocket(std::int32_t type, bool tcp) {
  return static_cast<SocketHandle>(socket(AF_INET, type | SOCK_CLOEXEC, tcp ? IPPROTO_TCP : 0));
}

void OsSetNoDelay(SocketHandle socket) { SwitchOn(socket, IPPROTO_TCP, TCP_NODELAY); }

void OsAllowReuse(SocketHandle socket) { SwitchOn(socket, SOL_SOCKET, SO_REUSEADDR); }

bool OsConnect(SocketHandle socket, const SocketAddress& address) {
  const sockaddr_in native = Native(address);
  return connect(Descriptor(socket), Generic(native), sizeof native) == 0;
}

bool OsIsConnected(SocketHandle socket) {
  int error = 0;
  socklen_t size = sizeof error;
  if (getsockopt(Descriptor(socket), SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    return false;
  }
  if (error != 0) {
    errno = error;
  }
  return error == 0;
}

bool OsBind(SocketHandle socket, const SocketAddress& address) {
  const sockaddr_in native = Native(address);
  return bind(Descriptor(socket), Generic(native), sizeof native) == 0;
}

bool OsListen(SocketHandle socket, int backlog) { return listen(Descriptor(socket), backlog) == 0; }

SocketHandle OsAccept(SocketHandle listener, SocketAddress& peer) {
  sockaddr_in native{};
  const int descriptor = Uninterrupted([&] {
    socklen_t size = sizeof native;
    return accept4(Descriptor(listener), Generic(native), &size, SOCK_CLOEXEC);
  });
  if (descriptor != -1) {
    peer = {native.sin_family, native.sin_port, native.sin_addr.s_addr};
  }
  return static_cast<SocketHandle>(descriptor);
}

bool OsPeerAddress(SocketHandle socket, std::uint32_t& hostAddress) {
  sockaddr_in native{};
  socklen_t size = sizeof native;
  if (getpeername(Descriptor(socket), Generic(native), &size) != 0) {
    return false;
  }
  hostAddress = ntohl(native.sin_addr.s_addr);
  return true;
}

SocketEvent OsPollForData(SocketHandle socket, int milliseconds) {
  return Poll(socket, POLLIN | POLLPRI, milliseconds);
}

SocketEvent OsPollForRoom(SocketHandle socket, int milliseconds) { return Poll(socket, POLLOUT, milliseconds); }

int OsReceive(SocketHandle socket, void* buffer, int length) {
  const auto size = static_cast<std::size_t>(length);
  return static_cast<int>(Uninterrupted([&] { return recv(Descriptor(socket), buffer, size, 0); }));
}

int OsSend(SocketHandle socket, const void* buffer, int length) {
  const auto size = static_cast<std::size_t>(length);
  return static_cast<int>(Uninterrupted([&] { return send(Descriptor(socket), buffer, size, MSG_NOSIGNAL); }));
}

void OsCloseSocket(SocketHandle socket) {
  const CancelGuard noCancellation;  // it would leave a destructor
  const LastErrorGuard keep;
  close(Descriptor(socket));
}

}  // namespace qsbase::detail
