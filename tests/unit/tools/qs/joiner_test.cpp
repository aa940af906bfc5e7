#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <common/memorylimit.h>
#include <common/platform.h>

#include "joiner.h"

namespace {

using qs::Attachment;
using qs::PartJoiner;

// A part of "abcdefghi".
Attachment Part(int number, unsigned int begin, unsigned int end) {
  Attachment piece;
  piece.encoding = qs::Encoding::YEnc;
  piece.name = "a.bin";
  piece.data = std::string("abcdefghi").substr(begin - 1, end - begin + 1);
  piece.part = qs::YEncPart{number, 3, begin, end, 9, ""};
  return piece;
}

std::vector<Attachment> Parts() { return {Part(1, 1, 3), Part(2, 4, 6), Part(3, 7, 9)}; }

std::vector<PartJoiner::Joined> Join(const std::vector<Attachment>& pieces) {
  PartJoiner joiner;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    joiner.Add(pieces[i], i);
  }
  return joiner.Join();
}

PartJoiner::Joined JoinOne(const std::vector<Attachment>& pieces) {
  const auto files = Join(pieces);
  EXPECT_EQ(files.size(), 1U);
  return files.empty() ? PartJoiner::Joined() : files.front();
}

TEST(Joiner, AnyOrder) {
  std::vector<int> order = {0, 1, 2};
  do {
    std::vector<Attachment> pieces;
    for (const int index : order) {
      pieces.push_back(Parts()[static_cast<std::size_t>(index)]);
    }
    const PartJoiner::Joined file = JoinOne(pieces);
    EXPECT_EQ(file.file.data, "abcdefghi");
    EXPECT_EQ(file.file.problem, "");
    EXPECT_EQ(file.parts, 3U);
    EXPECT_EQ(file.sources.size(), 3U);
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(Joiner, MissingParts) {
  auto pieces = Parts();
  EXPECT_EQ(JoinOne({pieces[1], pieces[2]}).file.problem, "bytes 1 to 3 are missing");
  EXPECT_EQ(JoinOne({pieces[0], pieces[2]}).file.problem, "bytes 4 to 6 are missing");
  EXPECT_EQ(JoinOne({pieces[0], pieces[1]}).file.problem, "bytes 7 to 9 are missing");
}

TEST(Joiner, OverlappingParts) {
  auto pieces = Parts();
  pieces[1] = Part(2, 3, 6);
  EXPECT_EQ(JoinOne(pieces).file.problem, "parts overlap at bytes 3 to 3");
}

TEST(Joiner, TheSamePartTwiceCountsOnce) {
  auto pieces = Parts();
  pieces.push_back(pieces[1]);
  const PartJoiner::Joined file = JoinOne(pieces);
  EXPECT_EQ(file.file.problem, "");
  EXPECT_EQ(file.parts, 3U);
  pieces.back().data = "xyz";
  EXPECT_EQ(JoinOne(pieces).file.problem, "parts overlap at bytes 4 to 6") << "two of one range that differ";
}

TEST(Joiner, WrongTotalsAndNumbers) {
  auto pieces = Parts();
  for (Attachment& piece : pieces) {
    piece.part->total = 4;
  }
  EXPECT_EQ(JoinOne(pieces).file.problem, "part 1 announces 4 parts, there are 3");
  pieces = Parts();
  pieces[2].part->total = 2;
  EXPECT_NE(JoinOne(pieces).file.problem, "") << "they differ from one another";
  pieces = Parts();
  std::swap(pieces[0].part->number, pieces[1].part->number);
  EXPECT_NE(JoinOne(pieces).file.problem, "");
  pieces = Parts();
  for (Attachment& piece : pieces) {
    piece.part->total = -1;
  }
  EXPECT_EQ(JoinOne(pieces).file.problem, "") << "totals are optional";
}

// CRC-32 of "abcdefghi" by Python's zlib.crc32: 8DA988AF.
TEST(Joiner, CrcOfTheWholeFile) {
  auto pieces = Parts();
  pieces[2].part->fileCrc = "8DA988AF";
  EXPECT_EQ(JoinOne(pieces).file.problem, "");
  pieces[0].part->fileCrc = "8DA988AE";
  EXPECT_NE(JoinOne(pieces).file.problem, "");
}

TEST(Joiner, DamagedPart) {
  auto pieces = Parts();
  pieces[1].problem = "CRC-32 mismatch";
  const PartJoiner::Joined file = JoinOne(pieces);
  EXPECT_EQ(file.file.problem, "part 2: CRC-32 mismatch");
  EXPECT_EQ(file.sources.size(), 3U);
}

TEST(Joiner, AnotherCopyReplacesADamagedPart) {
  auto pieces = Parts();
  pieces.push_back(pieces[1]);
  pieces[1].problem = "CRC-32 mismatch";
  const auto files = Join(pieces);
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].file.data, "abcdefghi");
  EXPECT_EQ(files[0].file.problem, "");
  EXPECT_EQ(files[1].file.problem, "CRC-32 mismatch; another copy of the part was used");
  EXPECT_EQ(files[1].sources, std::vector<std::size_t>{1});
}

TEST(Joiner, TooLongForTheMemory) {
  if (qsbase::testing::kOnWindows) {
    GTEST_SKIP() << "strings take their memory inside the C++ runtime's DLL, past the operator new of this program";
  }
  constexpr unsigned int kPart = 10000;
  PartJoiner joiner;
  for (int number : {1, 2}) {
    Attachment piece = Part(1, 1, 9);
    const auto begin = static_cast<unsigned int>(number - 1) * kPart + 1;
    piece.data = std::string(kPart, 'x');
    piece.part = qs::YEncPart{number, 2, begin, begin + kPart - 1, 2 * kPart, ""};
    joiner.Add(std::move(piece), 0);
  }
  qsbase::testing::largestAllocation = kPart + kPart / 2;
  const auto files = joiner.Join();
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(files.front().file.problem, "not enough memory to put the parts together");
  EXPECT_EQ(files.front().file.data, "");
}

TEST(Joiner, FilesAreToldApartByNameAndSize) {
  auto pieces = Parts();
  Attachment other = Part(1, 1, 3);
  other.name = "b.bin";
  other.part->size = 3;
  other.part->total = 1;
  pieces.insert(pieces.begin() + 1, other);
  const auto files = Join(pieces);
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].file.data, "abcdefghi");
  EXPECT_EQ(files[1].file.data, "abc");
  EXPECT_EQ(files[1].file.problem, "");
}

TEST(Joiner, NothingLeftAfterJoin) {
  PartJoiner joiner;
  EXPECT_TRUE(joiner.Join().empty());
  joiner.Add(Part(1, 1, 3), 0);
  EXPECT_EQ(joiner.Join().size(), 1U);
  EXPECT_TRUE(joiner.Join().empty());
}

}  // namespace
