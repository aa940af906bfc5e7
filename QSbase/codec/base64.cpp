#include <QSbase/codec/base64kernel.h>
#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/errors.h>

namespace qsbase::detail {

std::uint64_t Base64TextSize(std::uint64_t length, unsigned int groupsPerLine) {
  const std::uint64_t breaks = groupsPerLine == 0 ? 0 : length / 3 / groupsPerLine;
  return (length + 2) / 3 * 4 + breaks * 2;
}

Base64Decoded Base64DecodeText(const char* input, std::size_t length, char* output) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(input);
  Base64DecodeState state{begin, begin + length, output, output == input};
  Base64KernelsOf(CurrentSimdLevel()).decode(state);
  Base64DecodeRest(state);
  return {static_cast<std::size_t>(state.output - output), static_cast<std::size_t>(state.position - begin),
          state.illegal};
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

constexpr int kStringFlags = 0x20000000;
constexpr unsigned int kStringLineQP = 75;
constexpr unsigned int kStringLineBase64 = 76;

/// What a failed string convenience throws.
void ThrowOnError(const char* operation, int status) {
  if (status != kCoderOk) {
    throw ExBase(std::string("CEncodeDecode::") + operation + " returns error " + std::to_string(status));
  }
}

}  // namespace

int CEncodeDecode::EncodeBase64(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                                int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  const unsigned int groupsPerLine = _maxLineLengthBase64 / 4;
  unsigned int size = 0;
  CoderBuffer buffer(flags);
  if (StoreCoderSize(Base64TextSize(length, groupsPerLine), size) != kCoderOk || buffer.Allocate(size) != kCoderOk) {
    return kCoderNoMemory;
  }
  Base64EncodeText(reinterpret_cast<const unsigned char*>(input), length, groupsPerLine, buffer.Data());
  _parsedChars = length;
  return buffer.HandOver(size, output, outputLength);
}

int CEncodeDecode::EncodeBase64(const std::string& input, std::string& output, int flags) {
  return CodeString(*this, &CEncodeDecode::EncodeBase64, input, output, flags);
}

int CEncodeDecode::DecodeBase64(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                                int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  CoderBuffer buffer(flags);
  if (buffer.Allocate(std::uint64_t{length} / 4 * 3 + 2) != kCoderOk) {
    return kCoderNoMemory;
  }
  const Base64Decoded decoded = Base64DecodeText(input, length, buffer.Data());
  _illegalChars = decoded.illegal;
  _parsedChars = static_cast<unsigned int>(decoded.parsed);
  return buffer.HandOver(decoded.written, output, outputLength);
}

int CEncodeDecode::DecodeBase64(const std::string& input, std::string& output, int flags) {
  return CodeString(*this, &CEncodeDecode::DecodeBase64, input, output, flags);
}

int CEncodeDecode::DecodeBase64Inline(char* buffer, unsigned int length, unsigned int& outputLength, int) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsInlineCallOver(buffer, length, outputLength, status)) {
    return status;
  }
  const Base64Decoded decoded = Base64DecodeText(buffer, length, buffer);
  _illegalChars = decoded.illegal;
  _parsedChars = static_cast<unsigned int>(decoded.parsed);
  outputLength = static_cast<unsigned int>(decoded.written);
  return kCoderOk;
}

int CEncodeDecode::CalcEncodedMemoryBase64(unsigned int length, unsigned int& size) {
  const std::uint64_t groupsPerLine = _maxLineLengthBase64 / 4;
  const std::uint64_t groups = (std::uint64_t{length} + 2) / 3;
  if (groupsPerLine == 0 || _maxLineLengthBase64 < length) {
    return StoreCoderSize(groups * 4, size);
  }
  const std::uint64_t breaks = std::uint64_t{length} / 3 * 3 / (groupsPerLine * 3);
  return StoreCoderSize((breaks + groups * 2) * 2, size);
}

char CEncodeDecode::EncodeBase64Char(unsigned char value) {
  if (value < 64) {
    return kBase64Alphabet[value];
  }
  ++_illegalChars;
  return '=';
}

int CEncodeDecode::DecodeBase64Char(unsigned char c) {
  const std::uint8_t value = Base64Value(c);
  return value < 64 ? value : -1;
}

void QsBase64Encode(const void* data, unsigned int length, std::string& text) {
  CEncodeDecode coder(kStringLineQP, kStringLineBase64);
  CoderResult result(kStringFlags);
  const int status = data == nullptr ? kCoderOk
                                     : coder.EncodeBase64(static_cast<const char*>(data), length, &result.data,
                                                          result.length, kStringFlags);
  text.assign(result.data == nullptr ? "" : result.data, result.length);
  ThrowOnError("EncodeBase64", status);
}

void QsBase64Decode(const char* text, unsigned int length, std::string& data) {
  CEncodeDecode coder(kStringLineQP, kStringLineBase64);
  CoderResult result(kStringFlags);
  const int status =
      text == nullptr ? kCoderOk : coder.DecodeBase64(text, length, &result.data, result.length, kStringFlags);
  data.assign(result.data == nullptr ? "" : result.data, result.length);
  ThrowOnError("DecodeBase64", status);
}
