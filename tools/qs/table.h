/// \file
/// What became of each file, and the table of it. Thread-safe: no state.
#ifndef QS_TABLE_H
#define QS_TABLE_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace qs {

struct Outcome {
  std::string file;            ///< the name it was stored under, or would have been; the URL when nothing came
  std::string encoding = "-";  ///< as EncodingName says it
  std::string bytes = "-";
  std::string crc32 = "-";
  std::string md5 = "-";
  std::string verdict;
  bool good = false;
  std::vector<std::size_t> sources;  ///< the URLs it came from, by their index
};

/// Sets bytes, crc32 and md5 from the data.
void SetFigures(Outcome& outcome, const std::string& data);

/// Writes the table with its head line; nothing when there is no outcome.
void PrintTable(std::FILE* stream, const std::vector<Outcome>& outcomes);

}  // namespace qs

#endif
