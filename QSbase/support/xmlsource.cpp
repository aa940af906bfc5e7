#include <QSbase/support/xmlsource.h>

#include <cstddef>
#include <limits>
#include <unordered_map>
#include <utility>
#include <vector>

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <QSbase/support/quietxml.h>

namespace qsbase::detail {

namespace {

constexpr std::size_t kMostEntityText = XML_MAX_TEXT_LENGTH;
constexpr std::size_t kTooMuch = kMostEntityText + 1;
/// As deep as libxml2 follows entities in entities.
constexpr int kDeepestEntity = 40;

constexpr std::size_t SaturatedSum(std::size_t left, std::size_t right) {
  return left > kMostEntityText || right > kMostEntityText - left ? kTooMuch : left + right;
}

/// Calls visit(reference) for every reference to an entity in these nodes, their siblings and all that is below.
template <typename Visit>
void ForEachReference(const xmlNode* first, Visit visit) {
  std::vector<const xmlNode*> lists{first};
  while (!lists.empty()) {
    const xmlNode* node = lists.back();
    lists.pop_back();
    for (; node != nullptr; node = node->next) {
      if (node->type == XML_ENTITY_REF_NODE) {
        visit(node);
      } else if (node->type == XML_ELEMENT_NODE) {
        lists.push_back(node->children);
        for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next) {
          lists.push_back(attribute->children);
        }
      }
    }
  }
}

/// How much text a document's references to entities stand for, and those in the entities. The parser has limits for
/// that, but only for what it replaces itself, and here it replaces nothing.
class EntityText {
 public:
  /// Of all references in the list of nodes, kTooMuch at most.
  std::size_t SizeOf(const xmlNode* first, int depth) {
    std::size_t size = 0;
    ForEachReference(first, [&](const xmlNode* reference) {
      size = SaturatedSum(size, SizeOf(xmlGetDocEntity(reference->doc, reference->name), depth));
    });
    return size;
  }

 private:
  std::size_t SizeOf(const xmlEntity* entity, int depth) {
    if (entity == nullptr) {
      return 0;
    }
    // Too much until it is known: an entity in itself has no end.
    const auto [known, isNew] = _sizes.try_emplace(entity, kTooMuch);
    if (!isNew || depth == kDeepestEntity) {
      return known->second;
    }
    const auto length = static_cast<std::size_t>(entity->length > 0 ? entity->length : 1);
    const std::size_t size = SaturatedSum(length, SizeOf(entity->children, depth + 1));
    return _sizes[entity] = size;
  }

  std::unordered_map<const xmlEntity*, std::size_t> _sizes;
};

/// What a document's parameter entities have put into its subset so far. The parser replaces these without a limit, and
/// goes on doing so after a mistake.
struct ParameterText {
  std::size_t size = 0;
};

xmlEntity* TakeParameterEntity(void* parser, const xmlChar* name) {
  auto* const context = static_cast<xmlParserCtxt*>(parser);
  auto* const text = static_cast<ParameterText*>(context->_private);
  xmlEntity* const entity = xmlSAX2GetParameterEntity(parser, name);
  const bool hasLength = entity != nullptr && entity->length > 0;
  text->size = SaturatedSum(text->size, hasLength ? static_cast<std::size_t>(entity->length) : 1);
  if (text->size <= kMostEntityText && context->wellFormed != 0) {
    return entity;
  }
  xmlStopParser(context);
  return nullptr;
}

bool HasEntities(const xmlDoc& document) {
  return document.intSubset != nullptr && document.intSubset->entities != nullptr;
}

/// A parser that is stopped or has no memory calls the half of a document that comes of it well-formed; in lack of
/// memory it may as well go on with what it has. xmlResetLastError() was called before.
bool IsIncomplete(const xmlParserCtxt& context) {
  const xmlError* const last = xmlGetLastError();
  return context.disableSAX != 0 || context.errNo == XML_ERR_NO_MEMORY ||
         (last != nullptr && last->code == XML_ERR_NO_MEMORY);
}

/// The document, which becomes the caller's; null if it is not well-formed, expands too much or finds no memory.
xmlDoc* Parse(const std::string& xml) {
  const QuietXml quiet;
  xmlResetLastError();
  xmlParserCtxt* const context = xmlCreateMemoryParserCtxt(xml.data(), static_cast<int>(xml.size()));
  if (context == nullptr) {
    return nullptr;
  }
  xmlCtxtUseOptions(context, XML_PARSE_NONET);
  context->options = XML_PARSE_NONET;  // whatever the program's defaults are
  ParameterText parameters;
  context->_private = &parameters;
  context->sax->getParameterEntity = &TakeParameterEntity;
  context->replaceEntities = context->loadsubset = context->validate = 0;
  xmlParseDocument(context);
  xmlDoc* document = std::exchange(context->myDoc, nullptr);
  if (context->wellFormed == 0 || IsIncomplete(*context)) {
    XmlDocAutoPtr(document).Free();
  }
  xmlFreeParserCtxt(context);
  return document;
}

}  // namespace

xmlDoc* ParseUntrustedXml(const std::string& xml) {
  if (xml.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return nullptr;
  }
  xmlDoc* document = Parse(xml);
  XmlDocAutoPtr guard(document);
  if (document != nullptr && HasEntities(*document) && EntityText().SizeOf(document->children, 0) > kMostEntityText) {
    guard.Free();
  }
  return std::exchange(document, nullptr);
}

}  // namespace qsbase::detail
