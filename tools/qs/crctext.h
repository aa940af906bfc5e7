/// \file
/// CRC-32 as text. Thread-safe: no state.
#ifndef QS_CRCTEXT_H
#define QS_CRCTEXT_H

#include <string>
#include <string_view>

namespace qs {

/// A CRC-32 as a post writes it in the form that Crc32Hex has: some encoders drop leading zeros or write small letters.
std::string NormalCrc(const std::string& written);

/// CRC-32 as eight upper-case hex digits.
std::string Crc32Hex(std::string_view data);

}  // namespace qs

#endif
