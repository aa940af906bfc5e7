/// \file
/// The fixed tables of QsChar, for the library's own tight loops (internal; constant, so safe from any thread).
#ifndef QSBASE_TEXT_CHARTABLES_H
#define QSBASE_TEXT_CHARTABLES_H

#include <array>
#include <cstddef>
#include <string_view>

namespace qsbase::detail {

/// Class bits of a byte.
enum CharClass : unsigned int {
  kAlpha = 0x1,
  kNumeric = 0x2,
  kAscii = 0x4,
  kLower = 0x8,
  kUpper = 0x10,
  kWhiteSpace = 0x20,
  kControl = 0x40,
  kWordDelimiter = 0x80,
  kSentenceDelimiter = 0x100,
  kHexDigit = 0x200,
  kSymbol = 0x400,
  kPunctuation = 0x800,
  kInvalidFileChar = 0x1000
};

using CharMasks = std::array<unsigned int, 256>;
using CharMap = std::array<unsigned char, 256>;

constexpr void AddClass(CharMasks& masks, int first, int last, unsigned int bits) {
  for (int c = first; c <= last; ++c) {
    masks[static_cast<std::size_t>(c)] |= bits;
  }
}

constexpr void AddClass(CharMasks& masks, std::string_view members, unsigned int bits) {
  for (const char c : members) {
    masks[static_cast<unsigned char>(c)] |= bits;
  }
}

constexpr void AddLetters(CharMasks& masks) {
  AddClass(masks, 'A', 'Z', kAlpha | kUpper | kSymbol);
  AddClass(masks, 'a', 'z', kAlpha | kLower | kSymbol);
  AddClass(masks, "\x83\x9A\x9C\x9E\xAA\xB5\xBA", kAlpha | kLower);
  AddClass(masks, "\x8A\x8C\x8E\x9F", kAlpha | kUpper);
  AddClass(masks, 192, 214, kAlpha | kUpper);
  AddClass(masks, 216, 222, kAlpha | kUpper);
  AddClass(masks, 223, 246, kAlpha | kLower);
  AddClass(masks, 248, 255, kAlpha | kLower);
}

constexpr CharMasks MakeCharMasks() {
  CharMasks masks{};
  AddLetters(masks);
  AddClass(masks, '0', '9', kNumeric | kHexDigit | kSymbol);
  AddClass(masks, 'A', 'F', kHexDigit);
  AddClass(masks, 'a', 'f', kHexDigit);
  AddClass(masks, "_", kSymbol);
  AddClass(masks, 0, 127, kAscii);
  AddClass(masks, 0, 31, kControl | kInvalidFileChar);
  AddClass(masks, 127, 127, kControl);
  AddClass(masks, "\t\n\v\f\r ", kWhiteSpace);
  AddClass(masks, "\t\n\r !\"+,-./:;<=>?@\\", kWordDelimiter);
  AddClass(masks, "\t!.:;?", kSentenceDelimiter);
  AddClass(masks, "!,.:;?\xA1\xBF", kPunctuation);
  AddClass(masks, "\"*/:<>?\\|", kInvalidFileChar);
  return masks;
}

/// Calls visit(upper, lower) for each of the 60 letter pairs.
template <typename Visit>
constexpr void ForEachCasePair(Visit visit) {
  for (int c = 'A'; c <= 'Z'; ++c) {
    visit(c, c + 32);
  }
  for (int c = 192; c <= 222; ++c) {
    if (c != 215) {
      visit(c, c + 32);
    }
  }
  visit(138, 154);
  visit(140, 156);
  visit(142, 158);
  visit(159, 255);
}

constexpr CharMap MakeCaseMap(bool toLower) {
  CharMap map{};
  for (std::size_t c = 0; c < map.size(); ++c) {
    map[c] = static_cast<unsigned char>(c);
  }
  ForEachCasePair([&](int upper, int lower) {
    map[static_cast<std::size_t>(toLower ? upper : lower)] = static_cast<unsigned char>(toLower ? lower : upper);
  });
  return map;
}

inline constexpr CharMasks kCharMasks = MakeCharMasks();
inline constexpr CharMap kLowerMap = MakeCaseMap(true);
inline constexpr CharMap kUpperMap = MakeCaseMap(false);

/// True when the byte's class shares a bit with the mask.
constexpr bool HasClass(char c, unsigned int mask) { return (kCharMasks[static_cast<unsigned char>(c)] & mask) != 0; }

/// The text without the members of the mask at its beginning.
constexpr std::string_view TrimmedLeft(std::string_view text, unsigned int mask) {
  while (!text.empty() && HasClass(text.front(), mask)) {
    text.remove_prefix(1);
  }
  return text;
}

/// The text without the members of the mask at its end.
constexpr std::string_view TrimmedRight(std::string_view text, unsigned int mask) {
  while (!text.empty() && HasClass(text.back(), mask)) {
    text.remove_suffix(1);
  }
  return text;
}

constexpr std::string_view Trimmed(std::string_view text, unsigned int mask) {
  return TrimmedRight(TrimmedLeft(text, mask), mask);
}

// ---- Hex ----

/// In the place of a value, for bytes that are no hex digit. It has bits that no digit's value has.
inline constexpr unsigned char kNoHexDigit = 0xFF;

constexpr CharMap MakeHexValues() {
  CharMap values{};
  values.fill(kNoHexDigit);
  for (unsigned char digit = 0; digit < 16; ++digit) {
    values[static_cast<std::size_t>("0123456789ABCDEF"[digit])] = digit;
    values[static_cast<std::size_t>("0123456789abcdef"[digit])] = digit;
  }
  return values;
}

constexpr std::array<char, 512> MakeHexPairs() {
  std::array<char, 512> pairs{};
  for (std::size_t byte = 0; byte < 256; ++byte) {
    pairs[2 * byte] = "0123456789ABCDEF"[byte >> 4];
    pairs[2 * byte + 1] = "0123456789ABCDEF"[byte & 15];
  }
  return pairs;
}

/// The value of each hex digit, of either case.
inline constexpr CharMap kHexValues = MakeHexValues();
/// The two upper-case digits of each byte, one pair behind the other.
inline constexpr std::array<char, 512> kHexPairs = MakeHexPairs();

}  // namespace qsbase::detail

#endif
