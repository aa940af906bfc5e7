/// \file
/// File and directory operations by name: sizes, types, dates, create, copy, move, delete, load, save, backup.
#ifndef QSBASE_SUPPORT_FILESUPPORT_H
#define QSBASE_SUPPORT_FILESUPPORT_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

enum FSOType { FSO_NOTHING = 0, FSO_FILE = 1, FSO_DIRECTORY = 2, FSO_CHARDEVICE = 6, FSO_PIPE = 7 };

class QSBASE_API QsFileDeleter {
 public:
  explicit QsFileDeleter(const std::string& path);
  ~QsFileDeleter();
  QsFileDeleter(const QsFileDeleter&) = delete;
  QsFileDeleter& operator=(const QsFileDeleter&) = delete;

 private:
  std::string _path;
};

QSBASE_API long QsGetFileSize(const char* name);
QSBASE_API std::int64_t QsGetFileSize64(const char* name);
QSBASE_API int QsGetFileSize(const char* name, long& size);
QSBASE_API int QsGetFileSize64(const char* name, std::int64_t& size);
QSBASE_API bool QsHasFileReadPermission(const char* name);
QSBASE_API bool QsHasFileWritePermission(const char* name);
QSBASE_API FSOType QsGetFSObjectType(const std::string& path);
QSBASE_API bool DirExists(const std::string& path);
QSBASE_API bool FileDate(const std::string& path, QsDateTime& date);
QSBASE_API bool QsSetFileAccModTime(const std::string& path, const QsDateTime& time);
QSBASE_API bool QsTouchFile(const std::string& path);
QSBASE_API bool QsDiskFree(const char* path, std::int64_t& freeBytes, int* percentFree, std::int64_t* totalBytes);

QSBASE_API bool QsCreateDirectory(const char* path);
QSBASE_API bool ForceCreateDirectories(const std::string& path);
QSBASE_API bool QsRemoveDir(const std::string& path, bool force);
QSBASE_API bool QsRenameDir(const std::string& from, const std::string& to);

QSBASE_API bool QsCopyFile(const std::string& from, const std::string& to, bool failIfExists, bool clearReadOnly);
QSBASE_API bool QsLinkFile(const std::string& from, const std::string& to, bool ignored);
QSBASE_API bool QsMoveFile(const std::string& from, const std::string& to, bool replace, bool clearReadOnly);
QSBASE_API bool QsDeleteFile(const std::string& path, bool force);
QSBASE_API unsigned QsDeleteFiles(const std::string& pattern, bool force);
QSBASE_API bool RenameFile(const std::string& dir, const std::string& name, const std::string& ext);
QSBASE_API bool RenameFile(const std::string& pathWithoutExt, const std::string& ext);
QSBASE_API void DeleteRenamedFiles(const std::string& dir, const std::string& name, const std::string& ext);
QSBASE_API void DeleteRenamedFiles(const std::string& pathWithoutExt, const std::string& ext);
QSBASE_API void DeleteRenamedFiles(const std::string& pattern);
QSBASE_API bool TestCreateFile(const std::string& path);

QSBASE_API bool QsLoadFilePart(const std::string& path, unsigned offset, int length, std::string& out);
QSBASE_API bool QsFileHead(const std::string& path, int length, std::string& out);
QSBASE_API std::string LoadBinaryFile(const std::string& path);
QSBASE_API std::string GetFileContent(std::FILE*& stream);
QSBASE_API bool SaveBinaryFile(const std::string& path, const std::string& content, bool clearReadOnly);
QSBASE_API bool AppendBinaryFile(const std::string& path, const std::string& content);
QSBASE_API bool ClearBinaryFile(const std::string& path);
QSBASE_API bool QsAtomicSaveBinaryFile(const std::string& path, const std::string& content, bool replace);
QSBASE_API void SaveFileWithCRLF(const std::string& path, const std::string& content, bool createDirs);
QSBASE_API std::string FileLoadAndBackup(const std::string& path, bool overwriteBackup);
QSBASE_API std::string FileLoadAndBackupToDir(const std::string& path, const std::string& backupDir,
                                              bool overwriteBackup);

QSBASE_API int CAL_WriteBufferToFile(const char* name, const char* buffer, unsigned length);
QSBASE_API int CAL_ReadFileToBuffer(const char* name, char** buffer, unsigned& size, unsigned maxSize, bool binary,
                                    unsigned alignment);
QSBASE_API int CAL_CompareFile(const char* a, const char* b, int mode, unsigned blockSize);

#endif
