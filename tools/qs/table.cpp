#include "table.h"

#include <QSbase/codec/hash.h>

#include <algorithm>
#include <array>
#include <limits>

#include "attachment.h"
#include "text.h"

namespace qs {
namespace {

constexpr std::size_t kColumns = 6;
using Row = std::array<std::string, kColumns>;

Row RowOf(const Outcome& outcome) {
  return {outcome.file, outcome.encoding, outcome.bytes, outcome.crc32, outcome.md5, outcome.verdict};
}

// Characters of a UTF-8 text: every byte that does not continue one.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void PrintRow(std::FILE* stream, const Row& row, const std::array<std::size_t, kColumns>& widths) {
  std::string line;
  for (std::size_t column = 0; column < kColumns; ++column) {
    const std::string padding(widths[column] - Width(row[column]), ' ');
    const bool number = column == 2;
    line += number ? padding + row[column] : row[column] + padding;
    line += "  ";
  }
  std::fprintf(stream, "%s\n", std::string(TrimRight(line)).c_str());
}

}  // namespace

void SetFigures(Outcome& outcome, const std::string& data) {
  outcome.bytes = std::to_string(data.size());
  if (data.size() > std::numeric_limits<unsigned int>::max()) {
    return;
  }
  outcome.crc32 = Crc32Hex(data);
  outcome.md5 = ToLowerAscii(QsCalcMD5(data.data(), static_cast<unsigned int>(data.size())));
}

void PrintTable(std::FILE* stream, const std::vector<Outcome>& outcomes) {
  if (outcomes.empty()) {
    return;
  }
  std::vector<Row> rows = {{"File", "Encoding", "Bytes", "CRC-32", "MD5", "Verdict"}};
  std::transform(outcomes.begin(), outcomes.end(), std::back_inserter(rows), RowOf);
  std::array<std::size_t, kColumns> widths{};
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < kColumns; ++column) {
      widths[column] = std::max(widths[column], Width(row[column]));
    }
  }
  for (const Row& row : rows) {
    PrintRow(stream, row, widths);
  }
  std::fflush(stream);
}

}  // namespace qs
