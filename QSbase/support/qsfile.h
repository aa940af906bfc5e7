/// \file
/// QsFile, the owner of a C stream.
///
/// An object belongs to one thread at a time; different objects need no locking.
#ifndef QSBASE_SUPPORT_QSFILE_H
#define QSBASE_SUPPORT_QSFILE_H

#include <cstdio>
#include <string>

#include <QSbase/export.h>

/// Owns one C library stream and closes it at the end. The operations map one to one onto the C library's; failures
/// show in its results and in QsGetLastError(). Nothing throws but GetLine, when the memory for a line runs out.
///
/// Operations on a closed object give the failure value (0, -1, EOF, null) and do nothing.
///
/// All operations are virtual, so that an application may put its own file in place.
///
///     QsFile file("C:\\logs\\app.log", "rb");
///     std::string line;
///     for (file.GetLine(line); !file.IsEOF() || !line.empty(); file.GetLine(line)) { Use(line); }
class QSBASE_API QsFile {
 public:
  /// A closed file.
  QsFile();

  /// Opens at once, as Open does. A null name or mode leaves it closed; see IsOpen.
  QsFile(const char* name, const char* mode);

  QsFile(const QsFile&) = delete;
  QsFile& operator=(const QsFile&) = delete;

  /// Closes the stream.
  virtual ~QsFile();

  /// Closes what is open, then opens the file with fopen's mode and returns IsOpen(). False for a null name or mode.
  /// The name may hold "\" and "/". A directory is refused. Child processes do not inherit the stream. On Linux text
  /// modes ("r", "w") are the same as binary ones.
  virtual bool Open(const char* name, const char* mode);

  /// Creates the file or cuts it to zero length, and leaves the object closed. True if it could be opened and closed.
  virtual bool Reset(const char* name);

  /// Closes: 0 if nothing was open, else fclose's result (0, or EOF if what was buffered could not be written). The
  /// object is closed in any case.
  virtual int Close();

  /// Whether a stream is open.
  virtual bool IsOpen() const;

  /// Whether a read has met the end of the file.
  virtual bool IsEOF() const;

  /// Whether an operation on the stream has failed.
  virtual bool IsError() const;

  /// Reads up to `count` items of `size` bytes; returns how many whole items were read.
  virtual unsigned Read(void* buffer, unsigned size, unsigned count) const;

  /// Reads a 16-bit length in the machine's byte order (little-endian), then so many bytes into `out`. Returns 0; -2 if
  /// no stream is open, -3 if the length cannot be read, -4 if `out` cannot get the memory, -5 if fewer bytes follow.
  /// After a failure `out` is empty.
  virtual int ReadMediumString(std::string& out) const;

  /// Writes the bytes as one item of their number: 1, or 0 on failure and for an empty text.
  virtual unsigned Write(const std::string& data) const;

  /// Writes `count` items of `size` bytes; returns how many whole items were written.
  virtual unsigned Write(const void* buffer, unsigned size, unsigned count) const;

  /// Sets the position relative to `origin` (SEEK_SET, SEEK_CUR, SEEK_END); 0 on success.
  virtual int Seek(long offset, int origin) const;

  /// The next byte, or EOF.
  virtual int GetChar() const;

  /// Writes one byte; returns it, or EOF.
  virtual int PutChar(int c) const;

  /// Writes the text without its terminator; negative (EOF) on failure.
  virtual int PutString(const char* s) const;

  /// Reads at most size - 1 bytes up to and with the next line feed, terminated; null at the end of the file.
  virtual char* GetString(char* buffer, int size) const;

  /// The stream, null when closed. It still belongs to this object.
  virtual operator std::FILE*();

  /// The stream, null when closed. It still belongs to this object.
  virtual operator std::FILE*() const;

  /// The position in bytes from the start; -1 on failure and where `long` cannot hold it (2 GiB and more on Windows).
  virtual long Tell() const;

  /// Hands what is buffered to the system; 0 on success.
  virtual int Flush() const;

  /// The size in bytes; the position stays where it was. -1 if the stream cannot be positioned, or as for Tell.
  virtual long GetSize();

  /// Reads up to the next line feed, which is not stored, and drops one carriage return before it. The last line needs
  /// no line feed. At the end of the file `line` is empty and IsEOF() true.
  virtual void GetLine(std::string& line);

 private:
  std::FILE* _stream;
};

#endif
