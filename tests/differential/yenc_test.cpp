#include <gtest/gtest.h>
#include <reference/yenc.h>

#include <string>
#include <vector>

#include "agreement.h"
#include "inputs.h"

namespace qsbase::differential {
namespace {

constexpr int kHeader = 0x1000;
constexpr int kPlain = 0x4000;

/// What becomes an escape: the bytes of NUL, LF, CR, "=", TAB and ".".
const std::string kEscaped = "\xD6\xE0\xE3\x13\xDF\x04";
const std::string kSpecials("=\r\n\0y.=b\t}", 10);

std::string Data(Random& random, std::size_t size) {
  switch (random.Below(4)) {
    case 0:
      return random.From(kEscaped + "ab", size);
    case 1:
      return random.Damaged(random.From("abcdefgh", size), kEscaped, true);
    default:
      return random.Bytes(size);
  }
}

reference::YEncFields Fields(Random& random) {
  static const std::vector<std::uint32_t> kLines = {1,  2,  3,  4,   16,  31,  32,  60,  61,  62,  63,  64,
                                                    65, 72, 76, 124, 126, 127, 128, 129, 130, 256, 1000};
  reference::YEncFields fields;
  fields.line = random.OneIn(4) ? static_cast<std::uint32_t>(1 + random.Below(300)) : random.Of(kLines);
  fields.part = random.OneIn(2) ? static_cast<std::int32_t>(random.Below(100)) : -1;
  fields.total = random.OneIn(2) ? static_cast<std::int32_t>(random.Below(100)) : -1;
  fields.size = random.OneIn(2) ? static_cast<std::uint32_t>(random.Below(4000000000)) : 0;
  fields.begin = static_cast<std::uint32_t>(random.Below(1000));
  fields.end = static_cast<std::uint32_t>(random.Below(100000));
  fields.name = random.OneIn(2) ? random.From("abc .\"-\xE4", 1 + random.Below(20)) + "x" : "";
  return fields;
}

int Flags(Random& random) { return (random.OneIn(4) ? kHeader : 0) | (random.OneIn(3) ? kPlain : 0); }

std::string Encoded(Random& random, std::size_t size) {
  return reference::YEncEncode(Data(random, size), Fields(random), random.OneIn(3) ? kPlain : 0);
}

TEST(DifferentialYEnc, KnownTextsOfTheReference) {
  EXPECT_EQ(reference::Crc32("123456789"), 0xCBF43926u);
  reference::YEncFields fields;
  fields.part = 1;
  fields.begin = 1;
  fields.end = 3;
  fields.name = "a.bin";
  EXPECT_EQ(reference::YEncEncode("abc", fields, kHeader),
            "=ybegin part=1 line=128 size=3 name=a.bin\r\n=ypart begin=1 end=3\r\n\x8B\x8C\x8D\r\n"
            "=yend size=3 part=1 pcrc32=352441c2\r\n");
  EXPECT_EQ(reference::YEncEncode(kEscaped, {}, 0), "=@=J=M=}=I=n\r\n");
  EXPECT_EQ(reference::YEncDecode("=@=J=M=}=I=n\r\n").data, kEscaped);
  EXPECT_EQ(reference::YEncEncode(std::string(128, 'a'), {}, 0).size(), 130u);
  EXPECT_EQ(reference::YEncEncode(std::string(129, 'a'), {}, 0).size(), 133u);
}

TEST(DifferentialYEnc, EncodesEverySizeAtEveryAlignment) {
  Random random(31);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareYEncEncode(Data(random, size), Fields(random), Flags(random), alignment);
  });
}

TEST(DifferentialYEnc, EncodesRandomInputs) {
  Random random(32);
  Times(50000, [&] {
    return CompareYEncEncode(Data(random, random.Size()), Fields(random), Flags(random), random.Below(64));
  });
}

TEST(DifferentialYEnc, EncodesEveryByteAtEveryPlace) {
  Random random(33);
  reference::YEncFields fields;
  EveryByteAtEveryPlace(random.From("abc\xE0", 140), [&](const std::string& data) {
    fields.line = random.OneIn(2) ? 128 : 1 + static_cast<std::uint32_t>(random.Below(140));
    return CompareYEncEncode(data, fields, random.OneIn(2) ? kPlain : 0, random.Below(64));
  });
}

TEST(DifferentialYEnc, DecodesEverySizeAtEveryAlignment) {
  Random random(34);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareYEncDecode(Encoded(random, size).substr(0, size), alignment);
  });
}

TEST(DifferentialYEnc, DecodesEveryByteAtEveryPlace) {
  Random random(35);
  EveryByteAtEveryPlace(reference::YEncEncode(random.Bytes(150), {}, 0),
                        [&](const std::string& text) { return CompareYEncDecode(text, random.Below(64)); });
}

TEST(DifferentialYEnc, DecodesDamagedTexts) {
  Random random(36);
  Times(80000,
        [&] { return CompareYEncDecode(random.Damaged(Encoded(random, random.Size()), kSpecials), random.Below(64)); });
}

TEST(DifferentialYEnc, DecodesNoise) {
  Random random(37);
  Times(60000, [&] {
    const std::size_t size = random.Size();
    const std::string text = random.OneIn(2) ? random.Runs("=\r\n", size) : random.From("==\r\nyab.\x9C", size);
    return CompareYEncDecode(text, random.Below(64));
  });
}

TEST(DifferentialYEnc, FindsBlocks) {
  Random random(38);
  const std::vector<std::string> pieces = {"=ybegin ",
                                           "=ybegin line=128 size=1\r\n",
                                           "=yend ",
                                           "=yend size=1 crc32=12345678\r\n",
                                           "=ypart begin=1 end=2\r\n",
                                           "name=a\r\n",
                                           "crc32=",
                                           "\r\n",
                                           "\n",
                                           "\r",
                                           "=",
                                           "=y",
                                           "=yb",
                                           " ",
                                           std::string(1, '\0'),
                                           "a",
                                           "\x8B\x8C"};
  Times(60000, [&] {
    std::string text;
    for (std::size_t left = random.Below(20); left > 0; --left) {
      text += random.OneIn(12) ? random.Bytes(random.Below(150)) : random.Of(pieces);
    }
    return CompareYEncBlock(text, random.Below(64));
  });
}

TEST(DifferentialYEnc, ReadsTheFieldsOfBlocks) {
  Random random(39);
  Times(20000, [&] {
    const std::string text = reference::YEncEncode(Data(random, 1 + random.Size()), Fields(random), kHeader);
    return CompareYEncFields(random.OneIn(2) ? "text\r\n" + text : text + "=ybegin \r\n");
  });
}

TEST(DifferentialYEnc, BlocksCutAnywhere) {
  Random random(40);
  const std::string text = "text\r\n" + reference::YEncEncode(random.Bytes(300), Fields(random), kHeader) + "\r\n\r\n.";
  CutEverywhere(text, [&](const std::string& cut) { return CompareYEncBlock(cut, random.Below(64)); });
}

TEST(DifferentialYEnc, LongInputs) {
  Random random(41);
  Times(6, [&] {
    const std::string data = Data(random, 65536 + random.Below(1500000));
    reference::YEncFields fields = Fields(random);
    const std::string text = reference::YEncEncode(data, fields, kHeader);
    std::string difference = CompareYEncEncode(data, fields, Flags(random), random.Below(64));
    difference += CompareYEncBlock(random.OneIn(2) ? text : random.Damaged(text, "=\r\ny", true), random.Below(64));
    return difference + CompareYEncDecode(random.Damaged(text, "=\r\ny", true), random.Below(64));
  });
}

}  // namespace
}  // namespace qsbase::differential
