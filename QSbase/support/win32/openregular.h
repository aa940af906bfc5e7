/// \file
/// Opens regular files for the twins (internal). In fileos.cpp.
#ifndef QSBASE_SUPPORT_WIN32_OPENREGULAR_H
#define QSBASE_SUPPORT_WIN32_OPENREGULAR_H

#include <cstdint>
#include <string>

#include <QSbase/win32/windowsapi.h>

namespace qsbase::detail {

/// A handle that child processes do not inherit; -1 for what is no regular file.
std::intptr_t OpenRegular(const std::string& path, DWORD access, DWORD share, DWORD creation, DWORD attributes);

}  // namespace qsbase::detail

#endif
