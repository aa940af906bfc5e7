/// \file
/// The inner loops of Base64 (internal). No shared state: any thread may call.
#ifndef QSBASE_CODEC_BASE64KERNEL_H
#define QSBASE_CODEC_BASE64KERNEL_H

#include <cstddef>
#include <cstdint>

#include <QSbase/simd/level.h>

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

/// What a decoder moves along. A text may come in pieces: the next one goes on with the group that the last one began.
struct Base64DecodeState {
  const unsigned char* position;
  const unsigned char* end;
  char* output;
  bool inPlace;               ///< `output` lies in what was read of the text
  bool ended = false;         ///< by a "="
  std::uint32_t illegal = 0;  ///< how many characters were skipped
  unsigned int begun = 0;     ///< how many characters of the last group were read, 0 to 3
  std::uint32_t group = 0;    ///< the bytes that they give, the first one lowest
};

/// One level's kernels.
struct Base64Kernels {
  /// Writes the text of `length` bytes: CR LF after every `groupsPerLine`-th complete group (0 = no breaks), padded
  /// last group. Returns the end of what was written; nothing is written behind it. Input and output must not overlap.
  char* (*encode)(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, char* output);

  /// Decodes whole groups up to "=" or the end. Of `n` characters, with those of the group begun before, it writes no
  /// more than the first n / 4 * 3 + 2 bytes, and in place no byte that was not read.
  void (*decode)(Base64DecodeState& state);
};

const Base64Kernels& Base64KernelsOf(SimdLevel level);

/// The kernels in plain C++.
char* Base64EncodeScalar(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, char* output);
void Base64DecodeScalar(Base64DecodeState& state);

/// Pieces of them, for the rests that vectors leave.
/// Encodes whole groups without a break. `readable` is what may be read from `input` on, at least groups * 3.
char* Base64EncodeGroups(const unsigned char* input, std::size_t readable, std::size_t groups, char* output);
/// Encodes the last group, of 0 to 2 bytes.
char* Base64EncodeRest(const unsigned char* input, std::size_t count, char* output);
/// Reads the rest of a group character by character.
void Base64DecodeGroup(Base64DecodeState& state);

/// Writes what the group at the end of the whole text gives, although it is not complete.
void Base64DecodeRest(Base64DecodeState& state);

inline char* Base64EncodeText(const unsigned char* input, std::size_t length, unsigned int groupsPerLine,
                              char* output) {
  return Base64KernelsOf(CurrentSimdLevel()).encode(input, length, groupsPerLine, output);
}

struct Base64Decoded {
  std::size_t written;
  std::size_t parsed;
  std::uint32_t illegal;
};

/// Decodes up to "=", an incomplete group or the end. `output` may be `input`, otherwise they must not overlap. At most
/// length / 4 * 3 + 2 bytes are produced, and as many may be scratched.
Base64Decoded Base64DecodeText(const char* input, std::size_t length, char* output);

}  // namespace qsbase::detail

#endif
