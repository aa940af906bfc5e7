#include <QSbase/support/diros.h>

#include <cerrno>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/cancelguard.h>
#include <QSbase/posix/uninterrupted.h>
#include <QSbase/support/fileos.h>

namespace qsbase::detail {

namespace {

// The path for a system call, or empty (with the last error set) if a C string cannot carry it.
std::string SystemPath(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    errno = ENOENT;
    return std::string();
  }
  return path.empty() ? "." : NativePath(path);
}

// Behind a trailing separator the system would follow a link.
std::string WithoutTrailingSeparators(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

int OpenDirectory(const std::string& dir, LinkRule rule) {
  const std::string path = SystemPath(dir);
  const bool refuse = rule == LinkRule::Refuse;
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (refuse ? O_NOFOLLOW : 0);
  return Uninterrupted([&] { return open(refuse ? WithoutTrailingSeparators(path).c_str() : path.c_str(), flags); });
}

void Fill(const struct stat& status, DirEntry& entry) {
  entry.isDirectory = S_ISDIR(status.st_mode);
  entry.isLink = S_ISLNK(status.st_mode);
  entry.isReadOnly = !entry.isLink && (status.st_mode & S_IWUSR) == 0;
  entry.size = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
  entry.created = status.st_ctime;
  entry.accessed = status.st_atime;
  entry.written = status.st_mtime;
  entry.writtenNanoseconds = static_cast<std::int32_t>(status.st_mtim.tv_nsec);
}

bool IsUsableTempDirectory(const std::string& dir) {
  struct stat status;
  const std::string path = dir.empty() ? dir : SystemPath(dir);
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && access(path.c_str(), W_OK | X_OK) == 0;
}

}  // namespace

struct DirReader::Stream {
  Stream() = default;
  ~Stream() {
    if (handle != nullptr) {
      const CancelGuard noCancellation;
      closedir(handle);
    }
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  DIR* handle = nullptr;
  const dirent* current = nullptr;
};

DirReader::DirReader(const std::string& dir, LinkRule rule) : _stream(std::make_unique<Stream>()) {
  const int descriptor = OpenDirectory(dir, rule);
  if (descriptor == -1) {
    return;
  }
  _stream->handle = fdopendir(descriptor);
  if (_stream->handle == nullptr) {
    close(descriptor);
  }
}

DirReader::~DirReader() = default;

bool DirReader::Next(std::string& name) {
  if (_stream->handle == nullptr) {
    return false;
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): on a stream of its own it is safe
  _stream->current = readdir(_stream->handle);
  if (_stream->current == nullptr) {
    return false;
  }
  name = _stream->current->d_name;
  return true;
}

bool DirReader::IsDirectory() const {
  if (_stream->current == nullptr) {
    return false;
  }
  if (_stream->current->d_type != DT_UNKNOWN) {
    return _stream->current->d_type == DT_DIR;
  }
  DirEntry entry;
  return Describe(entry) && entry.isDirectory;
}

bool DirReader::Describe(DirEntry& entry) const {
  if (_stream->current == nullptr) {
    return false;
  }
  struct stat status;
  if (fstatat(dirfd(_stream->handle), _stream->current->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  entry.name = _stream->current->d_name;
  Fill(status, entry);
  return true;
}

bool DescribePath(const std::string& path, DirEntry& entry) {
  const std::string native = WithoutTrailingSeparators(SystemPath(path));
  struct stat status;
  if (lstat(native.c_str(), &status) != 0) {
    return false;
  }
  entry.name = native.substr(native.rfind('/') + 1);
  Fill(status, entry);
  return true;
}

std::string SystemTempDirectory() {
  const char* const configured = secure_getenv("TMPDIR");
  if (configured != nullptr && IsUsableTempDirectory(configured)) {
    return configured;
  }
  return IsUsableTempDirectory("/tmp") ? "/tmp" : std::string();
}

}  // namespace qsbase::detail
