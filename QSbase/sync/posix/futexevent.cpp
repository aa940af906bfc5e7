#include <QSbase/sync/posix/futexevent.h>

#include <QSbase/sync/posix/futextake.h>

namespace qsbase::detail {

namespace {

constexpr std::uint32_t kSignal = 1;
constexpr std::uint32_t kGeneration = 2;

bool IsSignalled(std::uint32_t word) { return (word & kSignal) != 0; }

std::uint32_t Signalled(std::uint32_t word) { return IsSignalled(word) ? word : (word + kGeneration) | kSignal; }

}  // namespace

// The word is written also when it stays the same: that hands what this thread did before to who takes the signal.
void FutexEvent::Set() noexcept {
  std::uint32_t word = _word.load(std::memory_order_relaxed);
  while (!_word.compare_exchange_weak(word, Signalled(word), std::memory_order_seq_cst, std::memory_order_relaxed)) {
  }
  if (IsSignalled(word)) {
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
  return WaitAndTake({_word, _waiters, _scope}, timeoutMs, [this](std::uint32_t& seen) { return TryTake(seen); });
}

bool FutexEvent::TryTake(std::uint32_t& seen) noexcept {
  std::uint32_t word = _word.load(std::memory_order_seq_cst);
  if (_manualReset) {
    return IsSignalled(word) || word != seen;  // seen stays what it was at the start of the wait
  }
  while (IsSignalled(word)) {
    if (_word.compare_exchange_weak(word, word & ~kSignal, std::memory_order_seq_cst)) {
      return true;
    }
  }
  seen = word;
  return false;
}

}  // namespace qsbase::detail
