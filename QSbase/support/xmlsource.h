/// \file
/// Parsing of XML that nobody vouches for (internal).
#ifndef QSBASE_SUPPORT_XMLSOURCE_H
#define QSBASE_SUPPORT_XMLSOURCE_H

#include <string>

#include <QSbase/support/libxmlsupport.h>

namespace qsbase::detail {

/// Parses a text without reading anything else, and without a word on the console; entities stay references. The
/// document is the caller's, to be released by xmlFreeDoc. Null when the text is not well-formed or beyond libxml2's
/// limits, or when its references to entities stand for more than 10,000,000 bytes, which is one of these: whoever asks
/// for values would have to hold them. The same for parameter entities. Null, too, when libxml2 has no memory. Forgets
/// libxml2's last error in this thread. Any thread. May throw std::bad_alloc.
xmlDoc* ParseUntrustedXml(const std::string& xml);

}  // namespace qsbase::detail

#endif
