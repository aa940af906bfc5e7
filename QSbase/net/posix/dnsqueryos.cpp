#include <QSbase/net/dnsqueryos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/killguard.h>
#include <QSbase/net/dnsreply.h>
#include <QSbase/net/posix/hostsfile.h>

#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace qsbase::detail {

namespace {

constexpr const char* kHostsFile = "/etc/hosts";
constexpr std::size_t kLargestReply = 65535;

/// The system's resolver, as it is configured now, for one query.
class Resolver {
 public:
  Resolver() {
    const KillGuard guard;  // the configuration has a lock
    _ready = res_ninit(&_state) == 0;
  }
  ~Resolver() {
    const KillGuard guard;
    if (_ready) {
      res_nclose(&_state);
    }
  }
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  /// Asks for addresses, in the search domains too. The code of a failure is as OsDnsQuery() tells it.
  int Ask(const char* name, std::vector<DnsRecord>& records) {
    if (!_ready) {
      return errno;
    }
    std::vector<unsigned char> reply(kLargestReply);
    errno = 0;
    const int size = res_nsearch(&_state, name, ns_c_in, ns_t_a, reply.data(), static_cast<int>(reply.size()));
    if (size < 0) {
      return Failure(errno, reply);
    }
    return ReadDnsReply(reply.data(), std::min(static_cast<std::size_t>(size), reply.size()), records);
  }

 private:
  int Failure(int error, const std::vector<unsigned char>& reply) const {
    if (_state.res_h_errno == HOST_NOT_FOUND) {
      return kDnsNoSuchName;
    }
    if (_state.res_h_errno == NO_DATA) {
      return kDnsNoRecords;
    }
    // Where no server did better, the last answer of one stands in the buffer.
    const int answered = DnsReplyFailure(reply.data(), reply.size());
    if (answered != 0 && answered != kDnsNoSuchName) {
      return answered;
    }
    if (_state.res_h_errno == NO_RECOVERY) {
      return kDnsInvalidName;
    }
    return error != 0 ? error : ETIMEDOUT;
  }

  struct __res_state _state {};
  bool _ready = false;
};

bool IsInHostsFile(const char* name, std::vector<DnsRecord>& records) {
  const KillGuard guard;  // the C library lists its streams under a lock
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(kHostsFile, "re"), &std::fclose);
  const std::size_t before = records.size();
  if (file != nullptr) {
    ReadHostsFile(file.get(), name, records);
  }
  return records.size() > before;
}

}  // namespace

bool OsDottedAddress(const char* text, std::uint32_t& address) {
  address = inet_addr(text);
  return address != INADDR_NONE;
}

int OsDnsQuery(const char* name, std::vector<DnsRecord>& records) {
  const CancelGuard noCancellation;
  return IsInHostsFile(name, records) ? 0 : Resolver().Ask(name, records);
}

}  // namespace qsbase::detail
