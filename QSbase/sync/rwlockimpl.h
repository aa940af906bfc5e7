/// \file
/// The state of a QsRWLock, over the library's own primitives (internal).
#ifndef QSBASE_SYNC_RWLOCKIMPL_H
#define QSBASE_SYNC_RWLOCKIMPL_H

#include <QSbase/killguard.h>
#include <QSbase/processos.h>
#include <QSbase/sync/criticalsection.h>
#include <QSbase/sync/event.h>
#include <QSbase/sync/rwlockstate.h>

#include <atomic>
#include <cstdint>

namespace qsbase::detail {

/// Guards a few instructions. Its holder is not killed. Leaves the last-error code alone.
class SpinLock {
 public:
  void Acquire(std::int32_t threadId) noexcept {
    HoldBackKill();
    if (_holder.exchange(threadId, std::memory_order_acquire) != 0) {
      Wait(threadId);
    }
  }

  void Release() noexcept {
    _holder.store(0, std::memory_order_release);
    AllowKill();
  }

 private:
  void Wait(std::int32_t threadId) noexcept;

  /// 0 when free, else the id of a thread that has or wants it.
  std::atomic<std::int32_t> _holder{0};
};

struct RWLockSystem {
  using Section = QsCriticalSection;
  using Spin = SpinLock;

  struct Event : QsEvent {
    Event() : QsEvent(true, false) {}
  };

  static void Enter(Section& section) { section.Enter(); }
  static void Leave(Section& section) { section.Leave(); }
  static bool IsOwned(const Section& section) noexcept { return section.IsOwned(); }
  static bool IsInit(const Section& section) noexcept { return section._impl != nullptr; }
  static std::int32_t ThreadId() noexcept { return OsKnownThreadId(); }
  static void HoldBackKill() noexcept { detail::HoldBackKill(); }
  static void AllowKill() noexcept { detail::AllowKill(); }
};

}  // namespace qsbase::detail

struct QsRWLockImpl : qsbase::detail::RWLockState<qsbase::detail::RWLockSystem> {
  bool IsInit() const { return qsbase::detail::RWLockSystem::IsInit(writeLock) && noReaders.IsInit(); }
};

#endif
