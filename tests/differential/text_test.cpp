#include <gtest/gtest.h>
#include <reference/characters.h>
#include <reference/hextext.h>
#include <reference/md5.h>
#include <reference/yenc.h>

#include <string>

#include "agreement.h"
#include "inputs.h"

namespace qsbase::differential {
namespace {

const std::string kHexSpecials("\0\x01/:@G`gx 0Ff\x80\xFF", 15);
const std::string kClassPool("aZ0_ \t\r\n\0\x1F\x7F\x80\x8A\xC0\xD6\xD7\xDE\xDF\xE0\xF7\xFF\x9F", 22);

std::string Digits(Random& random, std::size_t size) { return random.From("0123456789ABCDEFabcdef", size); }

TEST(DifferentialText, KnownTextsOfTheReference) {
  std::string masks;
  std::string lower;
  std::string upper;
  for (int c = 0; c < 256; ++c) {
    const unsigned int classes = reference::ClassesOf(static_cast<unsigned char>(c));
    for (int shift : {0, 8, 16, 24}) {
      masks += static_cast<char>(classes >> shift);
    }
    lower += static_cast<char>(reference::LowerOf(static_cast<unsigned char>(c)));
    upper += static_cast<char>(reference::UpperOf(static_cast<unsigned char>(c)));
  }
  EXPECT_EQ(reference::Crc32(masks), 0xFC9A95FFu);
  EXPECT_EQ(reference::Crc32(lower), 0x1A778B0Cu);
  EXPECT_EQ(reference::Crc32(upper), 0x2C121A5Au);
  EXPECT_EQ(reference::HexEncode(reference::Md5("")), "D41D8CD98F00B204E9800998ECF8427E");
  EXPECT_EQ(reference::HexEncode(reference::Md5("message digest")), "F96B697D7CB7938D525A2F31AAF161D0");
  EXPECT_EQ(reference::HexDecode("410042").data, std::string("A\0B", 3));
  EXPECT_EQ(reference::HexDecode("4G").error, "character in '4G' is not a hex character");
}

TEST(DifferentialText, HexEncodesEverySizeAtEveryAlignment) {
  Random random(61);
  EverySizeAndAlignment(
      [&](std::size_t size, std::size_t alignment) { return CompareHexEncode(random.Bytes(size), alignment); });
}

TEST(DifferentialText, HexDecodesEverySizeAtEveryAlignment) {
  Random random(62);
  EverySizeAndAlignment(
      [&](std::size_t size, std::size_t alignment) { return CompareHexDecode(Digits(random, size), alignment); });
}

TEST(DifferentialText, HexDecodesEveryByteAtEveryPlace) {
  Random random(63);
  EveryByteAtEveryPlace(Digits(random, 140),
                        [&](const std::string& text) { return CompareHexDecode(text, random.Below(64)); });
}

TEST(DifferentialText, HexDecodesDamagedTexts) {
  Random random(64);
  Times(50000, [&] {
    const std::string text = Digits(random, random.Size() / 2 * 2);
    return CompareHexDecode(random.Damaged(text, kHexSpecials, !random.OneIn(4)), random.Below(64));
  });
}

TEST(DifferentialText, HexUnescapes) {
  Random random(65);
  Times(60000, [&] {
    const char escape = random.OneIn(4) ? static_cast<char>(random.Below(256)) : '%';
    std::string text;
    for (std::size_t left = random.Below(60); left > 0; --left) {
      text += random.OneIn(3) ? random.From("%ab.", random.Below(80)) : escape + Digits(random, 2);
    }
    return CompareUnescapeHex(random.OneIn(2) ? text : text.substr(0, random.Below(text.size() + 1)), escape);
  });
}

TEST(DifferentialText, MapsCaseOfEverySizeAtEveryAlignment) {
  Random random(66);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareCase(random.OneIn(2) ? random.Bytes(size) : random.From(kClassPool, size), alignment);
  });
}

TEST(DifferentialText, MapsCaseOfEveryByteAtEveryPlace) {
  Random random(67);
  EveryByteAtEveryPlace(std::string(80, 'A'),
                        [&](const std::string& text) { return CompareCase(text, random.Below(64)); });
}

TEST(DifferentialText, TrimsAndStripsByClasses) {
  Random random(68);
  Times(50000, [&] {
    const std::size_t size = random.Size();
    const std::string text = random.OneIn(3) ? random.Runs(kClassPool, size) : random.From(" \t\r\na,.", size);
    const unsigned int mask =
        random.OneIn(2) ? 1u << random.Below(14) : static_cast<unsigned int>(random.Below(0x4000));
    return CompareClasses(text, random.OneIn(4) ? 0x20 : mask);
  });
}

TEST(DifferentialText, SkipsLines) {
  Random random(69);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    std::string text = random.OneIn(2) ? std::string(size, 'x') : random.From("\r\n \t\v\f", size);
    if (size > 0 && !random.OneIn(8)) {
      text[random.Below(size)] = random.From("\r\n x\v\x80\x8D\x8A", 1)[0];
    }
    return CompareSkips(text, alignment);
  });
}

TEST(DifferentialText, DigestsEverySizeAtEveryAlignment) {
  Random random(70);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareMd5(random.Bytes(size), 1 + random.Below(150), alignment);
  });
}

TEST(DifferentialText, LongInputs) {
  Random random(71);
  Times(4, [&] {
    const std::size_t size = 65536 + random.Below(1000000);
    const std::string text = random.Bytes(size);
    std::string difference = CompareHexEncode(text, random.Below(64));
    difference += CompareHexDecode(reference::HexEncode(text), random.Below(64));
    difference += CompareCase(text, random.Below(64));
    difference += CompareClasses(random.Runs(kClassPool, size), 0x20);
    return difference + CompareMd5(text, 1 + random.Below(100000), random.Below(64));
  });
}

}  // namespace
}  // namespace qsbase::differential
