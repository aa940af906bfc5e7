// Inputs in memory beyond what 31 bits can count. They are one small piece of memory mapped thousands of times, and the
// results stay small, or below 3 GiB. Needs the address space of 64 bits.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/support/libxmlsupport.h>
#include <QSbase/text/qsstring.h>
#include <QSbase/text/utf8.h>
#include <gtest/gtest.h>

namespace {

constexpr std::size_t kGiB = std::size_t{1} << 30;

void Check(bool done, const char* what) {
  if (!done) {
    throw std::runtime_error(what);
  }
}

/// A text over and over. What is written into it takes memory of its own.
class Repeated {
 public:
  Repeated(std::string_view text, std::size_t copies) : _size(text.size() * copies) {
    const std::string piece = Piece(text);
    const int file = memfd_create("repeated", MFD_CLOEXEC);
    Check(file != -1 && write(file, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()),
          "no memory file");
    _mapped = (_size / piece.size() + 1) * piece.size();
    void* const place = mmap(nullptr, _mapped, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    Check(place != MAP_FAILED, "no address space");
    _data = static_cast<char*>(place);
    for (std::size_t at = 0; at < _mapped; at += piece.size()) {
      const int flags = MAP_PRIVATE | MAP_FIXED | MAP_NORESERVE;
      Check(mmap(_data + at, piece.size(), PROT_READ | PROT_WRITE, flags, file, 0) != MAP_FAILED, "cannot map");
    }
    close(file);
    _data[_size] = '\0';
  }
  ~Repeated() { munmap(_data, _mapped); }
  Repeated(const Repeated&) = delete;
  Repeated& operator=(const Repeated&) = delete;

  const char* Data() const { return _data; }
  std::size_t Size() const { return _size; }
  unsigned int Length() const { return static_cast<unsigned int>(_size); }

  void Put(std::size_t at, std::string_view text) { std::memcpy(_data + at, text.data(), text.size()); }
  void PutAtEnd(std::string_view text) { Put(_size - text.size(), text); }

 private:
  /// As many copies as make whole pages, about a MiB.
  static std::string Piece(std::string_view text) {
    constexpr std::size_t kPage = 4096;
    std::string pages;
    while (pages.size() < kPage * text.size()) {
      pages += text;
    }
    std::string piece;
    while (piece.size() < kGiB / 1024) {
      piece += pages;
    }
    return piece;
  }

  std::size_t _size;
  std::size_t _mapped = 0;
  char* _data = nullptr;
};

/// What a coder gave, released at the end.
struct Result {
  Result() = default;
  ~Result() { CEncodeDecode::FreeBuffer(data, 0); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;

  std::string_view Text() const { return {data, length}; }

  char* data = nullptr;
  unsigned int length = 0;
};

bool ConsistsOf(char c, std::string_view text) {
  return text.empty() || (text.front() == c && std::memcmp(text.data(), text.data() + 1, text.size() - 1) == 0);
}

// The CRC of twice the text is combined of that of the text, 31 times.
TEST(LargeInput, Crc32Of2GiB) {
  const std::string_view one = "x";
  uLong expected = crc32(0, reinterpret_cast<const Bytef*>(one.data()), 1);
  for (int bit = 0; bit < 31; ++bit) {
    expected = crc32_combine(expected, expected, z_off_t{1} << bit);
  }
  const Repeated input(one, 2 * kGiB);
  EXPECT_EQ(QsCalcCRC32(input.Data(), input.Length()), expected);
}

// By another program: head -c 2147483649 /dev/zero | md5sum
TEST(LargeInput, Md5Of2GiBAndAByte) {
  const Repeated input(std::string_view("\0", 1), 2 * kGiB + 1);
  EXPECT_EQ(QsCalcMD5(input.Data(), input.Length()), "97CDD4BB45C3D5D652C0079901FB4EEC");
}

TEST(LargeInput, Base64BehindBlankLinesAndIllegalCharacters) {
  Repeated input("\r\n\r\n\r\n\r\n!\n\r\n\r\n\r\n", (2 * kGiB + kGiB / 2) / 16);
  input.PutAtEnd("QUJD");
  CEncodeDecode coder(76, 76);
  Result result;
  EXPECT_EQ(coder.DecodeBase64(input.Data(), input.Length(), &result.data, result.length, 0), 0);
  EXPECT_EQ(result.Text(), "ABC");
  EXPECT_EQ(coder.GetNumberParsedChars(), input.Length());
  EXPECT_EQ(coder.GetNumberIllegalChars(), input.Length() / 16);
}

TEST(LargeInput, YEncIsDecodedBeyond2GiB) {
  Repeated input("k", 2 * kGiB + 5);
  input.PutAtEnd("=}k");
  Result result;
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(input.Data(), input.Length(), &result.data, result.length, 0, nullptr), 0);
  ASSERT_EQ(result.length, 2 * kGiB + 4);
  EXPECT_EQ(result.Text().substr(2 * kGiB + 2), std::string_view("\x13"
                                                                 "A"));
  EXPECT_TRUE(ConsistsOf('A', result.Text().substr(0, 2 * kGiB + 2)));
}

TEST(LargeInput, AYEncBlockMayBeLongerThan2GiB) {
  const std::string_view begin = "=ybegin line=128 size=3 name=a\r\n";
  const std::string_view end = "\r\n=yend size=3\r\n";
  Repeated input("k", 2 * kGiB + 1000);
  input.Put(0, begin);
  input.PutAtEnd(end);
  const char* blockBegin = nullptr;
  const char* blockEnd = nullptr;
  const char* dataStart = nullptr;
  unsigned int dataLength = 0;
  CYEncData header;
  EXPECT_EQ(CEncodeDecode::FindYEncDataBlock(input.Data(), input.Length(), blockBegin, blockEnd, dataStart, dataLength,
                                             &header),
            0);
  EXPECT_EQ(dataStart - input.Data(), static_cast<std::ptrdiff_t>(begin.size()));
  EXPECT_EQ(dataLength, input.Size() - begin.size() - end.size() + 2);
  EXPECT_EQ(header.blockEndOffset, input.Length());
}

// Lines of 128 columns, each with its CR LF.
TEST(LargeInput, TheSizeOfYEncIsCountedIn64Bits) {
  const Repeated input("k", 3 * kGiB);
  const CYEncData header;
  unsigned int size = 0;
  EXPECT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc(input.Data(), input.Length(), size, header, 0), 0);
  EXPECT_EQ(size, 3 * kGiB + 3 * kGiB / 128 * 2);
  CYEncData narrow;
  narrow.lineLength = 4;
  EXPECT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc(input.Data(), input.Length(), size, narrow, 0), -3);
  EXPECT_EQ(size, 0U);
}

// Every byte takes three characters.
TEST(LargeInput, TheSizeOfQuotedPrintableIsCountedIn64Bits) {
  const Repeated input("=", 2 * kGiB);
  CEncodeDecode coder(76, 76);
  unsigned int size = 1;
  EXPECT_EQ(coder.CalcEncodedMemoryQP(input.Data(), input.Length(), size, 0), -3);
  EXPECT_EQ(size, 0U);
  Result result;
  EXPECT_EQ(coder.EncodeQP(input.Data(), input.Length(), &result.data, result.length, 0), -3);
  EXPECT_EQ(result.data, nullptr);
}

TEST(LargeInput, UuLinesBeyond2GiB) {
  const std::string line = "M" + std::string(60, '!') + "\n";
  Repeated input(line, (2 * kGiB + kGiB / 16) / line.size());
  input.PutAtEnd("#04)#\n");
  input.Put(input.Size() - line.size(), std::string(line.size() - 6, '\n'));
  CEncodeDecode coder(76, 76);
  Result result;
  EXPECT_EQ(coder.DecodeUUE(input.Data(), input.Length(), &result.data, result.length, 0), 0);
  ASSERT_EQ(result.length, (input.Size() / line.size() - 1) * 45 + 3);
  EXPECT_EQ(result.Text().substr(result.length - 3), "ABC");
}

TEST(LargeInput, TextsAreSearchedBeyond2GiB) {
  Repeated input("a", 2 * kGiB + 100);
  input.PutAtEnd("Needle");
  EXPECT_EQ(stristr(input.Data(), "nEEDLE"), input.Data() + 2 * kGiB + 94);
  EXPECT_TRUE(QsIsUTF8StringUsAscii(input.Data(), input.Length()));
  input.PutAtEnd("\x80");
  EXPECT_FALSE(QsIsUTF8StringUsAscii(input.Data(), input.Length()));
}

// libxml2 counts in an int. A string of this size is in memory itself.
TEST(LargeInput, StringsBeyond2GiB) {
  std::string text(2 * kGiB + 16, 'a');
  text.replace(text.size() - 6, 6, "Needle");
  EXPECT_TRUE(QsStringFind(text, "Needle", true));
  EXPECT_TRUE(QsIsUTF8StringUsAscii(text));
  QsReplaceCharInPlace(text, 'e', 'o');
  EXPECT_EQ(text.substr(text.size() - 7), "aNoodlo");
  EXPECT_EQ(GetXPathStringFromString(text, "/a"), "");
}

}  // namespace
