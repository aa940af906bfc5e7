#include <QSbase/net/urlescape.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <QSbase/errors.h>
#include <QSbase/net/url.h>
#include <common/logcapture.h>

using namespace qsbase::detail;
using namespace std::string_literals;
using qsbase::testing::LogCapture;

namespace {

// Which of the coming arrays that are asked for by the form that returns null is refused: 1 is the next.
int failingArray = 0;

}  // namespace

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (failingArray > 0 && --failingArray == 0) {
    return nullptr;
  }
  try {
    return ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

using Function = bool (*)(const std::string& text, char* out, unsigned int& size, unsigned int flags);

bool Canonicalize(const std::string& text, char* out, unsigned int& size, unsigned int flags) {
  return QsUrlCanonicalize(text, out, size, flags);
}

bool Escape(const std::string& text, char* out, unsigned int& size, unsigned int flags) {
  return QsUrlEscape(text, size, out, flags);
}

bool Unescape(const std::string& text, char* out, unsigned int& size, unsigned int flags) {
  std::string copy(text);
  const bool result = QsUrlUnescape(flags, copy.data(), out, size);
  EXPECT_EQ(copy, text) << "the text stays";
  return result;
}

// The text in a buffer that it just fits; every smaller one is refused and not written to.
std::string Run(Function function, const std::string& text, unsigned int flags) {
  std::vector<char> buffer(3 * text.size() + 2, '\xAA');
  const std::vector<char> untouched = buffer;
  unsigned int needed = 0;
  EXPECT_FALSE(function(text, buffer.data(), needed, flags)) << "not even the zero fits";
  EXPECT_GE(needed, 1U);
  for (unsigned int size = 0; size < needed; ++size) {
    unsigned int told = size;
    EXPECT_FALSE(function(text, buffer.data(), told, flags)) << text;
    EXPECT_EQ(told, needed) << text;
    EXPECT_EQ(buffer, untouched) << text;
  }
  unsigned int length = needed;
  EXPECT_TRUE(function(text, buffer.data(), length, flags)) << text;
  EXPECT_EQ(length + 1, needed) << text;
  EXPECT_EQ(buffer[length], '\0') << text;
  EXPECT_EQ(buffer[needed], '\xAA') << text;
  return {buffer.data(), length};
}

std::string Canonical(const std::string& text, unsigned int flags) { return Run(&Canonicalize, text, flags); }
std::string Escaped(const std::string& text, unsigned int flags) { return Run(&Escape, text, flags); }
std::string Unescaped(const std::string& text, unsigned int flags) { return Run(&Unescape, text, flags); }

}  // namespace

// ---- QsUrlEscape ----

TEST(QsUrlEscape, TheValuesAreThoseOfWindows) {
  EXPECT_EQ(kIcuEscape, 0x80000000U);
  EXPECT_EQ(kIcuNoEncode, 0x20000000U);
  EXPECT_EQ(kIcuDecode, 0x10000000U);
  EXPECT_EQ(kIcuNoMeta, 0x08000000U);
  EXPECT_EQ(kUrlEscapeSpacesOnly, 0x04000000U);
  EXPECT_EQ(kUrlDontEscapeExtraInfo, 0x02000000U);
  EXPECT_EQ(kUrlUnescapeInplace, 0x00100000U);
  EXPECT_EQ(kUrlEscapeSegmentOnly, 0x00002000U);
  EXPECT_EQ(kUrlEscapePercent, 0x00001000U);
}

TEST(QsUrlEscape, EveryByteUnderEveryFlag) {
  for (const unsigned int flags : {0U, 0x04000000U, 0x2000U, 0x1000U, 0x3000U, 0x04003000U}) {
    for (int byte = 1; byte < 256; ++byte) {
      const char c = static_cast<char>(byte);
      bool isEscaped = byte < 32 || byte > 126 || std::strchr(" \"&<>[\\]^`{|}", c) != nullptr;
      isEscaped = isEscaped || (c == '%' && (flags & 0x1000U) != 0);
      isEscaped = isEscaped || ((c == '/' || c == '?') && (flags & 0x2000U) != 0);
      if ((flags & 0x04000000U) != 0) {
        isEscaped = c == ' ';
      }
      char escape[4];
      std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned int>(byte));
      EXPECT_EQ(Escaped(std::string(1, c), flags), isEscaped ? escape : std::string(1, c)) << byte << " " << flags;
    }
  }
}

TEST(QsUrlEscape, WhatFollowsTheFirstMarkIsLeftAlone) {
  EXPECT_EQ(Escaped("a b?c d#e f", 0), "a%20b?c d#e f");
  EXPECT_EQ(Escaped("a b#c d?e f", 0), "a%20b#c d?e f");
  EXPECT_EQ(Escaped("a b?c d", kUrlDontEscapeExtraInfo), "a%20b?c d");
  EXPECT_EQ(Escaped("a b?c d#e f", kUrlEscapeSegmentOnly), "a%20b%3Fc%20d#e%20f");
  EXPECT_EQ(Escaped("a b?c d", kUrlEscapeSegmentOnly | kUrlDontEscapeExtraInfo), "a%20b%3Fc%20d");
  EXPECT_EQ(Escaped("a%b?c%d", kUrlEscapePercent), "a%25b?c%d");
}

TEST(QsUrlEscape, BlanksOnly) {
  EXPECT_EQ(Escaped("a b\"\xE9?c d", kUrlEscapeSpacesOnly), "a%20b\"\xE9?c%20d");
  EXPECT_EQ(Escaped("a b?c d", kUrlEscapeSpacesOnly | kUrlDontEscapeExtraInfo), "a%20b?c d");
}

TEST(QsUrlEscape, UsesUpperCaseDigits) { EXPECT_EQ(Escaped("\xAB\xEF|", 0), "%AB%EF%7C"); }

TEST(QsUrlEscape, ZeroBytesAndNothing) {
  EXPECT_EQ(Escaped("a\0b"s, 0), "a%00b");
  EXPECT_EQ(Escaped("", 0), "");
}

// The flags stand there in decimal.
TEST(QsUrlEscape, OtherFlagsAreRefused) {
  const struct {
    unsigned int flags;
    const char* text;
  } rows[] = {{1, "QsUrlEscape: unimplemented flags: 00000001x\n"},
              {0xA0000000U, "QsUrlEscape: unimplemented flags: 2684354560x\n"},
              {kUrlUnescapeInplace | kUrlEscapePercent, "QsUrlEscape: unimplemented flags: 01052672x\n"}};
  for (const auto& row : rows) {
    char out[8] = "x";
    unsigned int size = sizeof out;
    try {
      QsUrlEscape("a", size, out, row.flags);
      ADD_FAILURE() << "nothing thrown for " << row.flags;
    } catch (const ExBase& error) {
      EXPECT_EQ(error.GetErrorText(), row.text);
    }
    EXPECT_EQ(size, sizeof out);
    EXPECT_STREQ(out, "x");
  }
}

// ---- QsUrlUnescape ----

TEST(QsUrlUnescape, TurnsEscapesIntoBytes) {
  EXPECT_EQ(Unescaped("a%20b%e9%E9", 0), "a b\xE9\xE9");
  EXPECT_EQ(Unescaped("%00a", 0), "\0a"s);
  EXPECT_EQ(Unescaped("", 0), "");
}

// Other than UrlDecode.
TEST(QsUrlUnescape, WhatFollowsABadEscapeMayBeginOne) {
  EXPECT_EQ(Unescaped("%%41", 0), "%A");
  EXPECT_EQ(Unescaped("%4%41", 0), "%4A");
  EXPECT_EQ(Unescaped("%", 0), "%");
  EXPECT_EQ(Unescaped("%4", 0), "%4");
  EXPECT_EQ(Unescaped("%zz", 0), "%zz");
}

TEST(QsUrlUnescape, LeavesExtraInfoWhenAsked) {
  EXPECT_EQ(Unescaped("%41?%41", 0), "A?A");
  EXPECT_EQ(Unescaped("%41?%41", kUrlDontEscapeExtraInfo), "A?%41");
  EXPECT_EQ(Unescaped("%41#%41", kUrlDontEscapeExtraInfo), "A#%41");
  EXPECT_EQ(Unescaped("%41%3F%41", kUrlDontEscapeExtraInfo), "A?A") << "an escaped mark is none";
}

TEST(QsUrlUnescape, WritesOverItsText) {
  char text[] = "a%20b?%41%";
  unsigned int size = 0;
  EXPECT_TRUE(QsUrlUnescape(kUrlUnescapeInplace, text, nullptr, size));
  EXPECT_STREQ(text, "a b?A%");
  EXPECT_EQ(size, 0U);
  char marked[] = "%41?%41";
  EXPECT_TRUE(QsUrlUnescape(kUrlUnescapeInplace | kUrlDontEscapeExtraInfo, marked, nullptr, size));
  EXPECT_STREQ(marked, "A?%41");
}

// ---- QsUrlCanonicalize ----

TEST(QsUrlCanonicalize, RemovesMetaSegments) {
  const struct {
    const char* url;
    const char* canonical;
  } rows[] = {{"http://h/a/./b", "http://h/a/b"},
              {"http://h/a/../b", "http://h/b"},
              {"http://h/../b", "http://h/b"},
              {"http://h/../../b/", "http://h/b/"},
              {"http://h/a/b/../../c", "http://h/c"},
              {"http://h/a//../b", "http://h/a/b"},
              {"http://h/a/..", "http://h/a/.."},
              {"http://h/a/.", "http://h/a/."},
              {"http://h/.../a", "http://h/.../a"},
              {"http://h/a/.b/..c/", "http://h/a/.b/..c/"},
              {"http://h/./", "http://h/"},
              {"http://h/", "http://h/"},
              {"http://h", "http://h"},
              {"http:/a/../b", "http:/b"},
              {"http:/../b", "http:/b"},
              {"http:a/../b", "http:a/../b"},
              {"http:", "http:"},
              {"http:/", "http:/"},
              {"http://", "http://"},
              {"http", "http"},
              {"h", "h"},
              {"", ""},
              {"h:/a/../b", "h:/a/../b"},
              {"/a/../b", "/a/../b"},
              {"+h:/a/../b", "+h:/a/../b"},
              {"ht+p:/a/../b", "ht+p:/b"},
              {"h/b/../c:/a/../b", "h/b/../c:/a/../b"},
              {"hb/../c:/a/../b", "hb/../c:/b"},
              {"http:///a/../b", "http:///a/../b"},
              {"http://./a/../b", "http://./a/../b"},
              {"http://_/a/../b", "http://_/a/../b"},
              {"http://h_/a/../b", "http://h_/a/../b"},
              {"http://-h -./a/../b", "http://-h -/b"},
              {"http://h./a", "http://h/a"},
              {"http://h.?a", "http://h?a"},
              {"http://h.", "http://h"},
              {"http://h..", "http://h."},
              {"http://h.:80/a/../b", "http://h.:80/a/../b"},
              {"http://h:80/a/../b", "http://h:80/a/../b"},
              {"http://h?a/../b", "http://h?a/../b"},
              {"http://h/a?b/../c", "http://h/c"}};
  for (const auto& row : rows) {
    EXPECT_EQ(Canonical(row.url, 0), row.canonical) << row.url;
    EXPECT_EQ(Canonical(row.url, kIcuNoMeta), row.url) << row.url;
  }
}

TEST(QsUrlCanonicalize, DecodesWhenAsked) {
  EXPECT_EQ(Canonical("http://h/a%20b", kIcuDecode), "http://h/a b");
  EXPECT_EQ(Canonical("http://h/a/%2e%2e/b", kIcuDecode), "http://h/a/../b") << "after the segments were looked at";
  EXPECT_EQ(Canonical("http://h/%41?%41", kIcuDecode | kUrlDontEscapeExtraInfo), "http://h/A?%41");
  EXPECT_EQ(Canonical("%41/../", kIcuDecode | kIcuNoMeta), "A/../");
  EXPECT_EQ(Canonical("http://h/%00a", kIcuDecode), "http://h/\0a"s);
}

TEST(QsUrlCanonicalize, EscapesWithTheFlagsThatSaySo) {
  const std::string url = "http://h/a b%\xE9?c d";
  EXPECT_EQ(Canonical(url, 0), url);
  EXPECT_EQ(Canonical(url, kIcuEscape), url);
  EXPECT_EQ(Canonical(url, kUrlUnescapeInplace), url);
  EXPECT_EQ(Canonical(url, kIcuEscape | kIcuNoEncode), "http://h/a%20b%%E9?c d");
  EXPECT_EQ(Canonical(url, kIcuNoEncode | kIcuNoMeta), "http://h/a%20b%%E9?c d");
  EXPECT_EQ(Canonical(url, kUrlDontEscapeExtraInfo), "http://h/a%20b%%E9?c d");
  EXPECT_EQ(Canonical(url, kUrlEscapeSpacesOnly), "http://h/a%20b%\xE9?c%20d");
  EXPECT_EQ(Canonical(url, kUrlEscapePercent), "http://h/a%20b%25%E9?c d");
  EXPECT_EQ(Canonical(url, kUrlEscapeSegmentOnly), "http:%2F%2Fh%2Fa%20b%%E9%3Fc%20d");
}

TEST(QsUrlCanonicalize, WithoutMemoryItFails) {
  const std::string url = "http://h/" + std::string(2000, 'a');
  char out[4000] = "x";
  unsigned int size = sizeof out;
  failingArray = 1;
  EXPECT_FALSE(QsUrlCanonicalize(url, out, size, 0));
  EXPECT_EQ(failingArray, 0);
  EXPECT_EQ(size, sizeof out);
  EXPECT_STREQ(out, "x");
}

TEST(QsUrlCanonicalize, ItsFailureIsLogged) {
  const std::string url = "HTTP://h/a/../%42/" + std::string(2000, 'c') + "?Q";
  const LogCapture capture;
  for (const int array : {1, 2}) {
    failingArray = array;
    EXPECT_EQ(NormalizeUrl(url), "http://h/a/../b/" + std::string(2000, 'c') + "?q");
    EXPECT_EQ(failingArray, 0);
  }
  const std::vector<LogCapture::Message> messages = capture.Messages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].flags, 0x20000000U);
  EXPECT_EQ(messages[0].text,
            "[107038] Error in InternetCanonicalizeUrl call: The URL could not be canonicalized due to insufficient "
            "memory.");
  EXPECT_EQ(messages[1].flags, 0x20000000U);
  EXPECT_EQ(messages[1].text, "[107038] Error in InternetCanonicalizeUrl call: The URL could not be canonicalized.");
  EXPECT_EQ(NormalizeUrl(url), "http://h/b/" + std::string(2000, 'c') + "?q");
}
