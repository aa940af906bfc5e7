/// \file
/// What InitQsSocket() asks of the system, and what it logs of the answer (internal). Twins of the asking:
/// posix/socketstartos.cpp, win32/socketstartos.cpp.
#ifndef QSBASE_NET_SOCKETSTART_H
#define QSBASE_NET_SOCKETSTART_H

#include <string>

namespace qsbase::detail {

/// What the system says of its sockets.
struct SocketSystem {
  std::string description;
  std::string status;
  int maxSockets = 0;
  bool isVersion22 = false;
};

/// Starts the system's sockets. \returns 0, or the Winsock number of the reason: then \p system is untouched.
int OsStartSockets(SocketSystem& system);

/// Undoes one start. \returns 0, or the Winsock number of the reason.
int OsStopSockets();

/// Logs how a start went; \p code is its result.
void ReportSocketStart(int code, const SocketSystem& system);

/// Logs how a stop went.
void ReportSocketStop(int code);

}  // namespace qsbase::detail

#endif
