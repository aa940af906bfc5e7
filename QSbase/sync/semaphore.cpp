#include <QSbase/sync/semaphore.h>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/sync/lock.h>
#include <QSbase/sync/semaphoreos.h>

#include <algorithm>
#include <mutex>
#include <new>

/// `guard` is held by whoever releases or destroys the semaphore, so that it outlives a Release() that has already let
/// the thread go on that destroys it.
struct QsSemaphore::Impl {
  qsbase::detail::Lock guard;
  std::unique_ptr<qsbase::detail::SemaphoreOs> semaphore;
};

QsSemaphore::QsSemaphore(int initialCount, int maximumCount) : _impl(new (std::nothrow) Impl) {
  if (_impl) {
    _impl->semaphore = qsbase::detail::SemaphoreOs::Make(std::max(initialCount, 1), std::max(maximumCount, 1));
  }
}

QsSemaphore::~QsSemaphore() {
  if (_impl) {
    const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
    _impl->semaphore.reset();
  }
}

bool QsSemaphore::Release(int count, int* previousCount) {
  if (!IsInit() || count < 1) {
    return false;
  }
  int ignored = 0;
  const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
  return _impl->semaphore->Release(count, previousCount != nullptr ? *previousCount : ignored);
}

WaitResult QsSemaphore::WaitFor(int timeoutMs) {
  if (!IsInit()) {
    QsLogMsg(qsbase::detail::kLogError, "QsSemaphore::WaitFor: impl is zero ");
    return WaitResult::Failed;
  }
  return _impl->semaphore->Wait(timeoutMs);
}

bool QsSemaphore::IsInit() { return _impl != nullptr && _impl->semaphore != nullptr; }
