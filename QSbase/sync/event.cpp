#include <QSbase/sync/event.h>

#include <QSbase/log/log.h>
#include <QSbase/sync/eventos.h>
#include <QSbase/sync/lock.h>

#include <mutex>
#include <new>

namespace {

constexpr unsigned int kError = 0x40000000;

}  // namespace

/// `guard` is held by whoever changes or destroys the event, so that it outlives a setter whose signal has already
/// released the thread that destroys it.
struct QsEvent::Impl {
  qsbase::detail::Lock guard;
  std::unique_ptr<qsbase::detail::EventOs> event;
};

QsEvent::QsEvent(bool manualReset, bool initialState) : _impl(new (std::nothrow) Impl) {
  if (_impl) {
    _impl->event = qsbase::detail::EventOs::Make(manualReset, initialState);
  }
}

QsEvent::~QsEvent() {
  if (_impl) {
    const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
    _impl->event.reset();
  }
}

void QsEvent::SetEvent() {
  if (!IsInit()) {
    QsLogMsg(kError, "QsEvent::SetEvent: impl is zero");
    return;
  }
  const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
  _impl->event->Set();
}

void QsEvent::ResetEvent() {
  if (!IsInit()) {
    QsLogMsg(kError, "QsEvent::ResetEvent: impl is zero");
    return;
  }
  const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
  _impl->event->Reset();
}

WaitResult QsEvent::WaitFor(int timeoutMs) {
  if (!IsInit()) {
    QsLogMsg(kError, "QsEvent::WaitFor: impl is zero");
    return WaitResult::Failed;
  }
  return _impl->event->Wait(timeoutMs);
}

bool QsEvent::IsSet() { return WaitFor(0) == WaitResult::Signaled; }

bool QsEvent::IsInit() const { return _impl != nullptr && _impl->event != nullptr; }
