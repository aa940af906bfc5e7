#include <QSbase/killguard.h>

#include <QSbase/sync/posix/futex.h>

#include <sys/syscall.h>
#include <unistd.h>

namespace qsbase::detail {

constinit thread_local KillState killState;

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
