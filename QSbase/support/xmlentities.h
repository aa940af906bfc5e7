/// \file
/// The encoder behind QsEncodeEntities, which can do so for a document, too (internal).
#ifndef QSBASE_SUPPORT_XMLENTITIES_H
#define QSBASE_SUPPORT_XMLENTITIES_H

#include <cstddef>
#include <string_view>

#include <QSbase/support/libxmlsupport.h>

namespace qsbase::detail {

/// Encodes as QsEncodeEntities does. With a document: bytes above 127 are copied once it names an encoding, which an
/// invalid byte makes it do ("ISO-8859-1"), and CR is copied for HTML. `document` may be null.
///
/// Returns `length` bytes and a zero behind them, to be released by xmlFree; null without memory.
unsigned char* EncodeEntitiesBuffer(std::string_view input, xmlDoc* document, bool plain, std::size_t& length);

}  // namespace qsbase::detail

#endif
