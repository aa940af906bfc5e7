// A name is held by who has the exclusive lock on the file that stands for it. The kernel gives the lock up when its
// owner ends in whatever way, so the file's being there means nothing. Who leaves removes the file while it still has
// the lock; so one who gets the lock looks whether its file still has the name.
#include <QSbase/sync/globalmutexos.h>

#include <cerrno>
#include <mutex>

#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <QSbase/cancelguard.h>
#include <QSbase/killguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/sync/lock.h>
#include <QSbase/sync/posix/sharedfile.h>

namespace qsbase::detail {

/// What an object has open. All are in one list, for the children of the process.
struct GlobalMutexOs::Handle {
  int descriptor = -1;
  pid_t owner = 0;
  std::string path;
  Handle* previous = nullptr;
  Handle* next = nullptr;

  void Add() noexcept;
  void Remove() noexcept;
  bool IsOwn() const noexcept { return descriptor != -1 && owner == getpid(); }
  GlobalMutexAttempt LockFile();
  bool UnlockFile() noexcept;

  static void HoldForFork() noexcept;
  static void GoOnAfterFork() noexcept;
  static void CloseInChild() noexcept;

  static Handle* first;
  static Lock lock;  // over the list, and over whatever opens and closes the descriptors in it
};

constinit GlobalMutexOs::Handle* GlobalMutexOs::Handle::first = nullptr;
constinit Lock GlobalMutexOs::Handle::lock;

void GlobalMutexOs::Handle::Add() noexcept {
  next = first;
  if (next != nullptr) {
    next->previous = this;
  }
  first = this;
}

void GlobalMutexOs::Handle::Remove() noexcept {
  (previous != nullptr ? previous->next : first) = next;
  if (next != nullptr) {
    next->previous = previous;
  }
}

void GlobalMutexOs::Handle::HoldForFork() noexcept { lock.lock(); }

void GlobalMutexOs::Handle::GoOnAfterFork() noexcept { lock.unlock(); }

// A child's copy of the descriptor would hold the lock when the parent has been killed.
void GlobalMutexOs::Handle::CloseInChild() noexcept {
  for (Handle* handle = first; handle != nullptr; handle = handle->next) {
    close(handle->descriptor);
    handle->descriptor = -1;
  }
  lock.unlock();
}

GlobalMutexAttempt GlobalMutexOs::Handle::LockFile() {
  for (;;) {
    descriptor = OpenSharedFile(path, kMachineFileMode);
    if (descriptor == -1) {
      return GlobalMutexAttempt::Failed;
    }
    const bool isLocked = flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    const int error = errno;
    const bool isCurrent = IsStillAt(descriptor, path);
    if (isLocked && isCurrent) {
      owner = getpid();
      return GlobalMutexAttempt::Taken;
    }
    close(descriptor);
    descriptor = -1;
    if (isCurrent) {
      errno = error;
      return error == EWOULDBLOCK ? GlobalMutexAttempt::Busy : GlobalMutexAttempt::Failed;
    }
  }
}

bool GlobalMutexOs::Handle::UnlockFile() noexcept {
  if (IsStillAt(descriptor, path)) {
    unlink(path.c_str());  // not granted when another user has made the file: then it stays, without a lock
  }
  const bool isUnlocked = flock(descriptor, LOCK_UN) == 0;  // also for copies that a program may have made
  const LastErrorGuard keep;
  close(descriptor);
  descriptor = -1;
  return isUnlocked;
}

GlobalMutexOs::GlobalMutexOs() noexcept = default;

GlobalMutexOs::~GlobalMutexOs() { Release(); }

GlobalMutexAttempt GlobalMutexOs::TryTake(const std::string& name) {
  const CancelGuard noCancellation;
  const KillGuard untouched;  // a static variable is locked while it is made
  static const bool handled = pthread_atfork(&Handle::HoldForFork, &Handle::GoOnAfterFork, &Handle::CloseInChild) == 0;
  (void)handled;  // without memory for it a child goes by the owner
  auto handle = std::make_unique<Handle>();
  handle->path = SharedFilePath("mutex", name);
  Release();
  const std::lock_guard<Lock> guard(Handle::lock);
  const GlobalMutexAttempt attempt = handle->LockFile();
  if (attempt == GlobalMutexAttempt::Taken) {
    handle->Add();
    _handle = std::move(handle);
  }
  return attempt;
}

bool GlobalMutexOs::IsHeld() const noexcept { return _handle && _handle->IsOwn(); }

bool GlobalMutexOs::Release() noexcept {
  if (!_handle) {
    return true;
  }
  const CancelGuard noCancellation;
  bool isReleased = true;
  {
    const std::lock_guard<Lock> guard(Handle::lock);
    if (_handle->IsOwn()) {
      isReleased = _handle->UnlockFile();
    } else if (_handle->descriptor != -1) {
      close(_handle->descriptor);
    }
    _handle->Remove();
  }
  const LastErrorGuard keep;
  _handle.reset();
  return isReleased;
}

bool HasGlobalNamespace() noexcept { return true; }

}  // namespace qsbase::detail
