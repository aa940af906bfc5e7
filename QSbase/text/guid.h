/// \file
/// Globally unique identifiers of 16 bytes and their text forms.
///
/// Thread safety: Create() may be called from any thread, for one object by one thread at a time; a QsGUID may be read
/// by several threads while none changes it.
#ifndef QSBASE_TEXT_GUID_H
#define QSBASE_TEXT_GUID_H

#include <string>

#include <QSbase/export.h>

/// A GUID, valid once it was created or read. The text shows the bytes in the order of memory, upper-case, byte 0
/// first, and swaps no group on any platform: "00112233-4455-6677-8899-AABBCCDDEEFF", or the same in braces.
///
/// \code
/// QsGUID id;
/// id.Create();
/// if (id.IsValid()) {
///   Store(id.ToString());  // "{3F2504E0-4F89-41D3-9A0C-0305E82C3301}"
/// }
/// \endcode
class QSBASE_API QsGUID {
 public:
  /// Not valid, all bytes 0.
  QsGUID() noexcept;

  /// Makes a new one: 16 bytes of the kernel's random source with the version 4 in byte 6 and the variant in byte 8
  /// (RFC 4122); on Windows what CoCreateGuid puts into memory. When the system has none to give, the object is left
  /// not valid and the error "Could not create GUID" is logged. One call at a time asks the system.
  /// \throws ExPrecondition when there is no memory for that lock, the object then being not valid.
  void Create();
  /// Back to the state of a new object.
  void Clear() noexcept;

  /// The text in braces, 38 characters. \throws ExBase "Uninitialized GUID" when not valid.
  std::string ToString() const;
  /// The text without braces, 36 characters. Throws as ToString() does.
  std::string ToStringNoBraces() const;

  /// Reads the form in braces, digits of either case, with white space (class 0x20 of QsChar) around it or not. At the
  /// places of the four "-" any hex digit is accepted, too, and ignored. Anything else clears the object.
  /// \throws ExBase "QsGUID::FromString: Given value is no UUID: '", the text as it was given, and "'".
  void FromString(const std::string& text);
  /// The same for the form without braces.
  /// \throws ExBase "QsGUID::FromStringNoBraces: Given value is no UUID: '", the text as it was given, and "'".
  void FromStringNoBraces(const std::string& text);
  /// Whether FromString(), or FromStringNoBraces(), takes the text.
  static bool IsValidGUID(const std::string& text, bool withBraces);

  /// The 16 bytes, as long as the object lives.
  const unsigned char* GetData() const noexcept;
  /// 16.
  unsigned int GetDataSize() const noexcept;
  bool IsValid() const noexcept;
  /// True when it is valid and all bytes are 0. A new object is not valid.
  bool IsNULLGuid() const noexcept;

  /// True when both are valid or both are not, and the bytes are equal.
  bool operator==(const QsGUID& other) const noexcept;
  /// By the bytes as unsigned numbers, the first that differs. A valid one and one that is not have no order: neither
  /// is less. Both in one std::set or as keys of one std::map make that undefined: keep those out that are not valid.
  bool operator<(const QsGUID& other) const noexcept;

 private:
  unsigned char _data[16];
  bool _valid;
};

#endif
