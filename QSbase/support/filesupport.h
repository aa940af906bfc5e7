/// \file
/// File and directory operations by name: sizes, types, dates, create, copy, move, delete, load, save, backup.
///
/// Paths may hold "\" and "/" and pass through QsTranslateFilename, unless said otherwise; one of 2048 characters or
/// more is an error and names nothing. Contents travel as std::string, used as a buffer of bytes that may hold NUL.
///
/// No function keeps state; all may be called from any thread. Nothing is locked: what several threads or processes do
/// to one file at the same time is up to them, unless a function says what it guarantees. After a failure
/// QsGetLastError() tells the reason.
///
/// The read-only attribute is the file's own on Windows; on Linux a file is read-only when its owner's write bit is
/// missing, and clearing the attribute adds that bit. What a read-only file refuses follows the operating system: on
/// Linux it may be deleted and replaced by who may write to its directory.
#ifndef QSBASE_SUPPORT_FILESUPPORT_H
#define QSBASE_SUPPORT_FILESUPPORT_H

#include <cstdint>
#include <cstdio>
#include <string>

#include <QSbase/export.h>
#include <QSbase/text/datetime.h>

/// What a path names; see QsGetFSObjectType.
enum FSOType {
  FSO_NOTHING = 0,     ///< missing, unreadable or of another kind (a socket, a block device)
  FSO_FILE = 1,        ///< a regular file
  FSO_DIRECTORY = 2,   ///< a directory
  FSO_CHARDEVICE = 6,  ///< a character device
  FSO_PIPE = 7         ///< a pipe
};

/// Deletes a file when the scope ends, with QsDeleteFile(path, true). Never reports failure, never throws.
class QSBASE_API QsFileDeleter {
 public:
  /// Remembers the path; the file need not be there yet.
  explicit QsFileDeleter(const std::string& path);
  ~QsFileDeleter();
  QsFileDeleter(const QsFileDeleter&) = delete;
  QsFileDeleter& operator=(const QsFileDeleter&) = delete;

 private:
  std::string _path;
};

// ---- Sizes, permissions, type and dates. A symbolic link stands for its target. ----

/// The size in bytes; 0 for a null or empty name and on failure. A size that `long` cannot hold gives its largest
/// value.
QSBASE_API long QsGetFileSize(const char* name);

/// The size in bytes; 0 for a null or empty name and on failure.
QSBASE_API std::int64_t QsGetFileSize64(const char* name);

/// Sets `size` to the size in bytes. Returns 0; -3 for a null or empty name, -2 if nothing is there or it must not be
/// looked at, `size` then being 0. A size that `long` cannot hold gives its largest value.
QSBASE_API int QsGetFileSize(const char* name, long& size);

/// The same with 64 bits.
QSBASE_API int QsGetFileSize64(const char* name, std::int64_t& size);

/// Whether this process may read the file; false for a null or empty name.
QSBASE_API bool QsHasFileReadPermission(const char* name);

/// Whether this process may write to the file; false for a null or empty name.
QSBASE_API bool QsHasFileWritePermission(const char* name);

/// What the path names; one trailing separator is ignored, a lone root separator stays. The last error is set to 0
/// first. FSO_NOTHING is logged as a warning ("Cannot get status of file '...', error is '...'") unless the reason is
/// that there is nothing of that name.
QSBASE_API FSOType QsGetFSObjectType(const std::string& path);

/// Whether the path names a directory or a regular file: kept, callers rely on that laxness.
QSBASE_API bool DirExists(const std::string& path);

/// Sets `date` to the time of last modification, local, milliseconds 0. False, `date` untouched, if there is none.
QSBASE_API bool FileDate(const std::string& path, QsDateTime& date);

/// Sets the times of last access and modification to a local date and time; milliseconds are dropped. False for times
/// before 1970-01-01 00:00 UTC, for the unset time and if the file refuses.
QSBASE_API bool QsSetFileAccModTime(const std::string& path, const QsDateTime& time);

/// Sets both times to now. False if the file is missing; it is not created.
QSBASE_API bool QsTouchFile(const std::string& path);

/// The space of the volume that holds the path's directory part: "D:\data\" and "D:\data\file" ask for "D:\data\",
/// "D:\data" asks for "D:\"; a name without directory asks for the current one.
///
/// `freeBytes` are the bytes free to the caller, 0 on failure. The two pointers may be null and stay untouched on
/// failure: `percentFree` gets freeBytes / (total / 100) in integers, and nothing for a volume below 100 bytes;
/// `totalBytes` the volume's size. False for a null or empty path and if the volume cannot be asked.
QSBASE_API bool QsDiskFree(const char* path, std::int64_t& freeBytes, int* percentFree, std::int64_t* totalBytes);

// ---- Directories ----

/// Creates one directory. False for a null or empty path, if the name is taken or the parent is missing.
QSBASE_API bool QsCreateDirectory(const char* path);

/// Creates every missing directory of the path, up to 259 characters; false for a longer one and on failure. True at
/// once for an empty path, a bare drive or root, and for anything that DirExists finds. Another process may create the
/// same directories at the same time. Trailing separators are ignored.
///
///     ForceCreateDirectories("logs/2024/05");
QSBASE_API bool ForceCreateDirectories(const std::string& path);

/// Removes an empty directory. With `force` a first failure is followed by clearing the read-only attribute and one
/// more attempt. False for an empty path.
QSBASE_API bool QsRemoveDir(const std::string& path, bool force);

/// Gives a directory a new name on the same volume. False if `to` is there already, even as an empty directory. The
/// length of the paths is not checked here.
QSBASE_API bool QsRenameDir(const std::string& from, const std::string& to);

// ---- Copy, move, delete ----

/// Copies content, permissions and modification time of a regular file.
///
/// With `failIfExists` an existing target of any kind is left alone, also when it appears at the same moment; otherwise
/// a regular file is overwritten, through a symbolic link too. With `clearReadOnly` the target's read-only attribute is
/// cleared first, if it can be. False if the source is no regular file, if both are the same file (which stays as it
/// is), or on any failure of the system; a target begun is then removed, one that was there before left empty.
///
/// On Windows this is the system's own copy (CopyFileA) with all that belongs to a file there, such as its other
/// attributes; a target that is read-only or hidden is refused (5), one that exists with `failIfExists` too (80), and
/// so is the file itself (32).
QSBASE_API bool QsCopyFile(const std::string& from, const std::string& to, bool failIfExists, bool clearReadOnly);

/// QsCopyFile(from, to, true, false): a full copy and no link, whatever the third argument says. Kept.
QSBASE_API bool QsLinkFile(const std::string& from, const std::string& to, bool ignored);

/// Gives a file or directory a new name.
///
/// Without `replace` an existing target of any kind is left alone and the move fails, also when the target appears at
/// the same moment. With `replace` a file gives way to a file in one step: whoever opens the target finds the old file
/// or the new one. A directory never gives way. With `clearReadOnly` the target's read-only attribute is cleared first,
/// if it can be.
///
/// A regular file moves to another volume too: it is copied beside the target under a temporary name (as in
/// QsAtomicSaveBinaryFile, but a very long name is cut), put in place and then deleted at the source, unless another
/// file stands there by now; if only that last step fails, the move counts as done and the source stays. A symbolic
/// link is moved itself, but as a copy of its target to another volume. If both are names of one file, the system may
/// leave both (Linux).
///
/// On Windows this is MoveFileExA: to another volume the system copies straight to the target and deletes the source.
/// Errors: 183 without `replace` where the target exists, 32 while the source is open elsewhere, 5 while the target is.
QSBASE_API bool QsMoveFile(const std::string& from, const std::string& to, bool replace, bool clearReadOnly);

/// Deletes one file; of a symbolic link the link. With `force` a first failure is followed by clearing the read-only
/// attribute and one more attempt. False for an empty path and for a directory.
QSBASE_API bool QsDeleteFile(const std::string& path, bool force);

/// Deletes every file that matches the pattern (see CQsFindFile: wildcards in the last component only), never a
/// directory. Returns how many could be deleted; 0 for an empty pattern.
///
///     QsDeleteFiles("C:\\logs\\*.tmp", true);
QSBASE_API unsigned QsDeleteFiles(const std::string& pattern, bool force);

/// Moves dir\name + ext aside to the first of dir\name_1 + ext, dir\name_2 + ext, ... up to 999999 that is free. `ext`
/// comes with its dot; `name` without extension: a dot in it is taken for one and cut off with what follows, the number
/// too, and nothing can be moved. False if there is nothing to move, no name is free, or the move fails (logged as an
/// error "RenameFile: error renaming file ... to ...: ...").
QSBASE_API bool RenameFile(const std::string& dir, const std::string& name, const std::string& ext);

/// RenameFile(ExtractFilePath(p), ExtractFileName(p), ext).
QSBASE_API bool RenameFile(const std::string& pathWithoutExt, const std::string& ext);

/// Deletes what RenameFile left: every file dir\name_* + ext, without force. As there, `name` must not hold a dot.
QSBASE_API void DeleteRenamedFiles(const std::string& dir, const std::string& name, const std::string& ext);

/// The same with directory and name taken from the path.
QSBASE_API void DeleteRenamedFiles(const std::string& pathWithoutExt, const std::string& ext);

/// QsDeleteFiles(pattern, false).
QSBASE_API void DeleteRenamedFiles(const std::string& pattern);

/// Whether the file can be opened for appending. A missing file is created and stays.
QSBASE_API bool TestCreateFile(const std::string& path);

// ---- Loading and saving. Whole loads accept regular files only and never wait for a pipe. ----

/// Reads from `offset` to the end, or `length` bytes if that is not -1 and below the file's size; less if the file ends
/// before. `out` is replaced; it is empty after a failure. False if the file cannot be opened or read.
/// \throws ExMemoryAllocation "QsLoadFilePart cannot allocate buffer! (file ..., line ..." if the memory runs out; a
/// negative length other than -1 asks for more than there ever is.
QSBASE_API bool QsLoadFilePart(const std::string& path, unsigned offset, int length, std::string& out);

/// QsLoadFilePart(path, 0, length, out).
QSBASE_API bool QsFileHead(const std::string& path, int length, std::string& out);

/// The whole file. Empty on failure, which is logged as a warning "LoadBinaryFile: Could not load '...' (...)".
/// Loading an empty file leaves the last error as it was.
/// \throws ExMemoryAllocation as QsLoadFilePart.
QSBASE_API std::string LoadBinaryFile(const std::string& path);

/// The whole content of an open stream, which is left at its start. Empty for a null stream, one that cannot be
/// positioned, and when the memory runs out, which is logged as an error.
QSBASE_API std::string GetFileContent(std::FILE*& stream);

/// Writes the file anew. With `clearReadOnly` the read-only attribute of an existing file is cleared first. False on
/// failure, logged as an error "SaveBinaryFile >>> ..."; the file may then hold a part of the content.
QSBASE_API bool SaveBinaryFile(const std::string& path, const std::string& content, bool clearReadOnly);

/// Appends to the file, or creates it; clears the read-only attribute first. Failure as in SaveBinaryFile.
QSBASE_API bool AppendBinaryFile(const std::string& path, const std::string& content);

/// Cuts the file to zero length, or creates it; clears the read-only attribute first. Failure as in SaveBinaryFile.
QSBASE_API bool ClearBinaryFile(const std::string& path);

/// Writes the file so that a reader, also after a crash, finds the old content or the new one and never a part.
///
/// The content goes to a new file beside the target, path + "." + a decimal pseudo-random number (rand(), not seeded
/// here), created exclusively and without following links. It gets the permissions of an existing target, is brought to
/// the disk and then moved onto the target. Without `replace` an existing target is left alone and the save fails. A
/// target that is a symbolic link is replaced itself.
///
/// False on failure; what was written to the temporary file is then left behind, and everything but the last step is
/// logged as an error "SaveBinaryFile >>> ...". If 100 temporary names in a row are taken, the result is that of the
/// plain SaveBinaryFile(path, content, replace), which overwrites in any case.
///
/// A process that is killed in a save leaves at most one temporary file. Nobody removes it, and without srand() every
/// process begins with the same names: a program that may be killed a hundred times has to remove what it finds.
QSBASE_API bool QsAtomicSaveBinaryFile(const std::string& path, const std::string& content, bool replace);

/// Writes the file anew and ends it with CR LF, unless the content is empty or ends in LF or CR. Line ends inside stay
/// as they are. With `createDirs` missing directories are created.
/// \throws ExBase "Cannot create directory: ", "Cannot save to file:" or "Cannot save complete filecontents:" and the
/// path with "\" as its separator.
QSBASE_API void SaveFileWithCRLF(const std::string& path, const std::string& content, bool createDirs);

/// Loads the file and keeps a copy of it as path + ".bak"; an existing backup is overwritten only if asked.
///
/// A missing or empty file counts as lost: the backup's content is returned and the file restored from it, an empty one
/// only with `overwriteBackup`. That a copy fails is ignored.
///
/// Backup and restored file come in one step, so that one of the two is whole whenever the process ends: the copy is
/// made beside its target, under a name as in QsAtomicSaveBinaryFile, and moved over. Written in place, as QsCopyFile
/// does it, is a target that is a symbolic link, has a further name or, on Linux, another owner, cannot be opened for
/// reading, or cannot be replaced (on Windows while it is open elsewhere), and one in a directory that takes no new
/// file or has a hundred of those names. A file that is there and cannot be read counts as lost, too: an older backup
/// then takes its place.
/// \throws ExBase "File loading error! Could not load original file nor backup file!" if both are missing or empty.
QSBASE_API std::string FileLoadAndBackup(const std::string& path, bool overwriteBackup);

/// The same with the backup under the file's own name in another directory, which is created if missing.
/// \throws ExBase also "cannot create directory " and the directory.
QSBASE_API std::string FileLoadAndBackupToDir(const std::string& path, const std::string& backupDir,
                                              bool overwriteBackup);

/// Writes `length` bytes as a new file. Returns 0; -4 if an argument is null, -2 if the file cannot be opened or not
/// everything be written.
QSBASE_API int CAL_WriteBufferToFile(const char* name, const char* buffer, unsigned length);

/// Reads a file into a fresh array, which the caller releases with `delete[]`.
///
/// `size` becomes the smaller one of the file's size and maxSize, also when the text mode (`binary` false: CR LF is
/// read as LF, on every system) has put fewer bytes into the array. Behind what was read stands one zero byte; with an
/// alignment of 2 or more everything up to the array's end is zero. The array has size + 1 bytes; with such an
/// alignment what that exceeds a multiple of it by is added, so that 11 bytes become 14 with 4: kept.
///
/// Returns 0, or with a null buffer and size 0: -4 a null argument, -6 there is no such file, -10 it is empty, -11 it
/// has 4 GiB - 1 bytes or more, -2 it cannot be opened, -3 no memory, -5 it cannot be read.
QSBASE_API int CAL_ReadFileToBuffer(const char* name, char** buffer, unsigned& size, unsigned maxSize, bool binary,
                                    unsigned alignment);

/// Compares two files by size and, unless mode is 1, by content, in blocks of `blockSize` bytes.
///
/// Returns 0 if they are equal; -2 the first is missing, -3 the second is missing (and the first not empty), -10 the
/// sizes differ, -4 the first or -5 the second cannot be opened, -6 no memory for the blocks or a block size of 0, -11
/// the contents differ or cannot be read.
QSBASE_API int CAL_CompareFile(const char* a, const char* b, int mode, unsigned blockSize);

#endif
