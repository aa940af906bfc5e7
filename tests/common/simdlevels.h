/// \file
/// Running a test on every level of vector instructions that this machine has.
#ifndef QSBASE_TESTS_COMMON_SIMDLEVELS_H
#define QSBASE_TESTS_COMMON_SIMDLEVELS_H

#include <QSbase/simd/level.h>
#include <gtest/gtest.h>

#include <string>

namespace qsbase::test {

inline const char* NameOf(detail::SimdLevel level) {
  static constexpr const char* kNames[] = {"scalar", "sse4", "avx2", "avx512"};
  return kNames[static_cast<int>(level)];
}

/// Uses a level to the end of the scope.
class SimdLevelInUse {
 public:
  explicit SimdLevelInUse(detail::SimdLevel level) : _before(detail::CurrentSimdLevel()) {
    detail::UseSimdLevel(level);
  }
  ~SimdLevelInUse() { detail::UseSimdLevel(_before); }
  SimdLevelInUse(const SimdLevelInUse&) = delete;
  SimdLevelInUse& operator=(const SimdLevelInUse&) = delete;

 private:
  detail::SimdLevel _before;
};

/// Calls test() once for each level up to the machine's highest, which the library uses then; a trace says which.
template <class Test>
void OnEveryLevel(Test test) {
  for (int level = 0; level <= static_cast<int>(detail::HighestSimdLevel()); ++level) {
    const SimdLevelInUse use(static_cast<detail::SimdLevel>(level));
    SCOPED_TRACE(std::string("level ") + NameOf(static_cast<detail::SimdLevel>(level)));
    test();
  }
}

}  // namespace qsbase::test

#endif
