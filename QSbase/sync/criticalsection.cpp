#include <QSbase/sync/criticalsection.h>

#include <QSbase/errors.h>
#include <QSbase/lasterrorguard.h>

#include <atomic>
#include <mutex>
#include <new>
#include <thread>

/// `owner` is set and cleared by the thread that holds `mutex`; others only compare it with their own id, which it
/// cannot become behind their back. `depth` belongs to the owner.
struct QsCriticalSection::Impl {
  std::mutex mutex;
  std::atomic<std::thread::id> owner{};
  unsigned int depth = 0;
};

QsCriticalSection::QsCriticalSection() noexcept : _impl(new (std::nothrow) Impl) {}

QsCriticalSection::~QsCriticalSection() = default;

void QsCriticalSection::Enter() {
  if (!_impl) {
    throw ExPrecondition("QsCriticalSection::Enter - _impl is invalid");
  }
  const qsbase::detail::LastErrorGuard keepLastError;  // on Windows the question who runs clears it
  const std::thread::id self = std::this_thread::get_id();
  if (_impl->owner.load(std::memory_order_relaxed) != self) {
    _impl->mutex.lock();
    _impl->owner.store(self, std::memory_order_relaxed);
  }
  ++_impl->depth;
}

void QsCriticalSection::Leave() {
  if (!_impl) {
    throw ExPrecondition("QsCriticalSection::Enter - _impl is invalid");
  }
  const qsbase::detail::LastErrorGuard keepLastError;
  if (_impl->owner.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
    return;
  }
  if (--_impl->depth == 0) {
    _impl->owner.store(std::thread::id(), std::memory_order_relaxed);
    _impl->mutex.unlock();
  }
}

QsCriticalSectionAutoPtr::QsCriticalSectionAutoPtr(QsCriticalSection* section) : _section(section) {
  if (_section != nullptr) {
    _section->Enter();
  }
}

QsCriticalSectionAutoPtr::~QsCriticalSectionAutoPtr() {
  if (_section == nullptr) {
    return;
  }
  try {
    _section->Leave();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor lets nothing out
  }
}
