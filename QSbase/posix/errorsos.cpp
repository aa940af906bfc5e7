#include <QSbase/errorsos.h>

#include <cerrno>
#include <cstring>

namespace qsbase::detail {

int OsGetLastError() noexcept { return errno; }

void OsSetLastError(int code) noexcept { errno = code; }

std::string OsErrorText(int code) {
  // strerror_r makes up a text for an unknown code, in the language of the locale; only the name tells.
  if (strerrorname_np(code) == nullptr) {
    return {};
  }
  char buffer[256];
  return strerror_r(code, buffer, sizeof buffer);
}

}  // namespace qsbase::detail
