#include <QSbase/codec/uukernel.h>
#include <QSbase/simd/targets.h>

#include <algorithm>
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
using FullDigits = hn::CappedTag<std::uint8_t, 32>;

// Other lines are most often shorter.
using ShortDigits = hn::Full128<std::uint8_t>;

/// How many digits a vector holds, and the bytes that they stand for.
template <class D>
constexpr std::size_t kDigits = hn::MaxLanes(D());
template <class D>
constexpr std::size_t kDigitBytes = kDigits<D> / 4 * 3;

template <class D>
struct UuVector {
  using V = hn::Vec<D>;

  static constexpr unsigned char CountOf(std::size_t count) { return static_cast<unsigned char>(32 + count); }

  /// The value + 32, but 96 for 0.
  static HWY_INLINE V DigitsOf(V values) {
    return hn::Add(hn::And(hn::Sub(values, hn::Set(D(), 1)), hn::Set(D(), 63)), hn::Set(D(), 33));
  }

  /// Any character has a value; `lowest` keeps the lowest ones.
  static HWY_INLINE V ValuesOf(V text, V& lowest) {
    lowest = hn::Min(lowest, text);
    return hn::And(hn::Sub(text, hn::Set(D(), 32)), hn::Set(D(), 63));
  }

  /// No CR and no LF.
  static HWY_INLINE bool IsRegular(V lowest) {
    return hn::AllTrue(D(), hn::Eq(hn::Max(lowest, hn::Set(D(), 16)), lowest));
  }
};

template <class D>
struct XxVector {
  using V = hn::Vec<D>;

  static constexpr unsigned char CountOf(std::size_t count) { return static_cast<unsigned char>(kXxDigits[count]); }

  /// The digits run on from "+" but for four gaps.
  static HWY_INLINE V DigitsOf(V values) {
    alignas(16) static constexpr std::uint8_t kShifts[16] = {43, 44, 46, 46, 46, 46, 46, 46, 46, 46, 46, 46, 53, 59};
    const hn::RebindToSigned<D> withSign;
    const auto isSmall = hn::RebindMask(D(), hn::Gt(hn::BitCast(withSign, values), hn::Set(withSign, 37)));
    const auto kinds = hn::Sub(hn::Min(values, hn::Set(D(), 12)), hn::VecFromMask(D(), isSmall));
    return hn::Add(values, hn::TableLookupBytes(hn::LoadDup128(D(), kShifts), kinds));
  }

  /// `legal` keeps a zero where a character outside the alphabet stood, and for NUL.
  static HWY_INLINE V ValuesOf(V text, V& legal) {
    // By the upper half of a character: what it is less in value, and the bit of its row; by the lower half: the rows
    // that have it.
    alignas(16) static constexpr std::uint8_t kShifts[16] = {0, 0x2B, 0x2C, 0x2E, 0x35, 0x35, 0x3B, 0x3B};
    alignas(16) static constexpr std::uint8_t kRows[16] = {0, 0, 1, 2, 4, 8, 4, 8};
    alignas(16) static constexpr std::uint8_t kRowsWith[16] = {10, 14, 14, 14, 14, 14, 14, 14,
                                                               14, 14, 12, 5,  4,  5,  4,  4};
    const hn::Repartition<std::uint16_t, D> words;
    const auto upper = hn::And(hn::BitCast(D(), hn::ShiftRight<4>(hn::BitCast(words, text))), hn::Set(D(), 15));
    legal = hn::Min(legal, hn::And(hn::TableLookupBytesOr0(hn::LoadDup128(D(), kRowsWith), text),
                                   hn::TableLookupBytes(hn::LoadDup128(D(), kRows), upper)));
    // "+" has a row to itself.
    const auto rows = hn::Add(upper, hn::VecFromMask(D(), hn::Eq(text, hn::Set(D(), '+'))));
    return hn::Sub(text, hn::TableLookupBytes(hn::LoadDup128(D(), kShifts), rows));
  }

  static HWY_INLINE bool IsRegular(V legal) { return hn::AllFalse(D(), hn::Eq(legal, hn::Zero(D()))); }
};

struct Uu {
  template <class D>
  using Vector = UuVector<D>;
  static constexpr auto kEncodeRest = &UuEncodeLines;
  static constexpr auto kDecodeRest = &UuDecodeLine;
};

struct Xx {
  template <class D>
  using Vector = XxVector<D>;
  static constexpr auto kEncodeRest = &XxEncodeLines;
  static constexpr auto kDecodeRest = &XxDecodeLine;
};

/// Reads four bytes behind the last vector's, and scratches what the vectors hold behind the digits.
template <class Alphabet>
HWY_INLINE void EncodeDigits(const unsigned char* input, std::size_t count, unsigned char* output) {
  using D = FullDigits;
  for (std::size_t done = 0; done < count; done += kDigitBytes<D>) {
    const auto values = SpreadSixBits(D(), LoadTwelves(D(), input + done));
    hn::StoreU(Alphabet::template Vector<D>::DigitsOf(values), D(), output + done / 3 * 4);
  }
}

template <class Alphabet>
HWY_INLINE std::size_t EncodeLine(const unsigned char* input, std::size_t count, unsigned char* output) {
  const std::size_t characters = 1 + (count + 2) / 3 * 4;
  output[0] = Alphabet::template Vector<FullDigits>::CountOf(count);
  EncodeDigits<Alphabet>(input, count, output + 1);
  std::memcpy(output + characters, "\r\n", 2);  // NOLINT(bugprone-not-null-terminated-result): a line among others
  return characters + 2;
}

/// What the vectors of a full line read.
constexpr std::size_t kReadBytes = 52;

/// As many bytes are worth a vector.
constexpr std::size_t kWorthwhileBytes = 9;

template <class Alphabet>
std::size_t EncodeLines(const unsigned char* input, std::size_t length, unsigned char* output) {
  unsigned char* const begin = output;
  for (; length >= kReadBytes; length -= kUuLineBytes, input += kUuLineBytes) {
    output += EncodeLine<Alphabet>(input, kUuLineBytes, output);
  }
  while (length >= kWorthwhileBytes) {
    const std::size_t count = std::min(length, kUuLineBytes);
    unsigned char padded[kReadBytes] = {};
    std::memcpy(padded, input, count);
    output += EncodeLine<Alphabet>(padded, count, output);
    input += count;
    length -= count;
  }
  return static_cast<std::size_t>(output - begin) + Alphabet::kEncodeRest(input, length, output);
}

/// Where the vectors of a full line begin: the last one overlaps the one before.
constexpr std::size_t kFullBlocks = 64 / kDigits<FullDigits>;

constexpr std::size_t StartOf(std::size_t block) {
  return block + 1 < kFullBlocks ? block * kDigits<FullDigits> : kUuLineDigits - kDigits<FullDigits>;
}

/// Decodes 60 digits, unless they are not regular or `isFull` is not true.
template <class Alphabet>
HWY_INLINE bool DecodeFullLine(const unsigned char* text, unsigned char* output, bool isFull) {
  using D = FullDigits;
  using Vector = typename Alphabet::template Vector<D>;
  auto seen = hn::Set(D(), 255);
  hn::Vec<D> bytes[kFullBlocks];
  for (std::size_t block = 0; block < kFullBlocks; ++block) {
    const auto values = Vector::ValuesOf(hn::LoadU(D(), text + StartOf(block)), seen);
    bytes[block] = GatherSixBits(D(), values);
  }
  // In front of the only branch, so that a compiler keeps the constants of all that out of the loop.
  if (!(isFull & Vector::IsRegular(seen))) {
    return false;
  }
  for (std::size_t block = 0; block < kFullBlocks; ++block) {
    StoreTwelves(D(), bytes[block], output + StartOf(block) / 4 * 3);
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
    const bool isFull = (text[0] == Alphabet::template Vector<FullDigits>::CountOf(kUuLineBytes)) &
                        lineBreak.Is(text + length) & (dropped == 0 || !IsLineBreak(text[length - 1]));
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
  using D = ShortDigits;
  using Vector = typename Alphabet::template Vector<D>;
  const std::size_t digits = (count + 2) / 3 * 4;
  if (digits < kDigits<D> || digits > length) {
    return Alphabet::kDecodeRest(text, length, output, count);
  }
  // The last vector overlaps the one before, and is loaded before that may store over it.
  const auto last = hn::LoadU(D(), text + digits - kDigits<D>);
  auto seen = hn::Set(D(), 255);
  std::size_t done = 0;
  for (; digits - done > kDigits<D>; done += kDigits<D>) {
    const auto values = Vector::ValuesOf(hn::LoadU(D(), text + done), seen);
    if (!Vector::IsRegular(seen)) {
      break;
    }
    StoreTwelves(D(), GatherSixBits(D(), values), output + done / 4 * 3);
  }
  const auto values = Vector::ValuesOf(last, seen);
  if (!Vector::IsRegular(seen)) {
    return Alphabet::kDecodeRest(text + done, length - done, output + done / 4 * 3, count - done / 4 * 3);
  }
  StoreTwelves(D(), GatherSixBits(D(), values), output + (digits - kDigits<D>) / 4 * 3);
  return digits == length ? 0 : Alphabet::kDecodeRest(text + digits, length - digits, nullptr, 0);
}

}  // namespace

template <class Alphabet>
constexpr UuKernels kUuKernelsOf = {&EncodeLines<Alphabet>, &DecodeFullLines<Alphabet>, &DecodeLine<Alphabet>};

constexpr UuKernels kUuKernels = kUuKernelsOf<Uu>;
constexpr UuKernels kXxKernels = kUuKernelsOf<Xx>;

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
