/// \file
/// The inner loops of quoted-printable (internal). Portable; a vector version replaces one of these functions and keeps
/// its contract. No shared state: any thread may call.
#ifndef QSBASE_CODEC_QUOTEDPRINTABLEKERNEL_H
#define QSBASE_CODEC_QUOTEDPRINTABLEKERNEL_H

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

using QPTable = std::array<QPEntry, 256>;

/// From which column on a soft break comes first. A limit of 0 or 1 never breaks before an encoded triple: the
/// subtraction of 2 wraps.
struct QPLimits {
  explicit QPLimits(unsigned int maxLineLength) : literal(maxLineLength), triple(maxLineLength - 2U) {}
  std::uint32_t literal;
  std::uint32_t triple;
};

/// Writes `length` bytes as `table` says and moves `column` along. Returns the end of what was written; one byte
/// behind it may be scratched. Input and output must not overlap.
char* QPEncodeText(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                   std::uint64_t& column, char* output);

/// The size of what `QPEncodeText` would write.
std::uint64_t QPTextSize(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                         std::uint64_t& column);

/// How many input bytes fit into `room` bytes of text; `room` becomes what they leave.
std::size_t QPCountFitting(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                           std::uint64_t& column, std::uint64_t& room);

/// Decodes all of the input; `output` may be `input`, otherwise they must not overlap. Returns the number of bytes
/// produced, at most `length`; nothing behind `length` bytes of output is touched. Adds to `illegal`.
std::size_t QPDecodeText(const char* input, std::size_t length, char* output, std::uint32_t& illegal);

}  // namespace qsbase::detail

#endif
