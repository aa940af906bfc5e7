#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/simd/level.h>
#include <QSbase/text/qsstring.h>

#include <cstring>

#include "coders.h"

namespace qsbase::benchmarks {
namespace {

using detail::SimdLevel;
using Run = void (*)(std::string_view, Output&);

unsigned int Length(std::string_view text) { return static_cast<unsigned int>(text.size()); }

void TakeBuffer(Output& output, char* buffer, unsigned int length) {
  output.Take(buffer, length, [](char* data) { CEncodeDecode::FreeBuffer(data, 0); });
}

template <int Flags>
void Encode(std::string_view input, Output& output) {
  CEncodeDecode coder(75, 76);
  char* buffer = nullptr;
  unsigned int length = 0;
  coder.Encode(input.data(), 0, Length(input), &buffer, length, Flags);
  TakeBuffer(output, buffer, length);
}

template <int Flags>
void Decode(std::string_view input, Output& output) {
  CEncodeDecode coder(75, 76);
  char* buffer = nullptr;
  unsigned int length = 0;
  coder.Decode(input.data(), 0, Length(input), &buffer, length, Flags);
  TakeBuffer(output, buffer, length);
}

void EncodeInOneLine(std::string_view input, Output& output) {
  CEncodeDecode coder(75, 0xFFFFFFFC);
  char* buffer = nullptr;
  unsigned int length = 0;
  coder.EncodeBase64(input.data(), Length(input), &buffer, length, 0);
  TakeBuffer(output, buffer, length);
}

void ToHex(std::string_view input, Output& output) {
  ByteStringToHexString(Bytes(input), Length(input), output.Bytes());
  output.SetLength(input.size() * 2);
}

/// The text has its terminating zero: it is a std::string's.
void FromHex(std::string_view input, Output& output) {
  HexStringToByteString(Bytes(input), Length(input), output.Bytes());
  output.SetLength(input.size() / 2);
}

void ToLower(std::string_view input, Output& output) {
  PrepareInPlace(input, output);
  QsString::ToLower_Inplace(output.Room(), Length(input));
}

void Md5(std::string_view input, Output& output) {
  QsCalcMD5(input.data(), Length(input), output.Bytes());
  output.SetLength(16);
}

void Crc32(std::string_view input, Output& output) {
  const std::uint32_t crc = QsCalcCRC32(input.data(), Length(input));
  std::memcpy(output.Room(), &crc, sizeof crc);
  output.SetLength(sizeof crc);
}

struct Call {
  const char* job;
  Run run;
};

constexpr Call kCalls[] = {
    {"base64-encode", &Encode<0x1>},
    {"base64-decode", &Decode<0x1>},
    {"base64-encode-unbroken", &EncodeInOneLine},
    {"base64-decode-unbroken", &Decode<0x1>},
    {"yenc-encode", &Encode<0x800>},
    {"yenc-decode", &Decode<0x800>},
    {"uu-encode", &Encode<0x4>},
    {"uu-decode", &Decode<0x4>},
    {"xx-encode", &Encode<0xC>},
    {"xx-decode", &Decode<0xC>},
    {"qp-encode-text", &Encode<0x202>},
    {"qp-decode-text", &Decode<0x202>},
    {"qp-encode-random", &Encode<0x2>},
    {"qp-decode-random", &Decode<0x2>},
    {"binhex-decode", &Decode<0x10000>},
    {"hex-encode", &ToHex},
    {"hex-decode", &FromHex},
    {"lower-case", &ToLower},
    {"md5", &Md5},
    {"crc32", &Crc32},
};

}  // namespace

void AddInterface(std::vector<Contestant>& all) {
  for (const Call& call : kCalls) {
    for (int level = 0; level <= static_cast<int>(detail::HighestSimdLevel()); ++level) {
      all.push_back({call.job, std::string("interface ") + kLevelNames[level], Agreement::kEqual,
                     [run = call.run, level](std::string_view input, Output& output) {
                       detail::UseSimdLevel(static_cast<SimdLevel>(level));
                       run(input, output);
                     }});
    }
  }
}

}  // namespace qsbase::benchmarks
