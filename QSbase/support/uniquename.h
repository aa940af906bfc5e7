/// \file
/// Free file names beside names that are taken: "report (2).txt".
#ifndef QSBASE_SUPPORT_UNIQUENAME_H
#define QSBASE_SUPPORT_UNIQUENAME_H

#include <map>
#include <string>

#include <QSbase/export.h>
#include <QSbase/sync/criticalsection.h>

class QSBASE_API CUniqueFilenameManager {
 public:
  CUniqueFilenameManager(int flags, const std::string& prefix, const std::string& suffix);
  CUniqueFilenameManager();
  CUniqueFilenameManager(const CUniqueFilenameManager&) = delete;
  CUniqueFilenameManager& operator=(const CUniqueFilenameManager&) = delete;
  virtual ~CUniqueFilenameManager();

  void SetFlags(int flags);
  int Reset();
  int GetUniquePath(const std::string& wanted, std::string& result, bool remember);

 protected:
  int GetUniquePathInternal(const std::string& wanted, std::string& result, bool remember);

 private:
  friend QSBASE_API int CAL_GetUniquePath(const std::string& wanted, std::string& result);

  int _flags;
  std::string _prefix;
  std::string _suffix;
  std::map<std::string, int>* _counters;
  QsCriticalSection _lock;
};

QSBASE_API int CAL_GetUniquePath(const std::string& wanted, std::string& result);

#endif
