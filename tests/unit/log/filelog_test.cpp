#include <QSbase/errors.h>
#include <QSbase/log/filelog.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logfileos.h>
#include <QSbase/log/logstage.h>
#include <QSbase/process.h>

#include <common/cancellation.h>
#include <common/logcapture.h>
#include <common/platform.h>
#include <common/sanitized.h>
#include <common/tempdir.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <io.h>
#else
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using qsbase::testing::kOnWindows;
using qsbase::testing::LogCapture;
using qsbase::testing::RemoveEnvironment;
using qsbase::testing::SetEnvironment;
using qsbase::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr unsigned int kInfo = 0x10000000;
constexpr std::uint32_t kSmallest = 102400;
constexpr const char* kInvalid =
    "InitLog: FileLoggingConfig is invalid or not completely set up! -> FileLogging is now DISABLED!";

/// What ends a line in a text file.
const std::string kLineEnd = kOnWindows ? "\r\n" : "\n";

/// Lines that end otherwise keep what they have of a line end.
std::vector<std::string> Lines(const std::string& content) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = content.find(kLineEnd, start)) != std::string::npos; start = end + kLineEnd.size()) {
    lines.push_back(content.substr(start, end - start));
  }
  EXPECT_EQ(start, content.size()) << "the last line has no end";
  return lines;
}

/// Every digit as a 9.
std::string Shape(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
  return text;
}

/// The line as it is, so that tests see what they logged.
bool JustTheText(const MsgEntry& entry, std::string& line) {
  line = entry.text;
  return true;
}

void Log(const std::string& text) { QsLogMsg(kInfo, text); }

class FileLog : public ::testing::Test {
 protected:
  FileLog() {
    fs::create_directory(_dir / "log");
    config.enabled = true;
    config.logDirectory = _dir / "log";
    config.logFileName = "my app.log";
    config.backupDirectory = _dir / "backup";
    config.lineFormatter = &JustTheText;
  }

  std::string LogPath() const { return _dir / "log/my app.log"; }
  std::vector<std::string> LogLines() const { return Lines(TempDir::Read(LogPath())); }

  /// The paths of the backups, oldest name first.
  std::vector<std::string> Backups() const {
    std::vector<std::string> paths;
    std::error_code missing;
    for (const fs::directory_entry& entry : fs::directory_iterator(_dir / "backup", missing)) {
      paths.push_back(entry.path().string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
  }

  TempDir _dir;
  FileLoggingConfig config;
};

// ---- configuration ----

TEST(FileLoggingConfig, HasItsDefaults) {
  const FileLoggingConfig config;
  EXPECT_FALSE(config.enabled);
  EXPECT_EQ(config.logDirectory + config.logFileName + config.backupDirectory, "");
  EXPECT_EQ(config.maxBackupFiles, 200U);
  EXPECT_EQ(config.maxFileSize, 5242880U);
  EXPECT_EQ(config.lineFormatter, &DefaultLogLineFormatter);
}

TEST_F(FileLog, CopiesOfAConfigurationAreIndependent) {
  FileLoggingConfig copy(config);
  config.logFileName = "other";
  EXPECT_EQ(copy.logFileName, "my app.log");
  copy = config;
  EXPECT_EQ(copy.logFileName, "other");
  EXPECT_EQ(copy.lineFormatter, &JustTheText);
}

TEST_F(FileLog, ASecondInitIsIgnoredEntirely) {
  InitLogConfig(config, false);
  FileLoggingConfig second;
  second.logDirectory = _dir.Path();
  testing::internal::CaptureStdout();
  const LogCapture log;
  InitLogConfig(second, true);
  DisableLogCallbacks();
  Log("text");
  std::fflush(stdout);
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(GetLogLineFormatter(), &JustTheText);
  EXPECT_THAT(LogLines(), ElementsAre("text"));
}

TEST_F(FileLog, AnInvalidSecondInitLogsNothing) {
  InitLogConfig(config, false);
  const LogCapture log;
  config.backupDirectory.clear();
  InitLogConfig(config, false);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

void ExpectDisabled(const FileLoggingConfig& config, const TempDir& dir) {
  {
    const LogCapture log;
    InitLogConfig(config, false);
    ASSERT_THAT(log.Texts(), ElementsAre(kInvalid));
    EXPECT_EQ(log.Messages()[0].flags, 0x40000000U);
  }
  Log("text");
  SetEnabledLog(true, false);
  Log("text");
  const auto files = std::distance(fs::recursive_directory_iterator(dir.Path()), fs::recursive_directory_iterator());
  EXPECT_EQ(files, 1) << "only the log directory itself";
}

TEST_F(FileLog, AnEmptyBackupDirectoryDisablesIt) {
  config.backupDirectory.clear();
  ExpectDisabled(config, _dir);
}

TEST_F(FileLog, AnEmptyLogDirectoryDisablesIt) {
  config.logDirectory.clear();
  ExpectDisabled(config, _dir);
}

TEST_F(FileLog, AnEmptyFileNameDisablesIt) {
  config.logFileName.clear();
  ExpectDisabled(config, _dir);
}

TEST_F(FileLog, TheErrorOfAnInvalidConfigurationReachesTheConsole) {
  config.backupDirectory.clear();
  testing::internal::CaptureStdout();
  InitLogConfig(config, true);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kInvalid);
}

TEST_F(FileLog, ACallbackThatConfiguresAgainChangesNothing) {
  static int calls;
  static FileLoggingConfig invalid;
  invalid = config;
  invalid.logFileName.clear();
  SetLogCallback([](unsigned int, const char*) {
    ++calls;
    InitLogConfig(invalid, false);
  });
  InitLogConfig(invalid, false);
  EXPECT_EQ(calls, 1);
}

TEST_F(FileLog, ATooSmallSizeIsRaised) {
  config.maxFileSize = 1000;
  InitLogConfig(config, false);
  const std::string line(1024 - kLineEnd.size(), 'x');
  for (std::uint32_t i = 0; i < kSmallest / 1024; ++i) {
    Log(line);
  }
  EXPECT_EQ(fs::file_size(LogPath()), kSmallest);
  Log("finds it full");
  EXPECT_THAT(Backups(), IsEmpty());
  Log("rotates");
  ASSERT_EQ(Backups().size(), 1U);
  EXPECT_EQ(Lines(TempDir::Read(Backups()[0])).back(), "finds it full");
  EXPECT_THAT(LogLines(), ElementsAre("rotates"));
}

TEST_F(FileLog, NoBackupsCountsAsOne) {
  config.maxBackupFiles = 0;
  _dir.Write("backup/a", "a");
  _dir.Write("backup/b", "b");
  InitLogConfig(config, false);
  Log("text");
  EXPECT_EQ(Backups().size(), 1U);
}

TEST_F(FileLog, ValuesAreKeptWhenFileLoggingIsNotRequested) {
  config.enabled = false;
  config.maxFileSize = 1;
  InitLogConfig(config, false);
  Log("off");
  EXPECT_FALSE(fs::exists(LogPath()));
  SetEnabledLog(true, false);
  Log("finds it full");
  Log("rotates");
  ASSERT_EQ(Backups().size(), 1U);
  EXPECT_THAT(Lines(TempDir::Read(Backups()[0])), ElementsAre("Set FileLogging to Enabled", "finds it full"));
  EXPECT_THAT(LogLines(), ElementsAre("rotates"));
}

// ---- switching ----

TEST_F(FileLog, SwitchingIsReportedAfterwards) {
  InitLogConfig(config, false);
  SetEnabledLog(true, false);
  Log("on");
  SetEnabledLog(false, false);
  Log("off");
  SetEnabledLog(true, false);
  SetEnabledLog(true, false);
  EXPECT_THAT(LogLines(), ElementsAre("on", "Set FileLogging to Enabled"));
}

TEST_F(FileLog, SwitchingTheConsoleIsReportedAfterwards) {
  SetLogLineFormatter(&JustTheText);
  testing::internal::CaptureStdout();
  SetEnabledLog(false, true);
  SetEnabledLog(false, true);
  SetEnabledLog(false, false);
  Log("off");
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Set Console Logging to Enabled");
}

TEST_F(FileLog, SwitchingReportsTheFileFirstAndAtLevel4) {
  const LogCapture log;
  SetEnabledLog(true, true);
  SetEnabledLog(false, false);
  EXPECT_THAT(log.Texts(), ElementsAre("Set FileLogging to Enabled", "Set Console Logging to Enabled",
                                       "Set FileLogging to Disabled", "Set Console Logging to Disabled"));
  for (const LogCapture::Message& message : log.Messages()) {
    EXPECT_EQ(message.flags, 0x10000004U);
  }
}

TEST_F(FileLog, WithoutAConfigurationNothingIsWrittenOrDeleted) {
  _dir.Write("precious", "content");
  const fs::path before = fs::current_path();
  fs::current_path(_dir.Path());
  SetEnabledLog(true, false);
  Log("text");
  fs::current_path(before);
  EXPECT_EQ(TempDir::Read(_dir / "precious"), "content");
  const auto files = std::distance(fs::recursive_directory_iterator(_dir.Path()), fs::recursive_directory_iterator());
  EXPECT_EQ(files, 2) << "the file and the empty log directory";
}

// ---- lines ----

TEST_F(FileLog, LineEndsInATextBecomeBlanksInTheFileOnly) {
  testing::internal::CaptureStdout();
  InitLogConfig(config, true);
  Log("a\nb\r\nc\n");
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "a\nb\r\nc\n");
  EXPECT_EQ(TempDir::Read(LogPath()), "a b  c " + kLineEnd);
}

TEST_F(FileLog, TheDefaultLineEndsInThreadBlankLineFeed) {
  config.lineFormatter = &DefaultLogLineFormatter;
  InitLogConfig(config, false);
  Log("text");
  const std::string line = TempDir::Read(LogPath());
  EXPECT_EQ(line.substr(line.find('\t')), "\tI\ttext\t0\t" + std::to_string(QsGetCurrentThreadId()) + " " + kLineEnd);
}

TEST_F(FileLog, ZeroBytesAndLongTextsReachTheFile) {
  InitLogConfig(config, false);
  const std::string zero("a\0b", 3);
  const std::string text(3000000, 'x');
  Log(zero);
  Log(text);
  EXPECT_THAT(LogLines(), ElementsAre(zero, text));
}

TEST_F(FileLog, AnEmptyLineIsNotWritten) {
  InitLogConfig(config, false);
  DoLogMsg("");
  EXPECT_FALSE(fs::exists(LogPath()));
  DoLogMsg("x");
  EXPECT_THAT(LogLines(), ElementsAre("x"));
}

TEST_F(FileLog, LinesAreFlushedAtLevel0Only) {
  InitLogConfig(config, false);
  Log("one");
  EXPECT_EQ(TempDir::Read(LogPath()), "one" + kLineEnd);
  QsSetLogLevel(3);
  EXPECT_THAT(LogLines(), ElementsAre("one", "Setting Log Level to 3"));
  Log("two");
  EXPECT_EQ(LogLines().size(), 2U);
  QsSetLogLevel(0);
  Log("three");
  EXPECT_THAT(LogLines(), ElementsAre("one", "Setting Log Level to 3", "two", "Setting Log Level to 0", "three"));
}

TEST_F(FileLog, UnflushedLinesCountForTheSize) {
  config.maxFileSize = kSmallest;
  InitLogConfig(config, false);
  QsSetLogLevel(3);
  const std::string line(100 - kLineEnd.size(), 'x');
  for (std::uint32_t i = 0; i < kSmallest / 100; ++i) {
    Log(line);
  }
  Log("finds it full");
  EXPECT_THAT(Backups(), IsEmpty());
  Log("rotates");
  ASSERT_EQ(Backups().size(), 1U);
  const std::size_t others = ("Setting Log Level to 3" + kLineEnd + "finds it full" + kLineEnd).size();
  EXPECT_EQ(fs::file_size(Backups()[0]), kSmallest + others);
}

TEST_F(FileLog, WhatAnotherProcessAppendsCountsForTheSize) {
  config.maxFileSize = kSmallest;
  InitLogConfig(config, false);
  Log("one");
  std::ofstream(LogPath(), std::ios::app | std::ios::binary) << std::string(kSmallest, 'x') << kLineEnd;
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  Log("finds it full");
  EXPECT_THAT(Backups(), IsEmpty());
  Log("rotates");
  ASSERT_EQ(Backups().size(), 1U);
  EXPECT_EQ(Lines(TempDir::Read(Backups()[0])).back(), "finds it full");
  EXPECT_THAT(LogLines(), ElementsAre("rotates"));
}

// ---- rotation ----

TEST_F(FileLog, TheFirstLineMovesTheFileOfThePreviousRun) {
  _dir.Write("log/my app.log", "previous run\n");
  InitLogConfig(config, false);
  EXPECT_EQ(TempDir::Read(LogPath()), "previous run\n") << "nothing happens before the first line";
  Log("text");
  ASSERT_EQ(Backups().size(), 1U);
  EXPECT_EQ(TempDir::Read(Backups()[0]), "previous run\n");
  EXPECT_THAT(LogLines(), ElementsAre("text"));
  EXPECT_EQ(Shape(fs::path(Backups()[0]).filename().string()), "9999-99-99_99_99_99.999_my_app.log");
}

TEST_F(FileLog, TheDirectoriesAreUsedAsGiven) {
  // Made compatible it would be another: "\" before a drive or at the start, "con", ":" and ".." are replaced.
  config.backupDirectory = kOnWindows ? _dir / "log/../old logs/" : _dir / "old logs/con/a:b/";
  _dir.Write("log/my app.log", "previous run\n");
  InitLogConfig(config, false);
  Log("text");
  std::vector<std::string> backups;
  for (const fs::directory_entry& entry : fs::directory_iterator(config.backupDirectory)) {
    backups.push_back(TempDir::Read(entry.path().string()));
  }
  EXPECT_THAT(backups, ElementsAre("previous run\n"));
}

TEST_F(FileLog, AMissingFileIsNoErrorWorthReporting) {
  InitLogConfig(config, false);
  Log("text");
  EXPECT_THAT(LogLines(), ElementsAre("text"));
  EXPECT_TRUE(fs::is_directory(_dir / "backup"));
  EXPECT_THAT(Backups(), IsEmpty());
}

TEST_F(FileLog, TheBackupDirectoryIsTrimmedBeforeEachRotation) {
  config.maxBackupFiles = 5;
  config.maxFileSize = kSmallest;
  for (int i = 0; i < 12; ++i) {
    _dir.Write(std::string("backup/old").append(std::to_string(i)), "x");
  }
  _dir.Write("log/my app.log", "previous run\n");
  InitLogConfig(config, false);
  const std::string big(kSmallest, 'x');
  for (int i = 0; i < 20; ++i) {
    Log(big);
    ASSERT_EQ(Backups().size(), 6U) << "five and the one that was added";
    Log("finds it full");
  }
}

TEST_F(FileLog, BackupsOfOneMillisecondLoseNothing) {
  config.enabled = false;
  config.maxFileSize = 1;
  config.maxBackupFiles = 100000;
  InitLogConfig(config, false);
  SetEnabledLog(true, false);
  for (int i = 0; i < 400; ++i) {
    Log(std::to_string(i));
  }
  std::vector<bool> seen(400);
  std::vector<std::string> paths = Backups();
  EXPECT_EQ(paths.size(), 200U);
  paths.push_back(LogPath());
  for (const std::string& path : paths) {
    for (const std::string& line : Lines(TempDir::Read(path))) {
      if (line != "Set FileLogging to Enabled") {
        seen.at(static_cast<std::size_t>(std::stoi(line))) = true;
      }
    }
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 400);
}

TEST_F(FileLog, ATakenBackupNameIsLeftAlone) {
  const auto move = [this](const std::string& content) {
    const std::string current = _dir.Write("log/my app.log", content);
    qsbase::detail::MoveToBackup(current, _dir / "backup/", "2013-02-13 10:11:12.250", "my app.log");
    EXPECT_FALSE(fs::exists(current));
  };
  fs::create_directory(_dir / "backup");
  move("first");
  move("second");
  move("third");
  EXPECT_EQ(TempDir::Read(_dir / "backup/2013-02-13_10_11_12.250_my_app.log"), "first");
  EXPECT_EQ(TempDir::Read(_dir / "backup/2013-02-13_10_11_12.250_2_my_app.log"), "second");
  EXPECT_EQ(TempDir::Read(_dir / "backup/2013-02-13_10_11_12.250_3_my_app.log"), "third");
}

TEST_F(FileLog, AFileThatCannotBeMovedStays) {
  const std::string current = _dir.Write("log/my app.log", "content");
  qsbase::detail::MoveToBackup(current, _dir / "missing/", "2013-02-13 10:11:12.250", "my app.log");
  EXPECT_EQ(TempDir::Read(current), "content");
}

TEST_F(FileLog, WhatRotationLogsGoesToTheNewFile) {
  config.maxBackupFiles = 1;
  for (const char* const name : {"backup/a", "backup/b", "backup/c"}) {
    _dir.Write(name, "x");
  }
  InitLogConfig(config, false);
  {
    const LogCapture swallow;
    QsSetLogLevel(4);
  }
  Log("rotates");
  QsSetLogLevel(0);
  Log("end");
  const std::vector<std::string> lines = LogLines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0], "rotates");
  EXPECT_THAT(lines[1], StartsWith("QsCleanupDirectory deleted file '"));
  EXPECT_THAT(lines[2], StartsWith("QsCleanupDirectory deleted file '"));
  EXPECT_EQ(lines[3], "Setting Log Level to 0");
  EXPECT_EQ(lines[4], "end");
}

TEST_F(FileLog, CallbacksRunOutsideTheLockOfTheFile) {
  config.maxBackupFiles = 1;
  _dir.Write("backup/a", "x");
  _dir.Write("backup/b", "x");
  InitLogConfig(config, false);
  static std::vector<std::string> texts;
  SetLogCallback([](unsigned int, const char* text) {
    texts.push_back(text);
    std::thread([] { DoLogMsg("from another thread\n"); }).join();  // needs the lock
  });
  // Straight to the outputs, so that it rotates although a callback is enabled.
  DisableLogCallbacks();
  {
    const LogCapture swallow;
    QsSetLogLevel(4);
  }
  EnableLogCallbacks();
  DoLogMsg("rotates\n");
  ASSERT_EQ(texts.size(), 1U);
  EXPECT_THAT(texts[0], StartsWith("QsCleanupDirectory deleted file '"));
  DisableLogCallbacks();
  QsSetLogLevel(0);
  DoLogMsg("end\n");
  EXPECT_THAT(LogLines(), ElementsAre("rotates ", "from another thread ", "Setting Log Level to 0", "end "));
}

TEST_F(FileLog, LoggingLeavesTheLastErrorAlone) {
  config.maxFileSize = kSmallest;
  InitLogConfig(config, false);
  const std::string big(kSmallest, 'x');
  for (int i = 0; i < 6; ++i) {
    QsSetLastError(77);
    Log(big);
    EXPECT_EQ(QsGetLastError(), 77);
    DoLogMsg("text");
    EXPECT_EQ(QsGetLastError(), 77);
  }
  SetEnabledLog(false, false);
  EXPECT_EQ(QsGetLastError(), 77);
}

TEST_F(FileLog, AFileThatCannotBeOpenedReceivesNothing) {
  fs::remove(_dir / "log");
  InitLogConfig(config, false);
  EXPECT_NO_THROW(Log("text"));
  EXPECT_NO_THROW(Log("text"));
  EXPECT_FALSE(fs::exists(LogPath()));
}

TEST_F(FileLog, AFileThatCouldNotBeOpenedReceivesTheFirstLineThatFindsItsFolder) {
  fs::remove(_dir / "log");
  InitLogConfig(config, false);
  Log("lost");
  Log("lost too");
  fs::create_directory(_dir / "log");
  Log("one");
  Log("two");
  EXPECT_THAT(LogLines(), ElementsAre("one", "two"));
  EXPECT_THAT(Backups(), IsEmpty());
}

// Every line tries that, and would look for old backups and say what a rotation has to say.
TEST_F(FileLog, AFileThatCannotBeOpenedIsTriedAgainWithoutARotation) {
  fs::remove(_dir / "log");
  _dir.Write("log", "a file in the place of the folder");
  config.maxBackupFiles = 1;
  InitLogConfig(config, true);
  testing::internal::CaptureStdout();
  Log("one");
  _dir.Write("backup/a", "x");
  _dir.Write("backup/b", "x");
  Log("two");
  Log("three");
  std::fflush(stdout);
  EXPECT_THAT(testing::internal::GetCapturedStdout(), ::testing::EndsWith("twothree"));
  EXPECT_EQ(Backups().size(), 2U) << "not trimmed";
  fs::remove(_dir / "log");
  fs::create_directory(_dir / "log");
  Log("four");
  EXPECT_THAT(LogLines(), ElementsAre("four"));
}

TEST_F(FileLog, ADirectoryInThePlaceOfTheFileIsMovedLikeOne) {
  fs::create_directory(LogPath());
  _dir.Write("log/my app.log/inside", "x");
  InitLogConfig(config, false);
  EXPECT_NO_THROW(Log("one"));
  EXPECT_NO_THROW(Log("two"));
  ASSERT_EQ(Backups().size(), 1U) << "moved out of the way";
  EXPECT_EQ(TempDir::Read(Backups()[0] + "/inside"), "x");
  EXPECT_THAT(LogLines(), ElementsAre("one", "two"));
}

TEST_F(FileLog, AReadOnlyFileOfThePreviousRunIsMoved) {
  const std::string path = _dir.Write("log/my app.log", "previous run\n");
  qsbase::testing::SetReadOnly(path, true);
  InitLogConfig(config, false);
  Log("text");
  ASSERT_EQ(Backups().size(), 1U);
  EXPECT_EQ(TempDir::Read(Backups()[0]), "previous run\n");
  EXPECT_THAT(LogLines(), ElementsAre("text"));
}

// Windows moves no file that somebody holds open for reading or writing only. Elsewhere it moves along with its reader.
TEST_F(FileLog, AFileThatIsHeldOpenLosesNothing) {
  config.maxFileSize = kSmallest;
  const std::string path = _dir.Write("log/my app.log", "previous run" + kLineEnd);
  std::FILE* const reader = std::fopen(path.c_str(), "rb");
  ASSERT_NE(reader, nullptr);
  InitLogConfig(config, false);
  const std::string big(kSmallest, 'x');
  QsSetLastError(77);
  for (const std::string& text : {std::string("first"), big, std::string("finds it full"), std::string("rotates")}) {
    Log(text);
    EXPECT_EQ(QsGetLastError(), 77);
  }
  if (kOnWindows) {
    EXPECT_THAT(Backups(), IsEmpty());
    EXPECT_THAT(LogLines(), ElementsAre("previous run", "first", big, "finds it full", "rotates"));
  } else {
    EXPECT_EQ(Backups().size(), 2U);
  }
  std::fclose(reader);
  Log("end");
  EXPECT_EQ(Backups().size(), kOnWindows ? 1U : 2U);
  EXPECT_EQ(LogLines().back(), "end");
}

/// The lowest free descriptor: the next file that is opened has it.
int NextDescriptor() {
  std::FILE* const probe = std::fopen(kOnWindows ? "NUL" : "/dev/null", "r");
  EXPECT_NE(probe, nullptr);
  const int descriptor = fileno(probe);
  std::fclose(probe);
  return descriptor;
}

TEST_F(FileLog, AFailedPositionQueryDoesNotRotate) {
  InitLogConfig(config, false);
  const int descriptor = NextDescriptor();
  Log("text");
  ASSERT_EQ(close(descriptor), 0);
  Log("lost");
  Log("lost");
  Log("lost");
  EXPECT_THAT(Backups(), IsEmpty());
  EXPECT_EQ(TempDir::Read(LogPath()), "text" + kLineEnd);
}

/// The folder of the run that ends, from the one that started it.
constexpr const char* kEndedIn = "QSBASE_TEST_ENDED_IN";

std::string AllLines(const std::string& path) {
  std::string all;
  for (const std::string& line : Lines(TempDir::Read(path))) {
    all += line + ";";
  }
  return all;
}

/// Made before the log file, so that it goes after the library has let go of that.
struct LastLogger {
  ~LastLogger() {
    const std::string before = AllLines(path);
    Log("after");
    std::fprintf(stderr, "then %s now %s", before.c_str(), AllLines(path).c_str());
  }
  std::string path;
};

void StartLog(const std::string& dir) {
  FileLoggingConfig config;
  config.enabled = true;
  config.logDirectory = dir;
  config.logFileName = "a.log";
  config.backupDirectory = dir + "/backup";
  config.lineFormatter = &JustTheText;
  QsSetLogLevel(3);
  InitLogConfig(config, false);
}

/// The run that ends comes by the test, too.
struct FolderOfBothRuns {
  FolderOfBothRuns() {
    if (std::getenv(kEndedIn) == nullptr) {
      dir = std::make_unique<TempDir>();
      SetEnvironment(kEndedIn, dir->Path());
    }
    path = std::getenv(kEndedIn);
  }
  ~FolderOfBothRuns() {
    if (dir) {
      RemoveEnvironment(kEndedIn);
    }
  }
  FolderOfBothRuns(const FolderOfBothRuns&) = delete;
  FolderOfBothRuns& operator=(const FolderOfBothRuns&) = delete;

  std::unique_ptr<TempDir> dir;
  std::string path;
};

[[noreturn]] void LogToTheEnd(const std::string& dir) {
  static const LastLogger last{dir + "/a.log"};
  StartLog(dir);
  Log("before");
  std::exit(0);
}

TEST(FileLogDeathTest, TheEndOfTheProcessClosesTheFileAndLaterLinesStillReachIt) {
  ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const FolderOfBothRuns dir;
  EXPECT_EXIT(LogToTheEnd(dir.path), ::testing::ExitedWithCode(0), "then before; now before;after;");
}

#ifndef _WIN32  // no limit of a file's size there
/// What the C library may write into a file from now on; the rest of the buffer is lost. Gone with the last logger.
constexpr rlim_t kRoom = 3;

struct LastLoggerWithRoom : LastLogger {
  ~LastLoggerWithRoom() {
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
};

[[noreturn]] void LogToTheEndWithoutRoom(const std::string& dir) {
  static const LastLoggerWithRoom last{{dir + "/a.log"}};
  StartLog(dir);
  Log("before");
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = kRoom;
  setrlimit(RLIMIT_FSIZE, &limit);
  std::exit(0);
}

TEST(FileLogDeathTest, ALineBehindOneThatTheEndCutStandsByItself) {
  ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const FolderOfBothRuns dir;
  EXPECT_EXIT(LogToTheEndWithoutRoom(dir.path), ::testing::ExitedWithCode(0), "then  now bef;after;");
}
#endif

TEST(OsStreamFileSize, CountsWhatIsInTheFileAndFailsWithMinusOne) {
  const TempDir dir;
  const std::string path = dir.Write("file", "12345");
  std::FILE* const stream = std::fopen(path.c_str(), "a");
  ASSERT_NE(stream, nullptr);
  std::fputs("678", stream);
  EXPECT_EQ(qsbase::detail::OsStreamFileSize(stream), 5);
  std::fflush(stream);
  EXPECT_EQ(qsbase::detail::OsStreamFileSize(stream), 8);
  close(fileno(stream));
  EXPECT_EQ(qsbase::detail::OsStreamFileSize(stream), -1);
  std::fclose(stream);
}

TEST(OsStreamFileSize, CountsBeyondWhat32BitsHold) {
  constexpr std::int64_t kSize = (std::int64_t{5} << 30) + 3;
  const TempDir dir;
  const std::string path = dir.Write("file", "");
  qsbase::testing::Resize(path, kSize);
  std::FILE* const stream = std::fopen(path.c_str(), "a");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(qsbase::detail::OsStreamFileSize(stream), kSize);
  std::fclose(stream);
}

TEST(OsLineFeedLength, IsWhatTextModeWrites) {
  const TempDir dir;
  const std::string path = dir / "file";
  std::FILE* const stream = std::fopen(path.c_str(), "a");
  ASSERT_NE(stream, nullptr);
  std::fputs("a\nb\n", stream);
  std::fclose(stream);
  EXPECT_EQ(fs::file_size(path), 2 + 2 * qsbase::detail::OsLineFeedLength());
}

// No process forks on Windows.
#ifndef _WIN32

/// Runs \p body in a forked child; false when it does not come to its end within seconds.
template <typename Body>
bool EndsInAChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    body();
    _exit(0);
  }
  int status = -1;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

TEST_F(FileLog, AForkedChildMayLogWhileThreadsOfItsParentDo) {
#ifdef QSBASE_TESTS_SANITIZED
  GTEST_SKIP() << "the sanitizers' allocators have locks of their own that a child may inherit held";
#endif
  config.maxBackupFiles = 100000;
  InitLogConfig(config, false);
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&stop] {
      while (!stop) {
        DoLogMsg(std::string(3000, 'x'));
      }
    });
  }
  bool ends = true;
  for (int i = 0; i < 20 && ends; ++i) {
    ends = EndsInAChild([] { Log("child"); });
  }
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(ends) << "a child hangs";
}

TEST_F(FileLog, ACancellationWaitsUntilTheLineIsWritten) {
  InitLogConfig(config, true);
  EXPECT_TRUE(qsbase::testing::EndsCancelled([] {
    pthread_cancel(pthread_self());
    Log("one");
    DoLogMsg("two");
  }));
  EXPECT_EQ(AllLines(LogPath()), "one;two;");
}

TEST_F(FileLog, AForkedChildDoesNotRepeatWhatItsParentBuffered) {
  InitLogConfig(config, false);
  QsSetLogLevel(3);
  Log("parent");
  EXPECT_TRUE(EndsInAChild([] {
    Log("child");
    std::fflush(nullptr);
  }));
  std::fflush(nullptr);
  EXPECT_THAT(LogLines(), ElementsAre("Setting Log Level to 3", "parent", "child"));
}

TEST_F(FileLog, AForkHandlerOfTheHostMayLog) {
  // Those registered first are the last to run before the fork and the first after it.
  ASSERT_EQ(pthread_atfork([] { Log("before"); }, [] { Log("in the parent"); }, [] { Log("in the child"); }), 0);
  InitLogConfig(config, false);
  Log("text");
  EXPECT_TRUE(EndsInAChild([] {}));
  std::vector<std::string> lines = LogLines();
  std::sort(lines.begin(), lines.end());
  EXPECT_THAT(lines, ElementsAre("before", "in the child", "in the parent", "text"));
}

#endif

#ifdef _WIN32
/// While it lives the log file cannot be moved, and the files "a" and "b" of the backup directory cannot be removed.
class Obstacle {
 public:
  explicit Obstacle(const TempDir& dir) : _files{} {
    const char* const names[] = {"log/my app.log", "backup/a", "backup/b"};
    std::transform(std::begin(names), std::end(names), _files,
                   [&dir](const char* name) { return std::fopen((dir / name).c_str(), "ab"); });
  }
  ~Obstacle() { std::for_each(std::begin(_files), std::end(_files), &std::fclose); }
  Obstacle(const Obstacle&) = delete;
  Obstacle& operator=(const Obstacle&) = delete;

 private:
  std::FILE* _files[3];
};
#else
/// While it lives nothing can be moved into the backup directory or removed from it: the system refuses what the mode
/// of a directory forbids, as the process is without the privileges of root.
class Obstacle {
 public:
  explicit Obstacle(const TempDir& dir) {
    fs::permissions(dir.Path(), fs::perms::all);
    fs::permissions(dir / "log", fs::perms::all);
    fs::permissions(dir / "backup", fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                        fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
    if (geteuid() == 0) {
      EXPECT_EQ(seteuid(65534), 0);
    }
  }
  ~Obstacle() {
    if (getuid() == 0) {
      EXPECT_EQ(seteuid(0), 0);
    }
  }
  Obstacle(const Obstacle&) = delete;
  Obstacle& operator=(const Obstacle&) = delete;
};
#endif

TEST_F(FileLog, ARotationThatKeepsFailingAndSaysSoDoesNotFeedItself) {
  config.maxFileSize = kSmallest;
  config.maxBackupFiles = 1;
  _dir.Write("backup/a", "x");
  _dir.Write("backup/b", "x");
  {
    const Obstacle obstacle(_dir);
    InitLogConfig(config, false);
    Log(std::string(kSmallest, 'x'));
    for (int i = 0; i < 5; ++i) {
      Log(std::to_string(i));
    }
  }
  std::vector<std::string> own;
  int warnings = 0;
  for (const std::string& line : LogLines()) {
    if (line.rfind("QsCleanupDirectory could not delete file '", 0) == 0) {
      ++warnings;
    } else if (line.size() == 1) {
      own.push_back(line);
    }
  }
  EXPECT_THAT(own, ElementsAre("0", "1", "2", "3", "4"));
  EXPECT_GE(warnings, 2);
  EXPECT_LE(warnings, 6) << "at most one for each line";
  EXPECT_EQ(Backups().size(), 2U);
}

// ---- many threads ----

TEST_F(FileLog, MaySwitchWhileOthersLog) {
  config.maxFileSize = kSmallest;
  InitLogConfig(config, false);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 500; ++i) {
        Log(std::string(1000, 'x'));
      }
    });
  }
  threads.emplace_back([] {
    for (int i = 0; i < 200; ++i) {
      SetEnabledLog(i % 2 == 0, false);
      QsSetLogLevel(i % 3);
    }
    SetEnabledLog(true, false);
    QsSetLogLevel(0);
  });
  for (std::thread& thread : threads) {
    thread.join();
  }
  Log("end");
  EXPECT_EQ(LogLines().back(), "end");
}

/// Counts lines of the form "<thread> <number> <filler>" and notes which numbers each thread's lines bear.
class LineCensus {
 public:
  LineCensus(std::size_t threads, std::size_t lines) : _seen(threads, std::vector<bool>(lines)) {}

  void Add(const std::string& content) {
    std::vector<long> last(_seen.size(), -1);
    for (const std::string& line : Lines(content)) {
      std::size_t thread = 0;
      long number = 0;
      int length = 0;
      const bool whole = std::sscanf(line.c_str(), "%zu %ld %n", &thread, &number, &length) == 2 &&
                         line.substr(static_cast<std::size_t>(length)) == Filler(number);
      ASSERT_TRUE(whole) << "torn: " << line;
      ASSERT_GT(number, last.at(thread)) << "out of order: " << line;
      last[thread] = number;
      ASSERT_FALSE(_seen[thread].at(static_cast<std::size_t>(number))) << "twice: " << line;
      _seen[thread][static_cast<std::size_t>(number)] = true;
    }
  }

  static std::string Filler(long number) { return std::string(static_cast<std::size_t>(number % 60), '.') + "|"; }

  std::size_t Count() const {
    std::size_t count = 0;
    for (const std::vector<bool>& numbers : _seen) {
      count += static_cast<std::size_t>(std::count(numbers.begin(), numbers.end(), true));
    }
    return count;
  }

 private:
  std::vector<std::vector<bool>> _seen;
};

TEST_F(FileLog, EightThreadsLoseAndTearNoLineThroughRotations) {
  constexpr std::size_t threadCount = 8;
#ifdef QSBASE_TESTS_SANITIZED
  constexpr long linesPerThread = 5000;
  config.maxFileSize = kSmallest;
#else
  constexpr long linesPerThread = 125000;
  config.maxFileSize = 1U << 20U;
#endif
  config.maxBackupFiles = 100000;
  InitLogConfig(config, false);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < threadCount; ++t) {
    threads.emplace_back([t] {
      for (long i = 0; i < linesPerThread; ++i) {
        QsLogMsg(kInfo, "%zu %ld %s", t, i, LineCensus::Filler(i).c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  LineCensus census(threadCount, linesPerThread);
  for (const std::string& path : Backups()) {
    census.Add(TempDir::Read(path));
    EXPECT_GE(fs::file_size(path), config.maxFileSize);
  }
  census.Add(TempDir::Read(LogPath()));
  EXPECT_EQ(census.Count(), threadCount * linesPerThread);
  EXPECT_GE(Backups().size(), 10U);
}

}  // namespace
