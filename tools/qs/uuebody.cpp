#include "uuebody.h"

#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <array>

#include "beginline.h"
#include "coderflags.h"
#include "decodestatus.h"
#include "text.h"

namespace qs {
namespace {

// The line of count 0. Where it is a blank, some transports took that away.
bool IsUueTerminator(std::string_view line) { return line.empty() || line == "`" || line == " " || line == "+"; }

// What the first character of a line announces; -1 for a character that cannot stand there.
using CountTable = std::array<signed char, 256>;

constexpr CountTable MakeCounts(Encoding encoding) {
  constexpr std::string_view kXXDigits = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  CountTable counts{};
  for (signed char& count : counts) {
    count = -1;
  }
  for (unsigned char i = 0; encoding == Encoding::XX && i < 64; ++i) {
    counts[static_cast<unsigned char>(kXXDigits[i])] = static_cast<signed char>(i);
  }
  for (unsigned char c = ' '; encoding == Encoding::UU && c <= '`'; ++c) {
    counts[c] = static_cast<signed char>((c - ' ') & 63);
  }
  return counts;
}

constexpr CountTable kUUCounts = MakeCounts(Encoding::UU);
constexpr CountTable kXXCounts = MakeCounts(Encoding::XX);

// The decoder takes what a line lacks for zeros when that is little. Here every announced byte must be there.
bool IsShortLine(std::string_view line, Encoding encoding) {
  if (line.empty()) {
    return false;
  }
  const auto first = static_cast<unsigned char>(line.front());
  // NOLINTNEXTLINE(bugprone-signed-char-misuse,cert-str34-c): no character, but a number that may be -1
  const int count = encoding == Encoding::XX ? kXXCounts[first] : kUUCounts[first];
  return count < 0 || line.size() - 1 < (static_cast<std::size_t>(count) * 8 + 5) / 6;
}

bool HasShortLine(std::string_view text, Encoding encoding) {
  LineReader lines(text);
  while (lines.Next()) {
    if (IsShortLine(lines.Line(), encoding)) {
      return true;
    }
  }
  return false;
}

// Whole blocks without a way out between their characters, which the compiler makes vectors of.
bool HasForeignUuChar(std::string_view lines) {
  constexpr std::size_t kBlock = 4096;
  while (!lines.empty()) {
    bool isForeign = false;
    for (const char c : lines.substr(0, kBlock)) {
      isForeign |= static_cast<unsigned char>(c - 0x20) > 0x40 && c != '\r' && c != '\n';
    }
    if (isForeign) {
      return true;
    }
    lines.remove_prefix(std::min(kBlock, lines.size()));
  }
  return false;
}

enum class UueLine { Data, Terminator, End, OtherBlock };

// `rest` is the text behind the line.
UueLine KindOfUueLine(std::string_view line, std::string_view rest) {
  BeginLine other;
  switch (line.empty() ? '\0' : line.front()) {
    case 'e':
      return TrimRight(line) == "end" ? UueLine::End : UueLine::Data;
    case '=':
      return StartsWith(line, "=ybegin ") ? UueLine::OtherBlock : UueLine::Data;
    case 'b':
    case 'B':
      return ParseBeginLine(line, other) && UueKind(rest) != Encoding::None ? UueLine::OtherBlock : UueLine::Data;
    default:
      return IsUueTerminator(line) ? UueLine::Terminator : UueLine::Data;
  }
}

}  // namespace

Encoding UueKind(std::string_view lines) {
  CEncodeDecode coder(75, 76);
  LineReader reader(lines);
  for (int looked = 0; looked < 3 && reader.Next();) {
    const std::string_view line = reader.Line();
    if (line.size() < 2) {
      continue;
    }
    ++looked;
    const EEncDecUueType type = coder.IsUueOrXxe(line.data(), CoderLength(line));
    if (type != EEncDecUueNone) {
      return type == EEncDecUueXX ? Encoding::XX : Encoding::UU;
    }
  }
  return Encoding::None;
}

UueBody ReadUueBody(std::string_view text, std::size_t start, Encoding encoding) {
  UueBody body;
  body.encoding = encoding;
  LineReader reader(text);
  reader.Seek(start);
  std::size_t dataEnd = start;
  bool hasShortTerminator = false;  // which counts when more data follows
  body.end = text.size();
  while (reader.Next()) {
    const UueLine kind = KindOfUueLine(reader.Line(), text.substr(reader.End()));
    if (kind == UueLine::End || kind == UueLine::OtherBlock) {
      body.closed = kind == UueLine::End;
      body.end = body.closed ? reader.End() : reader.Begin();
      break;
    }
    body.terminated = kind == UueLine::Terminator;
    hasShortTerminator |= IsShortLine(reader.Line(), encoding);
    if (!body.terminated) {
      dataEnd = reader.End();
      body.hasShortLine |= hasShortTerminator;
    }
  }
  body.lines = text.substr(start, dataEnd - start);
  return body;
}

UueBody ReadUueBody(std::string_view text, std::size_t start) {
  UueBody body = ReadUueBody(text, start, UueKind(text.substr(start)));
  const Encoding encoding = UueKind(body.lines);
  if (encoding != body.encoding) {  // a line behind the block had misled
    body.encoding = encoding;
    body.hasShortLine = HasShortLine(body.lines, encoding);
  }
  return body;
}

Attachment DecodeUueBody(const UueBody& body, const CodedText& coded) {
  Attachment result;
  result.encoding = body.encoding;
  if (!FitsCoder(body.lines, result)) {
    return result;
  }
  const bool isXX = body.encoding == Encoding::XX;
  const bool isForeign = !isXX && HasForeignUuChar(body.lines);
  CEncodeDecode coder(75, 76);
  if (!DecodeInto(result, coded.Part(body.lines), coder, isXX ? kFlagXX : kFlagUU)) {
    return result;
  }
  if (body.hasShortLine) {
    Report(result, StatusText(-6));
  } else if (isForeign || (isXX && coder.GetNumberIllegalChars() > 0)) {
    Report(result, "characters outside the alphabet");
  }
  return result;
}

bool LooksLikeUue(std::string_view text) {
  if (UueKind(text) != Encoding::None) {
    return true;
  }
  LineReader lines(text);
  while (lines.Next() && IsUueTerminator(lines.Line())) {
  }
  return TrimRight(lines.Line()) == "end";
}

}  // namespace qs
