/// \file
/// Helpers over libxml2: nodes and their text, XPath, dumps, Latin-1 and UTF-8, entities, and scope guards.
///
/// They take and give libxml2's own types, which this header only declares: include libxml2's headers, before or after,
/// where you use more of it. Null documents, nodes and texts are safe everywhere. Mistakes in XML and in expressions
/// are not written to the console, as libxml2 would by itself.
///
/// Thread safety: as libxml2's: any number of threads, each with its own document; threads that only read may share
/// one.
///
/// \code
/// const std::string titles = GetXPathStringFromFile("books.xml", "//title");  // "<title>A</title><title>B</title>"
/// \endcode
#ifndef QSBASE_SUPPORT_LIBXMLSUPPORT_H
#define QSBASE_SUPPORT_LIBXMLSUPPORT_H

#include <string>

#include <QSbase/export.h>

// libxml2's own declarations of these names say the same.
struct _xmlDoc;
struct _xmlNode;
struct _xmlNodeSet;
typedef struct _xmlDoc xmlDoc;
typedef struct _xmlNode xmlNode;
typedef struct _xmlNodeSet xmlNodeSet;

/// Frees the document that a variable points to, at the end of a scope, and sets the variable to null. One guard a
/// pointer; the variable must outlive it.
///
/// \code
/// xmlDoc* document = xmlReadFile("books.xml", nullptr, XML_PARSE_NONET);
/// XmlDocAutoPtr guard(document);
/// \endcode
class QSBASE_API XmlDocAutoPtr {
 public:
  /// Watches over \p document, which may be null now and another one later.
  explicit XmlDocAutoPtr(xmlDoc*& document) noexcept : _document(document) {}
  /// As Free().
  ~XmlDocAutoPtr();
  XmlDocAutoPtr(const XmlDocAutoPtr&) = delete;
  XmlDocAutoPtr& operator=(const XmlDocAutoPtr&) = delete;

  /// Frees what the variable points to by xmlFreeDoc and sets it to null; nothing when it is null.
  void Free();

 private:
  xmlDoc*& _document;
};

/// The same for a node and what is below it. The node must be part of no document's tree, which would free it again.
class QSBASE_API XmlNodeAutoPtr {
 public:
  /// Watches over \p node, which may be null now and another one later.
  explicit XmlNodeAutoPtr(xmlNode*& node) noexcept : _node(node) {}
  /// As Free().
  ~XmlNodeAutoPtr();
  XmlNodeAutoPtr(const XmlNodeAutoPtr&) = delete;
  XmlNodeAutoPtr& operator=(const XmlNodeAutoPtr&) = delete;

  /// Frees what the variable points to by xmlFreeNode and sets it to null; nothing when it is null.
  void Free();

 private:
  xmlNode*& _node;
};

/// The same for a set of nodes. The nodes stay, but libxml2 looks at them: they must still be there.
class QSBASE_API XmlNodeSetAutoPtr {
 public:
  /// Watches over \p set, which may be null now and another one later.
  explicit XmlNodeSetAutoPtr(xmlNodeSet*& set) noexcept : _set(set) {}
  /// As Free().
  ~XmlNodeSetAutoPtr();
  XmlNodeSetAutoPtr(const XmlNodeSetAutoPtr&) = delete;
  XmlNodeSetAutoPtr& operator=(const XmlNodeSetAutoPtr&) = delete;

  /// Frees what the variable points to by xmlXPathFreeNodeSet and sets it to null; nothing when it is null.
  void Free();

 private:
  xmlNodeSet*& _set;
};

/// The same for a text of libxml2 (`xmlChar` is unsigned char).
class QSBASE_API XmlCharAutoPtr {
 public:
  /// Watches over \p text, which may be null now and another one later.
  explicit XmlCharAutoPtr(unsigned char*& text) noexcept : _text(text) {}
  /// As Free().
  ~XmlCharAutoPtr();
  XmlCharAutoPtr(const XmlCharAutoPtr&) = delete;
  XmlCharAutoPtr& operator=(const XmlCharAutoPtr&) = delete;

  /// Frees what the variable points to by xmlFree and sets it to null; nothing when it is null. When the host's own
  /// release function throws, the exception ends here and the variable stays as it was.
  void Free() noexcept;

 private:
  unsigned char*& _text;
};

/// The first child of \p node that is an element called \p name (without a namespace's prefix), in their order; with
/// \p recursive the first one below \p node, where what is below a child comes before its next sibling. What an entity
/// reference stands for is not looked into. Null when there is none, and for a null or empty \p name.
QSBASE_API xmlNode* QsXmlGetSubNodeByName(xmlNode* node, const char* name, bool recursive);

/// The text with which the content of \p node begins: its first child, in UTF-8, every CR, LF and TAB turned into a
/// blank; empty when it is of blanks only, not trimmed otherwise. \p defaultText when the first child is no text (a
/// CDATA section is none).
QSBASE_API std::string QsXmlNodeGetText(xmlNode* node, const std::string& defaultText);

/// The same text as it is stored, blank or not.
QSBASE_API std::string QsXmlNodeGetFormattedText(xmlNode* node, const std::string& defaultText);

/// Whether \p node has exactly one child, and that is no element. (Any other kind will do: true for a comment alone;
/// false for two texts side by side.)
QSBASE_API bool QsXmlNodeIsText(xmlNode* node);

/// Evaluates an XPath 1.0 expression; relative paths begin at the document.
///
/// \param result        gets the nodes, to be freed by the caller before the document (XmlNodeSetAutoPtr): null when
///                      there are none, or the expression is in error or gives something else than nodes. Must not be
///                      null, else nothing is done.
/// \param prefix        with \p namespaceUri: a prefix that the expression uses and its namespace; null or empty: none.
/// \param namespaceUri  see \p prefix. Without both none is known to the expression.
/// \returns how many nodes there are, 0 for a null result.
QSBASE_API int QsXmlXPathGetNodeSet(xmlDoc* doc, const char* expression, xmlNodeSet** result, const char* prefix,
                                    const char* namespaceUri);

/// How many children of an element, an entity or a document are elements; 0 for other nodes.
QSBASE_API unsigned int QsXmlCountChildren(xmlNode* node);

/// Converts a zero-terminated text. True when that gave at least one byte: \p result is then zero-terminated and the
/// caller's, to be released by `free`. Null and false for a null or empty text and for one that is not UTF-8 or has
/// characters that Latin-1 lacks; a sequence that the end of the text cuts off is left out.
/// \throws ExMemoryAllocation "QsXmlConvertXMLStringUTF8Toisolat1 (file QSbase/support/libxmlsupport, line ..."; \p
/// result is null then.
QSBASE_API bool QsXmlConvertXMLStringUTF8Toisolat1(const unsigned char* text, unsigned char*& result);

/// The same the other way round, which every byte has a form for.
/// \throws ExMemoryAllocation "QsXmlConvertXMLStringIsolat1ToUTF8 (file QSbase/support/libxmlsupport, line ..."; \p
/// result is null then.
QSBASE_API bool QsXmlConvertXMLStringIsolat1ToUTF8(const unsigned char* text, unsigned char*& result);

/// The text in UTF-8; empty for a null or empty one.
/// \throws ExMemoryAllocation as QsXmlConvertXMLStringIsolat1ToUTF8.
QSBASE_API std::string QsConvertIsolat1ToUTF8(const char* text);

/// The XML of \p node and what is below it, in UTF-8, on indented lines when \p format. False, with \p text as it was,
/// for a null node or without memory.
QSBASE_API bool QsXmlNodeToXmlFormatString(xmlNode* node, std::string& text, bool format);

/// The XML of a document in the encoding that it names, on indented lines. Without \p withDeclaration what precedes the
/// line behind "<?xml ...?>" is left out, if it has that in bytes of ASCII (UTF-16 has not). Empty on failure, with an
/// error in the log: "QsXmlDocDumpFormatXML: input XML document is NULL" or "QsXmlDocDumpFormatXML: Could not dump XML
/// document" (no memory, or an encoding that nobody knows).
QSBASE_API std::string QsXmlDocDumpFormatXML(xmlDoc* doc, bool withDeclaration);

/// The same without indentation, and without any log line.
QSBASE_API std::string QsXmlDocSaveToString(xmlDoc* doc, bool withDeclaration);

/// Replaces "&lt;", "&gt;", "&amp;", "&quot;" and "&apos;", letters of either case, by the character, in one pass:
/// "&AMP;lt;" becomes "&lt;". Numeric references and other entities stay.
QSBASE_API std::string QsXmlDecodeSpecialChars(const std::string& text);

/// Makes UTF-8 text fit for XML content and attribute values, as ASCII:
///
/// | in the text                                | becomes                                                          |
/// |--------------------------------------------|------------------------------------------------------------------|
/// | < > & "                                    | "&lt;", "&gt;", "&amp;", "&quot;"                                |
/// | '                                          | "&apos;"; with \p plain itself                                   |
/// | CR                                         | "&#13;"                                                          |
/// | other bytes below 32 but LF and TAB        | nothing                                                          |
/// | a character of two to four bytes           | its reference, "&#xE9;"; with \p plain decimal, "&#233;"         |
/// | a byte that belongs to no such character   | the reference of that byte, as if it were Latin-1: "&#233;"      |
///
/// A longer form than a character needs is read as that character; surrogates, U+FFFE, U+FFFF and what is beyond
/// U+10FFFF are no characters. Empty when there is no memory.
QSBASE_API std::string QsEncodeEntities(const std::string& text, bool plain);

/// What an XPath expression finds, one after the other: of an attribute its value, of any other node its XML, not
/// indented. Empty when it finds nothing or something else than nodes, and for an expression in error. A std::exception
/// on the way (std::bad_alloc when libxml2 has no memory for a piece) is logged as the error "GetXPathStringFromDoc
/// std::exception: " + its text; the result is then empty.
QSBASE_API std::string GetXPathStringFromDoc(xmlDoc* doc, const std::string& expression);

/// The same on a text. Nothing outside of it is read, neither files nor the network, and entities stay references
/// (in the value of an attribute they are replaced). Empty, too, for a text that is not well-formed, goes beyond
/// libxml2's limits (256 nested elements, 10,000,000 bytes in the value of an attribute), or whose references to
/// entities, or to parameter entities, stand for more than 10,000,000 bytes. Elements with very many attributes take
/// time by the square of their number.
QSBASE_API std::string GetXPathStringFromString(const std::string& xml, const std::string& expression);

/// The same on a regular file, by the rules of filesupport.h for its name; empty when it cannot be read.
/// \throws ExMemoryAllocation as QsLoadFilePart.
QSBASE_API std::string GetXPathStringFromFile(const std::string& file, const std::string& expression);

/// A copy in which "_" stands for every character that a name of XML may not have at its place: the first one may be an
/// ASCII letter, "_" or ":", the others also digits, "." and "-". Nothing is added: "" stays "".
QSBASE_API std::string QsValidateAsciiNodeName(const std::string& name);

/// Start (phase 1) and stop (phase 2) of libxml2 for the process; any other phase does nothing. Phase 1 prepares
/// libxml2 for several threads; phase 2 gives back what libxml2 holds, when all use of XML in the process is over, its
/// host's included, and does nothing without a phase 1 before it. \p parameter is ignored. Throws nothing.
QSBASE_API void InitXML(int phase, const std::string& parameter = std::string());

#endif
