/// \file
/// Listing of one directory and the directory for temporary files. Twins: posix/diros.cpp, win32/diros.cpp.
///
/// Paths come in with "\" or "/" and pass through NativePath here. A path that holds a NUL byte names nothing. Any
/// thread may call; one DirReader belongs to one thread at a time. After a failure the last error is the operating
/// system's.
#ifndef QSBASE_SUPPORT_DIROS_H
#define QSBASE_SUPPORT_DIROS_H

#include <cstdint>
#include <memory>
#include <string>

namespace qsbase::detail {

/// What a listing tells of one entry. A symbolic link is described itself, never its target.
struct DirEntry {
  std::string name;                     ///< without directory, the bytes of the file system
  bool isDirectory = false;             ///< a real directory; false for a link to one
  bool isLink = false;                  ///< a symbolic link; on Windows also a mounted directory (junction)
  bool isReadOnly = false;              ///< on Linux the owner's write bit is missing; false for a link
  std::uint64_t size = 0;               ///< of a regular file, in bytes; 0 for anything else
  std::int64_t created = 0;             ///< seconds since 1970; on Linux the time of the last status change
  std::int64_t accessed = 0;            ///< seconds since 1970
  std::int64_t written = 0;             ///< seconds since 1970
  std::int32_t writtenNanoseconds = 0;  ///< of the second of `written`, as exactly as the file system has it
};

/// What to do when the directory to open is itself a symbolic link.
enum class LinkRule { Follow, Refuse };

/// Reads the names of one directory, one after the other, in the operating system's order.
class DirReader {
 public:
  /// Opens the directory; the empty path is the current one. Failure shows as an immediate end.
  DirReader(const std::string& dir, LinkRule rule);
  ~DirReader();
  DirReader(const DirReader&) = delete;
  DirReader& operator=(const DirReader&) = delete;

  /// Moves to the next name, "." and ".." included. False at the end or on an error; the name is then unchanged. On
  /// Windows without the names that a path of this directory cannot hold: those with characters that the code page
  /// lacks, and those whose last dot or blank the system would drop.
  bool Next(std::string& name);

  /// Whether the entry that Next gave last is a real directory. False if it is gone.
  bool IsDirectory() const;

  /// Describes the entry that Next gave last. False if it is gone or must not be looked at; entry is then unspecified.
  bool Describe(DirEntry& entry) const;

 private:
  struct Stream;
  std::unique_ptr<Stream> _stream;
};

/// Describes the one object that the path names, its name being the last component as given, on Windows as stored.
/// False if there is none or it must not be looked at; entry is then unspecified. Trailing separators are ignored, so
/// that a link is seen itself; a lone root separator stays.
bool DescribePath(const std::string& path, DirEntry& entry);

/// The directory for temporary files as the system gives it, with or without a trailing separator; empty if there is
/// none, on Linux also if there is none in which this process may create files.
std::string SystemTempDirectory();

}  // namespace qsbase::detail

#endif
