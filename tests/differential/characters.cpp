#include <QSbase/codec/encodedecode.h>
#include <QSbase/text/qsstring.h>
#include <reference/characters.h>

#include <algorithm>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

std::string CompareText(const char* form, std::string_view expected, std::string_view actual, std::string_view input) {
  const std::string difference = Difference({0, expected}, {0, actual});
  return difference.empty() ? "" : Report(form, difference, input, "characters");
}

/// Maps a block by map(), and says what differs.
template <class Map>
std::string CompareMapped(const char* form, Block& block, std::string_view input, std::string_view expected, Map map) {
  block.Fill(input);
  map();
  const std::string difference = CompareText(form, expected, {block.Data(), expected.size()}, input);
  return difference.empty() && !block.IsIntactAround() ? Report(form, "wrote outside", input, "characters")
                                                       : difference;
}

using InplaceLength = void (*)(char*, unsigned int);
using InplaceZero = void (*)(char*);
using InplaceString = void (*)(std::string&);
using Copy = std::string (*)(const std::string&);

struct CaseForms {
  InplaceLength length;
  InplaceZero zeroEnded;
  InplaceString string;
  Copy copy;
};

std::string CompareForms(const CaseForms& forms, std::string_view text, const std::string& expected, Block& block,
                         Block& zeroEnded) {
  std::string difference =
      CompareMapped("length", block, text, expected, [&] { forms.length(block.Data(), block.Size()); });
  if (difference.empty()) {
    const std::string_view beforeZero = text.substr(0, text.find('\0'));
    const std::string whole = std::string(text) + '\0';
    const std::string mapped = expected.substr(0, beforeZero.size()) + whole.substr(beforeZero.size());
    difference = CompareMapped("zero-ended", zeroEnded, whole, mapped, [&] { forms.zeroEnded(zeroEnded.Data()); });
  }
  if (difference.empty()) {
    std::string string(text);
    difference = CompareText("copy", expected, forms.copy(string), text);
    forms.string(string);
    difference += CompareText("string", expected, string, text);
  }
  return difference;
}

std::size_t EndOf(std::string_view text, const char* set) { return std::min(text.find_first_of(set), text.size()); }
std::size_t StartBehind(std::string_view text, const char* set) {
  return std::min(text.find_first_not_of(set), text.size());
}

using Skip = void (*)(const char*&, const char*);

bool Skips(Skip skip, Block& block, std::size_t expected) {
  const char* position = block.Data();
  skip(position, position + block.Size());
  return position == block.Data() + expected;
}

}  // namespace

std::string CompareCase(std::string_view text, std::size_t alignment) {
  static constexpr CaseForms kLower = {QsString::ToLower_Inplace, QsString::ToLower_Inplace, QsString::ToLower_Inplace,
                                       QsString::ToLower};
  static constexpr CaseForms kUpper = {QsString::ToUpper_Inplace, QsString::ToUpper_Inplace, QsString::ToUpper_Inplace,
                                       QsString::ToUpper};
  const std::string lower = reference::ToLower(text);
  const std::string upper = reference::ToUpper(text);
  const std::string spaced = reference::ToLowerControlToSpace(text);
  Block block(text, alignment);
  Block zeroEnded(std::string(text) + '\0', alignment);
  return OnLevels([&] {
    std::string difference = CompareForms(kLower, text, lower, block, zeroEnded);
    if (difference.empty()) {
      difference = CompareForms(kUpper, text, upper, block, zeroEnded);
    }
    if (difference.empty()) {
      std::string string(text);
      QsString::ToLowerControlToSpace_Inplace(string);
      difference = CompareText("controls", spaced, string, text);
    }
    return difference;
  });
}

std::string CompareClasses(std::string_view text, unsigned int mask) {
  const std::string left = reference::TrimLeft(text, mask);
  const std::string right = reference::TrimRight(text, mask);
  const std::string both = reference::TrimRight(left, mask);
  const std::string stripped = reference::StripCharacters(text, mask);
  const std::string input(text);
  return OnLevels([&] {
    std::string difference = CompareText("left", left, QsString::TrimLeft(input, mask), text);
    difference += CompareText("right", right, QsString::TrimRight(input, mask), text);
    difference += CompareText("both", both, QsString::Trim(input, mask), text);
    difference += CompareText("strip", stripped, QsString::StripCharacters(input, mask), text);
    return difference.empty() ? "" : difference + "; mask " + std::to_string(mask);
  });
}

std::string CompareSkips(std::string_view text, std::size_t alignment) {
  const std::size_t endOfLine = EndOf(text, "\r\n");
  const std::size_t startOfLine = StartBehind(text, "\r\n");
  const std::size_t behindWhite = StartBehind(text, " \t\n\v\f\r");
  Block block(text, alignment);
  return OnLevels([&]() -> std::string {
    const bool agree = Skips(CEncodeDecode::SkipToEndOfLine, block, endOfLine) &&
                       Skips(CEncodeDecode::SkipToStartOfLine, block, startOfLine) &&
                       Skips(CEncodeDecode::SkipWhiteSpace, block, behindWhite);
    return agree ? "" : Report("skip", "a place", text, "lines");
  });
}

}  // namespace qsbase::differential
