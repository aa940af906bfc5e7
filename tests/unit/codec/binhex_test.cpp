#include <QSbase/codec/binhex.h>
#include <QSbase/codec/encodedecode.h>
#include <gtest/gtest.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using qsbase::test::OnEveryLevel;

constexpr int kHeaderOnly = 0x20000;
constexpr int kArrays = 0x10000000;

const std::string kMarker = "(This file must be converted with BinHex 4.0)\r\n";
const std::string kDigits = "!\"#$%&'()*+,-012345689@ABCDEFGHIJKLMNPQRSTUVXYZ[`abcdefhijklmpqr";

struct File {
  std::string name = "a.txt";
  std::string type = "TEXT";
  std::string creator = "ttxt";
  unsigned int flags = 0;
  std::string data;
  std::string resource;
};

std::string Number(std::uint32_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
    text += static_cast<char>(value >> shift);
  }
  return text;
}

/// CCITT CRC-16 with the polynomial 0x1021, as BinHex 4.0 has it: start 0, two zero bytes behind the data.
std::string Crc(const std::string& data) {
  std::uint32_t crc = 0;
  for (char c : data + std::string(2, '\0')) {
    for (int bit = 7; bit >= 0; --bit) {
      crc = crc << 1 | (static_cast<unsigned char>(c) >> bit & 1u);
      crc = crc & 0x10000 ? crc ^ 0x11021 : crc;
    }
  }
  return Number(crc & 0xFFFF, 2);
}

std::string Stream(const File& file) {
  const std::string header = static_cast<char>(file.name.size()) + file.name + '\0' + file.type + file.creator +
                             Number(file.flags, 2) + Number(static_cast<std::uint32_t>(file.data.size()), 4) +
                             Number(static_cast<std::uint32_t>(file.resource.size()), 4);
  return header + Crc(header) + file.data + Crc(file.data) + file.resource + Crc(file.resource);
}

/// Codes runs longer than `shortest`, and every 0x90.
std::string RunLengths(const std::string& stream, std::size_t shortest = 3) {
  std::string coded;
  for (std::size_t i = 0; i < stream.size();) {
    std::size_t run = 1;
    while (i + run < stream.size() && stream[i + run] == stream[i] && run < 255) {
      ++run;
    }
    const std::string one = stream[i] == '\x90' ? std::string("\x90\0", 2) : std::string(1, stream[i]);
    if (run > shortest) {
      coded += one + '\x90' + static_cast<char>(run);
      i += run;
    } else {
      coded += one;
      ++i;
    }
  }
  return coded;
}

std::string Characters(const std::string& bytes) {
  std::string text = ":";
  std::uint32_t bits = 0;
  int count = 0;
  for (char c : bytes) {
    bits = bits << 8 | static_cast<unsigned char>(c);
    for (count += 8; count >= 6; count -= 6) {
      text += kDigits[bits >> (count - 6) & 63];
    }
  }
  if (count != 0) {
    text += kDigits[bits << (6 - count) & 63];
  }
  return text + ":";
}

std::string Wrapped(const std::string& characters) {
  std::string text;
  for (std::size_t i = 0; i < characters.size(); i += 64) {
    text += characters.substr(i, 64) + "\r\n";
  }
  return text;
}

std::string Encode(const File& file) { return kMarker + "\r\n" + Wrapped(Characters(RunLengths(Stream(file)))); }

struct Result {
  int status;
  std::string data;
  bool isNull;
};

/// Decodes from an exact copy on the heap, so that a sanitizer sees a read beyond it.
Result Decode(const std::string& text, int flags = 0, CBinHexDecoder* decoder = nullptr) {
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  std::copy(text.begin(), text.end(), exact.get());
  char sentinel = 'x';
  char* out = &sentinel;
  unsigned int length = 77;
  Result result{0, "", false};
  result.status =
      CEncodeDecode::DecodeBinHex(exact.get(), static_cast<unsigned int>(text.size()), &out, length, flags, decoder);
  result.isNull = out == nullptr;
  result.data.assign(out == nullptr ? "" : out, length);
  if (result.status != 0) {
    EXPECT_TRUE(result.isNull);
    EXPECT_EQ(length, 0u);
  }
  CEncodeDecode::FreeBuffer(out, flags);
  return result;
}

std::string Random(std::size_t size, std::mt19937& random) {
  std::string data;
  while (data.size() < size) {
    const std::string one(1, random() % 4 == 0 ? '\x90' : static_cast<char>(random()));
    data += random() % 3 == 0 ? std::string(random() % 600, one[0]) : one;
  }
  return data.substr(0, size);
}

TEST(BinHex, TextOfAnotherEncoder) {
  // Made by binhex of macutils 2.0b3, its first line replaced by the format's marker.
  const std::string text = R"hqx((This file must be converted with BinHex 4.0)

:#(*eER-ZBQPZ!&4C8%9$8N9"!!!!!!6i!!!!!!f(!!%#!`3&"JF)#3S,$!d1$a!
4%K-8&4BA'"ND'a`G(KmJ)5)M*#8Q*bJT+LXX,5i[-$%b-c3e0MFi16Sl2$dq2d"
"3N0%48C(5%P+5da06Np389*69&9@9eKC@PYFA9jIB'&LBf4PCQGSD@TVE'eZEh"
aFR0dGAChH(PkHhapIRq!JB+$K)@'KiL*LSZ-MBk2N!#4NT18PCDAQ*QDQjbGRTq
JSD+MT+@QTkLTUUZXVDk[X,'bXl5eYVHiZEUl[,fq[m$"`X2%aFE(b-R+bmc0cXr
3dG,6e0A@epMCfY[FhGlIi1(Liq6PjZISkHVVl1hZlr$am[2dpIEhq2Rkqrcpr[p
KN2pKN#f3!*!!N!#3!*!!BT!!Bf0MC'53!!#3r`#3r`#3[Q9ZC&#!!!!:
)hqx";
  std::string expected;
  for (int i = 0; i < 256; ++i) {
    expected += static_cast<char>(i);
  }
  expected += std::string(300, 'a') + std::string(5, '\x90') +
              "b\x90"
              "ccc"
              "dd\x90" +
              std::string(700, '\0') + "end";
  CBinHexDecoder decoder;
  const Result result = Decode(text, 0, &decoder);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.data, expected);
  EXPECT_EQ(decoder.GetFilename(), "runs.bin");
  EXPECT_EQ(decoder.GetType(), 0x54595045u);     // TYPE
  EXPECT_EQ(decoder.GetCreator(), 0x43524541u);  // CREA
  EXPECT_EQ(decoder.GetDataSize(), 1272u);
}

TEST(BinHex, TheTestsOwnCrcIsTheUsualOne) {
  // The check value of CRC-16/XMODEM.
  EXPECT_EQ(Crc("123456789"), Number(0x31C3, 2));
}

TEST(BinHex, HeaderFields) {
  File file;
  file.name = "Some name.bin";
  file.type =
      "\xFF\x01"
      "ab";
  file.creator = "\x90\x90\x90\x90";
  file.flags = 0xFEDC;
  file.data = "data";
  file.resource = "resource";
  CBinHexDecoder decoder;
  EXPECT_EQ(decoder.GetFilename(), "");
  EXPECT_EQ(decoder.GetType() | decoder.GetCreator() | decoder.GetFlags() | decoder.GetDataSize(), 0u);
  EXPECT_EQ(Decode(Encode(file), 0, &decoder).data, "data");
  EXPECT_EQ(decoder.GetFilename(), "Some name.bin");
  EXPECT_EQ(decoder.GetType(), 0xFF016162u);
  EXPECT_EQ(decoder.GetCreator(), 0x90909090u);
  EXPECT_EQ(decoder.GetFlags(), 0xFEDC);
  EXPECT_EQ(decoder.GetDataSize(), 4u);
  const CBinHexDecoder copy(decoder);
  EXPECT_EQ(copy.GetFilename(), "Some name.bin");
  CBinHexDecoder assigned;
  assigned = decoder;
  EXPECT_EQ(assigned.GetFlags(), 0xFEDC);
  EXPECT_EQ(assigned.GetDataSize(), 4u);
}

TEST(BinHex, RunsAndRunMarksInTheNameAndTheHeader) {
  File file;
  file.data = "x";
  for (const std::string& name : {std::string("aaaaaaaa"), std::string("\x90"), std::string("a\x90\x90\x90\x90\x90z"),
                                  std::string(255, 'n'), std::string(144, '\x90'), std::string()}) {
    for (unsigned int flags : {0u, 0x9090u, 0x0090u, 0xFFFFu}) {
      file.name = name;
      file.flags = flags;
      CBinHexDecoder decoder;
      EXPECT_EQ(Decode(Encode(file), 0, &decoder).data, "x");
      EXPECT_EQ(decoder.GetFilename(), name);
      EXPECT_EQ(decoder.GetFlags(), flags);
    }
  }
}

TEST(BinHex, RunMarksInTheCrcs) {
  // Some data of two bytes has the byte 0x90 in its CRC, first or second.
  int seen = 0;
  for (unsigned int value = 0; value < 0x10000; value += 7) {
    File file;
    file.data = Number(value, 2);
    if (Crc(file.data).find('\x90') == std::string::npos) {
      continue;
    }
    ++seen;
    file.resource = file.data;
    ASSERT_EQ(Decode(Encode(file)).data, file.data) << value;
  }
  EXPECT_GT(seen, 10);
}

TEST(BinHex, RunsOfTheData) {
  auto decode = [](const std::string& coded, std::uint32_t size) {
    File file;
    const std::string header =
        Stream(file).substr(0, 1 + file.name.size() + 11) + Number(size, 4) + Number(0, 4) + "hc";
    return Decode(kMarker + Characters(RunLengths(header) + coded + "dcrc"));
  };
  EXPECT_EQ(decode(std::string("\x90\0", 2), 1).data, "\x90");
  EXPECT_EQ(decode("x\x90\x03", 3).data, "xxx");
  EXPECT_EQ(decode("x\x90\x01y", 2).data, "xy");
  EXPECT_EQ(decode("x\x90\x02y", 3).data, "xxy");
  EXPECT_EQ(decode("x\x90\xFFy", 256).data, std::string(255, 'x') + "y");
  EXPECT_EQ(decode("x\x90\x03\x90\x03", 5).data, "xxxxx");
  EXPECT_EQ(decode(std::string("+\x90\0\x90\x05", 5), 6).data, "+\x90\x90\x90\x90\x90");
  EXPECT_EQ(decode(std::string("x\x90\0y", 4), 3).data, "x\x90y");
}

TEST(BinHex, ARunGoesOnAcrossTheParts) {
  // The run begins in the name and covers the version byte and the type.
  const std::string stream = std::string(
                                 "\x02"
                                 "a") +
                             std::string(6, '\0') + "crea" + Number(0, 2) + Number(3, 4) + Number(0, 4) + "hc" + "zzz" +
                             "zzrc";
  CBinHexDecoder decoder;
  EXPECT_EQ(Decode(kMarker + Characters(RunLengths(stream, 1)), 0, &decoder).data, "zzz");
  EXPECT_EQ(decoder.GetFilename(), std::string("a\0", 2));
  EXPECT_EQ(decoder.GetType(), 0u);
}

TEST(BinHex, RandomFiles) {
  std::mt19937 random(1);
  for (int i = 0; i < 600; ++i) {
    File file;
    file.name = Random(random() % 256, random);
    file.type = Random(4, random);
    file.creator = Random(4, random);
    file.flags = static_cast<unsigned int>(random() % 0x10000);
    file.data = Random(1 + random() % 4000, random);
    file.resource = Random(random() % 3 == 0 ? random() % 50000 : 0, random);
    CBinHexDecoder decoder;
    const int flags = i % 2 == 0 ? 0 : kArrays;
    const Result result = Decode(Encode(file), flags, &decoder);
    ASSERT_EQ(result.status, 0) << i;
    ASSERT_EQ(result.data, file.data) << i;
    ASSERT_EQ(decoder.GetFilename(), file.name) << i;
  }
}

TEST(BinHex, EveryDataLength) {
  std::mt19937 random(2);
  for (std::size_t size = 1; size <= 300; ++size) {
    File file;
    file.data = Random(size, random);
    ASSERT_EQ(Decode(Encode(file)).data, file.data) << size;
  }
}

TEST(BinHex, MuchMoreDataThanText) {
  File file;
  file.data = std::string(3000000, 'q') + "end";
  for (int flags : {0, kArrays}) {
    const std::string text = Encode(file);
    EXPECT_LT(text.size(), 50000u);
    EXPECT_EQ(Decode(text, flags).data, file.data);
  }
}

TEST(BinHex, EmptyDataForkIsNull) {
  File file;
  const Result result = Decode(Encode(file));
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.isNull);
  file.resource = "only a resource fork";
  EXPECT_EQ(Decode(Encode(file)).status, 0);
  EXPECT_TRUE(Decode(Encode(file)).isNull);
}

TEST(BinHex, StartOfTheData) {
  File file;
  file.data = "data";
  const std::string characters = Characters(RunLengths(Stream(file)));
  const std::string marker = kMarker.substr(0, 40);
  for (const std::string& head : {marker + " 4.0)\n", marker + " 5.7 beta!\r\n", marker + "\r", "\r\n \t\n" + kMarker,
                                  kMarker + " \t\r\n\n", marker + "Q: what? A: this\n"}) {
    EXPECT_EQ(Decode(head + characters).data, "data") << head;
  }
  for (const std::string& head :
       {"x" + kMarker, "text\r\n" + kMarker, std::string("(this file must be converted with BinHex 4.0)\n"),
        marker.substr(0, 39) + "\n", std::string(), std::string("\r\n"), kMarker + "x"}) {
    EXPECT_EQ(Decode(head + characters).status, -7) << head;
  }
  EXPECT_EQ(Decode(marker).status, -7);
  EXPECT_EQ(Decode(kMarker).status, -7);
  EXPECT_EQ(Decode(marker + characters).status, -7);  // the colon stands on the marker's line
}

TEST(BinHex, StartCutAnywhere) {
  const std::string start = " " + kMarker + ":";
  for (std::size_t size = 1; size < start.size(); ++size) {
    EXPECT_EQ(Decode(start.substr(0, size)).status, -7) << size;
  }
  EXPECT_EQ(Decode(start).status, -10);
}

TEST(BinHex, CutAnywhere) {
  File file;
  file.data = "some data of the file";
  file.resource = "re";
  const std::string characters = Characters(Stream(file));
  const std::size_t headerEnd = 1 + (1 + file.name.size() + 21 + 2) * 4 / 3;
  const std::size_t untilResourceCrc = Stream(file).size() - 2;
  for (std::size_t size = 1; size < characters.size(); ++size) {
    CBinHexDecoder decoder;
    const Result result = Decode(kMarker + characters.substr(0, size), 0, &decoder);
    const std::size_t whole = (size - 1) * 6 / 8;
    EXPECT_EQ(result.status, whole >= untilResourceCrc ? -9 : -10) << size;
    if (size > headerEnd + 1) {
      EXPECT_EQ(decoder.GetFilename(), file.name);
      EXPECT_EQ(Decode(kMarker + characters.substr(0, size), kHeaderOnly).status, 0) << size;
    }
  }
  EXPECT_EQ(Decode(kMarker + characters).data, file.data);
}

TEST(BinHex, HeaderOnly) {
  File file;
  file.data = "some data";
  file.flags = 0x1234;
  CBinHexDecoder decoder;
  const Result whole = Decode(Encode(file), kHeaderOnly, &decoder);
  EXPECT_EQ(whole.status, 0);
  EXPECT_TRUE(whole.isNull);
  EXPECT_EQ(decoder.GetFilename(), "a.txt");
  EXPECT_EQ(decoder.GetFlags(), 0x1234);
  EXPECT_EQ(decoder.GetDataSize(), 9u);
  // The data are cut.
  const Result cut = Decode(kMarker + Characters(Stream(file)).substr(0, 45), kHeaderOnly);
  EXPECT_EQ(cut.status, 0);
  EXPECT_TRUE(cut.isNull);
  // The header is cut.
  EXPECT_EQ(Decode(kMarker + Characters(Stream(file)).substr(0, 20), kHeaderOnly).status, -10);
}

TEST(BinHex, ClosingColon) {
  File file;
  file.data = "data";
  std::string characters = Characters(RunLengths(Stream(file)));
  characters.pop_back();
  for (const char* end : {":", "!:", "!!!:", "\r\n!\r\n:", " \t!:", ":x", "::"}) {
    EXPECT_EQ(Decode(kMarker + characters + end).data, "data") << end;
  }
  for (const char* end : {"", "!", "!!!\r\n", "x:", "\":", ";"}) {
    const Result result = Decode(kMarker + characters + end);
    EXPECT_EQ(result.status, -9) << end;
    EXPECT_TRUE(result.isNull);
    EXPECT_EQ(Decode(kMarker + characters + end, kArrays).status, -9) << end;
  }
}

TEST(BinHex, AColonInTheDataIsInvalid) {
  File file;
  file.data = "some more data";
  const std::string characters = Characters(RunLengths(Stream(file)));
  for (std::size_t at = 1; at + 4 < characters.size(); ++at) {
    std::string broken = characters;
    broken[at] = ':';
    EXPECT_EQ(Decode(kMarker + broken).status, -8) << at;
  }
}

TEST(BinHex, EveryCharacterOfTheAlphabetAndNoOther) {
  File file;
  file.data = "some more data";
  const std::string characters = Characters(Stream(file));
  for (int c = 0; c < 256; ++c) {
    std::string changed = characters;
    changed.insert(60, 1, static_cast<char>(c));
    const bool isWhite = c == '\t' || c == '\n' || c == '\r' || c == ' ';
    const bool isDigit = kDigits.find(static_cast<char>(c)) != std::string::npos;
    const Result result = Decode(kMarker + changed);
    if (isWhite) {
      EXPECT_EQ(result.data, file.data);
    } else {
      EXPECT_EQ(result.status == -8, !isDigit) << c;
    }
  }
}

TEST(BinHex, WhiteSpaceAtTheEndOfACutText) {
  File file;
  file.data = "some data";
  const std::string characters = Characters(Stream(file)).substr(0, 44);
  EXPECT_EQ(Decode(kMarker + characters).status, -10);
  EXPECT_EQ(Decode(kMarker + characters + "\r\n").status, -8);
}

TEST(BinHex, InputEndsInsideTheResourceCrc) {
  File file;
  const std::string stream = Stream(file);
  std::string oneByteMissing = Characters(stream.substr(0, stream.size() - 1));
  oneByteMissing.pop_back();
  EXPECT_EQ(Decode(kMarker + oneByteMissing).status, -9);
  EXPECT_EQ(Decode(kMarker + oneByteMissing + "\r\n").status, -9);
  std::string bothMissing = Characters(stream.substr(0, stream.size() - 2));
  bothMissing.pop_back();
  EXPECT_EQ(Decode(kMarker + bothMissing).status, -9);
  EXPECT_EQ(Decode(kMarker + bothMissing + ":").status, -8);
}

TEST(BinHex, AClaimOf4GiBTakesNoMemory) {
  File file;
  const std::string header = Stream(file).substr(0, 1 + file.name.size() + 11) + std::string(8, '\xFF') + "hc";
  for (int flags : {0, kArrays}) {
    CBinHexDecoder decoder;
    const Result result = Decode(kMarker + Characters(RunLengths(header) + "some data"), flags, &decoder);
    EXPECT_EQ(result.status, -8);
    EXPECT_EQ(decoder.GetDataSize(), 4294967295u);
    std::string cut = Characters(RunLengths(header) + "some data");
    cut.pop_back();
    EXPECT_EQ(Decode(kMarker + cut, flags).status, -10);
  }
}

TEST(BinHex, ForksOf2GiBAndMoreAreReadInPieces) {
  // A resource fork of 2^31 + 1000 zeros in runs of 255: it is dropped as it is read.
  const std::uint32_t size = 0x80000000u + 1000;
  File file;
  file.data = "data";
  std::string stream =
      Stream(file).substr(0, 1 + file.name.size() + 11) + Number(4, 4) + Number(size, 4) + "hc" + "data" + "dc";
  stream = RunLengths(stream);
  stream.reserve(size / 255 * 3 + 100);
  for (std::uint32_t i = 0; i < size / 255; ++i) {
    stream.append("\0\x90\xFF", 3);
  }
  stream += std::string(size % 255, '\0') + "rc";
  const std::string text = kMarker + Characters(stream);
  stream.clear();
  stream.shrink_to_fit();
  const Result result = Decode(text);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.data, "data");
}

TEST(BinHex, ADecoderMayBeUsedAgain) {
  File file;
  file.data = "first";
  CBinHexDecoder decoder;
  EXPECT_EQ(Decode(Encode(file), 0, &decoder).data, "first");
  std::string cut = Encode(file);
  cut.resize(80);
  EXPECT_NE(Decode(cut, 0, &decoder).status, 0);
  file.name = "second.txt";
  file.data = "second";
  EXPECT_EQ(Decode(Encode(file), 0, &decoder).data, "second");
  EXPECT_EQ(decoder.GetFilename(), "second.txt");
  EXPECT_EQ(Decode("no marker", 0, &decoder).status, -7);
  EXPECT_EQ(decoder.GetFilename(), "");
}

TEST(BinHex, BadArguments) {
  char* out = nullptr;
  unsigned int length = 77;
  EXPECT_EQ(CEncodeDecode::DecodeBinHex(nullptr, 3, &out, length, 0, nullptr), -4);
  EXPECT_EQ(length, 0u);
  length = 77;
  EXPECT_EQ(CEncodeDecode::DecodeBinHex("abc", 3, nullptr, length, 0, nullptr), -4);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(CEncodeDecode::DecodeBinHex("abc", 3, nullptr, length, kHeaderOnly, nullptr), -4);
  EXPECT_EQ(CEncodeDecode::DecodeBinHex(nullptr, 0, nullptr, length, 0, nullptr), 0);
  CBinHexDecoder decoder;
  EXPECT_EQ(decoder.Decode(nullptr, 3, &out, length, 0), -4);
  EXPECT_EQ(decoder.Decode(nullptr, 0, nullptr, length, 0), 0);
}

TEST(BinHex, ThroughTheDispatch) {
  File file;
  file.data = "data";
  CEncodeDecode coder(75, 76);
  std::string data;
  EXPECT_EQ(coder.Decode(Encode(file), data, 0x10000), 0);
  EXPECT_EQ(data, "data");
  EXPECT_EQ(coder.Encode(std::string("data"), data, 0x10000), -2);
}

TEST(BinHex, DamagedTextsNeverReadOutside) {
  std::mt19937 random(3);
  for (int i = 0; i < 20000; ++i) {
    File file;
    file.name = Random(random() % 20, random);
    file.data = Random(random() % 200, random);
    file.resource = Random(random() % 20, random);
    std::string text = Encode(file);
    for (std::size_t damage = 1 + random() % 3; damage > 0; --damage) {
      const std::size_t at = random() % text.size();
      if (random() % 3 == 0) {
        text.resize(at + 1);
      } else {
        text[at] = random() % 2 == 0 ? kDigits[random() % 64] : static_cast<char>(random());
      }
    }
    const Result result = Decode(text, i % 2 == 0 ? 0 : kArrays);
    const std::vector<int> known = {0, -7, -8, -9, -10};
    ASSERT_NE(std::find(known.begin(), known.end(), result.status), known.end()) << result.status;
  }
}

class Steps : public CBinHexDecoder {
 public:
  using CBinHexDecoder::DecodeData;
  using CBinHexDecoder::DecodeInteger;
  using CBinHexDecoder::GetNextByteFromBinHexData;
  using CBinHexDecoder::GetNextDecodedChar;
  using CBinHexDecoder::ReadFilename;
  using CBinHexDecoder::ReadRestOfHeader;
  using CBinHexDecoder::SkipToStartOfData;
};

TEST(BinHex, StepsWithoutAnInput) {
  Steps steps;
  unsigned char byte = 0;
  unsigned int value = 0;
  EXPECT_EQ(steps.SkipToStartOfData(), -7);
  EXPECT_EQ(steps.ReadFilename(), -10);
  EXPECT_EQ(steps.ReadRestOfHeader(), -10);
  EXPECT_EQ(steps.DecodeData(&byte, 1), -10);
  EXPECT_EQ(steps.DecodeData(&byte, 0), 0);
  EXPECT_EQ(steps.DecodeInteger(value, 2), -10);
  EXPECT_EQ(steps.GetNextDecodedChar(byte), -10);
  EXPECT_EQ(steps.GetNextByteFromBinHexData(byte), -10);
}

/// A decoder behind the header of a text: at the data fork's first byte.
std::unique_ptr<Steps> AtTheData(const std::string& text) {
  auto steps = std::make_unique<Steps>();
  char* out = nullptr;
  unsigned int length = 0;
  EXPECT_EQ(steps->Decode(text.data(), static_cast<unsigned int>(text.size()), &out, length, kHeaderOnly), 0);
  return steps;
}

/// Byte by byte, as far as it goes: the status and the bytes.
Result ReadSlowly(Steps& steps, std::size_t count) {
  Result result{0, "", false};
  while (result.data.size() < count && result.status == 0) {
    unsigned char byte = 0;
    result.status = steps.DecodeData(&byte, 1);
    if (result.status == 0) {
      result.data += static_cast<char>(byte);
    }
  }
  return result;
}

/// The bytes are only told after a success.
Result ReadAtOnce(Steps& steps, std::size_t count) {
  const std::unique_ptr<unsigned char[]> bytes(new unsigned char[count]);
  Result result{0, "", false};
  result.status = steps.DecodeData(bytes.get(), static_cast<int>(count));
  if (result.status == 0) {
    result.data.assign(reinterpret_cast<const char*>(bytes.get()), count);
  }
  return result;
}

/// Some bytes, with many runs and run marks when `few` is small.
std::string DataWithRuns(std::size_t size, unsigned int few, std::mt19937& random) {
  std::string data;
  while (data.size() < size) {
    const char byte = random() % 4 == 0 ? '\x90' : static_cast<char>(random());
    data.append(random() % few == 0 ? 1 + random() % 600 : 1, random() % few == 0 ? byte : static_cast<char>(random()));
  }
  data.resize(size);
  return data;
}

/// White space of all kinds at random places behind the opening colon.
std::string Scattered(const std::string& characters, unsigned int seldom, std::mt19937& random) {
  std::string text;
  for (std::size_t i = 0; i < characters.size(); ++i) {
    text += characters[i];
    for (; random() % seldom == 0;) {
      text += "\t\n\r "[random() % 4];
    }
  }
  return text;
}

TEST(BinHex, LongReadsStopWhereShortOnesDo) {
  OnEveryLevel([] {
    std::mt19937 random(4);
    for (int i = 0; i < 400; ++i) {
      File file;
      file.name = Random(random() % 64, random);
      file.data = DataWithRuns(20000, i % 2 == 0 ? 400 : 6, random);
      const std::string characters = Characters(RunLengths(Stream(file), random() % 4));
      const std::string text =
          kMarker + (i % 3 == 0 ? Wrapped(characters) : Scattered(characters, i % 3 == 1 ? 3 : 70, random));
      const auto fast = AtTheData(text);
      const auto slow = AtTheData(text);
      for (std::size_t left = file.data.size(); left > 300;) {
        const std::size_t count = 1 + random() % std::min<std::size_t>(left - 100, random() % 4 == 0 ? 9000 : 300);
        const Result expected = ReadSlowly(*slow, count);
        const Result result = ReadAtOnce(*fast, count);
        ASSERT_EQ(result.status, 0) << i;
        ASSERT_EQ(result.data, expected.data) << i;
        left -= count;
        if (random() % 16 == 0) {
          // What was taken of the text, and the bits that were carried, are the same.
          unsigned char next = 0;
          unsigned char expectedNext = 0;
          ASSERT_EQ(slow->GetNextDecodedChar(expectedNext), 0);
          ASSERT_EQ(fast->GetNextDecodedChar(next), 0);
          ASSERT_EQ(next, expectedNext) << i;
          break;  // half a run may be left
        }
      }
    }
  });
}

TEST(BinHex, LongReadsFailWhereShortOnesDo) {
  OnEveryLevel([] {
    std::mt19937 random(5);
    for (int i = 0; i < 3000; ++i) {
      File file;
      file.data = DataWithRuns(2000, i % 2 == 0 ? 400 : 6, random);
      std::string text = kMarker + Wrapped(Characters(RunLengths(Stream(file), 2)));
      const std::size_t first = kMarker.size() + 60;
      const std::size_t at = first + random() % (text.size() - first);
      if (i % 3 == 0) {
        text.resize(at);
      } else {
        text[at] = i % 3 == 1 ? '.' : static_cast<char>(0x80 + random() % 128);
      }
      const std::unique_ptr<char[]> exact(new char[text.size()]);
      std::copy(text.begin(), text.end(), exact.get());
      const auto fast = AtTheData(text);
      const auto slow = AtTheData(text);
      const Result expected = ReadSlowly(*slow, 4000);
      ASSERT_NE(expected.status, 0);
      ASSERT_EQ(ReadAtOnce(*fast, expected.data.size() + 1).status, expected.status) << i;
      unsigned char next = 0;
      ASSERT_EQ(fast->GetNextDecodedChar(next), slow->GetNextDecodedChar(next)) << i;
      const auto again = AtTheData(text);
      ASSERT_EQ(ReadAtOnce(*again, expected.data.size()).data, expected.data) << i;
    }
  });
}

TEST(BinHex, EveryLevelDecodesRandomFiles) {
  OnEveryLevel([] {
    std::mt19937 random(6);
    for (int i = 0; i < 1000; ++i) {
      File file;
      file.data = DataWithRuns(1 + random() % 30000, i % 2 == 0 ? 300 : 5, random);
      file.resource = DataWithRuns(random() % 2 == 0 ? 0 : random() % 100000, 20, random);
      const std::string characters = Characters(RunLengths(Stream(file)));
      const Result result = Decode(kMarker + (i % 2 == 0 ? Wrapped(characters) : Scattered(characters, 50, random)),
                                   i % 3 == 0 ? kArrays : 0);
      ASSERT_EQ(result.status, 0) << i;
      ASSERT_EQ(result.data, file.data) << i;
    }
  });
}

}  // namespace
