/// \file
/// What mapped files and files read at positions ask of the operating system (internal). Twins: posix/mapfileos.cpp,
/// win32/mapfileos.cpp.
///
/// Paths as in fileos.h. Handles are numbers of the system, kNoHandle for none; child processes do not inherit them. A
/// call that was interrupted by a signal is made again. Any thread may call. After a failure the last error is the
/// operating system's, or one of its numbers that says the same.
#ifndef QSBASE_SUPPORT_MAPFILEOS_H
#define QSBASE_SUPPORT_MAPFILEOS_H

#include <cstdint>
#include <string>

namespace qsbase::detail {

inline constexpr std::intptr_t kNoHandle = -1;

enum class FileUse {
  Mapped,     ///< for OsCreateMapping
  AtOffsets,  ///< for OsReadAt
};

/// Opens an existing regular file for reading, or for reading and writing, and tells its size in bytes. Anything else
/// is refused, at once: a pipe without a writer too. kNoHandle on failure; \p size is then unspecified.
std::intptr_t OsOpenExisting(const std::string& path, bool readOnly, FileUse use, std::uint64_t& size);

/// False if the system reports an error; the file is closed even so.
bool OsCloseFile(std::intptr_t file);

/// Makes what a view of the whole file is made from; fails for an empty one. kNoHandle on failure. It and the file may
/// be closed in either order.
std::intptr_t OsCreateMapping(std::intptr_t file, bool readOnly, std::uint64_t size);

/// False if the system reports an error; it is closed even so.
bool OsCloseMapping(std::intptr_t mapping);

/// The whole file as memory, shared with who else maps it; null on failure.
void* OsMapView(std::intptr_t mapping, bool readOnly, std::uint64_t size);

bool OsUnmapView(void* view, std::uint64_t size);

/// Reads at a position of a file that was opened AtOffsets until \p length bytes are there. False when the file ends
/// before, or on an error. Several threads may read one file at once.
bool OsReadAt(std::intptr_t file, std::uint64_t position, void* buffer, std::uint32_t length);

}  // namespace qsbase::detail

#endif
