/// \file
/// The one way the library reports a failed allocation.
#ifndef QSBASE_ALLOCATIONERROR_H
#define QSBASE_ALLOCATIONERROR_H

#include <QSbase/errors.h>

#include <string>

namespace qsbase::detail {

/// Throws ExMemoryAllocation with the text \p what + " (file " + \p file + ", line " + \p line.
/// \p file is the topic's path without its ending: "QSbase/support/filesupport".
///
/// \code
/// ThrowAllocationError("CAL_ReadFileToBuffer", "QSbase/support/filesupport", __LINE__);
/// \endcode
[[noreturn]] inline void ThrowAllocationError(const std::string& what, const char* file, int line) {
  throw ExMemoryAllocation(what + " (file " + file + ", line " + std::to_string(line));
}

}  // namespace qsbase::detail

#endif
