/// \file
/// Errors of sockets, as Winsock numbers on every target, and their texts (internal). Twins of the part that asks the
/// system: posix/socketerroros.cpp, win32/socketerroros.cpp.
///
/// Any thread may call these functions.
#ifndef QSBASE_NET_SOCKETERROR_H
#define QSBASE_NET_SOCKETERROR_H

namespace qsbase::detail {

// Those that the library itself knows by name.
inline constexpr int kSocketInterrupted = 10004;
inline constexpr int kSocketBadAddress = 10014;
inline constexpr int kSocketInvalidArgument = 10022;
inline constexpr int kSocketInProgress = 10036;
inline constexpr int kSocketNetworkDown = 10050;
inline constexpr int kSocketTooManyProcesses = 10067;
inline constexpr int kSocketSystemNotReady = 10091;
inline constexpr int kSocketVersionNotSupported = 10092;
inline constexpr int kSocketNotStarted = 10093;

/// The text of a Winsock number; empty when the table of 50 has none. A literal.
const char* SocketErrorText(int code);

/// The Winsock number of an error as the system gives it: an `errno` value on Linux, where one that Winsock has no
/// number for stays as it is; on Windows the number itself.
int SocketErrorFrom(int systemCode);

/// The calling thread's last socket error as a Winsock number. Leaves the last error alone.
int LastSocketError();

}  // namespace qsbase::detail

#endif
