/// \file
/// String utilities: trimming, case, formatting, searching, splitting, hex, numbers, names and sizes.
///
/// Texts are single bytes of Windows-1252; no function depends on the C locale, save that the formatters print floating
/// point as the C library does. `std::string` arguments may hold zero bytes. Null pointers are allowed only where that
/// is said. Thread safety: all functions are free of shared state and safe from any thread.
#ifndef QSBASE_TEXT_QSSTRING_H
#define QSBASE_TEXT_QSSTRING_H

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include <QSbase/export.h>

/// Trimming and case. `mask` is a set of the class bits of QsChar: 0x20 is white space.
class QSBASE_API QsString {
 public:
  /// A copy without the leading and trailing characters whose class shares a bit with `mask`.
  static std::string Trim(const std::string& text, unsigned int mask);
  /// As Trim, at the beginning only.
  static std::string TrimLeft(const std::string& text, unsigned int mask);
  /// As Trim, at the end only.
  static std::string TrimRight(const std::string& text, unsigned int mask);
  /// Removes every `c` from both ends; a text of nothing else becomes empty.
  static void TrimChar_Inplace(std::string& text, char c);

  /// Maps a zero-terminated text through the lower-case map of QsChar. Nothing for a null pointer.
  static void ToLower_Inplace(char* text);
  /// Maps `length` bytes, zero bytes included. Nothing for a null pointer.
  static void ToLower_Inplace(char* text, unsigned int length);
  /// Maps a whole string.
  static void ToLower_Inplace(std::string& text);
  /// Maps a zero-terminated text through the upper-case map of QsChar. Nothing for a null pointer.
  static void ToUpper_Inplace(char* text);
  /// Maps `length` bytes, zero bytes included. Nothing for a null pointer.
  static void ToUpper_Inplace(char* text, unsigned int length);
  /// Maps a whole string.
  static void ToUpper_Inplace(std::string& text);
  /// A lower-case copy.
  static std::string ToLower(const std::string& text);
  /// An upper-case copy.
  static std::string ToUpper(const std::string& text);
  /// Turns control characters (class 0x40) into blanks and maps the rest to lower case.
  static void ToLowerControlToSpace_Inplace(std::string& text);

  /// A copy without every byte whose class shares a bit with `mask`. A text made only of such bytes is given back
  /// unchanged: three blanks stripped of white space are three blanks.
  static std::string StripCharacters(const std::string& text, unsigned int mask);
};

/// Formats into `buffer` of `size` bytes. Returns the number of characters written when that is less than `size`; the
/// text is then zero-terminated. Otherwise -1, and the buffer holds
/// - the first `size` characters *without* a terminating zero when the text fills or exceeds it;
/// - the zero-terminated text written so far when the format is broken (a lone "%" at its end).
///
/// To get the text in every case, pass `size` less than what the buffer really has and put a zero behind:
/// \code
/// char buffer[100];
/// buffer[99] = '\0';
/// Qs_snprintf(buffer, 99, "%s", text);  // whatever it returns, buffer is the text, cut at 99 characters
/// \endcode
/// A null buffer or format or a size of 0 gives -1 and writes nothing.
QSBASE_API int Qs_snprintf(char* buffer, unsigned int size, const char* format, ...) QSBASE_PRINTF(3, 4);
/// As Qs_snprintf. `arguments` is used up, as by std::vsnprintf.
QSBASE_API int Qs_vsnprintf(char* buffer, unsigned int size, const char* format, std::va_list arguments)
    QSBASE_PRINTF(3, 0);
/// Formats to a string, cut at 32767 characters (and at a zero byte that "%c" writes). Empty when there is no memory
/// for the work buffer and for a null format; after a lone "%", the text up to there.
QSBASE_API std::string strprintf(const char* format, ...) QSBASE_PRINTF(1, 2);
/// Exactly `width` characters: a longer text is cut at its end, a shorter one filled up with `fill`, on the right when
/// `padRight`, else on the left.
QSBASE_API std::string AlignText(const std::string& text, unsigned int width, bool padRight, char fill);

/// The first place where `needle` stands in `haystack`, A-Z and a-z alike (other letters are told apart). The haystack
/// itself for an empty needle; null when there is none and when either is null.
QSBASE_API const char* stristr(const char* haystack, const char* needle);
/// True when `what` occurs in `text`; without `caseSensitive` case is that of QsString::ToLower, so that the bytes C9
/// and E9 match. An empty `what` occurs in every text.
QSBASE_API bool QsStringFind(const std::string& text, const std::string& what, bool caseSensitive);

/// Cuts a text at each separator and returns the number of parts. `keepEmpty` keeps pieces without characters.
/// - An empty text or separator gives no part; a separator longer than the text gives the text as the one part.
/// - A text that ends with the separator has no empty part behind it, unless `keepEmpty`: "a;" gives 1 or 2 parts.
/// - The text is read as if the separator followed it; what then stands behind the last match is dropped, which shows
///   with separators of several equal characters: "a---" at "--" gives only "a".
///
/// `text` and `separator` may be elements of `parts`.
/// \code
/// SplitString("a;;b", ";", parts, false);  // 2: a, b
/// SplitString("a;;b", ";", parts, true);   // 3: a, an empty one, b
/// \endcode
QSBASE_API unsigned int SplitString(const std::string& text, const std::string& separator,
                                    std::vector<std::string>& parts, bool keepEmpty);
/// `before` gets the text up to the first separator, `after` the rest behind it; without a separator `before` is the
/// whole text and `after` empty. Either may be `text` itself.
QSBASE_API void SeparateString(const std::string& text, char separator, std::string& before, std::string& after);
/// Replaces every occurrence of `what` by `with` and returns how many there were (2147483647 at most). The search goes
/// on behind each inserted `with`, which is never searched. Without `caseSensitive` case is that of QsString::ToLower;
/// `with` goes in as given. An empty `text` or `what` gives 0. Takes time proportional to the text; `what` and `with`
/// may be `text` itself.
QSBASE_API int QsReplaceStringInPlace(std::string& text, const std::string& what, const std::string& with,
                                      bool caseSensitive);
/// As QsReplaceStringInPlace, on a copy.
QSBASE_API std::string QsReplaceString(const std::string& text, const std::string& what, const std::string& with,
                                       bool caseSensitive);
/// Every byte equal to `from` becomes `to`.
QSBASE_API void QsReplaceCharInPlace(std::string& text, char from, char to);
/// As QsReplaceCharInPlace, on a copy.
QSBASE_API std::string QsReplaceChar(const std::string& text, char from, char to);
/// Every CR, LF and TAB becomes a blank.
QSBASE_API void ReplaceCRLFHT(std::string& text);
/// As above in `length` bytes; nothing for a null pointer or a length below 1.
QSBASE_API void ReplaceCRLFHT(unsigned char* text, int length);
/// Appends the character unless the text ends with it already.
QSBASE_API void QsConditionalAppendChar(std::string& text, char c);

/// Writes the two upper-case digits of a byte to `out`, without a terminating zero.
QSBASE_API void ByteToHex(unsigned char byte, unsigned char* out);
/// Writes two upper-case digits a byte and a terminating zero: 2 * length + 1 bytes.
QSBASE_API void ByteStringToHexString(const unsigned char* bytes, unsigned int length, unsigned char* out);
/// The two upper-case digits of a byte.
QSBASE_API std::string Byte2Hex(unsigned char byte);
/// The upper-case digits of the bytes in order, with one blank between bytes when `spaced`. Empty for a null pointer
/// and a length below 1.
QSBASE_API std::string Bytes2Hex(const unsigned char* bytes, int length, bool spaced);
/// The four bytes of a value, most significant first.
QSBASE_API std::string Bytes2Hex(unsigned int value, bool spaced);
/// The byte that two hex digits of either case give. Throws ExBase "HexToByte called with invalid parameter (NULL)" for
/// a null pointer, and "character in '4G' is not a hex character" (with the pair) for a bad digit. Does not read beyond
/// a terminating zero.
QSBASE_API unsigned char HexToByte(const unsigned char* pair);
/// Converts pairs of digits from `hex` up to its terminating zero and writes a byte each to `out`. `length` serves
/// only for the check that it is even (else ExBase "length is not a multiple of 2"): `out` needs room for half of the
/// text's real length. A bad digit throws as in HexToByte; the bytes before it are then written.
QSBASE_API void HexStringToByteString(const unsigned char* hex, unsigned int length, unsigned char* out);
/// Two upper-case digits for every byte.
QSBASE_API std::string String2Hex(const std::string& bytes);
/// The inverse of String2Hex, digits of either case, half as many bytes as `hex` has characters. Throws as
/// HexStringToByteString does. Behind a zero byte in `hex` all bytes are zero. Empty when there is no memory.
QSBASE_API std::string Hex2String(const std::string& hex);

/// A decimal or "0x" number narrowed to 32 bits: 2^32 and above give 2147483647, below -2^31 gives -2147483648, and
/// 2^31 to 2^32-1 keep their bits and so read as negative numbers. 0 for a null pointer.
QSBASE_API int AsciiToInt(const char* text);
/// A text of three or more characters that begins with "0x" or "0X" is hexadecimal (its last 16 digits count; any other
/// character makes the result 0). Anything else is decimal: leading white space, a sign and digits, up to the first
/// other character; numbers beyond 64 bits stop at the limit. 0 for a null pointer and for no number.
QSBASE_API std::int64_t AsciiToInt64(const char* text);
/// A decimal number: leading blanks, a sign, digits, "." or "," with a fraction (its first 10 digits count), and an
/// exponent behind "e", "E", "d" or "D". Each part may be missing; what follows is ignored. 0.0 for a null pointer and
/// for no number, infinity for what exceeds a double.
/// \code
/// AsciiToDouble(" -1,5e2");  // -150.0
/// \endcode
QSBASE_API double AsciiToDouble(const char* text);

/// An identifier made of any text: ASCII letters, and digits behind the first character, stay; every other byte becomes
/// "_", two lower-case hex digits and "_". "Unnamed_Object" for an empty name.
/// \code
/// MakeSymbolicName("1a b");  // _31_a_20_b
/// \endcode
QSBASE_API std::string MakeSymbolicName(const std::string& name);
/// The inverse of MakeSymbolicName. A "_" that no two hex digits follow is copied, so "Unnamed_Object" stays; the
/// closing "_" may be missing.
QSBASE_API std::string SymbolicNameToString(const std::string& name);
/// A size for people, rounded to whole "Bytes", "KB", "MB" or "GB" of 1024 each. A unit begins at 2 of it ("2 KB" is
/// 2048, below that bytes) once the one before exceeds 1000; "GB" begins at 1. Negative sizes are shown in bytes.
QSBASE_API std::string MemoryString(std::int64_t bytes);

#endif
