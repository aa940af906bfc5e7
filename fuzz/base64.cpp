#include <QSbase/codec/encodedecode.h>
#include <differential/agreement.h>

#include "coder.h"
#include "target.h"

using namespace qsbase;

namespace {

void DemandBounds(std::string_view text, unsigned int lineLength) {
  CEncodeDecode coder(75, lineLength);
  fuzz::DemandCoderBounds("EncodeBase64", text,
                          [&](const char* in, unsigned int length, char** out, unsigned int& size) {
                            coder.EncodeBase64(in, length, out, size, fuzz::kArrayBuffers);
                          });
  fuzz::DemandCoderBounds("DecodeBase64", text,
                          [&](const char* in, unsigned int length, char** out, unsigned int& size) {
                            coder.DecodeBase64(in, length, out, size, fuzz::kArrayBuffers);
                          });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t alignment = input.Parameter();
  const unsigned int lineLength = input.Parameter();
  fuzz::Demand(differential::CompareBase64Decode(input.Rest(), alignment));
  fuzz::Demand(differential::CompareBase64Encode(input.Rest(), lineLength, alignment));

  const std::string original(input.Rest());
  std::string text;
  std::string decoded;
  CEncodeDecode coder(75, lineLength);
  coder.EncodeBase64(original, text, 0);
  coder.DecodeBase64(text, decoded, 0);
  fuzz::DemandEqual(original, decoded, "Base64");
  DemandBounds(input.Rest(), lineLength);
  return 0;
}
