/// \file
/// What the file layer asks of the operating system. Twins: posix/fileos.cpp, win32/fileos.cpp.
///
/// Paths come in with "\" or "/" and pass through NativePath here. A path that holds a NUL byte names nothing. A call
/// that was interrupted by a signal is made again. Any thread may call; one OsFile belongs to one thread at a time.
/// After a failure the last error is the operating system's, or one of its numbers that says the same.
#ifndef QSBASE_SUPPORT_FILEOS_H
#define QSBASE_SUPPORT_FILEOS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace qsbase::detail {

/// The path as the operating system takes it: every "\" becomes "/" on Linux, nothing changes on Windows. The only
/// conversion there is; called only by the thin wrappers that open, stat, make, move, remove or list.
std::string NativePath(const std::string& path);

/// Whose status is asked for when the path names a symbolic link.
enum class LinkView { Target, Itself };

enum class FileKind { Regular, Directory, CharDevice, Pipe, Link, Other };

/// A point in time since 1970-01-01 00:00 UTC.
struct FileTime {
  std::int64_t seconds = 0;
  std::int32_t nanoseconds = 0;
};

struct FileStatus {
  FileKind kind = FileKind::Other;
  bool isReadOnly = false;   ///< on Linux the owner's write bit is missing, false for a link; on Windows the attribute
  unsigned permissions = 0;  ///< read, write and execute bits of owner, group and others (0 to 0777); on Windows those
                             ///< that say the same as the read-only attribute
  std::int64_t size = 0;     ///< in bytes, as the system reports it
  FileTime modified;         ///< last change of the content
};

/// What the permissions of a file are made from when nothing else is asked for; the process's mask is applied.
constexpr unsigned kDefaultPermissions = 0666;

/// Opens a C stream. Child processes do not inherit it; a directory is refused (it would open for reading on Linux).
/// Null on failure.
std::FILE* OsOpenStream(const std::string& path, const char* mode);

/// Closes a C stream: fclose's result, EOF also where the C library forgets what it could not write then.
int OsCloseStream(std::FILE* stream);

/// The position of a C stream in bytes from the start; -1 on failure. Not ftell's, which wraps where `long` has 32
/// bits.
std::int64_t OsTell(std::FILE* stream);

/// Sets the position of a C stream relative to `origin` (SEEK_SET, SEEK_CUR, SEEK_END). Not fseek's SEEK_CUR, which
/// counts in a `long`.
bool OsSeek(std::FILE* stream, std::int64_t offset, int origin);

/// To be called after a failed operation of the C library on a stream: makes the reason the last error where only the
/// library knows it.
void OsStreamFailed();

/// Describes what the path names. False if nothing is there or it must not be looked at; status is then unspecified.
bool OsGetStatus(const std::string& path, LinkView view, FileStatus& status);

/// Whether a last-error code says that there is nothing of that name.
bool OsErrorMeansMissing(int error);

enum class AccessKind { Read, Write };

/// Whether the process's real user may read or write what the path names; on Windows by its presence and the read-only
/// attribute alone.
bool OsHasAccess(const std::string& path, AccessKind kind);

/// Clears the read-only attribute; on Linux: adds the owner's write bit. Follows a symbolic link; on Windows the link
/// itself loses the attribute as well.
bool OsClearReadOnly(const std::string& path);

/// Makes one directory; fails if the name is taken.
bool OsMakeDirectory(const std::string& path);

/// Removes one empty directory; a symbolic link to one is refused.
bool OsRemoveDirectory(const std::string& path);

/// Removes one name that is not a directory; of a symbolic link, also one to a directory, the link itself.
bool OsRemoveFile(const std::string& path);

enum class MoveResult { Done, Failed, OtherVolume };

enum class CopyResult { Done, Failed, NotOffered };

/// Copies a file as the system does it in one operation: content, attributes and time of the last change, over an
/// existing target unless `failIfExists`. Fails if both are the same file. NotOffered, with nothing done, where the
/// system has no such operation and the caller shall read and write instead.
CopyResult OsCopyFile(const std::string& from, const std::string& to, bool failIfExists);

/// Gives a file or directory a new name on the same volume, atomically. With `replace` an existing file gives way,
/// never a directory to a file; without, an existing name of any kind is left alone even if it appears at the same
/// moment. OtherVolume only if the caller shall copy and delete instead; nothing has changed then. (Windows copies and
/// deletes files by itself.)
MoveResult OsMove(const std::string& from, const std::string& to, bool replace);

/// Sets the times of last access and last modification to so many seconds since 1970.
bool OsSetTimes(const std::string& path, std::int64_t seconds);

/// Sets both times to now, by the file system's clock.
bool OsTouch(const std::string& path);

/// The volume that holds the directory: bytes free to the caller and in all, 2^63-1 if there are more. The empty path
/// is the current directory.
bool OsDiskFree(const std::string& directory, std::int64_t& freeBytes, std::int64_t& totalBytes);

/// Brings the names in a directory to the disk, where the system can; false otherwise. The empty path is the current
/// directory.
bool OsSyncDirectory(const std::string& directory);

/// An open file without a buffer. Closed by the destructor, which leaves the last error alone. Child processes do not
/// inherit it. The opening members close what was open before.
class OsFile {
 public:
  OsFile() noexcept = default;
  ~OsFile();
  OsFile(const OsFile&) = delete;
  OsFile& operator=(const OsFile&) = delete;

  /// Opens an existing regular file for reading. Anything else is refused, at once: a pipe without a writer too.
  bool OpenRead(const std::string& path);

  enum class Writing {
    Truncate,  ///< anew or from empty, as the mode "wb" does
    Append,    ///< every write goes to the end, as the mode "ab" does
    Keep       ///< from the start, the old content stays until it is written over; regular files only, never waits
  };

  /// Opens for writing and makes the file if it is missing.
  bool OpenWrite(const std::string& path, Writing writing);

  /// The open file of a stream, for writing when the stream is closed. They share the position.
  bool OpenSame(std::FILE* stream);

  enum class Creation { Created, Exists, Failed };

  /// Makes a file that was not there and opens it for writing. A symbolic link at the name, even a dangling one,
  /// counts as existing and is not followed. The process's mask is applied to the permissions.
  Creation CreateNew(const std::string& path, unsigned permissions);

  /// Describes the open file; the permissions are those of now.
  bool Describe(FileStatus& status) const;

  /// Whether both are the same file, or it cannot be told. The last error then says so ("busy"); else it is unchanged.
  bool IsSameAs(const OsFile& other) const;

  /// Whether nobody sees more than the content change when the other file takes this one's name: this one has no
  /// further name and, on Linux, both have one owner and group. False also if it cannot be told.
  bool MayGiveWayTo(const OsFile& other) const;

  /// Sets the position for the next Read or Write, in bytes from the start.
  bool Seek(std::uint64_t position);

  /// The same relative to `origin` (SEEK_SET, SEEK_CUR, SEEK_END; any other fails).
  bool Seek(std::int64_t offset, int origin);

  /// Reads until size bytes are there or the file ends. Returns how many; -1 on an error.
  std::ptrdiff_t Read(void* buffer, std::size_t size);

  /// Writes everything; false if less could be written.
  bool Write(const void* data, std::size_t size);

  /// Lets the system copy from one position to the other without passing through this process, as far as it can: any
  /// number of bytes, also none where it cannot. Both positions move on; what is left is to be copied by Read and
  /// Write. No failure is reported: the Read and Write that follow meet it again.
  void CopyInSystem(OsFile& from);

  /// Cuts the file to that size. The position stays.
  bool Truncate(std::uint64_t size = 0);

  /// Sets the permission bits exactly.
  bool SetPermissions(unsigned permissions);

  /// Sets the time of last modification.
  bool SetModified(const FileTime& time);

  /// Brings content and attributes to the disk.
  bool Flush();

  /// Closes; false if the system reports an error only now. True if nothing was open.
  bool Close();

 private:
  std::intptr_t _handle = -1;
};

}  // namespace qsbase::detail

#endif
