#include <QSbase/codec/binhex.h>
#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

using namespace qsbase::detail;

namespace {

constexpr int kNameException = -1;
constexpr int kNoStart = -7;
constexpr int kInvalid = -8;
constexpr int kNoEnd = -9;
constexpr int kInputEnds = -10;

constexpr unsigned char kRunMark = 0x90;
constexpr std::size_t kLargestPiece = std::size_t{1} << 30;
constexpr std::size_t kScratchSize = 16384;
constexpr std::string_view kMarker = "(This file must be converted with BinHex";
constexpr std::string_view kDigits = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";
constexpr std::string_view kWhiteSpace = "\t\n\r ";

constexpr unsigned char kWhite = 64;
constexpr unsigned char kNoDigit = 65;

constexpr std::array<unsigned char, 256> MakeValues() {
  std::array<unsigned char, 256> values{};
  for (unsigned char& value : values) {
    value = kNoDigit;
  }
  for (const char c : kWhiteSpace) {
    values[static_cast<unsigned char>(c)] = kWhite;
  }
  for (std::size_t i = 0; i < kDigits.size(); ++i) {
    values[static_cast<unsigned char>(kDigits[i])] = static_cast<unsigned char>(i);
  }
  return values;
}

constexpr std::array<unsigned char, 256> kValues = MakeValues();

bool IsWhite(char c) { return kWhiteSpace.find(c) != kWhiteSpace.npos; }

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
  for (int done = 0; done < count;) {
    if (_repeatCount > 0) {
      const int copies = std::min(_repeatCount, count - done);
      std::memset(buffer + done, _lastByte, static_cast<std::size_t>(copies));
      _repeatCount -= copies;
      done += copies;
      continue;
    }
    unsigned char value = 0;
    unsigned char copies = 0;
    int status = GetNextDecodedChar(value);
    if (status == kCoderOk && value == kRunMark) {
      status = GetNextDecodedChar(copies);
    }
    if (status != kCoderOk) {
      return status;
    }
    if (copies != 0) {
      _repeatCount = copies - 1;  // one of them is written already
      continue;
    }
    _lastByte = value;  // a literal 0x90 too: a run may follow it
    buffer[done++] = value;
  }
  return kCoderOk;
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
  while (kValues[static_cast<unsigned char>(*_position)] == kWhite) {
    if (++_position == _end) {
      return kInvalid;
    }
  }
  value = kValues[static_cast<unsigned char>(*_position)];
  if (value == kNoDigit) {
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
