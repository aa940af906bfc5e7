/// \file
/// What a call takes from the heap. Under a sanitizer all allocations of the thread count, those of C libraries too;
/// without, those of C++.
#ifndef QSBASE_FUZZ_HEAP_H
#define QSBASE_FUZZ_HEAP_H

#include <cstddef>

namespace qsbase::fuzz {

/// Counts while it lives. One at a time in a thread.
class HeapMeter {
 public:
  HeapMeter() noexcept;
  ~HeapMeter();
  HeapMeter(const HeapMeter&) = delete;
  HeapMeter& operator=(const HeapMeter&) = delete;

  /// The most bytes that the thread held at once, beyond what it held when the meter began.
  std::size_t Peak() const noexcept;
};

}  // namespace qsbase::fuzz

#endif
