#include <QSbase/text/utf8.h>

#include <algorithm>
#include <vector>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

enum class Form { kValid, kDisputed, kBroken };

unsigned int ByteOf(const std::string& text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// Of one character: how long it is, and what the standard says of it. Overlong forms, surrogates and what lies beyond
// U+10FFFF are disputed: versions of libxml2 differ.
Form FormOf(const std::string& text, std::size_t at, std::size_t& length) {
  const unsigned int lead = ByteOf(text, at);
  length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : 0;
  if (length == 0) {
    return Form::kBroken;
  }
  unsigned int character = length == 1 ? lead : lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((ByteOf(text, at + i) & 0xC0U) != 0x80) {
      return Form::kBroken;
    }
    character = character << 6 | (ByteOf(text, at + i) & 0x3FU);
  }
  constexpr unsigned int kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
  return character < kLeast[length] || isSurrogate || character > 0x10FFFF ? Form::kDisputed : Form::kValid;
}

// Up to a zero byte.
Form FormOf(const std::string& text) {
  Form form = Form::kValid;
  std::size_t length = 0;
  for (std::size_t at = 0; at < text.size() && text[at] != '\0'; at += length) {
    const Form one = FormOf(text, at, length);
    if (one == Form::kBroken) {
      return one;
    }
    form = std::max(form, one);
  }
  return form;
}

void CheckValidity(const std::string& text) {
  const bool isValid = QsIsValidUTF8(text);
  const Form form = FormOf(text);
  fuzz::Demand(isValid == QsIsValidUTF8cs(text.c_str()) ? "" : "two opinions of a text");
  fuzz::Demand(form == Form::kDisputed || isValid == (form == Form::kValid) ? "" : "UTF-8, or not");
}

void CheckMark(const std::string& text) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::string rest(text);
  const bool hasMark = QsHasUTF8BOM(bytes, static_cast<unsigned int>(text.size()));
  fuzz::Demand(QsStripUTF8BOM(rest) == hasMark ? "" : "two opinions of a mark");
  fuzz::DemandEqual(text, (hasMark ? "\xEF\xBB\xBF" : "") + rest, "the mark");
  std::string marked = QsGetUTF8BOM() + text;
  QsStripUTF8BOM(marked);
  fuzz::DemandEqual(text, marked, "the text behind a mark");
}

void CheckAscii(const std::string& text) {
  const bool isAscii =
      std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 128; });
  fuzz::Demand(QsIsUTF8StringUsAscii(text) == isAscii ? "" : "ASCII, or not");
  fuzz::Demand(QsIsUTF8StringUsAscii(text.data(), static_cast<unsigned int>(text.size())) == isAscii ? ""
                                                                                                     : "two forms");
  fuzz::Demand(!isAscii || QsIsValidUTF8(text) ? "" : "ASCII that is no UTF-8");
  std::vector<unsigned short> units(text.begin(), text.end());  // bytes from 128 on with upper bits
  std::string narrow("old");
  QsUTF16AsciiToUSAscii(units.data(), static_cast<unsigned int>(units.size()), narrow);
  fuzz::DemandEqual(units.empty() ? "" : text, units.empty() ? "" : narrow, "narrow text");
}

void CheckLengths(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    const Form form = FormOf(text, i, length);
    fuzz::Demand(IsUTF8LeadByte(byte) == (byte < 0x80 || byte >= 0xC0) ? "" : "a lead byte, or not");
    fuzz::Demand(form == Form::kBroken || static_cast<int>(length) == GetUTF8CharLength(byte) ? "" : "another length");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckValidity(text);
  CheckMark(text);
  CheckAscii(text);
  CheckLengths(text);
  fuzz::DemandBounds("QsIsValidUTF8", text, [](const std::string& in) { return QsIsValidUTF8(in) ? 1 : 0; });
  fuzz::DemandBounds("QsIsUTF8StringUsAscii", text,
                     [](const std::string& in) { return QsIsUTF8StringUsAscii(in) ? 1 : 0; });
  return 0;
}
