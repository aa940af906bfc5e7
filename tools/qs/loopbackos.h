/// \file
/// TCP on the loopback address, as much of it as the built-in origin needs.
/// No call here raises a signal in the process. A descriptor is -1 when there is none.
#ifndef QS_LOOPBACKOS_H
#define QS_LOOPBACKOS_H

#include <cstddef>

namespace qs {

/// Listens on 127.0.0.1 at a free port. \returns the descriptor, -1 on failure with the last error set.
/// \param port receives the port.
int ListenOnLoopback(unsigned short& port);

/// Waits for the next connection. \returns its descriptor, -1 when none came in that time or on failure.
int AcceptWithin(int listener, int milliseconds);

/// Reads what is there, waiting for it. \returns the number of bytes, 0 at the end of the stream, -1 on failure or when
/// nothing came in that time.
int ReceiveWithin(int connection, char* buffer, std::size_t size, int milliseconds);

/// Sends everything, waiting at most that long for each piece. \returns false when the peer is gone or does not read.
bool SendAll(int connection, const char* data, std::size_t size, int milliseconds);

/// Closes a descriptor; -1 is no error.
void CloseDescriptor(int descriptor);

}  // namespace qs

#endif
