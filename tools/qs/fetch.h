/// \file
/// qs fetch: transfers URLs, takes the attachments out of what comes, stores them and tells what became of each.
#ifndef QS_FETCH_H
#define QS_FETCH_H

#include <cstdint>
#include <string>
#include <vector>

#include "table.h"
#include "transfer.h"

namespace qs {

constexpr int kExitGood = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct FetchOptions {
  std::vector<std::string> urls;
  std::string outputFolder = ".";
  TransferOptions transfer;
  bool resume = false;
  bool quiet = false;
  std::uint64_t memoryLimit = std::uint64_t{1} << 30;  ///< longer content is stored as it came, unlooked at
};

struct LogOptions {
  std::string folder;  ///< empty: no log file
  int level = 0;
  bool quiet = false;  ///< no log lines on the console
};

/// Switches the log on, as the library takes it: at most once in a process.
/// \returns what went wrong, empty for success.
std::string StartLog(const LogOptions& options);

/// Fetches and stores everything. One outcome per attachment, per content stored as it came, per failed URL; files
/// joined from several parts come last. Stops at Ctrl-C with what is done by then.
/// \param problem set when nothing can be stored at all.
std::vector<Outcome> FetchAll(const FetchOptions& options, std::string& problem);

/// FetchAll, the table on standard output, and the exit code.
int RunFetch(const FetchOptions& options);

/// Writes "qs: " and the text to standard error.
void PrintError(const std::string& text);

/// The same, and the exit code for it.
int Fail(const std::string& problem);

/// Flushes standard output. False if anything could not be written to it, which is printed as an error.
bool FlushOutput();

}  // namespace qs

#endif
