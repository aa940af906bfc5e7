/// \file
/// Character classes and case maps of the Windows-1252 code page, one byte at a time and independent of the C locale.
///
/// Every byte has a mask of class bits, which the trimming and stripping functions of QsString take too:
/// - 0x1 alpha: A-Z, a-z, 131, 138, 140, 142, 154, 156, 158, 159, 170, 181, 186, 192-214, 216-246, 248-255
/// - 0x2 numeric: 0-9
/// - 0x4 ASCII: 0-127
/// - 0x8 lower: a-z, 131, 154, 156, 158, 170, 181, 186, 223-246, 248-255
/// - 0x10 upper: A-Z, 138, 140, 142, 159, 192-214, 216-222
/// - 0x20 white space: TAB, LF, VT, FF, CR, blank
/// - 0x40 control: 0-31, 127
/// - 0x80 word delimiter: TAB, LF, CR, blank and ! " + , - . / : ; < = > ? @ and the backslash
/// - 0x100 sentence delimiter: TAB and ! . : ; ?
/// - 0x200 hex digit: 0-9, A-F, a-f
/// - 0x400 symbol: 0-9, A-Z, a-z and the underscore
/// - 0x800 punctuation: ! , . : ; ? and 161, 191
/// - 0x1000 invalid file character: 0-31 and " * / : < > ? and the backslash and the vertical bar
///
/// No other bit is used. Bytes 128-255 have no class but those listed.
///
/// Thread safety: QsChar reads constant tables and is safe from any thread. A QsCharMod may be read by several threads
/// while none changes it.
#ifndef QSBASE_TEXT_QSCHAR_H
#define QSBASE_TEXT_QSCHAR_H

#include <QSbase/export.h>

/// Classifies a byte by the fixed table and maps its case.
class QSBASE_API QsChar {
 public:
  /// A letter of Windows-1252 (0x1).
  static bool IsAlpha(unsigned char c);
  /// 0-9 (0x2).
  static bool IsNumeric(unsigned char c);
  /// A letter or digit (0x1 or 0x2).
  static bool IsAlphaNumeric(unsigned char c);
  /// 0-127 (0x4).
  static bool IsAscii(unsigned char c);
  /// A-Z, a-z (0x4 and 0x1).
  static bool IsAsciiAlpha(unsigned char c);
  /// A-Z, a-z, 0-9 (0x4 and one of 0x1, 0x2).
  static bool IsAsciiAlphaNumeric(unsigned char c);
  /// A lower-case letter (0x8), also one without an upper-case partner such as 223.
  static bool IsLower(unsigned char c);
  /// An upper-case letter (0x10).
  static bool IsUpper(unsigned char c);
  /// TAB, LF, VT, FF, CR or blank (0x20).
  static bool IsWhiteSpace(unsigned char c);
  /// 0-31 or 127 (0x40).
  static bool IsControl(unsigned char c);
  /// Ends a word (0x80); the underscore, the apostrophe, brackets and parentheses do not.
  static bool IsWordDelimiter(unsigned char c);
  /// Ends a sentence (0x100); TAB does too.
  static bool IsSentenceDelimiter(unsigned char c);
  /// 0-9, A-F, a-f (0x200).
  static bool IsHexDigit(unsigned char c);
  /// A character of an identifier (0x400): 0-9, A-Z, a-z, underscore.
  static bool IsSymbol(unsigned char c);
  /// A punctuation mark (0x800).
  static bool IsPunctuation(unsigned char c);
  /// Not allowed in a file name (0x1000); the blank and 127 are allowed.
  static bool IsInvalidFileChar(unsigned char c);

  /// The whole class mask of a byte.
  static unsigned int GetMask(unsigned char c);

  /// The lower-case partner of A-Z, 138, 140, 142, 159, 192-214 and 216-222; every other byte is returned as it is.
  static unsigned char ToLower(unsigned char c);
  /// The exact inverse of ToLower for these 60 pairs. 131, 170, 181, 186 and 223 have no partner and stay.
  static unsigned char ToUpper(unsigned char c);
  /// ToLower in place.
  static void ToLower_Inplace(unsigned char& c);
  /// ToUpper in place.
  static void ToUpper_Inplace(unsigned char& c);
};

/// A copy of the class table of its own, whose entries can be changed.
///
/// \code
/// QsCharMod letters;
/// letters.SetFlag("_", 1, 0x1);
/// letters.IsAlpha('_');  // true; QsChar::IsAlpha('_') stays false
/// \endcode
class QSBASE_API QsCharMod {
 public:
  /// Starts as the fixed table, unmodified.
  QsCharMod();

  /// The predicates test this object's table, each for the bits that its namesake in QsChar tests.
  bool IsAlpha(unsigned char c) const;
  /// See QsChar::IsNumeric.
  bool IsNumeric(unsigned char c) const;
  /// See QsChar::IsAlphaNumeric.
  bool IsAlphaNumeric(unsigned char c) const;
  /// See QsChar::IsAscii.
  bool IsAscii(unsigned char c) const;
  /// See QsChar::IsAsciiAlpha.
  bool IsAsciiAlpha(unsigned char c) const;
  /// See QsChar::IsAsciiAlphaNumeric.
  bool IsAsciiAlphaNumeric(unsigned char c) const;
  /// See QsChar::IsLower.
  bool IsLower(unsigned char c) const;
  /// See QsChar::IsUpper.
  bool IsUpper(unsigned char c) const;
  /// See QsChar::IsWhiteSpace.
  bool IsWhiteSpace(unsigned char c) const;
  /// See QsChar::IsControl.
  bool IsControl(unsigned char c) const;
  /// See QsChar::IsWordDelimiter.
  bool IsWordDelimiter(unsigned char c) const;
  /// See QsChar::IsSentenceDelimiter.
  bool IsSentenceDelimiter(unsigned char c) const;
  /// See QsChar::IsHexDigit.
  bool IsHexDigit(unsigned char c) const;
  /// See QsChar::IsSymbol.
  bool IsSymbol(unsigned char c) const;
  /// See QsChar::IsPunctuation.
  bool IsPunctuation(unsigned char c) const;
  /// See QsChar::IsInvalidFileChar.
  bool IsInvalidFileChar(unsigned char c) const;

  /// Adds class bits to the entries from `first` to `last` inclusive; none when `first` is greater than `last`.
  /// The entries are counted in 8 bits: 0 to 255 in one call counts as none. Split it, say into 0-127 and 128-255.
  /// A literal 0 as `first` is a null pointer too; write it as `'\0'`.
  void SetFlag(unsigned char first, unsigned char last, unsigned int flags);
  /// Adds class bits to the entries of the first `count` bytes of `chars`. Returns 0, or -1 for a null pointer.
  int SetFlag(const char* chars, unsigned char count, unsigned int flags);
  /// Takes class bits away; the range as in SetFlag.
  void RemoveFlag(unsigned char first, unsigned char last, unsigned int flags);
  /// Takes class bits away; list and result as in SetFlag.
  int RemoveFlag(const char* chars, unsigned char count, unsigned int flags);

  /// True once a SetFlag or RemoveFlag has touched at least one entry, even if that left it as it was.
  bool IsModified() const;

 private:
  unsigned int _masks[256];
  bool _modified;
};

#endif
