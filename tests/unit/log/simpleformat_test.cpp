// The expected texts are vsnprintf's own.
#include <QSbase/log/simpleformat.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace {

using qsbase::detail::FormatSimple;

struct Outcome {
  bool simple;
  std::string ours;
  std::string theirs;
  int theirLength;
};

QSBASE_PRINTF(2, 3)
Outcome Format(std::size_t size, const char* format, ...) {
  std::string ours(size + 1, '#');
  std::string theirs(size, '#');
  std::va_list arguments;
  va_start(arguments, format);
  const bool simple = FormatSimple(ours.data(), size, format, arguments);
  const int length = std::vsnprintf(theirs.data(), size, format, arguments);  // the list is still unused
  va_end(arguments);
  EXPECT_EQ(ours.back(), '#') << format;
  const std::size_t shown = length < 0 ? 0 : static_cast<std::size_t>(length);
  return {simple, ours.substr(0, shown), theirs.substr(0, shown), length};
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

template <typename... Values>
void ExpectSame(const std::string& format, Values... values) {
  const Outcome outcome = Format(512, format.c_str(), values...);
  ASSERT_TRUE(outcome.simple) << format;
  ASSERT_EQ(outcome.ours, outcome.theirs) << format;
}

template <typename... Values>
void ExpectNotSimple(const std::string& format, Values... values) {
  EXPECT_FALSE(Format(512, format.c_str(), values...).simple) << format;
}

/// The value as one of the edges or anything, each as often.
std::uint64_t RandomValue(std::mt19937_64& random) {
  constexpr std::array<std::uint64_t, 8> kEdges = {0, 1, 9, 10, INT_MAX, UINT_MAX, INT64_MAX, UINT64_MAX};
  const std::uint64_t value = random();
  switch (value % 4) {
    case 0:
      return kEdges[(value >> 8U) % kEdges.size()];
    case 1:
      return kEdges[(value >> 8U) % kEdges.size()] + 1;
    default:
      return value >> ((value >> 8U) % 64);
  }
}

std::string RandomText(std::mt19937_64& random) {
  std::string text(static_cast<std::size_t>(random() % 12), '\0');
  for (char& c : text) {
    do {
      c = static_cast<char>(random() % 255 + 1);
    } while (c == '%');
  }
  return random() % 3 == 0 ? text + "%%" : text;
}

}  // namespace

TEST(FormatSimple, WritesWhatVsnprintfWrites) {
  std::mt19937_64 random(20130213);
  const std::array<const char*, 4> ints = {"%d", "%i", "%u", "%x"};
  const std::array<const char*, 4> longs = {"%ld", "%lu", "%li", "%lx"};
  const std::array<const char*, 4> longLongs = {"%lld", "%llu", "%lli", "%llx"};
  const std::array<const char*, 4> sizes = {"%zu", "%zd", "%zx", "%zi"};
  const std::array<const char*, 4> strings = {"", "news.example.net", "a % d \xFF", nullptr};
  for (int i = 0; i < 20000 && !HasFatalFailure(); ++i) {
    const std::size_t kind = random() % 4;
    const std::string format = RandomText(random) + ints[kind] + RandomText(random) + longs[(kind + 1) % 4] +
                               RandomText(random) + "%s" + RandomText(random) + longLongs[(kind + 2) % 4] + "%c" +
                               RandomText(random) + sizes[random() % 4] + ints[random() % 4] + RandomText(random);
    ExpectSame(format, static_cast<int>(RandomValue(random)), static_cast<long>(RandomValue(random)),
               strings[random() % strings.size()], static_cast<long long>(RandomValue(random)),
               static_cast<int>(random() % 512) - 128, static_cast<std::size_t>(RandomValue(random)),
               static_cast<int>(RandomValue(random)));
  }
}

TEST(FormatSimple, WritesTheEdgesOfEachType) {
  ExpectSame("%d %d %d", INT_MIN, INT_MAX, 0);
  ExpectSame("%ld %ld %lld %lld", LONG_MIN, LONG_MAX, LLONG_MIN, LLONG_MAX);
  ExpectSame("%u %x %lu %llu %zu", UINT_MAX, UINT_MAX, ULONG_MAX, ULLONG_MAX, SIZE_MAX);
  ExpectSame("%c%c%c", 'a', 0, 300);
  ExpectSame("%s|%s", static_cast<const char*>(nullptr), "");
  ExpectSame("%%%%");
  ExpectSame("");
}

// Each of these belongs to vsnprintf, also after directives that are simple.
TEST(FormatSimple, LeavesAllOtherDirectivesAlone) {
  constexpr std::array<const char*, 36> directives = {
      "%5d",  "%-5d", "%05d", "%+d", "% d", "%#x", "%.3d", "%*d", "%.*d", "%1$d", "%'d",   "%hd",
      "%hhd", "%jd",  "%td",  "%X",  "%o",  "%p",  "%n",   "%f",  "%.1f", "%e",   "%g",    "%a",
      "%ls",  "%lc",  "%S",   "%C",  "%m",  "%l",  "%",    "%z",  "%5%",  "%lll", "%I64d", "%Lf"};
  for (const char* directive : directives) {
    std::array<char, 64> buffer{};
    for (const char* before : {"", "text ", "%% "}) {
      const auto format = [&](const char* text, ...) QSBASE_PRINTF(2, 3) {
        std::va_list arguments;
        va_start(arguments, text);
        const bool simple = FormatSimple(buffer.data(), buffer.size(), text, arguments);
        va_end(arguments);
        return simple;
      };
      EXPECT_FALSE(format((std::string(before) + directive).c_str())) << before << directive;
    }
  }
  ExpectNotSimple("%d and %.1f", 5, 2.5);
  ExpectNotSimple("%s%%%", "text");
}

TEST(FormatSimple, NeedsRoomForTheTextAndItsEnd) {
  for (const std::string format : {"abc%s", "%s%%%d", "%lld%s", "%x %s", "%s%c", "%s"}) {
    for (std::size_t size = 1; size < 40; ++size) {
      for (const char* text : {"", "word", static_cast<const char*>(nullptr)}) {
        const Outcome outcome = format == "%lld%s"  ? Format(size, format.c_str(), -1234567LL, text)
                                : format == "%x %s" ? Format(size, format.c_str(), -1234567, text)
                                                    : Format(size, format.c_str(), text, 66);
        ASSERT_GE(outcome.theirLength, 0);
        const bool fits = static_cast<std::size_t>(outcome.theirLength) < size;
        ASSERT_EQ(outcome.simple, fits) << format << " in " << size;
        if (fits) {
          ASSERT_EQ(outcome.ours, outcome.theirs) << format << " in " << size;
        }
      }
    }
  }
  EXPECT_FALSE(Format(0, "%d", 1).simple);
}

TEST(FormatSimple, LeavesTheLastErrorAlone) {
  errno = 17;
  ExpectSame("%d %s", 1, "text");
  EXPECT_EQ(errno, 17);
}

#pragma GCC diagnostic pop
