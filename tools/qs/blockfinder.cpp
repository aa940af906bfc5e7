#include "blockfinder.h"

#include <cstddef>
#include <utility>

#include "beginline.h"
#include "binhexblock.h"
#include "decodestatus.h"
#include "mimebody.h"
#include "text.h"
#include "yencblock.h"

namespace qs {
namespace {

constexpr std::string_view kBinHexMarker = "(This file must be converted with BinHex";

// Finds the blocks and decodes none, so that nothing of the text is needed once they are known.
class BlockFinder {
 public:
  explicit BlockFinder(std::string_view text) : _text(text), _reader(text) {}

  std::vector<Block> Find() {
    while (_reader.Next()) {
      const std::size_t start = _reader.Begin();
      if (!_reader.Line().empty()) {
        LookAt(_reader.Line());
      }
      if (_found.size() > kMostBlocks) {
        LeaveTheRest(start);
        break;
      }
    }
    return std::move(_found);
  }

 private:
  void LookAt(std::string_view line) {
    BeginLine begin;
    switch (line.front()) {
      case '=':
        if (StartsWith(line, "=ybegin ")) {
          YEnc();
        }
        break;
      case '(':
        if (StartsWith(line, kBinHexMarker)) {
          BinHex();
        }
        break;
      case 'b':
      case 'B':
        if (ParseBeginLine(line, begin)) {
          begin.base64 ? Base64(begin.name) : Uue(begin.name);
        }
        break;
      default:
        break;
    }
  }

  Block& Add(Encoding encoding, const std::string& name, std::size_t start, std::size_t end) {
    Block& block = _found.emplace_back();
    block.encoding = encoding;
    block.name = name;
    block.text = _text.substr(start, end - start);
    return block;
  }

  void LeaveTheRest(std::size_t start) {
    _found.pop_back();
    Add(Encoding::None, "", start, _text.size());
  }

  // The block ends behind its "=yend" line, or where the next block begins.
  void YEnc() {
    std::size_t end = _text.size();
    LineReader lines(_text);
    lines.Seek(_reader.End());
    while (lines.Next()) {
      if (StartsWith(lines.Line(), "=yend ")) {
        end = lines.End();
        break;
      }
      if (StartsWith(lines.Line(), "=ybegin ")) {
        end = lines.Begin();
        break;
      }
    }
    Add(Encoding::YEnc, "", _reader.Begin(), end);
    _reader.Seek(end);
  }

  void BinHex() {
    const std::size_t start = _reader.Begin();
    const std::size_t opening = _text.find(':', start);
    const std::size_t closing = opening == std::string_view::npos ? opening : _text.find(':', opening + 1);
    const std::size_t end = closing == std::string_view::npos ? _text.size() : closing + 1;
    Add(Encoding::BinHex, "", start, end);
    const std::size_t feed = _text.find('\n', end);
    _reader.Seek(feed == std::string_view::npos ? _text.size() : feed + 1);
  }

  void Base64(const std::string& name) {
    const std::size_t start = _reader.End();
    std::size_t end = _text.size();
    bool closed = false;
    LineReader lines(_text);
    lines.Seek(start);
    while (!closed && lines.Next()) {
      closed = TrimRight(lines.Line()) == "====";
      end = closed ? lines.Begin() : lines.End();
    }
    Add(Encoding::Base64, name, start, end).closed = closed;
    _reader.Seek(closed ? lines.End() : _text.size());
  }

  // A line of prose may begin with "begin 100 ..." too: what follows must look like data, or be the empty file's.
  void Uue(const std::string& name) {
    if (!LooksLikeUue(_text.substr(_reader.End()))) {
      return;
    }
    UueBody body = ReadUueBody(_text, _reader.End());
    if (body.encoding == Encoding::None && body.lines.empty() && body.terminated && body.closed) {
      body.encoding = Encoding::UU;
    }
    if (body.encoding == Encoding::None) {
      return;
    }
    Block& block = Add(body.encoding, name, _reader.End(), body.end);
    block.body = body;
    block.closed = body.closed && body.terminated;
    _reader.Seek(body.end);
  }

  std::string_view _text;
  LineReader _reader;
  std::vector<Block> _found;
};

Attachment DecodeData(const Block& block, const CodedText& coded) {
  switch (block.encoding) {
    case Encoding::YEnc:
      return DecodeYEnc(coded.Part(block.text));
    case Encoding::BinHex:
      return DecodeBinHex(block.text);
    case Encoding::Base64:
      return DecodeBase64(coded.Part(block.text));
    case Encoding::None:
      return RestNotLookedAt();
    default:
      return DecodeUueBody(block.body, coded);
  }
}

Attachment DecodeBlock(const Block& block, const CodedText& coded) {
  Attachment attachment = DecodeData(block, coded);
  if (!block.name.empty()) {
    attachment.name = block.name;
  }
  if (!block.closed) {
    Report(attachment, "the end is missing");
  }
  return attachment;
}

}  // namespace

Attachment RestNotLookedAt() {
  Attachment rest;
  Report(rest, "more parts or attachments than are looked at");
  return rest;
}

std::vector<Block> FindBlocks(std::string_view text) { return BlockFinder(text).Find(); }

std::vector<Attachment> DecodeBlocks(const std::vector<Block>& blocks, const CodedText& coded) {
  if (blocks.size() == 1) {
    return {DecodeBlock(blocks.front(), coded)};
  }
  std::vector<Attachment> attachments;
  attachments.reserve(blocks.size());
  for (const Block& block : blocks) {
    attachments.push_back(DecodeBlock(block, CodedText(coded.View())));
  }
  return attachments;
}

}  // namespace qs
