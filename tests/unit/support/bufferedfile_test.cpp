#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <cerrno>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <common/cancellation.h>
#include <common/memorylimit.h>
#include <common/openhandles.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/bufferedfile.h>

#ifndef _WIN32
namespace {

bool recordsWrites = false;
std::vector<size_t> writes;  // how long those were that the system was asked for
std::vector<const char*> writtenFrom;
std::size_t longestWrite = 0;  // what one call writes at most; 0 for no limit
bool pretendsToWrite = false;  // as if the system had taken all
std::uint64_t pretendedBytes = 0;

}  // namespace

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  if (recordsWrites) {
    writes.push_back(size);
    writtenFrom.push_back(static_cast<const char*>(data));
  }
  if (pretendsToWrite) {
    pretendedBytes += size;
    return static_cast<ssize_t>(size);
  }
  return syscall(SYS_write, descriptor, data, longestWrite != 0 && longestWrite < size ? longestWrite : size);
}
#endif

namespace {

using qsbase::testing::CloseBehind;
using qsbase::testing::HandlesOpenedBy;
using qsbase::testing::IsInheritedHandle;
using qsbase::testing::kIsADirectory;
using qsbase::testing::kNoLimit;
using qsbase::testing::kNoSuchDirectory;
using qsbase::testing::largestAllocation;
using qsbase::testing::OpenHandles;
using qsbase::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<QsWriteBufferedFile>);
static_assert(!std::is_copy_assignable_v<QsWriteBufferedFile>);

unsigned Write(QsWriteBufferedFile& file, const std::string& bytes) {
  return file.Write(bytes.data(), 1, static_cast<unsigned>(bytes.size()));
}

class BufferedFileTest : public ::testing::Test {
 protected:
  /// What has reached the file.
  std::string Written() const { return TempDir::Read(_path); }

  TempDir _dir;
  const std::string _path = _dir / "out";
};

TEST_F(BufferedFileTest, IsClosedAtFirst) {
  QsWriteBufferedFile file;
  EXPECT_EQ(Write(file, "x"), 0u);
  EXPECT_EQ(file.Seek(0, SEEK_SET), -1);
  EXPECT_EQ(file.GetSleepCount(), 0u);
  EXPECT_EQ(file.Close(), 0);
}

TEST_F(BufferedFileTest, WithoutNameOrBufferItIsNotOpened) {
  QsWriteBufferedFile file;
  EXPECT_FALSE(file.Open(nullptr, 4, 0));
  EXPECT_FALSE(file.Open(_path.c_str(), 0, 0));
  EXPECT_FALSE(std::filesystem::exists(_path));
  QsWriteBufferedFile unnamed(nullptr, 4, 0);
  EXPECT_EQ(Write(unnamed, "x"), 0u);
  QsWriteBufferedFile unbuffered(_path.c_str(), 0, 0);
  EXPECT_EQ(Write(unbuffered, "x"), 0u);
  EXPECT_FALSE(std::filesystem::exists(_path));
  EXPECT_EQ(unbuffered.Close(), 0);
}

TEST_F(BufferedFileTest, WithoutNameOrBufferItClosesWhatWasOpen) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_FALSE(file.Open(nullptr, 4, 0));
  EXPECT_EQ(Written(), "ab");
  EXPECT_EQ(Write(file, "x"), 0u);
}

TEST_F(BufferedFileTest, MakesTheFileOrEmptiesIt) {
  QsWriteBufferedFile file;
  EXPECT_TRUE(file.Open(_path.c_str(), 4, 0));
  EXPECT_EQ(file.Close(), 0);
  EXPECT_TRUE(std::filesystem::exists(_path));
  _dir.Write("out", "old content");
  EXPECT_TRUE(file.Open(_path.c_str(), 4, 0));
  EXPECT_EQ(Written(), "");
  EXPECT_EQ(file.Close(), 0);
}

TEST_F(BufferedFileTest, TakesEitherSeparator) {
  _dir.Write("sub/a", "");
  std::string path = _dir / "sub/b";
  for (char& c : path) {
    c = c == '/' ? '\\' : c;
  }
  QsWriteBufferedFile file(path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "x"), 1u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(TempDir::Read(_dir / "sub/b"), "x");
}

TEST_F(BufferedFileTest, WhatCannotBeOpenedIsNotOpen) {
  QsWriteBufferedFile file;
  EXPECT_FALSE(file.Open((_dir / "missing/out").c_str(), 4, 0));
  EXPECT_EQ(QsGetLastError(), kNoSuchDirectory);
  EXPECT_FALSE(file.Open(_dir.Path().c_str(), 4, 0));
  EXPECT_EQ(QsGetLastError(), kIsADirectory);
  EXPECT_EQ(Write(file, "x"), 0u);
  EXPECT_EQ(file.Close(), 0);
}

TEST_F(BufferedFileTest, OnlyWholeBlocksReachTheFileBeforeTheEnd) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "0123456789"), 10u);
  EXPECT_EQ(Written(), "01234567");
  EXPECT_EQ(Write(file, "a"), 1u);
  EXPECT_EQ(Written(), "01234567");
  EXPECT_EQ(Write(file, "b"), 1u);
  EXPECT_EQ(Written(), "0123456789ab");
  EXPECT_EQ(Write(file, "cd"), 2u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(Written(), "0123456789abcd");
}

TEST_F(BufferedFileTest, ExactlyOneBlockIsWrittenAtOnce) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "abcd"), 4u);
  EXPECT_EQ(Written(), "abcd");
  EXPECT_EQ(Write(file, "efg"), 3u);
  EXPECT_EQ(Write(file, "hijkl"), 5u);
  EXPECT_EQ(Written(), "abcdefghijkl");
  EXPECT_EQ(file.Close(), 0);
}

TEST_F(BufferedFileTest, CountsItemsNotBytes) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(file.Write("aabbcc", 2, 3), 3u);
  EXPECT_EQ(file.Write("xxxxx", 5, 1), 1u);
  EXPECT_EQ(file.Write("x", 0, 1), 0u);
  EXPECT_EQ(file.Write("x", 1, 0), 0u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(Written(), "aabbccxxxxx");
}

// Every length at every fill of the buffer, against the plain concatenation.
TEST_F(BufferedFileTest, KeepsEveryByteInOrder) {
  for (unsigned capacity = 1; capacity <= 7; ++capacity) {
    std::string expected;
    QsWriteBufferedFile file(_path.c_str(), capacity, 0);
    for (unsigned length = 1; length <= 25; ++length) {
      std::string bytes(length, '\0');
      for (char& byte : bytes) {
        byte = static_cast<char>(expected.size() + static_cast<std::size_t>(&byte - bytes.data()));
      }
      EXPECT_EQ(Write(file, bytes), length);
      expected += bytes;
      EXPECT_EQ(Written(), expected.substr(0, expected.size() / capacity * capacity));
    }
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Written(), expected);
  }
}

TEST_F(BufferedFileTest, TheDestructorWritesTheRest) {
  { EXPECT_EQ(QsWriteBufferedFile(_path.c_str(), 4, 0).Write("ab", 1, 2), 2u); }
  EXPECT_EQ(Written(), "ab");
}

TEST_F(BufferedFileTest, OpeningAgainClosesTheFirst) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_THAT(HandlesOpenedBy([&] { EXPECT_TRUE(file.Open((_dir / "second").c_str(), 4, 0)); }), IsEmpty());
  EXPECT_EQ(Written(), "ab");
  EXPECT_EQ(Write(file, "cd"), 2u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(TempDir::Read(_dir / "second"), "cd");
}

TEST_F(BufferedFileTest, AnEmptyCloseIsASuccess) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_TRUE(file.Open(_path.c_str(), 4, 1));
  EXPECT_EQ(Write(file, "abcd"), 4u);
  EXPECT_EQ(file.Close(), 0);
}

TEST_F(BufferedFileTest, SeekWritesWhatIsWaiting) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "abcdef"), 6u);
  EXPECT_EQ(file.Seek(1, SEEK_SET), 0);
  EXPECT_EQ(Written(), "abcdef");
  EXPECT_EQ(Write(file, "B"), 1u);
  EXPECT_EQ(file.Seek(2, SEEK_CUR), 0);
  EXPECT_EQ(Write(file, "E"), 1u);
  EXPECT_EQ(file.Seek(2, SEEK_END), 0);
  EXPECT_EQ(Write(file, "x"), 1u);
  EXPECT_EQ(file.Seek(-1, SEEK_END), 0);
  EXPECT_EQ(Write(file, "yz"), 2u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(Written(), std::string("aBcdEf\0\0yz", 10));
}

TEST_F(BufferedFileTest, AFailedSeekHasWrittenWhatWasWaiting) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_EQ(file.Seek(-1, SEEK_SET), -1);
  EXPECT_EQ(Written(), "ab");
  for (const int origin : {-1, 3, 4, 99}) {
    EXPECT_EQ(file.Seek(0, origin), -1) << origin;
  }
  EXPECT_EQ(Write(file, "cd"), 2u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(Written(), "abcd");
}

TEST_F(BufferedFileTest, PausesAfterEveryWriteToTheFile) {
  QsWriteBufferedFile file(_path.c_str(), 4, 3);
  EXPECT_EQ(Write(file, "abc"), 3u);
  EXPECT_EQ(file.GetSleepCount(), 0u);
  EXPECT_EQ(Write(file, "d"), 1u);
  EXPECT_EQ(file.GetSleepCount(), 3u);
  EXPECT_EQ(Write(file, "efghijklmn"), 10u);
  EXPECT_EQ(file.GetSleepCount(), 9u);
  EXPECT_EQ(file.Seek(0, SEEK_SET), 0);
  EXPECT_EQ(file.GetSleepCount(), 12u);
  EXPECT_EQ(file.Seek(0, SEEK_SET), 0);  // nothing to write
  EXPECT_EQ(file.GetSleepCount(), 12u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(file.GetSleepCount(), 0u);
  EXPECT_TRUE(file.Open(_path.c_str(), 4, 0));
  EXPECT_EQ(Write(file, "abcd"), 4u);
  EXPECT_EQ(file.GetSleepCount(), 0u);
}

TEST_F(BufferedFileTest, AFailedCloseIsReported) {
  QsWriteBufferedFile file;
  for (const char* rest : {"", "ab"}) {
    CloseBehind(HandlesOpenedBy([&] { EXPECT_TRUE(file.Open(_path.c_str(), 4, 0)); }).at(0));
    EXPECT_EQ(file.Write("ab", 1, *rest == '\0' ? 0 : 2), *rest == '\0' ? 0u : 2u);
    EXPECT_EQ(file.Close(), EOF) << rest;
    EXPECT_EQ(file.Close(), 0);
  }
}

TEST_F(BufferedFileTest, WithoutMemoryItIsNotOpened) {
  const std::string long_ = _dir / std::string(150, 'x');
  QsWriteBufferedFile file;
  largestAllocation = 8;  // not for the object's state
  EXPECT_FALSE(file.Open("out", 4, 0));
  largestAllocation = 140;  // not for the name
  EXPECT_FALSE(file.Open(long_.c_str(), 4, 0));
  largestAllocation = 4096;  // not for the buffer
  EXPECT_FALSE(file.Open(_path.c_str(), 4097, 0));
  EXPECT_TRUE(file.Open(_path.c_str(), 4096, 0));
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_FALSE(file.Open(_path.c_str(), 4097, 0));
  largestAllocation = kNoLimit;
  EXPECT_EQ(Write(file, "cd"), 0u);
  EXPECT_EQ(Written(), "ab");
  EXPECT_FALSE(std::filesystem::exists(long_));
}

TEST_F(BufferedFileTest, ItemsThatNoMemoryHoldsAreRefused) {
  if (sizeof(std::size_t) > 4) {
    GTEST_SKIP() << "an address space of 64 bits holds them";
  }
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(file.Write("x", 65536, 65536), 0u);
  EXPECT_EQ(file.Write("x", 0xFFFFFFFF, 0xFFFFFFFF), 0u);
  EXPECT_FALSE(file.Open(_path.c_str(), 0xFFFFFFFF, 0));  // nor does it hold the buffer
}

TEST_F(BufferedFileTest, EveryHandleIsGivenBackAndNoneInherited) {
  const auto left = HandlesOpenedBy([&] {
    for (int i = 0; i < 100; ++i) {
      QsWriteBufferedFile file(_path.c_str(), 4, 0);
      EXPECT_EQ(Write(file, "ab"), 2u);
      EXPECT_FALSE(file.Open(_dir.Path().c_str(), 4, 0));
      EXPECT_TRUE(file.Open(_path.c_str(), 4, 0));
    }
  });
  EXPECT_THAT(left, IsEmpty());
  QsWriteBufferedFile file;
  EXPECT_FALSE(IsInheritedHandle(HandlesOpenedBy([&] { file.Open(_path.c_str(), 4, 0); }).at(0)));
}

#ifdef _WIN32
TEST_F(BufferedFileTest, WhatCannotBeWrittenIsLost) {
  qsbase::testing::PipeReader pipe("qsbase-bufferedfile-test");
  QsWriteBufferedFile file(pipe.Path().c_str(), 4, 0);
  EXPECT_EQ(Write(file, "ab"), 2u);
  pipe.Close();
  EXPECT_EQ(Write(file, "cd"), 0u);
  EXPECT_EQ(file.Close(), 0);  // nothing is waiting any more
}
#else
TEST_F(BufferedFileTest, WhatCannotBeWrittenIsLost) {
  QsWriteBufferedFile file("/dev/full", 4, 2);
  EXPECT_EQ(Write(file, "abc"), 3u);
  EXPECT_EQ(Write(file, "d"), 0u);
  EXPECT_EQ(QsGetLastError(), ENOSPC);
  EXPECT_EQ(file.GetSleepCount(), 2u);
  EXPECT_EQ(Write(file, "abcdefgh"), 0u);
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_EQ(file.Seek(0, SEEK_SET), 1);
  EXPECT_EQ(file.Seek(0, SEEK_SET), 0);  // nothing is waiting any more
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_EQ(file.Seek(-1, 99), -1);  // more than the failed write
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_EQ(file.Close(), 1);
  EXPECT_EQ(file.Close(), 0);
}

class WriteCallsTest : public BufferedFileTest {
 protected:
  WriteCallsTest() {
    writes.clear();
    writtenFrom.clear();
    recordsWrites = true;
  }
  ~WriteCallsTest() override {
    recordsWrites = false;
    longestWrite = 0;
    pretendsToWrite = false;
  }
};

TEST_F(WriteCallsTest, EveryBlockIsOneCall) {
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "0123456789"), 10u);
  EXPECT_THAT(std::exchange(writes, {}), ElementsAre(4, 4));
  EXPECT_EQ(file.Close(), 0);
  EXPECT_THAT(std::exchange(writes, {}), ElementsAre(2));
  EXPECT_TRUE(file.Open(_path.c_str(), 5, 0));
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(file.Write("x", 1, 1), 1u);
  }
  EXPECT_EQ(file.Write("0123456789abcdefghi", 1, 19), 19u);
  EXPECT_THAT(std::exchange(writes, {}), ElementsAre(5, 5, 5, 5, 5, 5));
  EXPECT_EQ(file.Seek(0, SEEK_SET), 0);
  EXPECT_EQ(file.Seek(0, SEEK_SET), 0);
  EXPECT_THAT(std::exchange(writes, {}), ElementsAre(1));
  EXPECT_EQ(file.Close(), 0);
  EXPECT_THAT(writes, IsEmpty());
}

// A C stream would cut such blocks, or join them.
TEST_F(WriteCallsTest, LargeAndOddBlocksAreOneCallToo) {
  for (const unsigned capacity : {4095u, 4097u, 65536u, 1000001u}) {
    const std::string bytes(3 * static_cast<std::size_t>(capacity) + 7, 'x');
    QsWriteBufferedFile file(_path.c_str(), capacity, 0);
    EXPECT_EQ(Write(file, "abc"), 3u);
    EXPECT_EQ(Write(file, bytes), bytes.size());
    EXPECT_EQ(file.Close(), 0);
    EXPECT_THAT(std::exchange(writes, {}), ElementsAre(capacity, capacity, capacity, 10));
  }
}

TEST_F(WriteCallsTest, WholeBlocksComeFromTheCallersMemory) {
  const std::string bytes = "0123456789abcd";
  QsWriteBufferedFile file(_path.c_str(), 4, 0);
  EXPECT_EQ(Write(file, "ab"), 2u);
  EXPECT_EQ(Write(file, bytes), bytes.size());
  ASSERT_EQ(writtenFrom.size(), 4u);
  EXPECT_NE(writtenFrom[0], bytes.data());
  EXPECT_EQ(writtenFrom[1], bytes.data() + 2);
  EXPECT_EQ(writtenFrom[2], bytes.data() + 6);
  EXPECT_EQ(writtenFrom[3], bytes.data() + 10);
}

TEST_F(WriteCallsTest, GoesOnAfterShortWrites) {
  QsWriteBufferedFile file(_path.c_str(), 4, 1);
  longestWrite = 3;
  EXPECT_EQ(Write(file, "0123456789"), 10u);
  EXPECT_EQ(file.GetSleepCount(), 2u);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(Written(), "0123456789");
}

TEST_F(WriteCallsTest, SizeTimesCountMayBeMoreThan32BitsHold) {
  constexpr std::size_t kTotal = std::size_t{65536} * 65537;
  // Zero pages that take no memory.
  void* const zeros = mmap(nullptr, kTotal, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  QsWriteBufferedFile file(_path.c_str(), 1 << 24, 0);
  pretendsToWrite = true;
  EXPECT_EQ(file.Write(zeros, 65536, 65537), 65537u);
  EXPECT_EQ(writes, std::vector<std::size_t>(256, 1 << 24));
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(pretendedBytes, kTotal);
  munmap(zeros, kTotal);
}

TEST_F(BufferedFileTest, ACancellationWaitsForTheDestructor) {
  const auto before = OpenHandles();
  EXPECT_TRUE(qsbase::testing::EndsCancelled([this] {
    QsWriteBufferedFile file(_path.c_str(), 4, 0);
    file.Write("ab", 1, 2);
    pthread_cancel(pthread_self());
  }));
  EXPECT_EQ(Written(), "ab");
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(BufferedFileTest, ACancellationIsTakenInOpening) {
  const auto before = OpenHandles();
  EXPECT_TRUE(qsbase::testing::EndsCancelled([this] {
    pthread_cancel(pthread_self());
    QsWriteBufferedFile file(_path.c_str(), 4, 0);
  }));
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(BufferedFileTest, ACancellationCostsNoHandleInClosing) {
  const auto before = OpenHandles();
  EXPECT_TRUE(qsbase::testing::EndsCancelled([this] {
    QsWriteBufferedFile file(_path.c_str(), 4, 0);
    pthread_cancel(pthread_self());
    file.Close();
  }));
  EXPECT_EQ(OpenHandles(), before);
}
#endif

}  // namespace
