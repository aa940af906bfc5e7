/// \file
/// The slow reference of hex text; see result.h.
#ifndef QSBASE_TESTS_REFERENCE_HEXTEXT_H
#define QSBASE_TESTS_REFERENCE_HEXTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qsbase::reference {

/// Two upper-case digits a byte.
std::string HexEncode(std::string_view data);

/// The bytes of a text; `error`, when it is not empty, is the message of the exception that is due instead.
struct HexBytes {
  std::string data;
  std::string error;
};

/// Half as many bytes as characters; from a zero byte on they are zero.
HexBytes HexDecode(std::string_view text);

bool IsHexDigit(char c);

/// How many digits the text begins with.
std::size_t LeadingHexDigits(std::string_view text);

/// Every escape and two digits behind it are a byte; one with less than two characters behind it ends the text.
std::string UnescapeHex(std::string_view text, char escape);

}  // namespace qsbase::reference

#endif
