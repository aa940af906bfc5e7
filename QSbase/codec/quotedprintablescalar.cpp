#include <QSbase/codec/quotedprintablekernel.h>
#include <QSbase/text/chartables.h>

#include <bit>
#include <cstring>

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

char* QPEncodeScalar(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
                     std::uint64_t& column, char* output) {
  Writer writer(output);
  PutText(input, length, table, limits, column, writer);
  return writer.End();
}

std::uint64_t QPSizeScalar(const unsigned char* input, std::size_t length, const QPTable& table, const QPLimits& limits,
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

std::size_t QPDecodeScalar(const char* input, std::size_t length, char* output, std::uint32_t& illegal) {
  const auto* p = reinterpret_cast<const unsigned char*>(input);
  const unsigned char* const end = p + length;
  char* const begin = output;
  // Also where a vector kernel has done the beginning and the output lags behind.
  const bool isInPlace = reinterpret_cast<std::uintptr_t>(input) - reinterpret_cast<std::uintptr_t>(output) < length;
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
