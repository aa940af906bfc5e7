/// \file
/// Lets an allocation of a test program fail that is asked for in the form that returns null. It replaces that operator
/// new of the whole program, so only one source file of a program may include it.
#ifndef QSBASE_TESTS_COMMON_FAILINGALLOCATION_H
#define QSBASE_TESTS_COMMON_FAILINGALLOCATION_H

#include <cstddef>
#include <new>

namespace qsbase::testing {

/// Which of this thread's allocations from now on fails: 1 is the next. Back at 0 when it has.
inline thread_local int failingAllocation = 0;

}  // namespace qsbase::testing

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (qsbase::testing::failingAllocation > 0 && --qsbase::testing::failingAllocation == 0) {
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

#endif
