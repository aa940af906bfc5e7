/// \file
/// The wait for something that a futex word counts or flags, and that one waiter takes from the others.
#ifndef QSBASE_SYNC_POSIX_FUTEXTAKE_H
#define QSBASE_SYNC_POSIX_FUTEXTAKE_H

#include <QSbase/killguard.h>
#include <QSbase/sync/event.h>
#include <QSbase/sync/posix/futex.h>

namespace qsbase::detail {

/// A word, and those of this process that sleep on it or are about to. Who gives changes the word before it looks at
/// the number, in the one order of all that is seq_cst: either it finds the waiter counted, or the waiter finds the
/// word changed before it sleeps.
struct FutexQueue {
  FutexWord& word;
  FutexWord& waiters;
  FutexScope scope;
};

/// Waits at most \p timeoutMs milliseconds, without limit when negative, until \p tryTake has taken what it wants from
/// the word. \p tryTake gets the word that the waiter saw last and, when it fails, puts there the one to sleep on.
///
/// A waiter that is killed takes nothing. It passes on its wake-up, which may have been the only one for something that
/// is still there.
template <class TryTake>
WaitResult WaitAndTake(const FutexQueue& queue, int timeoutMs, TryTake tryTake) noexcept {
  std::uint32_t seen = queue.word.load(std::memory_order_relaxed);
  if (tryTake(seen)) {
    return WaitResult::Signaled;
  }
  if (timeoutMs == 0) {
    return WaitResult::Timeout;
  }
  const FutexDeadline deadline = FutexDeadlineAfter(timeoutMs);
  const KillGuard guard;
  queue.waiters.fetch_add(1, std::memory_order_seq_cst);
  bool isTaken = tryTake(seen);
  for (bool inTime = true; !isTaken && inTime; isTaken = tryTake(seen)) {
    inTime = FutexWait(queue.word, seen, deadline, queue.scope);
    if (IsKillDue()) {
      queue.waiters.fetch_sub(1, std::memory_order_relaxed);
      FutexWake(queue.word, 1, queue.scope);
      EndKilledThread();
    }
  }
  queue.waiters.fetch_sub(1, std::memory_order_relaxed);
  return isTaken ? WaitResult::Signaled : WaitResult::Timeout;
}

}  // namespace qsbase::detail

#endif
