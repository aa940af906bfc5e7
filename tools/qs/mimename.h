/// \file
/// Names and words in message headers: RFC 2047 encoded words, RFC 2231 parameters, both to UTF-8. Thread-safe.
#ifndef QS_MIMENAME_H
#define QS_MIMENAME_H

#include <map>
#include <string>
#include <string_view>

namespace qs {

/// A structured field such as Content-Type: its value in lower case, and its parameters by lower-case name.
/// Continuations ("name*0", "name*1") are joined and extended values ("name*=utf-8''...") decoded (RFC 2231).
/// Parameters beyond the first 4000 are left out.
struct FieldValue {
  std::string value;
  std::map<std::string, std::string> parameters;

  /// The parameter's value, empty when it is absent.
  std::string Parameter(const std::string& name) const;
};

FieldValue ParseFieldValue(std::string_view field);

/// Decodes every encoded word ("=?utf-8?Q?...?=") of a text; everything else stays. An unknown charset's bytes
/// are taken over as they are.
std::string DecodeWords(std::string_view text);

/// Bytes of a charset as UTF-8. Knows UTF-8, US-ASCII, ISO 8859-1 and Windows-1252; others stay as they are.
std::string ToUtf8(std::string_view bytes, std::string_view charset);

}  // namespace qs

#endif
