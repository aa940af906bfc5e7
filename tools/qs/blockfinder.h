/// \file
/// Finds the encoded blocks of a text and decodes them. Thread-safe: no state.
#ifndef QS_BLOCKFINDER_H
#define QS_BLOCKFINDER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "attachmentdata.h"
#include "codedtext.h"
#include "uuebody.h"

namespace qs {

/// An encoded block. It refers to the text that it was found in.
struct Block {
  Encoding encoding = Encoding::None;
  std::string name;       ///< of the lines around it, where these have it
  std::string_view text;  ///< what the encoding's decoder takes
  UueBody body;           ///< the same for UU and XX
  bool closed = true;
};

/// More blocks in one text, and attachments in one article, are not looked at: no person wrote them, and each takes
/// memory by itself, far more than the nine bytes of the smallest one.
constexpr std::size_t kMostBlocks = 10000;

/// The yEnc, UU, XX, Base64 ("begin-base64") and BinHex blocks of a text, in their order. None is decoded, so that
/// nothing of the text is needed once they are known. Of more than kMostBlocks the rest of the text is one without an
/// encoding.
std::vector<Block> FindBlocks(std::string_view text);

/// Decodes the blocks of a text. One that is alone may use the text up.
std::vector<Attachment> DecodeBlocks(const std::vector<Block>& blocks, const CodedText& coded);

/// What stands for all that is not looked at: it is reported, not left out in silence.
Attachment RestNotLookedAt();

}  // namespace qs

#endif
