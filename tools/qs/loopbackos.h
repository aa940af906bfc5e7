/// \file
/// TCP on the loopback address, as much of it as the built-in origin needs.
/// No call here raises a signal in the process, and child processes inherit nothing. Twins: posix/loopbackos.cpp,
/// win32/loopbackos.cpp.
#ifndef QS_LOOPBACKOS_H
#define QS_LOOPBACKOS_H

#include <cstddef>
#include <cstdint>

namespace qs {

/// A socket of the operating system.
using SocketHandle = std::intptr_t;
constexpr SocketHandle kNoSocket = -1;

/// Listens on 127.0.0.1 at a free port. \returns the socket, kNoSocket on failure with the last error set.
/// \param port receives the port.
SocketHandle ListenOnLoopback(unsigned short& port);

/// Waits for the next connection. \returns its socket, kNoSocket when none came in that time or on failure.
SocketHandle AcceptWithin(SocketHandle listener, int milliseconds);

/// Reads what is there, waiting for it. \returns the number of bytes, 0 at the end of the stream, -1 on failure or when
/// nothing came in that time.
int ReceiveWithin(SocketHandle connection, char* buffer, std::size_t size, int milliseconds);

/// Sends everything, waiting at most that long for each piece. \returns false when the peer is gone or does not read.
bool SendAll(SocketHandle connection, const char* data, std::size_t size, int milliseconds);

/// Closes a socket; kNoSocket is no error.
void CloseSocket(SocketHandle socket);

}  // namespace qs

#endif
