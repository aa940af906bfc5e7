/// \file
/// Takes a mail or news article (RFC 5322, RFC 5536) apart: headers, blank line, body, MIME parts (RFC 2045, 2046).
/// Nothing is decoded here but names in headers. Thread-safe: no state.
#ifndef QS_ARTICLE_H
#define QS_ARTICLE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

enum class Transfer { Identity, Base64, QuotedPrintable, UU };

/// A leaf of the article: a part that holds no further parts.
struct ArticlePart {
  std::string mediaType;  ///< lower case, "text/plain" when the part does not say
  std::string fileName;   ///< as the sender wrote it, in UTF-8; may be empty, may hold anything
  bool attachment = false;
  Transfer transfer = Transfer::Identity;
  std::string contentMd5;  ///< Content-MD5 (RFC 1864), Base64 of the digest; empty when not given
  std::string_view body;   ///< still encoded; refers to the text given to ParseArticle
  bool complete = true;    ///< false: the multipart ends without its closing boundary inside this part
};

struct Article {
  std::string subject;
  std::vector<ArticlePart> parts;
  bool complete = true;  ///< false: it has more parts, or deeper ones, than are taken apart
};

/// The article in this text, or nothing when the text does not begin with the headers of one. The parts refer to
/// the text, which must outlive them.
std::optional<Article> ParseArticle(std::string_view text);

/// When the text is an NNTP answer ("220 ..." or "222 ..." and a text block, RFC 3977), writes the block without
/// the status line, the dots in front of lines and the terminator to plain and returns true.
bool UnwrapNntp(std::string_view text, std::string& plain);

}  // namespace qs

#endif
