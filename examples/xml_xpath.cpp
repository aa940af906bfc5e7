// Reads, queries and writes XML.
#include <QSbase/qsbase.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdio>
#include <string>

namespace {

constexpr const char* kXml = R"(<harbours>
  <harbour name="Whitby"><depth unit="m">3.5</depth></harbour>
  <harbour name="S&#232;te"><depth unit="m">9</depth></harbour>
</harbours>)";

// libxml2 parses; the library's helpers walk the tree.
void Walk() {
  const std::string xml = kXml;
  xmlDoc* document = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, XML_PARSE_NONET);
  const XmlDocAutoPtr guard(document);  // frees it at the end of the block
  xmlNode* const depth = QsXmlGetSubNodeByName(xmlDocGetRootElement(document), "depth", true);
  std::printf("harbours: %u, first depth: %s\n", QsXmlCountChildren(xmlDocGetRootElement(document)),
              QsXmlNodeGetText(depth, "unknown").c_str());
}

}  // namespace

int main() {
  InitBase(1);
  // One call on a text that nobody vouches for; GetXPathStringFromFile does the same on a file.
  std::printf("deep: %s\n", GetXPathStringFromString(kXml, "/harbours/harbour[depth > 5]/@name").c_str());
  std::printf("first: %s\n", GetXPathStringFromString(kXml, "//harbour[1]/depth").c_str());
  Walk();
  const std::string text = "fish & \"chips\" \xE2\x82\xAC 5";
  const std::string encoded = QsEncodeEntities(text, false);
  std::printf("encoded: %s\ndecoded: %s\n", encoded.c_str(), QsXmlDecodeSpecialChars(encoded).c_str());
  InitBase(2);
}
