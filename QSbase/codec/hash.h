/// \file
/// MD5, HMAC-MD5, the keyed variant, CRC-32, and checks of their text forms.
#ifndef QSBASE_CODEC_HASH_H
#define QSBASE_CODEC_HASH_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>

class QSBASE_API QsMD5 {
 public:
  QsMD5();

  void Init();
  void Update(const unsigned char* data, unsigned int length);
  void Final(unsigned char digest[16]);

  int Calculate(const char* data, unsigned int length, unsigned char digest[16]);
  int Calculate(const char* path, unsigned char digest[16], unsigned int offset);
  int Calculate(const char* path, unsigned char digest[16]);
  int Calculate(const char* path, std::string& hex, unsigned int offset);
  int Calculate(const char* path, std::string& hex);

 private:
  void Clear();

  alignas(8) unsigned char _state[88];
};

class QSBASE_API CHMACMD5 {
 public:
  CHMACMD5();

  void Init(const unsigned char* key, int keyLength);
  void Init();
  void Update(const unsigned char* data, int length);
  void Final();
  void CopyDigest(unsigned char digest[16]) const;
  void Calculate(const unsigned char* data, int length, const unsigned char* key, int keyLength);
  void Calculate(const unsigned char* data, int length);

 private:
  unsigned char _digest[16];
  QsMD5 _md5;
  unsigned char _innerKey[64];
  unsigned char _outerKey[64];
  bool _initialised;
};

QSBASE_API std::string CalcMD5(const char* path);
QSBASE_API std::string CalcMD5(const char* path, unsigned int offset);
QSBASE_API int CalcMD5(const char* path, std::string& hex);
QSBASE_API int CalcMD5(const char* path, std::string& hex, unsigned int offset);
QSBASE_API void QsCalcMD5(const char* data, unsigned int length, unsigned char* digest);
QSBASE_API std::string QsCalcMD5(const char* data, unsigned int length);

QSBASE_API void hmac_md5(const unsigned char* text, int textLength, const unsigned char* key, int keyLength,
                         unsigned char digest[16]);
QSBASE_API void QsCalcHMAC_MD5(const char* data, unsigned int length, unsigned char* keyBuffer);
QSBASE_API std::string QsCalcHMAC_MD5(const char* data, unsigned int length);
QSBASE_API int CalcHMAC_MD5(const char* path, std::string& hex);
QSBASE_API std::string CalcHMAC_MD5(const char* path);
QSBASE_API void QsCalcPeLM_HMAC(const char* text, unsigned char digest[16]);
QSBASE_API std::string QsCalcPeLM_HMAC(const char* text);

QSBASE_API std::uint32_t QsCalcCRC32(const char* data, unsigned int length);
QSBASE_API std::uint32_t QsTextToCRC32(const char* text);
QSBASE_API bool QsIsValidHex(const char* text, unsigned int length);
QSBASE_API bool QsIsValidMD5(const char* text);
QSBASE_API bool QsIsValidSHA1(const char* text);
QSBASE_API bool QsIsValidCRC32(const char* text);

#endif
