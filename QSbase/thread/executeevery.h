/// \file
/// A callback that runs every so many seconds, from a loop that asks often enough. There is no thread and no timer.
#ifndef QSBASE_THREAD_EXECUTEEVERY_H
#define QSBASE_THREAD_EXECUTEEVERY_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>
#include <QSbase/sync/criticalsection.h>

/// Calls a function when more than a number of seconds has passed since its last run, at the Check() that finds it so.
///
/// The time is the machine's wall clock in whole seconds. One that is set back makes the callback due at once; one that
/// is set forward makes it due early.
///
/// Several threads may check one object: the callback runs in one of them at a time, while the others wait for it. A
/// callback must not wait for a thread that checks its object.
///
/// \code
/// void SaveState(const ExecuteEvery*, void* state) { static_cast<State*>(state)->Save(); }
///
/// ExecuteEvery saving("saving", 60, &SaveState, &state);
/// while (!Terminated()) {
///   Work();
///   saving.Check();
/// }
/// \endcode
class QSBASE_API ExecuteEvery {
 public:
  /// Gets the object that calls it and the user data.
  using Callback = void (*)(const ExecuteEvery* object, void* userData);

  /// \param name             for the log
  /// \param intervalSeconds  0 or less: the callback is never called
  /// \param callback         null: there is nothing to call
  /// \param userData         handed to the callback as it is
  ExecuteEvery(const std::string& name, int intervalSeconds, Callback callback, void* userData);
  ExecuteEvery(const ExecuteEvery&) = delete;
  ExecuteEvery& operator=(const ExecuteEvery&) = delete;
  virtual ~ExecuteEvery();

  /// The first call only starts the clock. A later one calls the callback when more than the interval has passed since
  /// the end of its last run (since the first call, before there was one), and notes the time when it returns.
  ///
  /// An exception of the callback passes on; no run is noted then, so the next call tries again. Called from the
  /// callback, on its thread, it does nothing. From log level 5 on each run is announced as info of level 5
  /// "ExecuteEvery( <name> ) is invoking callback...".
  /// \throws ExPrecondition when there was no memory for the lock of an object with an interval and a callback.
  void Check();

 private:
  bool IsDue();
  void Run();

  std::string _name;
  void* _userData;
  double _interval;
  std::int64_t _last;  // in seconds since 1970; 0 is never
  Callback _callback;
  QsCriticalSection _lock;
  bool _isRunning;
};

#endif
