/// \file
/// CQsFindFile, the wildcard enumerator over one directory, and the listing functions.
#ifndef QSBASE_SUPPORT_FINDFILE_H
#define QSBASE_SUPPORT_FINDFILE_H

#include <cstdint>
#include <list>
#include <string>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

class QSBASE_API CQsFindFile {
 public:
  CQsFindFile(const std::string& pattern, unsigned attributes);
  CQsFindFile(const std::string& dir, const std::string& pattern, unsigned attributes);
  CQsFindFile(const CQsFindFile&) = delete;
  CQsFindFile& operator=(const CQsFindFile&) = delete;

  virtual ~CQsFindFile();
  virtual long FindFirst();
  virtual int FindNext();
  virtual bool IsDir() const;
  virtual bool IsReadOnly() const;
  virtual std::string Filename() const;
  virtual std::uint64_t FileSize() const;
  virtual std::int64_t FileLastWriteTime() const;
  virtual bool IsThisDir_PrevDir() const;
  virtual QsDateTime FileDate() const;

 private:
  struct Record;
  Record* _record;
};

QSBASE_API int GetAllFiles(const std::string& dir, const std::string& pattern, std::list<std::string>& files,
                           unsigned attributes);
QSBASE_API int GetAllDirs(const std::string& dir, const std::string& pattern, std::list<std::string>& dirs,
                          unsigned attributes);
QSBASE_API int GetAllFilesAndDirs(const std::string& dir, const std::string& pattern, std::list<std::string>& files,
                                  std::list<std::string>& dirs, unsigned attributes);

#endif
