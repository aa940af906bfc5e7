/// \file
/// The transfer encodings of mail and news under one flag word: Base64, quoted-printable, UU, XX, yEnc, BinHex.
#ifndef QSBASE_CODEC_ENCODEDECODE_H
#define QSBASE_CODEC_ENCODEDECODE_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>

class CBinHexDecoder;

class QSBASE_API CYEncData {
 public:
  CYEncData();
  CYEncData(const CYEncData& other);
  CYEncData& operator=(const CYEncData& other);
  ~CYEncData();

  bool HasCRC() const;
  bool CompareCRC() const;

  std::uint32_t consumedLength;
  std::uint32_t lineLength;
  std::uint32_t endSize;
  std::uint32_t size;
  std::int32_t part;
  std::uint32_t begin;
  std::uint32_t end;
  std::int32_t total;
  std::string crcText;
  std::string computedCrcText;
  std::string name;
  std::uint32_t blockOffset;
  std::uint32_t blockEndOffset;
};

enum EEncDecUueType { EEncDecUueNone = 0, EEncDecUueUU = 1, EEncDecUueXX = 2 };

class QSBASE_API CEncodeDecode {
 public:
  CEncodeDecode(unsigned int maxLineLengthQP, unsigned int maxLineLengthBase64);
  virtual ~CEncodeDecode();
  virtual int SkipUueHeader(const char* input, unsigned int length, const char*& dataStart);

  unsigned int GetNumberIllegalChars() const;
  unsigned int GetNumberParsedChars() const;
  void SetMaxLineLengthQP(unsigned int length);
  void SetMaxLineLengthBase64(unsigned int length);

  int Encode(const void* source, int sourceKind, unsigned int length, char** output, unsigned int& outputLength,
             int flags);
  int Decode(const void* source, int sourceKind, unsigned int length, char** output, unsigned int& outputLength,
             int flags);
  int Encode(const std::string& input, std::string& output, int flags);
  int Decode(const std::string& input, std::string& output, int flags);
  int DecodeInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);

  int EncodeBase64(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int EncodeBase64(const std::string& input, std::string& output, int flags);
  int DecodeBase64(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int DecodeBase64(const std::string& input, std::string& output, int flags);
  int DecodeBase64Inline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);
  int CalcEncodedMemoryBase64(unsigned int length, unsigned int& size);
  char EncodeBase64Char(unsigned char value);

  int EncodeQP(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int EncodeQP(const std::string& input, std::string& output, int flags);
  int DecodeQP(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int DecodeQP(const std::string& input, std::string& output, int flags);
  int DecodeQPInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);
  int CalcEncodedMemoryQP(const char* input, unsigned int length, unsigned int& size, int flags);
  int CalcMaxCharsQP(const char* input, unsigned int length, unsigned int maxOutput, unsigned int& count, int flags);

  int EncodeUUE(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int EncodeUUE(const std::string& input, std::string& output, int flags);
  int DecodeUUE(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int DecodeUUE(const std::string& input, std::string& output, int flags);
  int DecodeUUEInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);
  EEncDecUueType IsUueOrXxe(const char* input, unsigned int length);

  static int EncodeYEnc(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                        const CYEncData& header, int flags);
  static int EncodeYEnc(const std::string& input, std::string& output, const CYEncData& header, int flags);
  static int DecodeYEnc(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags,
                        CYEncData* header);
  static int DecodeYEnc(const std::string& input, std::string& output, int flags, CYEncData* header);
  static int DecodeYEncInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags,
                              CYEncData* header);
  static int CalcEncodedMemoryYEnc(const char* input, unsigned int length, unsigned int& size, const CYEncData& header,
                                   int flags);
  static int FindYEncDataBlock(const char* input, unsigned int length, const char*& blockBegin, const char*& blockEnd,
                               const char*& dataStart, unsigned int& dataLength, CYEncData* header);

  static int DecodeBinHex(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags,
                          CBinHexDecoder* decoder);

  static int AllocateBuffer(char*& buffer, unsigned int size, int flags);
  static void FreeBuffer(char*& buffer, int flags);
  static bool IsHexChar(unsigned char c);
  static unsigned char GetHexValue(unsigned char high, unsigned char low);
  static int DecodeBase64Char(unsigned char c);
  static void SkipToStartOfLine(const char*& position, const char* end);
  static void SkipToEndOfLine(const char*& position, const char* end);
  static void SkipWhiteSpace(const char*& position, const char* end);
  static int UnescapeHexString(std::string& text, unsigned char escape);

 private:
  unsigned int _illegalChars;
  unsigned int _parsedChars;
  unsigned int _maxLineLengthQP;
  unsigned int _maxLineLengthBase64;
};

QSBASE_API void QsBase64Encode(const void* data, unsigned int length, std::string& text);
QSBASE_API void QsBase64Decode(const char* text, unsigned int length, std::string& data);

#endif
