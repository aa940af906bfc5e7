// libxml2's headers come first here, in libxmlsupport_test.cpp last.
#include <libxml/HTMLtree.h>
#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <QSbase/support/xmlentities.h>

#include <gtest/gtest.h>

#include <common/memorylimit.h>
#include <common/xmlmemory.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using namespace std::string_literals;

namespace {

using qsbase::detail::EncodeEntitiesBuffer;
using qsbase::testing::CountXmlAllocations;
using qsbase::testing::xmlAllocations;
using qsbase::testing::xmlAllocationsLeft;

std::string Format(const char* format, unsigned int value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// The table of RFC 3629, section 3, for as many bytes as asked for.
std::string Sequence(std::uint32_t code, int length) {
  std::string bytes;
  for (int i = 1; i < length; ++i) {
    bytes.insert(bytes.begin(), static_cast<char>(0x80 | (code & 0x3F)));
    code >>= 6;
  }
  constexpr std::array<unsigned int, 5> kLead{0, 0, 0xC0, 0xE0, 0xF0};
  bytes.insert(bytes.begin(), static_cast<char>(kLead[static_cast<std::size_t>(length)] | code));
  return bytes;
}

std::string Utf8(std::uint32_t code) {
  return code < 0x80 ? std::string(1, static_cast<char>(code))
                     : Sequence(code, code < 0x800     ? 2
                                      : code < 0x10000 ? 3
                                                       : 4);
}

// Production [2] of XML 1.0.
bool IsXmlCharacter(std::uint32_t code) {
  return code == 0x9 || code == 0xA || code == 0xD || (code >= 0x20 && code <= 0xD7FF) ||
         (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
}

std::string BytesAsReferences(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    text += Format("&#%u;", static_cast<unsigned char>(c));
  }
  return text;
}

// In memory of exactly its size, so that AddressSanitizer sees a look behind the end.
std::string EncodedExactly(std::string_view text, bool plain, xmlDoc* document = nullptr) {
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  std::copy(text.begin(), text.end(), exact.get());
  std::size_t length = 0;
  unsigned char* encoded = EncodeEntitiesBuffer(std::string_view(exact.get(), text.size()), document, plain, length);
  const XmlCharAutoPtr guard(encoded);
  if (encoded == nullptr) {
    return "no memory";
  }
  EXPECT_EQ(encoded[length], 0);
  return std::string(reinterpret_cast<const char*>(encoded), length);
}

struct Row {
  const char* why;
  std::string text;
  std::string encoded;
  std::string plain;
};

const Row kRows[] = {
    {"nothing", "", "", ""},
    {"what is copied", "a Z0~\x7F\t\n", "a Z0~\x7F\t\n", "a Z0~\x7F\t\n"},
    {"names", "<>&\"", "&lt;&gt;&amp;&quot;", "&lt;&gt;&amp;&quot;"},
    {"apostrophe", "'", "&apos;", "'"},
    {"no second encoding is spared", "&amp;", "&amp;amp;", "&amp;amp;"},
    {"carriage return", "\r\n", "&#13;\n", "&#13;\n"},
    {"control characters", "a\x01\x08\x0B\x0C\x0E\x1F\0b"s, "ab", "ab"},
    {"two bytes", "\xC3\xA9", "&#xE9;", "&#233;"},
    {"three bytes", "\xE2\x82\xAC", "&#x20AC;", "&#8364;"},
    {"four bytes", "\xF0\x9F\x98\x80", "&#x1F600;", "&#128512;"},
    {"the last of all", "\xF4\x8F\xBF\xBF", "&#x10FFFF;", "&#1114111;"},
    {"beyond it", "\xF4\x90\x80\x80", "&#244;&#144;&#128;&#128;", "&#244;&#144;&#128;&#128;"},
    {"lone E9", "\xE9", "&#233;", "&#233;"},
    {"Latin-1", "caf\xE9 \xE0 Nice", "caf&#233; &#224; Nice", "caf&#233; &#224; Nice"},
    {"lone C3", "\xC3", "&#195;", "&#195;"},
    {"lone C3 before a letter",
     "\xC3"
     "a",
     "&#195;a", "&#195;a"},
    {"cut after one of three", "x\xE2", "x&#226;", "x&#226;"},
    {"cut after two of three", "x\xE2\x82", "x&#226;&#130;", "x&#226;&#130;"},
    {"cut after three of four", "\xF0\x9F\x98", "&#240;&#159;&#152;", "&#240;&#159;&#152;"},
    {"a zero byte inside", "\xC3\0\xA9"s, "&#195;&#169;", "&#195;&#169;"},
    {"continuation bytes alone", "\x80\xBF", "&#128;&#191;", "&#128;&#191;"},
    {"lead bytes of none", "\xF8\x88\x80\x80\x80\xFF", "&#248;&#136;&#128;&#128;&#128;&#255;",
     "&#248;&#136;&#128;&#128;&#128;&#255;"},
    {"a surrogate", "\xED\xA0\x80", "&#237;&#160;&#128;", "&#237;&#160;&#128;"},
    {"U+FFFE", "\xEF\xBF\xBE", "&#239;&#191;&#190;", "&#239;&#191;&#190;"},
    {"U+FFFD", "\xEF\xBF\xBD", "&#xFFFD;", "&#65533;"},
    {"U+0080, which XML allows", "\xC2\x80", "&#x80;", "&#128;"},
    {"longer than needed, kept", "\xC1\x81\xE0\x80\xBC", "&#x41;&#x3C;", "&#65;&#60;"},
    {"longer than needed, of a control character", "\xC0\x80", "&#192;&#128;", "&#192;&#128;"},
};

}  // namespace

TEST(EncodeEntities, Table) {
  for (const Row& row : kRows) {
    EXPECT_EQ(QsEncodeEntities(row.text, false), row.encoded) << row.why;
    EXPECT_EQ(QsEncodeEntities(row.text, true), row.plain) << row.why;
    EXPECT_EQ(EncodedExactly(row.text, false), row.encoded) << row.why;
    EXPECT_EQ(EncodedExactly(row.text, true), row.plain) << row.why;
  }
}

TEST(EncodeEntities, EveryCharacter) {
  std::string text;
  std::string encoded;
  std::string plain;
  for (std::uint32_t code = 0x80; code < 0x120000; ++code) {
    const std::string bytes = Utf8(code);
    text += bytes;
    encoded += IsXmlCharacter(code) ? Format("&#x%X;", code) : BytesAsReferences(bytes);
    plain += IsXmlCharacter(code) ? Format("&#%u;", code) : BytesAsReferences(bytes);
  }
  EXPECT_TRUE(QsEncodeEntities(text, false) == encoded);
  EXPECT_TRUE(QsEncodeEntities(text, true) == plain);
}

// Whatever it is, its end cut off at any place.
TEST(EncodeEntities, NeverReadsBehindTheEnd) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 12, '\0');
    for (char& c : text) {
      c = static_cast<char>(random() % 4 == 0 ? random() : random() | 0x80);
    }
    const std::string whole = EncodedExactly(text, false);
    EXPECT_EQ(QsEncodeEntities(text, false), whole);
    for (const char c : whole) {
      EXPECT_LT(static_cast<unsigned char>(c), 0x80);
    }
  }
}

// What libxml2 itself makes of well-formed text, but for the two kinds of quotes, which it leaves as they are.
TEST(EncodeEntities, AsLibxml2Does) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::string text;
    for (int i = 0; i < 300; ++i) {
      const auto code = static_cast<std::uint32_t>(random() % (random() % 3 != 0 ? 0x180 : 0x110000));
      if (code != '\'' && code != '"' && IsXmlCharacter(code)) {
        text += Utf8(code);
      }
    }
    xmlChar* theirs = xmlEncodeEntitiesReentrant(nullptr, reinterpret_cast<const xmlChar*>(text.c_str()));
    const XmlCharAutoPtr guard(theirs);
    ASSERT_NE(theirs, nullptr);
    ASSERT_EQ(QsEncodeEntities(text, false), reinterpret_cast<const char*>(theirs));
  }
}

TEST(EncodeEntities, WhatAParserReadsIsTheText) {
  std::string text = "\t\n\r<&>'\"";
  for (const std::uint32_t code : {0x20U, 0x7FU, 0x80U, 0xE9U, 0x7FFU, 0x800U, 0xD7FFU, 0xE000U, 0xFFFDU, 0x10FFFFU}) {
    text += Utf8(code);
  }
  for (const bool plain : {false, true}) {
    const std::string xml = "<r>" + QsEncodeEntities(text, plain) + "</r>";
    xmlDoc* document = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, 0);
    const XmlDocAutoPtr guard(document);
    ASSERT_NE(document, nullptr);
    xmlChar* content = xmlNodeGetContent(xmlDocGetRootElement(document));
    const XmlCharAutoPtr contentGuard(content);
    EXPECT_EQ(reinterpret_cast<const char*>(content), text);
  }
}

TEST(EncodeEntities, OfALongTextGrows) {
  for (const std::size_t size : {899U, 900U, 901U, 999U, 1000U, 1001U, 100000U}) {
    const std::string same(size, 'x');
    EXPECT_TRUE(QsEncodeEntities(same, false) == same) << size;
    std::string expected;
    for (std::size_t i = 0; i < size; ++i) {
      expected += "&quot;";
    }
    EXPECT_TRUE(QsEncodeEntities(std::string(size, '"'), false) == expected) << size;
    EXPECT_TRUE(QsEncodeEntities(std::string(size, '\x01'), false).empty()) << size;
  }
}

namespace {

class EncodeForDocument : public ::testing::Test {
 protected:
  EncodeForDocument() : document(xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"))), _guard(document) {}

  std::string Encoding() const {
    return document->encoding != nullptr ? reinterpret_cast<const char*>(document->encoding) : "";
  }

  xmlDoc* document;

 private:
  XmlDocAutoPtr _guard;
};

}  // namespace

TEST_F(EncodeForDocument, WithAnEncodingBytesAreCopied) {
  document->encoding = xmlStrdup(reinterpret_cast<const xmlChar*>("ISO-8859-15"));
  EXPECT_EQ(EncodedExactly("<\xC3\xA9 \xE9\r", false, document), "&lt;\xC3\xA9 \xE9&#13;");
  EXPECT_EQ(Encoding(), "ISO-8859-15");
}

TEST_F(EncodeForDocument, WithoutOneTheyAreReferences) {
  EXPECT_EQ(EncodedExactly("\xC3\xA9", false, document), "&#xE9;");
  EXPECT_EQ(EncodedExactly("\xC3\xA9", true, document), "&#233;");
  EXPECT_EQ(Encoding(), "");
}

TEST_F(EncodeForDocument, AnInvalidByteMakesItLatin1) {
  EXPECT_EQ(EncodedExactly("\xC3\xA9 \xE9 \xC3\xA9", false, document), "&#xE9; &#233; \xC3\xA9");
  EXPECT_EQ(Encoding(), "ISO-8859-1");
}

TEST_F(EncodeForDocument, HtmlKeepsCarriageReturns) {
  xmlDoc* html = htmlNewDoc(nullptr, nullptr);
  const XmlDocAutoPtr guard(html);
  EXPECT_EQ(EncodedExactly("a\rb", false, html), "a\rb");
  EXPECT_EQ(EncodedExactly("a\rb", false, document), "a&#13;b");
}

TEST(EncodeEntities, WithoutMemoryIsEmpty) {
  CountXmlAllocations();
  const std::string text(100000, '<');
  EXPECT_EQ(QsEncodeEntities(text, false).size(), 400000U);
  const int needed = xmlAllocations;
  EXPECT_EQ(needed, 10);  // 1000 bytes, doubled until they are 512,000
  for (int allowed = 0; allowed < needed; ++allowed) {
    xmlAllocationsLeft = allowed;
    EXPECT_EQ(QsEncodeEntities(text, false), "") << allowed;
  }
  xmlAllocationsLeft = needed;
  EXPECT_EQ(QsEncodeEntities(text, false).size(), 400000U);
  xmlAllocationsLeft = -1;
}

// The other memory, that of the string.
TEST(EncodeEntities, WithoutMemoryForTheResultThrows) {
  const std::string text(100000, '<');
  qsbase::testing::largestAllocation = 200000;
  EXPECT_THROW(QsEncodeEntities(text, false), std::bad_alloc);
  qsbase::testing::largestAllocation = qsbase::testing::kNoLimit;
}

TEST(DecodeSpecialChars, Table) {
  const struct {
    const char* text;
    const char* decoded;
  } rows[] = {
      {"", ""},
      {"plain", "plain"},
      {"&lt;&gt;&amp;&quot;&apos;", "<>&\"'"},
      {"&LT;&Gt;&aMp;&QUOT;&aPoS;", "<>&\"'"},
      {"&AMP;lt;", "&lt;"},
      {"&amp;amp;lt;", "&amp;lt;"},
      {"&#38;&#x26;&nbsp;&euro;", "&#38;&#x26;&nbsp;&euro;"},
      {"&", "&"},
      {"&&&lt;&", "&&<&"},
      {"&l", "&l"},
      {"&lt", "&lt"},
      {"&lt ;", "&lt ;"},
      {"& lt;", "& lt;"},
      {"&quo", "&quo"},
      {"a&gt;b&lt", "a>b&lt"},
      {"&L\xD4;", "&L\xD4;"},
      {"&lT\x1B", "&lT\x1B"},  // '[' and ESC are no letters
      {"&\x0C"
       "t;",
       "&\x0C"
       "t;"},
      {"\xC3\xA9&lt;\xE9", "\xC3\xA9<\xE9"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(QsXmlDecodeSpecialChars(row.text), row.decoded) << row.text;
  }
}

TEST(DecodeSpecialChars, KeepsZeroBytes) { EXPECT_EQ(QsXmlDecodeSpecialChars("\0&lt;\0&l\0t;"s), "\0<\0&l\0t;"s); }

TEST(DecodeSpecialChars, UndoesTheEncodingOfAscii) {
  std::string text;
  for (char c = 0x20; c < 0x7F; ++c) {
    text.push_back(c);
  }
  EXPECT_EQ(QsXmlDecodeSpecialChars(QsEncodeEntities(text, false)), text);
  EXPECT_EQ(QsXmlDecodeSpecialChars(QsEncodeEntities(text, true)), text);
}

TEST(DecodeSpecialChars, TakesTimeInProportionOnly) {
  const std::string text(1 << 20, '&');
  EXPECT_TRUE(QsXmlDecodeSpecialChars(text) == text);
}
