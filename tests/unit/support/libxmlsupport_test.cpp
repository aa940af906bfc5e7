#include <QSbase/support/libxmlsupport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <common/logcapture.h>
#include <common/memorylimit.h>
#include <common/sanitized.h>
#include <common/tempdir.h>
#include <common/xmlmemory.h>

#include <QSbase/errors.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <sys/resource.h>
#include <unistd.h>
#endif

#include <libxml/HTMLparser.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>

using namespace std::string_literals;

namespace {

using qsbase::testing::CountXmlAllocations;
using qsbase::testing::kNoLimit;
using qsbase::testing::largestAllocation;
using qsbase::testing::LogCapture;
using qsbase::testing::TempDir;
using qsbase::testing::xmlAllocationsLeft;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr unsigned int kError = 0x40000000;

const xmlChar* X(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
std::string S(const xmlChar* text) { return text != nullptr ? reinterpret_cast<const char*>(text) : "null"; }

// A document for the length of a test.
class Document {
 public:
  explicit Document(std::string_view xml, int options = XML_PARSE_NONET)
      : _document(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, options)),
        _guard(_document) {
    EXPECT_NE(_document, nullptr) << xml;
  }

  operator xmlDoc*() const { return _document; }
  xmlNode* Root() const { return xmlDocGetRootElement(_document); }

 private:
  xmlDoc* _document;
  XmlDocAutoPtr _guard;
};

std::string NameOf(const xmlNode* node) { return node != nullptr ? S(node->name) : "none"; }

std::vector<std::string> Find(xmlDoc* document, const char* expression, const char* prefix = nullptr,
                              const char* uri = nullptr) {
  xmlNodeSet* nodes = nullptr;
  const XmlNodeSetAutoPtr guard(nodes);
  const int count = QsXmlXPathGetNodeSet(document, expression, &nodes, prefix, uri);
  EXPECT_EQ(count != 0, nodes != nullptr);
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    names.push_back(NameOf(nodes->nodeTab[i]));
  }
  return names;
}

}  // namespace

// ---- Guards ----

TEST(XmlDocAutoPtr, FreesAndForgets) {
  xmlDoc* document = xmlNewDoc(X("1.0"));
  {
    XmlDocAutoPtr guard(document);
    guard.Free();
    EXPECT_EQ(document, nullptr);
    guard.Free();
    document = xmlNewDoc(X("1.0"));
  }
  EXPECT_EQ(document, nullptr);
}

TEST(XmlNodeAutoPtr, FreesAndForgets) {
  xmlNode* node = xmlNewNode(nullptr, X("a"));
  {
    XmlNodeAutoPtr guard(node);
    guard.Free();
    EXPECT_EQ(node, nullptr);
    guard.Free();
    node = xmlNewNode(nullptr, X("b"));
  }
  EXPECT_EQ(node, nullptr);
}

TEST(XmlNodeSetAutoPtr, FreesAndForgets) {
  const Document document("<r/>");
  xmlNodeSet* set = xmlXPathNodeSetCreate(document.Root());
  {
    XmlNodeSetAutoPtr guard(set);
    guard.Free();
    EXPECT_EQ(set, nullptr);
    guard.Free();
    set = xmlXPathNodeSetCreate(document.Root());
  }
  EXPECT_EQ(set, nullptr);
  EXPECT_EQ(NameOf(document.Root()), "r");
}

TEST(XmlCharAutoPtr, FreesAndForgets) {
  xmlChar* text = xmlStrdup(X("a"));
  {
    XmlCharAutoPtr guard(text);
    guard.Free();
    EXPECT_EQ(text, nullptr);
    guard.Free();
    text = xmlStrdup(X("b"));
  }
  EXPECT_EQ(text, nullptr);
}

namespace {

void RefuseToFree(void* /*memory*/) { throw std::runtime_error("no"); }

}  // namespace

TEST(XmlCharAutoPtr, AReleaseThatThrowsLeavesThePointer) {
  xmlChar* text = xmlStrdup(X("a"));
  xmlChar* const before = text;
  const xmlFreeFunc release = xmlFree;
  xmlFree = &RefuseToFree;
  { XmlCharAutoPtr guard(text); }
  EXPECT_EQ(text, before);
  xmlFree = release;
  { XmlCharAutoPtr guard(text); }
  EXPECT_EQ(text, nullptr);
}

// ---- Nodes ----

TEST(QsXmlGetSubNodeByName, FindsChildren) {
  const Document document("<r>text<!--c--><a n='1'/><b><c/><a n='2'/></b><a n='3'/></r>");
  xmlNode* const found = QsXmlGetSubNodeByName(document.Root(), "a", false);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(S(found->properties->children->content), "1");
  EXPECT_EQ(NameOf(QsXmlGetSubNodeByName(document.Root(), "b", false)), "b");
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "c", false), nullptr);
  EXPECT_EQ(NameOf(QsXmlGetSubNodeByName(document.Root(), "c", true)), "c");
}

TEST(QsXmlGetSubNodeByName, GoesDownBeforeItGoesOn) {
  const Document document("<r><x><y><a n='1'/></y><a n='2'/></x><a n='3'/></r>");
  xmlNode* const deep = QsXmlGetSubNodeByName(document.Root(), "a", true);
  ASSERT_NE(deep, nullptr);
  EXPECT_EQ(S(deep->properties->children->content), "1");
  xmlNode* const flat = QsXmlGetSubNodeByName(document.Root(), "a", false);
  ASSERT_NE(flat, nullptr);
  EXPECT_EQ(S(flat->properties->children->content), "3");
}

// The node that is searched has siblings, which are not below it.
TEST(QsXmlGetSubNodeByName, StaysBelowTheNode) {
  const Document document("<r><x><y/></x><a/></r>");
  EXPECT_EQ(QsXmlGetSubNodeByName(QsXmlGetSubNodeByName(document.Root(), "x", false), "a", true), nullptr);
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "r", true), nullptr);
  EXPECT_EQ(NameOf(QsXmlGetSubNodeByName(reinterpret_cast<xmlNode*>(static_cast<xmlDoc*>(document)), "r", false)), "r");
}

TEST(QsXmlGetSubNodeByName, FindsElementsOnly) {
  const Document document("<r><!--a--><?a x?><![CDATA[a]]></r>");
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "a", true), nullptr);
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "comment", true), nullptr);
}

TEST(QsXmlGetSubNodeByName, NamesAreToldApartByCaseAndHaveNoPrefix) {
  const Document document("<r xmlns:p='u'><A/><p:a/></r>");
  xmlNode* const found = QsXmlGetSubNodeByName(document.Root(), "a", false);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(S(found->ns->prefix), "p");
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "p:a", true), nullptr);
}

TEST(QsXmlGetSubNodeByName, NothingGivesNothing) {
  const Document document("<r><a/></r>");
  EXPECT_EQ(QsXmlGetSubNodeByName(nullptr, "a", true), nullptr);
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), nullptr, true), nullptr);
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "", true), nullptr);
}

// Below a reference stands the declaration of its entity, which is among the others of the subset.
TEST(QsXmlGetSubNodeByName, ReferencesAreNotLookedInto) {
  const Document document("<!DOCTYPE r [<!ENTITY e '<a/>'><!ENTITY f '&e;<b/>'>]><r>&e;&f;</r>");
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root(), "a", true), nullptr);
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root()->children, "a", true), nullptr);
  EXPECT_EQ(QsXmlGetSubNodeByName(document.Root()->children, "b", true), nullptr);
}

TEST(QsXmlGetSubNodeByName, TakesATreeOfAnyDepth) {
  xmlDoc* document = xmlNewDoc(X("1.0"));
  const XmlDocAutoPtr guard(document);
  xmlNode* node = xmlNewNode(nullptr, X("r"));
  xmlDocSetRootElement(document, node);
  for (int depth = 0; depth < 200000; ++depth) {
    node = xmlNewChild(node, nullptr, X("a"), nullptr);
  }
  xmlNewChild(node, nullptr, X("last"), nullptr);
  EXPECT_EQ(NameOf(QsXmlGetSubNodeByName(xmlDocGetRootElement(document), "last", true)), "last");
  EXPECT_EQ(QsXmlGetSubNodeByName(xmlDocGetRootElement(document), "none", true), nullptr);
}

TEST(QsXmlNodeGetText, Table) {
  const struct {
    const char* xml;
    const char* text;
    const char* formatted;
  } rows[] = {
      {"<r>text</r>", "text", "text"},
      {"<r> a b </r>", " a b ", " a b "},
      {"<r>a&#13;&#10;&#9;b</r>", "a   b", "a\r\n\tb"},
      {"<r>   </r>", "", "   "},
      {"<r>&#10;&#9;</r>", "", "\n\t"},
      {"<r>&#160;</r>", "\xC2\xA0", "\xC2\xA0"},
      {"<r><![CDATA[<x>]]></r>", "default", "default"},
      {"<r>first<a/>second</r>", "first", "first"},
      {"<r/>", "default", "default"},
      {"<r></r>", "default", "default"},
      {"<r><a/>text</r>", "default", "default"},
      {"<r><!--c-->text</r>", "default", "default"},
      {"<r>\xC3\xA9</r>", "\xC3\xA9", "\xC3\xA9"},
  };
  for (const auto& row : rows) {
    const Document document(row.xml);
    EXPECT_EQ(QsXmlNodeGetText(document.Root(), "default"), row.text) << row.xml;
    EXPECT_EQ(QsXmlNodeGetFormattedText(document.Root(), "default"), row.formatted) << row.xml;
  }
  EXPECT_EQ(QsXmlNodeGetText(nullptr, "default"), "default");
  EXPECT_EQ(QsXmlNodeGetFormattedText(nullptr, "default"), "default");
}

TEST(QsXmlNodeGetText, ATextWithoutContentGivesTheDefault) {
  xmlNode* node = xmlNewNode(nullptr, X("a"));
  const XmlNodeAutoPtr guard(node);
  xmlAddChild(node, xmlNewText(nullptr));
  ASSERT_EQ(node->children->content, nullptr);
  EXPECT_EQ(QsXmlNodeGetText(node, "default"), "default");
  EXPECT_EQ(QsXmlNodeGetFormattedText(node, "default"), "default");
}

TEST(QsXmlNodeGetText, OfAnAttributeIsItsValue) {
  const Document document("<r a='value'/>");
  EXPECT_EQ(QsXmlNodeGetText(reinterpret_cast<xmlNode*>(document.Root()->properties), "default"), "value");
}

// libxml2 gives a namespace out as a node, which has nothing in common with one but its type.
TEST(QsXmlNodeGetText, ANamespaceIsNoNode) {
  const Document document("<r xmlns:p='uri'/>");
  xmlNodeSet* nodes = nullptr;
  const XmlNodeSetAutoPtr guard(nodes);
  ASSERT_EQ(QsXmlXPathGetNodeSet(document, "/r/namespace::p", &nodes, nullptr, nullptr), 1);
  xmlNode* const node = nodes->nodeTab[0];
  ASSERT_EQ(node->type, XML_NAMESPACE_DECL);
  EXPECT_EQ(QsXmlNodeGetText(node, "default"), "default");
  EXPECT_EQ(QsXmlGetSubNodeByName(node, "a", true), nullptr);
  EXPECT_FALSE(QsXmlNodeIsText(node));
  EXPECT_EQ(QsXmlCountChildren(node), 0U);
}

TEST(QsXmlNodeIsText, Table) {
  const struct {
    const char* xml;
    bool isText;
  } rows[] = {
      {"<r>text</r>", true},
      {"<r><!--only--></r>", true},
      {"<r><![CDATA[x]]></r>", true},
      {"<r><?pi x?></r>", true},
      {"<r/>", false},
      {"<r><a/></r>", false},
      {"<r>text<a/></r>", false},
      {"<r>text<!--c--></r>", false},
      {"<r>x<![CDATA[y]]></r>", false},
  };
  for (const auto& row : rows) {
    const Document document(row.xml);
    EXPECT_EQ(QsXmlNodeIsText(document.Root()), row.isText) << row.xml;
  }
  EXPECT_FALSE(QsXmlNodeIsText(nullptr));
}

TEST(QsXmlNodeIsText, TwoTextsSideBySideAreNone) {
  const Document document("<r>x<a/>y</r>");
  xmlNode* middle = document.Root()->children->next;
  const XmlNodeAutoPtr guard(middle);
  xmlUnlinkNode(middle);
  ASSERT_EQ(document.Root()->children->next, document.Root()->last);
  EXPECT_FALSE(QsXmlNodeIsText(document.Root()));
}

TEST(QsXmlCountChildren, CountsElements) {
  const Document document("<?pi x?><!--c--><r>t<a/><!--c--><b><c/></b>t<a/></r>");
  EXPECT_EQ(QsXmlCountChildren(document.Root()), 3U);
  EXPECT_EQ(QsXmlCountChildren(reinterpret_cast<xmlNode*>(static_cast<xmlDoc*>(document))), 1U);
  EXPECT_EQ(QsXmlCountChildren(QsXmlGetSubNodeByName(document.Root(), "b", false)), 1U);
  EXPECT_EQ(QsXmlCountChildren(QsXmlGetSubNodeByName(document.Root(), "a", false)), 0U);
  EXPECT_EQ(QsXmlCountChildren(document.Root()->children), 0U);
  EXPECT_EQ(QsXmlCountChildren(nullptr), 0U);
}

TEST(QsXmlCountChildren, CountsInNothingElse) {
  xmlDoc* html = htmlReadMemory("<html><body/></html>", 20, nullptr, nullptr, HTML_PARSE_NOERROR);
  const XmlDocAutoPtr guard(html);
  ASSERT_EQ(html->type, XML_HTML_DOCUMENT_NODE);
  EXPECT_EQ(QsXmlCountChildren(reinterpret_cast<xmlNode*>(html)), 1U);
  xmlNode* fragment = xmlNewDocFragment(html);
  const XmlNodeAutoPtr fragmentGuard(fragment);
  xmlNewChild(fragment, nullptr, X("a"), nullptr);
  EXPECT_EQ(QsXmlCountChildren(fragment), 0U);
}

// ---- XPath ----

TEST(QsXmlXPathGetNodeSet, FindsNodes) {
  const Document document("<r><a n='1'/><b><a n='2'/></b></r>");
  EXPECT_THAT(Find(document, "//a"), ElementsAre("a", "a"));
  EXPECT_THAT(Find(document, "/r/a/@n"), ElementsAre("n"));
  EXPECT_THAT(Find(document, "/r/*"), ElementsAre("a", "b"));
  EXPECT_THAT(Find(document, "r/b"), ElementsAre("b"));
  EXPECT_THAT(Find(document, "//none"), IsEmpty());
}

TEST(QsXmlXPathGetNodeSet, WhatGivesNoNodesGivesNone) {
  const Document document("<r/>");
  ::testing::internal::CaptureStderr();
  for (const char* const expression : {"count(//r)", "'text'", "1 = 1", "//", "(", "r[", "p:r", "nofunction()", "$v"}) {
    EXPECT_THAT(Find(document, expression), IsEmpty()) << expression;
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

namespace {

int heard = 0;

void Hear(void* /*context*/, const char* /*format*/, ...) { ++heard; }

}  // namespace

TEST(QsXmlXPathGetNodeSet, AProgramsOwnHandlerHearsOfMistakes) {
  const Document document("<r/>");
  xmlSetGenericErrorFunc(nullptr, &Hear);
  EXPECT_THAT(Find(document, "//"), IsEmpty());
  EXPECT_GT(heard, 0);
  EXPECT_EQ(xmlGenericError, &Hear);
}

TEST(QsXmlXPathGetNodeSet, KnowsOneNamespace) {
  const Document document("<r xmlns='urn:1' xmlns:q='urn:2'><a/><q:a/></r>");
  EXPECT_THAT(Find(document, "//x:a", "x", "urn:1"), ElementsAre("a"));
  EXPECT_THAT(Find(document, "//x:*", "x", "urn:2"), ElementsAre("a"));
  EXPECT_THAT(Find(document, "//a", "x", "urn:1"), IsEmpty());
  for (const char* const nothing : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_THAT(Find(document, "//x:a", nothing, "urn:1"), IsEmpty());
    EXPECT_THAT(Find(document, "//x:a", "x", nothing), IsEmpty());
    EXPECT_THAT(Find(document, "//*", nothing, "urn:1"), ElementsAre("r", "a", "a"));
  }
}

TEST(QsXmlXPathGetNodeSet, WithoutQuestionOrDocumentThereIsNoAnswer) {
  const Document document("<r/>");
  xmlDoc* empty = xmlNewDoc(X("1.0"));
  const XmlDocAutoPtr guard(empty);
  xmlNodeSet other{};
  xmlNodeSet* const stale = &other;
  for (xmlDoc* const none : {static_cast<xmlDoc*>(nullptr), empty}) {
    xmlNodeSet* nodes = stale;
    EXPECT_EQ(QsXmlXPathGetNodeSet(none, "//r", &nodes, nullptr, nullptr), 0);
    EXPECT_EQ(nodes, nullptr);
  }
  for (const char* const none : {static_cast<const char*>(nullptr), ""}) {
    xmlNodeSet* nodes = stale;
    EXPECT_EQ(QsXmlXPathGetNodeSet(document, none, &nodes, nullptr, nullptr), 0);
    EXPECT_EQ(nodes, nullptr);
  }
  EXPECT_EQ(QsXmlXPathGetNodeSet(document, "//r", nullptr, nullptr, nullptr), 0);
}

TEST(QsXmlXPathGetNodeSet, ADeepExpressionIsAnError) {
  const Document document("<r/>");
  EXPECT_THAT(Find(document, (std::string(100000, '(') + "/" + std::string(100000, ')')).c_str()), IsEmpty());
}

// ---- Latin-1 and UTF-8 ----

namespace {

using Conversion = bool (*)(const unsigned char* text, unsigned char*& result);

// "none" for a failure, which leaves null.
std::string Converted(Conversion convert, const std::string& text) {
  alignas(8) unsigned char stale = 0;
  unsigned char* result = &stale;
  const bool good = convert(X(text.c_str()), result);
  EXPECT_EQ(good, result != nullptr);
  const std::string converted = good ? S(result) : "none";
  std::free(result);
  return converted;
}

}  // namespace

TEST(Latin1, EveryByteBecomesUtf8) {
  std::string latin1;
  std::string utf8;
  for (int c = 1; c < 256; ++c) {
    latin1.push_back(static_cast<char>(c));
    if (c < 0x80) {
      utf8.push_back(static_cast<char>(c));
    } else {
      utf8.push_back(static_cast<char>(0xC0 | c >> 6));
      utf8.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  EXPECT_EQ(Converted(&QsXmlConvertXMLStringIsolat1ToUTF8, latin1), utf8);
  EXPECT_EQ(QsConvertIsolat1ToUTF8(latin1.c_str()), utf8);
  EXPECT_EQ(Converted(&QsXmlConvertXMLStringUTF8Toisolat1, utf8), latin1);
}

TEST(Latin1, NothingGivesNothing) {
  for (const Conversion convert : {&QsXmlConvertXMLStringIsolat1ToUTF8, &QsXmlConvertXMLStringUTF8Toisolat1}) {
    unsigned char stale = 0;
    unsigned char* result = &stale;
    EXPECT_FALSE(convert(nullptr, result));
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(Converted(convert, ""), "none");
  }
  EXPECT_EQ(QsConvertIsolat1ToUTF8(nullptr), "");
  EXPECT_EQ(QsConvertIsolat1ToUTF8(""), "");
}

TEST(Latin1, WhatItLacksIsAFailure) {
  for (const char* const text : {"\xC4\x80", "a\xE2\x82\xAC", "a\xF0\x9F\x98\x80", "\x80", "a\xC3(", "\xFF"}) {
    EXPECT_EQ(Converted(&QsXmlConvertXMLStringUTF8Toisolat1, text), "none") << text;
  }
}

TEST(Latin1, ASequenceThatIsCutOffIsLeftOut) {
  EXPECT_EQ(Converted(&QsXmlConvertXMLStringUTF8Toisolat1, "ab\xC3"), "ab");
  EXPECT_EQ(Converted(&QsXmlConvertXMLStringUTF8Toisolat1, "\xC3"), "none");
}

// Converted in pieces of 1 MiB, whose ends fall into characters.
TEST(Latin1, LongTextsToo) {
  for (const std::size_t before : {0U, 1U}) {
    const std::string latin1 = std::string(before, 'x') + std::string(3 << 20, '\xE9');
    std::string utf8(before, 'x');
    for (std::size_t i = before; i < latin1.size(); ++i) {
      utf8 += "\xC3\xA9";
    }
    EXPECT_TRUE(QsConvertIsolat1ToUTF8(latin1.c_str()) == utf8);
    EXPECT_TRUE(Converted(&QsXmlConvertXMLStringUTF8Toisolat1, utf8) == latin1);
  }
}

#if !defined(_WIN32) && !defined(QSBASE_TESTS_SANITIZED)

// The allocator of the C library is asked, which no test can replace: the system refuses it the address space. (The
// sanitizers need that themselves.)
TEST(Latin1, TellsWhereMemoryWasShort) {
  const std::string text(64 << 20, 'x');
  std::ifstream file("/proc/self/statm");
  rlim_t pages = 0;
  ASSERT_TRUE(file >> pages);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
  const rlimit tight{pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (64U << 20), before.rlim_max};
  for (const Conversion convert : {&QsXmlConvertXMLStringIsolat1ToUTF8, &QsXmlConvertXMLStringUTF8Toisolat1}) {
    std::string error = "nothing thrown";
    unsigned char stale = 0;
    unsigned char* result = &stale;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    try {
      convert(X(text.c_str()), result);
    } catch (const ExMemoryAllocation& exception) {
      error = exception.GetErrorText();
    }
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(error, StartsWith(convert == &QsXmlConvertXMLStringIsolat1ToUTF8
                                      ? "Memory allocation error: QsXmlConvertXMLStringIsolat1ToUTF8 (file "
                                        "QSbase/support/libxmlsupport, line "
                                      : "Memory allocation error: QsXmlConvertXMLStringUTF8Toisolat1 (file "
                                        "QSbase/support/libxmlsupport, line "));
  }
}

#endif

// ---- Dumps ----

TEST(QsXmlNodeToXmlFormatString, WritesTheNode) {
  const Document document("<r a='1'><b>t&lt;\xC3\xA9</b><c/></r>");
  std::string text = "as it was";
  EXPECT_TRUE(QsXmlNodeToXmlFormatString(document.Root(), text, false));
  EXPECT_EQ(text, "<r a=\"1\"><b>t&lt;\xC3\xA9</b><c/></r>");
  EXPECT_TRUE(QsXmlNodeToXmlFormatString(document.Root(), text, true));
  EXPECT_EQ(text, "<r a=\"1\">\n  <b>t&lt;\xC3\xA9</b>\n  <c/>\n</r>");
  EXPECT_TRUE(QsXmlNodeToXmlFormatString(QsXmlGetSubNodeByName(document.Root(), "c", false), text, true));
  EXPECT_EQ(text, "<c/>");
}

TEST(QsXmlNodeToXmlFormatString, WithoutANodeLeavesTheText) {
  std::string text = "as it was";
  EXPECT_FALSE(QsXmlNodeToXmlFormatString(nullptr, text, true));
  EXPECT_EQ(text, "as it was");
}

TEST(DocumentText, IsIndentedOrNot) {
  const LogCapture log;
  const Document document("<r><b>t</b></r>");
  const std::string declaration = "<?xml version=\"1.0\"?>\n";
  EXPECT_EQ(QsXmlDocDumpFormatXML(document, true), declaration + "<r>\n  <b>t</b>\n</r>\n");
  EXPECT_EQ(QsXmlDocDumpFormatXML(document, false), "<r>\n  <b>t</b>\n</r>\n");
  EXPECT_EQ(QsXmlDocSaveToString(document, true), declaration + "<r><b>t</b></r>\n");
  EXPECT_EQ(QsXmlDocSaveToString(document, false), "<r><b>t</b></r>\n");
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(DocumentText, IsInTheEncodingOfTheDocument) {
  const Document document("<?xml version='1.0' encoding='ISO-8859-1' standalone='yes'?><?p x?><r>\xE9</r>");
  EXPECT_EQ(QsXmlDocSaveToString(document, true),
            "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?>\n<?p x?>\n<r>\xE9</r>\n");
  EXPECT_EQ(QsXmlDocSaveToString(document, false), "<?p x?>\n<r>\xE9</r>\n");
}

// In UTF-16 no byte sequence reads as one.
TEST(DocumentText, WithoutADeclarationNothingIsCut) {
  const Document document("<r><?php echo 1 ?></r>");
  static_cast<xmlDoc*>(document)->encoding = xmlStrdup(X("UTF-16LE"));
  const std::string whole = QsXmlDocSaveToString(document, true);
  EXPECT_THAT(whole, HasSubstr("<\0r\0>\0"s));
  EXPECT_EQ(QsXmlDocSaveToString(document, false), whole);
  EXPECT_EQ(QsXmlDocDumpFormatXML(document, false), QsXmlDocDumpFormatXML(document, true));
}

TEST(DocumentText, OfHtmlIsXmlToo) {
  constexpr std::string_view kText = "<html><body><br></body></html>";
  xmlDoc* html = htmlReadMemory(kText.data(), static_cast<int>(kText.size()), nullptr, nullptr, HTML_PARSE_NOERROR);
  const XmlDocAutoPtr guard(html);
  ASSERT_NE(html, nullptr);
  EXPECT_THAT(QsXmlDocSaveToString(html, true), StartsWith("<?xml "));
  EXPECT_THAT(QsXmlDocSaveToString(html, false), StartsWith("<!DOCTYPE html"));
}

TEST(DocumentText, OfNothingIsEmpty) {
  const LogCapture log;
  EXPECT_EQ(QsXmlDocSaveToString(nullptr, true), "");
  EXPECT_THAT(log.Messages(), IsEmpty());
  EXPECT_EQ(QsXmlDocDumpFormatXML(nullptr, true), "");
  ASSERT_THAT(log.Texts(), ElementsAre("QsXmlDocDumpFormatXML: input XML document is NULL"));
  EXPECT_EQ(log.Messages().front().flags, kError);
}

TEST(DocumentText, InAnEncodingThatNobodyKnowsIsEmpty) {
  ::testing::internal::CaptureStderr();
  const LogCapture log;
  const Document document("<r/>");
  static_cast<xmlDoc*>(document)->encoding = xmlStrdup(X("no-such"));
  EXPECT_EQ(QsXmlDocSaveToString(document, true), "");
  EXPECT_THAT(log.Messages(), IsEmpty());
  EXPECT_EQ(QsXmlDocDumpFormatXML(document, true), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  ASSERT_THAT(log.Texts(), ElementsAre("QsXmlDocDumpFormatXML: Could not dump XML document"));
  EXPECT_EQ(log.Messages().front().flags, kError);
}

// Whatever libxml2 gets no memory for, the text is all of it or empty.
TEST(DocumentText, WithoutMemoryIsEmpty) {
  CountXmlAllocations();
  {
    std::string xml = "<r>";
    for (int i = 0; i < 2000; ++i) {
      xml += "<b>text</b>";  // so that the buffers grow on the way
    }
    const Document document(xml + "</r>");
    const std::string whole = QsXmlDocSaveToString(document, true);
    std::string node;
    ASSERT_TRUE(QsXmlNodeToXmlFormatString(document.Root(), node, false));
    int empty = 0;
    for (int allowed = 0; allowed < 30; ++allowed) {
      xmlAllocationsLeft = allowed;
      const std::string text = QsXmlDocSaveToString(document, true);
      xmlAllocationsLeft = allowed;
      std::string dump = "as it was";
      const bool dumped = QsXmlNodeToXmlFormatString(document.Root(), dump, false);
      xmlAllocationsLeft = -1;
      empty += text.empty() ? 1 : 0;
      EXPECT_TRUE(text.empty() || text == whole) << allowed;
      EXPECT_EQ(dump, dumped ? node : "as it was") << allowed;
    }
    EXPECT_GT(empty, 2);
    EXPECT_LT(empty, 30);
  }
}

TEST(DocumentText, TakesATreeOfAnyDepth) {
  constexpr int kDepth = 100000;
  xmlDoc* document = xmlNewDoc(X("1.0"));
  const XmlDocAutoPtr guard(document);
  xmlNode* node = xmlNewNode(nullptr, X("r"));
  xmlDocSetRootElement(document, node);
  for (int depth = 0; depth < kDepth; ++depth) {
    node = xmlNewChild(node, nullptr, X("a"), nullptr);
  }
  EXPECT_EQ(QsXmlDocSaveToString(document, false).size(), 3 + (kDepth - 1) * 7U + 4 + 4 + 1);  // <r> <a></a> <a/> </r>
}

// ---- Text by XPath ----

TEST(GetXPathString, GivesTheXmlOfNodesAndTheValuesOfAttributes) {
  const std::string xml = "<r><a n='1 &amp; 2'>t</a><a n='3'><b>&lt;</b></a><!--c--></r>";
  const struct {
    const char* expression;
    const char* text;
  } rows[] = {
      {"//a", "<a n=\"1 &amp; 2\">t</a><a n=\"3\"><b>&lt;</b></a>"},
      {"//a/@n", "1 & 23"},
      {"//b/text()", "&lt;"},
      {"//comment()", "<!--c-->"},
      {"//@n | //b", "1 & 23<b>&lt;</b>"},
      {"r/a[2]/@n", "3"},
      {"//none", ""},
      {"count(//a)", ""},
      {"(((", ""},
      {"", ""},
  };
  const Document document(xml);
  const TempDir dir;
  const std::string file = dir.Write("a.xml", xml);
  for (const auto& row : rows) {
    EXPECT_EQ(GetXPathStringFromDoc(document, row.expression), row.text) << row.expression;
    EXPECT_EQ(GetXPathStringFromString(xml, row.expression), row.text) << row.expression;
    EXPECT_EQ(GetXPathStringFromFile(file, row.expression), row.text) << row.expression;
  }
}

TEST(GetXPathString, OfNothingIsEmpty) {
  const LogCapture log;
  const TempDir dir;
  EXPECT_EQ(GetXPathStringFromDoc(nullptr, "//a"), "");
  EXPECT_EQ(GetXPathStringFromString("", "//a"), "");
  EXPECT_EQ(GetXPathStringFromString("<r><a></r>", "//a"), "");
  EXPECT_EQ(GetXPathStringFromFile(dir / "none.xml", "//a"), "");
  EXPECT_EQ(GetXPathStringFromFile(dir.Path(), "//a"), "");
  EXPECT_EQ(GetXPathStringFromFile(dir.Write("empty.xml", ""), "//a"), "");
  EXPECT_EQ(GetXPathStringFromFile("", "//a"), "");
  EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST(GetXPathString, IsUtf8WhateverTheFileIs) {
  const TempDir dir;
  const std::string latin1 = "<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xE9'>\xE9</r>";
  const std::string utf16("\xFF\xFE<\0r\0 \0a\0=\0'\0\xE9\0'\0>\0\xE9\0<\0/\0r\0>\0", 30);
  for (const std::string& xml : {latin1, utf16, "\xEF\xBB\xBF<r a='\xC3\xA9'>\xC3\xA9</r>"s}) {
    EXPECT_EQ(GetXPathStringFromString(xml, "/r/@a"), "\xC3\xA9");
    EXPECT_EQ(GetXPathStringFromFile(dir.Write("a.xml", xml), "/r/text()"), "\xC3\xA9");
  }
}

TEST(GetXPathString, TakesEitherSeparatorInTheFileName) {
  const TempDir dir;
  dir.Write("sub/a.xml", "<r/>");
  EXPECT_EQ(GetXPathStringFromFile(dir.Path() + "\\sub\\a.xml", "/r"), "<r/>");
  EXPECT_EQ(GetXPathStringFromFile(dir.Path() + "/sub/a.xml", "/r"), "<r/>");
}

TEST(GetXPathString, ReadsNothingElse) {
  const TempDir dir;
  const std::string secret = dir.Write("secret.txt", "the secret");
  const std::string xml = "<!DOCTYPE r [<!ENTITY e SYSTEM \"file:///" + secret +
                          "\"><!ENTITY f SYSTEM \"secret.txt\">" + "<!ENTITY g 'inner'>]><r a='&g;'>&e;&f;&g;</r>";
  for (const std::string& text :
       {GetXPathStringFromString(xml, "/r"), GetXPathStringFromFile(dir.Write("a.xml", xml), "/r")}) {
    EXPECT_EQ(text, "<r a=\"&g;\">&e;&f;&g;</r>");
  }
  EXPECT_EQ(GetXPathStringFromString(xml, "/r/@a"), "inner");
}

TEST(GetXPathString, BombsAreNoDocuments) {
  std::string xml = "<!DOCTYPE r [<!ENTITY e \"" + std::string(1000000, 'x') + "\">]><r>";
  for (int i = 0; i < 3000; ++i) {
    xml += "<a b='&e;'/>";
  }
  xml += "</r>";
  EXPECT_EQ(GetXPathStringFromString(xml, "//@b"), "");
}

// That of a text for which there is no memory.
TEST(GetXPathString, AnExceptionIsLogged) {
  const LogCapture log;
  const Document document("<r>" + std::string(1 << 20, 'x') + "</r>");
  largestAllocation = 1 << 20;
  const std::string text = GetXPathStringFromDoc(document, "/r");
  largestAllocation = kNoLimit;
  EXPECT_EQ(text, "");
  ASSERT_THAT(log.Texts(), ElementsAre("GetXPathStringFromDoc std::exception: std::bad_alloc"));
  EXPECT_EQ(log.Messages().front().flags, kError);
}

// A text that lacks one of its pieces would look as good as any.
TEST(GetXPathString, WithoutMemoryForAPieceIsEmpty) {
  constexpr int kMany = 1000000;
  CountXmlAllocations();
  {
    std::string xml = "<r>";
    for (int i = 0; i < 100; ++i) {
      xml += "<b n='1'>text</b>";
    }
    const Document document(xml + "</r>");
    for (const char* const expression : {"//b", "//@n"}) {
      xmlAllocationsLeft = kMany;
      const std::string whole = GetXPathStringFromDoc(document, expression);
      const int needed = kMany - xmlAllocationsLeft;
      int empty = 0;
      for (int pieces = 1; pieces <= 50; ++pieces) {
        const LogCapture log;
        xmlAllocationsLeft = needed - pieces;  // those at the end are of the last nodes
        const std::string text = GetXPathStringFromDoc(document, expression);
        xmlAllocationsLeft = -1;
        EXPECT_TRUE(text == whole || text.empty()) << pieces << ": " << text;
        EXPECT_EQ(log.Messages().size(), text.empty() ? 1U : 0U);
        empty += text.empty() ? 1 : 0;
      }
      EXPECT_GT(empty, 10);
    }
  }
}

TEST(GetXPathString, TakesNamespacesAndTheDocumentItself) {
  const Document document("<r xmlns:p='uri'/>");
  EXPECT_EQ(GetXPathStringFromDoc(document, "/"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r xmlns:p=\"uri\"/>\n");
  EXPECT_EQ(GetXPathStringFromDoc(document, "//namespace::*[false()]"), "");
}

TEST(GetXPathString, ServesManyThreads) {
  std::vector<std::string> texts(8);
  std::vector<std::thread> threads;
  InitXML(1);
  for (std::string& text : texts) {
    threads.emplace_back([&text] {
      for (int i = 0; i < 50; ++i) {
        text = GetXPathStringFromString("<r><a>\xC3\xA9</a></r>", "//a/text()");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(texts, ::testing::Each("\xC3\xA9"));
}

// ---- Names ----

TEST(QsValidateAsciiNodeName, Table) {
  const struct {
    std::string name;
    std::string valid;
  } rows[] = {
      {"", ""},         {"1a b", "_a_b"},     {"a:b.c-d", "a:b.c-d"}, {"_x", "_x"},     {":x", ":x"},     {"-x", "_x"},
      {".x", "_x"},     {"x1-.:_", "x1-.:_"}, {"\xE9t\xE9", "_t_"},   {"a\0b"s, "a_b"}, {"<a/>", "_a__"}, {" ", "_"},
      {"@[`{", "____"}, {"AZaz09", "AZaz09"}, {"a/;", "a__"},         {"\x7F", "_"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(QsValidateAsciiNodeName(row.name), row.valid) << row.name;
  }
}

// Production [5] of XML 1.0, for ASCII, by libxml2.
TEST(QsValidateAsciiNodeName, EveryByteAtEitherPlace) {
  for (int c = 1; c < 128; ++c) {
    const std::string first(1, static_cast<char>(c));
    const std::string second = "a" + first;
    EXPECT_EQ(QsValidateAsciiNodeName(first) == first, xmlValidateName(X(first.c_str()), 0) == 0) << c;
    EXPECT_EQ(QsValidateAsciiNodeName(second) == second, xmlValidateName(X(second.c_str()), 0) == 0) << c;
  }
}

// ---- Start and stop ----

TEST(InitXML, StopsWhatWasStarted) {
  InitXML(2);
  InitXML(3);
  InitXML(1, "ignored");
  EXPECT_EQ(GetXPathStringFromString("<r/>", "/r"), "<r/>");
  InitXML(2);
  InitXML(2);
  EXPECT_EQ(GetXPathStringFromString("<r/>", "/r"), "<r/>");
}

// A handler that the program registered lives until libxml2 is cleaned up.
TEST(InitXML, AStopWithoutAStartDoesNothing) {
  xmlCharEncodingHandler* const handler = xmlNewCharEncodingHandler("X-OWN", nullptr, nullptr);
  ASSERT_NE(handler, nullptr);
  InitXML(2);
  EXPECT_EQ(xmlFindCharEncodingHandler("X-OWN"), handler);
  InitXML(1);
  InitXML(2);
  EXPECT_EQ(xmlFindCharEncodingHandler("X-OWN"), nullptr);
}

TEST(InitXML, SwallowsWhatTheStopThrows) {
  InitXML(1);
  xmlNewCharEncodingHandler("X-OWN", nullptr, nullptr);
  const xmlFreeFunc release = xmlFree;
  xmlFree = &RefuseToFree;
  EXPECT_NO_THROW(InitXML(2));
  xmlFree = release;
}
