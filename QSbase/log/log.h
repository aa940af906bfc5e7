/// \file
/// The logging core: flag words, callbacks, the default line.
///
/// A message is a flag word and a text. It goes to every enabled callback first; only when none ran is it formatted
/// into one line and written to the console and to the log file, each when switched on (filelog.h). Logging needs no
/// start: callbacks receive messages from the first call, the outputs are off at the beginning.
///
/// The flag word: bits 0 to 7 detail level, 8 to 15 alert number (0 none), 28 info, 29 warning, 30 error; other bits
/// are ignored. Plain messages use 0x40000000 (error), 0x20000000 (warning) or 0x10000000 (info); 0x10000004 is info
/// of level 4. The core filters nothing by level: ask QsGetLogLevel() before logging a verbose message.
///
/// Everything here may be called from any thread at any time; the core takes no lock. Callbacks and formatters run on
/// the logging thread, possibly on several at once. Logging never changes the caller's last-error code.
///
/// \code
/// QsLogMsg(0x40000000, "Cannot open %s (%s)", path, QsErrorMessage(QsGetLastError()).c_str());
/// if (QsGetLogLevel() >= 4) {
///   QsLogMsg(0x10000004, "Opened " + fileName);  // may hold "%"
/// }
/// \endcode
#ifndef QSBASE_LOG_LOG_H
#define QSBASE_LOG_LOG_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

/// What kind of message it is.
enum MessageType : std::int32_t {
  MsgError = 0,    ///< prints "E"
  MsgWarning = 1,  ///< prints "W"
  MsgInfo = 2      ///< prints "I"
};

/// One message on its way to the default line. A plain record; copies are independent.
struct QSBASE_API MsgEntry {
  /// Fills `time` with the present local time and `threadId` with the calling thread's, the rest from the arguments.
  /// Mind the order: level, then alert. A null \p text counts as empty.
  MsgEntry(MessageType type, const char* text, int level, int alert);
  /// The same; the text may hold zero bytes.
  MsgEntry(MessageType type, const std::string& text, int level, int alert);
  /// The same with type, level and alert taken from a flag word.
  MsgEntry(unsigned int flags, const char* text);
  /// The same; the text may hold zero bytes.
  MsgEntry(unsigned int flags, const std::string& text);

  QsDateTime time;        ///< when the entry was made, local time
  MessageType type;       ///< error, warning or info
  std::string text;       ///< the message
  std::int32_t alert;     ///< alert number, 0 for none
  std::int32_t level;     ///< detail level
  std::int32_t threadId;  ///< the operating system's id of the thread that made the entry
};

/// Receives every message while enabled, whatever its level. The text belongs to the caller and is gone after the call.
/// May log itself, but must see to it that this ends. An exception it throws passes on to who logged.
using LogCallback = void (*)(unsigned int flags, const char* text);

/// Writes the line for \p entry into \p line (empty at the call); true when it is to be output. What holds for a
/// callback that logs or throws holds here too.
using LogLineFormatter = bool (*)(const MsgEntry& entry, std::string& line);

/// The type of a flag word: info when bit 28 is set, also beside others (kept: info takes precedence), else error for
/// bit 30, else warning for bit 29, else info.
QSBASE_API MessageType FlagsToMessageType(unsigned int flags);

/// "E", "W" or "I"; "U" for any other value. The reference stays valid to the process's end.
QSBASE_API const std::string& GetMsgTypeString(MessageType type);

/// Logs a text in printf form. Null logs nothing; a \p format without "%" is logged as it stands, arguments or not. The
/// formatted text is cut at 32767 characters; a faulty directive (a lone "%") ends the text before it. When memory for
/// formatting is short the message is lost without a word.
QSBASE_API void QsLogMsg(unsigned int flags, const char* format, ...) QSBASE_PRINTF(2, 3);

/// Logs \p text as it stands: the form for text that may hold "%". Callbacks see it up to its first zero byte.
QSBASE_API void QsLogMsg(unsigned int flags, const std::string& text);

/// QsLogMsg() with the low byte of \p alert added by "or" to the alert bits of \p flags: alert 0x1FF counts as 255.
QSBASE_API void QsLogAlert(unsigned int flags, int alert, const char* format, ...) QSBASE_PRINTF(3, 4);

/// The same for a text that is logged as it stands.
QSBASE_API void QsLogAlert(unsigned int flags, int alert, const std::string& text);

/// The log level; 0 at start. At 0 the log file is flushed after each line.
QSBASE_API int QsGetLogLevel();

/// Sets the log level. A new value is first announced as info "Setting Log Level to <level>" while the old one is still
/// in force; the present value again logs nothing.
QSBASE_API void QsSetLogLevel(int level);

/// Registers \p callback in the table of 64 and enables it; one that is registered already is enabled again, null is
/// ignored. While any callback is enabled nothing reaches console and file.
/// \throws ExBase "Error adding logcallback: no free entries available!" when the table is full.
QSBASE_API void SetLogCallback(LogCallback callback);

/// Disables \p callback; it keeps its place in the table. An unknown one is ignored. A call that is under way in
/// another thread may still end after this returns.
QSBASE_API void DisableLogCallback(LogCallback callback);

/// Notes which callbacks are enabled and disables all. A second call before EnableLogCallbacks() notes that none is
/// (kept), so that the latter brings none back.
QSBASE_API void DisableLogCallbacks();

/// Enables those that DisableLogCallbacks() noted last.
QSBASE_API void EnableLogCallbacks();

/// Installs the formatter of the default line and returns the one before. With null there is no default line.
QSBASE_API LogLineFormatter SetLogLineFormatter(LogLineFormatter formatter);

/// The formatter in force; DefaultLogLineFormatter() at start.
QSBASE_API LogLineFormatter GetLogLineFormatter();

/// Replaces \p line by the fields below, separated by one tab, with a line feed at the end. Always true.
///  1. the time, "2013-02-13 10:11:12.250";
///  2. the type's letter, and " (Alert=<number>)" when the alert is 1 or more;
///  3. as many blanks as the level says (none when it is negative) and the text, each tab in it as a blank;
///  4. the level;
///  5. the thread id, "main" when it is 0.
QSBASE_API bool DefaultLogLineFormatter(const MsgEntry& entry, std::string& line);

/// The path that a message takes when no callback ran: formats the entry and hands the line to the outputs. Does
/// nothing without a formatter, for an empty text, and for a level of 100 and more (those reach callbacks only).
QSBASE_API void DefaultLogLine(const MsgEntry& entry);

/// The same for an entry made from a flag word and a text (null counts as empty).
QSBASE_API void DefaultLogLine(unsigned int flags, const char* text);

/// The output stage: writes the line to the console, unchanged and up to its first zero byte, and then to the log file,
/// each when switched on. An empty line is ignored; nothing that fails here reaches the caller.
QSBASE_API void DoLogMsg(const std::string& line);

#endif
