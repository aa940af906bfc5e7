/// \file
/// The slow reference of the character classes and case maps, and of what works by them; see result.h.
#ifndef QSBASE_TESTS_REFERENCE_CHARACTERS_H
#define QSBASE_TESTS_REFERENCE_CHARACTERS_H

#include <string>
#include <string_view>

namespace qsbase::reference {

/// The class bits of a byte.
unsigned int ClassesOf(unsigned char c);

unsigned char LowerOf(unsigned char c);
unsigned char UpperOf(unsigned char c);

std::string ToLower(std::string_view text);
std::string ToUpper(std::string_view text);
/// Control characters become blanks.
std::string ToLowerControlToSpace(std::string_view text);

std::string TrimLeft(std::string_view text, unsigned int mask);
std::string TrimRight(std::string_view text, unsigned int mask);
/// A text of nothing else stays as it is.
std::string StripCharacters(std::string_view text, unsigned int mask);

}  // namespace qsbase::reference

#endif
