#include <QSbase/codec/binhexkernel.h>
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

const BinHexKernels& Kernels() { return BinHexKernelsOf(CurrentSimdLevel()); }

/// Bytes of a block of their own, at a chosen distance from its start.
struct Block {
  Block(std::size_t alignment, const std::string& content)
      : block(new char[alignment + content.size()]), data(block.get() + alignment), size(content.size()) {
    std::copy(content.begin(), content.end(), data);
  }
  const char* end() const { return data + size; }

  std::unique_ptr<char[]> block;
  char* data;
  std::size_t size;
};

/// What the kernel of the groups gave: the bytes, and how many characters it took.
struct Groups {
  std::string bytes;
  std::size_t taken;
  bool operator==(const Groups& other) const = default;
};

Groups DecodeWithKernel(const std::string& text, std::size_t room, std::size_t alignment) {
  const Block block(alignment, text);
  const std::unique_ptr<unsigned char[]> out(new unsigned char[room + kBinHexSlack]);
  const BinHexGroups groups = Kernels().decodeGroups(block.data, block.end(), out.get(), out.get() + room);
  return {std::string(out.get(), groups.out), static_cast<std::size_t>(groups.position - block.data)};
}

/// Character by character.
Groups DecodeSlowly(const std::string& text, std::size_t room) {
  Groups groups{"", 0};
  unsigned int bits = 0;
  int digits = 0;
  for (std::size_t i = 0; i < text.size() && groups.bytes.size() + 3 <= room; ++i) {
    const std::size_t value = kBinHexDigits.find(text[i]);
    if (value == kBinHexDigits.npos && kBinHexWhiteSpace.find(text[i]) == kBinHexWhiteSpace.npos) {
      break;
    }
    if (value == kBinHexDigits.npos) {
      continue;
    }
    bits = bits << 6 | static_cast<unsigned int>(value);
    if (++digits == 4) {
      groups.bytes += {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8), static_cast<char>(bits)};
      groups.taken = i + 1;
      bits = 0;
      digits = 0;
    }
  }
  return groups;
}

std::string Digits(std::size_t size, std::mt19937& random) {
  std::string text(size, '\0');
  std::generate(text.begin(), text.end(), [&random] { return kBinHexDigits[random() % 64]; });
  return text;
}

TEST(BinHexGroups, EveryLengthAndAlignment) {
  OnEveryLevel([] {
    std::mt19937 random(1);
    for (std::size_t length = 0; length <= 300; ++length) {
      const std::string text = Digits(length, random);
      const Groups expected = DecodeSlowly(text, 300);
      for (std::size_t alignment = 0; alignment < 64; alignment += length % 3 + 1) {
        ASSERT_EQ(DecodeWithKernel(text, 300, alignment), expected) << length << " at " << alignment;
      }
    }
  });
}

TEST(BinHexGroups, EveryCharacterAtEveryPlace) {
  OnEveryLevel([] {
    std::mt19937 random(2);
    const std::string digits = Digits(130, random);
    for (int c = 0; c < 256; ++c) {
      for (std::size_t at = 0; at < digits.size(); ++at) {
        std::string text = digits;
        text[at] = static_cast<char>(c);
        ASSERT_EQ(DecodeWithKernel(text, 200, 0), DecodeSlowly(text, 200)) << c << " at " << at;
      }
    }
  });
}

TEST(BinHexGroups, AnyRoom) {
  OnEveryLevel([] {
    std::mt19937 random(3);
    std::string text = Digits(300, random);
    text.insert(77, "\r\n");
    for (std::size_t room = 0; room <= 230; ++room) {
      ASSERT_EQ(DecodeWithKernel(text, room, room % 64), DecodeSlowly(text, room)) << room;
    }
  });
}

TEST(BinHexGroups, WhiteSpaceAnywhere) {
  OnEveryLevel([] {
    std::mt19937 random(4);
    for (int i = 0; i < 5000; ++i) {
      std::string text = Digits(random() % 300, random);
      for (std::size_t breaks = random() % (i % 2 == 0 ? 4 : 100); breaks != 0; --breaks) {
        text.insert(random() % (text.size() + 1), 1 + random() % 3, kBinHexWhiteSpace[random() % 4]);
      }
      if (i % 3 == 0 && !text.empty()) {
        text[random() % text.size()] = static_cast<char>(random());
      }
      ASSERT_EQ(DecodeWithKernel(text, 300, random() % 64), DecodeSlowly(text, 300)) << i;
    }
  });
}

/// What the kernel of the runs gave and left.
struct Expanded {
  std::string bytes;
  std::size_t taken;
  int repeatCount;
  unsigned char lastByte;
  bool operator==(const Expanded& other) const = default;
};

Expanded ExpandWithKernel(const std::string& coded, std::size_t room, std::size_t alignment, int repeatCount,
                          unsigned char lastByte) {
  const Block block(alignment, coded);
  const auto* const read = reinterpret_cast<const unsigned char*>(block.data);
  const std::unique_ptr<unsigned char[]> out(new unsigned char[room]);
  BinHexRuns runs{read, read + block.size, out.get(), out.get() + room, repeatCount, lastByte};
  Kernels().expandRuns(runs);
  return {std::string(out.get(), runs.out), static_cast<std::size_t>(runs.read - read), runs.repeatCount,
          runs.lastByte};
}

/// Byte by byte.
Expanded ExpandSlowly(const std::string& coded, std::size_t room, int repeatCount, unsigned char lastByte) {
  Expanded expanded{"", 0, repeatCount, lastByte};
  while (expanded.bytes.size() < room) {
    if (expanded.repeatCount > 0) {
      expanded.bytes += static_cast<char>(expanded.lastByte);
      --expanded.repeatCount;
      continue;
    }
    const std::string next = coded.substr(expanded.taken, 2);
    if (next.empty() || next == "\x90") {
      break;
    }
    expanded.taken += next[0] == '\x90' ? 2 : 1;
    if (next[0] == '\x90' && next[1] != '\0') {
      expanded.repeatCount = static_cast<unsigned char>(next[1]) - 1;
    } else {
      expanded.bytes += next[0];
      expanded.lastByte = static_cast<unsigned char>(next[0]);
    }
  }
  return expanded;
}

TEST(BinHexRuns, AgreesWithTheRules) {
  OnEveryLevel([] {
    std::mt19937 random(5);
    for (int i = 0; i < 30000; ++i) {
      std::string coded(random() % 300, '\0');
      const unsigned int seldom = i % 2 == 0 ? 3 : 60;
      for (char& c : coded) {
        c = random() % seldom == 0 ? '\x90' : static_cast<char>(random() % 3 == 0 ? random() % 4 : random());
      }
      const std::size_t room = i % 5 == 0 ? random() % 4000 : random() % 400;
      const int repeatCount = random() % 4 == 0 ? static_cast<int>(random() % 255) : 0;
      const auto last = static_cast<unsigned char>(random());
      ASSERT_EQ(ExpandWithKernel(coded, room, random() % 64, repeatCount, last),
                ExpandSlowly(coded, room, repeatCount, last))
          << i;
    }
  });
}

/// Literal bytes, then a run mark with its count, and so on.
std::string CloseMarks(std::size_t literals, char count, std::size_t marks) {
  std::string coded;
  for (std::size_t mark = 0; mark < marks; ++mark) {
    for (std::size_t i = 0; i < literals; ++i) {
      coded += static_cast<char>(mark + i);
    }
    coded += {'\x90', count};
  }
  return coded;
}

TEST(BinHexRuns, MarksNextToEachOther) {
  OnEveryLevel([] {
    for (std::size_t literals = 0; literals < 4; ++literals) {
      for (const char count : {'\0', '\1', '\2', '\x40', '\x90', '\xFF'}) {
        const std::string coded = CloseMarks(literals, count, 60);
        for (std::size_t length = 0; length <= coded.size(); ++length) {
          const std::string cut = coded.substr(0, length);
          for (const std::size_t room : {length / 2, length, std::size_t{400}, std::size_t{20000}}) {
            ASSERT_EQ(ExpandWithKernel(cut, room, 0, 0, 'z'), ExpandSlowly(cut, room, 0, 'z'))
                << literals << " before " << static_cast<int>(count) << ", " << length << " into " << room;
          }
        }
      }
    }
  });
}

TEST(BinHexRuns, ARunOfEveryLengthAtEveryPlace) {
  OnEveryLevel([] {
    for (int length = 0; length < 256; ++length) {
      for (std::size_t at = 0; at < 100; at += 1 + static_cast<std::size_t>(length) % 7) {
        std::string coded(150, 'a');
        coded.replace(at, 2, {'\x90', static_cast<char>(length)});
        for (const std::size_t room : {at, at + 1, at + static_cast<std::size_t>(length), std::size_t{500}}) {
          ASSERT_EQ(ExpandWithKernel(coded, room, 0, 0, 'z'), ExpandSlowly(coded, room, 0, 'z')) << length << " " << at;
        }
      }
    }
  });
}

}  // namespace
