#include <QSbase/support/sysinfoos.h>

#include <QSbase/support/win32/windowsname.h>
#include <QSbase/win32/windowsapi.h>

#include <direct.h>

namespace qsbase::detail {

namespace {

/// A key of the local machine, open for reading its values.
class MachineKey {
 public:
  explicit MachineKey(const char* path) {
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &_key) != ERROR_SUCCESS) {
      _key = nullptr;
    }
  }
  ~MachineKey() {
    if (_key != nullptr) {
      RegCloseKey(_key);
    }
  }
  MachineKey(const MachineKey&) = delete;
  MachineKey& operator=(const MachineKey&) = delete;

  /// 0 when there is none.
  DWORD Number(const char* name) const {
    DWORD number = 0;
    return Read(name, REG_DWORD, &number, sizeof number) ? number : 0;
  }

  /// Up to its first zero byte; empty when there is none, or it has more than 256 bytes.
  std::string Text(const char* name) const {
    constexpr DWORD kMost = 256;
    char text[kMost + 1] = "";  // the registry may hold a text without its zero
    return Read(name, REG_SZ, text, kMost) ? std::string(text) : std::string();
  }

 private:
  bool Read(const char* name, DWORD wanted, void* value, DWORD size) const {
    DWORD type = 0;
    return _key != nullptr &&
           RegQueryValueExA(_key, name, nullptr, &type, static_cast<BYTE*>(value), &size) == ERROR_SUCCESS &&
           type == wanted;
  }

  HKEY _key = nullptr;
};

int ProcessorCount() {
  SYSTEM_INFO info{};
  GetSystemInfo(&info);
  return static_cast<int>(info.dwNumberOfProcessors);
}

/// The version of the system itself. GetVersionEx tells a program the one that its manifest knows.
WindowsVersion SystemVersion() {
  using Function = LONG(WINAPI*)(OSVERSIONINFOW*);
  OSVERSIONINFOW info{};
  info.dwOSVersionInfoSize = sizeof info;
  const auto address = reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "RtlGetVersion"));
  if (address == nullptr || reinterpret_cast<Function>(address)(&info) != 0) {
    return {};
  }
  return {info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber};
}

}  // namespace

Processors OsProcessors() {
  Processors processors;
  processors.count = ProcessorCount();
  const MachineKey key("Hardware\\Description\\System\\CentralProcessor\\0");
  processors.mhz = key.Number("~MHz");
  processors.name = key.Text("ProcessorNameString");
  if (processors.name.empty()) {
    processors.name = key.Text("Identifier");
  }
  return processors;
}

MemoryReport OsMemoryReport() {
  MEMORYSTATUS status{};
  status.dwLength = sizeof status;
  GlobalMemoryStatus(&status);
  MemoryReport report;
  report.total = status.dwTotalPhys >> 10;
  report.free = status.dwAvailPhys >> 10;
  report.swapTotal = status.dwTotalPageFile >> 10;
  report.swapFree = status.dwAvailPageFile >> 10;
  return report;
}

std::vector<std::string> OsFileSystemRoots() {
  const unsigned long drives = _getdrives();
  std::vector<std::string> roots;
  for (unsigned int i = 0; i < 26; ++i) {
    if ((drives >> i & 1U) != 0) {
      roots.push_back(std::string(1, static_cast<char>('A' + i)) + ":\\");
    }
  }
  return roots;
}

std::string OsVersionText() {
  const MachineKey key("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion");
  return WindowsName(key.Text("ProductName"), key.Text("DisplayVersion"), SystemVersion());
}

}  // namespace qsbase::detail
