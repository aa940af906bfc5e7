/// \file
/// The system's sockets (internal). Twins: posix/socketos.cpp, win32/socketos.cpp.
///
/// A function that gives false, kNoSocket or -1 has failed and left the reason in the last error (LastSocketError()).
/// None raises a signal, and only OsConnect(), OsListen() and the waits for data and for room end because of one. Any
/// thread may call; a socket is for one at a time.
#ifndef QSBASE_NET_SOCKETOS_H
#define QSBASE_NET_SOCKETOS_H

#include <cstdint>

namespace qsbase::detail {

/// A socket of the system. The handles of 64-bit Windows have 32 significant bits.
using SocketHandle = std::uint32_t;
inline constexpr SocketHandle kNoSocket = 0xFFFFFFFF;

inline constexpr std::int32_t kStreamSocket = 1;

/// An IPv4 address; all zero when it is none.
struct SocketAddress {
  std::uint16_t family;
  std::uint16_t port;     ///< in network order
  std::uint32_t address;  ///< in network order
};

/// The address with its family and \p port, which is in host order.
SocketAddress OsSocketAddress(std::uint32_t networkAddress, std::uint16_t port);

/// A blocking IPv4 socket that no child process inherits. Without \p tcp its protocol is the one that goes with the
/// type.
SocketHandle OsOpenSocket(std::int32_t type, bool tcp);

/// Sends small pieces at once.
void OsSetNoDelay(SocketHandle socket);

/// Lets an address be bound that only ended connections use, where the system needs to be asked for it.
void OsAllowReuse(SocketHandle socket);

/// After a failure with kSocketInProgress or kSocketInterrupted the connection is still being made.
bool OsConnect(SocketHandle socket, const SocketAddress& address);

/// Whether the attempt that is over (OsPollForRoom() said so) has succeeded.
bool OsIsConnected(SocketHandle socket);

bool OsBind(SocketHandle socket, const SocketAddress& address);
bool OsListen(SocketHandle socket, int backlog);

/// The connection is as OsOpenSocket() makes a socket.
SocketHandle OsAccept(SocketHandle listener, SocketAddress& peer);

/// The peer's address in host order.
bool OsPeerAddress(SocketHandle socket, std::uint32_t& hostAddress);

enum class SocketEvent {
  None,         ///< the time is over, or a signal came
  Ready,        ///< what was waited for, the end of the stream, or an error
  Exceptional,  ///< urgent data
  Failed        ///< there is nothing to wait for
};

/// Waits at most that long (no limit when negative) until the socket can be read, or looked at for exceptions too.
SocketEvent OsPollForData(SocketHandle socket, int milliseconds);

/// The same until it can be written to.
SocketEvent OsPollForRoom(SocketHandle socket, int milliseconds);

/// The number of bytes, 0 at the end of the stream. \p length is above 0.
int OsReceive(SocketHandle socket, void* buffer, int length);
int OsSend(SocketHandle socket, const void* buffer, int length);

/// Keeps the last error.
void OsCloseSocket(SocketHandle socket);

}  // namespace qsbase::detail

#endif
