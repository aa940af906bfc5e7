#include <reference/md5.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace qsbase::reference {

namespace {

struct Words {
  std::uint32_t a, b, c, d;
};

std::uint32_t LittleEndian(std::string_view bytes) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
  }
  return value;
}

std::string LittleEndianBytes(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) {
    text += static_cast<char>(value >> (8 * i) & 255u);
  }
  return text;
}

/// The RFC's T[1] to T[64].
std::uint32_t SineTable(int step) {
  return static_cast<std::uint32_t>(std::floor(std::fabs(std::sin(step + 1.0)) * 4294967296.0));
}

/// The RFC's F, G, H and I.
std::uint32_t Mix(int round, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
  switch (round) {
    case 0:
      return (x & y) | (~x & z);
    case 1:
      return (x & z) | (y & ~z);
    case 2:
      return x ^ y ^ z;
    default:
      return y ^ (x | ~z);
  }
}

int WordOf(int step) {
  static constexpr int kFactor[4] = {1, 5, 3, 7};
  static constexpr int kStart[4] = {0, 1, 5, 0};
  const int round = step / 16;
  return (kFactor[round] * (step % 16) + kStart[round]) % 16;
}

std::uint32_t Rotated(std::uint32_t value, int step) {
  static constexpr int kBits[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  const int bits = kBits[step / 16][step % 4];
  return value << bits | value >> (32 - bits);
}

Words WithBlock(const Words& before, std::string_view block) {
  Words w = before;
  for (int step = 0; step < 64; ++step) {
    const std::uint32_t word = LittleEndian(block.substr(static_cast<std::size_t>(WordOf(step)) * 4, 4));
    const std::uint32_t sum = w.a + Mix(step / 16, w.b, w.c, w.d) + word + SineTable(step);
    w = {w.d, w.b + Rotated(sum, step), w.b, w.c};
  }
  return {before.a + w.a, before.b + w.b, before.c + w.c, before.d + w.d};
}

}  // namespace

std::string Md5(std::string_view data) {
  std::string padded(data);
  padded += '\x80';
  padded.resize((padded.size() + 8 + 63) / 64 * 64 - 8);
  padded += LittleEndianBytes(std::uint64_t{data.size()} * 8, 8);
  Words words{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
  for (std::size_t i = 0; i < padded.size(); i += 64) {
    words = WithBlock(words, std::string_view(padded).substr(i, 64));
  }
  return LittleEndianBytes(words.a, 4) + LittleEndianBytes(words.b, 4) + LittleEndianBytes(words.c, 4) +
         LittleEndianBytes(words.d, 4);
}

}  // namespace qsbase::reference
