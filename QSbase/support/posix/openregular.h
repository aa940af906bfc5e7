/// \file
/// Opens regular files for the twins (internal). In fileos.cpp.
#ifndef QSBASE_SUPPORT_POSIX_OPENREGULAR_H
#define QSBASE_SUPPORT_POSIX_OPENREGULAR_H

#include <string>

namespace qsbase::detail {

/// A descriptor that programs do not inherit; -1 for what is no regular file, without waiting for a pipe's other end.
int OpenRegular(const std::string& path, int flags);

}  // namespace qsbase::detail

#endif
