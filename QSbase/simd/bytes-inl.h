/// \file
/// Vectors of bytes, for the files that are compiled once a level (internal). It is included once for each of them, and
/// so guarded by Highway's toggle.

#if defined(QSBASE_SIMD_BYTES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QSBASE_SIMD_BYTES_INL_H
#undef QSBASE_SIMD_BYTES_INL_H
#else
#define QSBASE_SIMD_BYTES_INL_H
#endif

#include <QSbase/simd/kept.h>
#include <QSbase/simd/targets.h>

#include <hwy/highway.h>

#include <bit>
#include <cstddef>
#include <cstdint>

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::ScalableTag<std::uint8_t>;
using ByteVector = hn::Vec<Bytes>;

/// How many bytes a vector holds.
constexpr std::ptrdiff_t kBytes = HWY_MAX_BYTES;

HWY_INLINE ByteVector LoadBytes(const void* p) { return hn::LoadU(Bytes(), static_cast<const std::uint8_t*>(p)); }

HWY_INLINE void StoreBytes(ByteVector bytes, void* p) { hn::StoreU(bytes, Bytes(), static_cast<std::uint8_t*>(p)); }

template <class Byte>
HWY_INLINE ByteVector Splat(Byte byte) {
  return hn::Set(Bytes(), static_cast<std::uint8_t>(byte));
}

/// A table of 16 bytes for `TableLookupBytes`, in every block of the vector.
HWY_INLINE ByteVector LoadTable(const std::uint8_t* table) { return hn::LoadDup128(Bytes(), table); }

/// One bit a byte, that of the first byte lowest.
HWY_INLINE std::uint64_t MaskBits(hn::Mask<Bytes> mask) {
  std::uint64_t bits = 0;
  hn::StoreMaskBits(Bytes(), mask, reinterpret_cast<std::uint8_t*>(&bits));
  return bits;
}

using Sixteen = hn::Full128<std::uint8_t>;

/// The shuffle that moves what is kept of each eight of sixteen bytes to their start. Two loads over the table's rows
/// give a half each; what else they read is a neighbour's row.
HWY_INLINE hn::Vec<Sixteen> KeptPlacesOf(std::size_t lower, std::size_t upper) {
  const std::uint8_t* const rows = kKeptPlaces.front().data();
  return hn::ConcatUpperLower(Sixteen(), hn::LoadU(Sixteen(), rows + 8 * (256 + upper) - 8),
                              hn::LoadU(Sixteen(), rows + 8 * lower));
}

template <class Byte>
HWY_INLINE Byte* StoreKept(Sixteen, hn::Vec<Sixteen> bytes, std::uint64_t kept, Byte* out) {
  const hn::Full64<std::uint8_t> eight;
  const std::size_t lower = kept & 0xFF;
  const std::size_t upper = kept >> 8 & 0xFF;
  const auto halves = hn::TableLookupBytes(bytes, KeptPlacesOf(lower, upper));
  hn::StoreU(hn::LowerHalf(halves), eight, reinterpret_cast<std::uint8_t*>(out));
  out += std::popcount(lower);
  hn::StoreU(hn::UpperHalf(eight, halves), eight, reinterpret_cast<std::uint8_t*>(out));
  return out + std::popcount(upper);
}

template <class Tag, class Byte>
HWY_INLINE Byte* StoreKept(Tag, hn::Vec<Tag> bytes, std::uint64_t kept, Byte* out) {
  const hn::Half<Tag> half;
  out = StoreKept(half, hn::LowerHalf(half, bytes), kept, out);
  return StoreKept(half, hn::UpperHalf(half, bytes), kept >> hn::MaxLanes(half), out);
}

/// Stores the bytes whose bit in `kept` is set, without gaps, and scratches up to `kBytes` bytes from `out` on. Returns
/// the end of what was kept.
template <class Byte>
HWY_INLINE Byte* StoreKept(ByteVector bytes, std::uint64_t kept, Byte* out) {
  return StoreKept(Bytes(), bytes, kept, out);
}

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif
