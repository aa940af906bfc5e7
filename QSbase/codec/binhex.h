/// \file
/// The BinHex 4.0 decoder.
#ifndef QSBASE_CODEC_BINHEX_H
#define QSBASE_CODEC_BINHEX_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>

class QSBASE_API CBinHexDecoder {
 public:
  CBinHexDecoder();
  CBinHexDecoder(const CBinHexDecoder& other);
  CBinHexDecoder& operator=(const CBinHexDecoder& other);
  ~CBinHexDecoder();

  int Decode(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);

  const std::string& GetFilename() const;
  unsigned int GetType() const;
  unsigned int GetCreator() const;
  unsigned short GetFlags() const;
  unsigned int GetDataSize() const;

 protected:
  int SkipToStartOfData();
  int ReadFilename();
  int ReadRestOfHeader();
  int DecodeData(unsigned char* buffer, int count);
  int DecodeInteger(unsigned int& value, unsigned int bytes);
  int GetNextDecodedChar(unsigned char& value);
  int GetNextByteFromBinHexData(unsigned char& value);

 private:
  const char* _position;
  const char* _end;
  int _phase;
  unsigned char _carriedBits;
  int _repeatCount;
  unsigned char _lastByte;
  std::string _filename;
  std::uint8_t _version;
  std::uint32_t _type;
  std::uint32_t _creator;
  std::uint16_t _flags;
  std::uint32_t _dataSize;
  std::uint32_t _resourceSize;
  std::uint16_t _headerCrc;
};

#endif
