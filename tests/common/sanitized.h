/// \file
/// QSBASE_TESTS_SANITIZED: whether the program runs under AddressSanitizer or ThreadSanitizer. And what they have to be
/// told.
#ifndef QSBASE_TESTS_COMMON_SANITIZED_H
#define QSBASE_TESTS_COMMON_SANITIZED_H

#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define QSBASE_TESTS_SANITIZED
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define QSBASE_TESTS_SANITIZED
#endif

#ifdef QSBASE_TESTS_SANITIZED
extern "C" __attribute__((weak)) void __asan_handle_no_return();
#endif

namespace qsbase::testing {

/// The calling thread's frames are about to go by a cancellation or pthread_exit(). AddressSanitizer does not see that,
/// and would take what the system then does on their place for an overflow.
inline void StackIsAboutToGo() {
#ifdef QSBASE_TESTS_SANITIZED
  if (__asan_handle_no_return != nullptr) {
    __asan_handle_no_return();
  }
#endif
}

}  // namespace qsbase::testing

#endif
