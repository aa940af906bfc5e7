#include <QSbase/codec/base64kernel.h>

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
  for (std::size_t i = 0; i < 4096; ++i) {
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

std::uint32_t CleanGroup(const unsigned char* p) {
  return kPlaced[0][p[0]] | kPlaced[1][p[1]] | kPlaced[2][p[2]] | kPlaced[3][p[3]];
}

/// Decodes clean pairs of groups as long as there are any. The 8-byte store never passes what was read of the input.
void DecodeCleanGroups(Base64DecodeState& state) {
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

void PutBytes(Base64DecodeState& state, std::uint32_t bytes, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    *state.output++ = static_cast<char>(bytes >> (8 * i));
  }
}

void DecodeOneCleanGroup(Base64DecodeState& state) {
  if (state.end - state.position < 4) {
    return;
  }
  const std::uint32_t bytes = CleanGroup(state.position);
  if ((bytes & kNotClean) == 0) {
    PutBytes(state, bytes, 3);
    state.position += 4;
  }
}

void SkipLineBreaks(Base64DecodeState& state) {
  while (state.position != state.end && (*state.position == '\r' || *state.position == '\n')) {
    ++state.position;
  }
}

/// Decodes what is easy. Returns false when there is nothing of it.
bool DecodeCleanLine(Base64DecodeState& state) {
  const unsigned char* const before = state.position;
  DecodeCleanGroups(state);
  DecodeOneCleanGroup(state);
  SkipLineBreaks(state);
  return state.position != before;
}

}  // namespace

std::uint8_t Base64Value(unsigned char c) { return kValues[c]; }

char* Base64EncodeGroups(const unsigned char* input, std::size_t readable, std::size_t groups, char* output) {
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

char* Base64EncodeRest(const unsigned char* input, std::size_t count, char* output) {
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

char* Base64EncodeScalar(const unsigned char* input, std::size_t length, unsigned int groupsPerLine, char* output) {
  const unsigned char* const end = input + length;
  std::size_t groups = length / 3;
  while (groupsPerLine != 0 && groups >= groupsPerLine) {
    output = Base64EncodeGroups(input, static_cast<std::size_t>(end - input), groupsPerLine, output);
    *output++ = '\r';
    *output++ = '\n';
    input += std::size_t{groupsPerLine} * 3;
    groups -= groupsPerLine;
  }
  output = Base64EncodeGroups(input, static_cast<std::size_t>(end - input), groups, output);
  return Base64EncodeRest(input + groups * 3, length % 3, output);
}

void Base64DecodeGroup(Base64DecodeState& state) {
  while (state.position != state.end && !state.ended) {
    const std::uint8_t value = kValues[*state.position++];
    if (value < 64) {
      state.group |= PlaceValue(value, state.begun++);
      if (state.begun == 4) {
        PutBytes(state, state.group, 3);
        state.group = 0;
        state.begun = 0;
        return;
      }
    }
    state.ended = value == kBase64Pad;
    state.illegal += value == kBase64Illegal ? 1 : 0;
  }
}

void Base64DecodeScalar(Base64DecodeState& state) {
  while (state.position != state.end && !state.ended) {
    if (state.begun != 0 || !DecodeCleanLine(state)) {
      Base64DecodeGroup(state);
    }
  }
}

void Base64DecodeRest(Base64DecodeState& state) { PutBytes(state, state.group, state.begun < 2 ? 0 : state.begun - 1); }

}  // namespace qsbase::detail
