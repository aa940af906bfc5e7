#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <cerrno>
#include <csignal>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <common/cancellation.h>
#include <common/failingallocation.h>
#include <common/logcapture.h>
#include <common/noise.h>
#include <common/openhandles.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/mapfile.h>

#ifndef _WIN32
namespace {

void* viewThatStays = nullptr;
std::size_t lengthUnmapped = 0;            // by the last call
bool closingFails = false;                 // though the descriptor is gone
thread_local std::size_t longestRead = 0;  // what one call reads at most; 0 for no limit
thread_local int interruptions = 0;        // of the next calls

}  // namespace

extern "C" {

int close(int descriptor) {
  pthread_testcancel();  // as the system's own
  const auto result = static_cast<int>(syscall(SYS_close, descriptor));
  if (closingFails) {
    errno = EIO;
  }
  return closingFails ? -1 : result;
}

int munmap(void* address, size_t length) noexcept {
  lengthUnmapped = length;
  if (address == viewThatStays && address != nullptr) {
    errno = ENOMEM;
    return -1;
  }
  return static_cast<int>(syscall(SYS_munmap, address, length));
}

ssize_t pread(int descriptor, void* buffer, size_t count, off_t offset) {
  if (interruptions > 0) {
    --interruptions;
    errno = EINTR;
    return -1;
  }
  const size_t most = longestRead != 0 && longestRead < count ? longestRead : count;
  return syscall(SYS_pread64, descriptor, buffer, most, offset);
}
}
#endif

namespace {

using qsbase::testing::CloseBehind;
using qsbase::testing::failingAllocation;
using qsbase::testing::HandlesOpenedBy;
using qsbase::testing::IsInheritedHandle;
using qsbase::testing::kIsADirectory;
using qsbase::testing::kNoSuchFile;
using qsbase::testing::kOnWindows;
using qsbase::testing::LogCapture;
using qsbase::testing::Noise;
using qsbase::testing::OpenHandles;
using qsbase::testing::Resize;
using qsbase::testing::TempDir;
using qsbase::testing::WriteAt;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<QsMapFile>);
static_assert(std::is_copy_assignable_v<QsMapFile>);
static_assert(!std::is_copy_constructible_v<QsSharedIOFile>);
static_assert(!std::is_copy_assignable_v<QsSharedIOFile>);

constexpr std::int64_t kFourGiB = std::int64_t{1} << 32;
constexpr bool kIs64Bit = sizeof(void*) > 4;
constexpr unsigned kError = 0x40000000;

/// The text that an action throws; empty when it throws none.
template <class Action>
std::string TextOf(Action action) {
  try {
    action();
    return std::string();
  } catch (const ExBase& error) {
    return error.GetErrorText();
  }
}

/// The system's text as it stands in messages.
std::string InParentheses(int error) { return std::string("(") + QsErrorMessage(error) + ")"; }

/// Of the last error.
std::string Reason() { return InParentheses(QsGetLastError()); }

std::string Mapped(const QsMapFile& file) {
  return std::string(static_cast<const char*>(file.Ptr()), static_cast<std::size_t>(file.Size()));
}

std::string Backslashed(std::string path) {
  for (char& c : path) {
    c = c == '/' ? '\\' : c;
  }
  return path;
}

class MapFileTest : public ::testing::Test {
 protected:
  // What the C runtime of Windows opens at the first object, and keeps, is open when handles are counted.
  MapFileTest() {
    const QsMapFile first;
    EXPECT_EQ(first.Ptr(), nullptr);
  }

  void ExpectClosed(const QsMapFile& file) {
    EXPECT_EQ(file.Ptr(), nullptr);
    EXPECT_EQ(file.Size(), 0u);
    EXPECT_EQ(file.Name(), "");
  }

  TempDir _dir;
};

using SharedIOFileTest = MapFileTest;

// ---- QsMapFile ------------------------------------------------------------------------------------------------------

TEST_F(MapFileTest, IsClosedAtFirst) {
  QsMapFile file;
  ExpectClosed(file);
  file.Close();
  ExpectClosed(file);
}

TEST_F(MapFileTest, ShowsTheWholeFile) {
  const std::string content = Noise(100001);
  const std::string path = _dir.Write("a", content);
  for (const bool readOnly : {true, false}) {
    QsMapFile file;
    file.Open(path, readOnly);
    EXPECT_EQ(file.Size(), 100001u);
    EXPECT_EQ(file.Name(), path);
    EXPECT_TRUE(Mapped(file) == content);
    file.Close();
    ExpectClosed(file);
    file.Close();
  }
}

TEST_F(MapFileTest, TakesEitherSeparatorAndKeepsTheNameAsGiven) {
  const std::string path = Backslashed(_dir.Write("sub/a.txt", "content"));
  QsMapFile file;
  file.Open(path, true);
  EXPECT_EQ(file.Name(), path);
  EXPECT_EQ(Mapped(file), "content");
}

TEST_F(MapFileTest, WhatIsWrittenReachesTheFile) {
  const std::string path = _dir.Write("a", "content");
  QsMapFile file;
  file.Open(path, false);
  std::memcpy(file.Ptr(), "CON", 3);
  file.Close();
  EXPECT_EQ(TempDir::Read(path), "CONtent");
}

TEST_F(MapFileTest, TwoSeeEachOthersBytes) {
  const std::string path = _dir.Write("a", "content");
  QsMapFile writer;
  writer.Open(path, false);
  QsMapFile reader;
  reader.Open(path, false);
  static_cast<char*>(writer.Ptr())[6] = 'T';
  EXPECT_EQ(Mapped(reader), "contenT");
}

TEST_F(MapFileTest, OpeningAgainClosesTheFirst) {
  const std::string first = _dir.Write("a", "first");
  const std::string second = _dir.Write("b", "the second");
  QsMapFile file;
  const auto handles = HandlesOpenedBy([&] { file.Open(first, false); });
  EXPECT_THAT(HandlesOpenedBy([&] { file.Open(second, true); }), IsEmpty());
  EXPECT_EQ(Mapped(file), "the second");
  EXPECT_EQ(file.Name(), second);
  EXPECT_EQ(handles.size(), kOnWindows ? 2u : 1u);
}

TEST_F(MapFileTest, AFailedOpeningLeavesItClosed) {
  const std::string path = _dir.Write("a", "first");
  QsMapFile file;
  const auto opened = HandlesOpenedBy([&] {
    file.Open(path, true);
    EXPECT_THROW(file.Open(_dir / "missing", true), ExBase);
  });
  EXPECT_THAT(opened, IsEmpty());
  ExpectClosed(file);
}

TEST_F(MapFileTest, AssignmentLeavesEachItsFile) {
  QsMapFile first;
  first.Open(_dir.Write("a", "first"), true);
  QsMapFile second;
  second.Open(_dir.Write("b", "the second"), true);
  QsMapFile third;
  second = first;
  third = first;
  first.Close();
  EXPECT_EQ(Mapped(second), "the second");
  ExpectClosed(third);
}

TEST_F(MapFileTest, AMissingFileIsNotOpened) {
  QsMapFile file;
  const std::string path = _dir / "missing";
  for (const bool readOnly : {true, false}) {
    const std::string text = TextOf([&] { file.Open(path, readOnly); });
    EXPECT_EQ(QsGetLastError(), kNoSuchFile);
    EXPECT_EQ(text, "Unable to open file: " + path + " " + Reason());
  }
  EXPECT_THAT(qsbase::testing::NamesIn(_dir.Path()), ::testing::Not(::testing::Contains("missing")));
}

TEST_F(MapFileTest, ANameWithAZeroByteNamesNothing) {
  const std::string path = _dir.Write("a", "content");
  QsMapFile file;
  EXPECT_THROW(file.Open(path + std::string("\0b", 2), true), ExBase);
  EXPECT_THROW(file.Open("", true), ExBase);
}

TEST_F(MapFileTest, ADirectoryIsNotOpened) {
  const auto opened = HandlesOpenedBy([&] {
    QsMapFile file;
    for (const bool readOnly : {true, false}) {
      const std::string text = TextOf([&] { file.Open(_dir.Path(), readOnly); });
      EXPECT_EQ(QsGetLastError(), kIsADirectory);
      EXPECT_EQ(text, "Unable to open file: " + _dir.Path() + " " + Reason());
    }
  });
  EXPECT_THAT(opened, IsEmpty());
}

TEST_F(MapFileTest, AnEmptyFileFailsAtTheMapping) {
  const std::string path = _dir.Write("a", "");
  const LogCapture log;
  QsMapFile file;
  for (const bool readOnly : {true, false}) {
    std::string text;
    EXPECT_THAT(HandlesOpenedBy([&] { text = TextOf([&] { file.Open(path, readOnly); }); }), IsEmpty());
    EXPECT_EQ(text, "Unable to create mapping for file: " + path + " " + Reason());
    EXPECT_EQ(QsGetLastError(), kOnWindows ? 1006 : 22);  // ERROR_FILE_INVALID, EINVAL
    ExpectClosed(file);
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(MapFileTest, AReadOnlyFileIsMappedForReading) {
  const bool refused = qsbase::testing::ReadOnlyRefusesWriting(_dir / "try");  // root may write it
  const std::string path = _dir.Write("a", "content");
  qsbase::testing::SetReadOnly(path, true);
  QsMapFile file;
  EXPECT_EQ(TextOf([&] { file.Open(path, false); }).empty(), !refused);
  file.Open(path, true);
  EXPECT_EQ(Mapped(file), "content");
}

TEST_F(MapFileTest, ChildProcessesInheritNothing) {
  const std::string path = _dir.Write("a", "content");
  QsMapFile file;
  const auto handles = HandlesOpenedBy([&] { file.Open(path, true); });
  ASSERT_FALSE(handles.empty());
  for (const auto handle : handles) {
    EXPECT_FALSE(IsInheritedHandle(handle)) << handle;
  }
}

TEST_F(MapFileTest, EveryHandleIsGivenBack) {
  const std::string path = _dir.Write("a", "content");
  const auto left = HandlesOpenedBy([&] {
    for (int i = 0; i < 100; ++i) {
      QsMapFile file;
      file.Open(path, i % 2 == 0);
      if (i % 3 == 0) {
        file.Close();
      }
    }
  });
  EXPECT_THAT(left, IsEmpty());
}

TEST_F(MapFileTest, SizeIsTheLowPartAndAllOfTheFileIsMapped) {
  if (!kIs64Bit) {
    GTEST_SKIP() << "so much has no room in an address space of 32 bits";
  }
  const std::string path = _dir.Write("a", "begin");
  Resize(path, kFourGiB + 5);
  WriteAt(path, kFourGiB, "after");
  QsMapFile file;
  file.Open(path, true);
  EXPECT_EQ(file.Size(), 5u);
  EXPECT_EQ(Mapped(file), "begin");
  const char* const bytes = static_cast<const char*>(file.Ptr());
  EXPECT_EQ(std::string(bytes + static_cast<std::size_t>(kFourGiB), 5), "after");
  file.Close();
#ifndef _WIN32
  EXPECT_EQ(lengthUnmapped, static_cast<std::size_t>(kFourGiB) + 5);
#endif
  Resize(path, kFourGiB);
  file.Open(path, true);
  EXPECT_EQ(file.Size(), 0u);
  EXPECT_NE(file.Ptr(), nullptr);
}

#ifndef _WIN32
/// Leaves the process so many bytes of addresses while it lives.
class AddressLimit {
 public:
  explicit AddressLimit(std::uint64_t room) {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    getrlimit(RLIMIT_AS, &_before);
    const rlimit limit = {pages * static_cast<std::uint64_t>(getpagesize()) + room, _before.rlim_max};
    setrlimit(RLIMIT_AS, &limit);
  }
  ~AddressLimit() { setrlimit(RLIMIT_AS, &_before); }
  AddressLimit(const AddressLimit&) = delete;
  AddressLimit& operator=(const AddressLimit&) = delete;

 private:
  rlimit _before{};
};
#endif

TEST_F(MapFileTest, WithoutRoomForTheViewItIsLoggedAndThrown) {
  if (kOnWindows && kIs64Bit) {
    GTEST_SKIP() << "an address space of 64 bits cannot be filled";
  }
  const std::string path = _dir.Write("a%s", "x");
  Resize(path, 3 * kFourGiB / 4);
  const LogCapture log;
  QsMapFile file;
  std::string text;
  std::string reason;
  const auto left = HandlesOpenedBy([&] {
#ifndef _WIN32
    const AddressLimit limit(static_cast<std::uint64_t>(kFourGiB) / 2);
#endif
    text = TextOf([&] { file.Open(path, true); });
    reason = Reason();
  });
  EXPECT_EQ(QsGetLastError(), kOnWindows ? 8 : 12);  // ERROR_NOT_ENOUGH_MEMORY, ENOMEM
  EXPECT_EQ(text, "Unable to create map file into memory");
  EXPECT_THAT(log.Texts(), ElementsAre("Unable to create map file into memory: " + path + " " + reason));
  EXPECT_EQ(log.Messages().at(0).flags, kError);
  EXPECT_THAT(left, IsEmpty());
  ExpectClosed(file);
}

#ifndef _WIN32
TEST_F(MapFileTest, AFileThatIsGivenUpIsLoggedWhenItDoesNotClose) {
  const std::string closing = "QsMapFileImpl::Open: Unable to close file handle " + InParentheses(EIO);
  const std::string empty = _dir.Write("a", "");
  const std::string tooLong = _dir.Write("b", "x");
  Resize(tooLong, 3 * kFourGiB / 4);
  const LogCapture log;
  QsMapFile file;
  const auto left = HandlesOpenedBy([&] {
    const AddressLimit limit(static_cast<std::uint64_t>(kFourGiB) / 2);
    closingFails = true;
    EXPECT_EQ(TextOf([&] { file.Open(empty, true); }),
              "Unable to create mapping for file: " + empty + " " + InParentheses(EINVAL));
    EXPECT_EQ(QsGetLastError(), EINVAL);
    EXPECT_EQ(TextOf([&] { file.Open(tooLong, true); }), "Unable to create map file into memory");
    EXPECT_EQ(QsGetLastError(), ENOMEM);
    closingFails = false;
  });
  EXPECT_THAT(
      log.Texts(),
      ElementsAre(closing, "Unable to create map file into memory: " + tooLong + " " + InParentheses(ENOMEM), closing));
  for (const auto& message : log.Messages()) {
    EXPECT_EQ(message.flags, kError);
  }
  EXPECT_THAT(left, IsEmpty());
  ExpectClosed(file);
}
#endif

constexpr const char* kUnmapText = "Unable to unmap file from memory ";
constexpr const char* kMappingText = "QsMapFileImpl::Close: Unable to close mapped file handle ";
constexpr const char* kFileText = "QsMapFileImpl::Close: Unable to close file handle ";

/// Lets unmapping a view fail from now on.
class UnmappingFails {
 public:
  void Of(void* view) {
#ifdef _WIN32
    UnmapViewOfFile(view);
#else
    viewThatStays = view;
#endif
  }
#ifndef _WIN32
  ~UnmappingFails() { viewThatStays = nullptr; }
#endif
};

/// Lets every step of closing fail that the system can be made to fail.
struct SpoiltFile {
  explicit SpoiltFile(const std::string& path) {
    for (const auto handle : HandlesOpenedBy([&] { file.Open(path, true); })) {
      CloseBehind(handle);
    }
    unmapping.Of(file.Ptr());
  }

  static std::vector<std::string> Texts() {
    const std::string badHandle = InParentheses(kOnWindows ? 6 : 9);  // ERROR_INVALID_HANDLE, EBADF
    std::vector<std::string> texts = {kUnmapText +
                                      InParentheses(kOnWindows ? 487 : 12)};  // ERROR_INVALID_ADDRESS, ENOMEM
    if (kOnWindows) {                                                         // Linux has no handle of the mapping
      texts.push_back(kMappingText + badHandle);
    }
    texts.push_back(kFileText + badHandle);
    return texts;
  }

  UnmappingFails unmapping;  // longer than the file
  QsMapFile file;
};

TEST_F(MapFileTest, CloseTriesEveryStepBeforeItThrows) {
  const std::string path = _dir.Write("a", "content");
  const LogCapture log;
  SpoiltFile spoilt(path);
  EXPECT_EQ(TextOf([&] { spoilt.file.Close(); }), "Unable to unmap file from memory");
  EXPECT_EQ(log.Texts(), SpoiltFile::Texts());
  for (const auto& message : log.Messages()) {
    EXPECT_EQ(message.flags, kError);
  }
  ExpectClosed(spoilt.file);
  spoilt.file.Close();
  spoilt.file.Open(path, true);
  EXPECT_EQ(Mapped(spoilt.file), "content");
}

TEST_F(MapFileTest, AFailureOfOneStepIsThrownToo) {
  const std::string path = _dir.Write("a", "content");
  const LogCapture log;
  QsMapFile file;
  const auto handles = HandlesOpenedBy([&] { file.Open(path, true); });
  ASSERT_FALSE(handles.empty());
  CloseBehind(handles.front());  // the file's: it was the first
  EXPECT_EQ(TextOf([&] { file.Close(); }), "Unable to unmap file from memory");
  EXPECT_THAT(log.Texts(), ElementsAre(SpoiltFile::Texts().back()));
}

TEST_F(MapFileTest, OpeningAgainThrowsWhatClosingThrows) {
  const std::string path = _dir.Write("a", "content");
  const LogCapture log;
  SpoiltFile spoilt(path);
  EXPECT_EQ(TextOf([&] { spoilt.file.Open(path, true); }), "Unable to unmap file from memory");
  ExpectClosed(spoilt.file);
}

TEST_F(MapFileTest, TheDestructorLogsInsteadOfThrowing) {
  const std::string path = _dir.Write("a", "content");
  const LogCapture log;
  { const SpoiltFile spoilt(path); }
  EXPECT_EQ(log.Texts(), SpoiltFile::Texts());
}

void ThrowingCallback(unsigned int, const char*) { throw 1; }

TEST_F(MapFileTest, ALogCallbackThatThrowsCostsNoHandle) {
  const std::string path = _dir.Write("a", "content");
  SetLogCallback(&ThrowingCallback);
  {
    QsMapFile file;
    CloseBehind(HandlesOpenedBy([&] { file.Open(path, true); }).front());
    EXPECT_THROW(file.Close(), int);
    ExpectClosed(file);
    EXPECT_THAT(HandlesOpenedBy([&] { file.Open(path, true); }).size(), kOnWindows ? 2 : 1);
    file.Close();
  }
  const auto left = HandlesOpenedBy([&] { const SpoiltFile spoilt(path); });
  DisableLogCallback(&ThrowingCallback);
  EXPECT_THAT(left, IsEmpty());
}

TEST_F(MapFileTest, WithoutMemoryThereIsNoObject) {
  failingAllocation = 1;
  const std::string text = TextOf([] { const QsMapFile file; });
  EXPECT_THAT(text, ::testing::StartsWith("Memory allocation error: QsMapFile (file QSbase/support/mapfile, line "));
}

#ifdef _WIN32
TEST_F(MapFileTest, TheSystemRefusesToShortenAMappedFile) {
  const std::string path = _dir.Write("a", std::string(100000, 'x'));
  QsMapFile file;
  file.Open(path, false);
  EXPECT_THROW(Resize(path, 10), std::runtime_error);
  EXPECT_TRUE(Mapped(file) == std::string(100000, 'x'));
}

TEST_F(MapFileTest, ReadersShareWithReadersOnly) {
  const std::string path = _dir.Write("a", "content");
  QsMapFile reader;
  reader.Open(path, true);
  QsMapFile second;
  second.Open(path, true);
  EXPECT_THROW(second.Open(path, false), ExBase);
  EXPECT_EQ(QsGetLastError(), 32);  // ERROR_SHARING_VIOLATION
  reader.Close();
  second.Open(path, false);
  EXPECT_THROW(reader.Open(path, true), ExBase);
  reader.Open(path, false);
}

TEST_F(MapFileTest, NobodyDeletesOrRenamesAnOpenFile) {
  const std::string path = _dir.Write("a", "content");
  const std::string other = _dir / "b";
  for (const bool readOnly : {true, false}) {
    QsMapFile mapped;
    mapped.Open(path, readOnly);
    EXPECT_NE(std::remove(path.c_str()), 0);
    EXPECT_NE(std::rename(path.c_str(), other.c_str()), 0);
    mapped.Close();
    QsSharedIOFile shared;
    shared.Open(path, readOnly);
    EXPECT_NE(std::remove(path.c_str()), 0);
    EXPECT_NE(std::rename(path.c_str(), other.c_str()), 0);
    EXPECT_EQ(TextOf([&] { mapped.Open(path, false); }).empty(), !readOnly);
  }
  EXPECT_EQ(std::remove(path.c_str()), 0);
}

TEST_F(MapFileTest, APipeIsNotOpened) {
  const qsbase::testing::PipeReader pipe("qsbase-mapfile-test");
  QsMapFile file;
  const std::string text = TextOf([&] { file.Open(pipe.Path(), false); });
  EXPECT_EQ(text, "Unable to open file: " + pipe.Path() + " " + Reason());
  EXPECT_EQ(QsGetLastError(), 50);  // ERROR_NOT_SUPPORTED
}
#else
TEST_F(MapFileTest, APipeIsNotWaitedFor) {
  const std::string path = _dir / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  for (const std::string& special : {path, std::string("/dev/null")}) {
    for (const bool readOnly : {true, false}) {
      const auto left = HandlesOpenedBy([&] {
        QsMapFile file;
        EXPECT_EQ(TextOf([&] { file.Open(special, readOnly); }),
                  "Unable to open file: " + special + " " + InParentheses(EINVAL));
        QsSharedIOFile shared;
        EXPECT_EQ(TextOf([&] { shared.Open(special, readOnly); }),
                  "Unable to open file: " + special + " " + InParentheses(EINVAL));
      });
      EXPECT_THAT(left, IsEmpty());
    }
  }
}

// What the class's comment warns of.
TEST_F(MapFileTest, TouchingWhatAnotherCutOffIsABusError) {
  const auto page = static_cast<std::size_t>(getpagesize());
  const std::string path = _dir.Write("a", std::string(2 * page, 'x'));
  QsMapFile file;
  file.Open(path, true);
  Resize(path, 10);
  const volatile char* const bytes = static_cast<const char*>(file.Ptr());
  EXPECT_EQ(bytes[9], 'x');
  EXPECT_EQ(bytes[10], '\0');
  EXPECT_EQ(bytes[page - 1], '\0');
  EXPECT_EXIT(
      {
        std::signal(SIGBUS, [](int) { _exit(77); });
        _exit(bytes[page]);
      },
      ::testing::ExitedWithCode(77), "");
  file.Close();
}

TEST_F(MapFileTest, ACancellationWaitsForTheDestructor) {
  const std::string path = _dir.Write("a", "content");
  const auto before = OpenHandles();
  EXPECT_TRUE(qsbase::testing::EndsCancelled([&path] {
    QsMapFile file;
    file.Open(path, true);
    QsSharedIOFile shared;
    shared.Open(path, true);
    pthread_cancel(pthread_self());
  }));
  EXPECT_EQ(OpenHandles(), before);
}

TEST_F(MapFileTest, ACancellationCostsNoHandleInClosing) {
  const std::string path = _dir.Write("a", "content");
  const auto before = OpenHandles();
  EXPECT_TRUE(qsbase::testing::EndsCancelled([&path] {
    QsMapFile file;
    file.Open(path, true);
    QsSharedIOFile shared;
    shared.Open(path, true);
    pthread_cancel(pthread_self());
    file.Close();
    shared.Close();
  }));
  EXPECT_EQ(OpenHandles(), before);
}
#endif

// ---- QsSharedIOFile -------------------------------------------------------------------------------------------------

TEST_F(SharedIOFileTest, IsClosedAtFirst) {
  QsSharedIOFile file;
  char byte = 0;
  EXPECT_EQ(file.Size(), 0u);
  EXPECT_FALSE(file.Read(0, &byte, 1));
  EXPECT_FALSE(file.Read(0, &byte, 0));
  file.Close();
}

TEST_F(SharedIOFileTest, ReadsExactlyWhatIsAskedFor) {
  const std::string content = Noise(10000);
  QsSharedIOFile file;
  file.Open(Backslashed(_dir.Write("sub/a", content)), true);
  EXPECT_EQ(file.Size(), 10000u);
  for (const unsigned length : {0u, 1u, 7u, 4096u, 9999u, 10000u}) {
    for (const unsigned offset : {0u, 1u, 4095u, 5904u, 9999u, 10000u}) {
      std::string bytes(10001, '\x55');
      if (offset + length > 10000) {
        EXPECT_FALSE(file.Read(offset, bytes.data(), length)) << offset << " " << length;
        continue;
      }
      EXPECT_TRUE(file.Read(offset, bytes.data(), length)) << offset << " " << length;
      EXPECT_TRUE(bytes.compare(0, length, content, offset, length) == 0) << offset << " " << length;
      EXPECT_EQ(bytes[length], '\x55');
    }
  }
}

TEST_F(SharedIOFileTest, NothingIsReadPastTheEnd) {
  QsSharedIOFile file;
  file.Open(_dir.Write("a", "content"), true);
  char bytes[16] = {};
  EXPECT_FALSE(file.Read(7, bytes, 1));
  EXPECT_FALSE(file.Read(5, bytes, 3));
  EXPECT_FALSE(file.Read(1000, bytes, 1));
  EXPECT_FALSE(file.Read(0xFFFFFFFF, bytes, 1));
  EXPECT_TRUE(file.Read(5, bytes, 2));
}

TEST_F(SharedIOFileTest, NoBytesAreReadAnywhere) {
  QsSharedIOFile file;
  file.Open(_dir.Write("a", ""), true);
  EXPECT_EQ(file.Size(), 0u);
  EXPECT_TRUE(file.Read(0, nullptr, 0));
  EXPECT_TRUE(file.Read(1, nullptr, 0));
  EXPECT_TRUE(file.Read(0xFFFFFFFF, nullptr, 0));
}

TEST_F(SharedIOFileTest, SeesWhatOthersWriteAndAppend) {
  const std::string path = _dir.Write("a", "content");
  QsSharedIOFile file;
  file.Open(path, false);
  WriteAt(path, 0, "C");
  WriteAt(path, 7, "+more");
  char bytes[13] = {};
  EXPECT_TRUE(file.Read(0, bytes, 12));
  EXPECT_STREQ(bytes, "Content+more");
  EXPECT_EQ(file.Size(), 7u);
}

TEST_F(SharedIOFileTest, OffsetsAreNamedUpToFourGiB) {
  const std::string path = _dir.Write("a", "begin");
  Resize(path, kFourGiB + 100);
  WriteAt(path, kFourGiB - 16, "the last sixteen|behind");
  WriteAt(path, kFourGiB / 2 - 4, "halfways");
  QsSharedIOFile file;
  file.Open(path, true);
  EXPECT_EQ(file.Size(), 100u);
  std::string bytes(32, '\0');
  EXPECT_TRUE(file.Read(0x7FFFFFFC, bytes.data(), 8));
  EXPECT_EQ(bytes.substr(0, 8), "halfways");
  EXPECT_TRUE(file.Read(0xFFFFFFF0, bytes.data(), 16));
  EXPECT_EQ(bytes.substr(0, 16), "the last sixteen");
  EXPECT_TRUE(file.Read(0xFFFFFFFF, bytes.data(), 1));
  EXPECT_EQ(bytes[0], 'n');
  EXPECT_FALSE(file.Read(0xFFFFFFF0, bytes.data(), 17));
  EXPECT_FALSE(file.Read(0xFFFFFFFF, bytes.data(), 2));
  EXPECT_TRUE(file.Read(0xFFFFFFFF, bytes.data(), 0));
}

TEST_F(SharedIOFileTest, ManyThreadsReadAtOnce) {
#ifdef _WIN32
  constexpr int kReads = 200;  // each asks Wine's server several times
#else
  constexpr int kReads = 2000;
#endif
  const std::string content = Noise(1 << 20);
  QsSharedIOFile file;
  file.Open(_dir.Write("a", content), true);
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 16; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      std::string bytes(1 << 14, '\0');
      for (int i = 0; i < kReads; ++i) {
        const auto length = static_cast<unsigned>(random() % (1 << 14));
        const auto offset = static_cast<unsigned>(random() % ((1 << 20) - length + 1));
        const bool read = file.Read(offset, bytes.data(), length);
        right += read && content.compare(offset, length, bytes, 0, length) == 0 ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(right, 16 * kReads);
}

TEST_F(SharedIOFileTest, OpeningAgainClosesTheFirstWhenTheSecondIsOpen) {
  const std::string first = _dir.Write("a", "first");
  const std::string second = _dir.Write("b", "the second");
  QsSharedIOFile file;
  const auto handles = HandlesOpenedBy([&] { file.Open(first, true); });
  ASSERT_EQ(handles.size(), 1u);
  const std::string path = _dir / "missing";
  const std::string text = TextOf([&] { file.Open(path, true); });
  EXPECT_EQ(QsGetLastError(), kNoSuchFile);
  EXPECT_EQ(text, "Unable to open file: " + path + " " + Reason());
  char bytes[11] = {};
  EXPECT_TRUE(file.Read(0, bytes, 5));  // the first is open still
  EXPECT_STREQ(bytes, "first");
  const auto more = HandlesOpenedBy([&] { file.Open(second, true); });
  EXPECT_EQ(more.size(), 1u);  // it got another number
  EXPECT_FALSE(qsbase::testing::IsOpenHandle(handles[0]));
  EXPECT_EQ(file.Size(), 10u);
  EXPECT_TRUE(file.Read(0, bytes, 10));
  EXPECT_STREQ(bytes, "the second");
}

TEST_F(SharedIOFileTest, CloseLogsItsFailure) {
  QsSharedIOFile file;
  const std::string path = _dir.Write("a", "content");
  const std::string text = "QsSharedIOFile::Close: unable to close file handle " + InParentheses(kOnWindows ? 6 : 9);
  const LogCapture log;
  CloseBehind(HandlesOpenedBy([&] { file.Open(path, true); }).at(0));
  file.Close();
  EXPECT_THAT(log.Texts(), ElementsAre(text));
  EXPECT_EQ(log.Messages().at(0).flags, kError);
  EXPECT_EQ(file.Size(), 0u);
  file.Close();
  {
    QsSharedIOFile destroyed;
    CloseBehind(HandlesOpenedBy([&] { destroyed.Open(path, true); }).at(0));
  }
  EXPECT_THAT(log.Texts(), ElementsAre(text, text));
}

TEST_F(SharedIOFileTest, AHandleThatIsGoneReadsNothing) {
  const LogCapture log;
  QsSharedIOFile file;
  const std::string path = _dir.Write("a", "content");
  CloseBehind(HandlesOpenedBy([&] { file.Open(path, true); }).at(0));
  char byte = 0;
  EXPECT_FALSE(file.Read(0, &byte, 1));
}

TEST_F(SharedIOFileTest, EveryHandleIsGivenBackAndNoneInherited) {
  const std::string path = _dir.Write("a", "content");
  const auto left = HandlesOpenedBy([&] {
    for (int i = 0; i < 100; ++i) {
      QsSharedIOFile file;
      file.Open(path, i % 2 == 0);
      char bytes[8] = {};
      EXPECT_TRUE(file.Read(0, bytes, 7));
      EXPECT_FALSE(file.Read(1, bytes, 7));
      EXPECT_THROW(file.Open(_dir.Path(), true), ExBase);
    }
  });
  EXPECT_THAT(left, IsEmpty());
  QsSharedIOFile file;
  EXPECT_FALSE(IsInheritedHandle(HandlesOpenedBy([&] { file.Open(path, true); }).at(0)));
}

TEST_F(SharedIOFileTest, ADirectoryIsNotOpened) {
  QsSharedIOFile file;
  const std::string text = TextOf([&] { file.Open(_dir.Path(), true); });
  EXPECT_EQ(QsGetLastError(), kIsADirectory);
  EXPECT_EQ(text, "Unable to open file: " + _dir.Path() + " " + Reason());
}

#ifndef _WIN32
TEST_F(SharedIOFileTest, GoesOnAfterShortReadsAndSignals) {
  const std::string content = Noise(1000);
  QsSharedIOFile file;
  file.Open(_dir.Write("a", content), true);
  std::string bytes(1000, '\0');
  longestRead = 7;
  interruptions = 3;
  EXPECT_TRUE(file.Read(0, bytes.data(), 1000));
  EXPECT_EQ(interruptions, 0);
  EXPECT_TRUE(bytes == content);
  EXPECT_FALSE(file.Read(1, bytes.data(), 1000));
  longestRead = 0;
}
#endif

}  // namespace
