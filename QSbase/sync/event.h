/// \file
/// Events: flags that threads wait for, within the process (QsEvent) or shared between processes by name
/// (QsNamedEvent). Every operation may be called from any thread; they leave the last-error code alone only where said.
#ifndef QSBASE_SYNC_EVENT_H
#define QSBASE_SYNC_EVENT_H

#include <cstdint>
#include <memory>
#include <string>

#include <QSbase/export.h>

/// How a wait ended.
enum class WaitResult : std::int32_t {
  Signaled = 0,   ///< what was waited for has come
  Timeout = 1,    ///< the time ran out first
  Abandoned = 2,  ///< the owner of a waited-for mutex ended without leaving it; events and semaphores never give it
  Failed = 3      ///< there is nothing to wait for: the object has no system object
};

/// An event of this process.
///
/// A manual-reset event stays signalled until ResetEvent() and releases everyone; an auto-reset event releases one
/// waiter a SetEvent() and is reset by that. Two SetEvent() on an auto-reset event that nobody took in between release
/// one.
///
/// \code
/// QsEvent done(true, false);
/// // ... a worker calls done.SetEvent() ...
/// if (done.WaitFor(2000) == WaitResult::Timeout) { ... }
/// \endcode
class QSBASE_API QsEvent {
 public:
  /// Makes an event, signalled from the start with \p initialState. Does not throw: IsInit() tells whether it was made.
  QsEvent(bool manualReset, bool initialState);
  /// Waits for a SetEvent() or ResetEvent() that is under way in another thread. Nobody may wait for the event any
  /// more.
  ~QsEvent();
  QsEvent(const QsEvent&) = delete;
  QsEvent& operator=(const QsEvent&) = delete;

  /// Signals the event. On a manual-reset event everyone who waits at this moment is released, even when ResetEvent()
  /// follows at once. Without a system object logs error "QsEvent::SetEvent: impl is zero".
  void SetEvent();

  /// Takes the signal back. Without a system object logs error "QsEvent::ResetEvent: impl is zero".
  void ResetEvent();

  /// Waits until the event is signalled, at most \p timeoutMs milliseconds (never less); a negative time has no limit.
  /// Without a system object logs error "QsEvent::WaitFor: impl is zero" and gives Failed.
  WaitResult WaitFor(int timeoutMs);

  /// Whether the event is signalled: WaitFor(0) gives Signaled. On an auto-reset event that takes the signal.
  bool IsSet();

  /// Whether the system object exists.
  bool IsInit() const;

 private:
  friend class QsNamedEvent;
  struct Impl;
  QsEvent(bool manualReset, bool initialState, const char* name, bool defaultSecurity);
  std::unique_ptr<Impl> _impl;
};

#endif
