/// \file
/// What file names the operating system takes. Any thread may call. Twins: posix/pathos.cpp, win32/pathos.cpp.
#ifndef QS_PATHOS_H
#define QS_PATHOS_H

#include <cstddef>
#include <string>

namespace qs {

/// How many bytes a name in this folder may have at most; 0 when the folder's own path is too long for any.
std::size_t LongestNameIn(const std::string& folder);

}  // namespace qs

#endif
