#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/codec/yenckernel.h>
#include <QSbase/simd/wordscan.h>
#include <QSbase/text/qsstring.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string_view>

namespace qsbase::detail {
namespace {

constexpr unsigned char kShift = 42;
constexpr unsigned char kEscapeShift = 64;
constexpr unsigned char kEscape = '=';

constexpr bool NeedsEscape(unsigned char shifted, bool plainTabDot) {
  return shifted == 0 || shifted == '\n' || shifted == '\r' || shifted == kEscape ||
         (!plainTabDot && (shifted == '\t' || shifted == '.'));
}

/// What a byte becomes: its one or two characters, the first one lowest, and above them their number.
using EncodeTable = std::array<std::uint32_t, 256>;

constexpr EncodeTable MakeEncodeTable(bool plainTabDot) {
  EncodeTable table{};
  for (unsigned int i = 0; i < 256; ++i) {
    const auto shifted = static_cast<unsigned char>(i + kShift);
    const auto escaped = static_cast<unsigned char>(shifted + kEscapeShift);
    const std::uint32_t pair = static_cast<std::uint32_t>(escaped) << 8 | kEscape;
    table[i] = NeedsEscape(shifted, plainTabDot) ? 2u << 16 | pair : 1u << 16 | shifted;
  }
  return table;
}

constexpr std::array<EncodeTable, 2> kEncodeTables = {MakeEncodeTable(false), MakeEncodeTable(true)};

/// The lowest mark is at the first byte that is no plain character.
inline std::uint64_t MarkSpecials(std::uint64_t word) {
  return (MarkByte(word, '\0') | MarkByte(word, '\n') | MarkByte(word, '\r') | MarkByte(word, kEscape)) & kWordHighBits;
}

/// Subtracts the shift from each of eight bytes.
inline std::uint64_t Unshift(std::uint64_t word) {
  constexpr std::uint64_t kAddend = kWordOnes * (256 - kShift);
  return ((word & ~kWordHighBits) + (kAddend & ~kWordHighBits)) ^ ((word ^ kAddend) & kWordHighBits);
}

/// How far a decoder has come.
struct Place {
  std::size_t read = 0;
  std::size_t written = 0;
  bool isOver = false;
};

/// Takes a NUL, a CR, a LF or an escape.
inline void TakeSpecial(Place& place, const unsigned char* input, std::size_t length, unsigned char* output) {
  const unsigned char c = input[place.read];
  if (c != kEscape) {
    place.isOver = c == '\0';
    place.read += c != '\0';
    return;
  }
  if (place.read + 1 == length) {
    ++place.read;
    return;
  }
  const unsigned char escaped = input[place.read + 1];
  if (escaped == '\0') {
    place.isOver = true;
    return;
  }
  output[place.written++] = static_cast<unsigned char>(escaped - kEscapeShift - kShift);
  place.read += 2;
}

/// Stores the first `count` bytes of a word and nothing else.
inline void StoreSome(unsigned char* output, std::uint64_t word, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = static_cast<unsigned char>(word >> (8 * i));
  }
}

constexpr std::size_t kStretch = 128;

/// 1 for a character to escape, otherwise 0. In single bytes and without a branch: compilers make vector code of loops
/// over this form, and of few others.
inline unsigned char EscapeMark(unsigned char c, unsigned char tab, unsigned char dot) {
  unsigned char mark = 0;
  for (const unsigned char special : {static_cast<unsigned char>(0), static_cast<unsigned char>('\n'),
                                      static_cast<unsigned char>('\r'), kEscape, tab, dot}) {
    mark |= static_cast<unsigned char>(c == special ? 1 : 0);
  }
  return mark;
}

inline unsigned char CountStretch(const unsigned char* input, unsigned char tab, unsigned char dot) {
  unsigned char count = 0;
  for (std::size_t i = 0; i < kStretch; ++i) {
    count = static_cast<unsigned char>(count + EscapeMark(static_cast<unsigned char>(input[i] + kShift), tab, dot));
  }
  return count;
}

/// A stretch of input, shifted, with the marks of what is to be escaped. Words may be read up to its end.
struct Stretch {
  explicit Stretch(bool plainTabDot) : tab(plainTabDot ? '\0' : '\t'), dot(plainTabDot ? '\0' : '.') {}

  void Load(const unsigned char* input, std::size_t count) {
    unsigned char padded[kStretch];
    if (count < kStretch) {
      std::memset(padded, 0, sizeof(padded));
      std::memcpy(padded, input, count);
      input = padded;
    }
    for (std::size_t i = 0; i < kStretch; ++i) {
      const auto c = static_cast<unsigned char>(input[i] + kShift);
      shifted[i] = c;
      marks[i] = EscapeMark(c, tab, dot);
    }
  }

  unsigned char tab;
  unsigned char dot;
  unsigned char shifted[kStretch + 8] = {};
  unsigned char marks[kStretch + 8] = {};
};

inline std::size_t PutBreak(unsigned char* output, std::size_t written) {
  output[written] = '\r';
  output[written + 1] = '\n';
  return written + 2;
}

/// Writes a stretch behind the `written` characters. `lineEnd` says where the next break is due.
inline std::size_t WriteStretch(const Stretch& stretch, std::size_t count, unsigned char* output, std::size_t written,
                                std::size_t& lineEnd, std::size_t lineLength) {
  for (std::size_t i = 0; i < count;) {
    const std::uint64_t marks = LoadWord(stretch.marks + i);
    StoreWord(output + written, LoadWord(stretch.shifted + i));
    const std::size_t room = std::min(count - i, lineEnd - written);
    const std::size_t plain = FirstMark(marks);
    if (marks == 0 && room > 8) {
      i += 8;
      written += 8;
      continue;
    }
    if (plain >= room) {
      i += room;
      written += room;
    } else {
      output[written + plain] = kEscape;
      output[written + plain + 1] = static_cast<unsigned char>(stretch.shifted[i + plain] + kEscapeShift);
      i += plain + 1;
      written += plain + 2;
    }
    if (written >= lineEnd) {
      written = PutBreak(output, written);
      lineEnd = written + lineLength;
    }
  }
  return written;
}

}  // namespace

std::uint64_t YEncCountEscapes(const unsigned char* input, std::size_t length, bool plainTabDot) {
  const unsigned char tab = plainTabDot ? '\0' : '\t';
  const unsigned char dot = plainTabDot ? '\0' : '.';
  std::uint64_t total = 0;
  std::size_t start = 0;
  for (; length - start >= kStretch; start += kStretch) {
    total += CountStretch(input + start, tab, dot);
  }
  for (; start < length; ++start) {
    total += NeedsEscape(static_cast<unsigned char>(input[start] + kShift), plainTabDot) ? 1 : 0;
  }
  return total;
}

std::uint64_t YEncMeasure(const unsigned char* input, std::size_t length, std::uint32_t lineLength, bool plainTabDot) {
  const EncodeTable& table = kEncodeTables[plainTabDot];
  std::uint64_t size = 0;
  for (std::size_t i = 0; i < length;) {
    std::uint64_t column = 0;
    for (; i < length && column < lineLength; ++i) {
      column += table[input[i]] >> 16;
    }
    size += column + 2;
  }
  return size;
}

std::size_t YEncEncode(const unsigned char* input, std::size_t length, unsigned char* output, std::uint32_t lineLength,
                       bool plainTabDot) {
  // A line that nothing can fill is as good as a longer one, and its end is no number too large.
  const auto columns =
      static_cast<std::size_t>(std::min<std::uint64_t>(lineLength, 2 * static_cast<std::uint64_t>(length) + 1));
  Stretch stretch(plainTabDot);
  std::size_t written = 0;
  std::size_t lineEnd = columns;
  for (std::size_t start = 0; start < length; start += kStretch) {
    const std::size_t count = std::min(kStretch, length - start);
    stretch.Load(input + start, count);
    written = WriteStretch(stretch, count, output, written, lineEnd, columns);
  }
  return written + columns == lineEnd ? written : PutBreak(output, written);
}

YEncDecoded YEncDecode(const unsigned char* input, std::size_t length, unsigned char* output) {
  const bool isApart = input != output;
  Place place;
  while (!place.isOver && length - place.read >= 8) {
    const std::uint64_t word = LoadWord(input + place.read);
    const std::uint64_t marks = MarkSpecials(word);
    if (marks == 0) {
      StoreWord(output + place.written, Unshift(word));
      place.read += 8;
      place.written += 8;
      continue;
    }
    const std::size_t plain = FirstMark(marks);
    if (isApart || place.read - place.written >= 8) {
      StoreWord(output + place.written, Unshift(word));
    } else {
      StoreSome(output + place.written, Unshift(word), plain);  // in place: the rest is not read yet
    }
    place.read += plain;
    place.written += plain;
    TakeSpecial(place, input, length, output);
  }
  while (!place.isOver && place.read < length) {
    const unsigned char c = input[place.read];
    if (NeedsEscape(c, true)) {
      TakeSpecial(place, input, length, output);
      continue;
    }
    output[place.written++] = static_cast<unsigned char>(c - kShift);
    ++place.read;
  }
  return {place.read, place.written};
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

constexpr std::uint32_t kDefaultLine = 128;
constexpr unsigned int kWhiteSpace = 0x20;
constexpr std::string_view kBeginMark = "=ybegin ";
constexpr std::string_view kEndMark = "=yend ";
constexpr std::string_view kLineMark = "=y";
constexpr std::string_view kNameKey = "name=";
constexpr std::string_view kLineBreaks = "\r\n";

const unsigned char* AsBytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

unsigned char* AsBytes(char* text) { return reinterpret_cast<unsigned char*>(text); }

bool IsPlainTabDot(int flags) { return (flags & kCoderYEncPlainTabDot) != 0; }

std::string HexOfCrc(std::uint32_t crc, const char* digits) {
  std::string text(8, '0');
  for (std::size_t i = 8; i-- > 0; crc >>= 4) {
    text[i] = digits[crc & 15];
  }
  return text;
}

std::string HeaderText(const CYEncData& header, unsigned int length) {
  std::string text = "=ybegin";
  if (header.part >= 0) {
    text += " part=" + std::to_string(header.part);
  }
  if (header.total >= 0) {
    text += " total=" + std::to_string(header.total);
  }
  text += " line=" + std::to_string(header.lineLength);
  text += " size=" + std::to_string(header.size != 0 ? header.size : length);
  if (!header.name.empty()) {
    text += " name=" + header.name;
  }
  text += "\r\n";
  if (header.part >= 0) {
    text += "=ypart begin=" + std::to_string(header.begin) + " end=" + std::to_string(header.end) + "\r\n";
  }
  return text;
}

std::string TrailerText(const CYEncData& header, unsigned int length, std::uint32_t crc) {
  std::string text = "=yend size=" + std::to_string(length);
  text += header.part >= 0 ? " part=" + std::to_string(header.part) + " pcrc32=" : " crc32=";
  return text + HexOfCrc(crc, "0123456789abcdef") + "\r\n";
}

/// Runs what makes texts of a header, which may be long. A lack of memory becomes a status.
template <class Operation>
int MakeTexts(Operation operation) {
  try {
    operation();
    return kCoderOk;
  } catch (const std::exception&) {
    return kCoderNoMemory;
  }
}

/// What is written around the lines; both are empty without 0x1000.
struct Frame {
  /// Returns 0 or -3.
  int Make(const CYEncData& header, const char* input, unsigned int length, int flags) {
    if ((flags & kCoderYEncWriteHeader) == 0) {
      return kCoderOk;
    }
    return MakeTexts([&] {
      begin = HeaderText(header, length);
      end = TrailerText(header, length, QsCalcCRC32(input, length));
    });
  }

  std::string begin;
  std::string end;
};

/// The first place, from `start` on, where a line begins with `mark`.
std::size_t FindLine(std::string_view text, std::string_view mark, std::size_t start) {
  std::size_t at = text.find(mark, start);
  while (at != text.npos && at != 0 && kLineBreaks.find(text[at - 1]) == kLineBreaks.npos) {
    at = text.find(mark, at + 1);
  }
  return at;
}

/// The start of the next line; line breaks in a row count as one.
std::size_t NextLine(std::string_view text, std::size_t at) {
  const std::size_t lineEnd = text.find_first_of(kLineBreaks, at);
  return std::min(text.find_first_not_of(kLineBreaks, std::min(lineEnd, text.size())), text.size());
}

/// The parts of an input, as offsets.
struct Block {
  std::size_t begin = 0;
  std::size_t dataStart = 0;
  std::size_t trailer = 0;
  std::size_t end = 0;
};

bool FindBlock(std::string_view text, Block& block) {
  block.begin = FindLine(text, kBeginMark, 0);
  if (block.begin == text.npos) {
    return false;
  }
  block.dataStart = NextLine(text, block.begin);
  block.trailer = FindLine(text, kEndMark, block.dataStart);
  if (block.trailer == text.npos) {
    return false;
  }
  while (block.dataStart < block.trailer && text.substr(block.dataStart, kLineMark.size()) == kLineMark) {
    block.dataStart = NextLine(text, block.dataStart);
  }
  block.end = NextLine(text, block.trailer);
  return true;
}

/// The text behind a key, or false.
bool FindValue(std::string_view text, std::string_view key, std::string_view& value) {
  const std::size_t at = text.find(key);
  if (at == text.npos) {
    return false;
  }
  value = text.substr(at + key.size());
  return true;
}

int NumberAt(std::string_view value) {
  constexpr std::size_t kLongestNumber = 64;
  return AsciiToInt(std::string(value.substr(0, kLongestNumber)).c_str());
}

/// The header's text and, within it, the name's: numbers are looked for around the name first, so that a name which
/// looks like a field does not pass for one.
struct HeaderFields {
  explicit HeaderFields(std::string_view text) : all(text), before(text) {
    const std::size_t nameKey = text.find(kNameKey);
    if (nameKey != text.npos) {
      before = text.substr(0, nameKey);
      name = text.substr(nameKey + kNameKey.size());
      const std::size_t nameEnd = std::min(name.find(kLineMark), name.size());
      after = name.substr(nameEnd);
      name = name.substr(0, nameEnd);
    }
  }

  int Number(std::string_view key, int absent) const {
    std::string_view value;
    const bool isFound = FindValue(before, key, value) || FindValue(after, key, value) || FindValue(all, key, value);
    return isFound ? NumberAt(value) : absent;
  }

  std::string_view all;
  std::string_view before;
  std::string_view name;
  std::string_view after;
};

std::string CleanName(std::string_view text) {
  std::string name = QsString::Trim(std::string(text), kWhiteSpace);
  QsString::TrimChar_Inplace(name, '"');
  return name;
}

void ReadHeader(std::string_view text, CYEncData& header) {
  const HeaderFields fields(text);
  header.name = CleanName(fields.name);
  header.size = static_cast<std::uint32_t>(fields.Number("size=", 0));
  header.lineLength = static_cast<std::uint32_t>(fields.Number("line=", 0));
  header.part = fields.Number("part=", -1);
  header.total = fields.Number("total=", -1);
  header.begin = static_cast<std::uint32_t>(fields.Number(" begin=", 0));
  header.end = static_cast<std::uint32_t>(fields.Number(" end=", 0));
}

void ReadTrailer(std::string_view line, CYEncData& header) {
  std::string_view value;
  if (FindValue(line, "crc32=", value)) {
    header.crcText = value.substr(0, value.find(' '));
  }
  if (FindValue(line, "size=", value)) {
    header.endSize = static_cast<std::uint32_t>(NumberAt(value));
  }
}

CYEncData ReadBlock(std::string_view text, const Block& block) {
  CYEncData header;
  ReadHeader(text.substr(block.begin, block.dataStart - block.begin), header);
  const std::string_view trailer = text.substr(block.trailer, block.end - block.trailer);
  ReadTrailer(trailer.substr(0, trailer.find_first_of(kLineBreaks)), header);
  header.blockOffset = static_cast<std::uint32_t>(block.begin);
  header.blockEndOffset = static_cast<std::uint32_t>(block.end);
  return header;
}

/// Narrows an input to the data of its block under 0x2000.
int SelectData(const char*& input, unsigned int& length, int flags, CYEncData* header) {
  if ((flags & kCoderYEncFindBlock) == 0) {
    return kCoderOk;
  }
  const char* blockBegin = nullptr;
  const char* blockEnd = nullptr;
  return CEncodeDecode::FindYEncDataBlock(input, length, blockBegin, blockEnd, input, length, header);
}

void StoreResult(CYEncData* header, const YEncDecoded& decoded, const char* output) {
  if (header == nullptr) {
    return;
  }
  header->consumedLength = static_cast<std::uint32_t>(decoded.consumed);
  header->computedCrcText.clear();
  if (header->HasCRC()) {
    const std::uint32_t crc = QsCalcCRC32(output, static_cast<unsigned int>(decoded.written));
    header->computedCrcText = HexOfCrc(crc, "0123456789ABCDEF");
  }
}

/// Of an empty input the record tells as of any other: what an earlier decode left there would pass for its result.
void StoreEmptyResult(CYEncData* header, int status) {
  if (status == kCoderOk) {
    StoreResult(header, YEncDecoded{0, 0}, nullptr);
  }
}

char ToUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

CYEncData::CYEncData()
    : consumedLength(0),
      lineLength(kDefaultLine),
      endSize(0),
      size(0),
      part(-1),
      begin(0),
      end(0),
      total(-1),
      blockOffset(0),
      blockEndOffset(0) {}

CYEncData::CYEncData(const CYEncData& other) = default;
CYEncData& CYEncData::operator=(const CYEncData& other) = default;
CYEncData::~CYEncData() = default;

bool CYEncData::HasCRC() const { return !crcText.empty(); }

bool CYEncData::CompareCRC() const {
  return std::equal(crcText.begin(), crcText.end(), computedCrcText.begin(), computedCrcText.end(),
                    [](char a, char b) { return ToUpper(a) == ToUpper(b); });
}

int CEncodeDecode::CalcEncodedMemoryYEnc(const char* input, unsigned int length, unsigned int& size,
                                         const CYEncData& header, int flags) {
  int status = kCoderOk;
  if (IsInlineCallOver(input, length, size, status)) {
    return status;
  }
  if (header.lineLength == 0) {
    return kCoderBadLine;
  }
  Frame frame;
  if (frame.Make(header, input, length, flags) != kCoderOk) {
    return kCoderNoMemory;
  }
  const std::uint64_t lines = YEncMeasure(AsBytes(input), length, header.lineLength, IsPlainTabDot(flags));
  return StoreCoderSize(frame.begin.size() + lines + frame.end.size(), size);
}

int CEncodeDecode::EncodeYEnc(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                              const CYEncData& header, int flags) {
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  if (header.lineLength == 0) {
    return kCoderBadLine;
  }
  Frame frame;
  if (frame.Make(header, input, length, flags) != kCoderOk) {
    return kCoderNoMemory;
  }
  const bool plainTabDot = IsPlainTabDot(flags);
  const std::uint64_t characters = length + YEncCountEscapes(AsBytes(input), length, plainTabDot);
  const std::uint64_t breaks = 2 * (characters / header.lineLength + 1);
  CoderBuffer buffer(flags);
  if (buffer.Allocate(frame.begin.size() + characters + breaks + frame.end.size()) != kCoderOk) {
    return kCoderNoMemory;
  }
  std::size_t written = frame.begin.copy(buffer.Data(), frame.begin.size());
  written += YEncEncode(AsBytes(input), length, AsBytes(buffer.Data() + written), header.lineLength, plainTabDot);
  written += frame.end.copy(buffer.Data() + written, frame.end.size());
  return buffer.HandOver(written, output, outputLength);
}

int CEncodeDecode::EncodeYEnc(const std::string& input, std::string& output, const CYEncData& header, int flags) {
  return CodeString(input, output, flags, [&](const char* data, unsigned int size, char** out, unsigned int& outSize) {
    return EncodeYEnc(data, size, out, outSize, header, flags);
  });
}

int CEncodeDecode::DecodeYEnc(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                              int flags, CYEncData* header) {
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    StoreEmptyResult(header, status);
    return status;
  }
  status = SelectData(input, length, flags, header);
  if (status != kCoderOk) {
    return status;
  }
  CoderBuffer buffer(flags);
  if (buffer.Allocate(length) != kCoderOk) {
    return kCoderNoMemory;
  }
  const YEncDecoded decoded = YEncDecode(AsBytes(input), length, AsBytes(buffer.Data()));
  StoreResult(header, decoded, buffer.Data());
  return buffer.HandOver(decoded.written, output, outputLength);
}

int CEncodeDecode::DecodeYEnc(const std::string& input, std::string& output, int flags, CYEncData* header) {
  return CodeString(input, output, flags, [&](const char* data, unsigned int size, char** out, unsigned int& outSize) {
    return DecodeYEnc(data, size, out, outSize, flags, header);
  });
}

int CEncodeDecode::DecodeYEncInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags,
                                    CYEncData* header) {
  int status = kCoderOk;
  if (IsInlineCallOver(buffer, length, outputLength, status)) {
    StoreEmptyResult(header, status);
    return status;
  }
  const char* data = buffer;
  status = SelectData(data, length, flags, header);
  if (status != kCoderOk) {
    return status;
  }
  if (data != buffer) {
    std::memmove(buffer, data, length);
  }
  const YEncDecoded decoded = YEncDecode(AsBytes(buffer), length, AsBytes(buffer));
  StoreResult(header, decoded, buffer);
  outputLength = static_cast<unsigned int>(decoded.written);
  return kCoderOk;
}

int CEncodeDecode::FindYEncDataBlock(const char* input, unsigned int length, const char*& blockBegin,
                                     const char*& blockEnd, const char*& dataStart, unsigned int& dataLength,
                                     CYEncData* header) {
  const std::string_view text(input, input == nullptr ? 0 : length);
  blockBegin = blockEnd = dataStart = nullptr;
  dataLength = 0;
  if (input == nullptr && length != 0) {
    return kCoderNullPointer;
  }
  Block block;
  if (!FindBlock(text, block)) {
    return kCoderNoYEncBlock;
  }
  if (header != nullptr && MakeTexts([&] { *header = ReadBlock(text, block); }) != kCoderOk) {
    return kCoderNoMemory;
  }
  blockBegin = input + block.begin;
  blockEnd = input + block.end;
  dataStart = input + block.dataStart;
  dataLength = static_cast<unsigned int>(block.trailer - block.dataStart);
  return kCoderOk;
}
