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

HWY_INLINE ByteVector LoadTable(const std::uint8_t (&table)[16]) { return hn::LoadDup128(Bytes(), table); }

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
};

/// The fewest bytes that fill a line. The block has enough of them.
HWY_INLINE Share FillLine(std::uint64_t escapes, std::size_t room) {
  const std::size_t most = CountFirst(escapes, std::min<std::size_t>(room, kBlock));
  std::size_t bytes = std::max<std::size_t>(room - most, 1);
  for (;;) {
    const std::size_t characters = bytes + CountFirst(escapes, bytes);
    if (characters >= room) {
      return {bytes, characters};
    }
    bytes += (room - characters + 1) / 2;  // none is worth more than two characters
  }
}

/// Where an encoder writes.
struct Output {
  HWY_INLINE unsigned char* Group(hn::Vec<Sixteen> group, std::size_t escapes, unsigned char* out) {
    const YEncExpansion& expansion = kYEncExpansions[escapes];
    const auto places = hn::Load(Sixteen(), expansion.places.data());
    const auto addends = hn::Load(Sixteen(), expansion.addends.data());
    hn::StoreU(hn::Add(hn::TableLookupBytes(group, places), addends), Sixteen(), out);
    return out + 8 + std::popcount(escapes);
  }

  /// Writes what sixteen bytes become.
  HWY_INLINE unsigned char* Groups(const unsigned char* input, std::uint64_t escapes, unsigned char* out) {
    const hn::Repartition<std::uint64_t, Sixteen> halves;
    const auto bytes = hn::BitCast(halves, hn::LoadU(Sixteen(), input));
    const auto escape = hn::BitCast(halves, hn::Set(Sixteen(), kYEncEscape));
    out = Group(hn::BitCast(Sixteen(), hn::InterleaveLower(halves, bytes, escape)), escapes & 0xFF, out);
    return Group(hn::BitCast(Sixteen(), hn::InterleaveUpper(halves, bytes, escape)), escapes >> 8 & 0xFF, out);
  }

  /// Writes what the first `count` bytes of a block become, and perhaps that of others.
  HWY_INLINE void Write(const unsigned char* input, std::size_t count, std::uint64_t escapes) {
    unsigned char* out = end;
    for (std::size_t i = 0; i < count; i += 16) {
      out = Groups(input + i, escapes >> i, out);
    }
  }

  HWY_INLINE void Keep(std::size_t characters) { end += characters; }
  HWY_INLINE void Break() { end = YEncPutBreak(end); }

  unsigned char* end;
};

/// The same for one that only counts.
struct Counter {
  HWY_INLINE void Write(const unsigned char*, std::size_t, std::uint64_t) {}
  HWY_INLINE void Keep(std::size_t characters) { count += characters; }
  HWY_INLINE void Break() { count += 2; }

  std::uint64_t count = 0;
};

/// Gives a line its share of the `count` bytes whose marks these are. Returns how many it took.
template <class Sink>
HWY_INLINE std::size_t PutIntoLine(std::uint64_t escapes, std::size_t count, YEncLine& line, Sink& sink) {
  const std::size_t characters = count + CountBits(escapes);
  if (characters < line.room) {
    sink.Keep(characters);
    line.room -= characters;
    return count;
  }
  const Share share = FillLine(escapes, line.room);
  sink.Keep(share.characters);
  sink.Break();
  line.room = line.length;
  return share.bytes;
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
    sink.Write(block, count, escapes);
    const std::size_t taken = PutIntoLine(escapes, count, line, sink);
    input += taken;
    count -= taken;
  }
}

template <class Sink>
HWY_INLINE void EncodeInto(const unsigned char* input, std::size_t length, YEncLine& line, Sink& sink) {
  const auto specials = LoadTable(kEncodeSpecials[line.plainTabDot ? 1 : 0]);
  YEncLine current = line;
  while (length >= kBlock) {
    const std::uint64_t escapes = FindEscapes(input, specials);
    sink.Write(input, kBlock, escapes);
    const std::size_t taken = PutIntoLine(escapes, kBlock, current, sink);
    input += taken;
    length -= taken;
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

/// Below so many columns most of a block is done in vain.
constexpr std::size_t kShortLine = 24;

std::uint64_t Measure(const unsigned char* input, std::size_t length, YEncLine& line) {
  if (line.length < kShortLine) {
    return YEncMeasureScalar(input, length, line);
  }
  Counter counter;
  EncodeInto(input, length, line, counter);
  return counter.count;
}

unsigned char* Encode(const unsigned char* input, std::size_t length, unsigned char* output, YEncLine& line) {
  if (line.length < kShortLine) {
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

/// A block of text.
struct Text {
  HWY_INLINE explicit Text(const unsigned char* read) {
    for (int i = 0; i < kParts; ++i) {
      parts[i] = LoadBytes(read + i * kBytes);
    }
  }

  HWY_INLINE bool HasNul() const {
    auto least = parts[0];
    for (int i = 1; i < kParts; ++i) {
      least = hn::Min(least, parts[i]);
    }
    return !hn::AllFalse(Bytes(), hn::Eq(least, hn::Zero(Bytes())));
  }

  HWY_INLINE std::uint64_t FindEquals() const {
    std::uint64_t found = 0;
    for (int i = 0; i < kParts; ++i) {
      found |= MaskBits(hn::Eq(parts[i], Splat(kYEncEscape))) << (i * kBytes);
    }
    return found;
  }

  HWY_INLINE std::uint64_t FindLineBreaks(ByteVector lineBreaks) const {
    std::uint64_t found = 0;
    for (int i = 0; i < kParts; ++i) {
      found |= MaskBits(FindIn(lineBreaks, parts[i])) << (i * kBytes);
    }
    return found;
  }

  /// Decodes those characters whose bit in `kept` is set. Returns the end of what is written.
  HWY_INLINE unsigned char* Write(std::uint64_t escaped, std::uint64_t kept, unsigned char* written) const {
    for (int i = 0; i < kParts; ++i, escaped >>= kBytes % 64, kept >>= kBytes % 64) {
      const auto isEscaped = hn::LoadMaskBits(Bytes(), reinterpret_cast<const std::uint8_t*>(&escaped));
      const auto shift = hn::IfThenElse(isEscaped, Splat(kYEncShift + kYEncEscapeShift), Splat(kYEncShift));
      written = StoreKept(hn::Sub(parts[i], shift), kept, written);
    }
    return written;
  }

  ByteVector parts[kParts];
};

/// All of a block is loaded before any of it is written, and what it becomes is no longer, so it may be decoded in
/// place.
void Decode(YEncDecoding& decoding, const unsigned char* end) {
  const auto lineBreaks = LoadTable(kLineBreaks);
  const unsigned char* read = decoding.read;
  unsigned char* written = decoding.written;
  std::uint64_t isFirstEscaped = decoding.isEscape ? 1 : 0;
  for (; end - read >= kBlock; read += kBlock) {
    const Text text(read);
    if (text.HasNul()) {
      break;
    }
    const std::uint64_t equals = text.FindEquals();
    const std::uint64_t starts = FindStarts(equals, isFirstEscaped);
    const std::uint64_t escaped = starts << 1 | isFirstEscaped;
    isFirstEscaped = starts >> 63;
    written = text.Write(escaped, ~((equals | text.FindLineBreaks(lineBreaks)) & ~escaped), written);
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
