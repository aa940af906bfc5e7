/// \file
/// The Windows interface for the files under win32/ (internal): without its rarer parts and without min and max macros.
#ifndef QSBASE_WIN32_WINDOWSAPI_H
#define QSBASE_WIN32_WINDOWSAPI_H

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#endif
