/// \file
/// Listing of one directory. Twins: posix/diros.cpp, win32/diros.cpp.
#ifndef QSBASE_SUPPORT_DIROS_H
#define QSBASE_SUPPORT_DIROS_H

#endif
