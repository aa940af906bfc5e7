/// \file
/// Export macro, version numbers and the compiler attributes that every public header uses.
#ifndef QSBASE_EXPORT_H
#define QSBASE_EXPORT_H

#include <cstdint>

#define QSBASE_VERSION_MAJOR 0
#define QSBASE_VERSION_MINOR 1
#define QSBASE_VERSION_PATCH 0
#define QSBASE_VERSION_STRING "0.1.0"

/// Marks what the library exports. Everything else is hidden.
#if defined(_WIN32)
#if defined(QSBASE_STATIC)
#define QSBASE_API
#elif defined(QSBASE_BUILDING)
#define QSBASE_API __declspec(dllexport)
#else
#define QSBASE_API __declspec(dllimport)
#endif
#else
#define QSBASE_API __attribute__((visibility("default")))
#endif

/// Lets the compiler check printf-style arguments. Positions count from 1 (members: `this` is 1).
#if defined(__MINGW32__)
#define QSBASE_PRINTF(formatIndex, firstArgument) __attribute__((format(gnu_printf, formatIndex, firstArgument)))
#elif defined(__GNUC__)
#define QSBASE_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define QSBASE_PRINTF(formatIndex, firstArgument)
#endif

#endif
