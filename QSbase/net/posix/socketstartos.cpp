#include <QSbase/net/socketstart.h>

#include <sys/resource.h>

#include <algorithm>
#include <limits>

namespace qsbase::detail {

namespace {

// As for descriptors, whose limit is theirs too.
int MaxSockets() {
  constexpr rlim_t kMost = std::numeric_limits<int>::max();
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  return static_cast<int>(std::min(limit.rlim_cur, kMost));
}

}  // namespace

int OsStartSockets(SocketSystem& system) {
  system = {"BSD sockets", "Running", MaxSockets(), true};
  return 0;
}

int OsStopSockets() { return 0; }

}  // namespace qsbase::detail
