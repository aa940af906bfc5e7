#include <QSbase/net/libraryloaderos.h>

#include <QSbase/killguard.h>
#include <QSbase/processos.h>
#include <QSbase/support/fileos.h>

#include <dlfcn.h>

namespace qsbase::detail {

namespace {

constexpr const char* kNotLoaded = "not a loaded module";

/// The loader's report on its last failure in this thread; empty when there is none. Asking forgets it.
std::string LoaderError() {
  const char* const text = dlerror();  // NOLINT(concurrency-mt-unsafe): it has one report for each thread
  return text != nullptr ? text : "";
}

std::string FailureText() {
  const std::string text = LoaderError();
  return text.empty() ? "unknown error" : text;
}

/// The loader would follow a handle that is none.
bool IsLoaded(HINSTANCE module) { return !OsModuleFileName(module).empty(); }

}  // namespace

HINSTANCE OsLoadModule(const std::string& path, std::string& error) {
  const KillGuard guard;  // the loader has a lock
  const HINSTANCE module = dlopen(NativePath(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    error = FailureText();
  }
  return module;
}

FARPROC OsFindExport(HINSTANCE module, const char* name, std::string& error) {
  const KillGuard guard;
  if (!IsLoaded(module)) {
    error = kNotLoaded;
    return nullptr;
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): it has one report for each thread
  dlerror();  // null is an address too: only a report from now on tells a failure
  void* const address = dlsym(module, name);
  if (address == nullptr) {
    error = LoaderError();
  }
  return reinterpret_cast<FARPROC>(address);
}

bool OsReleaseModule(HINSTANCE module, std::string& error) {
  const KillGuard guard;
  if (!IsLoaded(module)) {
    error = kNotLoaded;
    return false;
  }
  if (dlclose(module) == 0) {
    return true;
  }
  error = FailureText();
  return false;
}

}  // namespace qsbase::detail
