/// \file
/// Comparing the library's coders, on every level of vector instructions that this machine has, with their slow
/// reference (tests/reference/).
///
/// Every function runs one input through all forms of a coder and compares results, counts and codes. It returns what
/// differs first, in words, or an empty text. The inputs lie in blocks of the heap that end with them, so that
/// AddressSanitizer sees a read or write beyond; without it, what lies around them is looked at afterwards. `alignment`
/// is the input's address modulo 64; the rarer forms are tried for some alignments only.
#ifndef QSBASE_TESTS_DIFFERENTIAL_AGREEMENT_H
#define QSBASE_TESTS_DIFFERENTIAL_AGREEMENT_H

#include <reference/binhex.h>
#include <reference/yenc.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qsbase::differential {

std::string CompareBase64Encode(std::string_view data, std::uint32_t lineLength, std::size_t alignment);
std::string CompareBase64Decode(std::string_view text, std::size_t alignment);

/// Encodes and measures.
std::string CompareQpEncode(std::string_view data, std::uint32_t lineLength, int flags, std::size_t alignment);
/// Counts what fits into `room`.
std::string CompareQpFitting(std::string_view data, std::uint32_t lineLength, std::uint32_t room, int flags,
                             std::size_t alignment);
std::string CompareQpDecode(std::string_view text, std::size_t alignment);

std::string CompareUuEncode(std::string_view data, int flags, std::size_t alignment);
/// Decodes, guesses the kind and looks for the header.
std::string CompareUuDecode(std::string_view text, int flags, std::size_t alignment);

/// Encodes and measures.
std::string CompareYEncEncode(std::string_view data, const reference::YEncFields& fields, int flags,
                              std::size_t alignment);
/// Decodes the whole text as data.
std::string CompareYEncDecode(std::string_view text, std::size_t alignment);
/// Finds the block and decodes it.
std::string CompareYEncBlock(std::string_view text, std::size_t alignment);
/// Compares the fields too, for a block that has them as the format wants them.
std::string CompareYEncFields(std::string_view text);

std::string CompareBinHexDecode(std::string_view text, bool headerOnly, std::size_t alignment);

std::string CompareHexEncode(std::string_view data, std::size_t alignment);
/// Decodes and counts leading digits.
std::string CompareHexDecode(std::string_view text, std::size_t alignment);
/// Compares the levels with each other only where an escape is followed by anything but two digits.
std::string CompareUnescapeHex(std::string_view text, char escape);

/// The case maps in all their forms.
std::string CompareCase(std::string_view text, std::size_t alignment);
/// Trimming and stripping by a class mask.
std::string CompareClasses(std::string_view text, unsigned int mask);
/// The steps over lines, line breaks and white space.
std::string CompareSkips(std::string_view text, std::size_t alignment);

/// The digest, of the whole and in pieces of `piece` bytes.
std::string CompareMd5(std::string_view data, std::size_t piece, std::size_t alignment);

}  // namespace qsbase::differential

#endif
