/// \file
/// A thread that waits for something, and whether it has got as far as to sleep.
#ifndef QSBASE_TESTS_COMMON_WAITER_H
#define QSBASE_TESTS_COMMON_WAITER_H

#include <QSbase/process.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#ifndef _WIN32
#include <QSbase/killguard.h>

#include <pthread.h>
#include <signal.h>
#endif

namespace qsbase::testing {

/// Whether UntilAsleep() sees the thread sleep; Windows does not tell.
#ifdef _WIN32
inline constexpr bool kSeesSleep = false;
#else
inline constexpr bool kSeesSleep = true;
#endif

class Waiter {
 public:
  /// Makes \p wait, which waits for one thing and nothing else, in a thread of its own.
  template <typename Wait>
  explicit Waiter(Wait wait)
      : _thread([this, wait = std::move(wait)] {
#ifndef _WIN32
          _killState = &qsbase::detail::killState;
#endif
          _threadId = QsGetCurrentThreadId();
          wait();
          _hasEnded = true;
        }) {
  }
  ~Waiter() { Join(); }
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  /// Until the thread sleeps in its wait, or has ended; on Windows until it is about to wait.
  void UntilAsleep() const {
    while (_threadId == 0 || (kSeesSleep && !_hasEnded && !Sleeps())) {
      std::this_thread::yield();
    }
  }

  bool HasEnded() const { return _hasEnded; }

  void Join() {
    if (_thread.joinable()) {
      _thread.join();
    }
  }

#ifndef _WIN32
  /// Disturbs it with a signal that does nothing else.
  void Interrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    pthread_kill(_thread.native_handle(), SIGUSR1);
  }

  /// Asks it to end where nothing holds it back, as a kill does. It takes note when it wakes.
  void AskToEnd() { _killState.load()->asked = QsGetCurrentProcessId(); }
#endif

 private:
  // The state stands behind the thread's name in brackets.
  bool Sleeps() const {
    std::ifstream file("/proc/self/task/" + std::to_string(_threadId) + "/stat");
    std::string status;
    std::getline(file, status);
    const std::size_t name = status.rfind(") ");
    return name != std::string::npos && status.compare(name, 3, ") S") == 0;
  }

  std::atomic<int> _threadId{0};
  std::atomic<bool> _hasEnded{false};
#ifndef _WIN32
  std::atomic<qsbase::detail::KillState*> _killState{nullptr};
#endif
  std::thread _thread;  // the last: it uses the others
};

}  // namespace qsbase::testing

#endif
