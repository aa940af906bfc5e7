#include <QSbase/killguard.h>

#include <QSbase/sync/posix/futex.h>

#include <sys/syscall.h>
#include <unistd.h>

namespace qsbase::detail {

constinit thread_local KillState killState;

// Not by a handler of fork(): those of others, which use the library's locks, may come before it.
bool IsAskedHere() noexcept {
  const int asker = killState.asked;
  if (asker != 0 && asker != getpid()) {
    killState.asked = 0;
    return false;
  }
  return asker != 0;
}

void EndKilledThread() noexcept {
  if (killState.ended != nullptr) {
    FutexWord& ended = *killState.ended;
    ended.store(kThreadKilled, std::memory_order_release);
    FutexWake(ended, kFutexAll);  // from here on the word may be gone
  }
  for (;;) {
    syscall(SYS_exit, 10);
  }
}

}  // namespace qsbase::detail
