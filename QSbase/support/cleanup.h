/// \file
/// Directory listing and clean-up by age or count.
#ifndef QSBASE_SUPPORT_CLEANUP_H
#define QSBASE_SUPPORT_CLEANUP_H

#include <map>
#include <string>
#include <vector>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

QSBASE_API void QsBuildFileList(const std::string& dir, const std::string& pattern, std::vector<std::string>& out,
                                int flags, int max);
QSBASE_API void QsBuildFileListTimeAgeSorted(const std::string& dir, const std::string& pattern,
                                             std::multimap<QsDateTime, std::string>& out, int flags, unsigned max);
QSBASE_API void QsCleanupDir(const std::string& dir, const std::string& omitDir, unsigned ageMinutes);
QSBASE_API unsigned QsCleanupDirectory(const std::string& dir, unsigned keep, const std::string& pattern, bool force);
QSBASE_API bool QsDeleteDirectoryRecurse(const std::string& dir, bool removeDir, int sleepMs, bool force,
                                         bool (*mayGoOn)(), bool continueOnError);
QSBASE_API unsigned QsGetDirEntryCount(const std::string& dir);
QSBASE_API unsigned QsGetDirFileCount(const std::string& dir);
QSBASE_API unsigned QsGetDirFileCount(const std::string& dir, unsigned maxSeconds, bool& timedOut);

#endif
