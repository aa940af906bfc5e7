#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <io.h>
#else
#include <common/forbiddencall.h>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <common/logcapture.h>
#include <common/matchers.h>
#include <common/memorylimit.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/fileos.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>

namespace {

#ifndef _WIN32
// What the kernel or the file system is to lack.
bool refuseRenameWithoutReplace = false;
bool refuseCopyInKernel = false;

// The calls of an atomic save, in their order.
bool recordCalls = false;
std::vector<std::string> calls;

void Record(const char* call) {
  if (recordCalls) {
    calls.push_back(call);
  }
}
#endif

}  // namespace

#ifndef _WIN32
extern "C" {

int renameat2(int oldDir, const char* oldPath, int newDir, const char* newPath, unsigned flags) noexcept {
  if (refuseRenameWithoutReplace && flags != 0) {
    errno = EINVAL;
    return -1;
  }
  Record("move");
  return static_cast<int>(syscall(SYS_renameat2, oldDir, oldPath, newDir, newPath, flags));
}

int rename(const char* oldPath, const char* newPath) noexcept {
  Record("move");
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, oldPath, AT_FDCWD, newPath, 0));
}

int fsync(int descriptor) {
  struct stat status;
  Record(fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode) ? "sync directory" : "sync file");
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

ssize_t copy_file_range(int in, off64_t* inOffset, int out, off64_t* outOffset, size_t length, unsigned flags) {
  if (refuseCopyInKernel) {
    errno = EXDEV;
    return -1;
  }
  return syscall(SYS_copy_file_range, in, inOffset, out, outOffset, length, flags);
}
}
#endif

namespace {

namespace fs = std::filesystem;
using qsbase::detail::NativePath;
using qsbase::testing::FileTimes;
using qsbase::testing::IsReadOnly;
using qsbase::testing::IsWine;
using qsbase::testing::kBelowAFile;
using qsbase::testing::kFileIsThere;
using qsbase::testing::kIsADirectory;
using qsbase::testing::kLinksStay;
using qsbase::testing::kNameIsTaken;
using qsbase::testing::kNoLimit;
using qsbase::testing::kNoLinks;
using qsbase::testing::kNoSuchDirectory;
using qsbase::testing::kNoSuchFile;
using qsbase::testing::kNotEmpty;
using qsbase::testing::kOnWindows;
using qsbase::testing::kReadOnlyIsWritten;
using qsbase::testing::kSameFile;
using qsbase::testing::kSecond;
using qsbase::testing::largestAllocation;
using qsbase::testing::lastArraySize;
using qsbase::testing::LogCapture;
using qsbase::testing::MakeDirectoryLink;
using qsbase::testing::MakeLink;
using qsbase::testing::MatchesPattern;
using qsbase::testing::NamesIn;
using qsbase::testing::ReadOnlyRefusesWriting;
using qsbase::testing::Resize;
using qsbase::testing::SetEnvironment;
using qsbase::testing::SetReadOnly;
using qsbase::testing::SetTimes;
using qsbase::testing::TempDir;
using qsbase::testing::TimesOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr unsigned kError = 0x40000000;
constexpr unsigned kWarning = 0x20000000;

std::string Backslashed(std::string path) {
  for (char& c : path) {
    c = c == '/' ? '\\' : c;
  }
  return path;
}

#ifdef _WIN32
// Permissions mean the read-only attribute, which holds for everybody.
bool AsOrdinaryUser(const std::function<bool()>& check) { return check(); }

void OpenFolder(const TempDir&) {}
#else
mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status;
}

// Runs the check in a child without root's rights, to whom permissions apply.
bool AsOrdinaryUser(const std::function<bool()>& check) {
  const pid_t child = fork();
  if (child == 0) {
    const bool dropped = getuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0);
    _exit(dropped && check() ? 0 : 1);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A folder of the same rights for everybody, so that the ordinary user owns what it makes there.
void OpenFolder(const TempDir& dir) { EXPECT_EQ(chmod(dir.Path().c_str(), 0777), 0); }

// A folder on a file system other than the temporary one's; removed at the end.
class OtherVolume {
 public:
  explicit OtherVolume(const std::string& here) {
    char path[] = "/dev/shm/qsbase-test-XXXXXX";
    if (mkdtemp(path) == nullptr) {
      return;
    }
    _path = path;
    if (StatusOf(_path).st_dev == StatusOf(here).st_dev) {
      fs::remove_all(_path);
      _path.clear();
    }
  }
  ~OtherVolume() {
    if (!_path.empty()) {
      fs::remove_all(_path);
    }
  }
  OtherVolume(const OtherVolume&) = delete;
  OtherVolume& operator=(const OtherVolume&) = delete;

  bool IsThere() const { return !_path.empty(); }
  std::string Path() const { return _path; }
  std::string operator/(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

constexpr const char* kNoOtherVolume = "/dev/shm is no file system of its own here";
#endif

class FileSupportTest : public ::testing::Test {
 protected:
#ifndef _WIN32
  // What blocks on a pipe shall fail and not hang.
  void SetUp() override {
    alarm(200);
    umask(022);
  }

  void TearDown() override {
    refuseRenameWithoutReplace = false;
    refuseCopyInKernel = false;
    umask(022);
  }

  std::string MakePipe(const std::string& name) const {
    const std::string path = _dir / name;
    EXPECT_EQ(mkfifo(path.c_str(), 0666), 0);
    return path;
  }
#endif

  TempDir _dir;
};

// ---- Paths at the system ----

TEST(NativePathTest, OnlyBackslashesChange) {
  for (int c = 0; c < 256; ++c) {
    const std::string path = std::string("a") + static_cast<char>(c) + "b";
    EXPECT_EQ(NativePath(path), c == '\\' && !kOnWindows ? "a/b" : path) << c;
  }
  EXPECT_EQ(NativePath(""), "");
  EXPECT_EQ(NativePath("\\\\srv\\share/x"), kOnWindows ? "\\\\srv\\share/x" : "//srv/share/x");
}

TEST_F(FileSupportTest, EveryOperationTakesEitherSeparator) {
  ASSERT_TRUE(ForceCreateDirectories(Backslashed(_dir / "a/b")));
  EXPECT_TRUE(fs::is_directory(_dir / "a/b"));
  const std::string file = Backslashed(_dir / "a/b/file.txt");
  EXPECT_TRUE(SaveBinaryFile(file, "x", false));
  EXPECT_TRUE(AppendBinaryFile(file, "y"));
  EXPECT_EQ(LoadBinaryFile(file), "xy");
  EXPECT_EQ(LoadBinaryFile(_dir / "a/b/file.txt"), "xy");
  EXPECT_EQ(QsGetFileSize64(file.c_str()), 2);
  EXPECT_EQ(QsGetFSObjectType(Backslashed(_dir / "a/b")), FSO_DIRECTORY);
  EXPECT_TRUE(QsCopyFile(file, Backslashed(_dir / "copy"), true, false));
  EXPECT_TRUE(QsMoveFile(file, Backslashed(_dir / "moved"), false, false));
  EXPECT_TRUE(QsAtomicSaveBinaryFile(Backslashed(_dir / "moved"), "atomic", true));
  EXPECT_EQ(TempDir::Read(_dir / "moved"), "atomic");
  EXPECT_EQ(CAL_WriteBufferToFile(Backslashed(_dir / "cal").c_str(), "abc", 3), 0);
  EXPECT_EQ(CAL_CompareFile(Backslashed(_dir / "cal").c_str(), (_dir / "cal").c_str(), 0, 2), 0);
  EXPECT_TRUE(QsRenameDir(Backslashed(_dir / "a/b"), Backslashed(_dir / "a/c")));
  EXPECT_TRUE(QsRemoveDir(Backslashed(_dir / "a/c"), false));
  EXPECT_TRUE(QsRemoveDir(_dir / "a", false));
  EXPECT_EQ(QsDeleteFiles(Backslashed(_dir / "*"), false), 3u);
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(FileSupportTest, OverlongAndNulPathsNameNothing) {
  const std::string overlong(2048, 'x');
  const std::string file = _dir.Write("file", "x");
  const std::string withNul = file + std::string("\0.txt", 5);
  for (const std::string& path : {overlong, withNul}) {
    EXPECT_FALSE(SaveBinaryFile(path, "content", true));
    EXPECT_FALSE(QsAtomicSaveBinaryFile(path, "content", true));
    EXPECT_EQ(LoadBinaryFile(path), "");
    EXPECT_EQ(QsGetFSObjectType(path), FSO_NOTHING);
    EXPECT_FALSE(QsDeleteFile(path, true));
    EXPECT_FALSE(QsCopyFile(file, path, false, true));
    EXPECT_FALSE(QsMoveFile(file, path, true, true));
    EXPECT_EQ(QsDeleteFiles(path, true), 0u);
  }
  EXPECT_EQ(TempDir::Read(file), "x");
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("file"));
}

// ---- Sizes, permissions, type, dates ----

TEST_F(FileSupportTest, FileSize) {
  const std::string path = _dir.Write("a", "12345");
  std::int64_t size = 99;
  long narrow = 99;
  EXPECT_EQ(QsGetFileSize64(path.c_str(), size), 0);
  EXPECT_EQ(size, 5);
  EXPECT_EQ(QsGetFileSize(path.c_str(), narrow), 0);
  EXPECT_EQ(narrow, 5);
  EXPECT_EQ(QsGetFileSize(path.c_str()), 5);
  EXPECT_EQ(QsGetFileSize64(path.c_str()), 5);
}

TEST_F(FileSupportTest, FileSizeFailures) {
  std::int64_t size = 99;
  long narrow = 99;
  EXPECT_EQ(QsGetFileSize64("", size), -3);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(QsGetFileSize("", narrow), -3);
  EXPECT_EQ(narrow, 0);
  size = 99;
  EXPECT_EQ(QsGetFileSize64(nullptr, size), -3);
  EXPECT_EQ(size, 0);
  size = narrow = 99;
  EXPECT_EQ(QsGetFileSize64((_dir / "missing").c_str(), size), -2);
  EXPECT_EQ(size, 0);
  EXPECT_EQ(QsGetFileSize((_dir / "missing").c_str(), narrow), -2);
  EXPECT_EQ(narrow, 0);
  EXPECT_EQ(QsGetFileSize(nullptr), 0);
  EXPECT_EQ(QsGetFileSize64(""), 0);
  EXPECT_EQ(QsGetFileSize64((_dir / "missing").c_str()), 0);
}

TEST_F(FileSupportTest, Permissions) {
  EXPECT_FALSE(QsHasFileReadPermission(nullptr));
  EXPECT_FALSE(QsHasFileReadPermission(""));
  EXPECT_FALSE(QsHasFileWritePermission(nullptr));
  EXPECT_FALSE(QsHasFileWritePermission(""));
  EXPECT_FALSE(QsHasFileReadPermission((_dir / "missing").c_str()));
  const std::string path = _dir.Write("a", "x");
  EXPECT_TRUE(QsHasFileReadPermission(path.c_str()));
  EXPECT_TRUE(QsHasFileWritePermission(path.c_str()));
  EXPECT_TRUE(QsHasFileWritePermission(_dir.Path().c_str()));
#ifdef _WIN32
  SetReadOnly(path, true);
  EXPECT_TRUE(QsHasFileReadPermission(path.c_str()));
  EXPECT_FALSE(QsHasFileWritePermission(path.c_str()));
  EXPECT_EQ(QsGetLastError(), 5);
#else
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const std::string own = _dir / "own";
    return SaveBinaryFile(own, "x", false) && chmod(own.c_str(), 0400) == 0 && QsHasFileReadPermission(own.c_str()) &&
           !QsHasFileWritePermission(own.c_str()) && chmod(own.c_str(), 0200) == 0 &&
           !QsHasFileReadPermission(own.c_str()) && QsHasFileWritePermission(own.c_str());
  }));
#endif
}

TEST_F(FileSupportTest, ObjectTypes) {
  LogCapture log;
  EXPECT_EQ(QsGetFSObjectType(""), 0);
  EXPECT_EQ(QsGetFSObjectType(_dir / "missing"), 0);
  EXPECT_EQ(QsGetFSObjectType(_dir.Write("file", "x")), 1);
  EXPECT_EQ(QsGetFSObjectType(_dir.Path()), 2);
  EXPECT_EQ(QsGetFSObjectType(_dir.Path() + "/"), 2);
  EXPECT_EQ(QsGetFSObjectType(_dir.Path() + "\\"), 2);
#ifdef _WIN32
  const qsbase::testing::PipeReader pipe("qsbase-test-type");
  EXPECT_EQ(QsGetFSObjectType("NUL"), 6);
  EXPECT_EQ(QsGetFSObjectType(pipe.Path()), 7);
#else
  EXPECT_EQ(QsGetFSObjectType("/dev/null"), 6);
  EXPECT_EQ(QsGetFSObjectType(MakePipe("pipe")), 7);
#endif
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FileSupportTest, RootSurvivesTheTrailingSeparatorRule) {
  EXPECT_EQ(QsGetFSObjectType("/"), FSO_DIRECTORY);
  EXPECT_EQ(QsGetFSObjectType("\\"), FSO_DIRECTORY);
  EXPECT_TRUE(DirExists("/"));
}

TEST_F(FileSupportTest, OneTrailingSeparatorBehindAFileIsDropped) {
  EXPECT_EQ(QsGetFSObjectType(_dir.Write("file", "x") + "/"), FSO_FILE);
}

TEST_F(FileSupportTest, LinksCountAsTheirTargets) {
  _dir.Write("file", "x");
  if (!MakeLink("file", _dir / "link") || !MakeDirectoryLink(".", _dir / "dirlink") ||
      !MakeLink("missing", _dir / "dangling")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_EQ(QsGetFSObjectType(_dir / "link"), FSO_FILE);
  EXPECT_EQ(QsGetFSObjectType(_dir / "dirlink"), FSO_DIRECTORY);
  EXPECT_EQ(QsGetFSObjectType(_dir / "dangling"), FSO_NOTHING);
}

#ifndef _WIN32
TEST_F(FileSupportTest, ObjectOfAnotherKindIsLoggedWithoutError) {
  const std::string path = _dir / "socket";
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  LogCapture log;
  QsSetLastError(EPERM);
  EXPECT_EQ(QsGetFSObjectType(path), FSO_NOTHING);
  EXPECT_EQ(QsGetLastError(), 0);
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].flags, kWarning);
  EXPECT_EQ(log.Messages()[0].text,
            "Cannot get status of file '" + Backslashed(path) + "', error is '" + QsErrorMessage(0) + "'");
  close(listener);
}
#endif

#ifdef _WIN32
// There it is a missing directory. So are names that nothing can have.
TEST_F(FileSupportTest, WhatCannotBeThereIsNotLogged) {
  const std::string file = _dir.Write("file", "x");
  LogCapture log;
  for (const std::string& path : {file + "/below", file + "|", file + "?", _dir / "missing/below", _dir / "a:b:c"}) {
    EXPECT_EQ(QsGetFSObjectType(path), FSO_NOTHING) << path;
  }
  EXPECT_THAT(log.Texts(), IsEmpty());
}
#else
TEST_F(FileSupportTest, UnreadableStatusIsLogged) {
  const std::string path = _dir.Write("file", "x") + "/below";
  LogCapture log;
  EXPECT_EQ(QsGetFSObjectType(path), FSO_NOTHING);
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].flags, kWarning);
  EXPECT_EQ(log.Messages()[0].text,
            "Cannot get status of file '" + Backslashed(path) + "', error is '" + QsErrorMessage(ENOTDIR) + "'");
}
#endif

TEST_F(FileSupportTest, DirExistsCountsRegularFilesToo) {
  EXPECT_TRUE(DirExists(_dir.Path()));
  EXPECT_TRUE(DirExists(_dir.Write("file", "x")));
  EXPECT_FALSE(DirExists(_dir / "missing"));
#ifdef _WIN32
  EXPECT_FALSE(DirExists("NUL"));
#else
  EXPECT_FALSE(DirExists(MakePipe("pipe")));
  EXPECT_FALSE(DirExists("/dev/null"));
#endif
  EXPECT_FALSE(DirExists(""));
}

constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr std::int64_t kSummer = 1719828000;  // 2024-07-01 10:00:00 UTC
constexpr std::int64_t kWinter = 1705316400;  // 2024-01-15 11:00:00 UTC

TEST_F(FileSupportTest, FileDateIsLocalWithoutMilliseconds) {
  SetEnvironment("TZ", kCentralEurope);
  const std::string path = _dir.Write("a", "x");
  QsDateTime date;
  SetTimes(path, kSummer * kSecond + 987654300);
  ASSERT_TRUE(FileDate(path, date));
  EXPECT_EQ(DateTime2string(date, true, true), "2024-07-01 12:00:00.000");
  SetTimes(path, kWinter * kSecond);
  ASSERT_TRUE(FileDate(path, date));
  EXPECT_EQ(DateTime2string(date, true, true), "2024-01-15 12:00:00.000");
  SetEnvironment("TZ", "UTC0");
  ASSERT_TRUE(FileDate(path, date));
  EXPECT_EQ(DateTime2string(date, true, true), "2024-01-15 11:00:00.000");
}

TEST_F(FileSupportTest, FileDateOfAMissingFileLeavesTheOutput) {
  QsDateTime date = 12.5;
  EXPECT_FALSE(FileDate(_dir / "missing", date));
  EXPECT_EQ(static_cast<double>(date), 12.5);
}

TEST_F(FileSupportTest, SetFileTimesFromLocalTime) {
  SetEnvironment("TZ", kCentralEurope);
  const std::string path = _dir.Write("a", "x");
  EXPECT_TRUE(QsSetFileAccModTime(path, QsDateTime(2024, 7, 1, 12, 0, 0, 999)));
  EXPECT_EQ(TimesOf(path).modified, kSummer * kSecond);
  EXPECT_EQ(TimesOf(path).accessed, kSummer * kSecond);
  EXPECT_TRUE(QsSetFileAccModTime(path, QsDateTime(2024, 1, 15, 12, 0, 0, 0)));
  EXPECT_EQ(TimesOf(path).modified, kWinter * kSecond);
}

TEST_F(FileSupportTest, SetFileTimesComeBackAsFileDate) {
  SetEnvironment("TZ", kCentralEurope);
  const std::string path = _dir.Write("a", "x");
  for (int month = 1; month <= 12; ++month) {
    const QsDateTime set(2023, month, 28, 23, 59, 58, 0);
    QsDateTime read;
    ASSERT_TRUE(QsSetFileAccModTime(path, set));
    ASSERT_TRUE(FileDate(path, read));
    EXPECT_EQ(DateTime2string(read, true, true), DateTime2string(set, true, true));
  }
}

TEST_F(FileSupportTest, SetFileTimesRefusesWhatLiesBefore1970) {
  SetEnvironment("TZ", "UTC0");
  const std::string path = _dir.Write("a", "x");
  SetTimes(path, kSummer * kSecond);
  EXPECT_FALSE(QsSetFileAccModTime(path, QsDateTime()));
  EXPECT_FALSE(QsSetFileAccModTime(path, QsDateTime(1969, 12, 31, 23, 59, 59, 0)));
  EXPECT_FALSE(QsSetFileAccModTime(path, QsDateTime(1969, 12, 31, 23, 59, 58, 0)));
  EXPECT_EQ(TimesOf(path).modified, kSummer * kSecond);
  EXPECT_TRUE(QsSetFileAccModTime(path, QsDateTime(1970, 1, 1, 0, 0, 0, 0)));
  EXPECT_EQ(TimesOf(path).modified, 0);
  SetEnvironment("TZ", kCentralEurope);
  EXPECT_FALSE(QsSetFileAccModTime(path, QsDateTime(1970, 1, 1, 0, 0, 0, 0)));
  EXPECT_FALSE(QsSetFileAccModTime(_dir / "missing", QsDateTime(2024, 7, 1, 12, 0, 0, 0)));
}

TEST_F(FileSupportTest, TouchSetsBothTimesToNow) {
  const std::string path = _dir.Write("a", "x");
  SetTimes(path, kWinter * kSecond);
  const std::int64_t before = time(nullptr);
  EXPECT_TRUE(QsTouchFile(path));
  EXPECT_GE(TimesOf(path).modified, (before - 1) * kSecond);
  EXPECT_LE(TimesOf(path).modified, (std::int64_t{time(nullptr)} + 2) * kSecond);
  EXPECT_GE(TimesOf(path).accessed, (before - 1) * kSecond);
  EXPECT_FALSE(QsTouchFile(_dir / "missing"));
  EXPECT_FALSE(fs::exists(_dir / "missing"));
}

TEST_F(FileSupportTest, DiskFree) {
  std::int64_t freeBytes = -1;
  std::int64_t total = -1;
  int percent = -1;
  ASSERT_TRUE(QsDiskFree((_dir.Path() + "/").c_str(), freeBytes, &percent, &total));
  EXPECT_EQ(total, static_cast<std::int64_t>(fs::space(_dir.Path()).capacity));
  EXPECT_GT(freeBytes, 0);
  EXPECT_LE(freeBytes, total);
  EXPECT_EQ(percent, freeBytes / (total / 100));
  EXPECT_TRUE(QsDiskFree(Backslashed(_dir / "no such file").c_str(), freeBytes, nullptr, nullptr));
}

#ifndef _WIN32
TEST_F(FileSupportTest, DiskFreeAsksForTheDirectoryPart) {
  const OtherVolume other(_dir.Path());
  if (!other.IsThere()) {
    GTEST_SKIP() << kNoOtherVolume;
  }
  std::int64_t freeBytes = 0;
  std::int64_t total = 0;
  EXPECT_TRUE(QsDiskFree((other / "12:30").c_str(), freeBytes, nullptr, &total));
  EXPECT_EQ(total, static_cast<std::int64_t>(fs::space("/dev/shm").capacity));
  fs::create_directory_symlink(other.Path(), _dir / "mount");
  EXPECT_TRUE(QsDiskFree((_dir / "mount/").c_str(), freeBytes, nullptr, &total));
  EXPECT_EQ(total, static_cast<std::int64_t>(fs::space("/dev/shm").capacity));
  EXPECT_TRUE(QsDiskFree((_dir / "mount").c_str(), freeBytes, nullptr, &total));
  EXPECT_EQ(total, static_cast<std::int64_t>(fs::space(_dir.Path()).capacity));
}
#endif

TEST_F(FileSupportTest, DiskFreeFailures) {
  std::int64_t freeBytes = 7;
  std::int64_t total = 8;
  int percent = 9;
  for (const char* path : {static_cast<const char*>(nullptr), "", "/no such directory/x"}) {
    freeBytes = 7;
    EXPECT_FALSE(QsDiskFree(path, freeBytes, &percent, &total));
    EXPECT_EQ(freeBytes, 0);
    EXPECT_EQ(total, 8);
    EXPECT_EQ(percent, 9);
  }
}

// ---- Directories ----

TEST_F(FileSupportTest, CreateDirectory) {
  EXPECT_FALSE(QsCreateDirectory(nullptr));
  EXPECT_FALSE(QsCreateDirectory(""));
  EXPECT_TRUE(QsCreateDirectory((_dir / "a").c_str()));
  EXPECT_TRUE(fs::is_directory(_dir / "a"));
  EXPECT_FALSE(QsCreateDirectory((_dir / "a").c_str()));
  EXPECT_EQ(QsGetLastError(), kNameIsTaken);
  EXPECT_FALSE(QsCreateDirectory((_dir / "missing/a").c_str()));
  EXPECT_EQ(QsGetLastError(), kNoSuchDirectory);
  EXPECT_FALSE(QsCreateDirectory(_dir.Write("file", "x").c_str()));
}

TEST_F(FileSupportTest, ForceCreateDirectoriesMakesTheWholeChain) {
  EXPECT_TRUE(ForceCreateDirectories(_dir / "a/b/c/d"));
  EXPECT_TRUE(fs::is_directory(_dir / "a/b/c/d"));
  EXPECT_TRUE(ForceCreateDirectories(_dir / "a/b/c/d"));
  EXPECT_TRUE(ForceCreateDirectories(_dir / "e/f/"));
  EXPECT_TRUE(fs::is_directory(_dir / "e/f"));
  EXPECT_TRUE(ForceCreateDirectories(_dir / "g//h//"));
  EXPECT_TRUE(fs::is_directory(_dir / "g/h"));
  EXPECT_EQ(ForceCreateDirectories(_dir / "12:30/x:y"), !kOnWindows);
  EXPECT_EQ(fs::is_directory(_dir / "12:30/x:y"), !kOnWindows);
}

TEST_F(FileSupportTest, ForceCreateDirectoriesOfDriveRootAndNothing) {
  const fs::path before = fs::current_path();
  fs::current_path(_dir.Path());
  EXPECT_TRUE(ForceCreateDirectories(""));
  EXPECT_TRUE(ForceCreateDirectories("C:\\"));
  EXPECT_TRUE(ForceCreateDirectories("C:/"));
  EXPECT_TRUE(ForceCreateDirectories("C:"));
  EXPECT_TRUE(ForceCreateDirectories("\\"));
  EXPECT_TRUE(ForceCreateDirectories("/"));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
  fs::current_path(before);
}

TEST_F(FileSupportTest, ForceCreateDirectoriesCreatesShortRelativeNames) {
  const fs::path before = fs::current_path();
  fs::current_path(_dir.Path());
  EXPECT_TRUE(ForceCreateDirectories("a"));
  EXPECT_TRUE(ForceCreateDirectories("ab"));
  EXPECT_TRUE(ForceCreateDirectories("abc"));
  EXPECT_TRUE(ForceCreateDirectories("c\\d"));
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("a", "ab", "abc", "c"));
  EXPECT_TRUE(fs::is_directory("c/d"));
  fs::current_path(before);
}

#ifndef _WIN32
TEST_F(FileSupportTest, ForceCreateDirectoriesCreatesShortRootedNames) {
  if (getuid() != 0) {
    GTEST_SKIP() << "only root can take the folder for the root directory";
  }
  const pid_t child = fork();
  if (child == 0) {
    const bool created = chroot(_dir.Path().c_str()) == 0 && chdir("/") == 0 && ForceCreateDirectories("/a") &&
                         ForceCreateDirectories("\\b") && ForceCreateDirectories("/c/d");
    _exit(created ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("a", "b", "c"));
  EXPECT_TRUE(fs::is_directory(_dir / "c/d"));
}
#endif

// A path of exactly so many characters inside the folder; all but the last component are directories to be made.
std::string PathOfLength(const TempDir& dir, std::size_t length) {
  std::string path = dir.Path();
  while (path.size() + 51 < length) {
    path.append("/").append(50, 'd');
  }
  path += '/';
  path.append(length - path.size(), 'e');
  return path;
}

// Windows keeps room for a short file name in every directory's path: 247 characters.
TEST_F(FileSupportTest, ForceCreateDirectoriesTakes259Characters) {
  EXPECT_FALSE(ForceCreateDirectories(PathOfLength(_dir, 260)));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
  const std::string path = PathOfLength(_dir, kOnWindows ? 247 : 259);
  ASSERT_EQ(path.size(), kOnWindows ? 247u : 259u);
  EXPECT_TRUE(ForceCreateDirectories(path));
  EXPECT_TRUE(fs::is_directory(path));
}

TEST_F(FileSupportTest, FilesMayHavePathsOf259Characters) {
  const std::string path = PathOfLength(_dir, 259);
  const std::string moved = path.substr(0, 258) + "m";
  SaveFileWithCRLF(path, "text", true);
  EXPECT_EQ(QsGetFSObjectType(path), FSO_FILE);
  EXPECT_EQ(QsGetFileSize64(Backslashed(path).c_str()), 6);
  EXPECT_EQ(LoadBinaryFile(path), "text\r\n");
  EXPECT_TRUE(AppendBinaryFile(path, "more"));
  EXPECT_TRUE(QsCopyFile(path, moved, true, false));
  EXPECT_TRUE(QsDeleteFile(path, false));
  EXPECT_TRUE(QsMoveFile(Backslashed(moved), Backslashed(path), false, false));
  EXPECT_EQ(LoadBinaryFile(path), "text\r\nmore");
  EXPECT_EQ(QsDeleteFiles(ExtractFilePath(path) + "*", false), 1u);
}

TEST_F(FileSupportTest, ForceCreateDirectoriesAndFilesInTheWay) {
  const std::string file = _dir.Write("file", "x");
  EXPECT_TRUE(ForceCreateDirectories(file));  // a regular file counts as existing
  EXPECT_FALSE(ForceCreateDirectories(file + "/below"));
  EXPECT_EQ(QsGetLastError(), kBelowAFile);
#ifndef _WIN32
  fs::create_directory(_dir / "closed");
  ASSERT_EQ(chmod((_dir / "closed").c_str(), 0555), 0);
  OpenFolder(_dir);
  EXPECT_TRUE(
      AsOrdinaryUser([&] { return !ForceCreateDirectories(_dir / "closed/to/others") && QsGetLastError() == EACCES; }));
#endif
}

TEST_F(FileSupportTest, ForceCreateDirectoriesFromManyThreads) {
  for (int round = 0; round < 20; ++round) {
    const std::string path = _dir / (std::to_string(round) + "/a/b/c/d/e/f");
    std::atomic<int> succeeded = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] { succeeded += ForceCreateDirectories(path) ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(succeeded, 4);
    EXPECT_TRUE(fs::is_directory(path));
  }
}

TEST_F(FileSupportTest, RemoveDir) {
  EXPECT_FALSE(QsRemoveDir("", true));
  EXPECT_FALSE(QsRemoveDir(_dir / "missing", true));
  fs::create_directory(_dir / "a");
  _dir.Write("b/file", "x");
  EXPECT_TRUE(QsRemoveDir(_dir / "a", false));
  EXPECT_FALSE(QsRemoveDir(_dir / "b", true));
  EXPECT_FALSE(QsRemoveDir(_dir / "b/file", true));
  EXPECT_EQ(TempDir::Read(_dir / "b/file"), "x");
#ifndef _WIN32
  fs::create_directory(_dir / "c");
  ASSERT_EQ(chmod((_dir / "c").c_str(), 0555), 0);
  EXPECT_TRUE(QsRemoveDir(_dir / "c", false));  // the parent decides
#endif
}

TEST_F(FileSupportTest, ForceClearsReadOnlyBeforeItTriesAgain) {
  if (IsWine()) {
    GTEST_SKIP() << "Wine keeps no read-only attribute of a directory";
  }
  _dir.Write("a/file", "x");
  SetReadOnly(_dir / "a", true);
  EXPECT_FALSE(QsRemoveDir(_dir / "a", false));
  EXPECT_TRUE(IsReadOnly(_dir / "a"));
  EXPECT_FALSE(QsRemoveDir(_dir / "a", true));  // still not empty
  EXPECT_EQ(QsGetLastError(), kNotEmpty);
  EXPECT_FALSE(IsReadOnly(_dir / "a"));
#ifndef _WIN32
  EXPECT_EQ(ModeOf(_dir / "a"), 0755u);
#endif
}

TEST_F(FileSupportTest, ForceLeavesTheTargetOfALinkAlone) {
  if (IsWine()) {
    GTEST_SKIP() << "Wine keeps no read-only attribute of a directory";
  }
  fs::create_directory(_dir / "target");
  SetReadOnly(_dir / "target", true);
  if (!MakeDirectoryLink("target", _dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_FALSE(QsRemoveDir(_dir / "link", true));
  EXPECT_TRUE(IsReadOnly(_dir / "target"));
}

TEST_F(FileSupportTest, RenameDir) {
  _dir.Write("a/file", "x");
  EXPECT_TRUE(QsRenameDir(_dir / "a", _dir / "b"));
  EXPECT_EQ(TempDir::Read(_dir / "b/file"), "x");
  EXPECT_FALSE(fs::exists(_dir / "a"));
  EXPECT_FALSE(QsRenameDir(_dir / "missing", _dir / "c"));
  fs::create_directory(_dir / "taken");
  EXPECT_FALSE(QsRenameDir(_dir / "b", _dir / "taken"));
  EXPECT_FALSE(QsRenameDir(_dir / "b", _dir.Write("file", "y")));
  EXPECT_EQ(TempDir::Read(_dir / "file"), "y");
  EXPECT_EQ(TempDir::Read(_dir / "b/file"), "x");
}

// ---- Copy ----

std::string MixedContent() {
  std::string content(300000, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) {
    content[i] = static_cast<char>(i * 7 + i / 251);
  }
  return content;
}

TEST_F(FileSupportTest, CopyKeepsContentReadOnlyAndModificationTime) {
  const std::string content = MixedContent();
  const std::string from = _dir.Write("from", content);
  for (const bool readOnly : {false, true}) {
    SetTimes(from, kSummer * kSecond + 123456700);
    SetReadOnly(from, readOnly);
    const std::string to = _dir / (readOnly ? "fixed" : "free");
    ASSERT_TRUE(QsCopyFile(from, to, true, false));
    EXPECT_EQ(TempDir::Read(to), content);
    EXPECT_EQ(TimesOf(to).modified, kSummer * kSecond + 123456700);
    EXPECT_EQ(IsReadOnly(to), readOnly);
    EXPECT_EQ(TempDir::Read(from), content);
  }
}

#ifndef _WIN32
TEST_F(FileSupportTest, CopyKeepsContentModeAndModificationTimeEitherWay) {
  const std::string content = MixedContent();
  for (const bool inKernel : {true, false}) {
    refuseCopyInKernel = !inKernel;
    for (const mode_t mode : {0640u, 0444u, 0600u, 0755u, 0666u}) {
      const std::string from = _dir.Write("from", content);
      ASSERT_EQ(chmod(from.c_str(), mode), 0);
      SetTimes(from, kSummer * kSecond + 123456789);
      ASSERT_TRUE(QsCopyFile(from, _dir / "to", true, false));
      EXPECT_EQ(TempDir::Read(_dir / "to"), content);
      EXPECT_EQ(ModeOf(_dir / "to"), mode);
      EXPECT_EQ(TimesOf(_dir / "to").modified, kSummer * kSecond + 123456789);
      EXPECT_EQ(TempDir::Read(from), content);
      fs::remove(from);
      fs::remove(_dir / "to");
    }
  }
}
#endif

TEST_F(FileSupportTest, CopyOverwritesOnlyIfAllowed) {
  const std::string from = _dir.Write("from", "new");
  const std::string to = _dir.Write("to", "older and longer");
  EXPECT_FALSE(QsCopyFile(from, to, true, false));
  EXPECT_EQ(QsGetLastError(), kFileIsThere);
  EXPECT_EQ(TempDir::Read(to), "older and longer");
  EXPECT_TRUE(QsCopyFile(from, to, false, false));
  EXPECT_EQ(TempDir::Read(to), "new");
}

TEST_F(FileSupportTest, CopyOfAnEmptyFile) {
  EXPECT_TRUE(QsCopyFile(_dir.Write("from", ""), _dir.Write("to", "old"), false, false));
  EXPECT_EQ(TempDir::Read(_dir / "to"), "");
}

TEST_F(FileSupportTest, CopyOntoTheSameFileFailsAndLosesNothing) {
  const std::string file = _dir.Write("file", "only copy");
  fs::create_hard_link(file, _dir / "hard");
  for (const std::string& to : {file, _dir / "./file", _dir / "hard", Backslashed(file)}) {
    EXPECT_FALSE(QsCopyFile(file, to, false, true)) << to;
    EXPECT_EQ(QsGetLastError(), kSameFile) << to;
    EXPECT_EQ(TempDir::Read(file), "only copy") << to;
  }
}

TEST_F(FileSupportTest, CopyOntoTheSameFileThroughALinkFailsAndLosesNothing) {
  const std::string file = _dir.Write("file", "only copy");
  if (!MakeLink("file", _dir / "soft")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_FALSE(QsCopyFile(file, _dir / "soft", false, true));
  EXPECT_EQ(QsGetLastError(), kSameFile);
  EXPECT_EQ(TempDir::Read(file), "only copy");
  EXPECT_FALSE(QsCopyFile(_dir / "soft", file, false, false));
  EXPECT_EQ(TempDir::Read(file), "only copy");
}

TEST_F(FileSupportTest, CopyFailures) {
  const std::string file = _dir.Write("file", "x");
  EXPECT_FALSE(QsCopyFile(_dir / "missing", _dir / "to", false, false));
  EXPECT_EQ(QsGetLastError(), kNoSuchFile);
  EXPECT_FALSE(QsCopyFile(_dir.Path(), _dir / "to", false, false));
  EXPECT_FALSE(QsCopyFile(file, _dir.Path(), false, false));
  EXPECT_FALSE(QsCopyFile(file, _dir / "missing/to", false, false));
  EXPECT_EQ(QsGetLastError(), kNoSuchDirectory);
  EXPECT_FALSE(QsCopyFile("", "", false, false));
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("file"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, CopyTakesNoPipes) {
  const std::string file = _dir.Write("file", "x");
  EXPECT_FALSE(QsCopyFile(MakePipe("pipe"), _dir / "to", false, false));
  EXPECT_FALSE(QsCopyFile(file, _dir / "pipe", false, false));
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("file", "pipe"));
}
#endif

TEST_F(FileSupportTest, FailIfExistsCountsADanglingLink) {
  const std::string from = _dir.Write("from", "x");
  if (!MakeLink("victim", _dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_FALSE(QsCopyFile(from, _dir / "link", true, false));
  EXPECT_FALSE(fs::exists(_dir / "victim"));
  EXPECT_TRUE(QsCopyFile(from, _dir / "link", false, false));
  EXPECT_EQ(TempDir::Read(_dir / "victim"), "x");
}

#ifndef _WIN32
TEST_F(FileSupportTest, HalfACopyIsNotLeft) {
  const std::string from = _dir.Write("from", std::string(50000, 'x'));
  const std::string existing = _dir.Write("existing", "old");
  OpenFolder(_dir);
  ASSERT_EQ(chmod(existing.c_str(), 0666), 0);
  for (const bool inKernel : {true, false}) {
    refuseCopyInKernel = !inKernel;
    EXPECT_TRUE(AsOrdinaryUser([&] {
      const rlimit limit = {1000, 1000};
      signal(SIGXFSZ, SIG_IGN);
      return setrlimit(RLIMIT_FSIZE, &limit) == 0 && !QsCopyFile(from, _dir / "to", true, false) &&
             QsGetLastError() == EFBIG && !QsCopyFile(from, existing, false, false);
    }));
    EXPECT_FALSE(fs::exists(_dir / "to"));
    EXPECT_EQ(TempDir::Read(existing), "");
  }
}
#endif

TEST_F(FileSupportTest, CopyClearsReadOnlyOfTheTarget) {
  const std::string from = _dir.Write("from", "new");
  const std::string to = _dir.Write("to", "old");
  SetReadOnly(to, true);
  EXPECT_TRUE(QsCopyFile(from, to, false, true));
  EXPECT_EQ(TempDir::Read(to), "new");
  EXPECT_FALSE(IsReadOnly(to));
}

TEST_F(FileSupportTest, CopyClearsReadOnlyOfTheTargetOnlyIfAsked) {
  if (kOnWindows && !ReadOnlyRefusesWriting(_dir / "try")) {
    GTEST_SKIP() << kReadOnlyIsWritten;
  }
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const std::string from = _dir / "from";
    const std::string to = _dir / "to";
    if (!SaveBinaryFile(from, "new", false) || !SaveBinaryFile(to, "old", false)) {
      return false;
    }
    SetReadOnly(to, true);
    return !QsCopyFile(from, to, false, false) && LoadBinaryFile(to) == "old" && QsCopyFile(from, to, false, true) &&
           LoadBinaryFile(to) == "new";
  }));
}

TEST_F(FileSupportTest, LinkFileNeverOverwritesAndMakesACopy) {
  const std::string a = _dir.Write("a", "content");
  const std::string b = _dir.Write("b", "old");
  EXPECT_FALSE(QsLinkFile(a, b, false));
  EXPECT_FALSE(QsLinkFile(a, b, true));
  EXPECT_EQ(TempDir::Read(b), "old");
  EXPECT_TRUE(QsLinkFile(a, _dir / "c", false));
  EXPECT_EQ(TempDir::Read(_dir / "c"), "content");
  EXPECT_EQ(fs::hard_link_count(a), 1u);
  _dir.Write("a", "changed");
  EXPECT_EQ(TempDir::Read(_dir / "c"), "content");
  EXPECT_FALSE(fs::is_symlink(_dir / "c"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, CopyToAnotherVolume) {
  const OtherVolume other(_dir.Path());
  if (!other.IsThere()) {
    GTEST_SKIP() << kNoOtherVolume;
  }
  const std::string content(100000, 'c');
  EXPECT_TRUE(QsCopyFile(_dir.Write("from", content), other / "to", true, false));
  EXPECT_EQ(TempDir::Read(other / "to"), content);
}
#endif

// ---- Move ----

class MoveTest : public FileSupportTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    FileSupportTest::SetUp();
#ifndef _WIN32
    refuseRenameWithoutReplace = GetParam();
#endif
  }
};

#ifdef _WIN32
const auto kFileSystems = ::testing::Values(false);
#else
const auto kFileSystems = ::testing::Bool();
#endif
INSTANTIATE_TEST_SUITE_P(FileSystem, MoveTest, kFileSystems, [](const auto& parameter) {
  return parameter.param ? std::string("WithoutExclusiveRename") : std::string("WithExclusiveRename");
});

TEST_P(MoveTest, MovesFilesAndDirectories) {
  EXPECT_TRUE(QsMoveFile(_dir.Write("a", "x"), _dir / "b", false, false));
  EXPECT_EQ(TempDir::Read(_dir / "b"), "x");
  _dir.Write("dir/file", "y");
  EXPECT_TRUE(QsMoveFile(_dir / "dir", _dir / "moved", false, false));
  EXPECT_EQ(TempDir::Read(_dir / "moved/file"), "y");
  EXPECT_TRUE(QsMoveFile(_dir / "moved", _dir / "again", true, false));
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("b", "again"));
}

TEST_P(MoveTest, WithoutReplaceNothingGivesWay) {
  const std::string from = _dir.Write("from", "new");
  fs::create_directory(_dir / "dir");
  for (const std::string& to : {_dir.Write("to", "old"), _dir / "dir"}) {
    EXPECT_FALSE(QsMoveFile(from, to, false, false)) << to;
    EXPECT_EQ(QsGetLastError(), kNameIsTaken) << to;
  }
#ifndef _WIN32
  EXPECT_FALSE(QsMoveFile(from, from, false, false));
  EXPECT_EQ(QsGetLastError(), EEXIST);
#endif
  EXPECT_FALSE(QsMoveFile(_dir / "dir", _dir / "to", false, false));
  fs::create_directory(_dir / "empty");
  EXPECT_FALSE(QsMoveFile(_dir / "dir", _dir / "empty", false, false));
  EXPECT_EQ(TempDir::Read(_dir / "to"), "old");
  EXPECT_EQ(TempDir::Read(from), "new");
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("from", "dir", "to", "empty"));
}

TEST_P(MoveTest, WithoutReplaceADanglingLinkGivesNoWay) {
  const std::string from = _dir.Write("from", "new");
  if (!MakeLink("missing", _dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_FALSE(QsMoveFile(from, _dir / "link", false, false));
  EXPECT_EQ(QsGetLastError(), kNameIsTaken);
  EXPECT_EQ(TempDir::Read(from), "new");
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("from", "link"));
}

TEST_P(MoveTest, ReplaceTakesTheFilesPlace) {
  EXPECT_TRUE(QsMoveFile(_dir.Write("from", "new"), _dir.Write("to", "old"), true, false));
  EXPECT_EQ(TempDir::Read(_dir / "to"), "new");
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("to"));
}

TEST_P(MoveTest, ADirectoryNeverGivesWay) {
  fs::create_directory(_dir / "empty");
  fs::create_directory(_dir / "dir");
  const std::string file = _dir.Write("file", "x");
  EXPECT_FALSE(QsMoveFile(file, _dir / "empty", true, true));
  EXPECT_FALSE(QsMoveFile(_dir / "dir", _dir / "empty", true, true));
  EXPECT_FALSE(QsMoveFile(_dir / "dir", file, true, true));
  EXPECT_EQ(TempDir::Read(file), "x");
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("empty", "dir", "file"));
}

TEST_P(MoveTest, MissingSourceOrDirectory) {
  const std::string file = _dir.Write("file", "x");
  EXPECT_FALSE(QsMoveFile(_dir / "missing", _dir / "to", true, true));
  EXPECT_FALSE(QsMoveFile(_dir / "missing", file, true, false));
  EXPECT_FALSE(QsMoveFile(file, _dir / "missing/to", false, false));
  EXPECT_FALSE(QsMoveFile("", file, true, false));
  EXPECT_FALSE(QsMoveFile(file, "", true, false));
  EXPECT_EQ(TempDir::Read(file), "x");
}

TEST_P(MoveTest, ALinkIsMovedItself) {
  _dir.Write("target", "x");
  if (!MakeLink("target", _dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_TRUE(QsMoveFile(_dir / "link", _dir / "moved", false, false));
  EXPECT_EQ(fs::read_symlink(_dir / "moved"), "target");
  EXPECT_EQ(TempDir::Read(_dir / "target"), "x");
}

#ifndef _WIN32
TEST_P(MoveTest, WhatMayNotLeaveItsDirectoryHasOneNameOnly) {
  const std::string file = _dir.Write("closed/file", "x");
  ASSERT_EQ(chmod(file.c_str(), 0666), 0);
  ASSERT_EQ(chmod((_dir / "closed").c_str(), 0555), 0);
  OpenFolder(_dir);
  EXPECT_TRUE(
      AsOrdinaryUser([&] { return !QsMoveFile(file, _dir / "to", false, false) && QsGetLastError() == EACCES; }));
  EXPECT_EQ(TempDir::Read(file), "x");
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("closed"));
}
#endif

TEST_P(MoveTest, OneOfManyMovesWinsARace) {
  for (int round = 0; round < 100; ++round) {
    const std::string target = _dir / ("target" + std::to_string(round));
    std::vector<std::string> sources;
    for (int i = 0; i < 4; ++i) {
      sources.push_back(_dir.Write("source" + std::to_string(i), std::to_string(i)));
    }
    std::atomic<int> ready = 0;
    std::atomic<int> winners = 0;
    std::atomic<int> winner = -1;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        ++ready;
        while (ready < 4) {
          std::this_thread::yield();
        }
        if (QsMoveFile(sources[static_cast<std::size_t>(i)], target, false, false)) {
          ++winners;
          winner = i;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    ASSERT_EQ(winners, 1);
    ASSERT_EQ(TempDir::Read(target), std::to_string(winner));
    for (int i = 0; i < 4; ++i) {
      ASSERT_EQ(fs::exists(sources[static_cast<std::size_t>(i)]), i != winner);
    }
  }
}

TEST_F(FileSupportTest, MoveClearsReadOnlyOfTheTarget) {
  const std::string to = _dir.Write("to", "old");
  SetReadOnly(to, true);
  const std::string from = _dir.Write("from", "new");
  EXPECT_FALSE(QsMoveFile(from, to, false, false));
  EXPECT_TRUE(IsReadOnly(to));
  EXPECT_FALSE(QsMoveFile(from, to, false, true));
  EXPECT_FALSE(IsReadOnly(to));
#ifndef _WIN32
  EXPECT_EQ(ModeOf(to), 0644u);
#endif
}

#ifndef _WIN32
TEST_F(FileSupportTest, MoveAcrossVolumes) {
  const OtherVolume other(_dir.Path());
  if (!other.IsThere()) {
    GTEST_SKIP() << kNoOtherVolume;
  }
  const std::string content(123456, 'c');
  const std::string from = _dir.Write("from", content);
  ASSERT_EQ(chmod(from.c_str(), 0640), 0);
  SetTimes(from, kSummer * kSecond + 5000);
  EXPECT_TRUE(QsMoveFile(from, other / "to", false, false));
  EXPECT_FALSE(fs::exists(from));
  EXPECT_EQ(TempDir::Read(other / "to"), content);
  EXPECT_EQ(ModeOf(other / "to"), 0640u);
  EXPECT_EQ(TimesOf(other / "to").modified, kSummer * kSecond + 5000);

  const std::string second = _dir.Write("second", "new");
  EXPECT_FALSE(QsMoveFile(second, other / "to", false, false));
  EXPECT_EQ(QsGetLastError(), EEXIST);
  EXPECT_EQ(TempDir::Read(other / "to"), content);
  EXPECT_EQ(TempDir::Read(second), "new");
  EXPECT_TRUE(QsMoveFile(second, other / "to", true, false));
  EXPECT_EQ(TempDir::Read(other / "to"), "new");
  EXPECT_THAT(NamesIn(other.Path()), ElementsAre("to"));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(FileSupportTest, MoveAcrossVolumesFailures) {
  const OtherVolume other(_dir.Path());
  if (!other.IsThere()) {
    GTEST_SKIP() << kNoOtherVolume;
  }
  _dir.Write("dir/file", "x");
  const std::string file = _dir.Write("file", "y");
  fs::create_directory(other / "dir");
  EXPECT_FALSE(QsMoveFile(_dir / "dir", other / "moved", true, false));
  EXPECT_FALSE(QsMoveFile(MakePipe("pipe"), other / "pipe", true, false));
  EXPECT_FALSE(QsMoveFile(file, other / "dir", true, false));
  EXPECT_FALSE(QsMoveFile(_dir / "missing", other / "x", true, false));
  EXPECT_FALSE(QsMoveFile(file, other / "missing/x", true, false));
  EXPECT_EQ(TempDir::Read(file), "y");
  EXPECT_EQ(TempDir::Read(_dir / "dir/file"), "x");
  EXPECT_THAT(NamesIn(other.Path()), ElementsAre("dir"));
  EXPECT_THAT(NamesIn(other / "dir"), IsEmpty());
}

TEST_F(FileSupportTest, MoveAcrossVolumesTakesTheLongestName) {
  const OtherVolume other(_dir.Path());
  if (!other.IsThere()) {
    GTEST_SKIP() << kNoOtherVolume;
  }
  const std::string name(255, 'n');
  EXPECT_TRUE(QsMoveFile(_dir.Write(name, "x"), other / name, false, false));
  EXPECT_EQ(TempDir::Read(other / name), "x");
  EXPECT_THAT(NamesIn(other.Path()), ElementsAre(name));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(FileSupportTest, MoveOntoItselfThroughAnotherMountLosesNothing) {
  constexpr int kMayNotMount = 77;
  const std::string file = _dir.Write("here/file", "only copy");
  fs::create_directory(_dir / "there");
  const auto mountTwice = [&] {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount((_dir / "here").c_str(), (_dir / "there").c_str(), nullptr, MS_BIND, nullptr) == 0;
  };
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    _exit(!mountTwice() ? kMayNotMount : QsMoveFile(file, _dir / "there/file", true, false) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kMayNotMount) {
    GTEST_SKIP() << "only root can mount a folder twice";
  }
  EXPECT_EQ(status, 0);
  EXPECT_EQ(TempDir::Read(file), "only copy");
  EXPECT_THAT(NamesIn(_dir / "here"), ElementsAre("file"));
}

TEST_F(FileSupportTest, MoveAcrossVolumesWithoutSpaceKeepsBothFiles) {
  const OtherVolume other(_dir.Path());
  if (!other.IsThere()) {
    GTEST_SKIP() << kNoOtherVolume;
  }
  OpenFolder(_dir);
  ASSERT_EQ(chmod(other.Path().c_str(), 0777), 0);
  const std::string from = _dir.Write("from", std::string(50000, 'x'));
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const rlimit limit = {1000, 1000};
    signal(SIGXFSZ, SIG_IGN);
    return SaveBinaryFile(other / "to", "old", false) && setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
           !QsMoveFile(from, other / "to", true, false);
  }));
  EXPECT_EQ(TempDir::Read(other / "to"), "old");
  EXPECT_EQ(TempDir::Read(from).size(), 50000u);
  EXPECT_THAT(NamesIn(other.Path()), ElementsAre("to"));
}
#endif

// ---- Delete and rename ----

TEST_F(FileSupportTest, DeleteFile) {
  EXPECT_FALSE(QsDeleteFile("", true));
  EXPECT_FALSE(QsDeleteFile(_dir / "missing", true));
  EXPECT_EQ(QsGetLastError(), kNoSuchFile);
  EXPECT_FALSE(QsDeleteFile(_dir.Path(), true));
  EXPECT_TRUE(QsDeleteFile(_dir.Write("file", "x"), false));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

// On Linux the directory decides.
TEST_F(FileSupportTest, DeleteOfAReadOnlyFileNeedsForceOnWindows) {
  const std::string file = _dir.Write("file", "x");
  SetReadOnly(file, true);
  EXPECT_EQ(QsDeleteFile(file, false), !kOnWindows);
  EXPECT_EQ(fs::exists(file), kOnWindows);
  EXPECT_EQ(QsDeleteFile(file, true), kOnWindows);
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(FileSupportTest, DeleteTakesTheLinkNotItsTarget) {
  const std::string file = _dir.Write("file", "x");
  if (!MakeLink("file", _dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_TRUE(QsDeleteFile(_dir / "link", false));
  EXPECT_EQ(TempDir::Read(file), "x");
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("file"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, DeleteIsRefusedWithoutTheDirectorysPermission) {
  _dir.Write("dir/file", "x");
  ASSERT_EQ(chmod((_dir / "dir").c_str(), 0555), 0);
  EXPECT_TRUE(AsOrdinaryUser([&] { return !QsDeleteFile(_dir / "dir/file", true) && QsGetLastError() != 0; }));
  EXPECT_TRUE(fs::exists(_dir / "dir/file"));
}
#endif

TEST_F(FileSupportTest, DeleteFilesTakesFilesOnly) {
  for (const char* name : {"a.tmp", "b.TMP", "c.txt", "d.tmp", "dir.tmp/inner.tmp"}) {
    _dir.Write(name, "x");
  }
  EXPECT_EQ(QsDeleteFiles("", true), 0u);
  EXPECT_EQ(QsDeleteFiles(_dir / "*.none", true), 0u);
  EXPECT_EQ(QsDeleteFiles(_dir / "*.tmp", false), 3u);
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("c.txt", "dir.tmp"));
  EXPECT_TRUE(fs::exists(_dir / "dir.tmp/inner.tmp"));
  EXPECT_EQ(QsDeleteFiles(_dir / "c.txt", false), 1u);
}

#ifndef _WIN32
TEST_F(FileSupportTest, DeleteFilesTakesAColonForAPlainCharacter) {
  _dir.Write("12:30.tmp", "x");
  _dir.Write("30.tmp", "x");
  EXPECT_EQ(QsDeleteFiles(_dir / "12:*.tmp", true), 1u);
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("30.tmp"));
}
#endif

TEST_F(FileSupportTest, DeleteFilesTakesALinkToADirectory) {
  if (IsWine()) {
    GTEST_SKIP() << kLinksStay;
  }
  _dir.Write("dir.tmp/inner.tmp", "x");
  if (!MakeDirectoryLink("dir.tmp", _dir / "link.tmp")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_EQ(QsDeleteFiles(_dir / "*.tmp", false), 1u);
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("dir.tmp"));
  EXPECT_TRUE(fs::exists(_dir / "dir.tmp/inner.tmp"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, DeleteFilesCountsOnlyWhatItCouldDelete) {
  _dir.Write("dir/a", "x");
  ASSERT_EQ(chmod((_dir / "dir").c_str(), 0555), 0);
  EXPECT_TRUE(AsOrdinaryUser([&] { return QsDeleteFiles(_dir / "dir/*", true) == 0; }));
  EXPECT_EQ(QsDeleteFiles(_dir / "dir/*", true), getuid() == 0 ? 1u : 0u);
}
#endif

TEST_F(FileSupportTest, FileDeleterDeletesAtTheEndOfTheScope) {
  const std::string path = _dir / "file";
  {
    const QsFileDeleter deleter(path);
    _dir.Write("file", "x");
  }
  EXPECT_FALSE(fs::exists(path));
  { const QsFileDeleter nothing(path); }
  { const QsFileDeleter directory(_dir.Path()); }
  EXPECT_TRUE(fs::exists(_dir.Path()));
}

TEST_F(FileSupportTest, RenameTakesTheFirstFreeNumber) {
  _dir.Write("app.log", "0");
  _dir.Write("app_1.log", "1");
  EXPECT_TRUE(RenameFile(_dir.Path(), "app", ".log"));
  EXPECT_EQ(TempDir::Read(_dir / "app_2.log"), "0");
  EXPECT_EQ(TempDir::Read(_dir / "app_1.log"), "1");
  EXPECT_FALSE(fs::exists(_dir / "app.log"));
  EXPECT_FALSE(RenameFile(_dir.Path(), "app", ".log"));
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("app_1.log", "app_2.log"));
}

TEST_F(FileSupportTest, RenameFillsGapsAndSkipsDirectories) {
  _dir.Write("app.log", "0");
  _dir.Write("app_2.log", "2");
  fs::create_directory(_dir / "app_1.log");
  EXPECT_TRUE(RenameFile(_dir / "app", ".log"));
  EXPECT_EQ(TempDir::Read(_dir / "app_3.log"), "0");
  fs::remove(_dir / "app_1.log");
  _dir.Write("app.log", "new");
  EXPECT_TRUE(RenameFile(_dir / "app", ".log"));
  EXPECT_EQ(TempDir::Read(_dir / "app_1.log"), "new");
}

TEST_F(FileSupportTest, RenameTakesADotInTheNameForAnExtension) {
  _dir.Write("app.log", "0");
  EXPECT_FALSE(RenameFile(_dir.Path(), "app.v1", ".log"));  // kept: every numbered name is app.log again
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("app.log"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, RenameLogsAFailedMove) {
  OpenFolder(_dir);
  _dir.Write("dir/app.log", "0");
  ASSERT_EQ(chmod((_dir / "dir").c_str(), 0555), 0);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    LogCapture log;
    const std::string dir = Backslashed(_dir / "dir");
    return !RenameFile(_dir / "dir", "app", ".log") && log.Messages().size() == 1 &&
           log.Messages()[0].flags == kError &&
           log.Messages()[0].text == "RenameFile: error renaming file " + dir + "\\app.log to " + dir +
                                         "\\app_1.log: " + QsErrorMessage(EACCES);
  }));
}
#endif

TEST_F(FileSupportTest, DeleteRenamedFiles) {
  const auto fill = [&] {
    for (const char* name : {"app.log", "app_1.log", "app_22.log", "app_x.log", "app_1.txt", "other_1.log"}) {
      _dir.Write(name, "x");
    }
  };
  fill();
  DeleteRenamedFiles(_dir.Path(), "app", ".log");
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("app.log", "app_1.txt", "other_1.log"));
  fill();
  DeleteRenamedFiles(_dir / "app", ".log");
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("app.log", "app_1.txt", "other_1.log"));
  fill();
  DeleteRenamedFiles(_dir / "*.log");
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("app_1.txt"));
}

TEST_F(FileSupportTest, TestCreateFileLeavesTheFile) {
  EXPECT_TRUE(TestCreateFile(_dir / "new"));
  EXPECT_EQ(TempDir::Read(_dir / "new"), "");
  EXPECT_TRUE(fs::exists(_dir / "new"));
  EXPECT_TRUE(TestCreateFile(_dir.Write("old", "content")));
  EXPECT_EQ(TempDir::Read(_dir / "old"), "content");
  EXPECT_FALSE(TestCreateFile(_dir.Path()));
  EXPECT_FALSE(TestCreateFile(_dir / "missing/new"));
  EXPECT_FALSE(TestCreateFile(""));
}

// ---- Load ----

TEST_F(FileSupportTest, LoadFilePart) {
  const std::string path = _dir.Write("a", std::string("01234\0"
                                                       "6789",
                                                       10));
  const std::string content = TempDir::Read(path);
  for (unsigned offset = 0; offset <= 12; ++offset) {
    for (int length = -1; length <= 12; ++length) {
      std::string out = "old";
      EXPECT_TRUE(QsLoadFilePart(path, offset, length, out));
      const std::string rest = offset < content.size() ? content.substr(offset) : std::string();
      EXPECT_EQ(out, length == -1 ? rest : rest.substr(0, static_cast<std::size_t>(length))) << offset << " " << length;
    }
  }
  std::string out;
  EXPECT_TRUE(QsLoadFilePart(path, 0xFFFFFFFF, -1, out));
  EXPECT_EQ(out, "");
  EXPECT_TRUE(QsFileHead(path, 3, out));
  EXPECT_EQ(out, "012");
  EXPECT_TRUE(QsFileHead(path, -1, out));
  EXPECT_EQ(out, content);
}

TEST_F(FileSupportTest, LoadFilePartClearsTheOutputOnFailure) {
  std::string out = "old";
  EXPECT_FALSE(QsLoadFilePart(_dir / "missing", 0, -1, out));
  EXPECT_EQ(out, "");
  std::string same = _dir.Write("a", "content");
  EXPECT_TRUE(QsLoadFilePart(same, 0, -1, same));  // path and output may be one object
  EXPECT_EQ(same, "content");
}

TEST_F(FileSupportTest, LoadFilePartWithoutMemory) {
  const std::string path = _dir.Write("a", "x");
  Resize(path, 100000000);
  const auto messageOf = [&](int length) {
    std::string out;
    try {
      QsLoadFilePart(path, 0, length, out);
    } catch (const ExMemoryAllocation& error) {
      return error.GetErrorText();
    }
    return std::string("nothing thrown");
  };
  constexpr const char* kText =
      "Memory allocation error: QsLoadFilePart cannot allocate buffer! "
      "\\(file QSbase/support/filesupport, line [0-9]+";
  largestAllocation = 10000000;
  const std::string whole = messageOf(-1);
  const std::string negative = messageOf(-2);
  const std::string head = messageOf(10);
  largestAllocation = kNoLimit;
  EXPECT_THAT(whole, MatchesPattern(kText));
  EXPECT_THAT(negative, MatchesPattern(kText));
  EXPECT_EQ(head, "nothing thrown");
}

TEST_F(FileSupportTest, LoadBinaryFile) {
  std::string content;
  for (int i = 0; i < 100000; ++i) {
    content += static_cast<char>(i % 256);
  }
  LogCapture log;
  EXPECT_EQ(LoadBinaryFile(_dir.Write("a", content)), content);
  const std::string empty = _dir.Write("empty", "");
  QsSetLastError(0);
  EXPECT_EQ(LoadBinaryFile(empty), "");
  EXPECT_EQ(QsGetLastError(), 0);  // nothing else tells an empty file from one that cannot be loaded
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(FileSupportTest, LoadBinaryFileLogsWhatItCannotLoad) {
  LogCapture log;
  const std::string path = _dir / "100% missing";
  EXPECT_EQ(LoadBinaryFile(path), "");
  EXPECT_EQ(QsGetLastError(), kNoSuchFile);
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].flags, kWarning);
  EXPECT_EQ(log.Messages()[0].text,
            "LoadBinaryFile: Could not load '" + path + "' (" + QsErrorMessage(kNoSuchFile) + ")");
}

TEST_F(FileSupportTest, WholeLoadsTakeRegularFilesOnlyAndNeverWait) {
#ifdef _WIN32
  const qsbase::testing::PipeReader reader("qsbase-test-load");
  const std::string pipe = reader.Path();
  const std::vector<std::string> others = {pipe, _dir.Path(), "NUL"};
#else
  const std::string pipe = MakePipe("pipe");
  const std::vector<std::string> others = {pipe, _dir.Path(), "/dev/zero", "/dev/null"};
#endif
  for (const std::string& path : others) {
    std::string out = "old";
    EXPECT_FALSE(QsLoadFilePart(path, 0, 10, out)) << path;
    EXPECT_EQ(out, "");
    EXPECT_EQ(LoadBinaryFile(path), "") << path;
  }
  char* buffer = nullptr;
  unsigned size = 0;
  EXPECT_EQ(CAL_ReadFileToBuffer(pipe.c_str(), &buffer, size, 10, true, 0), -10);
  EXPECT_EQ(CAL_ReadFileToBuffer(_dir.Path().c_str(), &buffer, size, 10, true, 0), kOnWindows ? -10 : -2);
  EXPECT_EQ(CAL_CompareFile(pipe.c_str(), pipe.c_str(), 0, 10), -4);
}

TEST_F(FileSupportTest, GetFileContentRewindsTheStream) {
  std::FILE* stream = std::fopen(_dir.Write("a", std::string("ab\0cd", 5)).c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  std::fseek(stream, 3, SEEK_SET);
  EXPECT_EQ(GetFileContent(stream), std::string("ab\0cd", 5));
  EXPECT_EQ(std::ftell(stream), 0);
  EXPECT_EQ(std::fgetc(stream), 'a');
  std::fclose(stream);
}

TEST_F(FileSupportTest, GetFileContentOfNothing) {
  std::FILE* stream = nullptr;
  EXPECT_EQ(GetFileContent(stream), "");
#ifndef _WIN32
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  stream = fdopen(ends[0], "rb");
  EXPECT_EQ(GetFileContent(stream), "");
  std::fclose(stream);
  close(ends[1]);
#endif
}

TEST_F(FileSupportTest, GetFileContentWithoutMemoryIsLogged) {
  const std::string path = _dir.Write("a", "x");
  Resize(path, 100000000);
  std::FILE* stream = std::fopen(path.c_str(), "rb");
  LogCapture log;
  largestAllocation = 10000000;
  const std::string content = GetFileContent(stream);
  largestAllocation = kNoLimit;
  std::fclose(stream);
  EXPECT_EQ(content, "");
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].flags, kError);
  EXPECT_THAT(log.Messages()[0].text,
              MatchesPattern("Memory allocation error: buffer \\(file QSbase/support/filesupport, line [0-9]+"));
}

// ---- Save ----

TEST_F(FileSupportTest, SaveAppendClear) {
  const std::string path = _dir / "a";
  const std::string content("a\0\r\n\xFF", 5);
  EXPECT_TRUE(SaveBinaryFile(path, content, false));
  EXPECT_EQ(TempDir::Read(path), content);
  EXPECT_TRUE(AppendBinaryFile(path, content));
  EXPECT_EQ(TempDir::Read(path), content + content);
  EXPECT_TRUE(AppendBinaryFile(path, ""));
  EXPECT_EQ(TempDir::Read(path), content + content);
  EXPECT_TRUE(SaveBinaryFile(path, "x", false));
  EXPECT_EQ(TempDir::Read(path), "x");
  EXPECT_TRUE(ClearBinaryFile(path));
  EXPECT_EQ(TempDir::Read(path), "");
  EXPECT_TRUE(SaveBinaryFile(path, "", false));
  EXPECT_TRUE(AppendBinaryFile(_dir / "b", "x"));
  EXPECT_TRUE(ClearBinaryFile(_dir / "c"));
  EXPECT_EQ(TempDir::Read(_dir / "b"), "x");
  EXPECT_TRUE(fs::exists(_dir / "c"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, SavedFilesGetTheProcessesMask) {
  umask(027);
  EXPECT_TRUE(SaveBinaryFile(_dir / "plain", "x", false));
  EXPECT_TRUE(QsAtomicSaveBinaryFile(_dir / "atomic", "x", false));
  EXPECT_EQ(ModeOf(_dir / "plain"), 0640u);
  EXPECT_EQ(ModeOf(_dir / "atomic"), 0640u);
}
#endif

TEST_F(FileSupportTest, SaveLogsWhatItCannotOpen) {
  LogCapture log;
  EXPECT_FALSE(SaveBinaryFile(_dir / "50%/a", "x", false));
  EXPECT_FALSE(AppendBinaryFile(_dir.Path(), "x"));
  EXPECT_FALSE(ClearBinaryFile(""));
  ASSERT_EQ(log.Messages().size(), 3u);
  EXPECT_EQ(log.Messages()[0].flags, kError);
  EXPECT_EQ(log.Messages()[0].text, "SaveBinaryFile >>> Cannot open file:" + Backslashed(_dir / "50%/a") + " (" +
                                        QsErrorMessage(kNoSuchDirectory) + ")");
  EXPECT_EQ(log.Messages()[1].text, "SaveBinaryFile >>> Cannot open file:" + Backslashed(_dir.Path()) + " (" +
                                        QsErrorMessage(kIsADirectory) + ")");
  EXPECT_EQ(log.Messages()[2].text, "SaveBinaryFile >>> Cannot open file: (" + QsErrorMessage(kNoSuchDirectory) + ")");
}

#ifndef _WIN32
TEST_F(FileSupportTest, SaveLogsAShortWrite) {
  LogCapture log;
  EXPECT_FALSE(SaveBinaryFile("/dev/full", "x", false));
  EXPECT_EQ(QsGetLastError(), ENOSPC);
  EXPECT_FALSE(AppendBinaryFile("/dev/full", std::string(100000, 'x')));
  EXPECT_TRUE(ClearBinaryFile("/dev/full"));  // nothing to write
  ASSERT_EQ(log.Messages().size(), 2u);
  for (const LogCapture::Message& message : log.Messages()) {
    EXPECT_EQ(message.flags, kError);
    EXPECT_EQ(message.text,
              "SaveBinaryFile >>> Cannot save complete filecontents:\\dev\\full (" + QsErrorMessage(ENOSPC) + ")");
  }
}
#endif

TEST_F(FileSupportTest, SavingClearsReadOnlyBeforeItWrites) {
  const std::string path = _dir.Write("a", "old");
  SetReadOnly(path, true);
  EXPECT_TRUE(SaveBinaryFile(path, "new", true));
  EXPECT_FALSE(IsReadOnly(path));
  SetReadOnly(path, true);
  EXPECT_TRUE(AppendBinaryFile(path, "+"));
  EXPECT_FALSE(IsReadOnly(path));
  EXPECT_EQ(TempDir::Read(path), "new+");
  SetReadOnly(path, true);
  EXPECT_TRUE(ClearBinaryFile(path));
  EXPECT_FALSE(IsReadOnly(path));
  EXPECT_EQ(TempDir::Read(path), "");
}

TEST_F(FileSupportTest, SavingClearsReadOnly) {
  if (kOnWindows && !ReadOnlyRefusesWriting(_dir / "try")) {
    GTEST_SKIP() << kReadOnlyIsWritten;
  }
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const std::string path = _dir / "a";
    const auto protect = [&] {
      SetReadOnly(path, true);
      return IsReadOnly(path);
    };
    return SaveBinaryFile(path, "old", false) && protect() && !SaveBinaryFile(path, "x", false) &&
           LoadBinaryFile(path) == "old" && SaveBinaryFile(path, "new", true) && LoadBinaryFile(path) == "new" &&
           protect() && AppendBinaryFile(path, "+") && LoadBinaryFile(path) == "new+" && protect() &&
           ClearBinaryFile(path) && LoadBinaryFile(path).empty();
  }));
  EXPECT_FALSE(IsReadOnly(_dir / "a"));
#ifndef _WIN32
  EXPECT_EQ(ModeOf(_dir / "a"), 0644u);
#endif
}

// ---- Atomic save ----

TEST_F(FileSupportTest, AtomicSaveOfANewFileAndOverAnOldOne) {
  const std::string path = _dir / "a";
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, std::string("x\0y", 3), false));
  EXPECT_EQ(TempDir::Read(path), std::string("x\0y", 3));
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", true));
  EXPECT_EQ(TempDir::Read(path), "new");
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "", true));
  EXPECT_EQ(TempDir::Read(path), "");
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("a"));
}

TEST_F(FileSupportTest, AtomicSaveWithoutReplaceLeavesTheTemporaryFile) {
  const std::string path = _dir.Write("a", "old");
  EXPECT_FALSE(QsAtomicSaveBinaryFile(path, "new", false));
  EXPECT_EQ(TempDir::Read(path), "old");
  std::vector<std::string> names = NamesIn(_dir.Path());
  ASSERT_EQ(names.size(), 2u);
  const std::string temporary = names[0] == "a" ? names[1] : names[0];
  EXPECT_THAT(temporary, MatchesPattern("a\\.[0-9]+"));
  EXPECT_EQ(TempDir::Read(_dir / temporary), "new");
}

TEST_F(FileSupportTest, TemporaryNameIsTheNextPseudoRandomNumber) {
  const std::string path = _dir.Write("a", "old");
  srand(4711);
  const std::string expected = "a." + std::to_string(rand());
  srand(4711);
  EXPECT_FALSE(QsAtomicSaveBinaryFile(path, "new", false));
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("a", expected));
}

TEST_F(FileSupportTest, TemporaryFileReplacesNothing) {
  const std::string path = _dir / "a";
  srand(4711);
  const std::string taken = path + "." + std::to_string(rand());
  const std::string directory = path + "." + std::to_string(rand());
  std::ofstream(taken) << "taken";
  fs::create_directory(directory);
  srand(4711);
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", true));
  EXPECT_EQ(TempDir::Read(path), "new");
  EXPECT_EQ(TempDir::Read(taken), "taken");
  EXPECT_TRUE(fs::is_directory(directory));
  EXPECT_EQ(NamesIn(_dir.Path()).size(), 3u);
}

TEST_F(FileSupportTest, TemporaryFileNeverFollowsALink) {
  const std::string path = _dir / "a";
  const std::string victim = _dir.Write("victim", "precious");
  srand(4711);
  const std::string link = path + "." + std::to_string(rand());
  const std::string dangling = path + "." + std::to_string(rand());
  if (!MakeLink(victim, link) || !MakeLink(_dir / "nothing", dangling)) {
    GTEST_SKIP() << kNoLinks;
  }
  srand(4711);
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", true));
  EXPECT_EQ(TempDir::Read(path), "new");
  EXPECT_EQ(TempDir::Read(victim), "precious");
  EXPECT_FALSE(fs::exists(_dir / "nothing"));
  EXPECT_FALSE(fs::is_symlink(path));
  EXPECT_EQ(NamesIn(_dir.Path()).size(), 4u);
}

TEST_F(FileSupportTest, HundredTakenNamesFallBackToThePlainSave) {
  const std::string path = _dir.Write("a", "old");
  srand(4711);
  std::vector<std::string> names;
  for (int i = 0; i < 100; ++i) {
    names.push_back(_dir.Write("a." + std::to_string(rand()), "taken"));
  }
  srand(4711);
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", false));  // kept: the plain save overwrites in any case
  EXPECT_EQ(TempDir::Read(path), "new");
  for (const std::string& name : names) {
    EXPECT_EQ(TempDir::Read(name), "taken");
  }
  fs::remove(names[99]);
  srand(4711);
  EXPECT_FALSE(QsAtomicSaveBinaryFile(path, "newer", false));  // the hundredth is tried
  EXPECT_EQ(TempDir::Read(names[99]), "newer");
  EXPECT_EQ(TempDir::Read(path), "new");
}

#ifndef _WIN32
TEST_F(FileSupportTest, AtomicSaveKeepsTheTargetsMode) {
  umask(077);
  const std::string path = _dir.Write("a", "old");
  for (const mode_t mode : {0644u, 0600u, 0666u, 0755u, 0444u}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", true));
    EXPECT_EQ(ModeOf(path), mode);
  }
}
#endif

TEST_F(FileSupportTest, AtomicSaveReplacesAReadOnlyFile) {
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const std::string path = _dir / "a";
    if (!SaveBinaryFile(path, "old", false)) {
      return false;
    }
    SetReadOnly(path, true);
    return QsAtomicSaveBinaryFile(path, "new", true) && LoadBinaryFile(path) == "new" && IsReadOnly(path);
  }));
}

// Who is killed before the move leaves the old file as it was. Its other name shows it after the move.
TEST_F(FileSupportTest, AtomicSaveLeavesTheOldFileReadOnly) {
  if (kOnWindows) {
    GTEST_SKIP() << "Windows replaces no read-only file";
  }
  const std::string path = _dir.Write("a", "old");
  fs::create_hard_link(path, _dir / "other");
  SetReadOnly(path, true);
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", true));
  EXPECT_EQ(TempDir::Read(path), "new");
  EXPECT_TRUE(IsReadOnly(_dir / "other"));
  EXPECT_TRUE(IsReadOnly(path));
}

TEST_F(FileSupportTest, AtomicSaveReplacesALinkItself) {
  const std::string target = _dir.Write("target", "old");
  if (!MakeLink("target", _dir / "link")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_TRUE(QsAtomicSaveBinaryFile(_dir / "link", "new", true));
  EXPECT_FALSE(fs::is_symlink(_dir / "link"));
  EXPECT_EQ(TempDir::Read(_dir / "link"), "new");
  EXPECT_EQ(TempDir::Read(target), "old");
}

TEST_F(FileSupportTest, AtomicSaveNeverReplacesADirectory) {
  fs::create_directory(_dir / "dir");
  EXPECT_FALSE(QsAtomicSaveBinaryFile(_dir / "dir", "x", true));
  EXPECT_TRUE(fs::is_directory(_dir / "dir"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, AtomicSaveIsOnTheDiskBeforeTheMove) {
  const std::string path = _dir.Write("a", "old");
  recordCalls = true;
  EXPECT_TRUE(QsAtomicSaveBinaryFile(path, "new", true));
  recordCalls = false;
  EXPECT_THAT(calls, ElementsAre("sync file", "move", "sync directory"));
}
#endif

TEST_F(FileSupportTest, AtomicSaveLogsWhatItCannotCreate) {
  LogCapture log;
  EXPECT_FALSE(QsAtomicSaveBinaryFile(_dir / "missing/a", "x", true));
  ASSERT_EQ(log.Messages().size(), 1u);
  EXPECT_EQ(log.Messages()[0].flags, kError);
  EXPECT_THAT(log.Messages()[0].text,
              MatchesPattern("SaveBinaryFile >>> Cannot open file:.*missing\\\\a\\.[0-9]+ \\(.*"));
}

#ifndef _WIN32
TEST_F(FileSupportTest, AtomicSaveWithoutSpaceLeavesTheTargetWhole) {
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    LogCapture log;
    const std::string path = _dir / "a";
    const rlimit limit = {1000, 1000};
    signal(SIGXFSZ, SIG_IGN);
    return SaveBinaryFile(path, "old", false) && setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
           !QsAtomicSaveBinaryFile(path, std::string(5000, 'x'), true) && QsGetLastError() == EFBIG &&
           log.Messages().size() == 1 &&
           log.Messages()[0].text.find("SaveBinaryFile >>> Cannot save complete filecontents:") == 0;
  }));
  EXPECT_EQ(TempDir::Read(_dir / "a"), "old");
  EXPECT_EQ(NamesIn(_dir.Path()).size(), 2u);  // what was written stays
}
#endif

#ifndef _WIN32
TEST_F(FileSupportTest, KilledSaversLeaveTheTargetWhole) {
  const std::string path = _dir / "target";
  const std::string first(30000, 'A');
  const std::string second(70000, 'B');
  ASSERT_TRUE(QsAtomicSaveBinaryFile(path, first, true));
  int firstSeen = 0;
  int secondSeen = 0;
  int leftBehind = 0;
  const auto checkTarget = [&] {
    const std::string content = TempDir::Read(path);
    firstSeen += content == first ? 1 : 0;
    secondSeen += content == second ? 1 : 0;
    return content == first || content == second;
  };
  for (int round = 0; round < 200; ++round) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      srand(static_cast<unsigned>(round));
      bool saved = true;
      for (int i = 0; saved; ++i) {
        saved = QsAtomicSaveBinaryFile(path, i % 2 == 0 ? second : first, true);
      }
      _exit(1);
    }
    for (int reads = 0; reads < round % 8 + 1; ++reads) {
      EXPECT_TRUE(checkTarget());
      usleep(static_cast<useconds_t>(round * 37 % 500));
    }
    ASSERT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child could not save";
    EXPECT_TRUE(checkTarget());
    leftBehind += static_cast<int>(QsDeleteFiles(path + ".*", true));
  }
  // Both contents and the middle of a save have been met.
  EXPECT_GT(firstSeen, 0);
  EXPECT_GT(secondSeen, 0);
  EXPECT_GT(leftBehind, 0);
}
#endif

// ---- SaveFileWithCRLF ----

TEST_F(FileSupportTest, SaveFileWithCrlfEndsTheLastLine) {
  const struct {
    const char* content;
    const char* saved;
  } cases[] = {{"abc", "abc\r\n"},     {"abc\n", "abc\n"},   {"", ""},     {"abc\r", "abc\r"},
               {"abc\r\n", "abc\r\n"}, {"a\nb", "a\nb\r\n"}, {"\n", "\n"}, {" ", " \r\n"}};
  for (const auto& row : cases) {
    SaveFileWithCRLF(_dir / "a", row.content, false);
    EXPECT_EQ(TempDir::Read(_dir / "a"), row.saved);
  }
  EXPECT_TRUE(fs::exists(_dir / "a"));
}

TEST_F(FileSupportTest, SaveFileWithCrlfCreatesDirectories) {
  SaveFileWithCRLF(_dir / "x/y/a", "abc", true);
  EXPECT_EQ(TempDir::Read(_dir / "x/y/a"), "abc\r\n");
  const fs::path before = fs::current_path();
  fs::current_path(_dir.Path());
  SaveFileWithCRLF("relative", "abc", true);
  fs::current_path(before);
  EXPECT_EQ(TempDir::Read(_dir / "relative"), "abc\r\n");
}

TEST_F(FileSupportTest, SaveFileWithCrlfThrows) {
  const auto messageOf = [](const std::string& path, const std::string& content, bool createDirs) {
    try {
      SaveFileWithCRLF(path, content, createDirs);
    } catch (const ExBase& error) {
      return error.GetErrorText();
    }
    return std::string("nothing thrown");
  };
  EXPECT_EQ(messageOf(_dir / "missing/a", "x", false), "Cannot save to file:" + Backslashed(_dir / "missing/a"));
  EXPECT_EQ(messageOf(_dir.Write("file", "x") + "/sub/a", "x", true),
            "Cannot create directory: " + Backslashed(_dir / "file/sub/"));
#ifndef _WIN32
  EXPECT_EQ(messageOf("/dev/full", "x", false), "Cannot save complete filecontents:\\dev\\full");
  EXPECT_EQ(messageOf("/dev/full", "x\n", false), "Cannot save complete filecontents:\\dev\\full");
  EXPECT_EQ(messageOf("/dev/full", "", false), "nothing thrown");
#endif
}

// ---- Load with a backup ----

#ifndef _WIN32
// In a folder where everybody may make files but remove only their own, Linux opens another's file only for who does
// not ask for its making.
TEST_F(FileSupportTest, CopyOverAFileAsksForNoMaking) {
  const std::string from = _dir.Write("from", "new");
  const std::string to = _dir.Write("to", "an old one");
  bool forbidden = false;
  bool copied = false;
  std::thread([&] {
    forbidden = qsbase::testing::ForbidSystemCall(SYS_openat, 2, O_CREAT | O_EXCL, O_CREAT, EACCES);
    copied = QsCopyFile(from, to, false, false);
  }).join();
  if (!forbidden) {
    GTEST_SKIP() << qsbase::testing::kForbidsNoCalls;
  }
  EXPECT_TRUE(copied);
  EXPECT_EQ(TempDir::Read(to), "new");
}
#endif

TEST_F(FileSupportTest, LoadAndBackupCopiesAGoodFile) {
  const std::string path = _dir.Write("file", "content");
  EXPECT_EQ(FileLoadAndBackup(path, false), "content");
  EXPECT_EQ(TempDir::Read(path + ".bak"), "content");
  _dir.Write("file", "newer");
  EXPECT_EQ(FileLoadAndBackup(path, false), "newer");
  EXPECT_EQ(TempDir::Read(path + ".bak"), "content");
  EXPECT_EQ(FileLoadAndBackup(path, true), "newer");
  EXPECT_EQ(TempDir::Read(path + ".bak"), "newer");
}

TEST_F(FileSupportTest, LoadAndBackupRestoresAnEmptyOrMissingFile) {
  const std::string path = _dir.Write("file", "");
  _dir.Write("file.bak", "saved");
  EXPECT_EQ(FileLoadAndBackup(path, true), "saved");
  EXPECT_EQ(TempDir::Read(path), "saved");
  fs::remove(path);
  EXPECT_EQ(FileLoadAndBackup(path, false), "saved");
  EXPECT_EQ(TempDir::Read(path), "saved");
  _dir.Write("file", "");
  EXPECT_EQ(FileLoadAndBackup(path, false), "saved");  // an existing file is not overwritten then
  EXPECT_EQ(TempDir::Read(path), "");
}

TEST_F(FileSupportTest, LoadAndBackupThrowsWithoutAnyContent) {
  const auto messageOf = [&] {
    try {
      FileLoadAndBackup(_dir / "file", true);
    } catch (const ExBase& error) {
      return error.GetErrorText();
    }
    return std::string("nothing thrown");
  };
  constexpr const char* kText = "File loading error! Could not load original file nor backup file!";
  EXPECT_EQ(messageOf(), kText);
  _dir.Write("file", "");
  _dir.Write("file.bak", "");
  EXPECT_EQ(messageOf(), kText);
}

TEST_F(FileSupportTest, LoadAndBackupIgnoresAFailedCopy) {
  fs::create_directory(_dir / "file.bak");
  EXPECT_EQ(FileLoadAndBackup(_dir.Write("file", "content"), true), "content");
}

TEST_F(FileSupportTest, LoadAndBackupOverwritesAReadOnlyBackup) {
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const std::string path = _dir / "file";
    if (!SaveBinaryFile(path, "new", false) || !SaveBinaryFile(path + ".bak", "old", false)) {
      return false;
    }
    SetReadOnly(path + ".bak", true);
    return FileLoadAndBackup(path, true) == "new" && LoadBinaryFile(path + ".bak") == "new";
  }));
}

// What is written in place is half a file for a moment, and stays the same file.
TEST_F(FileSupportTest, LoadAndBackupReplacesInOneStep) {
  const std::string path = _dir.Write("file", "new");
  const std::string backup = _dir.Write("file.bak", "old");
#ifndef _WIN32
  const ino_t oldBackup = StatusOf(backup).st_ino;
  const ino_t lost = StatusOf(path).st_ino;
#endif
  EXPECT_EQ(FileLoadAndBackup(path, true), "new");
  EXPECT_EQ(TempDir::Read(backup), "new");
  EXPECT_TRUE(ClearBinaryFile(path));
  EXPECT_EQ(FileLoadAndBackup(path, true), "new");
  EXPECT_EQ(TempDir::Read(path), "new");
#ifndef _WIN32
  EXPECT_NE(StatusOf(backup).st_ino, oldBackup);
  EXPECT_NE(StatusOf(path).st_ino, lost);
#endif
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("file", "file.bak"));
}

#ifndef _WIN32  // under Wine the two hinder each other for minutes
// Who saves in place leaves the file empty for a moment, which must not become the backup of what was loaded before.
TEST_F(FileSupportTest, LoadAndBackupTakesNoCopyThatLacksWhatItLoaded) {
  constexpr int kLoads = 100;
  const LogCapture quiet;
  const std::string path = _dir.Write("file", "content");
  EXPECT_EQ(FileLoadAndBackup(path, true), "content");
  std::atomic<bool> enough{false};
  std::thread saver([&] {
    while (!enough) {
      SaveBinaryFile(path, "content", false);
    }
  });
  int lost = 0;
  for (int i = 0; i < kLoads; ++i) {
    try {
      FileLoadAndBackup(path, true);
    } catch (const ExBase&) {  // both are empty
    }
    lost += TempDir::Read(path + ".bak") == "content" ? 0 : 1;
  }
  enough = true;
  saver.join();
  EXPECT_EQ(lost, 0);
}
#endif

// As the others who share it see it.
TEST_F(FileSupportTest, LoadAndBackupKeepsTheBackupsNamesAndOwner) {
  const std::string path = _dir.Write("file", "new");
  const std::string backup = _dir.Write("file.bak", "old");
#ifndef _WIN32
  const bool mayGiveAway = chown(backup.c_str(), 65534, 65534) == 0;
  EXPECT_EQ(FileLoadAndBackup(path, true), "new");
  EXPECT_EQ(StatusOf(backup).st_uid == 65534 && StatusOf(backup).st_gid == 65534, mayGiveAway || getuid() == 65534);
#endif
  fs::create_hard_link(_dir.Write("file.bak", "old"), _dir / "other name");
  EXPECT_EQ(FileLoadAndBackup(path, true), "new");
  EXPECT_EQ(TempDir::Read(_dir / "other name"), "new");
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("file", "file.bak", "other name"));
}

// A copy in the file's place would lose what another hand writes to the file meanwhile.
TEST_F(FileSupportTest, LoadAndBackupLeavesAFileThatIsItsOwnBackup) {
  const std::string path = _dir.Write("file", "content");
#ifndef _WIN32
  const ino_t file = StatusOf(path).st_ino;
#endif
  EXPECT_EQ(FileLoadAndBackupToDir(path, _dir.Path() + "/.", true), "content");
  EXPECT_EQ(TempDir::Read(path), "content");
#ifndef _WIN32
  EXPECT_EQ(StatusOf(path).st_ino, file);
#endif
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("file"));
}

TEST_F(FileSupportTest, LoadAndBackupWritesThroughALink) {
  const std::string path = _dir.Write("file", "new");
  const std::string elsewhere = _dir.Write("elsewhere", "old");
  if (!MakeLink(elsewhere, path + ".bak")) {
    GTEST_SKIP() << kNoLinks;
  }
  EXPECT_EQ(FileLoadAndBackup(path, true), "new");
  EXPECT_EQ(TempDir::Read(elsewhere), "new");
  EXPECT_TRUE(fs::is_symlink(path + ".bak"));
}

TEST_F(FileSupportTest, LoadAndBackupOverwritesWhereNoFileCanBeMade) {
  if (kOnWindows) {
    GTEST_SKIP() << "a read-only folder takes files there";
  }
  OpenFolder(_dir);
  EXPECT_TRUE(AsOrdinaryUser([&] {
    const std::string folder = _dir / "closed";
    const std::string path = folder + "/file";
    if (!ForceCreateDirectories(folder) || !SaveBinaryFile(path, "new", false) ||
        !SaveBinaryFile(path + ".bak", "old", false)) {
      return false;
    }
    SetReadOnly(folder, true);
    return FileLoadAndBackup(path, true) == "new" && LoadBinaryFile(path + ".bak") == "new";
  }));
}

TEST_F(FileSupportTest, LoadAndBackupToDir) {
  const std::string path = _dir.Write("file.txt", "content");
  EXPECT_EQ(FileLoadAndBackupToDir(path, _dir / "backups/daily", false), "content");
  EXPECT_EQ(TempDir::Read(_dir / "backups/daily/file.txt"), "content");
  fs::remove(path);
  EXPECT_EQ(FileLoadAndBackupToDir(Backslashed(path), _dir / "backups/daily/", false), "content");
  EXPECT_EQ(TempDir::Read(path), "content");
  const std::string inTheWay = _dir.Write("plain", "x") + "/sub";
  try {
    FileLoadAndBackupToDir(path, inTheWay, false);
    ADD_FAILURE() << "nothing thrown";
  } catch (const ExBase& error) {
    EXPECT_EQ(error.GetErrorText(), "cannot create directory " + inTheWay);
  }
}

// ---- The older functions ----

TEST_F(FileSupportTest, WriteBufferToFile) {
  const std::string path = _dir / "a";
  EXPECT_EQ(CAL_WriteBufferToFile(nullptr, "x", 1), -4);
  EXPECT_EQ(CAL_WriteBufferToFile(path.c_str(), nullptr, 1), -4);
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(CAL_WriteBufferToFile(path.c_str(), "a\0b", 3), 0);
  EXPECT_EQ(TempDir::Read(path), std::string("a\0b", 3));
  EXPECT_EQ(CAL_WriteBufferToFile(path.c_str(), "", 0), 0);
  EXPECT_EQ(TempDir::Read(path), "");
  EXPECT_EQ(CAL_WriteBufferToFile((_dir / "missing/a").c_str(), "x", 1), -2);
#ifndef _WIN32
  EXPECT_EQ(CAL_WriteBufferToFile("/dev/full", "x", 1), -2);
#endif
}

struct Loaded {
  int result;
  unsigned size;
  std::unique_ptr<char[]> bytes;
};

Loaded ReadToBuffer(const std::string& path, unsigned maxSize, bool binary, unsigned alignment) {
  unsigned size = 99;
  char* buffer = nullptr;
  const int result = CAL_ReadFileToBuffer(path.c_str(), &buffer, size, maxSize, binary, alignment);
  return {result, size, std::unique_ptr<char[]>(buffer)};
}

TEST_F(FileSupportTest, ReadFileToBuffer) {
  const std::string path = _dir.Write("a", "0123456789");
  Loaded loaded = ReadToBuffer(path, 100, true, 0);
  EXPECT_EQ(loaded.result, 0);
  EXPECT_EQ(loaded.size, 10u);
  EXPECT_STREQ(loaded.bytes.get(), "0123456789");
  loaded = ReadToBuffer(path, 4, true, 0);
  EXPECT_EQ(loaded.size, 4u);
  EXPECT_STREQ(loaded.bytes.get(), "0123");
  loaded = ReadToBuffer(path, 0, true, 0);
  EXPECT_EQ(loaded.result, 0);
  EXPECT_EQ(loaded.size, 0u);
  EXPECT_STREQ(loaded.bytes.get(), "");
}

TEST_F(FileSupportTest, ReadFileToBufferFailures) {
  char* buffer = reinterpret_cast<char*>(1);
  unsigned size = 99;
  EXPECT_EQ(CAL_ReadFileToBuffer(nullptr, &buffer, size, 10, true, 0), -4);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(CAL_ReadFileToBuffer((_dir / "a").c_str(), nullptr, size, 10, true, 0), -4);
  EXPECT_EQ(ReadToBuffer(_dir / "missing", 10, true, 0).result, -6);
  EXPECT_EQ(ReadToBuffer("", 10, true, 0).result, -6);
  EXPECT_EQ(ReadToBuffer(_dir.Write("empty", ""), 10, true, 0).result, -10);
  EXPECT_EQ(ReadToBuffer(_dir.Write("x", "x"), 0, false, 0).result, -5);
}

TEST_F(FileSupportTest, ReadFileToBufferLimitIs4GiB) {
  const std::string path = _dir.Write("a", "start");
  Resize(path, 4294967295);
  EXPECT_EQ(ReadToBuffer(path, 5, true, 0).result, -11);
  Resize(path, 4294967294);
  const Loaded loaded = ReadToBuffer(path, 5, true, 0);
  EXPECT_EQ(loaded.result, 0);
  EXPECT_EQ(loaded.size, 5u);
  EXPECT_STREQ(loaded.bytes.get(), "start");
  largestAllocation = 10000000;
  const int withoutMemory = ReadToBuffer(path, 4294967295, true, 0).result;
  largestAllocation = kNoLimit;
  EXPECT_EQ(withoutMemory, -3);
}

#ifndef _WIN32
TEST_F(FileSupportTest, ReadFileToBufferIsRefusedWithoutPermission) {
  OpenFolder(_dir);
  const std::string path = _dir.Write("a", "x");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  EXPECT_TRUE(AsOrdinaryUser([&] { return ReadToBuffer(path, 10, true, 0).result == -2; }));
}
#endif

TEST_F(FileSupportTest, TextModeReadsCrLfAsLfAndReportsTheFileSize) {
  const Loaded loaded = ReadToBuffer(_dir.Write("a", "a\r\nb"), 100, false, 0);
  EXPECT_EQ(loaded.result, 0);
  EXPECT_EQ(loaded.size, 4u);
  EXPECT_STREQ(loaded.bytes.get(), "a\nb");
}

// Text mode said another way: every CR LF is an LF, then the first so many bytes.
std::string AsText(const std::string& content, std::size_t limit) {
  std::string text;
  for (std::size_t i = 0; i < content.size(); ++i) {
    if (content[i] != '\r' || content.substr(i, 2) != "\r\n") {
      text += content[i];
    }
  }
  return text.substr(0, limit);
}

TEST_F(FileSupportTest, TextModeOfEveryShortContent) {
  for (int length = 1; length <= 5; ++length) {
    for (int code = 0; code < (length == 1 ? 3 : length == 2 ? 9 : length == 3 ? 27 : length == 4 ? 81 : 243); ++code) {
      std::string content;
      for (int i = 0, rest = code; i < length; ++i, rest /= 3) {
        content += "x\r\n"[rest % 3];
      }
      const std::string path = _dir.Write("a", content);
      for (unsigned limit = 1; limit <= 6; ++limit) {
        const Loaded loaded = ReadToBuffer(path, limit, false, 0);
        const unsigned size = std::min(limit, static_cast<unsigned>(length));
        ASSERT_EQ(loaded.result, 0);
        ASSERT_EQ(loaded.size, size);
        ASSERT_EQ(std::string(loaded.bytes.get()), AsText(content, size));
      }
    }
  }
}

TEST_F(FileSupportTest, TextModeAcrossBlocks) {
  for (std::size_t before = 16382; before <= 16385; ++before) {
    const std::string content = std::string(before, 'x') + "\r\n" + std::string(20000, 'y') + "\r\r\n\r";
    const Loaded loaded = ReadToBuffer(_dir.Write("a", content), 1000000, false, 0);
    ASSERT_EQ(loaded.result, 0);
    EXPECT_EQ(loaded.size, content.size());
    EXPECT_EQ(std::string(loaded.bytes.get()), AsText(content, content.size()));
  }
}

TEST_F(FileSupportTest, AlignmentAddsTheRemainderAndZeroes) {
  const struct {
    std::size_t fileSize;
    unsigned alignment;
    std::size_t arraySize;
  } cases[] = {{10, 0, 11}, {10, 1, 11}, {10, 4, 14},  {11, 4, 12}, {12, 4, 14}, {13, 4, 16},
               {14, 4, 18}, {1, 16, 4},  {15, 16, 16}, {1, 2, 2},   {2, 2, 4}};
  for (const auto& row : cases) {
    const std::string content(row.fileSize, 'x');
    const Loaded loaded = ReadToBuffer(_dir.Write("a", content), 100, true, row.alignment);
    ASSERT_EQ(loaded.result, 0);
    EXPECT_EQ(loaded.size, row.fileSize);
    EXPECT_EQ(lastArraySize, row.arraySize) << row.fileSize << " with " << row.alignment;
    EXPECT_EQ(std::string(loaded.bytes.get(), row.arraySize),
              content + std::string(row.arraySize - row.fileSize, '\0'));
  }
}

TEST_F(FileSupportTest, AlignmentZeroesBehindTheShorterText) {
  const Loaded loaded = ReadToBuffer(_dir.Write("a", "a\r\nb\r\n1234"), 100, false, 4);
  EXPECT_EQ(loaded.size, 10u);
  ASSERT_EQ(lastArraySize, 14u);
  EXPECT_EQ(std::string(loaded.bytes.get(), 14), std::string("a\nb\n1234\0\0\0\0\0\0", 14));
}

int Compare(const std::string& a, const std::string& b, int mode, unsigned blockSize) {
  return CAL_CompareFile(a.c_str(), b.c_str(), mode, blockSize);
}

TEST_F(FileSupportTest, CompareFindsEveryDifferentByte) {
  for (const std::size_t length : {1u, 3u, 4u, 5u, 8u, 9u}) {
    const std::string content(length, 'x');
    const std::string a = _dir.Write("a", content);
    for (const unsigned blockSize : {1u, 2u, 3u, 4u, 5u, 8u, 10u}) {
      ASSERT_EQ(Compare(a, _dir.Write("b", content), 0, blockSize), 0);
      for (std::size_t i = 0; i < length; ++i) {
        std::string other = content;
        other[i] = 'X';
        ASSERT_EQ(Compare(a, _dir.Write("b", other), 0, blockSize), -11) << length << " " << blockSize << " " << i;
      }
    }
  }
}

TEST_F(FileSupportTest, CompareResults) {
  const std::string a = _dir.Write("a", "abc");
  const std::string b = _dir.Write("b", "abd");
  const std::string longer = _dir.Write("longer", "abcd");
  const std::string empty = _dir.Write("empty", "");
  EXPECT_EQ(Compare(a, b, 1, 10), 0);
  EXPECT_EQ(Compare(a, b, 0, 10), -11);
  EXPECT_EQ(Compare(a, b, 2, 10), -11);
  EXPECT_EQ(Compare(a, a, 0, 10), 0);
  EXPECT_EQ(Compare(empty, empty, 0, 10), 0);
  EXPECT_EQ(Compare(a, longer, 0, 10), -10);
  EXPECT_EQ(Compare(a, longer, 1, 10), -10);
  EXPECT_EQ(Compare(_dir / "missing", a, 0, 10), -2);
  EXPECT_EQ(CAL_CompareFile(nullptr, a.c_str(), 0, 10), -2);
  EXPECT_EQ(Compare(a, _dir / "missing", 0, 10), -3);
  EXPECT_EQ(CAL_CompareFile(a.c_str(), nullptr, 0, 10), -3);
  // A failed size counts as 0, so that a missing file is like an empty one until it is opened.
  EXPECT_EQ(Compare(empty, _dir / "missing", 1, 10), 0);
  EXPECT_EQ(Compare(empty, _dir / "missing", 0, 10), -5);
  EXPECT_EQ(CAL_CompareFile(empty.c_str(), nullptr, 0, 10), -5);
  EXPECT_EQ(Compare(a, b, 0, 0), -6);
  EXPECT_EQ(Compare(a, a, 0, 0), -6);
}

TEST_F(FileSupportTest, CompareWithoutMemoryOrPermission) {
  const std::string a = _dir.Write("a", "abc");
  const std::string b = _dir.Write("b", "abc");
  largestAllocation = 10000000;
  const int withoutMemory = Compare(a, b, 0, 4294967295);
  largestAllocation = kNoLimit;
  EXPECT_EQ(withoutMemory, -6);
#ifndef _WIN32
  OpenFolder(_dir);
  ASSERT_EQ(chmod(b.c_str(), 0), 0);
  EXPECT_TRUE(AsOrdinaryUser([&] { return Compare(b, a, 0, 10) == -4 && Compare(a, b, 0, 10) == -5; }));
#endif
}

}  // namespace
