#include <QSbase/text/textkernel.h>

#include <bit>

namespace qsbase::detail {
namespace {

constexpr int kClasses = 13;

constexpr ByteSet MakeClassSet(int bit) {
  ByteSet set{};
  for (std::size_t c = 0; c < kCharMasks.size(); ++c) {
    if ((kCharMasks[c] >> bit & 1) != 0) {
      std::uint8_t& entry = (c < 128 ? set.lower : set.upper)[c & 15];
      entry = static_cast<std::uint8_t>(entry | 1U << (c >> 4 & 7));
    }
  }
  return set;
}

constexpr std::array<ByteSet, kClasses> MakeClassSets() {
  std::array<ByteSet, kClasses> sets{};
  for (int bit = 0; bit < kClasses; ++bit) {
    sets[static_cast<std::size_t>(bit)] = MakeClassSet(bit);
  }
  return sets;
}

constexpr std::array<ByteSet, kClasses> kClassSets = MakeClassSets();

bool IsMember(const ByteSet& set, char c) {
  const auto byte = static_cast<unsigned char>(c);
  return ((byte < 128 ? set.lower : set.upper)[byte & 15] >> (byte >> 4 & 7) & 1) != 0;
}

}  // namespace

ByteSet ByteSetOf(unsigned int mask) {
  ByteSet set{};
  for (mask &= (1U << kClasses) - 1; mask != 0; mask &= mask - 1) {
    const ByteSet& part = kClassSets[static_cast<std::size_t>(std::countr_zero(mask))];
    for (std::size_t i = 0; i < 16; ++i) {
      set.lower[i] = static_cast<std::uint8_t>(set.lower[i] | part.lower[i]);
      set.upper[i] = static_cast<std::uint8_t>(set.upper[i] | part.upper[i]);
    }
  }
  return set;
}

void MapBytes(char* text, std::size_t length, const CharMap& map) {
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = static_cast<char>(map[static_cast<unsigned char>(text[i])]);
  }
}

void ReplaceBytes(char* text, std::size_t length, char from, char to) {
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = text[i] == from ? to : text[i];
  }
}

char* StripBytes(const char* text, std::size_t length, const ByteSet& set, char* out) {
  for (std::size_t i = 0; i < length; ++i) {
    *out = text[i];
    out += IsMember(set, text[i]) ? 0 : 1;
  }
  return out;
}

}  // namespace qsbase::detail
