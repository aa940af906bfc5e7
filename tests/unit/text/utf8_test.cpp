#include <QSbase/text/utf8.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

struct Row {
  const char* name;
  std::string text;
  bool valid;
};

// The forms are of RFC 3629, section 3 and 7 (its examples), and what breaks them.
const Row kTexts[] = {
    {"nothing", "", true},
    {"ASCII", "plain text\x7F", true},
    {"two bytes, the lowest", "\xC2\x80", true},
    {"two bytes, the highest", "\xDF\xBF", true},
    {"three bytes, the lowest", "\xE0\xA0\x80", true},
    {"three bytes, the highest", "\xEF\xBF\xBF", true},
    {"four bytes, the lowest", "\xF0\x90\x80\x80", true},
    {"four bytes, the highest", "\xF4\x8F\xBF\xBF", true},
    {"RFC 3629: A, not identical to, alpha, point", "A\xE2\x89\xA2\xCE\x91.", true},
    {"RFC 3629: hangugeo", "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4", true},
    {"RFC 3629: nihongo", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", true},
    {"RFC 3629: stump of tree, with a mark", "\xEF\xBB\xBF\xF0\xA3\x8E\xB4", true},
    {"a continuation byte alone", "\x80", false},
    {"a continuation byte behind ASCII", "a\xBF", false},
    {"one continuation byte too many", "\xC3\xA4\xA4", false},
    {"two bytes, cut", "\xC3", false},
    {"three bytes, cut after the first", "\xE2", false},
    {"three bytes, cut after the second", "\xE2\x89", false},
    {"four bytes, cut after the first", "\xF0", false},
    {"four bytes, cut after the second", "\xF0\x90", false},
    {"four bytes, cut after the third", "\xF0\x90\x80", false},
    {"ASCII for a continuation byte", "\xC3(", false},
    {"ASCII for the third byte", "\xE2\x89(", false},
    {"ASCII for the fourth byte", "\xF0\x90\x80(", false},
    {"five bytes, of the older standard", "\xF8\x88\x80\x80\x80", false},
    {"six bytes, of the older standard", "\xFC\x84\x80\x80\x80\x80", false},
    {"0xFE", "\xFE", false},
    {"0xFF", "\xFF", false},
    {"Latin-1",
     "Stra\xDF"
     "e",
     false},
    {"the check ends at the zero byte", "ab\0\xFF"s, true},
    {"what is wrong stands before the zero byte", "a\xFF\0b"s, false},
    {"a zero byte cuts a character", "\xC3\0\xA4"s, false},
};

// Encoded by the table of RFC 3629, section 3.
std::string Encoded(unsigned int c) {
  const auto byte = [](unsigned int value) { return static_cast<char>(static_cast<unsigned char>(value)); };
  if (c < 0x80) {
    return {byte(c)};
  }
  if (c < 0x800) {
    return {byte(0xC0 | c >> 6), byte(0x80 | (c & 0x3F))};
  }
  if (c < 0x10000) {
    return {byte(0xE0 | c >> 12), byte(0x80 | (c >> 6 & 0x3F)), byte(0x80 | (c & 0x3F))};
  }
  return {byte(0xF0 | c >> 18), byte(0x80 | (c >> 12 & 0x3F)), byte(0x80 | (c >> 6 & 0x3F)), byte(0x80 | (c & 0x3F))};
}

bool HasBOM(const std::string& text) {
  return QsHasUTF8BOM(reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned int>(text.size()));
}

}  // namespace

TEST(IsValidUTF8, Table) {
  for (const Row& row : kTexts) {
    EXPECT_EQ(row.valid, QsIsValidUTF8(row.text)) << row.name;
    EXPECT_EQ(row.valid, QsIsValidUTF8cs(row.text.c_str())) << row.name;
  }
}

TEST(IsValidUTF8, ANullPointerIsNoText) { EXPECT_FALSE(QsIsValidUTF8cs(nullptr)); }

TEST(IsValidUTF8, EveryCharacterIsValidAndNoPartOfIt) {
  for (unsigned int c = 1; c < 0x110000; ++c) {
    if (c >= 0xD800 && c < 0xE000) {
      continue;  // surrogates are no characters
    }
    const std::string text = Encoded(c);
    ASSERT_TRUE(QsIsValidUTF8(text)) << c;
    ASSERT_TRUE(text.size() == 1 || !QsIsValidUTF8(text.substr(0, text.size() - 1))) << c;
    ASSERT_TRUE(text.size() == 1 || !QsIsValidUTF8(text.substr(1))) << c;
  }
}

TEST(UTF8BOM, IsTheThreeBytes) { EXPECT_EQ("\xEF\xBB\xBF", QsGetUTF8BOM()); }

TEST(UTF8BOM, IsSeenAtTheBeginning) {
  EXPECT_TRUE(HasBOM("\xEF\xBB\xBF"));
  EXPECT_TRUE(HasBOM("\xEF\xBB\xBFtext"));
  EXPECT_FALSE(HasBOM(""));
  EXPECT_FALSE(HasBOM("\xEF\xBB"));
  EXPECT_FALSE(HasBOM(" \xEF\xBB\xBF"));
  EXPECT_FALSE(HasBOM("\xEE\xBB\xBF"));
  EXPECT_FALSE(HasBOM("\xEF\xBA\xBF"));
  EXPECT_FALSE(HasBOM("\xEF\xBB\xBE"));
}

TEST(UTF8BOM, TheLengthCounts) {
  const unsigned char text[] = {0xEF, 0xBB, 0xBF, 'a'};
  EXPECT_FALSE(QsHasUTF8BOM(text, 0));
  EXPECT_FALSE(QsHasUTF8BOM(text, 2));
  EXPECT_TRUE(QsHasUTF8BOM(text, 3));
  EXPECT_TRUE(QsHasUTF8BOM(text, 4));
  EXPECT_FALSE(QsHasUTF8BOM(nullptr, 0));
  EXPECT_FALSE(QsHasUTF8BOM(nullptr, 3));
}

TEST(StripUTF8BOM, RemovesOneMark) {
  std::string text = "\xEF\xBB\xBFtext";
  EXPECT_TRUE(QsStripUTF8BOM(text));
  EXPECT_EQ("text", text);
  EXPECT_FALSE(QsStripUTF8BOM(text));
  EXPECT_EQ("text", text);
  text = "\xEF\xBB\xBF\xEF\xBB\xBF";
  EXPECT_TRUE(QsStripUTF8BOM(text));
  EXPECT_EQ("\xEF\xBB\xBF", text);
}

TEST(StripUTF8BOM, TheMarkAloneLeavesNothing) {
  std::string text = QsGetUTF8BOM();
  EXPECT_TRUE(QsStripUTF8BOM(text));
  EXPECT_EQ("", text);
  EXPECT_FALSE(QsStripUTF8BOM(text));
}

TEST(StripUTF8BOM, LeavesOtherTextsAlone) {
  for (const std::string& text : {""s, "\xEF"s, "\xEF\xBB"s, "\xEF\xBB\xBE"s, "a\xEF\xBB\xBF"s, "\0\xEF\xBB\xBF"s}) {
    std::string stripped = text;
    EXPECT_FALSE(QsStripUTF8BOM(stripped));
    EXPECT_EQ(text, stripped);
  }
}

TEST(StripUTF8BOM, KeepsZeroBytes) {
  std::string text = "\xEF\xBB\xBF\0a\0"s;
  EXPECT_TRUE(QsStripUTF8BOM(text));
  EXPECT_EQ("\0a\0"s, text);
}

TEST(IsUTF8StringUsAscii, NothingIsAscii) {
  EXPECT_TRUE(QsIsUTF8StringUsAscii(std::string()));
  EXPECT_TRUE(QsIsUTF8StringUsAscii("", 0));
  EXPECT_TRUE(QsIsUTF8StringUsAscii("\xFF", 0));
}

TEST(IsUTF8StringUsAscii, ANullPointerIsNot) {
  EXPECT_FALSE(QsIsUTF8StringUsAscii(nullptr, 0));
  EXPECT_FALSE(QsIsUTF8StringUsAscii(nullptr, 5));
}

TEST(IsUTF8StringUsAscii, EveryByte) {
  for (int c = 0; c < 256; ++c) {
    const std::string text(1, static_cast<char>(c));
    EXPECT_EQ(c < 128, QsIsUTF8StringUsAscii(text)) << c;
    EXPECT_EQ(c < 128, QsIsUTF8StringUsAscii(text.data(), 1)) << c;
  }
}

TEST(IsUTF8StringUsAscii, LooksBehindZeroBytes) {
  EXPECT_TRUE(QsIsUTF8StringUsAscii("a\0b"s));
  EXPECT_FALSE(QsIsUTF8StringUsAscii("a\0\x80"s));
  EXPECT_FALSE(QsIsUTF8StringUsAscii("a\0\x80", 3));
  EXPECT_TRUE(QsIsUTF8StringUsAscii("a\0\x80", 2));
}

// One byte anywhere, in texts about as long as several blocks.
TEST(IsUTF8StringUsAscii, SeesEveryPlace) {
  for (std::size_t length = 0; length <= 200; ++length) {
    std::string text(length, '\x7F');
    ASSERT_TRUE(QsIsUTF8StringUsAscii(text)) << length;
    for (std::size_t at = 0; at < length; ++at) {
      text[at] = '\x80';
      ASSERT_FALSE(QsIsUTF8StringUsAscii(text)) << at << " of " << length;
      ASSERT_TRUE(QsIsUTF8StringUsAscii(text.data(), static_cast<unsigned int>(at))) << at << " of " << length;
      text[at] = '\x7F';
    }
  }
}

TEST(UTF16AsciiToUSAscii, KeepsTheLowByte) {
  const unsigned short units[] = {'A', 0x0141, 0, 0x00FF, 0xFFFF, 0x2030};
  std::string text = "old";
  EXPECT_EQ(0, QsUTF16AsciiToUSAscii(units, 6, text));
  EXPECT_EQ("AA\0\xFF\xFF\x30"s, text);
}

TEST(UTF16AsciiToUSAscii, EveryUnit) {
  std::vector<unsigned short> units;
  std::string expected;
  for (unsigned int unit = 0; unit <= std::numeric_limits<unsigned short>::max(); ++unit) {
    units.push_back(static_cast<unsigned short>(unit));
    expected.push_back(static_cast<char>(static_cast<unsigned char>(unit % 256)));
  }
  std::string text;
  EXPECT_EQ(0, QsUTF16AsciiToUSAscii(units.data(), static_cast<unsigned int>(units.size()), text));
  EXPECT_EQ(expected, text);
}

TEST(UTF16AsciiToUSAscii, NothingClears) {
  const unsigned short unit = 'x';
  std::string text = "old";
  EXPECT_EQ(0, QsUTF16AsciiToUSAscii(&unit, 0, text));
  EXPECT_EQ("", text);
}

TEST(UTF16AsciiToUSAscii, ANullPointerLeavesTheOutput) {
  std::string text = "old";
  EXPECT_EQ(-2, QsUTF16AsciiToUSAscii(nullptr, 0, text));
  EXPECT_EQ(-2, QsUTF16AsciiToUSAscii(nullptr, 3, text));
  EXPECT_EQ("old", text);
}

TEST(UTF8Bytes, LeadBytesAreAllButContinuations) {
  for (unsigned int byte = 0; byte < 256; ++byte) {
    EXPECT_EQ(byte < 0x80 || byte > 0xBF, IsUTF8LeadByte(static_cast<unsigned char>(byte))) << byte;
  }
}

TEST(UTF8Bytes, LengthsByTheUpperBits) {
  for (unsigned int byte = 0; byte < 256; ++byte) {
    int expected = 4;
    if (byte <= 0x7F) {
      expected = 1;
    } else if (byte >= 0xC0 && byte <= 0xDF) {
      expected = 2;
    } else if (byte >= 0xE0 && byte <= 0xEF) {
      expected = 3;
    }
    EXPECT_EQ(expected, GetUTF8CharLength(static_cast<unsigned char>(byte))) << byte;
  }
  EXPECT_EQ(4, GetUTF8CharLength(0x80));
}

TEST(UTF8Bytes, LengthsOfCharacters) {
  for (unsigned int c = 1; c < 0x110000; c += 61) {
    const std::string text = Encoded(c);
    ASSERT_TRUE(IsUTF8LeadByte(static_cast<unsigned char>(text[0]))) << c;
    ASSERT_EQ(static_cast<int>(text.size()), GetUTF8CharLength(static_cast<unsigned char>(text[0]))) << c;
  }
}
