#include <QSbase/errorsos.h>

#include <QSbase/net/dnsrecord.h>
#include <QSbase/net/socketerror.h>

#include <cerrno>
#include <cstring>

namespace qsbase::detail {

namespace {

/// The texts of codes that are none of the system's, but which the look-up of hosts and sockets give.
const char* NetworkErrorText(int code) {
  switch (code) {
    case kDnsFormatError:
      return "DNS server unable to interpret format.";
    case kDnsServerFailure:
      return "DNS server failure.";
    case kDnsNoSuchName:
      return "DNS name does not exist.";
    case kDnsNotImplemented:
      return "DNS request not supported by name server.";
    case kDnsRefused:
      return "DNS operation refused.";
    case kDnsNoRecords:
      return "No records found for given DNS query.";
    case kDnsBadPacket:
      return "Bad DNS packet.";
    case kDnsInvalidName:
      return "DNS name contains an invalid character.";
    default:
      return SocketErrorText(code);
  }
}

}  // namespace

int OsGetLastError() noexcept { return errno; }

void OsSetLastError(int code) noexcept { errno = code; }

std::string OsErrorText(int code) {
  // strerror_r makes up a text for an unknown code, in the language of the locale; only the name tells.
  if (strerrorname_np(code) == nullptr) {
    return NetworkErrorText(code);
  }
  char buffer[256];
  return strerror_r(code, buffer, sizeof buffer);
}

}  // namespace qsbase::detail
