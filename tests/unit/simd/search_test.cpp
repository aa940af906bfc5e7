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

TEST(Search, LineEnds) {
  const std::string text = "one\rtwo\nthree";
  const char* const end = text.data() + text.size();
  EXPECT_EQ(FindLineEnd(text.data(), end) - text.data(), 3);
  EXPECT_EQ(FindLineEnd(text.data() + 4, end) - text.data(), 7);
  EXPECT_EQ(FindLineEnd(text.data() + 8, end), end);
}

}  // namespace
