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

/// To be called before anything else is done with a stream that QsInetHttp writes to. What a stream holds back in its
/// buffer is lost when it cannot be written a moment later, and what comes after it stands in its place. Now it holds
/// nothing back, and a write that fails is the last one. On Windows, where a stream without a buffer writes byte by
/// byte, it stays as it is. \returns false on failure.
bool HoldNothingBack(std::FILE* stream);

/// The position in bytes, -1 when that cannot be told.
std::int64_t StreamPosition(std::FILE* stream);

/// Moves to the end. \returns the position there, -1 when that cannot be told.
std::int64_t SeekToEnd(std::FILE* stream);

}  // namespace qs

#endif
