#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/yenckernel.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <common/memorylimit.h>
#include <common/simdlevels.h>

namespace {

constexpr int kHeader = 0x1000;
constexpr int kFind = 0x2000;
constexpr int kPlainTabDot = 0x4000;
constexpr int kArrays = 0x10000000;

unsigned int SizeOf(const std::string& text) { return static_cast<unsigned int>(text.size()); }

CYEncData WithLine(std::uint32_t line) {
  CYEncData header;
  header.lineLength = line;
  return header;
}

std::string Encode(const std::string& data, const CYEncData& header = CYEncData(), int flags = 0) {
  std::string text;
  EXPECT_EQ(CEncodeDecode::EncodeYEnc(data, text, header, flags), 0);
  return text;
}

/// Decodes from an exact copy on the heap, so that a sanitizer sees a read beyond it.
std::string Decode(const std::string& text, int flags = 0, CYEncData* header = nullptr, int status = 0) {
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  std::copy(text.begin(), text.end(), exact.get());
  char* out = nullptr;
  unsigned int length = 77;
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(exact.get(), SizeOf(text), &out, length, flags, header), status);
  std::string data(out == nullptr ? "" : out, length);
  CEncodeDecode::FreeBuffer(out, flags);
  return data;
}

std::string DecodeInline(const std::string& text, int flags = 0, CYEncData* header = nullptr) {
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  std::copy(text.begin(), text.end(), exact.get());
  unsigned int length = 77;
  EXPECT_EQ(CEncodeDecode::DecodeYEncInline(exact.get(), SizeOf(text), length, flags, header), 0);
  return std::string(exact.get(), length);
}

std::string SlowLines(const std::string& data, std::uint32_t line, bool plainTabDot) {
  std::string text;
  std::uint32_t column = 0;
  for (char c : data) {
    const int value = (static_cast<unsigned char>(c) + 42) % 256;
    if (value == 0 || value == 10 || value == 13 || value == 61 || (!plainTabDot && (value == 9 || value == 46))) {
      text += '=';
      text += static_cast<char>((value + 64) % 256);
      column += 2;
    } else {
      text += static_cast<char>(value);
      column += 1;
    }
    if (column >= line) {
      text += "\r\n";
      column = 0;
    }
  }
  return column == 0 ? text : text + "\r\n";
}

struct Slow {
  std::string data;
  std::size_t consumed;
};

Slow SlowDecode(const std::string& text) {
  Slow result{"", 0};
  std::size_t i = 0;
  while (i < text.size()) {
    int c = static_cast<unsigned char>(text[i]);
    std::size_t used = 1;
    if (c == 0) {
      break;
    }
    if (c == '\r' || c == '\n') {
      ++i;
      continue;
    }
    if (c == '=') {
      if (i + 1 == text.size()) {
        ++i;
        break;
      }
      c = static_cast<unsigned char>(text[i + 1]);
      if (c == 0) {
        break;
      }
      c -= 64;
      used = 2;
    }
    result.data += static_cast<char>((c - 42 + 512) % 256);
    i += used;
  }
  result.consumed = i;
  return result;
}

std::string Random(std::size_t size, std::mt19937& random) {
  std::string data(size, '\0');
  for (char& c : data) {
    c = static_cast<char>(random());
  }
  return data;
}

/// Mostly what is special to one side or the other.
std::string Hostile(std::size_t size, std::mt19937& random) {
  static const char kPool[] = "=\r\n\0y=ab\xD6\xE0\xE3\x13\xDF\x04";
  std::string data(size, '\0');
  for (char& c : data) {
    c = random() % 4 == 0 ? static_cast<char>(random()) : kPool[random() % (sizeof(kPool) - 1)];
  }
  return data;
}

TEST(YEncEncode, Escapes) {
  EXPECT_EQ(Encode("\xD6"), "=@\r\n");
  EXPECT_EQ(Encode("\xE0"), "=J\r\n");
  EXPECT_EQ(Encode("\xE3"), "=M\r\n");
  EXPECT_EQ(Encode("\x13"), "=}\r\n");
  EXPECT_EQ(Encode("\xDF"), "=I\r\n");
  EXPECT_EQ(Encode("\x04"), "=n\r\n");
  EXPECT_EQ(Encode("\xDF", CYEncData(), kPlainTabDot), "\t\r\n");
  EXPECT_EQ(Encode("\x04", CYEncData(), kPlainTabDot), ".\r\n");
  EXPECT_EQ(Encode("\x13", CYEncData(), kPlainTabDot), "=}\r\n");
}

void CheckEveryByteBothWays() {
  for (int flags : {0, kPlainTabDot}) {
    for (int c = 0; c < 256; ++c) {
      const std::string data(1, static_cast<char>(c));
      EXPECT_EQ(Encode(data, CYEncData(), flags), SlowLines(data, 128, flags != 0));
      EXPECT_EQ(Decode(Encode(data, CYEncData(), flags)), data);
    }
  }
}

TEST(YEncEncode, EveryByteBothWays) { qsbase::test::OnEveryLevel(CheckEveryByteBothWays); }

TEST(YEncEncode, Lines) {
  EXPECT_EQ(Encode(std::string(128, 'a')).size(), 130u);
  EXPECT_EQ(Encode(std::string(129, 'a')).size(), 133u);
  EXPECT_EQ(Encode(std::string(256, 'a')).size(), 260u);
  // An escape on the border makes its line one longer.
  EXPECT_EQ(Encode("ab\x13"
                   "c",
                   WithLine(3)),
            "\x8B\x8C=}\r\n\x8D\r\n");
  EXPECT_EQ(Encode("ab\x13", WithLine(3)), "\x8B\x8C=}\r\n");
  EXPECT_EQ(Encode("a\x13"
                   "b",
                   WithLine(3)),
            "\x8B=}\r\n\x8C\r\n");
  EXPECT_EQ(Encode("\x13\x13", WithLine(1)), "=}\r\n=}\r\n");
}

TEST(YEncEncode, HeaderOfAPart) {
  CYEncData header;
  header.part = 1;
  header.begin = 1;
  header.end = 3;
  header.name = "a.bin";
  EXPECT_EQ(Encode("abc", header, kHeader),
            "=ybegin part=1 line=128 size=3 name=a.bin\r\n=ypart begin=1 end=3\r\n\x8B\x8C\x8D\r\n"
            "=yend size=3 part=1 pcrc32=352441c2\r\n");
}

TEST(YEncEncode, HeaderOfASingleBlockAndOptionalFields) {
  CYEncData header;
  EXPECT_EQ(Encode("abc", header, kHeader),
            "=ybegin line=128 size=3\r\n\x8B\x8C\x8D\r\n=yend size=3 crc32=352441c2\r\n");
  header.part = 0;
  header.total = 0;
  header.lineLength = 4294967295u;
  header.size = 4294967295u;
  header.begin = 4294967294u;
  header.end = 4294967295u;
  EXPECT_EQ(Encode("abc", header, kHeader),
            "=ybegin part=0 total=0 line=4294967295 size=4294967295\r\n=ypart begin=4294967294 end=4294967295\r\n"
            "\x8B\x8C\x8D\r\n=yend size=3 part=0 pcrc32=352441c2\r\n");
}

TEST(YEncEncode, TrailerKeepsLeadingZerosOfTheCrc) {
  // The CRC-32 of these four bytes is 0.
  const std::string data("\x9D\x0A\xD9\x6D", 4);
  EXPECT_NE(Encode(data, CYEncData(), kHeader).find(" crc32=00000000\r\n"), std::string::npos);
}

void CheckMatchesTheSlowEncoder() {
  std::mt19937 random(1);
  for (std::size_t size = 0; size <= 300; ++size) {
    for (std::uint32_t line : {1u, 2u, 3u, 7u, 8u, 9u, 63u, 64u, 127u, 128u, 129u, 254u, 255u, 1000u, 4294967295u}) {
      for (int flags : {0, kPlainTabDot}) {
        const std::string data = size % 2 == 0 ? Random(size, random) : Hostile(size, random);
        const std::string text = SlowLines(data, line, flags != 0);
        ASSERT_EQ(Encode(data, WithLine(line), flags), text) << size << " " << line;
        unsigned int measured = 77;
        ASSERT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc(data.data(), SizeOf(data), measured, WithLine(line), flags), 0);
        ASSERT_EQ(measured, text.size());
        ASSERT_EQ(Decode(text), data);
      }
    }
  }
}

TEST(YEncEncode, MatchesTheSlowEncoder) { qsbase::test::OnEveryLevel(CheckMatchesTheSlowEncoder); }

void CheckLongInputsMatchTheSlowEncoder() {
  std::mt19937 random(2);
  for (int i = 0; i < 60; ++i) {
    const std::string data = i % 2 == 0 ? Random(random() % 5000, random) : Hostile(random() % 5000, random);
    const std::uint32_t line = 1 + static_cast<std::uint32_t>(random() % 300);
    ASSERT_EQ(Encode(data, WithLine(line)), SlowLines(data, line, false)) << line;
  }
}

TEST(YEncEncode, LongInputsMatchTheSlowEncoder) { qsbase::test::OnEveryLevel(CheckLongInputsMatchTheSlowEncoder); }

void CheckOnlyEscapes() {
  const std::string data(1000, '\x13');
  for (std::uint32_t line : {1u, 2u, 127u, 128u}) {
    EXPECT_EQ(Encode(data, WithLine(line)), SlowLines(data, line, false));
  }
}

TEST(YEncEncode, OnlyEscapes) { qsbase::test::OnEveryLevel(CheckOnlyEscapes); }

TEST(YEncEncode, MeasureCountsHeaderAndTrailer) {
  CYEncData header;
  header.part = 12;
  header.total = 345;
  header.name = "some name.bin";
  for (int flags : {0, kHeader, kHeader | kPlainTabDot}) {
    unsigned int size = 0;
    EXPECT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc("abc", 3, size, header, flags), 0);
    EXPECT_EQ(size, Encode("abc", header, flags).size());
  }
}

TEST(YEncEncode, BadArguments) {
  char* out = nullptr;
  unsigned int length = 77;
  EXPECT_EQ(CEncodeDecode::EncodeYEnc("abc", 3, &out, length, WithLine(0), 0), -6);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(CEncodeDecode::EncodeYEnc(nullptr, 3, &out, length, CYEncData(), 0), -4);
  EXPECT_EQ(CEncodeDecode::EncodeYEnc("abc", 3, nullptr, length, CYEncData(), 0), -4);
  EXPECT_EQ(CEncodeDecode::EncodeYEnc(nullptr, 0, nullptr, length, CYEncData(), kHeader), 0);
  EXPECT_EQ(length, 0u);
  length = 77;
  EXPECT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc("abc", 3, length, WithLine(0), 0), -6);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc(nullptr, 3, length, CYEncData(), 0), -4);
  EXPECT_EQ(CEncodeDecode::CalcEncodedMemoryYEnc(nullptr, 0, length, CYEncData(), 0), 0);
}

TEST(YEncDecode, Rules) {
  EXPECT_EQ(Decode("\x8B\r\n\x8C\n\r\r\x8D"), "abc");
  EXPECT_EQ(Decode(std::string("\x8B\0\x8C", 3)), "a");
  EXPECT_EQ(Decode(std::string("\x8B=\0\x8C", 4)), "a");
  EXPECT_EQ(Decode("\x8B="), "a");
  EXPECT_EQ(Decode("=}"), "\x13");
  EXPECT_EQ(Decode("=="), "\xD3");  // 61 - 64 - 42
  EXPECT_EQ(Decode("=\r\x8B"),
            "\xA3"  // 13 - 64 - 42
            "a");
  EXPECT_EQ(Decode(""), "");
  EXPECT_EQ(Decode("\r\n"), "");
}

void CheckAllThreeFormsMatchTheSlowDecoder() {
  std::mt19937 random(3);
  for (std::size_t size = 0; size <= 300; ++size) {
    for (int round = 0; round < 12; ++round) {
      const std::string text = round % 3 == 0 ? Random(size, random) : Hostile(size, random);
      const Slow expected = SlowDecode(text);
      CYEncData header;
      ASSERT_EQ(Decode(text, 0, &header), expected.data) << size;
      ASSERT_EQ(header.consumedLength, expected.consumed) << size;
      CYEncData inlineHeader;
      ASSERT_EQ(DecodeInline(text, 0, &inlineHeader), expected.data) << size;
      ASSERT_EQ(inlineHeader.consumedLength, expected.consumed);
      ASSERT_EQ(Decode(text, kArrays), expected.data);
      std::string appended = "x";
      ASSERT_EQ(CEncodeDecode::DecodeYEnc(text, appended, 0, nullptr), 0);
      ASSERT_EQ(appended, "x" + expected.data);
    }
  }
}

TEST(YEncDecode, AllThreeFormsMatchTheSlowDecoder) {
  qsbase::test::OnEveryLevel(CheckAllThreeFormsMatchTheSlowDecoder);
}

void CheckSpecialsAtEveryPlaceOfAWord() {
  for (std::size_t size = 1; size <= 40; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      for (char special : {'\0', '\r', '\n', '=', '\x01', '\x0B', '\x0C', '\x0E', '<', '>', '\x80', '\xFF'}) {
        std::string text(size, 'k');
        text[at] = special;
        ASSERT_EQ(Decode(text), SlowDecode(text).data) << size << " " << at << " " << int{special};
        ASSERT_EQ(DecodeInline(text), SlowDecode(text).data);
      }
    }
  }
}

TEST(YEncDecode, SpecialsAtEveryPlaceOfAWord) { qsbase::test::OnEveryLevel(CheckSpecialsAtEveryPlaceOfAWord); }

void CheckEveryPairOfNeighbours() {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      std::string text(16, 'k');
      text[3] = static_cast<char>(a);
      text[4] = static_cast<char>(b);
      ASSERT_EQ(Decode(text), SlowDecode(text).data) << a << " " << b;
    }
  }
}

TEST(YEncDecode, EveryPairOfNeighbours) { qsbase::test::OnEveryLevel(CheckEveryPairOfNeighbours); }

void CheckLongRoundTrips() {
  std::mt19937 random(4);
  for (int flags : {0, kArrays, kPlainTabDot}) {
    const std::string data = Random(300000, random);
    CYEncData header;
    header.name = std::string("x");
    const std::string text = Encode(data, header, flags | kHeader);
    CYEncData read;
    EXPECT_EQ(Decode(text, flags | kFind, &read), data);
    EXPECT_TRUE(read.HasCRC());
    EXPECT_TRUE(read.CompareCRC());
    EXPECT_EQ(DecodeInline(text, kFind, &read), data);
    EXPECT_TRUE(read.CompareCRC());
  }
}

TEST(YEncDecode, LongRoundTrips) { qsbase::test::OnEveryLevel(CheckLongRoundTrips); }

TEST(YEncDecode, BadArguments) {
  char* out = nullptr;
  unsigned int length = 77;
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(nullptr, 3, &out, length, 0, nullptr), -4);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(CEncodeDecode::DecodeYEnc("abc", 3, nullptr, length, 0, nullptr), -4);
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(nullptr, 0, nullptr, length, kFind, nullptr), 0);
  EXPECT_EQ(CEncodeDecode::DecodeYEncInline(nullptr, 3, length, 0, nullptr), -4);
  EXPECT_EQ(CEncodeDecode::DecodeYEncInline(nullptr, 0, length, 0, nullptr), 0);
}

TEST(YEncDecode, WithoutATrailer) {
  const std::string text = "=ybegin line=128 size=3 name=a\r\n\x8B\x8C\x8D\r\n";
  char* out = nullptr;
  unsigned int length = 77;
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(text.data(), SizeOf(text), &out, length, kFind, nullptr), -7);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
  std::string copy = text;
  EXPECT_EQ(CEncodeDecode::DecodeYEncInline(copy.data(), SizeOf(copy), length, kFind, nullptr), -7);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(Decode(text), SlowDecode(text).data);
  std::string none;
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(text, none, kFind, nullptr), -7);
  EXPECT_EQ(none, "");
}

TEST(YEncDecode, CrcIsComputedWhenTheTrailerHasOne) {
  const std::string start = "=ybegin line=128 size=3 name=a\r\n\x8B\x8C\x8D\r\n=yend size=3";
  CYEncData header;
  EXPECT_EQ(Decode(start + " crc32=352441c2\r\n", kFind, &header), "abc");
  EXPECT_EQ(header.crcText, "352441c2");
  EXPECT_EQ(header.computedCrcText, "352441C2");
  EXPECT_TRUE(header.CompareCRC());
  EXPECT_EQ(header.consumedLength, 5u);
  EXPECT_EQ(Decode(start + " crc32=352441c3\r\n", kFind, &header), "abc");
  EXPECT_TRUE(header.HasCRC());
  EXPECT_FALSE(header.CompareCRC());
  EXPECT_EQ(Decode(start + "\r\n", kFind, &header), "abc");
  EXPECT_FALSE(header.HasCRC());
  EXPECT_EQ(header.computedCrcText, "");
  CYEncData own;
  own.crcText = "352441C2";
  EXPECT_EQ(Decode("\x8B\x8C\x8D", 0, &own), "abc");
  EXPECT_TRUE(own.CompareCRC());
}

TEST(YEncDecode, AnEmptyInputLeavesNoResultOfAnEarlierDecode) {
  for (bool isInline : {false, true}) {
    CYEncData header;
    header.consumedLength = 9;
    header.crcText = header.computedCrcText = "352441C2";
    EXPECT_EQ(isInline ? DecodeInline("", kFind, &header) : Decode("", kFind, &header), "");
    EXPECT_EQ(header.consumedLength, 0u);
    EXPECT_EQ(header.computedCrcText, "00000000");
    EXPECT_FALSE(header.CompareCRC());
    header.crcText.clear();
    EXPECT_EQ(isInline ? DecodeInline("", 0, &header) : Decode("", 0, &header), "");
    EXPECT_EQ(header.computedCrcText, "");
  }
}

TEST(YEncDecode, OfAPartTheFirstCrcCounts) {
  const std::string start =
      "=ybegin part=1 line=128 size=9 name=a\r\n=ypart begin=1 end=3\r\n\x8B\x8C\x8D\r\n=yend size=3 ";
  CYEncData header;
  EXPECT_EQ(Decode(start + "pcrc32=352441C2 crc32=11111111\r\n", kFind, &header), "abc");
  EXPECT_EQ(header.crcText, "352441C2");
  EXPECT_TRUE(header.CompareCRC());
  EXPECT_EQ(Decode(start + "crc32=11111111 pcrc32=352441C2\r\n", kFind, &header), "abc");
  EXPECT_EQ(header.crcText, "11111111");
}

struct Found {
  int status = 0;
  std::size_t begin = 0, end = 0, data = 0, length = 0;
};

Found Find(const std::string& text, CYEncData* header = nullptr) {
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  std::copy(text.begin(), text.end(), exact.get());
  const char* begin = "x";
  const char* end = "x";
  const char* data = "x";
  unsigned int length = 77;
  Found found;
  found.status = CEncodeDecode::FindYEncDataBlock(exact.get(), SizeOf(text), begin, end, data, length, header);
  if (found.status != 0) {
    EXPECT_EQ(begin, nullptr);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    return found;
  }
  found.begin = static_cast<std::size_t>(begin - exact.get());
  found.end = static_cast<std::size_t>(end - exact.get());
  found.data = static_cast<std::size_t>(data - exact.get());
  found.length = length;
  return found;
}

TEST(YEncBlock, NoMemoryForALongNameIsAStatus) {
  CYEncData header;
  header.name = std::string(5000, 'n');
  const std::string text = Encode("abc", header, kHeader);
  CYEncData read;
  char* out = nullptr;
  unsigned int length = 77;
  unsigned int size = 77;
  const char* begin = "x";
  const char* end = "x";
  const char* data = "x";
  unsigned int dataLength = 77;
  qsbase::testing::largestAllocation = 4999;
  const int encoded = CEncodeDecode::EncodeYEnc("abc", 3, &out, length, header, kHeader);
  const int measured = CEncodeDecode::CalcEncodedMemoryYEnc("abc", 3, size, header, kHeader);
  const int found = CEncodeDecode::FindYEncDataBlock(text.data(), SizeOf(text), begin, end, data, dataLength, &read);
  const int decoded = CEncodeDecode::DecodeYEnc(text.data(), SizeOf(text), &out, length, kFind, &read);
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
  EXPECT_EQ(encoded, -3);
  EXPECT_EQ(measured, -3);
  EXPECT_EQ(found, -3);
  EXPECT_EQ(decoded, -3);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length + size + dataLength, 0u);
  EXPECT_TRUE(begin == nullptr && end == nullptr && data == nullptr);
}

TEST(YEncBlock, OffsetsAndFields) {
  const std::string before = "Subject: x =ybegin not here\r\n\r\ntext\r\n";
  const std::string head =
      "=ybegin part=2 total=7 line=64 size=4294967295 name= \" my file.bin\" \r\n=ypart begin=101 end=4294967294\n";
  const std::string data = "\x8B\x8C\r\n\x8D\r\n";
  const std::string trailer = "=yend size=3 part=2 pcrc32=352441C2\r\n\r\n";
  CYEncData header;
  const Found found = Find(before + head + data + trailer + "after", &header);
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.begin, before.size());
  EXPECT_EQ(found.data, (before + head).size());
  EXPECT_EQ(found.length, data.size());
  EXPECT_EQ(found.end, (before + head + data + trailer).size());
  EXPECT_EQ(header.blockOffset, found.begin);
  EXPECT_EQ(header.blockEndOffset, found.end);
  EXPECT_EQ(header.part, 2);
  EXPECT_EQ(header.total, 7);
  EXPECT_EQ(header.lineLength, 64u);
  EXPECT_EQ(header.size, 4294967295u);
  EXPECT_EQ(header.begin, 101u);
  EXPECT_EQ(header.end, 4294967294u);
  EXPECT_EQ(header.endSize, 3u);
  EXPECT_EQ(header.crcText, "352441C2");
  EXPECT_EQ(header.name, " my file.bin");
}

TEST(YEncBlock, AbsentFields) {
  CYEncData header;
  header.part = 5;
  header.total = 6;
  header.name = "old";
  header.crcText = "old";
  header.size = header.endSize = header.begin = header.end = 9;
  EXPECT_EQ(Find("=ybegin \r\n=yend \r\n", &header).status, 0);
  EXPECT_EQ(header.part, -1);
  EXPECT_EQ(header.total, -1);
  EXPECT_EQ(header.lineLength, 0u);
  EXPECT_EQ(header.size, 0u);
  EXPECT_EQ(header.endSize, 0u);
  EXPECT_EQ(header.begin, 0u);
  EXPECT_EQ(header.end, 0u);
  EXPECT_EQ(header.name, "");
  EXPECT_EQ(header.crcText, "");
}

TEST(YEncBlock, NotFoundLeavesTheHeader) {
  CYEncData header;
  header.name = "kept";
  for (const char* text :
       {"", "=ybegin", "=ybegin \r\n", "=yend \r\n", "=yend \r\n=ybegin \r\n", "x=ybegin \r\n=yend \r\n",
        "=YBEGIN \r\n=yend \r\n", "=ybegin \r\nx=yend \r\n", "=ybegin \r\n=YEND \r\n", "=ybegin\r\n=yend \r\n",
        "=ybegin \r\n=yend", "=ybegin \r\n=yend\r\n", "=ybegin =yend "}) {
    EXPECT_EQ(Find(text, &header).status, -7) << text;
    EXPECT_EQ(header.name, "kept");
  }
  const char* place = nullptr;
  unsigned int length = 0;
  EXPECT_EQ(CEncodeDecode::FindYEncDataBlock(nullptr, 3, place, place, place, length, nullptr), -4);
}

TEST(YEncBlock, DataStartNeverPassesTheTrailer) {
  const std::string head = "=ybegin line=128 size=0 name=a\r\n=ypart begin=1 end=0\r\n";
  const Found found = Find(head + "=yend size=0\r\n");
  EXPECT_EQ(found.status, 0);
  EXPECT_EQ(found.data, head.size());
  EXPECT_EQ(found.length, 0u);
  char* out = nullptr;
  unsigned int length = 77;
  const std::string text = head + "=yend size=0\r\n";
  EXPECT_EQ(CEncodeDecode::DecodeYEnc(text.data(), SizeOf(text), &out, length, kFind, nullptr), 0);
  EXPECT_EQ(length, 0u);
  CEncodeDecode::FreeBuffer(out, 0);
}

TEST(YEncBlock, FurtherHeaderLinesAreSkippedAtTheStartOnly) {
  const std::string head = "=ybegin line=128 size=2 name=a\n=ypart begin=1 end=2\n=yfoo\n";
  const std::string data = "\x8B\n=y\x8C\n";
  const Found found = Find(head + data + "=yend size=2\n");
  EXPECT_EQ(found.data, head.size());
  EXPECT_EQ(found.length, data.size());
}

TEST(YEncBlock, LineBreaksOfAnyKind) {
  for (const std::string& lineBreak :
       {std::string("\r\n"), std::string("\n"), std::string("\r"), std::string("\n\n\r\r\n")}) {
    const std::string text = "x" + lineBreak + "=ybegin line=1 size=1 name=n" + lineBreak + "\x8B" + lineBreak +
                             "=yend size=1" + lineBreak + "y";
    CYEncData header;
    const Found found = Find(text, &header);
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.length, 1 + lineBreak.size());
    EXPECT_EQ(found.end, text.size() - 1);
    EXPECT_EQ(header.name, "n");
    EXPECT_EQ(header.endSize, 1u);
  }
}

TEST(YEncBlock, TheLastLineMayEndWithTheInput) {
  CYEncData header;
  const std::string text = "=ybegin line=1 size=1 name=n\n\x8B\n=yend size=1 crc32=e8b7be43";
  EXPECT_EQ(Decode(text, kFind, &header), "a");
  EXPECT_EQ(header.blockEndOffset, text.size());
  EXPECT_EQ(header.crcText, "e8b7be43");
  EXPECT_TRUE(header.CompareCRC());
}

TEST(YEncBlock, ANameThatLooksLikeFields) {
  CYEncData header;
  const std::string text =
      "=ybegin line=128 size=3 name=my size=9 part=4 begin=5 x.bin\r\n=ypart begin=1 end=3\r\n\x8B\r\n=yend size=1\r\n";
  EXPECT_EQ(Find(text, &header).status, 0);
  EXPECT_EQ(header.name, "my size=9 part=4 begin=5 x.bin");
  EXPECT_EQ(header.size, 3u);
  EXPECT_EQ(header.begin, 1u);
  EXPECT_EQ(header.end, 3u);
  EXPECT_EQ(header.part, 4);  // no other "part=" in the header
}

TEST(YEncBlock, FieldsBehindTheNameAreFound) {
  CYEncData header;
  EXPECT_EQ(Find("=ybegin name=a size=3 line=64\r\n\x8B\r\n=yend size=1\r\n", &header).status, 0);
  EXPECT_EQ(header.size, 3u);
  EXPECT_EQ(header.lineLength, 64u);
}

TEST(YEncBlock, NamesAreTrimmed) {
  for (const auto& [raw, name] : std::vector<std::pair<std::string, std::string>>{{"a b.bin", "a b.bin"},
                                                                                  {"  a.bin\t ", "a.bin"},
                                                                                  {"\"a.bin\"", "a.bin"},
                                                                                  {" \"\"a\"b\"\" ", "a\"b"},
                                                                                  {"\"\"", ""},
                                                                                  {"", ""},
                                                                                  {"x=y.bin", "x"},
                                                                                  {"..\\up", "..\\up"}}) {
    CYEncData header;
    EXPECT_EQ(Find("=ybegin line=1 size=1 name=" + raw + "\r\n\x8B\r\n=yend size=1\r\n", &header).status, 0);
    EXPECT_EQ(header.name, name) << raw;
  }
}

TEST(YEncBlock, SeveralInARow) {
  const std::string one = Encode("abc", CYEncData(), kHeader);
  const std::string two = Encode("defg", CYEncData(), kHeader);
  std::string rest = one + "between\r\n" + two;
  std::vector<std::string> all;
  CYEncData header;
  while (Find(rest, &header).status == 0) {
    all.push_back(Decode(rest, kFind));
    rest.erase(0, header.blockEndOffset);
  }
  EXPECT_EQ(all, (std::vector<std::string>{"abc", "defg"}));
}

void CheckBlocksCutAnywhere() {
  CYEncData part;
  part.part = 1;
  part.name = "cut";
  const std::string text = "x\r\n" + Encode("abc", part, kHeader) + "\r\n";
  const std::size_t whole = text.find("=yend ") + 6;
  for (std::size_t size = 0; size <= text.size(); ++size) {
    CYEncData header;
    EXPECT_EQ(Find(text.substr(0, size), &header).status, size >= whole ? 0 : -7) << size;
    EXPECT_EQ(Decode(text.substr(0, size), 0), SlowDecode(text.substr(0, size)).data);
  }
}

TEST(YEncBlock, CutAnywhere) { qsbase::test::OnEveryLevel(CheckBlocksCutAnywhere); }

TEST(YEncBlock, NumbersSaturate) {
  CYEncData header;
  EXPECT_EQ(
      Find("=ybegin line=99999999999999999999 size=-5 part=4294967296 name=n\n\x8B\n=yend size=x\n", &header).status,
      0);
  EXPECT_EQ(header.lineLength, 2147483647u);
  EXPECT_EQ(header.size, static_cast<std::uint32_t>(-5));
  EXPECT_EQ(header.part, 2147483647);
  EXPECT_EQ(header.endSize, 0u);
}

void CheckBlocksHostileTextsNeverReadOutside() {
  std::mt19937 random(5);
  const std::vector<std::string> pieces = {"=ybegin ", "=yend ",  "=ypart ", "name=", "size=",
                                           "crc32=",   "\r\n",    "\n",      "=",     "=y",
                                           " ",        "line=9 ", "\"",      "part=", std::string(1, '\0'),
                                           "a"};
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (std::size_t n = random() % 16; n > 0; --n) {
      text += pieces[random() % pieces.size()];
    }
    CYEncData header;
    const Found found = Find(text, &header);
    if (found.status == 0) {
      ASSERT_LE(found.begin, found.data);
      ASSERT_LE(found.data + found.length, found.end);
      ASSERT_LE(found.end, text.size());
      ASSERT_EQ(Decode(text, kFind), SlowDecode(text.substr(found.data, found.length)).data);
      ASSERT_EQ(DecodeInline(text, kFind), SlowDecode(text.substr(found.data, found.length)).data);
    }
  }
}

TEST(YEncBlock, HostileTextsNeverReadOutside) { qsbase::test::OnEveryLevel(CheckBlocksHostileTextsNeverReadOutside); }

// Kernels on their own, in blocks of exact size, at every level.

using qsbase::detail::CurrentSimdLevel;
using qsbase::detail::YEncDecoding;
using qsbase::detail::YEncFirstLine;
using qsbase::detail::YEncKernels;
using qsbase::detail::YEncKernelsOf;
using qsbase::detail::YEncLine;

const YEncKernels& Kernels() { return YEncKernelsOf(CurrentSimdLevel()); }

const unsigned char* AsBytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

unsigned char* AsBytes(char* text) { return reinterpret_cast<unsigned char*>(text); }

/// A copy that ends where its memory does and begins so many bytes behind where that does.
class Exact {
 public:
  explicit Exact(const std::string& text, std::size_t start = 0)
      : _size(text.size()), _start(start), _memory(new char[start + text.size()]) {
    std::copy(text.begin(), text.end(), Data());
  }

  char* Data() { return _memory.get() + _start; }
  const char* End() { return Data() + _size; }

 private:
  std::size_t _size;
  std::size_t _start;
  std::unique_ptr<char[]> _memory;
};

/// Encodes in pieces, into memory as long as the kernel may touch.
std::string EncodePieces(const std::string& data, std::uint32_t columns, bool plainTabDot, std::size_t piece,
                         std::size_t alignment) {
  Exact input(data, alignment);
  YEncLine counted = YEncFirstLine(columns, data.size(), plainTabDot);
  YEncLine line = counted;
  const auto size = static_cast<std::size_t>(Kernels().measure(AsBytes(input.Data()), data.size(), counted));
  Exact output(std::string(size + qsbase::detail::kYEncSlack, '\xEE'));
  unsigned char* out = AsBytes(output.Data());
  for (std::size_t start = 0; start < data.size(); start += piece) {
    out = Kernels().encode(AsBytes(input.Data()) + start, std::min(piece, data.size() - start), out, line);
  }
  EXPECT_EQ(out, AsBytes(output.Data()) + size);
  EXPECT_EQ(line.room, counted.room);
  return std::string(output.Data(), size) + (line.room == line.length ? "" : "\r\n");
}

/// Decodes in pieces, to so many bytes before the text. Returns the data and what was consumed.
Slow DecodePieces(const std::string& text, std::size_t piece, std::size_t distance) {
  Exact block(std::string(distance, '\xEE') + text);
  const unsigned char* const start = AsBytes(block.Data()) + distance;
  YEncDecoding decoding{start, AsBytes(block.Data())};
  const unsigned char* const end = AsBytes(block.End());
  while (!decoding.isOver && decoding.read != end) {
    const auto left = static_cast<std::size_t>(end - decoding.read);
    Kernels().decode(decoding, decoding.read + std::min(piece, left));
  }
  const auto length = static_cast<std::size_t>(decoding.written - AsBytes(block.Data()));
  const std::ptrdiff_t consumed = decoding.read - start - (decoding.isOver && decoding.isEscape ? 1 : 0);
  return {std::string(block.Data(), length), static_cast<std::size_t>(consumed)};
}

Slow DecodeApart(const std::string& text, std::size_t alignment) {
  Exact input(text, alignment);
  Exact output(std::string(text.size(), '\xEE'));
  YEncDecoding decoding{AsBytes(input.Data()), AsBytes(output.Data())};
  Kernels().decode(decoding, AsBytes(input.End()));
  const auto length = static_cast<std::size_t>(decoding.written - AsBytes(output.Data()));
  const std::ptrdiff_t consumed =
      decoding.read - AsBytes(input.Data()) - (decoding.isOver && decoding.isEscape ? 1 : 0);
  return {std::string(output.Data(), length), static_cast<std::size_t>(consumed)};
}

/// Text without a NUL, some of whose characters are from a pool.
std::string Text(std::size_t size, const std::string& pool, unsigned int oneIn, std::mt19937& random) {
  std::string text(size, '\0');
  for (char& c : text) {
    c = random() % oneIn == 0 ? pool[random() % pool.size()] : static_cast<char>(1 + random() % 255);
  }
  return text;
}

void ExpectDecodes(const std::string& text, std::size_t place) {
  const Slow expected = SlowDecode(text);
  const Slow apart = DecodeApart(text, place % 64);
  ASSERT_EQ(apart.data, expected.data) << place;
  ASSERT_EQ(apart.consumed, expected.consumed) << place;
  const Slow moved = DecodePieces(text, text.size(), place % 67);
  ASSERT_EQ(moved.data, expected.data) << place;
  ASSERT_EQ(moved.consumed, expected.consumed) << place;
  const Slow pieces = DecodePieces(text, 1 + place % 131, 0);
  ASSERT_EQ(pieces.data, expected.data) << place;
  ASSERT_EQ(pieces.consumed, expected.consumed) << place;
}

TEST(YEncKernel, EncodesAllLengthsAndAlignments) {
  qsbase::test::OnEveryLevel([] {
    std::mt19937 random(11);
    for (std::size_t size = 0; size <= 300; ++size) {
      const bool plainTabDot = size % 3 == 0;
      const auto columns = static_cast<std::uint32_t>(size % 2 == 0 ? 128 : 1 + random() % 140);
      const std::string data = size % 5 == 0 ? Hostile(size, random) : Random(size, random);
      const std::string text = SlowLines(data, columns, plainTabDot);
      for (std::size_t alignment = 0; alignment < 64; alignment += 1 + size % 7) {
        ASSERT_EQ(EncodePieces(data, columns, plainTabDot, 1000, alignment), text) << size << " " << columns;
      }
      ASSERT_EQ(EncodePieces(data, columns, plainTabDot, 1 + random() % 90, 0), text) << size << " " << columns;
    }
  });
}

TEST(YEncKernel, EncodesEscapesAtEveryPlaceOfALine) {
  qsbase::test::OnEveryLevel([] {
    for (std::uint32_t columns : {16u, 63u, 64u, 65u, 127u, 128u, 129u}) {
      for (std::size_t at = 0; at < 200; ++at) {
        std::string data(210, 'a');
        data[at] = '\x13';
        ASSERT_EQ(EncodePieces(data, columns, false, 1000, 0), SlowLines(data, columns, false)) << at;
        data[at + 1] = data[at + 3] = '\xD6';
        ASSERT_EQ(EncodePieces(data, columns, false, 1000, 0), SlowLines(data, columns, false)) << at;
      }
    }
  });
}

TEST(YEncKernel, LinesMayBeLongerThanMemory) {
  qsbase::test::OnEveryLevel([] {
    const std::size_t most = std::numeric_limits<std::size_t>::max();
    for (const std::size_t size : {1u, 15u, 16u, 31u, 32u, 100u, 128u, 129u, 300u}) {
      const std::string data(size, 'a');
      std::vector<unsigned char> out(2 * size + 64);
      YEncLine line{most, most, false};
      const auto* const input = reinterpret_cast<const unsigned char*>(data.data());
      ASSERT_EQ(Kernels().encode(input, size, out.data(), line), out.data() + size);
      ASSERT_EQ(line.room, most - size);
    }
  });
}

TEST(YEncKernel, CountsEscapes) {
  qsbase::test::OnEveryLevel([] {
    std::mt19937 random(12);
    for (std::size_t size = 0; size <= 300; ++size) {
      const std::string data = size % 2 == 0 ? Hostile(size, random) : Random(size, random);
      for (bool plainTabDot : {false, true}) {
        Exact input(data, size % 64);
        const std::size_t whole = SlowLines(data, 4294967295u, plainTabDot).size();
        ASSERT_EQ(Kernels().countEscapes(AsBytes(input.Data()), size, plainTabDot), size == 0 ? 0 : whole - 2 - size);
      }
    }
  });
}

TEST(YEncKernel, DecodesAllLengthsAndAlignments) {
  qsbase::test::OnEveryLevel([] {
    std::mt19937 random(13);
    for (std::size_t size = 0; size <= 300; ++size) {
      for (std::size_t round = 0; round < 16; ++round) {
        ExpectDecodes(Text(size, "=\r\n", 2 + static_cast<unsigned int>(round) * 5, random), size * 16 + round);
        ExpectDecodes(Hostile(size, random), size * 16 + round);
      }
    }
  });
}

TEST(YEncKernel, DecodesRunsOfEscapes) {
  qsbase::test::OnEveryLevel([] {
    for (std::size_t start = 0; start < 140; ++start) {
      for (std::size_t length : {1u, 2u, 3u, 4u, 7u, 63u, 64u, 65u, 128u, 129u}) {
        for (const char* behind : {"}", "\r\n", "\n", "k"}) {
          ExpectDecodes(std::string(start, 'k') + std::string(length, '=') + behind + std::string(70, 'm'), start);
        }
        ExpectDecodes(std::string(start, 'k') + std::string(length, '='), start);
        ExpectDecodes(std::string(start, 'k') + std::string(length, '=') + std::string(80, '\0'), start);
      }
    }
  });
}

TEST(YEncKernel, FindsKeywords) {
  qsbase::test::OnEveryLevel([] {
    for (std::size_t size = 0; size <= 300; ++size) {
      std::string text(size, 'k');
      for (std::size_t at = 0; at < size; ++at) {
        text[at] = at % 2 == 0 ? '=' : 'y';
        Exact none(text, at % 64);
        ASSERT_EQ(Kernels().findKeyword(none.Data(), none.End()), none.End()) << size << " " << at;
        if (at + 1 < size) {
          std::string found = text;
          found[at] = '=';
          found[at + 1] = 'y';
          Exact some(found, at % 64);
          ASSERT_EQ(Kernels().findKeyword(some.Data(), some.End()), some.Data() + at) << size << " " << at;
        }
        text[at] = 'k';
      }
    }
  });
}

TEST(YEncEncode, MoreEscapesThanASampleTells) {
  qsbase::test::OnEveryLevel([] {
    const std::string plain(200000, 'a');
    const std::string escaped(200000, '\x13');
    for (const std::string& data : {plain + escaped, escaped + plain, escaped}) {
      for (std::uint32_t columns : {1u, 2u, 128u, 4294967295u}) {
        const std::string text = SlowLines(data, columns, false);
        for (int flags : {0, kArrays}) {
          ASSERT_TRUE(Encode(data, WithLine(columns), flags) == text) << columns;
        }
        CYEncData read;
        ASSERT_TRUE(Decode(Encode(data, WithLine(columns), kHeader), kFind, &read) == data) << columns;
        ASSERT_TRUE(read.CompareCRC());
      }
    }
  });
}

TEST(YEncEncode, MemoryForTheTextIsEnough) {
  std::string data;
  while (data.size() < 1000000) {
    data += std::string(1024, '\x13') + std::string(15360, 'a');  // a start that misleads
  }
  const std::string expected = SlowLines(data, 128, false);
  char* out = nullptr;
  unsigned int length = 0;
  qsbase::testing::largestAllocation = expected.size() + 1000;
  const int status = CEncodeDecode::EncodeYEnc(data.data(), SizeOf(data), &out, length, CYEncData(), kArrays);
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::string(out == nullptr ? "" : out, length) == expected);
  CEncodeDecode::FreeBuffer(out, kArrays);
}

TEST(YEncDecode, InPlaceBehindALongHeader) {
  qsbase::test::OnEveryLevel([] {
    std::mt19937 random(14);
    const std::string data = Random(100000, random);
    for (std::size_t before = 0; before < 80; ++before) {
      CYEncData read;
      const std::string text = std::string(before, '\n') + Encode(data, CYEncData(), kHeader);
      ASSERT_TRUE(DecodeInline(text, kFind, &read) == data) << before;
      ASSERT_TRUE(read.CompareCRC());
      ASSERT_EQ(read.blockOffset, before);
    }
  });
}

TEST(YEncData, DefaultsAndCopies) {
  const CYEncData data;
  EXPECT_EQ(data.consumedLength, 0u);
  EXPECT_EQ(data.lineLength, 128u);
  EXPECT_EQ(data.endSize, 0u);
  EXPECT_EQ(data.size, 0u);
  EXPECT_EQ(data.part, -1);
  EXPECT_EQ(data.begin, 0u);
  EXPECT_EQ(data.end, 0u);
  EXPECT_EQ(data.total, -1);
  EXPECT_EQ(data.blockOffset, 0u);
  EXPECT_EQ(data.blockEndOffset, 0u);
  EXPECT_FALSE(data.HasCRC());
  CYEncData changed;
  changed.name = "n";
  changed.part = 3;
  changed.crcText = "00ff";
  changed.computedCrcText = "00FF";
  const CYEncData copy(changed);
  EXPECT_EQ(copy.name, "n");
  EXPECT_EQ(copy.part, 3);
  EXPECT_TRUE(copy.CompareCRC());
  CYEncData assigned;
  assigned = copy;
  EXPECT_EQ(assigned.name, "n");
  EXPECT_TRUE(assigned.HasCRC());
  assigned.computedCrcText = "00FE";
  EXPECT_FALSE(assigned.CompareCRC());
  assigned.computedCrcText = "00FF0";
  EXPECT_FALSE(assigned.CompareCRC());
}

TEST(YEncData, ThroughTheDispatchTheLineIs128) {
  CEncodeDecode coder(75, 76);
  std::string text;
  EXPECT_EQ(coder.Encode(std::string(129, 'a'), text, 0x800 | kHeader), 0);
  EXPECT_EQ(text.find("=ybegin line=128 size=129\r\n"), 0u);
  std::string data;
  EXPECT_EQ(coder.Decode(text, data, 0x800 | kFind), 0);
  EXPECT_EQ(data, std::string(129, 'a'));
}

}  // namespace
