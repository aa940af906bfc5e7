/// \file
/// What the decoders of all encodings share: how long a text they take and how they report what is wrong with it.
/// Thread-safe: no state.
#ifndef QS_DECODESTATUS_H
#define QS_DECODESTATUS_H

#include <string>
#include <string_view>

#include "attachmentdata.h"
#include "codedtext.h"

namespace qs {

/// A coder's status, which is not 0, in a few words.
std::string StatusText(int status);

/// Whether a coder takes a text of this length; where it does not, that is the problem.
bool FitsCoder(std::string_view text, Attachment& result);

/// The length of a text that fits, as a coder wants it.
inline unsigned int CoderLength(std::string_view text) { return static_cast<unsigned int>(text.size()); }

/// Sets the problem unless an earlier one stands.
void Report(Attachment& attachment, const std::string& problem);

/// Decodes a text that fits by the coder that the flags select. A status other than 0 is a problem.
/// \returns whether there is data that is to be checked further.
bool DecodeInto(Attachment& result, const CodedText& coded, CEncodeDecode& coder, int flags);

}  // namespace qs

#endif
