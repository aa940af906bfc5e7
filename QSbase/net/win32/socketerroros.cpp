#include <QSbase/net/socketerror.h>

#include <QSbase/win32/windowsapi.h>
#include <winsock2.h>

namespace qsbase::detail {

int SocketErrorFrom(int systemCode) { return systemCode; }

int LastSocketError() { return WSAGetLastError(); }

}  // namespace qsbase::detail
