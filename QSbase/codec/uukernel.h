/// \file
/// The inner loops of UU and XX (internal). No function keeps anything between calls.
#ifndef QSBASE_CODEC_UUKERNEL_H
#define QSBASE_CODEC_UUKERNEL_H

#include <QSbase/simd/level.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qsbase::detail {

/// A full line: its count, the digits of 45 bytes, a line break.
inline constexpr std::size_t kUuLineBytes = 45;
inline constexpr std::size_t kUuLineDigits = 60;
inline constexpr std::size_t kUuLineCharacters = 1 + kUuLineDigits + 2;

inline constexpr std::string_view kXxDigits = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
inline constexpr unsigned char kXxIllegal = 0xFF;

/// The XX digit of every byte, or `kXxIllegal`.
unsigned char XxValue(unsigned char c);

/// What a kernel took of a text of full lines.
struct UuFullLines {
  const unsigned char* end;
  std::size_t count;
};

/// One level's kernels of one of the two alphabets.
struct UuKernels {
  /// Encodes lines with their counts and CR LF, without the terminator line. Returns the characters written; 64 more
  /// behind them may be scratched.
  std::size_t (*encodeLines)(const unsigned char* input, std::size_t length, unsigned char* output);

  /// Decodes full lines, each with CR LF, LF or CR behind it, as long as they are regular: the same line break behind
  /// each, no characters outside the alphabet, no control characters and no NUL. `dropped` (0 or 1) characters stand
  /// between the digits and the line break. What it does not take, if only for its own reasons, is to be decoded line
  /// by line. `output` may begin anywhere at or before the text; up to eight bytes behind the last line's may be
  /// scratched.
  UuFullLines (*decodeFullLines)(const unsigned char* text, const unsigned char* end, unsigned char* output,
                                 std::size_t dropped);

  /// Decodes the characters of one line behind its count into `count` bytes. Characters that are missing count as 0,
  /// those outside the alphabet are skipped, and none is read beyond `length`. Returns the number of illegal ones.
  /// `output` may begin anywhere at or before the character in front of the text. Up to eight bytes from the end of the
  /// last whole group of the line's text may be scratched, never beyond the text's own end.
  std::size_t (*decodeLine)(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count);
};

const UuKernels& UuKernelsOf(SimdLevel level, bool isXx);

// The kernels of plain C++, which the others use for what is left.

std::size_t UuEncodeLines(const unsigned char* input, std::size_t length, unsigned char* output);
std::size_t XxEncodeLines(const unsigned char* input, std::size_t length, unsigned char* output);
std::size_t UuDecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count);
std::size_t XxDecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count);

/// Takes none.
UuFullLines UuDecodeNoLines(const unsigned char* text, const unsigned char* end, unsigned char* output,
                            std::size_t dropped);

}  // namespace qsbase::detail

#endif
