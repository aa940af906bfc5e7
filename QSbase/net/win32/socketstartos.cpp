#include <QSbase/net/socketstart.h>

#include <QSbase/win32/windowsapi.h>
#include <winsock2.h>

namespace qsbase::detail {

int OsStartSockets(SocketSystem& system) {
  WSADATA data{};
  const int code = WSAStartup(MAKEWORD(2, 2), &data);
  if (code == 0) {
    system = {data.szDescription, data.szSystemStatus, data.iMaxSockets, data.wVersion == MAKEWORD(2, 2)};
  }
  return code;
}

int OsStopSockets() { return WSACleanup() == 0 ? 0 : WSAGetLastError(); }

}  // namespace qsbase::detail
