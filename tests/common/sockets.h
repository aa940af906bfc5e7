/// \file
/// What tests do to sockets behind the library's back, under one name for every target. A number of one is what
/// QsSocket::GetSocket() gives.
#ifndef QSBASE_TESTS_COMMON_SOCKETS_H
#define QSBASE_TESTS_COMMON_SOCKETS_H

#ifdef _WIN32
#include <QSbase/win32/windowsapi.h>
#include <winsock2.h>
#else
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <string>

#include <QSbase/net/socket.h>

namespace qsbase::testing {

#ifdef _WIN32
using NativeSocket = SOCKET;
using AddressLength = int;
inline constexpr int kSendingEnd = SD_SEND;
#else
using NativeSocket = int;
using AddressLength = socklen_t;
inline constexpr int kSendingEnd = SHUT_WR;
#endif

inline NativeSocket Native(int socket) { return static_cast<NativeSocket>(socket); }

/// An address of this machine, in host order; zero for a socket that is not bound.
struct LocalAddress {
  std::uint32_t address = 0;
  int port = 0;
};

inline LocalAddress AddressOf(int socket) {
  sockaddr_in native{};
  AddressLength length = sizeof native;
  if (getsockname(Native(socket), reinterpret_cast<sockaddr*>(&native), &length) != 0) {
    return {};
  }
  return {ntohl(native.sin_addr.s_addr), ntohs(native.sin_port)};
}

inline int PortOf(int socket) { return AddressOf(socket).port; }

/// Sends all of it, in as many pieces as it takes.
inline bool WriteAll(QsSocket& socket, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const int count = socket.Write(bytes.data() + done, static_cast<int>(bytes.size() - done));
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

/// The stream of this end is over; it may still receive.
inline void EndSending(int socket) { shutdown(Native(socket), kSendingEnd); }

/// One urgent byte, apart from the others.
inline bool SendUrgent(int socket, char byte) { return send(Native(socket), &byte, 1, MSG_OOB) == 1; }

/// The next close breaks the connection off: the peer's next operation fails.
inline void BreakOffAtClose(int socket) {
  const linger now{1, 0};
  setsockopt(Native(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&now), sizeof now);
}

/// The value of a TCP option that is on or off.
inline bool IsOn(int socket, int level, int option) {
  int value = 0;
  AddressLength length = sizeof value;
  return getsockopt(Native(socket), level, option, reinterpret_cast<char*>(&value), &length) == 0 && value != 0;
}

/// Whether a child process would get it too.
inline bool IsInheritedSocket(int socket) {
#ifdef _WIN32
  DWORD flags = 0;
  return GetHandleInformation(reinterpret_cast<HANDLE>(Native(socket)), &flags) != 0 &&
         (flags & HANDLE_FLAG_INHERIT) != 0;
#else
  return (fcntl(socket, F_GETFD) & FD_CLOEXEC) == 0;
#endif
}

/// Closes it although it belongs to somebody.
inline void CloseBehindItsBack(int socket) {
#ifdef _WIN32
  closesocket(Native(socket));
#else
  close(socket);
#endif
}

}  // namespace qsbase::testing

#endif
