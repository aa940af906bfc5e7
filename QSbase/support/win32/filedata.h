/// \file
/// What both file twins read of one file system object (internal).
#ifndef QSBASE_SUPPORT_WIN32_FILEDATA_H
#define QSBASE_SUPPORT_WIN32_FILEDATA_H

#include <cstdint>
#include <string>

#include <QSbase/lasterrorguard.h>
#include <QSbase/support/fileos.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

constexpr std::int64_t kTicksPerSecond = 10000000;                       // of a FILETIME
constexpr std::int64_t kUnixEpochTicks = 11644473600 * kTicksPerSecond;  // from 1601 to 1970

struct FileData {
  DWORD attributes = 0;
  DWORD tag = 0;  ///< of a reparse point; 0 if there is none or it cannot be had
  FILETIME created{};
  FILETIME accessed{};
  FILETIME written{};
  std::uint64_t size = 0;

  bool Has(DWORD attribute) const { return (attributes & attribute) != 0; }

  /// Whether the object stands for another one: a symbolic link or a mounted directory. Other reparse points (files
  /// kept elsewhere, files stored once) are what they seem to be; one that does not tell counts as a link.
  bool IsLink() const { return Has(FILE_ATTRIBUTE_REPARSE_POINT) && (tag == 0 || IsReparseTagNameSurrogate(tag)); }

  bool IsDirectory() const { return Has(FILE_ATTRIBUTE_DIRECTORY) && !IsLink(); }
  bool IsReadOnly() const { return Has(FILE_ATTRIBUTE_READONLY); }
};

inline std::uint64_t Join(DWORD high, DWORD low) { return (std::uint64_t{high} << 32U) | low; }

inline FileTime ToFileTime(const FILETIME& native) {
  const std::int64_t ticks =
      static_cast<std::int64_t>(Join(native.dwHighDateTime, native.dwLowDateTime)) - kUnixEpochTicks;
  FileTime time;
  time.seconds = ticks / kTicksPerSecond - (ticks % kTicksPerSecond < 0 ? 1 : 0);
  time.nanoseconds = static_cast<std::int32_t>((ticks - time.seconds * kTicksPerSecond) * 100);
  return time;
}

/// Fills in what all of the system's records of a file have under the same names.
template <class Record>
void Fill(const Record& native, FileData& data) {
  data.attributes = native.dwFileAttributes;
  data.created = native.ftCreationTime;
  data.accessed = native.ftLastAccessTime;
  data.written = native.ftLastWriteTime;
  data.size = Join(native.nFileSizeHigh, native.nFileSizeLow);
}

/// The handle that the shared files know as a number.
inline HANDLE ToHandle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

/// Closes a handle of the system; keeps the last error.
class HandleCloser {
 public:
  explicit HandleCloser(HANDLE handle) noexcept : _handle(handle) {}
  ~HandleCloser() {
    const LastErrorGuard keep;
    if (IsOpen()) {
      CloseHandle(_handle);
    }
  }
  HandleCloser(const HandleCloser&) = delete;
  HandleCloser& operator=(const HandleCloser&) = delete;

  bool IsOpen() const { return _handle != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return _handle; }

 private:
  HANDLE _handle;
};

/// Opens a file or directory for its attributes only, which disturbs nobody who has it open.
inline HANDLE OpenAttributes(const std::string& path, DWORD access, LinkView view) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const DWORD flags =
      FILE_FLAG_BACKUP_SEMANTICS | (view == LinkView::Itself ? static_cast<DWORD>(FILE_FLAG_OPEN_REPARSE_POINT) : 0);
  return CreateFileA(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING, flags, nullptr);
}

inline DWORD ReparseTag(const std::string& path) {
  const LastErrorGuard keep;
  const HandleCloser file(OpenAttributes(path, FILE_READ_ATTRIBUTES, LinkView::Itself));
  FILE_ATTRIBUTE_TAG_INFO info{};
  const bool known =
      file.IsOpen() && GetFileInformationByHandleEx(file.Get(), FileAttributeTagInfo, &info, sizeof info) != 0;
  return known ? info.ReparseTag : 0;
}

/// Describes what the path names, a link itself. Files that the system keeps for itself (its paging file) let nobody
/// ask; their directory does tell.
inline bool ReadFileData(const std::string& path, FileData& data) {
  WIN32_FILE_ATTRIBUTE_DATA native;
  if (GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &native) != 0) {
    Fill(native, data);
    data.tag = data.Has(FILE_ATTRIBUTE_REPARSE_POINT) ? ReparseTag(path) : 0;
    return true;
  }
  if (GetLastError() != ERROR_SHARING_VIOLATION || path.find_first_of("*?") != std::string::npos) {
    return false;
  }
  WIN32_FIND_DATAA listed;
  const HANDLE search = FindFirstFileA(path.c_str(), &listed);
  if (search == INVALID_HANDLE_VALUE) {
    return false;
  }
  FindClose(search);
  Fill(listed, data);
  data.tag = data.Has(FILE_ATTRIBUTE_REPARSE_POINT) ? listed.dwReserved0 : 0;
  return true;
}

}  // namespace qsbase::detail

#endif
