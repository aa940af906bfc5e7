/// \file
/// The buffer that a coder of the library gives.
#ifndef QS_CODEROUTPUT_H
#define QS_CODEROUTPUT_H

#include <QSbase/codec/encodedecode.h>

#include <string_view>

namespace qs {

/// A coder's output buffer, released as a coder without flags for its buffer asks for. One thread uses an object.
struct CoderOutput {
  CoderOutput() = default;
  CoderOutput(const CoderOutput&) = delete;
  CoderOutput& operator=(const CoderOutput&) = delete;
  ~CoderOutput() { CEncodeDecode::FreeBuffer(data, 0); }

  std::string_view View() const { return {data == nullptr ? "" : data, length}; }

  char* data = nullptr;
  unsigned int length = 0;
};

}  // namespace qs

#endif
