#include <QSbase/codec/yenckernel.h>
#include <QSbase/simd/wordscan.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace qsbase::detail {
namespace {

/// What a byte becomes: its one or two characters, the first one lowest, and above them their number.
using EncodeTable = std::array<std::uint32_t, 256>;

constexpr EncodeTable MakeEncodeTable(bool plainTabDot) {
  EncodeTable table{};
  for (unsigned int i = 0; i < 256; ++i) {
    const auto shifted = static_cast<unsigned char>(i + kYEncShift);
    const auto escaped = static_cast<unsigned char>(shifted + kYEncEscapeShift);
    const std::uint32_t pair = static_cast<std::uint32_t>(escaped) << 8 | kYEncEscape;
    table[i] = YEncNeedsEscape(shifted, plainTabDot) ? 2u << 16 | pair : 1u << 16 | shifted;
  }
  return table;
}

constexpr std::array<EncodeTable, 2> kEncodeTables = {MakeEncodeTable(false), MakeEncodeTable(true)};

/// The lowest mark is at the first byte that is no plain character.
inline std::uint64_t MarkSpecials(std::uint64_t word) {
  return (MarkByte(word, '\0') | MarkByte(word, '\n') | MarkByte(word, '\r') | MarkByte(word, kYEncEscape)) &
         kWordHighBits;
}

/// Subtracts the shift from each of eight bytes.
inline std::uint64_t Unshift(std::uint64_t word) {
  constexpr std::uint64_t kAddend = kWordOnes * (256 - kYEncShift);
  return ((word & ~kWordHighBits) + (kAddend & ~kWordHighBits)) ^ ((word ^ kAddend) & kWordHighBits);
}

/// Takes the character behind a "=", unless it is a NUL.
inline void TakeEscaped(YEncDecoding& place) {
  if (*place.read == '\0') {
    place.isOver = true;
    return;
  }
  *place.written++ = static_cast<unsigned char>(*place.read++ - kYEncEscapeShift - kYEncShift);
  place.isEscape = false;
}

/// Takes a NUL, a CR, a LF or an escape.
inline void TakeSpecial(YEncDecoding& place, const unsigned char* end) {
  const unsigned char c = *place.read;
  place.isOver = c == '\0';
  place.read += c != '\0';
  if (c == kYEncEscape) {
    place.isEscape = true;
    if (place.read != end) {
      TakeEscaped(place);
    }
  }
}

/// Stores the first `count` bytes of a word and nothing else.
inline void StoreSome(unsigned char* output, std::uint64_t word, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = static_cast<unsigned char>(word >> (8 * i));
  }
}

/// Whether a word may be written without harm to what is not read yet.
inline bool HasRoomForWord(const YEncDecoding& place) {
  return reinterpret_cast<std::uintptr_t>(place.read) - reinterpret_cast<std::uintptr_t>(place.written) >= 8;
}

constexpr std::size_t kStretch = 128;

/// 1 for a character to escape, otherwise 0. In single bytes and without a branch: compilers make vector code of loops
/// over this form, and of few others.
inline unsigned char EscapeMark(unsigned char c, unsigned char tab, unsigned char dot) {
  unsigned char mark = 0;
  for (const unsigned char special : {static_cast<unsigned char>(0), static_cast<unsigned char>('\n'),
                                      static_cast<unsigned char>('\r'), kYEncEscape, tab, dot}) {
    mark |= static_cast<unsigned char>(c == special ? 1 : 0);
  }
  return mark;
}

inline unsigned char CountStretch(const unsigned char* input, unsigned char tab, unsigned char dot) {
  unsigned char count = 0;
  for (std::size_t i = 0; i < kStretch; ++i) {
    count = static_cast<unsigned char>(count + EscapeMark(static_cast<unsigned char>(input[i] + kYEncShift), tab, dot));
  }
  return count;
}

/// A stretch of input, shifted, with the marks of what is to be escaped. Words may be read up to its end.
struct Stretch {
  explicit Stretch(bool plainTabDot) : tab(plainTabDot ? '\0' : '\t'), dot(plainTabDot ? '\0' : '.') {}

  void Load(const unsigned char* input, std::size_t count) {
    unsigned char padded[kStretch];
    if (count < kStretch) {
      std::memset(padded, 0, sizeof(padded));
      std::memcpy(padded, input, count);
      input = padded;
    }
    for (std::size_t i = 0; i < kStretch; ++i) {
      const auto c = static_cast<unsigned char>(input[i] + kYEncShift);
      shifted[i] = c;
      marks[i] = EscapeMark(c, tab, dot);
    }
  }

  unsigned char tab;
  unsigned char dot;
  unsigned char shifted[kStretch + 8] = {};
  unsigned char marks[kStretch + 8] = {};
};

/// For inputs that are over before a stretch is prepared.
unsigned char* EncodeBytes(const unsigned char* input, std::size_t length, unsigned char* output, YEncLine& line) {
  const EncodeTable& table = kEncodeTables[line.plainTabDot];
  for (std::size_t i = 0; i < length; ++i) {
    const std::uint32_t entry = table[input[i]];
    const std::size_t characters = entry >> 16;
    const auto pair = static_cast<std::uint16_t>(entry);
    std::memcpy(output, &pair, sizeof(pair));
    output += characters;
    const bool isFull = characters >= line.room;
    output = isFull ? YEncPutBreak(output) : output;
    line.room = isFull ? line.length : line.room - characters;
  }
  return output;
}

/// More than a stretch can fill. A line may be longer than memory: no pointer goes to the end of one that goes on.
constexpr std::size_t kFar = 2 * kStretch + 1;

/// Writes a stretch.
inline unsigned char* WriteStretch(const Stretch& stretch, std::size_t count, unsigned char* output, YEncLine& line) {
  std::size_t beyond = line.room - std::min(line.room, kFar);
  unsigned char* lineEnd = output + (line.room - beyond);
  for (std::size_t i = 0; i < count;) {
    const std::uint64_t marks = LoadWord(stretch.marks + i);
    StoreWord(output, LoadWord(stretch.shifted + i));
    const std::size_t room = std::min(count - i, static_cast<std::size_t>(lineEnd - output));
    const std::size_t plain = FirstMark(marks);
    if (marks == 0 && room > 8) {
      i += 8;
      output += 8;
      continue;
    }
    if (plain >= room) {
      i += room;
      output += room;
    } else {
      output[plain] = kYEncEscape;
      output[plain + 1] = static_cast<unsigned char>(stretch.shifted[i + plain] + kYEncEscapeShift);
      i += plain + 1;
      output += plain + 2;
    }
    if (output >= lineEnd) {
      output = YEncPutBreak(output);
      beyond = line.length - std::min(line.length, kFar);
      lineEnd = output + (line.length - beyond);
    }
  }
  line.room = beyond + static_cast<std::size_t>(lineEnd - output);
  return output;
}

}  // namespace

std::uint64_t YEncCountEscapesScalar(const unsigned char* input, std::size_t length, bool plainTabDot) {
  const unsigned char tab = plainTabDot ? '\0' : '\t';
  const unsigned char dot = plainTabDot ? '\0' : '.';
  std::uint64_t total = 0;
  std::size_t start = 0;
  for (; length - start >= kStretch; start += kStretch) {
    total += CountStretch(input + start, tab, dot);
  }
  for (; start < length; ++start) {
    total += YEncNeedsEscape(static_cast<unsigned char>(input[start] + kYEncShift), plainTabDot) ? 1 : 0;
  }
  return total;
}

std::uint64_t YEncMeasureScalar(const unsigned char* input, std::size_t length, YEncLine& line) {
  const EncodeTable& table = kEncodeTables[line.plainTabDot];
  std::uint64_t size = 0;
  for (std::size_t i = 0; i < length; ++i) {
    const std::size_t characters = table[input[i]] >> 16;
    const bool isFull = characters >= line.room;
    size += isFull ? characters + 2 : characters;
    line.room = isFull ? line.length : line.room - characters;
  }
  return size;
}

unsigned char* YEncEncodeScalar(const unsigned char* input, std::size_t length, unsigned char* output, YEncLine& line) {
  constexpr std::size_t kShort = 32;
  if (length < kShort) {
    return EncodeBytes(input, length, output, line);
  }
  Stretch stretch(line.plainTabDot);
  for (std::size_t start = 0; start < length; start += kStretch) {
    const std::size_t count = std::min(kStretch, length - start);
    stretch.Load(input + start, count);
    output = WriteStretch(stretch, count, output, line);
  }
  return output;
}

void YEncDecodeScalar(YEncDecoding& decoding, const unsigned char* end) {
  YEncDecoding place = decoding;
  if (place.isEscape && place.read != end) {
    TakeEscaped(place);
  }
  while (!place.isOver && end - place.read >= 8) {
    const std::uint64_t word = LoadWord(place.read);
    const std::uint64_t marks = MarkSpecials(word);
    if (marks == 0) {
      StoreWord(place.written, Unshift(word));
      place.read += 8;
      place.written += 8;
      continue;
    }
    const std::size_t plain = FirstMark(marks);
    if (HasRoomForWord(place)) {
      StoreWord(place.written, Unshift(word));
    } else {
      StoreSome(place.written, Unshift(word), plain);
    }
    place.read += plain;
    place.written += plain;
    TakeSpecial(place, end);
  }
  while (!place.isOver && place.read != end) {
    if (YEncNeedsEscape(*place.read, true)) {
      TakeSpecial(place, end);
      continue;
    }
    *place.written++ = static_cast<unsigned char>(*place.read++ - kYEncShift);
  }
  decoding = place;
}

const char* YEncFindKeywordScalar(const char* position, const char* end) {
  const std::string_view text(position, static_cast<std::size_t>(end - position));
  return position + std::min(text.find("=y"), text.size());
}

}  // namespace qsbase::detail
