/// \file
/// The system's part of a machine-wide mutex (internal). Twins: posix/globalmutexos.cpp, win32/globalmutexos.cpp.
#ifndef QSBASE_SYNC_GLOBALMUTEXOS_H
#define QSBASE_SYNC_GLOBALMUTEXOS_H

#include <memory>
#include <string>

namespace qsbase::detail {

/// How an attempt to take a name ended. After Failed the last-error code says why.
enum class GlobalMutexAttempt { Taken, Busy, Failed };

/// One object for one thread at a time; what several of them do about one name needs no order.
class GlobalMutexOs {
 public:
  GlobalMutexOs() noexcept;
  /// Releases.
  ~GlobalMutexOs();
  GlobalMutexOs(const GlobalMutexOs&) = delete;
  GlobalMutexOs& operator=(const GlobalMutexOs&) = delete;

  /// Takes the name, which this object must not hold. Throws ExBase and its kin, and std::bad_alloc.
  GlobalMutexAttempt TryTake(const std::string& name);

  bool IsHeld() const noexcept;

  /// Gives the name up, if it is held. False, with the last-error code, when the system refuses; it is not held then
  /// either.
  bool Release() noexcept;

 private:
  struct Handle;
  std::unique_ptr<Handle> _handle;
};

/// Whether the system's names have namespaces: all systems of today.
bool HasGlobalNamespace() noexcept;

/// The name as the system gets it.
std::string GlobalMutexName(const std::string& name, bool hasGlobalNamespace);

}  // namespace qsbase::detail

#endif
