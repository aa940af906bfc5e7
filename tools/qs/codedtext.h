/// \file
/// A coded text on its way through a coder. One thread uses an object.
#ifndef QS_CODEDTEXT_H
#define QS_CODEDTEXT_H

#include <QSbase/codec/encodedecode.h>

#include <string>
#include <string_view>

namespace qs {

/// A text, and perhaps the string that it stands in. That string is decoded in its place and becomes the data: it takes
/// no further memory and no copy, and costs the text.
class CodedText {
 public:
  /// The text stays as it is.
  CodedText(std::string_view text) : _text(text) {}
  /// The text is `owner`, which decoding uses up.
  explicit CodedText(std::string& owner) : _text(owner), _owner(&owner) {}

  std::string_view View() const { return _text; }
  bool MayBeUsedUp() const { return _owner != nullptr; }
  /// The same with a part of the text.
  CodedText Part(std::string_view part) const;

  /// Decodes by the coder that the flags select; with a header, as yEnc. \returns the coder's status.
  /// \param data where it was 0: the result.
  int Decode(CEncodeDecode& coder, int flags, std::string& data, CYEncData* header = nullptr) const;

 private:
  int DecodeInPlace(CEncodeDecode& coder, int flags, std::string& data, CYEncData* header) const;
  int DecodeToBuffer(CEncodeDecode& coder, int flags, std::string& data, CYEncData* header) const;
  unsigned int Length() const { return static_cast<unsigned int>(_text.size()); }

  std::string_view _text;
  std::string* _owner = nullptr;
};

}  // namespace qs

#endif
