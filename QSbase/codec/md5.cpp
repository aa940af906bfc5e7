#include <QSbase/codec/md5.h>

#include <cstring>

namespace qsbase::detail {
namespace {

constexpr std::size_t kBlockSize = 64;
constexpr std::size_t kCountOffset = 56;

constexpr unsigned char kPadding[kBlockSize] = {0x80};

inline std::uint32_t LoadLittle32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

inline void StoreLittle32(unsigned char* p, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) {
    p[i] = static_cast<unsigned char>(value >> (8 * i));
  }
}

template <int shift>
inline std::uint32_t Rotate(std::uint32_t value) {
  return value << shift | value >> (32 - shift);
}

// Each step adds first what does not depend on b, the word that the step before it has just made. A compiler that sorts
// the terms of a sum otherwise makes that chain longer, and so is kept from seeing one sum.
inline void Settle([[maybe_unused]] std::uint32_t& sum) {
#if defined(__clang__)
  asm("" : "+r"(sum));
#endif
}

template <int shift>
inline void StepF(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t addend) {
  a += addend;
  Settle(a);
  a += d ^ (b & (c ^ d));
  a = Rotate<shift>(a) + b;
}

template <int shift>
inline void StepG(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t addend) {
  a += addend;
  a += c & ~d;
  Settle(a);
  a += b & d;
  a = Rotate<shift>(a) + b;
}

template <int shift>
inline void StepH(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t addend) {
  a += addend;
  Settle(a);
  a += b ^ (c ^ d);
  a = Rotate<shift>(a) + b;
}

template <int shift>
inline void StepI(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t addend) {
  a += addend;
  Settle(a);
  a += c ^ (b | ~d);
  a = Rotate<shift>(a) + b;
}

struct Chain {
  std::uint32_t a, b, c, d;
};

inline void Round1(Chain& v, const unsigned char* x) {
  auto four = [&](std::size_t k, std::uint32_t t0, std::uint32_t t1, std::uint32_t t2, std::uint32_t t3) {
    StepF<7>(v.a, v.b, v.c, v.d, LoadLittle32(x + 4 * k) + t0);
    StepF<12>(v.d, v.a, v.b, v.c, LoadLittle32(x + 4 * k + 4) + t1);
    StepF<17>(v.c, v.d, v.a, v.b, LoadLittle32(x + 4 * k + 8) + t2);
    StepF<22>(v.b, v.c, v.d, v.a, LoadLittle32(x + 4 * k + 12) + t3);
  };
  four(0, 0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE);
  four(4, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501);
  four(8, 0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE);
  four(12, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821);
}

inline void Round2(Chain& v, const unsigned char* x) {
  auto four = [&](std::size_t k, std::uint32_t t0, std::uint32_t t1, std::uint32_t t2, std::uint32_t t3) {
    StepG<5>(v.a, v.b, v.c, v.d, LoadLittle32(x + 4 * k) + t0);
    StepG<9>(v.d, v.a, v.b, v.c, LoadLittle32(x + 4 * ((k + 5) & 15)) + t1);
    StepG<14>(v.c, v.d, v.a, v.b, LoadLittle32(x + 4 * ((k + 10) & 15)) + t2);
    StepG<20>(v.b, v.c, v.d, v.a, LoadLittle32(x + 4 * ((k + 15) & 15)) + t3);
  };
  four(1, 0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA);
  four(5, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8);
  four(9, 0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED);
  four(13, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A);
}

inline void Round3(Chain& v, const unsigned char* x) {
  auto four = [&](std::size_t k, std::uint32_t t0, std::uint32_t t1, std::uint32_t t2, std::uint32_t t3) {
    StepH<4>(v.a, v.b, v.c, v.d, LoadLittle32(x + 4 * k) + t0);
    StepH<11>(v.d, v.a, v.b, v.c, LoadLittle32(x + 4 * ((k + 3) & 15)) + t1);
    StepH<16>(v.c, v.d, v.a, v.b, LoadLittle32(x + 4 * ((k + 6) & 15)) + t2);
    StepH<23>(v.b, v.c, v.d, v.a, LoadLittle32(x + 4 * ((k + 9) & 15)) + t3);
  };
  four(5, 0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C);
  four(1, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70);
  four(13, 0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05);
  four(9, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665);
}

inline void Round4(Chain& v, const unsigned char* x) {
  auto four = [&](std::size_t k, std::uint32_t t0, std::uint32_t t1, std::uint32_t t2, std::uint32_t t3) {
    StepI<6>(v.a, v.b, v.c, v.d, LoadLittle32(x + 4 * k) + t0);
    StepI<10>(v.d, v.a, v.b, v.c, LoadLittle32(x + 4 * ((k + 7) & 15)) + t1);
    StepI<15>(v.c, v.d, v.a, v.b, LoadLittle32(x + 4 * ((k + 14) & 15)) + t2);
    StepI<21>(v.b, v.c, v.d, v.a, LoadLittle32(x + 4 * ((k + 5) & 15)) + t3);
  };
  four(0, 0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039);
  four(12, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1);
  four(8, 0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1);
  four(4, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391);
}

}  // namespace

void Md5Blocks(std::uint32_t words[4], const unsigned char* data, std::size_t blocks) {
  Chain v{words[0], words[1], words[2], words[3]};
  for (; blocks != 0; --blocks, data += kBlockSize) {
    const Chain before = v;
    Round1(v, data);
    Round2(v, data);
    Round3(v, data);
    Round4(v, data);
    v.a += before.a;
    v.b += before.b;
    v.c += before.c;
    v.d += before.d;
  }
  words[0] = v.a;
  words[1] = v.b;
  words[2] = v.c;
  words[3] = v.d;
}

void md5_init(Md5State* state) {
  *state = Md5State{};
  state->words[0] = 0x67452301;
  state->words[1] = 0xEFCDAB89;
  state->words[2] = 0x98BADCFE;
  state->words[3] = 0x10325476;
}

void md5_append(Md5State* state, const unsigned char* data, std::size_t length) {
  if (length == 0) {
    return;
  }
  const std::size_t used = static_cast<std::size_t>(state->bitCount / 8 % kBlockSize);
  state->bitCount += static_cast<std::uint64_t>(length) * 8;
  if (used != 0) {
    const std::size_t missing = kBlockSize - used;
    if (length < missing) {
      std::memcpy(state->block + used, data, length);
      return;
    }
    std::memcpy(state->block + used, data, missing);
    Md5Blocks(state->words, state->block, 1);
    data += missing;
    length -= missing;
  }
  Md5Blocks(state->words, data, length / kBlockSize);
  if (length % kBlockSize != 0) {
    std::memcpy(state->block, data + length / kBlockSize * kBlockSize, length % kBlockSize);
  }
}

void md5_finish(Md5State* state, unsigned char digest[16]) {
  unsigned char count[8];
  StoreLittle32(count, static_cast<std::uint32_t>(state->bitCount));
  StoreLittle32(count + 4, static_cast<std::uint32_t>(state->bitCount >> 32));
  const std::size_t used = static_cast<std::size_t>(state->bitCount / 8 % kBlockSize);
  md5_append(state, kPadding, (used < kCountOffset ? kCountOffset : kBlockSize + kCountOffset) - used);
  md5_append(state, count, sizeof(count));
  for (std::size_t i = 0; i < 4; ++i) {
    StoreLittle32(digest + 4 * i, state->words[i]);
  }
}

void WipeMemory(void* memory, std::size_t size) {
  // A call through a volatile pointer is not seen through, and so not dropped as a dead store.
  static void* (*const volatile fill)(void*, int, std::size_t) = &std::memset;
  fill(memory, 0, size);
}

}  // namespace qsbase::detail
