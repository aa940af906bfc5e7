#include "attachment.h"

#include <QSbase/codec/encodedecode.h>
#include <QSbase/codec/hash.h>
#include <QSbase/support/paths.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "article.h"
#include "attachmentname.h"
#include "binhexblock.h"
#include "blockfinder.h"
#include "codedtext.h"
#include "decodestatus.h"
#include "mimebody.h"
#include "text.h"
#include "uuebody.h"
#include "yencblock.h"

namespace qs {
namespace {

bool IsText(const ArticlePart& part) {
  return StartsWith(part.mediaType, "text/") || StartsWith(part.mediaType, "message/") ||
         StartsWith(part.mediaType, "multipart/");
}

bool HasWrongMd5(const ArticlePart& part, const std::string& data) {
  if (part.contentMd5.empty()) {
    return false;
  }
  unsigned char digest[16];
  QsCalcMD5(data.data(), CoderLength(data), digest);
  std::string text;
  QsBase64Encode(digest, sizeof digest, text);
  return Trim(text) != Trim(part.contentMd5);
}

Attachment DecodePart(const ArticlePart& part, const CodedText& coded) {
  Attachment result;
  switch (part.transfer) {
    case Transfer::Base64:
      result = DecodeBase64(coded.Part(part.body));
      break;
    case Transfer::QuotedPrintable:
      result = DecodeQuotedPrintable(coded.Part(part.body));
      break;
    // These may hold blocks that are looked for afterwards.
    case Transfer::UU:
      result = DecodeUueLines(part.body, Encoding::UU);
      break;
    case Transfer::Identity:
      result.data = std::string(part.body);
      break;
  }
  result.name = part.fileName;
  if (!part.complete) {
    Report(result, "the closing boundary is missing");
  }
  if (HasWrongMd5(part, result.data)) {
    Report(result, "MD5 mismatch (Content-MD5)");
  }
  return result;
}

// A coded text without a name is the message itself: what it holds counts. So does a block inside plain lines.
std::vector<Attachment> BlocksOf(const ArticlePart& part, const Attachment& decoded) {
  if (part.transfer == Transfer::Identity || part.transfer == Transfer::UU) {
    return FindEncodedBlocks(part.body);
  }
  if (IsText(part) && part.fileName.empty()) {
    return FindEncodedBlocks(decoded.data);
  }
  return {};
}

bool IsAttachment(const ArticlePart& part, bool only) {
  if (!part.fileName.empty() || part.attachment) {
    return true;
  }
  if (only) {
    return part.transfer != Transfer::Identity;
  }
  return !IsText(part);
}

void AppendAttachments(const ArticlePart& part, const CodedText& coded, bool only, const std::string& contentName,
                       std::vector<Attachment>& found) {
  Attachment decoded = DecodePart(part, only ? coded : CodedText(coded.View()));
  std::vector<Attachment> blocks = BlocksOf(part, decoded);
  if (!blocks.empty()) {
    std::move(blocks.begin(), blocks.end(), std::back_inserter(found));
    return;
  }
  if (IsAttachment(part, only)) {
    NameAfterContent(decoded, contentName, part.mediaType);
    found.push_back(std::move(decoded));
  }
}

// What the extension of the content's name says about a text without any mark of its own.
std::optional<Attachment> DecodeByExtension(const CodedText& coded, const std::string& extension) {
  if (extension == "b64" || extension == "base64") {
    return DecodeBase64(coded);
  }
  if (extension == "qp") {
    return DecodeQuotedPrintable(coded);
  }
  if (extension == "uu" || extension == "uue" || extension == "xx" || extension == "xxe") {
    if (const Encoding kind = UueKind(coded.View()); kind != Encoding::None) {
      return DecodeUueBody(ReadUueBody(coded.View(), 0, kind), coded);
    }
  }
  return std::nullopt;
}

std::vector<Attachment> FromBareText(const CodedText& coded, const std::string& contentName) {
  const std::vector<Block> blocks = FindBlocks(coded.View());
  if (!blocks.empty()) {
    return DecodeBlocks(blocks, coded);
  }
  std::vector<Attachment> found;
  if (std::optional<Attachment> hinted = DecodeByExtension(coded, CAL_GetFileExtensionLC(contentName))) {
    // photo.png.b64 holds photo.png
    hinted->name = ExtractFileBaseName(contentName);
    if (ExtractFileExt(hinted->name).empty()) {
      hinted->name.clear();
    }
    found.push_back(std::move(*hinted));
  } else if (IsBareBase64(coded.View())) {
    found.push_back(DecodeBase64(coded));
  }
  if (!found.empty()) {
    NameAfterContent(found.front(), contentName, "");
  }
  return found;
}

// Without a way out between the characters, which the compiler makes vectors of.
bool AreBase64Chars(std::string_view text) {
  bool good = true;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isLetter = static_cast<unsigned char>((byte | 0x20) - 'a') < 26;
    const bool isOther = static_cast<unsigned char>(byte - '/') < 11 || byte == '+';  // the digits stand behind the "/"
    good &= isLetter | isOther;
  }
  return good;
}

bool IsBase64Line(std::string_view line, std::string_view digits) {
  const std::size_t pads = line.size() - digits.size();
  return !line.empty() && line.size() % 4 == 0 && pads <= 2 &&
         line.find_first_not_of('=', digits.size()) == std::string_view::npos && AreBase64Chars(digits);
}

std::vector<Attachment> Extract(CodedText coded, const std::string& contentName) {
  std::string unwrapped;
  if (UnwrapNntp(coded.View(), unwrapped)) {
    coded = CodedText(unwrapped);
  }
  const std::optional<Article> article = ParseArticle(coded.View());
  if (!article) {
    return FromBareText(coded, contentName);
  }
  std::vector<Attachment> found;
  for (const ArticlePart& part : article->parts) {
    if (found.size() <= kMostBlocks) {
      AppendAttachments(part, coded, article->parts.size() == 1, contentName, found);
    }
  }
  if (found.size() > kMostBlocks || !article->complete) {
    found.push_back(RestNotLookedAt());
  }
  return found;
}

// A text of nothing but coded lines.
Attachment DecodeLines(const CodedText& coded, Encoding encoding) {
  switch (encoding) {
    case Encoding::Base64:
      return DecodeBase64(coded);
    case Encoding::QuotedPrintable:
      return DecodeQuotedPrintable(coded);
    case Encoding::UU:
    case Encoding::XX:
      return DecodeUueBody(ReadUueBody(coded.View(), 0, encoding), coded);
    case Encoding::YEnc:
      return DecodeRawYEnc(coded);
    case Encoding::BinHex:
    case Encoding::None:
      break;
  }
  Attachment result;
  result.encoding = encoding;
  result.problem = "no such block found";
  return result;
}

}  // namespace

const char* EncodingName(Encoding encoding) {
  switch (encoding) {
    case Encoding::Base64:
      return "base64";
    case Encoding::QuotedPrintable:
      return "quoted-printable";
    case Encoding::UU:
      return "uu";
    case Encoding::XX:
      return "xx";
    case Encoding::YEnc:
      return "yenc";
    case Encoding::BinHex:
      return "binhex";
    case Encoding::None:
      break;
  }
  return "none";
}

std::vector<Attachment> FindEncodedBlocks(std::string_view text) {
  return DecodeBlocks(FindBlocks(text), CodedText(text));
}

std::vector<Attachment> ExtractAttachments(std::string_view content, const std::string& contentName) {
  return Extract(CodedText(content), contentName);
}

std::vector<Attachment> TakeAttachments(std::string content, const std::string& contentName) {
  return Extract(CodedText(content), contentName);
}

std::vector<Attachment> TakeEncoded(std::string content, Encoding encoding) {
  const CodedText coded(content);
  std::vector<Block> blocks = FindBlocks(content);
  const auto isOther = [&](const Block& block) { return block.encoding != encoding; };
  blocks.erase(std::remove_if(blocks.begin(), blocks.end(), isOther), blocks.end());
  return blocks.empty() ? std::vector<Attachment>{DecodeLines(coded, encoding)} : DecodeBlocks(blocks, coded);
}

Attachment DecodeBase64Text(std::string_view text) { return DecodeBase64(text); }

Attachment DecodeQuotedPrintableText(std::string_view text) { return DecodeQuotedPrintable(text); }

Attachment DecodeUueLines(std::string_view text, Encoding encoding) {
  return DecodeUueBody(ReadUueBody(text, 0, encoding), text);
}

Attachment DecodeYEncBlock(std::string_view block) { return DecodeYEnc(block); }

Attachment DecodeBinHexText(std::string_view text) { return DecodeBinHex(text); }

bool IsBareBase64(std::string_view text) {
  constexpr std::size_t kMinLine = 40;
  text = Trim(text);
  std::size_t width = 0;
  std::size_t lineCount = 0;
  bool last = false;
  bool onlyHex = true;
  LineReader lines(text);
  while (lines.Next()) {
    const std::string_view line = TrimRight(lines.Line());
    const std::string_view digits = line.substr(0, line.find('='));
    if (last || !IsBase64Line(line, digits)) {
      return false;
    }
    width = lineCount++ == 0 ? line.size() : width;
    if (line.size() > width) {
      return false;
    }
    last = line.size() < width || digits.size() < line.size();
    onlyHex = onlyHex && std::all_of(digits.begin(), digits.end(), CEncodeDecode::IsHexChar);
  }
  // One line alone without padding may be any word, and lines of nothing but hex digits are a list of digests.
  return width >= kMinLine && (lineCount > 1 || last) && !onlyHex;
}

}  // namespace qs
