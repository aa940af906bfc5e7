/// \file
/// Modules that are loaded while the program runs: shared libraries on Linux, DLLs on Windows.
///
/// Failures are logged as errors and told by the result. Thread safety: every function may be called from any thread;
/// a module is used by nobody when its last reference is released.
///
/// \code
/// const HINSTANCE module = QsLoadLibrary("plugins/report.so", &error);
/// if (const FARPROC entry = QsGetProcAddress(module, "Report")) {
///   reinterpret_cast<void (*)()>(entry)();
/// }
/// QsFreeLibrary(module);
/// \endcode
#ifndef QSBASE_NET_LIBRARYLOADER_H
#define QSBASE_NET_LIBRARYLOADER_H

#include <string>

#include <QSbase/export.h>

#ifdef _WIN32
// As the system's own headers declare them, which may be included before or after.
struct HINSTANCE__;
/// A loaded module.
typedef HINSTANCE__* HINSTANCE;
/// The address of something that a module exports; to be cast to its true type.
#ifdef _WIN64
typedef long long(__stdcall* FARPROC)();
#else
typedef int(__stdcall* FARPROC)();
#endif
#else
/// A loaded module: a handle of `dlopen`.
using HINSTANCE = void*;
/// The address of something that a module exports; to be cast to its true type.
using FARPROC = void (*)();
#endif

/// Loads a module, or takes a further reference to one that is loaded already. A \p path with a separator ("\" and "/"
/// alike) names a file; without one the system searches for the name as it does for a program's own libraries. Whatever
/// the module needs must be there: nothing is left to be found later. On Windows the system shows no dialog.
///
/// \returns a handle for QsGetProcAddress and QsFreeLibrary; null on failure, and without a log line for a null or
///          empty \p path. A failure logs "QsLoadLibrary of %s failed: %s" with the path and the system's text (on
///          Linux the loader's own).
/// \param errorText  gets "QsLoadLibrary of " + path + " failed: " + that text; untouched otherwise. May be null.
QSBASE_API HINSTANCE QsLoadLibrary(const char* path, std::string* errorText);

/// The address of the function or the object that \p module exports as \p name. Null when there is none, which logs
/// "QsGetProcAddress of %s failed: %s" with the name and the system's text, and without a log line for a null \p module
/// and a null or empty \p name. (What a Linux module defines as null is null without a log line, too.) \p name is a
/// text; the numbers that Windows takes in its place are not.
QSBASE_API FARPROC QsGetProcAddress(HINSTANCE module, const char* name);

/// Gives one reference up; the module is unloaded with its last one. 1 on success and for a null \p module; 0 on
/// failure, also for a handle that is no loaded module, which logs "QsFreeLibrary failed: %s" with the system's text.
QSBASE_API int QsFreeLibrary(HINSTANCE module);

#endif
