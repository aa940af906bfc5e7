#include <QSbase/codec/encodedecode.h>
#include <differential/agreement.h>

#include "coder.h"
#include "target.h"

using namespace qsbase;

namespace {

constexpr int kHeader = 0x1000;
constexpr int kFind = 0x2000;
constexpr int kPlain = 0x4000;

void DemandRoundTrip(const std::string& original, const reference::YEncFields& fields, int flags) {
  CYEncData header;
  header.lineLength = fields.line;
  header.part = fields.part;
  std::string text;
  std::string decoded;
  CEncodeDecode::EncodeYEnc(original, text, header, flags);
  CEncodeDecode::DecodeYEnc(text, decoded, (flags & kHeader) != 0 ? kFind : 0, &header);
  fuzz::DemandEqual(original, decoded, "yEnc");
  fuzz::Demand(header.CompareCRC() ? "" : "the CRC of yEnc does not agree");
}

void DemandBounds(std::string_view text, const reference::YEncFields& fields, int flags) {
  CYEncData header;
  header.lineLength = fields.line;
  header.part = fields.part;
  fuzz::DemandCoderBounds("EncodeYEnc", text, [&](const char* in, unsigned int length, char** out, unsigned int& size) {
    CEncodeDecode::EncodeYEnc(in, length, out, size, header, flags | fuzz::kArrayBuffers);
  });
  for (const int find : {0, kFind}) {
    fuzz::DemandCoderBounds("DecodeYEnc", text,
                            [&](const char* in, unsigned int length, char** out, unsigned int& size) {
                              CEncodeDecode::DecodeYEnc(in, length, out, size, find | fuzz::kArrayBuffers, &header);
                            });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t alignment = input.Parameter();
  reference::YEncFields fields;
  fields.line = input.Parameter() + 1;
  const unsigned int bits = input.Parameter();
  fields.part = static_cast<std::int32_t>(bits / 16) - 1;
  const int flags = ((bits & 1) != 0 ? kHeader : 0) | ((bits & 2) != 0 ? kPlain : 0);
  fuzz::Demand(differential::CompareYEncDecode(input.Rest(), alignment));
  fuzz::Demand(differential::CompareYEncBlock(input.Rest(), alignment));
  fuzz::Demand(differential::CompareYEncEncode(input.Rest(), fields, flags, alignment));
  DemandRoundTrip(std::string(input.Rest()), fields, flags);
  DemandBounds(input.Rest(), fields, flags);
  return 0;
}
