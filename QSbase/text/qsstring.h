/// \file
/// String utilities: trimming, case, formatting, searching, splitting, hex, numbers, names and sizes.
#ifndef QSBASE_TEXT_QSSTRING_H
#define QSBASE_TEXT_QSSTRING_H

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include <QSbase/export.h>

class QSBASE_API QsString {
 public:
  static std::string Trim(const std::string& text, unsigned int mask);
  static std::string TrimLeft(const std::string& text, unsigned int mask);
  static std::string TrimRight(const std::string& text, unsigned int mask);
  static void TrimChar_Inplace(std::string& text, char c);

  static void ToLower_Inplace(char* text);
  static void ToLower_Inplace(char* text, unsigned int length);
  static void ToLower_Inplace(std::string& text);
  static void ToUpper_Inplace(char* text);
  static void ToUpper_Inplace(char* text, unsigned int length);
  static void ToUpper_Inplace(std::string& text);
  static std::string ToLower(const std::string& text);
  static std::string ToUpper(const std::string& text);
  static void ToLowerControlToSpace_Inplace(std::string& text);

  static std::string StripCharacters(const std::string& text, unsigned int mask);
};

QSBASE_API int Qs_snprintf(char* buffer, unsigned int size, const char* format, ...) QSBASE_PRINTF(3, 4);
QSBASE_API int Qs_vsnprintf(char* buffer, unsigned int size, const char* format, std::va_list arguments)
    QSBASE_PRINTF(3, 0);
QSBASE_API std::string strprintf(const char* format, ...) QSBASE_PRINTF(1, 2);
QSBASE_API std::string AlignText(const std::string& text, unsigned int width, bool padRight, char fill);

QSBASE_API const char* stristr(const char* haystack, const char* needle);
QSBASE_API bool QsStringFind(const std::string& text, const std::string& what, bool caseSensitive);

QSBASE_API unsigned int SplitString(const std::string& text, const std::string& separator,
                                    std::vector<std::string>& parts, bool keepEmpty);
QSBASE_API void SeparateString(const std::string& text, char separator, std::string& before, std::string& after);
QSBASE_API int QsReplaceStringInPlace(std::string& text, const std::string& what, const std::string& with,
                                      bool caseSensitive);
QSBASE_API std::string QsReplaceString(const std::string& text, const std::string& what, const std::string& with,
                                       bool caseSensitive);
QSBASE_API void QsReplaceCharInPlace(std::string& text, char from, char to);
QSBASE_API std::string QsReplaceChar(const std::string& text, char from, char to);
QSBASE_API void ReplaceCRLFHT(std::string& text);
QSBASE_API void ReplaceCRLFHT(unsigned char* text, int length);
QSBASE_API void QsConditionalAppendChar(std::string& text, char c);

QSBASE_API void ByteToHex(unsigned char byte, unsigned char* out);
QSBASE_API void ByteStringToHexString(const unsigned char* bytes, unsigned int length, unsigned char* out);
QSBASE_API std::string Byte2Hex(unsigned char byte);
QSBASE_API std::string Bytes2Hex(const unsigned char* bytes, int length, bool spaced);
QSBASE_API std::string Bytes2Hex(unsigned int value, bool spaced);
QSBASE_API unsigned char HexToByte(const unsigned char* pair);
QSBASE_API void HexStringToByteString(const unsigned char* hex, unsigned int length, unsigned char* out);
QSBASE_API std::string String2Hex(const std::string& bytes);
QSBASE_API std::string Hex2String(const std::string& hex);

QSBASE_API int AsciiToInt(const char* text);
QSBASE_API std::int64_t AsciiToInt64(const char* text);
QSBASE_API double AsciiToDouble(const char* text);

QSBASE_API std::string MakeSymbolicName(const std::string& name);
QSBASE_API std::string SymbolicNameToString(const std::string& name);
QSBASE_API std::string MemoryString(std::int64_t bytes);

#endif
