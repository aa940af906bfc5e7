#include <QSbase/codec/binhexkernel.h>

#include <algorithm>
#include <cstring>

namespace qsbase::detail {
namespace {

unsigned int ValueOf(char c) { return kBinHexValues[static_cast<unsigned char>(c)]; }

/// Takes the next digit. Returns the position behind it, or null.
const char* TakeDigit(const char* position, const char* end, unsigned int& value) {
  for (; position != end; ++position) {
    value = ValueOf(*position);
    if (value < kBinHexWhite) {
      return position + 1;
    }
    if (value != kBinHexWhite) {
      return nullptr;
    }
  }
  return nullptr;
}

void WriteGroup(unsigned int bits, unsigned char* out) {
  out[0] = static_cast<unsigned char>(bits >> 16);
  out[1] = static_cast<unsigned char>(bits >> 8);
  out[2] = static_cast<unsigned char>(bits);
}

/// The group at `position` when white space or the end cuts it.
const char* DecodeBrokenGroup(const char* position, const char* end, unsigned char* out) {
  unsigned int bits = 0;
  for (int i = 0; i < 4; ++i) {
    unsigned int value = 0;
    position = TakeDigit(position, end, value);
    if (position == nullptr) {
      return nullptr;
    }
    bits = bits << 6 | value;
  }
  WriteGroup(bits, out);
  return position;
}

}  // namespace

const char* DecodeBinHexGroup(const char* position, const char* end, unsigned char* out) {
  if (end - position < 4) {
    return DecodeBrokenGroup(position, end, out);
  }
  const unsigned int a = ValueOf(position[0]);
  const unsigned int b = ValueOf(position[1]);
  const unsigned int c = ValueOf(position[2]);
  const unsigned int d = ValueOf(position[3]);
  if (((a | b | c | d) & kBinHexWhite) != 0) {
    return DecodeBrokenGroup(position, end, out);
  }
  WriteGroup(a << 18 | b << 12 | c << 6 | d, out);
  return position + 4;
}

BinHexGroups DecodeBinHexGroups(const char* position, const char* end, unsigned char* out, unsigned char* outEnd) {
  while (outEnd - out >= 3) {
    const char* const next = DecodeBinHexGroup(position, end, out);
    if (next == nullptr) {
      break;
    }
    position = next;
    out += 3;
  }
  return {position, out};
}

void ExpandBinHexRuns(BinHexRuns& runs) {
  while (runs.out != runs.outEnd) {
    if (runs.repeatCount > 0) {
      const auto copies = std::min<std::ptrdiff_t>(runs.repeatCount, runs.outEnd - runs.out);
      std::memset(runs.out, runs.lastByte, static_cast<std::size_t>(copies));
      runs.repeatCount -= static_cast<int>(copies);
      runs.out += copies;
      continue;
    }
    const std::ptrdiff_t left = runs.readEnd - runs.read;
    if (left == 0 || (left == 1 && *runs.read == kBinHexRunMark)) {
      return;
    }
    const unsigned char value = *runs.read++;
    const unsigned char copies = value == kBinHexRunMark ? *runs.read++ : 0;
    if (copies != 0) {
      runs.repeatCount = copies - 1;  // one of them is written already
      continue;
    }
    runs.lastByte = value;  // a literal 0x90 too: a run may follow it
    *runs.out++ = value;
  }
}

}  // namespace qsbase::detail
