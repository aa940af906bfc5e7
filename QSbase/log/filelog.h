/// \file
/// File and console output of the log, with rotation into a backup directory.
///
/// The first line after start moves the log file of the previous run into the backup directory and begins a new one;
/// later lines do so again whenever the file has reached its size limit: the line that finds it so is still written to
/// it, the next one rotates. Before each rotation the backup directory is trimmed to its newest `maxBackupFiles`
/// files. A backup is named by time and file name, "2013-02-13_10_11_12.250_my_app.log"; when that is taken a number
/// follows the time ("..._2_my_app.log"), so that no backup replaces another.
///
/// The file is a text file of the system: each line ends in one "\n", on Windows in one "\r\n". Line feeds and carriage
/// returns in the text become blanks. At log level 0 a line is flushed at once, at higher levels the stream's buffer
/// decides. What fails on the way (moving, opening, writing) is swallowed. A file that cannot be opened receives
/// nothing until it can be, which each line tries. One that cannot be moved (on Windows while another process holds it
/// open) is written on; while it is full every line tries again. What could not be written (on a full disk) is lost,
/// and the next line begins a line of its own, behind an empty one if nothing was cut. The file is closed when the
/// process ends or the library is unloaded; destructors that run later may still log to it.
///
/// Every function may be called from any thread at any time: one lock serialises the file, so that no line is lost or
/// torn. Callbacks and formatters run outside it, and what rotation itself logs goes to the new file. A forked child
/// may log too, to the same file; but each process rotates by itself, so only one of them should be left logging.
#ifndef QSBASE_LOG_FILELOG_H
#define QSBASE_LOG_FILELOG_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>
#include <QSbase/log/log.h>

/// What InitLogConfig() takes. A plain record; copies are independent.
struct QSBASE_API FileLoggingConfig {
  /// Sets the defaults named at the fields.
  FileLoggingConfig();
  FileLoggingConfig(const FileLoggingConfig& other);
  FileLoggingConfig& operator=(const FileLoggingConfig& other);
  virtual ~FileLoggingConfig();

  bool enabled;                    ///< whether lines go to the file; default false
  std::string logDirectory;        ///< directory of the log file; it must exist; default empty
  std::string logFileName;         ///< name of the log file in it; default empty
  std::string backupDirectory;     ///< directory of rotated files, made when missing; nothing else belongs in it: it is
                                   ///< trimmed without regard to names; default empty
  std::uint32_t maxBackupFiles;    ///< how many files a rotation leaves there before it adds its own; default 200
  std::uint32_t maxFileSize;       ///< bytes from which on the file rotates; default 0x500000 (5 MiB)
  LogLineFormatter lineFormatter;  ///< becomes the formatter in force; default DefaultLogLineFormatter
};

/// Puts \p config and the console switch in force. Only the first call of the process has an effect; later ones do
/// nothing at all.
///
/// When file logging is asked for, a directory or name left empty disables it again and is reported as error "InitLog:
/// FileLoggingConfig is invalid or not completely set up! -> FileLogging is now DISABLED!" (which so reaches callbacks
/// or the console only); `maxBackupFiles` 0 counts as 1, a `maxFileSize` below 102400 as 102400. With `enabled` false
/// the values are kept unchanged, for a later SetEnabledLog().
///
/// \code
/// FileLoggingConfig config;
/// config.enabled = true;
/// config.logDirectory = "/var/log/my_app";
/// config.logFileName = "my app.log";
/// config.backupDirectory = "/var/log/my_app/old";
/// InitLogConfig(config, true);
/// \endcode
QSBASE_API void InitLogConfig(const FileLoggingConfig& config, bool consoleLogging);

/// Switches both outputs. Each one that changes is reported afterwards as info of level 4, "Set FileLogging to Enabled"
/// (or "Disabled"), "Set Console Logging to Enabled" (or "Disabled"): enabling reaches the output itself, disabling
/// does not. Without a complete configuration nothing is ever written, moved or removed, whatever is switched on.
QSBASE_API void SetEnabledLog(bool fileLogging, bool consoleLogging);

#endif
