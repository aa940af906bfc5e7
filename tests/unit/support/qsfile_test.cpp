#include <gtest/gtest.h>

#ifndef _WIN32
#include <pthread.h>
#endif

#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>

#include <common/cancellation.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/qsfile.h>

namespace {

using qsbase::testing::IsInherited;
#ifdef _WIN32
using qsbase::testing::PipeReader;
#endif
using qsbase::testing::kIsADirectory;
using qsbase::testing::kNoSuchFile;
using qsbase::testing::kOnWindows;
using qsbase::testing::Resize;
using qsbase::testing::TempDir;
using qsbase::testing::WriteAt;

static_assert(!std::is_copy_constructible_v<QsFile>);
static_assert(std::has_virtual_destructor_v<QsFile>);

class QsFileTest : public ::testing::Test {
 protected:
  std::string Backslashed(const std::string& name) const {
    std::string path = _dir / name;
    for (char& c : path) {
      c = c == '/' ? '\\' : c;
    }
    return path;
  }

  TempDir _dir;
};

TEST_F(QsFileTest, NullNameOrModeLeavesItClosed) {
  QsFile file;
  EXPECT_FALSE(file.Open(nullptr, "rb"));
  EXPECT_FALSE(file.IsOpen());
  const std::string path = _dir.Write("a", "x");
  EXPECT_FALSE(file.Open(path.c_str(), nullptr));
  EXPECT_FALSE(QsFile(nullptr, "rb").IsOpen());
  EXPECT_FALSE(QsFile(path.c_str(), nullptr).IsOpen());
  EXPECT_TRUE(QsFile(path.c_str(), "rb").IsOpen());
}

TEST_F(QsFileTest, NullNameClosesWhatWasOpen) {
  QsFile file(_dir.Write("a", "x").c_str(), "rb");
  ASSERT_TRUE(file.IsOpen());
  EXPECT_FALSE(file.Open(nullptr, "rb"));
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(QsFileTest, OpenFailsForMissingFileAndUnknownOrEmptyMode) {
  QsFile file;
  EXPECT_FALSE(file.Open((_dir / "missing").c_str(), "rb"));
  EXPECT_EQ(QsGetLastError(), kNoSuchFile);
  const std::string path = _dir.Write("a", "x");
  EXPECT_FALSE(file.Open(path.c_str(), "q"));
  EXPECT_FALSE(file.Open(path.c_str(), ""));
  EXPECT_EQ(TempDir::Read(path), "x");
}

TEST_F(QsFileTest, TakesEitherSeparator) {
  _dir.Write("sub/a.txt", "content");
  QsFile file;
  EXPECT_TRUE(file.Open((_dir / "sub/a.txt").c_str(), "rb"));
  EXPECT_TRUE(file.Open(Backslashed("sub/a.txt").c_str(), "rb"));
}

TEST_F(QsFileTest, RefusesDirectories) {
  QsFile file;
  for (const char* mode : {"r", "rb", "r+", "w", "a"}) {
    EXPECT_FALSE(file.Open(_dir.Path().c_str(), mode)) << mode;
    EXPECT_EQ(QsGetLastError(), kIsADirectory) << mode;
  }
}

TEST_F(QsFileTest, ChildProcessesDoNotInheritTheStream) {
  const std::string path = _dir.Write("a", "x");
  for (const char* mode : {"r", "rb", "r+b", "rb+", "w", "wb", "a", "ab", "a+"}) {
    QsFile file(path.c_str(), mode);
    ASSERT_TRUE(file.IsOpen()) << mode;
    EXPECT_FALSE(IsInherited(file)) << mode;
  }
}

TEST_F(QsFileTest, ModesDoWhatTheCLibraryDoes) {
  const std::string path = _dir.Write("a", "old");
  {
    QsFile file(path.c_str(), "ab");
    EXPECT_EQ(file.Write(std::string("+new")), 1u);
  }
  EXPECT_EQ(TempDir::Read(path), "old+new");
  {
    QsFile file(path.c_str(), "r+b");
    EXPECT_EQ(file.Write("OLD", 1, 3), 3u);
  }
  EXPECT_EQ(TempDir::Read(path), "OLD+new");
  {
    QsFile file(path.c_str(), "wb");
    EXPECT_EQ(file.PutString("x\r\n"), kOnWindows ? 0 : 1);  // any number but EOF says success
  }
  EXPECT_EQ(TempDir::Read(path), "x\r\n");
  char bytes[4] = {};
  EXPECT_EQ(QsFile(path.c_str(), "rb").Read(bytes, 1, 3), 3u);
  EXPECT_STREQ(bytes, "x\r\n");
}

TEST_F(QsFileTest, LineEndsOfTextModeAreTheCLibrarys) {
  const std::string path = _dir / "a";
  {
    QsFile file(path.c_str(), "w");
    EXPECT_EQ(file.Write(std::string("a\nb\r\n")), 1u);
    EXPECT_EQ(file.Close(), 0);
  }
  EXPECT_EQ(TempDir::Read(path), kOnWindows ? "a\r\nb\r\r\n" : "a\nb\r\n");
  _dir.Write("a", "a\r\nb\n");
  char text[8] = {};
  EXPECT_EQ(QsFile(path.c_str(), "r").Read(text, 1, 7), kOnWindows ? 4u : 5u);
  EXPECT_STREQ(text, kOnWindows ? "a\nb\n" : "a\r\nb\n");
}

TEST_F(QsFileTest, BinaryModeKeepsEveryByte) {
  std::string every = "\r\n\n\r\x1A\r\n";
  for (int i = 0; i < 256; ++i) {
    every += static_cast<char>(i);
  }
  const std::string path = _dir / "a";
  {
    QsFile file(path.c_str(), "wb");
    EXPECT_EQ(file.Write(every), 1u);
  }
  EXPECT_EQ(TempDir::Read(path), every);
  std::string read(every.size(), '\0');
  QsFile file(path.c_str(), "rb");
  EXPECT_EQ(file.GetSize(), static_cast<long>(every.size()));
  EXPECT_EQ(file.Read(read.data(), 1, static_cast<unsigned>(read.size())), every.size());
  EXPECT_EQ(read, every);
  EXPECT_EQ(file.GetChar(), EOF);
}

TEST_F(QsFileTest, ResetCreatesOrTruncatesAndLeavesItClosed) {
  const std::string path = _dir.Write("a", "content");
  QsFile file;
  EXPECT_TRUE(file.Reset(path.c_str()));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(TempDir::Read(path), "");
  EXPECT_TRUE(file.Reset((_dir / "new").c_str()));
  EXPECT_TRUE(std::filesystem::exists(_dir / "new"));
  EXPECT_FALSE(file.Reset((_dir / "missing/new").c_str()));
  EXPECT_FALSE(file.Reset(nullptr));
}

TEST_F(QsFileTest, CloseReportsTheCLibrarysResult) {
  QsFile file;
  EXPECT_EQ(file.Close(), 0);
  ASSERT_TRUE(file.Open((_dir / "a").c_str(), "wb"));
  EXPECT_EQ(file.Close(), 0);
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(file.Close(), 0);
}

#ifdef _WIN32
// There is no device that is always full: a pipe whose reader has gone takes as little.
TEST_F(QsFileTest, FlushReportsAFailedWrite) {
  PipeReader reader("qsbase-test-flush");
  QsFile file(reader.Path().c_str(), "wb");
  EXPECT_EQ(file.Write("x", 1, 1), 1u);  // buffered
  reader.Close();
  EXPECT_EQ(file.Flush(), EOF);
  EXPECT_TRUE(file.IsError());
}

TEST_F(QsFileTest, CloseReportsAFailedLastWrite) {
  PipeReader reader("qsbase-test-close");
  QsFile file(reader.Path().c_str(), "wb");
  EXPECT_EQ(file.Write("x", 1, 1), 1u);  // buffered
  reader.Close();
  EXPECT_EQ(file.Close(), EOF);
  EXPECT_FALSE(file.IsOpen());
}
#else
TEST_F(QsFileTest, CloseReportsAFailedLastWrite) {
  QsFile file("/dev/full", "wb");
  EXPECT_EQ(file.Write("x", 1, 1), 1u);  // buffered
  EXPECT_EQ(file.Close(), EOF);
  EXPECT_FALSE(file.IsOpen());
}
#endif

TEST_F(QsFileTest, ClosedFileGivesFailureValues) {
  QsFile file;
  char buffer[4] = "abc";
  std::string line = "old";
  EXPECT_FALSE(file.IsEOF());
  EXPECT_FALSE(file.IsError());
  EXPECT_EQ(file.Read(buffer, 1, 3), 0u);
  EXPECT_EQ(file.Write("abc", 1, 3), 0u);
  EXPECT_EQ(file.Write(std::string("abc")), 0u);
  EXPECT_EQ(file.Seek(0, SEEK_SET), -1);
  EXPECT_EQ(file.GetChar(), EOF);
  EXPECT_EQ(file.PutChar('a'), EOF);
  EXPECT_EQ(file.PutString("a"), EOF);
  EXPECT_EQ(file.GetString(buffer, 4), nullptr);
  EXPECT_EQ(static_cast<std::FILE*>(file), nullptr);
  EXPECT_EQ(file.Tell(), -1);
  EXPECT_EQ(file.Flush(), EOF);
  EXPECT_EQ(file.GetSize(), -1);
  file.GetLine(line);
  EXPECT_EQ(line, "");
}

TEST_F(QsFileTest, ReadCountsWholeItems) {
  QsFile file(_dir.Write("a", "1234567").c_str(), "rb");
  char buffer[8] = {};
  EXPECT_EQ(file.Read(buffer, 3, 2), 2u);
  EXPECT_EQ(std::string(buffer), "123456");
  EXPECT_FALSE(file.IsEOF());
  EXPECT_EQ(file.Read(buffer, 3, 1), 0u);
  EXPECT_TRUE(file.IsEOF());
  EXPECT_FALSE(file.IsError());
}

TEST_F(QsFileTest, WriteOnReadOnlyStreamSetsTheError) {
  QsFile file(_dir.Write("a", "x").c_str(), "rb");
  EXPECT_EQ(file.Write("y", 1, 1), 0u);
  EXPECT_TRUE(file.IsError());
}

TEST_F(QsFileTest, StringIsWrittenAsOneItemWithItsNulBytes) {
  const std::string data("a\0b", 3);
  const std::string path = _dir / "a";
  {
    QsFile file(path.c_str(), "wb");
    EXPECT_EQ(file.Write(data), 1u);
    EXPECT_EQ(file.Write(std::string()), 0u);
    EXPECT_EQ(file.PutChar('!'), '!');
    EXPECT_EQ(file.Tell(), 4);
    EXPECT_EQ(file.Flush(), 0);
    EXPECT_EQ(TempDir::Read(path), data + "!");
  }
}

TEST_F(QsFileTest, CharactersAndStrings) {
  QsFile file(_dir.Write("a",
                         "\xFF"
                         "b\ncd")
                  .c_str(),
              "rb");
  EXPECT_EQ(file.GetChar(), 255);
  char buffer[8] = {};
  EXPECT_STREQ(file.GetString(buffer, 8), "b\n");
  EXPECT_STREQ(file.GetString(buffer, 2), "c");
  EXPECT_STREQ(file.GetString(buffer, 8), "d");
  EXPECT_EQ(file.GetString(buffer, 8), nullptr);
  EXPECT_EQ(file.Seek(-2, SEEK_END), 0);
  EXPECT_EQ(file.GetChar(), 'c');
}

TEST_F(QsFileTest, GivesItsStreamConstOrNot) {
  QsFile file(_dir.Write("a", "x").c_str(), "rb");
  const QsFile& same = file;
  EXPECT_NE(static_cast<std::FILE*>(file), nullptr);
  EXPECT_EQ(static_cast<std::FILE*>(file), static_cast<std::FILE*>(same));
}

TEST_F(QsFileTest, GetSizeKeepsThePosition) {
  QsFile file(_dir.Write("a", "0123456789").c_str(), "rb");
  EXPECT_EQ(file.GetSize(), 10);
  EXPECT_EQ(file.Tell(), 0);
  ASSERT_EQ(file.Seek(7, SEEK_SET), 0);
  EXPECT_EQ(file.GetSize(), 10);
  EXPECT_EQ(file.GetChar(), '7');
}

TEST_F(QsFileTest, GetSizeSeesWhatIsStillBuffered) {
  QsFile file((_dir / "a").c_str(), "wb");
  file.Write("abc", 1, 3);
  EXPECT_EQ(file.GetSize(), 3);
}

TEST_F(QsFileTest, PositionsAndSizesAreALong) {
  const std::string path = _dir.Write("a", "");
  constexpr std::int64_t kLargest = 0x7FFFFFFF;
  Resize(path, kLargest);
  QsFile file(path.c_str(), "r+b");
  EXPECT_EQ(file.GetSize(), kLargest);
  EXPECT_EQ(file.Seek(0x7FFFFFFF, SEEK_SET), 0);
  EXPECT_EQ(file.Tell(), kLargest);
  EXPECT_EQ(file.Seek(-1, SEEK_END), 0);
  EXPECT_EQ(file.PutChar('x'), 'x');
  EXPECT_EQ(file.Seek(-1, SEEK_CUR), 0);
  EXPECT_EQ(file.GetChar(), 'x');
  EXPECT_EQ(file.GetSize(), kLargest);
}

TEST_F(QsFileTest, BeyondALongSizeAndPositionFail) {
  const std::string path = _dir.Write("a", "start");
  for (const std::int64_t size : {std::int64_t{0x80000000}, std::int64_t{0x100000001}, std::int64_t{0x123456789}}) {
    Resize(path, size);
    WriteAt(path, size - 3, "end");
    QsFile file(path.c_str(), "rb");
    constexpr std::int64_t kLargest = std::numeric_limits<long>::max();
    EXPECT_EQ(file.GetSize(), size <= kLargest ? size : -1) << size;
    EXPECT_EQ(file.Tell(), 0);
    EXPECT_EQ(file.GetChar(), 's');
    char end[4] = {};
    ASSERT_EQ(file.Seek(-3, SEEK_END), 0);
    EXPECT_EQ(file.Tell(), size - 3 <= kLargest ? size - 3 : -1) << size;
    EXPECT_EQ(file.Read(end, 1, 4), 3u);
    EXPECT_STREQ(end, "end");
  }
}

TEST_F(QsFileTest, GetLineOfCrLfAndALastLineWithoutBreak) {
  QsFile file(_dir.Write("a", "a\r\nb").c_str(), "rb");
  std::string line = "old";
  file.GetLine(line);
  EXPECT_EQ(line, "a");
  file.GetLine(line);
  EXPECT_EQ(line, "b");
  file.GetLine(line);
  EXPECT_EQ(line, "");
  EXPECT_TRUE(file.IsEOF());
}

TEST_F(QsFileTest, GetLineDropsOneCarriageReturnAtTheEndOnly) {
  QsFile file(_dir.Write("a", std::string("x\ry\r\r\n\n\xFF\0z\n\r", 11)).c_str(), "rb");
  std::string line;
  file.GetLine(line);
  EXPECT_EQ(line, "x\ry\r");
  file.GetLine(line);
  EXPECT_EQ(line, "");
  EXPECT_FALSE(file.IsEOF());
  file.GetLine(line);
  EXPECT_EQ(line, std::string("\xFF\0z", 3));
  file.GetLine(line);
  EXPECT_EQ(line, "");
  EXPECT_TRUE(file.IsEOF());
}

TEST_F(QsFileTest, GetLineUsesTheVirtualGetChar) {
  class Counting : public QsFile {
   public:
    int GetChar() const override { return _next < 3 ? "ab\n"[_next++] : EOF; }

   private:
    mutable int _next = 0;
  };
  Counting file;
  std::string line;
  static_cast<QsFile&>(file).GetLine(line);
  EXPECT_EQ(line, "ab");
}

TEST_F(QsFileTest, ReadMediumString) {
  const std::string longText(0x1234, 'x');
  QsFile file(_dir.Write("a", std::string("\x03\x00"
                                          "a\0b"
                                          "\x00\x00"
                                          "\x34\x12",
                                          9) +
                                  longText)
                  .c_str(),
              "rb");
  std::string out = "old";
  EXPECT_EQ(file.ReadMediumString(out), 0);
  EXPECT_EQ(out, std::string("a\0b", 3));
  EXPECT_EQ(file.ReadMediumString(out), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(file.ReadMediumString(out), 0);
  EXPECT_EQ(out, longText);
  EXPECT_EQ(file.ReadMediumString(out), -3);
  EXPECT_EQ(out, "");
}

TEST_F(QsFileTest, ReadMediumStringFailures) {
  std::string out = "old";
  EXPECT_EQ(QsFile().ReadMediumString(out), -2);
  EXPECT_EQ(QsFile(_dir.Write("one", "\x03").c_str(), "rb").ReadMediumString(out), -3);
  EXPECT_EQ(QsFile(_dir.Write("short", std::string("\x03\x00"
                                                   "ab",
                                                   4))
                       .c_str(),
                   "rb")
                .ReadMediumString(out),
            -5);
  EXPECT_EQ(out, "");
}

TEST_F(QsFileTest, DestructorWritesOut) {
  const std::string path = _dir / "a";
  {
    QsFile file(path.c_str(), "wb");
    file.PutChar('x');
  }
  EXPECT_EQ(TempDir::Read(path), "x");
}

#ifndef _WIN32
TEST_F(QsFileTest, ACancellationWaitsForTheDestructor) {
  const std::string path = _dir / "a";
  EXPECT_TRUE(qsbase::testing::EndsCancelled([&path] {
    QsFile file(path.c_str(), "wb");
    file.PutChar('x');
    pthread_cancel(pthread_self());
  }));
  EXPECT_EQ(TempDir::Read(path), "x");
}
#endif

}  // namespace
