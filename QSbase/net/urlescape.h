/// \file
/// Escapes and the canonical form of a URL (internal). Stateless; safe from any thread.
///
/// A function that writes to `out` has a buffer of `size` bytes there. When the text does not fit, with the zero behind
/// it, `size` becomes the number of bytes that it needs, nothing is written and the result is false. Otherwise `size`
/// becomes the text's length.
#ifndef QSBASE_NET_URLESCAPE_H
#define QSBASE_NET_URLESCAPE_H

#include <QSbase/text/chartables.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace qsbase::detail {

/// The values are those of the Windows URL functions.
enum UrlFlag : unsigned int {
  kIcuEscape = 0x80000000,
  kIcuNoEncode = 0x20000000,
  kIcuDecode = 0x10000000,  ///< Canonicalise: turn escapes into characters.
  kIcuNoMeta = 0x08000000,  ///< Canonicalise: leave "." and ".." segments.
  kUrlEscapeSpacesOnly = 0x04000000,
  kUrlDontEscapeExtraInfo = 0x02000000,  ///< Leave alone what the first "#" or "?" begins.
  kUrlUnescapeInplace = 0x00100000,
  kUrlEscapeSegmentOnly = 0x00002000,  ///< Escape "/" and "?" too.
  kUrlEscapePercent = 0x00001000       ///< Escape "%" too.
};

/// Of ASCII.
constexpr bool IsLetterOrDigit(char c) { return HasClass(c, kSymbol) && c != '_'; }

/// Writes the byte, or its escape in three, and gives where the next one goes.
inline char* WriteByte(char c, bool isEscaped, char* out) {
  if (!isEscaped) {
    *out = c;
    return out + 1;
  }
  *out = '%';
  std::memcpy(out + 1, &kHexPairs[std::size_t{2} * static_cast<unsigned char>(c)], 2);
  return out + 3;
}

/// Room to work in: on the stack for a URL of usual length, on the heap for a longer one.
class UrlBuffer {
 public:
  explicit UrlBuffer(std::size_t size) {
    if (size > _small.size()) {
      _large.reset(new (std::nothrow) char[size]);
      _data = _large.get();
    }
  }
  UrlBuffer(const UrlBuffer&) = delete;
  UrlBuffer& operator=(const UrlBuffer&) = delete;

  /// Null when there is no memory. Its content is anything.
  char* Data() { return _data; }

 private:
  std::array<char, 1024> _small;
  std::unique_ptr<char[]> _large;
  char* _data = _small.data();
};

/// UrlDecode in place.
void DecodeUrl(std::string& text);

/// Removes "." and ".." segments and the "." at the end of the host, unless kIcuNoMeta; with kIcuDecode turns escapes
/// into characters; and then escapes, as QsUrlEscape does with the kUrlEscape... and kUrlDont... flags among `flags`,
/// but only when one of these or kIcuNoEncode is there. Also false, `size` unchanged, when there is no memory.
bool QsUrlCanonicalize(std::string_view url, char* out, unsigned int& size, unsigned int flags);

/// With kUrlEscapeSpacesOnly escapes blanks. Otherwise bytes below 32 and above 126, any of blank "&<>[\]^`{|} and what
/// the flags add; kUrlDontEscapeExtraInfo then counts as given. That flag has no effect beside kUrlEscapeSegmentOnly.
/// \throws ExBase "QsUrlEscape: unimplemented flags: <decimal, eight digits at least>x\n" for any other flag.
bool QsUrlEscape(std::string_view text, unsigned int& size, char* out, unsigned int flags);

/// "%" and two hex digits become that byte; with kUrlDontEscapeExtraInfo in front of the first "#" or "?" only. With
/// kUrlUnescapeInplace the zero-terminated text is written over itself, `out` and `size` are not looked at, and the
/// result is true; otherwise `out` gets it and the text stays.
bool QsUrlUnescape(unsigned int flags, char* text, char* out, unsigned int& size);

}  // namespace qsbase::detail

#endif
