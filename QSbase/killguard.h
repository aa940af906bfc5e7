/// \file
/// Holds back QsThread::Kill while the calling thread is inside a lock of the library, so that a killed thread never
/// leaves one locked. Whoever takes such a lock holds a KillGuard (or a HoldBackKill()) around it.
///
/// On Linux a thread is killed by a signal whose handler ends it, unless kills are held back: then the thread ends
/// itself where the last hold is given up. Windows ends a thread from outside, whatever it does; nothing is held back.
#ifndef QSBASE_KILLGUARD_H
#define QSBASE_KILLGUARD_H

namespace qsbase::detail {

#ifdef _WIN32

inline void HoldBackKill() noexcept {}
inline void AllowKill() noexcept {}

#else

/// The calling thread's part in a kill. Shared by the thread and a signal handler that runs on it.
struct KillState {
  volatile int holds = 0;
  volatile bool asked = false;
};

// Reached from a signal handler, so its access must not allocate.
extern constinit thread_local KillState killState __attribute__((tls_model("initial-exec")));

/// Ends the calling thread by the raw system call: nothing is unwound, no destructor runs.
[[noreturn]] void EndKilledThread() noexcept;

/// True when the calling thread is to end and only one hold keeps it back: the caller's own, which waits inside a lock.
/// It undoes its wait (passes on a wake-up it may have been given) and calls EndKilledThread().
inline bool IsKillDue() noexcept { return killState.asked && killState.holds == 1; }

inline void HoldBackKill() noexcept { killState.holds = killState.holds + 1; }

inline void AllowKill() noexcept {
  killState.holds = killState.holds - 1;
  if (killState.asked && killState.holds == 0) {
    EndKilledThread();
  }
}

#endif

class KillGuard {
 public:
  KillGuard() noexcept { HoldBackKill(); }
  ~KillGuard() { AllowKill(); }
  KillGuard(const KillGuard&) = delete;
  KillGuard& operator=(const KillGuard&) = delete;
};

}  // namespace qsbase::detail

#endif
