#include <QSbase/codec/encodedecode.h>
#include <differential/agreement.h>

#include "coder.h"
#include "target.h"

using namespace qsbase;

namespace {

constexpr int kHardBreaks = 0x200;

int FlagsOf(unsigned int bits) {
  return static_cast<int>((bits & 1) * 0x20 | (bits >> 1 & 1) * 0x40 | (bits >> 2 & 1) * 0x200 |
                          (bits >> 3 & 1) * 0x400);
}

/// A text comes back, but for line breaks that are written as CR LF. The "x" behind it is for an encoded byte at its
/// end, which the decoder leaves when nothing follows.
void DemandRoundTrip(const std::string& original, unsigned int lineLength, int flags) {
  if ((flags & kHardBreaks) != 0) {
    return;
  }
  std::string text;
  std::string decoded;
  CEncodeDecode coder(lineLength, 76);
  coder.EncodeQP(original + "x", text, flags);
  coder.DecodeQP(text, decoded, 0);
  fuzz::DemandEqual(original + "x", decoded, "quoted-printable");
}

void DemandBounds(std::string_view text, unsigned int lineLength, int flags) {
  CEncodeDecode coder(lineLength, 76);
  fuzz::DemandCoderBounds("EncodeQP", text, [&](const char* in, unsigned int length, char** out, unsigned int& size) {
    coder.EncodeQP(in, length, out, size, flags | fuzz::kArrayBuffers);
  });
  fuzz::DemandCoderBounds("DecodeQP", text, [&](const char* in, unsigned int length, char** out, unsigned int& size) {
    coder.DecodeQP(in, length, out, size, fuzz::kArrayBuffers);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t alignment = input.Parameter();
  const unsigned int lineLength = input.Parameter();
  const unsigned int bits = input.Parameter();
  const int flags = FlagsOf(bits);
  const unsigned int room = input.Parameter() * (1 + bits / 16);
  fuzz::Demand(differential::CompareQpDecode(input.Rest(), alignment));
  fuzz::Demand(differential::CompareQpEncode(input.Rest(), lineLength, flags, alignment));
  fuzz::Demand(
      differential::CompareQpFitting(input.Rest(), lineLength, room, flags | (room % 2 == 0 ? 0 : 0x80), alignment));
  DemandRoundTrip(std::string(input.Rest()), lineLength, flags);
  DemandBounds(input.Rest(), lineLength, flags);
  return 0;
}
