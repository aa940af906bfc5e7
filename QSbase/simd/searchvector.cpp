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

using ByteMask = hn::Mask<Bytes>;

HWY_INLINE ByteMask IsEither(ByteVector bytes, ByteVector ones, ByteVector others) {
  return hn::Or(hn::Eq(bytes, ones), hn::Eq(bytes, others));
}

const char* FindEither(const char* position, const char* end, char one, char other) {
  const auto ones = Splat(one);
  const auto others = Splat(other);
  for (; end - position >= kBytes; position += kBytes) {
    const std::uint64_t found = MaskBits(IsEither(LoadBytes(position), ones, others));
    if (found != 0) {
      return position + std::countr_zero(found);
    }
  }
  return FindEitherByWords(position, end, one, other);
}

const char* FindNeither(const char* position, const char* end, char one, char other) {
  const auto ones = Splat(one);
  const auto others = Splat(other);
  for (; end - position >= kBytes; position += kBytes) {
    const std::uint64_t found = MaskBits(hn::Not(IsEither(LoadBytes(position), ones, others)));
    if (found != 0) {
      return position + std::countr_zero(found);
    }
  }
  return FindNeitherByBytes(position, end, one, other);
}

const char* FindNonSpace(const char* position, const char* end) {
  for (; end - position >= kBytes; position += kBytes) {
    const auto bytes = LoadBytes(position);
    const auto fromTab = hn::Sub(bytes, Splat('\t'));
    const auto isSpace = hn::Or(hn::Eq(hn::Min(fromTab, Splat('\r' - '\t')), fromTab), hn::Eq(bytes, Splat(' ')));
    const std::uint64_t found = MaskBits(hn::Not(isSpace));
    if (found != 0) {
      return position + std::countr_zero(found);
    }
  }
  return FindNonSpaceByBytes(position, end);
}

/// Looks up CR and LF by their lower halves, which costs less than two comparisons.
HWY_INLINE ByteMask IsLineBreak(ByteVector bytes) {
  alignas(16) static constexpr std::uint8_t kBreaks[16] = {128, 128, 128,  128, 128, 128,  128, 128,
                                                           128, 128, '\n', 128, 128, '\r', 128, 128};
  return hn::Eq(hn::TableLookupBytesOr0(LoadTable(kBreaks), bytes), bytes);
}

const char* FindBreakBefore(const char* position, const char* end, char one, char other) {
  constexpr std::ptrdiff_t kVectors = 4;
  const auto bit = Splat(kCaseBit);
  const auto ones = Splat(one | kCaseBit);
  const auto others = Splat(other | kCaseBit);
  const auto found = [&](const char* p) HWY_ATTR {
    const auto isOne = hn::Eq(hn::Or(LoadBytes(p + 1), bit), ones);
    const auto isOther = hn::Eq(hn::Or(LoadBytes(p + 2), bit), others);
    return hn::And(IsLineBreak(LoadBytes(p)), hn::And(isOne, isOther));
  };
  for (; end - position >= kVectors * kBytes + 2; position += kVectors * kBytes) {
    const auto any = hn::Or(hn::Or(found(position), found(position + kBytes)),
                            hn::Or(found(position + 2 * kBytes), found(position + 3 * kBytes)));
    if (!hn::AllFalse(Bytes(), any)) {
      break;
    }
  }
  for (; end - position >= kBytes + 2; position += kBytes) {
    const std::uint64_t bits = MaskBits(found(position));
    if (bits != 0) {
      return position + std::countr_zero(bits);
    }
  }
  return FindBreakBeforeByWords(position, end, one, other);
}

}  // namespace

constexpr SearchKernels kSearchKernels = {&FindEither, &FindNeither, &FindNonSpace, &FindBreakBefore};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const SearchKernels& SearchKernelsOf(SimdLevel level) {
  static constexpr SearchKernels kScalar = {&FindEitherByWords, &FindNeitherByBytes, &FindNonSpaceByBytes,
                                            &FindBreakBeforeByWords};
  static constexpr const SearchKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kSearchKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
