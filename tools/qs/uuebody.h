/// \file
/// UU and XX data. Thread-safe: no state.
#ifndef QS_UUEBODY_H
#define QS_UUEBODY_H

#include <cstddef>
#include <string_view>

#include "attachmentdata.h"
#include "codedtext.h"

namespace qs {

/// The data lines of a UU or XX block.
struct UueBody {
  std::string_view lines;  ///< without terminator and "end"
  std::size_t end = 0;     ///< offset behind the block
  Encoding encoding = Encoding::None;
  bool hasShortLine = false;  ///< one that lacks bytes that it announces
  bool terminated = false;
  bool closed = false;
};

/// UU or XX if one of the first lines has the length that its first character announces, else none.
Encoding UueKind(std::string_view lines);

/// Whether a block may stand here: data within the first lines, or the empty file's terminator and "end". Looks at no
/// more than that, so that a text of nothing but "begin" lines is not read to its end for each of them.
bool LooksLikeUue(std::string_view text);

/// The lines from start up to "end", or up to where another block begins, or all there are; short ones are found on
/// the way.
UueBody ReadUueBody(std::string_view text, std::size_t start, Encoding encoding);
/// The same when the lines are to tell whether they are UU or XX; none where they do not.
UueBody ReadUueBody(std::string_view text, std::size_t start);

/// \param body lies in the coded text.
Attachment DecodeUueBody(const UueBody& body, const CodedText& coded);

}  // namespace qs

#endif
