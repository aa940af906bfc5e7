#include <QSbase/sync/criticalsection.h>

#include <QSbase/errors.h>
#include <QSbase/sync/sectionlock.h>

#include <atomic>
#include <new>

using qsbase::detail::SectionLock;
using qsbase::detail::ThisThread;
using qsbase::detail::ThreadMark;

/// `owner` is set and cleared by the thread that holds `lock`; others only compare it with themselves, which it cannot
/// become behind their back. `depth` belongs to the owner.
struct QsCriticalSection::Impl {
  SectionLock lock;
  std::atomic<ThreadMark> owner{};
  unsigned int depth = 0;
};

QsCriticalSection::QsCriticalSection() noexcept : _impl(new (std::nothrow) Impl) {}

QsCriticalSection::~QsCriticalSection() = default;

void QsCriticalSection::Enter() {
  if (!_impl) {
    throw ExPrecondition("QsCriticalSection::Enter - _impl is invalid");
  }
  const ThreadMark self = ThisThread();
  if (_impl->owner.load(std::memory_order_relaxed) != self) {
    _impl->lock.lock();
    _impl->owner.store(self, std::memory_order_relaxed);
  }
  ++_impl->depth;
}

void QsCriticalSection::Leave() {
  if (!_impl) {
    throw ExPrecondition("QsCriticalSection::Enter - _impl is invalid");
  }
  if (!IsOwned()) {
    return;
  }
  if (--_impl->depth == 0) {
    _impl->owner.store(ThreadMark(), std::memory_order_relaxed);
    _impl->lock.unlock();
  }
}

bool QsCriticalSection::IsOwned() const noexcept {
  return _impl && _impl->owner.load(std::memory_order_relaxed) == ThisThread();
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
