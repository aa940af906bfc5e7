#include <QSbase/net/libraryloader.h>

#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/libraryloaderos.h>

using qsbase::detail::kLogError;

HINSTANCE QsLoadLibrary(const char* path, std::string* errorText) {
  if (path == nullptr || *path == '\0') {
    return nullptr;
  }
  const std::string name = path;  // which may stand in *errorText
  std::string error;
  const HINSTANCE module = qsbase::detail::OsLoadModule(name, error);
  if (module != nullptr) {
    return module;
  }
  if (errorText != nullptr) {
    *errorText = "QsLoadLibrary of " + name + " failed: " + error;
  }
  QsLogMsg(kLogError, "QsLoadLibrary of %s failed: %s", name.c_str(), error.c_str());
  return nullptr;
}

FARPROC QsGetProcAddress(HINSTANCE module, const char* name) {
  if (module == nullptr || name == nullptr || *name == '\0') {
    return nullptr;
  }
  std::string error;
  const FARPROC address = qsbase::detail::OsFindExport(module, name, error);
  if (!error.empty()) {
    QsLogMsg(kLogError, "QsGetProcAddress of %s failed: %s", name, error.c_str());
  }
  return address;
}

int QsFreeLibrary(HINSTANCE module) {
  std::string error;
  if (module == nullptr || qsbase::detail::OsReleaseModule(module, error)) {
    return 1;
  }
  QsLogMsg(kLogError, "QsFreeLibrary failed: %s", error.c_str());
  return 0;
}
