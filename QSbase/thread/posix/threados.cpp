#include <QSbase/thread/threados.h>

#include <QSbase/cancelguard.h>
#include <QSbase/killguard.h>
#include <QSbase/processos.h>
#include <QSbase/sync/lock.h>
#include <QSbase/sync/posix/futex.h>

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <mutex>

namespace qsbase::detail {

struct OsThreadNative {
  OsThreadBody body;
  // Set by who starts the thread and by the thread itself, to the same value.
  std::atomic<pthread_t> thread{};
  std::atomic<bool> started{false};
  std::atomic<int> id{0};

  FutexWord ended{kThreadRuns};
  /// Held while a thread returns and while a request to a running one is made. So who holds it and finds the thread
  /// running may use `thread` and `id`: they stay the thread's.
  Lock lock;
  FutexWord join{0};

  std::atomic<KillState*> killState{nullptr};
  std::atomic<int> killers{0};
  unsigned int signals = 0;  // sent; under `lock`
  std::atomic<unsigned int> answers{0};
};

namespace {

using Clock = std::chrono::steady_clock;

bool Runs(const OsThreadNative& native) noexcept { return native.ended.load(std::memory_order_acquire) == kThreadRuns; }

// ---- the signal that kills ------------------------------------------------------------------------------------------

// Reached from the signal handler, so its access must not allocate. Null again once the thread is past killing.
constinit thread_local OsThreadNative* currentThread __attribute__((tls_model("initial-exec"))) = nullptr;

constinit std::atomic<int> liveThreads{0};  // that a signal may be under way to

/// Ends the thread, or asks it to end itself when it leaves its last lock. Signals of anybody else do nothing.
void OnKillSignal(int /*signal*/, siginfo_t* info, void* /*context*/) {
  OsThreadNative* const native = currentThread;
  if (native == nullptr || info->si_code != SI_QUEUE || info->si_pid != getpid() ||
      info->si_value.sival_ptr != native) {
    return;
  }
  native->answers.fetch_add(1);
  if (native->killers.load() == 0) {
    return;  // they have given up
  }
  if (killState.holds == 0) {
    EndKilledThread();
  }
  killState.asked = info->si_pid;
}

/// Without SA_RESTART: a wait inside a lock is to end, so that it finds out.
bool Handle(int signal, void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigfillset(&action.sa_mask);
  return sigaction(signal, &action, nullptr) == 0;
}

bool IsFree(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
         action.sa_handler == SIG_DFL;
}

/// The last real-time signal that the host does nothing with, taken for good; 0 when there is none.
class KillSignal {
 public:
  KillSignal() {
    for (int signal = SIGRTMAX; signal >= SIGRTMIN; --signal) {
      if (IsFree(signal) && Handle(signal, &OnKillSignal)) {
        _number = signal;
        return;
      }
    }
  }

  /// When the library is unloaded, or the process ends: then threads may still run, and be killed.
  ~KillSignal() {
    const int signal = _number;
    if (signal != 0 && liveThreads == 0) {
      _number = 0;
      ::signal(signal, SIG_DFL);
    }
  }

  KillSignal(const KillSignal&) = delete;
  KillSignal& operator=(const KillSignal&) = delete;

  static int Number() {
    const KillGuard guard;  // a static variable is locked while it is made
    static KillSignal signal;
    return signal._number;
  }

 private:
  std::atomic<int> _number{0};
};

void AllowKillSignal() {
  const int signal = KillSignal::Number();
  if (signal == 0) {
    return;
  }
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

// ---- the thread -----------------------------------------------------------------------------------------------------

/// The first and the last steps of a thread, the last ones also when it ends from inside (`pthread_exit`, a host that
/// cancels it).
class ThreadScope {
 public:
  explicit ThreadScope(OsThreadNative& native) : _native(native) {
    const KillGuard guard;
    currentThread = &native;
    killState.ended = &native.ended;
    native.thread = pthread_self();
    native.id = OsThreadId();
    native.started = true;
    native.killState = &killState;
    AllowKillSignal();
  }

  ~ThreadScope() {
    HoldBackKill();  // for good
    currentThread = nullptr;
    killState.ended = nullptr;
    const OsThreadBody body = _native.body;
    {
      const std::lock_guard<Lock> lock(_native.lock);
      _native.ended.store(kThreadReturned, std::memory_order_release);
    }
    FutexWake(_native.ended, kFutexAll);
    --liveThreads;
    body.release(body.context);
  }

  ThreadScope(const ThreadScope&) = delete;
  ThreadScope& operator=(const ThreadScope&) = delete;

 private:
  OsThreadNative& _native;
};

void* RunThread(void* argument) {
  OsThreadNative& native = *static_cast<OsThreadNative*>(argument);
  const ThreadScope scope(native);
  native.body.run(native.body.context);
  return nullptr;
}

// ---- joining --------------------------------------------------------------------------------------------------------

constexpr std::uint32_t kNotJoined = 0;
constexpr std::uint32_t kJoining = 1;
constexpr std::uint32_t kJoined = 2;

timespec WallClockIn(std::chrono::nanoseconds time) {
  const auto end = std::chrono::system_clock::now().time_since_epoch() + time;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(end);
  return {seconds.count(), std::chrono::duration_cast<std::chrono::nanoseconds>(end - seconds).count()};
}

/// The system waits by the wall clock here, which may have been set meanwhile; the deadline is the steady one's.
bool SystemJoin(pthread_t thread, const FutexDeadline& deadline) {
  if (!deadline) {
    return pthread_join(thread, nullptr) == 0;
  }
  for (;;) {
    const Clock::duration left = *deadline - Clock::now();
    const timespec end = WallClockIn(left);
    const int code = pthread_timedjoin_np(thread, nullptr, &end);
    if (code != ETIMEDOUT || left <= Clock::duration::zero()) {
      return code == 0;
    }
  }
}

/// Nobody leaves it half done: a kill or a cancellation waits.
bool JoinAlone(OsThreadNative& native, const FutexDeadline& deadline) {
  { const std::lock_guard<Lock> lastRequest(native.lock); }
  const bool joined = SystemJoin(native.thread, deadline);
  if (joined && native.ended == kThreadKilled) {
    --liveThreads;
  }
  native.join.store(joined ? kJoined : kNotJoined, std::memory_order_release);
  FutexWake(native.join, kFutexAll);
  return joined;
}

/// Joins a thread that has ended: what it still does is to run the destructors of its thread-local variables. The first
/// to come joins it, the others wait for that. False when the deadline passes first.
bool Join(OsThreadNative& native, const FutexDeadline& deadline) {
  for (;;) {
    const CancelGuard noCancellation;
    const KillGuard guard;
    std::uint32_t found = kNotJoined;
    if (native.join.compare_exchange_strong(found, kJoining)) {
      return JoinAlone(native, deadline);
    }
    if (found == kJoined) {
      return true;
    }
    if (!FutexWait(native.join, kJoining, deadline)) {
      return native.join == kJoined;
    }
    if (IsKillDue()) {
      EndKilledThread();
    }
  }
}

// ---- killing --------------------------------------------------------------------------------------------------------

/// Asks for the thread's end; when that asks back, it is told until it does. Takes its question back at the end.
class Killer {
 public:
  explicit Killer(OsThreadNative& native) : _native(native) { ++_native.killers; }

  ~Killer() {
    const std::lock_guard<Lock> lock(_native.lock);
    KillState* const state = _native.killState;
    if (--_native.killers == 0 && state != nullptr && Runs(_native)) {
      state->asked = 0;
    }
  }

  Killer(const Killer&) = delete;
  Killer& operator=(const Killer&) = delete;

  /// One signal at a time is under way. One that came just before the thread fell asleep in a lock did not wake it, so
  /// there is always a next one.
  void Signal(int signal) {
    const std::lock_guard<Lock> lock(_native.lock);
    if (!Runs(_native) || _native.killState == nullptr || _native.signals != _native.answers) {
      return;
    }
    sigval value{};
    value.sival_ptr = &_native;
    if (pthread_sigqueue(_native.thread, signal, value) == 0) {
      ++_native.signals;
    }
  }

 private:
  OsThreadNative& _native;
};

/// False when the thread still runs at the deadline.
bool SignalUntilEnded(OsThreadNative& native, int signal, Clock::time_point deadline) {
  Killer killer(native);
  while (Runs(native)) {
    const Clock::time_point now = Clock::now();
    if (now >= deadline) {
      return false;
    }
    killer.Signal(signal);
    FutexWait(native.ended, kThreadRuns, now + std::chrono::milliseconds(1));
  }
  return true;
}

// ---- priorities -----------------------------------------------------------------------------------------------------

struct NiceValue {
  int priority;
  int nice;
};

// By rising distance from the plain one, so that of two as near the plainer is found.
constexpr std::array<NiceValue, 7> kNiceValues = {{{0, 0}, {-1, 5}, {1, -5}, {-2, 10}, {2, -10}, {-15, 19}, {15, -20}}};

bool SetNice(int threadId, int priority) {
  for (const NiceValue& value : kNiceValues) {
    if (value.priority == priority) {
      return setpriority(PRIO_PROCESS, static_cast<id_t>(threadId), value.nice) == 0;
    }
  }
  errno = EINVAL;
  return false;
}

int GetNice(int threadId) {
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(threadId));
  if (nice == -1 && errno != 0) {
    return kPriorityError;
  }
  NiceValue nearest = kNiceValues.front();
  for (const NiceValue& value : kNiceValues) {
    if (std::abs(value.nice - nice) < std::abs(nearest.nice - nice)) {
      nearest = value;
    }
  }
  return nearest.priority;
}

/// Sets the last error when the thread does not run: its id may be another's by now.
bool RequireRunning(const OsThreadNative& native) {
  if (!native.started || !Runs(native)) {
    errno = ESRCH;
    return false;
  }
  return true;
}

}  // namespace

// ---- OsThread -------------------------------------------------------------------------------------------------------

OsThread::OsThread() : _native(std::make_unique<OsThreadNative>()) {}

OsThread::~OsThread() {
  if (!_native->started || _native->join == kJoined) {
    return;
  }
  if (_native->ended == kThreadKilled) {
    Join(*_native, {});  // it is past all that could block it, and the system keeps its stack until somebody does
  } else {
    pthread_detach(_native->thread);
  }
}

bool OsThread::Start(const OsThreadBody& body) {
  KillSignal::Number();
  _native->body = body;
  ++liveThreads;
  pthread_t thread{};
  const int code = pthread_create(&thread, nullptr, &RunThread, _native.get());
  if (code != 0) {
    --liveThreads;
    errno = code;
    return false;
  }
  _native->thread = thread;
  _native->started = true;
  return true;
}

bool OsThread::IsStarted() const noexcept { return _native->started; }

bool OsThread::HasEnded() const noexcept { return !Runs(*_native); }

bool OsThread::WasKilled() const noexcept { return _native->ended == kThreadKilled; }

bool OsThread::IsCurrent() const noexcept { return currentThread == _native.get(); }

unsigned int OsThread::Wait(int timeoutMs) {
  const FutexDeadline deadline = FutexDeadlineAfter(timeoutMs);
  while (Runs(*_native)) {
    if (!FutexWait(_native->ended, kThreadRuns, deadline) && Runs(*_native)) {
      return kWaitTimeout;
    }
  }
  return Join(*_native, deadline) ? kWaitDone : kWaitTimeout;
}

bool OsThread::Kill() {
  constexpr std::chrono::seconds kLimit(2);
  const Clock::time_point deadline = Clock::now() + kLimit;
  const int signal = KillSignal::Number();
  if (signal == 0 && Runs(*_native)) {
    errno = ENOTSUP;
    return false;
  }
  if (!SignalUntilEnded(*_native, signal, deadline) || !Join(*_native, deadline)) {
    errno = ETIMEDOUT;
    return false;
  }
  return true;
}

void OsThread::KillCurrent() noexcept { EndKilledThread(); }

bool OsThread::SetPriority(int priority) {
  const std::lock_guard<Lock> lock(_native->lock);
  return RequireRunning(*_native) && SetNice(_native->id, priority);
}

int OsThread::GetPriority() const {
  const std::lock_guard<Lock> lock(_native->lock);
  return RequireRunning(*_native) ? GetNice(_native->id) : kPriorityError;
}

bool OsSetCurrentPriority(int priority) { return SetNice(OsThreadId(), priority); }

int OsGetCurrentPriority() { return GetNice(OsThreadId()); }

void OsSetCurrentThreadName(const std::string& name) {
  constexpr std::size_t kLongest = 15;
  pthread_setname_np(pthread_self(), name.substr(0, kLongest).c_str());
}

}  // namespace qsbase::detail
