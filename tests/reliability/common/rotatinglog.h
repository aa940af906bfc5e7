/// \file
/// A log file in a folder of the test, whose lines are just their texts, and its backups.
#ifndef QSBASE_TESTS_RELIABILITY_COMMON_ROTATINGLOG_H
#define QSBASE_TESTS_RELIABILITY_COMMON_ROTATINGLOG_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <common/platform.h>
#include <common/tempdir.h>

#include <QSbase/log/filelog.h>

namespace qsbase::testing {

/// A process configures its log once: each test wants a process of its own, as ctest gives it.
class RotatingLog {
 public:
  explicit RotatingLog(const TempDir& dir) : _dir(dir) {}

  /// As small as a log may be, if nothing else is asked for.
  void Init(std::uint32_t maxFileSize = 102400) const {
    std::error_code none;
    std::filesystem::create_directory(_dir / "log", none);
    FileLoggingConfig config;
    config.enabled = true;
    config.logDirectory = _dir / "log";
    config.logFileName = "app.log";
    config.backupDirectory = _dir / "backup";
    config.maxFileSize = maxFileSize;
    config.lineFormatter = &JustTheText;
    InitLogConfig(config, false);
  }

  std::string Path() const { return _dir / "log/app.log"; }

  /// The paths of the backups, in the order of their names.
  std::vector<std::string> Backups() const {
    std::vector<std::string> paths;
    if (std::filesystem::exists(_dir / "backup")) {
      for (const std::string& name : NamesIn(_dir / "backup")) {
        paths.push_back(_dir / ("backup/" + name));
      }
    }
    return paths;
  }

  /// The backups, and the log behind them.
  std::vector<std::string> Files() const {
    std::vector<std::string> paths = Backups();
    paths.push_back(Path());
    return paths;
  }

  void DropBackups() const {
    std::error_code none;
    std::filesystem::remove_all(_dir / "backup", none);
  }

 private:
  static bool JustTheText(const MsgEntry& entry, std::string& line) {
    line = entry.text;
    return true;
  }

  const TempDir& _dir;
};

}  // namespace qsbase::testing

#endif
