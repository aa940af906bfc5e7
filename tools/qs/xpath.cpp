#include "xpath.h"

#include <QSbase/support/libxmlsupport.h>

#include "coders.h"
#include "fetch.h"
#include "text.h"

namespace qs {
int RunXPath(const XPathOptions& options) {
  std::string xml;
  if (const std::string problem = ReadAll(options.input, xml); !problem.empty()) {
    return Fail(problem);
  }
  std::string found = GetXPathStringFromString(xml, options.expression);
  if (!found.empty()) {
    return WriteAll("-", found += '\n');
  }
  if (GetXPathStringFromString(xml, "/").empty()) {  // which every document has
    return Fail(Shown(options.input) + " is not well-formed XML, or goes beyond the limits");
  }
  return Fail("'" + Printable(options.expression) + "' finds nothing");
}

}  // namespace qs
