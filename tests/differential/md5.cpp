#include <QSbase/codec/hash.h>
#include <reference/md5.h>

#include <algorithm>

#include "agreement.h"
#include "levels.h"

namespace qsbase::differential {

namespace {

using Digest = unsigned char[16];

std::string_view View(const Digest& digest) { return {reinterpret_cast<const char*>(digest), 16}; }

void DigestInPieces(const char* data, std::size_t size, std::size_t piece, Digest& digest) {
  QsMD5 md5;
  md5.Init();
  for (std::size_t at = 0; at < size; at += piece) {
    const auto length = static_cast<unsigned int>(std::min(piece, size - at));
    md5.Update(reinterpret_cast<const unsigned char*>(data) + at, length);
  }
  md5.Final(digest);
}

}  // namespace

std::string CompareMd5(std::string_view data, std::size_t piece, std::size_t alignment) {
  const std::string expected = reference::Md5(data);
  Block block(data, alignment);
  return OnLevels([&] {
    Digest whole;
    QsMD5 md5;
    md5.Calculate(block.Data(), block.Size(), whole);
    Digest pieces;
    DigestInPieces(block.Data(), block.Size(), std::max<std::size_t>(piece, 1), pieces);
    std::string difference = Difference({0, expected}, {0, View(whole)});
    difference += Difference({0, expected}, {0, View(pieces)});
    return difference.empty() ? "" : Report("digest", difference, data, "pieces of " + std::to_string(piece));
  });
}

}  // namespace qsbase::differential
