#include <QSbase/text/utf8.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <libxml/xmlstring.h>

namespace {

constexpr char kMark[] = "\xEF\xBB\xBF";
constexpr std::size_t kMarkLength = 3;

// Blocks without a branch inside: the compiler makes vector instructions of them.
bool IsAscii(const char* text, std::size_t length) {
  constexpr std::size_t block = 64;
  for (; length >= block; text += block, length -= block) {
    unsigned char all = 0;
    for (std::size_t i = 0; i < block; ++i) {
      all = static_cast<unsigned char>(all | static_cast<unsigned char>(text[i]));
    }
    if (all >= 0x80) {
      return false;
    }
  }
  return std::all_of(text, text + length, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

bool QsIsValidUTF8(const std::string& text) { return QsIsValidUTF8cs(text.c_str()); }

bool QsIsValidUTF8cs(const char* text) {
  return text != nullptr && xmlCheckUTF8(reinterpret_cast<const unsigned char*>(text)) != 0;
}

bool QsHasUTF8BOM(const unsigned char* text, unsigned int length) {
  return text != nullptr && length >= kMarkLength && std::memcmp(text, kMark, kMarkLength) == 0;
}

bool QsStripUTF8BOM(std::string& text) {
  if (text.compare(0, kMarkLength, kMark) != 0) {
    return false;
  }
  text.erase(0, kMarkLength);
  return true;
}

std::string QsGetUTF8BOM() { return kMark; }

bool QsIsUTF8StringUsAscii(const char* text, unsigned int length) { return text != nullptr && IsAscii(text, length); }

bool QsIsUTF8StringUsAscii(const std::string& text) { return IsAscii(text.data(), text.size()); }

int QsUTF16AsciiToUSAscii(const unsigned short* text, unsigned int length, std::string& out) {
  if (text == nullptr) {
    return -2;
  }
  out.clear();
  out.resize(length);
  std::transform(text, text + length, out.begin(), [](unsigned short unit) { return static_cast<char>(unit & 0xFFU); });
  return 0;
}

bool IsUTF8LeadByte(unsigned char byte) { return byte < 0x80 || (byte & 0x40U) != 0; }

int GetUTF8CharLength(unsigned char byte) {
  if (byte < 0x80) {
    return 1;
  }
  if ((byte & 0xE0U) == 0xC0) {
    return 2;
  }
  return (byte & 0xF0U) == 0xE0 ? 3 : 4;
}
