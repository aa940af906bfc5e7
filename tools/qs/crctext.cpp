#include "crctext.h"

#include <QSbase/codec/hash.h>
#include <QSbase/text/qsstring.h>

#include <cstddef>
#include <cstdint>

namespace qs {

std::string NormalCrc(const std::string& written) {
  const std::size_t zeros = written.size() < 8 ? 8 - written.size() : 0;
  return QsString::ToUpper(std::string(zeros, '0') + written.substr(0, 16));
}

std::string Crc32Hex(std::string_view data) {
  const std::uint32_t crc = QsCalcCRC32(data.data(), static_cast<unsigned int>(data.size()));
  return strprintf("%08X", static_cast<unsigned int>(crc));
}

}  // namespace qs
