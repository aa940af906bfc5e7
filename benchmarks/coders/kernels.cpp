#include <QSbase/codec/base64kernel.h>
#include <QSbase/codec/binhexkernel.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/quotedprintablekernel.h>
#include <QSbase/codec/uukernel.h>
#include <QSbase/codec/yenckernel.h>
#include <QSbase/simd/level.h>
#include <QSbase/text/hexkernel.h>
#include <QSbase/text/textkernel.h>

#include <algorithm>
#include <cstring>

#include "coders.h"

namespace qsbase::benchmarks {
namespace {

using detail::SimdLevel;

std::size_t Between(const void* begin, const void* end) {
  return static_cast<std::size_t>(static_cast<const char*>(end) - static_cast<const char*>(begin));
}

// Base64: 19 groups make 76 columns

template <unsigned int GroupsPerLine>
void Base64Encode(SimdLevel level, std::string_view input, Output& output) {
  const char* const end =
      detail::Base64KernelsOf(level).encode(Bytes(input), input.size(), GroupsPerLine, output.Room());
  output.SetLength(Between(output.Room(), end));
}

void Base64Decode(SimdLevel level, std::string_view input, Output& output) {
  detail::Base64DecodeState state{Bytes(input), Bytes(input) + input.size(), output.Room(), false};
  detail::Base64KernelsOf(level).decode(state);
  detail::Base64DecodeRest(state);
  output.SetLength(Between(output.Room(), state.output));
}

// yEnc

void YencEncode(SimdLevel level, std::string_view input, Output& output) {
  detail::YEncLine line = detail::YEncFirstLine(128, input.size(), false);
  unsigned char* end = detail::YEncKernelsOf(level).encode(Bytes(input), input.size(), output.Bytes(), line);
  if (line.room != line.length) {
    end = detail::YEncPutBreak(end);
  }
  output.SetLength(Between(output.Room(), end));
}

void YencDecode(SimdLevel level, std::string_view input, Output& output) {
  detail::YEncDecoding decoding{Bytes(input), output.Bytes()};
  detail::YEncKernelsOf(level).decode(decoding, Bytes(input) + input.size());
  output.SetLength(Between(output.Room(), decoding.written));
}

// UU and XX

template <bool IsXx>
void UuEncode(SimdLevel level, std::string_view input, Output& output) {
  const std::size_t length = detail::UuKernelsOf(level, IsXx).encodeLines(Bytes(input), input.size(), output.Bytes());
  std::memcpy(output.Room() + length, IsXx ? "+\r\n" : "`\r\n", 3);
  output.SetLength(length + 3);
}

template <bool IsXx>
std::size_t LineCount(unsigned char c) {
  return IsXx ? detail::XxValue(c) : (c - 32U) & 63;
}

/// What the kernel of full lines leaves is decoded line by line.
template <bool IsXx>
void UuDecode(SimdLevel level, std::string_view input, Output& output) {
  const detail::UuKernels& kernels = detail::UuKernelsOf(level, IsXx);
  const unsigned char* const end = Bytes(input) + input.size();
  const detail::UuFullLines taken = kernels.decodeFullLines(Bytes(input), end, output.Bytes(), 0);
  unsigned char* out = output.Bytes() + taken.count * detail::kUuLineBytes;
  for (const unsigned char* line = taken.end; line < end;) {
    const auto* const next = static_cast<const unsigned char*>(std::memchr(line, '\n', Between(line, end))) + 1;
    const std::size_t count = LineCount<IsXx>(*line);
    kernels.decodeLine(line + 1, Between(line, next) - 3, out, count);
    out += count;
    line = next;
  }
  output.SetLength(Between(output.Room(), out));
}

// Quoted-printable

/// As the interface writes a byte that is not the last one.
detail::QPEntry EntryOf(std::size_t byte, int flags) {
  CEncodeDecode coder(75, 76);
  std::string text;
  coder.EncodeQP(std::string{static_cast<char>(byte), 'a'}, text, flags);
  text.pop_back();
  detail::QPEntry entry{};
  std::copy(text.begin(), text.end(), entry.text);
  entry.width = text == "\r\n" ? detail::kQPHardBreak : static_cast<std::uint8_t>(text.size());
  return entry;
}

detail::QPTable TableOf(int flags) {
  detail::QPTable table{};
  for (std::size_t byte = 0; byte < table.entries.size(); ++byte) {
    table.entries[byte] = EntryOf(byte, flags);
    if (byte < 128 && table.entries[byte].width != 3) {
      table.notTriples[byte % 16] = static_cast<std::uint8_t>(table.notTriples[byte % 16] | 1U << byte / 16);
    }
  }
  return table;
}

template <int Flags>
void QpEncode(SimdLevel level, std::string_view input, Output& output) {
  static const detail::QPTable table = TableOf(Flags);
  std::uint64_t column = 0;
  const char* const end =
      detail::QPKernelsOf(level).encode(Bytes(input), input.size(), table, detail::QPLimits(75), column, output.Room());
  output.SetLength(Between(output.Room(), end));
}

void QpDecode(SimdLevel level, std::string_view input, Output& output) {
  std::uint32_t illegal = 0;
  output.SetLength(detail::QPKernelsOf(level).decode(input.data(), input.size(), output.Room(), illegal));
}

// BinHex: groups and runs of a block in turn, the header with them

constexpr std::size_t kBinHexHeader = 25;

void BinHexDecode(SimdLevel level, std::string_view input, Output& output) {
  const detail::BinHexKernels& kernels = detail::BinHexKernelsOf(level);
  constexpr std::size_t kBlock = 3 * 1024;
  unsigned char block[1 + kBlock + detail::kBinHexSlack];
  const char* position = input.data() + input.find(':') + 1;
  const char* const end = input.data() + input.size();
  detail::BinHexRuns runs{block, block, output.Bytes(), output.Bytes() + output.RoomSize(), 0, 0};
  while (true) {
    // A run mark that ended the last block waits for its count.
    const std::size_t left = Between(runs.read, runs.readEnd);
    std::copy(runs.read, runs.readEnd, block);
    const detail::BinHexGroups groups = kernels.decodeGroups(position, end, block + left, block + left + kBlock);
    if (groups.out == block + left) {
      break;
    }
    position = groups.position;
    runs.read = block;
    runs.readEnd = groups.out;
    kernels.expandRuns(runs);
  }
  const unsigned char* const length = output.Bytes() + 15;
  output.SetLength(static_cast<std::size_t>(length[0]) << 24 | static_cast<std::size_t>(length[1]) << 16 |
                       static_cast<std::size_t>(length[2]) << 8 | length[3],
                   kBinHexHeader);
}

// Texts

void HexEncode(SimdLevel level, std::string_view input, Output& output) {
  detail::HexKernelsOf(level).encode(Bytes(input), input.size(), output.Bytes());
  output.SetLength(input.size() * 2);
}

void HexDecode(SimdLevel level, std::string_view input, Output& output) {
  output.SetLength(detail::HexKernelsOf(level).decode(Bytes(input), input.size() / 2, output.Bytes()));
}

void ToLower(SimdLevel level, std::string_view input, Output& output) {
  PrepareInPlace(input, output);
  detail::TextKernelsOf(level).toLower(output.Room(), input.size());
}

struct Kernel {
  const char* job;
  void (*run)(SimdLevel, std::string_view, Output&);
};

constexpr Kernel kKernels[] = {
    {"base64-encode", &Base64Encode<19>},
    {"base64-decode", &Base64Decode},
    {"base64-encode-unbroken", &Base64Encode<0>},
    {"base64-decode-unbroken", &Base64Decode},
    {"yenc-encode", &YencEncode},
    {"yenc-decode", &YencDecode},
    {"uu-encode", &UuEncode<false>},
    {"uu-decode", &UuDecode<false>},
    {"xx-encode", &UuEncode<true>},
    {"xx-decode", &UuDecode<true>},
    {"qp-encode-text", &QpEncode<0x200>},
    {"qp-decode-text", &QpDecode},
    {"qp-encode-random", &QpEncode<0>},
    {"qp-decode-random", &QpDecode},
    {"binhex-decode", &BinHexDecode},
    {"hex-encode", &HexEncode},
    {"hex-decode", &HexDecode},
    {"lower-case", &ToLower},
};

}  // namespace

void AddKernels(std::vector<Contestant>& all) {
  for (const Kernel& kernel : kKernels) {
    for (int level = 0; level <= static_cast<int>(detail::HighestSimdLevel()); ++level) {
      all.push_back({kernel.job, std::string("kernel ") + kLevelNames[level], Agreement::kEqual,
                     [run = kernel.run, level](std::string_view input, Output& output) {
                       run(static_cast<SimdLevel>(level), input, output);
                     }});
    }
  }
}

}  // namespace qsbase::benchmarks
