#include "joiner.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <tuple>

#include "text.h"

namespace qs {
namespace {

std::string Range(std::uint64_t first, std::uint64_t last) {
  return "bytes " + std::to_string(first) + " to " + std::to_string(last);
}

}  // namespace

void PartJoiner::Add(Attachment piece, std::size_t source) {
  const Key key(piece.name, piece.part->size);
  const auto [entry, isNew] = _index.emplace(key, _files.size());
  if (isNew) {
    _files.emplace_back();
  }
  const YEncPart part = *piece.part;
  _files[entry->second].push_back({std::move(piece), part, source});
}

std::vector<PartJoiner::Joined> PartJoiner::Join() {
  std::vector<Joined> files;
  for (Pieces& pieces : _files) {
    JoinOne(std::move(pieces), files);
  }
  _files.clear();
  _index.clear();
  return files;
}

void PartJoiner::JoinOne(Pieces pieces, std::vector<Joined>& files) {
  const auto isGood = [](const Piece& piece) { return piece.attachment.problem.empty(); };
  const auto firstBad = std::stable_partition(pieces.begin(), pieces.end(), isGood);
  Pieces bad(std::make_move_iterator(firstBad), std::make_move_iterator(pieces.end()));
  pieces.erase(firstBad, pieces.end());

  Joined joined;
  joined.file.encoding = Encoding::YEnc;
  joined.file.name = pieces.empty() ? bad.front().attachment.name : pieces.front().attachment.name;
  for (const Piece& piece : pieces) {
    joined.sources.push_back(piece.source);
  }
  joined.file.problem = Assemble(pieces, joined.file);
  joined.parts = pieces.size();

  const bool complete = joined.file.problem.empty();
  if (!complete && !bad.empty()) {
    const Piece& first = bad.front();
    joined.file.problem = "part " + std::to_string(first.part.number) + ": " + first.attachment.problem;
  }
  std::vector<Joined> copies;
  for (Piece& piece : bad) {
    if (complete) {
      piece.attachment.problem += "; another copy of the part was used";
      copies.push_back({std::move(piece.attachment), {piece.source}, 1});
    } else {
      joined.sources.push_back(piece.source);
    }
  }
  files.push_back(std::move(joined));
  std::move(copies.begin(), copies.end(), std::back_inserter(files));
}

// The same part from two sources counts once.
void PartJoiner::SortAndDropCopies(Pieces& pieces) {
  std::stable_sort(pieces.begin(), pieces.end(), [](const Piece& a, const Piece& b) {
    return std::tie(a.part.begin, a.part.end) < std::tie(b.part.begin, b.part.end);
  });
  const auto isCopy = [](const Piece& a, const Piece& b) {
    return a.part.begin == b.part.begin && a.attachment.data == b.attachment.data;
  };
  pieces.erase(std::unique(pieces.begin(), pieces.end(), isCopy), pieces.end());
}

// The sorted parts must follow one another from byte 1 to the size.
std::string PartJoiner::CheckRanges(const Pieces& pieces) {
  std::uint64_t next = 1;
  for (const Piece& piece : pieces) {
    if (piece.part.begin > next) {
      return Range(next, piece.part.begin - 1) + " are missing";
    }
    if (piece.part.begin < next) {
      return "parts overlap at " + Range(piece.part.begin, std::min<std::uint64_t>(piece.part.end, next - 1));
    }
    next = std::uint64_t{piece.part.end} + 1;
  }
  const std::uint64_t size = pieces.front().part.size;
  return next == size + 1 ? "" : Range(next, size) + " are missing";
}

std::string PartJoiner::CheckNumbers(const Pieces& pieces) {
  int number = 0;
  for (const Piece& piece : pieces) {
    const YEncPart& part = piece.part;
    if (part.number != ++number) {
      return "part " + std::to_string(part.number) + " stands where part " + std::to_string(number) + " belongs";
    }
    if (part.total >= 0 && static_cast<std::size_t>(part.total) != pieces.size()) {
      return "part " + std::to_string(part.number) + " announces " + std::to_string(part.total) + " parts, there are " +
             std::to_string(pieces.size());
    }
  }
  return {};
}

// Every part that gives the CRC of the whole file must give the one that the data has.
std::string PartJoiner::CheckCrc(const Pieces& pieces, const std::string& data) {
  const std::string computed = Crc32Hex(data);
  for (const Piece& piece : pieces) {
    if (!piece.part.fileCrc.empty() && piece.part.fileCrc != computed) {
      return "CRC-32 mismatch of the whole file (" + Printable(piece.part.fileCrc) + " announced)";
    }
  }
  return {};
}

// Moves the data of the parts to the file's. False when there is no memory for it: a 32-bit process has little.
bool PartJoiner::Concatenate(Pieces& pieces, std::string& data) {
  std::size_t size = 0;
  for (const Piece& piece : pieces) {
    size += piece.attachment.data.size();
  }
  try {
    data.reserve(size);
  } catch (const std::exception&) {
    return false;
  }
  for (Piece& piece : pieces) {
    data += piece.attachment.data;
    std::string().swap(piece.attachment.data);
  }
  return true;
}

// Puts the parts together as the file's data; gives what is wrong, empty when nothing is.
std::string PartJoiner::Assemble(Pieces& pieces, Attachment& file) {
  SortAndDropCopies(pieces);
  if (pieces.empty()) {
    return "no undamaged part";
  }
  std::string problem = CheckRanges(pieces);
  if (problem.empty()) {
    problem = CheckNumbers(pieces);
  }
  if (!problem.empty()) {
    return problem;
  }
  if (!Concatenate(pieces, file.data)) {
    return "not enough memory to put the parts together";
  }
  return CheckCrc(pieces, file.data);
}

}  // namespace qs
