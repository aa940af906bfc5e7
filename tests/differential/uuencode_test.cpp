#include <gtest/gtest.h>
#include <reference/uuencode.h>

#include <algorithm>
#include <string>
#include <vector>

#include "agreement.h"
#include "inputs.h"

namespace qsbase::differential {
namespace {

constexpr int kXx = 0x8;
constexpr int kDetect = 0x10;
constexpr int kSkipHeader = 0x100;

const std::string kSpecials("\r\n\0` +-z!~Mh\x1F\x7F\x80\xFF", 16);
const std::string kXxDigits = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// Lines as an encoder makes them, of other lengths, with another break, with check characters at their ends.
std::string Lines(Random& random, std::size_t size, bool isXx) {
  static const std::vector<std::string> kBreaks = {"\r\n", "\r\n", "\n", "\r", "\n\n"};
  const std::size_t longest = random.OneIn(2) ? 45 : 1 + random.Below(63);
  const std::string lineBreak = random.Of(kBreaks);
  const bool isChecked = random.OneIn(5);
  const bool isUneven = random.OneIn(4);
  std::string text;
  int number = 0;
  for (std::size_t at = 0; at <= size; ++number) {
    const std::size_t count = std::min(size - at, isUneven ? 1 + random.Below(longest) : longest);
    const std::string line = reference::UuEncode(random.Bytes(std::min<std::size_t>(count, 45)), isXx ? kXx : 0);
    text += line.substr(0, line.find("\r\n"));
    text += isChecked ? std::string(1, static_cast<char>('z' - number % 26)) : "";
    text += lineBreak;
    at += std::max<std::size_t>(count, 1);
  }
  return text + (isXx ? "+" : "`") + (random.OneIn(4) ? "" : lineBreak);
}

/// A line of any length that its count fits, or nearly fits.
std::string OddLine(Random& random, bool isXx) {
  const std::size_t groups = random.Below(24);
  const std::size_t count = groups * 3 + 2 - random.Below(random.OneIn(8) ? 6 : 5);
  const std::string digits = isXx ? kXxDigits : random.OneIn(8) ? random.Bytes(60) : " !#0A[_`";
  const char first = isXx ? kXxDigits[std::min<std::size_t>(count, 63)] : static_cast<char>(count + 32);
  return first + random.From(digits, groups * 4) + (random.OneIn(3) ? "\n" : "\r\n");
}

int Flags(Random& random, bool isXx) {
  const int kind = random.OneIn(6) ? kDetect : isXx ? kXx : 0;
  return kind | (random.OneIn(8) ? kSkipHeader : 0);
}

std::string Header(Random& random) {
  static const std::vector<std::string> kHeaders = {
      "begin 644 a.bin\r\n", "BEGIN 0644 a\n", "Subject: x\r\n\r\nBegin   777 \r",
      "begin 64 x\r\n",      "beginning\r\n",  ""};
  return random.Damaged(random.Of(kHeaders), "b \r\n07");
}

TEST(DifferentialUu, KnownTextsOfTheReference) {
  EXPECT_EQ(reference::UuEncode("Cat", 0), "#0V%T\r\n`\r\n");
  EXPECT_EQ(reference::UuEncode("Cats", 0), "$0V%T<P``\r\n`\r\n");
  EXPECT_EQ(reference::UuEncode("Cat", kXx), "1Eq3o\r\n+\r\n");
  EXPECT_EQ(reference::UuDecode("#0V%Tz", 0).data, "Cat");
  EXPECT_EQ(reference::UuDecode("$0V%T<P``\r\n`\r\n", 0).data, "Cats");
  EXPECT_EQ(reference::UuDecode("x\nbegin 644 y\n1Eq3o", kDetect | kSkipHeader).data, "Cat");
  EXPECT_EQ(reference::UuDecode("#0V%T\r\nend\r\n123", 0).status, -6);
  EXPECT_EQ(reference::UuOrXx("1Eq3o"), 2);
  EXPECT_EQ(reference::UuOrXx("#0V%T"), 1);
}

TEST(DifferentialUu, EncodesEverySizeAtEveryAlignment) {
  Random random(21);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    return CompareUuEncode(random.Bytes(size), alignment % 3 == 0 ? kXx : 0, alignment);
  });
}

TEST(DifferentialUu, EncodesRandomInputs) {
  Random random(22);
  Times(60000, [&] {
    const std::size_t size = random.Size();
    const std::string data = random.OneIn(3) ? random.Runs(std::string("\0\xFF", 2), size) : random.Bytes(size);
    return CompareUuEncode(data, random.OneIn(2) ? kXx : 0, random.Below(64));
  });
}

TEST(DifferentialUu, DecodesEverySizeAtEveryAlignment) {
  Random random(23);
  EverySizeAndAlignment([&](std::size_t size, std::size_t alignment) {
    const bool isXx = random.OneIn(2);
    return CompareUuDecode(Lines(random, size, isXx).substr(0, size), isXx ? kXx : 0, alignment);
  });
}

TEST(DifferentialUu, DecodesEveryByteAtEveryPlace) {
  Random random(24);
  for (const bool isXx : {false, true}) {
    const std::string text = reference::UuEncode(random.Bytes(110), isXx ? kXx : 0);
    EveryByteAtEveryPlace(text, [&](const std::string& changed) {
      return CompareUuDecode(changed, random.OneIn(4) ? kDetect : isXx ? kXx : 0, random.Below(64));
    });
  }
}

TEST(DifferentialUu, DecodesWhatIsCutAnywhere) {
  Random random(25);
  const std::string text = "begin 644 a\r\n" + reference::UuEncode(random.Bytes(200), 0) + "end\r\n";
  CutEverywhere(text, [&](const std::string& cut) { return CompareUuDecode(cut, kSkipHeader | kDetect, 0); });
}

TEST(DifferentialUu, DecodesDamagedTexts) {
  Random random(26);
  Times(80000, [&] {
    const bool isXx = random.OneIn(2);
    const std::string text = random.Damaged(Lines(random, random.Size(), isXx), kSpecials, !random.OneIn(4));
    const int flags = Flags(random, isXx);
    return CompareUuDecode((flags & kSkipHeader) != 0 ? Header(random) + text : text, flags, random.Below(64));
  });
}

TEST(DifferentialUu, DecodesOddLines) {
  Random random(27);
  Times(60000, [&] {
    const bool isXx = random.OneIn(2);
    std::string text;
    for (std::size_t left = random.Below(12); left > 0; --left) {
      text += OddLine(random, isXx);
    }
    return CompareUuDecode(isXx && random.OneIn(2) ? random.Damaged(text, "!~*", true) : text, isXx ? kXx : 0,
                           random.Below(64));
  });
}

TEST(DifferentialUu, LongInputs) {
  Random random(28);
  Times(12, [&] {
    const bool isXx = random.OneIn(2);
    const std::string text = Lines(random, 65536 + random.Below(1000000), isXx);
    const std::string difference = CompareUuEncode(text, isXx ? kXx : 0, random.Below(64));
    return difference.empty() ? CompareUuDecode(isXx ? random.Damaged(text, "!~*", true) : text, isXx ? kXx : kDetect,
                                                random.Below(64))
                              : difference;
  });
}

}  // namespace
}  // namespace qsbase::differential
