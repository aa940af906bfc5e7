#include "mimebody.h"

#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "coderflags.h"
#include "decodestatus.h"
#include "text.h"

namespace qs {
namespace {

// The part of a Base64 text that is decoded: the decoder stops at the first padding.
struct Base64Extent {
  explicit Base64Extent(std::string_view text) {
    constexpr std::size_t kBlock = 4096;
    bool isPadded = false;
    while (!isPadded && length < text.size()) {
      const std::string_view block = text.substr(length, kBlock);
      const std::size_t padding = block.find('=');
      isPadded = padding != std::string_view::npos;
      AddBlock(block.substr(0, padding));
    }
  }

  std::size_t length = 0;
  std::size_t breaks = 0;  // CR and LF, which the decoder steps over
  std::size_t blanks = 0;  // which it counts as illegal

 private:
  // Counters of two bytes, which the compiler makes vectors of.
  void AddBlock(std::string_view block) {
    std::uint16_t blockBreaks = 0;
    std::uint16_t blockBlanks = 0;
    for (const char c : block) {
      blockBreaks = static_cast<std::uint16_t>(blockBreaks + (c == '\r' || c == '\n' ? 1 : 0));
      blockBlanks = static_cast<std::uint16_t>(blockBlanks + (c == ' ' || c == '\t' ? 1 : 0));
    }
    length += block.size();
    breaks += blockBreaks;
    blanks += blockBlanks;
  }
};

// What is wrong with a Base64 text; `tail` is its padding and what is behind it.
std::string Base64Problem(const CEncodeDecode& coder, const Base64Extent& extent, std::string_view tail) {
  const std::size_t foreign = coder.GetNumberIllegalChars() - extent.blanks;
  if (foreign > 0) {
    return Count(foreign, "character") + " outside the alphabet";
  }
  if (tail.find_first_not_of("= \t\r\n") != std::string_view::npos) {
    return "more text behind the padding";
  }
  const std::size_t digits = extent.length - extent.breaks - extent.blanks;
  const auto pads = static_cast<std::size_t>(std::count(tail.begin(), tail.end(), '='));
  return digits % 4 == 1 || (digits + pads) % 4 != 0 ? "the last group is incomplete" : "";
}

// Whether the decoder takes the line and its break as they are: no blanks at its end, and no soft break of a lone LF in
// front of an empty line, whose LF the decoder would take for the break's second half.
bool IsNormalQuotedPrintable(const LineReader& lines, std::string_view text) {
  const std::string_view line = lines.Line();
  if (line.empty()) {
    return true;
  }
  const char last = line.back();
  if (IsBlank(last) || last == '\r') {
    return false;
  }
  const bool isLoneFeed = lines.End() - lines.Begin() == line.size() + 1;
  const bool meetsBreak = lines.End() < text.size() && (text[lines.End()] == '\n' || text[lines.End()] == '\r');
  return last != '=' || !isLoneFeed || !meetsBreak;
}

bool IsNormalQuotedPrintable(std::string_view text) {
  LineReader lines(text);
  while (lines.Next()) {
    if (!IsNormalQuotedPrintable(lines, text)) {
      return false;
    }
  }
  // An escape is decoded only when something follows it.
  return EndsWith(text, "\n");
}

// Rewrites the lines for the decoder: blanks at their ends go, and a soft break is written "=" CR LF.
std::string NormalizeQuotedPrintable(std::string_view text) {
  std::string normal;
  normal.reserve(text.size() + text.size() / 32 + 2);
  LineReader lines(text);
  while (lines.Next()) {
    const std::string_view line = TrimRight(lines.Line());
    const std::size_t breakAt = lines.Begin() + lines.Line().size();
    normal += line;
    if (EndsWith(line, "=")) {
      normal += "\r\n";
    } else {
      normal += text.substr(breakAt, lines.End() - breakAt);
    }
  }
  return normal;
}

Attachment DecodeNormalQuotedPrintable(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::QuotedPrintable;
  CEncodeDecode coder(75, 76);
  if (DecodeInto(result, coded, coder, kFlagQP) && coder.GetNumberIllegalChars() > 0) {
    Report(result, Count(coder.GetNumberIllegalChars(), "escape") + " without hex digits");
  }
  return result;
}

}  // namespace

Attachment DecodeBase64(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::Base64;
  if (!FitsCoder(coded.View(), result)) {
    return result;
  }
  const Base64Extent extent(coded.View());
  const std::string tail(Trim(coded.View().substr(extent.length)));
  CEncodeDecode coder(75, 76);
  if (DecodeInto(result, coded, coder, kFlagBase64)) {
    Report(result, Base64Problem(coder, extent, tail));
  }
  return result;
}

Attachment DecodeQuotedPrintable(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::QuotedPrintable;
  if (!FitsCoder(coded.View(), result)) {
    return result;
  }
  if (IsNormalQuotedPrintable(coded.View())) {
    return DecodeNormalQuotedPrintable(coded);
  }
  std::string normal = NormalizeQuotedPrintable(coded.View());
  // An escape is decoded only when something follows it.
  const bool helped = !EndsWith(normal, "\n");
  if (helped) {
    normal += '\n';
  }
  result = DecodeNormalQuotedPrintable(coded.MayBeUsedUp() ? CodedText(normal) : CodedText(std::string_view(normal)));
  if (helped && !result.data.empty()) {
    result.data.pop_back();
  }
  return result;
}

}  // namespace qs
