/// \file
/// The lock that guards the library's own data: small, not recursive, ready without a constructor having run, and safe
/// against QsThread::Kill: its owner is not killed, who waits for it may be.
/// Twins: posix/lock.cpp, win32/lock.cpp.
#ifndef QSBASE_SYNC_LOCK_H
#define QSBASE_SYNC_LOCK_H

#include <QSbase/killguard.h>

#ifndef _WIN32
#include <QSbase/sync/posix/futex.h>
#endif

namespace qsbase::detail {

/// For std::lock_guard, std::unique_lock and std::scoped_lock. Any thread. Leaves the last-error code alone.
///
/// \code
/// constinit Lock lock;  // a static variable
/// const std::lock_guard<Lock> guard(lock);
/// \endcode
class Lock {
 public:
  constexpr Lock() noexcept = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  /// Waits, without time limit, until the calling thread owns the lock. It must not own it yet.
  void lock() noexcept;
  /// Takes the lock when it is free.
  bool try_lock() noexcept;
  /// Frees the lock, which the calling thread must own. Another thread may destroy it as soon as it gets in.
  void unlock() noexcept;

 private:
#ifdef _WIN32
  void* _lock = nullptr;  // an SRWLOCK
#else
  static constexpr std::uint32_t kFree = 0;
  static constexpr std::uint32_t kOwned = 1;
  static constexpr std::uint32_t kAwaited = 2;  // owned, and somebody may sleep

  void Wait() noexcept;

  FutexWord _word{kFree};
#endif
};

#ifndef _WIN32

// In the header as the library's own functions enter and leave often.
inline void Lock::lock() noexcept {
  HoldBackKill();
  std::uint32_t found = kFree;
  if (!_word.compare_exchange_strong(found, kOwned, std::memory_order_acquire, std::memory_order_relaxed)) {
    Wait();
  }
}

inline bool Lock::try_lock() noexcept {
  HoldBackKill();
  std::uint32_t found = kFree;
  if (_word.compare_exchange_strong(found, kOwned, std::memory_order_acquire, std::memory_order_relaxed)) {
    return true;
  }
  AllowKill();
  return false;
}

inline void Lock::unlock() noexcept {
  if (_word.exchange(kFree, std::memory_order_release) == kAwaited) {
    FutexWake(_word, 1);
  }
  AllowKill();
}

#endif

}  // namespace qsbase::detail

#endif
