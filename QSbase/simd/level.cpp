#include <QSbase/simd/level.h>
#include <QSbase/simd/targets.h>

#include <algorithm>
#include <cstdlib>

namespace qsbase::detail {
namespace {

constexpr std::string_view kNames[kSimdLevels] = {"scalar", "sse4", "avx2", "avx512"};

#if HWY_ARCH_X86

// What Highway asks of each level's processor.

bool HasSse4() {
  return __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("sse4.2") &&
         __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("aes");
}

bool HasAvx2() {
  return __builtin_cpu_supports("avx") && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
         __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("fma");
}

bool HasAvx512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
}

SimdLevel LevelOfProcessor() {
  __builtin_cpu_init();
  if (!HasSse4()) {
    return SimdLevel::kScalar;
  }
  if (!HasAvx2()) {
    return SimdLevel::kSse4;
  }
  return HasAvx512() ? SimdLevel::kAvx512 : SimdLevel::kAvx2;
}

#else

SimdLevel LevelOfProcessor() { return SimdLevel::kScalar; }

#endif

constexpr SimdLevel kHighestBuilt = (HWY_TARGETS & HWY_AVX3) != 0   ? SimdLevel::kAvx512
                                    : (HWY_TARGETS & HWY_AVX2) != 0 ? SimdLevel::kAvx2
                                    : (HWY_TARGETS & HWY_SSE4) != 0 ? SimdLevel::kSse4
                                                                    : SimdLevel::kScalar;

}  // namespace

std::atomic<int> chosenSimdLevel = -1;

SimdLevel HighestSimdLevel() { return std::min(LevelOfProcessor(), kHighestBuilt); }

SimdLevel SimdLevelOf(std::string_view name, SimdLevel highest) {
  const auto* const found = std::find(std::begin(kNames), std::end(kNames), name);
  return found == std::end(kNames) ? highest : std::min(static_cast<SimdLevel>(found - kNames), highest);
}

void UseSimdLevel(SimdLevel level) { chosenSimdLevel.store(static_cast<int>(level), std::memory_order_relaxed); }

SimdLevel ChooseSimdLevel() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): as safe as the environment of the host
  const char* const name = std::getenv("QSBASE_SIMD_LEVEL");
  const SimdLevel level = SimdLevelOf(name == nullptr ? "" : name, HighestSimdLevel());
  UseSimdLevel(level);
  return level;
}

}  // namespace qsbase::detail
