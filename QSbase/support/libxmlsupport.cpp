#include <QSbase/support/libxmlsupport.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include <libxml/encoding.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlIO.h>
#include <libxml/xmlmemory.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <QSbase/allocationerror.h>
#include <QSbase/log/log.h>
#include <QSbase/log/logwords.h>
#include <QSbase/net/libraryloader.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/quietxml.h>
#include <QSbase/support/xmlsource.h>
#include <QSbase/text/qsstring.h>

namespace {

using qsbase::detail::kLogError;
using qsbase::detail::QuietXml;

const char* AsChars(const xmlChar* text) { return reinterpret_cast<const char*>(text); }
const xmlChar* AsXmlChars(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

bool IsEmpty(const char* text) { return text == nullptr || *text == '\0'; }

/// Releases what `pointer` points to and sets it to null.
template <typename T, typename Release>
void FreeAndForget(T*& pointer, Release release) {
  if (pointer != nullptr) {
    release(pointer);
    pointer = nullptr;
  }
}

template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T* pointer) const {
    Release(pointer);
  }
};

using Output = std::unique_ptr<xmlOutputBuffer, Releaser<&xmlOutputBufferClose>>;
using XPathContext = std::unique_ptr<xmlXPathContext, Releaser<&xmlXPathFreeContext>>;
using XPathObject = std::unique_ptr<xmlXPathObject, Releaser<&xmlXPathFreeObject>>;

// ---- Nodes ----

/// A namespace is no node at all, and what a reference points to is its entity's declaration among its siblings.
xmlNode* FirstChild(const xmlNode* node) {
  const bool hasChildren = node != nullptr && node->type != XML_NAMESPACE_DECL && node->type != XML_ENTITY_REF_NODE;
  return hasChildren ? node->children : nullptr;
}

bool IsElement(const xmlNode* node) { return node->type == XML_ELEMENT_NODE; }

bool IsNamed(const xmlNode* node, const char* name) {
  return IsElement(node) && xmlStrEqual(node->name, AsXmlChars(name)) != 0;
}

/// The node behind `node` in the order of the document, below `top`; null at the end. Without recursion: a tree that a
/// program builds may be deeper than the stack.
xmlNode* NextBelow(const xmlNode* top, xmlNode* node) {
  if (IsElement(node) && node->children != nullptr) {
    return node->children;
  }
  while (node->next == nullptr) {
    node = node->parent;
    if (node == nullptr || node == top) {
      return nullptr;
    }
  }
  return node->next;
}

/// The text with which the node begins; null when it begins with something else.
const char* FirstText(const xmlNode* node) {
  const xmlNode* const child = FirstChild(node);
  return child != nullptr && xmlNodeIsText(child) != 0 ? AsChars(child->content) : nullptr;
}

// ---- Dumps ----

/// What xmlNodeDump writes. That function itself releases its buffer twice when memory runs short on the way. False
/// without memory. `document` may be null.
bool Dump(xmlDoc* document, xmlNode* node, bool format, std::string& text) {
  const QuietXml quiet;
  const Output output(xmlAllocOutputBuffer(nullptr));
  if (output == nullptr) {
    return false;
  }
  xmlNodeDumpOutput(output.get(), document, node, 0, format ? 1 : 0, nullptr);
  const xmlChar* const content = xmlOutputBufferGetContent(output.get());
  if (content == nullptr) {
    return false;
  }
  text.append(AsChars(content), xmlOutputBufferGetSize(output.get()));
  return true;
}

std::string_view WithoutDeclaration(std::string_view xml) {
  constexpr std::string_view kBegin = "<?xml ";
  constexpr std::string_view kEnd = "?>\n";
  if (xml.substr(0, kBegin.size()) != kBegin) {
    return xml;
  }
  const std::size_t end = xml.find("?>");
  return end == std::string_view::npos ? xml : xml.substr(std::min(end + kEnd.size(), xml.size()));
}

/// False when libxml2 gives nothing.
bool DumpDocument(xmlDoc* document, bool format, bool withDeclaration, std::string& text) {
  const QuietXml quiet;
  xmlChar* memory = nullptr;
  int size = 0;
  xmlDocDumpFormatMemory(document, &memory, &size, format ? 1 : 0);
  const XmlCharAutoPtr guard(memory);
  if (memory == nullptr) {
    return false;
  }
  const std::string_view xml(AsChars(memory), static_cast<std::size_t>(size));
  text = withDeclaration ? xml : WithoutDeclaration(xml);
  return true;
}

// ---- Latin-1 and UTF-8 ----

constexpr const char* kThisFile = "QSbase/support/libxmlsupport";

using Converter = int (*)(unsigned char* out, int* outLength, const unsigned char* in, int* inLength);

/// Converts in pieces, as the converters count in `int`. Returns the number of bytes; 0 for what cannot be converted.
std::size_t ConvertPieces(Converter convert, const unsigned char* text, std::size_t length, unsigned char* out) {
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  unsigned char* const begin = out;
  while (length > 0) {
    int inLength = static_cast<int>(std::min(length, kPiece));
    int outLength = 2 * inLength;
    if (convert(out, &outLength, text, &inLength) < 0) {
      return 0;
    }
    if (inLength <= 0) {
      break;  // the rest is cut off
    }
    out += outLength;
    text += inLength;
    length -= static_cast<std::size_t>(inLength);
  }
  return static_cast<std::size_t>(out - begin);
}

/// Room for twice the length and a zero behind, all zeros. Throws ExMemoryAllocation with the caller's name.
unsigned char* AllocateResult(const char* caller, std::size_t length) {
  constexpr std::size_t kMost = (std::numeric_limits<std::size_t>::max() - 1) / 2;
  void* const memory = length <= kMost ? std::calloc(2 * length + 1, 1) : nullptr;
  if (memory == nullptr) {
    qsbase::detail::ThrowAllocationError(caller, kThisFile, __LINE__);
  }
  return static_cast<unsigned char*>(memory);
}

bool Convert(const char* caller, Converter convert, const unsigned char* text, unsigned char*& result) {
  result = nullptr;
  if (text == nullptr || *text == 0) {
    return false;
  }
  const std::size_t length = std::strlen(AsChars(text));
  unsigned char* const memory = AllocateResult(caller, length);
  if (ConvertPieces(convert, text, length, memory) == 0) {
    std::free(memory);
    return false;
  }
  result = memory;
  return true;
}

// ---- XPath ----

XPathContext MakeContext(xmlDoc* document, const char* prefix, const char* namespaceUri) {
  XPathContext context(xmlXPathNewContext(document));
  if (context == nullptr) {
    return nullptr;
  }
  context->node = reinterpret_cast<xmlNode*>(document);
  if (!IsEmpty(prefix) && !IsEmpty(namespaceUri) &&
      xmlXPathRegisterNs(context.get(), AsXmlChars(prefix), AsXmlChars(namespaceUri)) != 0) {
    return nullptr;
  }
  return context;
}

/// The nodes, which become the caller's; null for none.
xmlNodeSet* FindNodes(xmlDoc* document, const char* expression, const char* prefix, const char* namespaceUri) {
  const QuietXml quiet;
  const XPathContext context = MakeContext(document, prefix, namespaceUri);
  if (context == nullptr) {
    return nullptr;
  }
  const XPathObject found(xmlXPathEvalExpression(AsXmlChars(expression), context.get()));
  const bool hasNodes =
      found != nullptr && found->type == XPATH_NODESET && found->nodesetval != nullptr && found->nodesetval->nodeNr > 0;
  return hasNodes ? std::exchange(found->nodesetval, nullptr) : nullptr;
}

/// Throws std::bad_alloc when libxml2 has no memory: a text that lacks one of its pieces looks as good as any.
void AppendFound(xmlDoc* document, xmlNode* node, std::string& text) {
  if (node->type != XML_ATTRIBUTE_NODE) {
    if (!Dump(document, node, false, text)) {
      throw std::bad_alloc();
    }
    return;
  }
  xmlChar* value = xmlNodeGetContent(node);
  const XmlCharAutoPtr guard(value);
  if (value == nullptr) {
    throw std::bad_alloc();
  }
  text += AsChars(value);
}

std::string FoundText(xmlDoc* document, const std::string& expression) {
  xmlNodeSet* nodes = nullptr;
  const XmlNodeSetAutoPtr guard(nodes);
  const int count = QsXmlXPathGetNodeSet(document, expression.c_str(), &nodes, nullptr, nullptr);
  std::string text;
  for (int i = 0; i < count; ++i) {
    AppendFound(document, nodes->nodeTab[i], text);
  }
  return text;
}

// ---- Start and stop ----

struct XmlLayer {
  std::atomic<bool> isSetUp{false};
  HINSTANCE module = nullptr;  // libxml2 is linked in: no module of its own is loaded for it
};

constinit XmlLayer layer;

}  // namespace

XmlDocAutoPtr::~XmlDocAutoPtr() { Free(); }
void XmlDocAutoPtr::Free() { FreeAndForget(_document, &xmlFreeDoc); }

XmlNodeAutoPtr::~XmlNodeAutoPtr() { Free(); }
void XmlNodeAutoPtr::Free() { FreeAndForget(_node, &xmlFreeNode); }

XmlNodeSetAutoPtr::~XmlNodeSetAutoPtr() { Free(); }
void XmlNodeSetAutoPtr::Free() { FreeAndForget(_set, &xmlXPathFreeNodeSet); }

XmlCharAutoPtr::~XmlCharAutoPtr() { Free(); }
void XmlCharAutoPtr::Free() noexcept {
  try {
    FreeAndForget(_text, xmlFree);
  } catch (...) {
    // Of the host's own release function. The text stays.
  }
}

xmlNode* QsXmlGetSubNodeByName(xmlNode* node, const char* name, bool recursive) {
  if (IsEmpty(name)) {
    return nullptr;
  }
  xmlNode* child = FirstChild(node);
  while (child != nullptr && !IsNamed(child, name)) {
    child = recursive ? NextBelow(node, child) : child->next;
  }
  return child;
}

std::string QsXmlNodeGetText(xmlNode* node, const std::string& defaultText) {
  const char* const content = FirstText(node);
  if (content == nullptr) {
    return defaultText;
  }
  std::string text = content;
  ReplaceCRLFHT(text);
  return text.find_first_not_of(' ') == std::string::npos ? std::string() : text;
}

std::string QsXmlNodeGetFormattedText(xmlNode* node, const std::string& defaultText) {
  const char* const content = FirstText(node);
  return content != nullptr ? content : defaultText;
}

bool QsXmlNodeIsText(xmlNode* node) {
  const xmlNode* const child = FirstChild(node);
  return child != nullptr && child->next == nullptr && !IsElement(child);
}

int QsXmlXPathGetNodeSet(xmlDoc* doc, const char* expression, xmlNodeSet** result, const char* prefix,
                         const char* namespaceUri) {
  if (result == nullptr) {
    return 0;
  }
  *result = nullptr;
  if (xmlDocGetRootElement(doc) == nullptr || IsEmpty(expression)) {
    return 0;
  }
  *result = FindNodes(doc, expression, prefix, namespaceUri);
  return *result != nullptr ? (*result)->nodeNr : 0;
}

unsigned int QsXmlCountChildren(xmlNode* node) {
  constexpr xmlElementType kCountedIn[] = {XML_ELEMENT_NODE, XML_ENTITY_NODE, XML_DOCUMENT_NODE,
                                           XML_HTML_DOCUMENT_NODE};
  unsigned int count = 0;
  if (node != nullptr && std::find(std::begin(kCountedIn), std::end(kCountedIn), node->type) != std::end(kCountedIn)) {
    for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
      count += IsElement(child) ? 1U : 0U;
    }
  }
  return count;
}

bool QsXmlConvertXMLStringUTF8Toisolat1(const unsigned char* text, unsigned char*& result) {
  return Convert("QsXmlConvertXMLStringUTF8Toisolat1", &UTF8Toisolat1, text, result);
}

bool QsXmlConvertXMLStringIsolat1ToUTF8(const unsigned char* text, unsigned char*& result) {
  return Convert("QsXmlConvertXMLStringIsolat1ToUTF8", &isolat1ToUTF8, text, result);
}

std::string QsConvertIsolat1ToUTF8(const char* text) {
  unsigned char* converted = nullptr;
  if (!QsXmlConvertXMLStringIsolat1ToUTF8(AsXmlChars(text), converted)) {
    return {};
  }
  const std::unique_ptr<unsigned char, Releaser<&std::free>> owner(converted);
  return AsChars(converted);
}

bool QsXmlNodeToXmlFormatString(xmlNode* node, std::string& text, bool format) {
  std::string dump;
  if (node == nullptr || !Dump(nullptr, node, format, dump)) {
    return false;
  }
  text = std::move(dump);
  return true;
}

std::string QsXmlDocDumpFormatXML(xmlDoc* doc, bool withDeclaration) {
  if (doc == nullptr) {
    QsLogMsg(kLogError, "QsXmlDocDumpFormatXML: input XML document is NULL");
    return {};
  }
  std::string text;
  if (!DumpDocument(doc, true, withDeclaration, text)) {
    QsLogMsg(kLogError, "QsXmlDocDumpFormatXML: Could not dump XML document");
  }
  return text;
}

std::string QsXmlDocSaveToString(xmlDoc* doc, bool withDeclaration) {
  std::string text;
  if (doc != nullptr) {
    DumpDocument(doc, false, withDeclaration, text);
  }
  return text;
}

std::string GetXPathStringFromDoc(xmlDoc* doc, const std::string& expression) {
  try {
    return FoundText(doc, expression);
  } catch (const std::exception& error) {
    QsLogMsg(kLogError, "GetXPathStringFromDoc std::exception: %s", error.what());
  }
  return {};
}

std::string GetXPathStringFromString(const std::string& xml, const std::string& expression) {
  xmlDoc* document = qsbase::detail::ParseUntrustedXml(xml);
  const XmlDocAutoPtr guard(document);
  return GetXPathStringFromDoc(document, expression);
}

std::string GetXPathStringFromFile(const std::string& file, const std::string& expression) {
  std::string xml;
  return QsLoadFilePart(file, 0, -1, xml) ? GetXPathStringFromString(xml, expression) : std::string();
}

std::string QsValidateAsciiNodeName(const std::string& name) {
  const auto isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':'; };
  const auto isFurther = [](char c) { return (c >= '0' && c <= '9') || c == '.' || c == '-'; };
  std::string valid = name;
  for (std::size_t i = 0; i < valid.size(); ++i) {
    if (!isLetter(valid[i]) && (i == 0 || !isFurther(valid[i]))) {
      valid[i] = '_';
    }
  }
  return valid;
}

void InitXML(int phase, const std::string& /*parameter*/) {
  if (phase == 1) {
    xmlInitParser();
    layer.isSetUp = true;
  } else if (phase == 2 && layer.isSetUp.exchange(false)) {
    try {
      xmlCleanupParser();
      xmlMemoryDump();
      QsFreeLibrary(std::exchange(layer.module, nullptr));
    } catch (...) {
      // Of the host's own release function.
    }
  }
}
