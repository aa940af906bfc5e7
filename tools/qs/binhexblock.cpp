#include "binhexblock.h"

#include <QSbase/codec/binhex.h>
#include <QSbase/codec/encodedecode.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "coderflags.h"
#include "coderoutput.h"
#include "decodestatus.h"

namespace qs {
namespace {

// Gives the protected steps of the decoder, which leave the data's CRC to whoever wants it.
class BinHexReader : public CBinHexDecoder {
 public:
  // True when the CRC behind the data fork fits it.
  bool DataCrcFits(std::string_view text) {
    char* none = nullptr;
    unsigned int noLength = 0;
    if (Decode(text.data(), CoderLength(text), &none, noLength, kFlagBinHexHeaderOnly) != 0) {
      return false;
    }
    std::uint16_t crc = 0;
    std::array<unsigned char, 4096> block{};
    for (std::uint32_t left = GetDataSize(); left > 0;) {
      const std::uint32_t count = std::min<std::uint32_t>(left, block.size());
      if (DecodeData(block.data(), static_cast<int>(count)) != 0) {
        return false;
      }
      crc = UpdateCrc(crc, block.data(), count);
      left -= count;
    }
    unsigned int written = 0;
    return DecodeInteger(written, 2) == 0 && written == crc;
  }

 private:
  // CRC-16 with the polynomial 0x1021, as BinHex 4.0 has it.
  static std::uint16_t UpdateCrc(std::uint16_t crc, const unsigned char* data, std::uint32_t length) {
    for (std::uint32_t i = 0; i < length; ++i) {
      crc = static_cast<std::uint16_t>(crc ^ (data[i] << 8));
      for (int bit = 0; bit < 8; ++bit) {
        crc = static_cast<std::uint16_t>((crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1);
      }
    }
    return crc;
  }
};

}  // namespace

Attachment DecodeBinHex(std::string_view text) {
  Attachment result;
  result.encoding = Encoding::BinHex;
  if (!FitsCoder(text, result)) {
    return result;
  }
  BinHexReader reader;
  CoderOutput output;
  const int status =
      CEncodeDecode::DecodeBinHex(text.data(), CoderLength(text), &output.data, output.length, 0, &reader);
  result.name = reader.GetFilename();
  if (status != 0) {
    Report(result, StatusText(status));
    return result;
  }
  result.data = output.View();
  if (!reader.DataCrcFits(text)) {
    Report(result, "CRC-16 mismatch");
  }
  return result;
}

}  // namespace qs
