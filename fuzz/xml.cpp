// Entity coding, Latin-1 and UTF-8, and XPath on documents of strangers.
#include <QSbase/log/log.h>
#include <QSbase/support/libxmlsupport.h>
#include <QSbase/support/xmlsource.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "bounds.h"
#include "target.h"

using namespace qsbase;

namespace {

// ---- nothing outside of the text is read ----

xmlParserInput* RefuseToLoad(const char* url, const char*, xmlParserCtxt*) {
  fuzz::Demand("something else was to be read: " + std::string(url == nullptr ? "" : url));
  return nullptr;
}

struct Guards {
  Guards() {
    SetLogLineFormatter(nullptr);
    InitXML(1);
    xmlSetExternalEntityLoader(&RefuseToLoad);
  }
};

// ---- texts ----

void AppendUtf8(std::string& text, unsigned long code) {
  if (code < 0x80) {
    text += static_cast<char>(code);
    return;
  }
  const int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
  constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
  text += static_cast<char>(kLead[more] + (code >> (6 * more)));
  for (int i = more - 1; i >= 0; --i) {
    text += static_cast<char>(0x80 + (code >> (6 * i) & 63));
  }
}

/// The character that begins a text, and how many bytes it has; none: 0 bytes. Forms that are too long count.
unsigned long SlowCharacter(std::string_view text, std::size_t& length) {
  static constexpr unsigned kFirst[] = {0xC0, 0xE0, 0xF0, 0xF8};
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  length = 0;
  for (std::size_t more = 1; more <= 3; ++more) {
    if (byte(0) < kFirst[more - 1] || byte(0) >= kFirst[more]) {
      continue;
    }
    unsigned long code = byte(0) - kFirst[more - 1];
    for (std::size_t i = 1; i <= more; ++i) {
      if (byte(i) < 0x80 || byte(i) >= 0xC0) {
        return 0;
      }
      code = code * 64 + byte(i) % 64;
    }
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    const bool isControl = code < 32 && code != 9 && code != 10 && code != 13;
    if (!isSurrogate && !isControl && code != 0xFFFE && code != 0xFFFF && code < 0x110000) {
      length = more + 1;
    }
    return code;
  }
  return 0;
}

/// What a reader of XML finds where the encoded text stands: UTF-8, without control characters; in the value of an
/// attribute line feeds and tabs are blanks.
std::string Readable(std::string_view text, bool asValue) {
  std::string readable;
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    std::size_t length = 1;
    unsigned long code = asValue && (byte == 9 || byte == 10) ? 32 : byte;
    if (byte >= 0x80) {
      code = SlowCharacter(text.substr(i), length);
      code = length == 0 ? byte : code;
      length = length == 0 ? 1 : length;
    }
    if (code >= 32 || code == 9 || code == 10 || code == 13) {
      AppendUtf8(readable, code);
    }
    i += length;
  }
  return readable;
}

// ---- entities ----

void DemandEncoded(const std::string& encoded) {
  for (const char c : encoded) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isControl = byte < 32 && c != '\n' && c != '\t';
    fuzz::Demand(byte < 128 && !isControl && c != '<' && c != '>' && c != '"' ? "" : "encoded, and yet raw");
  }
}

struct XmlText {
  XmlText() = default;
  XmlText(const XmlText&) = delete;
  XmlText& operator=(const XmlText&) = delete;
  ~XmlText() { XmlCharAutoPtr(bytes).Free(); }

  std::string Get() const { return bytes == nullptr ? "" : reinterpret_cast<const char*>(bytes); }

  unsigned char* bytes = nullptr;
};

/// The encoded text is read back by libxml2, as content and as the value of an attribute.
void EncodeAndParse(const std::string& text, bool plain) {
  const std::string encoded = QsEncodeEntities(text, plain);
  DemandEncoded(encoded);
  fuzz::Demand(encoded.size() <= 6 * text.size() ? "" : "encoded to more than six times as much");
  const std::string xml = "<a b=\"" + encoded + "\">" + encoded + "</a>";
  xmlDoc* document = detail::ParseUntrustedXml(xml);
  const XmlDocAutoPtr guard(document);
  if (text.size() >= 1000000) {
    return;  // libxml2 has limits for one text
  }
  fuzz::Demand(document != nullptr ? "" : "encoded, and yet no XML");
  xmlNode* const root = xmlDocGetRootElement(document);
  XmlText content;
  XmlText value;
  content.bytes = xmlNodeGetContent(root);
  value.bytes = xmlGetProp(root, reinterpret_cast<const xmlChar*>("b"));
  fuzz::DemandEqual(Readable(text, false), content.Get(), "the content of an element");
  fuzz::DemandEqual(Readable(text, true), value.Get(), "the value of an attribute");
}

std::string SlowDecode(const std::string& text) {
  static constexpr const char* kEntities[] = {"&lt;", "&gt;", "&amp;", "&quot;", "&apos;"};
  static constexpr char kCharacters[] = "<>&\"'";
  std::string decoded;
  for (std::size_t i = 0; i < text.size();) {
    std::size_t length = 1;
    char character = text[i];
    for (int k = 0; k < 5; ++k) {
      std::string here = text.substr(i, std::strlen(kEntities[k]));
      for (char& c : here) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
      }
      if (here == kEntities[k]) {
        length = here.size();
        character = kCharacters[k];
      }
    }
    decoded += character;
    i += length;
  }
  return decoded;
}

void CompareDecoding(const std::string& text) {
  fuzz::DemandEqual(SlowDecode(text), QsXmlDecodeSpecialChars(text), "decoded special characters");
  std::string printable;
  for (const char c : text) {
    printable += c >= 32 && c < 127 ? std::string(1, c) : "";
  }
  for (const bool plain : {false, true}) {
    fuzz::DemandEqual(printable, QsXmlDecodeSpecialChars(QsEncodeEntities(printable, plain)), "ASCII");
  }
}

// ---- Latin-1 ----

using Bytes = std::unique_ptr<unsigned char, decltype(&std::free)>;

const unsigned char* AsBytes(const std::string& text) { return reinterpret_cast<const unsigned char*>(text.c_str()); }

std::string ToLatin1(const std::string& text, bool& done) {
  unsigned char* result = nullptr;
  done = QsXmlConvertXMLStringUTF8Toisolat1(AsBytes(text), result);
  const Bytes owner(result, &std::free);
  fuzz::Demand(done == (result != nullptr) ? "" : "a text without success, or success without one");
  return done ? reinterpret_cast<const char*>(result) : "";
}

void ConvertLatin1(std::string text) {
  text = text.c_str();
  std::string utf8;
  for (const char c : text) {
    AppendUtf8(utf8, static_cast<unsigned char>(c));
  }
  fuzz::DemandEqual(utf8, QsConvertIsolat1ToUTF8(text.c_str()), "Latin-1 as UTF-8");
  bool done = false;
  fuzz::DemandEqual(text, ToLatin1(utf8, done), "Latin-1 from UTF-8");
  const std::string hostile = ToLatin1(text, done);
  fuzz::Demand(hostile.size() <= text.size() ? "" : "Latin-1 is longer than UTF-8");
  if (done) {  // but for a sequence that the end cuts off, and longer forms than needed
    const std::string again = QsConvertIsolat1ToUTF8(hostile.c_str());
    fuzz::Demand(again.size() <= text.size() ? "" : "not what UTF-8 said");
  }
}

// ---- documents ----

constexpr std::size_t kDeepest = 256;
constexpr std::size_t kMostEntityText = 10000000;

/// Attributes hold what their entities stand for, the rest at most itself once for each element around it.
void DemandBounded(const std::string& xml, const std::string& found) {
  fuzz::Demand(found.size() <= kMostEntityText + 6 * kDeepest * (xml.size() + 64) ? ""
                                                                                  : "more than the document holds");
}

void Ask(const std::string& xml, const std::string& ownExpression) {
  for (const char* const expression :
       {"/", "/*", "//@*", "//text()", "//*[last()]", "//comment()|//processing-instruction()", "//namespace::*",
        "string(/)", "id('a')"}) {
    DemandBounded(xml, GetXPathStringFromString(xml, expression));
  }
  if (xml.size() < 200) {  // an expression may well take time by a power of the document
    GetXPathStringFromString(xml, ownExpression);
  }
}

void Walk(const std::string& xml) {
  xmlDoc* document = detail::ParseUntrustedXml(xml);
  const XmlDocAutoPtr guard(document);
  if (document == nullptr) {
    return;
  }
  xmlNode* const root = xmlDocGetRootElement(document);
  QsXmlGetSubNodeByName(root, "b", true);
  QsXmlGetSubNodeByName(root, "b", false);
  QsXmlNodeIsText(root);
  QsXmlCountChildren(root);
  fuzz::Demand(QsXmlNodeGetText(root, "").size() <= QsXmlNodeGetFormattedText(root, "").size() ? "" : "texts");
  QsXmlDocDumpFormatXML(document, true);
  // What is saved is XML again, and saved once more the same.
  const std::string saved = QsXmlDocSaveToString(document, true);
  xmlDoc* again = detail::ParseUntrustedXml(saved);
  const XmlDocAutoPtr guardAgain(again);
  if (again != nullptr) {
    fuzz::DemandEqual(saved, QsXmlDocSaveToString(again, true), "a saved document");
  }
}

void CompareName(const std::string& text) {
  const std::string name = QsValidateAsciiNodeName(text);
  fuzz::Demand(name.size() == text.size() ? "" : "a name of another length");
  if (!name.empty()) {
    std::string xml = "<" + name + "/>";
    xml = name.find(':') == std::string::npos ? xml : "<a/>";  // its prefix would be unknown
    fuzz::Demand(GetXPathStringFromString(xml, "/*") == xml ? "" : "no name of XML: " + name);
  }
}

// ---- bounds ----

void DemandBounds(std::string_view text) {
  fuzz::DemandBounds("QsEncodeEntities", text, [](const std::string& plain) {
    return 4 * QsEncodeEntities(plain, false).size();  // its buffer doubles
  });
  fuzz::DemandBounds("QsXmlDecodeSpecialChars", text,
                     [](const std::string& coded) { return QsXmlDecodeSpecialChars(coded).size(); });
  fuzz::DemandBounds("QsConvertIsolat1ToUTF8", text, [](const std::string& latin1) {
    return 3 * latin1.size() + QsConvertIsolat1ToUTF8(latin1.c_str()).size();
  });
  // A node of libxml2 takes 120 bytes, and "<a/>" is four.
  fuzz::DemandBounds(
      "XPath", text,
      [](const std::string& content) {
        return 80 * content.size() + GetXPathStringFromString("<r>" + content + "</r>", "/r").size();
      },
      std::size_t{1} << 18);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Guards guards;
  fuzz::Input input(data, size);
  const bool plain = input.Parameter() % 2 != 0;
  const std::string text(input.Rest());
  EncodeAndParse(text, plain);
  CompareDecoding(text);
  ConvertLatin1(text);
  Ask(text, text.substr(0, 24));
  Ask("<a b='1'><b>2</b></a>", text.substr(0, 24));
  Walk(text);
  CompareName(text.substr(0, 100));
  DemandBounds(text);
  return 0;
}
