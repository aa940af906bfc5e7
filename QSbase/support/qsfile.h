/// \file
/// QsFile, the owner of a C stream.
#ifndef QSBASE_SUPPORT_QSFILE_H
#define QSBASE_SUPPORT_QSFILE_H

#include <cstdio>
#include <string>

#include <QSbase/export.h>

class QSBASE_API QsFile {
 public:
  QsFile();
  QsFile(const char* name, const char* mode);
  QsFile(const QsFile&) = delete;
  QsFile& operator=(const QsFile&) = delete;

  virtual ~QsFile();
  virtual bool Open(const char* name, const char* mode);
  virtual bool Reset(const char* name);
  virtual int Close();
  virtual bool IsOpen() const;
  virtual bool IsEOF() const;
  virtual bool IsError() const;
  virtual unsigned Read(void* buffer, unsigned size, unsigned count) const;
  virtual int ReadMediumString(std::string& out) const;
  virtual unsigned Write(const std::string& data) const;
  virtual unsigned Write(const void* buffer, unsigned size, unsigned count) const;
  virtual int Seek(long offset, int origin) const;
  virtual int GetChar() const;
  virtual int PutChar(int c) const;
  virtual int PutString(const char* s) const;
  virtual char* GetString(char* buffer, int size) const;
  virtual operator std::FILE*();
  virtual operator std::FILE*() const;
  virtual long Tell() const;
  virtual int Flush() const;
  virtual long GetSize();
  virtual void GetLine(std::string& line);

 private:
  std::FILE* _stream;
};

#endif
