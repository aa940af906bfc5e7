/// \file
/// What the file layer asks of the operating system. Twins: posix/fileos.cpp, win32/fileos.cpp.
#ifndef QSBASE_SUPPORT_FILEOS_H
#define QSBASE_SUPPORT_FILEOS_H

#include <string>

namespace qsbase::detail {

/// The path as the operating system takes it: every "\" becomes "/" on Linux. The only conversion there is; called
/// only by the thin wrappers that open, stat, make, move, remove or list.
std::string NativePath(const std::string& path);

}  // namespace qsbase::detail

#endif
