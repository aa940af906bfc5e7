#include <QSbase/support/fileos.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>

#include <io.h>

#include <QSbase/lasterrorguard.h>
#include <QSbase/support/win32/filedata.h>
#include <QSbase/support/win32/openregular.h>
#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

namespace {

constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE;  // as the C runtime shares: not for deletion
constexpr std::size_t kTransferChunk = std::size_t{1} << 26;   // network drives refuse very large ones
constexpr unsigned kWriteBits = 0222;
constexpr DWORD kReadAttributes = FILE_READ_ATTRIBUTES;

// The path for a system call; empty, which names nothing, if a C string cannot carry it.
std::string SystemPath(const std::string& path) {
  return path.find('\0') == std::string::npos ? NativePath(path) : std::string();
}

std::intptr_t Open(const std::string& path, DWORD access, DWORD creation, DWORD attributes = FILE_ATTRIBUTE_NORMAL,
                   DWORD share = kShared) {
  return reinterpret_cast<std::intptr_t>(
      CreateFileA(SystemPath(path).c_str(), access, share, nullptr, creation, attributes, nullptr));
}

bool ToNative(const FileTime& time, FILETIME& native) {
  constexpr std::int64_t kEpochSeconds = kUnixEpochTicks / kTicksPerSecond;
  constexpr std::int64_t kLastSecond = std::numeric_limits<std::int64_t>::max() / kTicksPerSecond - kEpochSeconds - 1;
  if (time.seconds < -kEpochSeconds || time.seconds > kLastSecond) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  const std::int64_t ticks = kUnixEpochTicks + time.seconds * kTicksPerSecond + time.nanoseconds / 100;
  native.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFF);
  native.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
  return true;
}

bool SetBothTimes(const std::string& path, const FILETIME& time) {
  const HandleCloser file(OpenAttributes(SystemPath(path), FILE_WRITE_ATTRIBUTES, LinkView::Target));
  return file.IsOpen() && SetFileTime(file.Get(), nullptr, &time, &time) != 0;
}

// ---- status ----

FileKind KindOf(const FileData& data) {
  if (data.IsLink()) {
    return FileKind::Link;
  }
  return data.IsDirectory() ? FileKind::Directory : FileKind::Regular;
}

void Describe(const FileData& data, FileKind kind, FileStatus& status) {
  const unsigned all = kind == FileKind::Directory ? 0777 : kDefaultPermissions;
  status.kind = kind;
  status.isReadOnly = data.IsReadOnly();
  status.permissions = data.IsReadOnly() ? all & ~kWriteBits : all;
  status.size = kind == FileKind::Directory ? 0 : static_cast<std::int64_t>(data.size);  // NTFS tells that of its index
  status.modified = ToFileTime(data.written);
}

FileKind KindOfOpen(DWORD type) {
  switch (type) {
    case FILE_TYPE_DISK:
      return FileKind::Regular;
    case FILE_TYPE_CHAR:
      return FileKind::CharDevice;
    case FILE_TYPE_PIPE:
      return FileKind::Pipe;
    default:
      return FileKind::Other;
  }
}

void DescribeNoFile(FileKind kind, FileStatus& status) {
  status = FileStatus();
  status.kind = kind;
  status.permissions = kDefaultPermissions;
}

bool DescribeOpen(HANDLE handle, FileStatus& status) {
  const FileKind kind = KindOfOpen(GetFileType(handle));
  if (kind != FileKind::Regular) {
    DescribeNoFile(kind, status);
    return true;
  }
  BY_HANDLE_FILE_INFORMATION native;
  if (GetFileInformationByHandle(handle, &native) == 0) {
    return false;
  }
  FileData data;
  Fill(native, data);
  Describe(data, data.Has(FILE_ATTRIBUTE_DIRECTORY) ? FileKind::Directory : FileKind::Regular, status);
  return true;
}

bool DescribeByOpening(const std::string& path, DWORD access, FileStatus& status) {
  const HandleCloser file(OpenAttributes(path, access, LinkView::Target));
  return file.IsOpen() && DescribeOpen(file.Get(), status);
}

bool DescribeTarget(const std::string& path, FileStatus& status) {
  if (DescribeByOpening(path, kReadAttributes, status)) {
    return true;
  }
  switch (GetLastError()) {
    case ERROR_PIPE_BUSY:  // one that others are using is there too
      DescribeNoFile(FileKind::Pipe, status);
      return true;
    case ERROR_INVALID_PARAMETER:  // the console wants to be read or written
      return DescribeByOpening(path, GENERIC_READ, status);
    default:
      return false;
  }
}

// Where a device or pipe shows attributes like those of a file, no time belongs to them.
bool MayBeDevice(const FileData& data) {
  return data.written.dwLowDateTime == 0 && data.written.dwHighDateTime == 0 && !data.Has(FILE_ATTRIBUTE_DIRECTORY);
}

// ---- attributes ----

DWORD Writable(DWORD attributes) {
  attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
  return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

bool SetReadOnly(HANDLE handle, bool readOnly) {
  FILE_BASIC_INFO info;
  if (GetFileInformationByHandleEx(handle, FileBasicInfo, &info, sizeof info) == 0) {
    return false;
  }
  FILE_BASIC_INFO changed{};  // a time of 0 leaves what is there
  changed.FileAttributes = readOnly ? info.FileAttributes | FILE_ATTRIBUTE_READONLY : Writable(info.FileAttributes);
  return SetFileInformationByHandle(handle, FileBasicInfo, &changed, sizeof changed) != 0;
}

bool IsDirectoryLink(const std::string& path) {
  FileData data;
  return ReadFileData(path, data) && data.IsLink() && data.Has(FILE_ATTRIBUTE_DIRECTORY);
}

// ---- streams ----

// The mode with "N" (not inherited), which has no place within a character set.
std::string StreamMode(const char* mode) {
  std::string result(mode);
  result.insert(std::min(result.find(','), result.size()), 1, 'N');
  return result;
}

// For what the C runtime refuses without asking the system.
DWORD CodeOf(int error) {
  switch (error) {
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case EMFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EBADF:  // open, but not for this
      return ERROR_ACCESS_DENIED;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case EOVERFLOW:
      return ERROR_ARITHMETIC_OVERFLOW;
    default:
      return ERROR_GEN_FAILURE;
  }
}

std::int64_t Clamped(ULONGLONG bytes) {
  return static_cast<std::int64_t>(std::min<ULONGLONG>(bytes, std::numeric_limits<std::int64_t>::max()));
}

}  // namespace

// Devices and pipes are given back: their size says nothing and reading them may wait. Directories do not open at all.
std::intptr_t OpenRegular(const std::string& path, DWORD access, DWORD share, DWORD creation, DWORD attributes) {
  const std::intptr_t handle = Open(path, access, creation, attributes, share);
  if (handle != -1 && GetFileType(ToHandle(handle)) != FILE_TYPE_DISK) {
    CloseHandle(ToHandle(handle));
    SetLastError(ERROR_NOT_SUPPORTED);
    return -1;
  }
  return handle;
}

std::string NativePath(const std::string& path) { return path; }

std::FILE* OsOpenStream(const std::string& path, const char* mode) {
  _doserrno = 0;
  errno = 0;
  std::FILE* const stream = std::fopen(SystemPath(path).c_str(), StreamMode(mode).c_str());
  if (stream == nullptr) {
    SetLastError(_doserrno != 0 ? static_cast<DWORD>(_doserrno) : CodeOf(errno));
    return nullptr;
  }
  // Some versions of the C runtime pass over the "N".
  SetHandleInformation(ToHandle(_get_osfhandle(_fileno(stream))), HANDLE_FLAG_INHERIT, 0);
  return stream;
}

// Some versions of the C runtime look for errors before they write what the stream holds back.
int OsCloseStream(std::FILE* stream) {
  const int written = std::fflush(stream);
  const int closed = std::fclose(stream);
  return written != 0 ? written : closed;
}

std::int64_t OsTell(std::FILE* stream) { return _ftelli64(stream); }

bool OsSeek(std::FILE* stream, std::int64_t offset, int origin) { return _fseeki64(stream, offset, origin) == 0; }

// What the system refused is the last error already, unless errno says that it never was asked.
void OsStreamFailed() {
  if (errno == EBADF || errno == EOVERFLOW || GetLastError() == ERROR_SUCCESS) {
    SetLastError(CodeOf(errno));
  }
}

bool OsGetStatus(const std::string& path, LinkView view, FileStatus& status) {
  const std::string native = SystemPath(path);
  FileData data;
  if (!ReadFileData(native, data)) {
    // Some versions of the system give devices and pipes no attributes.
    return !OsErrorMeansMissing(OsGetLastError()) && DescribeTarget(native, status);
  }
  if (data.IsLink() && view == LinkView::Target) {
    return DescribeTarget(native, status);
  }
  if (!MayBeDevice(data) || !DescribeTarget(native, status)) {
    Describe(data, KindOf(data), status);
  }
  return true;
}

// As the C runtime has it for ENOENT, and a name that no file can have.
bool OsErrorMeansMissing(int error) {
  constexpr std::array<int, 8> kMissing = {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,      ERROR_INVALID_DRIVE,
                                           ERROR_BAD_NETPATH,    ERROR_BAD_NET_NAME,        ERROR_INVALID_NAME,
                                           ERROR_BAD_PATHNAME,   ERROR_FILENAME_EXCED_RANGE};
  return std::find(kMissing.begin(), kMissing.end(), error) != kMissing.end();
}

bool OsHasAccess(const std::string& path, AccessKind kind) {
  const DWORD attributes = GetFileAttributesA(SystemPath(path).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    return false;
  }
  const bool readOnly = (attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY)) == FILE_ATTRIBUTE_READONLY;
  if (kind == AccessKind::Write && readOnly) {
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
  }
  return true;
}

bool OsClearReadOnly(const std::string& path) {
  const std::string native = SystemPath(path);
  FileData data;
  if (!ReadFileData(native, data) ||
      (data.IsReadOnly() && SetFileAttributesA(native.c_str(), Writable(data.attributes)) == 0)) {
    return false;
  }
  if (!data.IsLink()) {
    return true;
  }
  const HandleCloser target(OpenAttributes(native, kReadAttributes | FILE_WRITE_ATTRIBUTES, LinkView::Target));
  return target.IsOpen() && SetReadOnly(target.Get(), false);
}

bool OsMakeDirectory(const std::string& path) { return CreateDirectoryA(SystemPath(path).c_str(), nullptr) != 0; }

bool OsRemoveDirectory(const std::string& path) {
  const std::string native = SystemPath(path);
  if (IsDirectoryLink(native)) {
    SetLastError(ERROR_DIRECTORY);
    return false;
  }
  return RemoveDirectoryA(native.c_str()) != 0;
}

bool OsRemoveFile(const std::string& path) {
  const std::string native = SystemPath(path);
  if (DeleteFileA(native.c_str()) != 0) {
    return true;
  }
  const LastErrorGuard keep;
  return IsDirectoryLink(native) && RemoveDirectoryA(native.c_str()) != 0;
}

// The system would read a device or pipe to its end, which may never come.
CopyResult OsCopyFile(const std::string& from, const std::string& to, bool failIfExists) {
  FileStatus source;
  if (OsGetStatus(from, LinkView::Target, source) &&
      (source.kind == FileKind::CharDevice || source.kind == FileKind::Pipe)) {
    SetLastError(ERROR_NOT_SUPPORTED);
    return CopyResult::Failed;
  }
  const bool copied = CopyFileA(SystemPath(from).c_str(), SystemPath(to).c_str(), failIfExists ? TRUE : FALSE) != 0;
  return copied ? CopyResult::Done : CopyResult::Failed;
}

MoveResult OsMove(const std::string& from, const std::string& to, bool replace) {
  const std::string nativeFrom = SystemPath(from);
  const DWORD attributes = GetFileAttributesA(nativeFrom.c_str());
  // The system replaces files by files only.
  const bool isDirectory = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const DWORD flags = MOVEFILE_COPY_ALLOWED | (replace && !isDirectory ? MOVEFILE_REPLACE_EXISTING : 0);
  return MoveFileExA(nativeFrom.c_str(), SystemPath(to).c_str(), flags) != 0 ? MoveResult::Done : MoveResult::Failed;
}

bool OsSetTimes(const std::string& path, std::int64_t seconds) {
  FILETIME time;
  return ToNative({seconds, 0}, time) && SetBothTimes(path, time);
}

bool OsTouch(const std::string& path) {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return SetBothTimes(path, now);
}

bool OsDiskFree(const std::string& directory, std::int64_t& freeBytes, std::int64_t& totalBytes) {
  const std::string native = SystemPath(directory);
  ULARGE_INTEGER available;
  ULARGE_INTEGER total;
  if (GetDiskFreeSpaceExA(directory.empty() ? nullptr : native.c_str(), &available, &total, nullptr) == 0) {
    return false;
  }
  freeBytes = Clamped(available.QuadPart);
  totalBytes = Clamped(total.QuadPart);
  return true;
}

bool OsSyncDirectory(const std::string& /*directory*/) {
  SetLastError(ERROR_NOT_SUPPORTED);
  return false;
}

OsFile::~OsFile() {
  const LastErrorGuard keep;
  Close();
}

bool OsFile::OpenRead(const std::string& path) {
  Close();
  _handle = OpenRegular(path, GENERIC_READ, kShared, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
  return _handle != -1;
}

bool OsFile::OpenWrite(const std::string& path, Writing writing) {
  Close();
  switch (writing) {
    case Writing::Truncate:
      _handle = Open(path, GENERIC_WRITE, CREATE_ALWAYS);
      break;
    case Writing::Append:
      _handle = Open(path, FILE_GENERIC_WRITE & ~static_cast<DWORD>(FILE_WRITE_DATA), OPEN_ALWAYS);
      break;
    case Writing::Keep:
      _handle = OpenRegular(path, GENERIC_WRITE, kShared, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL);
      break;
  }
  return _handle != -1;
}

bool OsFile::OpenSame(std::FILE* stream) {
  Close();
  const auto file = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  HANDLE same = nullptr;
  if (!DuplicateHandle(GetCurrentProcess(), file, GetCurrentProcess(), &same, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return false;
  }
  _handle = reinterpret_cast<std::intptr_t>(same);
  return true;
}

OsFile::Creation OsFile::CreateNew(const std::string& path, unsigned permissions) {
  Close();
  const DWORD attributes = (permissions & kWriteBits) == 0 ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
  _handle = Open(path, GENERIC_WRITE, CREATE_NEW, attributes | FILE_FLAG_OPEN_REPARSE_POINT);
  if (_handle != -1) {
    return Creation::Created;
  }
  const DWORD error = GetLastError();
  return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS ? Creation::Exists : Creation::Failed;
}

bool OsFile::Describe(FileStatus& status) const { return DescribeOpen(ToHandle(_handle), status); }

bool OsFile::IsSameAs(const OsFile& other) const {
  BY_HANDLE_FILE_INFORMATION mine;
  BY_HANDLE_FILE_INFORMATION theirs;
  if (GetFileInformationByHandle(ToHandle(_handle), &mine) == 0 ||
      GetFileInformationByHandle(ToHandle(other._handle), &theirs) == 0) {
    return true;
  }
  if (mine.dwVolumeSerialNumber != theirs.dwVolumeSerialNumber || mine.nFileIndexHigh != theirs.nFileIndexHigh ||
      mine.nFileIndexLow != theirs.nFileIndexLow) {
    return false;
  }
  SetLastError(ERROR_SHARING_VIOLATION);
  return true;
}

bool OsFile::MayGiveWayTo(const OsFile& /*other*/) const {
  BY_HANDLE_FILE_INFORMATION mine;
  return GetFileInformationByHandle(ToHandle(_handle), &mine) != 0 && mine.nNumberOfLinks == 1;
}

bool OsFile::Seek(std::uint64_t position) { return Seek(static_cast<std::int64_t>(position), SEEK_SET); }

bool OsFile::Seek(std::int64_t offset, int origin) {
  static_assert(SEEK_SET == FILE_BEGIN && SEEK_CUR == FILE_CURRENT && SEEK_END == FILE_END);
  LARGE_INTEGER distance;
  distance.QuadPart = offset;
  return SetFilePointerEx(ToHandle(_handle), distance, nullptr, static_cast<DWORD>(origin)) != 0;
}

std::ptrdiff_t OsFile::Read(void* buffer, std::size_t size) {
  char* const bytes = static_cast<char*>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const DWORD chunk = static_cast<DWORD>(std::min(size - done, kTransferChunk));
    DWORD count = 0;
    if (ReadFile(ToHandle(_handle), bytes + done, chunk, &count, nullptr) == 0) {
      return -1;
    }
    if (count == 0) {
      break;
    }
    done += count;
  }
  return static_cast<std::ptrdiff_t>(done);
}

bool OsFile::Write(const void* data, std::size_t size) {
  const char* const bytes = static_cast<const char*>(data);
  std::size_t done = 0;
  while (done < size) {
    const DWORD chunk = static_cast<DWORD>(std::min(size - done, kTransferChunk));
    DWORD count = 0;
    if (WriteFile(ToHandle(_handle), bytes + done, chunk, &count, nullptr) == 0 || count == 0) {
      return false;
    }
    done += count;
  }
  return true;
}

void OsFile::CopyInSystem(OsFile& /*from*/) {}  // from handle to handle the system copies nothing

bool OsFile::Truncate(std::uint64_t size) {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  return SetFileInformationByHandle(ToHandle(_handle), FileEndOfFileInfo, &end, sizeof end) != 0;
}

bool OsFile::SetPermissions(unsigned permissions) {
  return SetReadOnly(ToHandle(_handle), (permissions & kWriteBits) == 0);
}

bool OsFile::SetModified(const FileTime& time) {
  FILETIME native;
  return ToNative(time, native) && SetFileTime(ToHandle(_handle), nullptr, nullptr, &native) != 0;
}

bool OsFile::Flush() { return FlushFileBuffers(ToHandle(_handle)) != 0; }

bool OsFile::Close() {
  const std::intptr_t handle = _handle;
  _handle = -1;
  return handle == -1 || CloseHandle(ToHandle(handle)) != 0;
}

}  // namespace qsbase::detail
