/// \file
/// What threads ask of the operating system (internal). Twins: posix/threados.cpp, win32/threados.cpp.
#ifndef QSBASE_THREAD_THREADOS_H
#define QSBASE_THREAD_THREADOS_H

#include <memory>
#include <string>

namespace qsbase::detail {

/// What a thread runs.
struct OsThreadBody {
  void (*run)(void* context) = nullptr;      ///< the body; must let through what ends a thread from inside
  void (*release)(void* context) = nullptr;  ///< called at the very end, when the thread cannot be killed any more; may
                                             ///< destroy the OsThread. Not called for a killed thread.
  void* context = nullptr;
};

/// What Wait() gives.
inline constexpr unsigned int kWaitDone = 0;
inline constexpr unsigned int kWaitTimeout = 258;
inline constexpr unsigned int kWaitFailed = 0xFFFFFFFFU;

/// What a failed GetPriority() gives.
inline constexpr int kPriorityError = 0x7FFFFFFF;

struct OsThreadNative;

/// One thread of the operating system, started at most once. It must not be destroyed while another thread is inside
/// one of its operations; the thread itself may outlive it (but not return from `run`: see OsThreadBody::release).
/// Where an operation fails, the last-error code says why. Any thread may call.
class OsThread {
 public:
  /// \throws std::bad_alloc
  OsThread();
  /// Gives the thread up: one that runs goes on. Does not block.
  ~OsThread();
  OsThread(const OsThread&) = delete;
  OsThread& operator=(const OsThread&) = delete;

  /// Starts the thread. By one thread at a time; again only after a failure.
  bool Start(const OsThreadBody& body);

  /// Whether it was started; true for the thread itself from its first step on.
  bool IsStarted() const noexcept;

  /// Whether it has returned or was killed.
  bool HasEnded() const noexcept;

  /// Whether it was killed and is gone.
  bool WasKilled() const noexcept;

  /// Whether the calling thread is it.
  bool IsCurrent() const noexcept;

  /// Waits for its end, at most \p timeoutMs milliseconds (without limit when negative). Several threads may.
  unsigned int Wait(int timeoutMs);

  /// Ends it from outside, whatever it does but for what a KillGuard protects, and waits for that, at most two seconds.
  /// True for a thread that had ended before. Not for the calling thread.
  bool Kill();

  /// Kill() for the calling thread.
  [[noreturn]] void KillCurrent() noexcept;

  /// A value of QsThreadPriority. False for other values, too.
  bool SetPriority(int priority);
  /// kPriorityError on failure.
  int GetPriority() const;

 private:
  std::unique_ptr<OsThreadNative> _native;
};

/// SetPriority() and GetPriority() of the calling thread.
bool OsSetCurrentPriority(int priority);
int OsGetCurrentPriority();

/// Names the calling thread for debuggers and tools; what is too long is cut. Nothing is done where the system cannot.
void OsSetCurrentThreadName(const std::string& name);

}  // namespace qsbase::detail

#endif
