/// \file
/// QsWriteBufferedFile, a file written in whole blocks.
///
/// An object belongs to one thread at a time. Nothing throws; failures show in the results, and the reason in
/// QsGetLastError().
#ifndef QSBASE_SUPPORT_BUFFEREDFILE_H
#define QSBASE_SUPPORT_BUFFEREDFILE_H

#include <memory>

#include <QSbase/export.h>

/// Writes a file from its start through a buffer of a fixed size. Every write to the file is one whole block of that
/// size, but the last one before a Seek() or Close(). After every write it can pause, so that a large file does not
/// keep the disk from others.
///
/// When a write fails, what was in the buffer is lost; blocks before it are in the file, and the file stays open.
///
/// \code
/// QsWriteBufferedFile file("C:\\data\\archive.dat", 1 << 20, 5);
/// for (const Record& record : records) {
///   if (file.Write(&record, sizeof record, 1) != 1) { ... }
/// }
/// if (file.Close() != 0) { ... }  // writes the rest
/// \endcode
class QSBASE_API QsWriteBufferedFile {
 public:
  /// Without a file.
  QsWriteBufferedFile();
  /// Opens at once, as Open() does; without one or the other it stays closed. Write() tells: it gives 0 then.
  QsWriteBufferedFile(const char* name, unsigned bufferSize, unsigned pauseMs);
  QsWriteBufferedFile(const QsWriteBufferedFile&) = delete;
  QsWriteBufferedFile& operator=(const QsWriteBufferedFile&) = delete;
  /// Closes. Whether the rest could be written, only Close() tells.
  ~QsWriteBufferedFile();

  /// Closes what is open, then creates the file or cuts it to nothing. True if it is open. The name may hold "\" and
  /// "/"; child processes do not inherit the file. False for a null name, and when the memory for the buffer is short.
  /// \param bufferSize  of a block, in bytes; with 0 the result is false
  /// \param pauseMs     how long to sleep after each write to the file, in milliseconds; 0 does not
  bool Open(const char* name, unsigned bufferSize, unsigned pauseMs);

  /// Takes \p count items of \p size bytes. Returns \p count; 0 when a block could not be written, when nothing is
  /// open, and when either is 0.
  unsigned Write(const void* data, unsigned size, unsigned count);

  /// Writes what the buffer holds, then sets the position relative to \p origin (SEEK_SET, SEEK_CUR, SEEK_END).
  /// Returns 0; -1 if the position cannot be set (also when nothing is open), else 1 if the buffer could not be
  /// written.
  int Seek(long offset, int origin);

  /// Writes what the buffer holds and closes. Returns 0, also when nothing was open; -1 if the system reports an error
  /// when it closes the file, else 1 if the rest could not be written. GetSleepCount() begins anew.
  int Close();

  /// How long it has paused since it was opened, in milliseconds.
  unsigned GetSleepCount() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;  // while a file is open
};

#endif
