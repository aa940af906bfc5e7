#include <QSbase/text/qschar.h>

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <vector>

namespace {

using Predicate = bool (*)(unsigned char);
using ModPredicate = bool (QsCharMod::*)(unsigned char) const;

// A slow CRC-32 (ISO 3309, reflected), written without the library.
std::uint32_t Crc32(const std::vector<unsigned char>& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320U : crc >> 1;
    }
  }
  return ~crc;
}

template <typename Function>
std::vector<unsigned char> MapOfAllBytes(Function function) {
  std::vector<unsigned char> map;
  for (unsigned int c = 0; c < 256; ++c) {
    map.push_back(function(static_cast<unsigned char>(c)));
  }
  return map;
}

struct Row {
  const char* name;
  unsigned int any;  // a byte is a member when it has one of these bits
  bool ascii;        // and, here, the ASCII bit too
  Predicate fixed;
  ModPredicate own;
};

#define ROW(name, any, ascii) \
  { #name, any, ascii, &QsChar::name, &QsCharMod::name }

const Row kRows[] = {
    ROW(IsAlpha, 0x1, false),          ROW(IsNumeric, 0x2, false),
    ROW(IsAlphaNumeric, 0x3, false),   ROW(IsAscii, 0x4, false),
    ROW(IsAsciiAlpha, 0x1, true),      ROW(IsAsciiAlphaNumeric, 0x3, true),
    ROW(IsLower, 0x8, false),          ROW(IsUpper, 0x10, false),
    ROW(IsWhiteSpace, 0x20, false),    ROW(IsControl, 0x40, false),
    ROW(IsWordDelimiter, 0x80, false), ROW(IsSentenceDelimiter, 0x100, false),
    ROW(IsHexDigit, 0x200, false),     ROW(IsSymbol, 0x400, false),
    ROW(IsPunctuation, 0x800, false),  ROW(IsInvalidFileChar, 0x1000, false),
};

bool IsMember(const Row& row, unsigned int mask) { return (mask & row.any) != 0 && (!row.ascii || (mask & 0x4) != 0); }

}  // namespace

TEST(QsChar, MasksOfChosenBytes) {
  const struct {
    unsigned char byte;
    unsigned int mask;
  } rows[] = {{0, 0x1044},  {9, 0x11E4},   {10, 0x10E4}, {11, 0x1064}, {' ', 0xA4},  {'!', 0x984}, {'/', 0x1084},
              {'0', 0x606}, {'?', 0x1984}, {'A', 0x615}, {'G', 0x415}, {'_', 0x404}, {'a', 0x60D}, {'g', 0x40D},
              {127, 0x44},  {128, 0},      {161, 0x800}, {223, 9},     {201, 0x11}};
  for (const auto& row : rows) {
    EXPECT_EQ(QsChar::GetMask(row.byte), row.mask) << int{row.byte};
  }
}

TEST(QsChar, MembersOfEachBit) {
  const int expected[] = {125, 10, 128, 65, 60, 6, 33, 19, 6, 22, 63, 8, 41};
  int members[32] = {};
  for (unsigned int c = 0; c < 256; ++c) {
    for (unsigned int bit = 0; bit < 32; ++bit) {
      members[bit] += (QsChar::GetMask(static_cast<unsigned char>(c)) >> bit & 1) != 0 ? 1 : 0;
    }
  }
  for (unsigned int bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(members[bit], bit < 13 ? expected[bit] : 0) << "bit " << bit;
  }
}

TEST(QsChar, ChecksumOfAllMasks) {
  std::vector<unsigned char> bytes;
  for (unsigned int c = 0; c < 256; ++c) {
    const unsigned int mask = QsChar::GetMask(static_cast<unsigned char>(c));
    for (unsigned int shift = 0; shift < 32; shift += 8) {
      bytes.push_back(static_cast<unsigned char>(mask >> shift & 0xFF));
    }
  }
  EXPECT_EQ(Crc32(bytes), 0xFC9A95FFU);
}

TEST(QsChar, ChecksumOfTheCaseMaps) {
  EXPECT_EQ(Crc32(MapOfAllBytes(QsChar::ToLower)), 0x1A778B0CU);
  EXPECT_EQ(Crc32(MapOfAllBytes(QsChar::ToUpper)), 0x2C121A5AU);
}

TEST(QsChar, PredicatesTestTheirBitsForEveryByte) {
  for (const Row& row : kRows) {
    for (unsigned int c = 0; c < 256; ++c) {
      const auto byte = static_cast<unsigned char>(c);
      EXPECT_EQ(row.fixed(byte), IsMember(row, QsChar::GetMask(byte))) << row.name << " of " << c;
    }
  }
}

TEST(QsChar, AgreesWithTheCLibraryOnAscii) {
  for (int c = 0; c < 128; ++c) {
    const auto byte = static_cast<unsigned char>(c);
    EXPECT_EQ(QsChar::IsAlpha(byte), std::isalpha(c) != 0) << c;
    EXPECT_EQ(QsChar::IsNumeric(byte), std::isdigit(c) != 0) << c;
    EXPECT_EQ(QsChar::IsAlphaNumeric(byte), std::isalnum(c) != 0) << c;
    EXPECT_EQ(QsChar::IsLower(byte), std::islower(c) != 0) << c;
    EXPECT_EQ(QsChar::IsUpper(byte), std::isupper(c) != 0) << c;
    EXPECT_EQ(QsChar::IsWhiteSpace(byte), std::isspace(c) != 0) << c;
    EXPECT_EQ(QsChar::IsControl(byte), std::iscntrl(c) != 0) << c;
    EXPECT_EQ(QsChar::IsHexDigit(byte), std::isxdigit(c) != 0) << c;
    EXPECT_EQ(QsChar::ToLower(byte), std::tolower(c)) << c;
    EXPECT_EQ(QsChar::ToUpper(byte), std::toupper(c)) << c;
  }
}

TEST(QsChar, LettersBeyondAscii) {
  EXPECT_TRUE(QsChar::IsAlpha(0xE9));
  EXPECT_FALSE(QsChar::IsAsciiAlpha(0xE9));
  EXPECT_FALSE(QsChar::IsAsciiAlphaNumeric(0xE9));
  EXPECT_FALSE(QsChar::IsUpper(0xDF));
  EXPECT_TRUE(QsChar::IsLower(0xDF));
  EXPECT_FALSE(QsChar::IsAlpha(215));
  EXPECT_FALSE(QsChar::IsAlpha(247));
}

TEST(QsChar, Delimiters) {
  for (const char c : {'_', '\'', '(', ')', '[', ']', '{', '}'}) {
    EXPECT_FALSE(QsChar::IsWordDelimiter(static_cast<unsigned char>(c))) << c;
  }
  EXPECT_TRUE(QsChar::IsWordDelimiter('\\'));
  EXPECT_FALSE(QsChar::IsWordDelimiter('\v'));
  EXPECT_TRUE(QsChar::IsSentenceDelimiter('\t'));
  EXPECT_FALSE(QsChar::IsSentenceDelimiter(','));
}

TEST(QsChar, InvalidFileCharacters) {
  EXPECT_FALSE(QsChar::IsInvalidFileChar(' '));
  EXPECT_FALSE(QsChar::IsInvalidFileChar(127));
  for (const char c : {'"', '*', '/', ':', '<', '>', '?', '\\', '|', '\x1F', '\0'}) {
    EXPECT_TRUE(QsChar::IsInvalidFileChar(static_cast<unsigned char>(c))) << int{c};
  }
}

TEST(QsChar, CaseMapsAreInverseOnSixtyPairs) {
  int pairs = 0;
  for (unsigned int c = 0; c < 256; ++c) {
    const auto byte = static_cast<unsigned char>(c);
    const unsigned char lower = QsChar::ToLower(byte);
    if (lower != byte) {
      ++pairs;
      EXPECT_TRUE(QsChar::IsUpper(byte)) << c;
      EXPECT_TRUE(QsChar::IsLower(lower)) << c;
      EXPECT_EQ(QsChar::ToUpper(lower), byte) << c;
      EXPECT_EQ(QsChar::ToLower(lower), lower) << c;
    } else {
      EXPECT_FALSE(QsChar::IsUpper(byte)) << c;
    }
  }
  EXPECT_EQ(pairs, 60);
}

TEST(QsChar, CaseOfSingleBytes) {
  EXPECT_EQ(QsChar::ToUpper(223), 223);
  EXPECT_EQ(QsChar::ToLower(159), 255);
  EXPECT_EQ(QsChar::ToUpper(255), 159);
  for (const int c : {131, 170, 181, 186, 223}) {
    EXPECT_EQ(QsChar::ToUpper(static_cast<unsigned char>(c)), c);
  }
  unsigned char c = 'Q';
  QsChar::ToLower_Inplace(c);
  EXPECT_EQ(c, 'q');
  QsChar::ToUpper_Inplace(c);
  EXPECT_EQ(c, 'Q');
}

TEST(QsCharMod, StartsAsTheFixedTable) {
  const QsCharMod table;
  EXPECT_FALSE(table.IsModified());
  for (const Row& row : kRows) {
    for (unsigned int c = 0; c < 256; ++c) {
      const auto byte = static_cast<unsigned char>(c);
      EXPECT_EQ((table.*row.own)(byte), row.fixed(byte)) << row.name << " of " << c;
    }
  }
}

TEST(QsCharMod, ChangesOnlyItself) {
  QsCharMod table;
  EXPECT_EQ(table.SetFlag("_", 1, 0x1), 0);
  EXPECT_TRUE(table.IsAlpha('_'));
  EXPECT_FALSE(QsChar::IsAlpha('_'));
  EXPECT_FALSE(QsCharMod().IsAlpha('_'));
  EXPECT_TRUE(table.IsModified());
}

TEST(QsCharMod, PredicatesFollowTheOwnTable) {
  for (const Row& row : kRows) {
    QsCharMod table;
    table.RemoveFlag('\0', 127, 0xFFFFFFFF);
    table.RemoveFlag(128, 255, 0xFFFFFFFF);
    EXPECT_FALSE((table.*row.own)('x')) << row.name;
    table.SetFlag('x', 'x', row.any | (row.ascii ? 0x4U : 0U));
    EXPECT_TRUE((table.*row.own)('x')) << row.name;
    EXPECT_FALSE((table.*row.own)('y')) << row.name;
  }
}

TEST(QsCharMod, RangesAreInclusive) {
  QsCharMod table;
  table.SetFlag('(', '*', 0x1);
  EXPECT_FALSE(table.IsAlpha('\''));
  EXPECT_TRUE(table.IsAlpha('('));
  EXPECT_TRUE(table.IsAlpha(')'));
  EXPECT_TRUE(table.IsAlpha('*'));
  EXPECT_FALSE(table.IsAlpha('+'));
  table.RemoveFlag(')', '*', 0x1);
  EXPECT_TRUE(table.IsAlpha('('));
  EXPECT_FALSE(table.IsAlpha(')'));
}

TEST(QsCharMod, AddingKeepsAndRemovingLeavesTheOtherBits) {
  QsCharMod table;
  table.SetFlag("A", 1, 0x2);
  EXPECT_TRUE(table.IsNumeric('A'));
  EXPECT_TRUE(table.IsUpper('A'));
  EXPECT_EQ(table.RemoveFlag("A", 1, 0x2 | 0x10), 0);
  EXPECT_FALSE(table.IsNumeric('A'));
  EXPECT_FALSE(table.IsUpper('A'));
  EXPECT_TRUE(table.IsHexDigit('A'));
}

TEST(QsCharMod, CallsThatTouchNoEntryDoNotModify) {
  QsCharMod table;
  table.SetFlag('b', 'a', 0x2);
  table.RemoveFlag('b', 'a', 0x1);
  EXPECT_EQ(table.SetFlag("abc", 0, 0x2), 0);
  EXPECT_EQ(table.RemoveFlag("abc", 0, 0x1), 0);
  EXPECT_EQ(table.SetFlag(nullptr, 3, 0x2), -1);
  EXPECT_EQ(table.RemoveFlag(nullptr, 3, 0x1), -1);
  EXPECT_FALSE(table.IsModified());
  EXPECT_TRUE(table.IsAlpha('a'));
  EXPECT_FALSE(table.IsNumeric('a'));
}

TEST(QsCharMod, TouchingWithoutEffectStillModifies) {
  QsCharMod set;
  set.SetFlag('a', 'a', 0x1);
  EXPECT_TRUE(set.IsModified());
  QsCharMod removed;
  removed.RemoveFlag("a", 1, 0x2);
  EXPECT_TRUE(removed.IsModified());
}

TEST(QsCharMod, TheWholeRangeTakesTwoCalls) {
  QsCharMod table;
  table.SetFlag('\0', 255, 0x2);
  EXPECT_FALSE(table.IsModified());
  EXPECT_FALSE(table.IsNumeric('a'));
  table.SetFlag('\0', 127, 0x2);
  table.SetFlag(128, 255, 0x2);
  for (unsigned int c = 0; c < 256; ++c) {
    EXPECT_TRUE(table.IsNumeric(static_cast<unsigned char>(c))) << c;
  }
}

TEST(QsCharMod, ListsMayHoldBytesAbove127AndZeros) {
  QsCharMod table;
  const char bytes[] = {'\0', '\xFF', '\x80'};
  EXPECT_EQ(table.SetFlag(bytes, 3, 0x2), 0);
  EXPECT_TRUE(table.IsNumeric(0));
  EXPECT_TRUE(table.IsNumeric(0xFF));
  EXPECT_TRUE(table.IsNumeric(0x80));
  EXPECT_FALSE(table.IsNumeric(1));
}
