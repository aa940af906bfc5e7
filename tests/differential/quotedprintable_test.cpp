#include <gtest/gtest.h>
#include <reference/quotedprintable.h>

#include <string>
#include <vector>

#include "agreement.h"
#include "inputs.h"

namespace qsbase::differential {
namespace {

const std::string kSpecials("=\r\n\0 \t09AFafgG?_~\x7F\x80\xFF", 21);

/// Of encode's four flag bits, any.
int Flags(Random& random) {
  int flags = 0;
  for (int bit : {0x20, 0x40, 0x200, 0x400}) {
    flags |= random.OneIn(2) ? bit : 0;
  }
  return flags;
}

std::uint32_t LineLength(Random& random) {
  return static_cast<std::uint32_t>(random.OneIn(3) ? random.Below(100) : random.Of(LineLengths()));
}

/// Text as people write it, bytes, what is special, or runs.
std::string Data(Random& random, std::size_t size) {
  switch (random.Below(6)) {
    case 0:
      return random.Bytes(size);
    case 1:
      return random.From(kSpecials, size);
    case 2:
      return random.Runs(kSpecials, size);
    case 3:
      return random.Damaged(random.From("abcdefghijklmnopqrstuvwxyz0123,;.:()", size), kSpecials);
    default: {
      const std::string text = random.From("abcdefghij klmno pqrst uvwxyz .,ABCDE", size);
      return random.Damaged(random.OneIn(2) ? text : random.Broken(text).substr(0, size), kSpecials);
    }
  }
}

std::string Encoded(Random& random, std::size_t size) {
  const std::uint32_t lineLength = random.OneIn(2) ? 76 : LineLength(random);
  return reference::QpEncode(Data(random, size), lineLength, Flags(random));
}

TEST(DifferentialQp, KnownTextsOfTheReference) {
  EXPECT_EQ(reference::QpEncode("=======", 20, 0), "=3D=3D=3D=3D=3D=3D=\r\n=3D");
  EXPECT_EQ(reference::QpEncode(std::string(17, 'a') + "=b", 20, 0), std::string(17, 'a') + "=3D=\r\nb");
  EXPECT_EQ(reference::QpEncode(std::string(21, 'a'), 20, 0), std::string(20, 'a') + "=\r\na");
  EXPECT_EQ(reference::QpEncode("a b", 76, 0), "a b");
  EXPECT_EQ(reference::QpEncode("a ", 76, 0), "a=20");
  EXPECT_EQ(reference::QpEncode("a \r\nb", 76, 0x200), "a \r\nb");
  EXPECT_EQ(reference::QpDecode("=41").data, "=41");
  EXPECT_EQ(reference::QpDecode("=41").illegal, 1u);
  EXPECT_EQ(reference::QpDecode("=41\n").data, "A\n");
  EXPECT_EQ(reference::QpDecode("a=\n\nb").data, "ab");
}

TEST(DifferentialQp, EncodesEverySizeAtEveryAlignment) {
  Random random(11);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareQpEncode(Data(random, size), LineLength(random), Flags(random), alignment);
  });
}

TEST(DifferentialQp, EncodesUnderAllFlags) {
  Random random(12);
  Times(60000, [&] {
    return CompareQpEncode(Data(random, random.Size()), LineLength(random), Flags(random), random.Below(64));
  });
}

TEST(DifferentialQp, EncodesEveryByteAtEveryPlace) {
  Random random(13);
  EveryByteAtEveryPlace(random.From("abcdefgh ", 100), [&](const std::string& data) {
    return CompareQpEncode(data, random.OneIn(2) ? 76 : 20, Flags(random), random.Below(64));
  });
}

TEST(DifferentialQp, CountsWhatFits) {
  Random random(14);
  Times(60000, [&] {
    const std::size_t size = random.Size();
    const auto room = static_cast<std::uint32_t>(random.Below(size * 3 + 2));
    const int flags = Flags(random) | (random.OneIn(3) ? 0x80 : 0);
    return CompareQpFitting(Data(random, size), LineLength(random), room, flags, random.Below(64));
  });
}

TEST(DifferentialQp, DecodesEverySizeAtEveryAlignment) {
  Random random(15);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareQpDecode(Encoded(random, size).substr(0, size), alignment);
  });
}

TEST(DifferentialQp, DecodesEveryByteAtEveryPlace) {
  Random random(16);
  const std::string text =
      reference::QpEncode(random.Bytes(10) + random.From("abcdefgh ", 60) + random.Bytes(20), 40, 0);
  EveryByteAtEveryPlace(text, [&](const std::string& changed) { return CompareQpDecode(changed, random.Below(64)); });
}

TEST(DifferentialQp, DecodesDamagedTexts) {
  Random random(17);
  Times(70000,
        [&] { return CompareQpDecode(random.Damaged(Encoded(random, random.Size()), kSpecials), random.Below(64)); });
}

TEST(DifferentialQp, DecodesNoise) {
  Random random(18);
  Times(50000, [&] {
    const std::size_t size = random.Size();
    return CompareQpDecode(random.OneIn(2) ? random.From(kSpecials, size) : random.Runs("=\r\n4", size),
                           random.Below(64));
  });
}

TEST(DifferentialQp, LongInputs) {
  Random random(19);
  const std::vector<std::size_t> sizes = {0xFFFFF, 0x100000, 0x100001, 0x100010};
  std::size_t number = 0;
  Times(8, [&] {
    const std::size_t size = ++number % 2 == 0 ? sizes[number / 2 % 4] : 65536 + random.Below(1500000);
    std::string data = Data(random, size);
    data.resize(size, 'x');
    data.back() = random.OneIn(2) ? ' ' : '\t';
    const std::uint32_t lineLength = random.OneIn(2) ? 76 : LineLength(random);
    const int flags = Flags(random);
    const std::string difference = CompareQpEncode(data, lineLength, flags, random.Below(64));
    const std::string text = reference::QpEncode(data, lineLength, flags);
    return difference.empty() ? CompareQpDecode(random.Damaged(text, kSpecials, true), random.Below(64)) : difference;
  });
}

}  // namespace
}  // namespace qsbase::differential
