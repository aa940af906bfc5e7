#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/quotedprintablekernel.h>
#include <QSbase/text/chartables.h>

#include <bit>
#include <cstring>
#include <string_view>

namespace qsbase::detail {
namespace {

/// How many bytes are put without a look at the column in between.
constexpr std::ptrdiff_t kBatch = 4;
/// A batch may scratch four bytes of output for each of its own. Every input byte gives at least one of output, so
/// that with this many left all of them belong to the output.
constexpr std::ptrdiff_t kBatchNeeds = 4 * kBatch;

/// Where encoded bytes go.
class Writer {
 public:
  explicit Writer(char* output) : _output(output) {}

  /// Puts a batch that holds no hard break and is at most `room` wide, and returns its width; otherwise puts nothing
  /// and returns 0 (what was written of it is overwritten by what comes next).
  std::size_t PutBatch(const unsigned char* p, const QPTable& table, std::uint64_t room) {
    QPEntry entries[kBatch];
    for (std::ptrdiff_t i = 0; i < kBatch; ++i) {
      std::memcpy(&entries[i], &table[p[i]], 4);
    }
    char* output = _output;
    unsigned int widths = 0;
    for (const QPEntry& entry : entries) {
      std::memcpy(output, &entry, 4);
      output += entry.width & kQPWidthMask;
      widths |= entry.width;
    }
    const auto width = static_cast<std::size_t>(output - _output);
    if ((widths & kQPBreakMark) != 0 || width > room) {
      return 0;
    }
    _output = output;
    return width;
  }
  void Put(const QPEntry& entry) {
    std::memcpy(_output, &entry, 4);
    _output += entry.width;
  }
  void SoftBreak() {
    std::memcpy(_output, "=\r\n", 3);
    _output += 3;
  }
  void HardBreak() {
    std::memcpy(_output, "\r\n", 2);
    _output += 2;
  }
  char* End() const { return _output; }

 private:
  char* _output;
};

/// Counts instead of writing.
class Counter {
 public:
  std::size_t PutBatch(const unsigned char* p, const QPTable& table, std::uint64_t room) {
    std::size_t width = 0;
    for (std::ptrdiff_t i = 0; i < kBatch; ++i) {
      width += table[p[i]].width;
    }
    if (width >= kQPBreakMark || width > room) {
      return 0;
    }
    _size += width;
    return width;
  }
  void Put(const QPEntry& entry) { _size += entry.width; }
  void SoftBreak() { _size += 3; }
  void HardBreak() { _size += 2; }
  std::uint64_t Size() const { return _size; }

 private:
  std::uint64_t _size = 0;
};

/// Puts one byte, or the CR LF that makes one hard break. Returns where the next one begins.
template <class Sink>
inline const unsigned char* PutOne(const unsigned char* p, const unsigned char* end, const QPTable& table,
                                   const QPLimits& limits, std::uint64_t& column, Sink& sink) {
  const QPEntry& entry = table[*p];
  if (entry.width == kQPHardBreak) {
    sink.HardBreak();
    column = 0;
    return p + (*p == '\r' && end - p > 1 && p[1] == '\n' ? 2 : 1);
  }
  if (column >= (entry.width == 1 ? limits.literal : limits.triple)) {
    sink.SoftBreak();
    column = 0;
  }
  sink.Put(entry);
  column += entry.width;
  return p + 1;
}

/// Puts bytes one by one until a break or the end.
template <class Sink>
const unsigned char* PutToBreak(const unsigned char* p, const unsigned char* end, const QPTable& table,
                                const QPLimits& limits, std::uint64_t& textColumn, Sink& textSink) {
  Sink sink = textSink;
  std::uint64_t column = textColumn;
  for (std::uint64_t before = 0; p != end && column >= before;) {
    before = column;
    p = PutOne(p, end, table, limits, column, sink);
  }
  textColumn = column;
  textSink = sink;
  return p;
}

template <class Sink>
void PutText(const unsigned char* p, std::size_t length, const QPTable& table, const QPLimits& limits,
             std::uint64_t& textColumn, Sink& textSink) {
  Sink sink = textSink;
  std::uint64_t column = textColumn;
  const unsigned char* const end = p + length;
  const std::uint64_t batchEnd = limits.literal < 2 ? 0 : limits.literal;
  while (p != end) {
    const std::size_t width =
        end - p >= kBatchNeeds && column < batchEnd ? sink.PutBatch(p, table, batchEnd - column) : 0;
    if (width != 0) {
      column += width;
      p += kBatch;
    } else {
      p = PutToBreak(p, end, table, limits, column, sink);
    }
  }
  textColumn = column;
  textSink = sink;
}

/// Decodes one byte, one "=" with what belongs to it, or one soft break.
void DecodeOne(const unsigned char*& p, const unsigned char* end, char*& output, std::uint32_t& illegal) {
  const bool isEscape = *p == '=';
  if (isEscape && end - p > 3 && (kHexValues[p[1]] | kHexValues[p[2]]) < 16) {
    *output++ = static_cast<char>(kHexValues[p[1]] << 4 | kHexValues[p[2]]);
    p += 3;
  } else if (isEscape && end - p > 1 && (p[1] == '\r' || p[1] == '\n')) {
    p += 2;
    p += p != end && (*p == '\n' || *p == '\r') ? 1 : 0;
  } else {
    *output++ = static_cast<char>(*p++);
    illegal += isEscape ? 1 : 0;
  }
}

/// Marks (in each byte's top bit) the bytes that are "="; those behind the first one in memory may be marked wrongly.
std::uint64_t MarkEscapes(std::uint64_t eight) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  const std::uint64_t zeroes = eight ^ (kOnes * '=');
  return (zeroes - kOnes) & ~zeroes & (kOnes * 0x80);
}

/// The eight bytes, the first one lowest.
std::uint64_t Load64(const unsigned char* p) {
  std::uint64_t value = 0;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(&value, p, 8);
  } else {
    for (unsigned int i = 0; i < 8; ++i) {
      value |= std::uint64_t{p[i]} << (8 * i);
    }
  }
  return value;
}

/// Copies 8 bytes at once where only the first `count` are wanted, unless the rest of the input would suffer.
template <bool InPlace>
void CopyShort(const unsigned char* p, std::size_t count, char* output) {
  if constexpr (InPlace) {
    for (std::size_t i = 0; i < count; ++i) {
      output[i] = static_cast<char>(p[i]);
    }
  } else {
    std::memcpy(output, p, 8);
  }
}

/// Decodes plain bytes and encoded ones until something else is met or the end is near.
template <bool InPlace>
void DecodeCommon(const unsigned char*& position, const unsigned char* end, char*& written) {
  const unsigned char* p = position;
  char* output = written;
  while (end - p >= 24) {
    const std::uint64_t marks = MarkEscapes(Load64(p));
    if (marks == 0) {
      std::memmove(output, p, 8);
      p += 8;
      output += 8;
      continue;
    }
    const auto plain = static_cast<std::size_t>(std::countr_zero(marks)) / 8;
    CopyShort<InPlace>(p, plain, output);
    p += plain;
    output += plain;
    const std::uint64_t escape = Load64(p);
    const unsigned int high = kHexValues[escape >> 8 & 0xFF];
    const unsigned int low = kHexValues[escape >> 16 & 0xFF];
    if ((high | low) >= 16) {
      break;
    }
    *output++ = static_cast<char>(high << 4 | low);
    p += 3;
    // Escapes come in pairs often: a letter of UTF-8 has two bytes or more.
    const unsigned int nextHigh = kHexValues[escape >> 32 & 0xFF];
    const unsigned int nextLow = kHexValues[escape >> 40 & 0xFF];
    const bool isPair = (escape >> 24 & 0xFF) == '=' && (nextHigh | nextLow) < 16;
    *output = static_cast<char>(nextHigh << 4 | nextLow);
    output += isPair ? 1 : 0;
    p += isPair ? 3 : 0;
  }
  position = p;
  written = output;
}

}  // namespace

char* QPEncodeText(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                   std::uint64_t& column, char* output) {
  Writer writer(output);
  PutText(input, length, table, limits, column, writer);
  return writer.End();
}

std::uint64_t QPTextSize(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                         std::uint64_t& column) {
  Counter counter;
  PutText(input, length, table, limits, column, counter);
  return counter.Size();
}

std::size_t QPCountFitting(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                           std::uint64_t& column, std::uint64_t& room) {
  const unsigned char* p = input;
  while (p != input + length) {
    Counter counter;
    const unsigned char* const next = PutOne(p, input + length, table, limits, column, counter);
    if (counter.Size() > room) {
      break;
    }
    room -= counter.Size();
    p = next;
  }
  return static_cast<std::size_t>(p - input);
}

std::size_t QPDecodeText(const char* input, std::size_t length, char* output, std::uint32_t& illegal) {
  const auto* p = reinterpret_cast<const unsigned char*>(input);
  const unsigned char* const end = p + length;
  char* const begin = output;
  const bool isInPlace = output == input;
  while (p != end) {
    if (isInPlace) {
      DecodeCommon<true>(p, end, output);
    } else {
      DecodeCommon<false>(p, end, output);
    }
    DecodeOne(p, end, output, illegal);
  }
  return static_cast<std::size_t>(output - begin);
}

}  // namespace qsbase::detail

using namespace qsbase::detail;

namespace {

/// Above this length the encoder leaves blanks alone.
constexpr unsigned int kShortText = 0x100000;
/// A text whose largest possible size is within this needs no measuring.
constexpr std::uint64_t kUnmeasuredSize = 0x40000;

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
    QPEntry& entry = table[static_cast<unsigned char>(c)];
    entry.width = width;
    entry.text[0] = width == 1 ? c : '=';
  }
}

constexpr QPTable MakeTable(unsigned int bits) {
  QPTable table{};
  for (unsigned int c = 0; c < 256; ++c) {
    table[c] = {{'=', kHexPairs[2 * c], kHexPairs[2 * c + 1]}, 3};
  }
  SetWidths(table, kLiterals, 1);
  SetWidths(table, "\t", (bits & kEncodeTab) != 0 ? 3 : 1);
  SetWidths(table, " ", (bits & kEncodeBlank) != 0 ? 3 : 1);
  SetWidths(table, "?_", (bits & kEncodeQuestion) != 0 ? 3 : 1);
  SetWidths(table, kSpecials, (bits & kLiteralSpecials) != 0 ? 1 : 3);
  SetWidths(table, "\r\n", (bits & kHardBreaks) != 0 ? kQPHardBreak : 3);
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

std::uint64_t SizeOf(const Text& text, const QPLimits& limits) {
  std::uint64_t column = 0;
  const std::uint64_t body = QPTextSize(text.data, text.bodyLength, *text.table, limits, column);
  return body + QPTextSize(text.data + text.bodyLength, text.lastLength, *text.lastTable, limits, column);
}

std::size_t Write(const Text& text, const QPLimits& limits, char* output) {
  std::uint64_t column = 0;
  char* const middle = QPEncodeText(text.data, text.bodyLength, *text.table, limits, column, output);
  char* const end = QPEncodeText(text.data + text.bodyLength, text.lastLength, *text.lastTable, limits, column, middle);
  return static_cast<std::size_t>(end - output);
}

std::size_t CountFitting(const Text& text, const QPLimits& limits, std::uint64_t room) {
  std::uint64_t column = 0;
  const std::size_t body = QPCountFitting(text.data, text.bodyLength, *text.table, limits, column, room);
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
  const std::size_t written = QPDecodeText(input, length, buffer.Data(), _illegalChars);
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
  outputLength = static_cast<unsigned int>(QPDecodeText(buffer, length, buffer, _illegalChars));
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
