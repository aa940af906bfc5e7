/// \file
/// The flag words and the piece of text that the library's own messages share (internal).
#ifndef QSBASE_LOG_LOGWORDS_H
#define QSBASE_LOG_LOGWORDS_H

#include <QSbase/errors.h>

#include <string>

namespace qsbase::detail {

inline constexpr unsigned int kLogError = 0x40000000;
inline constexpr unsigned int kLogWarning = 0x20000000;
inline constexpr unsigned int kLogInfo1 = 0x10000001;
inline constexpr unsigned int kLogInfo4 = 0x10000004;
inline constexpr unsigned int kLogInfo5 = 0x10000005;

/// The system's text for the last error.
inline std::string LastErrorText() { return QsErrorMessage(QsGetLastError()); }

}  // namespace qsbase::detail

#endif
