#include <QSbase/sync/rwlock.h>

#include <QSbase/cancelguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/sync/rwlockimpl.h>

#include <chrono>
#include <thread>

namespace qsbase::detail {

void SpinLock::Wait(std::int32_t threadId) noexcept {
  constexpr int kYields = 200;
  const LastErrorGuard keepLastError;
  const CancelGuard noCancellation;
  int tries = 0;
  do {
    if (++tries < kYields) {
      std::this_thread::yield();
    } else {  // its holder may be one whom a mere yield does not let run
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  } while (_holder.exchange(threadId, std::memory_order_acquire) != 0);
}

}  // namespace qsbase::detail

namespace {

std::unique_ptr<QsRWLockImpl> MakeState() noexcept {
  try {
    auto state = std::make_unique<QsRWLockImpl>();
    return state->IsInit() ? std::move(state) : nullptr;
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

QsRWLock::QsRWLock() noexcept : _impl(MakeState()) {}

QsRWLock::~QsRWLock() = default;

void QsRWLock::BeginRead() const {
  if (_impl) {
    _impl->BeginRead();
  }
}

void QsRWLock::EndRead() const {
  if (_impl) {
    _impl->EndRead();
  }
}

void QsRWLock::BeginWrite() {
  if (_impl) {
    _impl->BeginWrite();
  }
}

void QsRWLock::EndWrite() {
  if (_impl) {
    _impl->EndWrite();
  }
}

QsReadSyncer::QsReadSyncer(const QsRWLock* lock) : _lock(lock) {
  if (_lock != nullptr) {
    _lock->BeginRead();
  }
}

QsReadSyncer::~QsReadSyncer() {
  if (_lock == nullptr) {
    return;
  }
  try {
    _lock->EndRead();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor lets nothing out
  }
}

QsWriteSyncer::QsWriteSyncer(QsRWLock* lock) : _lock(lock) {
  if (_lock != nullptr) {
    _lock->BeginWrite();
  }
}

QsWriteSyncer::~QsWriteSyncer() {
  if (_lock == nullptr) {
    return;
  }
  try {
    _lock->EndWrite();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor lets nothing out
  }
}
