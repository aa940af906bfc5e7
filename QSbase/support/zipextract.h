/// \file
/// Extraction of one entry (internal).
#ifndef QSBASE_SUPPORT_ZIPEXTRACT_H
#define QSBASE_SUPPORT_ZIPEXTRACT_H

#include <string>

#include <QSbase/support/zipentry.h>
#include <QSbase/support/zipio.h>

namespace qsbase::detail {

/// Where an entry goes to, and how; the parameters of QsExtractFile.
struct EntryTarget {
  const char* path = nullptr;
  char** buffer = nullptr;
  int* size = nullptr;
  int chunkSize = 0;
  bool flush = false;
  bool onlyFiles = false;  ///< a link that stands at the path gives way to the file; pipes and devices are not opened
};

/// Extracts the current entry, whose record has been read; the results are those of QsExtractFile.
int ExtractEntry(const OpenedArchive& archive, const ZipEntry& entry, const EntryTarget& target);

/// Opens an archive, or logs that it cannot be.
bool OpenArchive(UnzipArchive& archive, const std::string& path);

/// Closes an archive, or logs that it cannot be.
void CloseArchive(UnzipArchive& archive, const std::string& path);

}  // namespace qsbase::detail

#endif
