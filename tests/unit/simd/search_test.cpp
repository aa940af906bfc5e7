#include <QSbase/simd/search.h>
#include <gtest/gtest.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <memory>
#include <string>

namespace {

using namespace qsbase::detail;
using qsbase::test::OnEveryLevel;

// A block of its own a text: a read behind it is a sanitizer's finding.
struct Text {
  explicit Text(const std::string& content) : size(content.size()), data(new char[content.size()]) {
    std::copy(content.begin(), content.end(), data.get());
  }
  const char* begin() const { return data.get(); }
  const char* end() const { return data.get() + size; }

  std::size_t size;
  std::unique_ptr<char[]> data;
};

TEST(Search, FindsEitherByteAtEveryPlace) {
  OnEveryLevel([] {
    for (std::size_t length = 0; length <= 300; ++length) {
      const Text none(std::string(length, '\x0B'));
      ASSERT_EQ(FindEither(none.begin(), none.end(), '\n', '\r'), none.end()) << length;
      for (std::size_t at = 0; at < length; ++at) {
        std::string content(length, '\x8A');
        content[at] = at % 2 == 0 ? '\n' : '\r';
        content[length - 1] = '\n';
        const Text text(content);
        ASSERT_EQ(FindEither(text.begin(), text.end(), '\n', '\r') - text.begin(), static_cast<std::ptrdiff_t>(at))
            << length;
      }
    }
  });
}

TEST(Search, EveryByteIsTakenForItselfOnly) {
  OnEveryLevel([] {
    for (int wanted = 0; wanted < 256; ++wanted) {
      std::string content;
      for (int c = 0; c < 256; ++c) {
        content += c == wanted ? "" : std::string(1, static_cast<char>(c));
      }
      const Text text(content);
      ASSERT_EQ(FindEither(text.begin(), text.end(), static_cast<char>(wanted), static_cast<char>(wanted)), text.end());
    }
  });
}

TEST(Search, FindsTheEndOfARunOfTwoBytesAtEveryPlace) {
  OnEveryLevel([] {
    const SearchKernels& kernels = SearchKernelsOf(CurrentSimdLevel());
    for (std::size_t length = 0; length <= 300; ++length) {
      std::string content;
      for (std::size_t i = 0; i < length; ++i) {
        content += i % 3 == 0 ? '\r' : '\n';
      }
      const Text all(content);
      ASSERT_EQ(kernels.findNeither(all.begin(), all.end(), '\r', '\n'), all.end()) << length;
      ASSERT_EQ(SkipLineBreaks(all.begin(), all.end()), all.end()) << length;
      for (std::size_t at = 0; at < length; ++at) {
        std::string broken = content;
        broken[at] = at % 2 == 0 ? '\x8A' : '\x0B';
        broken[length - 1] = 'x';
        const Text text(broken);
        ASSERT_EQ(kernels.findNeither(text.begin(), text.end(), '\r', '\n') - text.begin(),
                  static_cast<std::ptrdiff_t>(at));
        ASSERT_EQ(SkipLineBreaks(text.begin(), text.end()) - text.begin(), static_cast<std::ptrdiff_t>(at));
      }
    }
  });
}

TEST(Search, FindsTheEndOfWhiteSpaceAtEveryPlace) {
  const std::string spaces = " \t\n\v\f\r";
  OnEveryLevel([&] {
    const SearchKernels& kernels = SearchKernelsOf(CurrentSimdLevel());
    for (std::size_t length = 0; length <= 300; ++length) {
      std::string content;
      for (std::size_t i = 0; i < length; ++i) {
        content += spaces[i % spaces.size()];
      }
      const Text all(content);
      ASSERT_EQ(kernels.findNonSpace(all.begin(), all.end()), all.end()) << length;
      ASSERT_EQ(SkipSpaces(all.begin(), all.end()), all.end()) << length;
      for (std::size_t at = 0; at < length; ++at) {
        std::string broken = content;
        broken[at] = "\b\x0E\x1F!\x89\xA0\0"[at % 7];
        broken[length - 1] = 'x';
        const Text text(broken);
        ASSERT_EQ(kernels.findNonSpace(text.begin(), text.end()) - text.begin(), static_cast<std::ptrdiff_t>(at));
        ASSERT_EQ(SkipSpaces(text.begin(), text.end()) - text.begin(), static_cast<std::ptrdiff_t>(at));
      }
    }
  });
}

TEST(Search, EveryByteIsWhiteSpaceOrNot) {
  OnEveryLevel([] {
    for (int c = 0; c < 256; ++c) {
      const Text text(std::string(100, static_cast<char>(c)));
      const bool isSpace = std::string(" \t\n\v\f\r").find(static_cast<char>(c)) != std::string::npos;
      ASSERT_EQ(SkipSpaces(text.begin(), text.end()), isSpace ? text.end() : text.begin()) << c;
      ASSERT_EQ(SearchKernelsOf(CurrentSimdLevel()).findNonSpace(text.begin(), text.end()),
                isSpace ? text.end() : text.begin())
          << c;
    }
  });
}

TEST(Search, FindsALineByItsStartAtEveryPlace) {
  OnEveryLevel([] {
    for (std::size_t length = 0; length <= 300; ++length) {
      std::string content(length, 'b');
      const Text none(content);
      ASSERT_EQ(FindLineOf(none.begin(), none.end(), 'b', 'e'), none.end()) << length;
      for (std::size_t at = 0; at + 3 <= length; ++at) {
        std::string line = content;
        line.replace(at, 3, at % 2 == 0 ? "\nbe" : "\rBE");
        if (at + 6 <= length) {
          line.replace(length - 3, 3, "\rbe");
        }
        const Text text(line);
        ASSERT_EQ(FindLineOf(text.begin(), text.end(), 'b', 'e') - text.begin(), static_cast<std::ptrdiff_t>(at + 1));
        // Cut behind the first of the two characters.
        const Text cut(line.substr(0, at + 2));
        ASSERT_EQ(FindLineOf(cut.begin(), cut.end(), 'b', 'e'), cut.end());
      }
    }
  });
}

TEST(Search, OnlyALineBreakMakesALine) {
  OnEveryLevel([] {
    for (int c = 0; c < 256; ++c) {
      std::string content(100, 'x');
      content.replace(40, 3, std::string(1, static_cast<char>(c)) + "=y");
      const Text text(content);
      ASSERT_EQ(FindLineOf(text.begin(), text.end(), '=', 'y'), c == '\r' || c == '\n' ? text.begin() + 41 : text.end())
          << c;
    }
  });
}

TEST(Search, LineStartsAreTheTwoCharactersWithoutCase) {
  OnEveryLevel([] {
    for (int c = 0; c < 256; ++c) {
      for (std::size_t at = 41; at <= 42; ++at) {
        std::string content(100, 'x');
        content.replace(40, 3, "\nbe");
        const bool isFound = (c & ~0x20) == (content[at] & ~0x20);
        content[at] = static_cast<char>(c);
        const Text text(content);
        ASSERT_EQ(FindLineOf(text.begin(), text.end(), 'b', 'e'), isFound ? text.begin() + 41 : text.end()) << c;
      }
    }
  });
}

TEST(Search, LineEnds) {
  const std::string text = "one\rtwo\nthree";
  const char* const end = text.data() + text.size();
  EXPECT_EQ(FindLineEnd(text.data(), end) - text.data(), 3);
  EXPECT_EQ(FindLineEnd(text.data() + 4, end) - text.data(), 7);
  EXPECT_EQ(FindLineEnd(text.data() + 8, end), end);
}

}  // namespace
