#include <QSbase/codec/uukernel.h>
#include <QSbase/simd/wordscan.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace qsbase::detail {
namespace {

constexpr std::array<unsigned char, 256> MakeXxValues() {
  std::array<unsigned char, 256> values{};
  for (unsigned char& value : values) {
    value = kXxIllegal;
  }
  for (std::size_t i = 0; i < kXxDigits.size(); ++i) {
    values[static_cast<unsigned char>(kXxDigits[i])] = static_cast<unsigned char>(i);
  }
  values[0] = 0;
  return values;
}

constexpr std::array<unsigned char, 256> kXxValues = MakeXxValues();

// Eight characters are handled as the bytes of one word, the first one highest.
inline std::uint64_t LoadBig64(const unsigned char* p) {
  return static_cast<std::uint64_t>(p[0]) << 56 | static_cast<std::uint64_t>(p[1]) << 48 |
         static_cast<std::uint64_t>(p[2]) << 40 | static_cast<std::uint64_t>(p[3]) << 32 |
         static_cast<std::uint64_t>(p[4]) << 24 | static_cast<std::uint64_t>(p[5]) << 16 |
         static_cast<std::uint64_t>(p[6]) << 8 | static_cast<std::uint64_t>(p[7]);
}

inline void StoreBig64(unsigned char* p, std::uint64_t word) {
  p[0] = static_cast<unsigned char>(word >> 56);
  p[1] = static_cast<unsigned char>(word >> 48);
  p[2] = static_cast<unsigned char>(word >> 40);
  p[3] = static_cast<unsigned char>(word >> 32);
  p[4] = static_cast<unsigned char>(word >> 24);
  p[5] = static_cast<unsigned char>(word >> 16);
  p[6] = static_cast<unsigned char>(word >> 8);
  p[7] = static_cast<unsigned char>(word);
}

/// The word's upper six bytes as eight values of six bits.
inline std::uint64_t Spread(std::uint64_t word) {
  word = (word >> 8 & 0x00FFFFFF00000000) | (word >> 16 & 0x0000000000FFFFFF);
  word = (word & 0x00FFF00000FFF000) << 4 | (word & 0x00000FFF00000FFF);
  return (word & 0x0FC00FC00FC00FC0) << 2 | (word & 0x003F003F003F003F);
}

/// The opposite: eight values of six bits as the word's upper six bytes.
inline std::uint64_t Gather(std::uint64_t word) {
  word = (word & 0x3F003F003F003F00) >> 2 | (word & 0x003F003F003F003F);
  word = (word & 0x0FFF00000FFF0000) >> 4 | (word & 0x00000FFF00000FFF);
  return (word & 0x00FFFFFF00000000) << 8 | (word & 0x0000000000FFFFFF) << 16;
}

struct UuDigits {
  /// The value + 32, but 96 for 0.
  static std::uint64_t Of(std::uint64_t values) {
    return values + kWordOnes * 32 + (~(values + kWordOnes * 63) & kWordOnes * 64);
  }
};

struct XxDigits {
  /// The digits run on from "+" (43) but for four gaps.
  static std::uint64_t Of(std::uint64_t values) {
    return values + kWordOnes * 43 + From(values, 1) + From(values, 2) * 2 + From(values, 12) * 7 +
           From(values, 38) * 6;
  }

  /// 1 in every byte whose value is at least `limit`.
  static std::uint64_t From(std::uint64_t values, unsigned int limit) {
    return ((values + kWordOnes * (128 - limit)) & kWordHighBits) >> 7;
  }
};

template <class Digits>
inline std::size_t EncodeLine(const unsigned char* input, std::size_t length, unsigned char* output) {
  const std::uint64_t count = Digits::Of(length);
  output[0] = static_cast<unsigned char>(count);
  for (std::size_t done = 0; 3 * done < length; done += 2) {
    StoreBig64(output + 1 + 4 * done, Digits::Of(Spread(LoadBig64(input + 3 * done))));
  }
  const std::size_t end = 1 + (length + 2) / 3 * 4;
  output[end] = '\r';
  output[end + 1] = '\n';
  return end + 2;
}

/// A full line reads three bytes beyond its own, up to five for the last word: only lines with so much behind them are
/// encoded where they lie.
constexpr std::size_t kReadAhead = 8;

template <class Digits>
std::size_t EncodeLines(const unsigned char* input, std::size_t length, unsigned char* output) {
  std::size_t written = 0;
  while (length >= kUuLineBytes + kReadAhead) {
    written += EncodeLine<Digits>(input, kUuLineBytes, output + written);
    input += kUuLineBytes;
    length -= kUuLineBytes;
  }
  while (length != 0) {
    const std::size_t count = std::min(length, kUuLineBytes);
    unsigned char padded[kUuLineBytes + kReadAhead] = {};
    std::memcpy(padded, input, count);
    written += EncodeLine<Digits>(padded, count, output + written);
    input += count;
    length -= count;
  }
  return written;
}

inline void StoreGroup(unsigned char* output, unsigned int a, unsigned int b, unsigned int c, unsigned int d) {
  output[0] = static_cast<unsigned char>(a << 2 | b >> 4);
  output[1] = static_cast<unsigned char>(b << 4 | c >> 2);
  output[2] = static_cast<unsigned char>(c << 6 | d);
}

/// Puts values of six bits together, for the end of a line and for lines with illegal characters.
class Assembler {
 public:
  Assembler(unsigned char* output, std::size_t count) : _output(output), _count(count) {}

  bool IsFull() const { return _written >= _count; }

  void Put(unsigned int value) {
    _bits = _bits << 6 | value;
    if (++_values == 4) {
      PutGroup();
    }
  }

  void Fill() {
    while (!IsFull()) {
      Put(0);
    }
  }

 private:
  void PutGroup() {
    for (int shift = 16; shift >= 0 && !IsFull(); shift -= 8) {
      _output[_written++] = static_cast<unsigned char>(_bits >> shift);
    }
    _bits = 0;
    _values = 0;
  }

  unsigned char* _output;
  std::size_t _count;
  std::size_t _written = 0;
  std::uint32_t _bits = 0;
  int _values = 0;
};

/// Decodes what is left of a line character by character. Returns the number of illegal ones, those included that stand
/// behind the last byte's group.
template <class Value>
std::size_t DecodeRest(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count,
                       Value valueOf) {
  Assembler assembler(output, count);
  std::size_t illegal = 0;
  for (std::size_t i = 0; i < length; ++i) {
    const unsigned char value = valueOf(text[i]);
    if (value == kXxIllegal) {
      ++illegal;
      continue;
    }
    assembler.Put(value);
  }
  assembler.Fill();
  return illegal;
}

}  // namespace

unsigned char XxValue(unsigned char c) { return kXxValues[c]; }

std::size_t UuEncodeLines(const unsigned char* input, std::size_t length, unsigned char* output) {
  return EncodeLines<UuDigits>(input, length, output);
}

std::size_t XxEncodeLines(const unsigned char* input, std::size_t length, unsigned char* output) {
  return EncodeLines<XxDigits>(input, length, output);
}

std::size_t UuDecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count) {
  // Six bits of (character - 32) are those of the character with bit 5 turned over.
  while (length >= 8 && count >= 6) {
    StoreBig64(output, Gather(LoadBig64(text) ^ kWordOnes * 32));
    text += 8;
    length -= 8;
    output += 6;
    count -= 6;
  }
  if (length >= 4 && count >= 3) {
    StoreGroup(output, (text[0] ^ 32u) & 63u, (text[1] ^ 32u) & 63u, (text[2] ^ 32u) & 63u, (text[3] ^ 32u) & 63u);
    text += 4;
    length -= 4;
    output += 3;
    count -= 3;
  }
  return DecodeRest(text, length, output, count,
                    [](unsigned char c) { return static_cast<unsigned char>((c ^ 32u) & 63u); });
}

std::size_t XxDecodeLine(const unsigned char* text, std::size_t length, unsigned char* output, std::size_t count) {
  while (length >= 4 && count >= 3) {
    const unsigned int a = kXxValues[text[0]];
    const unsigned int b = kXxValues[text[1]];
    const unsigned int c = kXxValues[text[2]];
    const unsigned int d = kXxValues[text[3]];
    if ((a | b | c | d) > 63) {
      break;
    }
    StoreGroup(output, a, b, c, d);
    text += 4;
    length -= 4;
    output += 3;
    count -= 3;
  }
  return DecodeRest(text, length, output, count, XxValue);
}

UuFullLines UuDecodeNoLines(const unsigned char* text, const unsigned char*, unsigned char*, std::size_t) {
  return {text, 0};
}

}  // namespace qsbase::detail
