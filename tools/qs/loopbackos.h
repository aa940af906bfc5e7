/// \file
/// What the built-in origin asks of a socket that QsSocket does not tell or set. Sockets are what QsSocket::GetSocket()
/// gives. Twins: posix/loopbackos.cpp, win32/loopbackos.cpp.
#ifndef QS_LOOPBACKOS_H
#define QS_LOOPBACKOS_H

namespace qs {

/// The port that a socket is bound to; 0 for one that is not.
unsigned short PortOf(int socket);

/// A write to a peer that does not read fails after about that long.
void LimitWrites(int socket, int milliseconds);

}  // namespace qs

#endif
