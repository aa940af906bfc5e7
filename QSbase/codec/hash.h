/// \file
/// MD5 (RFC 1321), HMAC-MD5 (RFC 2104), a keyed variant of this library, CRC-32, and checks of their text forms.
///
/// MD5 is for checksums and old protocols; it resists no attacker. Nothing here throws but `std::bad_alloc` from the
/// functions that make a string. Free functions may be called from any thread; an object belongs to one thread at a
/// time.
#ifndef QSBASE_CODEC_HASH_H
#define QSBASE_CODEC_HASH_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>

/// An MD5 computation: `Init`, any number of `Update`, `Final`; or one of the `Calculate` functions, which do all of
/// it. The state is wiped at the end of each computation.
class QSBASE_API QsMD5 {
 public:
  QsMD5();

  /// Starts a digest; what was begun before is dropped.
  void Init();

  /// Adds bytes. Null data or length 0 adds nothing.
  void Update(const unsigned char* data, unsigned int length);

  /// Stores the digest and wipes the state: `Init` comes before the next `Update`.
  void Final(unsigned char digest[16]);

  /// The digest of `length` bytes of memory; of no bytes when `data` is null. Returns 0.
  int Calculate(const char* data, unsigned int length, unsigned char digest[16]);

  /// The digest of a file's bytes from byte `offset` on (of no bytes when the file ends before).
  /// Returns 0; -1 when the path is null or empty, -2 when the file cannot be opened (a directory cannot) or read, -3
  /// when it cannot be positioned. The digest is 16 zero bytes after a failure.
  int Calculate(const char* path, unsigned char digest[16], unsigned int offset);

  /// The same for the whole file.
  int Calculate(const char* path, unsigned char digest[16]);

  /// The same as 32 upper-case hex digits. After a failure `hex` holds what it held.
  int Calculate(const char* path, std::string& hex, unsigned int offset);

  /// The same for the whole file.
  int Calculate(const char* path, std::string& hex);

 private:
  void Clear();

  alignas(8) unsigned char _state[88];
};

/// An HMAC-MD5 computation: `Init`, any number of `Update`, `Final`, `CopyDigest`; or `Calculate` and `CopyDigest`.
/// \code
///   CHMACMD5 hmac;
///   hmac.Calculate(text, textLength, key, keyLength);
///   unsigned char digest[16];
///   hmac.CopyDigest(digest);
/// \endcode
class QSBASE_API CHMACMD5 {
 public:
  /// The digest is 16 zero bytes until the first `Final`.
  CHMACMD5();

  /// Starts with a key; a key longer than 64 bytes counts as its MD5 digest. A null key or a length of 0 or less is
  /// the empty key.
  void Init(const unsigned char* key, int keyLength);

  /// Starts with the library's default key of 64 bytes.
  void Init();

  /// Adds bytes. Null data or a length of 0 or less adds nothing.
  void Update(const unsigned char* data, int length);

  /// Makes the digest. Without an `Init` before, the digest stays as it is.
  void Final();

  /// Copies the digest of the last `Final`.
  void CopyDigest(unsigned char digest[16]) const;

  /// `Init`, `Update` and `Final` in one call.
  void Calculate(const unsigned char* data, int length, const unsigned char* key, int keyLength);

  /// The same with the default key.
  void Calculate(const unsigned char* data, int length);

 private:
  unsigned char _digest[16];
  QsMD5 _md5;
  unsigned char _innerKey[64];
  unsigned char _outerKey[64];
  bool _initialised;
};

/// The MD5 of a file as 32 upper-case hex digits; empty after any failure.
QSBASE_API std::string CalcMD5(const char* path);

/// The same from byte `offset` on.
QSBASE_API std::string CalcMD5(const char* path, unsigned int offset);

/// The same with the status of `QsMD5::Calculate`; `hex` is assigned on success only.
QSBASE_API int CalcMD5(const char* path, std::string& hex);

/// The same from byte `offset` on.
QSBASE_API int CalcMD5(const char* path, std::string& hex, unsigned int offset);

/// The MD5 of memory. Does nothing, the digest included, when a pointer is null or the length is 0.
QSBASE_API void QsCalcMD5(const char* data, unsigned int length, unsigned char* digest);

/// The MD5 of memory as 32 upper-case hex digits; empty for null data. Length 0 gives the digest of nothing
/// ("D41D8CD98F00B204E9800998ECF8427E").
QSBASE_API std::string QsCalcMD5(const char* data, unsigned int length);

/// HMAC-MD5 (RFC 2104) of `textLength` bytes, which may be 0. The digest is 16 zero bytes when the text or the key is
/// null, the key length is 0 or less, or the text length is negative; a null digest does nothing.
QSBASE_API void hmac_md5(const unsigned char* text, int textLength, const unsigned char* key, int keyLength,
                         unsigned char digest[16]);

/// Runs HMAC-MD5 over the data with the 64 bytes at `keyBuffer` as key, and keeps the digest to itself: the buffer is
/// left unchanged and nothing is returned. Callers that want the digest use `CHMACMD5` or `hmac_md5`.
QSBASE_API void QsCalcHMAC_MD5(const char* data, unsigned int length, unsigned char* keyBuffer);

/// Not a digest: 32 times "0" for any data, empty for null data.
QSBASE_API std::string QsCalcHMAC_MD5(const char* data, unsigned int length);

/// HMAC-MD5 of a text file with the default key as 32 lower-case hex digits. The file is read as text: CR LF counts as
/// LF on every platform. Returns 0, or -1 when the file cannot be opened or read; then `hex` holds what it held.
QSBASE_API int CalcHMAC_MD5(const char* path, std::string& hex);

/// The same; empty after a failure.
QSBASE_API std::string CalcHMAC_MD5(const char* path);

/// The library's own keyed digest of a text, with a key of its own: HMAC-MD5 but for one zero byte that both hashes
/// take at their end, so it equals no HMAC-MD5. The digest is 16 zero bytes for a null or empty text; a null digest
/// does nothing.
QSBASE_API void QsCalcPeLM_HMAC(const char* text, unsigned char digest[16]);

/// The same as 32 upper-case hex digits: all "0" for an empty text, empty for a null one.
QSBASE_API std::string QsCalcPeLM_HMAC(const char* text);

/// The CRC-32 of zip, PNG and yEnc (ISO 3309, ITU-T V.42): 0xCBF43926 for "123456789", 0 for null data or length 0.
QSBASE_API std::uint32_t QsCalcCRC32(const char* data, unsigned int length);

/// The value of 8 hex digits of either case ("1a2b3c4d" gives 0x1A2B3C4D); 0 for any other text and for null.
QSBASE_API std::uint32_t QsTextToCRC32(const char* text);

/// True when the text begins with exactly `length` hex digits, of either case: what follows them is not one. False for
/// null. Example: "12g" has 2.
QSBASE_API bool QsIsValidHex(const char* text, unsigned int length);

/// True when the text is 32 hex digits and nothing else. False for null.
QSBASE_API bool QsIsValidMD5(const char* text);

/// True when the text is 40 hex digits and nothing else. False for null.
QSBASE_API bool QsIsValidSHA1(const char* text);

/// True when the text is 8 hex digits and nothing else. False for null.
QSBASE_API bool QsIsValidCRC32(const char* text);

#endif
