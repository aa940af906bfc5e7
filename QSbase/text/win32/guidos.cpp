#include <QSbase/text/guidos.h>

#include <QSbase/win32/windowsapi.h>

#include <cstring>

#include <objbase.h>

namespace qsbase::detail {

bool CreateGuidBytes(unsigned char (&bytes)[16]) noexcept {
  GUID guid;
  static_assert(sizeof(guid) == sizeof(bytes));
  if (CoCreateGuid(&guid) != S_OK) {
    return false;
  }
  std::memcpy(bytes, &guid, sizeof(guid));
  return true;
}

}  // namespace qsbase::detail
