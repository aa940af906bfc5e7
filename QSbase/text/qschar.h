/// \file
/// Character classes and case maps of the Windows-1252 code page.
#ifndef QSBASE_TEXT_QSCHAR_H
#define QSBASE_TEXT_QSCHAR_H

#include <QSbase/export.h>

class QSBASE_API QsChar {
 public:
  static bool IsAlpha(unsigned char c);
  static bool IsNumeric(unsigned char c);
  static bool IsAlphaNumeric(unsigned char c);
  static bool IsAscii(unsigned char c);
  static bool IsAsciiAlpha(unsigned char c);
  static bool IsAsciiAlphaNumeric(unsigned char c);
  static bool IsLower(unsigned char c);
  static bool IsUpper(unsigned char c);
  static bool IsWhiteSpace(unsigned char c);
  static bool IsControl(unsigned char c);
  static bool IsWordDelimiter(unsigned char c);
  static bool IsSentenceDelimiter(unsigned char c);
  static bool IsHexDigit(unsigned char c);
  static bool IsSymbol(unsigned char c);
  static bool IsPunctuation(unsigned char c);
  static bool IsInvalidFileChar(unsigned char c);

  /// The whole class mask of a byte.
  static unsigned int GetMask(unsigned char c);

  static unsigned char ToLower(unsigned char c);
  static unsigned char ToUpper(unsigned char c);
  static void ToLower_Inplace(unsigned char& c);
  static void ToUpper_Inplace(unsigned char& c);
};

class QSBASE_API QsCharMod {
 public:
  QsCharMod();

  bool IsAlpha(unsigned char c) const;
  bool IsNumeric(unsigned char c) const;
  bool IsAlphaNumeric(unsigned char c) const;
  bool IsAscii(unsigned char c) const;
  bool IsAsciiAlpha(unsigned char c) const;
  bool IsAsciiAlphaNumeric(unsigned char c) const;
  bool IsLower(unsigned char c) const;
  bool IsUpper(unsigned char c) const;
  bool IsWhiteSpace(unsigned char c) const;
  bool IsControl(unsigned char c) const;
  bool IsWordDelimiter(unsigned char c) const;
  bool IsSentenceDelimiter(unsigned char c) const;
  bool IsHexDigit(unsigned char c) const;
  bool IsSymbol(unsigned char c) const;
  bool IsPunctuation(unsigned char c) const;
  bool IsInvalidFileChar(unsigned char c) const;

  void SetFlag(unsigned char first, unsigned char last, unsigned int flags);
  int SetFlag(const char* chars, unsigned char count, unsigned int flags);
  void RemoveFlag(unsigned char first, unsigned char last, unsigned int flags);
  int RemoveFlag(const char* chars, unsigned char count, unsigned int flags);

  bool IsModified() const;

 private:
  unsigned int _masks[256];
  bool _modified;
};

#endif
