#include "../loopbackos.h"

#define WIN32_LEAN_AND_MEAN
#include <winsock2.h>

namespace qs {

unsigned short PortOf(int socket) {
  sockaddr_in address{};
  int length = sizeof address;
  getsockname(static_cast<SOCKET>(socket), reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

void LimitWrites(int socket, int milliseconds) {
  const auto limit = static_cast<DWORD>(milliseconds);
  setsockopt(static_cast<SOCKET>(socket), SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&limit), sizeof limit);
}

}  // namespace qs
