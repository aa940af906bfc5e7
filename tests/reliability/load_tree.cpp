// A directory tree that goes down very far: as far as a path of the library reaches, and much further.
#include <reliability/load.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/zlibsupport.h>

#include <common/platform.h>
#include <common/sanitized.h>

namespace qsbase::testing {

namespace {

namespace fs = std::filesystem;

// What a program has at least by default on the systems; the sanitizers make frames several times as large.
#ifdef QSBASE_TESTS_SANITIZED
constexpr std::size_t kStack = std::size_t{8} << 20;
#else
constexpr std::size_t kStack = std::size_t{512} << 10;
#endif

void* Call(void* work) {
  (*static_cast<const std::function<void()>*>(work))();
  return nullptr;
}

/// Runs the work in a thread with a small stack.
void OnASmallStack(const std::function<void()>& work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStack);
  pthread_t thread;
  Require(pthread_create(&thread, &attributes, &Call, const_cast<std::function<void()>*>(&work)) == 0, "no thread");
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

constexpr const char* kFile = "f";

#ifdef _WIN32
/// Directories in each other, with a file in each. Made and looked at by paths that the system takes at any length.
class DeepTree {
 public:
  DeepTree(const std::string& top, const std::string& name, std::int64_t levels)
      : _top(L"\\\\?\\" + fs::path(top).make_preferred().wstring()),
        _step(L"\\" + std::wstring(name.begin(), name.end())),
        _levels(levels) {
    std::wstring path = _top;
    for (std::int64_t level = 0; level < levels; ++level) {
      Require(_wmkdir(path.c_str()) == 0, "a directory of the tree");
      Require(Create(path + L"\\f"), "a file of the tree");
      path += _step;
    }
  }

  /// Of each level, whether its file is there.
  std::vector<bool> Files() const {
    std::vector<bool> there;
    std::wstring path = _top;
    for (std::int64_t level = 0; level < _levels; ++level) {
      there.push_back(_waccess((path + L"\\f").c_str(), 0) == 0);
      path += _step;
    }
    return there;
  }

  void Remove() {}  // the folder's removal goes as deep

 private:
  static bool Create(const std::wstring& path) {
    std::FILE* const file = _wfopen(path.c_str(), L"wb");
    return file != nullptr && std::fclose(file) == 0;
  }

  std::wstring _top;
  std::wstring _step;
  std::int64_t _levels;
};
#else
/// Directories in each other, with a file in each. Made and looked at from one to the next, so that no path is long.
class DeepTree {
 public:
  DeepTree(std::string top, std::string name, std::int64_t levels)
      : _top(std::move(top)), _name(std::move(name)), _levels(levels) {
    Require(mkdir(_top.c_str(), 0700) == 0, "a directory of the tree");
    int at = open(_top.c_str(), O_DIRECTORY | O_CLOEXEC);
    for (std::int64_t level = 0; level < _levels; ++level) {
      const int file = openat(at, kFile, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
      Require(file != -1 && close(file) == 0, "a file of the tree");
      Require(level + 1 == _levels || mkdirat(at, _name.c_str(), 0700) == 0, "a directory of the tree");
      at = Follow(at, level + 1 == _levels ? "." : _name.c_str());
    }
    close(at);
  }

  /// Of each level, whether its file is there.
  std::vector<bool> Files() const {
    std::vector<bool> there;
    int at = open(_top.c_str(), O_DIRECTORY | O_CLOEXEC);
    for (std::int64_t level = 0; level < _levels; ++level) {
      there.push_back(at != -1 && faccessat(at, kFile, F_OK, AT_SYMLINK_NOFOLLOW) == 0);
      at = Follow(at, _name.c_str());
    }
    Close(at);
    return there;
  }

  /// From the bottom up.
  void Remove() {
    int at = open(_top.c_str(), O_DIRECTORY | O_CLOEXEC);
    std::int64_t depth = 0;
    for (int next = at; next != -1; ++depth) {
      next = openat(at, _name.c_str(), O_DIRECTORY | O_CLOEXEC);
      if (next != -1) {
        Close(at);
        at = next;
      }
    }
    for (; at != -1 && depth > 0; --depth) {
      unlinkat(at, kFile, 0);
      unlinkat(at, _name.c_str(), AT_REMOVEDIR);
      at = Follow(at, "..");
    }
    Close(at);
    rmdir(_top.c_str());
  }

 private:
  static void Close(int at) {
    if (at != -1) {
      close(at);
    }
  }

  static int Follow(int at, const char* name) {
    const int next = at == -1 ? -1 : openat(at, name, O_DIRECTORY | O_CLOEXEC);
    Close(at);
    return next;
  }

  std::string _top;
  std::string _name;
  std::int64_t _levels;
};
#endif

std::int64_t CountOf(const std::vector<bool>& files) { return std::count(files.begin(), files.end(), true); }

std::vector<std::string> ListOf(const std::string& top) {
  std::vector<std::string> list;
  QsBuildFileList(top, "*", list, 5, -1);
  return list;
}

// "f", "name\f", "name\name\f" and so on, as the walk finds them.
void RequireALine(const std::vector<std::string>& list, const std::string& name) {
  std::vector<std::size_t> lengths;
  for (const std::string& file : list) {
    lengths.push_back(file.size());
  }
  std::sort(lengths.begin(), lengths.end());
  for (std::size_t level = 0; level < lengths.size(); ++level) {
    RequireEqual(static_cast<std::int64_t>(lengths[level]), static_cast<std::int64_t>(level * (name.size() + 1) + 1),
                 "the length of a listed name");
  }
}

// How many of the levels a path reaches: their own path, a separator and the "*" of a listing end at 2047 characters.
std::int64_t ReachOf(const std::string& top, const std::string& name, std::int64_t levels) {
  constexpr std::size_t kLongest = 2047;
  const auto reach = static_cast<std::int64_t>((kLongest - top.size() - 2) / (name.size() + 1) + 1);
  return std::min(levels, reach);
}

void RequireFiles(const DeepTree& tree, std::int64_t gone, std::int64_t levels, const char* after) {
  const std::vector<bool> files = tree.Files();
  RequireEqual(CountOf(files), levels - gone, std::string("files after ") + after);
  for (std::int64_t level = 0; level < levels; ++level) {
    Require(files[static_cast<std::size_t>(level)] == (level >= gone),
            "another file than should is gone after " + std::string(after));
  }
}

// All of it within reach: it is listed, cleaned and deleted whole.
void WithinReach(std::int64_t levels, const std::string& dir) {
  const std::string top = dir + "/t";
  DeepTree tree(top, "d", levels);
  Measure("a tree within reach: listed", levels, [&] {
    const std::vector<std::string> list = ListOf(top);
    RequireEqual(static_cast<std::int64_t>(list.size()), levels, "listed files");
    RequireALine(list, "d");
  });
  Measure("a tree within reach: deleted", levels,
          [&] { Require(QsDeleteDirectoryRecurse(top, true, -1, false, nullptr, false), "the tree stays"); });
  Require(!fs::exists(top), "the tree is still there");
}

// What lies deeper than a path reaches is not listed and stays; a deletion says that it is not done.
void BeyondReach(std::int64_t levels, const std::string& dir) {
  const std::string top = dir + "/t";
  const std::string name = "0123456789";
  DeepTree tree(top, name, levels);
  std::int64_t reach = 0;
  Measure("a tree far beyond reach: listed", levels, [&] {
    const std::vector<std::string> list = ListOf(top);
    reach = static_cast<std::int64_t>(list.size());
    RequireALine(list, name);
  });
  Require(reach > 1 && reach <= ReachOf(top, name, levels), "the list ends at another level");
  Require(kOnWindows || reach == ReachOf(top, name, levels), "the list ends before a path does");
  Measure("a tree far beyond reach: deletion that stops", levels, [&] {
    RequireEqual(QsDeleteDirectoryRecurse(top, true, -1, false, nullptr, false) ? 1 : 0, reach == levels ? 1 : 0,
                 "deletion");
  });
  if (reach == levels) {
    return;
  }
  RequireFiles(tree, 0, levels, "a deletion that stops");
  Measure("a tree far beyond reach: deletion that goes on", levels,
          [&] { Require(!QsDeleteDirectoryRecurse(top, true, -1, false, nullptr, true), "deletion says it is done"); });
  RequireFiles(tree, reach, levels, "a deletion that goes on");
  tree.Remove();
}

// By age, with the same reach. Every file is from before the present second began, or from within it.
void CleanedBeyondReach(std::int64_t levels, const std::string& dir) {
  const std::string top = dir + "/t";
  DeepTree tree(top, "0123456789", levels);
  const auto reach = static_cast<std::int64_t>(ListOf(top).size());
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  Measure("a tree far beyond reach: cleaned up by age", levels, [&] { QsCleanupDir(top + "/", "", 0); });
  RequireFiles(tree, reach, levels, "a clean-up by age");
  tree.Remove();
  Require(kOnWindows || !fs::exists(top), "the tree is still there");
}

// An archive that nobody vouches for may ask for such a tree too. Directories are made up to paths of 259 characters.
void Extracted(std::int64_t levels, const std::string& dir) {
  constexpr std::size_t kMadePath = 259;
  constexpr int kNoDirectory = -7;
  std::string name;
  for (std::int64_t level = 0; level < levels; ++level) {
    name += "d/";
  }
  const std::string archive = dir + "/deep.zip";
  const std::string out = dir + "/out";
  Require(QsWrite2Zip(archive.c_str(), "content", QsDateTime::Now(), false, (name + kFile).c_str()), "no archive");
  int code = 1;
  Measure("an archive with a deep entry: extracted", levels,
          [&] { code = QsExtractWholeFile(archive.c_str(), out.c_str(), nullptr, nullptr); });
  const bool fits = out.size() + 1 + name.size() + 1 <= kMadePath;
  RequireEqual(code, fits ? 0 : kNoDirectory, "result of the extraction");
  RequireEqual(static_cast<std::int64_t>(ListOf(out).size()), fits ? 1 : 0, "extracted files");
  Require(QsDeleteDirectoryRecurse(out, true, -1, false, nullptr, false), "what was extracted stays");
}

}  // namespace

void WalkDeepTree(std::int64_t levels, const std::string& dir) {
  std::string error;
  fs::create_directory(dir + "/cleaned");
  OnASmallStack([&] {
    try {
      WithinReach(std::min<std::int64_t>(levels, kOnWindows ? 60 : 950), dir);
      BeyondReach(levels, dir);
      CleanedBeyondReach(levels, dir + "/cleaned");
      Extracted(levels, dir);
    } catch (const std::exception& failure) {
      error = failure.what();
    }
  });
  Require(error.empty(), error);
}

}  // namespace qsbase::testing
