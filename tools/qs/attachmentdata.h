/// \file
/// What decoding gives: an attachment, its encoding and what its post says about it.
#ifndef QS_ATTACHMENTDATA_H
#define QS_ATTACHMENTDATA_H

#include <cstdint>
#include <optional>
#include <string>

namespace qs {

enum class Encoding { None, Base64, QuotedPrintable, UU, XX, YEnc, BinHex };

/// Where a part of a yEnc multi-part post belongs. Offsets count from 1, end is inclusive, as in the "=ypart" line.
struct YEncPart {
  int number = 0;
  int total = -1;  ///< -1: the post does not say
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
  std::uint32_t size = 0;  ///< of the whole file
  std::string fileCrc;     ///< CRC-32 of the whole file as NormalCrc gives it, empty when the post does not say
};

struct Attachment {
  Encoding encoding = Encoding::None;
  std::string name;  ///< as the sender wrote it: may be empty, may hold anything, is no safe file name
  std::string data;
  std::string problem;  ///< empty: every check passed; otherwise what is wrong, in a few words
  std::optional<YEncPart> part;
};

}  // namespace qs

#endif
