#include "heap.h"

#include <common/sanitized.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace qsbase::fuzz {

namespace {

struct Count {
  bool runs = false;
  std::int64_t held = 0;
  std::int64_t peak = 0;
};

thread_local Count count;

void Add(std::size_t size) noexcept {
  if (count.runs) {
    count.held += static_cast<std::int64_t>(size);
    count.peak = std::max(count.peak, count.held);
  }
}

// Below 0 where the memory of an earlier time is given back.
void Remove(std::size_t size) noexcept {
  if (count.runs) {
    count.held -= static_cast<std::int64_t>(size);
  }
}

}  // namespace

HeapMeter::HeapMeter() noexcept { count = {true, 0, 0}; }
HeapMeter::~HeapMeter() { count.runs = false; }

std::size_t HeapMeter::Peak() const noexcept { return static_cast<std::size_t>(count.peak); }

}  // namespace qsbase::fuzz

#ifdef QSBASE_TESTS_SANITIZED

// GCC has these functions, but not their header.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                              void (*released)(const volatile void*));
std::size_t __sanitizer_get_allocated_size(const volatile void* memory);
}

namespace qsbase::fuzz {

namespace {

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t size) { Add(size); },
    [](const volatile void* memory) { Remove(memory == nullptr ? 0 : __sanitizer_get_allocated_size(memory)); });

}  // namespace

}  // namespace qsbase::fuzz

#else

#include <malloc.h>

namespace qsbase::fuzz {

namespace {

std::size_t SizeOf(void* memory) noexcept {
#ifdef _WIN32
  return memory == nullptr ? 0 : _msize(memory);
#else
  return malloc_usable_size(memory);
#endif
}

void* Allocate(std::size_t size) noexcept {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  Add(SizeOf(memory));
  return memory;
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void Release(void* memory) noexcept {
  Remove(SizeOf(memory));
  std::free(memory);
}

}  // namespace

}  // namespace qsbase::fuzz

// Not inlined, since GCC takes a half-inlined pair for a mismatched one.
[[gnu::noinline]] void* operator new(std::size_t size) { return qsbase::fuzz::AllocateOrThrow(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return qsbase::fuzz::AllocateOrThrow(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return qsbase::fuzz::Allocate(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return qsbase::fuzz::Allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { qsbase::fuzz::Release(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { qsbase::fuzz::Release(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { qsbase::fuzz::Release(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { qsbase::fuzz::Release(memory); }

#endif
