/// \file
/// The output stage behind the logging core: console and log file.
#ifndef QSBASE_LOG_LOGSTAGE_H
#define QSBASE_LOG_LOGSTAGE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qsbase::detail {

/// Writes the line to the console and to the log file, each when switched on. Any thread; lets no exception out.
/// Changes the line. A zero must stand at \p line[\p length]; it is replaced, too.
void OutputLogLine(char* line, std::size_t length) noexcept;
/// The same; takes the line over. Without memory it is lost.
void OutputLogLine(std::string&& line) noexcept;

/// True when the calling thread is inside the file stage, which holds its lock: the message is kept then and logged
/// the usual way once the lock is free. So what rotation logs meets callbacks and formatter outside the lock, and goes
/// to the new file.
bool DeferInFileStage(unsigned int flags, std::string_view text);

/// Moves the file \p current into \p backupDirectory (with its separator at the end) under the first free of the names
/// 2013-02-13_10_11_12.250_my_app.log, 2013-02-13_10_11_12.250_2_my_app.log and so on. Never replaces a file, also not
/// one that another process makes meanwhile. When the move fails the file stays where it is.
void MoveToBackup(const std::string& current, const std::string& backupDirectory, const std::string& time,
                  const std::string& logFileName);

}  // namespace qsbase::detail

#endif
