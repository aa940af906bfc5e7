/// \file
/// Lets one call, or several in a row, of what a program asks of the operating system and the C library fail, come back
/// short or be interrupted.
///
/// On Linux the functions of the C library stand in the test program under their own names (posixfaults.cpp), and so
/// come before it; streams that a program opens by fopen read and write through them too. The same source is a library
/// for LD_PRELOAD, which brings faults to a whole program. On Windows the program's table of imported functions is
/// changed (win32faults.cpp). The library itself knows nothing of all this.
///
/// Off until a FaultInjection lives. Any thread may make the calls; one injection at a time.
#ifndef QSBASE_TESTS_RELIABILITY_COMMON_FAULTS_H
#define QSBASE_TESTS_RELIABILITY_COMMON_FAULTS_H

#include <array>
#include <cstddef>
#include <limits>
#include <string>

namespace qsbase::testing {

/// What the calls are counted by. In parentheses what is asked of Windows beside the C runtime.
enum class FaultKind {
  Open,    ///< open, openat, fopen, socket, accept (CreateFile, FindFirstFile)
  Read,    ///< read, pread, readdir, and a stream's reading (ReadFile, FindNextFile)
  Write,   ///< write, pwrite, ftruncate, copy_file_range, and a stream's writing (WriteFile, SetEndOfFile, CopyFile)
  Flush,   ///< fsync, fdatasync (FlushFileBuffers)
  Close,   ///< close, closedir, fclose (CloseHandle, FindClose); closed even so
  Rename,  ///< rename, renameat2, link (MoveFileEx)
  Stat,    ///< stat, fstat, lstat, fstatat, statvfs, access (GetFileAttributes and the like)
  Unlink,  ///< unlink, rmdir (DeleteFile, RemoveDirectory)
  MakeFolder,  ///< mkdir (CreateDirectory)
  Attribute,   ///< chmod, fchmod, utimensat, futimens (SetFileAttributes, SetFileTime and the like)
  Allocate,    ///< malloc, calloc, realloc and their like, operator new, mmap (CreateFileMapping, MapViewOfFile)
  Connect,     ///< connect
  Send,        ///< send, sendto, sendmsg, and write to a socket
  Receive,     ///< recv, recvfrom, recvmsg, and read from a socket
};

inline constexpr std::array<FaultKind, 14> kFaultKinds = {
    FaultKind::Open,     FaultKind::Read,    FaultKind::Write,  FaultKind::Flush,      FaultKind::Close,
    FaultKind::Rename,   FaultKind::Stat,    FaultKind::Unlink, FaultKind::MakeFolder, FaultKind::Attribute,
    FaultKind::Allocate, FaultKind::Connect, FaultKind::Send,   FaultKind::Receive};

/// As an environment variable and a failed test name it: "open", "makefolder".
const char* NameOf(FaultKind kind);

/// The error of a call that does half of what it is asked for: a transfer of two bytes or more. Other calls pass by
/// and are not counted.
inline constexpr int kShort = -1;

inline constexpr unsigned kForever = std::numeric_limits<unsigned>::max();

struct Fault {
  FaultKind kind = FaultKind::Open;
  int error = 0;       ///< the last error that the call gives: errno, on Windows that of the system; or kShort
  unsigned first = 1;  ///< the call of this kind that it hits, counted from 1; 0 hits none, and all are counted
  unsigned count = 1;  ///< how many calls in a row it hits; kForever for all that follow
};

/// While it lives, the fault is in force in all threads of the process.
class FaultInjection {
 public:
  explicit FaultInjection(const Fault& fault);
  ~FaultInjection();
  FaultInjection(const FaultInjection&) = delete;
  FaultInjection& operator=(const FaultInjection&) = delete;

  /// How many calls of the kind were made so far, also those that the fault hit.
  unsigned Calls() const;

  /// How many of them the fault hit.
  unsigned Hits() const;
};

/// While it lives, calls of this thread are neither hit nor counted: for what the test itself does in between.
class NoFaults {
 public:
  NoFaults();
  ~NoFaults();
  NoFaults(const NoFaults&) = delete;
  NoFaults& operator=(const NoFaults&) = delete;
};

/// How many blocks of memory the process holds that it asked for since it started, in all threads. Where a sanitizer
/// keeps the memory only those of operator new: the others it reports at the end.
long LiveBlocks();

// A program of its own takes its fault from two environment variables, where posixfaults.cpp is loaded into it or
// linked:
//   QSBASE_FAULT      kind:error:first[:count], "write:ENOSPC:3", "read:short:1:forever", "close:5:2:4"
//   QSBASE_FAULT_HIT  a file that is made at the first hit, so that another program knows of it
// Parses the first; false if it says nothing that is known.
bool ParseFault(const std::string& text, Fault& fault);

}  // namespace qsbase::testing

#endif
