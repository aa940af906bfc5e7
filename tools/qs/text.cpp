#include "text.h"

#include <QSbase/codec/encodedecode.h>

#include <algorithm>

namespace qs {
namespace {

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

LineReader::LineReader(std::string_view text) : _text(text) {}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && (IsBlank(text.back()) || text.back() == '\r' || text.back() == '\n')) {
    text.remove_suffix(1);
  }
  return text;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (IsBlank(text.front()) || text.front() == '\r' || text.front() == '\n')) {
    text.remove_prefix(1);
  }
  return TrimRight(text);
}

std::string ToLowerAscii(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), LowerAscii);
  return lower;
}

bool StartsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(),
                                                    [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}

std::string_view WithoutLastBreak(std::string_view text) {
  if (!text.empty() && text.back() == '\n') {
    text.remove_suffix(1);
    if (!text.empty() && text.back() == '\r') {
      text.remove_suffix(1);
    }
  }
  return text;
}

std::string PercentDecode(std::string_view text) {
  const auto isHex = [](char c) { return CEncodeDecode::IsHexChar(static_cast<unsigned char>(c)); };
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && text.size() - i > 2 && isHex(text[i + 1]) && isHex(text[i + 2])) {
      const auto high = static_cast<unsigned char>(text[i + 1]);
      const auto low = static_cast<unsigned char>(text[i + 2]);
      decoded += static_cast<char>(CEncodeDecode::GetHexValue(high, low));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

std::string Count(std::size_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string Printable(std::string_view text) {
  std::string printable;
  printable.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F: terminals take U+009B for the beginning of a sequence
    const bool isWideControl = byte == 0xC2 && i + 1 < text.size() && (text[i + 1] & 0xE0) == 0x80;
    printable += byte < 32 || byte == 127 || isWideControl ? '?' : text[i];
    i += isWideControl ? 1 : 0;
  }
  return printable;
}

}  // namespace qs
