#include <QSbase/text/hexkernel.h>
#include <gtest/gtest.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <string>

namespace {

using namespace qsbase::detail;
using qsbase::test::OnEveryLevel;

constexpr std::size_t kMostPairs = 300;

const HexKernels& Kernels() { return HexKernelsOf(CurrentSimdLevel()); }

/// Bytes of a block of their own, at a chosen distance from its start.
struct Block {
  Block(std::size_t alignment, const std::string& content)
      : block(new unsigned char[alignment + content.size()]), data(block.get() + alignment), size(content.size()) {
    std::copy(content.begin(), content.end(), data);
  }
  std::string Content(std::size_t length) const { return {data, data + length}; }

  std::unique_ptr<unsigned char[]> block;
  unsigned char* data;
  std::size_t size;
};

std::string Random(std::size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
  return bytes;
}

char DigitOf(unsigned int value, bool small) {
  return static_cast<char>(value < 10 ? '0' + value : (small ? 'a' : 'A') + value - 10);
}

std::string EncodedSlowly(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    text += {DigitOf(static_cast<unsigned char>(c) / 16, false), DigitOf(static_cast<unsigned char>(c) % 16, false)};
  }
  return text;
}

TEST(HexEncode, EveryLengthAndAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(1);
    for (std::size_t length = 0; length <= kMostPairs; ++length) {
      const std::string bytes = Random(length, random);
      const std::string expected = EncodedSlowly(bytes);
      for (std::size_t alignment = 0; alignment < 64; ++alignment) {
        const Block in(alignment, bytes);
        const Block out(63 - alignment, std::string(2 * length, '#'));
        Kernels().encode(in.data, length, out.data);
        ASSERT_EQ(out.Content(2 * length), expected) << length << " at " << alignment;
      }
    }
  });
}

TEST(HexEncode, EveryByteAtEveryPlace) {
  OnEveryLevel([] {
    for (unsigned int c = 0; c < 256; ++c) {
      for (std::size_t at = 0; at < 70; ++at) {
        std::string bytes(70, '\x5A');
        bytes[at] = static_cast<char>(c);
        const Block in(0, bytes);
        const Block out(0, std::string(140, '#'));
        Kernels().encode(in.data, 70, out.data);
        ASSERT_EQ(out.Content(140), EncodedSlowly(bytes)) << c << " at " << at;
      }
    }
  });
}

/// Digits of either case.
std::string Digits(std::size_t size, std::mt19937& random) {
  std::string text(size, '\0');
  std::generate(text.begin(), text.end(), [&random] { return DigitOf(random() % 16, random() % 2 == 0); });
  return text;
}

std::string DecodedSlowly(const std::string& text) {
  const std::string all = "0123456789abcdef";
  std::string bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    std::size_t value = 0;
    for (char c : {text[i], text[i + 1]}) {
      c = static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : c);
      if (all.find(c) == all.npos) {
        return bytes;
      }
      value = value * 16 + all.find(c);
    }
    bytes += static_cast<char>(value);
  }
  return bytes;
}

/// The result and everything behind it in the room for all pairs, which stays as it was.
std::string DecodedWithKernel(const std::string& text, std::size_t alignment) {
  const Block in(alignment, text);
  const Block out(63 - alignment, std::string(text.size() / 2, '#'));
  const std::size_t done = Kernels().decode(in.data, text.size() / 2, out.data);
  EXPECT_EQ(out.Content(out.size).substr(done), std::string(out.size - done, '#'));
  return out.Content(done);
}

std::string DecodedInPlace(const std::string& text) {
  const Block block(0, text);
  return block.Content(Kernels().decode(block.data, text.size() / 2, block.data));
}

TEST(HexDecode, EveryLengthAndAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(2);
    for (std::size_t pairs = 0; pairs <= kMostPairs; ++pairs) {
      const std::string text = Digits(2 * pairs, random);
      const std::string expected = DecodedSlowly(text);
      ASSERT_EQ(expected.size(), pairs);
      ASSERT_EQ(DecodedInPlace(text), expected) << pairs;
      for (std::size_t alignment = 0; alignment < 64; ++alignment) {
        ASSERT_EQ(DecodedWithKernel(text, alignment), expected) << pairs << " at " << alignment;
      }
    }
  });
}

TEST(HexDecode, EveryCharacterAtEveryPlace) {
  OnEveryLevel([] {
    std::mt19937 random(3);
    const std::string digits = Digits(260, random);
    for (int c = 0; c < 256; ++c) {
      for (std::size_t at = 0; at < digits.size(); ++at) {
        std::string text = digits;
        text[at] = static_cast<char>(c);
        ASSERT_EQ(DecodedWithKernel(text, at % 64), DecodedSlowly(text)) << c << " at " << at;
        ASSERT_EQ(DecodedInPlace(text), DecodedSlowly(text)) << c << " at " << at;
      }
    }
  });
}

}  // namespace
