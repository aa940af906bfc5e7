/// \file
/// The inner loops of yEnc (internal), one table of them a level. No function keeps anything between calls; those that
/// take a record of where they are go on from there, so that a long text may be coded piece by piece.
#ifndef QSBASE_CODEC_YENCKERNEL_H
#define QSBASE_CODEC_YENCKERNEL_H

#include <cstddef>
#include <cstdint>

#include <QSbase/simd/level.h>

namespace qsbase::detail {

/// An encoder's line.
struct YEncLine {
  std::size_t length;  ///< columns of a whole line, above 0
  std::size_t room;    ///< those that are left in this one: `length` at its start, never 0
  bool plainTabDot;    ///< TAB and "." are not escaped
};

/// How far a decoder has come.
struct YEncDecoding {
  const unsigned char* read;
  unsigned char* written;
  bool isEscape = false;  ///< the last character read was a "=" that begins an escape
  bool isOver = false;    ///< `read` is at a NUL, which ends the data
};

/// Bytes behind what an encoder returns that it may scratch.
inline constexpr std::size_t kYEncSlack = 32;

/// One level's kernels.
struct YEncKernels {
  /// How many bytes of the input an encoder has to escape.
  std::uint64_t (*countEscapes)(const unsigned char* input, std::size_t length, bool plainTabDot);

  /// How many characters `encode` writes for this input.
  std::uint64_t (*measure)(const unsigned char* input, std::size_t length, YEncLine& line);

  /// Encodes, with a CR LF behind every line that gets full. Returns the end of the output; up to `kYEncSlack` bytes
  /// behind it may be scratched.
  unsigned char* (*encode)(const unsigned char* input, std::size_t length, unsigned char* output, YEncLine& line);

  /// Decodes up to `end` or to a NUL. What is written may begin where the input does, or anywhere before it, or be
  /// apart; it needs room for as many bytes as are read.
  void (*decode)(YEncDecoding& decoding, const unsigned char* end);

  /// The first "=y" in the range, or its end.
  const char* (*findKeyword)(const char* position, const char* end);
};

const YEncKernels& YEncKernelsOf(SimdLevel level);

/// The kernels in plain C++.
std::uint64_t YEncCountEscapesScalar(const unsigned char* input, std::size_t length, bool plainTabDot);
std::uint64_t YEncMeasureScalar(const unsigned char* input, std::size_t length, YEncLine& line);
unsigned char* YEncEncodeScalar(const unsigned char* input, std::size_t length, unsigned char* output, YEncLine& line);
void YEncDecodeScalar(YEncDecoding& decoding, const unsigned char* end);
const char* YEncFindKeywordScalar(const char* position, const char* end);

inline constexpr unsigned char kYEncShift = 42;
inline constexpr unsigned char kYEncEscapeShift = 64;
inline constexpr unsigned char kYEncEscape = '=';

/// Whether a byte, shifted, has to be escaped.
constexpr bool YEncNeedsEscape(unsigned char shifted, bool plainTabDot) {
  return shifted == 0 || shifted == '\n' || shifted == '\r' || shifted == kYEncEscape ||
         (!plainTabDot && (shifted == '\t' || shifted == '.'));
}

inline unsigned char* YEncPutBreak(unsigned char* output) {
  *output++ = '\r';
  *output++ = '\n';
  return output;
}

/// The line that an encoder starts with. One that the input cannot fill is as good as a longer one.
inline YEncLine YEncFirstLine(std::uint32_t lineLength, std::size_t inputLength, bool plainTabDot) {
  const std::uint64_t most = 2 * static_cast<std::uint64_t>(inputLength) + 1;
  const auto columns = static_cast<std::size_t>(lineLength < most ? lineLength : most);
  return {columns, columns, plainTabDot};
}

}  // namespace qsbase::detail

#endif
