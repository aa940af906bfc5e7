/// \file
/// What the program asks the operating system about its standard streams. Any thread may call.
#ifndef QS_CONSOLEOS_H
#define QS_CONSOLEOS_H

#include <cstdio>

namespace qs {

/// True when the stream is a terminal; false also when that cannot be told. Never fails.
bool IsTerminal(std::FILE* stream);

/// Bytes pass through the stream unchanged from now on. Call before the first byte. Does nothing where streams have no
/// text mode.
void SetBinaryMode(std::FILE* stream);

}  // namespace qs

#endif
