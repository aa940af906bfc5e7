#include <QSbase/processos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/killguard.h>

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

namespace qsbase::detail {

namespace {

std::string ProgramPath() {
  std::error_code failed;
  const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", failed);
  return failed ? std::string() : path.string();
}

struct Search {
  const link_map* first;
  const void* module;
  bool found = false;
  char name[PATH_MAX] = "";
};

/// Runs inside the loader's lock (dl_iterate_phdr holds it), so no module comes or goes during the walk. The thread
/// sanitizer does not know that lock; hence the copy by hand, too.
__attribute__((no_sanitize("thread"))) int FindModule(dl_phdr_info* /*info*/, std::size_t /*size*/, void* context) {
  Search& search = *static_cast<Search*>(context);
  const link_map* entry = search.first;
  while (entry != nullptr && entry != search.module) {
    entry = entry->l_next;
  }
  search.found = entry != nullptr;
  const char* const name = search.found ? entry->l_name : nullptr;
  for (std::size_t i = 0; name != nullptr && name[i] != '\0' && i + 1 < sizeof search.name; ++i) {
    search.name[i] = name[i];
  }
  return 1;
}

const link_map* FirstModule() {
  void* const program = dlopen(nullptr, RTLD_LAZY | RTLD_NOLOAD);
  if (program == nullptr) {
    return nullptr;
  }
  link_map* first = nullptr;
  if (dlinfo(program, RTLD_DI_LINKMAP, &first) != 0) {
    first = nullptr;
  }
  dlclose(program);
  return first;  // the main program is never unloaded
}

std::string Absolute(const std::string& name) {
  std::error_code failed;
  const std::filesystem::path path = std::filesystem::absolute(name, failed);
  return failed ? name : path.string();
}

void ForgetThreadId() { knownThreadId = 0; }

}  // namespace

std::string OsModuleFileName(void* module) {
  if (module == nullptr) {
    return ProgramPath();
  }
  Search search{FirstModule(), module};
  dl_iterate_phdr(&FindModule, &search);
  if (!search.found) {
    return {};
  }
  return search.name[0] == '\0' ? ProgramPath() : Absolute(search.name);
}

std::uint64_t OsTickCount() noexcept {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000U + static_cast<std::uint64_t>(now.tv_nsec) / 1000000U;
}

int OsProcessId() noexcept { return getpid(); }

constinit thread_local int knownThreadId = 0;

int OsThreadId() noexcept {
  if (knownThreadId == 0) {
    const KillGuard guard;  // a static variable is locked while it is made
    // In a forked child the one thread has a new id.
    static const bool registered = pthread_atfork(nullptr, nullptr, &ForgetThreadId) == 0;
    const int id = static_cast<int>(syscall(SYS_gettid));
    if (!registered) {
      return id;
    }
    knownThreadId = id;
  }
  return knownThreadId;
}

void OsAroundFork(void (*before)(), void (*after)()) noexcept { pthread_atfork(before, after, after); }

std::uint64_t OsFreePhysicalMemory() noexcept {
  const CancelGuard noCancellation;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen("/proc/meminfo", "re"), &std::fclose);
  char line[128];
  unsigned long long kibibytes = 0;
  while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
    // NOLINTNEXTLINE(cert-err34-c): a number that the kernel writes
    if (std::sscanf(line, "MemAvailable: %llu kB", &kibibytes) == 1) {
      return static_cast<std::uint64_t>(kibibytes) * 1024U;
    }
  }
  const long pages = sysconf(_SC_AVPHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGESIZE);
  if (pages < 0 || pageSize < 0) {
    return 0;
  }
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

}  // namespace qsbase::detail
