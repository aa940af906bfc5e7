#include <reference/characters.h>

namespace qsbase::reference {

namespace {

bool IsIn(int c, int first, int last) { return c >= first && c <= last; }

bool IsOneOf(int c, std::string_view set) { return set.find(static_cast<char>(c)) != std::string_view::npos; }

bool IsDigit(int c) { return IsIn(c, '0', '9'); }
bool IsAsciiLower(int c) { return IsIn(c, 'a', 'z'); }
bool IsAsciiUpper(int c) { return IsIn(c, 'A', 'Z'); }
bool IsLetterA(int c) { return IsAsciiLower(c) || IsAsciiUpper(c); }

bool IsLower(int c) {
  return IsAsciiLower(c) || IsOneOf(c, "\x83\x9A\x9C\x9E\xAA\xB5\xBA") || IsIn(c, 223, 246) || IsIn(c, 248, 255);
}

bool IsUpper(int c) {
  return IsAsciiUpper(c) || IsOneOf(c, "\x8A\x8C\x8E\x9F") || IsIn(c, 192, 214) || IsIn(c, 216, 222);
}

bool IsAlpha(int c) {
  return IsLetterA(c) || IsOneOf(c, "\x83\x8A\x8C\x8E\x9A\x9C\x9E\x9F\xAA\xB5\xBA") || IsIn(c, 192, 214) ||
         IsIn(c, 216, 246) || IsIn(c, 248, 255);
}

bool IsOfNoFileName(int c) { return IsIn(c, 0, 31) || IsOneOf(c, "\"*/:<>?\\|"); }

/// Whether a letter's partner is 32 behind it, as in ASCII.
bool HasPartner32Behind(int c) { return IsAsciiUpper(c) || IsIn(c, 192, 214) || IsIn(c, 216, 222); }

template <class Map>
std::string Mapped(std::string_view text, Map map) {
  std::string mapped;
  for (char c : text) {
    mapped += static_cast<char>(map(static_cast<unsigned char>(c)));
  }
  return mapped;
}

bool Has(char c, unsigned int mask) { return (ClassesOf(static_cast<unsigned char>(c)) & mask) != 0; }

/// The inverse of LowerOf.
unsigned char UpperPartnerOf(unsigned char c) {
  for (int upper = 0; upper < 256; ++upper) {
    if (upper != c && LowerOf(static_cast<unsigned char>(upper)) == c) {
      return static_cast<unsigned char>(upper);
    }
  }
  return c;
}

}  // namespace

unsigned int ClassesOf(unsigned char c) {
  unsigned int classes = 0;
  classes |= IsAlpha(c) ? 0x1u : 0u;
  classes |= IsDigit(c) ? 0x2u : 0u;
  classes |= IsIn(c, 0, 127) ? 0x4u : 0u;
  classes |= IsLower(c) ? 0x8u : 0u;
  classes |= IsUpper(c) ? 0x10u : 0u;
  classes |= IsIn(c, 9, 13) || c == 32 ? 0x20u : 0u;
  classes |= IsIn(c, 0, 31) || c == 127 ? 0x40u : 0u;
  classes |= IsOneOf(c, "\t\n\r !\"+,-./:;<=>?@\\") ? 0x80u : 0u;
  classes |= IsOneOf(c, "\t!.:;?") ? 0x100u : 0u;
  classes |= IsDigit(c) || IsIn(c, 'A', 'F') || IsIn(c, 'a', 'f') ? 0x200u : 0u;
  classes |= IsDigit(c) || IsLetterA(c) || c == '_' ? 0x400u : 0u;
  classes |= IsOneOf(c, "!,.:;?\xA1\xBF") ? 0x800u : 0u;
  classes |= IsOfNoFileName(c) ? 0x1000u : 0u;
  return classes;
}

unsigned char LowerOf(unsigned char c) {
  if (HasPartner32Behind(c)) {
    return static_cast<unsigned char>(c + 32);
  }
  switch (c) {
    case 138:
      return 154;
    case 140:
      return 156;
    case 142:
      return 158;
    case 159:
      return 255;
    default:
      return c;
  }
}

unsigned char UpperOf(unsigned char c) {
  static const std::string kMap = [] {
    std::string map;
    for (int lower = 0; lower < 256; ++lower) {
      map += static_cast<char>(UpperPartnerOf(static_cast<unsigned char>(lower)));
    }
    return map;
  }();
  return static_cast<unsigned char>(kMap[c]);
}

std::string ToLower(std::string_view text) { return Mapped(text, LowerOf); }
std::string ToUpper(std::string_view text) { return Mapped(text, UpperOf); }

std::string ToLowerControlToSpace(std::string_view text) {
  return Mapped(text, [](unsigned char c) { return (ClassesOf(c) & 0x40) != 0 ? ' ' : LowerOf(c); });
}

std::string TrimLeft(std::string_view text, unsigned int mask) {
  while (!text.empty() && Has(text.front(), mask)) {
    text.remove_prefix(1);
  }
  return std::string(text);
}

std::string TrimRight(std::string_view text, unsigned int mask) {
  while (!text.empty() && Has(text.back(), mask)) {
    text.remove_suffix(1);
  }
  return std::string(text);
}

std::string StripCharacters(std::string_view text, unsigned int mask) {
  std::string kept;
  for (char c : text) {
    if (!Has(c, mask)) {
      kept += c;
    }
  }
  return kept.empty() ? std::string(text) : kept;
}

}  // namespace qsbase::reference
