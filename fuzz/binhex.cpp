#include <differential/agreement.h>
#include <reference/binhex.h>

#include "coder.h"
#include "target.h"

using namespace qsbase;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t alignment = input.Parameter();
  const unsigned int bits = input.Parameter();
  const bool headerOnly = bits % 8 == 1;
  fuzz::Demand(differential::CompareBinHexDecode(input.Rest(), headerOnly, alignment));

  // As a stream of bytes, which mutations do not make invalid so soon.
  fuzz::Demand(differential::CompareBinHexDecode(reference::BinHexText(input.Rest(), 64), headerOnly, alignment));

  // And as the data of a file.
  reference::BinHexFile file;
  file.name = "name";
  file.data = input.Rest();
  const std::string stream = reference::BinHexRuns(reference::BinHexStream(file, ""), 1 + bits % 4);
  const std::string text = reference::BinHexText(stream, bits);
  fuzz::DemandEqual(file.data, reference::BinHexDecode(text, false).data, "BinHex");
  fuzz::Demand(differential::CompareBinHexDecode(text, false, alignment));
  const auto decode = [headerOnly](const char* in, unsigned int length, char** out, unsigned int& outLength) {
    const int flags = fuzz::kArrayBuffers | (headerOnly ? 0x20000 : 0);
    CEncodeDecode::DecodeBinHex(in, length, out, outLength, flags, nullptr);
  };
  fuzz::DemandCoderBounds("DecodeBinHex", input.Rest(), decode);
  fuzz::DemandCoderBounds("DecodeBinHex", text, decode);
  return 0;
}
