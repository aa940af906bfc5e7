/// \file
/// Opens regular files and closes descriptors for the twins (internal). In fileos.cpp.
#ifndef QSBASE_SUPPORT_POSIX_OPENREGULAR_H
#define QSBASE_SUPPORT_POSIX_OPENREGULAR_H

#include <string>

namespace qsbase::detail {

/// A descriptor that programs do not inherit; -1 for what is no regular file, without waiting for a pipe's other end.
int OpenRegular(const std::string& path, int flags);

/// False if the system reports an error; it is closed even so. No cancellation takes effect meanwhile: it would leave
/// the descriptor open, and a destructor by an exception.
bool CloseDescriptor(int descriptor) noexcept;

}  // namespace qsbase::detail

#endif
