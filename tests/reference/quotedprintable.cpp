#include <reference/quotedprintable.h>

namespace qsbase::reference {

namespace {

constexpr int kEncodeBlanks = 0x20;
constexpr int kEncodeQuestionMark = 0x40;
constexpr int kCountBlanksAsEncoded = 0x80;
constexpr int kHardBreaks = 0x200;
constexpr int kLiteralSpecials = 0x400;

enum class BlankRule { kByFlags, kLiteral, kEncoded };
enum class Kind { kLiteral, kEncoded, kBreak };

bool IsOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

bool IsLetterOrDigit(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

Kind KindOfBlank(char c, bool isLast, int flags, BlankRule rule) {
  if (c == ' ' && rule != BlankRule::kByFlags) {
    return rule == BlankRule::kLiteral ? Kind::kLiteral : Kind::kEncoded;
  }
  return isLast || (flags & kEncodeBlanks) != 0 ? Kind::kEncoded : Kind::kLiteral;
}

Kind KindOf(char c, bool isLast, int flags, BlankRule rule) {
  if (IsLetterOrDigit(c) || IsOneOf(c, "%&'()*+,-./:;<>")) {
    return Kind::kLiteral;
  }
  if (c == '\t' || c == ' ') {
    return KindOfBlank(c, isLast, flags, rule);
  }
  if (IsOneOf(c, "!\"#$@[\\]^`{}~|")) {
    return (flags & kLiteralSpecials) != 0 ? Kind::kLiteral : Kind::kEncoded;
  }
  if (c == '?' || c == '_') {
    return (flags & kEncodeQuestionMark) != 0 ? Kind::kEncoded : Kind::kLiteral;
  }
  if (c == '\r' || c == '\n') {
    return (flags & kHardBreaks) != 0 ? Kind::kBreak : Kind::kEncoded;
  }
  return Kind::kEncoded;
}

/// Writes an input piece by piece.
struct Writer {
  std::string_view data;
  std::uint32_t lineLength;
  int flags;
  BlankRule rule;
  std::size_t position = 0;
  std::uint32_t column = 0;

  /// The text of the next byte, of both bytes of a CR LF that is one break; a soft break before it included.
  std::string Next() {
    const char c = data[position];
    const Kind kind = KindOf(c, position + 1 == data.size(), flags, rule);
    ++position;
    if (kind == Kind::kBreak) {
      position += c == '\r' && position < data.size() && data[position] == '\n' ? 1 : 0;
      column = 0;
      return "\r\n";
    }
    return kind == Kind::kLiteral ? Broken(lineLength, std::string(1, c)) : Broken(lineLength - 2, Triple(c));
  }

 private:
  static std::string Triple(char c) {
    const char* digits = "0123456789ABCDEF";
    const int value = static_cast<unsigned char>(c);
    return {'=', digits[value / 16], digits[value % 16]};
  }

  /// Puts a soft break before the piece when the column has come to the limit.
  std::string Broken(std::uint32_t limit, const std::string& piece) {
    const bool isBroken = column >= limit;
    column = (isBroken ? 0 : column) + static_cast<std::uint32_t>(piece.size());
    return (isBroken ? "=\r\n" : "") + piece;
  }
};

bool IsHexDigit(char c) { return IsOneOf(c, "0123456789ABCDEFabcdef"); }

int DigitValue(char c) {
  const std::size_t place = std::string_view("0123456789ABCDEFabcdef").find(c);
  return static_cast<int>(place < 16 ? place : place - 6);
}

bool IsBreak(std::string_view text, std::size_t at) {
  return at < text.size() && (text[at] == '\r' || text[at] == '\n');
}

/// Decodes what an equals sign begins; gives how many characters that is.
std::size_t DecodeEscape(std::string_view text, std::size_t at, Result& result) {
  if (at + 3 < text.size() && IsHexDigit(text[at + 1]) && IsHexDigit(text[at + 2])) {
    result.data += static_cast<char>(DigitValue(text[at + 1]) * 16 + DigitValue(text[at + 2]));
    return 3;
  }
  if (IsBreak(text, at + 1)) {
    return IsBreak(text, at + 2) ? 3 : 2;
  }
  result.data += '=';
  ++result.illegal;
  return 1;
}

}  // namespace

std::string QpEncode(std::string_view data, std::uint32_t lineLength, int flags) {
  Writer writer{data, lineLength, flags, data.size() > kLongestShortQp ? BlankRule::kLiteral : BlankRule::kByFlags};
  std::string text;
  while (writer.position < data.size()) {
    text += writer.Next();
  }
  return text;
}

std::size_t QpSize(std::string_view data, std::uint32_t lineLength, int flags) {
  Writer writer{data, lineLength, flags, BlankRule::kByFlags};
  std::size_t size = 0;
  while (writer.position < data.size()) {
    size += writer.Next().size();
  }
  return size;
}

std::size_t QpFitting(std::string_view data, std::uint32_t lineLength, std::size_t room, int flags) {
  const bool areBlanksEncoded = (flags & kCountBlanksAsEncoded) != 0;
  Writer writer{data, lineLength, flags, areBlanksEncoded ? BlankRule::kEncoded : BlankRule::kByFlags};
  std::size_t size = 0;
  std::size_t fitting = 0;
  while (writer.position < data.size()) {
    size += writer.Next().size();
    if (size > room) {
      break;
    }
    fitting = writer.position;
  }
  return fitting;
}

Result QpDecode(std::string_view text) {
  Result result;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == '=') {
      i += DecodeEscape(text, i, result);
    } else {
      result.data += text[i];
      ++i;
    }
  }
  result.parsed = text.size();
  return result;
}

}  // namespace qsbase::reference
