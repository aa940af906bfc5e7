#include <QSbase/codec/yenckernel.h>
#include <QSbase/simd/targets.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/codec/yencvector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>

#ifndef QSBASE_CODEC_YENCVECTOR_TABLE
#define QSBASE_CODEC_YENCVECTOR_TABLE
namespace qsbase::detail {

/// How eight bytes become up to sixteen characters: a shuffle of a vector whose lower half are the bytes and whose
/// upper half are "=", and what is added to its result.
struct YEncExpansion {
  std::array<std::uint8_t, 16> places;
  std::array<std::uint8_t, 16> addends;
};

/// One for every choice of those to be escaped, one bit each.
using YEncExpansions = std::array<YEncExpansion, 256>;

constexpr YEncExpansions MakeYEncExpansions() {
  YEncExpansions table{};
  for (std::size_t escapes = 0; escapes < 256; ++escapes) {
    std::size_t at = 0;
    for (std::uint8_t i = 0; i < 8; ++i) {
      const bool isEscape = (escapes >> i & 1) != 0;
      if (isEscape) {
        table[escapes].places[at++] = 8;
      }
      table[escapes].places[at] = i;
      table[escapes].addends[at++] = isEscape ? kYEncShift + kYEncEscapeShift : kYEncShift;
    }
  }
  return table;
}

alignas(64) inline constexpr YEncExpansions kYEncExpansions = MakeYEncExpansions();

}  // namespace qsbase::detail
#endif

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

/// The kernels take so many bytes at a time, one bit each in a word.
constexpr std::ptrdiff_t kBlock = 64;
constexpr int kParts = static_cast<int>(kBlock / kBytes);

/// In the place of a character's low four bits the character, if a shuffle by itself shall find it; a character of 0x80
/// and above finds a zero.
constexpr std::uint8_t kNone = 0xFF;
alignas(16) constexpr std::uint8_t kEncodeSpecials[2][16] = {
    {0, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, '\t', '\n', kNone, kNone, '\r', '.', kNone},
    {0, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, '\n', kNone, kNone, '\r', kNone, kNone}};
alignas(16) constexpr std::uint8_t kLineBreaks[16] = {kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone,
                                                      kNone, kNone, '\n',  kNone, kNone, '\r',  kNone, kNone};

/// Those characters that the table has. (The shuffle of every level takes the low four bits.)
HWY_INLINE hn::Mask<Bytes> FindIn(ByteVector table, ByteVector characters) {
  return hn::Eq(hn::TableLookupBytes(table, characters), characters);
}

/// Those of a block's bytes that are to be escaped.
HWY_INLINE std::uint64_t FindEscapes(const unsigned char* input, ByteVector specials) {
  std::uint64_t escapes = 0;
  for (int i = 0; i < kParts; ++i) {
    const auto shifted = hn::Add(LoadBytes(input + i * kBytes), Splat(kYEncShift));
    const auto found = hn::Or(FindIn(specials, shifted), hn::Eq(shifted, Splat(kYEncEscape)));
    escapes |= MaskBits(found) << (i * kBytes);
  }
  return escapes;
}

HWY_INLINE std::size_t CountBits(std::uint64_t bits) { return static_cast<std::size_t>(std::popcount(bits)); }

/// How many of the first `count` bytes of a block are to be escaped; `count` is from 1 to 64.
HWY_INLINE std::size_t CountFirst(std::uint64_t escapes, std::size_t count) {
  return CountBits(escapes << (kBlock - count));
}

/// What a line takes of a block.
struct Share {
  std::size_t bytes;
  std::size_t characters;
  bool isLineFull;
};

/// The fewest bytes that fill a line. The block has enough of them.
HWY_INLINE Share FillLine(std::uint64_t escapes, std::size_t room) {
  const std::size_t most = CountFirst(escapes, std::min<std::size_t>(room, kBlock));
  std::size_t bytes = std::max<std::size_t>(room - most, 1);
  for (;;) {
    const std::size_t characters = bytes + CountFirst(escapes, bytes);
    if (characters >= room) {
      return {bytes, characters, true};
    }
    bytes += (room - characters + 1) / 2;  // none is worth more than two characters
  }
}

/// Eight marks of a block, of the bytes from `kFirst` on, as the offset of their row in the table: marks turned to
/// their place take one instruction less than marks that are moved and multiplied.
template <int kFirst>
HWY_INLINE std::size_t OffsetOfRow(std::uint64_t escapes) {
  constexpr std::size_t kRow = sizeof(YEncExpansion);
  return static_cast<std::size_t>(std::rotr(escapes, kFirst - std::countr_zero(kRow))) & 255 * kRow;
}

/// Writes what eight bytes become.
template <int kFirst>
HWY_INLINE void ExpandEight(hn::Vec<Sixteen> eight, std::uint64_t escapes, unsigned char* end) {
  unsigned char* const out = end + kFirst + CountBits(escapes & ((std::uint64_t{1} << kFirst) - 1));
  const std::size_t offset = OffsetOfRow<kFirst>(escapes);
  const std::uint8_t* const row = reinterpret_cast<const std::uint8_t*>(kYEncExpansions.data()) + offset;
  const auto shuffled = hn::TableLookupBytes(eight, hn::Load(Sixteen(), row));
  hn::StoreU(hn::Add(shuffled, hn::Load(Sixteen(), row + 16)), Sixteen(), out);
}

/// Writes what sixteen bytes of a block become, from `kFirst` on.
template <int kFirst>
HWY_INLINE void Expand(const unsigned char* input, std::uint64_t escapes, unsigned char* end) {
  const hn::Repartition<std::uint64_t, Sixteen> halves;
  const auto bytes = hn::BitCast(halves, hn::LoadU(Sixteen(), input + kFirst));
  const auto escape = hn::BitCast(halves, hn::Set(Sixteen(), kYEncEscape));
  ExpandEight<kFirst>(hn::BitCast(Sixteen(), hn::InterleaveLower(halves, bytes, escape)), escapes, end);
  ExpandEight<kFirst + 8>(hn::BitCast(Sixteen(), hn::InterleaveUpper(halves, bytes, escape)), escapes, end);
}

/// Where an encoder writes.
struct Output {
  /// Writes what the first `count` bytes of a block become, and perhaps that of up to 15 more.
  HWY_INLINE void Write(const unsigned char* input, std::size_t count, std::uint64_t escapes) {
    Expand<0>(input, escapes, end);
    if (count > 16) {
      Expand<16>(input, escapes, end);
    }
    if (count > 32) {
      Expand<32>(input, escapes, end);
    }
    if (count > 48) {
      Expand<48>(input, escapes, end);
    }
  }

  HWY_INLINE void Keep(const Share& share) {
    end += share.characters;
    end = share.isLineFull ? YEncPutBreak(end) : end;
  }

  unsigned char* end;
};

/// The same for one that only counts.
struct Counter {
  HWY_INLINE void Write(const unsigned char*, std::size_t, std::uint64_t) {}
  HWY_INLINE void Keep(const Share& share) { count += share.characters + (share.isLineFull ? 2 : 0); }

  std::uint64_t count = 0;
};

/// The share of a line in the `count` bytes whose marks these are.
HWY_INLINE Share TakeShare(std::uint64_t escapes, std::size_t count, YEncLine& line) {
  const std::size_t characters = count + CountBits(escapes);
  if (characters < line.room) {
    line.room -= characters;
    return {count, characters, false};
  }
  const Share share = FillLine(escapes, line.room);
  line.room = line.length;
  return share;
}

/// Encodes less than a block.
template <class Sink>
HWY_INLINE void EncodeRest(const unsigned char* input, std::size_t count, YEncLine& line, Sink& sink,
                           ByteVector specials) {
  unsigned char block[kBlock];
  while (count != 0) {
    std::memset(block, 0, sizeof(block));  // no byte to be escaped
    std::memcpy(block, input, count);
    const std::uint64_t escapes = FindEscapes(block, specials);
    sink.Write(block, std::min(line.room, count), escapes);
    const Share share = TakeShare(escapes, count, line);
    sink.Keep(share);
    input += share.bytes;
    count -= share.bytes;
  }
}

/// The marks of a block are found before the one in front of it is written, as everything waits for them.
template <class Sink>
HWY_INLINE void EncodeInto(const unsigned char* input, std::size_t length, YEncLine& line, Sink& sink) {
  const auto specials = LoadTable(kEncodeSpecials[line.plainTabDot ? 1 : 0]);
  YEncLine current = line;
  std::uint64_t escapes = length >= kBlock ? FindEscapes(input, specials) : 0;
  while (length >= kBlock) {
    const std::size_t needed = std::min<std::size_t>(current.room, kBlock);
    const Share share = TakeShare(escapes, kBlock, current);
    length -= share.bytes;
    const std::uint64_t next = length >= kBlock ? FindEscapes(input + share.bytes, specials) : 0;
    sink.Write(input, needed, escapes);
    sink.Keep(share);
    input += share.bytes;
    escapes = next;
  }
  EncodeRest(input, length, current, sink, specials);
  line = current;
}

std::uint64_t CountEscapes(const unsigned char* input, std::size_t length, bool plainTabDot) {
  const auto specials = LoadTable(kEncodeSpecials[plainTabDot ? 1 : 0]);
  std::uint64_t count = 0;
  for (; length >= kBlock; length -= kBlock, input += kBlock) {
    count += CountBits(FindEscapes(input, specials));
  }
  return count + YEncCountEscapesScalar(input, length, plainTabDot);
}

/// Of lines shorter than these most of a block would be done in vain.
constexpr std::size_t kShortestMeasured = 16;
constexpr std::size_t kShortestEncoded = 24;

/// A short input is done sooner byte by byte.
HWY_INLINE bool IsForScalar(std::size_t length, const YEncLine& line, std::size_t shortestLine) {
  return length < 16 || line.length < shortestLine;
}

std::uint64_t Measure(const unsigned char* input, std::size_t length, YEncLine& line) {
  if (IsForScalar(length, line, kShortestMeasured)) {
    return YEncMeasureScalar(input, length, line);
  }
  Counter counter;
  EncodeInto(input, length, line, counter);
  return counter.count;
}

unsigned char* Encode(const unsigned char* input, std::size_t length, unsigned char* output, YEncLine& line) {
  if (IsForScalar(length, line, kShortestEncoded)) {
    return YEncEncodeScalar(input, length, output, line);
  }
  Output sink{output};
  EncodeInto(input, length, line, sink);
  return sink.end;
}

/// The "=" of a block that begin an escape. Those of a run take turns, from its first: adding a bit to the start of a
/// run moves all of it up, and so tells apart the runs that start at an even place.
HWY_INLINE std::uint64_t FindStarts(std::uint64_t equals, std::uint64_t isFirstEscaped) {
  constexpr std::uint64_t kEven = 0x5555555555555555;
  const std::uint64_t runs = equals & ~isFirstEscaped;
  const std::uint64_t evenRuns = runs & ~(runs << 1) & kEven;
  return runs & ((runs + evenRuns) ^ kEven);
}

/// What a decoder looks for in a block.
struct Marks {
  std::uint64_t equals = 0;
  std::uint64_t specials = 0;  ///< "=", CR, LF
  bool hasNul = false;
};

HWY_INLINE Marks FindMarks(const unsigned char* read, ByteVector lineBreaks) {
  Marks marks;
  auto least = LoadBytes(read);
  for (int i = 0; i < kParts; ++i) {
    const auto part = LoadBytes(read + i * kBytes);
    const auto equals = hn::Eq(part, Splat(kYEncEscape));
    least = hn::Min(least, part);
    marks.equals |= MaskBits(equals) << (i * kBytes);
    marks.specials |= MaskBits(hn::Or(equals, FindIn(lineBreaks, part))) << (i * kBytes);
  }
  marks.hasNul = !hn::AllFalse(Bytes(), hn::Eq(least, hn::Zero(Bytes())));
  return marks;
}

/// Decodes those characters of a block whose bit in `kept` is set. Returns the end of what is written, which comes no
/// further than what is read: in place, nothing is lost.
HWY_INLINE unsigned char* WriteKept(const unsigned char* read, std::uint64_t escaped, std::uint64_t kept,
                                    unsigned char* written) {
  for (int i = 0; i < kParts; ++i, escaped >>= kBytes % kBlock, kept >>= kBytes % kBlock) {
    const auto isEscaped = hn::LoadMaskBits(Bytes(), reinterpret_cast<const std::uint8_t*>(&escaped));
    const auto shift = hn::IfThenElse(isEscaped, Splat(kYEncShift + kYEncEscapeShift), Splat(kYEncShift));
    written = StoreKept(hn::Sub(LoadBytes(read + i * kBytes), shift), kept, written);
  }
  return written;
}

/// The marks of a block are found before the one in front of it is written, as everything waits for them.
void Decode(YEncDecoding& decoding, const unsigned char* end) {
  if (end - decoding.read < kBlock) {
    YEncDecodeScalar(decoding, end);
    return;
  }
  const auto lineBreaks = LoadTable(kLineBreaks);
  const unsigned char* read = decoding.read;
  unsigned char* written = decoding.written;
  std::uint64_t isFirstEscaped = decoding.isEscape ? 1 : 0;
  Marks marks = FindMarks(read, lineBreaks);
  while (end - read >= kBlock && !marks.hasNul) {
    const Marks next = end - read >= 2 * kBlock ? FindMarks(read + kBlock, lineBreaks) : Marks();
    const std::uint64_t starts = FindStarts(marks.equals, isFirstEscaped);
    const std::uint64_t escaped = starts << 1 | isFirstEscaped;
    written = WriteKept(read, escaped, ~marks.specials | escaped, written);
    isFirstEscaped = starts >> 63;
    read += kBlock;
    marks = next;
  }
  decoding = {read, written, isFirstEscaped != 0};
  YEncDecodeScalar(decoding, end);
}

HWY_INLINE hn::Mask<Bytes> FindPairs(const char* position) {
  return hn::And(hn::Eq(LoadBytes(position), Splat('=')), hn::Eq(LoadBytes(position + 1), Splat('y')));
}

const char* FindKeyword(const char* position, const char* end) {
  for (; end - position > kBlock; position += kBlock) {
    auto found = FindPairs(position);
    for (int i = 1; i < kParts; ++i) {
      found = hn::Or(found, FindPairs(position + i * kBytes));
    }
    if (!hn::AllFalse(Bytes(), found)) {
      break;
    }
  }
  return YEncFindKeywordScalar(position, end);
}

}  // namespace

constexpr YEncKernels kYEncKernels = {&CountEscapes, &Measure, &Encode, &Decode, &FindKeyword};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const YEncKernels& YEncKernelsOf(SimdLevel level) {
  static constexpr YEncKernels kScalar = {&YEncCountEscapesScalar, &YEncMeasureScalar, &YEncEncodeScalar,
                                          &YEncDecodeScalar, &YEncFindKeywordScalar};
  static constexpr const YEncKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kYEncKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
