#include <QSbase/codec/quotedprintablekernel.h>
#include <QSbase/simd/targets.h>
#include <QSbase/text/chartables.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/codec/quotedprintablevector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>

// The encoder works on pieces of the input, each in two steps: it is expanded into characters without soft breaks, in
// a block on the stack, and then laid in lines. A line ends where it is full, but before a "=" among the last two
// characters: every "=" of the expanded text begins a triple. Neither step branches on the kind of a byte.
//
// The decoder needs no order at all: neither hex digits nor line breaks are "=", so that the two bytes behind a "="
// alone tell what it is.

#ifndef QSBASE_CODEC_QUOTEDPRINTABLEVECTOR_ONCE
#define QSBASE_CODEC_QUOTEDPRINTABLEVECTOR_ONCE
namespace qsbase::detail {
namespace {

/// Of this many bytes on the vector kernels are worth their start.
constexpr std::size_t kEncodedByVectors = 48;
constexpr std::size_t kDecodedByVectors = 80;
/// Below this limit a line may hold less than a triple, and limits wrap.
constexpr std::uint32_t kSmallestLine = 8;
/// How many input bytes are expanded at once.
constexpr std::size_t kPiece = 1024;
/// Room before and behind the expanded text: for a look at the characters before its first, and for whole vectors.
constexpr std::size_t kPad = 128;

/// More room than any expanded text needs.
constexpr std::size_t kFar = 8 * kPiece;

/// For four bytes, of which those with a set bit are literals: where their characters are in a block that holds the
/// bytes themselves, their high digits, their low digits, and "=" four times. 0x80 makes a zero.
using Expansions = std::array<std::array<std::uint8_t, 16>, 16>;

constexpr Expansions MakeExpansions() {
  Expansions table{};
  for (std::size_t literals = 0; literals < 16; ++literals) {
    table[literals].fill(0x80);
    std::size_t width = 0;
    for (std::uint8_t i = 0; i < 4; ++i) {
      if ((literals >> i & 1) != 0) {
        table[literals][width++] = i;
      } else {
        table[literals][width++] = 12;
        table[literals][width++] = static_cast<std::uint8_t>(4 + i);
        table[literals][width++] = static_cast<std::uint8_t>(8 + i);
      }
    }
  }
  return table;
}

alignas(64) constexpr Expansions kExpansions = MakeExpansions();
constexpr std::array<std::uint8_t, 16> kExpandedWidths = {12, 10, 10, 8, 10, 8, 8, 6, 10, 8, 8, 6, 8, 6, 6, 4};

alignas(16) constexpr std::array<std::uint8_t, 16> kHexDigits = {'0', '1', '2', '3', '4', '5', '6', '7',
                                                                 '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};
alignas(16) constexpr std::array<std::uint8_t, 16> kSixteens = {0x00, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70,
                                                                0x80, 0x90, 0xA0, 0xB0, 0xC0, 0xD0, 0xE0, 0xF0};
/// Each line break at its low four bits, and a value that is none elsewhere.
alignas(16) constexpr std::array<std::uint8_t, 16> kBreaks = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\n', 0, 0, '\r', 0, 0};
/// By the high four bits of a byte, their bit in `QPTable::notTriples`. All bits stand for no bit.
alignas(16) constexpr std::array<std::uint8_t, 16> kHighBits = {1,    2,    4,    8,    16,   32,   64,   128,
                                                                0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

}  // namespace
}  // namespace qsbase::detail
#endif

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

/// The mask bits of a whole vector.
constexpr std::uint64_t kAllBytes = ~std::uint64_t{0} >> (64 - kBytes);

HWY_INLINE ByteVector HighDigits(ByteVector bytes) {
  const hn::RepartitionToWide<Bytes> pairs;
  return hn::And(hn::BitCast(Bytes(), hn::ShiftRight<4>(hn::BitCast(pairs, bytes))), Splat(0x0F));
}

// Encoding

using Block = hn::Full128<std::uint8_t>;

/// Expands four groups of four bytes, and gives the end of their characters.
HWY_INLINE char* PutGroups(hn::Vec<Block> first, hn::Vec<Block> second, hn::Vec<Block> third, hn::Vec<Block> fourth,
                           std::uint64_t literals, char* out) {
  const Block block;
  const auto put = [&](hn::Vec<Block> group, std::size_t kinds) HWY_ATTR {
    const auto places = hn::Load(block, kExpansions[kinds].data());
    hn::StoreU(hn::TableLookupBytes(group, places), block, reinterpret_cast<std::uint8_t*>(out));
    out += kExpandedWidths[kinds];
  };
  put(first, literals & 0xF);
  put(second, literals >> 4 & 0xF);
  put(third, literals >> 8 & 0xF);
  put(fourth, literals >> 12 & 0xF);
  return out;
}

#if HWY_MAX_BYTES > 16
/// The same for every block of wider vectors.
template <class Vector>
HWY_INLINE char* PutGroups(Vector first, Vector second, Vector third, Vector fourth, std::uint64_t literals,
                           char* out) {
  const hn::DFromV<Vector> all;
  const hn::Half<decltype(all)> half;
  out = PutGroups(hn::LowerHalf(half, first), hn::LowerHalf(half, second), hn::LowerHalf(half, third),
                  hn::LowerHalf(half, fourth), literals, out);
  return PutGroups(hn::UpperHalf(half, first), hn::UpperHalf(half, second), hn::UpperHalf(half, third),
                   hn::UpperHalf(half, fourth), literals >> hn::MaxLanes(half), out);
}
#endif

/// Bytes as they are to be written where they are no triples: a CR alone is a hard break as a LF is.
HWY_INLINE ByteVector WithLineFeeds(ByteVector bytes, ByteVector next) {
  const auto isAlone = hn::AndNot(hn::VecFromMask(Bytes(), hn::Eq(next, Splat('\n'))),
                                  hn::VecFromMask(Bytes(), hn::Eq(bytes, Splat('\r'))));
  return hn::IfVecThenElse(isAlone, Splat('\n'), bytes);
}

/// Expands one vector.
HWY_INLINE char* ExpandVector(ByteVector bytes, ByteVector notTriples, char* out) {
  const auto high = HighDigits(bytes);
  const auto highBits = hn::TableLookupBytes(LoadTable(kHighBits.data()), high);
  // A byte above 127 gives zero, and the lookup takes the low four bits of the others.
  const auto isLiteral = hn::Eq(hn::And(hn::TableLookupBytesOr0(notTriples, bytes), highBits), highBits);
  const std::uint64_t literals = MaskBits(isLiteral);
  if (literals == kAllBytes) {
    StoreBytes(bytes, out);
    return out + kBytes;
  }
  const hn::Repartition<std::uint32_t, Bytes> fours;
  const hn::Repartition<std::uint64_t, Bytes> eights;
  const auto digits = LoadTable(kHexDigits.data());
  const auto asFours = hn::BitCast(fours, bytes);
  const auto highs = hn::BitCast(fours, hn::TableLookupBytes(digits, high));
  const auto lows = hn::BitCast(fours, hn::TableLookupBytes(digits, hn::And(bytes, Splat(0x0F))));
  const auto marks = hn::BitCast(fours, Splat('='));
  const auto front = hn::BitCast(eights, hn::InterleaveLower(fours, asFours, highs));
  const auto frontRest = hn::BitCast(eights, hn::InterleaveLower(fours, lows, marks));
  const auto back = hn::BitCast(eights, hn::InterleaveUpper(fours, asFours, highs));
  const auto backRest = hn::BitCast(eights, hn::InterleaveUpper(fours, lows, marks));
  return PutGroups(hn::BitCast(Bytes(), hn::InterleaveLower(eights, front, frontRest)),
                   hn::BitCast(Bytes(), hn::InterleaveUpper(eights, front, frontRest)),
                   hn::BitCast(Bytes(), hn::InterleaveLower(eights, back, backRest)),
                   hn::BitCast(Bytes(), hn::InterleaveUpper(eights, back, backRest)), literals, out);
}

/// Expands bytes: literals and triples; LF, or CR LF, for each hard break. `end` is the end of the input, where
/// `pieceEnd` is not: a CR at the end of the piece is never one with a LF behind it. Returns the end of the characters.
template <bool kHardBreaks>
HWY_INLINE char* Expand(const unsigned char* p, const unsigned char* pieceEnd, const unsigned char* end,
                        ByteVector notTriples, char* out) {
  const auto load = [](const unsigned char* from) HWY_ATTR {
    return kHardBreaks ? WithLineFeeds(LoadBytes(from), LoadBytes(from + 1)) : LoadBytes(from);
  };
  for (; pieceEnd - p >= kBytes && end - p > kBytes; p += kBytes) {
    out = ExpandVector(load(p), notTriples, out);
  }
  const auto left = static_cast<std::size_t>(pieceEnd - p);
  if (left == 0) {
    return out;
  }
  // The rest as if zeroes were behind it, whose triples are taken off again.
  unsigned char rest[kBytes + 1] = {};
  std::memcpy(rest, p, left);
  return ExpandVector(load(rest), notTriples, out) - 3 * (kBytes - static_cast<std::ptrdiff_t>(left));
}

/// Where lines go.
struct LineWriter {
  HWY_INLINE void Copy(ByteVector characters, std::size_t place) const { StoreBytes(characters, out + place); }
  HWY_INLINE void End(std::size_t width, bool isHard) {
    out += width;
    const std::uint32_t hard = '\r' | '\n' << 8;
    const std::uint32_t soft = '=' | '\r' << 8 | '\n' << 16;
    const std::uint32_t text = isHard ? hard : soft;
    std::memcpy(out, &text, sizeof(text));
    out += isHard ? 2 : 3;
  }
  HWY_INLINE void Leave(std::size_t width) { out += width; }

  char* out;
};

/// Counts instead.
struct LineCounter {
  HWY_INLINE void Copy(ByteVector, std::size_t) const {}
  HWY_INLINE void End(std::size_t width, bool isHard) { size += width + (isHard ? 2 : 3); }
  HWY_INLINE void Leave(std::size_t width) { size += width; }

  std::uint64_t size;
};

/// Copies the beginning of a line, `length` characters and some more, or up to a line feed. Returns the place of the
/// line feed, or `length` or more.
template <bool kHardBreaks, class Sink>
HWY_INLINE std::size_t CopyLine(const char* text, std::size_t length, const Sink& sink) {
  for (std::size_t i = 0; i < length; i += static_cast<std::size_t>(kBytes)) {
    const auto characters = LoadBytes(text + i);
    sink.Copy(characters, i);
    if constexpr (kHardBreaks) {
      const std::uint64_t feeds = MaskBits(hn::Eq(characters, Splat('\n')));
      if (feeds != 0) {
        return i + static_cast<std::size_t>(std::countr_zero(feeds));
      }
    }
  }
  return length;
}

/// Puts the breaks of empty lines, for a look at a whole vector for each of them takes longer than its text is worth.
/// Returns where the text goes on. No break is cut by its end, behind which there is a zero.
template <class Sink>
HWY_INLINE const char* PutEmptyLines(const char* text, Sink& sink) {
  while (*text == '\n' || *text == '\r') {
    text += *text == '\r' ? 2 : 1;
    sink.End(0, true);
  }
  return text;
}

/// Lays expanded text in lines. There are two characters before it that are neither "=" nor CR, and a vector of zeroes
/// behind it.
template <bool kHardBreaks, class Sink>
HWY_INLINE void LayLines(const char* text, const char* end, std::size_t limit, std::size_t& textColumn,
                         Sink& textSink) {
  Sink sink = textSink;
  std::size_t column = textColumn;
  while (text != end) {
    const auto left = static_cast<std::size_t>(end - text);
    const std::size_t room = std::min(limit - column, kFar);
    const std::size_t feed = CopyLine<kHardBreaks>(text, std::min(left, kHardBreaks ? room + 2 : room), sink);
    const std::size_t hard = kHardBreaks ? feed - (*(text + feed - 1) == '\r' ? 1 : 0) : 0;
    const bool isHard = kHardBreaks && feed < left && hard <= room;
    if (!isHard && left <= room) {
      sink.Leave(left);
      column += left;
      break;
    }
    const char* const full = text + std::min(left, room);
    const std::size_t soft = room - (full[-1] == '=' ? 1 : 0) - (full[-2] == '=' ? 2 : 0);
    sink.End(isHard ? hard : soft, isHard);
    text += isHard ? feed + 1 : soft;
    column = 0;
    text = kHardBreaks && isHard ? PutEmptyLines(text, sink) : text;
  }
  textColumn = column;
  textSink = sink;
}

/// Expands piece by piece and lays the lines.
template <bool kHardBreaks, class Sink>
HWY_INLINE void PutText(const unsigned char* p, const unsigned char* end, const QPTable& table, std::size_t limit,
                        std::uint64_t& textColumn, Sink& sink) {
  alignas(16) char expanded[kPad + 3 * kPiece + kPad];
  char* const text = expanded + kPad;
  StoreBytes(Splat(0), text - kBytes);
  const auto notTriples = LoadTable(table.notTriples.data());
  auto column = static_cast<std::size_t>(textColumn);
  while (p != end) {
    const unsigned char* pieceEnd = end;
    if (static_cast<std::size_t>(end - p) > kPiece) {
      pieceEnd = p + kPiece;
      pieceEnd -= kHardBreaks && pieceEnd[-1] == '\r' ? 1 : 0;
    }
    char* const textEnd = Expand<kHardBreaks>(p, pieceEnd, end, notTriples, text);
    StoreBytes(Splat(0), textEnd);
    LayLines<kHardBreaks>(text, textEnd, limit, column, sink);
    p = pieceEnd;
  }
  textColumn = column;
}

/// Whether the vector kernels can do it, and are faster.
bool IsForVectors(std::size_t length, const QPLimits& limits) {
  return length >= kEncodedByVectors && limits.literal >= kSmallestLine;
}

char* Encode(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
             std::uint64_t& column, char* output) {
  if (!IsForVectors(length, limits)) {
    return QPEncodeScalar(input, length, table, limits, column, output);
  }
  LineWriter writer = {output};
  if (table.HasHardBreaks()) {
    PutText<true>(input, input + length, table, limits.literal, column, writer);
  } else {
    PutText<false>(input, input + length, table, limits.literal, column, writer);
  }
  return writer.out;
}

std::uint64_t Size(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                   std::uint64_t& column) {
  if (!IsForVectors(length, limits)) {
    return QPSizeScalar(input, length, table, limits, column);
  }
  LineCounter counter = {0};
  if (table.HasHardBreaks()) {
    PutText<true>(input, input + length, table, limits.literal, column, counter);
  } else {
    PutText<false>(input, input + length, table, limits.literal, column, counter);
  }
  return counter.size;
}

// Decoding

/// The values of hex digits of either case; more than 15 for all other bytes.
HWY_INLINE ByteVector HexValues(ByteVector bytes) {
  // "9" becomes the largest byte, then "0" to "9" have high bits that nothing else has.
  const auto digits = hn::Xor(hn::SaturatedSub(hn::Add(bytes, Splat(0xFF - '9')), Splat(6)), Splat(0xF0));
  const auto letters = hn::SaturatedAdd(hn::Sub(hn::And(bytes, Splat(0xDF)), Splat('A')), Splat(10));
  return hn::Min(digits, letters);
}

HWY_INLINE hn::Mask<Bytes> IsBreak(ByteVector bytes) {
  return hn::Eq(hn::TableLookupBytesOr0(LoadTable(kBreaks.data()), bytes), bytes);
}

/// What the next vector needs to know of the ones before it.
struct DecodeState {
  char* out;
  std::uint32_t illegal;
  std::uint64_t dropped;
};

/// Decodes a vector. Three more bytes are behind it.
HWY_INLINE void DecodeVector(const unsigned char* p, DecodeState& state) {
  const auto bytes = LoadBytes(p);
  const auto isEscape = hn::Eq(bytes, Splat('='));
  const std::uint64_t escapes = MaskBits(isEscape);
  if ((escapes | state.dropped) == 0) {
    StoreBytes(bytes, state.out);
    state.out += kBytes;
    return;
  }
  const auto first = LoadBytes(p + 1);
  const auto second = LoadBytes(p + 2);
  const auto high = HexValues(first);
  const auto low = HexValues(second);
  const auto digits = hn::Or(high, low);
  const auto isTriple = hn::And(isEscape, hn::Eq(hn::And(digits, Splat(0xF0)), Splat(0)));
  const auto isSoftBreak = hn::And(isEscape, IsBreak(first));
  const std::uint64_t triples = MaskBits(isTriple);
  const std::uint64_t softBreaks = MaskBits(isSoftBreak);
  const std::uint64_t longBreaks = MaskBits(hn::And(isSoftBreak, IsBreak(second)));
  const std::uint64_t nextDropped = triples | softBreaks;
  const std::uint64_t secondDropped = triples | longBreaks;
  const std::uint64_t dropped = softBreaks | nextDropped << 1 | secondDropped << 2 | state.dropped;
  const auto values = hn::Or(hn::TableLookupBytes(LoadTable(kSixteens.data()), high), low);
  state.out = StoreKept(hn::IfThenElse(isTriple, values, bytes), ~dropped & kAllBytes, state.out);
  state.illegal += static_cast<std::uint32_t>(std::popcount(escapes & ~nextDropped));
  state.dropped = nextDropped >> (kBytes - 1) | secondDropped >> (kBytes - 2);
}

std::size_t Decode(const char* input, std::size_t length, char* output, std::uint32_t& illegal) {
  if (length < kDecodedByVectors) {
    return QPDecodeScalar(input, length, output, illegal);
  }
  const auto* p = reinterpret_cast<const unsigned char*>(input);
  const unsigned char* const end = p + length;
  DecodeState state = {output, 0, 0};
  for (; end - p >= kBytes + 3; p += kBytes) {
    DecodeVector(p, state);
  }
  p += std::popcount(state.dropped);
  illegal += state.illegal;
  char* const out = state.out;
  const auto left = static_cast<std::size_t>(end - p);
  return static_cast<std::size_t>(out - output) + QPDecodeScalar(reinterpret_cast<const char*>(p), left, out, illegal);
}

}  // namespace

constexpr QPKernels kQPKernels = {&Encode, &Size, &Decode};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const QPKernels& QPKernelsOf(SimdLevel level) {
  static constexpr QPKernels kScalar = {&QPEncodeScalar, &QPSizeScalar, &QPDecodeScalar};
  static constexpr const QPKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kQPKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
