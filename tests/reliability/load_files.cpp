// Very many files: clean-up by age and by count, lists of a folder with a million names, a million names for one wish.
#include <reliability/load.h>

#include <fcntl.h>
#include <sys/stat.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <list>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <QSbase/support/cleanup.h>
#include <QSbase/support/filesupport.h>
#include <QSbase/support/findfile.h>
#include <QSbase/support/uniquename.h>
#include <QSbase/text/namematcher.h>

#include <common/platform.h>

namespace qsbase::testing {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kMinute = 60 * kSecond;

// Fails where it exists.
bool MakeNewFile(const std::string& path) {
#ifdef _WIN32
  const int file = _open(path.c_str(), _O_CREAT | _O_EXCL | _O_WRONLY, _S_IREAD | _S_IWRITE);
  return file != -1 && _close(file) == 0;
#else
  const int file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
  return file != -1 && close(file) == 0;
#endif
}

void MakeFile(const std::string& path) { Require(MakeNewFile(path), "cannot create " + path); }

bool Exists(const std::string& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::int64_t Now() { return static_cast<std::int64_t>(std::time(nullptr)) * kSecond; }

// ---- clean-up -------------------------------------------------------------------------------------------------------

constexpr std::int64_t kFolder = 1000;  // files in each

/// One of the files of a tree: every second folder is below the one that is to be spared, every third file is young.
struct Candidate {
  Candidate(const std::string& top, std::int64_t number)
      : spared(number / kFolder % 2 == 1),
        young(number % 3 == 0),
        folder(top + (spared ? "/keep/" : "/") + std::to_string(number / kFolder)),
        path(folder + "/" + std::to_string(number) + ".tmp") {}

  bool Stays() const { return spared || young; }

  bool spared;
  bool young;
  std::string folder;
  std::string path;
};

void MakeTree(const std::string& top, std::int64_t files) {
  const std::int64_t now = Now();
  for (std::int64_t number = 0; number < files; ++number) {
    const Candidate file(top, number);
    if (number % kFolder == 0) {
      fs::create_directories(file.folder);
    }
    MakeFile(file.path);
    SetTimes(file.path, now - (file.young ? 50 : 90) * kMinute);
  }
}

std::int64_t CheckTree(const std::string& top, std::int64_t files) {
  std::int64_t staying = 0;
  for (std::int64_t number = 0; number < files; ++number) {
    const Candidate file(top, number);
    staying += file.Stays() ? 1 : 0;
    Require(Exists(file.path) == file.Stays(), file.path + (file.Stays() ? " is gone" : " is still there"));
  }
  return staying;
}

void CleanUpByAge(std::int64_t files, const std::string& dir) {
  const std::string top = dir + "/tree";
  MakeTree(top, files);
  Measure("clean-up of a tree by age", files, [&] { QsCleanupDir(top + "/", top + "/keep", 60); });
  const std::int64_t staying = CheckTree(top, files);
  Measure("deletion of what stayed, with its folders", staying,
          [&] { Require(QsDeleteDirectoryRecurse(top, true, -1, true, nullptr, false), "the tree stays"); });
  Require(!Exists(top), "the tree is still there");
}

// Names say nothing of the age. Every fourth file is none of the log's.
std::string FlatName(const std::string& dir, std::int64_t age) {
  return dir + "/" + std::to_string(age * 7919 % 1000003) + "-" + std::to_string(age) +
         (age % 4 == 3 ? ".txt" : ".log");
}

void CleanUpByCount(std::int64_t files, const std::string& dir) {
  const std::string flat = dir + "/flat";
  fs::create_directory(flat);
  const std::int64_t now = Now();
  for (std::int64_t age = 0; age < files; ++age) {
    MakeFile(FlatName(flat, age));
    SetTimes(FlatName(flat, age), now - age * (kSecond / 4));
  }
  const std::int64_t logs = files - files / 4;
  const std::int64_t keep = logs / 3;
  Measure("clean-up of a folder by count", files, [&] {
    RequireEqual(QsCleanupDirectory(flat, static_cast<unsigned>(keep), "*.log", false), logs - keep, "deleted");
  });
  std::int64_t kept = 0;
  for (std::int64_t age = 0; age < files; ++age) {
    const bool stays = age % 4 == 3 || kept++ < keep;
    Require(Exists(FlatName(flat, age)) == stays, FlatName(flat, age) + (stays ? " is gone" : " is still there"));
  }
  Measure("deletion by a pattern", keep,
          [&] { RequireEqual(QsDeleteFiles(flat + "/*.log", false), keep, "deleted by a pattern"); });
  RequireEqual(QsGetDirFileCount(flat), files / 4, "files of other names");
}

// ---- lists ----------------------------------------------------------------------------------------------------------

/// Whether every name of the folder came once.
class Tally {
 public:
  explicit Tally(std::int64_t names) : _seen(static_cast<std::size_t>(names), false) {}

  static std::string NameOf(std::int64_t number) { return "file-" + std::to_string(number) + ".dat"; }

  void Take(const std::string& name) {
    const std::int64_t number = std::strtoll(name.c_str() + 5, nullptr, 10);
    Require(number >= 0 && number < static_cast<std::int64_t>(_seen.size()) && name == NameOf(number),
            "an unknown name: " + name);
    Require(!_seen[static_cast<std::size_t>(number)], name + " came twice");
    _seen[static_cast<std::size_t>(number)] = true;
    ++_count;
  }

  void RequireAll(const char* what) const { RequireEqual(_count, static_cast<std::int64_t>(_seen.size()), what); }

 private:
  std::vector<bool> _seen;
  std::int64_t _count = 0;
};

void FindAll(const std::string& dir, std::int64_t names) {
  Tally tally(names);
  Measure("CQsFindFile", names, [&] {
    CQsFindFile find(dir, "*", 0);
    for (long found = find.FindFirst(); found != -1; found = find.FindNext()) {
      if (!find.IsThisDir_PrevDir()) {
        tally.Take(find.Filename());
      }
    }
  });
  tally.RequireAll("names of CQsFindFile");
}

void GetAll(const std::string& dir, std::int64_t names) {
  Tally tally(names);
  Measure("GetAllFiles", names, [&] {
    std::list<std::string> files;
    GetAllFiles(dir, "*.dat", files, 0);
    for (const std::string& file : files) {
      tally.Take(file.substr(dir.size() + 1));
    }
  });
  tally.RequireAll("names of GetAllFiles");
}

void BuildList(const std::string& dir, std::int64_t names, std::vector<std::string>& list) {
  Tally tally(names);
  Measure("QsBuildFileList", names, [&] { QsBuildFileList(dir, "*", list, 1, -1); });
  for (const std::string& name : list) {
    tally.Take(name);
  }
  tally.RequireAll("names of QsBuildFileList");
}

void BuildSortedList(const std::string& dir, std::int64_t names) {
  Tally tally(names);
  Measure("QsBuildFileListTimeAgeSorted", names, [&] {
    std::multimap<QsDateTime, std::string> list;
    QsBuildFileListTimeAgeSorted(dir, "*", list, 1, 0);
    for (const auto& entry : list) {
      tally.Take(entry.second);
    }
  });
  tally.RequireAll("names of QsBuildFileListTimeAgeSorted");
}

// Numbers that end in 7: the first is 7, then one in each ten.
std::int64_t EndingInSeven(std::int64_t names) { return (names + 2) / 10; }

void MatchAll(const std::string& dir, const std::vector<std::string>& list) {
  const auto names = static_cast<std::int64_t>(list.size());
  Measure("QsBuildFileList, a tenth matches", names, [&] {
    std::vector<std::string> matching;
    QsBuildFileList(dir, "*7.dat", matching, 1, -1);
    RequireEqual(static_cast<std::int64_t>(matching.size()), EndingInSeven(names), "names that match");
  });
  const CNameMatcher matcher("*.txt;*.log;part??.rar;#^data[0-9]+$;*7.DAT", true);
  Measure("CNameMatcher of 5 patterns", names, [&] {
    std::int64_t matching = 0;
    for (const std::string& name : list) {
      matching += matcher.MatchName(name);
    }
    RequireEqual(matching, EndingInSeven(names), "names that CNameMatcher matches");
  });
}

}  // namespace

void CleanUp(std::int64_t files, const std::string& dir) {
  CleanUpByAge(files, dir);
  CleanUpByCount(files, dir);
}

void ListNames(std::int64_t names, const std::string& dir) {
  for (std::int64_t number = 0; number < names; ++number) {
    MakeFile(dir + "/" + Tally::NameOf(number));
  }
  FindAll(dir, names);
  GetAll(dir, names);
  BuildSortedList(dir, names);
  std::vector<std::string> list;
  BuildList(dir, names, list);
  MatchAll(dir, list);
  Measure("QsGetDirFileCount", names, [&] { RequireEqual(QsGetDirFileCount(dir), names, "files"); });
}

// Each name is taken at once, by a creation that fails where it exists: nobody was given it before.
void MakeUniqueNames(std::int64_t names, const std::string& dir) {
  constexpr std::int64_t kThreads = 4;
  const std::string wanted = dir + "/report.txt";
  MakeFile(wanted);
  CUniqueFilenameManager manager(1, " (", ")");
  std::atomic<std::int64_t> made{0};
  Measure("unique names, taken by 4 threads", names, [&] {
    std::vector<std::thread> threads;
    for (std::int64_t thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, share = (names + thread) / kThreads] {
        for (std::int64_t i = 0; i < share; ++i) {
          std::string path;
          manager.GetUniquePath(wanted, path, true);
          made += MakeNewFile(path) ? 1 : 0;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  });
  RequireEqual(made, names, "names that nobody had");
  RequireEqual(QsGetDirFileCount(dir), names + 1, "files");
  Require(Exists(dir + "/report (" + std::to_string(names) + ").txt"), "a number was left out");
}

}  // namespace qsbase::testing
