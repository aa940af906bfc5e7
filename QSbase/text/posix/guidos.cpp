#include <QSbase/text/guidos.h>

#include <QSbase/cancelguard.h>
#include <QSbase/posix/uninterrupted.h>

#include <cstddef>

#include <sys/random.h>

namespace qsbase::detail {

namespace {

bool FillRandom(unsigned char* bytes, std::size_t count) noexcept {
  const CancelGuard noCancellation;
  while (count > 0) {
    const ssize_t got = Uninterrupted([&] { return getrandom(bytes, count, 0); });
    if (got <= 0) {
      return false;
    }
    bytes += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace

// RFC 4122, 4.4: the version in the upper half of byte 6, the variant in the upper two bits of byte 8.
bool CreateGuidBytes(unsigned char (&bytes)[16]) noexcept {
  if (!FillRandom(bytes, sizeof(bytes))) {
    return false;
  }
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3FU) | 0x80U);
  return true;
}

}  // namespace qsbase::detail
