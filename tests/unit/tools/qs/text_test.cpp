#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "text.h"

using namespace std::string_literals;

TEST(Printable, ReplacesWhatATerminalMightObey) {
  EXPECT_EQ(qs::Printable(""), "");
  EXPECT_EQ(qs::Printable("a ~"), "a ~");
  EXPECT_EQ(qs::Printable("\0a\x1F\x7F\x1B[2J\r\n"s), "?a???[2J??");
  EXPECT_EQ(qs::Printable("\xC3\x9F\xE2\x82\xAC"), "\xC3\x9F\xE2\x82\xAC");
}

// U+0080 to U+009F in UTF-8.
TEST(Printable, ReplacesControlCharactersOfTwoBytes) {
  EXPECT_EQ(qs::Printable("a\xC2\x80\xC2\x9B"
                          "b\xC2\x9F"),
            "a??b?");
  EXPECT_EQ(qs::Printable("\xC2\xA0\xC2\xBF"), "\xC2\xA0\xC2\xBF");
  EXPECT_EQ(qs::Printable("\xC2"), "\xC2");
  EXPECT_EQ(qs::Printable("\xC2\xC2\x80\x80"), "\xC2?\x80");
  EXPECT_EQ(qs::Printable("\xC2\n"), "\xC2?");
}

// A test that does not end is what moving the rest for each of them would be.
TEST(Printable, MillionsOfThemAreNoMatter) {
  constexpr std::size_t count = 16'000'000;
  std::string text;
  text.reserve(2 * count);
  for (std::size_t i = 0; i < count; ++i) {
    text += "\xC2\x9B";
  }
  EXPECT_EQ(qs::Printable(text), std::string(count, '?'));
}
