/// \file
/// The inner loops of Base64 (internal). Portable; a vector version replaces one of these functions and keeps its
/// contract. No shared state: any thread may call.
#ifndef QSBASE_CODEC_BASE64KERNEL_H
#define QSBASE_CODEC_BASE64KERNEL_H

#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

/// The alphabet of RFC 2045.
inline constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The value of a character, or one of the marks below.
inline constexpr std::uint8_t kBase64LineBreak = 64;
inline constexpr std::uint8_t kBase64Pad = 65;
inline constexpr std::uint8_t kBase64Illegal = 66;
std::uint8_t Base64Value(unsigned char c);

/// The exact size of the text that `Base64EncodeText` writes.
std::uint64_t Base64TextSize(std::uint64_t length, unsigned int groupsPerLine);

/// Writes the text of `length` bytes: CR LF after every `groupsPerLine`-th complete group (0 = no breaks), padded last
/// group. Returns the end of what was written; nothing is written behind it. Input and output must not overlap.
char* Base64EncodeText(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, char* output);

struct Base64Decoded {
  std::size_t written;
  std::size_t parsed;
  std::uint32_t illegal;
};

/// Decodes up to "=", an incomplete group or the end. `output` may be `input`, otherwise they must not overlap. At most
/// length / 4 * 3 + 2 bytes are produced; up to 8 bytes behind the produced ones may be scratched (in place: only
/// bytes of the input's own `length`).
Base64Decoded Base64DecodeText(const char* input, std::size_t length, char* output);

}  // namespace qsbase::detail

#endif
