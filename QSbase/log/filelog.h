/// \file
/// File and console output of the log, with rotation into a backup directory.
#ifndef QSBASE_LOG_FILELOG_H
#define QSBASE_LOG_FILELOG_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>
#include <QSbase/log/log.h>

struct QSBASE_API FileLoggingConfig {
  FileLoggingConfig();
  FileLoggingConfig(const FileLoggingConfig& other);
  FileLoggingConfig& operator=(const FileLoggingConfig& other);
  virtual ~FileLoggingConfig();

  bool enabled;
  std::string logDirectory;
  std::string logFileName;
  std::string backupDirectory;
  std::uint32_t maxBackupFiles;
  std::uint32_t maxFileSize;
  LogLineFormatter lineFormatter;
};

QSBASE_API void InitLogConfig(const FileLoggingConfig& config, bool consoleLogging);
QSBASE_API void SetEnabledLog(bool fileLogging, bool consoleLogging);

#endif
