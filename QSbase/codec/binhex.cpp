#include <QSbase/codec/binhex.h>
#include <QSbase/codec/binhexkernel.h>
#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <cstring>
#include <string_view>

using namespace qsbase::detail;

namespace {

constexpr int kNameException = -1;
constexpr int kNoStart = -7;
constexpr int kInvalid = -8;
constexpr int kNoEnd = -9;
constexpr int kInputEnds = -10;

constexpr std::size_t kLargestPiece = std::size_t{1} << 30;
constexpr std::size_t kScratchSize = 16384;
constexpr std::ptrdiff_t kShortestStretch = 48;
constexpr std::ptrdiff_t kFirstStretch = 768;
constexpr std::ptrdiff_t kLongestStretch = 6144;
constexpr std::string_view kMarker = "(This file must be converted with BinHex";
bool IsWhite(char c) { return kBinHexWhiteSpace.find(c) != kBinHexWhiteSpace.npos; }

unsigned char ValueOf(char c) { return kBinHexValues[static_cast<unsigned char>(c)]; }

/// A guess at the size of the data fork that no header can drive up: without runs, the rest of the text holds no more.
std::uint64_t FirstCapacity(std::ptrdiff_t textLeft, std::uint32_t claimed) {
  constexpr std::uint64_t kSmallest = 4096;
  return std::min<std::uint64_t>(claimed, static_cast<std::uint64_t>(textLeft) / 4 * 3 + kSmallest);
}

/// Reads `size` bytes with `read(bytes, count)`, making room as they come.
template <class Reader>
int FillBuffer(CoderBuffer& buffer, std::uint64_t capacity, std::uint64_t size, Reader read) {
  if (buffer.Allocate(capacity) != kCoderOk) {
    return kCoderNoMemory;
  }
  for (std::uint64_t done = 0; done < size;) {
    if (buffer.Size() == done && buffer.Grow(std::min(size, 2 * done), done) != kCoderOk) {
      return kCoderNoMemory;
    }
    const std::uint64_t piece = std::min<std::uint64_t>(buffer.Size() - done, kLargestPiece);
    const int status = read(reinterpret_cast<unsigned char*>(buffer.Data() + done), static_cast<int>(piece));
    if (status != kCoderOk) {
      return status;
    }
    done += piece;
  }
  return kCoderOk;
}

}  // namespace

CBinHexDecoder::CBinHexDecoder() { Start(nullptr, 0); }

CBinHexDecoder::CBinHexDecoder(const CBinHexDecoder& other) = default;
CBinHexDecoder& CBinHexDecoder::operator=(const CBinHexDecoder& other) = default;
CBinHexDecoder::~CBinHexDecoder() = default;

void CBinHexDecoder::Start(const char* input, unsigned int length) {
  _position = input;
  _end = input + length;
  _phase = 0;
  _carriedBits = 0;
  _repeatCount = 0;
  _lastByte = 0;
  _filename.clear();
  _version = 0;
  _type = 0;
  _creator = 0;
  _flags = 0;
  _dataSize = 0;
  _resourceSize = 0;
  _headerCrc = 0;
}

int CBinHexDecoder::Decode(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                           int flags) {
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  Start(input, length);
  if ((status = SkipToStartOfData()) != kCoderOk || (status = ReadFilename()) != kCoderOk ||
      (status = ReadRestOfHeader()) != kCoderOk || (flags & kCoderBinHexHeaderOnly) != 0) {
    return status;
  }
  CoderBuffer buffer(flags);
  if (_dataSize != 0) {
    status = FillBuffer(buffer, FirstCapacity(_end - _position, _dataSize), _dataSize,
                        [this](unsigned char* bytes, int count) { return DecodeData(bytes, count); });
  }
  unsigned int dataCrc = 0;
  if (status != kCoderOk || (status = DecodeInteger(dataCrc, 2)) != kCoderOk ||
      (status = ReadResourceFork()) != kCoderOk || (status = SkipToEndOfData()) != kCoderOk) {
    return status;
  }
  return _dataSize == 0 ? kCoderOk : buffer.HandOver(_dataSize, output, outputLength);
}

const std::string& CBinHexDecoder::GetFilename() const { return _filename; }

unsigned int CBinHexDecoder::GetType() const { return _type; }

unsigned int CBinHexDecoder::GetCreator() const { return _creator; }

unsigned short CBinHexDecoder::GetFlags() const { return _flags; }

unsigned int CBinHexDecoder::GetDataSize() const { return _dataSize; }

int CBinHexDecoder::SkipToStartOfData() {
  CEncodeDecode::SkipWhiteSpace(_position, _end);
  const auto left = static_cast<std::size_t>(_end - _position);
  if (std::string_view(_position, left).substr(0, kMarker.size()) != kMarker) {
    return kNoStart;
  }
  CEncodeDecode::SkipToEndOfLine(_position, _end);
  _position = std::find_if_not(_position, _end, IsWhite);
  if (_position == _end || *_position != ':') {
    return kNoStart;
  }
  ++_position;
  return kCoderOk;
}

int CBinHexDecoder::ReadFilename() {
  unsigned int length = 0;
  int status = DecodeInteger(length, 1);
  if (status != kCoderOk) {
    return status;
  }
  unsigned char name[255];
  status = DecodeData(name, static_cast<int>(length));
  if (status != kCoderOk) {
    return status;
  }
  try {
    _filename.assign(reinterpret_cast<const char*>(name), length);
  } catch (...) {
    return kNameException;
  }
  return kCoderOk;
}

int CBinHexDecoder::ReadRestOfHeader() {
  unsigned int version = 0;
  unsigned int flags = 0;
  unsigned int crc = 0;
  int status = kCoderOk;
  if ((status = DecodeInteger(version, 1)) != kCoderOk || (status = DecodeInteger(_type, 4)) != kCoderOk ||
      (status = DecodeInteger(_creator, 4)) != kCoderOk || (status = DecodeInteger(flags, 2)) != kCoderOk ||
      (status = DecodeInteger(_dataSize, 4)) != kCoderOk || (status = DecodeInteger(_resourceSize, 4)) != kCoderOk ||
      (status = DecodeInteger(crc, 2)) != kCoderOk) {
    return status;
  }
  _version = static_cast<std::uint8_t>(version);
  _flags = static_cast<std::uint16_t>(flags);
  _headerCrc = static_cast<std::uint16_t>(crc);
  return kCoderOk;
}

int CBinHexDecoder::DiscardData(std::uint32_t count) {
  unsigned char scratch[kScratchSize];
  while (count != 0) {
    const std::uint32_t piece = std::min<std::uint32_t>(count, kScratchSize);
    const int status = DecodeData(scratch, static_cast<int>(piece));
    if (status != kCoderOk) {
      return status;
    }
    count -= piece;
  }
  return kCoderOk;
}

int CBinHexDecoder::ReadResourceFork() {
  const int status = DiscardData(_resourceSize);
  if (status != kCoderOk) {
    return status;
  }
  unsigned int crc = 0;
  const int crcStatus = DecodeInteger(crc, 2);
  return crcStatus != kCoderOk && _position == _end ? kNoEnd : crcStatus;
}

int CBinHexDecoder::SkipToEndOfData() {
  // "!" pads the last group of characters.
  _position = std::find_if_not(_position, _end, [](char c) { return c == '!' || IsWhite(c); });
  return _position != _end && *_position == ':' ? kCoderOk : kNoEnd;
}

int CBinHexDecoder::DecodeData(unsigned char* buffer, int count) {
  unsigned char* const end = buffer + count;
  std::ptrdiff_t stretch = kFirstStretch;
  while (buffer < end) {
    const bool isLong = _phase == 0 && end - buffer >= kShortestStretch;
    const int status = isLong ? DecodeStretch(buffer, end, stretch) : DecodeStep(buffer, end);
    if (status != kCoderOk) {
      return status;
    }
    stretch = std::min(2 * stretch, kLongestStretch);
  }
  return kCoderOk;
}

/// Writes one byte, or what is pending of a run, or takes a run's start.
int CBinHexDecoder::DecodeStep(unsigned char*& out, unsigned char* end) {
  if (_repeatCount > 0) {
    const auto copies = std::min<std::ptrdiff_t>(_repeatCount, end - out);
    std::memset(out, _lastByte, static_cast<std::size_t>(copies));
    _repeatCount -= static_cast<int>(copies);
    out += copies;
    return kCoderOk;
  }
  unsigned char value = 0;
  const int status = GetNextDecodedChar(value);
  if (status == kCoderOk && value == kBinHexRunMark) {
    return TakeCount(out);
  }
  if (status == kCoderOk) {
    _lastByte = value;
    *out++ = value;
  }
  return status;
}

/// Takes what follows a run mark.
int CBinHexDecoder::TakeCount(unsigned char*& out) {
  unsigned char copies = 0;
  const int status = GetNextDecodedChar(copies);
  if (status != kCoderOk) {
    return status;
  }
  if (copies != 0) {
    _repeatCount = copies - 1;  // one of them is written already
    return kCoderOk;
  }
  _lastByte = kBinHexRunMark;  // a run may follow it
  *out++ = kBinHexRunMark;
  return kCoderOk;
}

/// Decodes many groups at once, at least one step. The runs in them may yield more than there is room for: what was
/// read too far is given back then.
int CBinHexDecoder::DecodeStretch(unsigned char*& out, unsigned char* end, std::ptrdiff_t longest) {
  const BinHexKernels& kernels = BinHexKernelsOf(CurrentSimdLevel());
  unsigned char bytes[kLongestStretch + kBinHexSlack];
  const char* const start = _position;
  const BinHexGroups groups = kernels.decodeGroups(start, _end, bytes, bytes + std::min(end - out, longest));
  if (groups.out == bytes) {
    return DecodeStep(out, end);
  }
  BinHexRuns runs{bytes, groups.out, out, end, _repeatCount, _lastByte};
  kernels.expandRuns(runs);
  _position = groups.position;
  _repeatCount = runs.repeatCount;
  _lastByte = runs.lastByte;
  out = runs.out;
  if (runs.read == groups.out) {
    return kCoderOk;
  }
  if (out != end) {
    return TakeCount(out);
  }
  const std::ptrdiff_t used = runs.read - bytes;
  _position = kernels.decodeGroups(start, _end, bytes, bytes + used).position;
  return SkipDecodedChars(static_cast<int>(used % 3));
}

int CBinHexDecoder::SkipDecodedChars(int count) {
  int status = kCoderOk;
  for (unsigned char value = 0; count > 0 && status == kCoderOk; --count) {
    status = GetNextDecodedChar(value);
  }
  return status;
}

int CBinHexDecoder::DecodeInteger(unsigned int& value, unsigned int bytes) {
  value = 0;
  for (unsigned int i = 0; i < bytes; ++i) {
    unsigned char byte = 0;
    const int status = DecodeData(&byte, 1);
    if (status != kCoderOk) {
      return status;
    }
    value = value << 8 | byte;
  }
  return kCoderOk;
}

int CBinHexDecoder::GetNextDecodedChar(unsigned char& value) {
  unsigned char bits = 0;
  int status = GetNextByteFromBinHexData(bits);
  if (status == kCoderOk && _phase == 0) {
    _carriedBits = static_cast<unsigned char>(bits << 2);
    status = GetNextByteFromBinHexData(bits);
  }
  if (status != kCoderOk) {
    return status;
  }
  const int left = 4 - 2 * _phase;  // how many of the six bits stay for the next byte
  value = static_cast<unsigned char>(_carriedBits | bits >> left);
  _carriedBits = static_cast<unsigned char>(bits << (8 - left));
  _phase = (_phase + 1) % 3;
  return kCoderOk;
}

int CBinHexDecoder::GetNextByteFromBinHexData(unsigned char& value) {
  if (_position == _end) {
    return kInputEnds;
  }
  while (ValueOf(*_position) == kBinHexWhite) {
    if (++_position == _end) {
      return kInvalid;
    }
  }
  value = ValueOf(*_position);
  if (value == kNoBinHexDigit) {
    return kInvalid;
  }
  ++_position;
  return kCoderOk;
}

int CEncodeDecode::DecodeBinHex(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                                int flags, CBinHexDecoder* decoder) {
  if (decoder != nullptr) {
    return decoder->Decode(input, length, output, outputLength, flags);
  }
  return CBinHexDecoder().Decode(input, length, output, outputLength, flags);
}
