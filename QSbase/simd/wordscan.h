/// \file
/// Eight characters at a time (internal): words whose first character is the lowest byte.
#ifndef QSBASE_SIMD_WORDSCAN_H
#define QSBASE_SIMD_WORDSCAN_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qsbase::detail {

static_assert(std::endian::native == std::endian::little);

inline constexpr std::uint64_t kWordOnes = 0x0101010101010101;
inline constexpr std::uint64_t kWordHighBits = 0x8080808080808080;

inline std::uint64_t LoadWord(const void* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof(word));
  return word;
}

inline void StoreWord(void* p, std::uint64_t word) { std::memcpy(p, &word, sizeof(word)); }

/// Sets the high bit of the lowest byte that equals `c`, and perhaps of some above it; other bits mean nothing.
inline std::uint64_t MarkByte(std::uint64_t word, unsigned char c) {
  const std::uint64_t zeroed = word ^ (kWordOnes * c);
  return (zeroed - kWordOnes) & ~zeroed;
}

/// The index of the lowest byte whose high bit is set; 8 for none.
inline std::size_t FirstMark(std::uint64_t marks) { return static_cast<std::size_t>(std::countr_zero(marks)) / 8; }

/// The first of two bytes in the range, or its end.
inline const char* FindEitherByWords(const char* position, const char* end, char one, char other) {
  for (; end - position >= 8; position += 8) {
    const std::uint64_t word = LoadWord(position);
    const std::uint64_t marks =
        (MarkByte(word, static_cast<unsigned char>(one)) | MarkByte(word, static_cast<unsigned char>(other))) &
        kWordHighBits;
    if (marks != 0) {
      return position + FirstMark(marks);
    }
  }
  while (position != end && *position != one && *position != other) {
    ++position;
  }
  return position;
}

/// The first byte in the range that is neither of two, or its end.
inline const char* FindNeitherByBytes(const char* position, const char* end, char one, char other) {
  while (position != end && (*position == one || *position == other)) {
    ++position;
  }
  return position;
}

/// Whether `c` is a blank, TAB, LF, VT, FF or CR.
inline bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The first byte in the range that is no such one, or its end.
inline const char* FindNonSpaceByBytes(const char* position, const char* end) {
  while (position != end && IsSpace(*position)) {
    ++position;
  }
  return position;
}

/// What small letters have and capitals have not.
inline constexpr unsigned char kCaseBit = 0x20;

/// The first CR or LF in the range that two characters follow in it, bit 5 of which does not count; or its end.
inline const char* FindBreakBeforeByWords(const char* position, const char* end, char one, char other) {
  for (;; ++position) {
    position = FindEitherByWords(position, end, '\r', '\n');
    if (end - position < 3) {
      return end;
    }
    if ((position[1] | kCaseBit) == (one | kCaseBit) && (position[2] | kCaseBit) == (other | kCaseBit)) {
      return position;
    }
  }
}

}  // namespace qsbase::detail

#endif
