#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/support/filesupport.h>

#include <algorithm>
#include <limits>
#include <memory>

using namespace qsbase::detail;

namespace {

constexpr unsigned int kMinLineLength = 20;
constexpr unsigned int kDefaultYEncLine = 128;
constexpr int kSourceBuffer = 0;
constexpr int kSourceFile = 1;

/// Runs `coder(data, length)` on the buffer, or on the content of the file that the source names.
template <class Coder>
int CodeSource(const void* source, int sourceKind, unsigned int length, char** output, unsigned int& outputLength,
               Coder coder) {
  if (output != nullptr) {
    *output = nullptr;
  }
  outputLength = 0;
  if (sourceKind == kSourceBuffer) {
    return coder(static_cast<const char*>(source), length);
  }
  if (sourceKind != kSourceFile) {
    return kCoderNothingSelected;
  }
  if (source == nullptr || output == nullptr) {
    return kCoderNullPointer;
  }
  char* content = nullptr;
  unsigned int size = 0;
  const int status = CAL_ReadFileToBuffer(static_cast<const char*>(source), &content, size,
                                          std::numeric_limits<unsigned int>::max(), true, 0);
  const std::unique_ptr<char[]> owner(content);
  return status == 0 ? coder(content, size) : kCoderNoInputFile;
}

bool IsLineBreak(char c) { return c == '\r' || c == '\n'; }

bool IsWhiteSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

unsigned int HexDigit(unsigned char c) { return c <= '9' ? c - '0' : (c | 0x20u) - 'a' + 10; }

}  // namespace

CEncodeDecode::CEncodeDecode(unsigned int maxLineLengthQP, unsigned int maxLineLengthBase64)
    : _illegalChars(0), _parsedChars(0), _maxLineLengthQP(maxLineLengthQP), _maxLineLengthBase64(maxLineLengthBase64) {}

CEncodeDecode::~CEncodeDecode() = default;

unsigned int CEncodeDecode::GetNumberIllegalChars() const { return _illegalChars; }

unsigned int CEncodeDecode::GetNumberParsedChars() const { return _parsedChars; }

void CEncodeDecode::SetMaxLineLengthQP(unsigned int length) { _maxLineLengthQP = std::max(length, kMinLineLength); }

void CEncodeDecode::SetMaxLineLengthBase64(unsigned int length) {
  _maxLineLengthBase64 = std::max(length, kMinLineLength) / 4 * 4;
}

int CEncodeDecode::Encode(const void* source, int sourceKind, unsigned int length, char** output,
                          unsigned int& outputLength, int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  return CodeSource(source, sourceKind, length, output, outputLength, [&](const char* data, unsigned int size) {
    if ((flags & kCoderBase64) != 0) {
      return EncodeBase64(data, size, output, outputLength, flags);
    }
    if ((flags & kCoderQP) != 0) {
      return EncodeQP(data, size, output, outputLength, flags);
    }
    if ((flags & kCoderAnyUU) != 0) {
      return EncodeUUE(data, size, output, outputLength, flags);
    }
    if ((flags & kCoderYEnc) != 0) {
      CYEncData header;
      header.lineLength = kDefaultYEncLine;
      return EncodeYEnc(data, size, output, outputLength, header, flags);
    }
    return kCoderNothingSelected;
  });
}

int CEncodeDecode::Decode(const void* source, int sourceKind, unsigned int length, char** output,
                          unsigned int& outputLength, int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  return CodeSource(source, sourceKind, length, output, outputLength, [&](const char* data, unsigned int size) {
    if ((flags & kCoderBase64) != 0) {
      return DecodeBase64(data, size, output, outputLength, flags);
    }
    if ((flags & kCoderQP) != 0) {
      return DecodeQP(data, size, output, outputLength, flags);
    }
    if ((flags & kCoderAnyUU) != 0) {
      return DecodeUUE(data, size, output, outputLength, flags);
    }
    if ((flags & kCoderYEnc) != 0) {
      return DecodeYEnc(data, size, output, outputLength, flags, nullptr);
    }
    if ((flags & kCoderBinHex) != 0) {
      return DecodeBinHex(data, size, output, outputLength, flags, nullptr);
    }
    return kCoderNothingSelected;
  });
}

int CEncodeDecode::DecodeInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  outputLength = 0;
  if ((flags & kCoderBase64) != 0) {
    return DecodeBase64Inline(buffer, length, outputLength, flags);
  }
  if ((flags & kCoderQP) != 0) {
    return DecodeQPInline(buffer, length, outputLength, flags);
  }
  if ((flags & kCoderAnyUU) != 0) {
    return DecodeUUEInline(buffer, length, outputLength, flags);
  }
  if ((flags & kCoderYEnc) != 0) {
    return DecodeYEncInline(buffer, length, outputLength, flags, nullptr);
  }
  return kCoderNothingSelected;
}

int CEncodeDecode::Encode(const std::string& input, std::string& output, int flags) {
  return CodeString(input, output, flags, [&](const char* data, unsigned int size, char** out, unsigned int& outSize) {
    return Encode(data, kSourceBuffer, size, out, outSize, flags);
  });
}

int CEncodeDecode::Decode(const std::string& input, std::string& output, int flags) {
  return CodeString(input, output, flags, [&](const char* data, unsigned int size, char** out, unsigned int& outSize) {
    return Decode(data, kSourceBuffer, size, out, outSize, flags);
  });
}

int CEncodeDecode::AllocateBuffer(char*& buffer, unsigned int size, int flags) {
  if ((flags & kCoderArrayBuffers) != 0) {
    buffer = new (std::nothrow) char[size]();
  } else {
    buffer = static_cast<char*>(std::calloc(std::max(size, 1u), 1));
  }
  return buffer == nullptr ? kCoderNoMemory : kCoderOk;
}

void CEncodeDecode::FreeBuffer(char*& buffer, int flags) {
  if ((flags & kCoderArrayBuffers) != 0) {
    delete[] buffer;
  } else {
    std::free(buffer);
  }
  buffer = nullptr;
}

bool CEncodeDecode::IsHexChar(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

unsigned char CEncodeDecode::GetHexValue(unsigned char high, unsigned char low) {
  return static_cast<unsigned char>(HexDigit(high) * 16 + HexDigit(low));
}

void CEncodeDecode::SkipToStartOfLine(const char*& position, const char* end) {
  position = std::find_if_not(position, end, IsLineBreak);
}

void CEncodeDecode::SkipToEndOfLine(const char*& position, const char* end) {
  position = std::find_if(position, end, IsLineBreak);
}

void CEncodeDecode::SkipWhiteSpace(const char*& position, const char* end) {
  position = std::find_if_not(position, end, IsWhiteSpace);
}

int CEncodeDecode::UnescapeHexString(std::string& text, unsigned char escape) {
  std::size_t written = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (static_cast<unsigned char>(text[i]) != escape) {
      text[written++] = text[i];
      continue;
    }
    if (text.size() - i < 3) {
      break;
    }
    text[written++] = static_cast<char>(
        GetHexValue(static_cast<unsigned char>(text[i + 1]), static_cast<unsigned char>(text[i + 2])));
    i += 2;
  }
  text.resize(written);
  return kCoderOk;
}
