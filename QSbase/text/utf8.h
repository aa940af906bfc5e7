/// \file
/// Checks of UTF-8 text, its byte-order mark, and narrowing of UTF-16 text that holds ASCII only.
///
/// Null pointers are safe everywhere. Thread safety: all functions are free of shared state and safe from any thread.
///
/// \code
/// QsStripUTF8BOM(text);
/// if (!QsIsValidUTF8(text)) {
///   ReadAsLatin1(text);
/// }
/// \endcode
#ifndef QSBASE_TEXT_UTF8_H
#define QSBASE_TEXT_UTF8_H

#include <string>

#include <QSbase/export.h>

/// Whether libxml2's xmlCheckUTF8 takes the text for UTF-8: every lead byte must have its continuation bytes. (What it
/// says of overlong forms and of surrogates depends on its version.) The check ends at the first zero byte, whatever
/// stands behind it: true for "ab\0\xFF".
QSBASE_API bool QsIsValidUTF8(const std::string& text);
/// The same for a zero-terminated text; false for a null pointer.
QSBASE_API bool QsIsValidUTF8cs(const char* text);

/// True when the `length` bytes at `text` begin with the byte-order mark 0xEF 0xBB 0xBF; false for a null pointer.
QSBASE_API bool QsHasUTF8BOM(const unsigned char* text, unsigned int length);
/// Removes the byte-order mark from the beginning, once, and returns true; false when there is none.
QSBASE_API bool QsStripUTF8BOM(std::string& text);
/// The three bytes 0xEF 0xBB 0xBF.
QSBASE_API std::string QsGetUTF8BOM();

/// True when none of the `length` bytes is above 127, zero bytes included, also for a length of 0; false for a null
/// pointer.
QSBASE_API bool QsIsUTF8StringUsAscii(const char* text, unsigned int length);
/// The same for a whole string.
QSBASE_API bool QsIsUTF8StringUsAscii(const std::string& text);

/// Replaces `out` by the low bytes of `length` units of UTF-16; their higher bits are dropped without a check: 0x0141
/// becomes 0x41. Returns 0; -2 for a null pointer, with `out` as it was. Throws std::bad_alloc or, for more than a
/// string can hold, std::length_error; `out` is empty then.
QSBASE_API int QsUTF16AsciiToUSAscii(const unsigned short* text, unsigned int length, std::string& out);

/// False for the continuation bytes 0x80 to 0xBF, true for all others, also for those that no UTF-8 text has.
QSBASE_API bool IsUTF8LeadByte(unsigned char byte);
/// The bytes of the character that begins with the lead byte `byte`, by its upper bits: 1 for 0xxxxxxx, 2 for 110xxxxx,
/// 3 for 1110xxxx. 4 for every other, also for continuation bytes, which are not meant to be asked for.
QSBASE_API int GetUTF8CharLength(unsigned char byte);

#endif
