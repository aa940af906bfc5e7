// Log lines on the console and in a rotating file, a callback that takes them over, and the level.
#include <QSbase/qsbase.h>

#include <cstdio>

namespace {

void Shout(unsigned int flags, const char* text) {
  std::printf("callback: %s: %s\n", GetMsgTypeString(FlagsToMessageType(flags)).c_str(), text);
}

}  // namespace

int main() {
  FileLoggingConfig config;
  config.enabled = true;
  config.logDirectory = "logs";
  config.logFileName = "example.log";
  config.backupDirectory = "logs\\old";
  ForceCreateDirectories(config.logDirectory);
  InitLogConfig(config, true);

  QsLogMsg(0x10000000, "started, process %d", QsGetCurrentProcessId());
  QsLogAlert(0x20000000, 3, "the disk is nearly full");
  if (QsGetLogLevel() >= 4) {
    QsLogMsg(0x10000004, "a detail that nobody asked for");
  }

  SetLogCallback(&Shout);
  QsLogMsg(0x40000000, std::string("100% of this goes to the callback, as it stands"));
}
