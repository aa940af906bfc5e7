/// \file
/// yEnc blocks and the checks that they allow. Thread-safe: no state.
#ifndef QS_YENCBLOCK_H
#define QS_YENCBLOCK_H

#include "attachmentdata.h"
#include "codedtext.h"

namespace qs {

/// One "=ybegin" to "=yend" block. Its end may be missing, which is a problem. Sizes and CRC-32 are checked.
Attachment DecodeYEnc(const CodedText& coded);

/// yEnc data without its "=y" lines: nothing in it can be checked.
Attachment DecodeRawYEnc(const CodedText& coded);

}  // namespace qs

#endif
