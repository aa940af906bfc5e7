/// \file
/// The yEnc coder of npm's package "yencode", which the build compiles on its own when it finds the sources.
#ifndef QSBASE_BENCHMARKS_CODERS_YENCODE_H
#define QSBASE_BENCHMARKS_CODERS_YENCODE_H

#include <cstddef>

namespace qsbase::benchmarks {

std::size_t YencodeEncode128(const unsigned char* input, std::size_t length, unsigned char* output);
std::size_t YencodeDecode(const unsigned char* input, std::size_t length, unsigned char* output);

}  // namespace qsbase::benchmarks

#endif
