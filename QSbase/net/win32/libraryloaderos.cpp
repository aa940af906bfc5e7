#include <QSbase/net/libraryloaderos.h>

#include <QSbase/log/logwords.h>
#include <QSbase/sync/lock.h>

#include <QSbase/win32/windowsapi.h>

#include <algorithm>
#include <mutex>

namespace qsbase::detail {

namespace {

/// Sets the process's error mode so that the system shows no dialog, and gives it back when the last of those that
/// live at a time goes: of several threads each would else take the other's setting for the host's. Not a lock over
/// the load itself, which takes the system's loader lock and may load further modules by this way.
class NoDialogs {
 public:
  NoDialogs() {
    const std::lock_guard<Lock> guard(lock);
    if (count++ == 0) {
      before = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    }
  }
  ~NoDialogs() {
    const std::lock_guard<Lock> guard(lock);
    if (--count == 0) {
      SetErrorMode(before);
    }
  }
  NoDialogs(const NoDialogs&) = delete;
  NoDialogs& operator=(const NoDialogs&) = delete;

 private:
  static constinit Lock lock;
  static inline unsigned int count = 0;
  static inline UINT before = 0;
};

constinit Lock NoDialogs::lock;

/// Here the system itself asks for its own separator.
std::string WithBackslashes(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

}  // namespace

HINSTANCE OsLoadModule(const std::string& path, std::string& error) {
  const NoDialogs noDialogs;
  const HINSTANCE module = LoadLibraryA(WithBackslashes(path).c_str());
  if (module == nullptr) {
    error = LastErrorText();
  }
  return module;
}

FARPROC OsFindExport(HINSTANCE module, const char* name, std::string& error) {
  const FARPROC address = GetProcAddress(module, name);
  if (address == nullptr) {
    error = LastErrorText();
  }
  return address;
}

bool OsReleaseModule(HINSTANCE module, std::string& error) {
  if (FreeLibrary(module) != FALSE) {
    return true;
  }
  error = LastErrorText();
  return false;
}

}  // namespace qsbase::detail
