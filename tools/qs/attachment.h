/// \file
/// Finds encoded attachments in articles and texts, decodes them and checks what their encoding lets check.
/// Thread-safe: no state.
#ifndef QS_ATTACHMENT_H
#define QS_ATTACHMENT_H

#include <string>
#include <string_view>
#include <vector>

#include "attachmentdata.h"
#include "crctext.h"

namespace qs {

/// "base64", "quoted-printable", "uu", "xx", "yenc", "binhex"; "none" for what is not encoded.
const char* EncodingName(Encoding encoding);

/// The yEnc, UU, XX, Base64 ("begin-base64") and BinHex blocks of a text, in their order.
std::vector<Attachment> FindEncodedBlocks(std::string_view text);

/// Every attachment of an article, or of a text that is one bare encoded block. Empty when there is none: the content
/// is then to be kept as it came.
/// \param contentName names what the sender left without a name ("post.txt" gives "post.png" for a PNG), and its
///        extension (uu, uue, xx, xxe) tells the encoding of lines without a "begin".
std::vector<Attachment> ExtractAttachments(std::string_view content, const std::string& contentName);

/// The same for a content that nobody needs afterwards: an attachment that is alone is decoded in the content's place.
std::vector<Attachment> TakeAttachments(std::string content, const std::string& contentName);
/// The blocks of one encoding, where the text has any, else the whole text as bare lines of it. The content is used up.
std::vector<Attachment> TakeEncoded(std::string content, Encoding encoding);

/// A text that is Base64 from end to end. Line breaks and blanks do not matter; anything else outside the alphabet, an
/// incomplete last group and text behind the padding are problems.
Attachment DecodeBase64Text(std::string_view text);
/// A quoted-printable text (RFC 2045, 6.7). Blanks at the end of a line are dropped, as the RFC demands.
Attachment DecodeQuotedPrintableText(std::string_view text);
/// The data lines of a UU or XX text, without "begin". The terminator and "end" may be missing; nothing behind "end" is
/// looked at. Every byte that a line announces must be there.
Attachment DecodeUueLines(std::string_view text, Encoding encoding);
/// One "=ybegin" to "=yend" block. Its end may be missing, which is a problem.
Attachment DecodeYEncBlock(std::string_view block);
/// A BinHex text from its marker line on. The CRC of the data fork is checked.
Attachment DecodeBinHexText(std::string_view text);

/// A text whose lines are all of one length (a multiple of four, 40 or more), the last one shorter or equal, of the
/// Base64 alphabet only and with correct padding, so that it is nothing but Base64.
bool IsBareBase64(std::string_view text);

}  // namespace qs

#endif
