/// \file
/// Replacing of a character that is rarely there.
#ifndef QSBASE_LOG_REPLACECHAR_H
#define QSBASE_LOG_REPLACECHAR_H

#include <string>

namespace qsbase::detail {

/// Replaces every \p what from position \p start on. Skips what lies between by the library's fast search.
inline void ReplaceChar(std::string& text, std::size_t start, char what, char with) {
  for (std::size_t at = text.find(what, start); at != std::string::npos; at = text.find(what, at + 1)) {
    text[at] = with;
  }
}

}  // namespace qsbase::detail

#endif
