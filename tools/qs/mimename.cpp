#include "mimename.h"

#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "text.h"

namespace qs {
namespace {

// What Windows-1252 has at 0x80 to 0x9F; 0 stands for itself.
constexpr std::uint16_t kWindows1252[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                            0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                            0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                            0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

constexpr int kMaxSections = 1000;
constexpr std::size_t kMaxParameters = 4000;  // each takes far more memory than its few bytes of text
// RFC 2047 allows 75 characters. Real senders write more, but a line of nothing but beginnings must not take for ever.
constexpr std::size_t kMaxWord = 2048;

void AppendUtf8(std::string& text, unsigned int codePoint) {
  if (codePoint < 0x80) {
    text += static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    text += static_cast<char>(0xC0 | (codePoint >> 6));
    text += static_cast<char>(0x80 | (codePoint & 0x3F));
  } else {
    text += static_cast<char>(0xE0 | (codePoint >> 12));
    text += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (codePoint & 0x3F));
  }
}

unsigned int CodePoint1252(unsigned char byte) {
  if (byte >= 0x80 && byte < 0xA0 && kWindows1252[byte - 0x80] != 0) {
    return kWindows1252[byte - 0x80];
  }
  return byte;
}

std::string DecodeQ(std::string_view text) {
  std::string quoted(text);
  std::replace(quoted.begin(), quoted.end(), '_', ' ');
  quoted += '.';  // an escape is decoded only when something follows it
  std::string decoded;
  CEncodeDecode(75, 76).DecodeQP(quoted, decoded, 0);
  decoded.resize(decoded.empty() ? 0 : decoded.size() - 1);
  return decoded;
}

std::string DecodeB(std::string_view text) {
  std::string decoded;
  CEncodeDecode(75, 76).DecodeBase64(std::string(text), decoded, 0);
  return decoded;
}

struct Word {
  std::string text;
  std::size_t length;
};

// The encoded word that begins here: =?charset?encoding?text?=
std::optional<Word> WordAt(std::string_view text) {
  if (!StartsWith(text, "=?")) {
    return std::nullopt;
  }
  text = text.substr(0, kMaxWord);
  const std::size_t encodingMark = text.find('?', 2);
  if (encodingMark == std::string_view::npos || encodingMark + 2 >= text.size() || text[encodingMark + 2] != '?') {
    return std::nullopt;
  }
  const std::size_t start = encodingMark + 3;
  const std::size_t end = text.find("?=", start);
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view charset = text.substr(2, encodingMark - 2);
  const std::string_view payload = text.substr(start, end - start);
  const char encoding = text[encodingMark + 1];
  if (encoding == 'Q' || encoding == 'q') {
    return Word{ToUtf8(DecodeQ(payload), charset), end + 2};
  }
  if (encoding == 'B' || encoding == 'b') {
    return Word{ToUtf8(DecodeB(payload), charset), end + 2};
  }
  return std::nullopt;
}

// One parameter as it was written, or one section of a continued one.
struct Section {
  bool extended = false;
  std::string text;
};

using Sections = std::map<int, Section>;

// Reads up to the next ";" outside of quotes; quotes and comments are taken off.
std::string ReadValue(std::string_view field, std::size_t& position) {
  std::string value;
  bool quoted = false;
  int comment = 0;
  for (; position < field.size(); ++position) {
    const char c = field[position];
    if (c == '\\' && (quoted || comment > 0) && position + 1 < field.size()) {
      ++position;
      if (comment == 0) {
        value += field[position];
      }
    } else if (quoted) {
      quoted = c != '"';
      if (quoted) {
        value += c;
      }
    } else if (c == '(') {
      ++comment;
    } else if (c == ')' && comment > 0) {
      --comment;
    } else if (comment > 0) {
      continue;
    } else if (c == ';') {
      break;
    } else if (c == '"') {
      quoted = true;
    } else {
      value += c;
    }
  }
  return value;
}

// Takes "filename*0*" apart: the base name, the section's number, whether it is percent-coded.
std::string SplitParameterName(std::string_view written, int& section, bool& extended) {
  std::string name = ToLowerAscii(Trim(written));
  section = 0;
  extended = EndsWith(name, "*");
  if (extended) {
    name.pop_back();
  }
  const std::size_t star = name.rfind('*');
  if (star == std::string::npos) {
    return name;
  }
  const std::string digits = name.substr(star + 1);
  if (digits.empty() || digits.size() > 3 || digits.find_first_not_of("0123456789") != std::string::npos) {
    return name;
  }
  section = std::stoi(digits) + 1;  // 0 is the plain form
  return name.substr(0, star);
}

// Splits charset'language'text; text without the quotes has no charset.
std::string TakeCharset(std::string& text) {
  const std::size_t first = text.find('\'');
  const std::size_t second = first == std::string::npos ? first : text.find('\'', first + 1);
  if (second == std::string::npos) {
    return {};
  }
  std::string charset = text.substr(0, first);
  text.erase(0, second + 1);
  return charset;
}

// The sections 1, 2, ... one behind the other, up to the first that is missing.
std::string JoinSections(const Sections& sections) {
  std::string joined;
  std::string charset;
  for (int number = 1; number < kMaxSections; ++number) {
    const auto found = sections.find(number);
    if (found == sections.end()) {
      break;
    }
    std::string text = found->second.text;
    if (found->second.extended) {
      if (number == 1) {
        charset = TakeCharset(text);
      }
      text = PercentDecode(text);
    }
    joined += text;
  }
  return ToUtf8(joined, charset);
}

std::string ExtendedValue(std::string text) {
  const std::string charset = TakeCharset(text);
  return ToUtf8(PercentDecode(text), charset);
}

}  // namespace

std::string FieldValue::Parameter(const std::string& name) const {
  const auto found = parameters.find(name);
  return found == parameters.end() ? std::string() : found->second;
}

FieldValue ParseFieldValue(std::string_view field) {
  FieldValue result;
  std::size_t position = 0;
  result.value = ToLowerAscii(Trim(ReadValue(field, position)));
  std::map<std::string, Sections> collected;
  std::size_t count = 0;
  while (position < field.size() && count < kMaxParameters) {
    ++position;  // the ";"
    const std::size_t equals = field.find_first_of("=;", position);
    if (equals == std::string_view::npos) {
      break;
    }
    if (field[equals] == ';') {
      position = equals;
      continue;
    }
    int number = 0;
    bool extended = false;
    ++count;
    const std::string name = SplitParameterName(field.substr(position, equals - position), number, extended);
    position = equals + 1;
    const std::string value(Trim(ReadValue(field, position)));
    // The extended form wins over a plain one for readers that do not know it.
    Section& section = collected[name][number];
    if (extended || !section.extended) {
      section = {extended, value};
    }
  }
  for (const auto& [name, sections] : collected) {
    const auto plain = sections.find(0);
    if (sections.count(1) != 0 && (plain == sections.end() || !plain->second.extended)) {
      result.parameters[name] = JoinSections(sections);
    } else if (plain != sections.end()) {
      result.parameters[name] = plain->second.extended ? ExtendedValue(plain->second.text) : plain->second.text;
    }
  }
  return result;
}

std::string DecodeWords(std::string_view text) {
  std::string decoded;
  std::size_t blanksFrom = std::string::npos;  // blanks between two encoded words vanish
  for (std::size_t position = 0; position < text.size();) {
    if (const std::optional<Word> word = WordAt(text.substr(position))) {
      if (blanksFrom != std::string::npos) {
        decoded.resize(blanksFrom);
      }
      decoded += word->text;
      position += word->length;
      blanksFrom = decoded.size();
      continue;
    }
    if (!IsBlank(text[position])) {
      blanksFrom = std::string::npos;
    }
    decoded += text[position++];
  }
  return decoded;
}

std::string ToUtf8(std::string_view bytes, std::string_view charset) {
  // RFC 2231 lets a language follow the charset of an encoded word.
  const std::string name = ToLowerAscii(charset.substr(0, charset.find('*')));
  if (name != "iso-8859-1" && name != "windows-1252" && name != "latin1" && name != "cp1252") {
    return std::string(bytes);
  }
  std::string text;
  for (const char byte : bytes) {
    AppendUtf8(text, CodePoint1252(static_cast<unsigned char>(byte)));
  }
  return text;
}

}  // namespace qs
