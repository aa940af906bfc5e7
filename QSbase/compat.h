/// \file
/// Names that host sources written for Windows use and Linux compilers lack.
#ifndef QSBASE_COMPAT_H
#define QSBASE_COMPAT_H

#include <cstdint>

/// The 64-bit integer of the interface is std::int64_t. On Linux this alias lets host sources that spell it
/// `__int64` compile unchanged. `unsigned __int64` is a macro's work, so it is one; define QSBASE_NO_INT64_ALIAS
/// before the first include to keep it out.
#if !defined(_WIN32) && !defined(QSBASE_NO_INT64_ALIAS) && !defined(__int64)
#define __int64 long
static_assert(sizeof(long) == sizeof(std::int64_t), "this target needs another spelling of __int64");
#endif

#endif
