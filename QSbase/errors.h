/// \file
/// The exception family and the operating system's last-error code.
///
/// Misuse, unparsable fixed text forms and exhausted memory are reported by throwing one of these classes, by value;
/// failures of the operating system by the calling thread's last-error code. The classes stand beside the standard
/// exceptions, they do not derive from them. An exception object belongs to one thread at a time; the three functions
/// may be called from any thread.
#ifndef QSBASE_ERRORS_H
#define QSBASE_ERRORS_H

#include <string>

#include <QSbase/export.h>

/// Root of everything the library throws. Thrown itself where a set-up step fails.
///
/// \code
/// try {
///   section.Leave();
/// } catch (ExBase& error) {
///   error.PrependContext("Worker::Stop");
///   throw;  // reads "Worker::Stop >>> QsCriticalSection::Enter - _impl is invalid"
/// }
/// \endcode
class QSBASE_API ExBase {
 public:
  /// Stores a copy of \p message, unchanged.
  explicit ExBase(const std::string& message);
  /// Copies the message.
  ExBase(const ExBase& other);
  /// Copies the message.
  ExBase& operator=(const ExBase& other);
  virtual ~ExBase();

  /// A copy of the message, with every context that was prepended.
  virtual std::string GetErrorText() const;

  /// Replaces the message by \p context + " >>> " + message. Repeated calls build a chain, the outermost context first.
  virtual void PrependContext(const std::string& context);

 private:
  std::string _message;
};

/// A failed check; common base of ExInvalidRange and ExPrecondition, so that one handler catches both.
class QSBASE_API ExAssert : public ExBase {
 public:
  /// Stores a copy of \p message, unchanged.
  explicit ExAssert(const std::string& message);
  /// Copies the message.
  ExAssert(const ExAssert& other);
  /// Copies the message.
  ExAssert& operator=(const ExAssert& other);
  ~ExAssert() override;
};

/// An index or a length out of range.
class QSBASE_API ExInvalidRange : public ExAssert {
 public:
  /// Stores a copy of \p message, unchanged.
  explicit ExInvalidRange(const std::string& message);
  /// Copies the message.
  ExInvalidRange(const ExInvalidRange& other);
  /// Copies the message.
  ExInvalidRange& operator=(const ExInvalidRange& other);
  ~ExInvalidRange() override;
};

/// An object used without its implementation.
class QSBASE_API ExPrecondition : public ExAssert {
 public:
  /// Stores a copy of \p message, unchanged.
  explicit ExPrecondition(const std::string& message);
  /// Copies the message.
  ExPrecondition(const ExPrecondition& other);
  /// Copies the message.
  ExPrecondition& operator=(const ExPrecondition& other);
  ~ExPrecondition() override;
};

/// A failed allocation. Not an ExAssert.
class QSBASE_API ExMemoryAllocation : public ExBase {
 public:
  /// Stores "Memory allocation error: " followed by \p what.
  explicit ExMemoryAllocation(const std::string& what);
  /// Copies the message.
  ExMemoryAllocation(const ExMemoryAllocation& other);
  /// Copies the message.
  ExMemoryAllocation& operator=(const ExMemoryAllocation& other);
  ~ExMemoryAllocation() override;
};

/// The calling thread's last-error code: `errno` on Linux, `GetLastError()` on Windows. The library keeps no copy.
QSBASE_API int QsGetLastError();

/// Sets the calling thread's last-error code to \p code.
QSBASE_API void QsSetLastError(int code);

/// The system's text for \p code, without a line break at its end. On Linux the codes of DNSQuery() and of sockets,
/// 9001 and above, have texts, too.
/// A code without a text gives "<unknown error: 0x" + the code in lower-case hexadecimal + ">", so -1 gives
/// "<unknown error: 0xffffffff>". Leaves the last-error code alone.
QSBASE_API std::string QsErrorMessage(int code);

#endif
