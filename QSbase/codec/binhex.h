/// \file
/// The decoder of BinHex 4.0, the text form of Macintosh files. An object belongs to one thread at a time; different
/// objects are independent.
#ifndef QSBASE_CODEC_BINHEX_H
#define QSBASE_CODEC_BINHEX_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <QSbase/export.h>

/// Decodes a BinHex 4.0 text into the data fork of the file that it carries, and keeps the file's header fields. The
/// resource fork is read and dropped; the CRCs are read and not checked. There is no encoder.
///
/// The run-length coding covers the whole stream, as the format has it: the name, the header's numbers and the CRCs
/// too.
///
/// | Status | Meaning                                                                              |
/// |--------|--------------------------------------------------------------------------------------|
/// | 0      | done                                                                                 |
/// | -1     | an exception while the name was read                                                 |
/// | -3     | out of memory                                                                        |
/// | -4     | a required pointer is null                                                           |
/// | -7     | no start: the marker is not the first text, or no colon follows its line              |
/// | -8     | a character outside the alphabet (bytes from 128 on too), or white space at the end   |
/// | -9     | the closing colon is missing, or the input ends inside the resource fork's CRC        |
/// | -10    | the input ends                                                                       |
///
/// \code
/// CBinHexDecoder decoder;
/// char* data = nullptr;
/// unsigned int length = 0;
/// if (decoder.Decode(text, textLength, &data, length, 0) == 0) {
///   Store(decoder.GetFilename(), data, length);
/// }
/// CEncodeDecode::FreeBuffer(data, 0);
/// \endcode
class QSBASE_API CBinHexDecoder {
 public:
  /// All fields are 0, the name is empty.
  CBinHexDecoder();
  CBinHexDecoder(const CBinHexDecoder& other);
  CBinHexDecoder& operator=(const CBinHexDecoder& other);
  ~CBinHexDecoder();

  /// Decodes a text. Only white space may stand before the marker "(This file must be converted with BinHex", whose
  /// line may go on in any way.
  ///
  /// `*output` receives the data fork, `outputLength` its length: null and 0 for an empty data fork, for an empty
  /// input, under 0x20000 (the header only, the rest of the text may be cut) and after a failure. The caller releases
  /// it with `CEncodeDecode::FreeBuffer` and the same flags. Memory grows with what is decoded, whatever the header
  /// claims. After a failure the header fields are what was read of them.
  int Decode(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);

  /// The file's name as the text has it: untrusted, in no known character set, perhaps with path separators.
  const std::string& GetFilename() const;

  /// The file's type, four characters, the first one in the highest byte.
  unsigned int GetType() const;

  /// The program that made the file, like the type.
  unsigned int GetCreator() const;

  /// The Finder flags.
  unsigned short GetFlags() const;

  /// The length of the data fork in bytes, as the header claims it.
  unsigned int GetDataSize() const;

 protected:
  /// The steps of `Decode`, in calling order. Each returns a status and moves the read position.

  /// Moves behind the colon that opens the data.
  int SkipToStartOfData();

  /// Reads the name's length and the name.
  int ReadFilename();

  /// Reads version, type, creator, flags, both lengths and the header's CRC.
  int ReadRestOfHeader();

  /// Reads `count` bytes of the stream with the runs expanded; a run goes on in the next call.
  int DecodeData(unsigned char* buffer, int count);

  /// Reads a number of `bytes` bytes, the highest first.
  int DecodeInteger(unsigned int& value, unsigned int bytes);

  /// Reads one byte of the stream, runs not expanded.
  int GetNextDecodedChar(unsigned char& value);

  /// Reads the six bits of one character; white space before it is skipped. An invalid character is not taken.
  int GetNextByteFromBinHexData(unsigned char& value);

 private:
  void Start(const char* input, unsigned int length);
  int DecodeStep(unsigned char*& out, unsigned char* end);
  int TakeCount(unsigned char*& out);
  int DecodeStretch(unsigned char*& out, unsigned char* end, std::ptrdiff_t longest);
  int SkipDecodedChars(int count);
  int DiscardData(std::uint32_t count);
  int ReadResourceFork();
  int SkipToEndOfData();

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
