/// \file
/// Compression of buffers of any size (internal): zlib counts what one call gets in an unsigned int, and what a stream
/// has produced in an unsigned long, which has 32 bits on Windows. Any thread may call; no state is kept.
#ifndef QSBASE_SUPPORT_ZLIBPIECES_H
#define QSBASE_SUPPORT_ZLIBPIECES_H

#include <cstddef>
#include <limits>

namespace qsbase::detail {

/// The most that zlib takes in one call.
inline constexpr std::size_t kLargestPiece = std::numeric_limits<unsigned int>::max();

/// A buffer to read from and one to write to. Lengths are those of the buffers before, and what was consumed and
/// produced after, also after a failure.
struct ZBuffers {
  unsigned char* dest;
  std::size_t destLen;
  const unsigned char* src;
  std::size_t srcLen;
};

/// zlib's compress(). Gives zlib at most `piece` bytes at once.
int DeflateAll(ZBuffers& buffers, std::size_t piece = kLargestPiece);

/// Inflates all of a stream. The result is that of zlib's inflate() with Z_FINISH, Z_STREAM_END for success.
int InflateAll(ZBuffers& buffers, std::size_t piece = kLargestPiece);

/// Inflates until the stream ends or one of the buffers does. The result is that of zlib's inflate().
int InflateHead(ZBuffers& buffers, std::size_t piece = kLargestPiece);

}  // namespace qsbase::detail

#endif
