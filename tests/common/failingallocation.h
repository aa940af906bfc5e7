/// \file
/// Lets an allocation of a test program fail: one that is asked for in the form that returns null, or one in the form
/// that throws. It replaces these operators of the whole program, so only one source file of a program may include it.
#ifndef QSBASE_TESTS_COMMON_FAILINGALLOCATION_H
#define QSBASE_TESTS_COMMON_FAILINGALLOCATION_H

#include <cstddef>
#include <cstdlib>
#include <new>

namespace qsbase::testing {

/// Which of this thread's allocations from now on fails: 1 is the next. Back at 0 when it has.
inline thread_local int failingAllocation = 0;

/// The same of those that throw std::bad_alloc.
inline thread_local int throwingAllocation = 0;

inline bool FailsNow(int& count) { return count > 0 && --count == 0; }

}  // namespace qsbase::testing

// Not inlined, since GCC takes a half-inlined pair for a mismatched one.
[[gnu::noinline]] void* operator new(std::size_t size) {
  const bool fails = qsbase::testing::FailsNow(qsbase::testing::throwingAllocation);
  void* const memory = fails ? nullptr : std::malloc(size == 0 ? 1 : size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (qsbase::testing::FailsNow(qsbase::testing::failingAllocation)) {
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

#endif
