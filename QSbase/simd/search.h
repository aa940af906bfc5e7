/// \file
/// Searches that the decoders share (internal). No state: any thread may call.
#ifndef QSBASE_SIMD_SEARCH_H
#define QSBASE_SIMD_SEARCH_H

#include <QSbase/simd/level.h>

namespace qsbase::detail {

/// One level's kernels.
struct SearchKernels {
  /// The first of two bytes in the range, or its end.
  const char* (*findEither)(const char* position, const char* end, char one, char other);
};

const SearchKernels& SearchKernelsOf(SimdLevel level);

/// The first of two bytes in the range, or its end.
inline const char* FindEither(const char* position, const char* end, char one, char other) {
  return SearchKernelsOf(CurrentSimdLevel()).findEither(position, end, one, other);
}

/// The next CR or LF, or the end.
inline const char* FindLineEnd(const char* position, const char* end) { return FindEither(position, end, '\n', '\r'); }

}  // namespace qsbase::detail

#endif
