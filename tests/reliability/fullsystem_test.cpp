// What the file operations and the log do where the system really has no more to give: a full disk, one that may only
// be read, no descriptor left, a limit of the size of files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <common/logcapture.h>
#include <common/noise.h>
#include <common/openhandles.h>
#include <common/platform.h>
#include <common/tempdir.h>

#include <reliability/common/rotatinglog.h>

#include <QSbase/errors.h>
#include <QSbase/support/bufferedfile.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/mapfile.h>
#include <QSbase/support/qsfile.h>

namespace {

namespace fs = std::filesystem;
using qsbase::testing::LogCapture;
using qsbase::testing::NamesIn;
using qsbase::testing::Noise;
using qsbase::testing::OpenHandles;
using qsbase::testing::RotatingLog;
using qsbase::testing::TempDir;

constexpr const char* kNoMount = "only root can mount a small file system, and not in every container";

const std::string kOld = "old content " + Noise(30000);
const std::string kNew = "new content " + Noise(400000);

bool IsPrefix(const std::string& part, const std::string& whole) { return whole.compare(0, part.size(), part) == 0; }

// What an operation came to: whether it says that it succeeded, and the reason if not.
struct Result {
  bool succeeded = false;
  int error = 0;
};

template <class Run>
Result ResultOf(Run run) {
  QsSetLastError(0);
  Result result;
  try {
    result.succeeded = run();
  } catch (const ExBase&) {
  }
  result.error = QsGetLastError();
  return result;
}

// A folder whose files are about to meet the end of something.
class FullSystem : public ::testing::Test {
 protected:
  // A small file system over the folder, which goes with this process.
  bool MountSmall() {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("small", _dir.Path().c_str(), "tmpfs", 0, "size=256k,mode=0777") == 0;
  }

  bool MountReadOnly() const {
    return mount("small", _dir.Path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=256k,mode=0777") == 0;
  }

  void Fill() const {
    for (const std::string& name : NamesIn(_dir.Path())) {
      fs::remove_all(_dir / name);
    }
    _dir.Write("file", kOld);
    _dir.Write("large", kNew.substr(0, 90000));
  }

  // Nothing that could be written goes wrong without a word, and what was there stays whole or says so.
  void ExpectNothingLost(int error) {
    ExpectSavingFails(error);
    ExpectAppendingFails(error);
    ExpectAtomicSavingFails(error);
    ExpectOpenFilesFail();
  }

  void ExpectSavingFails(int error) const {
    const LogCapture log;
    Fill();
    const Result saved = ResultOf([this] { return SaveBinaryFile(_file, kNew, true); });
    EXPECT_FALSE(saved.succeeded);
    EXPECT_EQ(saved.error, error);
    EXPECT_EQ(log.Messages().size(), 1U);
    EXPECT_TRUE(Content("file") == kOld || IsPrefix(Content("file"), kNew));
    Fill();
    EXPECT_FALSE(ResultOf([this] {
                   SaveFileWithCRLF(_file, kNew, true);
                   return true;
                 }).succeeded);
    EXPECT_TRUE(Content("file") == kOld || IsPrefix(Content("file"), kNew));
    Fill();
    EXPECT_EQ(CAL_WriteBufferToFile(_file.c_str(), kNew.data(), static_cast<unsigned>(kNew.size())), -2);
  }

  void ExpectAppendingFails(int error) const {
    Fill();
    const Result appended = ResultOf([this] { return AppendBinaryFile(_file, kNew); });
    EXPECT_FALSE(appended.succeeded);
    EXPECT_EQ(appended.error, error);
    EXPECT_TRUE(IsPrefix(kOld, Content("file")));
    EXPECT_TRUE(IsPrefix(Content("file"), kOld + kNew));
  }

  void ExpectAtomicSavingFails(int error) const {
    Fill();
    const Result saved = ResultOf([this] { return QsAtomicSaveBinaryFile(_file, kNew, true); });
    EXPECT_FALSE(saved.succeeded);
    EXPECT_EQ(saved.error, error);
    EXPECT_EQ(Content("file"), kOld);
    EXPECT_LE(NamesIn(_dir.Path()).size(), 3U) << "at most one temporary file";
  }

  void ExpectOpenFilesFail() const {
    Fill();
    EXPECT_FALSE(ResultOf([this] {
                   QsFile file(_file.c_str(), "wb");
                   const bool written = file.Write(kNew) == 1 && file.Flush() == 0;
                   return file.Close() == 0 && written;
                 }).succeeded);
    EXPECT_FALSE(ResultOf([this] {
                   QsWriteBufferedFile file(_file.c_str(), 4096, 0);
                   const bool written = file.Write(kNew.data(), static_cast<unsigned>(kNew.size()), 1) == 1;
                   return file.Close() == 0 && written;
                 }).succeeded);
  }

  std::string Content(const std::string& name) const { return TempDir::Read(_dir / name); }

  TempDir _dir;
  const std::string _file = _dir / "file";
};

class Limit {
 public:
  Limit(__rlimit_resource resource, rlim_t most) : _resource(resource) {
    getrlimit(_resource, &_before);
    const rlimit lowered = {most, _before.rlim_max};
    setrlimit(_resource, &lowered);
  }
  ~Limit() { setrlimit(_resource, &_before); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

 private:
  __rlimit_resource _resource;
  rlimit _before{};
};

// ---- a full disk ----

TEST_F(FullSystem, AFullDiskLosesNothingThatWasThere) {
  if (!MountSmall()) {
    GTEST_SKIP() << kNoMount;
  }
  ExpectNothingLost(ENOSPC);
}

TEST_F(FullSystem, AFullDiskLeavesFilesAndBackupsWhole) {
  if (!MountSmall()) {
    GTEST_SKIP() << kNoMount;
  }
  _dir.Write("file", kNew.substr(0, 100000));
  _dir.Write("file.bak", kOld);
  _dir.Write("ballast", std::string(90000, 'x'));
  EXPECT_EQ(FileLoadAndBackup(_file, true), kNew.substr(0, 100000));
  EXPECT_EQ(Content("file.bak"), kOld);
  EXPECT_FALSE(ResultOf([this] { return QsCopyFile(_file, _dir / "copy", true, false); }).succeeded);
  EXPECT_FALSE(fs::exists(_dir / "copy"));
  const TempDir elsewhere;
  const std::string source = elsewhere.Write("source", kNew);
  const Result moved = ResultOf([&] { return QsMoveFile(source, _dir / "moved", false, false); });
  EXPECT_FALSE(moved.succeeded);
  EXPECT_EQ(moved.error, ENOSPC);
  EXPECT_EQ(TempDir::Read(source), kNew);
  EXPECT_THAT(NamesIn(_dir.Path()), ::testing::UnorderedElementsAre("file", "file.bak", "ballast"));
}

TEST_F(FullSystem, OnAFullDiskFilesStillMoveAndGo) {
  if (!MountSmall()) {
    GTEST_SKIP() << kNoMount;
  }
  Fill();
  EXPECT_FALSE(SaveBinaryFile(_dir / "ballast", kNew, true));
  EXPECT_TRUE(RenameFile(_dir / "file", ""));
  EXPECT_EQ(Content("file_1"), kOld);
  EXPECT_TRUE(QsMoveFile(_dir / "file_1", _file, false, false));
  EXPECT_EQ(LoadBinaryFile(_file), kOld);
  EXPECT_EQ(QsDeleteFiles(_dir / "ballast*", false), 1U);
  EXPECT_TRUE(QsAtomicSaveBinaryFile(_file, kNew.substr(0, 50000), true)) << "there is room again";
  EXPECT_EQ(Content("file"), kNew.substr(0, 50000));
}

// ---- read only ----

TEST_F(FullSystem, AReadOnlyDiskStaysAsItIs) {
  if (!MountSmall()) {
    GTEST_SKIP() << kNoMount;
  }
  Fill();
  ASSERT_TRUE(MountReadOnly());
  const std::vector<std::function<bool()>> operations = {
      [this] { return SaveBinaryFile(_file, kNew, true); },
      [this] { return AppendBinaryFile(_file, kNew); },
      [this] { return ClearBinaryFile(_file); },
      [this] { return QsAtomicSaveBinaryFile(_file, kNew, true); },
      [this] { return QsCopyFile(_file, _dir / "copy", true, false); },
      [this] { return QsMoveFile(_file, _dir / "moved", false, false); },
      [this] { return RenameFile(_file, ""); },
      [this] { return QsDeleteFile(_file, true); },
      [this] { return ForceCreateDirectories(_dir / "folder"); },
      [this] { return QsTouchFile(_file); },
      [this] { return TestCreateFile(_dir / "made"); },
      [this] { return QsWriteBufferedFile().Open(_file.c_str(), 10, 0); },
      [this] { return QsFile().Reset(_file.c_str()); },
      [this] { return QsDeleteDirectoryRecurse(_dir.Path(), false, -1, true, nullptr, true); },
  };
  for (std::size_t i = 0; i < operations.size(); ++i) {
    const Result result = ResultOf(operations[i]);
    EXPECT_FALSE(result.succeeded) << i;
    EXPECT_EQ(result.error, EROFS) << i;
  }
  EXPECT_EQ(QsDeleteFiles(_dir / "*", true), 0U);
  EXPECT_EQ(QsCleanupDirectory(_dir.Path() + "/", 0, "*", true), 0U);
  QsMapFile map;
  EXPECT_THROW(map.Open(_file, false), ExBase);
  EXPECT_NO_THROW(map.Open(_file, true));
  EXPECT_EQ(LoadBinaryFile(_file), kOld);
  EXPECT_EQ(FileLoadAndBackup(_file, true), kOld) << "without a backup";
  EXPECT_THAT(NamesIn(_dir.Path()), ::testing::UnorderedElementsAre("file", "large"));
}

// ---- no descriptor left ----

TEST_F(FullSystem, WithoutADescriptorNothingIsTouched) {
  Fill();
  const std::vector<std::function<bool()>> operations = {
      [this] { return SaveBinaryFile(_file, kNew, true); },
      [this] { return AppendBinaryFile(_file, kNew); },
      [this] { return ClearBinaryFile(_file); },
      [this] { return QsAtomicSaveBinaryFile(_file, kNew, true); },
      [this] { return QsCopyFile(_file, _dir / "copy", true, false); },
      [this] { return TestCreateFile(_dir / "made"); },
      [this] { return !LoadBinaryFile(_file).empty(); },
      [this] { return QsWriteBufferedFile().Open(_file.c_str(), 10, 0); },
      [this] { return QsFile().Open(_file.c_str(), "rb"); },
  };
  const std::size_t open = OpenHandles().size();
  {
    const Limit noMore(RLIMIT_NOFILE, 0);
    for (std::size_t i = 0; i < operations.size(); ++i) {
      const Result result = ResultOf(operations[i]);
      EXPECT_FALSE(result.succeeded) << i;
      EXPECT_EQ(result.error, EMFILE) << i;
    }
    EXPECT_EQ(QsGetDirEntryCount(_dir.Path()), 0U);
    EXPECT_EQ(QsDeleteFiles(_dir / "*", true), 0U);
    EXPECT_TRUE(QsMoveFile(_file, _dir / "moved", false, false)) << "needs none";
    EXPECT_TRUE(QsMoveFile(_dir / "moved", _file, false, false));
  }
  EXPECT_EQ(OpenHandles().size(), open);
  EXPECT_EQ(Content("file"), kOld);
  EXPECT_THAT(NamesIn(_dir.Path()), ::testing::UnorderedElementsAre("file", "large"));
}

// ---- a limit of the size ----

TEST_F(FullSystem, ALimitOfTheSizeLosesNothingThatWasThere) {
  std::signal(SIGXFSZ, SIG_IGN);
  const Limit limit(RLIMIT_FSIZE, 100000);
  ExpectNothingLost(EFBIG);
}

// ---- the log ----

class FullLog : public FullSystem {
 protected:
  static std::string Line(int number) { return std::to_string(number) + " " + std::string(1000, 'x') + " end"; }

  static void Log(int from, int to) {
    for (int number = from; number < to; ++number) {
      QsLogMsg(0x10000000, Line(number));
    }
  }

  // Every line in the log and its backups is one that was logged, or the start of one at a place where the disk was
  // full. Those that are whole.
  std::vector<int> WholeLines() const {
    std::vector<int> numbers;
    for (const std::string& file : _log.Files()) {
      std::istringstream content(TempDir::Read(file));
      for (std::string line; std::getline(content, line);) {
        const int number = std::atoi(line.c_str());
        EXPECT_TRUE(IsPrefix(line, Line(number))) << line.substr(0, 30) << "..." << line.size();
        if (line == Line(number)) {
          numbers.push_back(number);
        }
      }
    }
    return numbers;
  }

  static std::vector<int> Range(int from, int to) {
    std::vector<int> numbers;
    for (int number = from; number < to; ++number) {
      numbers.push_back(number);
    }
    return numbers;
  }

  // The disk takes so many bytes of the file, while the buffer of the stream holds 16 KiB, which are 17 lines.
  void ExpectToLoseTheBufferAt(rlim_t size) const {
    std::signal(SIGXFSZ, SIG_IGN);
    QsSetLogLevel(1);
    _log.Init();
    Log(0, 50);
    {
      const Limit limit(RLIMIT_FSIZE, size);
      Log(50, 80);
    }
    Log(80, 95);
    {
      const LogCapture swallow;
      QsSetLogLevel(0);
    }
    Log(95, 96);  // this one is written at once, with those before
    const std::vector<int> lines = WholeLines();
    EXPECT_EQ(std::vector<int>(lines.begin(), lines.begin() + 33), Range(0, 33));
    EXPECT_EQ(std::vector<int>(lines.end() - 16, lines.end()), Range(80, 96));
    EXPECT_LT(lines.size(), 96U) << "the limit met no line";
  }

  const RotatingLog _log{_dir};
};

TEST_F(FullLog, GoesOnWhereTheDiskWasFull) {
  if (!MountSmall()) {
    GTEST_SKIP() << kNoMount;
  }
  _log.Init();
  _dir.Write("ballast", std::string(150000, 'b'));
  Log(0, 50);
  EXPECT_EQ(WholeLines(), Range(0, 50));
  Log(50, 200);  // through a rotation, and more than there is room for
  const std::vector<int> full = WholeLines();
  EXPECT_EQ(std::vector<int>(full.begin(), full.begin() + 50), Range(0, 50));
  EXPECT_LT(full.size(), 200U);
  fs::remove(_dir / "ballast");
  Log(200, 220);
  const std::vector<int> after = WholeLines();
  ASSERT_GE(after.size(), full.size() + 20);
  EXPECT_EQ(std::vector<int>(after.end() - 20, after.end()), Range(200, 220));
}

TEST_F(FullLog, GoesOnWhereThereWasNoDescriptor) {
  _log.Init();
  Log(0, 103);  // it is full: the next line rotates
  {
    const Limit noMore(RLIMIT_NOFILE, 0);
    Log(103, 110);
  }
  EXPECT_EQ(WholeLines(), Range(0, 103));
  Log(200, 210);
  std::vector<int> expected = Range(0, 103);
  const std::vector<int> after = Range(200, 210);
  expected.insert(expected.end(), after.begin(), after.end());
  EXPECT_EQ(WholeLines(), expected);
}

TEST_F(FullLog, GoesOnWhereTheDiskWasReadOnly) {
  if (!MountSmall()) {
    GTEST_SKIP() << kNoMount;
  }
  fs::create_directory(_dir / "log");
  ASSERT_TRUE(MountReadOnly());
  _log.Init();
  Log(0, 10);
  EXPECT_FALSE(fs::exists(_log.Path()));
  ASSERT_EQ(mount("small", _dir.Path().c_str(), "tmpfs", MS_REMOUNT, "size=256k,mode=0777"), 0);
  Log(10, 20);
  EXPECT_EQ(WholeLines(), Range(10, 20));
}

TEST_F(FullLog, KeepsWhatFitsUnderALimitOfTheSize) {
  std::signal(SIGXFSZ, SIG_IGN);
  _log.Init();
  {
    const Limit limit(RLIMIT_FSIZE, 30000);
    Log(0, 50);
    const std::vector<int> fitting = WholeLines();
    EXPECT_EQ(fitting, Range(0, static_cast<int>(fitting.size())));
    EXPECT_GE(fitting.size(), 28U);
  }
  Log(50, 60);
  const std::vector<int> after = WholeLines();
  EXPECT_EQ(std::vector<int>(after.end() - 10, after.end()), Range(50, 60));
}

TEST_F(FullLog, AtAHigherLevelLosesOnlyWhatItsBufferHeld) { ExpectToLoseTheBufferAt(20000); }

TEST_F(FullLog, AtAHigherLevelALineThatIsCutEndsThere) { ExpectToLoseTheBufferAt(55000); }

}  // namespace
