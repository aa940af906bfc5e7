#include <QSbase/simd/search.h>
#include <QSbase/simd/targets.h>
#include <QSbase/simd/wordscan.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/simd/searchvector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

const char* FindEither(const char* position, const char* end, char one, char other) {
  const auto ones = Splat(one);
  const auto others = Splat(other);
  for (; end - position >= kBytes; position += kBytes) {
    const auto bytes = LoadBytes(position);
    const std::uint64_t found = MaskBits(hn::Or(hn::Eq(bytes, ones), hn::Eq(bytes, others)));
    if (found != 0) {
      return position + std::countr_zero(found);
    }
  }
  return FindEitherByWords(position, end, one, other);
}

}  // namespace

constexpr SearchKernels kSearchKernels = {&FindEither};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const SearchKernels& SearchKernelsOf(SimdLevel level) {
  static constexpr SearchKernels kScalar = {&FindEitherByWords};
  static constexpr const SearchKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kSearchKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
