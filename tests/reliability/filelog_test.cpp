// What file logging promises when any call that it makes of the system fails: no earlier line is lost, no line stands
// in the middle of another, and it goes on when the system does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <common/platform.h>
#include <common/tempdir.h>

#include <reliability/common/faults.h>
#include <reliability/common/sweep.h>

#include <QSbase/log/filelog.h>

namespace {

namespace fs = std::filesystem;
using qsbase::testing::Blow;
using qsbase::testing::FaultKind;
using qsbase::testing::kFileBlows;
using qsbase::testing::NamesIn;
using qsbase::testing::Outcome;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;

constexpr unsigned kInfo = 0x10000000;

bool JustTheText(const MsgEntry& entry, std::string& line) {
  line = entry.text;
  return true;
}

// Fills the file, so that the line behind the next one rotates.
const std::string kFiller(110000, 'f');
const std::string kPrevious = "previous";
const std::string kBefore = "before";
const std::string kFirst = "first";
const std::string kSecond = "second";

// The C library writes no piece again that a signal interrupted, and drops it. No file on a disk lets one be
// interrupted.
std::vector<Blow> LogBlows() {
  std::vector<Blow> blows = kFileBlows;
  for (Blow& blow : blows) {
    blow.noticeable = blow.noticeable || (blow.kind == FaultKind::Write && blow.error == qsbase::testing::kInterrupted);
  }
  return blows;
}

// What a rotation has to say of its own, and what the step before may have left.
bool IsNoMatter(const std::string& line) {
  return line == kPrevious || line.rfind("Cannot get status of file ", 0) == 0 ||
         line.rfind("QsCleanupDirectory could not delete file ", 0) == 0;
}

class FileLogFaults : public ::testing::Test {
 protected:
  void Init() {
    fs::create_directory(_dir / "log");
    FileLoggingConfig config;
    config.enabled = true;
    config.logDirectory = _dir / "log";
    config.logFileName = "app.log";
    config.backupDirectory = _dir / "backup";
    config.maxFileSize = 102400;
    config.lineFormatter = &JustTheText;
    InitLogConfig(config, false);
  }

  // How often each line stands in the log and its backups.
  std::map<std::string, int> Lines() const {
    std::map<std::string, int> lines;
    std::vector<std::string> files = {_dir / "log/app.log"};
    if (fs::exists(_dir / "backup")) {
      for (const std::string& name : NamesIn(_dir / "backup")) {
        files.push_back(_dir / ("backup/" + name));
      }
    }
    for (const std::string& file : files) {
      std::istringstream content(TempDir::Read(file));
      for (std::string line; std::getline(content, line);) {
        ++lines[line.substr(0, line.find_last_not_of('\r') + 1)];
      }
    }
    return lines;
  }

  void DropBackups() const {
    std::error_code none;
    fs::remove_all(_dir / "backup", none);
  }

  TempDir _dir;
};

// Only a part of the filler may stand in the place of a line that could not be written.
void ExpectWholeLines(const std::map<std::string, int>& lines) {
  for (const auto& [line, count] : lines) {
    const bool known = line == kBefore || line == kFirst || line == kSecond;
    EXPECT_TRUE(known || IsNoMatter(line) || line.find_first_not_of('f') == std::string::npos) << line.substr(0, 60);
    EXPECT_TRUE(!known || count == 1) << line << " stands there " << count << " times";
  }
}

TEST_F(FileLogFaults, LosesNoEarlierLineAndTearsNoneThroughARotation) {
  Init();
  Trial(
      "log through a rotation",
      [this] {
        // Rotates, so that the file has just this line; that it is there shows that the log has recovered.
        QsLogMsg(kInfo, kFiller);
        QsLogMsg(kInfo, kPrevious);
        DropBackups();
        QsLogMsg(kInfo, kBefore);
        DropBackups();
      },
      [] {
        QsLogMsg(kInfo, kFiller);
        QsLogMsg(kInfo, kFirst);
        QsLogMsg(kInfo, kSecond);
        return true;
      },
      [this](const Outcome<bool>& outcome) {
        const std::map<std::string, int> lines = Lines();
        ExpectWholeLines(lines);
        EXPECT_EQ(lines.count(kBefore), 1U);
        // A line that there is no memory for: its formatter throws, and that passes on.
        EXPECT_TRUE(outcome.thrown.empty() || outcome.fault.kind == FaultKind::Allocate) << outcome.thrown;
        if (!outcome.allowed) {
          EXPECT_EQ(lines.count(kFirst) + lines.count(kSecond) + lines.count(kFiller), 3U);
          EXPECT_TRUE(fs::exists(_dir / "backup") && NamesIn(_dir / "backup").size() == 1);
        }
      })
      .LeaveLog()
      .Sweep(LogBlows());
}

TEST_F(FileLogFaults, LosesOnlyWhatItCouldNotWrite) {
  Init();
  Trial(
      "log of lines",
      [this] {
        QsLogMsg(kInfo, kFiller);
        QsLogMsg(kInfo, kPrevious);
        DropBackups();
        QsLogMsg(kInfo, kBefore);
        DropBackups();
      },
      [] {
        QsLogMsg(kInfo, kFirst);
        QsLogMsg(kInfo, kSecond);
        return true;
      },
      [this](const Outcome<bool>& outcome) {
        const std::map<std::string, int> lines = Lines();
        ExpectWholeLines(lines);
        EXPECT_EQ(lines.count(kBefore), 1U);
        if (!outcome.hit || outcome.fault.count == 1) {
          EXPECT_GE(lines.count(kFirst) + lines.count(kSecond), outcome.allowed ? 1U : 2U);
        }
      })
      .LeaveLog()
      .Sweep(LogBlows());
}

}  // namespace
