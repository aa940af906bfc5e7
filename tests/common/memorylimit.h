/// \file
/// Lets large allocations of a test program fail. It replaces operator new and delete of the whole program, so only one
/// source file of a program may include it. On Windows a DLL of the C++ runtime keeps its own ones.
#ifndef QSBASE_TESTS_COMMON_MEMORYLIMIT_H
#define QSBASE_TESTS_COMMON_MEMORYLIMIT_H

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

namespace qsbase::testing {

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

/// What this thread asks for in one piece beyond this many bytes, it does not get.
inline thread_local std::size_t largestAllocation = kNoLimit;

/// Of the last array that this thread asked for by the form that returns null.
inline thread_local std::size_t lastArraySize = 0;

inline void* Allocate(std::size_t size) noexcept {
  return size > largestAllocation ? nullptr : std::malloc(size == 0 ? 1 : size);
}

inline void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace qsbase::testing

// All forms, since those of the sanitizers do not call each other; not inlined, since GCC takes a half-inlined pair for
// a mismatched one.
[[gnu::noinline]] void* operator new(std::size_t size) { return qsbase::testing::AllocateOrThrow(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return qsbase::testing::AllocateOrThrow(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return qsbase::testing::Allocate(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  qsbase::testing::lastArraySize = size;
  return qsbase::testing::Allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

#endif
