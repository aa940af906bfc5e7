#include <QSbase/errors.h>
#include <QSbase/text/qschar.h>
#include <QSbase/text/qsstring.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#ifndef _WIN32
#include <stdlib.h>
#include <sys/wait.h>
#endif

namespace {

using qsbase::test::OnEveryLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kSpace = 0x20;

std::string AllBytes() {
  std::string bytes;
  for (int c = 0; c < 256; ++c) {
    bytes.push_back(static_cast<char>(c));
  }
  return bytes;
}

std::string Binary(const char* text, std::size_t length) { return std::string(text, length); }

std::vector<std::string> Split(const std::string& text, const std::string& separator, bool keepEmpty) {
  std::vector<std::string> parts{"left over"};
  const unsigned int count = SplitString(text, separator, parts, keepEmpty);
  EXPECT_EQ(count, parts.size());
  return parts;
}

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ExBase& error) {
    return error.GetErrorText();
  }
  return "no error";
}

const unsigned char* Bytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

// The replacement as its rules word it: one at a time, on the text and a folded copy.
int ReplaceOneByOne(std::string& text, std::string what, const std::string& with, bool caseSensitive) {
  if (text.empty() || what.empty()) {
    return 0;
  }
  std::string copy = caseSensitive ? text : QsString::ToLower(text);
  what = caseSensitive ? what : QsString::ToLower(what);
  int count = 0;
  for (std::size_t at = 0; (at = copy.find(what, at)) != std::string::npos; at += with.size(), ++count) {
    text.replace(at, what.size(), with);
    copy.replace(at, what.size(), with);
  }
  return count;
}

// The split as its rules word it: on a copy with the separator at its end.
std::vector<std::string> SplitStepByStep(std::string text, const std::string& separator, bool keepEmpty) {
  if (text.empty() || separator.empty()) {
    return {};
  }
  if (separator.size() > text.size()) {
    return {text};
  }
  if (text == separator) {
    return keepEmpty ? std::vector<std::string>{"", ""} : std::vector<std::string>{};
  }
  const bool ends = text.substr(text.size() - separator.size()) == separator;
  if (!ends || keepEmpty) {
    text += separator;
  }
  std::vector<std::string> parts;
  for (std::size_t at; (at = text.find(separator)) != std::string::npos; text.erase(0, at + separator.size())) {
    if (at > 0 || keepEmpty) {
      parts.push_back(text.substr(0, at));
    }
  }
  return parts;
}

std::string RandomText(std::mt19937& random, const char* letters, std::size_t maxLength) {
  std::string text(random() % (maxLength + 1), ' ');
  for (char& c : text) {
    c = letters[random() % std::strlen(letters)];
  }
  return text;
}

}  // namespace

// ---- Trimming and case ----

TEST(QsStringTrim, BothEnds) {
  EXPECT_EQ(QsString::Trim(" \t\r\n\v\fa b\t ", kSpace), "a b");
  EXPECT_EQ(QsString::TrimLeft("  a b  ", kSpace), "a b  ");
  EXPECT_EQ(QsString::TrimRight("  a b  ", kSpace), "  a b");
}

TEST(QsStringTrim, NothingOrEverything) {
  EXPECT_EQ(QsString::Trim("", kSpace), "");
  EXPECT_EQ(QsString::Trim("   ", kSpace), "");
  EXPECT_EQ(QsString::TrimLeft("   ", kSpace), "");
  EXPECT_EQ(QsString::TrimRight("   ", kSpace), "");
  EXPECT_EQ(QsString::Trim(" a ", 0), " a ");
}

TEST(QsStringTrim, AnyBitOfTheMask) {
  EXPECT_EQ(QsString::Trim("12 ab 34", 0x2 | kSpace), "ab");
  EXPECT_EQ(QsString::Trim("\xE9t\xE9", 0x1), "");
  EXPECT_EQ(QsString::Trim(Binary("\0a\0", 3), 0x40), "a");
}

TEST(QsStringTrim, OneCharacterInPlace) {
  const auto trimmed = [](std::string text) {
    QsString::TrimChar_Inplace(text, '-');
    return text;
  };
  EXPECT_EQ(trimmed("--a-b---"), "a-b");
  EXPECT_EQ(trimmed("---"), "");
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed("a"), "a");
}

TEST(QsStringCase, MapsEveryByteAsTheTablesDo) {
  const std::string lower = QsString::ToLower(AllBytes());
  const std::string upper = QsString::ToUpper(AllBytes());
  ASSERT_EQ(lower.size(), 256U);
  ASSERT_EQ(upper.size(), 256U);
  for (unsigned int c = 0; c < 256; ++c) {
    EXPECT_EQ(static_cast<unsigned char>(lower[c]), QsChar::ToLower(static_cast<unsigned char>(c)));
    EXPECT_EQ(static_cast<unsigned char>(upper[c]), QsChar::ToUpper(static_cast<unsigned char>(c)));
  }
}

TEST(QsStringCase, InPlaceForms) {
  char text[] = "Ab\0Cd";
  QsString::ToLower_Inplace(text);
  EXPECT_EQ(Binary(text, 5), Binary("ab\0Cd", 5));
  QsString::ToUpper_Inplace(text);
  EXPECT_EQ(Binary(text, 5), Binary("AB\0Cd", 5));
  QsString::ToLower_Inplace(text, 4);
  EXPECT_EQ(Binary(text, 5), Binary("ab\0cd", 5));
  QsString::ToUpper_Inplace(text, 4);
  EXPECT_EQ(Binary(text, 5), Binary("AB\0Cd", 5));

  std::string string = "\xC9t\xE9";
  QsString::ToUpper_Inplace(string);
  EXPECT_EQ(string, "\xC9T\xC9");
  QsString::ToLower_Inplace(string);
  EXPECT_EQ(string, "\xE9t\xE9");
}

TEST(QsStringCase, NullPointersAreLeftAlone) {
  QsString::ToLower_Inplace(static_cast<char*>(nullptr));
  QsString::ToUpper_Inplace(static_cast<char*>(nullptr));
  QsString::ToLower_Inplace(nullptr, 3);
  QsString::ToUpper_Inplace(nullptr, 3);
}

TEST(QsStringCase, LowerWithControlsAsBlanks) {
  std::string text = AllBytes();
  QsString::ToLowerControlToSpace_Inplace(text);
  for (unsigned int c = 0; c < 256; ++c) {
    const auto byte = static_cast<unsigned char>(c);
    EXPECT_EQ(static_cast<unsigned char>(text[c]), QsChar::IsControl(byte) ? ' ' : QsChar::ToLower(byte)) << c;
  }
  std::string empty;
  QsString::ToLowerControlToSpace_Inplace(empty);
  EXPECT_EQ(empty, "");
}

TEST(QsStringStrip, KeepsTheOthersInOrder) {
  EXPECT_EQ(QsString::StripCharacters("a b", kSpace), "ab");
  EXPECT_EQ(QsString::StripCharacters(" a  b c ", kSpace), "abc");
  EXPECT_EQ(QsString::StripCharacters("a1b2", 0x2), "ab");
}

/// Lengths around those at which the loops change, blocks among them.
const std::size_t kLengths[] = {0,    1,    2,    7,    8,    9,     15,    16,    17,    31,    32,   33,
                                47,   63,   64,   65,   127,  128,   129,   300,   4095,  4096,  4097, 8190,
                                8191, 8192, 8193, 8208, 8224, 16383, 16384, 16385, 40000, 100001};

std::string RandomBytes(std::size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
  return bytes;
}

TEST(QsStringCase, LongTextsOnEveryLevel) {
  OnEveryLevel([] {
    std::mt19937 random(1);
    for (const std::size_t length : kLengths) {
      std::string text = RandomBytes(length, random);
      std::replace(text.begin(), text.end(), '\0', '\x8A');
      std::string lower = text;
      std::string upper = text;
      for (std::size_t i = 0; i < length; ++i) {
        lower[i] = static_cast<char>(QsChar::ToLower(static_cast<unsigned char>(text[i])));
        upper[i] = static_cast<char>(QsChar::ToUpper(static_cast<unsigned char>(text[i])));
      }
      ASSERT_EQ(QsString::ToLower(text), lower) << length;
      ASSERT_EQ(QsString::ToUpper(text), upper) << length;
      const std::unique_ptr<char[]> exact(new char[length + 1]);
      std::copy(text.c_str(), text.c_str() + length + 1, exact.get());
      QsString::ToLower_Inplace(exact.get());
      ASSERT_EQ(std::string(exact.get()), lower) << length;
      std::copy(text.c_str(), text.c_str() + length + 1, exact.get());
      QsString::ToUpper_Inplace(exact.get());
      ASSERT_EQ(std::string(exact.get()), upper) << length;
    }
  });
}

TEST(QsStringStrip, LongTextsOnEveryLevel) {
  OnEveryLevel([] {
    std::mt19937 random(2);
    for (const std::size_t length : kLengths) {
      const std::string text = RandomBytes(length, random);
      for (const unsigned int mask : {0x20U, 0x41U, 0x1000U, 0U}) {
        std::string kept;
        std::copy_if(text.begin(), text.end(), std::back_inserter(kept),
                     [mask](char c) { return (QsChar::GetMask(static_cast<unsigned char>(c)) & mask) == 0; });
        ASSERT_EQ(QsString::StripCharacters(text, mask), kept.empty() ? text : kept) << length << " " << mask;
      }
      const std::string digits(length, '7');
      ASSERT_EQ(QsString::StripCharacters(digits, 0x2), digits) << length;
    }
  });
}

TEST(QsStringStrip, GivesTheTextBackWhenNothingWouldBeLeft) {
  EXPECT_EQ(QsString::StripCharacters("   ", kSpace), "   ");
  EXPECT_EQ(QsString::StripCharacters("abc", kSpace), "abc");
  EXPECT_EQ(QsString::StripCharacters("", kSpace), "");
}

// ---- Formatting ----

TEST(QsSnprintf, ReturnsTheLengthWhenTheTextFits) {
  char buffer[6] = "xxxxx";
  EXPECT_EQ(Qs_snprintf(buffer, 5, "%s-%d", "ab", 7), 4);
  EXPECT_STREQ(buffer, "ab-7");
  EXPECT_EQ(Qs_snprintf(buffer, 5, "%s", ""), 0);
  EXPECT_STREQ(buffer, "");
}

TEST(QsSnprintf, FillingTheBufferIsAFailureWithoutTerminator) {
  char buffer[6];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(Qs_snprintf(buffer, 4, "%s", "abcd"), -1);
  EXPECT_EQ(Binary(buffer, 6), "abcd##");
  EXPECT_EQ(Qs_snprintf(buffer, 4, "abcd"), -1);
}

TEST(QsSnprintf, ExceedingTheBufferKeepsItsFirstCharacters) {
  char buffer[6];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(Qs_snprintf(buffer, 4, "%s%d", "abc", 123456), -1);
  EXPECT_EQ(Binary(buffer, 6), "abc1##");
  EXPECT_EQ(Qs_snprintf(buffer, 1, "%s", "z"), -1);
  EXPECT_EQ(Binary(buffer, 6), "zbc1##");
}

TEST(QsSnprintf, EverySizeAroundTheLength) {
  std::string text;
  for (int i = 0; i < 1100; ++i) {
    text.push_back(static_cast<char>('a' + i % 26));
  }
  for (unsigned int size = 1; size < 1105; ++size) {
    std::vector<char> buffer(size + 1, '#');
    const int result = Qs_snprintf(buffer.data(), size, "%s", text.c_str());
    EXPECT_EQ(result, size > text.size() ? static_cast<int>(text.size()) : -1) << size;
    const std::size_t written = std::min<std::size_t>(size, text.size());
    ASSERT_EQ(std::string(buffer.data(), written), text.substr(0, written)) << size;
    ASSERT_EQ(buffer[size], '#') << size;
  }
}

TEST(QsSnprintf, NothingToWriteTo) {
  char buffer[2] = "#";
  EXPECT_EQ(Qs_snprintf(buffer, 0, "%s", "a"), -1);
  EXPECT_STREQ(buffer, "#");
  EXPECT_EQ(Qs_snprintf(nullptr, 5, "%s", "a"), -1);
  const std::string none;
  EXPECT_EQ(Qs_snprintf(buffer, 1, none.c_str(), 0), 0);
  EXPECT_STREQ(buffer, "");
}

TEST(QsSnprintf, ALonePercentLeavesTheTextBeforeIt) {
  char buffer[20];
  std::memset(buffer, '#', sizeof buffer);
  const std::string format = "%d is 50%";
  EXPECT_EQ(Qs_snprintf(buffer, sizeof buffer, format.c_str(), 5), -1);
  EXPECT_STREQ(buffer, "5 is 50");
  const std::string lone = "%";
  EXPECT_EQ(Qs_snprintf(buffer, sizeof buffer, lone.c_str(), 5), -1);
  EXPECT_STREQ(buffer, "");
  for (const std::string open : {"50%5", "50%-", "50%ll", "50%.3", "%d%%%", "%%%d%"}) {
    EXPECT_EQ(Qs_snprintf(buffer, sizeof buffer, open.c_str(), 5, 6), -1) << open;
  }
  for (const std::string closed : {"50%%", "%%%%", "%d%%", "%%%d"}) {
    EXPECT_GT(Qs_snprintf(buffer, sizeof buffer, closed.c_str(), 5), 0) << closed;
  }
}

// On Windows too, whose own C runtime knows neither "z" nor "ll" nor long double.
TEST(QsSnprintf, KnowsTheDirectivesOfStandardC) {
  EXPECT_EQ(
      strprintf("%lld %llu", std::numeric_limits<long long>::min(), std::numeric_limits<unsigned long long>::max()),
      "-9223372036854775808 18446744073709551615");
  EXPECT_EQ(strprintf("%zu %zd", std::numeric_limits<std::size_t>::max(), static_cast<std::ptrdiff_t>(-1)),
            std::to_string(std::numeric_limits<std::size_t>::max()) + " -1");
  EXPECT_EQ(strprintf("%jd %td", std::intmax_t{-5}, std::ptrdiff_t{-6}), "-5 -6");
  EXPECT_EQ(strprintf("%ld %lu", -5L, 5UL), "-5 5");
  EXPECT_EQ(strprintf("%hd %hhd %hhx", short{-5}, static_cast<signed char>(-6), static_cast<unsigned char>(0xAB)),
            "-5 -6 ab");
  EXPECT_EQ(strprintf("%Lf %Lg %.2Le", 1.5L, 2.5L, 12345.0L), "1.500000 2.5 1.23e+04");
  EXPECT_EQ(strprintf("%e %g %g", 1e100, 1e-5, 1e15), "1.000000e+100 1e-05 1e+15") << "an exponent has two digits";
  EXPECT_EQ(strprintf("%.0f %.1f %.2f", 2.5, 0.25, 1.005), "2 0.2 1.00");
  EXPECT_EQ(strprintf("%5.1f|%-5d|%05d|%+d|%#x|%.3s", 2.25, 3, 4, 5, 255U, "abcdef"), "  2.2|3    |00004|+5|0xff|abc");
  EXPECT_EQ(strprintf("%s", std::string(3, '%').c_str()), "%%%");
#ifdef _WIN32
  const std::string microsoft = "%I64d %I64x %I32d";
  EXPECT_EQ(strprintf(microsoft.c_str(), std::numeric_limits<long long>::min(), 255LL, -7),
            "-9223372036854775808 ff -7");
#endif
}

TEST(Strprintf, FormatsAndCuts) {
  EXPECT_EQ(strprintf("%s %05d %c", "a", 42, 'z'), "a 00042 z");
  EXPECT_EQ(strprintf("%s", ""), "");
  for (const std::size_t length : {std::size_t{511}, std::size_t{512}, std::size_t{32766}, std::size_t{32767}}) {
    EXPECT_EQ(strprintf("%s", std::string(length, 'x').c_str()), std::string(length, 'x')) << length;
  }
  EXPECT_EQ(strprintf("%s", std::string(32768, 'x').c_str()), std::string(32767, 'x'));
  EXPECT_EQ(strprintf("%s", std::string(100000, 'x').c_str()), std::string(32767, 'x'));
}

TEST(Strprintf, ALonePercentEndsTheText) {
  const std::string format = "%d: 50%";
  EXPECT_EQ(strprintf(format.c_str(), 1), "1: 50");
}

TEST(AlignText, CutsKeepsAndPads) {
  EXPECT_EQ(AlignText("abcdef", 3, false, '.'), "abc");
  EXPECT_EQ(AlignText("abcdef", 3, true, '.'), "abc");
  EXPECT_EQ(AlignText("abc", 3, true, '.'), "abc");
  EXPECT_EQ(AlignText("ab", 4, false, '.'), "..ab");
  EXPECT_EQ(AlignText("ab", 4, true, '.'), "ab..");
  EXPECT_EQ(AlignText("", 2, true, '-'), "--");
  EXPECT_EQ(AlignText("ab", 0, true, '-'), "");
}

// ---- Searching ----

TEST(Stristr, FindsWithoutCase) {
  const char* text = "Hello World";
  EXPECT_EQ(stristr(text, "WORLD"), text + 6);
  EXPECT_EQ(stristr(text, "h"), text);
  EXPECT_EQ(stristr(text, "LO w"), text + 3);
  EXPECT_EQ(stristr(text, ""), text);
  EXPECT_EQ(stristr(text, "worlds"), nullptr);
  EXPECT_EQ(stristr("", "a"), nullptr);
  const char* repeated = "aaab";
  EXPECT_EQ(stristr(repeated, "AAB"), repeated + 1);
}

TEST(Stristr, FoldsAsciiOnly) {
  EXPECT_EQ(stristr("\xC9", "\xE9"), nullptr);
  EXPECT_NE(stristr("x\xC9", "X\xC9"), nullptr);
  EXPECT_EQ(stristr("@[", "`{"), nullptr);
}

TEST(Stristr, NullPointers) {
  EXPECT_EQ(stristr(nullptr, "a"), nullptr);
  EXPECT_EQ(stristr("a", nullptr), nullptr);
}

TEST(QsStringFind, WithAndWithoutCase) {
  EXPECT_TRUE(QsStringFind("Hello", "ell", true));
  EXPECT_FALSE(QsStringFind("Hello", "ELL", true));
  EXPECT_TRUE(QsStringFind("Hello", "ELL", false));
  EXPECT_TRUE(QsStringFind("\xC9t\xE9", "\xE9T\xC9", false));
  EXPECT_FALSE(QsStringFind("\xC9", "\xE9", true));
  EXPECT_FALSE(QsStringFind("abc", "abcd", false));
  EXPECT_TRUE(QsStringFind("abc", "", false));
  EXPECT_TRUE(QsStringFind(Binary("a\0b", 3), Binary("\0B", 2), false));
}

// ---- Splitting and replacing ----

TEST(SplitString, CutsAtEachSeparator) {
  EXPECT_THAT(Split("a;;b", ";", false), ElementsAre("a", "b"));
  EXPECT_THAT(Split("a;;b", ";", true), ElementsAre("a", "", "b"));
  EXPECT_THAT(Split(";a;", ";", false), ElementsAre("a"));
  EXPECT_THAT(Split(";a;", ";", true), ElementsAre("", "a", ""));
  EXPECT_THAT(Split("a;", ";", false), ElementsAre("a"));
  EXPECT_THAT(Split("a;", ";", true), ElementsAre("a", ""));
  EXPECT_THAT(Split("abc", ";", false), ElementsAre("abc"));
  EXPECT_THAT(Split("a--b--c", "--", false), ElementsAre("a", "b", "c"));
}

TEST(SplitString, NoText) {
  EXPECT_THAT(Split("", ";", false), IsEmpty());
  EXPECT_THAT(Split("", ";", true), IsEmpty());
  EXPECT_THAT(Split("abc", "", true), IsEmpty());
  EXPECT_THAT(Split("", "", true), IsEmpty());
}

TEST(SplitString, SeparatorsOnly) {
  EXPECT_THAT(Split("a", "ab", false), ElementsAre("a"));
  EXPECT_THAT(Split(";", ";", false), IsEmpty());
  EXPECT_THAT(Split(";", ";", true), ElementsAre("", ""));
  EXPECT_THAT(Split(";;", ";", false), IsEmpty());
  EXPECT_THAT(Split(";;", ";", true), ElementsAre("", "", ""));
  EXPECT_THAT(Split("abab", "ab", true), ElementsAre("", "", ""));
}

TEST(SplitString, WhatStandsBehindTheLastSeparatorIsDropped) {
  EXPECT_THAT(Split("a---", "--", false), ElementsAre("a"));
  EXPECT_THAT(Split("a-", "--", false), ElementsAre("a"));
}

TEST(SplitString, OutputMayHoldTheInputs) {
  std::vector<std::string> parts{"-", "a-b-c"};
  EXPECT_EQ(SplitString(parts[1], parts[0], parts, false), 3U);
  EXPECT_THAT(parts, ElementsAre("a", "b", "c"));
}

TEST(SplitString, AgreesWithTheRulesOnRandomTexts) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    const std::string text = RandomText(random, "a-;", 12);
    const std::string separator = RandomText(random, "-;", 3);
    for (const bool keepEmpty : {false, true}) {
      ASSERT_EQ(Split(text, separator, keepEmpty), SplitStepByStep(text, separator, keepEmpty))
          << text << " at " << separator;
    }
  }
}

TEST(SeparateString, AtTheFirstSeparator) {
  std::string before = "old";
  std::string after = "old";
  SeparateString("key=value=x", '=', before, after);
  EXPECT_EQ(before, "key");
  EXPECT_EQ(after, "value=x");
  SeparateString("=", '=', before, after);
  EXPECT_EQ(before, "");
  EXPECT_EQ(after, "");
  after = "old";
  SeparateString("abc", '=', before, after);
  EXPECT_EQ(before, "abc");
  EXPECT_EQ(after, "");
}

TEST(SeparateString, OutputMayBeTheInput) {
  std::string text = "a=b";
  std::string other;
  SeparateString(text, '=', text, other);
  EXPECT_EQ(text, "a");
  EXPECT_EQ(other, "b");
  text = "a=b";
  SeparateString(text, '=', other, text);
  EXPECT_EQ(other, "a");
  EXPECT_EQ(text, "b");
  text = "ab";
  SeparateString(text, '=', other, text);
  EXPECT_EQ(other, "ab");
  EXPECT_EQ(text, "");
  text = "ab";
  SeparateString(text, '=', text, other);
  EXPECT_EQ(text, "ab");
}

TEST(QsReplaceString, InsertedTextIsNotSearched) {
  std::string text = "aXa";
  EXPECT_EQ(QsReplaceStringInPlace(text, "a", "aa", true), 2);
  EXPECT_EQ(text, "aaXaa");
  text = "aaaa";
  EXPECT_EQ(QsReplaceStringInPlace(text, "aa", "a", true), 2);
  EXPECT_EQ(text, "aa");
}

TEST(QsReplaceString, WithoutCase) {
  std::string text = "AbA";
  EXPECT_EQ(QsReplaceStringInPlace(text, "a", "x", false), 2);
  EXPECT_EQ(text, "xbx");
  text = "AbA";
  EXPECT_EQ(QsReplaceStringInPlace(text, "a", "x", true), 0);
  EXPECT_EQ(text, "AbA");
  text = "eTe\xC9";
  EXPECT_EQ(QsReplaceStringInPlace(text, "\xE9", "Long One", false), 1);
  EXPECT_EQ(text, "eTeLong One");
}

TEST(QsReplaceString, EmptyTexts) {
  std::string text;
  EXPECT_EQ(QsReplaceStringInPlace(text, "a", "b", true), 0);
  EXPECT_EQ(text, "");
  text = "abc";
  EXPECT_EQ(QsReplaceStringInPlace(text, "", "b", false), 0);
  EXPECT_EQ(text, "abc");
  EXPECT_EQ(QsReplaceStringInPlace(text, "b", "", false), 1);
  EXPECT_EQ(text, "ac");
}

TEST(QsReplaceString, OutputMayBeTheInput) {
  std::string text = "abc";
  EXPECT_EQ(QsReplaceStringInPlace(text, text, "longer than that", true), 1);
  EXPECT_EQ(text, "longer than that");
  text = "ab";
  EXPECT_EQ(QsReplaceStringInPlace(text, "b", text, true), 1);
  EXPECT_EQ(text, "aab");
  text = "ab";
  EXPECT_EQ(QsReplaceStringInPlace(text, text, text, false), 1);
  EXPECT_EQ(text, "ab");
}

TEST(QsReplaceString, AgreesWithTheRulesOnRandomTexts) {
  std::mt19937 random(2);
  for (int i = 0; i < 20000; ++i) {
    const std::string text = RandomText(random, "aAbB", 16);
    const std::string what = RandomText(random, "aAbB", 3);
    const std::string with = RandomText(random, "aAx", 4);
    for (const bool caseSensitive : {false, true}) {
      std::string expected = text;
      std::string replaced = text;
      const int count = ReplaceOneByOne(expected, what, with, caseSensitive);
      ASSERT_EQ(QsReplaceStringInPlace(replaced, what, with, caseSensitive), count) << text << " " << what;
      ASSERT_EQ(replaced, expected) << text << " " << what << " " << with;
      ASSERT_EQ(QsReplaceString(text, what, with, caseSensitive), expected);
    }
  }
}

TEST(QsReplaceString, LargeTexts) {
  std::string text;
  for (int i = 0; i < 1000000; ++i) {
    text += "ab";
  }
  EXPECT_EQ(QsReplaceStringInPlace(text, "A", "xyz", false), 1000000);
  EXPECT_EQ(text.size(), 4000000U);
  EXPECT_EQ(QsReplaceStringInPlace(text, "xyz", "", true), 1000000);
  EXPECT_EQ(text, std::string(1000000, 'b'));
}

TEST(QsReplaceChar, EveryOccurrence) {
  std::string text = Binary("a\0a", 3);
  QsReplaceCharInPlace(text, 'a', '\0');
  EXPECT_EQ(text, Binary("\0\0\0", 3));
  EXPECT_EQ(QsReplaceChar("a/b/c", '/', '\\'), "a\\b\\c");
  EXPECT_EQ(QsReplaceChar("", '/', '\\'), "");
}

TEST(QsReplaceChar, LongTextsOnEveryLevel) {
  OnEveryLevel([] {
    std::mt19937 random(4);
    for (const std::size_t length : kLengths) {
      const std::string text = RandomBytes(length, random);
      std::string expected = text;
      std::replace(expected.begin(), expected.end(), 'e', 'E');
      ASSERT_EQ(QsReplaceChar(text, 'e', 'E'), expected) << length;
    }
  });
}

TEST(ReplaceCRLFHT, BecomeBlanks) {
  std::string text = "a\r\n\tb\v";
  ReplaceCRLFHT(text);
  EXPECT_EQ(text, "a   b\v");
  unsigned char bytes[] = {'\t', 'a', '\n', '\r'};
  ReplaceCRLFHT(bytes, 3);
  EXPECT_EQ(Binary(reinterpret_cast<const char*>(bytes), 4), " a \r");
  ReplaceCRLFHT(bytes, 0);
  ReplaceCRLFHT(bytes, -1);
  EXPECT_EQ(bytes[3], '\r');
  ReplaceCRLFHT(nullptr, 4);
}

TEST(QsConditionalAppendChar, OnlyWhenMissing) {
  std::string text;
  QsConditionalAppendChar(text, '\\');
  EXPECT_EQ(text, "\\");
  QsConditionalAppendChar(text, '\\');
  EXPECT_EQ(text, "\\");
  std::string other("a");
  QsConditionalAppendChar(other, '\\');
  EXPECT_EQ(other, "a\\");
}

// ---- Hex ----

TEST(Hex, WritesUpperCaseDigitsOfEveryByte) {
  for (unsigned int c = 0; c < 256; ++c) {
    char expected[3];
    std::snprintf(expected, sizeof expected, "%02X", c);
    const auto byte = static_cast<unsigned char>(c);
    unsigned char out[3] = {'#', '#', '#'};
    ByteToHex(byte, out);
    EXPECT_EQ(Binary(reinterpret_cast<char*>(out), 3), std::string(expected) + "#");
    EXPECT_EQ(Byte2Hex(byte), expected);
    EXPECT_EQ(HexToByte(Bytes(expected)), byte);
    EXPECT_EQ(HexToByte(Bytes(QsString::ToLower(expected).c_str())), byte);
  }
}

TEST(Hex, ByteStrings) {
  const unsigned char bytes[] = {0x00, 0xAB, 0xFF};
  unsigned char out[8];
  std::memset(out, '#', sizeof out);
  ByteStringToHexString(bytes, 3, out);
  EXPECT_EQ(Binary(reinterpret_cast<char*>(out), 8), Binary("00ABFF\0#", 8));
  std::memset(out, '#', sizeof out);
  ByteStringToHexString(bytes, 0, out);
  EXPECT_EQ(Binary(reinterpret_cast<char*>(out), 2), Binary("\0#", 2));
}

TEST(Hex, BytesWithAndWithoutBlanks) {
  const unsigned char bytes[] = {0x00, 0xAB, 0xFF};
  EXPECT_EQ(Bytes2Hex(bytes, 3, false), "00ABFF");
  EXPECT_EQ(Bytes2Hex(bytes, 3, true), "00 AB FF");
  EXPECT_EQ(Bytes2Hex(bytes, 1, true), "00");
  EXPECT_EQ(Bytes2Hex(bytes, 0, true), "");
  EXPECT_EQ(Bytes2Hex(bytes, -1, false), "");
  EXPECT_EQ(Bytes2Hex(nullptr, 3, true), "");
  EXPECT_EQ(Bytes2Hex(0x0102ABCDU, false), "0102ABCD");
  EXPECT_EQ(Bytes2Hex(0x0102ABCDU, true), "01 02 AB CD");
}

TEST(Hex, BadPairsThrow) {
  EXPECT_EQ(ErrorOf([] { HexToByte(nullptr); }), "HexToByte called with invalid parameter (NULL)");
  EXPECT_EQ(ErrorOf([] { HexToByte(Bytes("4G10")); }), "character in '4G' is not a hex character");
  EXPECT_EQ(ErrorOf([] { HexToByte(Bytes("G4")); }), "character in 'G4' is not a hex character");
  EXPECT_EQ(ErrorOf([] { HexToByte(Bytes("4")); }), "character in '4' is not a hex character");
  EXPECT_EQ(ErrorOf([] { HexToByte(Bytes("")); }), "character in '' is not a hex character");
}

TEST(Hex, OnlyTheTwentyTwoDigitsAreDigits) {
  for (unsigned int c = 1; c < 256; ++c) {
    const unsigned char high[] = {static_cast<unsigned char>(c), '0', 0};
    const unsigned char low[] = {'0', static_cast<unsigned char>(c), 0};
    const bool digit = std::isxdigit(static_cast<int>(c)) != 0;
    EXPECT_EQ(ErrorOf([&] { HexToByte(high); }) == "no error", digit) << c;
    EXPECT_EQ(ErrorOf([&] { HexToByte(low); }) == "no error", digit) << c;
  }
}

TEST(Hex, StringsOfPairsEndAtTheZeroNotAtTheLength) {
  unsigned char out[4] = {'#', '#', '#', '#'};
  HexStringToByteString(Bytes("4142"), 2, out);
  EXPECT_EQ(Binary(reinterpret_cast<char*>(out), 4), "AB##");
  HexStringToByteString(Bytes("43"), 6, out);
  EXPECT_EQ(Binary(reinterpret_cast<char*>(out), 4), "CB##");
  EXPECT_EQ(ErrorOf([&] { HexStringToByteString(Bytes("4142"), 3, out); }), "length is not a multiple of 2");
  EXPECT_EQ(ErrorOf([&] { HexStringToByteString(Bytes("414"), 4, out); }), "character in '4' is not a hex character");
  EXPECT_EQ(ErrorOf([&] { HexStringToByteString(nullptr, 2, out); }), "HexToByte called with invalid parameter (NULL)");
}

TEST(Hex, StringsBothWays) {
  EXPECT_EQ(Hex2String("410042"), Binary("A\0B", 3));
  EXPECT_EQ(String2Hex(Binary("A\0B", 3)), "410042");
  EXPECT_EQ(Hex2String(""), "");
  EXPECT_EQ(String2Hex(""), "");
  EXPECT_EQ(Hex2String("fFaB"), "\xFF\xAB");
  EXPECT_EQ(Hex2String(String2Hex(AllBytes())), AllBytes());
}

TEST(Hex, BadStringsThrow) {
  EXPECT_EQ(ErrorOf([] { Hex2String("41004"); }), "length is not a multiple of 2");
  EXPECT_EQ(ErrorOf([] { Hex2String("4G"); }), "character in '4G' is not a hex character");
  EXPECT_EQ(ErrorOf([] { Hex2String(Binary("414\0", 4)); }), "character in '4' is not a hex character");
}

TEST(Hex, BehindAZeroByteAllBytesAreZero) {
  EXPECT_EQ(Hex2String(Binary("41\0"
                              "2G5",
                              6)),
            Binary("A\0\0", 3));
}

TEST(Hex, LongStringsOnEveryLevel) {
  OnEveryLevel([] {
    std::mt19937 random(3);
    for (const std::size_t length : kLengths) {
      const std::string bytes = RandomBytes(length, random);
      std::string hex;
      for (const char c : bytes) {
        hex += Byte2Hex(static_cast<unsigned char>(c));
      }
      ASSERT_EQ(String2Hex(bytes), hex) << length;
      ASSERT_EQ(Bytes2Hex(Bytes(bytes.data()), static_cast<int>(length), false), hex) << length;
      ASSERT_EQ(Hex2String(hex), bytes) << length;
      ASSERT_EQ(Hex2String(QsString::ToLower(hex)), bytes) << length;
      const std::unique_ptr<unsigned char[]> text(new unsigned char[2 * length + 1]);
      ByteStringToHexString(Bytes(bytes.data()), static_cast<unsigned int>(length), text.get());
      ASSERT_EQ(std::string(reinterpret_cast<const char*>(text.get())), hex) << length;
      const std::unique_ptr<unsigned char[]> out(new unsigned char[length]);
      HexStringToByteString(text.get(), static_cast<unsigned int>(2 * length), out.get());
      ASSERT_EQ(std::string(out.get(), out.get() + length), bytes) << length;
      std::fill(out.get(), out.get() + length, '#');
      HexStringToByteString(text.get(), 0, out.get());
      ASSERT_EQ(std::string(out.get(), out.get() + length), bytes) << length << " of no stated length";
      HexStringToByteString(text.get(), static_cast<unsigned int>(2 * length), text.get());
      ASSERT_EQ(std::string(text.get(), text.get() + length), bytes) << length << " in place";
    }
  });
}

TEST(Hex, BadPairsAndZerosOfLongStrings) {
  OnEveryLevel([] {
    constexpr unsigned int pairs = 10000;
    for (std::size_t at = 0; at < 2 * pairs; at += at < 200 || at > 16000 ? 1 : 997) {
      std::string hex(2 * pairs, 'a');
      hex[at] = 'G';
      const std::string error = "character in '" + hex.substr(at / 2 * 2, 2) + "' is not a hex character";
      ASSERT_EQ(ErrorOf([&] { Hex2String(hex); }), error) << at;
      std::string out(pairs, '#');
      ASSERT_EQ(ErrorOf([&] {
                  HexStringToByteString(Bytes(hex.c_str()), 2 * pairs, reinterpret_cast<unsigned char*>(out.data()));
                }),
                error)
          << at;
      ASSERT_EQ(out, std::string(at / 2, '\xAA') + std::string(pairs - at / 2, '#')) << at;
      hex[at] = '\0';
      if (at % 2 == 0) {
        ASSERT_EQ(Hex2String(hex), std::string(at / 2, '\xAA') + std::string(pairs - at / 2, '\0')) << at;
      } else {
        ASSERT_EQ(ErrorOf([&] { Hex2String(hex); }), "character in 'a' is not a hex character") << at;
      }
    }
  });
}

// ---- Numbers ----

TEST(AsciiToInt, NarrowsTo32Bits) {
  EXPECT_EQ(AsciiToInt("10"), 10);
  EXPECT_EQ(AsciiToInt("0x10"), 16);
  EXPECT_EQ(AsciiToInt("2147483647"), 2147483647);
  EXPECT_EQ(AsciiToInt("2147483648"), std::numeric_limits<int>::min());
  EXPECT_EQ(AsciiToInt("3000000000"), -1294967296);
  EXPECT_EQ(AsciiToInt("4294967295"), -1);
  EXPECT_EQ(AsciiToInt("4294967296"), 2147483647);
  EXPECT_EQ(AsciiToInt("5000000000"), 2147483647);
  EXPECT_EQ(AsciiToInt("-2147483648"), std::numeric_limits<int>::min());
  EXPECT_EQ(AsciiToInt("-2147483649"), std::numeric_limits<int>::min());
  EXPECT_EQ(AsciiToInt("-5000000000"), std::numeric_limits<int>::min());
  EXPECT_EQ(AsciiToInt(nullptr), 0);
  EXPECT_EQ(AsciiToInt(""), 0);
}

TEST(AsciiToInt64, Hexadecimal) {
  EXPECT_EQ(AsciiToInt64("0x1G"), 0);
  EXPECT_EQ(AsciiToInt64("0x10"), 16);
  EXPECT_EQ(AsciiToInt64("0XaBcDeF"), 0xABCDEF);
  EXPECT_EQ(AsciiToInt64("0x"), 0);
  EXPECT_EQ(AsciiToInt64(" 0x10"), 0);
  EXPECT_EQ(AsciiToInt64("-0x10"), 0);
  EXPECT_EQ(AsciiToInt64("0x10 "), 0);
  EXPECT_EQ(AsciiToInt64("0x7FFFFFFFFFFFFFFF"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(AsciiToInt64("0xFFFFFFFFFFFFFFFF"), -1);
  EXPECT_EQ(AsciiToInt64("0x120000000000000003"), 3);
}

TEST(AsciiToInt64, Decimal) {
  EXPECT_EQ(AsciiToInt64("10"), 10);
  EXPECT_EQ(AsciiToInt64(" \t\r\n\v\f-12x3"), -12);
  EXPECT_EQ(AsciiToInt64("+7"), 7);
  EXPECT_EQ(AsciiToInt64("+-7"), 0);
  EXPECT_EQ(AsciiToInt64("- 7"), 0);
  EXPECT_EQ(AsciiToInt64("abc"), 0);
  EXPECT_EQ(AsciiToInt64(nullptr), 0);
}

TEST(AsciiToInt64, StopsAtTheLimits) {
  EXPECT_EQ(AsciiToInt64("9223372036854775806"), std::numeric_limits<std::int64_t>::max() - 1);
  EXPECT_EQ(AsciiToInt64("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(AsciiToInt64("9223372036854775808"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(AsciiToInt64("99999999999999999999999"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(AsciiToInt64("-9223372036854775807"), std::numeric_limits<std::int64_t>::min() + 1);
  EXPECT_EQ(AsciiToInt64("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(AsciiToInt64("-9223372036854775809"), std::numeric_limits<std::int64_t>::min());
}

TEST(AsciiToDouble, ReadsEachPart) {
  const struct {
    const char* text;
    double value;
  } rows[] = {{" -1,5e2", -150.0},   {"2.5d-1", 0.25},
              {"abc", 0.0},          {"", 0.0},
              {"   ", 0.0},          {"1.12345678901e1", 11.23456789},
              {",5", 0.5},           {".5", 0.5},
              {"1e", 1.0},           {"1e+", 1.0},
              {"+-5", 0.0},          {"-+5", 0.0},
              {"+5", 5.0},           {"5.", 5.0},
              {"5.x", 5.0},          {"1E3", 1000.0},
              {"1D+3", 1000.0},      {"1d3", 1000.0},
              {"2e0", 2.0},          {"1.5.5", 1.5},
              {"\t5", 0.0},          {"1,000.5", 1.0},
              {"e5", 0.0},           {"0.0000000001", 1e-10},
              {"0.00000000009", 0.0}};
  for (const auto& row : rows) {
    EXPECT_DOUBLE_EQ(AsciiToDouble(row.text), row.value) << row.text;
  }
  EXPECT_EQ(AsciiToDouble(nullptr), 0.0);
}

TEST(AsciiToDouble, OutOfRange) {
  EXPECT_EQ(AsciiToDouble("1e400"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(AsciiToDouble("-1e400"), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(AsciiToDouble("1e99999999999999999999"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(AsciiToDouble("1e-400"), 0.0);
  EXPECT_EQ(AsciiToDouble("0e400"), 0.0);
  EXPECT_EQ(AsciiToDouble(std::string(400, '9').c_str()), std::numeric_limits<double>::infinity());
  EXPECT_EQ(AsciiToDouble((std::string(400, '9') + "e-500").c_str()), std::numeric_limits<double>::infinity());
}

// The next tests run in a locale with a decimal comma and dots between the thousands.
class DecimalComma : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(Enter());
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    ASSERT_EQ(std::atof("1,5"), 1.5) << "the C library does not follow the locale";
  }

  void TearDown() override {
    std::setlocale(LC_ALL, "C");
    if (!_folder.empty()) {
      std::error_code ignored;
      std::filesystem::remove_all(_folder, ignored);
    }
  }

 private:
#ifdef _WIN32
  void Enter() { ASSERT_NE(std::setlocale(LC_ALL, "German"), nullptr); }
#else
  // The system need not have such a locale, nor the data to make one: this one is compiled here of its own sources.
  void Enter() {
    std::string name = (std::filesystem::temp_directory_path() / "qsbase-locale-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    _folder = name;
    std::ofstream(_folder / "charmap") << "<code_set_name> ANSI_X3.4-1968\n<comment_char> %\n<escape_char> /\n"
                                          "CHARMAP\n<U0000>..<U007F> /x00 ASCII\nEND CHARMAP\n";
    std::ofstream(_folder / "source") << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\n"
                                         "END LC_NUMERIC\n";
    // The categories that the source leaves out are worth a warning and exit code 1.
    const std::string command = "cd '" + name + "' && localedef -c --quiet -f ./charmap -i ./source ./comma";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << command;
    ASSERT_EQ(setenv("LOCPATH", name.c_str(), 1), 0);
    ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr);
  }
#endif

  std::filesystem::path _folder;
};

TEST_F(DecimalComma, DoesNotChangeHowNumbersAreRead) {
  EXPECT_EQ(AsciiToDouble("1.5"), 1.5);
  EXPECT_EQ(AsciiToDouble("1,5"), 1.5);
  EXPECT_EQ(AsciiToDouble("-1234.25e2x"), -123425.0);
  EXPECT_EQ(AsciiToDouble("1.234,5"), 1.234);
  EXPECT_EQ(AsciiToInt64("1.234"), 1);
  EXPECT_EQ(AsciiToInt("12345678"), 12345678);
}

// On Windows the C library's own case and classes follow this locale beyond ASCII.
TEST_F(DecimalComma, DoesNotChangeCase) {
  std::string upper;
  for (int c = 0; c < 256; ++c) {
    const bool pairOf32 = (c >= 'a' && c <= 'z') || (c >= 224 && c <= 254 && c != 247);
    const bool pairOf16 = c == 154 || c == 156 || c == 158;
    upper.push_back(static_cast<char>(c == 255 ? 159 : pairOf32 ? c - 32 : pairOf16 ? c - 16 : c));
  }
  EXPECT_EQ(QsString::ToUpper(AllBytes()), upper);
  EXPECT_EQ(QsString::ToLower(upper), QsString::ToLower(AllBytes()));
  EXPECT_EQ(QsString::Trim("\xA0 x \xA0", 0x20), "\xA0 x \xA0");
}

TEST_F(DecimalComma, DoesNotChangeHowSizesAreWritten) {
  EXPECT_EQ(MemoryString(1024000), "1000 KB");
  EXPECT_EQ(MemoryString(1099511627776), "1024 GB");
}

// ---- Names and sizes ----

TEST(SymbolicName, EscapesWhatIsNoIdentifier) {
  EXPECT_EQ(MakeSymbolicName("1a b"), "_31_a_20_b");
  EXPECT_EQ(SymbolicNameToString("_31_a_20_b"), "1a b");
  EXPECT_EQ(MakeSymbolicName("a1"), "a1");
  EXPECT_EQ(MakeSymbolicName("a_b"), "a_5f_b");
  EXPECT_EQ(MakeSymbolicName("\xE9"), "_e9_");
  EXPECT_EQ(MakeSymbolicName(""), "Unnamed_Object");
}

TEST(SymbolicName, RoundTripOfEveryPairOfBytes) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string text = {static_cast<char>(first), static_cast<char>(second)};
      const std::string name = MakeSymbolicName(text);
      for (const char c : name) {
        ASSERT_TRUE(c == '_' || QsChar::IsAsciiAlphaNumeric(static_cast<unsigned char>(c)));
      }
      ASSERT_FALSE(QsChar::IsNumeric(static_cast<unsigned char>(name[0])));
      ASSERT_EQ(SymbolicNameToString(name), text);
    }
  }
}

TEST(SymbolicName, ForeignNamesAreReadWithoutHarm) {
  EXPECT_EQ(SymbolicNameToString("Unnamed_Object"), "Unnamed_Object");
  EXPECT_EQ(SymbolicNameToString("_41"), "A");
  EXPECT_EQ(SymbolicNameToString("_41b"), "Ab");
  EXPECT_EQ(SymbolicNameToString("_4"), "_4");
  EXPECT_EQ(SymbolicNameToString("_"), "_");
  EXPECT_EQ(SymbolicNameToString("_4G_"), "_4G_");
  EXPECT_EQ(SymbolicNameToString("_C9_"), "\xC9");
  EXPECT_EQ(SymbolicNameToString(""), "");
}

TEST(MemoryString, Units) {
  const struct {
    std::int64_t bytes;
    const char* text;
  } rows[] = {{0, "0 Bytes"},
              {1, "1 Bytes"},
              {2047, "2047 Bytes"},
              {2048, "2 KB"},
              {2560, "3 KB"},
              {1024000, "1000 KB"},
              {1025024, "1001 KB"},
              {2097151, "2048 KB"},
              {2097152, "2 MB"},
              {1048576000, "1000 MB"},
              {1048576001, "1000 MB"},
              {1073741823, "1024 MB"},
              {1073741824, "1 GB"},
              {1610612736, "2 GB"},
              {1099511627776, "1024 GB"},
              {-2, "-1 Bytes"},
              {-1099511627776, "-1099511627775 Bytes"},
              {std::numeric_limits<std::int64_t>::max(), "8589934592 GB"}};
  for (const auto& row : rows) {
    EXPECT_EQ(MemoryString(row.bytes), row.text) << row.bytes;
  }
}
