/// \file
/// The exception family and the operating system's last-error code.
#ifndef QSBASE_ERRORS_H
#define QSBASE_ERRORS_H

#include <string>

#include <QSbase/export.h>

class QSBASE_API ExBase {
 public:
  explicit ExBase(const std::string& message);
  ExBase(const ExBase& other);
  ExBase& operator=(const ExBase& other);
  virtual ~ExBase();
  virtual std::string GetErrorText() const;
  virtual void PrependContext(const std::string& context);

 private:
  std::string _message;
};

class QSBASE_API ExAssert : public ExBase {
 public:
  explicit ExAssert(const std::string& message);
  ExAssert(const ExAssert& other);
  ExAssert& operator=(const ExAssert& other);
  ~ExAssert() override;
};

class QSBASE_API ExInvalidRange : public ExAssert {
 public:
  explicit ExInvalidRange(const std::string& message);
  ExInvalidRange(const ExInvalidRange& other);
  ExInvalidRange& operator=(const ExInvalidRange& other);
  ~ExInvalidRange() override;
};

class QSBASE_API ExPrecondition : public ExAssert {
 public:
  explicit ExPrecondition(const std::string& message);
  ExPrecondition(const ExPrecondition& other);
  ExPrecondition& operator=(const ExPrecondition& other);
  ~ExPrecondition() override;
};

class QSBASE_API ExMemoryAllocation : public ExBase {
 public:
  explicit ExMemoryAllocation(const std::string& what);
  ExMemoryAllocation(const ExMemoryAllocation& other);
  ExMemoryAllocation& operator=(const ExMemoryAllocation& other);
  ~ExMemoryAllocation() override;
};

QSBASE_API int QsGetLastError();
QSBASE_API void QsSetLastError(int code);
QSBASE_API std::string QsErrorMessage(int code);

#endif
