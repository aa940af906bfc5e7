#include <reference/hextext.h>

namespace qsbase::reference {

namespace {

/// 16 for what is no digit.
unsigned int DigitValue(char c) {
  if (c >= '0' && c <= '9') {
    return static_cast<unsigned int>(c - '0');
  }
  if (c >= 'A' && c <= 'F') {
    return static_cast<unsigned int>(c - 'A') + 10;
  }
  return c >= 'a' && c <= 'f' ? static_cast<unsigned int>(c - 'a') + 10 : 16;
}

char ByteOf(std::string_view pair) { return static_cast<char>(DigitValue(pair[0]) * 16 + DigitValue(pair[1])); }

}  // namespace

bool IsHexDigit(char c) { return DigitValue(c) < 16; }

std::size_t LeadingHexDigits(std::string_view text) {
  std::size_t count = 0;
  while (count < text.size() && IsHexDigit(text[count])) {
    ++count;
  }
  return count;
}

std::string HexEncode(std::string_view data) {
  std::string text;
  for (char c : data) {
    const unsigned int value = static_cast<unsigned char>(c);
    text += "0123456789ABCDEF"[value / 16];
    text += "0123456789ABCDEF"[value % 16];
  }
  return text;
}

HexBytes HexDecode(std::string_view text) {
  if (text.size() % 2 != 0) {
    return {"", "length is not a multiple of 2"};
  }
  HexBytes bytes;
  for (std::size_t i = 0; i < text.size() && text[i] != '\0'; i += 2) {
    const std::string_view pair = text.substr(i, 2);
    if (!IsHexDigit(pair[0]) || !IsHexDigit(pair[1])) {
      return {"", "character in '" + std::string(pair.substr(0, pair.find('\0'))) + "' is not a hex character"};
    }
    bytes.data += ByteOf(pair);
  }
  bytes.data.resize(text.size() / 2);
  return bytes;
}

std::string UnescapeHex(std::string_view text, char escape) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != escape) {
      result += text[i];
      continue;
    }
    if (text.size() - i < 3) {
      break;
    }
    result += ByteOf(text.substr(i + 1, 2));
    i += 2;
  }
  return result;
}

}  // namespace qsbase::reference
