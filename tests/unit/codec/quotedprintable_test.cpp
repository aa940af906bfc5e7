#include <QSbase/codec/encodedecode.h>
#include <gtest/gtest.h>
#include <tests/common/sanitized.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#if defined(__linux__) && !defined(QSBASE_TESTS_SANITIZED)
#define HAS_ADDRESS_SPACE_LIMIT
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#endif

namespace {

using qsbase::test::OnEveryLevel;

constexpr int kEncodeBlanks = 0x20;
constexpr int kEncodeQuestion = 0x40;
constexpr int kCountBlanksEncoded = 0x80;
constexpr int kHardBreaks = 0x200;
constexpr int kLiteralSpecials = 0x400;
constexpr int kArrayBuffers = 0x10000000;
constexpr std::size_t kShortText = 0x100000;

/// A copy in a block that ends where the copy ends, so that AddressSanitizer sees every overrun.
class Block {
 public:
  explicit Block(const std::string& text, std::size_t offset = 0)
      : _memory(new char[offset + text.size()]), _data(_memory.get() + offset) {
    std::copy(text.begin(), text.end(), _data);
  }
  char* Data() { return _data; }

 private:
  std::unique_ptr<char[]> _memory;
  char* _data;
};

unsigned int Length(const std::string& text) { return static_cast<unsigned int>(text.size()); }

std::string Encoded(const std::string& data, int flags = 0, unsigned int lineLength = 75, std::size_t offset = 0) {
  CEncodeDecode coder(lineLength, 76);
  char* text = nullptr;
  unsigned int length = 99;
  EXPECT_EQ(coder.EncodeQP(Block(data, offset).Data(), Length(data), &text, length, flags), 0);
  const std::string result(text == nullptr ? "" : text, length);
  EXPECT_EQ(coder.GetNumberParsedChars(), data.size());
  EXPECT_EQ(coder.GetNumberIllegalChars(), 0U);
  CEncodeDecode::FreeBuffer(text, flags);
  return result;
}

unsigned int Measured(const std::string& data, int flags, unsigned int lineLength) {
  unsigned int size = 0;
  EXPECT_EQ(CEncodeDecode(lineLength, 76).CalcEncodedMemoryQP(Block(data).Data(), Length(data), size, flags), 0);
  return size;
}

unsigned int Fitting(const std::string& data, unsigned int room, int flags, unsigned int lineLength) {
  unsigned int count = 0;
  EXPECT_EQ(CEncodeDecode(lineLength, 76).CalcMaxCharsQP(Block(data).Data(), Length(data), room, count, flags), 0);
  return count;
}

enum class Blanks { kByRule, kAlwaysLiteral, kAlwaysEncoded };

/// Whether a byte is written as itself, straight from the rules.
bool IsLiteral(char c, bool isLast, int flags, Blanks blanks) {
  if (c == ' ' && blanks != Blanks::kByRule) {
    return blanks == Blanks::kAlwaysLiteral;
  }
  if (c == ' ' || c == '\t') {
    return !isLast && (flags & kEncodeBlanks) == 0;
  }
  if (c == '?' || c == '_') {
    return (flags & kEncodeQuestion) == 0;
  }
  static const std::string kSpecials = "!\"#$@[\\]^`{}~|";
  static const std::string kMarks = "%&'()*+,-./:;<>";
  if (kSpecials.find(c) != std::string::npos) {
    return (flags & kLiteralSpecials) != 0;
  }
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
         kMarks.find(c) != std::string::npos;
}

std::string Triple(char c) {
  static const std::string kDigits = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(c);
  return {'=', kDigits[value / 16], kDigits[value % 16]};
}

/// What each step of the encoder takes of the input and writes.
struct Step {
  std::size_t taken;
  std::string written;
};

std::vector<Step> ReferenceSteps(const std::string& data, int flags, std::uint32_t lineLength, Blanks blanks) {
  std::vector<Step> steps;
  std::uint64_t column = 0;
  for (std::size_t i = 0; i < data.size(); ++i) {
    const char c = data[i];
    if ((c == '\r' || c == '\n') && (flags & kHardBreaks) != 0) {
      const bool isPair = c == '\r' && i + 1 < data.size() && data[i + 1] == '\n';
      steps.push_back({isPair ? 2U : 1U, "\r\n"});
      i += isPair ? 1 : 0;
      column = 0;
      continue;
    }
    const std::string item = IsLiteral(c, i + 1 == data.size(), flags, blanks) ? std::string(1, c) : Triple(c);
    const std::uint32_t limit = item.size() == 1 ? lineLength : lineLength - 2;
    const bool isBreak = column >= limit;
    steps.push_back({1, (isBreak ? "=\r\n" : "") + item});
    column = (isBreak ? 0 : column) + item.size();
  }
  return steps;
}

std::string ReferenceEncode(const std::string& data, int flags, std::uint32_t lineLength,
                            Blanks blanks = Blanks::kByRule) {
  std::string text;
  for (const Step& step : ReferenceSteps(data, flags, lineLength, blanks)) {
    text += step.written;
  }
  return text;
}

std::size_t ReferenceFitting(const std::string& data, std::size_t room, int flags, std::uint32_t lineLength) {
  const Blanks blanks = (flags & kCountBlanksEncoded) != 0 ? Blanks::kAlwaysEncoded : Blanks::kByRule;
  std::size_t taken = 0;
  std::size_t written = 0;
  for (const Step& step : ReferenceSteps(data, flags, lineLength, blanks)) {
    written += step.written.size();
    if (written > room) {
      break;
    }
    taken += step.taken;
  }
  return taken;
}

struct Decoded {
  std::string data;
  unsigned int illegal;
  bool operator==(const Decoded& other) const { return data == other.data && illegal == other.illegal; }
};

void PrintTo(const Decoded& decoded, std::ostream* stream) {
  *stream << ::testing::PrintToString(decoded.data) << " illegal " << decoded.illegal;
}

Decoded DecodedBuffer(const std::string& text, int flags, std::size_t offset = 0) {
  CEncodeDecode coder(75, 76);
  char* data = nullptr;
  unsigned int length = 99;
  EXPECT_EQ(coder.DecodeQP(Block(text, offset).Data(), Length(text), &data, length, flags), 0);
  EXPECT_EQ(coder.GetNumberParsedChars(), text.size());
  const Decoded result{std::string(data == nullptr ? "" : data, length), coder.GetNumberIllegalChars()};
  CEncodeDecode::FreeBuffer(data, flags);
  return result;
}

Decoded DecodedInline(const std::string& text, std::size_t offset = 0) {
  CEncodeDecode coder(75, 76);
  Block buffer(text, offset);
  unsigned int length = 99;
  EXPECT_EQ(coder.DecodeQPInline(buffer.Data(), Length(text), length, 0), 0);
  EXPECT_EQ(coder.GetNumberParsedChars(), text.size());
  return {std::string(buffer.Data(), length), coder.GetNumberIllegalChars()};
}

/// All forms of the decoder, which must agree.
Decoded Decode(const std::string& text) {
  const Decoded result = DecodedBuffer(text, 0);
  EXPECT_EQ(DecodedBuffer(text, kArrayBuffers), result);
  EXPECT_EQ(DecodedInline(text), result);
  std::string appended = "x";
  EXPECT_EQ(CEncodeDecode(75, 76).DecodeQP(text, appended, 0), 0);
  EXPECT_EQ(appended, "x" + result.data);
  return result;
}

bool IsHex(char c) { return std::string("0123456789ABCDEFabcdef").find(c) != std::string::npos && c != '\0'; }

bool IsBreak(char c) { return c == '\r' || c == '\n'; }

Decoded ReferenceDecode(const std::string& text) {
  Decoded result{"", 0};
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t left = text.size() - i;
    if (text[i] != '=') {
      result.data += text[i++];
    } else if (left >= 4 && IsHex(text[i + 1]) && IsHex(text[i + 2])) {
      result.data += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 3;
    } else if (left >= 2 && IsBreak(text[i + 1])) {
      i += left >= 3 && IsBreak(text[i + 2]) ? 3 : 2;
    } else {
      result.data += text[i++];
      ++result.illegal;
    }
  }
  return result;
}

/// Bytes of a text with everything that has a rule in it, or plain noise.
std::string RandomText(std::mt19937& random, std::size_t length) {
  static const std::string kInteresting = "    \t\t\r\n\r\n\n\r==?_!\"#$@[\\]^`{}~|\x7F\x80\xFF\x01";
  const unsigned int noise = static_cast<unsigned int>(random() % 4);
  std::string text(length, '\0');
  for (char& c : text) {
    const unsigned int kind = static_cast<unsigned int>(random() % 8);
    if (noise == 3) {
      c = static_cast<char>(random());
    } else {
      c = kind <= noise * 2 ? kInteresting[random() % kInteresting.size()] : static_cast<char>('a' + random() % 26);
    }
  }
  return text;
}

/// Characters of a choice.
std::string RandomOf(std::mt19937& random, const std::string& characters, std::size_t length) {
  std::string text(length, '\0');
  for (char& c : text) {
    c = characters[random() % characters.size()];
  }
  return text;
}

std::string Repeated(const char* text, std::size_t count) { return std::string(count, *text); }

/// Text to decode with everything that has a rule in it, sparse or dense.
std::string RandomEncoded(std::mt19937& random, std::size_t length) {
  static const std::string kPieces[] = {"=41", "=c3", "=\r\n", "=\n", "=\r\r", "==", "=4=", "=G", "\r\n", "=", "="};
  const unsigned int density = static_cast<unsigned int>(random() % 11);
  std::string text;
  while (text.size() < length) {
    text += random() % 10 < density ? kPieces[random() % std::size(kPieces)] : RandomOf(random, "abcDEF012 \xE4", 3);
  }
  text.resize(length);
  return text;
}

std::vector<int> FlagCombinations() {
  std::vector<int> all;
  for (int bits = 0; bits < 16; ++bits) {
    all.push_back(((bits & 1) != 0 ? kEncodeBlanks : 0) | ((bits & 2) != 0 ? kEncodeQuestion : 0) |
                  ((bits & 4) != 0 ? kHardBreaks : 0) | ((bits & 8) != 0 ? kLiteralSpecials : 0));
  }
  return all;
}

}  // namespace

TEST(QuotedPrintable, TheClassOfEveryByte) {
  OnEveryLevel([] {
    for (const int flags : FlagCombinations()) {
      for (int c = 0; c < 256; ++c) {
        const std::string inside = {'a', static_cast<char>(c), 'b'};
        EXPECT_EQ(Encoded(inside, flags), ReferenceEncode(inside, flags, 75)) << c << " flags " << flags;
        const std::string last = {'a', static_cast<char>(c)};
        EXPECT_EQ(Encoded(last, flags), ReferenceEncode(last, flags, 75)) << c << " flags " << flags;
      }
    }
  });
}

TEST(QuotedPrintable, EncodesAKnownText) {
  // python3 -c 'import binascii; print(binascii.b2a_qp(...))' with the same rules for these characters
  EXPECT_EQ(Encoded("caf\xC3\xA9 = 50% of what?"), "caf=C3=A9 =3D 50% of what?");
}

TEST(QuotedPrintable, ABlankIsEncodedOnlyAtTheEnd) {
  EXPECT_EQ(Encoded("a b"), "a b");
  EXPECT_EQ(Encoded("a "), "a=20");
  EXPECT_EQ(Encoded("a b", kEncodeBlanks), "a=20b");
  EXPECT_EQ(Encoded("a\tb"), "a\tb");
  EXPECT_EQ(Encoded("a\t"), "a=09");
  EXPECT_EQ(Encoded("a\tb", kEncodeBlanks), "a=09b");
  EXPECT_EQ(Encoded("a  "), "a =20");
  EXPECT_EQ(Encoded(" "), "=20");
}

TEST(QuotedPrintable, QuestionMarkUnderscoreAndSpecialsFollowTheirBits) {
  EXPECT_EQ(Encoded("?_"), "?_");
  EXPECT_EQ(Encoded("?_", kEncodeQuestion), "=3F=5F");
  EXPECT_EQ(Encoded("!~|"), "=21=7E=7C");
  EXPECT_EQ(Encoded("!~|", kLiteralSpecials), "!~|");
  EXPECT_EQ(Encoded("=\x7F", kLiteralSpecials), "=3D=7F");
}

TEST(QuotedPrintable, SoftBreaksAtTwenty) {
  OnEveryLevel([] {
    const std::string twenty(20, 'a');
    EXPECT_EQ(Encoded(twenty, 0, 20), twenty);
    EXPECT_EQ(Encoded(twenty + "a", 0, 20), twenty + "=\r\na");
    EXPECT_EQ(Encoded("=======", 0, 20), "=3D=3D=3D=3D=3D=3D=\r\n=3D");
    EXPECT_EQ(Encoded(std::string(17, 'a') + "=b", 0, 20), std::string(17, 'a') + "=3D=\r\nb");
  });
}

TEST(QuotedPrintable, HardBreaks) {
  OnEveryLevel([] {
    EXPECT_EQ(Encoded("a\r\nb"), "a=0D=0Ab");
    EXPECT_EQ(Encoded("a\r\nb", kHardBreaks), "a\r\nb");
    EXPECT_EQ(Encoded("a\nb\rc\n\rd", kHardBreaks), "a\r\nb\r\nc\r\n\r\nd");
    EXPECT_EQ(Encoded("a \r\n", kHardBreaks), "a \r\n");
    EXPECT_EQ(Encoded("\r", kHardBreaks), "\r\n");
    const std::string line(20, 'a');
    EXPECT_EQ(Encoded(line + "\r\n" + line, kHardBreaks, 20), line + "\r\n" + line);
  });
}

TEST(QuotedPrintable, TheSetterHasAMinimum) {
  CEncodeDecode coder(75, 76);
  for (const auto& [set, effective] : {std::pair(0U, 20U), {19U, 20U}, {20U, 20U}, {21U, 21U}, {300U, 300U}}) {
    coder.SetMaxLineLengthQP(set);
    std::string text;
    const std::string data(1000, 'a');
    EXPECT_EQ(coder.EncodeQP(data, text, 0), 0);
    EXPECT_EQ(text, ReferenceEncode(data, 0, effective));
  }
}

TEST(QuotedPrintable, EncodesAndMeasuresLikeTheReference) {
  OnEveryLevel([] {
    std::mt19937 random(1);
    for (const int flags : FlagCombinations()) {
      for (const std::uint32_t lineLength : {0U, 1U, 2U, 3U, 4U, 5U, 7U, 20U, 75U, 76U, 1000U, 0xFFFFFFFFU}) {
        for (int round = 0; round < 40; ++round) {
          const std::string data = RandomText(random, random() % 301);
          const std::string expected = ReferenceEncode(data, flags, lineLength);
          ASSERT_EQ(Encoded(data, flags, lineLength), expected) << flags << " at " << lineLength;
          ASSERT_EQ(Measured(data, flags, lineLength), expected.size()) << flags << " at " << lineLength;
        }
      }
    }
  });
}

TEST(QuotedPrintable, TextsThatNeedMeasuringEncodeLikeTheReference) {
  OnEveryLevel([] {
    std::mt19937 random(2);
    for (const std::size_t length : {std::size_t{43690}, std::size_t{43691}, std::size_t{200000}, kShortText}) {
      for (const std::uint32_t lineLength : {1U, 20U, 76U}) {
        std::string data = RandomText(random, length);
        data.back() = ' ';
        EXPECT_TRUE(Encoded(data, kHardBreaks, lineLength) == ReferenceEncode(data, kHardBreaks, lineLength)) << length;
      }
    }
  });
}

TEST(QuotedPrintable, FormsOfTheEncoderAgree) {
  const std::string data = "a = b ";
  EXPECT_EQ(Encoded(data, kArrayBuffers), "a =3D b=20");
  std::string appended = "start ";
  EXPECT_EQ(CEncodeDecode(75, 76).EncodeQP(data, appended, 0), 0);
  EXPECT_EQ(appended, "start a =3D b=20");
}

TEST(QuotedPrintable, InALongTextBlanksStayLiteral) {
  OnEveryLevel([] {
    EXPECT_EQ(Encoded("aaaaaaaaa "), "aaaaaaaaa=20");
    const std::string shortText = std::string(kShortText - 1, 'a') + ' ';
    const std::string shortEncoded = Encoded(shortText);
    EXPECT_EQ(shortEncoded.substr(shortEncoded.size() - 3), "=20");
    const std::string longText = std::string(kShortText, 'a') + ' ';
    const std::string longEncoded = Encoded(longText);
    EXPECT_EQ(longEncoded.substr(longEncoded.size() - 2), "a ");
  });
}

TEST(QuotedPrintable, InALongTextBlanksStayLiteralUnderTheirBitButTabsDoNot) {
  OnEveryLevel([] {
    std::mt19937 random(3);
    for (const char last : {' ', '\t'}) {
      for (const int flags : {0, kEncodeBlanks | kHardBreaks | kArrayBuffers}) {
        std::string data = RandomText(random, kShortText + 1);
        data.back() = last;
        const std::string expected = ReferenceEncode(data, flags, 75, Blanks::kAlwaysLiteral);
        EXPECT_TRUE(Encoded(data, flags) == expected) << last << flags;
        EXPECT_EQ(Measured(data, flags, 75), ReferenceEncode(data, flags, 75).size());
      }
    }
  });
}

TEST(QuotedPrintable, ALongTextOfBlanksAtLimitsZeroAndOneOutgrowsItsMeasureUnharmed) {
  OnEveryLevel([] {
    const std::string data(kShortText + 1, ' ');
    for (const std::uint32_t lineLength : {0U, 1U}) {
      const std::string expected = ReferenceEncode(data, kEncodeBlanks, lineLength, Blanks::kAlwaysLiteral);
      EXPECT_LT(Measured(data, kEncodeBlanks, lineLength), expected.size());
      EXPECT_TRUE(Encoded(data, kEncodeBlanks, lineLength) == expected);
      EXPECT_TRUE(Encoded(data, kEncodeBlanks | kArrayBuffers, lineLength) == expected);
    }
  });
}

TEST(QuotedPrintable, CountsWhatFitsLikeTheReference) {
  OnEveryLevel([] {
    std::mt19937 random(4);
    for (const int flags : FlagCombinations()) {
      for (const int blanks : {0, kCountBlanksEncoded}) {
        for (const std::uint32_t lineLength : {0U, 1U, 2U, 5U, 20U, 75U}) {
          const std::string data = RandomText(random, random() % 60);
          for (unsigned int room = 0; room < 300; ++room) {
            ASSERT_EQ(Fitting(data, room, flags | blanks, lineLength),
                      ReferenceFitting(data, room, flags | blanks, lineLength))
                << ::testing::PrintToString(data) << " room " << room << " flags " << flags << " at " << lineLength;
          }
        }
      }
    }
  });
}

TEST(QuotedPrintable, WhatFitsIsTheLongestPrefixThatEncodesWithinTheRoom) {
  OnEveryLevel([] {
    std::mt19937 random(5);
    for (int round = 0; round < 20; ++round) {
      const std::string data = RandomText(random, 80) + "a";
      for (unsigned int room = 0; room < 260; room += 7) {
        std::size_t longest = 0;
        for (std::size_t length = 0; length <= data.size(); ++length) {
          // A letter behind it keeps a blank at the prefix's end from being the last byte.
          const std::size_t size = ReferenceEncode(data.substr(0, length) + "a", 0, 1000).size() - 1;
          longest = size <= room ? length : longest;
        }
        ASSERT_EQ(Fitting(data, room, 0, 1000), longest);
      }
    }
  });
}

TEST(QuotedPrintable, CountsBlanksAsEncodedWhenAsked) {
  EXPECT_EQ(Fitting("a b", 3, 0, 75), 3U);
  EXPECT_EQ(Fitting("a b", 3, kCountBlanksEncoded, 75), 1U);
  EXPECT_EQ(Fitting("a b", 5, kCountBlanksEncoded, 75), 3U);
  EXPECT_EQ(Fitting("a\tb", 3, kCountBlanksEncoded, 75), 3U);
  EXPECT_EQ(Fitting("a ", 3, 0, 75), 1U);
  EXPECT_EQ(Fitting("aa", 0, 0, 75), 0U);
}

TEST(QuotedPrintable, Decodes) {
  OnEveryLevel([] {
    EXPECT_EQ(Decode("caf=C3=A9 =3d 50=\r\n% of what=\n?"), (Decoded{"caf\xC3\xA9 = 50% of what?", 0}));
    EXPECT_EQ(Decode("plain text, nothing else in it"), (Decoded{"plain text, nothing else in it", 0}));
    EXPECT_EQ(Decode("a\r\nb\n"), (Decoded{"a\r\nb\n", 0}));
  });
}

TEST(QuotedPrintable, ASoftBreakTakesOneMoreCharacterOfABreak) {
  OnEveryLevel([] {
    EXPECT_EQ(Decode("a=\n\nb"), (Decoded{"ab", 0}));
    EXPECT_EQ(Decode("a=\r\nb"), (Decoded{"ab", 0}));
    EXPECT_EQ(Decode("a=\n\rb"), (Decoded{"ab", 0}));
    EXPECT_EQ(Decode("a=\r\rb"), (Decoded{"ab", 0}));
    EXPECT_EQ(Decode("a=\nb"), (Decoded{"ab", 0}));
    EXPECT_EQ(Decode("a=\r\n\nb"), (Decoded{"a\nb", 0}));
    EXPECT_EQ(Decode("a=\r\n\r\nb"), (Decoded{"a\r\nb", 0}));
    EXPECT_EQ(Decode("a=\n"), (Decoded{"a", 0}));
    EXPECT_EQ(Decode("a=\r\n"), (Decoded{"a", 0}));
  });
}

TEST(QuotedPrintable, AnyOtherEqualsSignIsCopiedAndCounted) {
  OnEveryLevel([] {
    EXPECT_EQ(Decode("=ZZ"), (Decoded{"=ZZ", 1}));
    EXPECT_EQ(Decode("="), (Decoded{"=", 1}));
    EXPECT_EQ(Decode("=4"), (Decoded{"=4", 1}));
    EXPECT_EQ(Decode("=4 b"), (Decoded{"=4 b", 1}));
    EXPECT_EQ(Decode("==41b"), (Decoded{"=Ab", 1}));
    EXPECT_EQ(Decode("== \n"), (Decoded{"== \n", 2}));
  });
}

TEST(QuotedPrintable, AnEncodedByteNeedsOneMoreByteBehindIt) {
  OnEveryLevel([] {
    EXPECT_EQ(Decode("=41"), (Decoded{"=41", 1}));
    EXPECT_EQ(Decode("=41\n"), (Decoded{"A\n", 0}));
    EXPECT_EQ(Decode("=41=41"), (Decoded{"A=41", 1}));
  });
}

TEST(QuotedPrintable, DecodesEveryPairBehindAnEqualsSign) {
  OnEveryLevel([] {
    for (int first = 0; first < 256; ++first) {
      for (int second = 0; second < 256; ++second) {
        const std::string start = {'=', static_cast<char>(first), static_cast<char>(second)};
        const std::string text = start + "bcdefghijklmnopqrstuvwxyz";
        ASSERT_EQ(DecodedBuffer(text, 0), ReferenceDecode(text)) << first << " " << second;
        ASSERT_EQ(DecodedInline(start + start + text), ReferenceDecode(start + start + text)) << first << " " << second;
        ASSERT_EQ(DecodedInline(start), ReferenceDecode(start)) << first << " " << second;
      }
    }
  });
}

TEST(QuotedPrintable, DecodesLikeTheReference) {
  OnEveryLevel([] {
    std::mt19937 random(6);
    static const std::string kPieces = "==========\r\n\r\nAFaf09gG Z";
    for (int round = 0; round < 8000; ++round) {
      const unsigned int density = static_cast<unsigned int>(random() % 10);
      std::string text(random() % 301, '\0');
      for (char& c : text) {
        c = random() % 10 < density ? kPieces[random() % kPieces.size()] : static_cast<char>(random());
      }
      ASSERT_EQ(Decode(text), ReferenceDecode(text)) << ::testing::PrintToString(text);
    }
  });
}

TEST(QuotedPrintable, DecodesCutEncodedTextsLikeTheReference) {
  OnEveryLevel([] {
    std::mt19937 random(7);
    const std::string text = ReferenceEncode(RandomText(random, 200), 0, 20);
    for (std::size_t length = 0; length <= text.size(); ++length) {
      ASSERT_EQ(Decode(text.substr(0, length)), ReferenceDecode(text.substr(0, length)));
    }
  });
}

TEST(QuotedPrintable, RoundTrips) {
  OnEveryLevel([] {
    std::mt19937 random(8);
    for (int round = 0; round < 500; ++round) {
      const std::string data = RandomText(random, random() % 2000) + "end";
      EXPECT_EQ(Decode(Encoded(data)), (Decoded{data, 0}));
    }
    const std::string longText = RandomText(random, 2'000'000) + "end";
    EXPECT_TRUE(Decode(Encoded(longText)).data == longText);
  });
}

TEST(QuotedPrintable, EncodesEveryLengthAtEveryAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(9);
    for (std::size_t length = 0; length <= 300; ++length) {
      const int flags = FlagCombinations()[length % 16];
      const unsigned int lineLength = static_cast<unsigned int>(8 + random() % 120);
      const std::string data = RandomText(random, length);
      const std::string expected = ReferenceEncode(data, flags, lineLength);
      for (std::size_t offset = 0; offset < 64; ++offset) {
        ASSERT_EQ(Encoded(data, flags, lineLength, offset), expected)
            << ::testing::PrintToString(data) << flags << " at " << lineLength;
      }
    }
  });
}

TEST(QuotedPrintable, DecodesEveryLengthAtEveryAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(10);
    for (std::size_t length = 0; length <= 300; ++length) {
      const std::string text = RandomEncoded(random, length);
      const Decoded expected = ReferenceDecode(text);
      for (std::size_t offset = 0; offset < 64; ++offset) {
        ASSERT_EQ(DecodedBuffer(text, 0, offset), expected) << ::testing::PrintToString(text);
        ASSERT_EQ(DecodedInline(text, offset), expected) << ::testing::PrintToString(text);
      }
    }
  });
}

TEST(QuotedPrintable, DecodesTextsCutAnywhereAndSpoiltAnywhere) {
  OnEveryLevel([] {
    std::mt19937 random(11);
    const std::string text = RandomEncoded(random, 150);
    for (std::size_t place = 0; place < text.size(); ++place) {
      for (const char c : {'=', '\r', '\n', 'G', '/', ':', '@', '`', 'g', '\x8D', '\xB0', '\0'}) {
        std::string spoilt = text;
        spoilt[place] = c;
        ASSERT_EQ(DecodedInline(spoilt), ReferenceDecode(spoilt)) << ::testing::PrintToString(spoilt);
        spoilt.resize(place + 1);
        ASSERT_EQ(DecodedBuffer(spoilt, 0), ReferenceDecode(spoilt)) << ::testing::PrintToString(spoilt);
      }
    }
  });
}

TEST(QuotedPrintable, BreaksAndTriplesAtEveryColumn) {
  OnEveryLevel([] {
    for (const unsigned int lineLength : {8U, 31U, 32U, 33U, 64U, 75U, 76U, 998U}) {
      const std::size_t last = 2 * std::size_t{lineLength} + 2;
      for (std::size_t before = last - std::min(last, std::size_t{154}); before <= last; ++before) {
        for (const char* const middle : {"\r\n", "\n", "\r", "=", "==", "a=\r\n", "=\r", "\n\r"}) {
          const std::string data = std::string(before, 'a') + middle + std::string(40, 'b');
          ASSERT_EQ(Encoded(data, kHardBreaks, lineLength), ReferenceEncode(data, kHardBreaks, lineLength));
          ASSERT_EQ(Encoded(data, 0, lineLength), ReferenceEncode(data, 0, lineLength));
        }
      }
    }
  });
}

TEST(QuotedPrintable, LongTextsOfEveryDensityEncodeMeasureAndFitLikeTheReference) {
  OnEveryLevel([] {
    std::mt19937 random(12);
    for (const std::size_t length : {1023U, 1024U, 1025U, 1026U, 2048U, 5000U}) {
      for (const unsigned int lineLength : {7U, 8U, 20U, 75U, 3071U, 0xFFFFFFFFU}) {
        for (const char* const characters : {"a", "\r\n", "\r", "\n", "\xFF", "a\xFF", "a\xFF\r\n", "aaaaaaaaaaa\n"}) {
          const std::string data = RandomOf(random, characters, length);
          const std::string expected = ReferenceEncode(data, kHardBreaks, lineLength);
          ASSERT_TRUE(Encoded(data, kHardBreaks, lineLength) == expected) << characters << length << " " << lineLength;
          ASSERT_EQ(Measured(data, kHardBreaks, lineLength), expected.size());
          const auto room = static_cast<unsigned int>(random() % expected.size());
          ASSERT_EQ(Fitting(data, room, kHardBreaks, lineLength),
                    ReferenceFitting(data, room, kHardBreaks, lineLength));
          ASSERT_EQ(Fitting(data, Length(expected), kHardBreaks, lineLength), data.size());
        }
      }
    }
  });
}

TEST(QuotedPrintable, ALongTextMayBeginLikeAnotherOne) {
  // Each part of it begins in a way that does not tell how much the rest needs.
  struct Row {
    const char* first;
    const char* rest;
  };
  for (const Row& row : {Row{"a", "="}, {"=", "a"}, {"\n", "\xFF"}, {" ", "\r"}}) {
    std::string data;
    for (int part = 0; part < 16; ++part) {
      data += Repeated(row.first, 1024) + Repeated(row.rest, 11000);
    }
    for (const unsigned int lineLength : {2U, 3U, 20U, 75U}) {
      const std::string expected = ReferenceEncode(data, kHardBreaks, lineLength);
      OnEveryLevel([&] {
        EXPECT_TRUE(Encoded(data, kHardBreaks, lineLength) == expected) << row.first << row.rest << lineLength;
        EXPECT_TRUE(Encoded(data, kHardBreaks | kArrayBuffers, lineLength) == expected)
            << row.first << row.rest << lineLength;
        EXPECT_EQ(Measured(data, kHardBreaks, lineLength), expected.size());
      });
    }
  }
}

#ifdef HAS_ADDRESS_SPACE_LIMIT

/// To the end of the scope the process may map `more` bytes and nothing beyond them.
class AddressSpaceLimit {
 public:
  explicit AddressSpaceLimit(rlim_t more) {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    getrlimit(RLIMIT_AS, &_before);
    const rlimit limit = {pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + more, _before.rlim_max};
    _isSet = pages != 0 && setrlimit(RLIMIT_AS, &limit) == 0;
  }
  ~AddressSpaceLimit() { setrlimit(RLIMIT_AS, &_before); }
  AddressSpaceLimit(const AddressSpaceLimit&) = delete;
  AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;

  bool IsSet() const { return _isSet; }

 private:
  rlimit _before{};
  bool _isSet = false;
};

TEST(QuotedPrintable, ALongTextTakesNoMoreMemoryThanItNeedsWhereThereIsNoMore) {
  // Each part begins as if the text were three times as large encoded.
  constexpr std::size_t kPart = std::size_t{512} << 10;
  std::string data;
  for (int part = 0; part < 16; ++part) {
    data += Repeated("\xFF", 1024) + Repeated("a", kPart - 1024);
  }
  CEncodeDecode coder(75, 76);
  char* text = nullptr;
  unsigned int length = 0;
  {
    const AddressSpaceLimit limit(data.size() * 3 / 2);
    ASSERT_TRUE(limit.IsSet());
    EXPECT_EQ(coder.EncodeQP(data.data(), Length(data), &text, length, 0), 0);
  }
  EXPECT_EQ(coder.GetNumberParsedChars(), data.size());
  EXPECT_TRUE(std::string(text == nullptr ? "" : text, length) == Encoded(data, kArrayBuffers));
  CEncodeDecode::FreeBuffer(text, 0);
}

#endif

TEST(QuotedPrintable, ALongTextOfHardBreaksKeepsItsPairs) {
  std::string pairs;
  for (int i = 0; i < 100000; ++i) {
    pairs += "\r\n";
  }
  struct Row {
    const char* start;
    const char* written;
    unsigned int fitting;
  };
  for (const Row& row : {Row{"", "", 100000}, {"a", "a", 100001}, {"\n", "\r\n", 99999}, {"\r", "\r\n", 99999}}) {
    OnEveryLevel([&] {
      EXPECT_TRUE(Encoded(row.start + pairs, kHardBreaks) == row.written + pairs);
      EXPECT_EQ(Fitting(row.start + pairs, 100001, kHardBreaks, 75), row.fitting);
    });
  }
}

TEST(QuotedPrintable, NullPointers) {
  CEncodeDecode coder(75, 76);
  char* output = nullptr;
  unsigned int number = 1;
  EXPECT_EQ(coder.EncodeQP(nullptr, 1, &output, number, 0), -4);
  EXPECT_EQ(coder.EncodeQP("a", 1, nullptr, number, 0), -4);
  EXPECT_EQ(coder.DecodeQP(nullptr, 1, &output, number, 0), -4);
  EXPECT_EQ(coder.DecodeQP("a", 1, nullptr, number, 0), -4);
  EXPECT_EQ(coder.DecodeQPInline(nullptr, 1, number, 0), -4);
  EXPECT_EQ(coder.CalcEncodedMemoryQP(nullptr, 1, number, 0), -4);
  EXPECT_EQ(coder.CalcMaxCharsQP(nullptr, 1, 10, number, 0), -4);
  EXPECT_EQ(number, 0U);
}

TEST(QuotedPrintable, AnEmptyInputSucceedsWhateverThePointers) {
  CEncodeDecode coder(75, 76);
  char byte = 'x';
  char* output = &byte;
  unsigned int number = 1;
  EXPECT_EQ(coder.EncodeQP(nullptr, 0, &output, number, 0), 0);
  EXPECT_EQ(output, nullptr);
  EXPECT_EQ(number, 0U);
  EXPECT_EQ(coder.EncodeQP(nullptr, 0, nullptr, number, 0), 0);
  EXPECT_EQ(coder.DecodeQP(nullptr, 0, nullptr, number, 0), 0);
  EXPECT_EQ(coder.DecodeQPInline(nullptr, 0, number, 0), 0);
  number = 1;
  EXPECT_EQ(coder.CalcEncodedMemoryQP(nullptr, 0, number, 0), 0);
  EXPECT_EQ(number, 0U);
  number = 1;
  EXPECT_EQ(coder.CalcMaxCharsQP(nullptr, 0, 10, number, 0), 0);
  EXPECT_EQ(number, 0U);
}
