#include "codedtext.h"

#include <utility>

#include "coderoutput.h"

namespace qs {
namespace {

constexpr int kSourceBuffer = 0;

}  // namespace

CodedText CodedText::Part(std::string_view part) const {
  CodedText result(part);
  result._owner = _owner;
  return result;
}

int CodedText::Decode(CEncodeDecode& coder, int flags, std::string& data, CYEncData* header) const {
  return _owner == nullptr ? DecodeToBuffer(coder, flags, data, header) : DecodeInPlace(coder, flags, data, header);
}

int CodedText::DecodeInPlace(CEncodeDecode& coder, int flags, std::string& data, CYEncData* header) const {
  const auto offset = static_cast<std::size_t>(_text.data() - _owner->data());
  char* const place = _owner->data() + offset;
  unsigned int length = 0;
  const int status = header == nullptr ? coder.DecodeInline(place, Length(), length, flags)
                                       : CEncodeDecode::DecodeYEncInline(place, Length(), length, flags, header);
  if (status == 0) {
    _owner->resize(offset + length);
    _owner->erase(0, offset);
    data = std::move(*_owner);
  }
  return status;
}

int CodedText::DecodeToBuffer(CEncodeDecode& coder, int flags, std::string& data, CYEncData* header) const {
  CoderOutput output;
  const int status =
      header == nullptr ? coder.Decode(_text.data(), kSourceBuffer, Length(), &output.data, output.length, flags)
                        : CEncodeDecode::DecodeYEnc(_text.data(), Length(), &output.data, output.length, flags, header);
  if (status == 0) {
    data = output.View();
  }
  return status;
}

}  // namespace qs
