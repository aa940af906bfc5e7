#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/uukernel.h>
#include <gtest/gtest.h>
#include <tests/common/simdlevels.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using qsbase::test::OnEveryLevel;

constexpr int kUu = 0;
constexpr int kXx = 0x8;
constexpr int kDetect = 0x10;
constexpr int kSkipHeader = 0x100;
constexpr int kArrays = 0x10000000;

const std::string kXxDigits = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

unsigned int SizeOf(const std::string& text) { return static_cast<unsigned int>(text.size()); }

struct Result {
  int status = 0;
  std::string data;
  unsigned int illegal = 0;
  unsigned int parsed = 0;
};

/// A copy in a block of its own that ends with it, so that a sanitizer sees an access beyond; `offset` bytes stand in
/// front of it.
class Block {
 public:
  Block(const std::string& content, std::size_t offset)
      : _all(new char[offset + content.size()]), _offset(offset), _size(content.size()) {
    std::fill_n(_all.get(), offset, kFront);
    std::copy(content.begin(), content.end(), get());
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { EXPECT_EQ(std::string(_all.get(), _offset), std::string(_offset, kFront)); }

  char* get() const { return _all.get() + _offset; }
  unsigned int Size() const { return static_cast<unsigned int>(_size); }

 private:
  static constexpr char kFront = '\x5A';

  std::unique_ptr<char[]> _all;
  std::size_t _offset;
  std::size_t _size;
};

/// On every level, with one result.
std::string Encode(const std::string& data, int flags = kUu, std::size_t offset = 0) {
  const Block exact(data, offset);
  std::string first;
  OnEveryLevel([&] {
    CEncodeDecode coder(75, 76);
    char* out = nullptr;
    unsigned int length = 77;
    EXPECT_EQ(coder.EncodeUUE(exact.get(), exact.Size(), &out, length, flags), 0);
    EXPECT_EQ(coder.GetNumberIllegalChars(), 0u);
    EXPECT_EQ(coder.GetNumberParsedChars(), data.size());
    const std::string text(out == nullptr ? "" : out, length);
    CEncodeDecode::FreeBuffer(out, flags);
    std::string appended = "x";
    EXPECT_EQ(coder.EncodeUUE(data, appended, flags), 0);
    EXPECT_EQ(appended, "x" + text);
    first = qsbase::detail::CurrentSimdLevel() == qsbase::detail::SimdLevel::kScalar ? text : first;
    EXPECT_EQ(text, first);
  });
  return first;
}

/// Decodes in all three forms.
Result DecodeHere(const std::string& text, int flags, std::size_t offset) {
  const Block exact(text, offset);
  CEncodeDecode coder(75, 76);
  char* out = nullptr;
  unsigned int length = 77;
  Result result;
  result.status = coder.DecodeUUE(exact.get(), SizeOf(text), &out, length, flags);
  result.illegal = coder.GetNumberIllegalChars();
  result.parsed = coder.GetNumberParsedChars();
  if (result.status != 0) {
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 0u);
  }
  result.data.assign(out == nullptr ? "" : out, length);
  CEncodeDecode::FreeBuffer(out, flags);

  std::string appended = "x";
  EXPECT_EQ(coder.DecodeUUE(text, appended, flags), result.status);
  EXPECT_EQ(appended, "x" + result.data);

  length = 77;
  EXPECT_EQ(coder.DecodeUUEInline(exact.get(), SizeOf(text), length, flags), result.status);
  EXPECT_EQ(std::string(exact.get(), length), result.data);
  EXPECT_EQ(coder.GetNumberIllegalChars(), result.illegal);
  return result;
}

/// On every level, with one result.
Result Decode(const std::string& text, int flags = kUu, std::size_t offset = 0) {
  Result first;
  OnEveryLevel([&] {
    const Result result = DecodeHere(text, flags, offset);
    first = qsbase::detail::CurrentSimdLevel() == qsbase::detail::SimdLevel::kScalar ? result : first;
    EXPECT_EQ(result.status, first.status);
    EXPECT_EQ(result.data, first.data);
    EXPECT_EQ(result.illegal, first.illegal);
    EXPECT_EQ(result.parsed, first.parsed);
  });
  return first;
}

char UuDigit(unsigned int value) { return value == 0 ? '`' : static_cast<char>(value + 32); }

std::string SlowEncode(const std::string& data, bool isXx) {
  std::string text;
  auto digit = [&](unsigned int value) { return isXx ? kXxDigits[value] : UuDigit(value); };
  for (std::size_t start = 0; start < data.size(); start += 45) {
    const std::string line = data.substr(start, 45);
    text += digit(static_cast<unsigned int>(line.size()));
    for (std::size_t i = 0; i < line.size(); i += 3) {
      unsigned int bits = 0;
      for (std::size_t k = i; k < i + 3; ++k) {
        bits = bits * 256 + (k < line.size() ? static_cast<unsigned char>(line[k]) : 0u);
      }
      for (unsigned int divisor : {262144u, 4096u, 64u, 1u}) {
        text += digit(bits / divisor % 64);
      }
    }
    text += "\r\n";
  }
  return data.empty() ? "" : text + digit(0) + "\r\n";
}

/// The rules, taken literally and slowly.
Result SlowDecode(const std::string& text, bool isXx) {
  Result result;
  bool dropping = false;
  int number = 0;
  std::size_t at = 0;
  while (true) {
    at = std::min(text.find_first_not_of("\r\n", at), text.size());
    if (at == text.size()) {
      return result;
    }
    const std::size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    std::string line = text.substr(at, end - at);
    at = end;
    ++number;
    if (number <= 4) {
      dropping = (line.size() - 1) % 4 == 1 && line.back() == 'z' - (number - 1) % 26;
    }
    if (dropping) {
      line.pop_back();
    }
    if (line.empty()) {
      continue;
    }
    if (line.size() % 4 != 1 && text.size() - end >= 5) {
      return {-6, "", result.illegal, 0};
    }
    const int room = static_cast<int>((line.size() - 1) / 4 * 3);
    if (room == 0) {
      continue;
    }
    int count = static_cast<unsigned char>(line[0]) - 32;
    if (isXx) {
      const std::size_t digit = line[0] == '\0' ? 0 : kXxDigits.find(line[0]);
      count = digit == std::string::npos ? -100 : static_cast<int>(digit);
    }
    if (std::abs(count - room) > 2) {
      return {-6, "", result.illegal, 0};
    }
    std::string bits;
    for (std::size_t i = 1; i < line.size(); ++i) {
      unsigned int value = (static_cast<unsigned char>(line[i]) + 32u) % 64u;
      if (isXx) {
        const std::size_t digit = line[i] == '\0' ? 0 : kXxDigits.find(line[i]);
        if (digit == std::string::npos) {
          ++result.illegal;
          continue;
        }
        value = static_cast<unsigned int>(digit);
      }
      for (int bit = 5; bit >= 0; --bit) {
        bits += value >> bit & 1 ? '1' : '0';
      }
    }
    bits.resize(std::max(bits.size(), static_cast<std::size_t>(count) * 8), '0');
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
      result.data += static_cast<char>(std::stoi(bits.substr(8 * i, 8), nullptr, 2));
    }
  }
}

std::string Random(std::size_t size, std::mt19937& random) {
  std::string data(size, '\0');
  for (char& c : data) {
    c = static_cast<char>(random());
  }
  return data;
}

TEST(UuEncode, KnownTexts) {
  EXPECT_EQ(Encode("Cat"), "#0V%T\r\n`\r\n");
  EXPECT_EQ(Encode("A"), "!00``\r\n`\r\n");
  EXPECT_EQ(Encode("Cats"), "$0V%T<P``\r\n`\r\n");
  EXPECT_EQ(Encode("Cat", kXx), "1Eq3o\r\n+\r\n");
  EXPECT_EQ(Encode(""), "");
}

TEST(UuEncode, LinesOfAnotherEncoder) {
  // Made by Python's binascii.b2a_uu(..., backtick=True).
  std::string low;
  std::string high;
  for (int i = 0; i < 45; ++i) {
    low += static_cast<char>(i);
    high += static_cast<char>(211 + i);
  }
  EXPECT_EQ(Encode(low), "M``$\"`P0%!@<(\"0H+#`T.#Q`1$A,4%187&!D:&QP='A\\@(2(C)\"4F)R@I*BLL\r\n`\r\n");
  EXPECT_EQ(Encode(high), "MT]35UM?8V=K;W-W>W^#AXN/DY>;GZ.GJZ^SM[N_P\\?+S]/7V]_CY^OO\\_?[_\r\n`\r\n");
  EXPECT_EQ(Encode(std::string(44, '\0')), "L" + std::string(60, '`') + "\r\n`\r\n");
}

TEST(UuEncode, EveryLengthMatchesTheSlowEncoder) {
  std::mt19937 random(1);
  for (std::size_t size = 0; size <= 300; ++size) {
    const std::string data = Random(size, random);
    for (int flags : {kUu, kXx}) {
      const std::string text = SlowEncode(data, flags == kXx);
      ASSERT_EQ(Encode(data, flags), text) << size;
      ASSERT_EQ(Encode(data, flags | kArrays), text) << size;
      ASSERT_EQ(Decode(text, flags).data, data) << size;
    }
  }
}

TEST(UuEncode, ReadsNothingBehindTheInput) {
  for (std::size_t size = 1; size <= 120; ++size) {
    const std::unique_ptr<char[]> exact(new char[size]());
    CEncodeDecode coder(75, 76);
    char* out = nullptr;
    unsigned int length = 0;
    ASSERT_EQ(coder.EncodeUUE(exact.get(), static_cast<unsigned int>(size), &out, length, kUu), 0);
    ASSERT_EQ(std::string(out, length), SlowEncode(std::string(size, '\0'), false));
    CEncodeDecode::FreeBuffer(out, 0);
  }
}

TEST(UuEncode, EveryByteAtEveryPlace) {
  for (int c = 0; c < 256; ++c) {
    for (std::size_t at = 0; at < 6; ++at) {
      std::string data(100, 'u');
      data[at] = static_cast<char>(c);
      ASSERT_EQ(Encode(data), SlowEncode(data, false));
      ASSERT_EQ(Encode(data, kXx), SlowEncode(data, true));
    }
  }
}

TEST(UuEncode, LongRoundTrips) {
  std::mt19937 random(2);
  for (int flags : {kUu, kXx, kArrays, kXx | kArrays}) {
    const std::string data = Random(200000 + random() % 100, random);
    const Result back = Decode(Encode(data, flags), flags | kDetect);
    EXPECT_EQ(back.status, 0);
    EXPECT_EQ(back.data, data);
  }
}

TEST(UuEncode, BadArguments) {
  CEncodeDecode coder(75, 76);
  char* out = nullptr;
  unsigned int length = 77;
  EXPECT_EQ(coder.EncodeUUE(nullptr, 3, &out, length, 0), -4);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(coder.EncodeUUE("abc", 3, nullptr, length, 0), -4);
  EXPECT_EQ(coder.EncodeUUE(nullptr, 0, nullptr, length, 0), 0);
  EXPECT_EQ(coder.DecodeUUE(nullptr, 3, &out, length, 0), -4);
  EXPECT_EQ(coder.DecodeUUE("abc", 3, nullptr, length, 0), -4);
  EXPECT_EQ(coder.DecodeUUE(nullptr, 0, nullptr, length, 0), 0);
  EXPECT_EQ(coder.DecodeUUEInline(nullptr, 3, length, 0), -4);
  EXPECT_EQ(coder.DecodeUUEInline(nullptr, 0, length, 0), 0);
  EXPECT_EQ(coder.IsUueOrXxe(nullptr, 0), EEncDecUueNone);
  EXPECT_EQ(coder.IsUueOrXxe(nullptr, 3), EEncDecUueNone);
}

TEST(UuDecode, KnownTexts) {
  EXPECT_EQ(Decode("#0V%T\r\n`\r\n").data, "Cat");
  EXPECT_EQ(Decode("#0V%T").data, "Cat");
  EXPECT_EQ(Decode("#0V%T\n\n\r`\r\nend\r\n").data, "Cat");
  EXPECT_EQ(Decode("!00  ").data, "A");  // blanks for 0
  EXPECT_EQ(Decode("1Eq3o\r\n+\r\n", kXx).data, "Cat");
  EXPECT_EQ(Decode("#0V%T\r\n`\r\n").parsed, 10u);
}

TEST(UuDecode, EmptyResults) {
  for (const char* text : {"\r\n", "`", "`\r\n", " \n", "end", "`\r\nend\r\n", "abcd"}) {
    const Result result = Decode(text);
    EXPECT_EQ(result.status, 0) << text;
    EXPECT_EQ(result.data, "") << text;
  }
}

TEST(UuDecode, CheckCharacters) {
  EXPECT_EQ(Decode("#0V%Tz").data, "Cat");
  EXPECT_EQ(Decode("#0V%Tz\r\n").data, "Cat");
  // Line n ends with "z" minus n - 1; from the fourth on whatever stands there is dropped.
  const std::string head = "#0V%Tz\n#0V%Ty\n#0V%Tx\n#0V%Tw\n";
  EXPECT_EQ(Decode(head + "#0V%Tv\n#0V%Tu\n`\n").data, "CatCatCatCatCatCat");
  EXPECT_EQ(Decode(head + "#0V%T?\n#0V%T!\n").data, "CatCatCatCatCatCat");
  // A line that is shortened to nothing counts as empty.
  EXPECT_EQ(Decode(head + "`\n#0V%Tv\n").data, "CatCatCatCatCat");
  EXPECT_EQ(Decode(head + "`\n#0V%Tv\n").status, 0);
  // Without it on the fourth line nothing is dropped later on, ...
  EXPECT_EQ(Decode("#0V%Tz\n#0V%Ty\n#0V%Tx\n#0V%T\n#0V%T\n").data, "CatCatCatCatCat");
  EXPECT_EQ(Decode("#0V%Tz\n#0V%Ty\n#0V%Tx\n#0V%T\n#0V%Tv\n12345").status, -6);
  // ... and each of the first four lines is looked at.
  EXPECT_EQ(Decode("#0V%T\n#0V%Ty\n#0V%T\n#0V%Tw\n#0V%Tv\n").data, "CatCatCatCatCat");
  EXPECT_EQ(Decode("#0V%T\n#0V%Tz\n12345").status, -6);
}

TEST(UuDecode, CheckCharactersOfALongText) {
  std::mt19937 random(3);
  const std::string data = Random(45 * 60 + 7, random);
  for (int flags : {kUu, kXx}) {
    std::string text = SlowEncode(data, flags == kXx);
    std::string checked;
    int number = 0;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = text.find("\r\n", at);
      checked += text.substr(at, end - at) + static_cast<char>('z' - number++ % 26) + "\r\n";
      at = end + 2;
    }
    EXPECT_EQ(Decode(checked, flags).data, data);
    EXPECT_EQ(Decode(checked, flags | kDetect).data, data);
  }
}

TEST(UuDecode, MalformedLines) {
  EXPECT_EQ(Decode(Encode("Cat") + "end\r\n123").status, -6);
  EXPECT_EQ(Decode(Encode("Cat") + "end\r\n12").status, 0);
  EXPECT_EQ(Decode(Encode("Cat") + "end" + "12345").status, -6);
  EXPECT_EQ(Decode("#0V%T\nend\r\n\r\n\r\n").status, -6);
  EXPECT_EQ(Decode("&0V%T\n").status, -6);  // 6 is more than 2 away from 3
  EXPECT_EQ(Decode(" 0V%T\n").status, -6);
  EXPECT_EQ(Decode(Encode(std::string(100, 'x')) + "M\n").status, 0);  // no group in it
  EXPECT_EQ(Decode("\x80"
                   "0V%T\n")
                .status,
            -6);
  EXPECT_EQ(Decode("\t0V%T\n").status, -6);
  EXPECT_EQ(Decode("!1Eq3o\n", kXx).status, -6);
}

TEST(UuDecode, CountsNearTheRoom) {
  EXPECT_EQ(Decode("!0V%T").data, "C");
  EXPECT_EQ(Decode("\"0V%T").data, "Ca");
  EXPECT_EQ(Decode("#0V%T").data, "Cat");
  EXPECT_EQ(Decode("$0V%T").data, std::string("Cat\0", 4));  // what is missing counts as 0
  EXPECT_EQ(Decode("%0V%T").data, std::string("Cat\0\0", 5));
  EXPECT_EQ(Decode("&0V%T").status, -6);
  EXPECT_EQ(Decode("%0V%T0V%\n").data.substr(0, 3), "Cat");
  // An in-place decode of such lines must not run over the lines to come.
  std::string lines;
  std::string expected;
  for (int i = 0; i < 50; ++i) {
    lines += "%0V%T\n";
    expected += std::string("Cat\0\0", 5);
  }
  EXPECT_EQ(Decode(lines).data, expected);
}

TEST(UuDecode, XxIllegalCharacters) {
  const Result result = Decode("1Eq3o\r\n1E!3o\r\n+\r\n", kXx);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.illegal, 1u);
  EXPECT_EQ(result.data.size(), 6u);
  EXPECT_EQ(result.data, SlowDecode("1Eq3o\r\n1E!3o\r\n+\r\n", true).data);
  EXPECT_EQ(Decode(std::string("1\0\0\0\0", 5), kXx).data, std::string(3, '\0'));
  EXPECT_EQ(Decode(std::string("1\0\0\0\0", 5), kXx).illegal, 0u);
  EXPECT_EQ(Decode("#ab}~").illegal, 0u);  // UU takes any character
  // They count behind the last byte's group too, which only the end of a text can have.
  EXPECT_EQ(Decode("1Eq3o!!", kXx).data, "Cat");
  EXPECT_EQ(Decode("1Eq3o!!", kXx).illegal, 2u);
  EXPECT_EQ(Decode("1Eq3oE!q\r\n+", kXx).data, "Cat");
  EXPECT_EQ(Decode("1Eq3oE!q\r\n+", kXx).illegal, 1u);
}

TEST(UuDecode, SkipsTheHeader) {
  const std::string body = Encode("Cat");
  for (const char* header : {"begin 644 a.bin\r\n", "begin 0644 a.bin\n", "BEGIN 600 x\r\n", "Begin    777 x y z\n",
                             "begin 644 \n", "Subject: x\r\n\r\nbegin the text\r\nbegin 644 cat\r\n"}) {
    EXPECT_EQ(Decode(header + body, kSkipHeader).data, "Cat") << header;
    EXPECT_EQ(Decode(header + Encode("Cat", kXx), kSkipHeader | kDetect).data, "Cat") << header;
    EXPECT_EQ(Decode(header + body + "`\r\nend\r\n", kSkipHeader | kDetect).data, "Cat") << header;
  }
  for (const char* header : {"begin 64 a\r\n", "begin 648 a\r\n", "begin 06444 a\r\n", "begin 644\r\n",
                             "begin\t644 a\r\n", "begin644 a\r\n", " begin 644 a\r\n", "begin 644\ta\r\n", ""}) {
    const Result result = Decode(header + body, kSkipHeader);
    EXPECT_EQ(result.status, 0) << header;
    EXPECT_EQ(result.data, "") << header;
  }
  EXPECT_EQ(Decode("begin 644 a", kSkipHeader).data, "");
}

TEST(UuDecode, HeaderCutAnywhere) {
  const std::string text = "begin 644 a\r\n#0V%T\r\n";
  for (std::size_t size = 0; size < 18; ++size) {
    EXPECT_EQ(Decode(text.substr(0, size), kSkipHeader).data.substr(0, 3), size < 18 ? "" : "Cat") << size;
  }
  EXPECT_EQ(Decode(text.substr(0, 18), kSkipHeader).data, "Cat");
}

TEST(UuDecode, SkipUueHeaderItself) {
  CEncodeDecode coder(75, 76);
  const std::string text = "x\nbegin 644 a\n\n#0V%T";
  const char* start = nullptr;
  EXPECT_EQ(coder.SkipUueHeader(text.data(), SizeOf(text), start), 0);
  EXPECT_EQ(start - text.data(), 15);
  EXPECT_EQ(coder.SkipUueHeader(text.data(), 10, start), 0);
  EXPECT_EQ(start - text.data(), 10);
  EXPECT_EQ(coder.SkipUueHeader(nullptr, 3, start), -4);
}

class OwnHeader : public CEncodeDecode {
 public:
  explicit OwnHeader(std::ptrdiff_t offset, int status = 0) : CEncodeDecode(75, 76), _offset(offset), _status(status) {}
  int SkipUueHeader(const char* input, unsigned int, const char*& dataStart) override {
    dataStart = input + _offset;
    return _status;
  }

 private:
  std::ptrdiff_t _offset;
  int _status;
};

TEST(UuDecode, AnOverrideFindsTheData) {
  const std::string text = "??#0V%T";
  std::string data;
  EXPECT_EQ(OwnHeader(2).DecodeUUE(text, data, kSkipHeader), 0);
  EXPECT_EQ(data, "Cat");
  EXPECT_EQ(OwnHeader(7).DecodeUUE(text, data, kSkipHeader), 0);
  EXPECT_EQ(data, "Cat");
  EXPECT_EQ(OwnHeader(2, -77).DecodeUUE(text, data, kSkipHeader), -77);
  EXPECT_EQ(OwnHeader(8).DecodeUUE(text, data, kSkipHeader), -6);
  EXPECT_EQ(OwnHeader(-1).DecodeUUE(text, data, kSkipHeader), -6);
  EXPECT_EQ(OwnHeader(2, -77).DecodeUUE(text.substr(2), data, 0), 0);  // not asked without the flag
}

TEST(UuDetect, FirstLineDecides) {
  CEncodeDecode coder(75, 76);
  auto detect = [&](const std::string& text) { return coder.IsUueOrXxe(text.data(), SizeOf(text)); };
  EXPECT_EQ(detect(Encode("Cat")), EEncDecUueUU);
  EXPECT_EQ(detect(Encode("Cat", kXx)), EEncDecUueXX);
  EXPECT_EQ(detect("\r\n\n" + Encode(std::string(45, 'x'))), EEncDecUueUU);
  EXPECT_EQ(detect("\r\n\n" + Encode(std::string(45, 'x'), kXx)), EEncDecUueXX);
  EXPECT_EQ(detect("begin 644 x\r\n" + Encode("Cat")), EEncDecUueNone);
  EXPECT_EQ(detect(""), EEncDecUueNone);
  EXPECT_EQ(detect("\r\n"), EEncDecUueNone);
  EXPECT_EQ(detect("`"), EEncDecUueNone);
  EXPECT_EQ(detect("+"), EEncDecUueXX);
  EXPECT_EQ(detect(" "), EEncDecUueUU);
  EXPECT_EQ(detect(std::string(10000, 'M')), EEncDecUueNone);
}

TEST(UuDetect, ByTheRuleForEveryFirstCharacterAndLength) {
  CEncodeDecode coder(75, 76);
  for (int c = 0; c < 256; ++c) {
    if (c == '\r' || c == '\n') {
      continue;
    }
    for (std::size_t length = 1; length < 100; ++length) {
      std::string text(length, 'x');
      text[0] = static_cast<char>(c);
      const int room = static_cast<int>((length - 1) / 4 * 3);
      const std::size_t digit = c == 0 ? 0 : kXxDigits.find(static_cast<char>(c));
      EEncDecUueType expected = std::abs(c - 32 - room) <= 2 ? EEncDecUueUU : EEncDecUueNone;
      if (digit != std::string::npos && std::abs(static_cast<int>(digit) - room) <= 2) {
        expected = EEncDecUueXX;
      }
      ASSERT_EQ(coder.IsUueOrXxe(text.data(), SizeOf(text)), expected) << c << " " << length;
    }
  }
}

TEST(UuDetect, FlagsDecide) {
  EXPECT_EQ(Decode(Encode("Cat", kXx), kDetect).data, "Cat");
  EXPECT_EQ(Decode(Encode("Cat"), kDetect).data, "Cat");
  EXPECT_EQ(Decode(Encode("Cat", kXx), kDetect | kXx).data, "Cat");
  EXPECT_NE(Decode(Encode("Cat"), kDetect | kXx).data, "Cat");
  EXPECT_NE(Decode(Encode("Cat", kXx), kUu).data, "Cat");
}

TEST(UuDecode, HostileTextsMatchTheSlowDecoder) {
  std::mt19937 random(4);
  for (int i = 0; i < 20000; ++i) {
    const bool isXx = i % 2 == 0;
    const std::string data = Random(random() % 260, random);
    std::string text = SlowEncode(data, isXx);
    for (std::size_t damage = random() % 4; damage > 0 && !text.empty(); --damage) {
      const std::size_t at = random() % text.size();
      switch (random() % 4) {
        case 0:
          text.erase(at);
          break;
        case 1:
          text[at] = static_cast<char>(random());
          break;
        case 2:
          text.insert(at, 1, "z\r\n`+#\0 "[random() % 8]);
          break;
        default:
          text.erase(at, 1 + random() % 3);
      }
    }
    const Result expected = SlowDecode(text, isXx);
    const Result result = Decode(text, isXx ? kXx : kUu);
    ASSERT_EQ(result.status, expected.status) << text;
    if (expected.status == 0) {
      ASSERT_EQ(result.data, expected.data) << text;
      ASSERT_EQ(result.illegal, expected.illegal) << text;
      ASSERT_EQ(result.parsed, text.size());
    }
  }
}

TEST(UuDecode, NoiseMatchesTheSlowDecoder) {
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    const bool isXx = i % 2 == 0;
    std::string text;
    for (std::size_t lines = 1 + random() % 8; lines > 0; --lines) {
      const std::size_t groups = random() % (i % 3 == 0 ? 25 : 8);
      const unsigned int count = static_cast<unsigned int>(groups * 3 + random() % 6);
      std::string line(1 + groups * 4 + (random() % 4 == 0 ? random() % 3 : 0), ' ');
      for (char& c : line) {
        c = isXx ? kXxDigits[random() % 64] : static_cast<char>(32 + random() % 65);
      }
      line[0] = isXx ? kXxDigits[count % 64] : static_cast<char>(32 + count);
      text += line + (random() % 2 == 0 ? "\n" : "\r\n");
    }
    const Result expected = SlowDecode(text, isXx);
    const Result result = Decode(text, isXx ? kXx : kUu);
    ASSERT_EQ(result.status, expected.status) << text;
    ASSERT_EQ(result.data, expected.data) << text;
  }
}

/// Lines of 45 bytes and one of 20, with a line break of their own.
std::string FullLines(const std::string& data, bool isXx, const std::string& lineBreak, bool isChecked) {
  std::string text = SlowEncode(data, isXx);
  std::string lines;
  int number = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find("\r\n", at);
    lines += text.substr(at, end - at);
    lines += isChecked ? std::string(1, static_cast<char>('z' - number++ % 26)) : "";
    lines += lineBreak;
    at = end + 2;
  }
  return lines;
}

TEST(UuCode, EveryAlignment) {
  std::mt19937 random(6);
  for (std::size_t offset = 0; offset < 64; ++offset) {
    for (std::size_t size : {1u, 44u, 45u, 46u, 51u, 52u, 64u, 90u, 135u, 200u, 300u}) {
      const std::string data = Random(size, random);
      for (int flags : {kUu, kXx}) {
        const std::string text = SlowEncode(data, flags == kXx);
        ASSERT_EQ(Encode(data, flags, offset), text);
        ASSERT_EQ(Decode(text, flags, offset).data, data);
      }
    }
  }
}

TEST(UuDecode, FullLinesWithAnyLineBreak) {
  std::mt19937 random(7);
  const std::string data = Random(45 * 9 + 20, random);
  for (const char* lineBreak : {"\r\n", "\n", "\r", "\n\r", "\r\r\n", "\r\n\r\n", "\n\n\n"}) {
    for (bool isChecked : {false, true}) {
      for (int flags : {kUu, kXx}) {
        const Result result = Decode(FullLines(data, flags == kXx, lineBreak, isChecked), flags);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.data, data);
      }
    }
  }
}

TEST(UuDecode, LineBreaksThatChange) {
  std::mt19937 random(8);
  for (int i = 0; i < 300; ++i) {
    const bool isXx = i % 2 == 0;
    const std::string data = Random(45 * 8, random);
    std::string text;
    for (std::size_t at = 0; at < data.size(); at += 45) {
      const std::string line = SlowEncode(data.substr(at, 45), isXx).substr(0, 61);
      text += line + std::vector<std::string>{"\r\n", "\n", "\r", "\n\n"}[random() % 4];
    }
    EXPECT_EQ(Decode(text, isXx ? kXx : kUu).data, data);
  }
}

TEST(UuDecode, AnyCharacterAnywhereInFullLines) {
  std::mt19937 random(9);
  const std::string data = Random(45 * 6, random);
  for (int flags : {kUu, kXx}) {
    for (bool isChecked : {false, true}) {
      const std::string text = FullLines(data, flags == kXx, "\r\n", isChecked);
      for (std::size_t at = 0; at < text.size(); ++at) {
        for (char c :
             {'\r', '\n', '\0', '\t', '!', '*', ',', '/', ':', '@', '[', '`', '{', '\x7F', '\x80', '\xAB', '\xFF'}) {
          std::string damaged = text;
          damaged[at] = c;
          const Result expected = SlowDecode(damaged, flags == kXx);
          const Result result = Decode(damaged, flags);
          ASSERT_EQ(result.status, expected.status) << at << " " << static_cast<int>(c);
          if (expected.status == 0) {
            ASSERT_EQ(result.data, expected.data) << at << " " << static_cast<int>(c);
            ASSERT_EQ(result.illegal, expected.illegal) << at << " " << static_cast<int>(c);
          }
        }
      }
    }
  }
}

TEST(UuDecode, FullLinesCutAnywhere) {
  std::mt19937 random(10);
  const std::string data = Random(45 * 6, random);
  for (int flags : {kUu, kXx}) {
    for (bool isChecked : {false, true}) {
      const std::string text = FullLines(data, flags == kXx, "\r\n", isChecked);
      for (std::size_t size = 0; size <= text.size(); ++size) {
        const Result expected = SlowDecode(text.substr(0, size), flags == kXx);
        const Result result = Decode(text.substr(0, size), flags);
        ASSERT_EQ(result.status, expected.status) << size;
        ASSERT_EQ(result.data, expected.status == 0 ? expected.data : "") << size;
      }
    }
  }
}

TEST(UuDecode, EveryCharacterInEveryPlaceOfALine) {
  for (int flags : {kUu, kXx}) {
    for (std::size_t count : {12u, 13u, 30u, 45u, 63u}) {
      for (int c = 0; c < 256; ++c) {
        std::string text = SlowEncode(std::string(63, 'u'), flags == kXx).substr(0, 61);
        text += text.substr(1, 40);
        text = text.substr(0, 1 + (count + 2) / 3 * 4);
        text[0] = flags == kXx ? kXxDigits[count] : UuDigit(static_cast<unsigned int>(count));
        const std::size_t at = 1 + static_cast<std::size_t>(c) % (text.size() - 1);
        text[at] = static_cast<char>(c);
        const std::string lines = text + "\r\n" + text + "\n";
        const Result expected = SlowDecode(lines, flags == kXx);
        const Result result = Decode(lines, flags);
        ASSERT_EQ(result.status, expected.status) << c << " " << count;
        if (expected.status == 0) {
          ASSERT_EQ(result.data, expected.data) << c << " " << count;
          ASSERT_EQ(result.illegal, expected.illegal) << c << " " << count;
        }
      }
    }
  }
}

TEST(UuDecode, HeaderBehindALongText) {
  const std::string body = Encode("Cat");
  const std::string header = "begin 644 cat\r\n";
  for (std::size_t length = 0; length <= 300; ++length) {
    std::string prose;
    while (prose.size() < length) {
      prose += prose.size() % 5 == 0 ? "\nbe" : "begin ";
    }
    prose = prose.substr(0, length);
    ASSERT_EQ(Decode(prose + "\n" + header + body, kSkipHeader).data, "Cat") << length;
    ASSERT_EQ(Decode(prose + "\r" + header + body, kSkipHeader).data, "Cat") << length;
    ASSERT_EQ(Decode(prose + "x" + header + body, kSkipHeader).data, "") << length;
  }
}

TEST(UuKernels, KeepToWhatTheyMayScratch) {
  std::mt19937 random(11);
  OnEveryLevel([&] {
    for (bool isXx : {false, true}) {
      const auto& kernels = qsbase::detail::UuKernelsOf(qsbase::detail::CurrentSimdLevel(), isXx);
      for (std::size_t size = 0; size <= 150; ++size) {
        const std::string data = Random(size, random);
        const Block input(data, 0);
        std::string text = SlowEncode(data, isXx);
        text.resize(text.empty() ? 0 : text.size() - 3);  // without the terminator line
        const std::unique_ptr<unsigned char[]> encoded(new unsigned char[text.size() + 64]);
        const auto* bytes = reinterpret_cast<const unsigned char*>(input.get());
        ASSERT_EQ(kernels.encodeLines(bytes, size, encoded.get()), text.size());
        ASSERT_EQ(std::string(encoded.get(), encoded.get() + text.size()), text);

        const std::size_t lines = size / 45;
        const Block full(text.substr(0, lines * 63), 0);
        const auto* begin = reinterpret_cast<const unsigned char*>(full.get());
        const std::unique_ptr<unsigned char[]> decoded(new unsigned char[lines * 45 + 8]);
        const auto taken = kernels.decodeFullLines(begin, begin + full.Size(), decoded.get(), 0);
        const bool isScalar = qsbase::detail::CurrentSimdLevel() == qsbase::detail::SimdLevel::kScalar;
        ASSERT_EQ(taken.count, isScalar ? 0 : lines);
        ASSERT_EQ(taken.end, begin + taken.count * 63);
        ASSERT_EQ(std::string(decoded.get(), decoded.get() + taken.count * 45), data.substr(0, taken.count * 45));
      }
    }
  });
}

TEST(UuDecode, CountersStartAnewWithEachCall) {
  CEncodeDecode coder(75, 76);
  std::string data;
  EXPECT_EQ(coder.DecodeUUE(std::string("1E!3o"), data, kXx), 0);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 1u);
  EXPECT_EQ(coder.DecodeUUE(std::string("1Eq3o"), data, kXx), 0);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 0u);
  EXPECT_EQ(coder.GetNumberParsedChars(), 5u);
  EXPECT_EQ(coder.DecodeUUE(std::string(), data, kXx), 0);
  EXPECT_EQ(coder.GetNumberParsedChars(), 0u);
}

TEST(UuDecode, ThroughTheDispatch) {
  CEncodeDecode coder(75, 76);
  for (int flags : {0x4, 0xC, 0x8}) {
    std::string text;
    EXPECT_EQ(coder.Encode(std::string("Cat"), text, flags), 0);
    EXPECT_EQ(text, flags == 0x4 ? "#0V%T\r\n`\r\n" : "1Eq3o\r\n+\r\n");
    std::string data;
    EXPECT_EQ(coder.Decode(text, data, flags), 0);
    EXPECT_EQ(data, "Cat");
    data.clear();
    EXPECT_EQ(coder.Decode(text, data, 0x10), 0);
    EXPECT_EQ(data, "Cat");
  }
}

}  // namespace
