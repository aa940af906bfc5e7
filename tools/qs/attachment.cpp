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
#include "text.h"

namespace qs {
namespace {

constexpr int kFlagXX = 0x8;
constexpr int kFlagUU = 0x4;
constexpr int kFlagYEncFindBlock = 0x2000;
constexpr int kFlagBinHexHeaderOnly = 0x20000;
constexpr std::string_view kBinHexMarker = "(This file must be converted with BinHex";

// A coder's output buffer, released as the coder asks for.
struct CoderBuffer {
  CoderBuffer() = default;
  CoderBuffer(const CoderBuffer&) = delete;
  CoderBuffer& operator=(const CoderBuffer&) = delete;
  ~CoderBuffer() { CEncodeDecode::FreeBuffer(data, 0); }

  std::string Text() const { return data == nullptr ? std::string() : std::string(data, length); }

  char* data = nullptr;
  unsigned int length = 0;
};

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

bool IsBase64Char(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

bool IsSpace(char c) { return IsBlank(c) || c == '\r' || c == '\n'; }

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

std::string_view LastLine(std::string_view block) {
  std::string_view last;
  for (LineReader lines(block); lines.Next();) {
    if (StartsWith(lines.Line(), "=yend ")) {
      last = lines.Line();
    }
  }
  return last;
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

// The trailer of a part carries its CRC as "pcrc32"; the plain "crc32" is the whole file's.
void CheckYEncCrc(Attachment& result, std::string_view trailer, std::string& fileCrc) {
  const std::string computed = Crc32Hex(result.data);
  const std::string partCrc = YEncValue(trailer, "pcrc32");
  fileCrc = YEncValue(trailer, "crc32");
  const std::string& expected = result.part ? partCrc : (fileCrc.empty() ? partCrc : fileCrc);
  if (!expected.empty() && NormalCrc(expected) != computed) {
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

struct UueBody {
  std::string_view lines;  // without terminator and "end"
  std::size_t end = 0;     // offset behind the block
  bool terminated = false;
  bool closed = false;
};

// The lines up to "end", or up to where another block begins, or all there are.
UueBody ReadUueBody(std::string_view text, std::size_t start) {
  UueBody body;
  LineReader reader(text);
  reader.Seek(start);
  std::size_t dataEnd = start;
  body.end = text.size();
  BeginLine other;
  while (reader.Next()) {
    const std::string_view line = reader.Line();
    if (TrimRight(line) == "end") {
      body.closed = true;
      body.end = reader.End();
      break;
    }
    if (StartsWith(line, "=ybegin ") ||
        (ParseBeginLine(line, other) && UueKind(text.substr(reader.End())) != Encoding::None)) {
      body.end = reader.Begin();
      break;
    }
    body.terminated = IsUueTerminator(line);
    if (!body.terminated) {
      dataEnd = reader.End();
    }
  }
  body.lines = text.substr(start, dataEnd - start);
  return body;
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

// What the first character of a line announces; -1 for a character that cannot stand there.
int AnnouncedCount(char c, Encoding encoding) {
  static constexpr std::string_view kXXDigits = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  if (encoding == Encoding::UU) {
    return c >= ' ' && c <= '`' ? (c - ' ') & 63 : -1;
  }
  const std::size_t digit = kXXDigits.find(c);
  return digit == std::string_view::npos ? -1 : static_cast<int>(digit);
}

// The decoder takes what a line lacks for zeros when that is little. Here every announced byte must be there.
bool HasShortLine(std::string_view text, Encoding encoding) {
  LineReader lines(text);
  while (lines.Next()) {
    if (lines.Line().empty()) {
      continue;
    }
    const int count = AnnouncedCount(lines.Line().front(), encoding);
    const std::size_t needed = count < 0 ? 0 : (static_cast<std::size_t>(count) * 8 + 5) / 6;
    if (count < 0 || lines.Line().size() - 1 < needed) {
      return true;
    }
  }
  return false;
}

bool HasForeignUuChar(std::string_view lines) {
  return std::any_of(lines.begin(), lines.end(),
                     [](char c) { return c != '\r' && c != '\n' && (c < 0x20 || c > 0x60); });
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

// ---- finding blocks in a text

class BlockFinder {
 public:
  explicit BlockFinder(std::string_view text) : _text(text), _reader(text) {}

  std::vector<Attachment> Find() {
    BeginLine begin;
    while (_reader.Next()) {
      const std::string_view line = _reader.Line();
      if (StartsWith(line, "=ybegin ")) {
        YEnc();
      } else if (StartsWith(line, kBinHexMarker)) {
        BinHex();
      } else if (ParseBeginLine(line, begin)) {
        begin.base64 ? Base64(begin.name) : Uue(begin.name);
      }
    }
    return std::move(_found);
  }

 private:
  // The block ends behind its "=yend" line, or where the next block begins.
  void YEnc() {
    const std::size_t start = _reader.Begin();
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
    _found.push_back(DecodeYEncBlock(_text.substr(start, end - start)));
    _reader.Seek(end);
  }

  void BinHex() {
    const std::size_t start = _reader.Begin();
    const std::size_t opening = _text.find(':', start);
    const std::size_t closing = opening == std::string_view::npos ? opening : _text.find(':', opening + 1);
    const std::size_t end = closing == std::string_view::npos ? _text.size() : closing + 1;
    _found.push_back(DecodeBinHexText(_text.substr(start, end - start)));
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
    Attachment attachment = DecodeBase64Text(_text.substr(start, end - start));
    attachment.name = name;
    if (!closed) {
      Report(attachment, "the end is missing");
    }
    _found.push_back(std::move(attachment));
    _reader.Seek(closed ? lines.End() : _text.size());
  }

  // A line of prose may begin with "begin 100 ..." too: what follows must look like data, or be the empty file's.
  void Uue(const std::string& name) {
    if (!LooksLikeUue(_text.substr(_reader.End()))) {
      return;
    }
    const UueBody body = ReadUueBody(_text, _reader.End());
    Encoding kind = UueKind(body.lines);
    if (kind == Encoding::None && body.lines.empty() && body.terminated && body.closed) {
      kind = Encoding::UU;
    }
    if (kind == Encoding::None) {
      return;
    }
    Attachment attachment = DecodeUueLines(body.lines, kind);
    attachment.name = name;
    if (!body.closed || !body.terminated) {
      Report(attachment, "the end is missing");
    }
    _found.push_back(std::move(attachment));
    _reader.Seek(body.end);
  }

  std::string_view _text;
  LineReader _reader;
  std::vector<Attachment> _found;
};

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

Attachment DecodePart(const ArticlePart& part) {
  Attachment result;
  switch (part.transfer) {
    case Transfer::Base64:
      result = DecodeBase64Text(part.body);
      break;
    case Transfer::QuotedPrintable:
      result = DecodeQuotedPrintableText(part.body);
      break;
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

void AppendAttachments(const ArticlePart& part, bool only, const std::string& contentName,
                       std::vector<Attachment>& found) {
  Attachment decoded = DecodePart(part);
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
std::optional<Attachment> DecodeByExtension(std::string_view text, const std::string& extension) {
  if (extension == "b64" || extension == "base64") {
    return DecodeBase64Text(text);
  }
  if (extension == "qp") {
    return DecodeQuotedPrintableText(text);
  }
  if (extension == "uu" || extension == "uue" || extension == "xx" || extension == "xxe") {
    if (const Encoding kind = UueKind(text); kind != Encoding::None) {
      return DecodeUueLines(text, kind);
    }
  }
  return std::nullopt;
}

std::vector<Attachment> FromBareText(std::string_view text, const std::string& contentName) {
  std::vector<Attachment> found = FindEncodedBlocks(text);
  if (!found.empty()) {
    return found;
  }
  if (std::optional<Attachment> hinted = DecodeByExtension(text, CAL_GetFileExtensionLC(contentName))) {
    // photo.png.b64 holds photo.png
    hinted->name = ExtractFileBaseName(contentName);
    if (ExtractFileExt(hinted->name).empty()) {
      hinted->name.clear();
    }
    found.push_back(std::move(*hinted));
  } else if (IsBareBase64(text)) {
    found.push_back(DecodeBase64Text(text));
  }
  if (!found.empty()) {
    NameAfterContent(found.front(), contentName, "");
  }
  return found;
}

// Rewrites the lines for the decoder: blanks at their ends go, and a soft break is written "=" CR LF, because after
// "=" LF the decoder would take the line feed of an empty line behind it for the break's second half.
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

bool IsBase64Line(std::string_view line, std::string_view digits) {
  const std::size_t pads = line.size() - digits.size();
  return !line.empty() && line.size() % 4 == 0 && pads <= 2 &&
         line.find_first_not_of('=', digits.size()) == std::string_view::npos &&
         std::all_of(digits.begin(), digits.end(), IsBase64Char);
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

std::vector<Attachment> FindEncodedBlocks(std::string_view text) { return BlockFinder(text).Find(); }

std::vector<Attachment> ExtractAttachments(std::string_view content, const std::string& contentName) {
  std::string unwrapped;
  if (UnwrapNntp(content, unwrapped)) {
    content = unwrapped;
  }
  const std::optional<Article> article = ParseArticle(content);
  if (!article) {
    return FromBareText(content, contentName);
  }
  std::vector<Attachment> found;
  for (const ArticlePart& part : article->parts) {
    AppendAttachments(part, article->parts.size() == 1, contentName, found);
  }
  return found;
}

Attachment DecodeBase64Text(std::string_view text) {
  Attachment result;
  result.encoding = Encoding::Base64;
  if (!FitsCoder(text, result)) {
    return result;
  }
  CEncodeDecode coder(75, 76);
  CoderBuffer buffer;
  const int status = coder.DecodeBase64(text.data(), CoderLength(text), &buffer.data, buffer.length, 0);
  if (status != 0) {
    Report(result, StatusText(status));
    return result;
  }
  result.data = buffer.Text();
  const std::size_t padding = std::min(text.find('='), text.size());
  const std::string_view coded = text.substr(0, padding);
  const auto digits = std::count_if(coded.begin(), coded.end(), IsBase64Char);
  const auto foreign =
      std::count_if(coded.begin(), coded.end(), [](char c) { return !IsBase64Char(c) && !IsSpace(c); });
  const std::string_view tail = Trim(text.substr(padding));
  const auto pads = std::count(tail.begin(), tail.end(), '=');
  if (foreign > 0) {
    Report(result, Count(static_cast<std::size_t>(foreign), "character") + " outside the alphabet");
  } else if (tail.find_first_not_of("= \t\r\n") != std::string_view::npos) {
    Report(result, "more text behind the padding");
  } else if (digits % 4 == 1 || (digits + pads) % 4 != 0) {
    Report(result, "the last group is incomplete");
  }
  return result;
}

Attachment DecodeQuotedPrintableText(std::string_view text) {
  Attachment result;
  result.encoding = Encoding::QuotedPrintable;
  if (!FitsCoder(text, result)) {
    return result;
  }
  std::string coded = NormalizeQuotedPrintable(text);
  // An escape is decoded only when something follows it.
  const bool helped = !EndsWith(coded, "\n");
  if (helped) {
    coded += '\n';
  }
  CEncodeDecode coder(75, 76);
  CoderBuffer buffer;
  const int status = coder.DecodeQP(coded.data(), CoderLength(coded), &buffer.data, buffer.length, 0);
  if (status != 0) {
    Report(result, StatusText(status));
    return result;
  }
  result.data = buffer.Text();
  if (helped) {
    result.data.pop_back();
  }
  if (coder.GetNumberIllegalChars() > 0) {
    Report(result, Count(coder.GetNumberIllegalChars(), "escape") + " without hex digits");
  }
  return result;
}

Attachment DecodeUueLines(std::string_view text, Encoding encoding) {
  Attachment result;
  result.encoding = encoding;
  const std::string_view lines = ReadUueBody(text, 0).lines;
  if (!FitsCoder(lines, result)) {
    return result;
  }
  CEncodeDecode coder(75, 76);
  CoderBuffer buffer;
  const int flags = encoding == Encoding::XX ? kFlagXX : kFlagUU;
  const int status = coder.DecodeUUE(lines.data(), CoderLength(lines), &buffer.data, buffer.length, flags);
  if (status != 0) {
    Report(result, StatusText(status));
    return result;
  }
  result.data = buffer.Text();
  if (HasShortLine(lines, encoding)) {
    Report(result, StatusText(-6));
  } else if (encoding == Encoding::XX ? coder.GetNumberIllegalChars() > 0 : HasForeignUuChar(lines)) {
    Report(result, "characters outside the alphabet");
  }
  return result;
}

Attachment DecodeYEncBlock(std::string_view block) {
  Attachment result;
  result.encoding = Encoding::YEnc;
  if (!FitsCoder(block, result)) {
    return result;
  }
  CYEncData header;
  CoderBuffer buffer;
  const int status = CEncodeDecode::DecodeYEnc(block.data(), CoderLength(block), &buffer.data, buffer.length,
                                               kFlagYEncFindBlock, &header);
  if (status != 0) {
    const std::string_view firstLine = block.substr(0, block.find('\n'));
    const std::size_t name = firstLine.find(" name=");
    result.name = name == std::string_view::npos ? std::string() : std::string(Trim(firstLine.substr(name + 6)));
    Report(result, status == -7 ? "the end is missing" : StatusText(status));
    return result;
  }
  result.name = header.name;
  result.data = buffer.Text();
  if (header.part >= 0) {
    result.part.emplace();
  }
  std::string fileCrc;
  CheckYEncSizes(result, header);
  CheckYEncCrc(result, LastLine(block), fileCrc);
  if (result.part) {
    result.part = PartOf(header, fileCrc);
  }
  return result;
}

Attachment DecodeBinHexText(std::string_view text) {
  Attachment result;
  result.encoding = Encoding::BinHex;
  if (!FitsCoder(text, result)) {
    return result;
  }
  BinHexReader reader;
  CoderBuffer buffer;
  const int status =
      CEncodeDecode::DecodeBinHex(text.data(), CoderLength(text), &buffer.data, buffer.length, 0, &reader);
  result.name = reader.GetFilename();
  if (status != 0) {
    Report(result, StatusText(status));
    return result;
  }
  result.data = buffer.Text();
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
