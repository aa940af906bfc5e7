/// \file
/// The loops over whole texts (internal). No state: any thread may call.
#ifndef QSBASE_TEXT_TEXTKERNEL_H
#define QSBASE_TEXT_TEXTKERNEL_H

#include <QSbase/simd/level.h>
#include <QSbase/text/chartables.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace qsbase::detail {

constexpr CharMap MakeLowerControlToSpaceMap() {
  CharMap map = kLowerMap;
  for (std::size_t c = 0; c < map.size(); ++c) {
    if ((kCharMasks[c] & kControl) != 0) {
      map[c] = ' ';
    }
  }
  return map;
}

inline constexpr CharMap kLowerControlToSpaceMap = MakeLowerControlToSpaceMap();

/// A set of bytes. The members whose lower half is i have bit h of lower[i] when their upper half is h, and of
/// upper[i] when it is 8 + h.
struct ByteSet {
  std::array<std::uint8_t, 16> lower;
  std::array<std::uint8_t, 16> upper;
};

/// The bytes whose class shares a bit with the mask.
ByteSet ByteSetOf(unsigned int mask);

/// How many bytes behind its output's end the kernel that strips may scratch.
inline constexpr std::size_t kStripSlack = 64;

/// One level's kernels.
struct TextKernels {
  /// Map every byte by kLowerMap, kUpperMap and kLowerControlToSpaceMap.
  void (*toLower)(char* text, std::size_t length);
  void (*toUpper)(char* text, std::size_t length);
  void (*toLowerControlToSpace)(char* text, std::size_t length);

  /// Puts `to` in the place of every `from`.
  void (*replace)(char* text, std::size_t length, char from, char to);

  /// Copies the bytes outside the set. Returns the end of what was written; up to `length` + kStripSlack
  /// bytes from `out` on are scratched. Input and output do not overlap.
  char* (*strip)(const char* text, std::size_t length, const ByteSet& set, char* out);
};

const TextKernels& TextKernelsOf(SimdLevel level);

/// The scalar level, which also ends what the vector kernels begin.
void MapBytes(char* text, std::size_t length, const CharMap& map);
void ReplaceBytes(char* text, std::size_t length, char from, char to);
char* StripBytes(const char* text, std::size_t length, const ByteSet& set, char* out);

}  // namespace qsbase::detail

#endif
