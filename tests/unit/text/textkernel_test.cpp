#include <QSbase/text/textkernel.h>
#include <gtest/gtest.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <string>

namespace {

using namespace qsbase::detail;
using qsbase::test::OnEveryLevel;

const TextKernels& Kernels() { return TextKernelsOf(CurrentSimdLevel()); }

/// What change(text, length) makes of a block of its own, at a chosen distance from its start.
template <class Change>
std::string Changed(const std::string& text, std::size_t alignment, Change change) {
  const std::unique_ptr<char[]> block(new char[alignment + text.size()]);
  std::fill(block.get(), block.get() + alignment, 'Q');
  std::copy(text.begin(), text.end(), block.get() + alignment);
  change(block.get() + alignment, text.size());
  EXPECT_EQ(std::string(block.get(), alignment), std::string(alignment, 'Q'));
  return {block.get() + alignment, text.size()};
}

/// What change(c) makes of each byte.
template <class Change>
std::string ChangedSlowly(std::string text, Change change) {
  std::transform(text.begin(), text.end(), text.begin(), change);
  return text;
}

std::string Random(std::size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
  return bytes;
}

struct CaseMap {
  const CharMap& map;
  void (*TextKernels::*kernel)(char* text, std::size_t length);

  std::string Fast(const std::string& text, std::size_t alignment) const {
    return Changed(text, alignment, Kernels().*kernel);
  }
  std::string Slow(const std::string& text) const {
    return ChangedSlowly(text, [this](char c) { return static_cast<char>(map[static_cast<unsigned char>(c)]); });
  }
};

const CaseMap kCaseMaps[] = {{kLowerMap, &TextKernels::toLower},
                             {kUpperMap, &TextKernels::toUpper},
                             {kLowerControlToSpaceMap, &TextKernels::toLowerControlToSpace}};

TEST(TextCase, EveryByteAtEveryPlace) {
  OnEveryLevel([] {
    for (const CaseMap& map : kCaseMaps) {
      for (int c = 0; c < 256; ++c) {
        for (std::size_t at = 0; at < 70; ++at) {
          std::string text(70, '\xC4');
          text[at] = static_cast<char>(c);
          ASSERT_EQ(map.Fast(text, 0), map.Slow(text)) << c << " at " << at;
        }
      }
    }
  });
}

TEST(TextCase, EveryLengthAndAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(1);
    for (const CaseMap& map : kCaseMaps) {
      for (std::size_t length = 0; length <= 300; ++length) {
        const std::string text = Random(length, random);
        const std::string expected = map.Slow(text);
        for (std::size_t alignment = 0; alignment < 64; ++alignment) {
          ASSERT_EQ(map.Fast(text, alignment), expected) << length << " at " << alignment;
        }
      }
    }
  });
}

TEST(TextReplace, EveryLengthAndAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(2);
    for (std::size_t length = 0; length <= 300; ++length) {
      std::string text = Random(length, random);
      std::replace_if(
          text.begin(), text.end(), [&random](char) { return random() % 3 == 0; }, '\x80');
      const std::string expected = ChangedSlowly(text, [](char c) { return c == '\x80' ? '\x7F' : c; });
      for (std::size_t alignment = 0; alignment < 64; ++alignment) {
        ASSERT_EQ(Changed(text, alignment, [](char* t, std::size_t n) { Kernels().replace(t, n, '\x80', '\x7F'); }),
                  expected)
            << length << " at " << alignment;
      }
    }
  });
}

std::string Stripped(const std::string& text, unsigned int mask, std::size_t alignment) {
  const std::unique_ptr<char[]> out(new char[text.size() + kStripSlack]);
  const ByteSet set = ByteSetOf(mask);
  const char* end = nullptr;
  Changed(text, alignment, [&](const char* t, std::size_t n) { end = Kernels().strip(t, n, set, out.get()); });
  return std::string(out.get(), static_cast<std::size_t>(end - out.get()));
}

std::string StrippedSlowly(std::string text, unsigned int mask) {
  text.erase(std::remove_if(text.begin(), text.end(),
                            [mask](char c) { return (kCharMasks[static_cast<unsigned char>(c)] & mask) != 0; }),
             text.end());
  return text;
}

TEST(TextStrip, EveryLengthAndAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(3);
    for (std::size_t length = 0; length <= 300; ++length) {
      const std::string text = Random(length, random);
      const unsigned int mask = random() % 0x2000;
      const std::string expected = StrippedSlowly(text, mask);
      for (std::size_t alignment = 0; alignment < 64; ++alignment) {
        ASSERT_EQ(Stripped(text, mask, alignment), expected) << length << " at " << alignment;
      }
    }
  });
}

TEST(TextStrip, EveryByteOfEveryMask) {
  OnEveryLevel([] {
    std::string all;
    for (int c = 0; c < 256; ++c) {
      all += static_cast<char>(c);
    }
    for (unsigned int mask = 0; mask < 0x4000; ++mask) {
      ASSERT_EQ(Stripped(all, mask, 0), StrippedSlowly(all, mask)) << mask;
    }
    EXPECT_EQ(Stripped(all, 0xFFFFFFFF, 0), StrippedSlowly(all, 0xFFFFFFFF));
  });
}

}  // namespace
