#include "yencode.h"

#include <decoder.h>
#include <encoder.h>

namespace qsbase::benchmarks {
namespace {

const bool isReady = (RapidYenc::encoder_init(), RapidYenc::decoder_init(), true);

}  // namespace

std::size_t YencodeEncode128(const unsigned char* input, std::size_t length, unsigned char* output) {
  int column = 0;
  return isReady ? RapidYenc::encode(128, &column, input, output, length, 1) : 0;
}

std::size_t YencodeDecode(const unsigned char* input, std::size_t length, unsigned char* output) {
  RapidYenc::YencDecoderState state = RapidYenc::YDEC_STATE_NONE;
  return isReady ? RapidYenc::decode(0, input, output, length, &state) : 0;
}

}  // namespace qsbase::benchmarks
