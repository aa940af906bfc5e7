/// \file
/// Threads of the system that are cancelled: of Linux, empty on Windows.
#ifndef QSBASE_TESTS_COMMON_CANCELLATION_H
#define QSBASE_TESTS_COMMON_CANCELLATION_H

#ifndef _WIN32
#include <pthread.h>

#include <functional>

#include "common/sanitized.h"

namespace qsbase::testing {

/// Runs `body`, which cancels its own thread by pthread_cancel(pthread_self()), in a thread that takes the cancellation
/// when `body` has returned. True when the thread ended by it. What `body` does behind its call must not take it
/// before: what stands behind that would not be done.
inline bool EndsCancelled(const std::function<void()>& body) {
  const auto run = [](void* function) -> void* {
    (*static_cast<const std::function<void()>*>(function))();
    StackIsAboutToGo();
    pthread_testcancel();
    return nullptr;
  };
  pthread_t thread{};
  void* result = nullptr;
  return pthread_create(&thread, nullptr, run, const_cast<std::function<void()>*>(&body)) == 0 &&
         pthread_join(thread, &result) == 0 && result == PTHREAD_CANCELED;
}

}  // namespace qsbase::testing
#endif

#endif
