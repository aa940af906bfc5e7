/// \file
/// Events: flags that threads wait for, within the process (QsEvent) or shared between processes by name
/// (QsNamedEvent). Every operation may be called from any thread. They may change the last-error code.
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

/// An event that processes share by its name. The first makes it, the others open it as it stands; it is gone with its
/// last user, who may also have been killed, and the name then starts afresh.
///
/// On Windows it is the system's event of that name, also for programs without this library. Names are at most 260
/// characters long, and hold a backslash only in "Global\" and "Local\" at their start. An event made with default
/// security is not for everyone: opening it may fail.
///
/// On Linux names have any bytes and any length. An event of the calling user is found by his processes only, while
/// another user may have one of the same name; an event of everyone is another event, found by all processes of the
/// machine. Names that begin with "Global\" stand for one event on the machine, which others than its user fail to open
/// when it is not everyone's; "Local\" at the start counts for nothing. A process that forks shares the event with its
/// child: either may go on to use it and counts as a user until it ends, starts another program, or destroys its
/// object. A process that is killed leaves a file in /dev/shm (or /tmp) until the name is used again.
///
/// \code
/// QsNamedEvent stop(true, false, "my-service-stop", true);
/// stop.WaitFor(-1);  // until another process opens "my-service-stop" and calls SetEvent()
/// \endcode
class QSBASE_API QsNamedEvent {
 public:
  /// Makes or opens the event. One that is there keeps its kind of reset, its state and who may use it, whatever is
  /// asked for here.
  ///
  /// A null or empty name logs error "Cannot create QsNamedEvent without a name". When the system makes no event that
  /// logs error "Could not not initialise QsNamedEvent (name=<name>)" (kept: the doubled word). IsInit() tells.
  /// \param defaultSecurity  true: for the calling user, as the system sees to it by default; false: anyone may use it,
  ///                         and on Windows child processes inherit the handle.
  /// \throws std::bad_alloc when there is no memory for the name.
  QsNamedEvent(bool manualReset, bool initialState, const char* name, bool defaultSecurity);
  /// As ~QsEvent(). Other users of the name keep the event.
  ~QsNamedEvent();
  QsNamedEvent(const QsNamedEvent&) = delete;
  QsNamedEvent& operator=(const QsNamedEvent&) = delete;

  /// QsEvent::SetEvent(). Without an event logs error "QsNamedEvent::SetEvent: not initialised (name=<name>)"; without
  /// a name, too, does nothing.
  void SetEvent();

  /// QsEvent::ResetEvent(), with "QsNamedEvent::ResetEvent: not initialised (name=<name>)".
  void ResetEvent();

  /// QsEvent::WaitFor(), with "QsNamedEvent::WaitFor: not initialised (name=<name>)" and Failed.
  WaitResult WaitFor(int timeoutMs);

  /// QsEvent::IsSet(), with "QsNamedEvent::IsSet: not initialised (name=<name>)" and false.
  bool IsSet();

  /// Whether the event was made or opened.
  bool IsInit() const;

  /// The name as it was given, also after a failure; empty when there was none.
  std::string GetName() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

#endif
