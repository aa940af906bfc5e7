#include <QSbase/codec/base64kernel.h>
#include <QSbase/simd/targets.h>

#include <algorithm>
#include <bit>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/codec/base64vector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>
#include <QSbase/simd/sixbits-inl.h>

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

/// A vector of text is so many groups, which are so many bytes of data.
constexpr std::ptrdiff_t kGroups = kBytes / 4;
constexpr std::ptrdiff_t kData = kGroups * 3;

/// The decoder stores whole vectors of data. This many characters from the first one on it cannot pass the room that
/// they give: with n groups before them that is 3 * (n + kAhead / 4) + 2 bytes, at least 3 * n + kBytes.
constexpr std::ptrdiff_t kAhead = kBytes + kBytes / 2;
static_assert(kAhead / 4 * 3 + 2 >= kBytes);

/// Asks for what a line needs after some more lines. The processor foresees that within a page at most, and it is what
/// large inputs wait for. Nothing is read, so it may be behind the end.
HWY_INLINE void PrefetchLine(const unsigned char* input, const char* output) {
  constexpr std::ptrdiff_t kDistance = 2048;
  constexpr std::ptrdiff_t kCacheLine = 64;
  __builtin_prefetch(input + kDistance);
  __builtin_prefetch(input + kDistance + kCacheLine);
  __builtin_prefetch(output + kDistance, 1);
  __builtin_prefetch(output + kDistance + kCacheLine, 1);
}

// ---- Encoding

/// Encoding a vector reads so many bytes, of which it uses `kData`. Their text does not fit a vector.
constexpr std::ptrdiff_t kReadable = HWY_TARGET == HWY_AVX2 ? 28 : kBytes;
static_assert(kReadable / 3 * 4 >= kBytes);

/// Twelve bytes of data at the start of every block.
HWY_INLINE ByteVector LoadData(const unsigned char* input) {
#if HWY_TARGET == HWY_AVX2
  const hn::Half<Bytes> half;
  return hn::Combine(Bytes(), hn::LoadU(half, input + 12), hn::LoadU(half, input));
#elif HWY_TARGET == HWY_AVX3
  const hn::Repartition<std::uint32_t, Bytes> lanes;
  alignas(64) static constexpr std::uint32_t kPlaces[16] = {0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 12};
  const auto places = hn::SetTableIndices(lanes, kPlaces);
  return hn::BitCast(Bytes(), hn::TableLookupLanes(hn::BitCast(lanes, LoadBytes(input)), places));
#else
  return LoadBytes(input);
#endif
}

/// The characters of numbers below 64. What is to be added depends on the range that a number is in: 0 and 1 are the
/// letters, 2 to 11 the digits, 12 and 13 "+" and "/".
HWY_INLINE ByteVector Characters(ByteVector numbers) {
  constexpr auto kSmall = static_cast<std::uint8_t>('a' - 26);
  constexpr auto kDigit = static_cast<std::uint8_t>('0' - 52);
  constexpr auto kPlus = static_cast<std::uint8_t>('+' - 62);
  constexpr auto kSlash = static_cast<std::uint8_t>('/' - 63);
  alignas(16) static constexpr std::uint8_t kOffsets[16] = {
      'A', kSmall, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kDigit, kPlus, kSlash, 0, 0};
  const hn::Repartition<std::int8_t, Bytes> sign;
  const auto notCapital = hn::VecFromMask(hn::RebindMask(Bytes(), hn::BitCast(sign, numbers) > hn::Set(sign, 25)));
  const auto range = hn::Sub(hn::SaturatedSub(numbers, Splat(51)), notCapital);
  return hn::Add(numbers, hn::TableLookupBytes(LoadTable(kOffsets), range));
}

/// A vector of text from `kData` bytes.
HWY_INLINE ByteVector Encoded(const unsigned char* input) {
  return Characters(SpreadSixBits(Bytes(), LoadData(input)));
}

struct EncodeState {
  const unsigned char* position;
  const unsigned char* end;
  char* output;
};

HWY_INLINE void PutLineBreak(char*& output) {
  output[0] = '\r';
  output[1] = '\n';
  output += 2;
}

/// Encodes groups without a break. What is less than a vector in the end is the start of one if that can be read: what
/// it writes behind them is less than the text of the `kReadable` bytes, and so is written again. Or it is the end of
/// one that begins in what was encoded before.
void EncodeRun(EncodeState& state, std::ptrdiff_t groups) {
  const unsigned char* const begin = state.position;
  const unsigned char* input = begin;
  char* output = state.output;
  for (; groups >= kGroups && state.end - input >= kReadable; groups -= kGroups, input += kData, output += kBytes) {
    StoreBytes(Encoded(input), output);
  }
  const std::ptrdiff_t before = kGroups - groups;
  if (groups > 0 && state.end - input >= kReadable) {
    StoreBytes(Encoded(input), output);
  } else if (groups > 0 && input - begin >= before * 3 && state.end - input >= kReadable - before * 3) {
    StoreBytes(Encoded(input - before * 3), output - before * 4);
  } else {
    Base64EncodeGroups(input, static_cast<std::size_t>(state.end - input), static_cast<std::size_t>(groups), output);
  }
  state.position = input + groups * 3;
  state.output = output + groups * 4;
}

/// Encodes whole lines as long as all their vectors can be read.
void EncodeLines(EncodeState& state, std::ptrdiff_t groups) {
  const std::ptrdiff_t vectors = (groups + kGroups - 1) / kGroups;
  const std::ptrdiff_t readable = std::max(groups * 3, (vectors - 1) * kData + kReadable);
  const unsigned char* input = state.position;
  char* output = state.output;
  for (; state.end - input >= readable; input += groups * 3) {
    for (std::ptrdiff_t i = 0; i < vectors; ++i) {
      StoreBytes(Encoded(input + i * kData), output + i * kBytes);
    }
    output += groups * 4;
    PutLineBreak(output);
    PrefetchLine(input, output);
  }
  state.position = input;
  state.output = output;
}

HWY_NOINLINE char* EncodeByVectors(const unsigned char* input, std::size_t length, unsigned int groupsPerLine,
                                   char* output) {
  EncodeState state{input, input + length, output};
  const bool hasLines = groupsPerLine != 0 && groupsPerLine <= length / 3;
  const std::ptrdiff_t line = hasLines ? static_cast<std::ptrdiff_t>(groupsPerLine) : 0;
  if (hasLines) {
    EncodeLines(state, line);
  }
  if (hasLines && line < kGroups) {
    return Base64EncodeScalar(state.position, static_cast<std::size_t>(state.end - state.position), groupsPerLine,
                              state.output);
  }
  while (hasLines && state.end - state.position >= line * 3) {
    EncodeRun(state, line);
    PutLineBreak(state.output);
  }
  EncodeRun(state, (state.end - state.position) / 3);
  return Base64EncodeRest(state.position, length % 3, state.output);
}

/// Less than this is encoded faster without vectors.
constexpr std::size_t kTiny = std::max(kBytes + kData, std::ptrdiff_t{56});

/// The vectors are set up in functions of their own, so that tiny inputs do not wait for it.
char* Encode(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, char* output) {
  if (length < kTiny) {
    return Base64EncodeScalar(input, length, groupsPerLine, output);
  }
  return EncodeByVectors(input, length, groupsPerLine, output);
}

// ---- Decoding

struct Values {
  ByteVector numbers;
  ByteVector legal;  ///< zero where the character is none of the alphabet
};

/// The numbers of characters. A character is legal when its lower half allows the class of its upper one: a byte
/// shuffle takes four bits for a place, and gives 0 for bytes with the highest bit. What is to be added depends on the
/// upper half alone, but that "/" becomes 66 then.
HWY_INLINE Values ValuesOf(ByteVector characters) {
  alignas(16) static constexpr std::uint8_t kClasses[16] = {0, 0, 1, 2, 4, 8, 4, 8, 0, 0, 0, 0, 0, 0, 0, 0};
  alignas(16) static constexpr std::uint8_t kAllowed[16] = {10, 14, 14, 14, 14, 14, 14, 14, 14, 14, 12, 5, 4, 4, 4, 5};
  constexpr auto kCapital = static_cast<std::uint8_t>(0 - 'A');
  constexpr auto kSmall = static_cast<std::uint8_t>(26 - 'a');
  alignas(16) static constexpr std::uint8_t kOffsets[16] = {
      0, 0, 62 - '+', 52 - '0', kCapital, kCapital, kSmall, kSmall, 0, 0, 0, 0, 0, 0, 0, 0};
  const auto upper = hn::ShiftRight<4>(characters);
  const auto legal =
      hn::And(hn::TableLookupBytes(LoadTable(kClasses), upper), hn::TableLookupBytes(LoadTable(kAllowed), characters));
  const auto numbers = hn::Add(characters, hn::TableLookupBytes(LoadTable(kOffsets), upper));
  return {hn::Min(numbers, Splat(63)), legal};
}

HWY_INLINE std::uint64_t ForeignBits(ByteVector legal) { return MaskBits(hn::Eq(legal, hn::Zero(Bytes()))); }

/// Stores the `kData` bytes of a vector of numbers, and scratches up to `kBytes`.
HWY_INLINE void StoreData(ByteVector numbers, char* output) {
  const auto data = GatherSixBits(Bytes(), numbers);
#if HWY_TARGET == HWY_AVX2
  const hn::Half<Bytes> half;
  auto* const out = reinterpret_cast<std::uint8_t*>(output);
  hn::StoreU(hn::LowerHalf(half, data), half, out);
  hn::StoreU(hn::UpperHalf(half, data), half, out + 12);
#elif HWY_TARGET == HWY_AVX3
  alignas(64) static constexpr std::int32_t kLanes[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15};
  const hn::Repartition<std::int32_t, Bytes> groups;
  const auto lanes = hn::SetTableIndices(groups, kLanes);
  StoreBytes(hn::BitCast(Bytes(), hn::TableLookupLanes(hn::BitCast(groups, data), lanes)), output);
#else
  StoreBytes(data, output);
#endif
}

HWY_INLINE bool IsLineBreak(unsigned char c) { return c == '\r' || c == '\n'; }

/// In place, bytes that are not read yet begin at `position`.
HWY_INLINE bool HasRoom(const Base64DecodeState& state, const unsigned char* position, const char* output,
                        std::ptrdiff_t size) {
  return !state.inPlace || reinterpret_cast<const char*>(position) - output >= size;
}

/// A line and its break.
struct LineForm {
  std::ptrdiff_t columns;
  std::ptrdiff_t breakSize;
  bool operator==(const LineForm& other) const { return columns == other.columns && breakSize == other.breakSize; }
};

/// Two characters, the first one lowest.
HWY_INLINE std::uint32_t TwoCharacters(const unsigned char* p) { return p[0] | std::uint32_t{p[1]} << 8; }

/// Decodes lines that have all the same form, as long as they do. Where a line begins does not depend on what the one
/// before it holds, so that the processor works at several of them.
void DecodeLines(Base64DecodeState& state, LineForm form) {
  const std::ptrdiff_t rest = form.columns % kBytes;
  const std::ptrdiff_t full = form.columns - rest;
  const std::uint32_t lineBreak =
      form.breakSize == 1 ? '\n' : TwoCharacters(reinterpret_cast<const unsigned char*>("\r\n"));
  const std::uint32_t breakBits = form.breakSize == 1 ? 0xFF : 0xFFFF;
  const auto behind = hn::VecFromMask(hn::Not(hn::FirstN(Bytes(), static_cast<std::size_t>(rest))));
  const unsigned char* p = state.position;
  char* output = state.output;
  while (state.end - p >= form.columns + kAhead && HasRoom(state, p, output, form.columns + kBytes)) {
    char* out = output;
    auto legal = Splat(0xFF);
    for (std::ptrdiff_t i = 0; i < full; i += kBytes, out += kData) {
      const auto values = ValuesOf(LoadBytes(p + i));
      StoreData(values.numbers, out);
      legal = hn::Min(legal, values.legal);
    }
    if (rest != 0) {
      const auto values = ValuesOf(LoadBytes(p + full));
      StoreData(values.numbers, out);
      legal = hn::Min(legal, hn::Or(values.legal, behind));
    }
    if ((ForeignBits(legal) | ((TwoCharacters(p + form.columns) & breakBits) ^ lineBreak)) != 0) {
      break;
    }
    p += form.columns + form.breakSize;
    output += form.columns / 4 * 3;
    PrefetchLine(p, output);
  }
  state.position = p;
  state.output = output;
}

/// Lines that are longer have little to gain from being decoded by their form.
constexpr std::ptrdiff_t kLongestForm = 8 * kBytes;

/// Decodes vectors of nothing but the alphabet. Returns what of the next one is foreign, or 0 near the end.
std::uint64_t DecodeCleanVectors(Base64DecodeState& state) {
  const unsigned char* p = state.position;
  char* output = state.output;
  std::uint64_t foreign = 0;
  for (; state.end - p >= kAhead; p += kBytes, output += kData) {
    const auto values = ValuesOf(LoadBytes(p));
    foreign = ForeignBits(values.legal);
    if (foreign != 0) {
      break;
    }
    StoreData(values.numbers, output);
  }
  state.position = p;
  state.output = output;
  return foreign;
}

/// Decodes what is before a line break in the next vector, and steps over the break. Returns its size, or 0 when there
/// is something else, or not room enough.
std::ptrdiff_t DecodeToBreak(Base64DecodeState& state, std::uint64_t foreign) {
  const std::ptrdiff_t clean = std::countr_zero(foreign);
  const unsigned char* const end = state.position + clean;
  const unsigned char* p = end;
  while (p != state.end && IsLineBreak(*p)) {
    ++p;
  }
  if (clean % 4 != 0 || p == end || !HasRoom(state, end, state.output, kBytes)) {
    return 0;
  }
  StoreData(ValuesOf(LoadBytes(state.position)).numbers, state.output);
  state.position = p;
  state.output += clean / 4 * 3;
  return p - end;
}

/// Decodes groups straight from the text, with line breaks between them. Stops at anything else.
void DecodeGroups(Base64DecodeState& state) {
  LineForm last{0, 0};
  while (state.end - state.position >= kAhead) {
    const unsigned char* const line = state.position;
    const std::uint64_t foreign = DecodeCleanVectors(state);
    const std::ptrdiff_t breakSize = foreign == 0 ? 0 : DecodeToBreak(state, foreign);
    if (breakSize == 0) {
      return;
    }
    const LineForm form{state.position - line - breakSize, breakSize};
    if (form == last && breakSize <= 2 && form.columns <= kLongestForm) {
      DecodeLines(state, form);
    }
    last = form;
  }
}

/// Decodes collected characters of the alphabet. What was read of the text is ahead of the output by as many at least.
void DecodeCollected(Base64DecodeState& state, const unsigned char* p, const unsigned char* end) {
  for (; end - p >= kBytes; p += kBytes, state.output += kData) {
    StoreData(ValuesOf(LoadBytes(p)).numbers, state.output);
  }
  Base64DecodeState rest{p, end, state.output, false};
  Base64DecodeScalar(rest);
  state.output = rest.output;
  state.begun = rest.begun;
  state.group = rest.group;
}

/// Less than this is decoded as fast character by character as by collecting it.
constexpr std::ptrdiff_t kWorthCollecting = 4 * kBytes + kAhead;

constexpr std::uint64_t kAllBits = ~std::uint64_t{0} >> (64 - kBytes);

/// Collects characters of the alphabet from wherever they are, and decodes them then. Returns false at a "=", which is
/// less than `kBytes` characters ahead then.
bool DecodeScattered(Base64DecodeState& state) {
  constexpr std::ptrdiff_t kCollected = 1024;
  unsigned char collected[kCollected + kBytes];
  unsigned char* filled = collected;
  const unsigned char* p = state.position;
  bool padded = false;
  while (filled - collected < kCollected && state.end - p >= kAhead) {
    const auto bytes = LoadBytes(p);
    const std::uint64_t foreign = ForeignBits(ValuesOf(bytes).legal);
    if (foreign == 0) {
      StoreBytes(bytes, filled);
      filled += kBytes;
    } else if (MaskBits(hn::Eq(bytes, Splat('='))) != 0) {
      padded = true;
      break;
    } else {
      const std::uint64_t breaks = MaskBits(hn::Or(hn::Eq(bytes, Splat('\r')), hn::Eq(bytes, Splat('\n'))));
      state.illegal += static_cast<std::uint32_t>(std::popcount(foreign & ~breaks));
      filled = StoreKept(bytes, foreign ^ kAllBits, filled);
    }
    p += kBytes;
  }
  state.position = p;
  DecodeCollected(state, collected, filled);
  return !padded;
}

HWY_NOINLINE void DecodeByVectors(Base64DecodeState& state) {
  bool more = true;
  while (more && state.end - state.position >= kAhead && !state.ended) {
    if (state.begun != 0) {
      Base64DecodeGroup(state);
      continue;
    }
    DecodeGroups(state);
    more = state.end - state.position >= kWorthCollecting && DecodeScattered(state);
  }
}

void Decode(Base64DecodeState& state) {
  if (state.end - state.position >= kAhead) {
    DecodeByVectors(state);
  }
  Base64DecodeScalar(state);
}

}  // namespace

constexpr Base64Kernels kBase64Kernels = {&Encode, &Decode};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const Base64Kernels& Base64KernelsOf(SimdLevel level) {
  static constexpr Base64Kernels kScalar = {&Base64EncodeScalar, &Base64DecodeScalar};
  static constexpr const Base64Kernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kBase64Kernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
