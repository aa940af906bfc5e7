#include <QSbase/net/socketos.h>

#include <QSbase/lasterrorguard.h>

#include <QSbase/win32/windowsapi.h>
#include <winsock2.h>

namespace qsbase::detail {

static_assert(kStreamSocket == SOCK_STREAM);

namespace {

SOCKET Native(SocketHandle socket) { return socket == kNoSocket ? INVALID_SOCKET : SOCKET{socket}; }

sockaddr_in Native(const SocketAddress& address) {
  sockaddr_in native{};
  native.sin_family = static_cast<short>(address.family);
  native.sin_port = address.port;
  native.sin_addr.s_addr = address.address;
  return native;
}

const sockaddr* Generic(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }
sockaddr* Generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

// The system promises handles of 32 significant bits; a layered provider makes its own.
SocketHandle Own(SOCKET socket) {
  const auto handle = static_cast<SocketHandle>(socket);
  if (socket == INVALID_SOCKET || Native(handle) == socket) {
    return handle;
  }
  closesocket(socket);
  WSASetLastError(WSAEMFILE);
  return kNoSocket;
}

SocketEvent Poll(SocketHandle socket, short events, int milliseconds) {
  WSAPOLLFD entry{Native(socket), events, 0};
  const int count = WSAPoll(&entry, 1, milliseconds);
  if (count == 0) {
    return SocketEvent::None;
  }
  if (count < 0 || (entry.revents & POLLNVAL) != 0) {
    return SocketEvent::Failed;
  }
  return (entry.revents & POLLRDBAND) != 0 ? SocketEvent::Exceptional : SocketEvent::Ready;
}

}  // namespace

SocketAddress OsSocketAddress(std::uint32_t networkAddress, std::uint16_t port) {
  return {AF_INET, htons(port), networkAddress};
}

SocketHandle OsOpenSocket(std::int32_t type, bool tcp) {
  // As socket() does it, but for the inheritance.
  constexpr DWORD kFlags = WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT;
  return Own(WSASocketA(AF_INET, type, tcp ? IPPROTO_TCP : 0, nullptr, 0, kFlags));
}

void OsSetNoDelay(SocketHandle socket) {
  const BOOL on = TRUE;
  setsockopt(Native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
}

// That is so by default; SO_REUSEADDR would let two programs listen at one address.
void OsAllowReuse(SocketHandle) {}

bool OsConnect(SocketHandle socket, const SocketAddress& address) {
  const sockaddr_in native = Native(address);
  return connect(Native(socket), Generic(native), sizeof native) == 0;
}

bool OsIsConnected(SocketHandle socket) {
  int error = 0;
  int size = sizeof error;
  if (getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) != 0) {
    return false;
  }
  if (error != 0) {
    WSASetLastError(error);
  }
  return error == 0;
}

bool OsBind(SocketHandle socket, const SocketAddress& address) {
  const sockaddr_in native = Native(address);
  return bind(Native(socket), Generic(native), sizeof native) == 0;
}

bool OsListen(SocketHandle socket, int backlog) { return listen(Native(socket), backlog) == 0; }

SocketHandle OsAccept(SocketHandle listener, SocketAddress& peer) {
  sockaddr_in native{};
  int size = sizeof native;
  const SocketHandle socket = Own(accept(Native(listener), Generic(native), &size));
  if (socket != kNoSocket) {
    SetHandleInformation(reinterpret_cast<HANDLE>(Native(socket)), HANDLE_FLAG_INHERIT, 0);
    peer = {static_cast<std::uint16_t>(native.sin_family), native.sin_port, native.sin_addr.s_addr};
  }
  return socket;
}

bool OsPeerAddress(SocketHandle socket, std::uint32_t& hostAddress) {
  sockaddr_in native{};
  int size = sizeof native;
  if (getpeername(Native(socket), Generic(native), &size) != 0) {
    return false;
  }
  hostAddress = ntohl(native.sin_addr.s_addr);
  return true;
}

// POLLPRI is refused by Microsoft's provider; urgent data has a band of its own.
SocketEvent OsPollForData(SocketHandle socket, int milliseconds) {
  return Poll(socket, POLLRDNORM | POLLRDBAND, milliseconds);
}

SocketEvent OsPollForRoom(SocketHandle socket, int milliseconds) { return Poll(socket, POLLWRNORM, milliseconds); }

int OsReceive(SocketHandle socket, void* buffer, int length) {
  return recv(Native(socket), static_cast<char*>(buffer), length, 0);
}

int OsSend(SocketHandle socket, const void* buffer, int length) {
  return send(Native(socket), static_cast<const char*>(buffer), length, 0);
}

void OsCloseSocket(SocketHandle socket) {
  const LastErrorGuard keep;
  closesocket(Native(socket));
}

}  // namespace qsbase::detail
