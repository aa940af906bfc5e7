/// \file
/// The everyday part of printf, without its price.
#ifndef QSBASE_LOG_SIMPLEFORMAT_H
#define QSBASE_LOG_SIMPLEFORMAT_H

#include <QSbase/export.h>

#include <cstdarg>
#include <cstddef>

namespace qsbase::detail {

/// Writes what vsnprintf() would, the final zero included, when \p format holds plain text, "%%" and these directives
/// only, each without flags, width and precision: %c %s (null as "(null)"), and %d %i %u %x alone or with l, ll or z.
/// False for any other format and when \p size bytes are too few; what \p buffer holds is then undefined. \p arguments
/// stays unused in either case: the caller may use it again. Any thread; leaves the last-error code alone.
QSBASE_PRINTF(3, 0)
bool FormatSimple(char* buffer, std::size_t size, const char* format, std::va_list arguments) noexcept;

}  // namespace qsbase::detail

#endif
