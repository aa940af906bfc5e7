/// \file
/// BinHex blocks. Thread-safe: no state.
#ifndef QS_BINHEXBLOCK_H
#define QS_BINHEXBLOCK_H

#include <string_view>

#include "attachmentdata.h"

namespace qs {

/// A BinHex text from its marker line on. The CRC of the data fork is checked.
Attachment DecodeBinHex(std::string_view text);

}  // namespace qs

#endif
