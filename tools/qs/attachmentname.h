/// \file
/// Names for attachments that came without one. Thread-safe: no state.
#ifndef QS_ATTACHMENTNAME_H
#define QS_ATTACHMENTNAME_H

#include <string>
#include <string_view>

#include "attachmentdata.h"

namespace qs {

/// Gives an attachment without a name that of the content, with the extension that fits its data, else its media type:
/// "post.txt" gives "post.png" for a PNG.
void NameAfterContent(Attachment& attachment, const std::string& contentName, std::string_view mediaType);

}  // namespace qs

#endif
