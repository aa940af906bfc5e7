/// \file
/// The logging core: flag words, callbacks, the default line.
#ifndef QSBASE_LOG_LOG_H
#define QSBASE_LOG_LOG_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

enum MessageType : std::int32_t { MsgError = 0, MsgWarning = 1, MsgInfo = 2 };

struct QSBASE_API MsgEntry {
  MsgEntry(MessageType type, const char* text, int level, int alert);
  MsgEntry(MessageType type, const std::string& text, int level, int alert);
  MsgEntry(unsigned int flags, const char* text);
  MsgEntry(unsigned int flags, const std::string& text);

  QsDateTime time;
  MessageType type;
  std::string text;
  std::int32_t alert;
  std::int32_t level;
  std::int32_t threadId;
};

using LogCallback = void (*)(unsigned int flags, const char* text);
using LogLineFormatter = bool (*)(const MsgEntry& entry, std::string& line);

QSBASE_API MessageType FlagsToMessageType(unsigned int flags);
QSBASE_API const std::string& GetMsgTypeString(MessageType type);

QSBASE_API void QsLogMsg(unsigned int flags, const char* format, ...) QSBASE_PRINTF(2, 3);
QSBASE_API void QsLogMsg(unsigned int flags, const std::string& text);
QSBASE_API void QsLogAlert(unsigned int flags, int alert, const char* format, ...) QSBASE_PRINTF(3, 4);
QSBASE_API void QsLogAlert(unsigned int flags, int alert, const std::string& text);

QSBASE_API int QsGetLogLevel();
QSBASE_API void QsSetLogLevel(int level);

QSBASE_API void SetLogCallback(LogCallback callback);
QSBASE_API void DisableLogCallback(LogCallback callback);
QSBASE_API void DisableLogCallbacks();
QSBASE_API void EnableLogCallbacks();

QSBASE_API LogLineFormatter SetLogLineFormatter(LogLineFormatter formatter);
QSBASE_API LogLineFormatter GetLogLineFormatter();
QSBASE_API bool DefaultLogLineFormatter(const MsgEntry& entry, std::string& line);

QSBASE_API void DefaultLogLine(const MsgEntry& entry);
QSBASE_API void DefaultLogLine(unsigned int flags, const char* text);
QSBASE_API void DoLogMsg(const std::string& line);

#endif
