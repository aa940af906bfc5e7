#include <QSbase/support/xmlsource.h>

#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/xmlIO.h>

#include <common/tempdir.h>
#include <common/xmlmemory.h>

#include <string>

namespace {

using qsbase::detail::ParseUntrustedXml;
using qsbase::testing::CountXmlAllocations;
using qsbase::testing::TempDir;
using qsbase::testing::xmlAllocations;
using qsbase::testing::xmlAllocationsLeft;

bool IsTaken(const std::string& xml) {
  xmlDoc* document = ParseUntrustedXml(xml);
  const XmlDocAutoPtr guard(document);
  return document != nullptr;
}

// Entities e0 to e<last>, each made of ten of the one before.
std::string Declarations(int last, const std::string& first) {
  std::string text = "<!DOCTYPE r [<!ENTITY e0 \"" + first + "\">";
  for (int i = 1; i <= last; ++i) {
    text += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) {
      text += "&e" + std::to_string(i - 1) + ";";
    }
    text += "\">";
  }
  return text + "]>";
}

std::string Repeated(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

int externals = 0;

xmlParserInput* CountExternal(const char*, const char*, xmlParserCtxt*) {
  ++externals;
  return nullptr;
}

}  // namespace

TEST(ParseUntrustedXml, TakesWhatIsWellFormed) {
  EXPECT_TRUE(IsTaken("<r/>"));
  EXPECT_TRUE(IsTaken("\xEF\xBB\xBF<?xml version='1.0'?><r a='&lt;'>\xC3\xA9</r>"));
  EXPECT_TRUE(IsTaken("<?xml version='1.0' encoding='ISO-8859-1'?><r>\xE9</r>"));
  EXPECT_TRUE(IsTaken(std::string("\xFF\xFE<\0r\0/\0>\0", 10)));
}

TEST(ParseUntrustedXml, TakesNothingElse) {
  for (const char* const xml : {"", " ", "text", "<r>", "<r></s>", "<r/><r/>", "<r a=1/>", "<r>&none;</r>",
                                "<r>\xE9</r>", "<r>\x01</r>", "<?xml version='1.0' encoding='no-such'?><r/>"}) {
    EXPECT_FALSE(IsTaken(xml)) << xml;
  }
  EXPECT_FALSE(IsTaken(std::string("<r>\0</r>", 8)));
}

TEST(ParseUntrustedXml, WritesNothingToTheConsole) {
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  IsTaken("<r>&none;<s>");
  IsTaken("<r xmlns='relative' xml:id='1 2' p:a='1'/>");
  IsTaken(Declarations(9, "x") + "<r>&e9;</r>");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(ParseUntrustedXml, EntitiesStayReferences) {
  xmlDoc* document = ParseUntrustedXml("<!DOCTYPE r [<!ENTITY e 'text'>]><r>&e;</r>");
  const XmlDocAutoPtr guard(document);
  EXPECT_EQ(QsXmlDocSaveToString(document, false), "<!DOCTYPE r [\n<!ENTITY e \"text\">\n]>\n<r>&e;</r>\n");
}

TEST(ParseUntrustedXml, NothingOutsideIsRead) {
  const TempDir dir;
  const std::string file = "file:///" + dir.Write("secret.dtd", "<!ENTITY inner 'secret'>");
  xmlSetExternalEntityLoader(&CountExternal);
  // What the entities stand for is asked for in content, in the subset and by the declaration.
  for (const std::string& where : {file, std::string("http://127.0.0.1:1/x"), std::string("ftp://127.0.0.1:1/x")}) {
    EXPECT_TRUE(IsTaken("<!DOCTYPE r SYSTEM \"" + where + "\"><r/>"));
    EXPECT_TRUE(IsTaken("<!DOCTYPE r PUBLIC \"-//x//y\" \"" + where + "\"><r/>"));
    EXPECT_TRUE(IsTaken("<!DOCTYPE r [<!ENTITY e SYSTEM \"" + where + "\">]><r>&e;</r>"));
    EXPECT_TRUE(IsTaken("<!DOCTYPE r [<!ENTITY % e SYSTEM \"" + where + "\">%e;]><r/>"));
    EXPECT_FALSE(IsTaken("<!DOCTYPE r [<!ENTITY e SYSTEM \"" + where + "\">]><r a='&e;'/>"));
    EXPECT_TRUE(IsTaken("<r xmlns:i='http://www.w3.org/2001/XInclude'><i:include href='" + where + "'/></r>"));
  }
  EXPECT_EQ(externals, 0);
}

// A program that wants entities replaced and external subsets loaded by default has no say here.
TEST(ParseUntrustedXml, TheDefaultsOfTheProgramDoNotCount) {
  xmlSetExternalEntityLoader(&CountExternal);
  xmlSubstituteEntitiesDefault(1);
  xmlLoadExtDtdDefaultValue = XML_DETECT_IDS | XML_COMPLETE_ATTRS;
  EXPECT_TRUE(IsTaken("<!DOCTYPE r SYSTEM \"x.dtd\" [<!ENTITY e SYSTEM \"x\">]><r>&e;</r>"));
  EXPECT_EQ(externals, 0);
}

TEST(ParseUntrustedXml, BombsEndInTheLimits) {
  const std::string content(10, 'x');
  EXPECT_FALSE(IsTaken(Declarations(9, content) + "<r>&e9;</r>"));
  EXPECT_FALSE(IsTaken(Declarations(9, content) + "<r a='&e9;'/>"));
  EXPECT_FALSE(IsTaken(Declarations(9, "<a/>") + "<r>&e9;</r>"));
  EXPECT_FALSE(IsTaken(Declarations(9, "") + "<r>&e9;</r>"));
  EXPECT_FALSE(IsTaken(Declarations(39, content) + "<r>&e39;</r>"));
  EXPECT_FALSE(IsTaken(Declarations(200, content) + "<r>&e200;</r>"));
  EXPECT_TRUE(IsTaken(Declarations(9, content) + "<r/>"));  // which nobody asks for
}

TEST(ParseUntrustedXml, AnEntityInItselfHasNoEnd) {
  EXPECT_FALSE(IsTaken("<!DOCTYPE r [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><r>&a;</r>"));
  EXPECT_FALSE(IsTaken("<!DOCTYPE r [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><r a='&a;'/>"));
}

// Each reference is harmless for the parser, which replaces none.
TEST(ParseUntrustedXml, ManyReferencesToALongEntityAreTooMuch) {
  const std::string declaration = "<!DOCTYPE r [<!ENTITY e \"" + std::string(100000, 'x') + "\">]>";
  EXPECT_TRUE(IsTaken(declaration + "<r>" + Repeated(100, "<a b='&e;'/>") + "</r>"));
  EXPECT_FALSE(IsTaken(declaration + "<r>" + Repeated(101, "<a b='&e;'/>") + "</r>"));
  EXPECT_TRUE(IsTaken(declaration + "<r>" + Repeated(100, "<a>&e;</a>") + "</r>"));
  EXPECT_FALSE(IsTaken(declaration + "<r>" + Repeated(101, "<a>&e;</a>") + "</r>"));
  EXPECT_FALSE(IsTaken(declaration + "<r a='" + Repeated(101, "&e;") + "'/>"));
  EXPECT_FALSE(IsTaken("<!DOCTYPE r [<!ENTITY e \"" + std::string(100000, 'x') + "\"><!ENTITY f \"" +
                       Repeated(101, "&e;") + "\">]><r>&f;</r>"));
}

// The parser replaces these while it reads the subset. It asks for one at its declaration, too.
TEST(ParseUntrustedXml, ParameterEntitiesHaveALimitToo) {
  const std::string declaration = "<!DOCTYPE r [<!ENTITY % e \"" + std::string(100000, ' ') + "\">";
  EXPECT_TRUE(IsTaken(declaration + Repeated(99, "%e;") + "]><r/>"));
  EXPECT_FALSE(IsTaken(declaration + Repeated(100, "%e;") + "]><r/>"));
}

// The parser would go on to the end after the first mistake: 100,000,000,000 comments.
TEST(ParseUntrustedXml, ABombOfParameterEntitiesEndsWithItsFirstMistake) {
  std::string xml = "<!DOCTYPE r [<!ENTITY % e0 '<!--x-->'>";
  for (int i = 1; i <= 11; ++i) {
    xml += "<!ENTITY % e" + std::to_string(i) + " '" + Repeated(10, "&#37;e" + std::to_string(i - 1) + ";") + "'>";
  }
  EXPECT_FALSE(IsTaken(xml + "%e11;]><r/>"));
}

TEST(ParseUntrustedXml, NestingHasALimit) {
  const auto nested = [](int depth) { return Repeated(depth, "<a>") + Repeated(depth, "</a>"); };
  EXPECT_TRUE(IsTaken(nested(256)));
  EXPECT_FALSE(IsTaken(nested(258)));
  EXPECT_FALSE(IsTaken(nested(100000)));
  EXPECT_FALSE(IsTaken(Repeated(1000000, "<a>")));
}

TEST(ParseUntrustedXml, AValueHasALimit) {
  EXPECT_TRUE(IsTaken("<r a='" + std::string(9000000, 'x') + "'/>"));
  EXPECT_FALSE(IsTaken("<r a='" + std::string(10000001, 'x') + "'/>"));
}

// Half of a document looks as well-formed as the whole.
TEST(ParseUntrustedXml, WithoutMemoryThereIsNoDocument) {
  CountXmlAllocations();
  const std::string xml =
      "<r>" + Repeated(50, "<a n='1'>a text that is too long to stand in its node</a><!--c--><?p x?>") + "</r>";
  const auto parsed = [&xml](int allowed) {
    xmlAllocationsLeft = allowed;
    xmlDoc* document = ParseUntrustedXml(xml);
    xmlAllocationsLeft = -1;
    const XmlDocAutoPtr guard(document);
    return QsXmlDocSaveToString(document, true);
  };
  const std::string whole = parsed(-1);
  ASSERT_FALSE(whole.empty());
  xmlAllocations = 0;
  xmlDoc* again = ParseUntrustedXml(xml);
  const XmlDocAutoPtr guard(again);
  const int needed = xmlAllocations;
  for (int allowed = 0; allowed < needed; ++allowed) {
    const std::string text = parsed(allowed);
    EXPECT_TRUE(text.empty() || text == whole) << allowed << ": " << text;
  }
}
