#include <QSbase/sync/posix/futexevent.h>

#include <QSbase/sync/posix/futextake.h>

namespace qsbase::detail {

namespace {

constexpr std::uint32_t kSignal = 1;

bool IsSignalled(std::uint32_t word) { return (word & kSignal) != 0; }

// False when it is gone already. Adding to the bit clears it and carries into the number above.
bool TakeSignal(FutexWord& word, std::uint32_t& seen) {
  while (IsSignalled(seen)) {
    if (word.compare_exchange_weak(seen, seen + kSignal, std::memory_order_seq_cst)) {
      return true;
    }
  }
  return false;
}

}  // namespace

// The word is written also when it stays the same: that hands what this thread did before to who takes the signal.
void FutexEvent::Set() noexcept {
  if (_scope == FutexScope::Machine) {
    // Those of other processes are not counted, and one that is woken alone may be killed before it takes the signal.
    FutexSetBitsAndWakeAll(_word, kSignal, _scope);
    return;
  }
  const bool wasSignalled = IsSignalled(_word.fetch_or(kSignal, std::memory_order_seq_cst));
  if (!wasSignalled && _waiters.load(std::memory_order_seq_cst) != 0) {
    FutexWake(_word, _manualReset ? kFutexAll : 1, _scope);
  }
}

void FutexEvent::Reset() noexcept {
  std::uint32_t word = _word.load(std::memory_order_seq_cst);
  TakeSignal(_word, word);
}

WaitResult FutexEvent::Wait(int timeoutMs) noexcept {
  return WaitAndTake({_word, _waiters, _scope}, timeoutMs, [this](std::uint32_t& seen) { return TryTake(seen); });
}

bool FutexEvent::TryTake(std::uint32_t& seen) noexcept {
  std::uint32_t word = _word.load(std::memory_order_seq_cst);
  if (_manualReset) {
    return IsSignalled(word) || word != seen;  // seen stays what it was at the start of the wait
  }
  const bool isTaken = TakeSignal(_word, word);
  seen = word;
  return isTaken;
}

}  // namespace qsbase::detail
