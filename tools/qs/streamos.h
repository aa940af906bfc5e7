/// \file
/// What C streams cannot do by themselves on every system: temporary files that any user may make, positions above
/// 2 GiB. One thread uses a stream. Twins: posix/streamos.cpp, win32/streamos.cpp.
#ifndef QS_STREAMOS_H
#define QS_STREAMOS_H

#include <cstdint>
#include <cstdio>

namespace qs {

/// A new empty file for reading and writing bytes, which is gone once the stream is closed, also when the process is
/// killed. \returns null on failure, with the last error set.
std::FILE* OpenTemporaryStream();

/// The position in bytes, -1 when that cannot be told.
std::int64_t StreamPosition(std::FILE* stream);

/// Moves to the end. \returns the position there, -1 when that cannot be told.
std::int64_t SeekToEnd(std::FILE* stream);

}  // namespace qs

#endif
