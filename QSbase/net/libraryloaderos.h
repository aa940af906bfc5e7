/// \file
/// What the library loader asks of the operating system. Twins: posix/libraryloaderos.cpp, win32/libraryloaderos.cpp.
/// Every function may be called from any thread and may change the last-error code.
#ifndef QSBASE_NET_LIBRARYLOADEROS_H
#define QSBASE_NET_LIBRARYLOADEROS_H

#include <string>

#include <QSbase/net/libraryloader.h>

namespace qsbase::detail {

/// Loads the module with all that it needs, without a dialog of the system. Null on failure; `error` is then the
/// system's text, never empty.
HINSTANCE OsLoadModule(const std::string& path, std::string& error);

/// The address of an export. After a failure null, and `error` is the system's text; `error` stays empty when null is
/// what the module defines.
FARPROC OsFindExport(HINSTANCE module, const char* name, std::string& error);

/// Gives one reference up. False with the system's text in `error` for a handle that is none.
bool OsReleaseModule(HINSTANCE module, std::string& error);

}  // namespace qsbase::detail

#endif
