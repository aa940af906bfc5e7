#include <QSbase/simd/level.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using namespace qsbase::detail;

TEST(SimdLevel, NamesAskForALevel) {
  EXPECT_EQ(SimdLevelOf("scalar", SimdLevel::kAvx512), SimdLevel::kScalar);
  EXPECT_EQ(SimdLevelOf("sse4", SimdLevel::kAvx512), SimdLevel::kSse4);
  EXPECT_EQ(SimdLevelOf("avx2", SimdLevel::kAvx512), SimdLevel::kAvx2);
  EXPECT_EQ(SimdLevelOf("avx512", SimdLevel::kAvx512), SimdLevel::kAvx512);
}

TEST(SimdLevel, NobodyGetsMoreThanTheProcessorHas) {
  EXPECT_EQ(SimdLevelOf("avx512", SimdLevel::kSse4), SimdLevel::kSse4);
  EXPECT_EQ(SimdLevelOf("sse4", SimdLevel::kScalar), SimdLevel::kScalar);
}

TEST(SimdLevel, OtherNamesAskForTheHighest) {
  for (const char* name : {"", "AVX2", "avx", "avx2 ", "neon"}) {
    EXPECT_EQ(SimdLevelOf(name, SimdLevel::kAvx2), SimdLevel::kAvx2) << name;
  }
}

TEST(SimdLevel, TheEnvironmentDecides) {
  const char* const name = std::getenv("QSBASE_SIMD_LEVEL");
  EXPECT_EQ(CurrentSimdLevel(), SimdLevelOf(name == nullptr ? "" : name, HighestSimdLevel()));
}

TEST(SimdLevel, ATestChangesIt) {
  const SimdLevel before = CurrentSimdLevel();
  UseSimdLevel(SimdLevel::kScalar);
  EXPECT_EQ(CurrentSimdLevel(), SimdLevel::kScalar);
  UseSimdLevel(before);
  EXPECT_EQ(CurrentSimdLevel(), before);
}

TEST(SimdLevel, ThreadsThatAskTogetherGetOneAnswer) {
  std::vector<SimdLevel> levels(8);
  std::vector<std::thread> threads;
  for (SimdLevel& level : levels) {
    threads.emplace_back([&level] { level = CurrentSimdLevel(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(levels, std::vector<SimdLevel>(8, CurrentSimdLevel()));
}

}  // namespace
