/// \file
/// Finds encoded attachments in articles and texts, decodes them and checks what their encoding lets check.
/// Thread-safe: no state.
#ifndef QS_ATTACHMENT_H
#define QS_ATTACHMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

enum class Encoding { None, Base64, QuotedPrintable, UU, XX, YEnc, BinHex };

/// "base64", "quoted-printable", "uu", "xx", "yenc", "binhex"; "none" for what is not encoded.
const char* EncodingName(Encoding encoding);

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

/// A CRC-32 as a post writes it in the form that Crc32Hex has: some encoders drop leading zeros or write small letters.
std::string NormalCrc(const std::string& written);

/// CRC-32 as eight upper-case hex digits.
std::string Crc32Hex(std::string_view data);

}  // namespace qs

#endif
