#include <QSbase/processos.h>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

std::string OsModuleFileName(void* module) {
  constexpr std::size_t kLongest = std::size_t{3} * 32768;  // what the system allows, of up to three bytes a character
  std::string name(MAX_PATH, '\0');
  while (name.size() <= kLongest) {
    const DWORD length = GetModuleFileNameA(static_cast<HMODULE>(module), name.data(), static_cast<DWORD>(name.size()));
    if (length < name.size()) {
      name.resize(length);  // 0 on failure
      return name;
    }
    name.resize(name.size() * 2);  // it was cut
  }
  return {};
}

std::uint64_t OsTickCount() noexcept { return GetTickCount64(); }

int OsProcessId() noexcept { return static_cast<int>(GetCurrentProcessId()); }

int OsThreadId() noexcept { return static_cast<int>(GetCurrentThreadId()); }

void OsAroundFork(void (* /*before*/)(), void (* /*after*/)()) noexcept {}

std::uint64_t OsFreePhysicalMemory() noexcept {
  MEMORYSTATUSEX extended{};
  extended.dwLength = sizeof extended;
  if (GlobalMemoryStatusEx(&extended) != 0) {
    return extended.ullAvailPhys;
  }
  MEMORYSTATUS status{};
  status.dwLength = sizeof status;
  GlobalMemoryStatus(&status);
  return status.dwAvailPhys;
}

}  // namespace qsbase::detail
