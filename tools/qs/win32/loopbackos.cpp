#include "../loopbackos.h"

#define WIN32_LEAN_AND_MEAN
#include <winsock2.h>

#include <algorithm>
#include <limits>

namespace qs {
namespace {

constexpr SOCKET Native(SocketHandle socket) { return static_cast<SOCKET>(socket); }

static_assert(sizeof(SocketHandle) == sizeof(SOCKET) && Native(kNoSocket) == INVALID_SOCKET);

// Winsock wants to be started; it stays until the process ends.
bool StartWinsock() {
  static const bool started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  return started;
}

bool WaitFor(SocketHandle socket, short events, int milliseconds) {
  WSAPOLLFD entry{Native(socket), events, 0};
  return WSAPoll(&entry, 1, milliseconds) > 0;
}

bool SetNonBlocking(SOCKET socket) {
  u_long on = 1;
  return ioctlsocket(socket, FIONBIO, &on) == 0;
}

bool BindToLoopback(SOCKET socket, unsigned short& port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket, generic, length) != 0 || listen(socket, 16) != 0 || getsockname(socket, generic, &length) != 0) {
    return false;
  }
  port = ntohs(address.sin_port);
  return true;
}

int PieceOf(std::size_t size) { return static_cast<int>(std::min<std::size_t>(size, std::numeric_limits<int>::max())); }

}  // namespace

SocketHandle ListenOnLoopback(unsigned short& port) {
  if (!StartWinsock()) {
    SetLastError(WSANOTINITIALISED);
    return kNoSocket;
  }
  const SOCKET socket = WSASocketA(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
  if (socket == INVALID_SOCKET) {
    return kNoSocket;
  }
  if (!SetNonBlocking(socket) || !BindToLoopback(socket, port)) {
    const int error = WSAGetLastError();
    closesocket(socket);
    WSASetLastError(error);
    return kNoSocket;
  }
  return static_cast<SocketHandle>(socket);
}

SocketHandle AcceptWithin(SocketHandle listener, int milliseconds) {
  if (!WaitFor(listener, POLLRDNORM, milliseconds)) {
    return kNoSocket;
  }
  const SOCKET connection = accept(Native(listener), nullptr, nullptr);
  if (connection == INVALID_SOCKET) {
    return kNoSocket;
  }
  SetHandleInformation(reinterpret_cast<HANDLE>(connection), HANDLE_FLAG_INHERIT, 0);
  if (!SetNonBlocking(connection)) {
    closesocket(connection);
    return kNoSocket;
  }
  return static_cast<SocketHandle>(connection);
}

int ReceiveWithin(SocketHandle connection, char* buffer, std::size_t size, int milliseconds) {
  if (!WaitFor(connection, POLLRDNORM, milliseconds)) {
    return -1;
  }
  return recv(Native(connection), buffer, PieceOf(size), 0);
}

bool SendAll(SocketHandle connection, const char* data, std::size_t size, int milliseconds) {
  while (size > 0) {
    if (!WaitFor(connection, POLLWRNORM, milliseconds)) {
      return false;
    }
    const int sent = send(Native(connection), data, PieceOf(size), 0);
    if (sent == SOCKET_ERROR && WSAGetLastError() == WSAEWOULDBLOCK) {
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
    closesocket(Native(socket));
  }
}

}  // namespace qs
