#include <QSbase/simd/targets.h>
#include <QSbase/text/hexkernel.h>

#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/text/hexvector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

using Block = hn::Full128<std::uint8_t>;

template <class D>
constexpr std::size_t kLanes = hn::MaxLanes(D());

/// Writes the digits of half as many bytes as the vector holds.
template <class D>
HWY_INLINE void EncodeVector(D d, const unsigned char* bytes, unsigned char* out) {
  alignas(16) static constexpr char kDigits[] = "0123456789ABCDEF";
  const hn::Repartition<std::uint16_t, D> words;
  const auto wide = hn::PromoteTo(words, hn::LoadU(hn::Half<D>(), bytes));
  const auto nibbles =
      hn::And(hn::Or(hn::ShiftRight<4>(wide), hn::ShiftLeft<8>(wide)), hn::Set(words, std::uint16_t{0x0F0F}));
  const auto digits = hn::LoadDup128(d, reinterpret_cast<const std::uint8_t*>(kDigits));
  hn::StoreU(hn::TableLookupBytes(digits, hn::BitCast(d, nibbles)), d, out);
}

/// The last vector overlaps the one before it.
template <class D>
HWY_INLINE void EncodeVectors(D d, const unsigned char* bytes, std::size_t length, unsigned char* out) {
  constexpr std::size_t kStep = kLanes<D> / 2;
  for (std::size_t i = 0; i < length - kStep; i += kStep) {
    EncodeVector(d, bytes + i, out + 2 * i);
  }
  EncodeVector(d, bytes + length - kStep, out + 2 * (length - kStep));
}

void Encode(const unsigned char* bytes, std::size_t length, unsigned char* out) {
  if (length >= kLanes<Bytes> / 2) {  // NOLINT(bugprone-branch-clone): Bytes is Block where vectors have 16 bytes
    EncodeVectors(Bytes(), bytes, length, out);
  } else if (length >= kLanes<Block> / 2) {
    EncodeVectors(Block(), bytes, length, out);
  } else {
    EncodeHex(bytes, length, out);
  }
}

/// The values of digits; `bad` becomes true in the lanes of other characters.
template <class D>
HWY_INLINE hn::Vec<D> ValuesOf(D d, hn::Vec<D> text, hn::Mask<D>& bad) {
  const auto digit = hn::Sub(text, hn::Set(d, '0'));
  const auto letter = hn::Sub(hn::And(text, hn::Set(d, 0xDF)), hn::Set(d, 'A'));
  const auto isDigit = hn::Eq(hn::Min(digit, hn::Set(d, 9)), digit);
  const auto isLetter = hn::Eq(hn::Min(letter, hn::Set(d, 5)), letter);
  bad = hn::Or(bad, hn::Not(hn::Or(isDigit, isLetter)));
  return hn::IfThenElse(isDigit, digit, hn::Add(letter, hn::Set(d, 10)));
}

/// Each word has the byte of its two values in its lower half.
template <class D>
HWY_INLINE hn::Vec<D> JoinValues(D d, hn::Vec<D> values) {
  const auto words = hn::BitCast(hn::Repartition<std::uint16_t, D>(), values);
  return hn::BitCast(d, hn::Or(hn::ShiftLeft<4>(words), hn::ShiftRight<8>(words)));
}

/// Decodes as many pairs as the vector holds bytes. Returns false, and writes nothing, when some are none.
template <class D>
HWY_INLINE bool DecodeVector(D d, const unsigned char* hex, unsigned char* out) {
  auto bad = hn::MaskFromVec(hn::Zero(d));
  const auto first = ValuesOf(d, hn::LoadU(d, hex), bad);
  const auto second = ValuesOf(d, hn::LoadU(d, hex + kLanes<D>), bad);
  if (!hn::AllFalse(d, bad)) {
    return false;
  }
  hn::StoreU(hn::ConcatEven(d, JoinValues(d, second), JoinValues(d, first)), d, out);
  return true;
}

/// Decodes vectors from the pair `done` on. Returns the first one that was not.
template <class D>
HWY_INLINE std::size_t DecodeVectors(D d, const unsigned char* hex, std::size_t pairs, unsigned char* out,
                                     std::size_t done) {
  while (pairs - done >= kLanes<D> && DecodeVector(d, hex + 2 * done, out + done)) {
    done += kLanes<D>;
  }
  return done;
}

std::size_t Decode(const unsigned char* hex, std::size_t pairs, unsigned char* out) {
  std::size_t done = DecodeVectors(Bytes(), hex, pairs, out, 0);
  if (kLanes < Bytes >> kLanes<Block>) {
    done = DecodeVectors(Block(), hex, pairs, out, done);
  }
  return done + DecodeHex(hex + 2 * done, pairs - done, out + done);
}

}  // namespace

constexpr HexKernels kHexKernels = {&Encode, &Decode};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const HexKernels& HexKernelsOf(SimdLevel level) {
  static constexpr HexKernels kScalar = {&EncodeHex, &DecodeHex};
  static constexpr const HexKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kHexKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
