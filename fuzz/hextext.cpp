#include <QSbase/codec/encodedecode.h>
#include <QSbase/text/qsstring.h>
#include <differential/agreement.h>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

void DemandBounds(std::string_view text, char escape, unsigned int mask) {
  fuzz::DemandBounds("String2Hex", text, [](const std::string& in) { return String2Hex(in).size(); });
  fuzz::DemandBounds("UnescapeHexString", text, [escape](const std::string& in) {
    std::string out(in);
    CEncodeDecode::UnescapeHexString(out, static_cast<unsigned char>(escape));
    return out.size();
  });
  fuzz::DemandBounds("StripCharacters", text,
                     [mask](const std::string& in) { return QsString::StripCharacters(in, mask).size(); });
  fuzz::DemandBounds("ToLower", text, [](const std::string& in) { return QsString::ToLower(in).size(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t alignment = input.Parameter();
  const auto escape = static_cast<char>(input.Parameter());
  const unsigned int mask = input.Parameter() * 33;  // bits from all over the mask
  fuzz::Demand(differential::CompareHexDecode(input.Rest(), alignment));
  fuzz::Demand(differential::CompareHexEncode(input.Rest(), alignment));
  fuzz::Demand(differential::CompareUnescapeHex(input.Rest(), escape));
  fuzz::Demand(differential::CompareCase(input.Rest(), alignment));
  fuzz::Demand(differential::CompareClasses(input.Rest(), mask));
  fuzz::Demand(differential::CompareSkips(input.Rest(), alignment));
  fuzz::DemandEqual(input.Rest(), Hex2String(String2Hex(std::string(input.Rest()))), "hex text");
  DemandBounds(input.Rest(), escape, mask);
  return 0;
}
