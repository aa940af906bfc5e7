/// \file
/// The slow reference of Base64; see result.h.
#ifndef QSBASE_TESTS_REFERENCE_BASE64_H
#define QSBASE_TESTS_REFERENCE_BASE64_H

#include <reference/result.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace qsbase::reference {

/// With CR LF after every line of lineLength / 4 complete groups, none for a length below 4.
std::string Base64Encode(std::string_view data, std::uint32_t lineLength);

Result Base64Decode(std::string_view text);

}  // namespace qsbase::reference

#endif
