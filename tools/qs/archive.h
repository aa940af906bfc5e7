/// \file
/// qs zip and qs unzip: write, list and extract zip archives.
#ifndef QS_ARCHIVE_H
#define QS_ARCHIVE_H

#include <string>
#include <vector>

namespace qs {

struct ZipOptions {
  std::string archive;
  std::vector<std::string> inputs;  ///< files and folders
  bool quiet = false;
};

struct UnzipOptions {
  std::string archive;
  std::string outputFolder = ".";
  bool list = false;
  bool quiet = false;
};

/// Writes the archive beside its name and puts it in place when it is whole. Call CatchInterrupts first.
/// \returns the program's exit code.
int RunZip(const ZipOptions& options);

/// Extracts everything, or lists it on standard output. Call CatchInterrupts first. \returns the program's exit code.
int RunUnzip(const UnzipOptions& options);

}  // namespace qs

#endif
