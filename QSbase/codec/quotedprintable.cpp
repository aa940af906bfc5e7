#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/quotedprintablekernel.h>
#include <QSbase/text/chartables.h>

#include <string_view>

using namespace qsbase::detail;

namespace {

/// Above this length the encoder leaves blanks alone.
constexpr unsigned int kShortText = 0x100000;
/// A text whose largest possible size is within this needs no measuring.
constexpr std::uint64_t kUnmeasuredSize = 0x40000;
/// How many bytes of a longer one are looked at in each place for a guess, and written at once.
constexpr std::size_t kSampleLength = 512;
constexpr std::size_t kWrittenPiece = 0x8000;

/// How many bytes are measured at once where it is asked what fits.
constexpr std::size_t kMeasuredPiece = 1024;

/// What makes one table differ from another.
enum TableBits : unsigned int {
  kEncodeTab = 1,
  kEncodeBlank = 2,
  kEncodeQuestion = 4,
  kHardBreaks = 8,
  kLiteralSpecials = 16,
  kTableCount = 32
};

constexpr std::string_view kLiterals = "%&'()*+,-./:;<>0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kSpecials = "!\"#$@[\\]^`{}~|";

constexpr void SetWidths(QPTable& table, std::string_view characters, std::uint8_t width) {
  for (const char c : characters) {
    QPEntry& entry = table.entries[static_cast<unsigned char>(c)];
    entry.width = width;
    entry.text[0] = width == 1 ? c : '=';
  }
}

constexpr QPTable MakeTable(unsigned int bits) {
  QPTable table{};
  for (std::size_t c = 0; c < 256; ++c) {
    table.entries[c] = {{'=', kHexPairs[2 * c], kHexPairs[2 * c + 1]}, 3};
  }
  SetWidths(table, kLiterals, 1);
  SetWidths(table, "\t", (bits & kEncodeTab) != 0 ? 3 : 1);
  SetWidths(table, " ", (bits & kEncodeBlank) != 0 ? 3 : 1);
  SetWidths(table, "?_", (bits & kEncodeQuestion) != 0 ? 3 : 1);
  SetWidths(table, kSpecials, (bits & kLiteralSpecials) != 0 ? 1 : 3);
  SetWidths(table, "\r\n", (bits & kHardBreaks) != 0 ? kQPHardBreak : 3);
  for (unsigned int c = 0; c < 128; ++c) {
    const unsigned int notTriple = table[c].width == 3 ? 0 : 1;
    table.notTriples[c % 16] = static_cast<std::uint8_t>(table.notTriples[c % 16] | notTriple << (c / 16));
  }
  return table;
}

constexpr std::array<QPTable, kTableCount> MakeTables() {
  std::array<QPTable, kTableCount> tables{};
  for (unsigned int bits = 0; bits < kTableCount; ++bits) {
    tables[bits] = MakeTable(bits);
  }
  return tables;
}

alignas(64) constexpr std::array<QPTable, kTableCount> kTables = MakeTables();

unsigned int TableBitsOf(int flags) {
  unsigned int bits = 0;
  bits |= (flags & kCoderQPEncodeBlanks) != 0 ? kEncodeTab | kEncodeBlank : 0U;
  bits |= (flags & kCoderQPEncodeQuestion) != 0 ? kEncodeQuestion : 0U;
  bits |= (flags & kCoderQPHardBreaks) != 0 ? kHardBreaks : 0U;
  bits |= (flags & kCoderQPLiteralSpecials) != 0 ? kLiteralSpecials : 0U;
  return bits;
}

/// One text to encode: all bytes by `table`, the last one (if `lastLength` is 1) by `lastTable`.
struct Text {
  Text(const char* input, unsigned int length, unsigned int bits, unsigned int lastBits)
      : data(reinterpret_cast<const unsigned char*>(input)),
        bodyLength(length),
        lastLength(0),
        table(&kTables[bits]),
        lastTable(&kTables[bits | lastBits]) {
    if (length != 0 && (data[length - 1] == ' ' || data[length - 1] == '\t')) {
      lastLength = 1;
      bodyLength = length - 1;
    }
  }

  const unsigned char* data;
  std::size_t bodyLength;
  std::size_t lastLength;
  const QPTable* table;
  const QPTable* lastTable;
};

/// The text as `CalcEncodedMemoryQP` and `CalcMaxCharsQP` see it, and the encoder too when it is short.
Text MeasuredText(const char* input, unsigned int length, int flags) {
  return Text(input, length, TableBitsOf(flags), kEncodeTab | kEncodeBlank);
}

/// The text as the encoder sees it: in a long one blanks stay as they are, always.
Text EncodedText(const char* input, unsigned int length, int flags) {
  if (length <= kShortText) {
    return MeasuredText(input, length, flags);
  }
  return Text(input, length, TableBitsOf(flags) & ~unsigned{kEncodeBlank}, kEncodeTab);
}

const QPKernels& Kernels() { return QPKernelsOf(CurrentSimdLevel()); }

/// The size of what follows `done` bytes of the text.
std::uint64_t SizeBehind(const Text& text, std::size_t done, const QPLimits& limits, std::uint64_t column) {
  const std::uint64_t body = Kernels().size(text.data + done, text.bodyLength - done, *text.table, limits, column);
  return body + QPSizeScalar(text.data + text.bodyLength, text.lastLength, *text.lastTable, limits, column);
}

std::uint64_t SizeOf(const Text& text, const QPLimits& limits) { return SizeBehind(text, 0, limits, 0); }

std::size_t Write(const Text& text, const QPLimits& limits, char* output) {
  std::uint64_t column = 0;
  char* const middle = Kernels().encode(text.data, text.bodyLength, *text.table, limits, column, output);
  char* const end =
      QPEncodeScalar(text.data + text.bodyLength, text.lastLength, *text.lastTable, limits, column, middle);
  return static_cast<std::size_t>(end - output);
}

/// A part of a text that may be coded by itself, for no CR at its end has its LF behind it.
std::size_t PieceLength(const unsigned char* data, std::size_t left, std::size_t most) {
  return left <= most ? left : most - (data[most - 1] == '\r' ? 1 : 0);
}

/// Counts by pieces that fit as a whole, and byte by byte in the one that does not.
std::size_t CountFittingBody(const Text& text, const QPLimits& limits, std::uint64_t& column, std::uint64_t& room) {
  const auto size = Kernels().size;
  std::size_t count = 0;
  while (text.bodyLength - count > kMeasuredPiece) {
    const unsigned char* const piece = text.data + count;
    const std::size_t length = PieceLength(piece, text.bodyLength - count, kMeasuredPiece);
    std::uint64_t nextColumn = column;
    const std::uint64_t width = size(piece, length, *text.table, limits, nextColumn);
    if (width > room) {
      break;
    }
    column = nextColumn;
    room -= width;
    count += length;
  }
  return count + QPCountFitting(text.data + count, text.bodyLength - count, *text.table, limits, column, room);
}

std::size_t CountFitting(const Text& text, const QPLimits& limits, std::uint64_t room) {
  std::uint64_t column = 0;
  const std::size_t body = CountFittingBody(text, limits, column, room);
  if (body != text.bodyLength) {
    return body;
  }
  return body + QPCountFitting(text.data + body, text.lastLength, *text.lastTable, limits, column, room);
}

/// No text of this length becomes longer: every byte a triple, and lines as short as soft breaks leave them.
std::uint64_t LargestSize(std::uint64_t length, const QPLimits& limits) {
  if (limits.literal < 3) {
    return 6 * length;
  }
  return 3 * length + 3 * (3 * length / limits.triple + 1);
}

/// What the whole text may need, after a look at some parts of it.
std::uint64_t EstimatedSize(const Text& text, const QPLimits& limits) {
  constexpr std::size_t kSamples = 16;
  const std::size_t stride = text.bodyLength / kSamples;
  std::uint64_t sampled = 0;
  for (std::size_t i = 0; i < kSamples; ++i) {
    std::uint64_t column = 0;
    sampled += Kernels().size(text.data + i * stride, kSampleLength, *text.table, limits, column);
  }
  const std::uint64_t size = sampled * (text.bodyLength / (kSamples * kSampleLength) + 1);
  return size + size / 32 + LargestSize(kWrittenPiece + 1, limits);
}

/// Writes a text into a buffer that may turn out to be too small, and then grows once.
class LongWriter {
 public:
  LongWriter(const Text& text, const QPLimits& limits, CoderBuffer& buffer)
      : _text(text), _limits(limits), _buffer(buffer) {}

  /// Returns 0 or -3.
  int Write() {
    const auto encode = Kernels().encode;
    while (_done != _text.bodyLength) {
      const unsigned char* const data = _text.data + _done;
      const std::size_t length = PieceLength(data, _text.bodyLength - _done, kWrittenPiece);
      if (!HasRoom(length) && GrowToEnd() != kCoderOk) {
        return kCoderNoMemory;
      }
      _size = End(encode(data, length, *_text.table, _limits, _column, _buffer.Data() + _size));
      _done += length;
    }
    _size = End(QPEncodeScalar(_text.data + _done, _text.lastLength, *_text.lastTable, _limits, _column,
                               _buffer.Data() + _size));
    return kCoderOk;
  }
  std::size_t Size() const { return _size; }

 private:
  std::size_t End(const char* end) { return static_cast<std::size_t>(end - _buffer.Data()); }
  /// For a piece, and for the last byte as well.
  bool HasRoom(std::size_t length) const {
    return _isExact || _buffer.Size() - _size >= LargestSize(length + 1, _limits);
  }
  int GrowToEnd() {
    const std::uint64_t size = _size + SizeBehind(_text, _done, _limits, _column);
    _isExact = true;
    return size > kCoderMaxSize ? kCoderNoMemory : _buffer.Grow(size, _size);
  }

  const Text& _text;
  const QPLimits& _limits;
  CoderBuffer& _buffer;
  std::size_t _done = 0;
  std::uint64_t _column = 0;
  std::size_t _size = 0;
  bool _isExact = false;
};

/// Writes into a buffer that is exactly as large as it must be.
int WriteExactly(const Text& text, const QPLimits& limits, std::uint64_t size, CoderBuffer& buffer,
                 std::size_t& written) {
  if (size > kCoderMaxSize || buffer.Allocate(size) != kCoderOk) {
    return kCoderNoMemory;
  }
  written = Write(text, limits, buffer.Data());
  return kCoderOk;
}

/// Where the buffer can give back what was too much, a guess spares a pass over the text. One that memory does not
/// allow says nothing yet: the text may need less, and a buffer that grows may need twice the memory.
int WriteByGuess(const Text& text, const QPLimits& limits, CoderBuffer& buffer, std::size_t& written) {
  const std::uint64_t guess = EstimatedSize(text, limits);
  if (guess <= kCoderMaxSize && buffer.Allocate(guess) == kCoderOk) {
    LongWriter writer(text, limits, buffer);
    if (writer.Write() == kCoderOk) {
      written = writer.Size();
      return kCoderOk;
    }
  }
  return WriteExactly(text, limits, SizeOf(text, limits), buffer, written);
}

int WriteAny(const Text& text, const QPLimits& limits, int flags, CoderBuffer& buffer, std::size_t& written) {
  const std::uint64_t largest = LargestSize(text.bodyLength + text.lastLength, limits);
  if (largest <= kUnmeasuredSize) {
    return WriteExactly(text, limits, largest, buffer, written);
  }
  if ((flags & kCoderArrayBuffers) != 0) {
    return WriteExactly(text, limits, SizeOf(text, limits), buffer, written);
  }
  return WriteByGuess(text, limits, buffer, written);
}

}  // namespace

int CEncodeDecode::EncodeQP(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                            int flags) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsCoderCallOver(input, length, output, outputLength, status)) {
    return status;
  }
  const QPLimits limits(_maxLineLengthQP);
  const Text text = EncodedText(input, length, flags);
  CoderBuffer buffer(flags);
  std::size_t written = 0;
  if (WriteAny(text, limits, flags, buffer, written) != kCoderOk) {
    return kCoderNoMemory;
  }
  _parsedChars = length;
  return buffer.HandOver(written, output, outputLength);
}

int CEncodeDecode::EncodeQP(const std::string& input, std::string& output, int flags) {
  return CodeString(*this, &CEncodeDecode::EncodeQP, input, output, flags);
}

int CEncodeDecode::DecodeQP(const char* input, unsigned int length, char** output, unsigned int& outputLength,
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
  const std::size_t written = Kernels().decode(input, length, buffer.Data(), _illegalChars);
  _parsedChars = length;
  return buffer.HandOver(written, output, outputLength);
}

int CEncodeDecode::DecodeQP(const std::string& input, std::string& output, int flags) {
  return CodeString(*this, &CEncodeDecode::DecodeQP, input, output, flags);
}

int CEncodeDecode::DecodeQPInline(char* buffer, unsigned int length, unsigned int& outputLength, int) {
  _illegalChars = 0;
  _parsedChars = 0;
  int status = kCoderOk;
  if (IsInlineCallOver(buffer, length, outputLength, status)) {
    return status;
  }
  outputLength = static_cast<unsigned int>(Kernels().decode(buffer, length, buffer, _illegalChars));
  _parsedChars = length;
  return kCoderOk;
}

int CEncodeDecode::CalcEncodedMemoryQP(const char* input, unsigned int length, unsigned int& size, int flags) {
  size = 0;
  if (length == 0 || input == nullptr) {
    return length == 0 ? kCoderOk : kCoderNullPointer;
  }
  return StoreCoderSize(SizeOf(MeasuredText(input, length, flags), QPLimits(_maxLineLengthQP)), size);
}

int CEncodeDecode::CalcMaxCharsQP(const char* input, unsigned int length, unsigned int maxOutput, unsigned int& count,
                                  int flags) {
  count = 0;
  if (length == 0 || input == nullptr) {
    return length == 0 ? kCoderOk : kCoderNullPointer;
  }
  const unsigned int blank = (flags & kCoderQPCountBlanksEncoded) != 0 ? unsigned{kEncodeBlank} : 0U;
  const Text text(input, length, TableBitsOf(flags) | blank, kEncodeTab | kEncodeBlank);
  const QPLimits limits(_maxLineLengthQP);
  count = static_cast<unsigned int>(CountFitting(text, limits, maxOutput));
  return kCoderOk;
}
