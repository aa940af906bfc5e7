#include <QSbase/sync/event.h>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/sync/eventos.h>
#include <QSbase/sync/lock.h>

#include <mutex>
#include <new>

using qsbase::detail::kLogError;

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

QsEvent::QsEvent(bool manualReset, bool initialState, const char* name, bool defaultSecurity)
    : _impl(new (std::nothrow) Impl) {
  if (_impl) {
    _impl->event = qsbase::detail::EventOs::MakeNamed(manualReset, initialState, name, !defaultSecurity);
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
    QsLogMsg(kLogError, "QsEvent::SetEvent: impl is zero");
    return;
  }
  const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
  _impl->event->Set();
}

void QsEvent::ResetEvent() {
  if (!IsInit()) {
    QsLogMsg(kLogError, "QsEvent::ResetEvent: impl is zero");
    return;
  }
  const std::lock_guard<qsbase::detail::Lock> guard(_impl->guard);
  _impl->event->Reset();
}

WaitResult QsEvent::WaitFor(int timeoutMs) {
  if (!IsInit()) {
    QsLogMsg(kLogError, "QsEvent::WaitFor: impl is zero");
    return WaitResult::Failed;
  }
  return _impl->event->Wait(timeoutMs);
}

bool QsEvent::IsSet() { return WaitFor(0) == WaitResult::Signaled; }

bool QsEvent::IsInit() const { return _impl != nullptr && _impl->event != nullptr; }

/// `event` is null when it could not be made.
struct QsNamedEvent::Impl {
  std::unique_ptr<QsEvent> event;
  std::string name;

  /// The event; null and an error that names the function, when there is none.
  QsEvent* EventFor(const char* function) const {
    if (!event) {
      QsLogMsg(kLogError, std::string("QsNamedEvent::") + function + ": not initialised (name=" + name + ")");
    }
    return event.get();
  }
};

QsNamedEvent::QsNamedEvent(bool manualReset, bool initialState, const char* name, bool defaultSecurity) {
  if (name == nullptr || *name == '\0') {
    QsLogMsg(kLogError, "Cannot create QsNamedEvent without a name");
    return;
  }
  _impl.reset(new (std::nothrow) Impl{nullptr, name});
  if (!_impl) {
    return;
  }
  _impl->event.reset(new (std::nothrow) QsEvent(manualReset, initialState, name, defaultSecurity));
  if (!IsInit()) {
    _impl->event.reset();
    QsLogMsg(kLogError, "Could not not initialise QsNamedEvent (name=" + _impl->name + ")");
  }
}

QsNamedEvent::~QsNamedEvent() = default;

void QsNamedEvent::SetEvent() {
  if (QsEvent* const event = _impl ? _impl->EventFor("SetEvent") : nullptr) {
    event->SetEvent();
  }
}

void QsNamedEvent::ResetEvent() {
  if (QsEvent* const event = _impl ? _impl->EventFor("ResetEvent") : nullptr) {
    event->ResetEvent();
  }
}

WaitResult QsNamedEvent::WaitFor(int timeoutMs) {
  QsEvent* const event = _impl ? _impl->EventFor("WaitFor") : nullptr;
  return event != nullptr ? event->WaitFor(timeoutMs) : WaitResult::Failed;
}

bool QsNamedEvent::IsSet() {
  QsEvent* const event = _impl ? _impl->EventFor("IsSet") : nullptr;
  return event != nullptr && event->IsSet();
}

bool QsNamedEvent::IsInit() const { return _impl && _impl->event && _impl->event->IsInit(); }

std::string QsNamedEvent::GetName() const { return _impl ? _impl->name : std::string(); }
