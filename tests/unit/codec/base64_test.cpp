#include <QSbase/codec/base64kernel.h>
#include <QSbase/codec/encodedecode.h>
#include <QSbase/errors.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/memorylimit.h"
#include "common/simdlevels.h"

namespace {

constexpr int kArrayBuffers = 0x10000000;

const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Runs the buffer form and takes its result; also looks at what must hold for every result.
std::string Encoded(CEncodeDecode& coder, const std::string& data, int flags = 0) {
  char* text = nullptr;
  unsigned int length = 99;
  EXPECT_EQ(coder.EncodeBase64(data.data(), static_cast<unsigned int>(data.size()), &text, length, flags), 0);
  const std::string result(text == nullptr ? "" : text, length);
  if (text != nullptr) {
    EXPECT_EQ(text[length], '\0');
  }
  CEncodeDecode::FreeBuffer(text, flags);
  EXPECT_EQ(text, nullptr);
  return result;
}

std::string Encoded(const std::string& data, unsigned int lineLength = 76) {
  CEncodeDecode coder(75, lineLength);
  return Encoded(coder, data);
}

struct Decoded {
  std::string data;
  unsigned int illegal;
  unsigned int parsed;
  bool operator==(const Decoded& other) const {
    return data == other.data && illegal == other.illegal && parsed == other.parsed;
  }
};

void PrintTo(const Decoded& decoded, std::ostream* stream) {
  *stream << ::testing::PrintToString(decoded.data) << " illegal " << decoded.illegal << " parsed " << decoded.parsed;
}

Decoded DecodedBuffer(const std::string& text, int flags = 0) {
  CEncodeDecode coder(75, 76);
  char* data = nullptr;
  unsigned int length = 99;
  EXPECT_EQ(coder.DecodeBase64(text.data(), static_cast<unsigned int>(text.size()), &data, length, flags), 0);
  const Decoded result{std::string(data == nullptr ? "" : data, length), coder.GetNumberIllegalChars(),
                       coder.GetNumberParsedChars()};
  CEncodeDecode::FreeBuffer(data, flags);
  return result;
}

Decoded DecodedInline(const std::string& text) {
  CEncodeDecode coder(75, 76);
  std::vector<char> buffer(text.begin(), text.end());  // exactly as long, so that an overrun is found
  unsigned int length = 99;
  EXPECT_EQ(coder.DecodeBase64Inline(buffer.data(), static_cast<unsigned int>(buffer.size()), length, 0), 0);
  return {std::string(buffer.data(), length), coder.GetNumberIllegalChars(), coder.GetNumberParsedChars()};
}

/// A block of exactly this size at any alignment, so that an overrun is found.
struct Block {
  explicit Block(std::size_t size) : bytes(new char[size]) {}
  explicit Block(const std::string& content) : Block(content.size()) { content.copy(bytes.get(), content.size()); }
  std::unique_ptr<char[]> bytes;
};

/// What the kernel of the level in use makes of the text, given in pieces of at most this size, with no more room than
/// it may use.
Decoded DecodedByKernel(const std::string& text, std::size_t piece, bool inPlace) {
  const Block input(text);
  const Block room(text.size() / 4 * 3 + 2);
  const auto* const begin = reinterpret_cast<const unsigned char*>(input.bytes.get());
  char* const output = inPlace ? input.bytes.get() : room.bytes.get();
  qsbase::detail::Base64DecodeState state{begin, begin, output, inPlace};
  while (state.end != begin + text.size() && !state.ended) {
    state.end += std::min(piece, static_cast<std::size_t>(begin + text.size() - state.end));
    qsbase::detail::Base64KernelsOf(qsbase::detail::CurrentSimdLevel()).decode(state);
  }
  qsbase::detail::Base64DecodeRest(state);
  return {std::string(output, state.output), state.illegal, static_cast<unsigned int>(state.position - begin)};
}

/// The kernels of all levels, which must agree.
Decoded DecodedOnEveryLevel(const std::string& text) {
  const Decoded result = DecodedByKernel(text, text.size(), false);
  qsbase::test::OnEveryLevel([&] {
    EXPECT_EQ(DecodedByKernel(text, text.size(), false), result);
    EXPECT_EQ(DecodedByKernel(text, text.size(), true), result);
  });
  return result;
}

/// All forms of the decoder, which must agree.
Decoded Decode(const std::string& text) {
  const Decoded result = DecodedBuffer(text);
  EXPECT_EQ(DecodedBuffer(text, kArrayBuffers), result);
  EXPECT_EQ(DecodedInline(text), result);
  EXPECT_EQ(DecodedOnEveryLevel(text), result);
  std::string appended = "x";
  EXPECT_EQ(CEncodeDecode(75, 76).DecodeBase64(text, appended, 0), 0);
  EXPECT_EQ(appended, "x" + result.data);
  return result;
}

/// Slow and bit by bit, from the rules alone.
std::string ReferenceEncode(const std::string& data, unsigned int lineLength) {
  std::string text;
  unsigned int groups = 0;
  for (std::size_t i = 0; i < data.size(); i += 3) {
    std::string bits;
    const std::string part = data.substr(i, 3);
    for (const char c : part) {
      for (int bit = 7; bit >= 0; --bit) {
        bits += (static_cast<unsigned char>(c) >> bit & 1) != 0 ? '1' : '0';
      }
    }
    while (bits.size() % 6 != 0) {
      bits += '0';
    }
    for (std::size_t at = 0; at < bits.size(); at += 6) {
      text += kAlphabet[std::stoul(bits.substr(at, 6), nullptr, 2)];
    }
    text.append(3 - part.size(), '=');
    if (part.size() == 3 && lineLength >= 4 && ++groups % (lineLength / 4) == 0) {
      text += "\r\n";
    }
  }
  return text;
}

Decoded ReferenceDecode(const std::string& text) {
  Decoded result{"", 0, 0};
  std::string bits;
  for (const char c : text) {
    ++result.parsed;
    if (c == '=') {
      break;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value != std::string::npos) {
      for (int bit = 5; bit >= 0; --bit) {
        bits += (value >> bit & 1) != 0 ? '1' : '0';
      }
    } else if (c != '\r' && c != '\n') {
      ++result.illegal;
    }
  }
  for (std::size_t at = 0; at + 8 <= bits.size(); at += 8) {
    result.data += static_cast<char>(std::stoul(bits.substr(at, 8), nullptr, 2));
  }
  return result;
}

/// What the kernel of the level in use makes of the data, with no more room than it may use.
std::string EncodedByKernel(const std::string& data, unsigned int groupsPerLine) {
  const Block input(data);
  const Block text(static_cast<std::size_t>(qsbase::detail::Base64TextSize(data.size(), groupsPerLine)));
  char* const end = qsbase::detail::Base64EncodeText(reinterpret_cast<const unsigned char*>(input.bytes.get()),
                                                     data.size(), groupsPerLine, text.bytes.get());
  return {text.bytes.get(), end};
}

/// A text of several lines, the last one with its break too.
std::string Lines(const std::string& plain, std::size_t columns, const std::string& lineBreak) {
  std::string text;
  for (std::size_t at = 0; at < plain.size(); at += columns) {
    text += plain.substr(at, columns) + lineBreak;
  }
  return text;
}

std::string RandomBytes(std::mt19937& random, std::size_t length) {
  std::string bytes(length, '\0');
  for (char& c : bytes) {
    c = static_cast<char>(random());
  }
  return bytes;
}

}  // namespace

TEST(Base64, EncodesTheVectorsOfRfc4648) {
  EXPECT_EQ(Encoded("f"), "Zg==");
  EXPECT_EQ(Encoded("fo"), "Zm8=");
  EXPECT_EQ(Encoded("foo"), "Zm9v");
  EXPECT_EQ(Encoded("foob"), "Zm9vYg==");
  EXPECT_EQ(Encoded("fooba"), "Zm9vYmE=");
  EXPECT_EQ(Encoded("foobar"), "Zm9vYmFy");
}

TEST(Base64, EncodesAllByteValues) {
  std::string all;
  for (int c = 0; c < 256; ++c) {
    all += static_cast<char>(c);
  }
  // python3 -c 'import base64; print(base64.b64encode(bytes(range(256))))'
  const std::string expected =
      "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4OTo7PD0+P0BBQkNERUZHSElKS0xNTk9Q"
      "UVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3BxcnN0dXZ3eHl6e3x9fn+AgYKDhIWGh4iJiouMjY6PkJGSk5SVlpeYmZqbnJ2en6Ch"
      "oqOkpaanqKmqq6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIycrLzM3Oz9DR0tPU1dbX2Nna29zd3t/g4eLj5OXm5+jp6uvs7e7v8PHy"
      "8/T19vf4+fr7/P3+/w==";
  EXPECT_EQ(Encoded(all, 0), expected);
  EXPECT_EQ(Decode(expected).data, all);
}

TEST(Base64, LinesHoldNineteenGroupsAt76) {
  EXPECT_EQ(Encoded(std::string(56, 'a')).size(), 76U);
  EXPECT_EQ(Encoded(std::string(57, 'a')).size(), 78U);
  EXPECT_EQ(Encoded(std::string(58, 'a')).size(), 82U);
  EXPECT_EQ(Encoded(std::string(60, 'a')).size(), 82U);
  EXPECT_EQ(Encoded(std::string(114, 'a')).size(), 156U);
  EXPECT_EQ(Encoded(std::string(115, 'a')).size(), 160U);
}

TEST(Base64, AFullLastLineOfCompleteGroupsEndsWithABreak) {
  std::string line;
  for (int i = 0; i < 19; ++i) {
    line += "YWFh";
  }
  EXPECT_EQ(Encoded(std::string(57, 'a')), line + "\r\n");
  EXPECT_EQ(Encoded(std::string(58, 'a')), line + "\r\nYQ==");
}

TEST(Base64, BreaksLinesOfTwenty) {
  EXPECT_EQ(Encoded(std::string(15, 'A'), 20), "QUFBQUFBQUFBQUFBQUFB\r\n");
  EXPECT_EQ(Encoded(std::string(16, 'A'), 20), "QUFBQUFBQUFBQUFBQUFB\r\nQQ==");
}

TEST(Base64, ALineLengthBelowFourMeansNoBreaks) {
  for (const unsigned int lineLength : {0U, 1U, 2U, 3U}) {
    EXPECT_EQ(Encoded(std::string(300, 'a'), lineLength).find_first_of("\r\n"), std::string::npos);
  }
  EXPECT_EQ(Encoded("aaaaaa", 4), "YWFh\r\nYWFh\r\n");
  EXPECT_EQ(Encoded("aaaaaa", 7), "YWFh\r\nYWFh\r\n");
}

TEST(Base64, TheSetterRoundsAndHasAMinimum) {
  const std::string data(100, 'a');
  for (unsigned int length = 0; length < 100; ++length) {
    CEncodeDecode coder(75, 76);
    coder.SetMaxLineLengthBase64(length);
    const unsigned int expected = length < 21 ? 20 : length - length % 4;
    EXPECT_EQ(Encoded(coder, data), ReferenceEncode(data, expected)) << length;
  }
}

TEST(Base64, EncodesLikeTheReferenceAtEveryLength) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length <= 300; ++length) {
    const std::string data = RandomBytes(random, length);
    for (const unsigned int lineLength : {0U, 3U, 4U, 8U, 13U, 20U, 64U, 76U, 77U, 400U, 0xFFFFFFFFU}) {
      ASSERT_EQ(Encoded(data, lineLength), ReferenceEncode(data, lineLength)) << length << " at " << lineLength;
    }
  }
}

TEST(Base64, EveryLevelEncodesLikeTheReference) {
  std::mt19937 random(6);
  for (std::size_t length = 0; length <= 300; ++length) {
    const std::string data = RandomBytes(random, length);
    for (const unsigned int groups : {0U, 1U, 2U, 3U, 4U, 5U, 7U, 8U, 9U, 15U, 16U, 17U, 19U, 24U, 50U, 0x40000001U}) {
      const std::string expected = ReferenceEncode(data, std::min(groups, 1000U) * 4);
      qsbase::test::OnEveryLevel(
          [&] { EXPECT_EQ(EncodedByKernel(data, groups), expected) << length << " " << groups; });
    }
  }
}

TEST(Base64, EveryLevelEncodesAtEveryAlignment) {
  std::mt19937 random(7);
  const std::string data = RandomBytes(random, 64 + 257);
  for (std::size_t at = 0; at < 64; ++at) {
    const std::string expected = ReferenceEncode(data.substr(at, 257), 76);
    qsbase::test::OnEveryLevel([&] {
      std::string text(64 + expected.size(), '.');
      char* const end = qsbase::detail::Base64EncodeText(reinterpret_cast<const unsigned char*>(data.data()) + at, 257,
                                                         19, text.data() + 63 - at);
      EXPECT_EQ(std::string(text.data() + 63 - at, end), expected) << at;
      EXPECT_EQ(std::string(end, text.data() + text.size()), std::string(at + 1, '.'));
    });
  }
}

TEST(Base64, FormsOfTheEncoderAgree) {
  std::mt19937 random(2);
  const std::string data = RandomBytes(random, 1000);
  CEncodeDecode coder(75, 76);
  const std::string expected = ReferenceEncode(data, 76);
  EXPECT_EQ(Encoded(coder, data, kArrayBuffers), expected);
  EXPECT_EQ(coder.GetNumberParsedChars(), 1000U);
  std::string appended = "start ";
  EXPECT_EQ(coder.EncodeBase64(data, appended, 0), 0);
  EXPECT_EQ(appended, "start " + expected);
  std::string same = "abc";
  EXPECT_EQ(coder.EncodeBase64(same, same, 0), 0);
  EXPECT_EQ(same, "abcYWJj");
  EXPECT_EQ(coder.DecodeBase64(same, same, 0), 0);
  EXPECT_EQ(same, "abcYWJji\xB7\x18X\x98");
}

TEST(Base64, DecodesTheVectorsOfRfc4648) {
  EXPECT_EQ(Decode("Zg==").data, "f");
  EXPECT_EQ(Decode("Zm8=").data, "fo");
  EXPECT_EQ(Decode("Zm9v").data, "foo");
  EXPECT_EQ(Decode("Zm9vYg==").data, "foob");
  EXPECT_EQ(Decode("Zm9vYmE=").data, "fooba");
  EXPECT_EQ(Decode("Zm9vYmFy").data, "foobar");
}

TEST(Base64, IllegalCharactersAreSkippedAndCounted) {
  EXPECT_EQ(Decode("QU JD"), (Decoded{"ABC", 1, 5}));
  EXPECT_EQ(Decode("\tQ-U_J.D\x80\xFF"), (Decoded{"ABC", 6, 10}));
  EXPECT_EQ(Decode(std::string("Q\0UJD", 5)), (Decoded{"ABC", 1, 5}));
  EXPECT_EQ(Decode("?????????????????????"), (Decoded{"", 21, 21}));
}

TEST(Base64, LineBreaksAreSkippedSilently) {
  EXPECT_EQ(Decode("Q\rU\nJ\r\nD"), (Decoded{"ABC", 0, 8}));
  EXPECT_EQ(Decode("\r\n\r\nQUJD\n\n\nQUJD\r\r"), (Decoded{"ABCABC", 0, 17}));
  EXPECT_EQ(Decode("\r\n"), (Decoded{"", 0, 2}));
}

TEST(Base64, AnEqualsSignEndsDecoding) {
  EXPECT_EQ(Decode("QUJD=QUJD"), (Decoded{"ABC", 0, 5}));
  EXPECT_EQ(Decode("="), (Decoded{"", 0, 1}));
  EXPECT_EQ(Decode("=QUJD"), (Decoded{"", 0, 1}));
  EXPECT_EQ(Decode("QUI=?"), (Decoded{"AB", 0, 4}));
}

TEST(Base64, AnIncompleteGroupGivesWhatItHolds) {
  EXPECT_EQ(Decode("Q"), (Decoded{"", 0, 1}));
  EXPECT_EQ(Decode("QU"), (Decoded{"A", 0, 2}));
  EXPECT_EQ(Decode("QUI"), (Decoded{"AB", 0, 3}));
  EXPECT_EQ(Decode("QUJDQ"), (Decoded{"ABC", 0, 5}));
  EXPECT_EQ(Decode("QUJDQ="), (Decoded{"ABC", 0, 6}));
  EXPECT_EQ(Decode("QUJDQ\r\n"), (Decoded{"ABC", 0, 7}));
}

TEST(Base64, DecodesEveryPairOfCharactersLikeTheReference) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string text = {static_cast<char>(first), 'U', static_cast<char>(second), 'D'};
      ASSERT_EQ(DecodedBuffer(text), ReferenceDecode(text)) << first << " " << second;
    }
  }
}

TEST(Base64, DecodesEveryIllegalPlaceLikeTheReference) {
  const std::string clean = ReferenceEncode(std::string(130, 'x'), 76);
  for (std::size_t at = 0; at < clean.size(); ++at) {
    for (const char c : {'=', ' ', '\n', '\0', '\xC3'}) {
      std::string replaced = clean;
      replaced[at] = c;
      ASSERT_EQ(Decode(replaced), ReferenceDecode(replaced)) << at;
      std::string inserted = clean;
      inserted.insert(at, 1, c);
      ASSERT_EQ(Decode(inserted), ReferenceDecode(inserted)) << at;
      ASSERT_EQ(Decode(clean.substr(0, at)), ReferenceDecode(clean.substr(0, at))) << at;
    }
  }
}

TEST(Base64, DecodesDamagedTextsLikeTheReference) {
  std::mt19937 random(3);
  for (int round = 0; round < 6000; ++round) {
    std::string text = ReferenceEncode(RandomBytes(random, random() % 301), static_cast<unsigned int>(random() % 80));
    const unsigned int damages = text.empty() ? 0 : static_cast<unsigned int>(random() % 5);
    for (unsigned int i = 0; i < damages; ++i) {
      text.insert(random() % text.size(), 1, "= \r\n\t.?\xE4"[random() % 8]);
      text[random() % text.size()] = static_cast<char>(random());
    }
    text.resize(random() % 3 == 0 && !text.empty() ? random() % text.size() : text.size());
    ASSERT_EQ(Decode(text), ReferenceDecode(text)) << ::testing::PrintToString(text);
  }
}

TEST(Base64, EveryLevelDecodesLinesOfEveryForm) {
  std::mt19937 random(8);
  const std::string data = RandomBytes(random, 2000);
  const std::string plain = ReferenceEncode(data, 0);
  for (const std::size_t columns : {1U, 3U, 4U, 8U, 20U, 31U, 32U, 60U, 64U, 72U, 73U, 76U, 128U, 252U, 400U, 1000U}) {
    for (const std::string lineBreak : {"\n", "\r\n", "\r", "\n\n\r", " \r\n", "?"}) {
      const std::string text = Lines(plain, columns, lineBreak);
      const Decoded expected = ReferenceDecode(text);
      ASSERT_EQ(expected.data, data);
      ASSERT_EQ(DecodedOnEveryLevel(text), expected) << columns;
    }
  }
}

TEST(Base64, EveryLevelDecodesEveryCutOfLines) {
  std::mt19937 random(9);
  const std::string text = ReferenceEncode(RandomBytes(random, 500), 76);
  for (std::size_t length = 0; length <= text.size(); ++length) {
    const std::string cut = text.substr(text.size() - length);
    ASSERT_EQ(DecodedOnEveryLevel(text.substr(0, length)), ReferenceDecode(text.substr(0, length))) << length;
    ASSERT_EQ(DecodedOnEveryLevel(cut), ReferenceDecode(cut)) << length;
  }
}

TEST(Base64, EveryLevelDecodesAtEveryAlignment) {
  std::mt19937 random(12);
  const std::string data = RandomBytes(random, 257);
  const std::string text = ReferenceEncode(data, 76);
  for (std::size_t at = 0; at < 64; ++at) {
    qsbase::test::OnEveryLevel([&] {
      const std::string input = std::string(at, '=') + text;
      std::string output(64 + data.size() + text.size(), '.');
      const auto decoded = qsbase::detail::Base64DecodeText(input.data() + at, text.size(), output.data() + 63 - at);
      EXPECT_EQ(output.substr(63 - at, decoded.written), data);
      EXPECT_EQ(output.substr(0, 63 - at), std::string(63 - at, '.'));
    });
  }
}

TEST(Base64, EveryLevelDecodesEveryCharacterAtEveryPlaceOfAVector) {
  std::mt19937 random(10);
  const std::string plain = ReferenceEncode(RandomBytes(random, 150), 0);
  for (std::size_t at = 0; at < 64; ++at) {
    for (int c = 0; c < 256; ++c) {
      std::string text = plain;
      text[at] = static_cast<char>(c);
      ASSERT_EQ(DecodedOnEveryLevel(text), ReferenceDecode(text)) << at << " " << c;
    }
  }
}

TEST(Base64, EveryLevelDecodesDamagedLines) {
  std::mt19937 random(11);
  for (int round = 0; round < 500; ++round) {
    const std::size_t columns = random() % 3 == 0 ? random() % 300 + 1 : (random() % 75 + 1) * 4;
    std::string text =
        Lines(ReferenceEncode(RandomBytes(random, random() % 3000 + 1), 0), columns, random() % 2 == 0 ? "\r\n" : "\n");
    for (std::size_t damages = random() % 6; damages > 0; --damages) {
      const std::size_t at = random() % text.size();
      if (random() % 2 == 0) {
        text.insert(at, 1, " \r\n\t.?\xE4"[random() % 7]);
      } else {
        text.erase(at, random() % 3 + 1);
        text += "A=\n"[random() % 3];
      }
    }
    const Decoded expected = ReferenceDecode(text);
    ASSERT_EQ(DecodedOnEveryLevel(text), expected) << ::testing::PrintToString(text);
    qsbase::test::OnEveryLevel([&] {
      const std::size_t piece = random() % 700 + 1;
      EXPECT_EQ(DecodedByKernel(text, piece, false), expected) << piece;
      EXPECT_EQ(DecodedByKernel(text, piece, true), expected) << piece;
    });
  }
}

TEST(Base64, RandomNoiseDecodesLikeTheReference) {
  std::mt19937 random(4);
  for (int round = 0; round < 3000; ++round) {
    std::string noise = RandomBytes(random, random() % 200);
    for (char& c : noise) {
      c = c == '=' ? 'A' : c;
    }
    ASSERT_EQ(Decode(noise), ReferenceDecode(noise));
  }
}

TEST(Base64, RoundTripsALongInput) {
  std::mt19937 random(5);
  const std::string data = RandomBytes(random, 3'000'001);
  for (const unsigned int lineLength : {0U, 20U, 76U}) {
    EXPECT_TRUE(Decode(Encoded(data, lineLength)).data == data);
  }
}

TEST(Base64, TheStringFormsEncodeWhatTheBufferFormDoes) {
  std::mt19937 random(13);
  for (const std::size_t length : {0U, 1U, 1535U, 1536U, 1537U, 1538U, 3072U, 12288U, 50001U}) {
    const std::string data = RandomBytes(random, length);
    for (const unsigned int lineLength : {0U, 76U, 400U, 2044U, 2048U, 2052U, 4096U, 9000U, 66000U, 0xFFFFFFFFU}) {
      CEncodeDecode coder(75, lineLength);
      std::string text = "x";
      EXPECT_EQ(coder.EncodeBase64(data, text, 0), 0);
      EXPECT_EQ(coder.GetNumberParsedChars(), length);
      EXPECT_TRUE(text == "x" + Encoded(coder, data)) << length << " at " << lineLength;
    }
  }
}

TEST(Base64, TheStringFormsDecodeWhatTheBufferFormDoes) {
  std::mt19937 random(14);
  const std::string text = Encoded(RandomBytes(random, 40000));
  for (const std::size_t at : {0U, 1U, 2046U, 2047U, 2048U, 2049U, 2050U, 4096U, 54000U}) {
    for (const std::string inserted : {"=", "?", "??\n", "A", "AA", "AAA"}) {
      std::string damaged = text;
      damaged.insert(at, inserted);
      const Decoded expected = DecodedBuffer(damaged);
      CEncodeDecode coder(75, 76);
      std::string data = "x";
      EXPECT_EQ(coder.DecodeBase64(damaged, data, 0), 0);
      EXPECT_TRUE(data == "x" + expected.data) << at << inserted;
      EXPECT_EQ(coder.GetNumberIllegalChars(), expected.illegal);
      EXPECT_EQ(coder.GetNumberParsedChars(), expected.parsed);
    }
  }
}

TEST(Base64, TheStringFormsTakeTheirOwnOutputAsInput) {
  qsbase::test::OnEveryLevel([] {
    std::mt19937 random(16);
    for (const std::size_t length : {0U, 1U, 11U, 12U, 1535U, 5000U, 100000U}) {
      const std::string data = RandomBytes(random, length);
      for (const unsigned int lineLength : {0U, 76U, 9000U}) {
        CEncodeDecode coder(75, lineLength);
        std::string text = data;
        EXPECT_EQ(coder.EncodeBase64(text, text, 0), 0);
        EXPECT_EQ(coder.GetNumberParsedChars(), length);
        EXPECT_TRUE(text == data + ReferenceEncode(data, lineLength)) << length;
        text = ReferenceEncode(data, lineLength);
        const std::string before = text;
        EXPECT_EQ(coder.DecodeBase64(text, text, 0), 0);
        EXPECT_EQ(coder.GetNumberParsedChars(), DecodedBuffer(before).parsed);
        EXPECT_TRUE(text == before + data) << length;
      }
    }
  });
}

TEST(Base64, NoMemoryForAStringIsAStatus) {
  CEncodeDecode coder(75, 76);
  std::string same(100000, 'A');
  std::string other = "x";
  std::string full(other.capacity(), 'f');
  int statuses[6] = {};
  qsbase::testing::largestAllocation = 0;
  const int nothing = coder.DecodeBase64(std::string(), full, 0);
  qsbase::testing::largestAllocation = 50000;
  statuses[0] = coder.EncodeBase64(same, other, 0);
  statuses[1] = coder.DecodeBase64(same, other, 0);
  statuses[2] = coder.EncodeBase64(same, same, 0);
  statuses[3] = coder.DecodeBase64(same, same, 0);
  statuses[4] = coder.Encode(same, same, 1);
  statuses[5] = coder.Decode(same, same, 1);
  const unsigned int parsed = coder.GetNumberParsedChars();
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
  EXPECT_EQ(nothing, 0);
  EXPECT_THAT(statuses, ::testing::Each(-3));
  EXPECT_EQ(parsed, 0U);
  EXPECT_EQ(other, "x");
  EXPECT_TRUE(same == std::string(100000, 'A'));
}

TEST(Base64, CountersStartAfreshWithEveryCall) {
  CEncodeDecode coder(75, 76);
  std::string output;
  EXPECT_EQ(coder.DecodeBase64("Q?U?J?D?", output, 0), 0);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 4U);
  EXPECT_EQ(coder.GetNumberParsedChars(), 8U);
  EXPECT_EQ(coder.DecodeBase64("QUJD", output, 0), 0);
  EXPECT_EQ(coder.GetNumberIllegalChars(), 0U);
  EXPECT_EQ(coder.GetNumberParsedChars(), 4U);
  EXPECT_EQ(coder.DecodeBase64("", output, 0), 0);
  EXPECT_EQ(coder.GetNumberParsedChars(), 0U);
}

TEST(Base64, EstimatesMemoryByItsRule) {
  CEncodeDecode coder(75, 76);
  unsigned int size = 0;
  const std::vector<std::pair<unsigned int, unsigned int>> figures = {{0, 0},    {1, 4},    {57, 78},
                                                                      {76, 106}, {77, 104}, {100, 136}};
  for (const auto& [length, expected] : figures) {
    EXPECT_EQ(coder.CalcEncodedMemoryBase64(length, size), 0);
    EXPECT_EQ(size, expected) << length;
  }
}

TEST(Base64, TheEstimateIsTooSmallForSeveralLinesButTheTextIsWhole) {
  CEncodeDecode coder(75, 76);
  unsigned int size = 0;
  EXPECT_EQ(coder.CalcEncodedMemoryBase64(114, size), 0);
  EXPECT_EQ(size, 152U);
  EXPECT_EQ(Encoded(coder, std::string(114, 'a')).size(), 156U);
}

TEST(Base64, TheEstimateKnowsNoBreaksBelowFour) {
  CEncodeDecode coder(75, 3);
  unsigned int size = 0;
  EXPECT_EQ(coder.CalcEncodedMemoryBase64(3, size), 0);
  EXPECT_EQ(size, 4U);
}

TEST(Base64, SizesAbove32BitsAreRefused) {
  CEncodeDecode coder(75, 0);
  unsigned int size = 1;
  EXPECT_EQ(coder.CalcEncodedMemoryBase64(3221225469U, size), 0);
  EXPECT_EQ(size, 4294967292U);
  EXPECT_EQ(coder.CalcEncodedMemoryBase64(3221225470U, size), -3);
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(coder.CalcEncodedMemoryBase64(0xFFFFFFFFU, size), -3);
  char* text = nullptr;
  unsigned int length = 1;
  EXPECT_EQ(coder.EncodeBase64("x", 0xFFFFFFFFU, &text, length, 0), -3);  // refused before the input is read
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(length, 0U);
}

TEST(Base64, SingleCharacters) {
  CEncodeDecode coder(75, 76);
  for (int value = 0; value < 256; ++value) {
    const char c = coder.EncodeBase64Char(static_cast<unsigned char>(value));
    EXPECT_EQ(c, value < 64 ? kAlphabet[static_cast<std::size_t>(value)] : '=');
    const std::size_t found = kAlphabet.find(static_cast<char>(value));
    EXPECT_EQ(CEncodeDecode::DecodeBase64Char(static_cast<unsigned char>(value)),
              found == std::string::npos ? -1 : static_cast<int>(found));
  }
  EXPECT_EQ(coder.GetNumberIllegalChars(), 192U);
}

TEST(Base64, NullPointers) {
  CEncodeDecode coder(75, 76);
  char* output = nullptr;
  unsigned int length = 1;
  EXPECT_EQ(coder.EncodeBase64(nullptr, 1, &output, length, 0), -4);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(coder.EncodeBase64("a", 1, nullptr, length, 0), -4);
  EXPECT_EQ(coder.DecodeBase64(nullptr, 1, &output, length, 0), -4);
  EXPECT_EQ(coder.DecodeBase64("a", 1, nullptr, length, 0), -4);
  EXPECT_EQ(coder.DecodeBase64Inline(nullptr, 1, length, 0), -4);
}

TEST(Base64, AnEmptyInputSucceedsWhateverThePointers) {
  CEncodeDecode coder(75, 76);
  char byte = 'x';
  char* output = &byte;
  unsigned int length = 1;
  EXPECT_EQ(coder.EncodeBase64(nullptr, 0, &output, length, 0), 0);
  EXPECT_EQ(output, nullptr);
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(coder.EncodeBase64(nullptr, 0, nullptr, length, 0), 0);
  EXPECT_EQ(coder.DecodeBase64(nullptr, 0, &output, length, 0), 0);
  EXPECT_EQ(coder.DecodeBase64("", 0, nullptr, length, 0), 0);
  EXPECT_EQ(coder.DecodeBase64Inline(nullptr, 0, length, 0), 0);
  EXPECT_EQ(length, 0U);
}

TEST(Base64, StringConveniences) {
  std::string text = "old";
  QsBase64Encode("Hello, world", 12, text);
  EXPECT_EQ(text, "SGVsbG8sIHdvcmxk");
  QsBase64Encode(std::string(58, 'a').data(), 58, text);
  EXPECT_EQ(text, ReferenceEncode(std::string(58, 'a'), 76));
  std::string data = "old";
  QsBase64Decode("SGVsbG8s\r\nIHdvcmxk", 18, data);
  EXPECT_EQ(data, "Hello, world");
}

TEST(Base64, StringConveniencesOfNothingAreEmpty) {
  std::string text = "old";
  QsBase64Encode(nullptr, 5, text);
  EXPECT_EQ(text, "");
  text = "old";
  QsBase64Encode("abc", 0, text);
  EXPECT_EQ(text, "");
  text = "old";
  QsBase64Decode(nullptr, 5, text);
  EXPECT_EQ(text, "");
  text = "old";
  QsBase64Decode("abc", 0, text);
  EXPECT_EQ(text, "");
}

TEST(Base64, StringConveniencesTakeTheirOwnOutputAsInput) {
  std::string text = "abc";
  QsBase64Encode(text.data(), 3, text);
  EXPECT_EQ(text, "YWJj");
  QsBase64Decode(text.data(), 4, text);
  EXPECT_EQ(text, "abc");
  QsBase64Encode(text.data() + 1, 2, text);
  EXPECT_EQ(text, "YmM=");
  QsBase64Decode(text.data() + 1, 3, text);
  EXPECT_EQ(text, "\x98");
}

TEST(Base64, StringConveniencesOfTheirOwnOutputThrowTheStatusWithoutMemory) {
  std::string text(100000, 'A');
  std::string data = text;
  qsbase::testing::largestAllocation = 50000;
  EXPECT_THROW(QsBase64Encode(text.data(), 100000, text), ExBase);
  EXPECT_THROW(QsBase64Decode(data.data(), 100000, data), ExBase);
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
  EXPECT_EQ(text, "");
  EXPECT_EQ(data, "");
}

TEST(Base64, StringConveniencesThrowTheStatus) {
  std::string text = "old";
  try {
    QsBase64Encode("x", 0xFFFFFFFFU, text);
    FAIL() << "no exception";
  } catch (const ExBase& error) {
    EXPECT_EQ(error.GetErrorText(), "CEncodeDecode::EncodeBase64 returns error -3");
  }
  EXPECT_EQ(text, "");
}
