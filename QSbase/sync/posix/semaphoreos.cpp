#include <QSbase/sync/semaphoreos.h>

#include <QSbase/sync/posix/futextake.h>

#include <new>

namespace qsbase::detail {

namespace {

/// The word is the count.
class FutexSemaphore : public SemaphoreOs {
 public:
  FutexSemaphore(int initialCount, int maximumCount) noexcept
      : _word(static_cast<std::uint32_t>(initialCount)), _maximum(static_cast<std::uint32_t>(maximumCount)) {}

  bool Release(int count, int& previousCount) noexcept override;
  WaitResult Wait(int timeoutMs) noexcept override;

 private:
  bool TryTake(std::uint32_t& seen) noexcept;

  FutexWord _word;
  const std::uint32_t _maximum;
  FutexWord _waiters{0};
};

bool FutexSemaphore::Release(int count, int& previousCount) noexcept {
  const auto more = static_cast<std::uint32_t>(count);
  std::uint32_t word = _word.load(std::memory_order_relaxed);
  do {
    if (more > _maximum - word) {
      return false;
    }
  } while (!_word.compare_exchange_weak(word, word + more, std::memory_order_seq_cst, std::memory_order_relaxed));
  if (_waiters.load(std::memory_order_seq_cst) != 0) {
    FutexWake(_word, count);
  }
  previousCount = static_cast<int>(word);
  return true;
}

WaitResult FutexSemaphore::Wait(int timeoutMs) noexcept {
  return WaitAndTake({_word, _waiters, FutexScope::Process}, timeoutMs,
                     [this](std::uint32_t& seen) { return TryTake(seen); });
}

bool FutexSemaphore::TryTake(std::uint32_t& seen) noexcept {
  std::uint32_t word = _word.load(std::memory_order_seq_cst);
  while (word != 0) {
    if (_word.compare_exchange_weak(word, word - 1, std::memory_order_seq_cst)) {
      return true;
    }
  }
  seen = word;
  return false;
}

}  // namespace

std::unique_ptr<SemaphoreOs> SemaphoreOs::Make(int initialCount, int maximumCount) noexcept {
  if (initialCount > maximumCount) {
    return nullptr;
  }
  return std::unique_ptr<SemaphoreOs>(new (std::nothrow) FutexSemaphore(initialCount, maximumCount));
}

}  // namespace qsbase::detail
