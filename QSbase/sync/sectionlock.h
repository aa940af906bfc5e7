/// \file
/// What stands under a QsCriticalSection: the system's lock, and a mark that tells threads apart (internal). The lock
/// is only taken by a thread that does not own it. Leaves the last-error code alone. Twin: win32/sectionlock.cpp.
#ifndef QSBASE_SYNC_SECTIONLOCK_H
#define QSBASE_SYNC_SECTIONLOCK_H

#ifdef _WIN32
#include <QSbase/processos.h>
#else
#include <QSbase/killguard.h>
#include <QSbase/sync/lock.h>
#endif

namespace qsbase::detail {

#ifdef _WIN32

/// A CRITICAL_SECTION.
class SectionLock {
 public:
  SectionLock() noexcept;
  ~SectionLock();
  SectionLock(const SectionLock&) = delete;
  SectionLock& operator=(const SectionLock&) = delete;

  void lock() noexcept;
  void unlock() noexcept;

 private:
  struct Storage {
    void* pointers[4];
    long numbers[2];
  };
  Storage _storage;
};

/// A running thread; 0 is none.
using ThreadMark = int;

inline ThreadMark ThisThread() noexcept { return OsThreadId(); }

#else

using SectionLock = Lock;

/// A running thread, by something of its own; null is none. In a forked child it still is the thread that forked, which
/// the system's thread id is not.
using ThreadMark = const volatile void*;

inline ThreadMark ThisThread() noexcept { return &killState; }

#endif

}  // namespace qsbase::detail

#endif
