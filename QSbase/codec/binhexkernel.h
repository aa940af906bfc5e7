/// \file
/// The inner loops of BinHex (internal). No state: any thread may call.
#ifndef QSBASE_CODEC_BINHEXKERNEL_H
#define QSBASE_CODEC_BINHEXKERNEL_H

#include <QSbase/simd/level.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace qsbase::detail {

inline constexpr std::string_view kBinHexDigits = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
inline constexpr std::string_view kBinHexWhiteSpace = "\t\n\r ";

/// In the place of a value. Both have a bit that no digit's value has.
inline constexpr unsigned char kBinHexWhite = 64;
inline constexpr unsigned char kNoBinHexDigit = 65;

constexpr std::array<unsigned char, 256> MakeBinHexValues() {
  std::array<unsigned char, 256> values{};
  values.fill(kNoBinHexDigit);
  for (const char c : kBinHexWhiteSpace) {
    values[static_cast<unsigned char>(c)] = kBinHexWhite;
  }
  for (std::size_t i = 0; i < kBinHexDigits.size(); ++i) {
    values[static_cast<unsigned char>(kBinHexDigits[i])] = static_cast<unsigned char>(i);
  }
  return values;
}

inline constexpr std::array<unsigned char, 256> kBinHexValues = MakeBinHexValues();

/// Introduces a run.
inline constexpr unsigned char kBinHexRunMark = 0x90;

/// How many bytes behind its output's end the kernel of the groups may scratch.
inline constexpr std::ptrdiff_t kBinHexSlack = 64;

/// How far groups of four digits were read, and their bytes written.
struct BinHexGroups {
  const char* position;
  unsigned char* out;
};

/// The state of the run-length coding, and the ranges that it goes from and to.
struct BinHexRuns {
  const unsigned char* read;
  const unsigned char* readEnd;
  unsigned char* out;
  unsigned char* outEnd;
  int repeatCount;         ///< how many copies of the last byte are still to be written
  unsigned char lastByte;  ///< what a run repeats
};

/// One level's kernels.
struct BinHexKernels {
  /// Decodes whole groups, white space stepped over, as long as three bytes fit into the output. Stops in front of a
  /// group (and of the white space before it) that is cut or has an invalid character.
  BinHexGroups (*decodeGroups)(const char* position, const char* end, unsigned char* out, unsigned char* outEnd);

  /// Expands runs until the output is full or the input is used up; of a run mark that ends the input, the count is to
  /// come: it stays unread.
  void (*expandRuns)(BinHexRuns& runs);
};

const BinHexKernels& BinHexKernelsOf(SimdLevel level);

/// The scalar level, which also ends what the vector kernels begin.
BinHexGroups DecodeBinHexGroups(const char* position, const char* end, unsigned char* out, unsigned char* outEnd);
void ExpandBinHexRuns(BinHexRuns& runs);

/// Decodes one group. Returns the position behind it, or null and nothing is written.
const char* DecodeBinHexGroup(const char* position, const char* end, unsigned char* out);

}  // namespace qsbase::detail

#endif
