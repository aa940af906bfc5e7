#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/yenckernel.h>
#include <QSbase/simd/search.h>
#include <QSbase/text/qsstring.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

using namespace qsbase::detail;

namespace {

constexpr std::uint32_t kDefaultLine = 128;
constexpr unsigned int kWhiteSpace = 0x20;
constexpr std::string_view kBeginMark = "=ybegin ";
constexpr std::string_view kEndMark = "=yend ";
constexpr std::string_view kLineMark = "=y";
constexpr std::string_view kNameKey = "name=";
constexpr std::string_view kLineBreaks = "\r\n";
constexpr const char* kLowerDigits = "0123456789abcdef";
constexpr const char* kUpperDigits = "0123456789ABCDEF";

/// As much is coded at once as the nearest caches keep until its CRC is computed.
constexpr std::size_t kPiece = 0x4000;

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
  return text + HexOfCrc(crc, kLowerDigits) + "\r\n";
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
  /// Makes them, with a CRC of 0. Returns 0 or -3.
  int Make(const CYEncData& header, unsigned int length, int flags) {
    if ((flags & kCoderYEncWriteHeader) == 0) {
      return kCoderOk;
    }
    return MakeTexts([&] {
      begin = HeaderText(header, length);
      end = TrailerText(header, length, 0);
    });
  }

  std::uint64_t Size() const { return begin.size() + end.size(); }

  /// Puts the CRC in.
  void SetCrc(std::uint32_t crc) {
    if (!end.empty()) {
      end.replace(end.size() - kLineBreaks.size() - 8, 8, HexOfCrc(crc, kLowerDigits));
    }
  }

  std::string begin;
  std::string end;
};

/// The CRC-32 of data that comes in pieces.
class RunningCrc {
 public:
  void Add(const unsigned char* data, std::size_t length) { _crc = crc32(_crc, data, static_cast<uInt>(length)); }
  std::uint32_t Value() const { return static_cast<std::uint32_t>(_crc); }

 private:
  uLong _crc = crc32(0, nullptr, 0);
};

/// The longest that so many characters get by their line breaks, wherever in a line they begin.
std::uint64_t WithBreaks(std::uint64_t characters, std::uint32_t lineLength) {
  return characters + 2 * (characters / lineLength + 2);
}

/// Encodes into a buffer of the likely size, piece by piece. What is left is counted only when it may not fit.
class Encoder {
 public:
  Encoder(const char* input, unsigned int length, const CYEncData& header, int flags)
      : _next(AsBytes(input)),
        _left(length),
        _columns(header.lineLength),
        _line(YEncFirstLine(header.lineLength, length, IsPlainTabDot(flags))),
        _isFramed((flags & kCoderYEncWriteHeader) != 0),
        _buffer(flags) {}

  /// Returns 0 or -3, as the coder does.
  int Run(Frame& frame, char** output, unsigned int& outputLength) {
    if (Allocate(frame.Size()) != kCoderOk) {
      return kCoderNoMemory;
    }
    Append(frame.begin);
    while (_left != 0) {
      if (MakeRoom(frame.end.size()) != kCoderOk) {
        return kCoderNoMemory;
      }
      EncodePiece();
    }
    if (_line.room != _line.length) {
      Append(kLineBreaks);
    }
    frame.SetCrc(_crc.Value());
    Append(frame.end);
    return _buffer.HandOver(_written, output, outputLength);
  }

 private:
  std::size_t PieceSize() const { return std::min<std::size_t>(_left, kPiece); }

  /// A likely size may be twice what is needed: where there is no memory for that, there may be for the counted one.
  int Allocate(std::uint64_t around) {
    return _buffer.Allocate(around + LikelySize()) == kCoderOk ? kCoderOk : _buffer.Allocate(around + CountLeft());
  }

  /// The room for what is left, from now on enough.
  std::uint64_t CountLeft() {
    _isCounted = true;
    return WithBreaks(_left + _kernels.countEscapes(_next, _left, _line.plainTabDot), _columns);
  }

  /// Of a single piece all bytes may be escaped; of more, what a sample tells, and a little. Closely, as a buffer that
  /// turns out much too long is cut.
  std::uint64_t LikelySize() const {
    constexpr std::uint64_t kMargin = 0x4000;
    const std::uint64_t onePiece = WithBreaks(2 * PieceSize(), _columns);
    return _left <= kPiece ? onePiece : WithBreaks(_left + LikelyEscapes() + kMargin, _columns) + onePiece;
  }

  /// The escapes of a sixteenth of each piece, times that.
  std::uint64_t LikelyEscapes() const {
    constexpr std::size_t kSample = kPiece / 16;
    std::uint64_t escapes = 0;
    for (std::size_t at = 0; _left - at >= kPiece; at += kPiece) {
      escapes += _kernels.countEscapes(_next + at, kSample, _line.plainTabDot);
    }
    return escapes * (kPiece / kSample);
  }

  int MakeRoom(std::size_t behind) {
    const std::uint64_t room = _buffer.Size() - _written - behind;
    if (_isCounted || room >= WithBreaks(2 * PieceSize(), _columns)) {
      return kCoderOk;
    }
    return _buffer.Grow(_written + CountLeft() + behind, _written);
  }

  void EncodePiece() {
    const std::size_t size = PieceSize();
    if (_isFramed) {
      _crc.Add(_next, size);
    }
    unsigned char* const out = AsBytes(_buffer.Data()) + _written;
    _written += static_cast<std::size_t>(_kernels.encode(_next, size, out, _line) - out);
    _next += size;
    _left -= size;
  }

  void Append(std::string_view text) { _written += text.copy(_buffer.Data() + _written, text.size()); }

  const YEncKernels& _kernels = YEncKernelsOf(CurrentSimdLevel());
  const unsigned char* _next;
  std::size_t _left;
  std::uint32_t _columns;
  YEncLine _line;
  bool _isFramed;
  bool _isCounted = false;
  RunningCrc _crc;
  CoderBuffer _buffer;
  std::size_t _written = 0;
};

bool StartsLine(std::string_view text, std::size_t at) {
  return at == 0 || kLineBreaks.find(text[at - 1]) != kLineBreaks.npos;
}

/// The first place, from `start` on, where a line begins with `mark`, which is a "=y" and more; or `npos`.
std::size_t FindLine(std::string_view text, std::string_view mark, std::size_t start) {
  const YEncKernels& kernels = YEncKernelsOf(CurrentSimdLevel());
  const char* const end = text.data() + text.size();
  const char* at = kernels.findKeyword(text.data() + start, end);
  for (; at != end; at = kernels.findKeyword(at + kLineMark.size(), end)) {
    const auto offset = static_cast<std::size_t>(at - text.data());
    if (text.substr(offset, mark.size()) == mark && StartsLine(text, offset)) {
      return offset;
    }
  }
  return text.npos;
}

/// The start of the next line; line breaks in a row count as one.
std::size_t NextLine(std::string_view text, std::size_t at) {
  const char* const lineEnd = FindLineEnd(text.data() + at, text.data() + text.size());
  return std::min(text.find_first_not_of(kLineBreaks, static_cast<std::size_t>(lineEnd - text.data())), text.size());
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

void StoreResult(CYEncData* header, std::ptrdiff_t consumed, std::uint32_t crc) {
  if (header == nullptr) {
    return;
  }
  header->consumedLength = static_cast<std::uint32_t>(consumed);
  header->computedCrcText.clear();
  if (header->HasCRC()) {
    header->computedCrcText = HexOfCrc(crc, kUpperDigits);
  }
}

/// Decodes to a buffer that has room for as many bytes, or is the input or begins before it; records in the header what
/// came of it, and the CRC if the trailer told one. Returns the length of the data.
std::size_t DecodeData(const char* input, std::size_t length, char* output, CYEncData* header) {
  const YEncKernels& kernels = YEncKernelsOf(CurrentSimdLevel());
  const bool needsCrc = header != nullptr && header->HasCRC();
  const unsigned char* const end = AsBytes(input) + length;
  YEncDecoding decoding{AsBytes(input), AsBytes(output)};
  RunningCrc crc;
  while (!decoding.isOver && decoding.read != end) {
    const auto left = static_cast<std::size_t>(end - decoding.read);
    const unsigned char* const data = decoding.written;
    kernels.decode(decoding, decoding.read + (needsCrc ? std::min(left, kPiece) : left));
    if (needsCrc) {
      crc.Add(data, static_cast<std::size_t>(decoding.written - data));
    }
  }
  // A "=" before the NUL that ends the data is not consumed.
  const std::ptrdiff_t consumed = decoding.read - AsBytes(input) - (decoding.isOver && decoding.isEscape ? 1 : 0);
  StoreResult(header, consumed, crc.Value());
  return static_cast<std::size_t>(decoding.written - AsBytes(output));
}

/// Of an empty input the record tells as of any other: what an earlier decode left there would pass for its result.
void StoreEmptyResult(CYEncData* header, int status) {
  if (status == kCoderOk) {
    StoreResult(header, 0, 0);
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
  if (frame.Make(header, length, flags) != kCoderOk) {
    return kCoderNoMemory;
  }
  YEncLine line = YEncFirstLine(header.lineLength, length, IsPlainTabDot(flags));
  std::uint64_t lines = YEncKernelsOf(CurrentSimdLevel()).measure(AsBytes(input), length, line);
  lines += line.room == line.length ? 0 : kLineBreaks.size();
  return StoreCoderSize(frame.Size() + lines, size);
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
  if (frame.Make(header, length, flags) != kCoderOk) {
    return kCoderNoMemory;
  }
  return Encoder(input, length, header, flags).Run(frame, output, outputLength);
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
  return buffer.HandOver(DecodeData(input, length, buffer.Data(), header), output, outputLength);
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
  outputLength = static_cast<unsigned int>(DecodeData(data, length, buffer, header));
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
