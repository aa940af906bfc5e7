/// \file
/// Holds back QsThread::Kill while the calling thread is inside a lock of the library, so that a killed thread never
/// leaves one locked. Whoever takes such a lock holds a KillGuard (or a HoldBackKill()) around it.
///
/// On Linux a thread is killed by a signal whose handler ends it, unless kills are held back: then the thread ends
/// itself where the last hold is given up. Windows ends a thread from outside, whatever it does; nothing is held back.
#ifndef QSBASE_KILLGUARD_H
#define QSBASE_KILLGUARD_H

#ifndef _WIN32
#include <atomic>
#include <cstdint>
#endif

namespace qsbase::detail {

#ifdef _WIN32

inline void HoldBackKill() noexcept {}
inline void AllowKill() noexcept {}

#else

/// A thread's part in a kill. Shared by the thread and a signal handler that runs on it; `asked` also by the killer,
/// who takes it back when the thread did not end in time.
struct KillState {
  volatile int holds = 0;
  /// The process whose thread is to end, 0 when it is not. A forked child's copy of the thread is another's.
  std::atomic<int> asked{0};
  /// Where others see that the thread has ended; null in a thread that is no QsThread.
  std::atomic<std::uint32_t>* ended = nullptr;
};

/// What `ended` holds.
inline constexpr std::uint32_t kThreadRuns = 0;
inline constexpr std::uint32_t kThreadReturned = 1;
inline constexpr std::uint32_t kThreadKilled = 2;

// Reached from a signal handler, so its access must not allocate.
extern constinit thread_local KillState killState __attribute__((tls_model("initial-exec")));

/// Ends the calling thread by the raw system call: nothing is unwound, no destructor runs. Tells who waits for its end.
/// May be called in a signal handler.
[[noreturn]] void EndKilledThread() noexcept;

/// Whether the end of the calling thread was asked for in this process, as `asked` says of some. What a forked child
/// has inherited is forgotten: it was meant for its parent's thread.
bool IsAskedHere() noexcept;

/// True when the calling thread is to end and only one hold keeps it back: the caller's own, which waits inside a lock.
/// It undoes its wait (passes on a wake-up it may have been given) and calls EndKilledThread().
inline bool IsKillDue() noexcept { return killState.asked != 0 && killState.holds == 1 && IsAskedHere(); }

inline void HoldBackKill() noexcept { killState.holds = killState.holds + 1; }

inline void AllowKill() noexcept {
  killState.holds = killState.holds - 1;
  if (killState.asked != 0 && killState.holds == 0 && IsAskedHere()) {
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
