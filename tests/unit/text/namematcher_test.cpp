#include <QSbase/errors.h>
#include <QSbase/text/namematcher.h>

#include <common/memorylimit.h>
#include <common/sanitized.h>
#include <gtest/gtest.h>
#include <boost/regex.hpp>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <locale>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

#ifdef __SANITIZE_THREAD__
// The system's Boost.Regex hands the blocks of its stack from search to search by atomics that are not instrumented.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() { return "race:boost/regex/v4\n"; }
#endif

namespace {

using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;

// Instrumented programs take their time.
#ifdef QSBASE_TESTS_SANITIZED
constexpr int kPatterns = 10000;
#else
constexpr int kPatterns = 100000;
#endif
constexpr int kNamesPerPattern = 10;

#ifdef _WIN32
using Traits = boost::w32_regex_traits<char>;
#else
using Traits = boost::cpp_regex_traits<char>;
#endif
using Expression = boost::basic_regex<char, Traits>;

std::string Join(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) {
    text += part;
  }
  return text;
}

std::string Prepared(const std::string& pattern, bool anchored) {
  std::vector<char> buffer(4096, '~');
  PrepareWildcardString(pattern.c_str(), buffer.data(), static_cast<int>(buffer.size()), anchored);
  return buffer.data();
}

std::string PrepareError(const char* pattern, char* buffer, int size, bool anchored) {
  try {
    PrepareWildcardString(pattern, buffer, size, anchored);
  } catch (const ExBase& error) {
    return error.GetErrorText();
  }
  return "no error";
}

/// The index of the first pattern that matches, or -1.
int Match(const CNameMatcher& matcher, const std::string& name) {
  unsigned int index = 4711;
  const int result = matcher.MatchName(name, index);
  EXPECT_EQ(result, matcher.MatchName(name)) << name;
  EXPECT_TRUE(result == 0 || result == 1) << result;
  EXPECT_EQ(result == 0, index == 4711u) << index;
  return result == 1 ? static_cast<int>(index) : -1;
}

int Match(const char* patterns, bool anchored, const std::string& name) {
  return Match(CNameMatcher(patterns, anchored), name);
}

// ---- Kinds ----

TEST(GetWildcardStringType, TellsTheKind) {
  EXPECT_EQ(0, GetWildcardStringType(""));
  EXPECT_EQ(0, GetWildcardStringType("a.txt"));
  EXPECT_EQ(0, GetWildcardStringType("a#"));
  EXPECT_EQ(0, GetWildcardStringType("a+[b]"));
  EXPECT_EQ(1, GetWildcardStringType("#"));
  EXPECT_EQ(1, GetWildcardStringType("#a.*"));
  EXPECT_EQ(2, GetWildcardStringType("*"));
  EXPECT_EQ(2, GetWildcardStringType("?"));
  EXPECT_EQ(2, GetWildcardStringType("a*.txt"));
  EXPECT_EQ(2, GetWildcardStringType("file?"));
  EXPECT_EQ(2, GetWildcardStringType("a#*"));
  EXPECT_EQ(2, GetWildcardStringType(std::string("a\0?", 3)));
}

// ---- Expressions ----

TEST(PrepareWildcardString, WritesExpressions) {
  EXPECT_EQ("^.*\\.txt$", Prepared("*.txt", true));
  EXPECT_EQ(".*\\.txt", Prepared("*.txt", false));
  EXPECT_EQ("a\\+b", Prepared("a+b", false));
  EXPECT_EQ("file.", Prepared("file?", false));
  EXPECT_EQ("^file.$", Prepared("file?", true));
  EXPECT_EQ("\\$\\(\\)\\+\\.\\[\\\\\\]\\^\\{\\|\\}", Prepared("$()+.[\\]^{|}", false));
  EXPECT_EQ("^.*.*..$", Prepared("**??", true));
  EXPECT_EQ("^a#b$", Prepared("a#b", true));
}

TEST(PrepareWildcardString, EscapesTheseAndNoOtherByte) {
  const std::string escaped = "$()+.[\\]^{|}";
  for (int c = 1; c < 256; ++c) {
    const std::string text = std::string("x") + static_cast<char>(c);
    if (c == '*' || c == '?') {
      continue;
    }
    const bool escapes = escaped.find(static_cast<char>(c)) != std::string::npos;
    EXPECT_EQ(escapes ? std::string("x\\") + static_cast<char>(c) : text, Prepared(text, false)) << c;
  }
}

TEST(PrepareWildcardString, CopiesAnExpressionAsItIs) {
  EXPECT_EQ("a.*", Prepared("#a.*", false));
  EXPECT_EQ("a.*", Prepared("#a.*", true)) << "the anchors of an expression are its own";
  EXPECT_EQ("#a", Prepared("##a", true));
  EXPECT_EQ("", Prepared("#", true));
}

TEST(PrepareWildcardString, NeedsRoomForTheTextAndItsEnd) {
  for (const bool anchored : {false, true}) {
    for (const char* const pattern : {"a", "*", "?", "+", "a*", "a.b", "*.txt", "$()+.[\\]^{|}", "???"}) {
      const std::string expression = Prepared(pattern, anchored);
      const int needed = static_cast<int>(expression.size()) + 1;
      for (int size = 1; size <= needed + 2; ++size) {
        std::vector<char> buffer(static_cast<std::size_t>(needed) + 8, '~');
        const std::string error = PrepareError(pattern, buffer.data(), size, anchored);
        const bool fits = size >= needed;
        EXPECT_EQ(fits ? "no error" : "PrepareWildcardString: buffer to small", error) << pattern << " " << size;
        EXPECT_EQ(fits ? expression : "", std::string(buffer.data()));
        for (auto i = static_cast<std::size_t>(size); i < buffer.size(); ++i) {
          ASSERT_EQ('~', buffer[i]) << "written beyond the size";
        }
      }
    }
  }
  EXPECT_EQ(4u, Prepared("a", true).size() + 1);
}

TEST(PrepareWildcardString, CutsAnExpressionAndEndsIt) {
  for (const char* const pattern : {"#", "#a", "#abc", "#a.*b"}) {
    const std::string whole = pattern + 1;
    for (int size = 1; size < 8; ++size) {
      std::vector<char> buffer(16, '~');
      PrepareWildcardString(pattern, buffer.data(), size, true);
      EXPECT_EQ(whole.substr(0, static_cast<std::size_t>(size) - 1), std::string(buffer.data()));
      for (auto i = static_cast<std::size_t>(size); i < buffer.size(); ++i) {
        ASSERT_EQ('~', buffer[i]) << "written beyond the size";
      }
    }
  }
}

TEST(PrepareWildcardString, RefusesNothing) {
  char buffer[] = "before";
  const std::string error = "PrepareWildcardString: invalid or empty expression";
  EXPECT_EQ(error, PrepareError(nullptr, buffer, sizeof buffer, true));
  EXPECT_EQ(error, PrepareError("", buffer, sizeof buffer, false));
  EXPECT_EQ(error, PrepareError("", nullptr, 0, false));
  EXPECT_STREQ("before", buffer);
}

TEST(PrepareWildcardString, RefusesABufferThatIsNone) {
  char buffer[] = "before";
  const std::string error = "PrepareWildcardString: buffer to small";
  for (const char* const pattern : {"a", "#a", "#", "*"}) {
    for (const bool anchored : {false, true}) {
      EXPECT_EQ(error, PrepareError(pattern, buffer, 0, anchored));
      EXPECT_EQ(error, PrepareError(pattern, buffer, -1, anchored));
      EXPECT_EQ(error, PrepareError(pattern, buffer, -2147483647 - 1, anchored));
      EXPECT_EQ(error, PrepareError(pattern, nullptr, 100, anchored));
    }
  }
  EXPECT_STREQ("before", buffer);
}

// ---- The list ----

TEST(CNameMatcher, ReportsTheFirstThatMatches) {
  const CNameMatcher matcher("*.TXT;*.log", true);
  EXPECT_EQ(0, Match(matcher, "readme.txt"));
  EXPECT_EQ(1, Match(matcher, "x.LOG"));
  EXPECT_EQ(-1, Match(matcher, "x.doc"));
  EXPECT_EQ(-1, Match(matcher, ""));
  EXPECT_EQ(0, Match("a*;*b", true, "ab"));
  EXPECT_EQ(1, Match("c*;*b;a*", true, "ab"));
}

TEST(CNameMatcher, ReportsIndicesBeyondAByte) {
  std::string patterns;
  for (int i = 0; i < 1000; ++i) {
    patterns += Join({"name", std::to_string(i), ".*;"});
  }
  const CNameMatcher matcher(patterns.c_str(), true);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(i, Match(matcher, Join({"NAME", std::to_string(i), ".txt"})));
  }
  EXPECT_EQ("name999.*", matcher.GetOriginalPattern(999));
}

TEST(CNameMatcher, OnlyAnchoredPatternsMustCoverTheName) {
  EXPECT_EQ(0, Match("*.txt", false, "a.txt.bak"));
  EXPECT_EQ(-1, Match("*.txt", true, "a.txt.bak"));
  EXPECT_EQ(0, Match("b", false, "abc"));
  EXPECT_EQ(-1, Match("b", true, "abc"));
  EXPECT_EQ(0, Match("b", true, "B"));
  EXPECT_EQ(-1, Match("a?c", true, "xabc"));
  EXPECT_EQ(0, Match("a?c", false, "xabcx"));
  EXPECT_EQ(0, Match("*", true, ""));
  EXPECT_EQ(-1, Match("?", true, ""));
  EXPECT_EQ(-1, Match("?", false, ""));
  EXPECT_EQ(-1, Match("ab*ba", true, "aba")) << "the two ends may not share a letter";
  EXPECT_EQ(0, Match("ab*ba", true, "abba"));
}

TEST(CNameMatcher, ExpressionsAreFoundAnywhere) {
  for (const bool anchored : {false, true}) {
    EXPECT_EQ(0, Match("#b", anchored, "aBc"));
    EXPECT_EQ(-1, Match("#^b", anchored, "abc"));
    EXPECT_EQ(0, Match("#^a.c$", anchored, "abc"));
    EXPECT_EQ(0, Match("#^part[0-9]+\\.(rar|zip)$", anchored, "Part017.RAR"));
    EXPECT_EQ(-1, Match("#^part[0-9]+\\.(rar|zip)$", anchored, "Part.RAR"));
    EXPECT_EQ(0, Match("#", anchored, "")) << "an empty expression is found in every name";
    EXPECT_EQ(0, Match("#", anchored, "abc"));
  }
}

TEST(CNameMatcher, LineFeedsAreCharactersLikeOthers) {
  EXPECT_EQ(-1, Match("*.txt", true, "a.txt\nb"));
  EXPECT_EQ(-1, Match("b", true, "a\nb"));
  EXPECT_EQ(-1, Match("*.txt", true, "a.txt\n"));
  EXPECT_EQ(-1, Match("a.txt", true, "\na.txt"));
  EXPECT_EQ(0, Match("a*b", true, "a.txt\nb"));
  EXPECT_EQ(0, Match("a?b", true, "a\nb"));
  EXPECT_EQ(0, Match("a\nb", true, "A\nB"));
  EXPECT_EQ(0, Match("b", false, "a\nb"));
  EXPECT_EQ(-1, Match("#^b$", true, "a\nb"));
  EXPECT_EQ(-1, Match("#^a$", true, "a\n"));
  EXPECT_EQ(0, Match("#^a.b$", true, "a\nb"));
}

TEST(CNameMatcher, NamesMayHoldZeroBytes) {
  EXPECT_EQ(0, Match("a?b", true, std::string("a\0b", 3)));
  EXPECT_EQ(0, Match("a*.txt", true, std::string("a\0b.txt", 7)));
  EXPECT_EQ(-1, Match("a", true, std::string("a\0b", 3)));
  EXPECT_EQ(0, Match("#^a.b$", true, std::string("a\0b", 3)));
  EXPECT_EQ(-1, Match("#^a$", true, std::string("a\0", 2)));
}

TEST(CNameMatcher, APatternEndsAtAZeroByte) {
  CNameMatcher matcher(nullptr, true);
  const std::string patterns("a\0b;#c\0);\0;*.txt", 16);
  EXPECT_EQ(0, matcher.CompilePatterns(patterns, true));
  EXPECT_EQ(0, Match(matcher, "a"));
  EXPECT_EQ(1, Match(matcher, "c"));
  EXPECT_EQ(2, Match(matcher, "x.txt"));
  EXPECT_EQ(-1, Match(matcher, "b"));
  EXPECT_EQ(patterns, matcher.GetOriginalPatterns());
}

TEST(CNameMatcher, EmptyPiecesDoNotCount) {
  const CNameMatcher matcher(";;*.txt;;;*.log;", true);
  EXPECT_EQ(0, Match(matcher, "a.txt"));
  EXPECT_EQ(1, Match(matcher, "a.log"));
  EXPECT_EQ(";;*.txt;;;*.log;", matcher.GetOriginalPatterns());
  EXPECT_EQ("*.log", matcher.GetOriginalPattern(1));
  EXPECT_EQ("", matcher.GetOriginalPattern(2));
}

TEST(CNameMatcher, BlanksCount) {
  const CNameMatcher matcher("*.txt; *.log", true);
  EXPECT_EQ(-1, Match(matcher, "a.log"));
  EXPECT_EQ(1, Match(matcher, " a.log"));
}

TEST(CNameMatcher, AnInvalidExpressionHasNoIndex) {
  const CNameMatcher matcher("#a(;*.txt;#[;#*;#a{2,1};#(?<n;*.log;#\\", true);
  EXPECT_EQ(0, Match(matcher, "a.txt"));
  EXPECT_EQ(1, Match(matcher, "a.log"));
  EXPECT_EQ("*.txt", matcher.GetOriginalPattern(0));
  EXPECT_EQ("*.log", matcher.GetOriginalPattern(1));
  EXPECT_EQ("", matcher.GetOriginalPattern(2));
  EXPECT_EQ("#a(;*.txt;#[;#*;#a{2,1};#(?<n;*.log;#\\", matcher.GetOriginalPatterns());
}

TEST(CNameMatcher, WithoutPatternsNothingMatches) {
  for (const char* const patterns : {static_cast<const char*>(nullptr), "", ";;;", "#("}) {
    const CNameMatcher matcher(patterns, true);
    EXPECT_FALSE(matcher.IsInit());
    EXPECT_EQ(-1, Match(matcher, ""));
    EXPECT_EQ(-1, Match(matcher, "a"));
    EXPECT_EQ("", matcher.GetOriginalPattern(0));
    EXPECT_EQ(patterns == nullptr ? "" : patterns, matcher.GetOriginalPatterns());
  }
}

TEST(CNameMatcher, KeepsTheTextsAsTheyWereGiven) {
  const CNameMatcher matcher("*.TXT;#^A.*", false);
  EXPECT_TRUE(matcher.IsInit());
  EXPECT_EQ("*.TXT;#^A.*", matcher.GetOriginalPatterns());
  EXPECT_EQ("*.TXT", matcher.GetOriginalPattern(0));
  EXPECT_EQ("#^A.*", matcher.GetOriginalPattern(1));
  EXPECT_EQ("", matcher.GetOriginalPattern(2));
  EXPECT_EQ("", matcher.GetOriginalPattern(0xFFFFFFFFu));
}

/// Made before all that the library makes, so destroyed behind it.
class AtEnd {
 public:
  ~AtEnd() {
    if (_isAsked && Match("*.txt;#^a(b|c)$", true, "AC") != 1) {
      std::_Exit(1);
    }
  }
  void Ask() { _isAsked = true; }

 private:
  bool _isAsked = false;
};

AtEnd atEnd;

TEST(CNameMatcher, CompilesWhileTheProcessEnds) {
  EXPECT_EXIT(
      {
        EXPECT_EQ(0, Match("#a", true, "a"));
        atEnd.Ask();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(CNameMatcher, CompilingReplacesTheList) {
  CNameMatcher matcher("*.txt", true);
  EXPECT_EQ(0, matcher.CompilePatterns("*.log;*.doc", true));
  EXPECT_EQ(-1, Match(matcher, "a.txt"));
  EXPECT_EQ(1, Match(matcher, "a.doc"));
  EXPECT_EQ("*.log;*.doc", matcher.GetOriginalPatterns());
  EXPECT_EQ(0, matcher.CompilePatterns("", true));
  EXPECT_FALSE(matcher.IsInit());
  EXPECT_EQ("", matcher.GetOriginalPatterns());
}

TEST(CNameMatcher, CompilesItsOwnText) {
  const std::string patterns = "*.txt;#^b;a text of some length, so that it has memory of its own";
  CNameMatcher matcher(patterns.c_str(), true);
  EXPECT_EQ(0, matcher.CompilePatterns(matcher.GetOriginalPatterns(), false));
  EXPECT_EQ(patterns, matcher.GetOriginalPatterns());
  EXPECT_EQ(0, Match(matcher, "a.txt.bak")) << "now without anchors";
  EXPECT_EQ(1, Match(matcher, "B"));
}

TEST(CNameMatcher, ClearDropsAll) {
  CNameMatcher matcher("*.txt", true);
  matcher.Clear();
  EXPECT_FALSE(matcher.IsInit());
  EXPECT_EQ(-1, Match(matcher, "a.txt"));
  EXPECT_EQ("", matcher.GetOriginalPattern(0));
  EXPECT_EQ("", matcher.GetOriginalPatterns());
  EXPECT_EQ(0, matcher.CompilePatterns("*.log", true));
  EXPECT_EQ(0, Match(matcher, "a.log"));
}

TEST(CNameMatcher, CopiesAreOnTheirOwn) {
  CNameMatcher matcher("*.txt;#^b", true);
  const CNameMatcher copy(matcher);
  CNameMatcher assigned(nullptr, false);
  assigned = matcher;
  matcher.CompilePatterns("*.log", true);
  for (const CNameMatcher* const each : {&copy, &static_cast<const CNameMatcher&>(assigned)}) {
    EXPECT_EQ(0, Match(*each, "a.txt"));
    EXPECT_EQ(1, Match(*each, "bc"));
    EXPECT_EQ(-1, Match(*each, "a.log"));
    EXPECT_EQ("*.txt;#^b", each->GetOriginalPatterns());
  }
}

TEST(CNameMatcher, WithoutMemoryTheListStays) {
  CNameMatcher matcher("*.txt;#^b", true);
  const std::string patterns = "a pattern that is not that short;#an expression that is not that short";
  int failures = 0;
  for (std::size_t limit = 0;; limit += 8) {
    largestAllocation = limit;
    const int result = matcher.CompilePatterns(patterns, true);
    largestAllocation = kNoLimit;
    if (result == 0) {
      break;
    }
    ASSERT_EQ(-2, result);
    ASSERT_EQ("*.txt;#^b", matcher.GetOriginalPatterns());
    ASSERT_EQ(0, Match(matcher, "a.txt"));
    ASSERT_EQ(1, Match(matcher, "bc"));
    ++failures;
  }
  EXPECT_GT(failures, 5);
  EXPECT_EQ(patterns, matcher.GetOriginalPatterns());
  EXPECT_EQ("#an expression that is not that short", matcher.GetOriginalPattern(1));
}

TEST(CNameMatcher, WithoutMemoryItIsMadeWithoutPatterns) {
  const char* const patterns = "*.txt;a pattern that is not that short";
  std::optional<CNameMatcher> matcher;
  largestAllocation = 0;
  try {
    matcher.emplace(patterns, true);
  } catch (const std::bad_alloc&) {
  }
  largestAllocation = kNoLimit;
  ASSERT_TRUE(matcher.has_value()) << "the constructor has thrown";
  EXPECT_FALSE(matcher->IsInit());
  EXPECT_EQ(-1, Match(*matcher, "a.txt"));
  EXPECT_EQ("", matcher->GetOriginalPatterns());
  EXPECT_EQ(0, matcher->CompilePatterns(patterns, true));
  EXPECT_EQ(0, Match(*matcher, "a.txt"));
}

TEST(CNameMatcher, WithoutMemoryAssignmentChangesNothing) {
  const CNameMatcher other("#^b;a list that is not that short", true);
  CNameMatcher matcher("*.txt", true);
  bool hasThrown = false;
  largestAllocation = 0;
  try {
    matcher = other;
  } catch (const std::bad_alloc&) {
    hasThrown = true;
  }
  largestAllocation = kNoLimit;
  if (!hasThrown) {
    GTEST_SKIP() << "the strings of this C++ runtime do not ask the program for memory";
  }
  EXPECT_EQ("*.txt", matcher.GetOriginalPatterns());
  EXPECT_EQ("*.txt", matcher.GetOriginalPattern(0));
  EXPECT_EQ(0, Match(matcher, "a.txt"));
  EXPECT_EQ(-1, Match(matcher, "b"));
}

TEST(CNameMatcher, WithoutMemoryAnExpressionDoesNotMatch) {
  const CNameMatcher matcher("#^(a|b)*c", true);
  const std::string name = "aabbc";
  ASSERT_EQ(0, Match(matcher, name));
  largestAllocation = 0;
  const int result = matcher.MatchName(name);
  largestAllocation = kNoLimit;
  EXPECT_EQ(0, result);
}

TEST(CNameMatcher, OnlyLongNamesNeedMemory) {
  const CNameMatcher matcher("a*c", true);
  const std::string shortName = std::string(511, 'a') + "C";
  const std::string longName = std::string(512, 'a') + "C";
  bool threw = false;
  largestAllocation = 0;
  const int result = matcher.MatchName(shortName);
  try {
    matcher.MatchName(longName);
  } catch (const std::bad_alloc&) {
    threw = true;
  }
  largestAllocation = kNoLimit;
  EXPECT_EQ(1, result);
  EXPECT_TRUE(threw);
  EXPECT_EQ(0, Match(matcher, longName));
}

TEST(CNameMatcher, LongPatterns) {
  for (const int length : {1021, 1022, 1023, 1024, 4000, 100000}) {
    const std::string text(static_cast<std::size_t>(length), '+');
    const CNameMatcher matcher(Join({text, ";*", text, "x;#^", std::string(text.size() - 2, 'y'), "$"}).c_str(), true);
    EXPECT_EQ(0, Match(matcher, text)) << length;
    EXPECT_EQ(-1, Match(matcher, text + "+")) << length;
    EXPECT_EQ(1, Match(matcher, text + "X")) << length;
    EXPECT_EQ(2, Match(matcher, std::string(text.size() - 2, 'Y'))) << length;
    EXPECT_EQ(-1, Match(matcher, std::string(text.size() - 1, 'Y'))) << length;
  }
}

TEST(CNameMatcher, NamesOfEveryLength) {
  const CNameMatcher matcher("A*B?C;#^x+$", true);
  for (std::size_t length = 0; length < 1100; ++length) {
    EXPECT_EQ(0, Match(matcher, Join({"a", std::string(length, '-'), "bXc"}))) << length;
    EXPECT_EQ(-1, Match(matcher, Join({"a", std::string(length, '-'), "bc"}))) << length;
    EXPECT_EQ(length == 0 ? -1 : 1, Match(matcher, std::string(length, 'X'))) << length;
  }
}

// ---- Case ----

#ifdef _WIN32
unsigned char LowerOf(int c) {
  char text = static_cast<char>(c);
  CharLowerBuffA(&text, 1);
  return static_cast<unsigned char>(text);
}
#else
unsigned char LowerOf(int c) { return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); }
#endif

TEST(CNameMatcher, IgnoresCaseAsTheSystemHasIt) {
  for (int pattern = 1; pattern < 256; ++pattern) {
    const std::string text(1, static_cast<char>(pattern));
    if (std::strchr("*?;#", pattern) != nullptr) {
      continue;
    }
    const CNameMatcher plain(text.c_str(), true);
    const CNameMatcher expression(Join({"#^", Prepared(text, false), "$"}).c_str(), true);
    for (int name = 0; name < 256; ++name) {
      const int expected = LowerOf(pattern) == LowerOf(name) ? 0 : -1;
      ASSERT_EQ(expected, Match(plain, std::string(1, static_cast<char>(name)))) << pattern << " " << name;
      ASSERT_EQ(expected, Match(expression, std::string(1, static_cast<char>(name)))) << pattern << " " << name;
    }
  }
}

#ifndef _WIN32

/// Takes 0xC0 to 0xDE and 0xE0 to 0xFE for pairs, too.
class Latin1Case : public std::ctype<char> {
 protected:
  char do_tolower(char c) const override {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0xC0 && byte <= 0xDE ? static_cast<char>(byte + 0x20) : std::ctype<char>::do_tolower(c);
  }
  const char* do_tolower(char* begin, const char* end) const override {
    for (; begin != end; ++begin) {
      *begin = do_tolower(*begin);
    }
    return end;
  }
};

TEST(CNameMatcher, IgnoresCaseByTheGlobalLocaleOfItsCompilation) {
  const CNameMatcher before("\xC9*;#^\xC9", true);
  const std::locale old = std::locale::global(std::locale(std::locale::classic(), new Latin1Case));
  const CNameMatcher wildcard("\xC9*", true);
  const CNameMatcher expression("#^\xC9", true);
  EXPECT_EQ(-1, Match(before, "\xE9t\xE9"));
  std::locale::global(old);
  EXPECT_EQ(0, Match(wildcard, "\xE9t\xE9"));
  EXPECT_EQ(0, Match(expression, "\xE9t\xE9"));
}

#endif

// ---- Threads ----

TEST(CNameMatcher, MatchesInSeveralThreadsAtOnce) {
  const CNameMatcher matcher("*.txt;#^(a|b)*c$;x?y*z", true);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&matcher, t] {
      const CNameMatcher own("#^[0-9]+$;*.log", true);
      for (int i = 0; i < 200; ++i) {
        const std::string name(static_cast<std::size_t>(i + t), 'a');
        EXPECT_EQ(0, Match(matcher, name + ".TXT"));
        EXPECT_EQ(1, Match(matcher, name + "c"));
        EXPECT_EQ(2, Match(matcher, "x-y" + name + "z"));
        EXPECT_EQ(-1, Match(matcher, name + "d"));
        EXPECT_EQ(0, Match(own, std::to_string(i)));
        EXPECT_EQ(1, Match(own, name + ".log"));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

// ---- Hostile input ----

/// What Boost.Regex itself finds with its own limits; nothing when it gives up.
std::optional<bool> IsFound(const Expression& expression, const std::string& name) {
  try {
    return boost::regex_search(name.data(), name.data() + name.size(), expression, boost::match_single_line);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

TEST(CNameMatcher, GivingUpIsNoMatch) {
  const std::string name = std::string(2000, 'a') + "x";
  ASSERT_EQ(0, Match("#x$", true, name));
  EXPECT_EQ(-1, Match("#(a+)+b|x$", true, name)) << "nobody gets as far as the x";
  EXPECT_EQ(1, Match("#(a+)+b|x$;*x", true, name)) << "the next pattern has its turn";
}

TEST(CNameMatcher, HostileExpressionsEnd) {
  std::string manyOptional = "#";
  for (int i = 0; i < 300; ++i) {
    manyOptional += "a?";
  }
  const std::vector<std::string> patterns = {"#(a+)+b",
                                             "#^(a*)*\\1b",
                                             "#[ab]*[ab]*[ab]*[ab]*[ab]*[ab]*x",
                                             "#(?>(a(?1)?))b",
                                             "#(a(?1)?b?)()()()()()()()()()()()()()()()()()()()()c",
                                             "#(?=(a+))+\\1(?<=a)b",
                                             "#(a(?(?=(?1))x|a))b",
                                             "#^(?:(?:(?:a*)*)*)*b",
                                             manyOptional + std::string(300, 'a') + "b",
                                             Join({"#", std::string(300, '('), "a", std::string(300, ')'), "b"}),
                                             Join({"#", std::string(100000, '(')})};
  for (const std::string& pattern : patterns) {
    const CNameMatcher matcher(pattern.c_str(), true);
    EXPECT_EQ(0, matcher.MatchName(std::string(500, 'a'))) << pattern.substr(0, 60);
  }
}

std::string Repeated(std::string_view text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

// Each of the first would take more stack than a thread has, each of the others longer than anybody waits.
TEST(CNameMatcher, ExpressionsThatCannotBeCompiledAreSkipped) {
  const std::string manyWays = Repeated("(a|b)", 100);
  const std::vector<std::string> expressions = {Repeated("$", 1000000),
                                                Repeated("\\<", 1000000),
                                                Repeated("\\>", 1000000),
                                                Repeated("(?:$)", 1000000),
                                                Repeated("(?=a)\\b$", 1000000),
                                                Join({"(?<=", Repeated("a|", 1000000), "b)"}),
                                                Join({"(?<=", manyWays, ")a"}),
                                                Join({"(?<!", manyWays, ")a"}),
                                                Join({"(?<=((", Repeated("(a|b)", 50), manyWays, ")))a"}),
                                                Join({"(?<=x)(?<n>a)(?<=", manyWays, ")a"}),
                                                Join({"(?<=[)]", manyWays, ")a"}),
                                                Join({"(?<=\\Q)\\E", manyWays, ")a"}),
                                                Join({"(?<=(?#)", manyWays, ")a"}),
                                                Join({"(?x)(?<=#)\n", manyWays, ")a"}),
                                                Join({"[(?<=)](?<=", manyWays, ")a"})};
  for (const std::string& expression : expressions) {
    const CNameMatcher matcher(Join({"#", expression, ";*.txt"}).c_str(), true);
    EXPECT_EQ(0, Match(matcher, "a.txt")) << expression.substr(0, 60);
    EXPECT_EQ("*.txt", matcher.GetOriginalPattern(0)) << expression.substr(0, 60);
  }
}

TEST(CNameMatcher, LongListsOfAlternativesAreCompiled) {
  EXPECT_EQ(0, Match(Join({"#^(?:", Repeated("a$|(b$)|\\<c\\>|", 5000), "x$)"}).c_str(), true, "X"));
  EXPECT_EQ(0, Match(Join({"#", Repeated("\\<a$b", 5000), "|x"}).c_str(), true, "x"));
  EXPECT_EQ(0, Match(Join({"#", Repeated("\\$", 5000), "|x"}).c_str(), true, "x"));
  EXPECT_EQ(0, Match(Join({"#(?<=", Repeated("a|", 500), "b)x"}).c_str(), true, "bx"));
  EXPECT_EQ(0, Match(Join({"#(?<=a(?:b|c)\\|)(", Repeated("y|", 5000), "x)"}).c_str(), true, "ac|x"));
  EXPECT_EQ(0, Match(Join({"#(?<n>a)(", Repeated("y|", 5000), "x)"}).c_str(), true, "ax"));
  EXPECT_EQ(0, Match("#(?<=[a-c]|d)(e|f|g|h|i)", true, "di"));
}

TEST(CNameMatcher, ManyWildcardsTakeNoLongerThanTheirLength) {
  std::string patterns;
  for (int i = 0; i < 200; ++i) {
    patterns += "*a?";
  }
  const CNameMatcher matcher((patterns + "*b").c_str(), true);
  EXPECT_EQ(-1, Match(matcher, std::string(20000, 'a')));
  EXPECT_EQ(0, Match(matcher, std::string(20000, 'a') + "B"));
  EXPECT_EQ(-1, Match(matcher, std::string(399, 'a') + "b")) << "one letter short";
  EXPECT_EQ(0, Match(matcher, std::string(400, 'a') + "b"));
}

// ---- The same answers as Boost.Regex ----

std::string RandomText(std::mt19937& random, const std::string& letters, std::size_t maxLength) {
  std::string text(random() % (maxLength + 1), '\0');
  for (char& c : text) {
    c = letters[random() % letters.size()];
  }
  return text;
}

/// The expression of a wildcard pattern, once more.
std::string ExpressionOf(const std::string& pattern, bool anchored) {
  std::string out;
  for (const char c : pattern) {
    if (c == '*') {
      out += ".*";
    } else if (c == '?') {
      out += '.';
    } else {
      const bool special = std::string("$()+.[\\]^{|}").find(c) != std::string::npos;
      out.append(special ? 1 : 0, '\\').append(1, c);
    }
  }
  return anchored ? Join({"^", out, "$"}) : out;
}

Expression Compiled(const std::string& expression) {
  return Expression(expression, boost::regex_constants::perl | boost::regex_constants::icase);
}

/// Compares the matcher with Boost.Regex on one pattern and some names of the same letters.
void CompareWildcards(std::mt19937& random, const std::string& letters, std::size_t maxLength, int& matches) {
  std::string pattern = RandomText(random, letters + "**?", maxLength);
  if (pattern.empty() || pattern.front() == '#') {
    pattern = Join({"*", pattern});
  }
  const bool anchored = random() % 2 == 0;
  const CNameMatcher matcher(pattern.c_str(), anchored);
  const std::string text = ExpressionOf(pattern, anchored);
  ASSERT_EQ(text, Prepared(pattern, anchored));
  const Expression expression = Compiled(text);
  for (int i = 0; i < kNamesPerPattern; ++i) {
    const std::string name = RandomText(random, letters + '\0', 2 * maxLength);
    const std::optional<bool> expected = IsFound(expression, name);
    ASSERT_TRUE(expected.has_value()) << "Boost.Regex gave up: " << pattern;
    ASSERT_EQ(*expected, matcher.MatchName(name) == 1)
        << testing::PrintToString(pattern) << (anchored ? " anchored, " : ", ") << testing::PrintToString(name);
    matches += *expected ? 1 : 0;
  }
}

// A million pairs (a tenth of that under the sanitizers), a third of them matches: short patterns of few letters, which
// match often, and some of any byte.
TEST(NameMatcherAndBoostRegex, AgreeOnWildcards) {
  std::string anyByte;
  for (int c = 1; c < 256; ++c) {
    if (c != ';') {
      anyByte += static_cast<char>(c);
    }
  }
  std::mt19937 random(20261121);
  int matches = 0;
  for (int i = 0; i < kPatterns && !HasFatalFailure(); ++i) {
    switch (i % 4) {
      case 0:
        CompareWildcards(random, "aA", 4, matches);
        break;
      case 1:
        CompareWildcards(random, "abB.", 6, matches);
        break;
      case 2:
        CompareWildcards(random, "a\n\r$()+.[\\]^{|}#", 5, matches);
        break;
      default:
        CompareWildcards(random, anyByte, 3, matches);
        break;
    }
  }
  EXPECT_GT(matches, kPatterns * kNamesPerPattern / 5);
  EXPECT_LT(matches, kPatterns * kNamesPerPattern / 2);
}

std::string RandomExpression(std::mt19937& random) {
  static const std::vector<std::string> tokens = {
      "a",   "b",   "A",    ".",    "*",   "+",    "?",    "|",    "(",    ")",     "(",           ")",     "(?:",
      "^",   "$",   "[ab]", "[^a]", "\\1", "\\b",  "(?=",  "(?!",  "(?<=", "(?>",   "{1,3}",       "*?",    "+?",
      "\\n", "\\.", "\\w",  "\\A",  "\\z", "(?1)", "(?R)", "(?i)", "++",   "(?-i)", "[[:alpha:]]", "(?(1)", "\\Z"};
  std::string expression;
  for (std::size_t i = 1 + random() % 7; i > 0; --i) {
    expression += tokens[random() % tokens.size()];
  }
  return expression;
}

// Neither the limits of the matcher nor its way of reading a name changes an answer; what does not compile, is skipped.
TEST(NameMatcherAndBoostRegex, AgreeOnExpressions) {
  std::mt19937 random(20261122);
  int matches = 0;
  int skipped = 0;
  for (int i = 0; i < kPatterns / 4; ++i) {
    const std::string text = RandomExpression(random);
    const CNameMatcher matcher(Join({"#", text}).c_str(), true);
    std::optional<Expression> expression;
    try {
      expression = Compiled(text);
    } catch (const std::exception&) {
      ++skipped;
    }
    ASSERT_EQ(expression.has_value(), matcher.IsInit()) << text;
    for (int n = 0; n < kNamesPerPattern && expression.has_value(); ++n) {
      const std::string name = RandomText(random, std::string("aabB.\n\0", 7), 8);
      const bool expected = IsFound(*expression, name).value_or(false);
      ASSERT_EQ(expected, matcher.MatchName(name) == 1) << text << ", " << testing::PrintToString(name);
      matches += expected ? 1 : 0;
    }
  }
  EXPECT_GT(matches, kPatterns / 4);
  EXPECT_GT(skipped, kPatterns / 40);
}

}  // namespace
