#include <gtest/gtest.h>
#include <reference/base64.h>

#include <string>

#include "agreement.h"
#include "inputs.h"

namespace qsbase::differential {
namespace {

const std::string kSpecials("=\r\n\0-_ !+/\x7F\x80\xFF", 13);

/// Characters of an encoded text, without breaks.
std::string Characters(Random& random, std::size_t size) {
  return reference::Base64Encode(random.Bytes(size / 4 * 3 + 3), 0).substr(0, size);
}

TEST(DifferentialBase64, KnownTextsOfTheReference) {
  EXPECT_EQ(reference::Base64Encode("foobar", 76), "Zm9vYmFy");
  EXPECT_EQ(reference::Base64Encode("fooba", 76), "Zm9vYmE=");
  EXPECT_EQ(reference::Base64Encode("foob", 76), "Zm9vYg==");
  EXPECT_EQ(reference::Base64Encode(std::string(16, 'A'), 20), "QUFBQUFBQUFBQUFBQUFB\r\nQQ==");
  EXPECT_EQ(reference::Base64Encode(std::string(15, 'A'), 20), "QUFBQUFBQUFBQUFBQUFB\r\n");
  EXPECT_EQ(reference::Base64Decode("QU JD").data, "ABC");
  EXPECT_EQ(reference::Base64Decode("QU JD").illegal, 1u);
  EXPECT_EQ(reference::Base64Decode("QUJD=QUJD").parsed, 5u);
  EXPECT_EQ(reference::Base64Decode("Zm9vYg==").data, "foob");
}

TEST(DifferentialBase64, EncodesEverySizeAtEveryAlignment) {
  Random random(1);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareBase64Encode(random.Bytes(size), random.Of(LineLengths()), alignment);
  });
}

TEST(DifferentialBase64, EncodesInEveryLineLength) {
  Random random(2);
  Times(60000, [&] {
    const auto lineLength = static_cast<std::uint32_t>(random.OneIn(2) ? random.Of(LineLengths()) : random.Below(300));
    return CompareBase64Encode(random.Bytes(random.Size()), lineLength, random.Below(64));
  });
}

TEST(DifferentialBase64, DecodesEverySizeAtEveryAlignment) {
  Random random(3);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    const std::string text = random.Broken(Characters(random, size)).substr(0, size);
    return CompareBase64Decode(text, alignment);
  });
}

TEST(DifferentialBase64, DecodesEveryByteAtEveryPlace) {
  Random random(4);
  EveryByteAtEveryPlace(reference::Base64Encode(random.Bytes(150), 76),
                        [&](const std::string& text) { return CompareBase64Decode(text, random.Below(64)); });
}

TEST(DifferentialBase64, DecodesDamagedTexts) {
  Random random(5);
  Times(100000, [&] {
    const std::string text = random.Broken(Characters(random, random.Size()));
    return CompareBase64Decode(random.Damaged(text, kSpecials), random.Below(64));
  });
}

TEST(DifferentialBase64, DecodesNoise) {
  Random random(6);
  const std::string pool = "ABCDEFGHabcdefgh0123+/ABCDEFGHabcdefgh0123+/\r\n\r\n~";
  Times(50000, [&] {
    const std::size_t size = random.Size();
    const std::string text = random.OneIn(4) ? random.Bytes(size) : random.From(pool, size);
    return CompareBase64Decode(text, random.Below(64));
  });
}

TEST(DifferentialBase64, LongInputs) {
  Random random(7);
  Times(12, [&] {
    const std::size_t size = 65536 + random.Below(2000000);
    const std::string text = random.Broken(Characters(random, size));
    const std::string difference =
        CompareBase64Decode(random.OneIn(3) ? text : random.Damaged(text, "\r\n !~", true), random.Below(64));
    return difference.empty() ? CompareBase64Encode(text, random.Of(LineLengths()), random.Below(64)) : difference;
  });
}

}  // namespace
}  // namespace qsbase::differential
