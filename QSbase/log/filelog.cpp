#include <QSbase/log/filelog.h>

#include <QSbase/cancelguard.h>
#include <QSbase/immortal.h>
#include <QSbase/killguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/log/logfileos.h>
#include <QSbase/log/logstage.h>
#include <QSbase/log/logwords.h>
#include <QSbase/processos.h>
#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/paths.h>
#include <QSbase/support/qsfile.h>
#include <QSbase/sync/lock.h>
#include <QSbase/text/datetime.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

using qsbase::detail::CancelGuard;
using qsbase::detail::KillGuard;
using qsbase::detail::kLogError;
using qsbase::detail::kLogInfo4;
using qsbase::detail::LastErrorGuard;
using qsbase::detail::Lock;

namespace {

constexpr std::uint32_t kDefaultMaxBackupFiles = 200;
constexpr std::uint32_t kDefaultMaxFileSize = 0x500000;
constexpr std::uint32_t kSmallestMaxFileSize = 102400;

// ---- messages logged by a thread that is inside the file stage ------------------------------------------------------

struct DeferredMessage {
  unsigned int flags;
  std::string text;
};

using DeferredMessages = std::vector<DeferredMessage>;

/// Where a thread is. One record, as each look at a thread's own variables costs a call.
struct ThreadState {
  /// Where its messages go while it is inside the file stage; null outside it.
  DeferredMessages* deferredMessages = nullptr;

  /// Set while it logs what its rotation had to say. Such a line never starts a rotation: one that keeps failing and
  /// says so would start the next without end.
  bool loggingDeferred = false;

  /// Set while it forks, from just before until just after. It holds the lock of the file meanwhile, and a fork handler
  /// of the host may log.
  bool forking = false;
};

constinit thread_local ThreadState threadState;

class DeferScope {
 public:
  DeferScope(ThreadState& state, DeferredMessages& messages) noexcept : _state(state) {
    _state.deferredMessages = &messages;
  }
  ~DeferScope() { _state.deferredMessages = nullptr; }
  DeferScope(const DeferScope&) = delete;
  DeferScope& operator=(const DeferScope&) = delete;

 private:
  ThreadState& _state;
};

void LogDeferred(const DeferredMessages& messages) {
  if (messages.empty()) {
    return;
  }
  const bool nested = std::exchange(threadState.loggingDeferred, true);
  for (const DeferredMessage& message : messages) {
    try {
      QsLogMsg(message.flags, message.text);
    } catch (...) {  // NOLINT(bugprone-empty-catch): one callback that throws must not cost the other messages
    }
  }
  threadState.loggingDeferred = nested;
}

// ---- the log file ---------------------------------------------------------------------------------------------------

/// The log file. Its owner serialises the calls.
class LogFile {
 public:
  void Configure(const FileLoggingConfig& config) { _config = config; }
  /// Changes the line, and the byte behind it.
  void Write(char* line, std::size_t length, bool mayRotate);
  void Flush();
  /// Closes the file. What is logged still opens it again, without a buffer.
  void End();

 private:
  static constexpr std::size_t kBufferSize = 16384;

  bool IsConfigured() const;
  void Rotate();
  bool IsFull();
  bool MustAskSize();
  void Open();

  FileLoggingConfig _config;
  QsFile _file;
  std::array<char, kBufferSize> _streamBuffer;
  bool _rotatePending = true;
  bool _ended = false;
  std::chrono::steady_clock::time_point _asked;  // when the system was
  bool _buffered = false;                        // the stream may hold bytes that the file lacks
  bool _torn = false;                            // the file may end within a line: not all could be written
  std::int64_t _size = -1;                       // as last asked, plus what was written since; -1 unknown
  std::size_t _sinceAsked = 0;                   // bytes written since
};

bool LogFile::IsConfigured() const {
  return !_config.logDirectory.empty() && !_config.logFileName.empty() && !_config.backupDirectory.empty();
}

/// Written so that the compiler looks at many characters at once.
void ReplaceLineEnds(char* line, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    line[i] = line[i] == '\n' || line[i] == '\r' ? ' ' : line[i];
  }
}

void LogFile::Write(char* line, std::size_t length, bool mayRotate) {
  if (!IsConfigured()) {
    return;
  }
  if (_rotatePending && mayRotate) {
    Rotate();
  } else if (!_file.IsOpen()) {  // a rotation that found no descriptor for the new file must not be the end of the log
    Open();
  }
  if (!_file.IsOpen()) {
    return;
  }
  if (IsFull()) {
    _rotatePending = true;
  }
  ReplaceLineEnds(line, length);
  line[length] = '\n';
  if (_torn) {
    _torn = std::fputc('\n', _file) == EOF;
  }
  _torn = std::fwrite(line, length + 1, 1, _file) != 1 || _torn;
  _buffered = true;
  const std::size_t written = length + qsbase::detail::OsLineFeedLength();
  _sinceAsked += written;
  if (_size >= 0) {
    _size += static_cast<std::int64_t>(written);
  }
  if (QsGetLogLevel() == 0) {
    Flush();
  }
}

/// The system is not asked for every line, which would cost as much as writing it: of what other processes append the
/// log learns within 50 microseconds while lines are flushed one by one, and when a stream buffer's worth was written,
/// about when the stream would write it out anyway. What is written here counts at once.
bool LogFile::MustAskSize() {
  constexpr std::chrono::microseconds kAskPeriod(50);
  if (_size < 0 || _sinceAsked >= kBufferSize) {
    return true;
  }
  return QsGetLogLevel() == 0 && std::chrono::steady_clock::now() - _asked >= kAskPeriod;
}

bool LogFile::IsFull() {
  if (MustAskSize()) {
    Flush();
    _size = qsbase::detail::OsStreamFileSize(_file);
    _sinceAsked = 0;
    _asked = std::chrono::steady_clock::now();
  }
  return _size >= 0 && static_cast<std::uint64_t>(_size) >= _config.maxFileSize;
}

void LogFile::Flush() {
  if (_buffered) {
    _torn = _file.Flush() != 0 || _torn;
    _buffered = false;
  }
}

void LogFile::Rotate() {
  _rotatePending = false;
  _torn = _file.Close() != 0 || _torn;
  _buffered = false;
  _size = -1;
  const std::string current = ConstructPath(_config.logDirectory, _config.logFileName);
  const std::string backupDirectory = QsAppendFileslash(_config.backupDirectory);
  QsCleanupDirectory(backupDirectory, _config.maxBackupFiles, "*", true);
  ForceCreateDirectories(backupDirectory);
  if (QsGetFSObjectType(current) != FSO_NOTHING) {
    qsbase::detail::MoveToBackup(current, backupDirectory, DateTime2string(QsDateTime::Now(), true, true),
                                 _config.logFileName);
  }
  Open();
}

void LogFile::Open() {
  if (!_file.Open(ConstructPath(_config.logDirectory, _config.logFileName).c_str(), "a")) {
    return;
  }
  if (_ended) {
    std::setvbuf(_file, nullptr, _IONBF, 0);
  } else {
    std::setvbuf(_file, _streamBuffer.data(), _IOFBF, _streamBuffer.size());
  }
  _torn = _torn && qsbase::detail::OsStreamFileSize(_file) != 0;
}

void LogFile::End() {
  _ended = true;
  _torn = _file.Close() != 0 || _torn;
  _buffered = false;
  _size = -1;
}

// ---- the stage ------------------------------------------------------------------------------------------------------

/// Console and file output of the process. The switches are read without the lock; everything about the file under it.
class OutputStage {
 public:
  OutputStage() {
    qsbase::detail::OsAroundFork([] { Get().HoldForFork(); }, [] { Get().ReleaseAfterFork(); });
    std::atexit([] { Get().End(); });  // of this library, where it is unloaded before the process ends
  }

  static OutputStage& Get() {
    const KillGuard guard;  // a static variable is locked while it is made
    static qsbase::detail::Immortal<OutputStage> stage;
    return stage.value;
  }

  void Output(char* line, std::size_t length);
  void Configure(const FileLoggingConfig& config);

  std::atomic<bool> fileEnabled{false};
  std::atomic<bool> consoleEnabled{false};

 private:
  void WriteToFile(char* line, std::size_t length);
  void HoldForFork();
  void ReleaseAfterFork();
  void End();

  Lock _fileLock;
  LogFile _file;
};

void OutputStage::Output(char* line, std::size_t length) {
  if (length == 0) {
    return;
  }
  if (consoleEnabled.load(std::memory_order_relaxed)) {
    const KillGuard untilWritten;  // the C library locks the stream
    std::fputs(line, stdout);
  }
  if (fileEnabled.load(std::memory_order_relaxed)) {
    WriteToFile(line, length);
  }
}

void OutputStage::WriteToFile(char* line, std::size_t length) {
  ThreadState& state = threadState;
  DeferredMessages messages;
  {
    std::unique_lock<Lock> lock(_fileLock, std::defer_lock);
    if (!state.forking) {
      lock.lock();
    }
    const DeferScope scope(state, messages);
    _file.Write(line, length, !state.loggingDeferred);
  }
  LogDeferred(messages);
}

/// A child would wait forever for a lock that another thread of its parent held, and write what the stream still
/// buffered a second time. Nor may the forking thread be killed, who holds locks of the C library: not here while it
/// waits, and not until it has given up the lock.
void OutputStage::HoldForFork() {
  const LastErrorGuard keepLastError;
  const CancelGuard noCancellation;
  const KillGuard untilLocked;
  _fileLock.lock();
  threadState.forking = true;
  _file.Flush();
}

void OutputStage::ReleaseAfterFork() {
  threadState.forking = false;
  _fileLock.unlock();
}

/// The C library would write out the stream's buffer when that has gone with the library, and the file would stay open.
/// A thread that the system ended inside the stage has left the lock behind; one that is there now keeps the file.
void OutputStage::End() {
  const LastErrorGuard keepLastError;
  const CancelGuard noCancellation;
  const std::unique_lock<Lock> lock(_fileLock, std::try_to_lock);
  if (lock.owns_lock()) {
    _file.End();
  }
}

void OutputStage::Configure(const FileLoggingConfig& config) {
  const std::lock_guard<Lock> lock(_fileLock);
  _file.Configure(config);
}

/// Corrects the limits of a configuration that asks for file logging; false when it names no complete target.
bool CorrectConfig(FileLoggingConfig& config) {
  const bool complete = !config.logDirectory.empty() && !config.logFileName.empty() && !config.backupDirectory.empty();
  config.enabled = complete;
  config.maxBackupFiles = std::max<std::uint32_t>(config.maxBackupFiles, 1);
  config.maxFileSize = std::max(config.maxFileSize, kSmallestMaxFileSize);
  return complete;
}

void Switch(std::atomic<bool>& output, bool on, const char* what) {
  if (output.exchange(on) != on) {
    QsLogMsg(kLogInfo4, std::string("Set ") + what + " to " + (on ? "Enabled" : "Disabled"));
  }
}

}  // namespace

// ---- backups --------------------------------------------------------------------------------------------------------

namespace {

/// Only the name is made compatible: the configured directory is used as given.
std::string BackupName(const std::string& time, int attempt, const std::string& logFileName) {
  std::string name = time + "_";
  if (attempt > 1) {
    name += std::to_string(attempt) + "_";
  }
  name += logFileName;
  std::replace(name.begin(), name.end(), ' ', '_');
  return QsMakeCompatibleFilename(name);
}

}  // namespace

void qsbase::detail::MoveToBackup(const std::string& current, const std::string& backupDirectory,
                                  const std::string& time, const std::string& logFileName) {
  constexpr int kAttempts = 10000;
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    const std::string backup = backupDirectory + BackupName(time, attempt, logFileName);
    if (QsMoveFile(current, backup, false, true) || QsGetFSObjectType(backup) == FSO_NOTHING) {
      return;
    }
  }
}

// ---- the seam to the logging core -----------------------------------------------------------------------------------

void qsbase::detail::OutputLogLine(char* line, std::size_t length) noexcept {
  const CancelGuard noCancellation;
  try {
    OutputStage::Get().Output(line, length);
  } catch (...) {  // NOLINT(bugprone-empty-catch): output never throws at who logs
  }
}

void qsbase::detail::OutputLogLine(std::string&& line) noexcept {
  try {
    line += '\0';  // a byte of the text's own that may be replaced
    OutputLogLine(line.data(), line.size() - 1);
  } catch (...) {  // NOLINT(bugprone-empty-catch): output never throws at who logs
  }
}

bool qsbase::detail::DeferInFileStage(unsigned int flags, std::string_view text) {
  DeferredMessages* const messages = threadState.deferredMessages;
  if (messages == nullptr) {
    return false;
  }
  messages->push_back({flags, std::string(text)});
  return true;
}

// ---- configuration --------------------------------------------------------------------------------------------------

FileLoggingConfig::FileLoggingConfig()
    : enabled(false),
      maxBackupFiles(kDefaultMaxBackupFiles),
      maxFileSize(kDefaultMaxFileSize),
      lineFormatter(&DefaultLogLineFormatter) {}
FileLoggingConfig::FileLoggingConfig(const FileLoggingConfig& other) = default;
FileLoggingConfig& FileLoggingConfig::operator=(const FileLoggingConfig& other) = default;
FileLoggingConfig::~FileLoggingConfig() = default;

void InitLogConfig(const FileLoggingConfig& config, bool consoleLogging) {
  static std::atomic<bool> done{false};
  if (done.exchange(true)) {
    return;
  }
  const LastErrorGuard keepLastError;
  FileLoggingConfig inForce = config;
  const bool invalid = config.enabled && !CorrectConfig(inForce);
  OutputStage& stage = OutputStage::Get();
  SetLogLineFormatter(inForce.lineFormatter);
  stage.consoleEnabled = consoleLogging;
  stage.Configure(inForce);
  stage.fileEnabled = inForce.enabled;
  if (invalid) {
    QsLogMsg(kLogError,
             "InitLog: FileLoggingConfig is invalid or not completely set up! -> FileLogging is now DISABLED!");
  }
}

void SetEnabledLog(bool fileLogging, bool consoleLogging) {
  const LastErrorGuard keepLastError;
  OutputStage& stage = OutputStage::Get();
  Switch(stage.fileEnabled, fileLogging, "FileLogging");
  Switch(stage.consoleEnabled, consoleLogging, "Console Logging");
}
