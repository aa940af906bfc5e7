#include <QSbase/log/log.h>

#include <QSbase/errors.h>
#include <QSbase/immortal.h>
#include <QSbase/killguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/log/logstage.h>
#include <QSbase/log/simpleformat.h>
#include <QSbase/process.h>
#include <QSbase/processos.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/timeos.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

using qsbase::detail::LastErrorGuard;

namespace {

constexpr unsigned int kInfoFlag = 0x10000000U;
constexpr unsigned int kWarningFlag = 0x20000000U;
constexpr unsigned int kErrorFlag = 0x40000000U;
constexpr int kFirstCallbackOnlyLevel = 100;

std::atomic<int> logLevel{0};
std::atomic<LogLineFormatter> lineFormatter{&DefaultLogLineFormatter};

// ---- callbacks ------------------------------------------------------------------------------------------------------

/// Used entries are packed from index 0 and never removed, so the table can be walked without a lock.
struct CallbackEntry {
  std::atomic<LogCallback> callback{nullptr};
  std::atomic<bool> enabled{false};
  std::atomic<bool> savedEnabled{false};
};

std::array<CallbackEntry, 64> callbacks;

/// Calls \p visit for every used entry until it returns false.
template <typename Visit>
void ForEachCallback(Visit visit) {
  for (CallbackEntry& entry : callbacks) {
    const LogCallback callback = entry.callback.load(std::memory_order_acquire);
    if (callback == nullptr || !visit(entry, callback)) {
      return;
    }
  }
}

bool RunCallbacks(unsigned int flags, const char* text) {
  bool anyCalled = false;
  ForEachCallback([&](const CallbackEntry& entry, LogCallback callback) {
    if (entry.enabled.load(std::memory_order_acquire)) {
      callback(flags, text);
      anyCalled = true;
    }
    return true;
  });
  return anyCalled;
}

// ---- formatting -----------------------------------------------------------------------------------------------------

constexpr std::size_t kFormatLimit = 32767;

/// A formatted text ready for dispatch, or none. Most texts are short and need no allocation.
class Message {
 public:
  /// A format without "%", or null, is taken as it stands.
  QSBASE_PRINTF(2, 0)
  Message(const char* format, std::va_list arguments) : _text(format) {
    if (format == nullptr || std::strchr(format, '%') == nullptr) {
      return;
    }
    const bool isShort =
        qsbase::detail::FormatSimple(_small, sizeof _small, format, arguments) || FormatShort(format, arguments);
    _text = isShort ? _small : FormatLong(format, arguments);
  }

  /// Null when there is nothing to log.
  const char* Text() const { return _text; }

 private:
  /// False when the text is too long or the format is broken. Leaves the arguments unused.
  QSBASE_PRINTF(2, 0)
  bool FormatShort(const char* format, std::va_list arguments) {
    std::va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(_small, sizeof _small, format, copy);
    va_end(copy);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof _small;
  }

  /// Null without memory. What Qs_vsnprintf leaves when it returns -1 has no end: the full limit when the text is too
  /// long, what came before the faulty directive when the format is broken. So it starts from zeros.
  QSBASE_PRINTF(2, 0)
  const char* FormatLong(const char* format, std::va_list arguments) {
    _large.reset(new (std::nothrow) char[kFormatLimit + 1]);
    if (_large) {
      std::memset(_large.get(), 0, kFormatLimit + 1);
      Qs_vsnprintf(_large.get(), static_cast<unsigned int>(kFormatLimit), format, arguments);
    }
    return _large.get();
  }

  const char* _text;
  std::unique_ptr<char[]> _large;
  char _small[512];
};

unsigned int WithAlert(unsigned int flags, int alert) {
  return flags | ((static_cast<unsigned int>(alert) & 0xFFU) << 8U);
}

std::int32_t LevelOf(unsigned int flags) { return static_cast<std::int32_t>(flags & 0xFFU); }
std::int32_t AlertOf(unsigned int flags) { return static_cast<std::int32_t>((flags >> 8U) & 0xFFU); }

// ---- the clock ------------------------------------------------------------------------------------------------------

/// The local midnight of a second since 1970, and how long it is past.
struct LocalSecond {
  std::int64_t second;
  double day;
  std::int64_t secondOfDay;
};

/// False when the system cannot tell.
bool ToLocal(std::int64_t second, LocalSecond& local) {
  std::tm parts{};
  if (!qsbase::detail::BreakDownPresent(second, parts)) {
    return false;
  }
  const int lastSecond = std::min(parts.tm_sec, 59);  // a leap second is the one before it once more
  local.day = QsDateTime(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, 0, 0, 0, 0);
  local.secondOfDay = (std::int64_t{parts.tm_hour} * 60 + parts.tm_min) * 60 + lastSecond;
  local.second = second;
  return true;
}

constexpr std::size_t kTimeLength = 23;

/// What a thread remembers of its last line: a log asks often, and writes many lines in one millisecond.
struct ThreadCache {
  LocalSecond local{-1, 0, 0};
  double time = 0;  ///< the one that timeText shows; 0 none
  char timeText[kTimeLength] = {};
};

constinit thread_local ThreadCache threadCache;

/// QsDateTime::Now(), with the zone asked once a second and thread.
QsDateTime Now(LocalSecond& cached) {
  constexpr int kMsPerDay = 86400000;
  const std::int64_t ms = qsbase::detail::CurrentUtcMilliseconds();
  if (ms < 0 || (ms / 1000 != cached.second && !ToLocal(ms / 1000, cached))) {
    return QsDateTime::Now();
  }
  return static_cast<double>(cached.secondOfDay * 1000 + ms % 1000) / kMsPerDay + cached.day;
}

QsDateTime EntryTime() {
  const LastErrorGuard keepLastError;  // on Windows the way to a thread's own variables clears it
  return Now(threadCache.local);
}

// ---- the default line -----------------------------------------------------------------------------------------------

/// Writes fields one after the other. Its user sees to the room.
class Fields {
 public:
  explicit Fields(char* out) : _at(out) {}
  void Put(char c) { *_at++ = c; }
  void Put(std::string_view text) { _at += text.copy(_at, text.size()); }
  void PutBlanks(std::size_t count) {
    std::memset(_at, ' ', count);
    _at += count;
  }
  void PutNumber(std::int32_t value) { _at = std::to_chars(_at, _at + 11, value).ptr; }
  /// A number that is not negative, with leading zeros.
  void PutDigits(int value, std::size_t count) {
    for (std::size_t i = count; i-- > 0; value /= 10) {
      _at[i] = static_cast<char>('0' + value % 10);
    }
    _at += count;
  }
  char* End() const { return _at; }

 private:
  char* _at;
};

/// Whether the parts of the time are plain: no negative ones, no year of five digits, and not 0.0, the present.
bool IsPlain(const QsDateTime& time) {
  constexpr double kFirst = 1.0;
  constexpr double kEnd = 2958466.0;  // 10000-01-01
  return time >= kFirst && time < kEnd;
}

/// Writes what DateTime2string(time, true, true) gives for a plain time: kTimeLength characters.
void WriteTime(char* out, const QsDateTime& time) {
  int year, month, day, hour, minute, second, millisecond;
  time.GetDatePart(&year, &month, &day);
  time.GetTimePart(&hour, &minute, &second, &millisecond);
  Fields fields(out);
  fields.PutDigits(year, 4);
  fields.Put('-');
  fields.PutDigits(month, 2);
  fields.Put('-');
  fields.PutDigits(day, 2);
  fields.Put(' ');
  fields.PutDigits(hour, 2);
  fields.Put(':');
  fields.PutDigits(minute, 2);
  fields.Put(':');
  fields.PutDigits(second, 2);
  fields.Put('.');
  fields.PutDigits(millisecond, 3);
}

/// The text of a plain time, valid until the thread asks again.
std::string_view PlainTimeText(ThreadCache& cache, const QsDateTime& time) {
  if (cache.time != time) {
    WriteTime(cache.timeText, time);
    cache.time = time;
  }
  return {cache.timeText, kTimeLength};
}

/// What a line shows. The time is never shorter than its field of 12 characters, so it needs no padding.
struct Line {
  std::string_view time;
  MessageType type;
  std::int32_t alert;
  std::int32_t level;
  std::int32_t threadId;
  std::string_view text;

  std::size_t Indent() const { return level > 0 ? static_cast<std::size_t>(level) : 0; }
};

/// Holds what a line has beside time, indent and text: three numbers of 11 characters, 15 others.
constexpr std::size_t kFieldRoom = 64;

std::size_t RoomFor(const Line& line) { return kFieldRoom + line.time.size() + line.Indent() + line.text.size(); }

char TypeLetter(MessageType type) {
  constexpr char kLetters[] = {'E', 'W', 'I'};
  return type >= MsgError && type <= MsgInfo ? kLetters[type] : 'U';
}

/// Writes at most RoomFor() bytes; the end of what it wrote.
char* WriteLine(char* out, const Line& line) {
  Fields fields(out);
  fields.Put(line.time);
  fields.Put('\t');
  fields.Put(TypeLetter(line.type));
  if (line.alert >= 1) {
    fields.Put(" (Alert=");
    fields.PutNumber(line.alert);
    fields.Put(')');
  }
  fields.Put('\t');
  fields.PutBlanks(line.Indent());
  char* const text = fields.End();
  fields.Put(line.text);
  std::replace(text, fields.End(), '\t', ' ');
  fields.Put('\t');
  fields.PutNumber(line.level);
  fields.Put('\t');
  if (line.threadId == 0) {
    fields.Put("main");
  } else {
    fields.PutNumber(line.threadId);
  }
  fields.Put('\n');
  return fields.End();
}

/// Outputs the line of a short text as DefaultLogLine() does, without a detour over the heap. False, with nothing done,
/// when the line is not the usual one.
bool OutputUsualLine(unsigned int flags, std::string_view text) {
  constexpr std::size_t kLongestText = 512;
  if (GetLogLineFormatter() != &DefaultLogLineFormatter || text.empty() || text.size() > kLongestText ||
      LevelOf(flags) >= kFirstCallbackOnlyLevel) {
    return false;
  }
  ThreadCache& cache = threadCache;
  const QsDateTime now = Now(cache.local);
  if (!IsPlain(now)) {
    return false;
  }
  const Line line{PlainTimeText(cache, now),
                  FlagsToMessageType(flags),
                  AlertOf(flags),
                  LevelOf(flags),
                  qsbase::detail::OsThreadId(),
                  text};
  char buffer[kFieldRoom + kTimeLength + kFirstCallbackOnlyLevel + kLongestText + 1];
  char* const end = WriteLine(buffer, line);
  *end = '\0';
  qsbase::detail::OutputLogLine(buffer, static_cast<std::size_t>(end - buffer));
  return true;
}

// ---- dispatch -------------------------------------------------------------------------------------------------------

const char* CString(const std::string& text) { return text.c_str(); }
const char* CString(const char* text) { return text; }

template <typename Text>
void Dispatch(unsigned int flags, const Text& text) {
  if (qsbase::detail::DeferInFileStage(flags, text) || RunCallbacks(flags, CString(text)) ||
      OutputUsualLine(flags, text)) {
    return;
  }
  DefaultLogLine(MsgEntry(flags, text));
}

void DispatchIfAny(unsigned int flags, const Message& message) {
  if (message.Text() != nullptr) {
    Dispatch(flags, message.Text());
  }
}

}  // namespace

// ---- entries --------------------------------------------------------------------------------------------------------

MsgEntry::MsgEntry(MessageType typeOfEntry, const char* entryText, int entryLevel, int entryAlert)
    : time(EntryTime()),
      type(typeOfEntry),
      text(entryText == nullptr ? "" : entryText),
      alert(entryAlert),
      level(entryLevel),
      threadId(QsGetCurrentThreadId()) {}

MsgEntry::MsgEntry(MessageType typeOfEntry, const std::string& entryText, int entryLevel, int entryAlert)
    : time(EntryTime()),
      type(typeOfEntry),
      text(entryText),
      alert(entryAlert),
      level(entryLevel),
      threadId(QsGetCurrentThreadId()) {}

MsgEntry::MsgEntry(unsigned int flags, const char* entryText)
    : MsgEntry(FlagsToMessageType(flags), entryText, LevelOf(flags), AlertOf(flags)) {}

MsgEntry::MsgEntry(unsigned int flags, const std::string& entryText)
    : MsgEntry(FlagsToMessageType(flags), entryText, LevelOf(flags), AlertOf(flags)) {}

MessageType FlagsToMessageType(unsigned int flags) {
  if ((flags & kInfoFlag) != 0) {
    return MsgInfo;
  }
  if ((flags & kErrorFlag) != 0) {
    return MsgError;
  }
  return (flags & kWarningFlag) != 0 ? MsgWarning : MsgInfo;
}

const std::string& GetMsgTypeString(MessageType type) {
  using qsbase::detail::Immortal;
  const qsbase::detail::KillGuard guard;  // a static variable is locked while it is made
  static const Immortal<std::string> error("E");
  static const Immortal<std::string> warning("W");
  static const Immortal<std::string> info("I");
  static const Immortal<std::string> unknown("U");
  switch (type) {
    case MsgError:
      return error.value;
    case MsgWarning:
      return warning.value;
    case MsgInfo:
      return info.value;
  }
  return unknown.value;
}

// ---- logging --------------------------------------------------------------------------------------------------------

void QsLogMsg(unsigned int flags, const char* format, ...) {
  const LastErrorGuard keepLastError;
  std::va_list arguments;
  va_start(arguments, format);
  const Message message(format, arguments);
  va_end(arguments);
  DispatchIfAny(flags, message);
}

void QsLogMsg(unsigned int flags, const std::string& text) {
  const LastErrorGuard keepLastError;
  Dispatch(flags, text);
}

void QsLogAlert(unsigned int flags, int alert, const char* format, ...) {
  const LastErrorGuard keepLastError;
  std::va_list arguments;
  va_start(arguments, format);
  const Message message(format, arguments);
  va_end(arguments);
  DispatchIfAny(WithAlert(flags, alert), message);
}

void QsLogAlert(unsigned int flags, int alert, const std::string& text) { QsLogMsg(WithAlert(flags, alert), text); }

int QsGetLogLevel() { return logLevel.load(std::memory_order_relaxed); }

void QsSetLogLevel(int level) {
  if (level == QsGetLogLevel()) {
    return;
  }
  QsLogMsg(kInfoFlag, "Setting Log Level to %d", level);
  logLevel = level;
}

// ---- callback table -------------------------------------------------------------------------------------------------

void SetLogCallback(LogCallback callback) {
  if (callback == nullptr) {
    return;
  }
  for (CallbackEntry& entry : callbacks) {
    LogCallback holder = nullptr;
    if (entry.callback.compare_exchange_strong(holder, callback) || holder == callback) {
      entry.enabled = true;
      return;
    }
  }
  throw ExBase("Error adding logcallback: no free entries available!");
}

void DisableLogCallback(LogCallback callback) {
  ForEachCallback([callback](CallbackEntry& entry, LogCallback holder) {
    if (holder != callback) {
      return true;
    }
    entry.enabled = false;
    return false;
  });
}

void DisableLogCallbacks() {
  ForEachCallback([](CallbackEntry& entry, LogCallback) {
    entry.savedEnabled = entry.enabled.exchange(false);
    return true;
  });
}

void EnableLogCallbacks() {
  ForEachCallback([](CallbackEntry& entry, LogCallback) {
    if (entry.savedEnabled) {
      entry.enabled = true;
    }
    return true;
  });
}

// ---- default output -------------------------------------------------------------------------------------------------

LogLineFormatter SetLogLineFormatter(LogLineFormatter formatter) { return lineFormatter.exchange(formatter); }

LogLineFormatter GetLogLineFormatter() { return lineFormatter.load(std::memory_order_acquire); }

bool DefaultLogLineFormatter(const MsgEntry& entry, std::string& line) {
  const LastErrorGuard keepLastError;
  std::string oddTime;
  std::string_view time;
  if (IsPlain(entry.time)) {
    time = PlainTimeText(threadCache, entry.time);
  } else {
    oddTime = DateTime2string(entry.time, true, true);
    time = oddTime;
  }
  const Line parts{time, entry.type, entry.alert, entry.level, entry.threadId, entry.text};
  line.resize(RoomFor(parts));
  line.resize(static_cast<std::size_t>(WriteLine(line.data(), parts) - line.data()));
  return true;
}

void DefaultLogLine(const MsgEntry& entry) {
  const LastErrorGuard keepLastError;
  const LogLineFormatter formatter = GetLogLineFormatter();
  if (formatter == nullptr || entry.level >= kFirstCallbackOnlyLevel || entry.text.empty()) {
    return;
  }
  std::string line;
  if (formatter(entry, line)) {
    qsbase::detail::OutputLogLine(std::move(line));
  }
}

void DefaultLogLine(unsigned int flags, const char* text) {
  const LastErrorGuard keepLastError;
  DefaultLogLine(MsgEntry(flags, text));
}

void DoLogMsg(const std::string& line) {
  const LastErrorGuard keepLastError;
  try {
    qsbase::detail::OutputLogLine(std::string(line));
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): output never throws at who logs
  }
}
