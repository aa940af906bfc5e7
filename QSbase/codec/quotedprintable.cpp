#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/quotedprintablekernel.h>
#include <QSbase/text/chartables.h>

#include <algorithm>
#include <string_view>

using namespace qsbase::detail;

namespace {

/// Above this length the encoder leaves blanks alone.
constexpr unsigned int kShortText = 0x100000;
/// A text whose largest possible size is within this needs no measuring.
constexpr std::uint64_t kUnmeasuredSize = 0x40000;

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
  for (unsigned int c = 0; c < 256; ++c) {
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

std::uint64_t SizeOf(const Text& text, const QPLimits& limits) {
  std::uint64_t column = 0;
  const std::uint64_t body = Kernels().size(text.data, text.bodyLength, *text.table, limits, column);
  return body + QPSizeScalar(text.data + text.bodyLength, text.lastLength, *text.lastTable, limits, column);
}

std::size_t Write(const Text& text, const QPLimits& limits, char* output) {
  std::uint64_t column = 0;
  char* const middle = Kernels().encode(text.data, text.bodyLength, *text.table, limits, column, output);
  char* const end =
      QPEncodeScalar(text.data + text.bodyLength, text.lastLength, *text.lastTable, limits, column, middle);
  return static_cast<std::size_t>(end - output);
}

/// Counts by pieces that fit as a whole, and byte by byte in the one that does not.
std::size_t CountFittingBody(const Text& text, const QPLimits& limits, std::uint64_t& column, std::uint64_t& room) {
  const auto size = Kernels().size;
  std::size_t count = 0;
  while (text.bodyLength - count > kMeasuredPiece) {
    const unsigned char* const piece = text.data + count;
    // A CR may belong to the LF behind it.
    const std::size_t length = kMeasuredPiece - (piece[kMeasuredPiece - 1] == '\r' ? 1 : 0);
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

/// Every byte a triple with a soft break before it.
std::uint64_t LargestSize(unsigned int length) { return std::uint64_t{length} * 6; }

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
  std::uint64_t size = LargestSize(length);
  if (size > kUnmeasuredSize) {
    size = SizeOf(text, limits);
  }
  CoderBuffer buffer(flags);
  if (size > kCoderMaxSize || buffer.Allocate(size) != kCoderOk) {
    return kCoderNoMemory;
  }
  _parsedChars = length;
  return buffer.HandOver(Write(text, limits, buffer.Data()), output, outputLength);
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
