#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/uukernel.h>
#include <QSbase/simd/search.h>

#include <algorithm>
#include <cstring>
#include <string_view>

using namespace qsbase::detail;

namespace {

constexpr unsigned int kCheckedLines = 4;
constexpr std::ptrdiff_t kTailSize = 5;
constexpr int kCountTolerance = 2;
constexpr std::string_view kBegin = "begin ";

const unsigned char* AsBytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

unsigned char* AsBytes(char* text) { return reinterpret_cast<unsigned char*>(text); }

std::uint64_t EncodedSize(std::uint64_t length) {
  const std::uint64_t characters = (length + 2) / 3 * 4;
  const std::uint64_t lines = (characters + 59) / 60;
  return characters + (lines + 1) * 3;
}

/// What a line's characters make, without its count.
int LineRoom(std::size_t length) {
  // Any line that a count can speak of is shorter.
  constexpr std::size_t kLongest = 4096;
  return static_cast<int>((std::min(length, kLongest) - 1) / 4 * 3);
}

bool IsNear(int count, int room) { return count >= room - kCountTolerance && count <= room + kCountTolerance; }

int UuCount(char c) { return static_cast<unsigned char>(c) - 32; }

/// -1000 for a character that is no digit: near nothing.
int XxCount(char c) {
  const unsigned char value = XxValue(static_cast<unsigned char>(c));
  return value == kXxIllegal ? -1000 : value;
}

bool HasCheckCharacter(const char* line, std::size_t length, unsigned int number) {
  return (length - 1) % 4 == 1 && line[length - 1] == static_cast<char>('z' - (number - 1) % 26);
}

struct UuResult {
  int status = kCoderOk;
  std::size_t parsed = 0;
  std::size_t written = 0;
  std::size_t illegal = 0;
};

/// One decode call over the lines of a text.
class LineDecoder {
 public:
  LineDecoder(unsigned char* output, bool isXx)
      : _kernels(UuKernelsOf(CurrentSimdLevel(), isXx)),
        _output(output),
        _isXx(isXx),
        _fullCount(isXx ? kXxDigits[kUuLineBytes] : static_cast<char>(' ' + kUuLineBytes)) {}

  /// Moves the position to the end, or behind the line that failed.
  int Run(const char*& position, const char* end) {
    for (;;) {
      position = FullLines(SkipLineBreaks(position, end), end);
      position = SkipLineBreaks(position, end);
      if (position == end) {
        return kCoderOk;
      }
      const char* line = position;
      position = FindLineEnd(position, end);
      const int status = Line(line, static_cast<std::size_t>(position - line), end - position >= kTailSize);
      if (status != kCoderOk) {
        return status;
      }
    }
  }

  std::size_t Written() const { return _written; }
  std::size_t Illegal() const { return _illegal; }

 private:
  /// Most texts are full lines but for the last one.
  const char* FullLines(const char* position, const char* end) {
    // Texts of short lines need not call the kernel for each.
    if (position == end || *position != _fullCount) {
      return position;
    }
    // A full line without a check character says of itself that it has none.
    _isDropping = _isDropping && _number >= kCheckedLines;
    const UuFullLines taken =
        _kernels.decodeFullLines(AsBytes(position), AsBytes(end), _output + _written, _isDropping ? 1 : 0);
    _number += static_cast<unsigned int>(taken.count);
    _written += taken.count * kUuLineBytes;
    return position + (taken.end - AsBytes(position));
  }

  int Line(const char* line, std::size_t length, bool isTextBehind) {
    // Kept: the fourth line decides for all that follow.
    if (++_number <= kCheckedLines) {
      _isDropping = HasCheckCharacter(line, length, _number);
    }
    length -= _isDropping ? 1 : 0;
    if (length == 0) {
      return kCoderOk;
    }
    if (length % 4 != 1 && isTextBehind) {
      return kCoderBadLine;
    }
    const int room = LineRoom(length);
    if (room == 0) {
      return kCoderOk;
    }
    const int count = _isXx ? XxCount(*line) : UuCount(*line);
    if (!IsNear(count, room)) {
      return kCoderBadLine;
    }
    const auto bytes = static_cast<std::size_t>(count);
    _illegal += _kernels.decodeLine(AsBytes(line) + 1, length - 1, _output + _written, bytes);
    _written += bytes;
    return kCoderOk;
  }

  const UuKernels& _kernels;
  unsigned char* _output;
  bool _isXx;
  char _fullCount;
  bool _isDropping = false;
  unsigned int _number = 0;
  std::size_t _written = 0;
  std::size_t _illegal = 0;
};

/// Decodes into other memory of the input's length, or within the input.
UuResult DecodeText(CEncodeDecode& coder, const char* input, unsigned int length, char* output, int flags) {
  UuResult result;
  const char* position = input;
  const char* end = input + length;
  if ((flags & kCoderUUSkipHeader) != 0) {
    result.status = coder.SkipUueHeader(input, length, position);
    // An override may be wrong: what it gives is used when it lies within the input.
    if (result.status == kCoderOk && (position < input || position > end)) {
      result.status = kCoderBadLine;
    }
    if (result.status != kCoderOk) {
      return result;
    }
  }
  bool isXx = (flags & kCoderXX) != 0;
  if (!isXx && (flags & kCoderDetectUU) != 0) {
    isXx = coder.IsUueOrXxe(position, static_cast<unsigned int>(end - position)) == EEncDecUueXX;
  }
  LineDecoder lines(AsBytes(output), isXx);
  result.status = lines.Run(position, end);
  result.parsed = static_cast<std::size_t>(position - input);
  result.written = lines.Written();
  result.illegal = lines.Illegal();
  return result;
}

bool IsOctalDigit(char c) { return c >= '0' && c <= '7'; }

bool IsBeginMark(const char* line, std::size_t length) {
  if (length < kBegin.size()) {
    return false;
  }
  return std::equal(kBegin.begin(), kBegin.end(), line,
                    [](char mark, char c) { return mark == (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); });
}

/// Behind "begin ": more blanks perhaps, three or four octal digits, a blank.
bool IsBeginLine(const char* line, const char* end) {
  const char* digits = std::find_if(line + kBegin.size(), end, [](char c) { return c != ' '; });
  const char* behind = std::find_if_not(digits, end, IsOctalDigit);
  return (behind - digits == 3 || behind - digits == 4) && behind != end && *behind == ' ';
}

}  // namespace

int CEncodeDecode::EncodeUUE(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                             int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  const bool isXx = (flags & kCoderXX) != 0;
  const std::uint64_t size = EncodedSize(length);
  CoderBuffer buffer(flags);
  if (size > kCoderMaxSize || buffer.Allocate(size) != kCoderOk) {
    return kCoderNoMemory;
  }
  std::size_t written =
      UuKernelsOf(CurrentSimdLevel(), isXx).encodeLines(AsBytes(input), length, AsBytes(buffer.Data()));
  std::memcpy(buffer.Data() + written, isXx ? "+\r\n" : "`\r\n", 3);
  written += 3;
  if (written != size) {
    return kCoderSizeMismatch;
  }
  _parsedChars = length;
  return buffer.HandOver(written, output, outputLength);
}

int CEncodeDecode::EncodeUUE(const std::string& input, std::string& output, int flags) {
  return CodeString(*this, &CEncodeDecode::EncodeUUE, input, output, flags);
}

int CEncodeDecode::DecodeUUE(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                             int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  CoderBuffer buffer(flags);
  if (buffer.Allocate(length) != kCoderOk) {
    return kCoderNoMemory;
  }
  const UuResult result = DecodeText(*this, input, length, buffer.Data(), flags);
  _illegalChars = static_cast<unsigned int>(result.illegal);
  _parsedChars = static_cast<unsigned int>(result.parsed);
  return result.status != kCoderOk ? result.status : buffer.HandOver(result.written, output, outputLength);
}

int CEncodeDecode::DecodeUUE(const std::string& input, std::string& output, int flags) {
  return CodeString(*this, &CEncodeDecode::DecodeUUE, input, output, flags);
}

int CEncodeDecode::DecodeUUEInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsInlineCallOver(buffer, length, outputLength, status)) {
    return status;
  }
  const UuResult result = DecodeText(*this, buffer, length, buffer, flags);
  _illegalChars = static_cast<unsigned int>(result.illegal);
  _parsedChars = static_cast<unsigned int>(result.parsed);
  outputLength = result.status == kCoderOk ? static_cast<unsigned int>(result.written) : 0;
  return result.status;
}

EEncDecUueType CEncodeDecode::IsUueOrXxe(const char* input, unsigned int length) {
  if (input == nullptr) {
    return EEncDecUueNone;
  }
  const char* end = input + length;
  const char* line = SkipLineBreaks(input, end);
  const char* lineEnd = FindLineEnd(line, end);
  if (line == lineEnd) {
    return EEncDecUueNone;
  }
  const int room = LineRoom(static_cast<std::size_t>(lineEnd - line));
  if (IsNear(XxCount(*line), room)) {
    return EEncDecUueXX;
  }
  return IsNear(UuCount(*line), room) ? EEncDecUueUU : EEncDecUueNone;
}

int CEncodeDecode::SkipUueHeader(const char* input, unsigned int length, const char*& dataStart) {
  dataStart = input;
  if (input == nullptr) {
    return length == 0 ? kCoderOk : kCoderNullPointer;
  }
  const char* end = input + length;
  for (const char* line = input; line != end; line = FindLineOf(line, end, 'b', 'e')) {
    if (!IsBeginMark(line, static_cast<std::size_t>(end - line))) {
      continue;
    }
    const char* lineEnd = FindLineEnd(line, end);
    if (IsBeginLine(line, lineEnd)) {
      dataStart = SkipLineBreaks(lineEnd, end);
      return kCoderOk;
    }
  }
  dataStart = end;
  return kCoderOk;
}
