#include <QSbase/simd/targets.h>
#include <QSbase/text/textkernel.h>

#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/text/textvector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>

#ifndef QSBASE_TEXT_TEXTVECTOR_TABLES
#define QSBASE_TEXT_TEXTVECTOR_TABLES
namespace qsbase::detail {

/// A case map by the halves of a byte. Bytes with one upper half change in the same bits or not at all.
struct CaseTables {
  /// A bit for each upper half with bytes that change, and what changes in them.
  std::uint8_t upper[16];
  std::uint8_t change[16];
  /// Of each lower half, the bits of the upper halves with which it changes.
  std::uint8_t lower[16];
};

/// Changes in other bits than what has its upper half in the map to upper case.
inline constexpr std::uint8_t kOddByte = 255;
inline constexpr std::uint8_t kOddChange = kOddByte ^ kUpperMap[kOddByte];

constexpr CaseTables MakeCaseTables(const CharMap& map) {
  CaseTables tables{};
  unsigned int bit = 1;
  for (unsigned int upper = 0; upper < 16; ++upper) {
    for (unsigned int lower = 0; lower < 16; ++lower) {
      const unsigned int c = upper << 4 | lower;
      if (map[c] != c && c != kOddByte) {
        tables.upper[upper] = static_cast<std::uint8_t>(bit);
        tables.change[upper] = static_cast<std::uint8_t>(map[c] ^ c);
        tables.lower[lower] = static_cast<std::uint8_t>(tables.lower[lower] | bit);
      }
    }
    bit <<= tables.upper[upper] != 0 ? 1 : 0;
  }
  return tables;
}

constexpr bool AreTablesOf(const CharMap& map, const CaseTables& tables) {
  for (unsigned int c = 0; c < 256; ++c) {
    const bool changes = (tables.upper[c >> 4] & tables.lower[c & 15]) != 0;
    const unsigned int odd = c == kOddByte && map[c] != c ? kOddChange : 0U;
    if (map[c] != (c ^ (changes ? tables.change[c >> 4] : 0U) ^ odd)) {
      return false;
    }
  }
  return true;
}

inline constexpr CaseTables kLowerTables = MakeCaseTables(kLowerMap);
inline constexpr CaseTables kUpperTables = MakeCaseTables(kUpperMap);
static_assert(AreTablesOf(kLowerMap, kLowerTables) && AreTablesOf(kUpperMap, kUpperTables));

/// The bit of each upper half, in its eight.
inline constexpr std::uint8_t kUpperHalfBits[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};

}  // namespace qsbase::detail
#endif

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

using Block = hn::Full128<std::uint8_t>;
using HalfBlock = hn::Full64<std::uint8_t>;

/// What a vector of the tag looks up in.
template <class D>
HWY_INLINE auto Table(D d, const std::uint8_t* table) {
  if constexpr (hn::MaxLanes(D()) < 16) {
    return hn::LoadU(Block(), table);
  } else {
    return hn::LoadDup128(d, table);
  }
}

template <class D>
HWY_INLINE hn::Vec<D> Mapped(D d, hn::Vec<D> text, const CaseTables& tables) {
  const auto upperHalf = hn::ShiftRight<4>(text);
  const auto lowerBits = hn::TableLookupBytes(Table(d, tables.lower), hn::And(text, hn::Set(d, 15)));
  const auto upperBits = hn::TableLookupBytes(Table(d, tables.upper), upperHalf);
  const auto stays = hn::Eq(hn::And(lowerBits, upperBits), hn::Zero(d));
  const auto change = hn::TableLookupBytes(Table(d, tables.change), upperHalf);
  return hn::Xor(text, hn::IfThenZeroElse(stays, change));
}

struct Lower {
  static constexpr const CharMap& kMap = kLowerMap;

  template <class D>
  static HWY_INLINE hn::Vec<D> Map(D d, hn::Vec<D> text) {
    return Mapped(d, text, kLowerTables);
  }
};

struct Upper {
  static constexpr const CharMap& kMap = kUpperMap;

  template <class D>
  static HWY_INLINE hn::Vec<D> Map(D d, hn::Vec<D> text) {
    const auto odd = hn::IfThenElseZero(hn::Eq(text, hn::Set(d, kOddByte)), hn::Set(d, kOddChange));
    return hn::Xor(Mapped(d, text, kUpperTables), odd);
  }
};

struct LowerControlToSpace {
  static constexpr const CharMap& kMap = kLowerControlToSpaceMap;

  template <class D>
  static HWY_INLINE hn::Vec<D> Map(D d, hn::Vec<D> text) {
    const auto isControl = hn::Or(hn::Eq(hn::Min(text, hn::Set(d, 31)), text), hn::Eq(text, hn::Set(d, 127)));
    return hn::IfThenElse(isControl, hn::Set(d, ' '), Mapped(d, text, kLowerTables));
  }
};

/// At least a vector; the last one overlaps the one before it, and so is loaded before that is changed.
template <class CaseMap, class D>
HWY_INLINE void MapVectors(D d, std::uint8_t* text, std::size_t length) {
  constexpr std::size_t kStep = hn::MaxLanes(D());
  const std::size_t last = length - kStep;
  const auto lastMapped = CaseMap::Map(d, hn::LoadU(d, text + last));
  for (std::size_t i = 0; i < last; i += kStep) {
    hn::StoreU(CaseMap::Map(d, hn::LoadU(d, text + i)), d, text + i);
  }
  hn::StoreU(lastMapped, d, text + last);
}

template <class CaseMap>
void Map(char* text, std::size_t length) {
  auto* const bytes = reinterpret_cast<std::uint8_t*>(text);
  if (length >= hn::MaxLanes(Bytes())) {  // NOLINT(bugprone-branch-clone): Bytes is Block where vectors have 16 bytes
    MapVectors<CaseMap>(Bytes(), bytes, length);
  } else if (length >= hn::MaxLanes(Block())) {
    MapVectors<CaseMap>(Block(), bytes, length);
  } else if (length >= hn::MaxLanes(HalfBlock())) {
    MapVectors<CaseMap>(HalfBlock(), bytes, length);
  } else {
    MapBytes(text, length, CaseMap::kMap);
  }
}

void Replace(char* text, std::size_t length, char from, char to) {
  constexpr auto kStep = static_cast<std::size_t>(kBytes);
  const auto wanted = Splat(from);
  const auto given = Splat(to);
  for (; length >= kStep; text += kStep, length -= kStep) {
    const auto bytes = LoadBytes(text);
    StoreBytes(hn::IfThenElse(hn::Eq(bytes, wanted), given, bytes), text);
  }
  ReplaceBytes(text, length, from, to);
}

char* Strip(const char* text, std::size_t length, const ByteSet& set, char* out) {
  constexpr auto kStep = static_cast<std::size_t>(kBytes);
  const Bytes d;
  const auto lower = Table(d, set.lower.data());
  const auto upper = Table(d, set.upper.data());
  const auto bits = Table(d, kUpperHalfBits);
  for (; length >= kStep; text += kStep, length -= kStep) {
    const auto bytes = LoadBytes(text);
    // The upper bit of an index makes it give 0.
    const auto place = hn::And(bytes, Splat(0x8F));
    const auto rows =
        hn::Or(hn::TableLookupBytesOr0(lower, place), hn::TableLookupBytesOr0(upper, hn::Xor(place, Splat(0x80))));
    const auto row = hn::TableLookupBytes(bits, hn::ShiftRight<4>(bytes));
    out = StoreKept(bytes, MaskBits(hn::Eq(hn::And(rows, row), hn::Zero(d))), out);
  }
  return StripBytes(text, length, set, out);
}

}  // namespace

constexpr TextKernels kTextKernels = {&Map<Lower>, &Map<Upper>, &Map<LowerControlToSpace>, &Replace, &Strip};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {
namespace {

template <const CharMap& map>
void MapScalar(char* text, std::size_t length) {
  MapBytes(text, length, map);
}

}  // namespace

const TextKernels& TextKernelsOf(SimdLevel level) {
  static constexpr TextKernels kScalar = {&MapScalar<kLowerMap>, &MapScalar<kUpperMap>,
                                          &MapScalar<kLowerControlToSpaceMap>, &ReplaceBytes, &StripBytes};
  static constexpr const TextKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kTextKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
