#include "attachment.h"

#include <QSbase/codec/binhex.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/support/paths.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <array>
#include <limits>

#include "article.h"
#include "codedtext.h"
#include "coderoutput.h"
#include "text.h"

namespace qs {
namespace {

constexpr int kFlagBase64 = 0x1;
constexpr int kFlagQP = 0x2;
constexpr int kFlagUU = 0x4;
constexpr int kFlagXX = 0x8;
constexpr int kFlagYEnc = 0x800;
constexpr int kFlagYEncFindBlock = 0x2000;
constexpr int kFlagBinHexHeaderOnly = 0x20000;
constexpr std::string_view kBinHexMarker = "(This file must be converted with BinHex";

std::string StatusText(int status) {
  switch (status) {
    case -3:
      return "out of memory";
    case -6:
      return "a line does not have the length that it announces";
    case -7:
      return "the block is incomplete";
    case -8:
      return "a character outside the alphabet";
    case -9:
    case -10:
      return "the end is missing";
    default:
      return "the decoder gave " + std::to_string(status);
  }
}

bool FitsCoder(std::string_view text, Attachment& result) {
  if (text.size() <= std::numeric_limits<unsigned int>::max()) {
    return true;
  }
  result.problem = "longer than 4 GiB";
  return false;
}

unsigned int CoderLength(std::string_view text) { return static_cast<unsigned int>(text.size()); }

// Sets the problem unless an earlier one stands.
void Report(Attachment& attachment, const std::string& problem) {
  if (attachment.problem.empty()) {
    attachment.problem = problem;
  }
}

// Without a way out between the characters, which the compiler makes vectors of.
bool AreBase64Chars(std::string_view text) {
  bool good = true;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isLetter = static_cast<unsigned char>((byte | 0x20) - 'a') < 26;
    const bool isOther = static_cast<unsigned char>(byte - '/') < 11 || byte == '+';  // the digits stand behind the "/"
    good &= isLetter | isOther;
  }
  return good;
}

// ---- yEnc

// The value of "key" in a yEnc line, the key standing behind a blank.
std::string YEncValue(std::string_view line, std::string_view key) {
  const std::string wanted = " " + std::string(key) + "=";
  const std::size_t found = line.find(wanted);
  if (found == std::string_view::npos) {
    return {};
  }
  const std::string_view value = line.substr(found + wanted.size());
  return std::string(value.substr(0, value.find_first_of(" \t\r\n")));
}

// The last line that begins with "=yend ". Searched from the end, where it stands unless the block is damaged.
std::string_view Trailer(std::string_view block) {
  std::size_t found = block.rfind("=yend ");
  while (found != std::string_view::npos && found > 0 && block[found - 1] != '\n') {
    found = block.rfind("=yend ", found - 1);
  }
  return found == std::string_view::npos ? std::string_view() : block.substr(found, block.find('\n', found) - found);
}

YEncPart PartOf(const CYEncData& header, const std::string& fileCrc) {
  YEncPart part;
  part.number = header.part;
  part.total = header.total;
  part.begin = header.begin;
  part.end = header.end;
  part.size = header.size;
  part.fileCrc = fileCrc.empty() ? fileCrc : NormalCrc(fileCrc);
  return part;
}

void CheckYEncSizes(Attachment& result, const CYEncData& header) {
  if (result.data.size() != header.endSize) {
    Report(result, "size " + std::to_string(result.data.size()) + " instead of " + std::to_string(header.endSize));
  }
  if (!result.part) {
    if (header.size != header.endSize) {
      Report(result, "the sizes of =ybegin and =yend differ");
    }
    return;
  }
  if (header.begin < 1 || header.end < header.begin || header.end > header.size) {
    Report(result, "begin and end of the part are impossible");
  } else if (std::uint64_t{header.end} - header.begin + 1 != result.data.size()) {
    Report(result, "begin and end do not fit the part's size");
  }
}

// The checksums that a yEnc trailer announces. That of a part stands as "pcrc32", the plain "crc32" is the whole
// file's.
struct YEncCrcs {
  explicit YEncCrcs(std::string_view trailer) : part(YEncValue(trailer, "pcrc32")), file(YEncValue(trailer, "crc32")) {}

  std::string part;
  std::string file;
};

void CheckYEncCrc(Attachment& result, const YEncCrcs& crcs, const CYEncData& header) {
  const std::string& expected = result.part || crcs.file.empty() ? crcs.part : crcs.file;
  if (expected.empty()) {
    return;
  }
  // The decoder has computed it wherever it saw one itself.
  const std::string computed = header.computedCrcText.empty() ? Crc32Hex(result.data) : header.computedCrcText;
  if (NormalCrc(expected) != computed) {
    Report(result, "CRC-32 mismatch (" + Printable(NormalCrc(expected)) + " announced)");
  }
}

// ---- UU and XX

struct BeginLine {
  std::string name;
  bool base64 = false;
  bool encodedName = false;
};

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

// begin 644 name, begin-base64 644 name, begin-base64-encoded 644 bmFtZQ==
bool ParseBeginLine(std::string_view line, BeginLine& begin) {
  begin = {};
  if (!StartsWithNoCase(line, "begin")) {
    return false;
  }
  line.remove_prefix(5);
  if (StartsWith(line, "-base64")) {
    line.remove_prefix(7);
    begin.base64 = true;
  }
  if (StartsWith(line, "-encoded")) {
    line.remove_prefix(8);
    begin.encodedName = true;
  }
  if (line.empty() || line.front() != ' ') {
    return false;
  }
  line = Trim(line);
  std::size_t digits = 0;
  while (digits < line.size() && IsOctal(line[digits])) {
    ++digits;
  }
  if (digits < 3 || digits > 4 || digits >= line.size() || line[digits] != ' ') {
    return false;
  }
  begin.name = std::string(Trim(line.substr(digits)));
  if (begin.encodedName) {
    begin.name = DecodeBase64Text(begin.name).data;
  }
  return !begin.name.empty();
}

// UU or XX if one of the first lines has the length that its first character announces, else none.
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

struct UueBody {
  std::string_view lines;  // without terminator and "end"
  std::size_t end = 0;     // offset behind the block
  Encoding encoding = Encoding::None;
  bool hasShortLine = false;
  bool terminated = false;
  bool closed = false;
};

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

// The lines up to "end", or up to where another block begins, or all there are; short ones are found on the way.
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

// The same when the lines are to tell whether they are UU or XX; none where they do not.
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
  const int status = coded.Part(body.lines).Decode(coder, isXX ? kFlagXX : kFlagUU, result.data);
  if (status != 0) {
    Report(result, StatusText(status));
  } else if (body.hasShortLine) {
    Report(result, StatusText(-6));
  } else if (isForeign || (isXX && coder.GetNumberIllegalChars() > 0)) {
    Report(result, "characters outside the alphabet");
  }
  return result;
}

// Whether a block may stand here: data within the first lines, or the empty file's terminator and "end". Looks at no
// more than that, so that a text of nothing but "begin" lines is not read to its end for each of them.
bool LooksLikeUue(std::string_view text) {
  if (UueKind(text) != Encoding::None) {
    return true;
  }
  LineReader lines(text);
  while (lines.Next() && IsUueTerminator(lines.Line())) {
  }
  return TrimRight(lines.Line()) == "end";
}

// ---- names

struct Kind {
  std::string_view magic;
  std::string_view mediaType;
  const char* extension;
};

constexpr std::array<Kind, 8> kKinds = {{{"\x89PNG\r\n", "image/png", ".png"},
                                         {"%PDF-", "application/pdf", ".pdf"},
                                         {"\xFF\xD8\xFF", "image/jpeg", ".jpg"},
                                         {"GIF8", "image/gif", ".gif"},
                                         {"PK\x03\x04", "application/zip", ".zip"},
                                         {"\x1F\x8B", "application/gzip", ".gz"},
                                         {"<!DOCTYPE html", "text/html", ".html"},
                                         {"<?xml", "text/xml", ".xml"}}};

const char* ExtensionFor(std::string_view data, std::string_view mediaType) {
  for (const Kind& kind : kKinds) {
    if (StartsWith(data, kind.magic)) {
      return kind.extension;
    }
  }
  for (const Kind& kind : kKinds) {
    if (mediaType == kind.mediaType) {
      return kind.extension;
    }
  }
  return StartsWith(mediaType, "text/") ? ".txt" : ".bin";
}

void NameAfterContent(Attachment& attachment, const std::string& contentName, std::string_view mediaType) {
  if (attachment.name.empty()) {
    attachment.name = ExtractFileBaseName(contentName) + ExtensionFor(attachment.data, mediaType);
  }
}

// ---- decoding

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

Attachment DecodeBase64(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::Base64;
  if (!FitsCoder(coded.View(), result)) {
    return result;
  }
  const Base64Extent extent(coded.View());
  const std::string tail(Trim(coded.View().substr(extent.length)));
  CEncodeDecode coder(75, 76);
  const int status = coded.Decode(coder, kFlagBase64, result.data);
  Report(result, status != 0 ? StatusText(status) : Base64Problem(coder, extent, tail));
  return result;
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
  const int status = coded.Decode(coder, kFlagQP, result.data);
  if (status != 0) {
    Report(result, StatusText(status));
  } else if (coder.GetNumberIllegalChars() > 0) {
    Report(result, Count(coder.GetNumberIllegalChars(), "escape") + " without hex digits");
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

// The name in the first line of a block that is damaged otherwise.
std::string YEncName(std::string_view block) {
  const std::string_view firstLine = block.substr(0, block.find('\n'));
  const std::size_t name = firstLine.find(" name=");
  return name == std::string_view::npos ? std::string() : std::string(Trim(firstLine.substr(name + 6)));
}

Attachment DecodeYEnc(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::YEnc;
  if (!FitsCoder(coded.View(), result)) {
    return result;
  }
  const YEncCrcs crcs(Trailer(coded.View()));
  result.name = YEncName(coded.View());
  CEncodeDecode coder(75, 76);
  CYEncData header;
  const int status = coded.Decode(coder, kFlagYEncFindBlock, result.data, &header);
  if (status != 0) {
    Report(result, status == -7 ? "the end is missing" : StatusText(status));
    return result;
  }
  result.name = header.name;
  if (header.part >= 0) {
    result.part.emplace();
  }
  CheckYEncSizes(result, header);
  CheckYEncCrc(result, crcs, header);
  if (result.part) {
    result.part = PartOf(header, crcs.file);
  }
  return result;
}

// ---- finding blocks in a text

struct Block {
  Encoding encoding = Encoding::None;
  std::string name;       // of the lines around it, where these have it
  std::string_view text;  // what the encoding's decoder takes
  UueBody body;           // the same for UU and XX
  bool closed = true;
};

// Finds the blocks and decodes none, so that nothing of the text is needed once they are known.
class BlockFinder {
 public:
  explicit BlockFinder(std::string_view text) : _text(text), _reader(text) {}

  std::vector<Block> Find() {
    while (_reader.Next()) {
      if (!_reader.Line().empty()) {
        LookAt(_reader.Line());
      }
    }
    return std::move(_found);
  }

 private:
  void LookAt(std::string_view line) {
    BeginLine begin;
    switch (line.front()) {
      case '=':
        if (StartsWith(line, "=ybegin ")) {
          YEnc();
        }
        break;
      case '(':
        if (StartsWith(line, kBinHexMarker)) {
          BinHex();
        }
        break;
      case 'b':
      case 'B':
        if (ParseBeginLine(line, begin)) {
          begin.base64 ? Base64(begin.name) : Uue(begin.name);
        }
        break;
      default:
        break;
    }
  }

  Block& Add(Encoding encoding, const std::string& name, std::size_t start, std::size_t end) {
    Block& block = _found.emplace_back();
    block.encoding = encoding;
    block.name = name;
    block.text = _text.substr(start, end - start);
    return block;
  }

  // The block ends behind its "=yend" line, or where the next block begins.
  void YEnc() {
    std::size_t end = _text.size();
    LineReader lines(_text);
    lines.Seek(_reader.End());
    while (lines.Next()) {
      if (StartsWith(lines.Line(), "=yend ")) {
        end = lines.End();
        break;
      }
      if (StartsWith(lines.Line(), "=ybegin ")) {
        end = lines.Begin();
        break;
      }
    }
    Add(Encoding::YEnc, "", _reader.Begin(), end);
    _reader.Seek(end);
  }

  void BinHex() {
    const std::size_t start = _reader.Begin();
    const std::size_t opening = _text.find(':', start);
    const std::size_t closing = opening == std::string_view::npos ? opening : _text.find(':', opening + 1);
    const std::size_t end = closing == std::string_view::npos ? _text.size() : closing + 1;
    Add(Encoding::BinHex, "", start, end);
    const std::size_t feed = _text.find('\n', end);
    _reader.Seek(feed == std::string_view::npos ? _text.size() : feed + 1);
  }

  void Base64(const std::string& name) {
    const std::size_t start = _reader.End();
    std::size_t end = _text.size();
    bool closed = false;
    LineReader lines(_text);
    lines.Seek(start);
    while (!closed && lines.Next()) {
      closed = TrimRight(lines.Line()) == "====";
      end = closed ? lines.Begin() : lines.End();
    }
    Add(Encoding::Base64, name, start, end).closed = closed;
    _reader.Seek(closed ? lines.End() : _text.size());
  }

  // A line of prose may begin with "begin 100 ..." too: what follows must look like data, or be the empty file's.
  void Uue(const std::string& name) {
    if (!LooksLikeUue(_text.substr(_reader.End()))) {
      return;
    }
    UueBody body = ReadUueBody(_text, _reader.End());
    if (body.encoding == Encoding::None && body.lines.empty() && body.terminated && body.closed) {
      body.encoding = Encoding::UU;
    }
    if (body.encoding == Encoding::None) {
      return;
    }
    Block& block = Add(body.encoding, name, _reader.End(), body.end);
    block.body = body;
    block.closed = body.closed && body.terminated;
    _reader.Seek(body.end);
  }

  std::string_view _text;
  LineReader _reader;
  std::vector<Block> _found;
};

Attachment DecodeData(const Block& block, const CodedText& coded) {
  switch (block.encoding) {
    case Encoding::YEnc:
      return DecodeYEnc(coded.Part(block.text));
    case Encoding::BinHex:
      return DecodeBinHexText(block.text);
    case Encoding::Base64:
      return DecodeBase64(coded.Part(block.text));
    default:
      return DecodeUueBody(block.body, coded);
  }
}

Attachment DecodeBlock(const Block& block, const CodedText& coded) {
  Attachment attachment = DecodeData(block, coded);
  if (!block.name.empty()) {
    attachment.name = block.name;
  }
  if (!block.closed) {
    Report(attachment, "the end is missing");
  }
  return attachment;
}

// A block that is alone may use the text up.
std::vector<Attachment> DecodeBlocks(const std::vector<Block>& blocks, const CodedText& coded) {
  if (blocks.size() == 1) {
    return {DecodeBlock(blocks.front(), coded)};
  }
  std::vector<Attachment> attachments;
  for (const Block& block : blocks) {
    attachments.push_back(DecodeBlock(block, CodedText(coded.View())));
  }
  return attachments;
}

// ---- parts of an article

bool IsText(const ArticlePart& part) {
  return StartsWith(part.mediaType, "text/") || StartsWith(part.mediaType, "message/") ||
         StartsWith(part.mediaType, "multipart/");
}

bool HasWrongMd5(const ArticlePart& part, const std::string& data) {
  if (part.contentMd5.empty()) {
    return false;
  }
  unsigned char digest[16];
  QsCalcMD5(data.data(), CoderLength(data), digest);
  std::string text;
  QsBase64Encode(digest, sizeof digest, text);
  return Trim(text) != Trim(part.contentMd5);
}

Attachment DecodePart(const ArticlePart& part, const CodedText& coded) {
  Attachment result;
  switch (part.transfer) {
    case Transfer::Base64:
      result = DecodeBase64(coded.Part(part.body));
      break;
    case Transfer::QuotedPrintable:
      result = DecodeQuotedPrintable(coded.Part(part.body));
      break;
    // These may hold blocks that are looked for afterwards.
    case Transfer::UU:
      result = DecodeUueLines(part.body, Encoding::UU);
      break;
    case Transfer::Identity:
      result.data = std::string(part.body);
      break;
  }
  result.name = part.fileName;
  if (!part.complete) {
    Report(result, "the closing boundary is missing");
  }
  if (HasWrongMd5(part, result.data)) {
    Report(result, "MD5 mismatch (Content-MD5)");
  }
  return result;
}

// A coded text without a name is the message itself: what it holds counts. So does a block inside plain lines.
std::vector<Attachment> BlocksOf(const ArticlePart& part, const Attachment& decoded) {
  if (part.transfer == Transfer::Identity || part.transfer == Transfer::UU) {
    return FindEncodedBlocks(part.body);
  }
  if (IsText(part) && part.fileName.empty()) {
    return FindEncodedBlocks(decoded.data);
  }
  return {};
}

bool IsAttachment(const ArticlePart& part, bool only) {
  if (!part.fileName.empty() || part.attachment) {
    return true;
  }
  if (only) {
    return part.transfer != Transfer::Identity;
  }
  return !IsText(part);
}

void AppendAttachments(const ArticlePart& part, const CodedText& coded, bool only, const std::string& contentName,
                       std::vector<Attachment>& found) {
  Attachment decoded = DecodePart(part, only ? coded : CodedText(coded.View()));
  std::vector<Attachment> blocks = BlocksOf(part, decoded);
  if (!blocks.empty()) {
    std::move(blocks.begin(), blocks.end(), std::back_inserter(found));
    return;
  }
  if (IsAttachment(part, only)) {
    NameAfterContent(decoded, contentName, part.mediaType);
    found.push_back(std::move(decoded));
  }
}

// What the extension of the content's name says about a text without any mark of its own.
std::optional<Attachment> DecodeByExtension(const CodedText& coded, const std::string& extension) {
  if (extension == "b64" || extension == "base64") {
    return DecodeBase64(coded);
  }
  if (extension == "qp") {
    return DecodeQuotedPrintable(coded);
  }
  if (extension == "uu" || extension == "uue" || extension == "xx" || extension == "xxe") {
    if (const Encoding kind = UueKind(coded.View()); kind != Encoding::None) {
      return DecodeUueBody(ReadUueBody(coded.View(), 0, kind), coded);
    }
  }
  return std::nullopt;
}

std::vector<Attachment> FromBareText(const CodedText& coded, const std::string& contentName) {
  const std::vector<Block> blocks = BlockFinder(coded.View()).Find();
  if (!blocks.empty()) {
    return DecodeBlocks(blocks, coded);
  }
  std::vector<Attachment> found;
  if (std::optional<Attachment> hinted = DecodeByExtension(coded, CAL_GetFileExtensionLC(contentName))) {
    // photo.png.b64 holds photo.png
    hinted->name = ExtractFileBaseName(contentName);
    if (ExtractFileExt(hinted->name).empty()) {
      hinted->name.clear();
    }
    found.push_back(std::move(*hinted));
  } else if (IsBareBase64(coded.View())) {
    found.push_back(DecodeBase64(coded));
  }
  if (!found.empty()) {
    NameAfterContent(found.front(), contentName, "");
  }
  return found;
}

bool IsBase64Line(std::string_view line, std::string_view digits) {
  const std::size_t pads = line.size() - digits.size();
  return !line.empty() && line.size() % 4 == 0 && pads <= 2 &&
         line.find_first_not_of('=', digits.size()) == std::string_view::npos && AreBase64Chars(digits);
}

// Gives the protected steps of the decoder, which leave the data's CRC to whoever wants it.
class BinHexReader : public CBinHexDecoder {
 public:
  // True when the CRC behind the data fork fits it.
  bool DataCrcFits(std::string_view text) {
    char* none = nullptr;
    unsigned int noLength = 0;
    if (Decode(text.data(), CoderLength(text), &none, noLength, kFlagBinHexHeaderOnly) != 0) {
      return false;
    }
    std::uint16_t crc = 0;
    std::array<unsigned char, 4096> block{};
    for (std::uint32_t left = GetDataSize(); left > 0;) {
      const std::uint32_t count = std::min<std::uint32_t>(left, block.size());
      if (DecodeData(block.data(), static_cast<int>(count)) != 0) {
        return false;
      }
      crc = UpdateCrc(crc, block.data(), count);
      left -= count;
    }
    unsigned int written = 0;
    return DecodeInteger(written, 2) == 0 && written == crc;
  }

 private:
  // CRC-16 with the polynomial 0x1021, as BinHex 4.0 has it.
  static std::uint16_t UpdateCrc(std::uint16_t crc, const unsigned char* data, std::uint32_t length) {
    for (std::uint32_t i = 0; i < length; ++i) {
      crc = static_cast<std::uint16_t>(crc ^ (data[i] << 8));
      for (int bit = 0; bit < 8; ++bit) {
        crc = static_cast<std::uint16_t>((crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1);
      }
    }
    return crc;
  }
};

std::vector<Attachment> Extract(CodedText coded, const std::string& contentName) {
  std::string unwrapped;
  if (UnwrapNntp(coded.View(), unwrapped)) {
    coded = CodedText(unwrapped);
  }
  const std::optional<Article> article = ParseArticle(coded.View());
  if (!article) {
    return FromBareText(coded, contentName);
  }
  std::vector<Attachment> found;
  for (const ArticlePart& part : article->parts) {
    AppendAttachments(part, coded, article->parts.size() == 1, contentName, found);
  }
  return found;
}

// yEnc data without its "=y" lines: nothing in it can be checked.
Attachment DecodeRawYEnc(const CodedText& coded) {
  Attachment result;
  result.encoding = Encoding::YEnc;
  CEncodeDecode coder(75, 76);
  const int status = coded.Decode(coder, kFlagYEnc, result.data);
  if (status != 0) {
    result.problem = "the decoder gave " + std::to_string(status);
  }
  return result;
}

// A text of nothing but coded lines.
Attachment DecodeLines(const CodedText& coded, Encoding encoding) {
  switch (encoding) {
    case Encoding::Base64:
      return DecodeBase64(coded);
    case Encoding::QuotedPrintable:
      return DecodeQuotedPrintable(coded);
    case Encoding::UU:
    case Encoding::XX:
      return DecodeUueBody(ReadUueBody(coded.View(), 0, encoding), coded);
    case Encoding::YEnc:
      return DecodeRawYEnc(coded);
    case Encoding::BinHex:
    case Encoding::None:
      break;
  }
  Attachment result;
  result.encoding = encoding;
  result.problem = "no such block found";
  return result;
}

}  // namespace

const char* EncodingName(Encoding encoding) {
  switch (encoding) {
    case Encoding::Base64:
      return "base64";
    case Encoding::QuotedPrintable:
      return "quoted-printable";
    case Encoding::UU:
      return "uu";
    case Encoding::XX:
      return "xx";
    case Encoding::YEnc:
      return "yenc";
    case Encoding::BinHex:
      return "binhex";
    case Encoding::None:
      break;
  }
  return "none";
}

std::vector<Attachment> FindEncodedBlocks(std::string_view text) {
  return DecodeBlocks(BlockFinder(text).Find(), CodedText(text));
}

std::vector<Attachment> ExtractAttachments(std::string_view content, const std::string& contentName) {
  return Extract(CodedText(content), contentName);
}

std::vector<Attachment> TakeAttachments(std::string content, const std::string& contentName) {
  return Extract(CodedText(content), contentName);
}

std::vector<Attachment> TakeEncoded(std::string content, Encoding encoding) {
  const CodedText coded(content);
  std::vector<Block> blocks = BlockFinder(content).Find();
  const auto isOther = [&](const Block& block) { return block.encoding != encoding; };
  blocks.erase(std::remove_if(blocks.begin(), blocks.end(), isOther), blocks.end());
  return blocks.empty() ? std::vector<Attachment>{DecodeLines(coded, encoding)} : DecodeBlocks(blocks, coded);
}

Attachment DecodeBase64Text(std::string_view text) { return DecodeBase64(text); }

Attachment DecodeQuotedPrintableText(std::string_view text) { return DecodeQuotedPrintable(text); }

Attachment DecodeUueLines(std::string_view text, Encoding encoding) {
  return DecodeUueBody(ReadUueBody(text, 0, encoding), text);
}

Attachment DecodeYEncBlock(std::string_view block) { return DecodeYEnc(block); }

Attachment DecodeBinHexText(std::string_view text) {
  Attachment result;
  result.encoding = Encoding::BinHex;
  if (!FitsCoder(text, result)) {
    return result;
  }
  BinHexReader reader;
  CoderOutput output;
  const int status =
      CEncodeDecode::DecodeBinHex(text.data(), CoderLength(text), &output.data, output.length, 0, &reader);
  result.name = reader.GetFilename();
  if (status != 0) {
    Report(result, StatusText(status));
    return result;
  }
  result.data.assign(output.data == nullptr ? "" : output.data, output.length);
  if (!reader.DataCrcFits(text)) {
    Report(result, "CRC-16 mismatch");
  }
  return result;
}

bool IsBareBase64(std::string_view text) {
  constexpr std::size_t kMinLine = 40;
  text = Trim(text);
  std::size_t width = 0;
  std::size_t lineCount = 0;
  bool last = false;
  bool onlyHex = true;
  LineReader lines(text);
  while (lines.Next()) {
    const std::string_view line = TrimRight(lines.Line());
    const std::string_view digits = line.substr(0, line.find('='));
    if (last || !IsBase64Line(line, digits)) {
      return false;
    }
    width = lineCount++ == 0 ? line.size() : width;
    if (line.size() > width) {
      return false;
    }
    last = line.size() < width || digits.size() < line.size();
    onlyHex = onlyHex && std::all_of(digits.begin(), digits.end(), CEncodeDecode::IsHexChar);
  }
  // One line alone without padding may be any word, and lines of nothing but hex digits are a list of digests.
  return width >= kMinLine && (lineCount > 1 || last) && !onlyHex;
}

std::string NormalCrc(const std::string& written) {
  const std::size_t zeros = written.size() < 8 ? 8 - written.size() : 0;
  return QsString::ToUpper(std::string(zeros, '0') + written.substr(0, 16));
}

std::string Crc32Hex(std::string_view data) {
  const std::uint32_t crc = QsCalcCRC32(data.data(), CoderLength(data));
  return strprintf("%08X", static_cast<unsigned int>(crc));
}

}  // namespace qs
