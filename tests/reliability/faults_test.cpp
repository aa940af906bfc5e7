// Of the faults themselves: what they hit, and that they leave alone what they shall not.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include <common/openhandles.h>
#include <common/tempdir.h>

#include <reliability/common/faults.h>

namespace {

using qsbase::testing::Fault;
using qsbase::testing::FaultInjection;
using qsbase::testing::FaultKind;
using qsbase::testing::kForever;
using qsbase::testing::kShort;
using qsbase::testing::NoFaults;
using qsbase::testing::OpenHandles;
using qsbase::testing::ParseFault;
using qsbase::testing::TempDir;

TEST(Faults, HitTheCallThatTheyAreMeantForAndNoOther) {
  const FaultInjection fault({.kind = FaultKind::Open, .error = EMFILE, .first = 2, .count = 2});
  for (const bool opens : {true, false, false, true}) {
    errno = 0;
    const int descriptor = open("/", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(descriptor != -1, opens);
    EXPECT_EQ(errno, opens ? 0 : EMFILE);
    close(descriptor);
  }
  EXPECT_EQ(fault.Calls(), 4U);
  EXPECT_EQ(fault.Hits(), 2U);
}

TEST(Faults, LeaveOtherKindsAlone) {
  const FaultInjection fault({.kind = FaultKind::Write, .error = EIO, .first = 1, .count = kForever});
  const int descriptor = open("/", O_RDONLY | O_CLOEXEC);
  EXPECT_NE(descriptor, -1);
  EXPECT_EQ(close(descriptor), 0);
  EXPECT_EQ(fault.Calls(), 0U);
}

TEST(Faults, HitEveryThreadButWhatIsSpared) {
  const FaultInjection fault({.kind = FaultKind::Stat, .error = EIO, .first = 1, .count = kForever});
  int other = 0;
  std::thread([&other] { other = access("/", F_OK); }).join();
  EXPECT_EQ(other, -1);
  const NoFaults spared;
  EXPECT_EQ(access("/", F_OK), 0);
  EXPECT_EQ(fault.Hits(), 1U);
}

TEST(Faults, AShortTransferMovesHalf) {
  const TempDir dir;
  const FaultInjection fault({.kind = FaultKind::Write, .error = kShort});
  const int descriptor = open((dir / "a").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  EXPECT_EQ(write(descriptor, "x", 1), 1);  // has no half
  EXPECT_EQ(write(descriptor, "12345", 5), 2);
  EXPECT_EQ(write(descriptor, "345", 3), 3);
  close(descriptor);
  const NoFaults spared;
  EXPECT_EQ(TempDir::Read(dir / "a"), "x12345");
}

TEST(Faults, AStreamWritesByTheSameCalls) {
  const TempDir dir;
  std::FILE* const stream = std::fopen((dir / "a").c_str(), "we");
  ASSERT_NE(stream, nullptr);
  EXPECT_GE(fileno(stream), 0);
  {
    const FaultInjection fault({.kind = FaultKind::Write, .error = ENOSPC});
    EXPECT_GE(std::fputs("lost", stream), 0);  // in the stream's buffer
    errno = 0;
    EXPECT_EQ(std::fflush(stream), EOF);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(fault.Hits(), 1U);
  }
  EXPECT_GE(std::fputs("kept", stream), 0);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(TempDir::Read(dir / "a"), "kept");  // the C library does not try again what it could not write
}

TEST(Faults, AShortWriteOfAStreamGoesOn) {
  const TempDir dir;
  const std::string content(100000, 'x');
  std::FILE* const stream = std::fopen((dir / "a").c_str(), "we");
  ASSERT_NE(stream, nullptr);
  const FaultInjection fault({.kind = FaultKind::Write, .error = kShort, .first = 1, .count = 5});
  EXPECT_EQ(std::fwrite(content.data(), content.size(), 1, stream), 1U);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(fault.Hits(), 5U);
  const NoFaults spared;
  EXPECT_EQ(TempDir::Read(dir / "a"), content);
}

TEST(Faults, AStreamReadsAndSeeksAndAppends) {
  const TempDir dir;
  const std::string path = dir.Write("a", "0123456789");
  std::FILE* stream = std::fopen(path.c_str(), "a+e");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fseek(stream, 0, SEEK_END), 0);
  EXPECT_EQ(std::ftell(stream), 10);
  EXPECT_EQ(std::fseek(stream, -3, SEEK_CUR), 0);
  EXPECT_EQ(std::fgetc(stream), '7');
  EXPECT_EQ(std::fseek(stream, 0, SEEK_SET), 0);
  EXPECT_GE(std::fputs("+", stream), 0);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(TempDir::Read(path), "0123456789+");
  EXPECT_EQ(std::fopen((dir / "none").c_str(), "r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST(Faults, AStreamWithoutABufferReadsAtOnce) {
  const TempDir dir;
  std::FILE* const stream = std::fopen(dir.Write("a", "0123456789").c_str(), "re");
  ASSERT_NE(stream, nullptr);
  std::setvbuf(stream, nullptr, _IONBF, 0);
  char text[20];
  {
    const FaultInjection fault({.kind = FaultKind::Read, .error = EIO, .first = 2});
    EXPECT_EQ(std::fread(text, 2, 3, stream), 3U);
    EXPECT_EQ(fault.Calls(), 1U);
    EXPECT_EQ(std::fread(text, 1, 3, stream), 0U);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(std::feof(stream), 0);
  }
  std::clearerr(stream);
  EXPECT_EQ(std::fread(text, 1, sizeof text, stream), 4U);
  EXPECT_EQ(std::string(text, 4), "6789");
  EXPECT_NE(std::feof(stream), 0);
  EXPECT_EQ(std::fclose(stream), 0);
}

TEST(Faults, AFailedCloseHasClosed) {
  const auto before = OpenHandles();
  {
    const FaultInjection fault({.kind = FaultKind::Close, .error = EIO});
    EXPECT_EQ(close(open("/", O_RDONLY | O_CLOEXEC)), -1);
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(OpenHandles(), before);
}

TEST(Faults, AllocationsFailInTheFormThatWasAsked) {
  void* (*volatile allocate)(std::size_t) = &::operator new;  // GCC would take a pair away
  {
    const FaultInjection fault({.kind = FaultKind::Allocate});
    EXPECT_EQ(new (std::nothrow) std::string, nullptr);
  }
  bool threw = false;
  {
    const FaultInjection fault({.kind = FaultKind::Allocate});
    try {
      ::operator delete(allocate(10));
    } catch (const std::bad_alloc&) {
      threw = true;
    }
  }
  EXPECT_TRUE(threw);
}

TEST(Faults, LiveBlocksAreCounted) {
  void* (*volatile allocate)(std::size_t) = &::operator new;
  const long before = qsbase::testing::LiveBlocks();
  void* const block = allocate(10);
  EXPECT_EQ(qsbase::testing::LiveBlocks(), before + 1);
  ::operator delete(block);
  EXPECT_EQ(qsbase::testing::LiveBlocks(), before);
}

TEST(Faults, AreReadFromAText) {
  Fault fault;
  ASSERT_TRUE(ParseFault("write:ENOSPC:3", fault));
  EXPECT_EQ(fault.kind, FaultKind::Write);
  EXPECT_EQ(fault.error, ENOSPC);
  EXPECT_EQ(fault.first, 3U);
  EXPECT_EQ(fault.count, 1U);
  ASSERT_TRUE(ParseFault("receive:short:1:forever", fault));
  EXPECT_EQ(fault.error, kShort);
  EXPECT_EQ(fault.count, kForever);
  ASSERT_TRUE(ParseFault("close:5:2:4", fault));
  EXPECT_EQ(fault.error, 5);
  EXPECT_EQ(fault.count, 4U);
  for (const char* const text : {"", "write", "write:EIO", "wrote:EIO:1", "write:EWHAT:1", "write:EIO:x",
                                 "write:EIO:", "write:EIO:1:", "write:EIO:1:2:3"}) {
    EXPECT_FALSE(ParseFault(text, fault)) << text;
  }
  for (const FaultKind kind : qsbase::testing::kFaultKinds) {
    EXPECT_TRUE(ParseFault(std::string(NameOf(kind)) + ":EIO:1", fault));
    EXPECT_EQ(fault.kind, kind);
  }
}

}  // namespace
