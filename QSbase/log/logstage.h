/// \file
/// The output stage behind the logging core: console and log file.
#ifndef QSBASE_LOG_LOGSTAGE_H
#define QSBASE_LOG_LOGSTAGE_H

#include <string>

namespace qsbase::detail {

/// Writes the line to the console and to the log file, each when switched on. Any thread; lets no exception out. Takes
/// the line over and changes it.
void OutputLogLine(std::string&& line) noexcept;

/// True when the calling thread is inside the file stage, which holds its lock: the message is kept then and logged
/// the usual way once the lock is free. So what rotation logs meets callbacks and formatter outside the lock, and goes
/// to the new file.
bool DeferInFileStage(unsigned int flags, const std::string& text);
bool DeferInFileStage(unsigned int flags, const char* text);

}  // namespace qsbase::detail

#endif
