#include <QSbase/log/logfileos.h>

#include <io.h>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

std::int64_t OsStreamFileSize(std::FILE* stream) noexcept {
  LARGE_INTEGER size;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  return GetFileSizeEx(handle, &size) != 0 ? size.QuadPart : -1;
}

std::size_t OsLineFeedLength() noexcept { return 2; }  // "\r\n"

}  // namespace qsbase::detail
