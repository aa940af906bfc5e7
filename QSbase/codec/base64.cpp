#include <QSbase/codec/base64kernel.h>
#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/errors.h>

#include <algorithm>
#include <functional>
#include <new>
#include <stdexcept>

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

constexpr unsigned int kStringGroupsPerLine = 19;

/// The string forms work in pieces of so many groups. A string fills what it grows by with zeros: of a piece they are
/// still in the first cache when the kernel writes over them.
constexpr std::size_t kPieceGroups = 512;

/// What a failed string convenience throws.
void ThrowOnError(const char* operation, int status) {
  if (status != kCoderOk) {
    throw ExBase(std::string("CEncodeDecode::") + operation + " returns error " + std::to_string(status));
  }
}

/// Makes room for more bytes. Returns 0 or -3.
int Reserve(std::string& text, std::uint64_t more) {
  if (more > text.max_size() - text.size()) {
    return kCoderNoMemory;
  }
  try {
    text.reserve(text.size() + static_cast<std::size_t>(more));
  } catch (const std::bad_alloc&) {
    return kCoderNoMemory;
  }
  return kCoderOk;
}

void AppendPiece(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, std::string& text) {
  const std::size_t before = text.size();
  text.resize(before + static_cast<std::size_t>(Base64TextSize(length, groupsPerLine)));
  Base64EncodeText(input, length, groupsPerLine, text.data() + before);
}

/// Pieces of whole lines, or of no lines at all.
void AppendLines(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, std::string& text) {
  const std::size_t piece = (kPieceGroups - (groupsPerLine == 0 ? 0 : kPieceGroups % groupsPerLine)) * 3;
  for (std::size_t at = 0; at < length; at += piece) {
    AppendPiece(input + at, std::min(piece, length - at), groupsPerLine, text);
  }
}

/// Lines that are longer than a piece.
void AppendLongLines(const unsigned char* input, std::size_t length, std::size_t groupsPerLine, std::string& text) {
  const unsigned char* const end = input + length;
  std::size_t groupsLeft = groupsPerLine;
  while (input != end) {
    const std::size_t groups = std::min(groupsLeft, kPieceGroups);
    const std::size_t size = std::min(groups * 3, static_cast<std::size_t>(end - input));
    AppendPiece(input, size, 0, text);
    input += size;
    groupsLeft -= size / 3;
    if (groupsLeft == 0) {
      text += "\r\n";
      groupsLeft = groupsPerLine;
    }
  }
}

/// Makes room for the text of so many bytes. Returns 0 or -3.
int ReserveEncoded(std::size_t length, unsigned int groupsPerLine, std::string& text) {
  unsigned int size = 0;
  const int status = StoreCoderSize(Base64TextSize(length, groupsPerLine), size);
  return status == kCoderOk ? Reserve(text, size) : status;
}

/// Appends the text of the bytes, which may be what is in `text`: it has the room for both.
void AppendEncoded(const char* input, std::size_t length, unsigned int groupsPerLine, std::string& text) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(input);
  if (groupsPerLine > kPieceGroups) {
    AppendLongLines(bytes, length, groupsPerLine, text);
  } else {
    AppendLines(bytes, length, groupsPerLine, text);
  }
}

/// The room that a decoder asks for.
std::uint64_t DecodedRoom(std::uint64_t length) { return length / 4 * 3 + 2; }

/// Appends what a text gives, which may be what is in `data`: it has the room for both.
Base64Decoded AppendDecoded(const char* text, std::size_t length, std::string& data) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(text);
  Base64DecodeState state{begin, begin, nullptr, false};
  const std::size_t before = data.size();
  while (state.end != begin + length && !state.ended) {
    const std::size_t size = std::min(kPieceGroups * 4, static_cast<std::size_t>(begin + length - state.end));
    const std::size_t written = data.size();
    data.resize(written + static_cast<std::size_t>(DecodedRoom(size + state.begun)));
    state.output = data.data() + written;
    state.end += size;
    Base64KernelsOf(CurrentSimdLevel()).decode(state);
    if (state.ended || state.end == begin + length) {
      Base64DecodeRest(state);
    }
    data.resize(static_cast<std::size_t>(state.output - data.data()));
  }
  return {data.size() - before, static_cast<std::size_t>(state.position - begin), state.illegal};
}

/// Whether bytes lie in a string that is to be written.
bool LiesIn(const char* bytes, std::size_t length, const std::string& text) {
  const std::less<const char*> before;
  return before(bytes, text.data() + text.size()) && before(text.data(), bytes + length);
}

/// Sets a string to what `append(string)` makes of bytes, which may lie in it. Returns the status.
template <class Append>
int SetFrom(const char* bytes, std::size_t length, std::string& result, Append append) {
  if (!LiesIn(bytes, length, result)) {
    result.clear();
    return append(result);
  }
  std::string other;
  const int status = append(other);
  result.swap(other);
  return status;
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

int CEncodeDecode::EncodeBase64(const std::string& input, std::string& output, int) {
  const std::size_t length = input.size();
  if (length > kCoderMaxSize) {
    return kCoderNoMemory;
  }
  _illegalChars = 0;
  _parsedChars = 0;
  const unsigned int groupsPerLine = _maxLineLengthBase64 / 4;
  if (ReserveEncoded(length, groupsPerLine, output) != kCoderOk) {
    return kCoderNoMemory;
  }
  AppendEncoded(input.data(), length, groupsPerLine, output);
  _parsedChars = static_cast<unsigned int>(length);
  return kCoderOk;
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
  if (buffer.Allocate(DecodedRoom(length)) != kCoderOk) {
    return kCoderNoMemory;
  }
  const Base64Decoded decoded = Base64DecodeText(input, length, buffer.Data());
  _illegalChars = decoded.illegal;
  _parsedChars = static_cast<unsigned int>(decoded.parsed);
  return buffer.HandOver(decoded.written, output, outputLength);
}

int CEncodeDecode::DecodeBase64(const std::string& input, std::string& output, int) {
  const std::size_t length = input.size();
  if (length > kCoderMaxSize) {
    return kCoderNoMemory;
  }
  _illegalChars = 0;
  _parsedChars = 0;
  if (length != 0 && Reserve(output, DecodedRoom(length)) != kCoderOk) {
    return kCoderNoMemory;
  }
  const Base64Decoded decoded = AppendDecoded(input.data(), length, output);
  _illegalChars = decoded.illegal;
  _parsedChars = static_cast<unsigned int>(decoded.parsed);
  return kCoderOk;
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
  const char* const bytes = static_cast<const char*>(data);
  if (bytes == nullptr || length == 0) {
    return text.clear();
  }
  ThrowOnError("EncodeBase64", SetFrom(bytes, length, text, [&](std::string& result) {
                 const int status = ReserveEncoded(length, kStringGroupsPerLine, result);
                 if (status == kCoderOk) {
                   AppendEncoded(bytes, length, kStringGroupsPerLine, result);
                 }
                 return status;
               }));
}

void QsBase64Decode(const char* text, unsigned int length, std::string& data) {
  if (text == nullptr || length == 0) {
    return data.clear();
  }
  ThrowOnError("DecodeBase64", SetFrom(text, length, data, [&](std::string& result) {
                 const int status = Reserve(result, DecodedRoom(length));
                 if (status == kCoderOk) {
                   AppendDecoded(text, length, result);
                 }
                 return status;
               }));
}
