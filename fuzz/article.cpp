// The reader of mail and news articles behind "qs fetch", from the text to the name of the file.
#include <QSbase/codec/encodedecode.h>
#include <QSbase/support/paths.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "article.h"
#include "attachment.h"
#include "blockfinder.h"
#include "bounds.h"
#include "choices.h"
#include "joiner.h"
#include "store.h"
#include "target.h"
#include "text.h"

using namespace qsbase;

namespace {

// ---- parts and blocks lie in the text ----

struct Place {
  std::size_t begin;
  std::size_t end;
};

std::optional<Place> PlaceOf(std::string_view piece, std::string_view text) {
  const std::less_equal<const char*> notBehind;
  if (piece.data() == nullptr) {
    return Place{0, 0};
  }
  if (!notBehind(text.data(), piece.data()) || !notBehind(piece.data() + piece.size(), text.data() + text.size())) {
    return std::nullopt;
  }
  const auto begin = static_cast<std::size_t>(piece.data() - text.data());
  return Place{begin, begin + piece.size()};
}

/// Pieces follow one another, and none is looked at twice.
class Order {
 public:
  explicit Order(std::string_view text) : _text(text) {}

  void Demand(std::string_view piece, const char* what) {
    if (piece.empty()) {
      return;
    }
    const std::optional<Place> place = PlaceOf(piece, _text);
    fuzz::Demand(place ? "" : std::string(what) + " lies outside of the text");
    fuzz::Demand(place->begin >= _end ? "" : std::string(what) + " overlaps the one before");
    _end = place->end;
  }

 private:
  std::string_view _text;
  std::size_t _end = 0;
};

void DemandParts(const std::string& text) {
  const std::optional<qs::Article> article = qs::ParseArticle(text);
  if (!article) {
    return;
  }
  fuzz::Demand(!article->parts.empty() && article->parts.size() <= 1 + text.size() ? "" : "the number of parts");
  Order order(text);
  for (const qs::ArticlePart& part : article->parts) {
    order.Demand(part.body, "a part");
    fuzz::Demand(part.fileName.size() <= 3 * text.size() ? "" : "a name longer than its header");
  }
}

void DemandBlocks(const std::string& text) {
  Order order(text);
  for (const qs::Block& block : qs::FindBlocks(text)) {
    order.Demand(block.text, "a block");
    fuzz::Demand(PlaceOf(block.body.lines, text) ? "" : "lines lie outside of the text");
    fuzz::Demand(block.encoding != qs::Encoding::None ? "" : "a block without an encoding");
  }
}

// ---- attachments ----

/// BinHex writes a run of up to 255 bytes as three, coded as four characters. All else gives less than it takes, but
/// for the bytes that a UU line may lack.
std::size_t MostBytes(const qs::Attachment& attachment, const std::string& text) {
  return attachment.encoding == qs::Encoding::BinHex ? 64 * text.size() : text.size() + 64;
}

void DemandSafe(const std::string& name) {
  const std::string safe = qs::SafeFileName(name);
  const bool isOne = safe.find_first_of("/\\:*?\"<>|") == std::string::npos;
  const bool isClean =
      std::none_of(safe.begin(), safe.end(), [](char c) { return static_cast<unsigned char>(c) < 32; });
  fuzz::Demand(!safe.empty() && safe != "." && safe != ".." && isOne && isClean ? "" : "an unsafe name: " + safe);
  fuzz::Demand(safe.back() != '.' && safe.back() != ' ' ? "" : "a name with an end that is cut: " + safe);
  fuzz::Demand(safe.size() <= qs::kMaxFileName + 2 ? "" : "a name that is too long: " + safe);
  fuzz::DemandEqual(safe, QsMakeCompatibleFilename(safe), "a safe name");
  fuzz::DemandEqual(safe, ExtractFileName("folder/" + safe), "a name within its folder");
}

bool IsSame(const qs::Attachment& a, const qs::Attachment& b) {
  return a.encoding == b.encoding && a.name == b.name && a.problem == b.problem && a.data == b.data &&
         a.part.has_value() == b.part.has_value();
}

std::vector<qs::Attachment> DemandAttachments(const std::string& text, const std::string& contentName) {
  std::vector<qs::Attachment> found = qs::ExtractAttachments(text, contentName);
  const std::vector<qs::Attachment> taken = qs::TakeAttachments(text, contentName);
  fuzz::Demand(std::equal(found.begin(), found.end(), taken.begin(), taken.end(), &IsSame)
                   ? ""
                   : "other attachments when the text is used up");
  std::size_t sum = 0;
  bool hasBinHex = false;
  for (const qs::Attachment& attachment : found) {
    fuzz::Demand(attachment.data.size() <= MostBytes(attachment, text) ? "" : "more data than the text holds");
    hasBinHex = hasBinHex || attachment.encoding == qs::Encoding::BinHex;
    sum += attachment.data.size();
    DemandSafe(attachment.name);
  }
  fuzz::Demand(sum <= (hasBinHex ? 64 : 1) * text.size() + 64 * found.size() ? "" : "the sum of the data");
  return found;
}

void TakeEach(const std::string& text) {
  for (const qs::Encoding encoding : {qs::Encoding::Base64, qs::Encoding::QuotedPrintable, qs::Encoding::UU,
                                      qs::Encoding::XX, qs::Encoding::YEnc, qs::Encoding::BinHex}) {
    for (const qs::Attachment& attachment : qs::TakeEncoded(text, encoding)) {
      fuzz::Demand(attachment.encoding == encoding ? "" : "another encoding than was asked for");
      fuzz::Demand(attachment.data.size() <= MostBytes(attachment, text) ? "" : "more data than the text holds");
    }
  }
}

// ---- joining ----

void DemandJoined(const std::vector<qs::PartJoiner::Joined>& files, std::size_t most) {
  for (const qs::PartJoiner::Joined& joined : files) {
    fuzz::Demand(joined.file.data.size() <= most ? "" : "a file longer than its parts");
    fuzz::Demand(!joined.sources.empty() ? "" : "a file from nowhere");
    DemandSafe(joined.file.name);
  }
}

/// Whatever parts the text has.
void JoinFound(std::vector<qs::Attachment> found, fuzz::Choices choices) {
  choices.Shuffle(found);
  qs::PartJoiner joiner;
  std::size_t most = 0;
  std::size_t count = 0;
  for (qs::Attachment& attachment : found) {
    if (attachment.part) {
      most += attachment.data.size();
      joiner.Add(std::move(attachment), count++);
    }
  }
  const std::vector<qs::PartJoiner::Joined> files = joiner.Join();
  fuzz::Demand(files.size() <= count ? "" : "more files than parts");
  DemandJoined(files, most);
}

/// The text as posts of several parts.
std::vector<std::string> PostInParts(const std::string& text, const std::vector<std::string_view>& pieces) {
  std::vector<std::string> posts;
  std::uint32_t begin = 1;
  for (const std::string_view piece : pieces) {
    CYEncData header;
    header.name = "whole.bin";
    header.lineLength = 128;
    header.part = static_cast<int>(posts.size() + 1);
    header.total = static_cast<int>(pieces.size());
    header.begin = begin;
    header.end = begin + static_cast<std::uint32_t>(piece.size()) - 1;
    header.size = static_cast<std::uint32_t>(text.size());
    constexpr int kHeader = 0x1000;
    CEncodeDecode::EncodeYEnc(std::string(piece), posts.emplace_back(), header, kHeader);
    begin = header.end + 1;
  }
  return posts;
}

/// Posts in any order, some twice and perhaps one missing: the whole file, or a word about what is missing.
void PostAndJoin(const std::string& text, fuzz::Choices choices) {
  const std::vector<std::string_view> pieces = choices.Pieces(text, 1 + text.size() / 2);
  std::vector<std::string> posts = PostInParts(text, pieces);
  if (posts.size() < 2) {
    return;
  }
  posts.push_back(posts[choices.Below(posts.size())]);
  choices.Shuffle(posts);
  const std::string lost = choices.Below(3) == 0 ? posts.back() : "";
  posts.erase(std::remove(posts.begin(), posts.end(), lost), posts.end());
  qs::PartJoiner joiner;
  for (std::size_t i = 0; i < posts.size(); ++i) {
    std::vector<qs::Attachment> found = qs::ExtractAttachments(posts[i], "post.txt");
    const bool isPart = found.size() == 1 && found[0].part && found[0].problem.empty();
    fuzz::Demand(isPart ? "" : "a part does not come back: " + (found.empty() ? "" : found[0].problem));
    joiner.Add(std::move(found[0]), i);
  }
  const std::vector<qs::PartJoiner::Joined> files = joiner.Join();
  fuzz::Demand(files.size() == 1 && files[0].file.name == "whole.bin" ? "" : "the file of the parts");
  if (lost.empty()) {
    fuzz::Demand(files[0].file.problem);
    fuzz::DemandEqual(text, files[0].file.data, "a file in parts");
  } else {
    fuzz::Demand(!files[0].file.problem.empty() ? "" : "nobody missed a part");
  }
}

// ---- NNTP ----

/// A block as a server sends it is what it was before.
void WrapAndUnwrap(const std::string& text) {
  std::string block = "220 1 <a@b>\r\n";
  std::string expected;
  qs::LineReader lines(text);
  while (lines.Next()) {
    const std::string line = text.substr(lines.Begin(), lines.End() - lines.Begin());
    const std::string whole = line.back() == '\n' ? line : line + "\n";
    block += (whole.front() == '.' ? "." : "") + whole;
    expected += whole;
  }
  std::string plain;
  fuzz::Demand(qs::UnwrapNntp(block + ".\r\nbehind", plain) ? "" : "no answer of a news server");
  fuzz::DemandEqual(expected, plain, "an article from a news server");
}

// ---- bounds ----

/// The text once more at most (a part is decoded beside it), and what was found.
std::size_t SizeOf(const std::vector<qs::Attachment>& attachments) {
  std::size_t size = 0;
  for (const qs::Attachment& attachment : attachments) {
    size += attachment.data.capacity() + attachment.name.capacity() + attachment.problem.capacity();
  }
  return size;
}

/// For 10,000 parts and as many attachments; vectors that grow hold the half of it once more.
constexpr std::size_t kForPieces =
    std::size_t{3} * 10001 * (sizeof(qs::ArticlePart) + sizeof(qs::Block) + 2 * sizeof(qs::Attachment));

void DemandBounds(std::string_view text) {
  fuzz::DemandBounds("ParseArticle", text, [](const std::string& article) {
    qs::ParseArticle(article);
    return kForPieces + 3 * article.size();
  });
  fuzz::DemandBounds("FindBlocks", text, [](const std::string& blocks) {
    qs::FindBlocks(blocks);
    return kForPieces + blocks.size();
  });
  fuzz::DemandBounds("ExtractAttachments", text, [](const std::string& article) {
    return kForPieces + 2 * article.size() + 2 * SizeOf(qs::ExtractAttachments(article, "post.txt"));
  });
  fuzz::DemandBounds("SafeFileName", text,
                     [](const std::string& name) { return 3 * name.size() + qs::SafeFileName(name).size(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  static constexpr const char* kNames[] = {"post.txt", "photo.png.b64", "a.uue", "b.xx", "note.qp", ""};
  const std::string contentName = kNames[input.Parameter() % 6];
  const fuzz::Choices choices(input.Parameter());
  const std::string text(input.Rest());
  DemandParts(text);
  DemandBlocks(text);
  JoinFound(DemandAttachments(text, contentName), choices);
  TakeEach(text);
  DemandSafe(text.substr(0, 1000));
  PostAndJoin(text.substr(0, 2000), choices);
  WrapAndUnwrap(text);
  DemandBounds(text);
  return 0;
}
