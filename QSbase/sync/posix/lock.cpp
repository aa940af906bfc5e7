#include <QSbase/sync/lock.h>

namespace qsbase::detail {

void Lock::Wait() noexcept {
  while (_word.exchange(kAwaited, std::memory_order_acquire) != kFree) {
    // Who owns the lock finds it awaited and wakes the next one, so a wake-up that came here is not missed.
    if (IsKillDue()) {
      EndKilledThread();
    }
    FutexWait(_word, kAwaited);
  }
}

}  // namespace qsbase::detail
