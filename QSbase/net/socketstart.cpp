#include <QSbase/net/socketstart.h>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/socket.h>
#include <QSbase/net/socketerror.h>

namespace qsbase::detail {

namespace {

struct Cause {
  int code;
  const char* text;
};

constexpr Cause kStartFailures[] = {
    {kSocketBadAddress, "Pointer to the WSADATA struct is invalid"},
    {kSocketInProgress, "A blocking Windows Sockets 1.1 operation is in progress"},
    {kSocketTooManyProcesses, "Limit of taks supported by this Windows Socket implementation has reached"},
    {kSocketSystemNotReady, "Network subsystem not ready for network communication"},
    {kSocketVersionNotSupported, "Requested version not provided by this Windows Sockets implementation"},
};

constexpr Cause kStopFailures[] = {
    {kSocketInProgress,
     "A blocking Windows Sockets 1.1 call is in progress, or the service provider is still processing a callback "
     "function"},
    {kSocketNetworkDown, "The network subsystem has failed"},
    {kSocketNotStarted, "Windows Sockets not initialized"},
};

void Alert(const char* text) {
  constexpr unsigned int kErrorOfLevel5 = kLogError | 5;
  constexpr int kAlert = 5;
  QsLogAlert(kErrorOfLevel5, kAlert, std::string(text));
}

template <int count>
void AlertOf(int code, const Cause (&causes)[count]) {
  for (const Cause& cause : causes) {
    if (cause.code == code) {
      Alert(cause.text);
    }
  }
}

}  // namespace

void ReportSocketStart(int code, const SocketSystem& system) {
  if (code != 0) {
    AlertOf(code, kStartFailures);
    return;
  }
  QsLogMsg(kLogInfo1, "WinSock Description: %s, Systemstatus: %s, MaxSockets: %d", system.description.c_str(),
           system.status.c_str(), system.maxSockets);
  if (system.isVersion22) {
    QsLogMsg(kLogInfo1, "WinSock DLL 2.2 or higher found");
  } else {
    Alert("Your WinSock DLL does not Support 2.2");
  }
}

void ReportSocketStop(int code) { AlertOf(code, kStopFailures); }

}  // namespace qsbase::detail

void InitQsSocket(int phase) {
  if (phase == 1) {
    qsbase::detail::SocketSystem system;
    const int code = qsbase::detail::OsStartSockets(system);
    qsbase::detail::ReportSocketStart(code, system);
  } else if (phase == 2) {
    qsbase::detail::ReportSocketStop(qsbase::detail::OsStopSockets());
  }
}
