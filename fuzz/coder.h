/// \file
/// The bounds of a coder's buffer form.
#ifndef QSBASE_FUZZ_CODER_H
#define QSBASE_FUZZ_CODER_H

#include <QSbase/codec/encodedecode.h>

#include <string_view>

#include "bounds.h"

namespace qsbase::fuzz {

/// Array new: the C heap is not counted in every build.
constexpr int kArrayBuffers = 0x10000000;

/// \param code  called with input, length, output and its length, as the coders take them
template <class Code>
void DemandCoderBounds(const char* what, std::string_view text, Code code) {
  DemandBounds(what, text, [&code](const std::string& input) {
    char* output = nullptr;
    unsigned int length = 0;
    code(input.data(), static_cast<unsigned int>(input.size()), &output, length);
    CEncodeDecode::FreeBuffer(output, kArrayBuffers);
    return std::size_t{length};
  });
}

}  // namespace qsbase::fuzz

#endif
