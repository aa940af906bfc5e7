#include <QSbase/sync/posix/futexevent.h>

#include <QSbase/killguard.h>

namespace qsbase::detail {

namespace {

constexpr std::uint32_t kSignal = 1;
constexpr std::uint32_t kGeneration = 2;

std::uint32_t Signalled(std::uint32_t word) { return (word & kSignal) != 0 ? word : (word + kGeneration) | kSignal; }

}  // namespace

// The word is written also when it stays the same: that hands what this thread did before to who takes the signal.
// Either a waiter has counted itself before this looks at the count, or it finds the word changed before it sleeps.
void FutexEvent::Set() noexcept {
  std::uint32_t word = _word.load(std::memory_order_relaxed);
  while (!_word.compare_exchange_weak(word, Signalled(word), std::memory_order_seq_cst, std::memory_order_relaxed)) {
  }
  if ((word & kSignal) != 0) {
    return;
  }
  if (_scope == FutexScope::Machine) {
    // Those of other processes are not counted, and one that is woken alone may be killed before it takes the signal.
    FutexWake(_word, kFutexAll, _scope);
  } else if (_waiters.load(std::memory_order_seq_cst) != 0) {
    FutexWake(_word, _manualReset ? kFutexAll : 1, _scope);
  }
}

void FutexEvent::Reset() noexcept { _word.fetch_and(~kSignal, std::memory_order_acq_rel); }

WaitResult FutexEvent::Wait(int timeoutMs) noexcept {
  std::uint32_t seen = _word.load(std::memory_order_relaxed);
  if (TryTake(seen)) {
    return WaitResult::Signaled;
  }
  if (timeoutMs == 0) {
    return WaitResult::Timeout;
  }
  return WaitUntil(FutexDeadlineAfter(timeoutMs), seen) ? WaitResult::Signaled : WaitResult::Timeout;
}

// seen: the word without a signal that the caller saw last, for a manual-reset event the one at its start.
bool FutexEvent::TryTake(std::uint32_t& seen) noexcept {
  std::uint32_t word = _word.load(std::memory_order_seq_cst);
  if (_manualReset) {
    return (word & kSignal) != 0 || word != seen;
  }
  while ((word & kSignal) != 0) {
    if (_word.compare_exchange_weak(word, word & ~kSignal, std::memory_order_seq_cst)) {
      return true;
    }
  }
  seen = word;
  return false;
}

bool FutexEvent::WaitUntil(const FutexDeadline& deadline, std::uint32_t seen) noexcept {
  const KillGuard guard;
  _waiters.fetch_add(1, std::memory_order_seq_cst);
  bool taken = TryTake(seen);
  for (bool inTime = true; !taken && inTime; taken = TryTake(seen)) {
    inTime = FutexWait(_word, seen, deadline, _scope);
    EndIfKilled();
  }
  _waiters.fetch_sub(1, std::memory_order_relaxed);
  return taken;
}

// The wake-up may have been the only one for a signal that is still there.
void FutexEvent::EndIfKilled() noexcept {
  if (IsKillDue()) {
    _waiters.fetch_sub(1, std::memory_order_relaxed);
    FutexWake(_word, _manualReset ? 0 : 1, _scope);
    EndKilledThread();
  }
}

}  // namespace qsbase::detail
