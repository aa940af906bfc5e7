#include <QSbase/codec/uukernel.h>
#include <QSbase/simd/targets.h>

#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/codec/uuvector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/sixbits-inl.h>

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

// A full line has 60 digits: a wider vector would hold no more of it.
using Digits = hn::CappedTag<std::uint8_t, 32>;
using DigitVector = hn::Vec<Digits>;

constexpr std::size_t kDigits = hn::MaxLanes(Digits());
constexpr std::size_t kDigitBytes = kDigits / 4 * 3;

HWY_INLINE DigitVector All(unsigned char byte) { return hn::Set(Digits(), byte); }

struct UuVector {
  static constexpr unsigned char kFullCount = 32 + kUuLineBytes;

  /// The value + 32, but 96 for 0.
  static HWY_INLINE DigitVector DigitsOf(DigitVector values) {
    return hn::Add(hn::And(hn::Sub(values, All(1)), All(63)), All(33));
  }

  /// Any character has a value; `lowest` keeps the lowest ones.
  static HWY_INLINE DigitVector ValuesOf(DigitVector text, DigitVector& lowest) {
    lowest = hn::Min(lowest, text);
    return hn::And(hn::Sub(text, All(32)), All(63));
  }

  /// No CR and no LF.
  static HWY_INLINE bool IsRegular(DigitVector lowest) {
    return hn::AllTrue(Digits(), hn::Eq(hn::Max(lowest, All(16)), lowest));
  }

  static constexpr auto kEncodeRest = &UuEncodeLines;
  static constexpr auto kDecodeRest = &UuDecodeLine;
};

struct XxVector {
  static constexpr unsigned char kFullCount = 'h';

  /// The digits run on from "+" but for four gaps.
  static HWY_INLINE DigitVector DigitsOf(DigitVector values) {
    alignas(16) static constexpr std::uint8_t kShifts[16] = {43, 44, 46, 46, 46, 46, 46, 46, 46, 46, 46, 46, 53, 59};
    const auto isSmall = hn::Gt(hn::BitCast(Signed(), values), hn::Set(Signed(), 37));
    const auto kinds = hn::Sub(hn::Min(values, All(12)), hn::VecFromMask(Digits(), hn::RebindMask(Digits(), isSmall)));
    return hn::Add(values, hn::TableLookupBytes(hn::LoadDup128(Digits(), kShifts), kinds));
  }

  /// `legal` keeps a zero where a character outside the alphabet stood, and for NUL.
  static HWY_INLINE DigitVector ValuesOf(DigitVector text, DigitVector& legal) {
    // By the upper half of a character: what it is less in value, and the bit of its row; by the lower half: the rows
    // that have it.
    alignas(16) static constexpr std::uint8_t kShifts[16] = {0, 0x2B, 0x2C, 0x2E, 0x35, 0x35, 0x3B, 0x3B};
    alignas(16) static constexpr std::uint8_t kRows[16] = {0, 0, 1, 2, 4, 8, 4, 8};
    alignas(16) static constexpr std::uint8_t kRowsWith[16] = {10, 14, 14, 14, 14, 14, 14, 14,
                                                               14, 14, 12, 5,  4,  5,  4,  4};
    const auto upper = hn::And(ShiftRightOfBytes(text), All(15));
    legal = hn::Min(legal, hn::And(hn::TableLookupBytesOr0(hn::LoadDup128(Digits(), kRowsWith), text),
                                   hn::TableLookupBytes(hn::LoadDup128(Digits(), kRows), upper)));
    // "+" has a row to itself.
    const auto rows = hn::Add(upper, hn::VecFromMask(Digits(), hn::Eq(text, All('+'))));
    return hn::Sub(text, hn::TableLookupBytes(hn::LoadDup128(Digits(), kShifts), rows));
  }

  static HWY_INLINE bool IsRegular(DigitVector legal) {
    return hn::AllFalse(Digits(), hn::Eq(legal, hn::Zero(Digits())));
  }

  static constexpr auto kEncodeRest = &XxEncodeLines;
  static constexpr auto kDecodeRest = &XxDecodeLine;

 private:
  using Signed = hn::RebindToSigned<Digits>;

  /// By four bits; the neighbour's come in above.
  static HWY_INLINE DigitVector ShiftRightOfBytes(DigitVector text) {
    const hn::Repartition<std::uint16_t, Digits> words;
    return hn::BitCast(Digits(), hn::ShiftRight<4>(hn::BitCast(words, text)));
  }
};

template <class Alphabet>
HWY_INLINE void EncodeFullLine(const unsigned char* input, unsigned char* output) {
  const Digits digits;
  output[0] = Alphabet::kFullCount;
  for (std::size_t block = 0; block < 64 / kDigits; ++block) {
    const auto bytes = LoadTwelves(digits, input + block * kDigitBytes);
    hn::StoreU(Alphabet::DigitsOf(SpreadSixBits(digits, bytes)), digits, output + 1 + block * kDigits);
  }
  std::memcpy(output + 1 + kUuLineDigits, "\r\n", 2);
}

/// The last vector of a line reads its 12 bytes and four more, the digits of three of which become the line break.
constexpr std::size_t kReadBytes = 52;

template <class Alphabet>
std::size_t EncodeLines(const unsigned char* input, std::size_t length, unsigned char* output) {
  std::size_t written = 0;
  for (; length >= kReadBytes; length -= kUuLineBytes, input += kUuLineBytes) {
    EncodeFullLine<Alphabet>(input, output + written);
    written += kUuLineCharacters;
  }
  return written + Alphabet::kEncodeRest(input, length, output + written);
}

/// Where the vectors of a full line begin: the last one overlaps the one before.
constexpr std::size_t StartOf(std::size_t block) {
  return block + 1 < 64 / kDigits ? block * kDigits : kUuLineDigits - kDigits;
}

/// Decodes 60 digits, unless they are not regular or `isFull` is not true.
template <class Alphabet>
HWY_INLINE bool DecodeFullLine(const unsigned char* text, unsigned char* output, bool isFull) {
  constexpr std::size_t kBlocks = 64 / kDigits;
  const Digits digits;
  DigitVector seen = All(255);
  DigitVector bytes[kBlocks];
  for (std::size_t block = 0; block < kBlocks; ++block) {
    const auto values = Alphabet::ValuesOf(hn::LoadU(digits, text + StartOf(block)), seen);
    bytes[block] = GatherSixBits(digits, values);
  }
  // In front of the only branch, so that a compiler keeps the constants of all that out of the loop.
  if (!(isFull & Alphabet::IsRegular(seen))) {
    return false;
  }
  for (std::size_t block = 0; block < kBlocks; ++block) {
    StoreTwelves(digits, bytes[block], output + StartOf(block) / 4 * 3);
  }
  return true;
}

bool IsLineBreak(unsigned char c) { return c == '\r' || c == '\n'; }

/// The line break of a text's lines: taking the first one's for that of all lets the processor begin with a line before
/// it knows what ends the one before.
class LineBreak {
 public:
  explicit LineBreak(const unsigned char* text) : _length(text[0] == '\r' && text[1] == '\n' ? 2 : 1) {
    _mask = _length == 2 ? 0xFFFF : 0xFF;
    _break = Load(text);
  }

  std::size_t Length() const { return _length; }
  HWY_INLINE bool Is(const unsigned char* text) const { return Load(text) == _break; }

 private:
  HWY_INLINE unsigned int Load(const unsigned char* text) const {
    return (text[0] | static_cast<unsigned int>(text[1]) << 8) & _mask;
  }

  std::size_t _length;
  unsigned int _mask;
  unsigned int _break;
};

template <class Alphabet>
UuFullLines DecodeFullLines(const unsigned char* text, const unsigned char* end, unsigned char* output,
                            std::size_t dropped) {
  const std::size_t length = 1 + kUuLineDigits + dropped;
  if (static_cast<std::size_t>(end - text) < length + 2 || !IsLineBreak(text[length])) {
    return {text, 0};
  }
  const LineBreak lineBreak(text + length);
  const unsigned char* const begin = output;
  while (static_cast<std::size_t>(end - text) >= length + 2) {
    const bool isFull = (text[0] == Alphabet::kFullCount) & lineBreak.Is(text + length) &
                        (dropped == 0 || !IsLineBreak(text[length - 1]));
    if (!DecodeFullLine<Alphabet>(text + 1, output, isFull)) {
      break;
    }
    text += length + lineBreak.Length();
    output += kUuLineBytes;
  }
  return {text, static_cast<std::size_t>(output - begin) / kUuLineBytes};
}

template <class Alphabet>
std::size_t DecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count) {
  const Digits digits;
  for (; length >= kDigits && count >= kDigitBytes; length -= kDigits, count -= kDigitBytes) {
    DigitVector seen = All(255);
    const auto values = Alphabet::ValuesOf(hn::LoadU(digits, text), seen);
    if (!Alphabet::IsRegular(seen)) {
      break;
    }
    StoreTwelves(digits, GatherSixBits(digits, values), output);
    text += kDigits;
    output += kDigitBytes;
  }
  return Alphabet::kDecodeRest(text, length, output, count);
}

}  // namespace

template <class Alphabet>
constexpr UuKernels kUuKernelsOf = {&EncodeLines<Alphabet>, &DecodeFullLines<Alphabet>, &DecodeLine<Alphabet>};

constexpr UuKernels kUuKernels = kUuKernelsOf<UuVector>;
constexpr UuKernels kXxKernels = kUuKernelsOf<XxVector>;

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const UuKernels& UuKernelsOf(SimdLevel level, bool isXx) {
  static constexpr UuKernels kUuScalar = {&UuEncodeLines, &UuDecodeNoLines, &UuDecodeLine};
  static constexpr UuKernels kXxScalar = {&XxEncodeLines, &UuDecodeNoLines, &XxDecodeLine};
  static constexpr const UuKernels* kUuTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kUuScalar, kUuKernels)};
  static constexpr const UuKernels* kXxTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kXxScalar, kXxKernels)};
  return *(isXx ? kXxTables : kUuTables)[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
