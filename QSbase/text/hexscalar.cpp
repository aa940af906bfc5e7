#include <QSbase/text/chartables.h>
#include <QSbase/text/hexkernel.h>

#include <cstring>

namespace qsbase::detail {

void EncodeHex(const unsigned char* bytes, std::size_t length, unsigned char* out) {
  for (std::size_t i = 0; i < length; ++i) {
    std::memcpy(out + 2 * i, &kHexPairs[std::size_t{2} * bytes[i]], 2);
  }
}

std::size_t DecodeHex(const unsigned char* hex, std::size_t pairs, unsigned char* out) {
  for (std::size_t i = 0; i < pairs; ++i) {
    const unsigned char high = kHexValues[hex[2 * i]];
    const unsigned char low = kHexValues[hex[2 * i + 1]];
    if (high == kNoHexDigit || low == kNoHexDigit) {
      return i;
    }
    out[i] = static_cast<unsigned char>(high << 4 | low);
  }
  return pairs;
}

}  // namespace qsbase::detail
