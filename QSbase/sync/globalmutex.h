/// \file
/// A lock that every process and every user of the machine sees by its name.
///
/// An object belongs to one thread at a time; processes and objects need no agreement but the name.
#ifndef QSBASE_SYNC_GLOBALMUTEX_H
#define QSBASE_SYNC_GLOBALMUTEX_H

#include <memory>
#include <string>

#include <QSbase/export.h>

/// Asks whether anybody on the machine has a name already, and takes it if nobody has: the way to have a program run
/// once. It never waits for the one who has it.
///
/// Names differ neither by case nor by "\" for "/": "App\Lock" and "app/lock" are one. A name is free again when its
/// owner leaves it, is destroyed, or ends in whatever way. Owning is not counted: one Leave() undoes every Enter().
///
/// On Windows it is a named mutex of the system in its global namespace, open to everyone; a mutex of that name that
/// another program has made counts as taken, whether it is held or not. On Linux it is a lock on a file in /dev/shm
/// (in /tmp where that is not shared), made for everyone; the file stays when its owner is killed or may not remove it,
/// which does no harm. A child made by fork() has the object, but closed: the name is its parent's. Programs that see
/// another /dev/shm, such as those in other containers, are not on the same machine.
///
/// \code
/// GlobalMutex once("Acme\\Updater");
/// if (!once.Enter()) {
///   return;  // another one is at work
/// }
/// \endcode
class QSBASE_API GlobalMutex {
 public:
  /// Takes note of the name, in the form in which the log texts show it: "\" as "/", in upper case (as QsString makes
  /// it) and with "Global\" before it. Any bytes and any length do on Linux; Windows ends it at a zero byte and refuses
  /// in Enter() what is too long.
  /// \throws ExMemoryAllocation "Memory allocation error: GlobalMutex::GlobalMutex (GlobalMutexImpl (file
  /// QSbase/sync/globalmutex, line 25" when the memory runs out.
  explicit GlobalMutex(const std::string& name);
  /// Another object for the same name; it owns nothing. Throws what the other constructor throws.
  GlobalMutex(const GlobalMutex& other);
  /// Leaves, if it owns its name, and takes the name of \p other without owning it. An object assigned to itself stays
  /// as it is.
  GlobalMutex& operator=(const GlobalMutex& other);
  /// Leaves, if it owns the name.
  virtual ~GlobalMutex();

  /// Becomes the owner of the name. False at once when another object has it, in this process or in any other; true
  /// with a warning when this object has it already. What the system refuses is logged as an error and gives false.
  ///
  /// Logs info of level 4 "Entering global mutex <name>". The warning is "GlobalMutex::Enter <name> already owner!";
  /// the errors are "GlobalMutex <name> cannot create mutex: <the system's text>" and, for an exception on the way,
  /// "GlobalMutex::Enter <name> >>> <its text>" ("std::exception: " before that of a standard one).
  /// \throws ExPrecondition "GlobalMutex::Enter: _impl is NULL" on an object without its implementation.
  bool Enter();

  /// Gives the name up; true as well when it was not owned. False, with an error logged, only when the system refuses;
  /// the object does not own the name then either. On Windows that happens in a thread that is not the one that
  /// entered.
  ///
  /// Logs info of level 4 "Leaving global mutex <name>". The error is "GlobalMutex <name> cannot release mutex: <the
  /// system's text>".
  /// \throws ExPrecondition "GlobalMutex::Leave: _impl is NULL" on an object without its implementation.
  bool Leave();

 private:
  struct Impl;
  void LeaveIfOwned() noexcept;

  std::unique_ptr<Impl> _impl;
};

#endif
