#include "article.h"

#include <algorithm>
#include <array>

#include "mimename.h"
#include "text.h"

namespace qs {
namespace {

// Parts within parts, and parts in all, that are looked at; more are no article that a person wrote.
constexpr int kMaxDepth = 20;
constexpr std::size_t kMaxParts = 10000;

struct HeaderField {
  std::string name;  // lower case
  std::string value;
};

// One of these says "article"; of the others two are needed.
constexpr std::array<std::string_view, 6> kSure = {
    "message-id", "newsgroups", "mime-version", "content-type", "content-transfer-encoding", "content-disposition"};
constexpr std::array<std::string_view, 8> kLikely = {"from", "to",       "subject",     "date",
                                                     "path", "received", "return-path", "references"};
constexpr std::string_view kMd5 = "content-md5";

bool IsAskedFor(std::string_view name) {
  return std::find(kSure.begin(), kSure.end(), name) != kSure.end() ||
         std::find(kLikely.begin(), kLikely.end(), name) != kLikely.end() || name == kMd5;
}

struct Headers {
  std::vector<HeaderField> fields;
  std::size_t bodyStart = 0;
  bool endedByBlankLine = false;

  std::string Get(std::string_view name) const {
    for (const HeaderField& field : fields) {
      if (field.name == name) {
        return field.value;
      }
    }
    return {};
  }

  bool Has(std::string_view name) const {
    return std::any_of(fields.begin(), fields.end(), [&](const HeaderField& field) { return field.name == name; });
  }

  // Takes the first field of a name that anybody asks for. Whatever a text has too much of takes no memory.
  bool Take(const std::string& name, std::string_view value) {
    if (!IsAskedFor(name) || Has(name)) {
      return false;
    }
    fields.push_back({name, std::string(value)});
    return true;
  }
};

// The length of the field name that a header line begins with, 0 when it is no header line.
std::size_t FieldNameLength(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return 0;
  }
  const auto isNameChar = [](char c) { return c > 32 && c < 127; };
  return std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon), isNameChar) ? colon : 0;
}

Headers ReadHeaders(std::string_view text) {
  Headers headers;
  bool hasField = false;
  bool isTaken = false;  // the field that a folded line goes on with
  LineReader lines(text);
  while (lines.Next()) {
    const std::string_view line = lines.Line();
    if (line.empty()) {
      headers.bodyStart = lines.End();
      headers.endedByBlankLine = true;
      return headers;
    }
    if (IsBlank(line.front()) && hasField) {
      if (isTaken) {
        headers.fields.back().value += line;
      }
      continue;
    }
    const std::size_t name = FieldNameLength(line);
    if (name == 0) {
      headers.bodyStart = lines.Begin();
      return headers;
    }
    hasField = true;
    isTaken = headers.Take(ToLowerAscii(line.substr(0, name)), Trim(line.substr(name + 1)));
  }
  headers.bodyStart = text.size();
  headers.endedByBlankLine = true;
  return headers;
}

bool AreArticleHeaders(const Headers& headers) {
  const auto has = [&](std::string_view name) { return headers.Has(name); };
  return headers.endedByBlankLine &&
         (std::any_of(kSure.begin(), kSure.end(), has) || std::count_if(kLikely.begin(), kLikely.end(), has) >= 2);
}

Transfer TransferOf(const Headers& headers) {
  const std::string name = ParseFieldValue(headers.Get("content-transfer-encoding")).value;
  if (name == "base64") {
    return Transfer::Base64;
  }
  if (name == "quoted-printable") {
    return Transfer::QuotedPrintable;
  }
  if (name == "x-uuencode" || name == "x-uue" || name == "uuencode") {
    return Transfer::UU;
  }
  return Transfer::Identity;
}

struct Section {
  std::string_view text;
  bool complete;
};

enum class Delimiter { None, Next, Last };

Delimiter DelimiterKind(std::string_view line, const std::string& delimiter) {
  if (!StartsWith(line, delimiter)) {
    return Delimiter::None;
  }
  const std::string_view rest = TrimRight(line.substr(delimiter.size()));
  if (rest.empty()) {
    return Delimiter::Next;
  }
  return rest == "--" ? Delimiter::Last : Delimiter::None;
}

// The parts between the boundary lines; the line break in front of a boundary line belongs to it. What follows
// kMaxParts of them is one more, which is not complete.
std::vector<Section> SplitMultipart(std::string_view body, const std::string& boundary) {
  const std::string delimiter = "--" + boundary;
  std::vector<Section> sections;
  bool inside = false;
  std::size_t start = 0;
  LineReader lines(body);
  while (lines.Next()) {
    const Delimiter kind = DelimiterKind(lines.Line(), delimiter);
    if (kind == Delimiter::None) {
      continue;
    }
    if (inside) {
      sections.push_back({WithoutLastBreak(body.substr(start, lines.Begin() - start)), true});
    }
    inside = kind == Delimiter::Next;
    start = lines.End();
    if (!inside || sections.size() == kMaxParts) {
      break;
    }
  }
  if (inside) {
    sections.push_back({body.substr(start), false});
  }
  return sections;
}

class Collector {
 public:
  explicit Collector(Article& article) : _article(article) {}

  void Entity(const Headers& headers, std::string_view body, const char* defaultType, bool complete, int depth) {
    const FieldValue type = TypeOf(headers, defaultType);
    const bool isMultipart = StartsWith(type.value, "multipart/");
    const bool isMessage = type.value == "message/rfc822" && TransferOf(headers) == Transfer::Identity;
    if (depth < kMaxDepth && _article.parts.size() < kMaxParts) {
      if (isMultipart && Multipart(type, body, depth)) {
        return;
      }
      if (isMessage) {
        const Headers inner = ReadHeaders(body);
        Entity(inner, body.substr(inner.bodyStart), "text/plain", complete, depth + 1);
        return;
      }
    } else if (isMultipart || isMessage) {
      _article.complete = false;
    }
    Leaf(headers, type, body, complete);
  }

 private:
  static FieldValue TypeOf(const Headers& headers, const char* defaultType) {
    FieldValue type = ParseFieldValue(headers.Get("content-type"));
    if (type.value.empty()) {
      type.value = defaultType;
    }
    return type;
  }

  bool Multipart(const FieldValue& type, std::string_view body, int depth) {
    const std::string boundary = type.Parameter("boundary");
    if (boundary.empty()) {
      return false;
    }
    const std::vector<Section> sections = SplitMultipart(body, boundary);
    _article.complete = _article.complete && sections.size() <= kMaxParts;
    const char* defaultType = type.value == "multipart/digest" ? "message/rfc822" : "text/plain";
    for (const Section& section : sections) {
      const Headers headers = ReadHeaders(section.text);
      Entity(headers, section.text.substr(headers.bodyStart), defaultType, section.complete, depth + 1);
    }
    return !sections.empty();
  }

  void Leaf(const Headers& headers, const FieldValue& type, std::string_view body, bool complete) {
    const FieldValue disposition = ParseFieldValue(headers.Get("content-disposition"));
    ArticlePart part;
    part.mediaType = type.value;
    part.fileName = DecodeWords(disposition.Parameter("filename"));
    if (part.fileName.empty()) {
      part.fileName = DecodeWords(type.Parameter("name"));
    }
    part.attachment = disposition.value == "attachment";
    part.transfer = TransferOf(headers);
    part.contentMd5 = headers.Get(kMd5);
    part.body = body;
    part.complete = complete;
    _article.parts.push_back(part);
  }

  Article& _article;
};

}  // namespace

std::optional<Article> ParseArticle(std::string_view text) {
  if (StartsWith(text, "From ")) {  // the separator line of a mailbox file
    const std::size_t feed = text.find('\n');
    text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
  }
  const Headers headers = ReadHeaders(text);
  if (!AreArticleHeaders(headers)) {
    return std::nullopt;
  }
  Article article;
  article.subject = DecodeWords(headers.Get("subject"));
  Collector(article).Entity(headers, text.substr(headers.bodyStart), "text/plain", true, 0);
  return article;
}

bool UnwrapNntp(std::string_view text, std::string& plain) {
  if (!StartsWith(text, "220 ") && !StartsWith(text, "222 ")) {
    return false;
  }
  plain.clear();
  LineReader lines(text);
  lines.Next();
  while (lines.Next() && lines.Line() != ".") {
    std::string_view line = text.substr(lines.Begin(), lines.End() - lines.Begin());
    if (StartsWith(line, ".")) {
      line.remove_prefix(1);
    }
    plain += line;
  }
  return true;
}

}  // namespace qs
