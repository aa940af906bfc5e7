#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/simd/search.h>
#include <QSbase/support/filesupport.h>

#include <algorithm>
#include <cstring>
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

unsigned int HexDigit(unsigned char c) { return c <= '9' ? c - '0' : (c | 0x20u) - 'a' + 10; }

/// Copies what stands before the next escape to `out`, at or before it, and moves `out` on. Returns where it ends.
const char* CopyPlainRun(const char* position, const char* end, char escape, char*& out) {
  // Most runs are short: they are not worth a search.
  const char* const shortEnd = end - position > 8 ? position + 8 : end;
  while (position != shortEnd && *position != escape) {
    *out++ = *position++;
  }
  if (position != shortEnd || position == end) {
    return position;
  }
  const char* const runEnd = FindEither(position, end, escape, escape);
  const auto size = static_cast<std::size_t>(runEnd - position);
  std::memmove(out, position, size);
  out += size;
  return runEnd;
}

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
  if ((flags & kCoderBase64) != 0) {
    return EncodeBase64(input, output, flags);  // straight into the string
  }
  return CodeString(input, output, flags, [&](const char* data, unsigned int size, char** out, unsigned int& outSize) {
    return Encode(data, kSourceBuffer, size, out, outSize, flags);
  });
}

int CEncodeDecode::Decode(const std::string& input, std::string& output, int flags) {
  if ((flags & kCoderBase64) != 0) {
    return DecodeBase64(input, output, flags);
  }
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
  position = SkipLineBreaks(position, end);
}

void CEncodeDecode::SkipToEndOfLine(const char*& position, const char* end) { position = FindLineEnd(position, end); }

void CEncodeDecode::SkipWhiteSpace(const char*& position, const char* end) { position = SkipSpaces(position, end); }

int CEncodeDecode::UnescapeHexString(std::string& text, unsigned char escape) {
  const char* const end = text.data() + text.size();
  char* out = text.data();
  for (const char* position = text.data(); position != end;) {
    if (static_cast<unsigned char>(*position) != escape) {
      position = CopyPlainRun(position, end, static_cast<char>(escape), out);
      continue;
    }
    if (end - position < 3) {
      break;
    }
    *out++ = static_cast<char>(
        GetHexValue(static_cast<unsigned char>(position[1]), static_cast<unsigned char>(position[2])));
    position += 3;
  }
  text.resize(static_cast<std::size_t>(out - text.data()));
  return kCoderOk;
}
