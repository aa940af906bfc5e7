#include <QSbase/sync/posix/sharedfile.h>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QSbase/codec/hash.h>
#include <QSbase/lasterrorguard.h>
#include <QSbase/posix/uninterrupted.h>
#include <QSbase/text/chartables.h>

namespace qsbase::detail {

namespace {

constexpr std::size_t kMaxNamePart = 180;  // file systems take 255 for the whole

bool TakesFilesOfEverybody(const char* folder) {
  constexpr mode_t kShared = S_ISVTX | S_IWOTH | S_IXOTH;
  struct stat status;
  return stat(folder, &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & kShared) == kShared;
}

// Every byte that is not safe in a file name in hexadecimal; so no two names become the same.
std::string Escaped(const std::string& name) {
  std::string result;
  for (const char c : name) {
    const bool isSafe =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
    if (isSafe) {
      result += c;
      continue;
    }
    result += '%';
    result.append(&kHexPairs[std::size_t{2} * static_cast<unsigned char>(c)], 2);
  }
  return result;
}

std::string NamePart(const std::string& name) {
  std::string result = Escaped(name);
  if (result.size() > kMaxNamePart) {
    result = "~";  // no escaped name has that
    result += QsCalcMD5(name.data(), static_cast<unsigned>(name.size()));
  }
  return result;
}

void CloseKeepingError(int descriptor) {
  const LastErrorGuard keep;
  close(descriptor);
}

bool IsForTheUserAlone(unsigned mode) { return (mode & (S_IRWXG | S_IRWXO)) == 0; }

// 0, or the error that says why the file is not one of these.
int Objection(const struct stat& status, unsigned mode) {
  if (!S_ISREG(status.st_mode)) {
    return EINVAL;
  }
  if (status.st_nlink > 1) {  // else the write would reach whatever file somebody gave this name to
    return EMLINK;
  }
  return IsForTheUserAlone(mode) && status.st_uid != geteuid() ? EACCES : 0;
}

bool IsAcceptable(int descriptor, unsigned mode, SharedFileModes existing) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) {
    return false;
  }
  const int objection = Objection(status, mode);
  if (objection != 0) {
    errno = objection;
    return false;
  }
  // Who made it may have been killed before it had its permissions.
  return existing == SharedFileModes::AsTheyAre || status.st_uid != geteuid() || (status.st_mode & 07777) == mode ||
         fchmod(descriptor, mode) == 0;
}

// Gives the file its permissions before its name, so that nobody meets it without.
int CreateComplete(const std::string& path, unsigned mode) {
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  const int descriptor = Uninterrupted([&] { return open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode); });
  if (descriptor == -1) {
    return -1;
  }
  char self[32];  // no string: without memory for it the descriptor would stay
  std::snprintf(self, sizeof self, "/proc/self/fd/%d", descriptor);
  if (fchmod(descriptor, mode) != 0 || linkat(AT_FDCWD, self, AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
    CloseKeepingError(descriptor);
    return -1;
  }
  return descriptor;
}

// Another user may for a moment be refused by the umask's permissions.
int CreatePlainly(const std::string& path, unsigned mode) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
  const int descriptor = Uninterrupted([&] { return open(path.c_str(), kFlags, mode); });
  if (descriptor != -1 && fchmod(descriptor, mode) != 0) {
    const LastErrorGuard keep;
    unlink(path.c_str());
    close(descriptor);
    return -1;
  }
  return descriptor;
}

int Create(const std::string& path, unsigned mode) {
  const int descriptor = CreateComplete(path, mode);
  return descriptor == -1 && errno != EEXIST ? CreatePlainly(path, mode) : descriptor;
}

}  // namespace

std::string SharedFilePath(const std::string& kind, const std::string& name, SharedFileScope scope) {
  const char* const folder = TakesFilesOfEverybody("/dev/shm") ? "/dev/shm" : "/tmp";
  std::string path = folder;
  path += "/qsbase-";
  if (scope == SharedFileScope::User) {
    path.append(std::to_string(geteuid())).append("-");
  }
  return path.append(kind).append("-").append(NamePart(name));
}

// Without O_CREAT: in such folders the system may refuse that for the files of others (fs.protected_regular).
int OpenExistingSharedFile(const std::string& path, unsigned mode, SharedFileModes existing) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;  // a pipe waits for nobody
  const int descriptor = Uninterrupted([&] { return open(path.c_str(), kFlags); });
  if (descriptor != -1 && !IsAcceptable(descriptor, mode, existing)) {
    CloseKeepingError(descriptor);
    return -1;
  }
  return descriptor;
}

int OpenSharedFile(const std::string& path, unsigned mode, SharedFileModes existing) {
  for (;;) {
    int descriptor = OpenExistingSharedFile(path, mode, existing);
    if (descriptor != -1 || errno != ENOENT) {
      return descriptor;
    }
    descriptor = Create(path, mode);
    if (descriptor != -1 || errno != EEXIST) {
      return descriptor;
    }
  }
}

bool IsStillAt(int descriptor, const std::string& path) {
  struct stat opened;
  struct stat named;
  return fstat(descriptor, &opened) == 0 && lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

}  // namespace qsbase::detail
