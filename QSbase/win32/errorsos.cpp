#include <QSbase/errorsos.h>

#include <memory>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

int OsGetLastError() noexcept { return static_cast<int>(GetLastError()); }

void OsSetLastError(int code) noexcept { SetLastError(static_cast<DWORD>(code)); }

std::string OsErrorText(int code) {
  constexpr DWORD kFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
  constexpr DWORD kLanguage = 1024;  // neutral, the user's default
  char* text = nullptr;
  // With this flag the buffer's address goes where the buffer itself would.
  const DWORD length =
      FormatMessageA(kFlags, nullptr, static_cast<DWORD>(code), kLanguage, reinterpret_cast<char*>(&text), 0, nullptr);
  const std::unique_ptr<char, decltype(&LocalFree)> owner(text, &LocalFree);
  return length == 0 || text == nullptr ? std::string() : std::string(text, length);
}

}  // namespace qsbase::detail
