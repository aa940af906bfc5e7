/// \file
/// QSBASE_TESTS_SANITIZED: whether the program runs under AddressSanitizer or ThreadSanitizer.
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

#endif
