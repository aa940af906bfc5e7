// A part of a host that is loaded and unloaded while the host runs, and brings the library along.
#include <QSbase/qsbase.h>

#include <string>
#include <thread>

// Writes two lines to a log file in the current directory. They stay in the stream's buffer.
extern "C" __declspec(dllexport) void Log() {
  FileLoggingConfig config;
  config.enabled = true;
  config.logDirectory = ".";
  config.logFileName = "plugin.log";
  config.backupDirectory = "plugin-backups";
  QsSetLogLevel(3);
  InitLogConfig(config, false);
  QsLogMsg(0, std::string("a line"));
  std::thread([] { QsLogMsg(0, std::string("a line of another thread")); }).join();
}
