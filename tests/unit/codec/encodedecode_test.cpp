#include <QSbase/codec/coderbuffer.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/errors.h>
#include <common/simdlevels.h>
#include <common/tempdir.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

namespace {

using qsbase::test::OnEveryLevel;

constexpr int kBase64 = 0x1;
constexpr int kQP = 0x2;
constexpr int kUU = 0x4;
constexpr int kXX = 0x8;
constexpr int kDetect = 0x10;
constexpr int kSkipHeader = 0x100;
constexpr int kYEnc = 0x800;
constexpr int kBinHex = 0x10000;
constexpr int kArrayBuffers = 0x10000000;
constexpr int kFromBuffer = 0;
constexpr int kFromFile = 1;

/// What the replaced array new below does.
bool arrayNewFails = false;
int arraysMade = 0;
int arraysFreed = 0;

struct Outcome {
  int status;
  std::string data;
  bool operator==(const Outcome& other) const { return status == other.status && data == other.data; }
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << outcome.status << " " << ::testing::PrintToString(outcome.data);
}

Outcome Encode(const void* source, int kind, unsigned int length, int flags) {
  char* output = nullptr;
  unsigned int outputLength = 99;
  const int status = CEncodeDecode(75, 76).Encode(source, kind, length, &output, outputLength, flags);
  const Outcome outcome{status, std::string(output == nullptr ? "" : output, outputLength)};
  CEncodeDecode::FreeBuffer(output, flags);
  return outcome;
}

Outcome Decode(const void* source, int kind, unsigned int length, int flags) {
  char* output = nullptr;
  unsigned int outputLength = 99;
  const int status = CEncodeDecode(75, 76).Decode(source, kind, length, &output, outputLength, flags);
  const Outcome outcome{status, std::string(output == nullptr ? "" : output, outputLength)};
  CEncodeDecode::FreeBuffer(output, flags);
  return outcome;
}

Outcome EncodeText(const std::string& text, int flags) {
  const Outcome outcome = Encode(text.data(), kFromBuffer, static_cast<unsigned int>(text.size()), flags);
  std::string output = "x";
  EXPECT_EQ(CEncodeDecode(75, 76).Encode(text, output, flags), outcome.status);
  EXPECT_EQ(output, "x" + outcome.data);
  return outcome;
}

Outcome DecodeText(const std::string& text, int flags) {
  const Outcome outcome = Decode(text.data(), kFromBuffer, static_cast<unsigned int>(text.size()), flags);
  std::string output = "x";
  EXPECT_EQ(CEncodeDecode(75, 76).Decode(text, output, flags), outcome.status);
  EXPECT_EQ(output, "x" + outcome.data);
  return outcome;
}

Outcome DecodeInline(const std::string& text, int flags) {
  std::vector<char> buffer(text.begin(), text.end());
  unsigned int length = 99;
  const int status =
      CEncodeDecode(75, 76).DecodeInline(buffer.data(), static_cast<unsigned int>(buffer.size()), length, flags);
  return {status, std::string(buffer.data(), length)};
}

std::string Unescaped(std::string text, unsigned char escape = '%') {
  EXPECT_EQ(CEncodeDecode::UnescapeHexString(text, escape), 0);
  return text;
}

/// Where a skipping function stops.
std::string RestAfter(void (*skip)(const char*&, const char*), const std::string& text) {
  const char* position = text.data();
  const char* const end = position + text.size();
  skip(position, end);
  return std::string(position, end);
}

/// The text with `from` mapped to nothing: how a host gives UU data a header of its own kind.
class BangHeaderCoder : public CEncodeDecode {
 public:
  BangHeaderCoder() : CEncodeDecode(75, 76) {}
  int SkipUueHeader(const char* input, unsigned int length, const char*& dataStart) override {
    ++calls;
    const std::string text(input, length);
    dataStart = input + text.find('!') + 1;
    return 0;
  }
  int calls = 0;
};

}  // namespace

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (arrayNewFails) {
    return nullptr;
  }
  ++arraysMade;
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size) {
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete[](void* memory) noexcept {
  arraysFreed += memory == nullptr ? 0 : 1;
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept { operator delete[](memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { operator delete[](memory); }

TEST(EncodeDecode, TheFlagsSelectTheEncoder) {
  EXPECT_EQ(EncodeText("Cat", kBase64), (Outcome{0, "Q2F0"}));
  EXPECT_EQ(EncodeText("Cat ", kQP), (Outcome{0, "Cat=20"}));
  EXPECT_EQ(EncodeText("Cat", kUU), (Outcome{0, "#0V%T\r\n`\r\n"}));
  EXPECT_EQ(EncodeText("Cat", kXX), (Outcome{0, "1Eq3o\r\n+\r\n"}));
  EXPECT_EQ(EncodeText("Cat", kDetect), (Outcome{0, "#0V%T\r\n`\r\n"}));
  EXPECT_EQ(EncodeText("abc", kYEnc), (Outcome{0, "\x8B\x8C\x8D\r\n"}));
}

TEST(EncodeDecode, YEncLinesHave128Characters) {
  const Outcome outcome = EncodeText(std::string(129, 'a'), kYEnc);
  EXPECT_EQ(outcome.data, std::string(128, '\x8B') + "\r\n\x8B\r\n");
}

TEST(EncodeDecode, TheFlagsSelectTheDecoder) {
  EXPECT_EQ(DecodeText("Q2F0", kBase64), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeText("Cat=20.", kQP), (Outcome{0, "Cat ."}));
  EXPECT_EQ(DecodeText("#0V%T\r\n`\r\n", kUU), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeText("1Eq3o\r\n+\r\n", kXX), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeText("1Eq3o\r\n+\r\n", kDetect), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeText("#0V%T\r\n`\r\n", kDetect), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeText("\x8B\x8C\x8D\r\n", kYEnc), (Outcome{0, "abc"}));
}

TEST(EncodeDecode, TheFlagsSelectTheInlineDecoder) {
  EXPECT_EQ(DecodeInline("Q2F0", kBase64), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeInline("Cat=20.", kQP), (Outcome{0, "Cat ."}));
  EXPECT_EQ(DecodeInline("#0V%T\r\n`\r\n", kUU), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeInline("1Eq3o\r\n+\r\n", kXX), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeInline("\x8B\x8C\x8D\r\n", kYEnc), (Outcome{0, "abc"}));
}

TEST(EncodeDecode, TheFirstSelectionCounts) {
  const int all = kBase64 | kQP | kUU | kYEnc | kBinHex;
  EXPECT_EQ(EncodeText("Cat ", all), EncodeText("Cat ", kBase64));
  EXPECT_EQ(EncodeText("Cat ", all & ~kBase64), EncodeText("Cat ", kQP));
  EXPECT_EQ(EncodeText("Cat ", kUU | kYEnc | kBinHex), EncodeText("Cat ", kUU));
  EXPECT_EQ(EncodeText("Cat ", kYEnc | kBinHex), EncodeText("Cat ", kYEnc));
  EXPECT_EQ(DecodeText("Q2F0", all), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeText("Q2F0", all & ~kBase64), (Outcome{0, "Q2F0"}));
  EXPECT_EQ(DecodeText("\x8B\x8C\x8D", kYEnc | kBinHex), (Outcome{0, "abc"}));
  EXPECT_EQ(DecodeInline("Q2F0", all), (Outcome{0, "Cat"}));
  EXPECT_EQ(DecodeInline("Q2F0=\n", all & ~kBase64), (Outcome{0, "Q2F0"}));
  EXPECT_EQ(DecodeInline("\x8B\x8C\x8D", kYEnc | kBinHex), (Outcome{0, "abc"}));
  for (const int select : {kUU, kXX, kDetect}) {
    const std::string text = select == kXX ? "1Eq3o" : "#0V%T";
    EXPECT_EQ(DecodeText(text, select | kYEnc | kBinHex), (Outcome{0, "Cat"})) << select;
    EXPECT_EQ(DecodeInline(text, select | kYEnc | kBinHex), (Outcome{0, "Cat"})) << select;
  }
}

TEST(EncodeDecode, NothingSelectedIsAnError) {
  for (const int flags : {0, 0x20, 0x100, 0x200, 0x1000, 0x2000, 0x20000, kArrayBuffers}) {
    EXPECT_EQ(EncodeText("Cat", flags), (Outcome{-2, ""})) << flags;
    EXPECT_EQ(DecodeText("Cat", flags), (Outcome{-2, ""})) << flags;
    EXPECT_EQ(DecodeInline("Cat", flags), (Outcome{-2, ""})) << flags;
  }
}

TEST(EncodeDecode, BinHexIsForTheBufferDecoderOnly) {
  EXPECT_EQ(EncodeText("Cat", kBinHex), (Outcome{-2, ""}));
  EXPECT_EQ(DecodeInline("Cat", kBinHex), (Outcome{-2, ""}));
  EXPECT_EQ(DecodeText("Cat", kBinHex), (Outcome{-7, ""}));  // no BinHex start
}

TEST(EncodeDecode, OtherSourceKindsAreUnknown) {
  for (const int kind : {-1, 2, 3, 0x10000}) {
    EXPECT_EQ(Encode("Cat", kind, 3, kBase64), (Outcome{-2, ""}));
    EXPECT_EQ(Decode("Cat", kind, 3, kBase64), (Outcome{-2, ""}));
  }
}

TEST(EncodeDecode, ReadsAFile) {
  const qsbase::testing::TempDir dir;
  const std::string plain = dir.Write("plain", std::string("Cat\0\r\n\x1A", 7));
  EXPECT_EQ(Encode(plain.c_str(), kFromFile, 0, kBase64), (Outcome{0, "Q2F0AA0KGg=="}));
  EXPECT_EQ(Encode(plain.c_str(), kFromFile, 2, kBase64 | kArrayBuffers), (Outcome{0, "Q2F0AA0KGg=="}));
  const std::string coded = dir.Write("coded", "Q2F0AA0KGg==");
  EXPECT_EQ(Decode(coded.c_str(), kFromFile, 0, kBase64), (Outcome{0, std::string("Cat\0\r\n\x1A", 7)}));
  EXPECT_EQ(Decode(coded.c_str(), kFromFile, 0, 0), (Outcome{-2, ""}));
}

TEST(EncodeDecode, AFileThatCannotBeReadIsAnError) {
  const qsbase::testing::TempDir dir;
  const std::string missing = dir / "missing";
  const std::string empty = dir.Write("empty", "");
  for (const std::string& name : {missing, empty, dir.Path()}) {
    EXPECT_EQ(Encode(name.c_str(), kFromFile, 0, kBase64), (Outcome{-5, ""})) << name;
    EXPECT_EQ(Decode(name.c_str(), kFromFile, 0, kBase64), (Outcome{-5, ""})) << name;
  }
}

TEST(EncodeDecode, NullPointers) {
  EXPECT_EQ(Encode(nullptr, kFromBuffer, 3, kBase64), (Outcome{-4, ""}));
  EXPECT_EQ(Decode(nullptr, kFromBuffer, 3, kBase64), (Outcome{-4, ""}));
  EXPECT_EQ(Encode(nullptr, kFromFile, 0, kBase64), (Outcome{-4, ""}));
  EXPECT_EQ(Decode(nullptr, kFromFile, 0, kBase64), (Outcome{-4, ""}));
  unsigned int length = 99;
  CEncodeDecode coder(75, 76);
  EXPECT_EQ(coder.Encode("Cat", kFromBuffer, 3, nullptr, length, kBase64), -4);
  EXPECT_EQ(coder.Decode("Cat", kFromBuffer, 3, nullptr, length, kBase64), -4);
  EXPECT_EQ(coder.DecodeInline(nullptr, 3, length, kBase64), -4);
  EXPECT_EQ(length, 0U);
}

TEST(EncodeDecode, AnEmptyInputSucceedsForEveryEncoding) {
  for (const int flags : {kBase64, kQP, kUU, kXX, kYEnc}) {
    EXPECT_EQ(Encode(nullptr, kFromBuffer, 0, flags), (Outcome{0, ""})) << flags;
    EXPECT_EQ(Decode(nullptr, kFromBuffer, 0, flags), (Outcome{0, ""})) << flags;
    EXPECT_EQ(EncodeText("", flags), (Outcome{0, ""})) << flags;
    EXPECT_EQ(DecodeText("", flags), (Outcome{0, ""})) << flags;
    EXPECT_EQ(DecodeInline("", flags), (Outcome{0, ""})) << flags;
  }
  EXPECT_EQ(DecodeText("", kBinHex), (Outcome{0, ""}));
}

TEST(EncodeDecode, CountersTellAboutTheLastCall) {
  CEncodeDecode coder(75, 76);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 0U);
  EXPECT_EQ(coder.GetNumberParsedChars(), 0U);
  std::string output;
  EXPECT_EQ(coder.Decode("Q?UJD=rest", output, kBase64), 0);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 1U);
  EXPECT_EQ(coder.GetNumberParsedChars(), 6U);
  EXPECT_EQ(coder.Decode("=ZZ", output, kQP), 0);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 1U);
  EXPECT_EQ(coder.GetNumberParsedChars(), 3U);
  EXPECT_EQ(coder.Decode("x", output, 0), -2);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 0U);
  EXPECT_EQ(coder.GetNumberParsedChars(), 0U);
}

TEST(EncodeDecode, TheUUDecoderCallsTheOverriddenHeaderSkipper) {
  const std::string text = "whatever\n!#0V%T\r\n`\r\n";
  for (const bool isInline : {false, true}) {
    BangHeaderCoder coder;
    std::string buffer = text;
    char* output = nullptr;
    unsigned int length = 0;
    const auto size = static_cast<unsigned int>(text.size());
    EXPECT_EQ(isInline ? coder.DecodeUUEInline(buffer.data(), size, length, kUU | kSkipHeader)
                       : coder.DecodeUUE(text.data(), size, &output, length, kUU | kSkipHeader),
              0);
    EXPECT_EQ(std::string(isInline ? buffer.data() : output, length), "Cat");
    EXPECT_EQ(coder.calls, 1);
    CEncodeDecode::FreeBuffer(output, 0);
  }
}

TEST(EncodeDecode, BuffersAreZeroFilledAndFreedToNull) {
  for (const int flags : {0, kArrayBuffers}) {
    for (const unsigned int size : {0U, 1U, 1000U}) {
      char* buffer = nullptr;
      EXPECT_EQ(CEncodeDecode::AllocateBuffer(buffer, size, flags), 0);
      ASSERT_NE(buffer, nullptr);
      EXPECT_EQ(std::string(buffer, size), std::string(size, '\0'));
      CEncodeDecode::FreeBuffer(buffer, flags);
      EXPECT_EQ(buffer, nullptr);
      CEncodeDecode::FreeBuffer(buffer, flags);
      EXPECT_EQ(buffer, nullptr);
    }
  }
}

TEST(EncodeDecode, TheFlagsChooseTheAllocator) {
  char* buffer = nullptr;
  const int made = arraysMade;
  EXPECT_EQ(CEncodeDecode::AllocateBuffer(buffer, 10, 0), 0);
  std::free(buffer);
  EXPECT_EQ(arraysMade, made);
  EXPECT_EQ(CEncodeDecode::AllocateBuffer(buffer, 10, kArrayBuffers), 0);
  EXPECT_EQ(arraysMade, made + 1);
  delete[] buffer;
}

TEST(EncodeDecode, EveryCoderKeepsToTheAllocatorOfItsFlags) {
  for (const int encoding : {kBase64, kQP, kUU, kXX, kYEnc}) {
    const int made = arraysMade;
    char* output = nullptr;
    unsigned int length = 0;
    CEncodeDecode coder(75, 76);
    EXPECT_EQ(coder.Encode("Cat", kFromBuffer, 3, &output, length, encoding), 0);
    std::free(output);
    EXPECT_EQ(arraysMade, made) << encoding;
    EXPECT_EQ(coder.Encode("Cat", kFromBuffer, 3, &output, length, encoding | kArrayBuffers), 0);
    EXPECT_GT(arraysMade, made) << encoding;
    const int freed = arraysFreed;
    CEncodeDecode::FreeBuffer(output, kArrayBuffers);
    EXPECT_EQ(arraysFreed, freed + 1);
  }
}

TEST(EncodeDecode, ALackOfMemoryIsReported) {
  arrayNewFails = true;
  char byte = 'x';
  char* buffer = &byte;
  const int status = CEncodeDecode::AllocateBuffer(buffer, 10, kArrayBuffers);
  std::vector<Outcome> outcomes;
  for (const int encoding : {kBase64, kQP, kUU, kXX, kYEnc}) {
    outcomes.push_back(Encode("#0V%T", kFromBuffer, 5, encoding | kArrayBuffers));
    outcomes.push_back(Decode("#0V%T", kFromBuffer, 5, encoding | kArrayBuffers));
  }
  arrayNewFails = false;
  EXPECT_EQ(status, -3);
  EXPECT_EQ(buffer, nullptr);
  for (const Outcome& outcome : outcomes) {
    EXPECT_EQ(outcome, (Outcome{-3, ""}));
  }
}

TEST(EncodeDecode, HexCharacters) {
  const std::string digits = "0123456789ABCDEFabcdef";
  for (int c = 0; c < 256; ++c) {
    EXPECT_EQ(CEncodeDecode::IsHexChar(static_cast<unsigned char>(c)),
              digits.find(static_cast<char>(c)) != std::string::npos)
        << c;
  }
}

TEST(EncodeDecode, HexValues) {
  for (int value = 0; value < 256; ++value) {
    char upper[3];
    char lower[3];
    std::snprintf(upper, sizeof upper, "%02X", static_cast<unsigned int>(value));
    std::snprintf(lower, sizeof lower, "%02x", static_cast<unsigned int>(value));
    EXPECT_EQ(CEncodeDecode::GetHexValue(static_cast<unsigned char>(upper[0]), static_cast<unsigned char>(upper[1])),
              value);
    EXPECT_EQ(CEncodeDecode::GetHexValue(static_cast<unsigned char>(lower[0]), static_cast<unsigned char>(lower[1])),
              value);
  }
}

TEST(EncodeDecode, SkippingStopsAtTheLimit) {
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToEndOfLine, "ab\r\ncd"), "\r\ncd");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToEndOfLine, "ab\ncd"), "\ncd");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToEndOfLine, "\nab"), "\nab");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToEndOfLine, "ab"), "");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToStartOfLine, "\r\n\n\rab\r\n"), "ab\r\n");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToStartOfLine, " \nab"), " \nab");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipToStartOfLine, "\n\n"), "");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipWhiteSpace, " \t\r\n\v\f a b"), "a b");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipWhiteSpace, "  "), "");
  EXPECT_EQ(RestAfter(CEncodeDecode::SkipWhiteSpace, ""), "");
}

TEST(EncodeDecode, UnescapesHex) {
  EXPECT_EQ(Unescaped(""), "");
  EXPECT_EQ(Unescaped("plain"), "plain");
  EXPECT_EQ(Unescaped("a%20b%2Fc%2f"), "a b/c/");
  EXPECT_EQ(Unescaped("%41%42%43"), "ABC");
  EXPECT_EQ(Unescaped("a=20b%20", '='), "a b%20");
  EXPECT_EQ(Unescaped("%00x"), std::string("\0x", 2));
  EXPECT_EQ(Unescaped("\xFF"
                      "41",
                      0xFF),
            "A");
}

TEST(EncodeDecode, UnescapesHexBehindTextOfAnyLength) {
  OnEveryLevel([] {
    for (std::size_t length = 0; length <= 150; ++length) {
      std::string plain;
      for (std::size_t i = 0; i < length; ++i) {
        plain += static_cast<char>(0x80 + i % 100);
      }
      ASSERT_EQ(Unescaped(plain), plain);
      ASSERT_EQ(Unescaped(plain + "%41" + plain + "%25" + plain), plain + "A" + plain + "%" + plain) << length;
      ASSERT_EQ(Unescaped("%00" + plain + "%4"), std::string(1, '\0') + plain) << length;
    }
  });
}

TEST(EncodeDecode, AnEscapeTooNearTheEndIsDroppedWithWhatFollows) {
  EXPECT_EQ(Unescaped("ab%"), "ab");
  EXPECT_EQ(Unescaped("ab%4"), "ab");
  EXPECT_EQ(Unescaped("%"), "");
  EXPECT_EQ(Unescaped("ab%41%"), "abA");
}

TEST(EncodeDecode, SizesAreCheckedAgainst32Bits) {
  unsigned int size = 1;
  EXPECT_EQ(qsbase::detail::StoreCoderSize(0xFFFFFFFFU, size), 0);
  EXPECT_EQ(size, 0xFFFFFFFFU);
  EXPECT_EQ(qsbase::detail::StoreCoderSize(0x100000000U, size), -3);
  EXPECT_EQ(size, 0U);
}

TEST(EncodeDecode, TheCodersBufferKeepsItsContentWhenItGrows) {
  for (const int flags : {0, kArrayBuffers}) {
    qsbase::detail::CoderBuffer buffer(flags);
    ASSERT_EQ(buffer.Allocate(3), 0);
    std::string("abc").copy(buffer.Data(), 3);
    ASSERT_EQ(buffer.Grow(500'000, 3), 0);
    EXPECT_EQ(buffer.Size(), 500'000U);
    EXPECT_EQ(buffer.Grow(~std::uint64_t{0}, 3), -3);
    char* output = nullptr;
    unsigned int length = 0;
    EXPECT_EQ(buffer.HandOver(3, &output, length), 0);
    EXPECT_EQ(std::string(output), "abc");
    EXPECT_EQ(length, 3U);
    CEncodeDecode::FreeBuffer(output, flags);
  }
}

// The counts are larger than the buffers: a coder that looked at the input before it refuses would read beyond them.
TEST(EncodeDecode, RefusesSizesThatNoBufferCanHave) {
  CEncodeDecode coder(75, 76);
  char* output = nullptr;
  unsigned int length = 1;
  for (const int flags : {0, kArrayBuffers}) {
    EXPECT_EQ(coder.EncodeBase64("x", 0xFFFFFFFFU, &output, length, flags), -3);
    EXPECT_EQ(coder.EncodeUUE("x", 0xFFFFFFFFU, &output, length, flags), -3);
    EXPECT_EQ(coder.EncodeUUE("x", 0xFFFFFFFFU, &output, length, flags | 0x8), -3);
    if (sizeof(std::size_t) == 4) {
      // Every one of these would need 2 GiB or more, and no object of 32-bit programs has so many.
      EXPECT_EQ(coder.EncodeBase64("x", 0x60000000U, &output, length, flags), -3);
      EXPECT_EQ(coder.EncodeUUE("x", 0x60000000U, &output, length, flags), -3);
      EXPECT_EQ(coder.DecodeBase64("x", 0xB0000000U, &output, length, flags), -3);
      EXPECT_EQ(coder.DecodeQP("x", 0x80000000U, &output, length, flags), -3);
      EXPECT_EQ(coder.DecodeUUE("x", 0x80000000U, &output, length, flags), -3);
      EXPECT_EQ(coder.DecodeUUE("x", 0xFFFFFFFFU, &output, length, flags | 0x8), -3);
      EXPECT_EQ(coder.DecodeYEnc("x", 0x80000000U, &output, length, flags, nullptr), -3);
    }
    EXPECT_EQ(output, nullptr);
    EXPECT_EQ(length, 0U);
  }
}

#if defined(_WIN32) && !defined(_WIN64)

/// Takes the process's address space, but for holes of less than 32 MiB. It takes no memory.
class FullAddressSpace {
 public:
  FullAddressSpace() {
    _blocks.reserve(256);
    while (void* const block = VirtualAlloc(nullptr, kHole, MEM_RESERVE, PAGE_NOACCESS)) {
      _blocks.push_back(block);
    }
  }
  ~FullAddressSpace() {
    for (void* const block : _blocks) {
      VirtualFree(block, 0, MEM_RELEASE);
    }
  }
  FullAddressSpace(const FullAddressSpace&) = delete;
  FullAddressSpace& operator=(const FullAddressSpace&) = delete;

  static constexpr std::size_t kHole = std::size_t{32} << 20;

 private:
  std::vector<void*> _blocks;
};

// Elsewhere no program fills its address space.
TEST(EncodeDecode, WithoutAddressSpaceTheStatusIsMinusThree) {
  const std::string input(FullAddressSpace::kHole + (FullAddressSpace::kHole >> 1), '=');
  const auto size = static_cast<unsigned int>(input.size());
  std::vector<int> statuses;
  std::vector<char*> outputs;
  std::string thrown;
  {
    const FullAddressSpace full;
    CEncodeDecode coder(75, 76);
    for (const int flags : {0, kArrayBuffers}) {
      const auto note = [&](int status, char*& output, unsigned int length) {
        statuses.push_back(status);
        outputs.push_back(length == 0 ? output : output + 1);
        output = nullptr;
      };
      char* output = nullptr;
      unsigned int length = 0;
      note(coder.EncodeBase64(input.data(), size, &output, length, flags), output, length);
      note(coder.DecodeBase64(input.data(), size, &output, length, flags), output, length);
      note(coder.EncodeQP(input.data(), size, &output, length, flags), output, length);
      note(coder.DecodeQP(input.data(), size, &output, length, flags), output, length);
      note(coder.EncodeUUE(input.data(), size, &output, length, flags), output, length);
      note(coder.DecodeUUE(input.data(), size, &output, length, flags), output, length);
      note(coder.EncodeYEnc(input.data(), size, &output, length, CYEncData(), flags), output, length);
      note(coder.DecodeYEnc(input.data(), size, &output, length, flags, nullptr), output, length);
      note(CEncodeDecode::AllocateBuffer(output, size, flags), output, length);
    }
    try {
      std::string text;
      QsBase64Encode(input.data(), size, text);
    } catch (const ExBase& error) {
      thrown = error.GetErrorText();
    }
  }
  EXPECT_THAT(statuses, ::testing::Each(-3));
  EXPECT_THAT(outputs, ::testing::Each(nullptr));
  EXPECT_EQ(statuses.size(), 18U);
  EXPECT_EQ(thrown, "CEncodeDecode::EncodeBase64 returns error -3");
}

#endif

TEST(EncodeDecode, TheCodersBufferRefusesAbsurdSizes) {
  for (const int flags : {0, kArrayBuffers}) {
    qsbase::detail::CoderBuffer buffer(flags);
    EXPECT_EQ(buffer.Allocate(~std::uint64_t{0}), -3);
    EXPECT_EQ(buffer.Size(), 0U);
  }
}
