/// \file
/// Path and file-name rules. Text in, text out: nothing here touches the file system but QsGetSysTempPath.
#ifndef QSBASE_SUPPORT_PATHS_H
#define QSBASE_SUPPORT_PATHS_H

#include <string>

#include <QSbase/export.h>

QSBASE_API std::string QsTranslateFilename(const std::string& name);
QSBASE_API std::string ExtractFileDrive(const std::string& path);
QSBASE_API std::string ExtractFilePath(const std::string& path);
QSBASE_API std::string ExtractFileName(const std::string& path);
QSBASE_API std::string ExtractFileExt(const std::string& path);
QSBASE_API std::string ExtractFileBaseName(const std::string& path);
QSBASE_API std::string CAL_GetFileBaseName(const std::string& path);
QSBASE_API std::string CAL_GetFileExtension(const std::string& path);
QSBASE_API std::string CAL_GetFileExtensionLC(const std::string& path);
QSBASE_API std::string ConstructPath(const std::string& dir, const std::string& name);
QSBASE_API std::string ConstructPath(const std::string& dir, const std::string& file, const std::string& ext);
QSBASE_API std::string ConstructPath(const std::string& dir1, const std::string& dir2, const std::string& file,
                                     const std::string& ext);
QSBASE_API std::string QsAppendFileslash(const std::string& path);
QSBASE_API void QsAppendFileslashInPlace(std::string& path);
QSBASE_API std::string QsRemoveTerminatingFileslash(const std::string& path);
QSBASE_API void QsRemoveTerminatingFileslashInPlace(std::string& path);
QSBASE_API bool QsIsUNCPath(const std::string& path);
QSBASE_API bool QsIsAbsolutePath(const std::string& path);
QSBASE_API std::string QsGetSysTempPath();
QSBASE_API std::string QsMakeCompatibleFilename(const std::string& name);
QSBASE_API std::string QsMakeCompatibleFilepath(const std::string& path);

/// The path as the operating system takes it: on Linux with every "\" as "/", on Windows unchanged.
QSBASE_API std::string QsNativePath(const std::string& path);

#endif
