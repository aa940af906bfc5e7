/// \file
/// A counted lock within the process. Every operation may be called from any thread.
#ifndef QSBASE_SYNC_SEMAPHORE_H
#define QSBASE_SYNC_SEMAPHORE_H

#include <memory>

#include <QSbase/export.h>
#include <QSbase/sync/event.h>

/// A semaphore of this process: each WaitFor() that succeeds takes one from its count and waits while that is 0,
/// Release() puts back.
///
/// \code
/// QsSemaphore connections(4, 4);
/// if (connections.WaitFor(1000) == WaitResult::Signaled) {
///   // ... one of at most four at a time ...
///   connections.Release(1, nullptr);
/// }
/// \endcode
class QSBASE_API QsSemaphore {
 public:
  /// Makes a semaphore that starts at \p initialCount and never exceeds \p maximumCount; both are raised to at least 1.
  /// Does not throw: IsInit() tells whether it was made. It is not with an initial count above the maximum.
  QsSemaphore(int initialCount, int maximumCount);
  /// Waits for a Release() that is under way in another thread. Nobody may wait for the semaphore any more.
  ~QsSemaphore();
  QsSemaphore(const QsSemaphore&) = delete;
  QsSemaphore& operator=(const QsSemaphore&) = delete;

  /// Adds \p count. False, and nothing changes, when that is not at least 1, when the sum would exceed the maximum, or
  /// without a system object.
  /// \param previousCount  receives the count before, unless it is null; after a failure it holds what it held.
  bool Release(int count, int* previousCount);

  /// Waits until the count is above 0 and takes one from it, at most \p timeoutMs milliseconds (never less); a negative
  /// time has no limit. Without a system object logs error "QsSemaphore::WaitFor: impl is zero " (with a blank at its
  /// end) and gives Failed.
  WaitResult WaitFor(int timeoutMs);

  /// Whether the system object exists.
  bool IsInit();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

#endif
