/// \file
/// A folder of its own for one test, removed with everything in it at the end.
#ifndef QSBASE_TESTS_COMMON_TEMPDIR_H
#define QSBASE_TESTS_COMMON_TEMPDIR_H

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#include <sys/stat.h>
#include <wchar.h>
#endif

#include <cstdint>
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
#ifdef _WIN32
    RemoveTree(std::filesystem::path(Unlimited("")).wstring());
#else
    std::error_code ignored;
    for (std::filesystem::recursive_directory_iterator it(_path, ignored), end; it != end; it.increment(ignored)) {
      OpenIfDirectory(*it);
    }
    std::filesystem::remove_all(_path, ignored);
#endif
  }

  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// The folder, without a trailing separator.
  std::string Path() const { return _path; }

  /// A path inside the folder that the system takes however long it is; with an empty name the folder.
  std::string Unlimited(const std::string& name) const {
#ifdef _WIN32
    return "\\\\?\\" + std::filesystem::path(name.empty() ? _path : *this / name).make_preferred().string();
#else
    return name.empty() ? _path : *this / name;
#endif
  }

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

#ifdef _WIN32
  // std::filesystem ends at 259 characters here, and removes nothing that is read-only.
  static void RemoveTree(const std::wstring& dir) {
    constexpr unsigned kLink = 0x400;
    _wfinddata64_t found;
    const std::intptr_t search = _wfindfirst64((dir + L"\\*").c_str(), &found);
    for (bool more = search != -1; more; more = _wfindnext64(search, &found) == 0) {
      const std::wstring name = found.name;
      const std::wstring path = dir + L"\\" + name;
      if (name == L"." || name == L"..") {
        continue;
      }
      (void)_wchmod(path.c_str(), _S_IREAD | _S_IWRITE);
      if ((found.attrib & (kLink | _A_SUBDIR)) == _A_SUBDIR) {
        RemoveTree(path);
      } else if (_wunlink(path.c_str()) != 0) {
        (void)_wrmdir(path.c_str());
      }
    }
    (void)_findclose(search);
    (void)_wrmdir(dir.c_str());
  }
#else
  // What is closed cannot be emptied.
  static void OpenIfDirectory(const std::filesystem::directory_entry& entry) {
    std::error_code ignored;
    if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
      std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                   ignored);
    }
  }
#endif

  std::string _path;
};

/// Makes a folder the current one for one test.
class ScopedCurrentDirectory {
 public:
  explicit ScopedCurrentDirectory(const std::string& dir) : _before(std::filesystem::current_path()) {
    std::filesystem::current_path(dir);
  }
  ~ScopedCurrentDirectory() { std::filesystem::current_path(_before); }
  ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;

 private:
  std::filesystem::path _before;
};

}  // namespace qsbase::testing

#endif
