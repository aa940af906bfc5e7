// What only Windows does with files: sharing, attributes, drives, device names, names that no file can have.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <QSbase/win32/windowsapi.h>

#include <common/logcapture.h>
#include <common/matchers.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/errors.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>

namespace {

namespace fs = std::filesystem;
using qsbase::testing::ChildTest;
using qsbase::testing::IsReadOnly;
using qsbase::testing::IsWine;
using qsbase::testing::kReadOnlyIsWritten;
using qsbase::testing::LogCapture;
using qsbase::testing::MatchesPattern;
using qsbase::testing::NamesIn;
using qsbase::testing::ReadOnlyRefusesWriting;
using qsbase::testing::ScopedCurrentDirectory;
using qsbase::testing::SetEnvironment;
using qsbase::testing::SetReadOnly;
using qsbase::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Somebody who has the file open and lets others do so much with it.
class Opened {
 public:
  Opened(const std::string& path, DWORD access, DWORD share)
      : _handle(CreateFileA(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr)) {}
  ~Opened() { Close(); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  bool IsOpen() const { return _handle != INVALID_HANDLE_VALUE; }

  void Close() {
    if (IsOpen()) {
      CloseHandle(_handle);
      _handle = INVALID_HANDLE_VALUE;
    }
  }

  // All that is in the file.
  std::string Content() const {
    std::string content(GetFileSize(_handle, nullptr), '\0');
    DWORD count = 0;
    EXPECT_NE(ReadFile(_handle, content.data(), static_cast<DWORD>(content.size()), &count, nullptr), 0);
    content.resize(count);
    return content;
  }

 private:
  HANDLE _handle;
};

class WindowsFileTest : public ::testing::Test {
 protected:
  std::string Canonical(const std::string& name) const { return QsTranslateFilename(_dir / name); }

  TempDir _dir;
};

// ---- In use ----

TEST_F(WindowsFileTest, WhatNobodyMayShareIsInUse) {
  const std::string path = _dir.Write("a", "old");
  const std::string other = _dir.Write("other", "abc");
  const Opened holder(path, GENERIC_READ, 0);
  ASSERT_TRUE(holder.IsOpen());
  const auto inUse = [](bool result) {
    const int error = QsGetLastError();
    QsSetLastError(0);
    return !result && error == ERROR_SHARING_VIOLATION;
  };
  LogCapture log;
  std::string out = "old";
  QsFile file;
  EXPECT_TRUE(inUse(QsLoadFilePart(path, 0, -1, out)));
  EXPECT_EQ(out, "");
  EXPECT_TRUE(inUse(SaveBinaryFile(path, "new", true)));
  EXPECT_TRUE(inUse(AppendBinaryFile(path, "new")));
  EXPECT_TRUE(inUse(ClearBinaryFile(path)));
  EXPECT_TRUE(inUse(TestCreateFile(path)));
  EXPECT_TRUE(inUse(QsCopyFile(path, _dir / "copy", false, false)));
  EXPECT_TRUE(inUse(QsCopyFile(other, path, false, true)));
  EXPECT_TRUE(inUse(QsMoveFile(path, _dir / "moved", true, true)));
  EXPECT_TRUE(inUse(QsDeleteFile(path, true)));
  EXPECT_TRUE(inUse(file.Open(path.c_str(), "rb")));
  EXPECT_TRUE(inUse(file.Reset(path.c_str())));
  EXPECT_TRUE(inUse(CAL_WriteBufferToFile(path.c_str(), "x", 1) != -2));
  EXPECT_EQ(CAL_CompareFile(path.c_str(), other.c_str(), 0, 10), -4);
  EXPECT_EQ(CAL_CompareFile(other.c_str(), path.c_str(), 0, 10), -5);
  char* buffer = nullptr;
  unsigned size = 9;
  EXPECT_EQ(CAL_ReadFileToBuffer(path.c_str(), &buffer, size, 10, true, 0), -2);
  EXPECT_EQ(QsDeleteFiles(_dir / "a*", true), 0U);
  EXPECT_THAT(NamesIn(_dir.Path()), UnorderedElementsAre("a", "other"));
}

TEST_F(WindowsFileTest, WhatIsInUseCanStillBeLookedAt) {
  const std::string path = _dir.Write("a", "old");
  const Opened holder(path, GENERIC_READ | GENERIC_WRITE, 0);
  LogCapture log;
  EXPECT_EQ(QsGetFSObjectType(path), FSO_FILE);
  EXPECT_EQ(QsGetFileSize64(path.c_str()), 3);
  EXPECT_TRUE(QsHasFileWritePermission(path.c_str()));
  QsDateTime date;
  EXPECT_TRUE(FileDate(path, date));
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(WindowsFileTest, SavingOverAFileInUseIsLogged) {
  const std::string path = _dir.Write("a", "old");
  Opened holder(path, GENERIC_READ, FILE_SHARE_READ);
  LogCapture log;
  EXPECT_FALSE(SaveBinaryFile(path, "new", false));
  EXPECT_THAT(log.Texts(), ElementsAre("SaveBinaryFile >>> Cannot open file:" + Canonical("a") + " (" +
                                       QsErrorMessage(ERROR_SHARING_VIOLATION) + ")"));
  EXPECT_EQ(LoadBinaryFile(path), "old");  // reading is shared
  holder.Close();
  EXPECT_TRUE(SaveBinaryFile(path, "new", false));
}

TEST_F(WindowsFileTest, TheLibrarysOwnStreamsShareReadingAndWriting) {
  const std::string path = _dir.Write("a", "old");
  const QsFile first(path.c_str(), "ab");
  const QsFile second(path.c_str(), "rb");
  EXPECT_TRUE(second.IsOpen());
  EXPECT_EQ(LoadBinaryFile(path), "old");
  EXPECT_TRUE(AppendBinaryFile(path, "+"));
  EXPECT_FALSE(QsDeleteFile(path, true));
  EXPECT_EQ(QsGetLastError(), ERROR_SHARING_VIOLATION);
}

TEST_F(WindowsFileTest, AtomicSaveOverAFileInUseLeavesBoth) {
  const std::string path = _dir.Write("a", "old");
  const Opened reader(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  EXPECT_FALSE(QsAtomicSaveBinaryFile(path, "new", true));
  EXPECT_THAT(QsGetLastError(), ::testing::AnyOf(ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION));
  EXPECT_EQ(reader.Content(), "old");
  std::vector<std::string> names = NamesIn(_dir.Path());
  ASSERT_EQ(names.size(), 2U);
  const std::string temporary = names[0] == "a" ? names[1] : names[0];
  EXPECT_THAT(temporary, MatchesPattern("a\\.[0-9]+"));
  EXPECT_EQ(TempDir::Read(_dir / temporary), "new");
}

TEST_F(WindowsFileTest, RenamingAFileInUseIsLogged) {
  const Opened holder(_dir.Write("app.log", "0"), GENERIC_READ, FILE_SHARE_READ);
  LogCapture log;
  EXPECT_FALSE(RenameFile(_dir.Path(), "app", ".log"));
  EXPECT_THAT(log.Texts(), ElementsAre("RenameFile: error renaming file " + Canonical("app.log") + " to " +
                                       Canonical("app_1.log") + ": " + QsErrorMessage(ERROR_SHARING_VIOLATION)));
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("app.log"));
}

TEST_F(WindowsFileTest, ADirectoryWithAFileInUseIsNotRenamed) {
  const Opened holder(_dir.Write("dir/file", "x"), GENERIC_READ, FILE_SHARE_READ);
  if (IsWine()) {
    GTEST_SKIP() << "Wine renames directories below which a file is open";
  }
  EXPECT_FALSE(QsRenameDir(_dir / "dir", _dir / "moved"));
  EXPECT_EQ(QsGetLastError(), ERROR_ACCESS_DENIED);
}

// ---- Read-only ----

TEST_F(WindowsFileTest, ReadOnlyRefusesDeletion) {
  const std::string path = _dir.Write("a", "x");
  SetReadOnly(path, true);
  EXPECT_FALSE(QsDeleteFile(path, false));
  EXPECT_EQ(QsGetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_TRUE(IsReadOnly(path));
  _dir.Write("b", "x");
  EXPECT_EQ(QsDeleteFiles(_dir / "*", false), 1U);
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("a"));
  EXPECT_EQ(QsDeleteFiles(_dir / "*", true), 1U);
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(WindowsFileTest, ForcedDeletionOfAFileInUseLeavesItWritable) {
  const std::string path = _dir.Write("a", "x");
  SetReadOnly(path, true);
  const Opened holder(path, GENERIC_READ, FILE_SHARE_READ);
  EXPECT_FALSE(QsDeleteFile(path, true));
  EXPECT_EQ(QsGetLastError(), ERROR_SHARING_VIOLATION);
  EXPECT_FALSE(IsReadOnly(path));
}

TEST_F(WindowsFileTest, ReadOnlyRefusesWriting) {
  if (!ReadOnlyRefusesWriting(_dir / "try")) {
    GTEST_SKIP() << kReadOnlyIsWritten;
  }
  const std::string path = _dir.Write("a", "old");
  SetReadOnly(path, true);
  QsFile file;
  EXPECT_FALSE(SaveBinaryFile(path, "new", false));
  EXPECT_EQ(QsGetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(TestCreateFile(path));
  EXPECT_FALSE(file.Open(path.c_str(), "r+b"));
  EXPECT_EQ(QsGetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(CAL_WriteBufferToFile(path.c_str(), "x", 1), -2);
  EXPECT_EQ(LoadBinaryFile(path), "old");
}

TEST_F(WindowsFileTest, MovingOverAReadOnlyFileIsRefused) {
  if (IsWine()) {
    GTEST_SKIP() << "Wine moves files over read-only ones";
  }
  const std::string from = _dir.Write("from", "new");
  const std::string to = _dir.Write("to", "old");
  SetReadOnly(to, true);
  EXPECT_FALSE(QsMoveFile(from, to, true, false));
  EXPECT_EQ(QsGetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(TempDir::Read(to), "old");
}

TEST_F(WindowsFileTest, MovingClearsReadOnlyOfTheTarget) {
  const std::string from = _dir.Write("from", "new");
  const std::string to = _dir.Write("to", "old");
  SetReadOnly(to, true);
  EXPECT_TRUE(QsMoveFile(from, to, true, true));
  EXPECT_EQ(TempDir::Read(to), "new");
  EXPECT_FALSE(IsReadOnly(to));
}

TEST_F(WindowsFileTest, AReadOnlyFileMovesWithItsAttribute) {
  const std::string from = _dir.Write("from", "x");
  SetReadOnly(from, true);
  EXPECT_TRUE(QsMoveFile(from, _dir / "to", false, false));
  EXPECT_TRUE(IsReadOnly(_dir / "to"));
}

TEST_F(WindowsFileTest, OtherAttributesStayWhenReadOnlyIsCleared) {
  const std::string path = _dir.Write("a", "old");
  ASSERT_NE(SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM), 0);
  EXPECT_TRUE(AppendBinaryFile(path, "+"));
  EXPECT_EQ(GetFileAttributesA(path.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM),
            static_cast<DWORD>(FILE_ATTRIBUTE_SYSTEM));
}

// ---- Codes ----

TEST_F(WindowsFileTest, LookingAtWhatIsThereLeavesTheLastErrorAlone) {
  const std::string file = _dir.Write("file", "x");
  fs::create_directory(_dir / "dir");
  QsSetLastError(ERROR_BROKEN_PIPE);
  EXPECT_EQ(QsGetFSObjectType(file), FSO_FILE);
  EXPECT_EQ(QsGetFSObjectType(_dir / "dir\\"), FSO_DIRECTORY);
  EXPECT_TRUE(DirExists(file));
  EXPECT_TRUE(ForceCreateDirectories(_dir / "dir"));
  EXPECT_EQ(QsGetLastError(), ERROR_BROKEN_PIPE);
  EXPECT_EQ(QsGetFSObjectType(_dir / "missing"), FSO_NOTHING);
  EXPECT_EQ(QsGetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(WindowsFileTest, ADirectoryHasTheSizeZero) {
  _dir.Write("dir/file", "content");
  std::int64_t size = -1;
  EXPECT_EQ(QsGetFileSize64((_dir / "dir").c_str(), size), 0);
  EXPECT_EQ(size, 0);
}

TEST_F(WindowsFileTest, FailuresHaveTheSystemsCodes) {
  const std::string file = _dir.Write("file", "x");
  fs::create_directory(_dir / "dir");
  _dir.Write("full/file", "x");
  std::string out;
  const auto codeOf = [](bool result) { return result ? 0 : QsGetLastError(); };
  EXPECT_EQ(codeOf(QsLoadFilePart(_dir / "missing", 0, -1, out)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(codeOf(QsLoadFilePart(_dir / "missing/file", 0, -1, out)), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(codeOf(QsLoadFilePart(_dir / "dir", 0, -1, out)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(codeOf(QsDeleteFile(_dir / "missing", true)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(codeOf(QsDeleteFile(_dir / "missing/file", true)), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(codeOf(QsDeleteFile(_dir / "dir", true)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(codeOf(QsRemoveDir(_dir / "missing", false)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(codeOf(QsRemoveDir(_dir / "full", false)), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(codeOf(QsRemoveDir(file, false)), ERROR_DIRECTORY);
  EXPECT_EQ(codeOf(QsCreateDirectory((_dir / "dir").c_str())), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(codeOf(QsCreateDirectory(file.c_str())), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(codeOf(QsCreateDirectory((_dir / "missing/dir").c_str())), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(codeOf(QsCopyFile(file, _dir / "full/file", true, false)), ERROR_FILE_EXISTS);
  EXPECT_EQ(codeOf(QsMoveFile(file, _dir / "full/file", false, false)), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(codeOf(QsMoveFile(_dir / "missing", _dir / "to", false, false)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(codeOf(QsRenameDir(_dir / "dir", _dir / "full")), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(codeOf(QsTouchFile(_dir / "missing")), ERROR_FILE_NOT_FOUND);
}

TEST_F(WindowsFileTest, NamesThatNoFileCanHave) {
  for (const char c : std::string("<>\"|?*")) {
    const std::string path = (_dir / "a") + c + "b";
    EXPECT_FALSE(SaveBinaryFile(path, "x", true)) << c;
    EXPECT_EQ(QsGetLastError(), ERROR_INVALID_NAME) << c;
    EXPECT_FALSE(QsCreateDirectory(path.c_str())) << c;
    EXPECT_EQ(QsGetFSObjectType(path), FSO_NOTHING) << c;
  }
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(WindowsFileTest, TrailingDotsAndBlanksAreNoPartOfTheName) {
  EXPECT_TRUE(SaveBinaryFile(_dir / "a. .", "x", false));
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("a"));
  EXPECT_EQ(LoadBinaryFile(_dir / "a..."), "x");
}

// Such names come from programs that use the system's Unicode interface.
TEST_F(WindowsFileTest, NamesBeyondTheCodePageAreNotTakenForThoseThatLookAlike) {
  const fs::path dir(_dir.Path());
  _dir.Write("a.txt", "mine");
  std::ofstream(dir / L"\u0101.txt") << "with a macron";
  std::ofstream(dir / L"\u4e00.txt") << "an ideograph";
  std::ofstream(dir / L"\u00e4.txt") << "in the code page";
  std::vector<std::string> names;
  QsBuildFileList(_dir.Path(), "*", names, 1, -1);
  EXPECT_THAT(names, UnorderedElementsAre("a.txt", "\xe4.txt"));
  EXPECT_EQ(QsGetDirFileCount(_dir.Path()), 2U);
  EXPECT_EQ(QsDeleteFiles(_dir / "*", true), 2U);
  EXPECT_TRUE(fs::exists(dir / L"\u0101.txt"));
  EXPECT_FALSE(QsDeleteDirectoryRecurse(_dir.Path(), true, -1, true, nullptr, true));
  EXPECT_TRUE(fs::remove(dir / L"\u0101.txt"));
  EXPECT_TRUE(fs::remove(dir / L"\u4e00.txt"));
}

TEST_F(WindowsFileTest, NamesWithADotOrBlankAtTheEndAreNotTakenForThoseWithout) {
  const std::string verbatim = "\\\\?\\" + Canonical("");
  for (const char* name : {"dot", "dot.", "blank "}) {
    const HANDLE file = CreateFileA((verbatim + name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << name;
    CloseHandle(file);
  }
  ASSERT_NE(CreateDirectoryA((verbatim + "dir.").c_str(), nullptr), 0);
  ASSERT_TRUE(QsCreateDirectory((_dir / "dir").c_str()));
  std::vector<std::string> names;
  QsBuildFileList(_dir.Path(), "*", names, 3, -1);
  EXPECT_THAT(names, UnorderedElementsAre("dot", "dir"));
  EXPECT_EQ(QsGetDirEntryCount(_dir.Path()), 2U);
  EXPECT_EQ(QsDeleteFiles(_dir / "*", true), 1U);

  // A path that the system is to take as it is names them all.
  QsBuildFileList(verbatim, "*", names, 3, -1);
  EXPECT_THAT(names, UnorderedElementsAre("dot.", "blank ", "dir.", "dir"));
  EXPECT_TRUE(QsDeleteDirectoryRecurse(verbatim, false, -1, true, nullptr, false));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(WindowsFileTest, CaseIsNoDifference) {
  const std::string path = _dir.Write("Name.txt", "x");
  EXPECT_EQ(LoadBinaryFile(_dir / "NAME.TXT"), "x");
  EXPECT_FALSE(QsCopyFile(path, _dir / "name.TXT", false, false));
  EXPECT_EQ(QsGetLastError(), ERROR_SHARING_VIOLATION);
  EXPECT_FALSE(QsCopyFile(path, _dir / "name.TXT", true, false));
  EXPECT_EQ(TempDir::Read(path), "x");
  EXPECT_TRUE(SaveBinaryFile(_dir / "nAmE.txt", "y", false));
  EXPECT_THAT(NamesIn(_dir.Path()), ElementsAre("Name.txt"));
  EXPECT_EQ(TempDir::Read(path), "y");
}

// ---- Devices ----

TEST_F(WindowsFileTest, DeviceNamesAreNoFiles) {
  EXPECT_EQ(QsGetFSObjectType("nul"), FSO_CHARDEVICE);
  EXPECT_EQ(LoadBinaryFile("NUL"), "");
  EXPECT_FALSE(QsCopyFile("NUL", _dir / "copy", false, false));
  EXPECT_FALSE(QsDeleteFile("NUL", true));
  std::string out;
  EXPECT_FALSE(QsLoadFilePart("NUL", 0, -1, out));
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

TEST_F(WindowsFileTest, TheNullDeviceTakesWhatIsSaved) {
  EXPECT_TRUE(SaveBinaryFile("NUL", "x", false));
  EXPECT_EQ(CAL_WriteBufferToFile("NUL", "x", 1), 0);
  EXPECT_TRUE(QsFile("NUL", "wb").IsOpen());
}

// ---- Drives and long paths ----

TEST_F(WindowsFileTest, ADriveWithoutASeparatorIsItsCurrentDirectory) {
  const ScopedCurrentDirectory here(_dir.Path());
  const std::string drive = _dir.Path().substr(0, 2);
  EXPECT_TRUE(SaveBinaryFile(drive + "name", "x", false));
  EXPECT_EQ(TempDir::Read(_dir / "name"), "x");
  EXPECT_EQ(QsGetFSObjectType(drive), FSO_DIRECTORY);
  EXPECT_TRUE(ForceCreateDirectories(drive + "a\\b"));
  EXPECT_EQ(QsGetFSObjectType(_dir / "a/b"), FSO_DIRECTORY);
  EXPECT_TRUE(ForceCreateDirectories(drive + "a/c/"));
  EXPECT_EQ(QsGetFSObjectType(_dir / "a/c"), FSO_DIRECTORY);
  SaveFileWithCRLF(drive + "d\\e", "x", true);
  EXPECT_EQ(TempDir::Read(_dir / "d/e"), "x\r\n");
  EXPECT_EQ(QsDeleteFiles(drive + "na*", false), 1U);
}

TEST_F(WindowsFileTest, ARootedPathIsOnTheCurrentDrive) {
  const ScopedCurrentDirectory here(_dir.Path());
  const std::string rooted = _dir.Path().substr(2);
  EXPECT_TRUE(SaveBinaryFile(rooted + "/name", "x", false));
  EXPECT_TRUE(ForceCreateDirectories(rooted + "/a/b"));
  EXPECT_EQ(TempDir::Read(_dir / "name"), "x");
  EXPECT_EQ(QsGetFSObjectType(_dir / "a/b"), FSO_DIRECTORY);
}

TEST_F(WindowsFileTest, RootsAreDirectories) {
  const std::string drive = _dir.Path().substr(0, 2);
  for (const std::string& root : {drive + "\\", drive + "/", std::string("\\"), std::string("/")}) {
    EXPECT_EQ(QsGetFSObjectType(root), FSO_DIRECTORY) << root;
    EXPECT_TRUE(ForceCreateDirectories(root)) << root;
  }
}

TEST_F(WindowsFileTest, DiskFreeAsksForTheDirectoryPart) {
  const std::string drive = _dir.Path().substr(0, 2);
  std::int64_t freeBytes = 0;
  std::int64_t total = 0;
  for (const std::string& path :
       {drive + "\\", drive + "\\no such file", drive + "/no such file", _dir.Path() + "/x"}) {
    total = 0;
    EXPECT_TRUE(QsDiskFree(path.c_str(), freeBytes, nullptr, &total)) << path;
    EXPECT_EQ(total, static_cast<std::int64_t>(fs::space(drive + "\\").capacity)) << path;
  }
  EXPECT_FALSE(QsDiskFree((_dir / "missing/x").c_str(), freeBytes, nullptr, nullptr));
}

// The functions of the system that take bytes end there, with the prefix for long paths too.
TEST_F(WindowsFileTest, LongerPathsAreRefused) {
  for (const std::size_t length : {std::size_t{262}, std::size_t{300}, std::size_t{2000}}) {
    for (const std::string& start : {_dir.Path() + "/", "\\\\?\\" + QsTranslateFilename(_dir.Path()) + "\\"}) {
      const std::string path = start + std::string(length - start.size(), 'x');
      const auto refused = [](bool result) { return !result && QsGetLastError() == ERROR_FILENAME_EXCED_RANGE; };
      LogCapture log;
      std::string out;
      EXPECT_TRUE(refused(QsLoadFilePart(path, 0, -1, out)));
      EXPECT_TRUE(refused(SaveBinaryFile(path, "x", true)));
      EXPECT_TRUE(refused(QsDeleteFile(path, true)));
      EXPECT_TRUE(refused(QsCreateDirectory(path.c_str())));
      EXPECT_TRUE(refused(QsTouchFile(path)));
      EXPECT_FALSE(QsAtomicSaveBinaryFile(path, "x", true));
      log.Clear();
      EXPECT_EQ(QsGetFSObjectType(path), FSO_NOTHING);
      EXPECT_THAT(log.Texts(), IsEmpty());
    }
  }
  EXPECT_THAT(NamesIn(_dir.Path()), IsEmpty());
}

// ---- Killed while saving ----

constexpr const char* kTarget = "QSBASE_TEST_TARGET";
const std::string kFirst(30000, 'A');
const std::string kSecond(70000, 'B');

// What the child process does in the place of the test.
[[noreturn]] void SaveUntilKilled(const std::string& target) {
  srand(GetCurrentProcessId());
  for (int i = 0;; ++i) {
    QsAtomicSaveBinaryFile(target, i % 2 == 0 ? kSecond : kFirst, true);  // refused while the reader looks
    if (i == 0) {
      std::ofstream(target + "-ready") << "x";
    }
  }
}

TEST(KilledSavers, LeaveTheTargetWhole) {
  const char* const target = std::getenv(kTarget);
  if (target != nullptr) {
    SaveUntilKilled(target);
  }
  const TempDir dir;
  const std::string path = dir / "target";
  const std::string ready = path + "-ready";
  ASSERT_TRUE(QsAtomicSaveBinaryFile(path, kFirst, true));
  SetEnvironment(kTarget, path);
  int firstSeen = 0;
  int secondSeen = 0;
  int leftBehind = 0;
  const auto checkTarget = [&] {
    const Opened reader(path, GENERIC_READ, kShareAll);
    if (!reader.IsOpen()) {  // refused while a new one is put in place
      return QsGetLastError() == ERROR_ACCESS_DENIED || QsGetLastError() == ERROR_SHARING_VIOLATION;
    }
    const std::string content = reader.Content();
    firstSeen += content == kFirst ? 1 : 0;
    secondSeen += content == kSecond ? 1 : 0;
    return content == kFirst || content == kSecond;
  };
  for (int round = 0; round < 40; ++round) {
    ChildTest child("KilledSavers.LeaveTheTargetWhole");
    while (!fs::exists(ready) && child.IsRunning()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (int reads = 0; reads < round % 8 + 1; ++reads) {
      EXPECT_TRUE(checkTarget());
      std::this_thread::sleep_for(std::chrono::microseconds(round * 37 % 500));
    }
    ASSERT_TRUE(child.IsRunning()) << "the child could not save";
    child.Kill();
    ASSERT_TRUE(fs::exists(path));
    EXPECT_TRUE(checkTarget());
    leftBehind += static_cast<int>(QsDeleteFiles(path + ".*", true));
    EXPECT_TRUE(QsDeleteFile(ready, false));
  }
  // Both contents and the middle of a save have been met.
  EXPECT_GT(firstSeen, 0);
  EXPECT_GT(secondSeen, 0);
  EXPECT_GT(leftBehind, 0);
}

}  // namespace
