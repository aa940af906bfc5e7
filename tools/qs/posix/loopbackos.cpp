#include "../loopbackos.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace qs {

unsigned short PortOf(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

void LimitWrites(int socket, int milliseconds) {
  const timeval limit{milliseconds / 1000, milliseconds % 1000 * 1000L};
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace qs
