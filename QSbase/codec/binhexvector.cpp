#include <QSbase/codec/binhexkernel.h>
#include <QSbase/simd/targets.h>

#include <cstddef>
#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "QSbase/codec/binhexvector.cpp"
#include <hwy/foreach_target.h>

#include <QSbase/simd/bytes-inl.h>
#include <QSbase/simd/sixbits-inl.h>

#ifndef QSBASE_CODEC_BINHEXVECTOR_TABLES
#define QSBASE_CODEC_BINHEXVECTOR_TABLES
namespace qsbase::detail {

/// What the digits' vectors look up.
struct BinHexTables {
  /// What a digit's character is above its value, by the character's upper five bits: the alphabet has gaps only where
  /// these change.
  std::uint8_t above[16];
  /// A bit for each upper half of a character; of each lower half, the bits of the upper halves that make a digit.
  std::uint8_t upper[16];
  std::uint8_t lower[16];
};

constexpr BinHexTables MakeBinHexTables() {
  BinHexTables tables{};
  for (unsigned int c = 0; c < 128; ++c) {
    if (kBinHexValues[c] < kBinHexWhite) {
      tables.above[c >> 3] = static_cast<std::uint8_t>(c - kBinHexValues[c]);
      tables.upper[c >> 4] = static_cast<std::uint8_t>(1U << (c >> 4));
      tables.lower[c & 15] = static_cast<std::uint8_t>(tables.lower[c & 15] | tables.upper[c >> 4]);
    }
  }
  return tables;
}

inline constexpr BinHexTables kBinHexTables = MakeBinHexTables();

}  // namespace qsbase::detail
#endif

#if QSBASE_SIMD_TARGET
HWY_BEFORE_NAMESPACE();
namespace qsbase::detail::HWY_NAMESPACE {
namespace {

constexpr std::ptrdiff_t kGroupBytes = kBytes / 4 * 3;

HWY_INLINE hn::Mask<Bytes> NoDigits(ByteVector text, ByteVector upper, ByteVector lower) {
  const auto below = hn::TableLookupBytes(lower, hn::And(text, Splat(15)));
  const auto above = hn::TableLookupBytes(upper, hn::ShiftRight<4>(text));
  return hn::Eq(hn::And(below, above), hn::Zero(Bytes()));
}

BinHexGroups DecodeGroups(const char* position, const char* end, unsigned char* out, unsigned char* outEnd) {
  const auto upper = LoadTable(kBinHexTables.upper);
  const auto lower = LoadTable(kBinHexTables.lower);
  const auto distances = LoadTable(kBinHexTables.above);
  while (end - position >= kBytes && outEnd - out >= kGroupBytes) {
    const auto text = LoadBytes(position);
    const auto values = hn::Sub(text, hn::TableLookupBytes(distances, hn::ShiftRight<3>(text)));
    StoreTwelves(Bytes(), GatherSixBits(Bytes(), values), out);
    const std::uint64_t others = MaskBits(NoDigits(text, upper, lower));
    if (HWY_LIKELY(others == 0)) {
      position += kBytes;
      out += kGroupBytes;
      continue;
    }
    const std::ptrdiff_t groups = std::countr_zero(others) / 4;
    position += 4 * groups;
    out += 3 * groups;
    const char* const next = DecodeBinHexGroup(position, end, out);
    if (next == nullptr) {
      return {position, out};
    }
    position = next;
    out += 3;
  }
  return DecodeBinHexGroups(position, end, out, outEnd);
}

/// Writes a run, whose length is above 0, for which there is room.
HWY_INLINE void WriteRun(unsigned char value, std::ptrdiff_t copies, unsigned char* out, const unsigned char* outEnd) {
  const auto run = Splat(value);
  if (outEnd - out < copies + kBytes) {
    for (std::ptrdiff_t i = 0; i < copies; ++i) {
      out[i] = value;
    }
    return;
  }
  for (std::ptrdiff_t i = 0; i < copies; i += kBytes) {
    StoreBytes(run, out + i);
  }
}

/// Copies a byte and returns true when the next one is a run mark, or copies none before one: between marks that stand
/// that close a processor guesses faster than a vector finds them.
HWY_INLINE bool CopyToCloseMark(BinHexRuns& runs) {
  if (*runs.read == kBinHexRunMark) {
    return true;
  }
  if (runs.read[1] != kBinHexRunMark) {
    return false;
  }
  runs.lastByte = *runs.read++;
  *runs.out++ = runs.lastByte;
  return true;
}

/// Copies bytes up to the first run mark.
HWY_INLINE void CopyToMark(BinHexRuns& runs) {
  if (CopyToCloseMark(runs)) {
    return;
  }
  const unsigned char* read = runs.read;
  unsigned char* out = runs.out;
  const auto marks = Splat(kBinHexRunMark);
  while (runs.readEnd - read >= kBytes && runs.outEnd - out >= kBytes) {
    const auto bytes = LoadBytes(read);
    StoreBytes(bytes, out);
    const std::uint64_t found = MaskBits(hn::Eq(bytes, marks));
    const std::ptrdiff_t copied = found == 0 ? kBytes : std::countr_zero(found);
    read += copied;
    out += copied;
    if (found != 0) {
      break;
    }
  }
  if (read != runs.read) {
    runs.lastByte = read[-1];
  }
  runs.read = read;
  runs.out = out;
}

void ExpandRuns(BinHexRuns& runs) {
  while (runs.repeatCount == 0 && runs.readEnd - runs.read >= kBytes && runs.outEnd - runs.out >= kBytes) {
    CopyToMark(runs);
    if (runs.readEnd - runs.read < 2 || runs.out == runs.outEnd || *runs.read != kBinHexRunMark) {
      break;
    }
    const int copies = runs.read[1] - 1;
    if (copies > runs.outEnd - runs.out) {
      break;
    }
    runs.read += 2;
    if (copies < 0) {
      runs.lastByte = kBinHexRunMark;
      *runs.out++ = kBinHexRunMark;
    } else {
      WriteRun(runs.lastByte, copies, runs.out, runs.outEnd);
      runs.out += copies;
    }
  }
  ExpandBinHexRuns(runs);
}

}  // namespace

constexpr BinHexKernels kBinHexKernels = {&DecodeGroups, &ExpandRuns};

}  // namespace qsbase::detail::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace qsbase::detail {

const BinHexKernels& BinHexKernelsOf(SimdLevel level) {
  static constexpr BinHexKernels kScalar = {&DecodeBinHexGroups, &ExpandBinHexRuns};
  static constexpr const BinHexKernels* kTables[kSimdLevels] = {QSBASE_SIMD_TABLES(kScalar, kBinHexKernels)};
  return *kTables[static_cast<int>(level)];
}

}  // namespace qsbase::detail
#endif
