/// \file
/// The system's part of a semaphore (internal). Twins: posix/semaphoreos.cpp, win32/semaphoreos.cpp.
///
/// Any thread may call. Destroying a semaphore is for the last who uses it.
#ifndef QSBASE_SYNC_SEMAPHOREOS_H
#define QSBASE_SYNC_SEMAPHOREOS_H

#include <QSbase/sync/event.h>

#include <memory>

namespace qsbase::detail {

class SemaphoreOs {
 public:
  /// Null when the system makes none, as with an initial count above the maximum. Both are 1 or more.
  static std::unique_ptr<SemaphoreOs> Make(int initialCount, int maximumCount) noexcept;

  SemaphoreOs() = default;
  virtual ~SemaphoreOs() = default;
  SemaphoreOs(const SemaphoreOs&) = delete;
  SemaphoreOs& operator=(const SemaphoreOs&) = delete;

  /// Adds \p count, which is 1 or more. False, and nothing changes, when the sum would exceed the maximum.
  /// \p previousCount is written on success only.
  virtual bool Release(int count, int& previousCount) noexcept = 0;

  /// At least \p timeoutMs milliseconds by the steady clock before it gives Timeout; no limit when negative.
  virtual WaitResult Wait(int timeoutMs) noexcept = 0;
};

}  // namespace qsbase::detail

#endif
