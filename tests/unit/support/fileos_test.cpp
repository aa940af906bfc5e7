// Files beyond 2 and 4 GiB. They are holes, so that nothing of that size is ever written or read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include <common/logcapture.h>
#include <common/memorylimit.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>

namespace {

using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;
using qsbase::testing::LogCapture;
using qsbase::testing::Resize;
using qsbase::testing::TempDir;
using qsbase::testing::WriteAt;
using ::testing::StartsWith;

constexpr std::int64_t k2GiB = std::int64_t{1} << 31;
constexpr std::int64_t k4GiB = std::int64_t{1} << 32;

// On both sides of what 31 and 32 bits hold, and well beyond.
const std::vector<std::int64_t> kSizes = {k2GiB - 1, k2GiB, k2GiB + 1, k4GiB - 1, k4GiB, k4GiB + 1, 0x123456789};

class ScopedMemoryLimit {
 public:
  ScopedMemoryLimit() { largestAllocation = 10000000; }
  ~ScopedMemoryLimit() { largestAllocation = kNoLimit; }
  ScopedMemoryLimit(const ScopedMemoryLimit&) = delete;
  ScopedMemoryLimit& operator=(const ScopedMemoryLimit&) = delete;
};

class BigFileTest : public ::testing::Test {
 protected:
  std::string Make(const std::string& name, std::int64_t size) const {
    const std::string path = _dir.Write(name, "");
    Resize(path, size);
    return path;
  }

  TempDir _dir;
};

TEST_F(BigFileTest, SizeHas64Bits) {
  for (const std::int64_t size : kSizes) {
    const std::string path = Make("a", size);
    std::int64_t wide = 0;
    EXPECT_EQ(QsGetFileSize64(path.c_str(), wide), 0);
    EXPECT_EQ(wide, size);
    EXPECT_EQ(QsGetFileSize64(path.c_str()), size);
  }
}

TEST_F(BigFileTest, SizeThatALongCannotHoldIsTheLargestLong) {
  constexpr std::int64_t kLargest = std::numeric_limits<long>::max();
  for (const std::int64_t size : kSizes) {
    const std::string path = Make("a", size);
    const std::int64_t expected = size > kLargest ? kLargest : size;
    long narrow = 0;
    EXPECT_EQ(QsGetFileSize(path.c_str(), narrow), 0);
    EXPECT_EQ(narrow, expected);
    EXPECT_EQ(QsGetFileSize(path.c_str()), expected);
  }
}

TEST_F(BigFileTest, EnumerationGivesTheSize) {
  for (const std::int64_t size : kSizes) {
    Make(std::to_string(size), size);
  }
  CQsFindFile find(_dir.Path(), "*", 0);
  std::size_t files = 0;
  for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
    if (!find.IsDir()) {
      ++files;
      EXPECT_EQ(std::to_string(find.FileSize()), find.Filename());
    }
  }
  EXPECT_EQ(files, kSizes.size());
}

TEST_F(BigFileTest, PartsAreReadFromAnyOffset) {
  const std::string path = Make("a", 0x123456789);
  for (const unsigned offset : {0U, 0x7FFFFFFEU, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFAU, 0xFFFFFFFFU}) {
    const std::string mark = "at " + std::to_string(offset);
    WriteAt(path, offset, mark);
    std::string out;
    EXPECT_TRUE(QsLoadFilePart(path, offset, static_cast<int>(mark.size()), out));
    EXPECT_EQ(out, mark);
  }
  std::string head;
  EXPECT_TRUE(QsFileHead(path, 4, head));
  EXPECT_EQ(head, "at 0");
}

TEST_F(BigFileTest, PartsEndWithTheFile) {
  const std::string path = Make("a", k4GiB - 1);
  WriteAt(path, k4GiB - 4, "end");
  std::string out;
  EXPECT_TRUE(QsLoadFilePart(path, 0xFFFFFFFC, 1000, out));
  EXPECT_EQ(out, "end");
  EXPECT_TRUE(QsLoadFilePart(path, 0xFFFFFFFF, 1000, out));
  EXPECT_EQ(out, "");
}

TEST_F(BigFileTest, WholeLoadsAskForAllTheMemory) {
  for (const std::int64_t size : kSizes) {
    const std::string path = Make("a", size);
    std::string text = "nothing thrown";
    try {
      const ScopedMemoryLimit limit;
      LoadBinaryFile(path);
    } catch (const ExMemoryAllocation& error) {
      text = error.GetErrorText();
    }
    EXPECT_THAT(text, StartsWith("Memory allocation error: QsLoadFilePart cannot allocate buffer!")) << size;
  }
}

TEST_F(BigFileTest, StreamContentAsksForAllTheMemory) {
  for (const std::int64_t size : kSizes) {
    std::FILE* stream = std::fopen(Make("a", size).c_str(), "rb");
    ASSERT_NE(stream, nullptr);
    LogCapture log;
    std::string content = "x";
    {
      const ScopedMemoryLimit limit;
      content = GetFileContent(stream);
    }
    std::fclose(stream);
    EXPECT_EQ(content, "");
    ASSERT_EQ(log.Messages().size(), 1U) << size;
    EXPECT_THAT(log.Messages()[0].text, StartsWith("Memory allocation error: buffer")) << size;
  }
}

TEST_F(BigFileTest, BuffersEndBelow4GiB) {
  const auto read = [](const std::string& path, unsigned maxSize, unsigned& size) {
    char* buffer = nullptr;
    const int result = CAL_ReadFileToBuffer(path.c_str(), &buffer, size, maxSize, true, 0);
    const std::string content(buffer == nullptr ? "" : buffer, buffer == nullptr ? 0 : size);
    delete[] buffer;
    EXPECT_EQ(content, std::string(size, '\0'));
    return result;
  };
  for (const std::int64_t size : kSizes) {
    const std::string path = Make("a", size);
    unsigned loaded = 99;
    EXPECT_EQ(read(path, 5, loaded), size < k4GiB - 1 ? 0 : -11) << size;
    EXPECT_EQ(loaded, size < k4GiB - 1 ? 5U : 0U);
  }
  const std::string path = Make("a", k4GiB - 2);
  unsigned loaded = 99;
  EXPECT_EQ(read(path, 7, loaded), 0);
  EXPECT_EQ(loaded, 7U);
  const ScopedMemoryLimit limit;
  EXPECT_EQ(read(path, 0xFFFFFFFF, loaded), -3);
}

TEST_F(BigFileTest, ComparisonSeesAll64BitsOfTheSizes) {
  const std::string a = Make("a", 5);
  const std::string b = Make("b", k4GiB + 5);
  const std::string c = Make("c", k4GiB + 5);
  EXPECT_EQ(CAL_CompareFile(a.c_str(), b.c_str(), 1, 10), -10);
  EXPECT_EQ(CAL_CompareFile(b.c_str(), a.c_str(), 0, 10), -10);
  EXPECT_EQ(CAL_CompareFile(b.c_str(), c.c_str(), 1, 10), 0);
  WriteAt(c, 3, "x");
  EXPECT_EQ(CAL_CompareFile(b.c_str(), c.c_str(), 0, 10), -11);
}

TEST_F(BigFileTest, AppendingGoesToTheEnd) {
  for (const std::int64_t size : kSizes) {
    const std::string path = Make("a", size);
    EXPECT_TRUE(AppendBinaryFile(path, "more"));
    EXPECT_EQ(QsGetFileSize64(path.c_str()), size + 4);
    if (size <= 0xFFFFFFFF) {
      std::string out;
      EXPECT_TRUE(QsLoadFilePart(path, static_cast<unsigned>(size), 10, out));
      EXPECT_EQ(out, "more");
    }
  }
}

TEST_F(BigFileTest, SavingCutsItToTheContent) {
  const std::string path = Make("a", k4GiB + 1);
  EXPECT_TRUE(SaveBinaryFile(path, "new", false));
  EXPECT_EQ(TempDir::Read(path), "new");
  Resize(path, k4GiB + 1);
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "newer", true));
  EXPECT_EQ(TempDir::Read(path), "newer");
  Resize(path, k4GiB + 1);
  EXPECT_TRUE(ClearBinaryFile(path));
  EXPECT_EQ(QsGetFileSize64(path.c_str()), 0);
}

TEST_F(BigFileTest, MovesAndDeletes) {
  const std::string from = Make("from", 0x123456789);
  EXPECT_TRUE(QsMoveFile(from, _dir / "to", false, false));
  EXPECT_EQ(QsGetFileSize64((_dir / "to").c_str()), 0x123456789);
  EXPECT_EQ(QsGetDirFileCount(_dir.Path()), 1U);
  EXPECT_TRUE(QsDeleteFile(_dir / "to", false));
}

}  // namespace
