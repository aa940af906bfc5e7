/// \file
/// Where GUIDs come from (internal). Twins: posix/guidos.cpp, win32/guidos.cpp.
#ifndef QSBASE_TEXT_GUIDOS_H
#define QSBASE_TEXT_GUIDOS_H

namespace qsbase::detail {

/// Fills \p bytes with a new GUID as it lies in memory. False when the system gives none; \p bytes is then undefined.
/// Any thread; may change the last-error code.
bool CreateGuidBytes(unsigned char (&bytes)[16]) noexcept;

}  // namespace qsbase::detail

#endif
