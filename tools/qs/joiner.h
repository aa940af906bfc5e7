/// \file
/// Puts the parts of yEnc multi-part posts together by their begin and end. One object is used by one thread.
#ifndef QS_JOINER_H
#define QS_JOINER_H

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "attachment.h"

namespace qs {

class PartJoiner {
 public:
  /// A whole file, or what is wrong with it in file.problem (its data is then not to be kept).
  struct Joined {
    Attachment file;
    std::vector<std::size_t> sources;  ///< where its parts came from, as told to Add
    std::size_t parts = 0;
  };

  /// Takes a piece whose part is set. Pieces of one name and whole size belong to one file.
  /// \param source tells the caller later where the piece came from.
  void Add(Attachment piece, std::size_t source);

  /// The files in the order in which their first parts came. A file is good when its undamaged parts follow one
  /// another from byte 1 to its size without gap or overlap, their numbers and totals agree with their count, and the
  /// CRC-32 of the whole file, where one is given, fits. The same part twice is taken once; a damaged copy of a part
  /// that is there undamaged is reported as a file of its own. Forgets everything.
  std::vector<Joined> Join();

 private:
  struct Piece {
    Attachment attachment;
    YEncPart part;
    std::size_t source;
  };
  using Pieces = std::vector<Piece>;
  using Key = std::pair<std::string, std::uint32_t>;

  static void JoinOne(Pieces pieces, std::vector<Joined>& files);
  static void SortAndDropCopies(Pieces& pieces);
  static std::string CheckRanges(const Pieces& pieces);
  static std::string CheckNumbers(const Pieces& pieces);
  static std::string CheckCrc(const Pieces& pieces, const std::string& data);
  static bool Concatenate(Pieces& pieces, std::string& data);
  static std::string Assemble(Pieces& pieces, Attachment& file);

  std::map<Key, std::size_t> _index;
  std::vector<Pieces> _files;
};

}  // namespace qs

#endif
