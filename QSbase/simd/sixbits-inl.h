/// \file
/// Bytes as values of six bits and back, three bytes for four values, for the files that are compiled once a level
/// (internal). Every block of 128 bits is worked on for itself: it holds 16 values, or 12 bytes at its start. It is
/// included once for each level, and so guarded by Highway's toggle.

#if defined(QSBASE_SIMD_SIXBITS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QSBASE_SIMD_SIXBITS_INL_H
#undef QSBASE_SIMD_SIXBITS_INL_H
#else
#define QSBASE_SIMD_SIXBITS_INL_H
#endif

#include <QSbase/simd/targets.h>

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

/// Loads bytes as blocks of 12. Reads four bytes behind the last block's.
template <class D>
HWY_INLINE hn::Vec<D> LoadTwelves(D d, const std::uint8_t* p) {
  if constexpr (hn::MaxLanes(D()) == 16) {
    return hn::LoadU(d, p);
  } else {
    const hn::Half<D> half;
    return hn::Combine(d, LoadTwelves(half, p + hn::MaxLanes(half) / 16 * 12), LoadTwelves(half, p));
  }
}

/// Stores the 12 bytes of every block without gaps. Scratches four bytes behind them.
template <class D>
HWY_INLINE void StoreTwelves(D d, hn::Vec<D> bytes, std::uint8_t* p) {
  if constexpr (hn::MaxLanes(D()) == 16) {
    hn::StoreU(bytes, d, p);
  } else {
    const hn::Half<D> half;
    StoreTwelves(half, hn::LowerHalf(half, bytes), p);
    StoreTwelves(half, hn::UpperHalf(half, bytes), p + hn::MaxLanes(half) / 16 * 12);
  }
}

/// The values of blocks of 12 bytes; those behind the 12 do not matter.
template <class D>
HWY_INLINE hn::Vec<D> SpreadSixBits(D d, hn::Vec<D> bytes) {
  const hn::Repartition<std::uint16_t, D> words;
  const hn::Repartition<std::uint32_t, D> groups;
  // The bytes x y z become the words x y and y z, and a product moves two values at once into their places.
  alignas(16) static constexpr std::uint8_t kPlaces[16] = {1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10};
  const auto pairs = hn::BitCast(groups, hn::TableLookupBytes(bytes, hn::LoadDup128(d, kPlaces)));
  const auto even = hn::BitCast(words, hn::And(pairs, hn::Set(groups, 0x0FC0FC00)));
  const auto odd = hn::BitCast(words, hn::And(pairs, hn::Set(groups, 0x003F03F0)));
  const auto evenValues = hn::MulHigh(even, hn::BitCast(words, hn::Set(groups, 0x04000040)));
  const auto oddValues = hn::Mul(odd, hn::BitCast(words, hn::Set(groups, 0x01000010)));
  return hn::BitCast(d, hn::Or(evenValues, oddValues));
}

// Highway has no product of bytes that adds neighbours, nor the one of words without a sum to add to.

HWY_INLINE auto JoinPairs(hn::Vec128<std::uint8_t> values) {
  const __m128i pairs = _mm_maddubs_epi16(values.raw, _mm_set1_epi16(0x0140));
  return hn::Vec128<std::uint8_t>{_mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000))};
}

#if HWY_TARGET <= HWY_AVX2
HWY_INLINE auto JoinPairs(hn::Vec256<std::uint8_t> values) {
  const __m256i pairs = _mm256_maddubs_epi16(values.raw, _mm256_set1_epi16(0x0140));
  return hn::Vec256<std::uint8_t>{_mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000))};
}
#endif

#if HWY_TARGET <= HWY_AVX3
HWY_INLINE auto JoinPairs(hn::Vec512<std::uint8_t> values) {
  const __m512i pairs = _mm512_maddubs_epi16(values.raw, _mm512_set1_epi16(0x0140));
  return hn::Vec512<std::uint8_t>{_mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000))};
}
#endif

/// The opposite of `SpreadSixBits`: of 16 values below 64 the 12 bytes, zeros behind them.
template <class D>
HWY_INLINE hn::Vec<D> GatherSixBits(D d, hn::Vec<D> values) {
  alignas(16) static constexpr std::uint8_t kPlaces[16] = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 128, 128, 128, 128};
  return hn::TableLookupBytesOr0(JoinPairs(values), hn::LoadDup128(d, kPlaces));
}

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif
