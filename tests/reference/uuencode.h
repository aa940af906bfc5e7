/// \file
/// The slow reference of UU and XX; see result.h. The flags are those of `CEncodeDecode`.
#ifndef QSBASE_TESTS_REFERENCE_UUENCODE_H
#define QSBASE_TESTS_REFERENCE_UUENCODE_H

#include <reference/result.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace qsbase::reference {

std::string UuEncode(std::string_view data, int flags);
Result UuDecode(std::string_view text, int flags);

/// 0 neither, 1 UU, 2 XX.
int UuOrXx(std::string_view text);

/// Where the line behind the "begin " line starts; the text's end without one.
std::size_t UuDataStart(std::string_view text);

}  // namespace qsbase::reference

#endif
