#include <QSbase/support/fileos.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QSbase/cancelguard.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/posix/uninterrupted.h>
#include <QSbase/support/posix/openregular.h>

namespace qsbase::detail {

namespace {

constexpr unsigned kPermissionBits = 0777;
constexpr std::size_t kTransferChunk = std::size_t{1} << 30;  // Linux moves less than 2^31 bytes a call

// The path for a system call; empty, which names nothing, if a C string cannot carry it.
std::string SystemPath(const std::string& path) {
  return path.find('\0') == std::string::npos ? NativePath(path) : std::string();
}

std::string SystemDirectory(const std::string& path) { return path.empty() ? "." : SystemPath(path); }

int OpenDescriptor(const std::string& path, int flags, unsigned permissions = kDefaultPermissions) {
  const std::string native = SystemPath(path);
  return Uninterrupted([&] { return open(native.c_str(), flags | O_CLOEXEC | O_NOCTTY, permissions); });
}

FileKind KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return FileKind::Regular;
    case S_IFDIR:
      return FileKind::Directory;
    case S_IFCHR:
      return FileKind::CharDevice;
    case S_IFIFO:
      return FileKind::Pipe;
    case S_IFLNK:
      return FileKind::Link;
    default:
      return FileKind::Other;
  }
}

void Fill(const struct stat& native, FileStatus& status) {
  status.kind = KindOf(native.st_mode);
  status.isReadOnly = status.kind != FileKind::Link && (native.st_mode & S_IWUSR) == 0;
  status.permissions = native.st_mode & kPermissionBits;
  status.size = native.st_size;
  status.modified.seconds = native.st_mtim.tv_sec;
  status.modified.nanoseconds = static_cast<std::int32_t>(native.st_mtim.tv_nsec);
}

// Descriptors of anything but regular files are given back: their size says nothing and reading them may wait.
bool IsRegular(int descriptor) {
  struct stat native;
  if (fstat(descriptor, &native) != 0) {
    return false;
  }
  if (S_ISREG(native.st_mode)) {
    return true;
  }
  errno = S_ISDIR(native.st_mode) ? EISDIR : EINVAL;
  return false;
}

// The mode with "e" (close on exec) behind its first letter: behind a comma it would be part of a character set.
std::string StreamMode(const char* mode) {
  std::string result(mode);
  if (!result.empty()) {
    result.insert(1, 1, 'e');
  }
  return result;
}

// Gives the file its new name first. One that may not leave its directory keeps only the old name.
int LinkAndUnlink(const char* from, const char* to) {
  if (link(from, to) != 0) {
    return -1;
  }
  if (unlink(from) == 0 || errno == ENOENT) {  // gone by another hand: the new name is the only one that is sure
    return 0;
  }
  const LastErrorGuard keep;
  unlink(to);
  return -1;
}

// For file systems that cannot rename without replacing. A directory cannot have a second name even for a moment; its
// rename can at most take the place of an empty directory made since the look.
int MoveByLink(const char* from, const char* to) {
  struct stat native;
  if (lstat(from, &native) != 0) {
    return -1;
  }
  if (!S_ISDIR(native.st_mode)) {
    return LinkAndUnlink(from, to);
  }
  if (lstat(to, &native) == 0) {
    errno = EEXIST;
    return -1;
  }
  return errno == ENOENT ? rename(from, to) : -1;
}

int MoveWithoutReplacing(const char* from, const char* to) {
  const int result = renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
  const bool unknown = result != 0 && (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP);
  return unknown ? MoveByLink(from, to) : result;
}

bool IsDirectoryItself(const char* path) {
  struct stat native;
  return lstat(path, &native) == 0 && S_ISDIR(native.st_mode);
}

std::int64_t Bytes(std::uint64_t blocks, std::uint64_t blockSize) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  std::int64_t bytes = 0;
  return __builtin_mul_overflow(blocks, blockSize, &bytes) ? kMax : bytes;
}

}  // namespace

int OpenRegular(const std::string& path, int flags) {
  // Without O_NONBLOCK a pipe would wait for its other end; for a regular file it means nothing.
  const int descriptor = OpenDescriptor(path, flags | O_NONBLOCK);
  if (descriptor != -1 && !IsRegular(descriptor)) {
    const LastErrorGuard keep;
    CloseDescriptor(descriptor);
    return -1;
  }
  return descriptor;
}

bool CloseDescriptor(int descriptor) noexcept {
  const CancelGuard noCancellation;
  // Not made again after a signal: Linux has closed it even so.
  return close(descriptor) == 0 || errno == EINTR;
}

std::string NativePath(const std::string& path) {
  std::string native = path;
  std::replace(native.begin(), native.end(), '\\', '/');
  return native;
}

std::FILE* OsOpenStream(const std::string& path, const char* mode) {
  const std::string native = SystemPath(path);
  const std::string streamMode = StreamMode(mode);
  std::FILE* stream = nullptr;
  do {
    stream = std::fopen(native.c_str(), streamMode.c_str());
  } while (stream == nullptr && errno == EINTR);
  struct stat status;
  if (stream != nullptr && fstat(fileno(stream), &status) == 0 && S_ISDIR(status.st_mode)) {
    (void)std::fclose(stream);
    errno = EISDIR;
    return nullptr;
  }
  return stream;
}

int OsCloseStream(std::FILE* stream) { return std::fclose(stream); }

std::int64_t OsTell(std::FILE* stream) { return ftello(stream); }

bool OsSeek(std::FILE* stream, std::int64_t offset, int origin) { return fseeko(stream, offset, origin) == 0; }

void OsStreamFailed() {}  // errno is the last error

bool OsGetStatus(const std::string& path, LinkView view, FileStatus& status) {
  struct stat native;
  const int flags = view == LinkView::Itself ? AT_SYMLINK_NOFOLLOW : 0;
  if (fstatat(AT_FDCWD, SystemPath(path).c_str(), &native, flags) != 0) {
    return false;
  }
  Fill(native, status);
  return true;
}

bool OsErrorMeansMissing(int error) { return error == ENOENT; }

bool OsHasAccess(const std::string& path, AccessKind kind) {
  return access(SystemPath(path).c_str(), kind == AccessKind::Read ? R_OK : W_OK) == 0;
}

bool OsClearReadOnly(const std::string& path) {
  const std::string native = SystemPath(path);
  struct stat status;
  return stat(native.c_str(), &status) == 0 && chmod(native.c_str(), (status.st_mode & 07777) | S_IWUSR) == 0;
}

bool OsMakeDirectory(const std::string& path) { return mkdir(SystemPath(path).c_str(), kPermissionBits) == 0; }

bool OsRemoveDirectory(const std::string& path) { return rmdir(SystemPath(path).c_str()) == 0; }

bool OsRemoveFile(const std::string& path) { return unlink(SystemPath(path).c_str()) == 0; }

CopyResult OsCopyFile(const std::string& /*from*/, const std::string& /*to*/, bool /*failIfExists*/) {
  return CopyResult::NotOffered;
}

MoveResult OsMove(const std::string& from, const std::string& to, bool replace) {
  const std::string nativeFrom = SystemPath(from);
  const std::string nativeTo = SystemPath(to);
  // The system would let a directory take the place of an empty one.
  const bool overwrite = replace && !IsDirectoryItself(nativeFrom.c_str());
  const int result = overwrite ? rename(nativeFrom.c_str(), nativeTo.c_str())
                               : MoveWithoutReplacing(nativeFrom.c_str(), nativeTo.c_str());
  if (result == 0) {
    return MoveResult::Done;
  }
  return errno == EXDEV ? MoveResult::OtherVolume : MoveResult::Failed;
}

bool OsSetTimes(const std::string& path, std::int64_t seconds) {
  const timespec time = {static_cast<time_t>(seconds), 0};
  const timespec times[2] = {time, time};
  return utimensat(AT_FDCWD, SystemPath(path).c_str(), times, 0) == 0;
}

bool OsTouch(const std::string& path) { return utimensat(AT_FDCWD, SystemPath(path).c_str(), nullptr, 0) == 0; }

bool OsDiskFree(const std::string& directory, std::int64_t& freeBytes, std::int64_t& totalBytes) {
  const std::string native = SystemDirectory(directory);
  struct statvfs volume;
  if (Uninterrupted([&] { return statvfs(native.c_str(), &volume); }) != 0) {
    return false;
  }
  freeBytes = Bytes(volume.f_bavail, volume.f_frsize);
  totalBytes = Bytes(volume.f_blocks, volume.f_frsize);
  return true;
}

bool OsSyncDirectory(const std::string& directory) {
  const int descriptor = OpenDescriptor(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
  if (descriptor == -1) {
    return false;
  }
  const bool synced = Uninterrupted([&] { return fsync(descriptor); }) == 0;
  const LastErrorGuard keep;
  CloseDescriptor(descriptor);
  return synced;
}

OsFile::~OsFile() {
  const LastErrorGuard keep;
  Close();
}

bool OsFile::OpenRead(const std::string& path) {
  Close();
  _handle = OpenRegular(path, O_RDONLY);
  return _handle != -1;
}

bool OsFile::OpenWrite(const std::string& path, Writing writing) {
  Close();
  constexpr int kFlags = O_WRONLY | O_CREAT;
  if (writing == Writing::Keep) {
    // In a folder where everybody may make files, another's file opens only for who does not ask for its making.
    _handle = OpenRegular(path, O_WRONLY);
    if (_handle == -1 && errno == ENOENT) {
      _handle = OpenRegular(path, kFlags);
    }
  } else {
    _handle = OpenDescriptor(path, kFlags | (writing == Writing::Append ? O_APPEND : O_TRUNC));
  }
  return _handle != -1;
}

bool OsFile::OpenSame(std::FILE* stream) {
  Close();
  _handle = fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0);
  return _handle != -1;
}

OsFile::Creation OsFile::CreateNew(const std::string& path, unsigned permissions) {
  Close();
  _handle = OpenDescriptor(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, permissions);
  if (_handle != -1) {
    return Creation::Created;
  }
  return errno == EEXIST ? Creation::Exists : Creation::Failed;
}

bool OsFile::Describe(FileStatus& status) const {
  struct stat native;
  if (fstat(static_cast<int>(_handle), &native) != 0) {
    return false;
  }
  Fill(native, status);
  return true;
}

bool OsFile::IsSameAs(const OsFile& other) const {
  struct stat mine;
  struct stat theirs;
  if (fstat(static_cast<int>(_handle), &mine) != 0 || fstat(static_cast<int>(other._handle), &theirs) != 0) {
    return true;
  }
  if (mine.st_dev != theirs.st_dev || mine.st_ino != theirs.st_ino) {
    return false;
  }
  errno = EBUSY;
  return true;
}

bool OsFile::MayGiveWayTo(const OsFile& other) const {
  struct stat mine;
  struct stat theirs;
  return fstat(static_cast<int>(_handle), &mine) == 0 && fstat(static_cast<int>(other._handle), &theirs) == 0 &&
         mine.st_nlink == 1 && mine.st_uid == theirs.st_uid && mine.st_gid == theirs.st_gid;
}

bool OsFile::Seek(std::uint64_t position) { return Seek(static_cast<std::int64_t>(position), SEEK_SET); }

bool OsFile::Seek(std::int64_t offset, int origin) {
  if (origin != SEEK_SET && origin != SEEK_CUR && origin != SEEK_END) {  // the kernel knows more
    errno = EINVAL;
    return false;
  }
  return lseek(static_cast<int>(_handle), offset, origin) != -1;
}

std::ptrdiff_t OsFile::Read(void* buffer, std::size_t size) {
  const int descriptor = static_cast<int>(_handle);
  char* const bytes = static_cast<char*>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const std::size_t chunk = std::min(size - done, kTransferChunk);
    const ssize_t count = Uninterrupted([&] { return read(descriptor, bytes + done, chunk); });
    if (count < 0) {
      return -1;
    }
    if (count == 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return static_cast<std::ptrdiff_t>(done);
}

bool OsFile::Write(const void* data, std::size_t size) {
  const int descriptor = static_cast<int>(_handle);
  const char* const bytes = static_cast<const char*>(data);
  std::size_t done = 0;
  while (done < size) {
    const std::size_t chunk = std::min(size - done, kTransferChunk);
    const ssize_t count = Uninterrupted([&] { return write(descriptor, bytes + done, chunk); });
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

void OsFile::CopyInSystem(OsFile& from) {
  ssize_t count = 0;
  do {
    count = Uninterrupted([&] {
      return copy_file_range(static_cast<int>(from._handle), nullptr, static_cast<int>(_handle), nullptr,
                             kTransferChunk, 0);
    });
  } while (count > 0);
}

bool OsFile::Truncate(std::uint64_t size) {
  return Uninterrupted([&] { return ftruncate(static_cast<int>(_handle), static_cast<off_t>(size)); }) == 0;
}

bool OsFile::SetPermissions(unsigned permissions) { return fchmod(static_cast<int>(_handle), permissions) == 0; }

bool OsFile::SetModified(const FileTime& time) {
  const timespec modified = {static_cast<time_t>(time.seconds), time.nanoseconds};
  const timespec times[2] = {{0, UTIME_OMIT}, modified};
  return futimens(static_cast<int>(_handle), times) == 0;
}

bool OsFile::Flush() {
  return Uninterrupted([this] { return fsync(static_cast<int>(_handle)); }) == 0;
}

bool OsFile::Close() {
  const int descriptor = static_cast<int>(_handle);
  _handle = -1;
  return descriptor == -1 || CloseDescriptor(descriptor);
}

}  // namespace qsbase::detail
