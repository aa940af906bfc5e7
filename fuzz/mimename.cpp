// Names and words in the headers of messages: RFC 2047 and RFC 2231, percent codes, charsets.
#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bounds.h"
#include "choices.h"
#include "mimename.h"
#include "target.h"
#include "text.h"

using namespace qsbase;

namespace {

std::string Hex(char c, char mark) {
  char text[4];
  std::snprintf(text, sizeof text, "%c%02X", mark, static_cast<unsigned char>(c));
  return text;
}

std::string Escaped(std::string_view text, char mark) {
  std::string escaped;
  for (const char c : text) {
    escaped += Hex(c, mark);
  }
  return escaped;
}

// ---- encoded words ----

/// A text as encoded words, with blanks between them, comes back whole.
void WordsAndBack(std::string_view text, fuzz::Choices choices) {
  std::string words;
  for (const std::string_view piece : choices.Pieces(text, 45)) {
    std::string base64;
    CEncodeDecode(1000, 1000).EncodeBase64(std::string(piece), base64, 0);
    const bool isQ = choices.Below(2) == 0;
    words += words.empty() ? "" : choices.Below(2) == 0 ? " " : " \t ";
    words += isQ ? "=?utf-8?q?" + Escaped(piece, '=') + "?=" : "=?UTF-8*en?B?" + std::string(qs::Trim(base64)) + "?=";
  }
  fuzz::DemandEqual(text, qs::DecodeWords(words), "encoded words");
}

void DecodeHostile(const std::string& text) {
  const std::string decoded = qs::DecodeWords(text);
  fuzz::Demand(decoded.size() <= 3 * text.size() ? "" : "words become longer than any charset makes them");
  fuzz::Demand(text.find("=?") != std::string::npos || decoded == text ? "" : "a text without words changes");
}

// ---- parameters ----

/// A name cut into sections, in any order, with other parameters between them.
void SectionsAndBack(std::string_view text, fuzz::Choices choices) {
  std::vector<std::string> sections;
  for (const std::string_view piece : choices.Pieces(text.substr(0, 2000), 30)) {
    const std::string charset = sections.empty() ? "utf-8'en'" : "";
    sections.push_back("; FileName*" + std::to_string(sections.size()) + "*=" + charset + Escaped(piece, '%'));
  }
  if (sections.empty() || sections.size() > 999) {
    return;
  }
  sections.push_back("; filename=\"for old \\\"readers\\\"; only\"");
  sections.push_back(" (a comment; filename*=no) ; size=1");
  choices.Shuffle(sections);
  std::string field = "Attachment";
  for (const std::string& section : sections) {
    field += section;
  }
  const qs::FieldValue value = qs::ParseFieldValue(field);
  fuzz::DemandEqual("attachment", value.value, "the value of a field");
  fuzz::DemandEqual("1", value.Parameter("size"), "a parameter");
  fuzz::DemandEqual(text.substr(0, 2000), value.Parameter("filename"), "a name in sections");
}

void QuotedAndBack(const std::string& text) {
  std::string quoted;
  for (const char c : text) {
    quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  }
  const std::string trimmed(qs::Trim(text));
  const qs::FieldValue value = qs::ParseFieldValue("a/b; x=y; name=\"" + quoted + "\"; z=1");
  fuzz::DemandEqual(trimmed, value.Parameter("name"), "a quoted name");
  fuzz::DemandEqual("1", value.Parameter("z"), "what follows a quoted name");
}

void ParseHostile(const std::string& text) {
  const qs::FieldValue value = qs::ParseFieldValue(text);
  std::size_t size = value.value.size();
  for (const auto& [name, content] : value.parameters) {
    size += name.size() + content.size();
  }
  fuzz::Demand(size <= 3 * text.size() ? "" : "a field becomes longer than any charset makes it");
}

// ---- percent codes and charsets ----

std::string SlowPercentDecode(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned int value = 0;
    char digits[3] = {};
    const bool isCode = text[i] == '%' && i + 2 < text.size() &&
                        std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                        std::isxdigit(static_cast<unsigned char>(text[i + 2]));
    if (isCode) {
      digits[0] = text[i + 1];
      digits[1] = text[i + 2];
      value = static_cast<unsigned int>(std::strtoul(digits, nullptr, 16));
    }
    decoded += isCode ? static_cast<char>(value) : text[i];
    i += isCode ? 2 : 0;
  }
  return decoded;
}

void ComparePercent(const std::string& text) {
  fuzz::DemandEqual(SlowPercentDecode(text), qs::PercentDecode(text), "percent codes");
  fuzz::DemandEqual(text, qs::PercentDecode(Escaped(text, '%')), "percent-coded text");
}

void CompareCharsets(const std::string& text) {
  fuzz::DemandEqual(text, qs::ToUtf8(text, "utf-8"), "UTF-8");
  fuzz::DemandEqual(text, qs::ToUtf8(text, text), "bytes of a charset that nobody knows");
  std::size_t characters = 0;
  for (const char c : qs::ToUtf8(text, "ISO-8859-1*de")) {
    characters += (c & 0xC0) != 0x80 ? 1 : 0;
  }
  fuzz::Demand(characters == text.size() ? "" : "not a character for each byte of Latin-1");
}

// ---- bounds ----

/// Beyond the text: 4000 parameters in maps.
void DemandBounds(std::string_view text) {
  fuzz::DemandBounds("ParseFieldValue", text, [](const std::string& field) {
    qs::ParseFieldValue(field);
    return 3 * field.size() + std::size_t{4000} * 400;
  });
  fuzz::DemandBounds(
      "DecodeWords", text, [](const std::string& words) { return qs::DecodeWords(words).capacity() + words.size(); },
      std::size_t{1} << 18);  // looks 2048 bytes ahead
  fuzz::DemandBounds("PercentDecode", text,
                     [](const std::string& coded) { return qs::PercentDecode(coded).capacity() + coded.size(); });
  fuzz::DemandBounds("ToUtf8", text,
                     [](const std::string& bytes) { return 2 * qs::ToUtf8(bytes, "latin1").capacity(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Choices choices(input.Parameter());
  const std::string text(input.Rest());
  WordsAndBack(text, choices);
  DecodeHostile(text);
  SectionsAndBack(text, choices);
  QuotedAndBack(text);
  ParseHostile(text);
  ComparePercent(text);
  CompareCharsets(text);
  DemandBounds(text);
  return 0;
}
