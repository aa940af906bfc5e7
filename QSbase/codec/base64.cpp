#include <QSbase/codec/base64kernel.h>
#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/errors.h>

#include <array>
#include <bit>
#include <cstring>

namespace qsbase::detail {
namespace {

constexpr std::array<std::uint8_t, 256> MakeValues() {
  std::array<std::uint8_t, 256> values{};
  for (std::uint8_t& value : values) {
    value = kBase64Illegal;
  }
  for (std::uint8_t i = 0; i < 64; ++i) {
    values[static_cast<unsigned char>(kBase64Alphabet[i])] = i;
  }
  values['\r'] = kBase64LineBreak;
  values['\n'] = kBase64LineBreak;
  values['='] = kBase64Pad;
  return values;
}

constexpr std::array<std::uint8_t, 256> kValues = MakeValues();

/// Two characters for every 12 bits.
constexpr std::array<char, 8192> MakePairs() {
  std::array<char, 8192> pairs{};
  for (unsigned int i = 0; i < 4096; ++i) {
    pairs[2 * i] = kBase64Alphabet[i >> 6];
    pairs[2 * i + 1] = kBase64Alphabet[i & 63];
  }
  return pairs;
}

alignas(64) constexpr std::array<char, 8192> kPairs = MakePairs();

/// A character's six bits where the group's three bytes, first byte lowest, need them; anything else sets bits above.
constexpr std::uint32_t kNotClean = 0xFF000000;
using PlacedValues = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr std::uint32_t PlaceValue(std::uint32_t value, unsigned int place) {
  const std::uint32_t bits = value << (18 - 6 * place);
  return (bits >> 16 & 0xFF) | (bits & 0xFF00) | (bits & 0xFF) << 16;
}

constexpr PlacedValues MakePlacedValues() {
  PlacedValues tables{};
  for (unsigned int place = 0; place < 4; ++place) {
    for (unsigned int c = 0; c < 256; ++c) {
      tables[place][c] = kValues[c] < 64 ? PlaceValue(kValues[c], place) : kNotClean;
    }
  }
  return tables;
}

alignas(64) constexpr PlacedValues kPlaced = MakePlacedValues();

std::uint64_t Load64(const unsigned char* p) {
  return std::uint64_t{p[0]} << 56 | std::uint64_t{p[1]} << 48 | std::uint64_t{p[2]} << 40 | std::uint64_t{p[3]} << 32 |
         std::uint64_t{p[4]} << 24 | std::uint64_t{p[5]} << 16 | std::uint64_t{p[6]} << 8 | std::uint64_t{p[7]};
}

/// Stores the lowest byte first.
void Store64(char* p, std::uint64_t v) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(p, &v, 8);
  } else {
    for (unsigned int i = 0; i < 8; ++i) {
      p[i] = static_cast<char>(v >> (8 * i));
    }
  }
}

void PutPair(char* output, std::uint64_t bits) { std::memcpy(output, kPairs.data() + 2 * (bits & 0xFFF), 2); }

void EncodeGroup(const unsigned char* input, char* output) {
  const std::uint32_t bits = std::uint32_t{input[0]} << 16 | std::uint32_t{input[1]} << 8 | input[2];
  PutPair(output, bits >> 12);
  PutPair(output + 2, bits);
}

/// Encodes whole groups without a break. `readable` is what may be read from `input` on, at least groups * 3.
char* EncodeGroups(const unsigned char* input, std::size_t readable, std::size_t groups, char* output) {
  for (; groups >= 2 && readable >= 8; groups -= 2, readable -= 6, input += 6, output += 8) {
    const std::uint64_t bits = Load64(input);
    PutPair(output, bits >> 52);
    PutPair(output + 2, bits >> 40);
    PutPair(output + 4, bits >> 28);
    PutPair(output + 6, bits >> 16);
  }
  for (; groups > 0; --groups, input += 3, output += 4) {
    EncodeGroup(input, output);
  }
  return output;
}

char* EncodeRest(const unsigned char* input, std::size_t count, char* output) {
  if (count == 0) {
    return output;
  }
  const unsigned char group[3] = {input[0], static_cast<unsigned char>(count == 2 ? input[1] : 0), 0};
  EncodeGroup(group, output);
  output[3] = '=';
  if (count == 1) {
    output[2] = '=';
  }
  return output + 4;
}

std::uint32_t CleanGroup(const unsigned char* p) {
  return kPlaced[0][p[0]] | kPlaced[1][p[1]] | kPlaced[2][p[2]] | kPlaced[3][p[3]];
}

/// What a call of the decoder moves along.
struct DecodeState {
  const unsigned char* position;
  const unsigned char* end;
  char* output;
  std::uint32_t illegal;
};

/// Decodes clean pairs of groups as long as there are any. The 8-byte store never passes what was read of the input.
void DecodeCleanGroups(DecodeState& state) {
  const unsigned char* p = state.position;
  char* output = state.output;
  while (state.end - p >= 8) {
    const std::uint32_t first = CleanGroup(p);
    const std::uint32_t second = CleanGroup(p + 4);
    if (((first | second) & kNotClean) != 0) {
      break;
    }
    Store64(output, first | std::uint64_t{second} << 24);
    p += 8;
    output += 6;
  }
  state.position = p;
  state.output = output;
}

void PutBytes(DecodeState& state, std::uint32_t bytes, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    *state.output++ = static_cast<char>(bytes >> (8 * i));
  }
}

void DecodeOneCleanGroup(DecodeState& state) {
  if (state.end - state.position < 4) {
    return;
  }
  const std::uint32_t bytes = CleanGroup(state.position);
  if ((bytes & kNotClean) == 0) {
    PutBytes(state, bytes, 3);
    state.position += 4;
  }
}

void SkipLineBreaks(DecodeState& state) {
  while (state.position != state.end && (*state.position == '\r' || *state.position == '\n')) {
    ++state.position;
  }
}

/// Reads one group character by character. Returns false when decoding ends with it.
bool DecodeAnyGroup(DecodeState& state) {
  std::uint32_t bytes = 0;
  unsigned int count = 0;
  while (count < 4 && state.position != state.end) {
    const std::uint8_t value = kValues[*state.position++];
    if (value < 64) {
      bytes |= PlaceValue(value, count++);
    } else if (value == kBase64Pad) {
      break;
    } else if (value == kBase64Illegal) {
      ++state.illegal;
    }
  }
  PutBytes(state, bytes, count < 2 ? 0 : count - 1);
  return count == 4;
}

}  // namespace

std::uint8_t Base64Value(unsigned char c) { return kValues[c]; }

std::uint64_t Base64TextSize(std::uint64_t length, unsigned int groupsPerLine) {
  const std::uint64_t breaks = groupsPerLine == 0 ? 0 : length / 3 / groupsPerLine;
  return (length + 2) / 3 * 4 + breaks * 2;
}

char* Base64EncodeText(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, char* output) {
  const unsigned char* const end = input + length;
  std::size_t groups = length / 3;
  while (groupsPerLine != 0 && groups >= groupsPerLine) {
    output = EncodeGroups(input, static_cast<std::size_t>(end - input), groupsPerLine, output);
    *output++ = '\r';
    *output++ = '\n';
    input += std::size_t{groupsPerLine} * 3;
    groups -= groupsPerLine;
  }
  output = EncodeGroups(input, static_cast<std::size_t>(end - input), groups, output);
  return EncodeRest(input + groups * 3, length % 3, output);
}

Base64Decoded Base64DecodeText(const char* input, std::size_t length, char* output) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(input);
  DecodeState state{begin, begin + length, output, 0};
  for (bool more = true; more;) {
    const unsigned char* const before = state.position;
    DecodeCleanGroups(state);
    DecodeOneCleanGroup(state);
    SkipLineBreaks(state);
    more = state.position != before || DecodeAnyGroup(state);
  }
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
