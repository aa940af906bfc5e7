/// \file
/// The inner loops of quoted-printable (internal). No shared state: any thread may call.
#ifndef QSBASE_CODEC_QUOTEDPRINTABLEKERNEL_H
#define QSBASE_CODEC_QUOTEDPRINTABLEKERNEL_H

#include <QSbase/simd/level.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

/// How one byte is written: itself (width 1), as "=" and two digits (width 3), or as a hard line break (kQPHardBreak).
struct alignas(4) QPEntry {
  char text[3];
  std::uint8_t width;
};
inline constexpr std::uint8_t kQPBreakMark = 0x80;
inline constexpr std::uint8_t kQPHardBreak = kQPBreakMark | 2;
inline constexpr std::uint8_t kQPWidthMask = 3;

/// How every byte is written. Those above 126, "=" and NUL are always triples.
struct QPTable {
  constexpr const QPEntry& operator[](std::size_t byte) const { return entries[byte]; }
  bool HasHardBreaks() const { return entries['\n'].width == kQPHardBreak; }

  std::array<QPEntry, 256> entries;
  /// By the low four bits of a byte: a bit for each value of the high ones with which it is not a triple.
  std::array<std::uint8_t, 16> notTriples;
};

/// From which column on a soft break comes first. A limit of 0 or 1 never breaks before an encoded triple: the
/// subtraction of 2 wraps.
struct QPLimits {
  explicit QPLimits(unsigned int maxLineLength) : literal(maxLineLength), triple(maxLineLength - 2U) {}
  std::uint32_t literal;
  std::uint32_t triple;
};

/// One level's kernels.
struct QPKernels {
  /// Writes `length` bytes as `table` says and moves `column` along. Returns the end of what was written; 64 bytes
  /// behind it may be scratched. Input and output must not overlap.
  char* (*encode)(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                  std::uint64_t& column, char* output);

  /// The size of what `encode` would write.
  std::uint64_t (*size)(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                        std::uint64_t& column);

  /// Decodes all of the input. `output` may lie within the input's block, not behind `input`; otherwise they must not
  /// overlap. Returns the number of bytes produced, at most `length`; nothing behind `length` bytes of output is
  /// touched. Adds to `illegal`.
  std::size_t (*decode)(const char* input, std::size_t length, char* output, std::uint32_t& illegal);
};

const QPKernels& QPKernelsOf(SimdLevel level);

/// The kernels in plain C++.
char* QPEncodeScalar(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                     std::uint64_t& column, char* output);
std::uint64_t QPSizeScalar(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                           std::uint64_t& column);
std::size_t QPDecodeScalar(const char* input, std::size_t length, char* output, std::uint32_t& illegal);

/// How many input bytes fit into `room` bytes of text, looked at one by one; `room` becomes what they leave.
std::size_t QPCountFitting(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                           std::uint64_t& column, std::uint64_t& room);

}  // namespace qsbase::detail

#endif
