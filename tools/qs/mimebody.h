/// \file
/// The bodies of MIME (RFC 2045): Base64 and quoted-printable. Thread-safe: no state.
#ifndef QS_MIMEBODY_H
#define QS_MIMEBODY_H

#include "attachmentdata.h"
#include "codedtext.h"

namespace qs {

/// A text that is Base64 from end to end. Line breaks and blanks do not matter; anything else outside the alphabet, an
/// incomplete last group and text behind the padding are problems.
Attachment DecodeBase64(const CodedText& coded);

/// A quoted-printable text. Blanks at the end of a line are dropped, as RFC 2045, 6.7 demands.
Attachment DecodeQuotedPrintable(const CodedText& coded);

}  // namespace qs

#endif
