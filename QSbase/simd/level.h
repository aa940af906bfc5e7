/// \file
/// Which vector instructions the kernels of this process use (internal).
///
/// A kernel is written once, in a file `...vector.cpp`, on Highway's operations, and compiled for every level; the
/// plain C++ beside it, always built, is the level `kScalar`. A topic has one table of function pointers a level, and a
/// function `...KernelsOf(level)` that gives it; see search.h for the smallest one.
#ifndef QSBASE_SIMD_LEVEL_H
#define QSBASE_SIMD_LEVEL_H

#include <atomic>
#include <string_view>

namespace qsbase::detail {

/// In rising order; a processor that has one level has those below it.
enum class SimdLevel { kScalar, kSse4, kAvx2, kAvx512 };
inline constexpr int kSimdLevels = 4;

/// The highest level of this processor, operating system and build. Any thread may call.
SimdLevel HighestSimdLevel();

/// The level that a name stands for ("scalar", "sse4", "avx2", "avx512"), but not more than `highest`; `highest` for
/// any other name.
SimdLevel SimdLevelOf(std::string_view name, SimdLevel highest);

/// Uses this level from now on, in the whole process; for tests. Not above `HighestSimdLevel()`.
void UseSimdLevel(SimdLevel level);

/// The level that was decided on, or -1.
extern std::atomic<int> chosenSimdLevel;

/// Decides.
SimdLevel ChooseSimdLevel();

/// The level to use: the highest one, or a lower one that the environment variable QSBASE_SIMD_LEVEL asks for, which is
/// for tests too. Decided at the first call and then kept. Any thread may call; one that is killed here holds nothing.
inline SimdLevel CurrentSimdLevel() {
  const int level = chosenSimdLevel.load(std::memory_order_relaxed);
  return level >= 0 ? static_cast<SimdLevel>(level) : ChooseSimdLevel();
}

}  // namespace qsbase::detail

#endif
