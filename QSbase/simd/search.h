/// \file
/// Searches that the decoders share (internal). No state: any thread may call.
#ifndef QSBASE_SIMD_SEARCH_H
#define QSBASE_SIMD_SEARCH_H

#include <QSbase/simd/level.h>
#include <QSbase/simd/wordscan.h>

namespace qsbase::detail {

/// One level's kernels. Each returns a place in the range, or its end.
struct SearchKernels {
  /// The first of two bytes.
  const char* (*findEither)(const char* position, const char* end, char one, char other);

  /// The first byte that is neither of the two.
  const char* (*findNeither)(const char* position, const char* end, char one, char other);

  /// The first byte that is neither a blank nor one of TAB, LF, VT, FF and CR.
  const char* (*findNonSpace)(const char* position, const char* end);

  /// The first CR or LF with two characters behind it, in the range too, that are these or differ from them in bit 5
  /// only, as small letters differ from capitals.
  const char* (*findBreakBefore)(const char* position, const char* end, char one, char other);
};

const SearchKernels& SearchKernelsOf(SimdLevel level);

/// The first of two bytes in the range, or its end.
inline const char* FindEither(const char* position, const char* end, char one, char other) {
  return SearchKernelsOf(CurrentSimdLevel()).findEither(position, end, one, other);
}

/// The next CR or LF, or the end.
inline const char* FindLineEnd(const char* position, const char* end) { return FindEither(position, end, '\n', '\r'); }

/// Most runs are short: they are not worth the call of a kernel.
inline const char* EndOfShortRun(const char* position, const char* end) {
  return end - position > 4 ? position + 4 : end;
}

/// Behind the CR and LF at the position, however many.
inline const char* SkipLineBreaks(const char* position, const char* end) {
  const char* const shortEnd = EndOfShortRun(position, end);
  position = FindNeitherByBytes(position, shortEnd, '\r', '\n');
  return position != shortEnd || position == end
             ? position
             : SearchKernelsOf(CurrentSimdLevel()).findNeither(position, end, '\r', '\n');
}

/// Behind the white space at the position.
inline const char* SkipSpaces(const char* position, const char* end) {
  const char* const shortEnd = EndOfShortRun(position, end);
  position = FindNonSpaceByBytes(position, shortEnd);
  return position != shortEnd || position == end ? position
                                                 : SearchKernelsOf(CurrentSimdLevel()).findNonSpace(position, end);
}

/// The next line, behind a CR or LF at or after the position, that begins with two characters, bit 5 of which does not
/// count; or the end.
inline const char* FindLineOf(const char* position, const char* end, char one, char other) {
  const char* const lineBreak = SearchKernelsOf(CurrentSimdLevel()).findBreakBefore(position, end, one, other);
  return lineBreak == end ? end : lineBreak + 1;
}

}  // namespace qsbase::detail

#endif
