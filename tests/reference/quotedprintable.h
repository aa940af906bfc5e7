/// \file
/// The slow reference of quoted-printable; see result.h. The flags are those of `CEncodeDecode`.
#ifndef QSBASE_TESTS_REFERENCE_QUOTEDPRINTABLE_H
#define QSBASE_TESTS_REFERENCE_QUOTEDPRINTABLE_H

#include <reference/result.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qsbase::reference {

/// Longer inputs keep their blanks literal.
inline constexpr std::size_t kLongestShortQp = 0x100000;

std::string QpEncode(std::string_view data, std::uint32_t lineLength, int flags);

/// The size of the text by the rules of a short input, however long this one is.
std::size_t QpSize(std::string_view data, std::uint32_t lineLength, int flags);

/// How many bytes at the start fit into so many characters, by the rules of a short input.
std::size_t QpFitting(std::string_view data, std::uint32_t lineLength, std::size_t room, int flags);

Result QpDecode(std::string_view text);

}  // namespace qsbase::reference

#endif
