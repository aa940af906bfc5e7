#include <QSbase/net/urlescape.h>

#include <QSbase/errors.h>
#include <QSbase/text/chartables.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace qsbase::detail {

namespace {

constexpr unsigned int kEscapeFlags =
    kUrlEscapeSpacesOnly | kUrlDontEscapeExtraInfo | kUrlEscapeSegmentOnly | kUrlEscapePercent;

constexpr std::size_t kNone = std::string_view::npos;

// ---- The output protocol ----

bool Fits(std::uint64_t length, unsigned int& size) {
  constexpr std::uint64_t most = std::numeric_limits<unsigned int>::max();
  const bool fits = length < size;
  size = static_cast<unsigned int>(std::min(fits ? length : length + 1, most));
  return fits;
}

bool CopyOut(std::string_view text, char* out, unsigned int& size) {
  if (!Fits(text.size(), size)) {
    return false;
  }
  text.copy(out, text.size());
  out[text.size()] = '\0';
  return true;
}

// ---- Decoding ----

// The byte of the escape that begins the text, none when it begins with something else.
constexpr int kNoEscape = -1;

int EscapedByte(std::string_view text) {
  if (text.size() < 3) {
    return kNoEscape;
  }
  const unsigned int high = kHexValues[static_cast<unsigned char>(text[1])];
  const unsigned int low = kHexValues[static_cast<unsigned char>(text[2])];
  return (high | low) > 15 ? kNoEscape : static_cast<int>(high << 4 | low);
}

// Decodes a text over itself and gives its new length. A "%" that begins no escape is copied with so many characters
// behind it.
std::size_t DecodeOverItself(char* text, std::size_t length, std::size_t behindPercent) {
  std::string_view rest(text, length);
  char* out = text;
  for (std::size_t percent; (percent = rest.find('%')) != kNone;) {
    std::memmove(out, rest.data(), percent);
    out += percent;
    rest.remove_prefix(percent);
    const int byte = EscapedByte(rest);
    if (byte != kNoEscape) {
      *out++ = static_cast<char>(byte);
      rest.remove_prefix(3);
    } else {
      const std::size_t copied = std::min(1 + behindPercent, rest.size());
      std::memmove(out, rest.data(), copied);
      out += copied;
      rest.remove_prefix(copied);
    }
  }
  std::memmove(out, rest.data(), rest.size());
  return static_cast<std::size_t>(out - text) + rest.size();
}

// As QsUrlUnescape says.
std::size_t Unescape(char* text, std::size_t length, unsigned int flags) {
  const std::size_t extra =
      (flags & kUrlDontEscapeExtraInfo) != 0 ? std::string_view(text, length).find_first_of("#?") : kNone;
  const std::size_t end = std::min(extra, length);
  const std::size_t decoded = DecodeOverItself(text, end, 0);
  std::memmove(text + decoded, text + end, length - end);
  return decoded + length - end;
}

// ---- Encoding ----

enum EscapeClass : unsigned char { kBlank = 1, kUnsafe = 2, kSegmentEnd = 4, kPercentSign = 8 };

constexpr CharMap MakeEscapeClasses() {
  CharMap classes{};
  for (std::size_t c = 0; c < classes.size(); ++c) {
    classes[c] = c < 32 || c > 126 ? kUnsafe : 0;
  }
  for (const char c : std::string_view(" \"&<>[\\]^`{|}")) {
    classes[static_cast<unsigned char>(c)] = kUnsafe;
  }
  classes[' '] = kUnsafe | kBlank;
  classes['/'] = classes['?'] = kSegmentEnd;
  classes['%'] = kPercentSign;
  return classes;
}

constexpr CharMap kEscapeClasses = MakeEscapeClasses();

unsigned int EscapedClasses(unsigned int flags) {
  if ((flags & kUrlEscapeSpacesOnly) != 0) {
    return kBlank;
  }
  const unsigned int segmentEnd = (flags & kUrlEscapeSegmentOnly) != 0 ? kSegmentEnd : 0;
  const unsigned int percentSign = (flags & kUrlEscapePercent) != 0 ? kPercentSign : 0;
  return kUnsafe | segmentEnd | percentSign;
}

// How much of the text is to be escaped at all.
std::size_t EscapedLength(std::string_view text, unsigned int flags) {
  const bool sparesExtra = (flags & (kUrlDontEscapeExtraInfo | kUrlEscapeSpacesOnly)) != kUrlEscapeSpacesOnly;
  if (!sparesExtra || (flags & kUrlEscapeSegmentOnly) != 0) {
    return text.size();
  }
  const auto extra = std::find_if(text.begin(), text.end(), [](char c) { return c == '#' || c == '?'; });
  return static_cast<std::size_t>(extra - text.begin());
}

bool IsIn(char c, unsigned int classes) { return (kEscapeClasses[static_cast<unsigned char>(c)] & classes) != 0; }

char* WriteEscaped(std::string_view text, unsigned int classes, char* out) {
  for (const char c : text) {
    out = WriteByte(c, IsIn(c, classes), out);
  }
  return out;
}

// ---- Meta segments ----

// Where the host of "scheme://host/path" begins, or the path of "scheme:/path"; kNone for other texts.
struct Start {
  std::size_t host = kNone;
  std::size_t path = kNone;
};

Start FindStart(std::string_view url) {
  if (url.size() < 2 || !IsLetterOrDigit(url[0]) || !IsLetterOrDigit(url[1])) {
    return {};
  }
  const std::size_t colon = url.find(':', 2);
  const std::string_view rest = url.substr(colon == kNone ? url.size() : colon + 1);
  if (rest.substr(0, 2) == "//") {
    return {colon + 3, kNone};
  }
  return {kNone, rest.substr(0, 1) == "/" ? colon + 1 : kNone};
}

// Copies a text without its meta segments.
class Simplifier {
 public:
  /// `out` has room for the text.
  Simplifier(std::string_view text, char* out) : _rest(text), _begin(out), _out(out) {}

  /// The length of what was written.
  std::size_t Run() {
    const Start start = FindStart(_rest);
    bool hasPath = start.path != kNone;
    if (hasPath) {
      Copy(start.path);
    } else if (start.host != kNone) {
      Copy(start.host);
      hasPath = CopyHost();
    }
    if (hasPath) {
      CopyPath();
    }
    Copy(_rest.size());
    return static_cast<std::size_t>(_out - _begin);
  }

 private:
  void Copy(std::size_t length) {
    std::memcpy(_out, _rest.data(), length);
    _out += length;
    _rest.remove_prefix(length);
  }

  // True when the path follows.
  bool CopyHost() {
    if (_rest.empty() || !(IsLetterOrDigit(_rest.front()) || _rest.front() == '-')) {
      return false;
    }
    while (!_rest.empty() && IsHostCharacter(_rest.front())) {
      if (IsLastDot()) {
        _rest.remove_prefix(1);
      } else {
        *_out++ = _rest.front();
        _rest.remove_prefix(1);
      }
    }
    return !_rest.empty() && _rest.front() == '/';
  }

  static bool IsHostCharacter(char c) { return IsLetterOrDigit(c) || c == '-' || c == ' ' || c == '.'; }

  bool IsLastDot() const { return _rest.front() == '.' && (_rest.size() == 1 || _rest[1] == '/' || _rest[1] == '?'); }

  // All segments that a "/" ends.
  void CopyPath() {
    Copy(1);
    const char* const root = _out;
    for (std::size_t slash; (slash = _rest.find('/')) != kNone;) {
      const std::string_view segment = _rest.substr(0, slash + 1);
      if (segment == "./") {
        _rest.remove_prefix(segment.size());
      } else if (segment == "../") {
        _rest.remove_prefix(segment.size());
        DropSegment(root);
      } else {
        Copy(segment.size());
      }
    }
  }

  void DropSegment(const char* root) {
    if (_out == root) {
      return;
    }
    do {
      --_out;
    } while (_out != root && _out[-1] != '/');
  }

  std::string_view _rest;
  char* const _begin;
  char* _out;
};

}  // namespace

void DecodeUrl(std::string& text) { text.resize(DecodeOverItself(text.data(), text.size(), 2)); }

bool QsUrlEscape(std::string_view text, unsigned int& size, char* out, unsigned int flags) {
  if ((flags & ~kEscapeFlags) != 0) {
    throw ExBase(strprintf("QsUrlEscape: unimplemented flags: %08ux\n", flags));
  }
  const unsigned int classes = EscapedClasses(flags);
  const std::string_view escaped = text.substr(0, EscapedLength(text, flags));
  const auto count = std::count_if(escaped.begin(), escaped.end(), [classes](char c) { return IsIn(c, classes); });
  if (!Fits(std::uint64_t{text.size()} + 2 * static_cast<std::uint64_t>(count), size)) {
    return false;
  }
  out = WriteEscaped(escaped, classes, out);
  out += text.substr(escaped.size()).copy(out, kNone);
  *out = '\0';
  return true;
}

bool QsUrlUnescape(unsigned int flags, char* text, char* out, unsigned int& size) {
  if ((flags & kUrlUnescapeInplace) != 0) {
    text[Unescape(text, std::strlen(text), flags)] = '\0';
    return true;
  }
  std::string copy(text);
  copy.resize(Unescape(copy.data(), copy.size(), flags));
  return CopyOut(copy, out, size);
}

bool QsUrlCanonicalize(std::string_view url, char* out, unsigned int& size, unsigned int flags) {
  UrlBuffer copy(url.size());
  char* const work = copy.Data();
  if (work == nullptr) {
    return false;
  }
  std::size_t length = url.size();
  if ((flags & kIcuNoMeta) != 0) {
    url.copy(work, length);
  } else {
    length = Simplifier(url, work).Run();
  }
  if ((flags & kIcuDecode) != 0) {
    length = Unescape(work, length, flags);
  }
  const std::string_view text(work, length);
  return (flags & (kIcuNoEncode | kEscapeFlags)) != 0 ? QsUrlEscape(text, size, out, flags & kEscapeFlags)
                                                      : CopyOut(text, out, size);
}

}  // namespace qsbase::detail
