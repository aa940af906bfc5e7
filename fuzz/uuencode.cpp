#include <QSbase/codec/encodedecode.h>
#include <differential/agreement.h>

#include "coder.h"
#include "target.h"

using namespace qsbase;

namespace {

constexpr int kXx = 0x8;
constexpr int kDetect = 0x10;
constexpr int kSkipHeader = 0x100;

void DemandRoundTrip(const std::string& original, int flags) {
  std::string text;
  std::string decoded;
  CEncodeDecode coder(75, 76);
  coder.EncodeUUE(original, text, flags);
  coder.DecodeUUE(text, decoded, flags);
  fuzz::DemandEqual(original, decoded, "UU or XX");
}

void DemandBounds(std::string_view text, int flags, int kind) {
  CEncodeDecode coder(75, 76);
  fuzz::DemandCoderBounds("EncodeUUE", text, [&](const char* in, unsigned int length, char** out, unsigned int& size) {
    coder.EncodeUUE(in, length, out, size, kind | fuzz::kArrayBuffers);
  });
  fuzz::DemandCoderBounds("DecodeUUE", text, [&](const char* in, unsigned int length, char** out, unsigned int& size) {
    coder.DecodeUUE(in, length, out, size, flags | fuzz::kArrayBuffers);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t alignment = input.Parameter();
  const unsigned int bits = input.Parameter();
  const int kind = (bits & 1) != 0 ? kXx : 0;
  const int flags = kind | ((bits & 2) != 0 ? kDetect : 0) | ((bits & 4) != 0 ? kSkipHeader : 0);
  fuzz::Demand(differential::CompareUuDecode(input.Rest(), flags, alignment));
  fuzz::Demand(differential::CompareUuEncode(input.Rest(), kind, alignment));
  DemandRoundTrip(std::string(input.Rest()), kind);
  DemandBounds(input.Rest(), flags, kind);
  return 0;
}
