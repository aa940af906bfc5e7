/// \file
/// What the log file asks of the operating system. Twins: posix/logfileos.cpp, win32/logfileos.cpp.
#ifndef QSBASE_LOG_LOGFILEOS_H
#define QSBASE_LOG_LOGFILEOS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace qsbase::detail {

/// The length in bytes of the open file behind \p stream, whoever wrote it; what the stream still buffers is not in
/// it. -1 on failure. Any thread; may change the last-error code.
std::int64_t OsStreamFileSize(std::FILE* stream) noexcept;

/// How many bytes the C library writes for a "\n" into a file that was opened as text. Any thread.
std::size_t OsLineFeedLength() noexcept;

}  // namespace qsbase::detail

#endif
