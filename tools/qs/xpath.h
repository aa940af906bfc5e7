/// \file
/// qs xpath: what an XPath expression finds in an XML file.
#ifndef QS_XPATH_H
#define QS_XPATH_H

#include <string>

namespace qs {

struct XPathOptions {
  std::string expression;
  std::string input = "-";  ///< "-": standard input
};

/// Writes what was found and a line feed, in UTF-8. \returns the program's exit code: 1 when nothing was found, too.
int RunXPath(const XPathOptions& options);

}  // namespace qs

#endif
