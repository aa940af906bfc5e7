/// \file
/// The transfer encodings of mail and news under one flag word: Base64, quoted-printable, UU, XX, yEnc, BinHex.
///
/// Every coder works on a whole buffer in memory (or a whole file read into memory); nothing is carried from one call
/// to the next. A coder holds the input and room for the output, which it measures, bounds or estimates; where an
/// estimate falls short, the old room too until the new one is filled. The string forms hold the output twice while
/// they append it; those of Base64 write into the string.
///
/// Thread safety: the static members and free functions may be called from any thread. One `CEncodeDecode` object
/// (it counts) belongs to one thread at a time; different objects are independent.
#ifndef QSBASE_CODEC_ENCODEDECODE_H
#define QSBASE_CODEC_ENCODEDECODE_H

#include <cstdint>
#include <string>

#include <QSbase/export.h>

class CBinHexDecoder;

/// The header and trailer fields of one yEnc block (yEnc 1.3). Plain values: the encoder writes what it finds here, the
/// decoder stores what it reads. Copies are member-wise; an object belongs to one thread at a time.
class QSBASE_API CYEncData {
 public:
  /// Line length 128, part and total -1, everything else 0 or empty.
  CYEncData();
  CYEncData(const CYEncData& other);
  CYEncData& operator=(const CYEncData& other);
  ~CYEncData();

  /// Whether the trailer carried a CRC-32.
  bool HasCRC() const;

  /// Whether the trailer's CRC-32 is that of the decoded bytes, ignoring case. True when both texts are empty: ask
  /// `HasCRC` first.
  bool CompareCRC() const;

  std::uint32_t consumedLength;  ///< Bytes of the data text that the last decode took; a NUL that ended it is not one.
  std::uint32_t lineLength;      ///< "line=": columns of a line, from 1 on when encoding; 0 when the header has none.
  std::uint32_t endSize;         ///< "size=" of the "=yend" line; 0 when absent.
  std::uint32_t size;            ///< "size=" of the "=ybegin" line. Encoding writes the input's length instead of 0.
  std::int32_t part;             ///< "part="; negative for a block that is no part.
  std::uint32_t begin;           ///< "begin=" of the "=ypart" line: the part's first byte in the file, from 1 on.
  std::uint32_t end;             ///< "end=" of the "=ypart" line: the part's last byte in the file.
  std::int32_t total;            ///< "total="; negative when not given.
  std::string crcText;           ///< The trailer's CRC-32 as written there; a part's own one if that comes first.
  std::string computedCrcText;   ///< The decoded bytes' CRC-32, 8 upper-case digits; empty without `crcText`.
  std::string name;              ///< "name=", without blanks and double quotes around it. Untrusted: may hold a path.
  std::uint32_t blockOffset;     ///< Where the "=ybegin " line starts in the searched input.
  std::uint32_t blockEndOffset;  ///< Where the input goes on behind the "=yend" line and its line breaks.
};

/// What `CEncodeDecode::IsUueOrXxe` finds.
enum EEncDecUueType { EEncDecUueNone = 0, EEncDecUueUU = 1, EEncDecUueXX = 2 };

/// Encodes and decodes. Every operation takes a flag word:
///
/// | Bit        | Meaning                                                                                     |
/// |------------|---------------------------------------------------------------------------------------------|
/// | 0x1        | `Encode`, `Decode`, `DecodeInline`: Base64                                                   |
/// | 0x2        | the same: quoted-printable (QP)                                                             |
/// | 0x4        | the same: UU                                                                                |
/// | 0x8        | XX instead of UU                                                                            |
/// | 0x10       | decode: find out from the data whether it is UU or XX                                       |
/// | 0x20       | QP encode: encode every TAB and blank, not only one that ends the input                     |
/// | 0x40       | QP encode: encode "?" and "_" too (encoded words of RFC 2047)                               |
/// | 0x80       | `CalcMaxCharsQP`: count every blank (not TAB) as encoded                                    |
/// | 0x100      | UU/XX decode: first skip to the line after "begin "                                         |
/// | 0x200      | QP encode: CR, LF and CR LF are line breaks, written as CR LF; without it they are encoded  |
/// | 0x400      | QP encode: leave ! " # $ @ [ \ ] ^ ` { } ~ and the vertical bar as they are                 |
/// | 0x800      | yEnc                                                                                        |
/// | 0x1000     | yEnc encode: write the "=ybegin", "=ypart" and "=yend" lines                                |
/// | 0x2000     | yEnc decode: decode only the block between "=ybegin " and "=yend "                          |
/// | 0x4000     | yEnc encode: do not escape TAB and "."                                                      |
/// | 0x10000    | BinHex 4.0 (decode only)                                                                    |
/// | 0x20000    | BinHex: the header only                                                                     |
/// | 0x10000000 | output buffers come from array new; without it from the C heap (calloc and its like)        |
///
/// With several selection bits the first of Base64, QP, UU/XX, yEnc, BinHex counts.
///
/// Every operation returns a status:
///
/// | Status | Meaning                                                                     |
/// |--------|-----------------------------------------------------------------------------|
/// | 0      | done                                                                        |
/// | -2     | no encoding selected (or none for this operation), or unknown source kind   |
/// | -3     | out of memory, or a result that does not fit 32 bits                        |
/// | -4     | a required pointer is null                                                  |
/// | -5     | the input file could not be read; an empty file counts as one               |
/// | -6     | malformed UU or XX line; yEnc line length 0                                 |
/// | -7     | no yEnc block found                                                         |
/// | -899   | the UU encoder's sizes do not agree                                         |
///
/// BinHex has further ones (CBinHexDecoder). An empty input (length 0) succeeds with an empty result (null buffer,
/// length 0), whatever the pointers are. Illegal characters never fail a decode: they are counted.
///
/// There are three forms of an operation:
/// - buffer: makes `*output` and `outputLength`; the caller releases the buffer with `FreeBuffer` and the same flags.
///   After a failure they are null and 0. A zero byte stands behind the output, not counted in its length.
/// - string: appends the result to `output`, which may be the input too. An input longer than 2^32-1 bytes is -3.
/// - inline: decodes within `buffer`; the first `outputLength` bytes are the result, what follows them is undefined.
///
/// \code
/// CEncodeDecode coder(75, 76);
/// char* text = nullptr;
/// unsigned int length = 0;
/// if (coder.EncodeBase64("abc", 3, &text, length, 0) == 0) {
///   std::fwrite(text, 1, length, stdout);  // YWJj
/// }
/// CEncodeDecode::FreeBuffer(text, 0);
/// \endcode
class QSBASE_API CEncodeDecode {
 public:
  /// Takes the longest line of quoted-printable and of Base64 in characters, as they are: no lower bound here.
  /// A Base64 length below 4 means no line breaks; others count in whole groups of 4 (76 is 19 groups a line).
  CEncodeDecode(unsigned int maxLineLengthQP, unsigned int maxLineLengthBase64);
  virtual ~CEncodeDecode();

  /// Finds the data of a UU or XX text: `dataStart` is the line after the first one that begins with "begin " (in any
  /// case), three or four octal digits and a blank; the input's end when there is no such line. Returns 0, or -4 for a
  /// null input. `DecodeUUE` calls it under 0x100; an override that returns something else fails the decode with it.
  virtual int SkipUueHeader(const char* input, unsigned int length, const char*& dataStart);

  /// How many characters of the last call's input were no part of the encoding. Each call that codes starts at 0.
  /// yEnc and BinHex do not count.
  unsigned int GetNumberIllegalChars() const;

  /// How many bytes of input the last call looked at: all of them, but for a Base64 decode that met "=" (counted
  /// itself) or an input that failed. Each call that codes starts at 0. yEnc and BinHex do not count.
  unsigned int GetNumberParsedChars() const;

  /// Sets the longest line of quoted-printable; less than 20 gives 20.
  void SetMaxLineLengthQP(unsigned int length);

  /// Sets the longest line of Base64, rounded down to a multiple of 4; less than 20 gives 20.
  void SetMaxLineLengthBase64(unsigned int length);

  /// Encodes `source` as the selection bits say. `sourceKind` 0: `source` is a buffer of `length` bytes; 1: `source` is
  /// the name of a file, which is read whole (`length` is ignored; -5 when that fails); others give -2, and so does
  /// BinHex. yEnc is written with lines of 128 characters and without a part.
  int Encode(const void* source, int sourceKind, unsigned int length, char** output, unsigned int& outputLength,
             int flags);

  /// Decodes `source` as the selection bits say; arguments as for `Encode`.
  int Decode(const void* source, int sourceKind, unsigned int length, char** output, unsigned int& outputLength,
             int flags);

  /// The string forms of the two.
  int Encode(const std::string& input, std::string& output, int flags);
  int Decode(const std::string& input, std::string& output, int flags);

  /// Decodes within `buffer` as the selection bits say; -2 for BinHex, which has no inline form.
  int DecodeInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);

  /// Base64 of RFC 2045. CR LF follows every full line of complete groups, so a text that fills its last line with
  /// them ends with CR LF, any other has no break at its end.
  int EncodeBase64(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int EncodeBase64(const std::string& input, std::string& output, int flags);

  /// Decodes Base64. CR and LF are skipped; other characters outside the alphabet are skipped and counted as illegal.
  /// "=" ends the decoding, and so does an incomplete group: of k characters (2 or 3) it gives k - 1 bytes.
  int DecodeBase64(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int DecodeBase64(const std::string& input, std::string& output, int flags);
  int DecodeBase64Inline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);

  /// Estimates the size of the Base64 text of `length` bytes. Kept: the breaks are counted only when the line length
  /// is at least `length`, so for a text of several lines the figure is too small by its breaks; `EncodeBase64` does
  /// not rely on it. Returns -3 with size 0 when 32 bits do not hold it.
  int CalcEncodedMemoryBase64(unsigned int length, unsigned int& size);

  /// The character of a value below 64; for others "=", counted as an illegal character.
  char EncodeBase64Char(unsigned char value);

  /// Quoted-printable of RFC 2045. Letters, digits and % & ' ( ) * + , - . / : ; < > are literal, and so are, unless
  /// the flags say otherwise, "?", "_", TAB and blank; a TAB or blank that ends the input is encoded. All else is
  /// written as "=" and two upper-case digits, CR and LF too (but see 0x200). Lines are broken by "=" CR LF.
  /// Kept: a blank before a hard break stays literal; in an input of more than 0x100000 bytes the blank is always
  /// literal, at the end and under 0x20 too, while TAB keeps the rule. Line lengths 0 and 1 break before every
  /// literal at that column and never before an encoded byte.
  int EncodeQP(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int EncodeQP(const std::string& input, std::string& output, int flags);

  /// Decodes quoted-printable. "=" with two digits of either case gives a byte if at least one more byte of input
  /// follows (kept: at the very end it stays as it is); "=" with CR or LF is a soft break, dropped together with one
  /// further LF or CR. Any other "=" is copied and counted as illegal; all else is copied.
  int DecodeQP(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int DecodeQP(const std::string& input, std::string& output, int flags);
  int DecodeQPInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);

  /// The size of the quoted-printable text by the rules of a short input. Kept: inputs of more than 0x100000 bytes
  /// are measured by these rules too, though their blanks are then written literally; `EncodeQP` does not rely on it.
  /// Returns -3 with size 0 when 32 bits do not hold it, -4 for a null input.
  int CalcEncodedMemoryQP(const char* input, unsigned int length, unsigned int& size, int flags);

  /// Counts how many bytes at the start of the input fit into `maxOutput` characters of quoted-printable, soft breaks
  /// included. A CR LF under 0x200 counts as two or not at all. Returns -4 for a null input.
  int CalcMaxCharsQP(const char* input, unsigned int length, unsigned int maxOutput, unsigned int& count, int flags);

  /// UU, or XX under 0x8: lines of 45 bytes, each with its count and CR LF, and a line with a count of 0 at the end. No
  /// "begin" and no "end" line is written. UU writes the grave accent for 0, never a blank.
  int EncodeUUE(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int EncodeUUE(const std::string& input, std::string& output, int flags);
  /// Decodes UU or XX: XX under 0x8; what `IsUueOrXxe` finds under 0x10; otherwise UU. The "begin" line is skipped
  /// under 0x100 only; without one there is no data then. Lines that hold no group (the terminator, "end") yield
  /// nothing and do not end the text. A line gives as many bytes as its count says; characters that are missing for
  /// them count as 0. In XX, characters outside the alphabet are skipped and counted as illegal; UU takes any.
  ///
  /// Result -6: a count that differs by more than 2 from what the line has room for, or a line that is not one
  /// character and groups of 4 unless it is the last: less than 5 bytes of input, its line break included, follow it.
  ///
  /// Kept: some encoders end line n (counted from 1) with a check character, "z" and downwards. Each of the first four
  /// lines is looked at; what holds for the fourth (its last character is dropped or not) holds for all that follow.
  int DecodeUUE(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags);
  int DecodeUUE(const std::string& input, std::string& output, int flags);
  int DecodeUUEInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags);

  /// Guesses from the first line that is not empty (no "begin" line): its count read as XX, otherwise as UU, must
  /// differ by at most 2 from what the line has room for.
  EEncDecUueType IsUueOrXxe(const char* input, unsigned int length);

  /// yEnc 1.3 in lines of `header.lineLength` columns (0 gives -6), one longer where an escape falls on the border.
  /// Each line ends with CR LF. TAB and "." are escaped everywhere, unless 0x4000. With 0x1000 the "=ybegin", "=ypart"
  /// (for a part) and "=yend" lines are written around, from the header's fields and the input's CRC-32.
  ///
  /// \code
  /// CYEncData header;
  /// header.name = "a.bin";
  /// std::string text;
  /// CEncodeDecode::EncodeYEnc(std::string("abc"), text, header, 0x1000);
  /// \endcode
  static int EncodeYEnc(const char* input, unsigned int length, char** output, unsigned int& outputLength,
                        const CYEncData& header, int flags);
  static int EncodeYEnc(const std::string& input, std::string& output, const CYEncData& header, int flags);
  /// Decodes yEnc: the data of the block that `FindYEncDataBlock` finds under 0x2000 (-7 when there is none), otherwise
  /// the whole input. A NUL byte ends the data. `header` may be null; otherwise it receives the block's fields (under
  /// 0x2000), the consumed length and, if it has a CRC text, the CRC-32 of the decoded bytes. A wrong CRC-32 or size
  /// does not fail the decode: ask `CompareCRC` and compare the sizes.
  static int DecodeYEnc(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags,
                        CYEncData* header);
  static int DecodeYEnc(const std::string& input, std::string& output, int flags, CYEncData* header);
  static int DecodeYEncInline(char* buffer, unsigned int length, unsigned int& outputLength, int flags,
                              CYEncData* header);

  /// The exact size of what `EncodeYEnc` writes. Returns -4 for a null input, -6 for a line length of 0, -3 (size 0)
  /// when 32 bits do not hold it.
  static int CalcEncodedMemoryYEnc(const char* input, unsigned int length, unsigned int& size, const CYEncData& header,
                                   int flags);

  /// Finds the first line that begins with "=ybegin " and, behind it, the first one that begins with "=yend ".
  /// `blockBegin` and `blockEnd` enclose both lines and the line breaks behind; `dataStart` and `dataLength` are the
  /// text between them without further lines that begin with "=y" at its start. They point into the input. `header` may
  /// be null; otherwise all its fields are set: those that the lines do not carry to -1 (part, total), 0 or empty. The
  /// name goes up to the next "=y" or the header's end; a number within it counts only where there is none around it.
  /// Returns -7 when either line is missing, for an empty input too: then the pointers are null, the length is 0 and
  /// the header is as it was. -3 (pointers and length the same) when there is no memory for its texts.
  /// Blocks in a row: go on at `blockEnd`.
  static int FindYEncDataBlock(const char* input, unsigned int length, const char*& blockBegin, const char*& blockEnd,
                               const char*& dataStart, unsigned int& dataLength, CYEncData* header);

  /// Decodes the data fork of a BinHex 4.0 text; see `CBinHexDecoder` for the rules and the statuses. `decoder` may be
  /// null; otherwise it is used and holds the file's name and header fields afterwards.
  static int DecodeBinHex(const char* input, unsigned int length, char** output, unsigned int& outputLength, int flags,
                          CBinHexDecoder* decoder);

  /// Allocates `size` zero bytes as the flags say (0x10000000). Returns 0, or -3 with a null buffer.
  static int AllocateBuffer(char*& buffer, unsigned int size, int flags);

  /// Releases a buffer that was made under the same flags and sets the pointer to null. Null is fine.
  static void FreeBuffer(char*& buffer, int flags);

  /// Whether `c` is one of 0-9, A-F, a-f.
  static bool IsHexChar(unsigned char c);

  /// The byte that two hex digits of either case stand for. Other characters are not checked for; they give some byte.
  static unsigned char GetHexValue(unsigned char high, unsigned char low);

  /// The value 0 to 63 of a character of the Base64 alphabet; -1 for all others, "=" too.
  static int DecodeBase64Char(unsigned char c);

  /// Moves past the CR and LF at the position, however many, but not past `end`.
  static void SkipToStartOfLine(const char*& position, const char* end);

  /// Moves to the next CR or LF, or to `end`.
  static void SkipToEndOfLine(const char*& position, const char* end);

  /// Moves past blanks, TAB, LF, VT, FF and CR, but not past `end`.
  static void SkipWhiteSpace(const char*& position, const char* end);

  /// Replaces every `escape` and the two characters behind it by the byte that `GetHexValue` makes of them, in place.
  /// An escape with fewer than two characters behind it is dropped with what follows it. Returns 0; -1 is reserved
  /// for a lack of memory.
  static int UnescapeHexString(std::string& text, unsigned char escape);

 private:
  unsigned int _illegalChars;
  unsigned int _parsedChars;
  unsigned int _maxLineLengthQP;
  unsigned int _maxLineLengthBase64;
};

/// Sets `text` to the Base64 of `length` bytes, in lines of 76 characters; empty for null data or length 0. Throws
/// `ExBase` ("CEncodeDecode::EncodeBase64 returns error " and the status), `text` being empty then.
QSBASE_API void QsBase64Encode(const void* data, unsigned int length, std::string& text);

/// Sets `data` to what the Base64 text stands for; empty for a null text or length 0. Throws `ExBase`
/// ("CEncodeDecode::DecodeBase64 returns error " and the status), `data` being empty then.
QSBASE_API void QsBase64Decode(const char* text, unsigned int length, std::string& data);

#endif
