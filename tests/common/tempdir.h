/// \file
/// A folder of its own for one test, removed with everything in it at the end.
#ifndef QSBASE_TESTS_COMMON_TEMPDIR_H
#define QSBASE_TESTS_COMMON_TEMPDIR_H

#ifdef _WIN32
#include <direct.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

namespace qsbase::testing {

/// Paths are bytes, in the ANSI code page on Windows, with "/" between their parts on every system. (There
/// std::filesystem would take them for UTF-8.)
class TempDir {
 public:
  TempDir() {
    const std::string parent = std::filesystem::temp_directory_path().generic_string();
    const std::string prefix = parent.substr(0, parent.find_last_not_of('/') + 1) + "/qsbase-test-";
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt) {
      _path = prefix + std::to_string(random());
      if (std::filesystem::create_directory(_path)) {
        return;
      }
    }
    throw std::runtime_error("no temporary folder");
  }

  ~TempDir() {
    std::error_code ignored;
    for (std::filesystem::recursive_directory_iterator it(_path, ignored), end; it != end; it.increment(ignored)) {
      MakeRemovable(*it);
    }
    std::filesystem::remove_all(_path, ignored);
  }

  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// The folder, without a trailing separator.
  std::string Path() const { return _path; }

  /// A path inside the folder.
  std::string operator/(const std::string& name) const { return _path + "/" + name; }

  /// Creates a file (and the folders above it) behind the library's back.
  std::string Write(const std::string& name, const std::string& content) const {
    for (std::size_t end = name.find('/'); end != std::string::npos; end = name.find('/', end + 1)) {
      MakeFolder(*this / name.substr(0, end));
    }
    const std::string path = *this / name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  /// Reads a file behind the library's back.
  static std::string Read(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }

 private:
  static void MakeFolder(const std::string& path) {
#ifdef _WIN32
    (void)_mkdir(path.c_str());
#else
    std::filesystem::create_directory(path);
#endif
  }

  // A folder that is closed cannot be emptied; on Windows no read-only file can be removed either.
  static void MakeRemovable(const std::filesystem::directory_entry& entry) {
    std::error_code ignored;
    if (entry.is_symlink(ignored)) {
      return;
    }
#ifdef _WIN32
    const bool closed = true;
#else
    const bool closed = entry.is_directory(ignored);
#endif
    if (closed) {
      std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                   ignored);
    }
  }

  std::string _path;
};

}  // namespace qsbase::testing

#endif
