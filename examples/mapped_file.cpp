// A table of records written in blocks, looked through as memory, and read at an offset.
#include <QSbase/qsbase.h>

#include <algorithm>
#include <cstdio>

namespace {

struct Record {
  unsigned number;
  unsigned square;
};

bool WriteTable(const std::string& path, unsigned count) {
  QsWriteBufferedFile file(path.c_str(), 4096, 0);
  for (unsigned i = 0; i < count; ++i) {
    const Record record = {i, i * i};
    if (file.Write(&record, sizeof record, 1) != 1) {
      return false;
    }
  }
  return file.Close() == 0;  // writes the last, partial block
}

unsigned FirstSquareAbove(const std::string& path, unsigned limit) {
  QsMapFile file;
  file.Open(path, true);
  const auto* const first = static_cast<const Record*>(file.Ptr());
  const auto* const last = first + file.Size() / sizeof(Record);
  const auto above = [](unsigned value, const Record& record) { return value < record.square; };
  return std::upper_bound(first, last, limit, above)->number;
}

}  // namespace

int main() {
  const std::string path = ConstructPath(QsGetSysTempPath(), strprintf("qsbase-table-%d", QsGetCurrentProcessId()));
  const QsFileDeleter deleter(path);
  try {
    if (!WriteTable(path, 1000)) {
      return 1;
    }
    std::printf("first square above 50000: of %u\n", FirstSquareAbove(path, 50000));

    QsSharedIOFile file;  // any number of threads may read at once
    file.Open(path, true);
    Record record{};
    const bool read = file.Read(500 * sizeof record, reinterpret_cast<char*>(&record), sizeof record);
    std::printf("record %u: %u, past the end: %s\n", record.number, read ? record.square : 0,
                file.Read(1000 * sizeof record, reinterpret_cast<char*>(&record), 1) ? "yes" : "no");
  } catch (const ExBase& error) {
    std::printf("%s\n", error.GetErrorText().c_str());
    return 1;
  }
}
