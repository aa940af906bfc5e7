// What file logging promises when any call that it makes of the system fails: no earlier line is lost, no line stands
// in the middle of another, and it goes on when the system does.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <common/tempdir.h>

#include <reliability/common/faults.h>
#include <reliability/common/rotatinglog.h>
#include <reliability/common/sweep.h>

namespace {

using qsbase::testing::Blow;
using qsbase::testing::FaultKind;
using qsbase::testing::kFileBlows;
using qsbase::testing::Outcome;
using qsbase::testing::RotatingLog;
using qsbase::testing::TempDir;
using qsbase::testing::Trial;

constexpr unsigned kInfo = 0x10000000;

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
  FileLogFaults() { _log.Init(); }

  // Rotates, so that the file has just these lines; that they are there shows that the log has recovered.
  void Prepare() const {
    QsLogMsg(kInfo, kFiller);
    QsLogMsg(kInfo, kPrevious);
    _log.DropBackups();
    QsLogMsg(kInfo, kBefore);
    _log.DropBackups();
  }

  // How often each line stands in the log and its backups.
  std::map<std::string, int> Lines() const {
    std::map<std::string, int> lines;
    for (const std::string& file : _log.Files()) {
      std::istringstream content(TempDir::Read(file));
      for (std::string line; std::getline(content, line);) {
        ++lines[line.substr(0, line.find_last_not_of('\r') + 1)];
      }
    }
    return lines;
  }

  TempDir _dir;
  const RotatingLog _log{_dir};
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
  Trial(
      "log through a rotation", [this] { Prepare(); },
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
          EXPECT_EQ(_log.Backups().size(), 1U);
        }
      })
      .LeaveLog()
      .Sweep(LogBlows());
}

TEST_F(FileLogFaults, LosesOnlyWhatItCouldNotWrite) {
  Trial(
      "log of lines", [this] { Prepare(); },
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
