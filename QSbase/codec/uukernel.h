/// \file
/// The inner loops of UU and XX (internal). No function keeps anything between calls.
#ifndef QSBASE_CODEC_UUKERNEL_H
#define QSBASE_CODEC_UUKERNEL_H

#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

inline constexpr std::size_t kUuLineBytes = 45;
inline constexpr unsigned char kXxIllegal = 0xFF;

/// The XX digit of every byte, or `kXxIllegal`.
unsigned char XxValue(unsigned char c);

/// Encodes lines with their counts and CR LF, without the terminator line. Returns the characters written; four more
/// behind them may be scratched.
std::size_t UuEncodeLines(const unsigned char* input, std::size_t length, unsigned char* output, bool isXx);

/// Decodes the characters of one line behind its count into `count` bytes. Characters that are missing count as 0, and
/// none is read beyond `length`. `output` may begin anywhere at or before the character in front of the text. Up to
/// eight bytes from the end of the last whole group of the line's text may be scratched, never beyond the text's own
/// end.
void UuDecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count);

/// The same for XX; characters outside the alphabet are skipped. Returns their number in all of the line.
std::size_t XxDecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count);

}  // namespace qsbase::detail

#endif
