/// \file
/// The output folder: safe and free names, whole files only. One thread uses an object.
#ifndef QS_STORE_H
#define QS_STORE_H

#include <QSbase/support/uniquename.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <string>

namespace qs {

/// The longest name that any file system takes with a counter and the suffix of a temporary file behind it.
constexpr std::size_t kMaxFileName = 230;

/// A name from outside as a file name that stays in its folder: its last component, made compatible, cut to about that
/// many bytes, its extension kept. An empty name, "." and ".." give "unnamed".
std::string SafeFileName(const std::string& name, std::size_t longest = kMaxFileName);

/// Creates a folder and those above it unless it is there. \returns whether it is there now.
bool EnsureFolder(const std::string& folder);

class Store {
 public:
  explicit Store(const std::string& folder);

  /// Creates the folder and those above it. \returns what went wrong, empty for success.
  std::string Open();

  /// SafeFileName with what the folder's path leaves room for.
  std::string SafeName(const std::string& wanted) const;

  /// Stores the data under the wanted name, or under that name and a counter when it is taken: an existing file is
  /// never replaced, and no half file is ever seen. \param fileName the name it was stored under, without the folder.
  /// \returns what went wrong, empty for success.
  std::string Save(const std::string& wanted, const std::string& data, std::string& fileName);

  /// The same for all that is in an open stream, without taking it into memory.
  /// \param md5 of what was stored, in small hex digits. \param size bytes stored.
  std::string SaveStream(const std::string& wanted, std::FILE* stream, std::string& fileName, std::string& md5,
                         std::uint64_t& size);

  /// The path of a file in the folder, as the library takes it.
  std::string PathOf(const std::string& fileName) const;
  const std::string& Folder() const { return _folder; }

 private:
  std::string FreeName(const std::string& wanted);
  void RemoveTemporariesOf(const std::string& fileName) const;

  std::string _folder;
  std::size_t _longestName = kMaxFileName;
  CUniqueFilenameManager _names;
  std::optional<std::set<std::string>> _foreign;  // files that only look like left-over temporary ones
};

}  // namespace qs

#endif
