/// \file
/// A folder of its own for one test, removed with everything in it at the end.
#ifndef QSBASE_TESTS_COMMON_TEMPDIR_H
#define QSBASE_TESTS_COMMON_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

namespace qsbase::testing {

class TempDir {
 public:
  TempDir() {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
      _path = std::filesystem::temp_directory_path() / ("qsbase-test-" + std::to_string(random()));
      if (std::filesystem::create_directory(_path)) {
        return;
      }
    }
    throw std::runtime_error("no temporary folder");
  }

  ~TempDir() {
    std::error_code ignored;
    for (std::filesystem::recursive_directory_iterator it(_path, ignored), end; it != end; it.increment(ignored)) {
      std::error_code unreadable;
      if (it->is_directory(unreadable) && !it->is_symlink(unreadable)) {
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                     unreadable);
      }
    }
    std::filesystem::remove_all(_path, ignored);
  }

  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// The folder, without a trailing separator.
  std::string Path() const { return _path.string(); }

  /// A path inside the folder.
  std::string operator/(const std::string& name) const { return (_path / name).string(); }

  /// Creates a file (and the folders above it) behind the library's back.
  std::string Write(const std::string& name, const std::string& content) const {
    const std::filesystem::path path = _path / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }

  /// Reads a file behind the library's back.
  static std::string Read(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

 private:
  std::filesystem::path _path;
};

}  // namespace qsbase::testing

#endif
